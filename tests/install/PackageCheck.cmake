# Builds the Debian packages of a build tree with cpack and checks them
# (cmake -P):
#   - names, version, architecture;
#   - the shared-library layout Debian expects: the runtime package holds the
#     versioned file and its soname link, the development package the .so link,
#     headers, CMake package and pkg-config file, and nothing of each other;
#   - every library the packaged files NEED is shipped in the package or
#     provided by a package the runtime Depends names;
#   - on a native build, dpkg-shlibdeps asks for nothing the Depends lack;
#   - with the service, the GStreamer plugin sets it plays with are named;
#   - with the API reference built, the development package ships it.
#
#   -DBUILD_DIR=<build tree> -DWORK_DIR=<scratch> -DSOURCE_DIR=<project>
#   -DDEB_ARCH=<amd64|armhf|...> -DTRIPLET=<multiarch triplet> -DVERSION=<x.y.z>
#   -DREADELF=<readelf> [-DNATIVE=ON] [-DWITH_SERVICE=1] [-DWITH_DOCS=1]

cmake_minimum_required(VERSION 3.21)

foreach(_v BUILD_DIR WORK_DIR SOURCE_DIR DEB_ARCH TRIPLET VERSION READELF)
    if(NOT ${_v})
        message(FATAL_ERROR "package test: ${_v} not given")
    endif()
endforeach()
include("${SOURCE_DIR}/cmake/OrvicDebianDepends.cmake")

set(_failures "")
macro(fail text)
    string(APPEND _failures "  ${text}\n")
endmacro()

# The packages a Depends field offers, without versions and alternatives'
# bars.
function(offered_packages depends outvar)
    string(REGEX REPLACE " *\\([^)]*\\)" "" _offered "${depends}")
    string(REGEX REPLACE " *[,|] *" ";" _offered "${_offered}")
    set(${outvar} "${_offered}" PARENT_SCOPE)
endfunction()

# Every library that the readelf output `dyn` of `name` NEEDs is shipped
# (`shipped`) or comes from a mapped Debian package that `offered` holds;
# `whose` names the package whose Depends must cover it.
function(check_needed dyn name shipped offered whose)
    string(REGEX MATCHALL "\\(NEEDED\\)[^\n]*\\[[^]]+\\]" _needed "${dyn}")
    foreach(_n IN LISTS _needed)
        string(REGEX REPLACE ".*\\[([^]]+)\\]" "\\1" _n "${_n}")
        if(_n IN_LIST shipped)
            continue()
        endif()
        set(_pkg "")
        foreach(_m IN LISTS ORVIC_DEB_SONAME_PACKAGES)
            if(_m MATCHES "^([^=]+)=(.+)$" AND CMAKE_MATCH_1 STREQUAL _n)
                set(_pkg "${CMAKE_MATCH_2}")
            endif()
        endforeach()
        if(NOT _pkg)
            fail("${name} NEEDs ${_n}, which is neither shipped nor mapped to a Debian package")
        elseif(NOT _pkg IN_LIST offered)
            fail("${name} NEEDs ${_n} from ${_pkg}, which ${whose} does not depend on")
        endif()
    endforeach()
    set(_failures "${_failures}" PARENT_SCOPE)   # fail() collects in this scope
endfunction()

function(run)
    cmake_parse_arguments(R "" "OUTPUT;WORKING_DIRECTORY" "COMMAND" ${ARGN})
    if(NOT R_WORKING_DIRECTORY)
        set(R_WORKING_DIRECTORY "${WORK_DIR}")
    endif()
    execute_process(COMMAND ${R_COMMAND} WORKING_DIRECTORY "${R_WORKING_DIRECTORY}"
                    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT rc EQUAL 0)
        string(REPLACE ";" " " cmd "${R_COMMAND}")
        message(FATAL_ERROR "package test: failed (${rc}): ${cmd}\n${out}\n${err}")
    endif()
    if(R_OUTPUT)
        set(${R_OUTPUT} "${out}" PARENT_SCOPE)
    endif()
endfunction()

file(REMOVE_RECURSE "${WORK_DIR}")
file(MAKE_DIRECTORY "${WORK_DIR}")
run(COMMAND cpack --config "${BUILD_DIR}/CPackConfig.cmake" -B "${WORK_DIR}")

set(_debver "${VERSION}-1")
set(_runtime "${WORK_DIR}/liborvicutil1_${_debver}_${DEB_ARCH}.deb")
set(_dev "${WORK_DIR}/liborvicutil-dev_${_debver}_${DEB_ARCH}.deb")
foreach(_deb "${_runtime}" "${_dev}")
    if(NOT EXISTS "${_deb}")
        file(GLOB _made "${WORK_DIR}/*.deb")
        message(FATAL_ERROR "package test: ${_deb} not made; cpack made: ${_made}")
    endif()
