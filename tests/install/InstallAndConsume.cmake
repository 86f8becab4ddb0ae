# Installs the build tree and builds and runs a client against the installed
# files only, the way a user of the package would (cmake -P):
#
#   -DMODE=cmake|pkgconfig   find_package(OrvicUtil), or pkg-config flags on the compiler line
#   -DBUILD_DIR=<build tree> -DCONSUMER_SOURCE=<dir> -DWORK_DIR=<scratch dir>
#   -DCXX=<compiler> -DGENERATOR=<cmake generator> -DEXTRA_FLAGS=<;-list, e.g. sanitizers>
#   cross builds also: -DTOOLCHAIN_FILE=<file> -DSYSROOT=<dir> -DEMULATOR=<;-list, program first>
#   -DRUN=OFF: build the client only (a device build's package, whose platform
#   libraries are not there to run against)
#
# A cross build installs with DESTDIR and merges the result into a view of
# the sysroot made of symbolic links (SysrootView.cmake), as the development
# package would be unpacked into a device sysroot; the client then finds
# everything through that sysroot and runs under the emulator.

cmake_minimum_required(VERSION 3.21)
include("${CMAKE_CURRENT_LIST_DIR}/SysrootView.cmake")

foreach(_v MODE BUILD_DIR CONSUMER_SOURCE WORK_DIR CXX)
    if(NOT ${_v})
        message(FATAL_ERROR "install test: ${_v} not given")
    endif()
endforeach()

function(run)
    cmake_parse_arguments(R "" "OUTPUT" "COMMAND" ${ARGN})
    execute_process(COMMAND ${R_COMMAND} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT rc EQUAL 0)
        string(REPLACE ";" " " cmd "${R_COMMAND}")
        message(FATAL_ERROR "install test: failed (${rc}): ${cmd}\n${out}\n${err}")
    endif()
    if(R_OUTPUT)
        set(${R_OUTPUT} "${out}" PARENT_SCOPE)
    endif()
endfunction()

file(REMOVE_RECURSE "${WORK_DIR}")
file(MAKE_DIRECTORY "${WORK_DIR}")

