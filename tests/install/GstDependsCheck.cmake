# Plays through the service with only the GStreamer plugins that the runtime
# package's hard dependencies install (cmake -P): an install without
# Recommends must still play a medium that those plugins decode (Ogg
# Vorbis), and a medium that needs a recommended decoder (MP3) must end in
# a clear error, which shows that the restriction is real.
#
#   -DSOURCE_DIR=<project> -DWORK_DIR=<scratch> -DPLAYER=<orvic-play>
#   -DPSSERVER=<psserver>
cmake_minimum_required(VERSION 3.21)
foreach(_v SOURCE_DIR WORK_DIR PLAYER PSSERVER)
    if(NOT ${_v})
        message(FATAL_ERROR "GStreamer dependency check: ${_v} not given")
    endif()
endforeach()
include("${SOURCE_DIR}/cmake/OrvicDebianDepends.cmake")

file(REMOVE_RECURSE "${WORK_DIR}")
file(MAKE_DIRECTORY "${WORK_DIR}/plugins" "${WORK_DIR}/runtime")

# The GStreamer plugin files of the packages the runtime package Depends on
# (as installed on this machine).
set(_plugins "")
foreach(_dep IN LISTS ORVIC_DEB_SERVICE_DEPENDS)
    string(REGEX REPLACE " .*" "" _pkg "${_dep}")
    execute_process(COMMAND dpkg -L "${_pkg}" RESULT_VARIABLE _rc OUTPUT_VARIABLE _files ERROR_QUIET)
    if(NOT _rc EQUAL 0)
        message(FATAL_ERROR "GStreamer dependency check: ${_pkg} is not installed (scripts/install-deps.sh)")
    endif()
    string(REGEX MATCHALL "[^\n]*/gstreamer-1\\.0/[^/\n]+\\.so" _so "${_files}")
    foreach(_f IN LISTS _so)
        get_filename_component(_name "${_f}" NAME)
        file(CREATE_LINK "${_f}" "${WORK_DIR}/plugins/${_name}" SYMBOLIC)
        list(APPEND _plugins "${_name}")
    endforeach()
endforeach()
foreach(_needed libgstcoreelements.so libgstplayback.so libgstapp.so libgstvorbis.so)
    if(NOT _needed IN_LIST _plugins)
        message(FATAL_ERROR "GStreamer dependency check: the Depends bring no ${_needed}; they bring: ${_plugins}")
    endif()
endforeach()

foreach(_m "tone.ogg;libvorbis" "tone.mp3;libmp3lame")
    list(GET _m 0 _file)
    list(GET _m 1 _codec)
    execute_process(COMMAND ffmpeg -hide_banner -loglevel error -nostdin -y -f lavfi
                            -i sine=frequency=440:duration=2 -c:a ${_codec} "${WORK_DIR}/${_file}"
                    RESULT_VARIABLE _rc ERROR_VARIABLE _err)
    if(NOT _rc EQUAL 0)
        message(FATAL_ERROR "GStreamer dependency check: ffmpeg could not make ${_file}: ${_err}")
    endif()
endforeach()

function(play medium outrc outtext)
    execute_process(
        COMMAND ${CMAKE_COMMAND} -E env
            "GST_PLUGIN_SYSTEM_PATH=${WORK_DIR}/plugins" "GST_PLUGIN_PATH=" "GST_REGISTRY=${WORK_DIR}/registry.bin"
            "ORVIC_RUNTIME_DIR=${WORK_DIR}/runtime" "ORVIC_PSSERVER=${PSSERVER}" "QT_QPA_PLATFORM=offscreen"
            "${PLAYER}" --json "${WORK_DIR}/${medium}"
        RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err TIMEOUT 120)
    set(${outrc} "${rc}" PARENT_SCOPE)
    set(${outtext} "${out}\n${err}" PARENT_SCOPE)
endfunction()

set(_failures "")
play(tone.ogg _rc _text)
if(NOT _rc EQUAL 0 OR NOT _text MATCHES "\"event\": *\"end\"")
    string(APPEND _failures "Ogg Vorbis did not play to its end (exit ${_rc}):\n${_text}\n")
endif()
play(tone.mp3 _rc _text)
if(_rc EQUAL 0 OR NOT _text MATCHES "\"event\": *\"error\"")
    string(APPEND _failures "MP3 without the recommended decoders did not end in an error (exit ${_rc}):\n${_text}\n")
endif()

# The daemon this check started.
if(EXISTS "${WORK_DIR}/runtime/psserver.lock")
    file(READ "${WORK_DIR}/runtime/psserver.lock" _pid)
    string(STRIP "${_pid}" _pid)
    if(_pid MATCHES "^[0-9]+$")
        execute_process(COMMAND kill "${_pid}" ERROR_QUIET)
    endif()
endif()

if(_failures)
    message(FATAL_ERROR "GStreamer dependency check, with the plugins of the Depends only (${_plugins}):\n${_failures}")
endif()
list(LENGTH _plugins _count)
message(STATUS "GStreamer dependency check: ${_count} plugins of the Depends play Ogg Vorbis; MP3 needs the Recommends")