endforeach()

# --- control fields --------------------------------------------------------------
function(field deb name outvar)
    run(COMMAND dpkg-deb -f "${deb}" "${name}" OUTPUT v)
    string(STRIP "${v}" v)
    set(${outvar} "${v}" PARENT_SCOPE)
endfunction()
foreach(_pair "${_runtime}=liborvicutil1" "${_dev}=liborvicutil-dev")
    string(REPLACE "=" ";" _pair "${_pair}")
    list(GET _pair 0 _deb)
    list(GET _pair 1 _name)
    field("${_deb}" Package _v)
    if(NOT _v STREQUAL _name)
        fail("${_deb}: Package '${_v}', expected '${_name}'")
    endif()
    field("${_deb}" Version _v)
    if(NOT _v STREQUAL _debver)
        fail("${_name}: Version '${_v}', expected '${_debver}'")
    endif()
    field("${_deb}" Architecture _v)
    if(NOT _v STREQUAL DEB_ARCH)
        fail("${_name}: Architecture '${_v}', expected '${DEB_ARCH}'")
    endif()
endforeach()
field("${_dev}" Depends _dev_depends)
if(NOT _dev_depends MATCHES "(^|, )liborvicutil1 \\(= ${_debver}\\)(,|$)")
    fail("liborvicutil-dev: Depends '${_dev_depends}' lacks 'liborvicutil1 (= ${_debver})'")
endif()
field("${_runtime}" Depends _runtime_depends)
field("${_runtime}" Recommends _runtime_recommends)
# The service plays through GStreamer plugins that no library link pulls in:
# playbin's own set is a hard dependency (an install without Recommends
# still plays), the decoders are recommended. The device package has no
# service and names none of them.
set(_gst_depends gstreamer1.0-plugins-base)
set(_gst_recommends gstreamer1.0-plugins-good gstreamer1.0-plugins-bad gstreamer1.0-plugins-ugly
    gstreamer1.0-libav)
foreach(_p IN LISTS _gst_depends _gst_recommends)
    set(_in_depends FALSE)
    set(_in_recommends FALSE)
    if(_runtime_depends MATCHES "(^|, )${_p}( \\(|,|$)")
        set(_in_depends TRUE)
    endif()
    if(_runtime_recommends MATCHES "(^|, )${_p}( \\(|,|$)")
        set(_in_recommends TRUE)
    endif()
    if(NOT WITH_SERVICE)
        if(_in_depends OR _in_recommends)
            fail("liborvicutil1 without the service names ${_p}: Depends '${_runtime_depends}', Recommends '${_runtime_recommends}'")
        endif()
    elseif(_p IN_LIST _gst_depends AND NOT _in_depends)
        fail("liborvicutil1: Depends '${_runtime_depends}' lacks ${_p}, which playbin needs to play at all")
    elseif(_p IN_LIST _gst_recommends AND NOT _in_recommends)
        fail("liborvicutil1: Recommends '${_runtime_recommends}' lacks ${_p}")
    elseif(_p IN_LIST _gst_recommends AND _in_depends)
        fail("liborvicutil1: ${_p} is a hard dependency; it is only recommended")
    endif()
endforeach()
run(COMMAND dpkg-deb -I "${_runtime}" shlibs OUTPUT _shlibs)
if(NOT _shlibs MATCHES "liborvicutil 1 liborvicutil1 \\(>= ${VERSION}\\)")
    fail("liborvicutil1: shlibs file lacks 'liborvicutil 1 liborvicutil1 (>= ${VERSION})':\n${_shlibs}")
endif()
run(COMMAND dpkg-deb -I "${_runtime}" triggers OUTPUT _triggers)
if(NOT _triggers MATCHES "activate-noawait ldconfig")
    fail("liborvicutil1: triggers file does not run ldconfig: ${_triggers}")
endif()

# --- contents ------------------------------------------------------------------
# Regular files and links ("path -> target") without directories.
function(contents deb outvar)
    run(COMMAND dpkg-deb -c "${deb}" OUTPUT listing)
    string(REPLACE "\n" ";" lines "${listing}")
    set(entries "")
    foreach(l IN LISTS lines)
        if(l MATCHES "^[-l][^ ]* +[^ ]+ +[0-9]+ +[^ ]+ +[^ ]+ +\\./(.*)$")
            list(APPEND entries "${CMAKE_MATCH_1}")
        endif()
    endforeach()
    list(SORT entries)
    set(${outvar} "${entries}" PARENT_SCOPE)
endfunction()
contents("${_runtime}" _runtime_files)
contents("${_dev}" _dev_files)

