# Cross build for 32-bit ARM Linux (arm-linux-gnueabihf, hard float) with
# Debian's crossbuild-essential-armhf against a sysroot:
#
#   cmake -S . -B build-armhf -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake \
#         -DORVIC_SYSROOT=<sysroot>
#
# ORVIC_SYSROOT (cache variable, or the environment variable of that name) is a
# Debian armhf tree such as scripts/armhf-sysroot.sh makes, or the device's own
# sysroot for -DORVIC_DEVICE_BUILD=ON. Tests run under qemu-arm with the
# sysroot as its library root, so ctest runs them as they are.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(ORVIC_TARGET_TRIPLET arm-linux-gnueabihf)

if(NOT ORVIC_SYSROOT AND DEFINED ENV{ORVIC_SYSROOT})
    set(ORVIC_SYSROOT "$ENV{ORVIC_SYSROOT}")
endif()
if(NOT ORVIC_SYSROOT OR NOT IS_DIRECTORY "${ORVIC_SYSROOT}")
    message(FATAL_ERROR "armhf toolchain: set ORVIC_SYSROOT to an armhf sysroot "
                        "(scripts/armhf-sysroot.sh prints the path of one); got '${ORVIC_SYSROOT}'")
endif()
get_filename_component(ORVIC_SYSROOT "${ORVIC_SYSROOT}" REALPATH)
set(ORVIC_SYSROOT "${ORVIC_SYSROOT}" CACHE PATH "Target sysroot of the cross build" FORCE)
# try_compile projects read this file again: hand the sysroot on to them.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ORVIC_SYSROOT)

set(CMAKE_C_COMPILER ${ORVIC_TARGET_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${ORVIC_TARGET_TRIPLET}-g++)
set(CMAKE_SYSROOT "${ORVIC_SYSROOT}")
# Target libraries, headers and packages from the sysroot only; programs
# (moc, rcc, pkg-config, qemu) from the build machine.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config answers for the target: its .pc files, paths under the sysroot.
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${ORVIC_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR}
    "${ORVIC_SYSROOT}/usr/lib/${ORVIC_TARGET_TRIPLET}/pkgconfig:${ORVIC_SYSROOT}/usr/lib/pkgconfig:${ORVIC_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

find_program(ORVIC_QEMU_ARM NAMES qemu-arm qemu-arm-static)
if(ORVIC_QEMU_ARM)
    # GStreamer (behind Qt Multimedia's player) scans its plugins in a forked
    # helper, an ARM program the build machine cannot start: scan in-process.
    set(CMAKE_CROSSCOMPILING_EMULATOR "${ORVIC_QEMU_ARM};-L;${ORVIC_SYSROOT};-E;GST_REGISTRY_FORK=no")
endif()
