# The cli test runs the built `wapiwps` program as a subprocess.
if(TARGET wapiwps_cli)
    add_dependencies(${target} wapiwps_cli)
    target_compile_definitions(${target} PRIVATE WAPIWPS_CLI_BINARY="$<TARGET_FILE:wapiwps_cli>")
endif()
