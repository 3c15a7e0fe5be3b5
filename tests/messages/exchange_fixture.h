// The message tests' registrar, independent of the library's builders: it writes attributes with
// the test-side encoder (common/wire.h), reaches the agreed key and the key schedule with the
// reference registrar's cryptography, and computes every hash and Authenticator with libgcrypt
// (common/reference.h), so that each M2, M4, M6 and M8 handed to the parsers is built from the
// protocol's rules alone. Exchange runs the
// enrollee's side up to a chosen message against it; ParserChecks holds the parsers' check tables.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "api/context.h"
#include "common/exchange.h"
#include "common/reference.h"
#include "common/wire.h"
#include "crypto/crypto.h"
#include "messages/attributes.h"
#include "messages/messages.h"
#include "registrar/crypto.h"

namespace msgtest {

using ref::Bytes;
using ref::bytes_of;
using ref::cat;
using ref::sm4_ofb;
using ref::TraceCapture;
using testwire::Attr;
using testwire::encode;
using testwire::tlv;
inline Bytes hmac(const Bytes& key, const Bytes& data) { return ref::hmac_sm3(key, data); }
inline Bytes head(const Bytes& b, size_t n) { return Bytes(b.begin(), b.begin() + long(n)); }
inline Bytes be16(uint16_t v) { return {uint8_t(v >> 8), uint8_t(v)}; }
using exchange::text;

inline void remove_attr(std::vector<Attr>& attrs, uint16_t type) {
    std::erase_if(attrs, [type](const Attr& a) { return a.type == type; });
}
inline Attr* find_attr(std::vector<Attr>& attrs, uint16_t type) {
    return &*std::find_if(attrs.begin(), attrs.end(), [type](const Attr& a) { return a.type == type; });
}

// Settings plaintext laid out as the registrar sends it: `inner`, KWA attribute, padding.
inline Bytes settings_plain(const Bytes& inner, const Bytes& auth_key) {
    Bytes p = cat({inner, tlv(ATTR_KEY_WRAP_AUTH, head(hmac(auth_key, inner), 8))});
    p.insert(p.end(), 16 - p.size() % 16, static_cast<uint8_t>(16 - p.size() % 16));
    return p;
}

struct Registrar {
    registrar::crypto::Sm2KeyPair own, own_temp;
    Bytes nonce = Bytes(16, 0x4E), uuid = text("registrar-uuid16");
    Bytes r_s1 = Bytes(16, 0x51), r_s2 = Bytes(16, 0x52);
    Bytes auth_key, key_wrap_key, emsk;

    Bytes public_key_attr() const { return cat({pk_r(), Bytes(own_temp.pub.begin(), own_temp.pub.end())}); }
    Bytes pk_r() const { return Bytes(own.pub.begin(), own.pub.end()); }
    static Bytes pk_e() { return bytes_of(g_EnrolleeKeys.PublicKey, 64); }

    // Key pairs, then the agreed key as the responder and the whole key schedule, with the
    // reference registrar's own cryptography.
    void make_keys_and_derive() {
        namespace rc = registrar::crypto;
        std::string error;
        ASSERT_TRUE(rc::sm2_generate(own, error) && rc::sm2_generate(own_temp, error)) << error;
        rc::Digest k{};
        ASSERT_TRUE(rc::sm2_agree_responder(own, own_temp, pk_e(), bytes_of(g_EnrolleeKeys.TempPublicKey, 64), uuid,
                                            bytes_of(g_MyMsgInfo.UUID_E, 16), k, error))
            << error;
        const size_t addr_len = g_AddressMode == TEXT_ADDRESS
                                    ? strnlen(reinterpret_cast<const char*>(g_MyMsgInfo.LocalAddress), 16)
                                    : 6;
        const rc::SessionKeys keys = rc::derive_session_keys(k, bytes_of(g_EnrolleeKeys.Nonce, 16),
                                                             bytes_of(g_MyMsgInfo.LocalAddress, addr_len), nonce);
        auth_key.assign(keys.auth_key.begin(), keys.auth_key.end());
        key_wrap_key.assign(keys.key_wrap_key.begin(), keys.key_wrap_key.end());
        emsk.assign(keys.emsk.begin(), keys.emsk.end());
    }

    Bytes psk(int half) const {
        const std::string pw(g_MyMsgInfo.DevicePassword, strnlen(g_MyMsgInfo.DevicePassword, 32));
        const size_t first = pw.size() / 2 + pw.size() % 2;
        const std::string part = half == 1 ? pw.substr(0, first) : pw.substr(first);
        return hmac(auth_key, Bytes(part.begin(), part.end()));
    }
    Bytes r_hash(int half) const {
        return hmac(auth_key, cat({half == 1 ? r_s1 : r_s2, head(psk(half), 16), pk_e(), pk_r()}));
    }

