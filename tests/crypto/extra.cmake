# The crypto tests read the known-answer files with the JSON reader of the ZEV tests.
target_sources(${target} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/zev/json_lite.cpp)
