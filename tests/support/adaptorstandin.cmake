# Stand-ins for engine adaptor operations that the library does not define yet.
#
# The session front calls into adaptor operations (opening, transport, volume,
# streams, the engine callback sink) that live in their own source files. While
# one of them is still missing, a test that creates a session would not link.
# This file looks at the session sources at configure time and compiles a
# stand-in for exactly the operations that no source defines; as soon as the
# real definition exists the stand-in disappears, so the tests never shadow
# real code. Reconfiguration follows every change of the session sources.
#
# Defines the object library `orvic_adaptorstandin` (possibly empty); link it
# into every test executable that creates a session.

if(TARGET orvic_adaptorstandin)
    return()
endif()

file(GLOB _orvic_session_sources
    "${PROJECT_SOURCE_DIR}/session/*.cpp" "${PROJECT_SOURCE_DIR}/session/*.h")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${_orvic_session_sources})
set(_orvic_session_text "")
foreach(_f IN LISTS _orvic_session_sources)
    file(READ "${_f}" _c)
    string(APPEND _orvic_session_text "${_c}")
endforeach()

set(_orvic_adaptor_ops
    setMedia setResumeData play pause stop seek setPlaybackRate playbackRate position duration
    checkServer setVolume setMuted setAudioStream setSubtitleNum setSubtitleOnOff
    setVideoOnOff setAudioOnOff)
set(_orvic_missing "")
foreach(_op IN LISTS _orvic_adaptor_ops)
    if(NOT _orvic_session_text MATCHES "QOrvicPlayerSessionPrivate::${_op}[ \t]*\\(")
        list(APPEND _orvic_missing ${_op})
    endif()
endforeach()
if(NOT _orvic_session_text MATCHES "MSPCBK_NavQueue::MSPCBK_NavQueue[ \t]*\\(")
    list(APPEND _orvic_missing NavQueue)
endif()

add_library(orvic_adaptorstandin OBJECT "${CMAKE_CURRENT_LIST_DIR}/adaptorstandin.cpp")
target_link_libraries(orvic_adaptorstandin PRIVATE orvicutil_objects)
foreach(_op IN LISTS _orvic_missing)
    target_compile_definitions(orvic_adaptorstandin PRIVATE ORVIC_STANDIN_${_op})
endforeach()
if(_orvic_missing)
    string(REPLACE ";" " " _orvic_missing_text "${_orvic_missing}")
    message(STATUS "Session tests: adaptor stand-ins for ${_orvic_missing_text}")
else()
    message(STATUS "Session tests: no adaptor stand-ins needed")
endif()
