# The chip-signed exchanges run the secure-chip service simulator in-process.
if(TARGET chipsim_lib)
    target_link_libraries(${target} PRIVATE chipsim_lib)
    target_compile_definitions(${target} PRIVATE WAPIWPS_HAVE_CHIPSIM=1)
endif()
