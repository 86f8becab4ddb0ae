# Debian's multiarch library directory (lib/<triplet>) also under /usr/local,
# where the loader, pkg-config and find_package all look for it, and in the
# packages. Include right after project(), before anything includes
# GNUInstallDirs (which otherwise picks plain "lib" outside /usr).
if(NOT DEFINED CMAKE_INSTALL_LIBDIR AND CMAKE_LIBRARY_ARCHITECTURE AND EXISTS /etc/debian_version)
    set(CMAKE_INSTALL_LIBDIR "lib/${CMAKE_LIBRARY_ARCHITECTURE}" CACHE PATH "Object code libraries (lib)")
endif()
include(GNUInstallDirs)
