// Fuzzes the M8 parser. The first byte picks the mode and the way the rest is delivered:
//   bit 7 clear: the rest is an M8 body, parsed as it stands (the header checks);
//   bit 7 set:   the rest is the settings plaintext, sealed and wrapped into an M8 with a valid
//                Authenticator, so that the padding, Key Wrap Authenticator, Credential, address,
//                key and certificate-list steps see arbitrary input.
// Bits 0-1 give g_WPS_mode (0..3), bit 2 g_PeerCertFlag, bit 3 the text address mode.
#include "fuzz_messages.h"

namespace {

void set_up_keys(uint8_t selector) {
    g_WPS_mode = selector & 0x03u;
    g_PeerCertFlag = (selector >> 2) & 1u;
    g_AddressMode = (selector & 0x08u) ? TEXT_ADDRESS : MAC_ADDRESS;
    std::memset(g_MyMsgInfo.LocalAddress, 0, sizeof g_MyMsgInfo.LocalAddress);
    std::memcpy(g_MyMsgInfo.LocalAddress, "\x02\x11\x22\x33\x44\x55", 6);
    for (int i = 0; i < 32; ++i) g_EnrolleeKeys.AuthKey[i] = static_cast<uint8_t>(i);
    for (int i = 0; i < 16; ++i) {
        g_EnrolleeKeys.KeyWrapKey[i] = static_cast<uint8_t>(0x80 + i);
        g_EnrolleeKeys.Nonce[i] = static_cast<uint8_t>(0x40 + i);
    }
    std::memset(g_PrevMsgBuf, 0xA5, 64);
    g_PrevMsgLen = 64;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > 4000) return 0;
    set_up_keys(data[0]);
    std::vector<uint8_t> rest(data + 1, data + size);
    const std::vector<uint8_t> body =
        (data[0] & 0x80) ? fuzzmsg::wrap_settings(WPS_MSG_TYPE_M8, rest, false) : rest;
    clear_failed_check();
    const int32_t code = UnpackMessageM8(body, static_cast<int32_t>(body.size()));
    fuzzmsg::check_code("M8", code, -72, -59);
    return 0;
}
