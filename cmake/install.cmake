# Install rules (GNUInstallDirs layout), the pkg-config file, the CMake package and CPack.
# Components: runtime (the library and the ZEV stand-in), dev (header, link names, pkg-config,
# CMake package), tools (the wapiwps and wapiwps-chipsim programs, docs, the Wireshark dissector).
include(CMakePackageConfigHelpers)
set(WAPIWPS_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/wapiwps)

if(WIN32)
    # A host's folder: the DLLs and programs in bin, the import libraries and the .def in lib.
    install(TARGETS wapiwps EXPORT wapiwpsTargets
            RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
            ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
    install(TARGETS zev EXPORT wapiwpsTargets
            RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
            ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}/wapiwps COMPONENT dev)
    install(FILES ${WAPIWPS_RUNTIME_DLLS} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
    install(FILES ${WAPIWPS_DLL_DEBUG_FILE} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT dev)
    install(FILES ${WAPIWPS_MSVC_IMPORT_LIB} ${PROJECT_SOURCE_DIR}/src/wapiwps.def
            DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
else()
    # The ZEV stand-in goes to a private folder, <libdir>/wapiwps, under the vendor library's
    # file name (the name libwapiwps.so.1 needs); the library's RUNPATH ($ORIGIN/wapiwps) finds it
    # there, and the linker follows that RUNPATH too, so hosts link with -lwapiwps alone.
    install(TARGETS wapiwps EXPORT wapiwpsTargets
            LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
    # (In the export set only because the library links it; hosts never link it themselves.)
    install(TARGETS zev EXPORT wapiwpsTargets
            LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/wapiwps COMPONENT runtime)
endif()
install(FILES ${PROJECT_SOURCE_DIR}/include/wapiwps.h ${PROJECT_BINARY_DIR}/include/wapiwps_version.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)

# Programs: the command-line host and the secure-chip simulator; their RUNPATH finds the
# library (and the registrar inside wapiwps finds zev) relative to bin.
file(RELATIVE_PATH bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
foreach(tool wapiwps_cli chipsim)
    if(TARGET ${tool})
        if(NOT WIN32)
            set_target_properties(${tool} PROPERTIES
                INSTALL_RPATH "$ORIGIN/${bin_to_lib};$ORIGIN/${bin_to_lib}/wapiwps")
        endif()
        install(TARGETS ${tool} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
    endif()
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT tools)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT tools)
if(EXISTS ${PROJECT_SOURCE_DIR}/tools/wireshark/wapiwps.lua)
    install(FILES ${PROJECT_SOURCE_DIR}/tools/wireshark/wapiwps.lua
            DESTINATION ${CMAKE_INSTALL_DATADIR}/wapiwps/wireshark COMPONENT tools)
endif()

# pkg-config: relocatable, the prefix taken from where wapiwps.pc lies.
set(pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH pc_to_prefix ${CMAKE_INSTALL_PREFIX}/${pc_dir} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/wapiwps.pc.in ${PROJECT_BINARY_DIR}/wapiwps.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/wapiwps.pc DESTINATION ${pc_dir} COMPONENT dev)

# CMake package: find_package(wapiwps) gives the imported target wapiwps::wapiwps.
install(EXPORT wapiwpsTargets NAMESPACE wapiwps:: DESTINATION ${WAPIWPS_CMAKE_DIR}
        COMPONENT dev)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/wapiwpsConfig.cmake.in
    ${PROJECT_BINARY_DIR}/wapiwpsConfig.cmake INSTALL_DESTINATION ${WAPIWPS_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/wapiwpsConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/wapiwpsConfig.cmake
              ${PROJECT_BINARY_DIR}/wapiwpsConfigVersion.cmake
        DESTINATION ${WAPIWPS_CMAKE_DIR} COMPONENT dev)

include(${PROJECT_SOURCE_DIR}/cmake/package.cmake)
