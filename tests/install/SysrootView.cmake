# Views of a sysroot made of symbolic links, for the install and device tests
# (cheap, and the cached sysroot stays untouched).
#
# GNU ld reads linker scripts such as libc.so ("INPUT(/lib/.../libc.so.6)")
# relative to the sysroot only when the script itself lies inside it; a link
# to the original would lead ld out of the view. Scripts are therefore copied.

# orvic_is_linker_script(<file> <var>): a regular file that is not ELF.
function(orvic_is_linker_script file outvar)
    set(result FALSE)
    if(NOT IS_DIRECTORY "${file}" AND EXISTS "${file}" AND file MATCHES "\\.so$")
        file(READ "${file}" magic LIMIT 4 HEX)
        if(NOT magic STREQUAL "7f454c46")
            set(result TRUE)
        endif()
    endif()
    set(${outvar} ${result} PARENT_SCOPE)
endfunction()

# orvic_view_entry(<original> <entry in view>): link, or copy a linker script.
function(orvic_view_entry original entry)
    orvic_is_linker_script("${original}" script)
    if(script)
        file(COPY_FILE "${original}" "${entry}")
    else()
        file(CREATE_LINK "${original}" "${entry}" SYMBOLIC)
    endif()
endfunction()

# orvic_view_sysroot(<sysroot> <view> <triplet>): the whole sysroot as links.
function(orvic_view_sysroot sysroot view triplet)
    execute_process(COMMAND cp -as "${sysroot}" "${view}" RESULT_VARIABLE rc ERROR_VARIABLE err)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "cannot make a view of ${sysroot}: ${err}")
    endif()
    foreach(dir "usr/lib/${triplet}" "lib/${triplet}" "usr/lib")
        file(GLOB libs "${view}/${dir}/*.so")
        foreach(lib IN LISTS libs)
            if(IS_SYMLINK "${lib}")
                get_filename_component(original "${lib}" REALPATH)
                orvic_is_linker_script("${original}" script)
                if(script)
                    file(REMOVE "${lib}")
                    file(COPY_FILE "${original}" "${lib}")
                endif()
            endif()
        endforeach()
    endforeach()
endfunction()