# --- install -------------------------------------------------------------------
file(STRINGS "${BUILD_DIR}/CMakeCache.txt" _libdir REGEX "^CMAKE_INSTALL_LIBDIR:")
string(REGEX REPLACE "^[^=]*=" "" _libdir "${_libdir}")
if(SYSROOT)
    set(_root "${WORK_DIR}/sysroot")
    set(_stage "${WORK_DIR}/stage")
    run(COMMAND ${CMAKE_COMMAND} -E env "DESTDIR=${_stage}" ${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix /usr)
    orvic_view_init("${SYSROOT}" "${_root}")
    orvic_view_merge("${SYSROOT}" "${_root}" "${_stage}")
    set(_prefix "${_root}/usr")
    set(_run ${EMULATOR})
    list(LENGTH _run _n)
    if(DEFINED RUN AND NOT RUN)
        # built, not run: no emulator needed
    elseif(_n EQUAL 0)
        message(FATAL_ERROR "install test: a cross build needs EMULATOR to run the client")
    endif()
    # The emulator's library root is the view holding the installed files.
    if(_n GREATER 0)
        list(FIND _run "-L" _l)
        if(_l EQUAL -1)
            message(FATAL_ERROR "install test: the emulator '${EMULATOR}' has no -L <library root>")
        endif()
        math(EXPR _l "${_l} + 1")
        list(REMOVE_AT _run ${_l})
        list(INSERT _run ${_l} "${_root}")
    endif()
else()
    set(_prefix "${WORK_DIR}/prefix")
    run(COMMAND ${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${_prefix}")
    set(_run "")
endif()
foreach(_f "${_libdir}/liborvicutil.so.1" "${_libdir}/liborvicutil.so" "${_libdir}/pkgconfig/orvicutil.pc"
        "${_libdir}/cmake/OrvicUtil/OrvicUtilConfig.cmake" "include/orvicutil/qorvicplayersession.h")
    if(NOT EXISTS "${_prefix}/${_f}")
        message(FATAL_ERROR "install test: ${_f} not installed under ${_prefix}")
    endif()
endforeach()

# --- build the client ------------------------------------------------------------
set(_exe "${WORK_DIR}/consumer-${MODE}")
if(MODE STREQUAL "cmake")
    set(_args -S "${CONSUMER_SOURCE}" -B "${WORK_DIR}/build" "-DCMAKE_CXX_COMPILER=${CXX}")
    if(GENERATOR)
        list(APPEND _args -G "${GENERATOR}")
    endif()
    if(EXTRA_FLAGS)
        string(REPLACE ";" " " _flags "${EXTRA_FLAGS}")
        list(APPEND _args "-DCMAKE_CXX_FLAGS=${_flags}" "-DCMAKE_EXE_LINKER_FLAGS=${_flags}")
    endif()
    if(SYSROOT)
        list(APPEND _args "-DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN_FILE}" "-DORVIC_SYSROOT=${_root}")
    else()
        list(APPEND _args "-DCMAKE_PREFIX_PATH=${_prefix}")
    endif()
    run(COMMAND ${CMAKE_COMMAND} ${_args})
    run(COMMAND ${CMAKE_COMMAND} --build "${WORK_DIR}/build")
    file(COPY_FILE "${WORK_DIR}/build/consumer" "${_exe}")
elseif(MODE STREQUAL "pkgconfig")
    find_program(PKG_CONFIG NAMES pkg-config REQUIRED)
    if(SYSROOT)
        set(ENV{PKG_CONFIG_SYSROOT_DIR} "${_root}")
        set(ENV{PKG_CONFIG_LIBDIR} "${_root}/usr/${_libdir}/pkgconfig:${_root}/usr/share/pkgconfig")
        set(_sysroot_flag "--sysroot=${_root}")
        set(_rpath "")
    else()
        set(ENV{PKG_CONFIG_PATH} "${_prefix}/${_libdir}/pkgconfig")
        set(_sysroot_flag "")
        set(_rpath "-Wl,-rpath,${_prefix}/${_libdir}")
    endif()
    run(COMMAND "${PKG_CONFIG}" --cflags --libs orvicutil OUTPUT _pc)
    string(STRIP "${_pc}" _pc)
    message(STATUS "pkg-config --cflags --libs orvicutil: ${_pc}")
    separate_arguments(_pc UNIX_COMMAND "${_pc}")
    run(COMMAND "${CXX}" ${_sysroot_flag} -std=c++17 -fPIC ${EXTRA_FLAGS}
                "${CONSUMER_SOURCE}/main.cpp" ${_pc} ${_rpath} -o "${_exe}")
else()
    message(FATAL_ERROR "install test: MODE is cmake or pkgconfig, not '${MODE}'")
endif()

if(DEFINED RUN AND NOT RUN)
    if(NOT EXISTS "${_exe}")
        message(FATAL_ERROR "install test: no client ${_exe} built")
    endif()
    message(STATUS "install test: client built against the installed package (not run)")
    return()
endif()

# --- run it ------------------------------------------------------------------
# Where the installed platform ships its playback service, the client also
# brings a session up against it, in a runtime directory of its own; removing
# that directory afterwards ends the service.
set(_service_env "")
file(GLOB _service "${_prefix}/lib/*/orvicutil/psserver" "${_prefix}/lib/orvicutil/psserver")
if(_service AND NOT EMULATOR)
    set(_runtime_dir "${WORK_DIR}/runtime")
    file(REMOVE_RECURSE "${_runtime_dir}")
    file(MAKE_DIRECTORY "${_runtime_dir}")
    set(_service_env ${CMAKE_COMMAND} -E env ORVIC_CONSUMER_SESSION=1 "ORVIC_RUNTIME_DIR=${_runtime_dir}")
endif()
run(COMMAND ${_service_env} ${_run} "${_exe}" OUTPUT _out)
if(_service_env)
    file(REMOVE_RECURSE "${_runtime_dir}")
endif()
message(STATUS "client output:\n${_out}")
set(_expected [=[ok video codec 5: h.264
ok subtitle count key: SubtitleCount
ok resume data bytes: 4224
ok metadata-only flag: 8
]=])
if(_service_env)
    string(APPEND _expected "ok new session state: 1\n")
endif()
if(NOT _out STREQUAL _expected)
    message(FATAL_ERROR "install test: client printed\n${_out}\nexpected\n${_expected}")
endif()
