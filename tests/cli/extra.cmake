# The cli tests decode frames with the host's own support library and run the built `wapiwps`
# program as a subprocess.
target_link_libraries(${target} PRIVATE wapiwps_cli_support)
if(TARGET wapiwps_cli)
    add_dependencies(${target} wapiwps_cli)
    target_compile_definitions(${target} PRIVATE WAPIWPS_CLI_BINARY="$<TARGET_FILE:wapiwps_cli>")
endif()
