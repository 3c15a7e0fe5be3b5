// Fuzzes the M6 parser from a fixed key state. The first byte picks the mode:
//   bit 0:    Wi-Fi flavour instead of the WAPI pre-shared-key mode
//   bit 7 clear: the rest is an M6 body, parsed as it stands;
//   bit 7 set:   the rest is the settings plaintext, sealed and wrapped into an M6 with a valid
//                Authenticator (bit 6 also fixes its Key Wrap Authenticator), so that the padding,
//                KWA and R-Hash2 steps see arbitrary input.
#include <cstdio>
#include <cstdlib>

#include "common/check_codes.h"
#include "fuzz_settings_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    fuzzsettings::reset_keys((data[0] & 0x01) ? WIFI_WPS : WAPI_WPS_PSK);
    std::vector<uint8_t> rest(data + 1, data + size);
    std::vector<uint8_t> body =
        (data[0] & 0x80) ? fuzzsettings::wrap_settings(WPS_MSG_TYPE_M6, rest, (data[0] & 0x40) != 0, false)
                         : rest;
    clear_failed_check();
    const int32_t code = UnpackMessageM6(body, static_cast<int32_t>(body.size()));
    if (std::getenv("FUZZ_VERBOSE") != nullptr) std::fprintf(stderr, "M6 result %d\n", code);
    if (code != 0 && (code < -60 || code > -53)) std::abort();
    // The code a parser returns is the row of the code table it traced.
    if (code != 0 && (last_failed_check() == nullptr || last_failed_check()->code != code))
        std::abort();
    return 0;
}