set(_lib "usr/lib/${TRIPLET}")
set(_expected_runtime
    "${_lib}/liborvicutil.so.1 -> liborvicutil.so.${VERSION}"
    "${_lib}/liborvicutil.so.${VERSION}"
    "${_lib}/libqtmultimedia_device.so.1"
    "${_lib}/orvicutil/libcutils.so.1"
    "${_lib}/orvicutil/libplayback.so"
    "${_lib}/orvicutil/libsppfc.so")
if(WITH_SERVICE)
    list(APPEND _expected_runtime "${_lib}/orvicutil/psserver")
endif()
list(SORT _expected_runtime)
if(NOT _runtime_files STREQUAL _expected_runtime)
    string(REPLACE ";" "\n    " _got "${_runtime_files}")
    string(REPLACE ";" "\n    " _want "${_expected_runtime}")
    fail("liborvicutil1 holds\n    ${_got}\n  expected\n    ${_want}")
endif()
foreach(_f
        "${_lib}/liborvicutil.so -> liborvicutil.so.1"
        "${_lib}/libqtmultimedia_device.so -> libqtmultimedia_device.so.1"
        "${_lib}/pkgconfig/orvicutil.pc"
        "${_lib}/cmake/OrvicUtil/OrvicUtilConfig.cmake"
        "${_lib}/cmake/OrvicUtil/OrvicUtilConfigVersion.cmake"
        "usr/include/orvicutil/qorvicplayersession.h"
        "usr/include/orvicutil/qorvicplayersession_p.h"
        "usr/include/orvicutil/qorvicplayermetadata.h"
        "usr/include/orvicutil/qorvicmetadatasession.h"
        "usr/include/orvicutil/qmediastringdefine.h"
        "usr/include/orvicutil/qorvicutilglobal.h"
        "usr/include/orvicutil/playback/spmetadata.h"
        "usr/include/orvicutil/playback/spplayer.h"
        "usr/include/orvicutil/qtoverlay/QtMultimedia/qmediaplayer.h"
        "usr/include/orvicutil/qtoverlay/QtMultimedia/qmediametadata.h"
        "usr/include/orvicutil/qtoverlay/QtMultimedia/QMediaPlayer")
    if(NOT _f IN_LIST _dev_files)
        fail("liborvicutil-dev lacks ${_f}")
    endif()
endforeach()
# The HTML API reference, where the build made one.
if(WITH_DOCS)
    foreach(_f index.html classQOrvicPlayerSession.html classQOrvicMetaDataSession.html
               classQMediaStringDefine.html)
        if(NOT "usr/share/doc/liborvicutil-dev/html/${_f}" IN_LIST _dev_files)
            fail("liborvicutil-dev lacks the API reference's ${_f} in usr/share/doc/liborvicutil-dev/html/")
        endif()
    endforeach()
endif()
foreach(_f IN LISTS _runtime_files)
    if(_f MATCHES "^usr/share/doc/liborvicutil-dev/")
        fail("liborvicutil1 holds the API reference: ${_f}")
    endif()
endforeach()
foreach(_f IN LISTS _dev_files)
    if(_f MATCHES "\\.so\\.[0-9]" AND NOT _f MATCHES " -> ")
        fail("liborvicutil-dev holds a shared library: ${_f}")
    endif()
    if(_f MATCHES "^usr/include/orvicutil/hostplatform")
        fail("liborvicutil-dev holds the PC platform's test injection header: ${_f}")
    endif()
endforeach()

# --- what the packaged libraries NEED ------------------------------------------
set(_x "${WORK_DIR}/runtime-root")
run(COMMAND dpkg-deb -x "${_runtime}" "${_x}")
set(_shipped "")
set(_elves "")
foreach(_f IN LISTS _runtime_files)
    if(NOT _f MATCHES " -> ")
        list(APPEND _elves "${_x}/${_f}")
        run(COMMAND "${READELF}" -d "${_x}/${_f}" OUTPUT _dyn)
        if(_dyn MATCHES "\\(SONAME\\)[^\n]*\\[([^]]+)\\]")
            list(APPEND _shipped "${CMAKE_MATCH_1}")
        endif()
    endif()
endforeach()
# Package names the runtime Depends offer (every alternative).
offered_packages("${_runtime_depends}" _offered)
foreach(_elf IN LISTS _elves)
    run(COMMAND "${READELF}" -d "${_elf}" OUTPUT _dyn)
    get_filename_component(_name "${_elf}" NAME)
    check_needed("${_dyn}" "${_name}" "${_shipped}" "${_offered}" liborvicutil1)
endforeach()
run(COMMAND "${READELF}" -d "${_x}/${_lib}/liborvicutil.so.${VERSION}" OUTPUT _dyn)
if(NOT _dyn MATCHES "\\(SONAME\\)[^\n]*\\[liborvicutil\\.so\\.1\\]")
    fail("liborvicutil.so.${VERSION} has no soname liborvicutil.so.1")
