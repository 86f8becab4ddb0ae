# Debian packages of a PC or Debian armhf build (cpack -G DEB in the build tree):
#
#   liborvicutil1      runtime: liborvicutil.so.1.1.1603 and its .so.1 link,
#                      the key library and the private platform libraries
#   liborvicutil-dev   development: the .so links, headers, CMake package,
#                      pkg-config file
#   orvic-mediaplayer-plugin  the Qt Multimedia back end in Qt's plugin folder
#
# The architecture is the build's target (amd64, armhf, ...). The runtime
# dependencies are written out here rather than computed by dpkg-shlibdeps,
# which cannot look into a cross build's sysroot; the package test
# (tests/install/PackageCheck.cmake) checks that every library the packaged
# files NEED is shipped or covered here, and on a native build that
# dpkg-shlibdeps asks for nothing more.
#
# A device build makes no packages: its Qt and platform libraries are the
# device's, not Debian's.

if(ORVIC_DEVICE_BUILD)
    return()
endif()

include(${CMAKE_CURRENT_LIST_DIR}/OrvicDebianDepends.cmake)

orvic_debian_arch(_deb_arch)
if(NOT _deb_arch)
    message(STATUS "Debian packages: target architecture unknown (no dpkg-architecture); cpack -G DEB disabled")
    return()
endif()

set(ORVIC_DEB_REVISION 1)
set(ORVIC_DEB_VERSION "${PROJECT_VERSION}-${ORVIC_DEB_REVISION}")

set(CPACK_PACKAGE_NAME liborvicutil)
set(CPACK_PACKAGE_VENDOR "Orvic")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES TRUE)
set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL runtime development mediaplayer)
set(CPACK_DEB_COMPONENT_INSTALL ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE "${ORVIC_DEB_REVISION}")
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE "${_deb_arch}")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Orvic platform team <platform@orvic.invalid>")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SOURCE liborvicutil)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME liborvicutil1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(_orvic_runtime_depends ${ORVIC_DEB_RUNTIME_DEPENDS})
if(TARGET psserver)
    list(APPEND _orvic_runtime_depends ${ORVIC_DEB_SERVICE_DEPENDS})
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "${ORVIC_DEB_SERVICE_RECOMMENDS}")
endif()
list(JOIN _orvic_runtime_depends ", " CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS)
# First line: the synopsis.
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
"Qt 5 player session of the Orvic media device
liborvicutil gives a media application one QOrvicPlayerSession per player:
commands are queued, state, position, metadata and errors come back as Qt
signals. This build is for Debian systems, not the device itself: it
carries the device's Qt Multimedia additions and stand-in builds of the
device platform libraries.")
# shlibs: clients built against 1.1.1603 need at least that; triggers: ldconfig.
set(_control "${CMAKE_CURRENT_BINARY_DIR}/debian-runtime")
file(MAKE_DIRECTORY "${_control}")
file(WRITE "${_control}/shlibs"
    "liborvicutil 1 liborvicutil1 (>= ${PROJECT_VERSION})\n"
    "libqtmultimedia_device 1 liborvicutil1 (>= ${PROJECT_VERSION})\n")
file(WRITE "${_control}/triggers" "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${_control}/shlibs;${_control}/triggers")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME liborvicutil-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "liborvicutil1 (= ${ORVIC_DEB_VERSION}), qtbase5-dev (>= 5.15.1), qtmultimedia5-dev (>= 5.15.1)")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
"Qt 5 player session of the Orvic media device (development files)
Headers of liborvicutil with the device's Qt Multimedia additions, the
CMake package (find_package(OrvicUtil), target OrvicUtil::orvicutil) and
the pkg-config file orvicutil.pc.")

# The back end in a package of its own: installing it puts it among the
# back ends every Qt application on the machine may pick, which is a choice
# of its own, not a side effect of installing the library.
set(CPACK_DEBIAN_MEDIAPLAYER_PACKAGE_NAME orvic-mediaplayer-plugin)
set(CPACK_DEBIAN_MEDIAPLAYER_PACKAGE_SECTION libs)
set(_orvic_plugin_depends "liborvicutil1 (= ${ORVIC_DEB_VERSION})" ${ORVIC_DEB_PLUGIN_DEPENDS})
list(JOIN _orvic_plugin_depends ", " CPACK_DEBIAN_MEDIAPLAYER_PACKAGE_DEPENDS)
set(CPACK_DEBIAN_MEDIAPLAYER_DESCRIPTION
"Qt Multimedia back end playing through the Orvic player session
QMediaPlayer and QML MediaPlayer play through QOrvicPlayerSession and its
playback service with this plugin; QT_MULTIMEDIA_PREFERRED_PLUGINS=orvic
selects it ahead of other back ends.")

include(CPack)
