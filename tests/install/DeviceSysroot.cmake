# Configures the project in device build mode (-DORVIC_DEVICE_BUILD=ON)
# against a made-up device sysroot and checks the outcome (cmake -P):
#
#   -DCASE=stock        the sysroot's Qt is stock Qt           -> fails, names the missing additions
#   -DCASE=noplatform   Qt has the additions, no platform libs -> fails, names libcutils.so.1
#   -DCASE=complete     Qt has the additions, platform libs    -> configures; with -DBUILD=ON also
#                       builds and installs the library and checks what it NEEDs and installs
#   -DSOURCE_DIR=<project> -DBUILD_DIR=<a PC-mode build tree of the same target>
#   -DWORK_DIR=<scratch> -DBASE_SYSROOT=<"/" or a target sysroot> -DTRIPLET=<multiarch triplet>
#   -DCXX=<compiler> -DGENERATOR=<generator> [-DTOOLCHAIN_FILE=<cross toolchain file>]
#
# The sysroot is BASE_SYSROOT seen through symbolic links; only the paths that
# differ on a device are real: Qt Multimedia's headers carry the additions
# (the PC build's overlay), its library also brings the extra keys (a linker
# script adding the PC build's key library), and for "complete" the PC build's
# platform libraries stand in for the device's.

cmake_minimum_required(VERSION 3.21)
include("${CMAKE_CURRENT_LIST_DIR}/SysrootView.cmake")

foreach(_v CASE SOURCE_DIR BUILD_DIR WORK_DIR BASE_SYSROOT TRIPLET CXX)
    if(NOT ${_v})
        message(FATAL_ERROR "device sysroot test: ${_v} not given")
    endif()
endforeach()

set(_root "${WORK_DIR}/sysroot")
file(REMOVE_RECURSE "${WORK_DIR}")
string(REGEX REPLACE "/$" "" _base "${BASE_SYSROOT}")

orvic_view_init("${_base}" "${_root}")
set(_libdir "usr/lib/${TRIPLET}")
# Qt's CMake files use the install prefix they were built with when their real
# path is the original one: give every Qt module real directories here.
file(GLOB _qt_modules RELATIVE "${_base}/${_libdir}/cmake" "${_base}/${_libdir}/cmake/Qt5*")
foreach(_m IN LISTS _qt_modules)
    orvic_view_materialize("${_base}" "${_root}" "${_libdir}/cmake/${_m}")
endforeach()

if(NOT CASE STREQUAL "stock")
    # Headers with the additions.
    set(_mm_inc "usr/include/${TRIPLET}/qt5/QtMultimedia")
    orvic_view_materialize("${_base}" "${_root}" "${_mm_inc}")
    foreach(_h qmediaplayer.h qmediametadata.h QMediaPlayer QMediaMetaData QtMultimedia)
        file(REMOVE "${_root}/${_mm_inc}/${_h}")
        # The device's own headers carry the additions but none of the
        # overlay's marker macros: nothing may depend on those.
        file(READ "${BUILD_DIR}/platform/qtoverlay/QtMultimedia/${_h}" _text)
        string(REGEX REPLACE "\n#define QT_MULTIMEDIA_DEVICE_[A-Z_]+ 1" "" _text "${_text}")
        file(WRITE "${_root}/${_mm_inc}/${_h}" "${_text}")
    endforeach()
    # The library with the keys: the stock one plus the key definitions.
    file(GLOB _mm_libs RELATIVE "${_base}/${_libdir}" "${_base}/${_libdir}/libQt5Multimedia.so.5.*.*")
    list(LENGTH _mm_libs _n)
    if(NOT _n EQUAL 1)
        message(FATAL_ERROR "device sysroot test: no single libQt5Multimedia.so.5.x.y in ${_base}/${_libdir}: ${_mm_libs}")
    endif()
    orvic_view_materialize("${_base}" "${_root}" "${_libdir}")
    file(MAKE_DIRECTORY "${_root}/${_libdir}/orvic-stock")
    file(CREATE_LINK "${_base}/${_libdir}/${_mm_libs}" "${_root}/${_libdir}/orvic-stock/libQt5Multimedia.so.5" SYMBOLIC)
    file(COPY_FILE "${BUILD_DIR}/platform/libqtmultimedia_device.so.1"
                   "${_root}/${_libdir}/orvic-stock/libqtmultimedia_device.so.1")
    file(REMOVE "${_root}/${_libdir}/${_mm_libs}")
    file(WRITE "${_root}/${_libdir}/${_mm_libs}"
        "INPUT(/${_libdir}/orvic-stock/libQt5Multimedia.so.5 /${_libdir}/orvic-stock/libqtmultimedia_device.so.1)\n")
    # -lQt5Multimedia (pkg-config's clients) must find that library too, as on a device.
    file(REMOVE "${_root}/${_libdir}/libQt5Multimedia.so")
    file(CREATE_LINK "${_mm_libs}" "${_root}/${_libdir}/libQt5Multimedia.so" SYMBOLIC)
