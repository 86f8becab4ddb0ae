# Checks the library's sources against names that only this project's Qt
# overlay declares: the platform fixes the metadata-only session flag (0x8)
# and the metadataInvoke questions (0 audio, 1 subtitle) by number, so the
# library compares numbers, and it value-initialises the platform's
# AudioStreamInfo rather than relying on a default member initialiser.
#   cmake -DSOURCE_DIR=<project source dir> -P check_platform_numbers.cmake

if(NOT SOURCE_DIR OR NOT IS_DIRECTORY "${SOURCE_DIR}/session")
    message(FATAL_ERROR "SOURCE_DIR not given or not the project: '${SOURCE_DIR}'")
endif()

file(GLOB _sources "${SOURCE_DIR}/session/*.cpp" "${SOURCE_DIR}/session/*.h"
                   "${SOURCE_DIR}/metadata/*.cpp" "${SOURCE_DIR}/metadata/*.h")
list(LENGTH _sources _count)
if(_count LESS 10)
    message(FATAL_ERROR "only ${_count} library sources found under ${SOURCE_DIR}")
endif()

set(_failures "")
foreach(_file IN LISTS _sources)
    file(STRINGS "${_file}" _lines)
    set(_n 0)
    foreach(_line IN LISTS _lines)
        math(EXPR _n "${_n} + 1")
        if(_line MATCHES "QMediaPlayer::(MetaDataOnly|AudioStreamInvoke|SubtitleStreamInvoke)")
            list(APPEND _failures "${_file}:${_n}: overlay name ${CMAKE_MATCH_0} instead of its number")
        endif()
        if(_line MATCHES "QMediaPlayer::(AudioStreamInfo|SubtitleInfo) +[A-Za-z_]+ *;")
            list(APPEND _failures "${_file}:${_n}: platform record not value-initialised")
        endif()
    endforeach()
endforeach()

if(_failures)
    string(REPLACE ";" "\n  " _text "${_failures}")
    message(FATAL_ERROR "platform names instead of numbers:\n  ${_text}")
endif()
message(STATUS "${_count} sources checked")