endif()
if(NOT _dyn MATCHES "\\(RUNPATH\\)[^\n]*\\$ORIGIN/orvicutil")
    fail("liborvicutil.so.${VERSION} does not find its private platform libraries (no RUNPATH \$ORIGIN/orvicutil)")
endif()

# --- the Qt Multimedia back end's package -----------------------------------------
set(_plugin_deb "${WORK_DIR}/orvic-mediaplayer-plugin_${_debver}_${DEB_ARCH}.deb")
if(NOT EXISTS "${_plugin_deb}")
    fail("orvic-mediaplayer-plugin not made")
endif()
field("${_plugin_deb}" Depends _plugin_depends)
if(NOT _plugin_depends MATCHES "(^|, )liborvicutil1 \\(= ${_debver}\\)(,|$)")
    fail("orvic-mediaplayer-plugin: Depends '${_plugin_depends}' lacks 'liborvicutil1 (= ${_debver})'")
endif()
contents("${_plugin_deb}" _plugin_files)
set(_plugin_so "${_lib}/qt5/plugins/mediaservice/liborvicmediaplayer.so")
if(NOT _plugin_files STREQUAL _plugin_so)
    fail("orvic-mediaplayer-plugin holds '${_plugin_files}', expected '${_plugin_so}'")
endif()
set(_px "${WORK_DIR}/plugin-root")
run(COMMAND dpkg-deb -x "${_plugin_deb}" "${_px}")
run(COMMAND "${READELF}" -d "${_px}/${_plugin_so}" OUTPUT _dyn)
# What liborvicutil1 ships (the plugin depends on it), else a mapped package.
offered_packages("${_plugin_depends}" _plugin_offered)
check_needed("${_dyn}" liborvicmediaplayer.so "${_shipped}" "${_plugin_offered}" orvic-mediaplayer-plugin)
if(NOT _dyn MATCHES "\\(RUNPATH\\)[^\n]*\\$ORIGIN/\\.\\./\\.\\./\\.\\.")
    fail("liborvicmediaplayer.so does not find liborvicutil.so.1 from Qt's plugin folder (RUNPATH)")
endif()

# --- native: what dpkg-shlibdeps would ask for -------------------------------------
if(NATIVE)
    file(MAKE_DIRECTORY "${WORK_DIR}/shlibdeps/debian")
    file(TOUCH "${WORK_DIR}/shlibdeps/debian/control")
    run(COMMAND dpkg-shlibdeps --ignore-missing-info -O "-l${_x}/${_lib}/orvicutil" "-l${_x}/${_lib}" ${_elves}
        WORKING_DIRECTORY "${WORK_DIR}/shlibdeps" OUTPUT _sd)
    string(REGEX REPLACE "^.*shlibs:Depends=([^\n]*).*$" "\\1" _sd "${_sd}")
    message(STATUS "dpkg-shlibdeps: ${_sd}")
    message(STATUS "Depends:        ${_runtime_depends}")
    string(REPLACE ", " ";" _wanted "${_sd}")
    string(REPLACE ", " ";" _ours "${_runtime_depends}")
    foreach(_w IN LISTS _wanted)
        # First alternative of each group: name and minimum version.
        if(NOT _w MATCHES "^([^ |]+)( \\(>= ([^)]+)\\))?")
            fail("cannot read dpkg-shlibdeps' '${_w}'")
            continue()
        endif()
        set(_wname "${CMAKE_MATCH_1}")
        set(_wver "${CMAKE_MATCH_3}")
        set(_covered FALSE)
        foreach(_o IN LISTS _ours)
            if(_o MATCHES "^([^ |]+)( \\(>= ([^)]+)\\))?" AND CMAKE_MATCH_1 STREQUAL _wname)
                set(_over "${CMAKE_MATCH_3}")
                if(NOT _wver)
                    set(_covered TRUE)
                elseif(_over)
                    execute_process(COMMAND dpkg --compare-versions "${_over}" ge "${_wver}" RESULT_VARIABLE _ge)
                    if(_ge EQUAL 0)
                        set(_covered TRUE)
                    endif()
                endif()
            endif()
        endforeach()
        if(NOT _covered)
            fail("dpkg-shlibdeps asks for '${_w}', which the runtime Depends do not cover")
        endif()
    endforeach()
endif()

if(_failures)
    message(FATAL_ERROR "package test: the packages are not right:\n${_failures}")
endif()
string(REPLACE ";" "\n    " _runtime_files "${_runtime_files}")
string(REPLACE ";" "\n    " _dev_files "${_dev_files}")
message(STATUS "liborvicutil1 ${_debver} ${DEB_ARCH}, Depends: ${_runtime_depends}; Recommends: ${_runtime_recommends}\n    ${_runtime_files}")
message(STATUS "liborvicutil-dev ${_debver} ${DEB_ARCH}, Depends: ${_dev_depends}\n    ${_dev_files}")