endif()
if(CASE STREQUAL "complete")
    foreach(_l libcutils.so.1 libsppfc.so libplayback.so)
        file(COPY_FILE "${BUILD_DIR}/platform/host/${_l}" "${_root}/${_libdir}/${_l}")
    endforeach()
endif()

# --- configure -------------------------------------------------------------------
if(TOOLCHAIN_FILE)
    set(_toolchain "${TOOLCHAIN_FILE}")
    set(_toolchain_args "-DORVIC_SYSROOT=${_root}")
else()
    # Same build machine and target, the made-up sysroot in place of the real one.
    set(_toolchain "${WORK_DIR}/toolchain.cmake")
    # ORVIC_SYSROOT, as for the cross toolchain, points a client build at a
    # view with the installed package merged in.
    file(WRITE "${_toolchain}" "
if(NOT ORVIC_SYSROOT)
    set(ORVIC_SYSROOT \"${_root}\")
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ORVIC_SYSROOT)
set(CMAKE_SYSROOT \"\${ORVIC_SYSROOT}\")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} \"\${ORVIC_SYSROOT}\")
set(ENV{PKG_CONFIG_LIBDIR} \"\${ORVIC_SYSROOT}/${_libdir}/pkgconfig:\${ORVIC_SYSROOT}/usr/share/pkgconfig\")
")
    set(_toolchain_args "")
endif()
set(_build "${WORK_DIR}/build")
set(_args -S "${SOURCE_DIR}" -B "${_build}" "-DCMAKE_TOOLCHAIN_FILE=${_toolchain}" ${_toolchain_args}
          "-DCMAKE_CXX_COMPILER=${CXX}" -DORVIC_DEVICE_BUILD=ON)
if(GENERATOR)
    list(APPEND _args -G "${GENERATOR}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} ${_args} RESULT_VARIABLE _rc OUTPUT_VARIABLE _out ERROR_VARIABLE _err)
set(_log "${_out}\n${_err}")

function(expect_failure message_regex)
    if(_rc EQUAL 0)
        message(FATAL_ERROR "device sysroot test (${CASE}): configure succeeded, expected a failure:\n${_log}")
    endif()
    string(REGEX REPLACE "[ \t\r\n]+" " " flat "${_err}")
    if(NOT flat MATCHES "${message_regex}")
        message(FATAL_ERROR "device sysroot test (${CASE}): failure without the expected message "
                            "'${message_regex}':\n${_log}")
    endif()
    message(STATUS "configure failed as expected: ${CMAKE_MATCH_0}")
endfunction()

if(CASE STREQUAL "stock")
    expect_failure("ORVIC_DEVICE_BUILD: the sysroot's Qt Multimedia lacks the device additions \\(QMediaPlayer::ResumeData, MediaMessage, QMediaMetaData::SubtitleCount, ...\\) in ${_root}/usr/include/${TRIPLET}/qt5/QtMultimedia")
elseif(CASE STREQUAL "noplatform")
    expect_failure("ORVIC_DEVICE_BUILD: libcutils.so.1 not found in the device sysroot \\(${_root}\\)")
elseif(CASE STREQUAL "complete")
    if(NOT _rc EQUAL 0)
        message(FATAL_ERROR "device sysroot test (complete): configure failed:\n${_log}")
    endif()
    if(EXISTS "${_build}/platform/qtoverlay")
        message(FATAL_ERROR "device sysroot test (complete): a device build generated the Qt overlay")
    endif()
    if(NOT _out MATCHES "ORVIC_DEVICE_BUILD: the unit tests need the PC platform libraries; not built")
        message(FATAL_ERROR "device sysroot test (complete): no word about the unit tests:\n${_log}")
    endif()
    if(BUILD)
        foreach(_step "--build;${_build};-j2" "--install;${_build};--prefix;${WORK_DIR}/install")
            execute_process(COMMAND ${CMAKE_COMMAND} ${_step} RESULT_VARIABLE _rc OUTPUT_VARIABLE _out ERROR_VARIABLE _err)
            if(NOT _rc EQUAL 0)
                message(FATAL_ERROR "device sysroot test (complete): cmake ${_step} failed:\n${_out}\n${_err}")
            endif()
        endforeach()
        file(GLOB_RECURSE _installed RELATIVE "${WORK_DIR}/install" "${WORK_DIR}/install/*")
        foreach(_f IN LISTS _installed)
            if(_f MATCHES "qtoverlay|qtmultimedia_device|libcutils|libsppfc|libplayback")
                message(FATAL_ERROR "device sysroot test (complete): a device build installed ${_f}")
            endif()
        endforeach()
        file(GLOB _lib "${WORK_DIR}/install/lib/${TRIPLET}/liborvicutil.so.1")
        if(NOT _lib)
            message(FATAL_ERROR "device sysroot test (complete): no liborvicutil.so.1 installed:\n${_installed}")
        endif()
        find_program(READELF NAMES ${TRIPLET}-readelf readelf REQUIRED)
        execute_process(COMMAND "${READELF}" -d "${_lib}" OUTPUT_VARIABLE _dyn)
        foreach(_needed libcutils.so.1 libsppfc.so libplayback.so libQt5Multimedia.so.5)
            if(NOT _dyn MATCHES "NEEDED[^\n]*\\[${_needed}\\]")
                message(FATAL_ERROR "device sysroot test (complete): liborvicutil.so.1 does not NEED ${_needed}:\n${_dyn}")
            endif()
        endforeach()
        if(_dyn MATCHES "RUNPATH|RPATH")
            message(FATAL_ERROR "device sysroot test (complete): the installed device library carries a search path:\n${_dyn}")
        endif()
        # The Qt Multimedia back end, in Qt's plugin folder, on the same library.
        file(GLOB _plugin "${WORK_DIR}/install/lib/${TRIPLET}/qt5/plugins/mediaservice/liborvicmediaplayer.so")
        if(NOT _plugin)
            message(FATAL_ERROR "device sysroot test (complete): the media player plugin was not installed:\n${_installed}")
        endif()
        execute_process(COMMAND "${READELF}" -d "${_plugin}" OUTPUT_VARIABLE _dyn)
        if(NOT _dyn MATCHES "NEEDED[^\n]*\\[liborvicutil\\.so\\.1\\]" OR _dyn MATCHES "RUNPATH|RPATH")
            message(FATAL_ERROR "device sysroot test (complete): the plugin must NEED liborvicutil.so.1 and carry no search path:\n${_dyn}")
        endif()
        message(STATUS "device build: liborvicutil.so.1 built and installed; it NEEDs the device's platform libraries")

        # A device application built against the installed package, through
        # find_package and through pkg-config: the public headers must
        # compile with nothing but the device's own Qt headers.
        foreach(_mode cmake pkgconfig)
            execute_process(COMMAND ${CMAKE_COMMAND}
                    -DMODE=${_mode} -DBUILD_DIR=${_build}
                    -DCONSUMER_SOURCE=${CMAKE_CURRENT_LIST_DIR}/consumer
                    -DWORK_DIR=${WORK_DIR}/consume-${_mode}
                    -DCXX=${CXX} -DGENERATOR=${GENERATOR}
                    -DTOOLCHAIN_FILE=${_toolchain} -DSYSROOT=${_root} -DRUN=OFF
                    -P ${CMAKE_CURRENT_LIST_DIR}/InstallAndConsume.cmake
                RESULT_VARIABLE _rc OUTPUT_VARIABLE _out ERROR_VARIABLE _err)
            if(NOT _rc EQUAL 0)
                message(FATAL_ERROR "device sysroot test (complete): a client of the installed "
                                    "package (${_mode}) does not build:\n${_out}\n${_err}")
            endif()
            message(STATUS "device build: a client built against the installed package (${_mode})")
        endforeach()
    endif()
else()
    message(FATAL_ERROR "device sysroot test: CASE is stock, noplatform or complete, not '${CASE}'")
endif()
