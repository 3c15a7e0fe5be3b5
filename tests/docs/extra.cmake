# The C blocks of README.md and docs/host-guide.md: each block is a translation unit of its own,
# built as C into this program and as C++ into docs_cxx_tests, and both run the same tests
# against the reference registrar. The blocks are cut out at configure time (an edit of either
# file re-runs it); a block is only rewritten when its text changed.
set(doc_c_sources "")
set(doc_cxx_sources "")
foreach(md README.md docs/host-guide.md)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${md})
    file(READ ${PROJECT_SOURCE_DIR}/${md} text)
    get_filename_component(stem ${md} NAME_WE)
    set(index 0)
    while(TRUE)
        string(FIND "${text}" "```c\n" start)
        if(start EQUAL -1)
            break()
        endif()
        math(EXPR start "${start} + 5")
        string(SUBSTRING "${text}" ${start} -1 text)
        string(FIND "${text}" "```" stop)
        string(SUBSTRING "${text}" 0 ${stop} block)
        string(SUBSTRING "${text}" ${stop} -1 text)
        set(base ${CMAKE_CURRENT_BINARY_DIR}/doc_blocks/${stem}_${index})
        file(WRITE ${base}.tmp "${block}")
        configure_file(${base}.tmp ${base}.c COPYONLY)
        configure_file(${base}.tmp ${base}.cpp COPYONLY)
        list(APPEND doc_c_sources ${base}.c)
        list(APPEND doc_cxx_sources ${base}.cpp)
        math(EXPR index "${index} + 1")
    endwhile()
endforeach()

target_sources(${target} PRIVATE ${doc_c_sources})
target_link_libraries(${target} PRIVATE wapiwps_codesdoc_lib)
target_compile_definitions(${target} PRIVATE WAPIWPS_DOCS_DIR="${PROJECT_SOURCE_DIR}/docs")

add_executable(docs_cxx_tests ${AREA_SOURCES} ${doc_cxx_sources})
target_link_libraries(docs_cxx_tests PRIVATE wapiwps_core test_common GTest::gtest_main registrar
                      wapiwps_codesdoc_lib)
target_compile_definitions(docs_cxx_tests PRIVATE WAPIWPS_DOCS_CXX=1
                           WAPIWPS_DOCS_DIR="${PROJECT_SOURCE_DIR}/docs")
add_test(NAME docs_cxx_tests COMMAND docs_cxx_tests --gtest_brief=1)
