# Cross-build for 64-bit Windows with Debian's mingw-w64 (posix thread model, so that the test
# programs and tools can use std::thread). Test programs run under Wine through the wrapper that
# the top-level CMakeLists.txt generates (cmake/wine.cmake). mingw-w64-i686.cmake reuses this
# file for 32-bit Windows.
if(NOT WAPIWPS_MINGW_ARCH)
    set(WAPIWPS_MINGW_ARCH x86_64)
endif()
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR ${WAPIWPS_MINGW_ARCH})
set(TOOLCHAIN_PREFIX ${WAPIWPS_MINGW_ARCH}-w64-mingw32)
set(CMAKE_C_COMPILER ${TOOLCHAIN_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${TOOLCHAIN_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${TOOLCHAIN_PREFIX}-windres)
set(CMAKE_OBJDUMP ${TOOLCHAIN_PREFIX}-objdump CACHE FILEPATH "")
set(CMAKE_FIND_ROOT_PATH /usr/${TOOLCHAIN_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
