# Writes the build stamp source: "buildtimer:YYYY/MM/DD-HH:MM:SS,commitid:<40 hex>".
# Run with -P at build time. string(TIMESTAMP) honours SOURCE_DATE_EPOCH.
#   -DSOURCE_DIR=<tree> -DOUTPUT=<file.cpp>
string(TIMESTAMP stamp_time "%Y/%m/%d-%H:%M:%S" UTC)
set(commit "0000000000000000000000000000000000000000")
find_package(Git QUIET)
if(GIT_FOUND)
    execute_process(COMMAND "${GIT_EXECUTABLE}" -C "${SOURCE_DIR}" rev-parse --show-toplevel
                    OUTPUT_VARIABLE top RESULT_VARIABLE top_rc ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
    get_filename_component(src_real "${SOURCE_DIR}" REALPATH)
    if(top_rc EQUAL 0 AND top)
        get_filename_component(top_real "${top}" REALPATH)
    endif()
    # Only the project's own checkout counts, not a repository that happens to enclose it.
    if(top_rc EQUAL 0 AND top_real STREQUAL src_real)
        execute_process(COMMAND "${GIT_EXECUTABLE}" -C "${SOURCE_DIR}" rev-parse HEAD
                        OUTPUT_VARIABLE head RESULT_VARIABLE rc ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
        if(rc EQUAL 0 AND head MATCHES "^[0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f]$")
            set(commit "${head}")
        endif()
    endif()
endif()
set(content "// Generated at build time; do not edit.\nextern const char orvicBuildStamp[];\nconst char orvicBuildStamp[] = \"buildtimer:${stamp_time},commitid:${commit}\";\n")
if(EXISTS "${OUTPUT}")
    file(READ "${OUTPUT}" old)
else()
    set(old "")
endif()
if(NOT old STREQUAL content)
    file(WRITE "${OUTPUT}" "${content}")
endif()
