# The ZEV calls go through tests/common/zev_wrap.cpp, whose hooks pause the allocation count. Only
# where the library reaches zev by plain symbols (not through a Windows import table).
if(NOT WIN32)
    target_link_options(${target} PRIVATE ${WAPIWPS_ZEV_WRAP_OPTIONS})
    target_compile_definitions(${target} PRIVATE ALLOC_ZEV_WRAPPED=1)
endif()
# The chip-signed exchange runs the secure-chip service simulator in-process.
if(TARGET chipsim_lib)
    target_link_libraries(${target} PRIVATE chipsim_lib)
    target_compile_definitions(${target} PRIVATE WAPIWPS_HAVE_CHIPSIM=1)
endif()