    // Appends the Authenticator over the previous message (as the enrollee keeps it) and body.
    Bytes authenticated(const Bytes& body) const {
        const Bytes prev = bytes_of(g_PrevMsgBuf, g_PrevMsgLen);
        return cat({body, tlv(ATTR_AUTHENTICATOR, head(hmac(auth_key, cat({prev, body})), 8))});
    }
    Bytes seal(const Bytes& plain, const Bytes& iv = Bytes(16, 0x1F)) const {
        return cat({iv, sm4_ofb(key_wrap_key, iv, plain)});
    }
    Bytes settings(int half) const {
        return settings_plain(tlv(half == 1 ? ATTR_R_SNONCE1 : ATTR_R_SNONCE2, half == 1 ? r_s1 : r_s2), auth_key);
    }

    std::vector<Attr> m2_attrs() const {
        const Bytes oui = g_WPS_mode == WIFI_WPS ? Bytes{0x00, 0x50, 0xF2, 0x04} : Bytes{0x00, 0x00, 0x14, 0x72};
        std::vector<Attr> a = {
            {ATTR_VERSION, {0x10}},
            {ATTR_MSG_TYPE, {WPS_MSG_TYPE_M2}},
            {ATTR_ENROLLEE_NONCE, bytes_of(g_EnrolleeKeys.Nonce, 16)},
            {ATTR_REGISTRAR_NONCE, nonce},
            {ATTR_UUID_R, uuid},
            {ATTR_PUBLIC_KEY, public_key_attr()},
            {ATTR_AUTH_TYPE_FLAGS, {0xE0, 0x00}},
            {ATTR_ENCR_TYPE_FLAGS, {0x80, 0x00}},
            {ATTR_CONNECTION_TYPE_FLAGS, {0x01}},
            {ATTR_CONFIG_METHODS, {0x00, 0x8C}},
            {ATTR_MANUFACTURER, text("Registrar Co")},
            {ATTR_MODEL_NAME, text("R-1")},
            {ATTR_MODEL_NUMBER, text("1")},
            {ATTR_SERIAL_NUMBER, text("42")},
            {ATTR_PRIMARY_DEV_TYPE, cat({{0x00, 0x01}, oui, {0x00, 0x01}})},
            {ATTR_DEVICE_NAME, text("registrar")},
            {ATTR_RF_BANDS, {0x03}},
            {ATTR_ASSOCIATION_STATE, {0x00, 0x00}},
            {ATTR_CONFIG_ERROR, {0x00, 0x00}},
            {ATTR_DEVICE_PASSWORD_ID, {0x00, 0x00}},
            {ATTR_OS_VERSION, {0x00, 0x00, 0x00, 0x01}},
        };
        if (g_WPS_mode == WAPI_WPS_CERT) a.push_back({ATTR_CERTIFICATE_MODE, {0x01}});
        return a;
    }
    // M4 (R-Hash1, R-Hash2, then the settings) or M6 (the settings alone).
    std::vector<Attr> sealed_attrs(uint8_t type, const Bytes& settings_plaintext) const {
        std::vector<Attr> a = {{ATTR_VERSION, {0x10}},
                               {ATTR_MSG_TYPE, {type}},
                               {ATTR_ENROLLEE_NONCE, bytes_of(g_EnrolleeKeys.Nonce, 16)}};
        if (type == WPS_MSG_TYPE_M4) a.insert(a.end(), {{ATTR_R_HASH1, r_hash(1)}, {ATTR_R_HASH2, r_hash(2)}});
        a.push_back({ATTR_ENCR_SETTINGS, seal(settings_plaintext)});
        return a;
    }
};

// Device information as SetDeviceInfo and StartWPS leave it, set here directly.
inline void set_device_info(uint32_t wps_mode, uint32_t address_mode, const char* pin) {
    g_WPS_mode = wps_mode;
    g_AddressMode = address_mode;
    const bool wifi = wps_mode == WIFI_WPS;
    g_MyMsgInfo = MyMsgInfo{{0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}, {}, "WAPI-WPS-STA", "WAPI-WPS-STA-Enrollee",
                            "12345", "67890123", "station", {}, 0, 1, 1, 3, 1,
                            uint16_t(wifi ? 0x0027 : 0xE000), uint16_t(wifi ? 0x000F : 0x8000),
                            0x0A0B0C0D, 0, 0x008C, {}};
    std::memcpy(g_MyMsgInfo.UUID_E, "enrollee-uuid-16", 16);
    std::memcpy(g_MyMsgInfo.DevicePassword, pin, std::min<size_t>(std::strlen(pin), 32));
}

// A builder's body; the builder must succeed and stay within the body limit.
inline Bytes build(bool (*builder)(uint8_t*, uint32_t*)) {
    std::vector<uint8_t> out(kMaxBodyLen, 0xEE);
    uint32_t len = 0;
    EXPECT_TRUE(builder(out.data(), &len));
    EXPECT_LE(len, kMaxBodyLen);
    return head(out, len);
}

class Exchange : public ::testing::Test {
protected:
    Registrar reg;
    Bytes m1, m3, m5;

