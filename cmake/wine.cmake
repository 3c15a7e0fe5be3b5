# Windows builds: run test programs under Wine, and put the runtime DLLs that zev.dll needs
# (libgcrypt and libgpg-error) beside the programs in bin/.
# x86 programs need the wine launcher, which picks the 32-bit loader (wine32:i386).
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    find_program(WAPIWPS_WINE32 NAMES wine NO_CMAKE_FIND_ROOT_PATH)
    set(WAPIWPS_WINE ${WAPIWPS_WINE32})
else()
    find_program(WAPIWPS_WINE NAMES wine64 wine PATHS /usr/lib/wine NO_CMAKE_FIND_ROOT_PATH)
endif()
find_program(WAPIWPS_WINESERVER NAMES wineserver64 wineserver PATHS /usr/lib/wine
             NO_CMAKE_FIND_ROOT_PATH)
if(WAPIWPS_WINE AND WAPIWPS_WINESERVER)
    set(WAPIWPS_WINEPREFIX ${PROJECT_BINARY_DIR}/wineprefix)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/wine-run.in ${PROJECT_BINARY_DIR}/wine-run @ONLY
                   FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ
                                    GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${PROJECT_BINARY_DIR}/wine-run)
else()
    message(WARNING "Wine not found: Windows test programs are built but cannot run")
endif()

# The DLLs of the mingw-w64 libgcrypt packages, copied once at configure time.
set(WAPIWPS_RUNTIME_DLLS "")
foreach(dll libgcrypt-20.dll libgpg-error-0.dll)
    find_file(WAPIWPS_DLL_${dll} ${dll} PATHS /usr/${TOOLCHAIN_PREFIX}/bin NO_DEFAULT_PATH)
    if(NOT WAPIWPS_DLL_${dll})
        message(FATAL_ERROR "${dll} not found: install libgcrypt-mingw-w64-dev")
    endif()
    list(APPEND WAPIWPS_RUNTIME_DLLS ${WAPIWPS_DLL_${dll}})
endforeach()
file(COPY ${WAPIWPS_RUNTIME_DLLS} DESTINATION ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
