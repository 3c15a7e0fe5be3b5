# The secure-chip tests run the service simulator in-process.
target_link_libraries(${target} PRIVATE chipsim_lib)
