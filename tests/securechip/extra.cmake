# The secure-chip tests run the service simulator in-process (and, as another account, as a
# program), and load the shared library itself to unload it under a running watcher.
target_link_libraries(${target} PRIVATE chipsim_lib ${CMAKE_DL_LIBS})
add_dependencies(${target} chipsim wapiwps)
target_compile_definitions(${target} PRIVATE WAPIWPS_LIB_PATH="$<TARGET_FILE:wapiwps>"
                                             CHIPSIM_PATH="$<TARGET_FILE:chipsim>")
