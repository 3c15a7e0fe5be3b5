# wapiwps.dll as hosts get it (included from src/CMakeLists.txt): the exports of wapiwps.def,
# undecorated; a VERSIONINFO resource; debug information moved to wapiwps.dll.debug (linked by
# .gnu_debuglink); beside the MinGW import library libwapiwps.dll.a an MSVC one, wapiwps.lib.
if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    set(WAPIWPS_ARCH_NAME x64)
    set(dlltool_machine i386:x86-64)
else()
    set(WAPIWPS_ARCH_NAME x86)
    set(dlltool_machine i386)
endif()
set(WAPIWPS_ARCH_NAME ${WAPIWPS_ARCH_NAME} PARENT_SCOPE)
configure_file(${PROJECT_SOURCE_DIR}/cmake/wapiwps.rc.in ${CMAKE_CURRENT_BINARY_DIR}/wapiwps.rc @ONLY)

target_link_libraries(wapiwps PRIVATE ws2_32 bcrypt)
target_sources(wapiwps PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/wapiwps.def
                               ${CMAKE_CURRENT_BINARY_DIR}/wapiwps.rc)
set_target_properties(wapiwps PROPERTIES PREFIX "")

find_program(WAPIWPS_OBJCOPY NAMES ${TOOLCHAIN_PREFIX}-objcopy objcopy REQUIRED)
find_program(WAPIWPS_DLLTOOL NAMES llvm-dlltool llvm-dlltool-14 ${TOOLCHAIN_PREFIX}-dlltool
             REQUIRED)
if(WAPIWPS_DLLTOOL MATCHES "llvm-dlltool")
    set(dlltool_args -m ${dlltool_machine})
else()
    set(dlltool_args --machine ${dlltool_machine} --no-leading-underscore)
endif()
set(debug_file $<TARGET_FILE:wapiwps>.debug)
set(msvc_lib ${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/wapiwps.lib)
add_custom_command(TARGET wapiwps POST_BUILD
    COMMAND ${WAPIWPS_OBJCOPY} --only-keep-debug $<TARGET_FILE:wapiwps> ${debug_file}
    COMMAND ${WAPIWPS_OBJCOPY} --strip-debug --strip-unneeded --add-gnu-debuglink=${debug_file}
            $<TARGET_FILE:wapiwps>
    COMMAND ${WAPIWPS_DLLTOOL} ${dlltool_args} -d ${CMAKE_CURRENT_SOURCE_DIR}/wapiwps.def
            -D wapiwps.dll -l ${msvc_lib}
    WORKING_DIRECTORY $<TARGET_FILE_DIR:wapiwps>
    VERBATIM)
set(WAPIWPS_MSVC_IMPORT_LIB ${msvc_lib} PARENT_SCOPE)
set(WAPIWPS_DLL_DEBUG_FILE ${debug_file} PARENT_SCOPE)

# What a host ships, gathered in <build>/package after every build of wapiwps.
set(WAPIWPS_PACKAGE_DIR ${PROJECT_BINARY_DIR}/package)
add_custom_command(TARGET wapiwps POST_BUILD
    COMMAND ${CMAKE_COMMAND} -E make_directory ${WAPIWPS_PACKAGE_DIR}
    COMMAND ${CMAKE_COMMAND} -E copy_if_different $<TARGET_FILE:wapiwps>
            $<TARGET_LINKER_FILE:wapiwps> ${msvc_lib} ${CMAKE_CURRENT_SOURCE_DIR}/wapiwps.def
            $<TARGET_FILE:zev> ${WAPIWPS_RUNTIME_DLLS}
            ${PROJECT_SOURCE_DIR}/include/wapiwps.h
            ${PROJECT_BINARY_DIR}/include/wapiwps_version.h ${WAPIWPS_PACKAGE_DIR}
    VERBATIM)