    void start(uint32_t wps_mode = WAPI_WPS_PSK, const char* pin = "12345670") {
        set_device_info(wps_mode, MAC_ADDRESS, pin);
        g_PeerCertFlag = 0;
        CertificateMode = 0;
        ASSERT_TRUE(InitSession());
        m1 = build(BuildMessageM1);
        reg.make_keys_and_derive();
    }
    Bytes valid_m2() const { return reg.authenticated(encode(reg.m2_attrs())); }
    Bytes valid_m4() const { return reg.authenticated(encode(reg.sealed_attrs(WPS_MSG_TYPE_M4, reg.settings(1)))); }
    Bytes valid_m6() const { return reg.authenticated(encode(reg.sealed_attrs(WPS_MSG_TYPE_M6, reg.settings(2)))); }
    static int32_t m2(const Bytes& b) { return UnpackMessageM2(b, static_cast<int32_t>(b.size())); }
    static int32_t m4(const Bytes& b) { return UnpackMessageM4(b, static_cast<int32_t>(b.size())); }
    static int32_t m6(const Bytes& b) { return UnpackMessageM6(b, static_cast<int32_t>(b.size())); }

    void through_m3(uint32_t wps_mode = WAPI_WPS_PSK, const char* pin = "12345670") {
        start(wps_mode, pin);
        ASSERT_EQ(m2(valid_m2()), 0);
        m3 = build(BuildMessageM3);
    }
    // A Wi-Fi M4 cannot pass (its settings open to nothing): its M5 is built on M3 as previous.
    void through_m5(uint32_t wps_mode = WAPI_WPS_PSK) {
        through_m3(wps_mode);
        if (wps_mode != WIFI_WPS) {
            ASSERT_EQ(m4(valid_m4()), 0);
        }
        m5 = build(BuildMessageM5);
    }
};

// Fixed keys, nonces and previous message for the builder and parser tested without a run (M7,
// M8); `reg` holds the same keys.
class Keyed : public ::testing::Test {
protected:
    void SetUp() override {
        g_AddressMode = MAC_ADDRESS;
        g_PeerCertFlag = 0;
        for (uint8_t i = 0; i < 32; ++i) g_EnrolleeKeys.AuthKey[i] = uint8_t(0xA0 + i);
        for (uint8_t i = 0; i < 16; ++i) {
            g_EnrolleeKeys.KeyWrapKey[i] = uint8_t(0x30 + i);
            g_EnrolleeKeys.Nonce[i] = uint8_t(0x20 + i);
            g_EnrolleeKeys.SecretNonce2[i] = uint8_t(0xE0 + i);
            g_RegistrarKeys.Nonce[i] = uint8_t(0x70 + i);
        }
        std::memset(g_PrevMsgBuf, 0, sizeof g_PrevMsgBuf);
        for (uint8_t i = 0; i < 60; ++i) g_PrevMsgBuf[i] = uint8_t(0xF0 - i);
        g_PrevMsgLen = 60;
        prev = bytes_of(g_PrevMsgBuf, 60);
        reg.auth_key = bytes_of(g_EnrolleeKeys.AuthKey, 32);
        reg.key_wrap_key = bytes_of(g_EnrolleeKeys.KeyWrapKey, 16);
    }
    Registrar reg;
    Bytes prev;
};

// One row of a parser's check table: the registrar's message `message` (2, 4 or 6) changed by
// `mutate`, and the verdict: `code` with its failure line (`line`, or the usual one) and the
// previous message kept, or 0 with the body the new previous message.
enum class Auth { kSigned, kUnsigned, kTampered, kNotLast };
struct ParserCase {
    uint8_t message;
    const char* name;
    void (*mutate)(std::vector<Attr>&, const Registrar&);
    int32_t code;
    const char* line = nullptr;
    Auth auth = Auth::kSigned;
    uint32_t wps_mode = WAPI_WPS_PSK;
};

inline void reseal(std::vector<Attr>& a, const Registrar& r, const Bytes& plain) {
    find_attr(a, ATTR_ENCR_SETTINGS)->value = r.seal(plain);
}

class ParserChecks : public Exchange, public ::testing::WithParamInterface<ParserCase> {};

inline std::string case_name(const ::testing::TestParamInfo<ParserCase>& info) { return info.param.name; }

}  // namespace msgtest
