// Fuzzes the M4 parser from a fixed key state. The first byte picks the mode:
//   bit 0:    Wi-Fi flavour instead of the WAPI pre-shared-key mode
//   bit 7 clear: the rest is an M4 body, parsed as it stands;
//   bit 7 set:   the rest is the settings plaintext, sealed and wrapped into an M4 with matching
//                R-Hashes and a valid Authenticator (bit 6 also fixes its Key Wrap Authenticator),
//                so that the decryption, KWA and R-Hash1 steps see arbitrary input.
#include "fuzz_messages.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    fuzzmsg::reset_keys((data[0] & 0x01) ? WIFI_WPS : WAPI_WPS_PSK);
    std::vector<uint8_t> rest(data + 1, data + size);
    std::vector<uint8_t> body =
        (data[0] & 0x80) ? fuzzmsg::wrap_settings(WPS_MSG_TYPE_M4, rest, (data[0] & 0x40) != 0)
                         : rest;
    clear_failed_check();
    const int32_t code = UnpackMessageM4(body, static_cast<int32_t>(body.size()));
    fuzzmsg::check_code("M4", code, -52, -43);
    return 0;
}
