# CPack: on Linux three Debian packages (libwapiwps1, libwapiwps-dev, wapiwps-tools); on Windows
# one .zip per architecture with everything a host ships. `make package` builds them all.
set(CPACK_PACKAGE_NAME wapiwps)
set(CPACK_PACKAGE_VENDOR "wapiwps")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_CONTACT "wapiwps developers <wapiwps@localhost>")
set(CPACK_RESOURCE_FILE_README ${PROJECT_SOURCE_DIR}/README.md)
set(CPACK_OUTPUT_FILE_PREFIX ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGE_CHECKSUM SHA256)

if(WIN32)
    set(CPACK_GENERATOR ZIP)
    if(CMAKE_SIZEOF_VOID_P EQUAL 8)
        set(CPACK_SYSTEM_NAME win64)
    else()
        set(CPACK_SYSTEM_NAME win32)
    endif()
    set(CPACK_ARCHIVE_COMPONENT_INSTALL OFF)
    set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY ON)
else()
    set(CPACK_GENERATOR DEB)
    set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
    set(CPACK_DEB_COMPONENT_INSTALL ON)
    set(CPACK_COMPONENTS_ALL runtime dev tools)
    set(CPACK_STRIP_FILES ON)
    set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
    set(CPACK_DEBIAN_PACKAGE_SECTION libs)
    # dpkg-shlibdeps names the shared libraries each package needs (libgcrypt20 for the ZEV
    # stand-in, libpcap for the tools, the C and C++ runtimes).
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
    # Our own libraries (libwapiwps.so.1, the stand-in libzev.so) come from libwapiwps1.
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libwapiwps${PROJECT_VERSION_MAJOR})
    set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
        "WAPI Simple Config enrollee library\n The shared library and a ZEV stand-in over libgcrypt.")
    set(CPACK_DEBIAN_DEV_PACKAGE_NAME libwapiwps-dev)
    set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
    set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
        "libwapiwps${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
    set(CPACK_COMPONENT_DEV_DESCRIPTION
        "WAPI Simple Config enrollee library: development files\n Header, pkg-config file and CMake package.")
    set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME wapiwps-tools)
    set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
    set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS
        "libwapiwps${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
    set(CPACK_COMPONENT_TOOLS_DESCRIPTION
        "WAPI Simple Config enrollee: command-line host and tools\n The wapiwps program, the secure-chip simulator and a Wireshark dissector.")
endif()
include(CPack)
