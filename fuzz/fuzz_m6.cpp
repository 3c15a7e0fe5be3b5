// Fuzzes the M6 parser (input as fuzzmsg::settings_target reads it). A wrapped M6's R-S2
// matches the R-Hash2 of M4, so that the padding, KWA and R-Hash2 steps see arbitrary input.
#include "fuzz_messages.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return fuzzmsg::settings_target(data, size, WPS_MSG_TYPE_M6, "M6", UnpackMessageM6, -60, -53);
}
