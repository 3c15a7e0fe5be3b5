// Fuzzes the M2 parser after a real M1, so that the key agreement and key derivation run on
// whatever public keys arrive. The first byte picks the mode:
//   bits 0-1: g_WPS_mode (2, 1, 3, 7: the pre-shared-key, Wi-Fi, certificate and another WAPI value)
//   bit 7:    replace the body's last 8 bytes with the Authenticator the enrollee expects, so that
//             the checks after the Authenticator step see arbitrary input.
// The rest is the M2 body, an exact-size heap copy so that any read past it is caught.
#include "fuzz_messages.h"

namespace {

constexpr uint32_t kModes[4] = {WAPI_WPS_PSK, WIFI_WPS, WAPI_WPS_CERT, 7};

struct Snapshot {
    PartyKeyInfo enrollee, registrar;
    uint8_t prev[kMsgBufLen];
    uint16_t prev_len;
};
Snapshot g_snapshot;
bool g_ready = false;

void prepare_once() {
    if (g_ready) return;
    g_ready = true;
    g_WPS_mode = WAPI_WPS_PSK;
    g_AddressMode = MAC_ADDRESS;
    std::memcpy(g_MyMsgInfo.LocalAddress, "\x00\x1A\x2B\x3C\x4D\x5E", 6);
    std::memcpy(g_MyMsgInfo.UUID_E, "enrollee-uuid-16", 16);
    std::memcpy(g_MyMsgInfo.DevicePassword, "12345670", 8);
    InitSession();
    // A fixed Enrollee Nonce, so that corpus files can carry the one the parser expects.
    for (int i = 0; i < 16; ++i) g_EnrolleeKeys.Nonce[i] = static_cast<uint8_t>(0xE0 + i);
    std::vector<uint8_t> m1(kMaxBodyLen);
    uint32_t len = 0;
    BuildMessageM1(m1.data(), &len);
    g_snapshot.enrollee = g_EnrolleeKeys;
    g_snapshot.registrar = g_RegistrarKeys;
    std::memcpy(g_snapshot.prev, g_PrevMsgBuf, kMsgBufLen);
    g_snapshot.prev_len = g_PrevMsgLen;
}

void restore() {
    g_EnrolleeKeys = g_snapshot.enrollee;
    g_RegistrarKeys = g_snapshot.registrar;
    std::memcpy(g_PrevMsgBuf, g_snapshot.prev, kMsgBufLen);
    g_PrevMsgLen = g_snapshot.prev_len;
    g_PeerCertFlag = 0;
    CertificateMode = 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    prepare_once();
    restore();
    g_WPS_mode = kModes[data[0] & 0x03];
    std::vector<uint8_t> body(data + 1, data + size);
    if ((data[0] & 0x80) != 0 && body.size() >= 12 && body.size() <= kMsgBufLen) {
        // The Authenticator depends on the session keys, which depend on this body's nonce and
        // public keys: derive them the way the parser will before patching.
        UnpackMessageM2(body, static_cast<int32_t>(body.size()));
        uint8_t mac[32];
        ComputeAuthenticator(g_EnrolleeKeys.AuthKey, g_snapshot.prev, g_snapshot.prev_len,
                             body.data(), static_cast<int32_t>(body.size() - 12), mac);
        std::memcpy(body.data() + body.size() - 8, mac, 8);
        restore();
        g_WPS_mode = kModes[data[0] & 0x03];
    }
    clear_failed_check();
    const int32_t code = UnpackMessageM2(body, static_cast<int32_t>(body.size()));
    fuzzmsg::check_code("M2", code, -42, -18);
    if (code == 0 && (g_PrevMsgLen != body.size() || std::memcmp(g_PrevMsgBuf, body.data(), body.size()) != 0))
        std::abort();
    return 0;
}
