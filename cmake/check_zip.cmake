# Builds the Windows .zip with CPack and checks that it holds what a host ships.
#   cmake -DCPACK=<cpack> -DBUILD_DIR=<build> [-DWITH_CLI=1] -P check_zip.cmake
execute_process(COMMAND ${CPACK} -G ZIP WORKING_DIRECTORY ${BUILD_DIR} RESULT_VARIABLE rc
                OUTPUT_VARIABLE out ERROR_VARIABLE out)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "cpack failed:\n${out}")
endif()
file(GLOB zips ${BUILD_DIR}/packages/wapiwps-*.zip)
list(LENGTH zips n)
if(NOT n EQUAL 1)
    message(FATAL_ERROR "expected one .zip in ${BUILD_DIR}/packages, found: ${zips}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -E tar tf ${zips} OUTPUT_VARIABLE listing)
set(expected bin/wapiwps.dll bin/zev.dll bin/libgcrypt-20.dll bin/libgpg-error-0.dll
    lib/wapiwps.lib lib/libwapiwps.dll.a lib/wapiwps.def include/wapiwps.h
    include/wapiwps_version.h)
if(WITH_CLI)
    list(APPEND expected bin/wapiwps.exe)
endif()
foreach(file IN LISTS expected)
    if(NOT listing MATCHES "/${file}\n")
        message(SEND_ERROR "${zips} lacks ${file}")
    endif()
endforeach()
message(STATUS "${zips}:\n${listing}")
