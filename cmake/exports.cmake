# The export list lives in src/wapiwps.def (one name per line under EXPORTS). The version script
# src/wapiwps.map and the WAPIWPS_API declarations of include/wapiwps.h must name exactly the same
# functions: configuring stops with the difference when they do not. Sets WAPIWPS_EXPORTS.
set(_def ${PROJECT_SOURCE_DIR}/src/wapiwps.def)
set(_map ${PROJECT_SOURCE_DIR}/src/wapiwps.map)
set(_header ${PROJECT_SOURCE_DIR}/include/wapiwps.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${_def} ${_map} ${_header})

function(_wapiwps_compare what names)
    list(SORT names)
    if(NOT names STREQUAL WAPIWPS_EXPORTS)
        set(missing ${WAPIWPS_EXPORTS})
        if(names)
            list(REMOVE_ITEM missing ${names})
        endif()
        set(extra ${names})
        list(REMOVE_ITEM extra ${WAPIWPS_EXPORTS})
        message(FATAL_ERROR "${what} does not match src/wapiwps.def\n"
                            "  missing there: ${missing}\n  not in wapiwps.def: ${extra}")
    endif()
endfunction()

# wapiwps.def: the names after the EXPORTS line (an "@ordinal" or keywords may follow a name).
file(STRINGS ${_def} _lines)
set(WAPIWPS_EXPORTS "")
set(_in_exports FALSE)
foreach(_line IN LISTS _lines)
    if(_line MATCHES "^[ \t]*EXPORTS[ \t]*$")
        set(_in_exports TRUE)
    elseif(_in_exports AND _line MATCHES "^[ \t]+([A-Za-z_][A-Za-z0-9_]*)")
        list(APPEND WAPIWPS_EXPORTS ${CMAKE_MATCH_1})
    endif()
endforeach()
list(SORT WAPIWPS_EXPORTS)
if(NOT WAPIWPS_EXPORTS)
    message(FATAL_ERROR "src/wapiwps.def lists no exports")
endif()

# wapiwps.map: every "Name;" line, inside version nodes of this major version.
file(STRINGS ${_map} _lines)
set(_names "")
foreach(_line IN LISTS _lines)
    if(_line MATCHES "^[ \t]*([A-Za-z_][A-Za-z0-9_]*)[ \t]*;")
        list(APPEND _names ${CMAKE_MATCH_1})
    elseif(_line MATCHES "^[ \t]*([A-Za-z0-9_.]+)[ \t]*{"
           AND NOT CMAKE_MATCH_1 MATCHES "^WAPIWPS_${PROJECT_VERSION_MAJOR}\\.[0-9]+$")
        message(FATAL_ERROR "src/wapiwps.map: version node ${CMAKE_MATCH_1} is not "
                            "WAPIWPS_${PROJECT_VERSION_MAJOR}.<minor>")
    endif()
endforeach()
_wapiwps_compare("src/wapiwps.map" "${_names}")

# wapiwps.h: every declaration "WAPIWPS_API <type> [WAPIWPS_CALL] Name(" that starts a line
# (the name may begin the next line).
file(READ ${_header} _text)
string(REGEX MATCHALL "\n[ \t]*WAPIWPS_API[^;(#]*[ \t\n*][A-Za-z_][A-Za-z0-9_]*[ \t]*\\(" _decls
       "${_text}")
set(_names "")
foreach(_decl IN LISTS _decls)
    string(REGEX REPLACE ".*[ \t\n*]([A-Za-z_][A-Za-z0-9_]*)[ \t]*\\($" "\\1" _name "${_decl}")
    list(APPEND _names ${_name})
endforeach()
_wapiwps_compare("the WAPIWPS_API declarations of include/wapiwps.h" "${_names}")
string(REPLACE ";" "," WAPIWPS_EXPORTS_ARG "${WAPIWPS_EXPORTS}")
