# Checks the built liborvicutil: its soname, the platform libraries it needs,
# and that its dynamic symbol table exports the four public classes and nothing
# of the internals.
#   cmake -DLIBRARY=<liborvicutil.so.1.x.y> -DNM=<nm> -DREADELF=<readelf> -P check_exports.cmake

foreach(_var LIBRARY NM READELF)
    if(NOT ${_var} OR NOT EXISTS "${${_var}}")
        message(FATAL_ERROR "${_var} not given or missing: '${${_var}}'")
    endif()
endforeach()

set(_failures "")
macro(fail text)
    list(APPEND _failures "${text}")
endmacro()

# --- dynamic section -----------------------------------------------------------
execute_process(COMMAND "${READELF}" -d "${LIBRARY}"
                OUTPUT_VARIABLE _dyn RESULT_VARIABLE _rc)
if(NOT _rc EQUAL 0)
    message(FATAL_ERROR "readelf -d failed (${_rc})")
endif()
string(REGEX MATCHALL "\\(SONAME\\)[^\n]*\\[[^]\n]*\\]" _sonames "${_dyn}")
list(LENGTH _sonames _n)
if(NOT _n EQUAL 1 OR NOT _sonames MATCHES "\\[liborvicutil\\.so\\.1\\]$")
    fail("SONAME is not exactly liborvicutil.so.1: ${_sonames}")
endif()
foreach(_needed libcutils.so.1 libsppfc.so libplayback.so)
    string(REPLACE "." "\\." _re "${_needed}")
    if(NOT _dyn MATCHES "\\(NEEDED\\)[^\n]*\\[${_re}\\]")
        fail("${_needed} is not NEEDED")
    endif()
endforeach()
get_filename_component(_file "${LIBRARY}" NAME)
if(NOT _file STREQUAL "liborvicutil.so.1.1.1603")
    fail("library file is ${_file}, expected liborvicutil.so.1.1.1603")
endif()

# --- exported symbols ----------------------------------------------------------
execute_process(COMMAND "${NM}" -D -C --defined-only "${LIBRARY}"
                OUTPUT_VARIABLE _nm RESULT_VARIABLE _rc)
if(NOT _rc EQUAL 0)
    message(FATAL_ERROR "nm -D failed (${_rc})")
endif()
string(REPLACE ";" "\\;" _nm "${_nm}")
string(REPLACE "\n" ";" _lines "${_nm}")

set(_classes QOrvicPlayerSession QOrvicPlayerSessionPrivate QOrvicMetaDataSession QMediaStringDefine)
foreach(_c IN LISTS _classes)
    set(_count_${_c} 0)
endforeach()
set(_total 0)
foreach(_line IN LISTS _lines)
    if(_line STREQUAL "")
        continue()
    endif()
    # "<address> <type> <demangled name>"
    if(NOT _line MATCHES "^[0-9a-f]+ ([A-Za-z]) (.*)$")
        fail("unexpected nm line: ${_line}")
        continue()
    endif()
    set(_name "${CMAKE_MATCH_2}")
    math(EXPR _total "${_total} + 1")
    # Symbols every shared object carries (linker and, in sanitizer builds, runtime ones).
    if(_name MATCHES "^(_init|_fini|_edata|_end|__bss_start)$" OR _name MATCHES "^__(asan|ubsan|odr_asan)")
        continue()
    endif()
    # A member (including nested records and enums) or the vtable/RTTI of one
    # of the four classes. A symbol that only mentions one of them in a
    # template argument is not part of the interface, and neither are copies
    # of other libraries' inline members or RTTI (QString::clear(), typeinfo
    # for QObjectData) that our objects happen to carry.
    set(_owner "")
    foreach(_c IN LISTS _classes)
        if(_name MATCHES "^((vtable|typeinfo|typeinfo name|guard variable) for )?${_c}(::|$)")
            set(_owner ${_c})
        endif()
    endforeach()
    if(_owner STREQUAL "")
        fail("internal symbol exported: ${_name}")
    else()
        math(EXPR _count_${_owner} "${_count_${_owner}} + 1")
    endif()
endforeach()
foreach(_c IN LISTS _classes)
    if(_count_${_c} EQUAL 0)
        fail("no exported symbol of ${_c}")
    endif()
endforeach()

# Internals that must stay hidden, named explicitly.
foreach(_internal MSPCBK_NavQueue qRegisterMediaPlayerMetaTypes orvicBuildStamp readServiceStatus
                  MetaTypeRegistration HandOver QOrvicCharsetDetector "QOrvicMetaData::"
                  "(anonymous namespace)" "QMediaMetaData::")
    string(FIND "${_nm}" "${_internal}" _at)
    if(NOT _at EQUAL -1)
        fail("internal name exported: ${_internal}")
    endif()
endforeach()

# Operations the platform's Qt Multimedia back end calls must be reachable.
foreach(_required
        "QOrvicPlayerSession::QOrvicPlayerSession(QFlags<QMediaPlayer::Flag>, QObject*)"
        "QOrvicPlayerSession::manageActList(QOrvicPlayerSession::MessageId, QVariant)"
        "QOrvicPlayerSession::stop()"
        "QOrvicPlayerSession::staticMetaObject"
        "QOrvicPlayerSessionPrivate::init()"
        "QOrvicPlayerSessionPrivate::reset()"
        "QOrvicPlayerSessionPrivate::release()"
        # the PC back end's video binding (private API)
        "QOrvicPlayerSessionPrivate::withEnginePlayer(QOrvicPlayerSession*, std::function<void (playback::SPPlayer*)> const&)"
        "QMediaStringDefine::getLanguageString(unsigned int)")
    string(FIND "${_nm}" "${_required}" _at)
    if(_at EQUAL -1)
        fail("not exported: ${_required}")
    endif()
endforeach()

if(_failures)
    string(REPLACE ";" "\n  " _text "${_failures}")
    message(FATAL_ERROR "liborvicutil checks failed:\n  ${_text}")
endif()
message(STATUS "liborvicutil: soname and NEEDED ok; ${_total} exported symbols, all of "
               "QOrvicPlayerSession (${_count_QOrvicPlayerSession}), QOrvicPlayerSessionPrivate "
               "(${_count_QOrvicPlayerSessionPrivate}), QOrvicMetaDataSession (${_count_QOrvicMetaDataSession}), "
               "QMediaStringDefine (${_count_QMediaStringDefine})")
