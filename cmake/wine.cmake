# Windows builds: run test programs under Wine, and put the runtime DLLs that zev.dll needs
# (libgcrypt and libgpg-error) beside the programs in bin/.
find_program(WAPIWPS_WINE NAMES wine64 wine PATHS /usr/lib/wine NO_CMAKE_FIND_ROOT_PATH)
find_program(WAPIWPS_WINESERVER NAMES wineserver64 wineserver PATHS /usr/lib/wine
             NO_CMAKE_FIND_ROOT_PATH)
if(WAPIWPS_WINE AND WAPIWPS_WINESERVER)
    set(WAPIWPS_WINEPREFIX ${CMAKE_BINARY_DIR}/wineprefix)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/wine-run.in ${CMAKE_BINARY_DIR}/wine-run @ONLY
                   FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ
                                    GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_BINARY_DIR}/wine-run)
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
