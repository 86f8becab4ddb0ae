# Cross builds run Qt's code generators on the build machine. The target
# sysroot's Qt CMake files name its own (ARM) moc and rcc; defining the
# imported executables first makes them point at the host's tools instead
# (Qt's files only create these targets when they do not exist yet).
# Include before the first find_package(Qt5).
#
#   ORVIC_HOST_QT_BINDIR  where the host's moc and rcc live (Debian: /usr/lib/qt5/bin)

if(NOT CMAKE_CROSSCOMPILING)
    return()
endif()

set(ORVIC_HOST_QT_BINDIR "/usr/lib/qt5/bin" CACHE PATH "Host Qt 5 tools (moc, rcc) for cross builds")
foreach(_tool moc rcc)
    string(TOUPPER "${_tool}" _TOOL)
    find_program(ORVIC_HOST_${_TOOL} NAMES ${_tool} PATHS "${ORVIC_HOST_QT_BINDIR}" NO_DEFAULT_PATH)
    if(NOT ORVIC_HOST_${_TOOL})
        message(FATAL_ERROR "cross build: the host's Qt 5 ${_tool} was not found in ORVIC_HOST_QT_BINDIR "
                            "(${ORVIC_HOST_QT_BINDIR}); install qtbase5-dev-tools or point it elsewhere")
    endif()
    if(NOT TARGET Qt5::${_tool})
        add_executable(Qt5::${_tool} IMPORTED)
        set_target_properties(Qt5::${_tool} PROPERTIES IMPORTED_LOCATION "${ORVIC_HOST_${_TOOL}}")
    endif()
endforeach()

# moc's output only builds against the Qt minor version it came from.
execute_process(COMMAND "${ORVIC_HOST_MOC}" -v OUTPUT_VARIABLE _moc_v ERROR_VARIABLE _moc_v)
string(REGEX MATCH "[0-9]+\\.[0-9]+" _host_qt "${_moc_v}")
find_package(Qt5Core CONFIG REQUIRED)
if(NOT _host_qt VERSION_EQUAL "${Qt5Core_VERSION_MAJOR}.${Qt5Core_VERSION_MINOR}")
    message(FATAL_ERROR "cross build: host moc is Qt ${_host_qt}, the target's Qt is ${Qt5Core_VERSION}; "
                        "point ORVIC_HOST_QT_BINDIR at host tools of the target's Qt version")
endif()
message(STATUS "Cross build: host moc/rcc of Qt ${_host_qt} from ${ORVIC_HOST_QT_BINDIR}, target Qt ${Qt5Core_VERSION} in "
               "${Qt5Core_DIR}")
