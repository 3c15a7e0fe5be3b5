# Cross-build for 32-bit Windows (x86) with Debian's mingw-w64; the tests need 32-bit Wine.
set(WAPIWPS_MINGW_ARCH i686)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.cmake)
