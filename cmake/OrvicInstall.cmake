# Installed layout of liborvicutil (cmake --install, and the Debian packages):
#
#   <libdir>/liborvicutil.so.1.1.1603, .so.1 (runtime), .so (development)
#   <includedir>/orvicutil/               session, metadata records, name tables
#   <includedir>/orvicutil/{playback,cutils,spplfctrl}/   platform declarations
#   <libdir>/cmake/OrvicUtil/             find_package(OrvicUtil)
#   <libdir>/pkgconfig/orvicutil.pc       pkg-config
#   <datadir>/doc/liborvicutil-dev/html/  HTML API reference, where Doxygen
#                                         was found
# and on a PC, where no device platform exists:
#   <includedir>/orvicutil/qtoverlay/     the device's Qt Multimedia additions
#   <libdir>/libqtmultimedia_device.so.1  the extra metadata keys
#   <libdir>/orvicutil/                   the PC platform libraries that
#                                         liborvicutil NEEDs, found through its
#                                         RUNPATH ($ORIGIN/orvicutil)
# A device build installs only the first group: the device has the rest.
#
# Components: "runtime" (shared libraries) and "development" (the rest).

include(GNUInstallDirs)  # directories chosen in cmake/OrvicInstallDirs.cmake
include(CMakePackageConfigHelpers)

