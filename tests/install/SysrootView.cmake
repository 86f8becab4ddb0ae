# Views of a sysroot made of symbolic links, for the install and device tests:
# cheap to make and to remove, and the cached sysroot behind them is never
# written to. Only the directories that get new entries are real directories
# (their other entries link to the original); everything else is one link.
#
# GNU ld reads linker scripts such as libc.so ("INPUT(/lib/.../libc.so.6)")
# relative to the sysroot only when the script itself lies inside it; a link
# to the original would lead ld out of the view, so scripts are copied.

# orvic_view_init(<base> <view>): the view with usr, lib and lib64 linked to base.
function(orvic_view_init base view)
    file(REMOVE_RECURSE "${view}")
    file(MAKE_DIRECTORY "${view}")
    foreach(top usr lib lib64)
        if(EXISTS "${base}/${top}")
            file(CREATE_LINK "${base}/${top}" "${view}/${top}" SYMBOLIC)
        endif()
    endforeach()
endfunction()

function(_orvic_view_entry original entry)
    set(script FALSE)
    # Versioned names too: a device's libQt5Multimedia.so.5.x.y may be a script.
    if(NOT IS_DIRECTORY "${original}" AND EXISTS "${original}" AND original MATCHES "\\.so(\\.[0-9]+)*$")
        file(READ "${original}" magic LIMIT 4 HEX)
        if(NOT magic STREQUAL "7f454c46")
            set(script TRUE)
        endif()
    endif()
    if(script)
        file(COPY_FILE "${original}" "${entry}")
    else()
        file(CREATE_LINK "${original}" "${entry}" SYMBOLIC)
    endif()
endfunction()

# orvic_view_materialize(<base> <view> <relative dir>): make <dir> and its
# parents real directories in the view, their entries linked to base's.
function(orvic_view_materialize base view rel)
    set(cur "")
    string(REPLACE "/" ";" parts "${rel}")
    foreach(p IN LISTS parts)
        set(cur "${cur}/${p}")
        if(IS_SYMLINK "${view}${cur}" OR NOT EXISTS "${view}${cur}")
            file(REMOVE "${view}${cur}")
            file(MAKE_DIRECTORY "${view}${cur}")
            if(IS_DIRECTORY "${base}${cur}")
                file(GLOB entries LIST_DIRECTORIES true RELATIVE "${base}${cur}" "${base}${cur}/*")
                foreach(e IN LISTS entries)
                    _orvic_view_entry("${base}${cur}/${e}" "${view}${cur}/${e}")
                endforeach()
            endif()
        endif()
    endforeach()
endfunction()

# orvic_view_merge(<base> <view> <tree>): every file and link of <tree> (an
# install made with DESTDIR) appears at the same place in the view.
function(orvic_view_merge base view tree)
    file(GLOB_RECURSE files LIST_DIRECTORIES false RELATIVE "${tree}" "${tree}/*")
    foreach(f IN LISTS files)
        get_filename_component(dir "${f}" DIRECTORY)
        orvic_view_materialize("${base}" "${view}" "${dir}")
        file(REMOVE "${view}/${f}")
        file(CREATE_LINK "${tree}/${f}" "${view}/${f}" SYMBOLIC)
    endforeach()
endfunction()
