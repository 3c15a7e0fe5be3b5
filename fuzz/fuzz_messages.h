// Shared by the message parsers' fuzz targets: the check on a parser's code, a fixed key state as
// after an accepted M2, and a builder that wraps a settings plaintext into a registrar message
// with a valid Authenticator.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "api/context.h"
#include "common/bytes.h"
#include "common/check_codes.h"
#include "crypto/crypto.h"
#include "messages/messages.h"

namespace fuzzmsg {

// A parser's code is 0 or one of its own, [lowest, highest], and the row of the code table it
// traced. FUZZ_VERBOSE prints it.
inline void check_code(const char* message, int32_t code, int32_t lowest, int32_t highest) {
    if (std::getenv("FUZZ_VERBOSE") != nullptr) std::fprintf(stderr, "%s result %d\n", message, code);
    if (code == 0) return;
    if (code < lowest || code > highest) std::abort();
    if (last_failed_check() == nullptr || last_failed_check()->code != code) std::abort();
}

inline void put_tlv(std::vector<uint8_t>& out, uint16_t type, const uint8_t* value, size_t len) {
    uint8_t h[4];
    put_be16(h, type);
    put_be16(h + 2, static_cast<uint16_t>(len));
    out.insert(out.end(), h, h + 4);
    out.insert(out.end(), value, value + len);
}

// The key state of a run that has just sent M3 (or M5): fixed keys, nonces and a previous message.
inline void reset_keys(uint32_t wps_mode) {
    g_WPS_mode = wps_mode;
    ResetPartyKeyInfo(g_EnrolleeKeys);
    ResetPartyKeyInfo(g_RegistrarKeys);
    for (int i = 0; i < 16; ++i) {
        g_EnrolleeKeys.Nonce[i] = static_cast<uint8_t>(0xE0 + i);
        g_EnrolleeKeys.KeyWrapKey[i] = static_cast<uint8_t>(0x30 + i);
    }
    for (int i = 0; i < 32; ++i) g_EnrolleeKeys.AuthKey[i] = static_cast<uint8_t>(0xA0 + i);
    std::memset(g_EnrolleeKeys.PublicKey, 0x11, 64);
    std::memset(g_RegistrarKeys.PublicKey, 0x22, 64);
    std::memcpy(g_MyMsgInfo.DevicePassword, "12345670", 9);
    ComputeEHashes();
    std::memset(g_PrevMsgBuf, 0, kMsgBufLen);
    std::memset(g_PrevMsgBuf, 0x5A, 100);
    g_PrevMsgLen = 100;
}

// Seals `plain` (after optionally fixing its Key Wrap Authenticator) and wraps it with the
// attributes of a message of type msg_type and a valid Authenticator. An M4 carries R-Hashes that
// match the plaintext's R-S1; an M6's R-S2 is made to match the R-Hash2 of M4.
inline std::vector<uint8_t> wrap_settings(uint8_t msg_type, std::vector<uint8_t> plain, bool fix_kwa) {
    if (fix_kwa && plain.size() >= 32) {
        uint8_t mac[32];
        HmacSHA256(g_EnrolleeKeys.AuthKey, 32, plain.data(), 20, mac);
        std::memcpy(plain.data() + 24, mac, 8);
    }
    std::vector<uint8_t> body;
    const uint8_t version = 0x10;
    put_tlv(body, ATTR_VERSION, &version, 1);
    put_tlv(body, ATTR_MSG_TYPE, &msg_type, 1);
    put_tlv(body, ATTR_ENROLLEE_NONCE, g_EnrolleeKeys.Nonce, 16);
    if (msg_type == WPS_MSG_TYPE_M4) {
        // R-Hashes that match the nonces in the plaintext, so that the final step can pass.
        if (plain.size() >= 20) std::memcpy(g_RegistrarKeys.SecretNonce1, plain.data() + 4, 16);
        uint8_t r1[32], r2[32];
        ComputeRHash1(r1);
        ComputeRHash2(r2);
        put_tlv(body, ATTR_R_HASH1, r1, 32);
        put_tlv(body, ATTR_R_HASH2, r2, 32);
    } else if (msg_type == WPS_MSG_TYPE_M6) {
        // M6 checks R-S2 against the R-Hash2 that M4 brought: make them match.
        if (plain.size() >= 20) std::memcpy(g_RegistrarKeys.SecretNonce2, plain.data() + 4, 16);
        ComputeRHash2(g_RegistrarKeys.Hash2);
    }
    std::vector<uint8_t> sealed(plain.size() + 16);
    uint16_t sealed_len = 0;
    if (plain.size() <= 0xFFFF - 16)
        EncryptMessage(plain.data(), static_cast<uint16_t>(plain.size()), sealed.data(), &sealed_len);
    put_tlv(body, ATTR_ENCR_SETTINGS, sealed.data(), sealed_len);
    uint8_t mac[32];
    ComputeAuthenticator(g_EnrolleeKeys.AuthKey, g_PrevMsgBuf, g_PrevMsgLen, body.data(),
                         static_cast<int32_t>(body.size()), mac);
    put_tlv(body, ATTR_AUTHENTICATOR, mac, 8);
    return body;
}

// The M4 and M6 targets, from the key state above. The first byte picks the mode:
//   bit 0:       Wi-Fi flavour instead of the WAPI pre-shared-key mode
//   bit 7 clear: the rest is the message body, parsed as it stands;
//   bit 7 set:   the rest is the settings plaintext, sealed and wrapped as wrap_settings does (bit 6
//                also fixes its Key Wrap Authenticator), so that the steps after decryption see
//                arbitrary input.
inline int settings_target(const uint8_t* data, size_t size, uint8_t msg_type, const char* name,
                           int32_t (*unpack)(std::span<const uint8_t>, int32_t), int32_t lowest,
                           int32_t highest) {
    if (size < 1) return 0;
    reset_keys((data[0] & 0x01) ? WIFI_WPS : WAPI_WPS_PSK);
    std::vector<uint8_t> rest(data + 1, data + size);
    const std::vector<uint8_t> body =
        (data[0] & 0x80) ? wrap_settings(msg_type, rest, (data[0] & 0x40) != 0) : rest;
    clear_failed_check();
    check_code(name, unpack(body, static_cast<int32_t>(body.size())), lowest, highest);
    return 0;
}

}  // namespace fuzzmsg