set(ORVIC_INSTALL_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/orvicutil")
set(ORVIC_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/OrvicUtil")
set(ORVIC_INSTALL_PRIVATE_LIBDIR "${CMAKE_INSTALL_LIBDIR}/orvicutil")

# --- libraries ---------------------------------------------------------------
install(TARGETS orvicutil
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT runtime NAMELINK_COMPONENT development)

if(NOT ORVIC_DEVICE_BUILD)
    set_target_properties(orvicutil PROPERTIES INSTALL_RPATH "\$ORIGIN/orvicutil;\$ORIGIN")
    install(TARGETS qtmultimedia_device
        LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT runtime NAMELINK_COMPONENT development)
    # Private to liborvicutil: no link names, nothing for clients to link.
    install(TARGETS cutils sppfc playback
        LIBRARY DESTINATION "${ORVIC_INSTALL_PRIVATE_LIBDIR}" COMPONENT runtime NAMELINK_SKIP)
    # The service that libcutils.so.1 starts, looked for beside that library.
    if(TARGET psserver)
        install(TARGETS psserver RUNTIME DESTINATION "${ORVIC_INSTALL_PRIVATE_LIBDIR}" COMPONENT runtime)
    endif()
endif()

# --- headers -----------------------------------------------------------------
install(FILES ${ORVICUTIL_PUBLIC_HEADERS}
    DESTINATION "${ORVIC_INSTALL_INCLUDEDIR}" COMPONENT development)
install(DIRECTORY platform/include/
    DESTINATION "${ORVIC_INSTALL_INCLUDEDIR}" COMPONENT development
    FILES_MATCHING PATTERN "*.h")

set(ORVIC_INSTALLED_INCLUDE_DIRS "${ORVIC_INSTALL_INCLUDEDIR}")
if(NOT ORVIC_DEVICE_BUILD)
    # The generated overlay (stock headers of the Qt built against, with the
    # device additions) goes first on a client's include path, like here.
    get_target_property(_overlay_dirs orvic_qtdevice INTERFACE_INCLUDE_DIRECTORIES)
    list(GET _overlay_dirs 0 _overlay_root)
    install(DIRECTORY "${_overlay_root}/"
        DESTINATION "${ORVIC_INSTALL_INCLUDEDIR}/qtoverlay" COMPONENT development)
    set(ORVIC_INSTALLED_INCLUDE_DIRS
        "${ORVIC_INSTALL_INCLUDEDIR}/qtoverlay"
        "${ORVIC_INSTALL_INCLUDEDIR}/qtoverlay/QtMultimedia"
        "${ORVIC_INSTALL_INCLUDEDIR}")
endif()

# --- CMake package -----------------------------------------------------------
set(ORVIC_QT_MAJOR_MINOR "${Qt5Core_VERSION_MAJOR}.${Qt5Core_VERSION_MINOR}")
set(ORVIC_CONFIG_LIBRARY "${CMAKE_INSTALL_LIBDIR}/liborvicutil.so.${PROJECT_VERSION}")
set(ORVIC_CONFIG_SONAME "liborvicutil.so.${PROJECT_VERSION_MAJOR}")
set(ORVIC_CONFIG_DEVICE_KEYS_LIBRARY "${CMAKE_INSTALL_LIBDIR}/libqtmultimedia_device.so.1")
set(ORVIC_CONFIG_DEVICE_KEYS_SONAME "libqtmultimedia_device.so.1")
if(ORVIC_DEVICE_BUILD)
    set(ORVIC_CONFIG_HOST_ADDITIONS FALSE)
else()
    set(ORVIC_CONFIG_HOST_ADDITIONS TRUE)
endif()
set(ORVIC_CONFIG_INCLUDE_DIRS "")
foreach(_d IN LISTS ORVIC_INSTALLED_INCLUDE_DIRS)
    string(APPEND ORVIC_CONFIG_INCLUDE_DIRS " \"\${PACKAGE_PREFIX_DIR}/${_d}\"")
endforeach()

configure_package_config_file(cmake/OrvicUtilConfig.cmake.in
    "${CMAKE_CURRENT_BINARY_DIR}/OrvicUtilConfig.cmake"
    INSTALL_DESTINATION "${ORVIC_INSTALL_CMAKEDIR}"
    PATH_VARS ORVIC_CONFIG_LIBRARY ORVIC_CONFIG_DEVICE_KEYS_LIBRARY)
write_basic_package_version_file("${CMAKE_CURRENT_BINARY_DIR}/OrvicUtilConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/OrvicUtilConfig.cmake"
              "${CMAKE_CURRENT_BINARY_DIR}/OrvicUtilConfigVersion.cmake"
    DESTINATION "${ORVIC_INSTALL_CMAKEDIR}" COMPONENT development)

# --- pkg-config --------------------------------------------------------------
# Written at install time: the prefix is the one installed to (cmake --install
# --prefix, or /usr inside a package).
set(ORVIC_PC_CFLAGS "")
foreach(_d IN LISTS ORVIC_INSTALLED_INCLUDE_DIRS)
    string(APPEND ORVIC_PC_CFLAGS " -I\${prefix}/${_d}")
endforeach()
string(STRIP "${ORVIC_PC_CFLAGS}" ORVIC_PC_CFLAGS)
set(ORVIC_PC_LIBS "-L\${libdir} -lorvicutil")
if(NOT ORVIC_DEVICE_BUILD)
    string(APPEND ORVIC_PC_LIBS " -lqtmultimedia_device")
endif()
# First pass here, second pass (the prefix) at install time.
set(ORVIC_PC_PREFIX "@CMAKE_INSTALL_PREFIX@")
configure_file(cmake/orvicutil.pc.in "${CMAKE_CURRENT_BINARY_DIR}/orvicutil.pc.in" @ONLY)
# Each prefix gets its own generated file: installs to several prefixes may
# run at the same time (the install tests do).
install(CODE "
    string(MD5 _orvic_pc_key \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\")
    set(_orvic_pc \"${CMAKE_CURRENT_BINARY_DIR}/pkgconfig/\${_orvic_pc_key}/orvicutil.pc\")
    configure_file(\"${CMAKE_CURRENT_BINARY_DIR}/orvicutil.pc.in\" \"\${_orvic_pc}\" @ONLY)
    file(INSTALL DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig\" TYPE FILE FILES \"\${_orvic_pc}\")"
    COMPONENT development)

# --- API reference -----------------------------------------------------------
# Doxygen's HTML, built in the normal build (docs/CMakeLists.txt).
if(TARGET orvicutil_docs)
    install(DIRECTORY "${ORVIC_DOCS_HTML_DIR}/"
        DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/doc/liborvicutil-dev/html" COMPONENT development)
endif()
