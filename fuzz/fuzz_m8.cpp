// Fuzzes the M8 parser. The first byte picks the mode and the way the rest is delivered:
//   bit 7 clear: the rest is an M8 body, parsed as it stands (the header checks);
//   bit 7 set:   the rest is the settings plaintext, sealed and wrapped into an M8 with a valid
//                Authenticator, so that the padding, Key Wrap Authenticator, Credential, address,
//                key and certificate-list steps see arbitrary input.
// Bits 0-1 give g_WPS_mode (0..3), bit 2 g_PeerCertFlag, bit 3 the text address mode.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "api/context.h"
#include "common/check_codes.h"
#include "crypto/crypto.h"
#include "messages/messages.h"

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

void put_attr(std::vector<uint8_t>& out, uint16_t type, const uint8_t* value, size_t len) {
    const uint8_t header[4] = {static_cast<uint8_t>(type >> 8), static_cast<uint8_t>(type),
                               static_cast<uint8_t>(len >> 8), static_cast<uint8_t>(len)};
    out.insert(out.end(), header, header + 4);
    out.insert(out.end(), value, value + len);
}

std::vector<uint8_t> wrap_settings(const uint8_t* plain, size_t len) {
    static uint8_t sealed[4096];
    uint16_t sealed_len = 0;
    EncryptMessage(plain, static_cast<uint16_t>(len), sealed, &sealed_len);
    std::vector<uint8_t> body;
    const uint8_t version = 0x10, type = WPS_MSG_TYPE_M8;
    put_attr(body, ATTR_VERSION, &version, 1);
    put_attr(body, ATTR_MSG_TYPE, &type, 1);
    put_attr(body, ATTR_ENROLLEE_NONCE, g_EnrolleeKeys.Nonce, 16);
    put_attr(body, ATTR_ENCR_SETTINGS, sealed, sealed_len);
    uint8_t mac[32];
    ComputeAuthenticator(g_EnrolleeKeys.AuthKey, g_PrevMsgBuf, g_PrevMsgLen, body.data(),
                         static_cast<int32_t>(body.size()), mac);
    put_attr(body, ATTR_AUTHENTICATOR, mac, 8);
    return body;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > 4000) return 0;
    set_up_keys(data[0]);
    std::vector<uint8_t> body = (data[0] & 0x80) ? wrap_settings(data + 1, size - 1)
                                                 : std::vector<uint8_t>(data + 1, data + size);
    clear_failed_check();
    const int32_t code = UnpackMessageM8(std::span<const uint8_t>(body.data(), body.size()),
                                         static_cast<int32_t>(body.size()));
    // The code a parser returns is the row of the code table it traced.
    if (code != 0 && (last_failed_check() == nullptr || last_failed_check()->code != code))
        std::abort();
    return 0;
}
