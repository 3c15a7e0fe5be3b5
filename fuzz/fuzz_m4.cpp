// Fuzzes the M4 parser (input as fuzzmsg::settings_target reads it). A wrapped M4 carries
// R-Hashes that match its plaintext, so that the decryption, KWA and R-Hash1 steps see
// arbitrary input.
#include "fuzz_messages.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return fuzzmsg::settings_target(data, size, WPS_MSG_TYPE_M4, "M4", UnpackMessageM4, -52, -43);
}
