# libgcrypt: used by the ZEV stand-in, the registrar, the chip simulator and the tests, never by
# the library itself.
find_path(GCRYPT_INCLUDE_DIR gcrypt.h REQUIRED)
find_library(GCRYPT_LIBRARY NAMES gcrypt libgcrypt REQUIRED)
add_library(gcrypt::gcrypt UNKNOWN IMPORTED)
set_target_properties(gcrypt::gcrypt PROPERTIES
    IMPORTED_LOCATION ${GCRYPT_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${GCRYPT_INCLUDE_DIR})
if(WIN32)
    find_library(GPGERROR_LIBRARY NAMES gpg-error libgpg-error REQUIRED)
    set_property(TARGET gcrypt::gcrypt APPEND PROPERTY INTERFACE_LINK_LIBRARIES ${GPGERROR_LIBRARY})
endif()
