// A test-side registrar, independent of the library's builders: it writes attributes with its own
// encoder, reaches the agreed key as the SM2 responder, and derives every key, hash and
// Authenticator with libgcrypt, so that each M2, M4 and M6 the tests hand to the parsers is built
// from the protocol's rules alone.
#pragma once

#include <gcrypt.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "api/context.h"
#include "common/reference.h"
#include "common/wire.h"
#include "crypto/crypto.h"
#include "messages/messages.h"
#include "zev.h"

namespace msgtest {

using ref::Bytes;
using ref::bytes_of;
using ref::cat;
using ref::init_gcrypt;
using ref::sm3;
using ref::sm4_ofb;
using ref::TraceCapture;
inline Bytes hmac(const Bytes& key, const Bytes& data) { return ref::hmac_sm3(key, data); }

inline Bytes head(const Bytes& b, size_t n) { return Bytes(b.begin(), b.begin() + n); }
inline Bytes be16(uint16_t v) { return {static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v)}; }
inline Bytes be32(uint32_t v) {
    return {static_cast<uint8_t>(v >> 24), static_cast<uint8_t>(v >> 16), static_cast<uint8_t>(v >> 8),
            static_cast<uint8_t>(v)};
}
inline Bytes text(const char* s) { return Bytes(s, s + std::strlen(s)); }


using testwire::Attr;
using testwire::encode;
using testwire::tlv;

inline void remove_attr(std::vector<Attr>& attrs, uint16_t type) {
    for (auto it = attrs.begin(); it != attrs.end(); ++it)
        if (it->type == type) {
            attrs.erase(it);
            return;
        }
}
inline Attr* find_attr(std::vector<Attr>& attrs, uint16_t type) {
    for (Attr& a : attrs)
        if (a.type == type) return &a;
    return nullptr;
}

// Settings plaintext laid out as the registrar sends it: nonce attribute, KWA attribute, padding.
inline Bytes settings_plain(uint16_t nonce_type, const Bytes& nonce, const Bytes& auth_key) {
    Bytes p = tlv(nonce_type, nonce);
    const Bytes kwa = head(hmac(auth_key, p), 8);
    p = cat({p, tlv(ATTR_KEY_WRAP_AUTH, kwa)});
    const size_t pad = 16 - p.size() % 16;
    p.insert(p.end(), pad, static_cast<uint8_t>(pad));
    return p;
}

struct Registrar {
    ZEV_ECCPrivateKey priv{}, temp_priv{};
    ZEV_ECCPublicKey pub{}, temp_pub{};
    Bytes nonce = Bytes(16, 0x4E), uuid = text("registrar-uuid16");
    Bytes r_s1 = Bytes(16, 0x51), r_s2 = Bytes(16, 0x52);
    Bytes auth_key, key_wrap_key, emsk;

    Bytes public_key_attr() const {
        return cat({bytes_of(pub.x, 32), bytes_of(pub.y, 32), bytes_of(temp_pub.x, 32), bytes_of(temp_pub.y, 32)});
    }
    Bytes pk_r() const { return cat({bytes_of(pub.x, 32), bytes_of(pub.y, 32)}); }
    static Bytes pk_e() { return bytes_of(g_EnrolleeKeys.PublicKey, 64); }

    // Key pairs, then the agreed key as the responder and the whole key schedule, test-side.
    void make_keys_and_derive() {
        ASSERT_EQ(ZEV_SM2_GenerateAgreementDataWithECC(g_phSessionHandle, &priv, &pub), 0);
        ASSERT_EQ(ZEV_SM2_GenerateAgreementDataWithECC(g_phSessionHandle, &temp_priv, &temp_pub), 0);
        ZEV_ECCPublicKey e_pub{256, {}, {}}, e_temp{256, {}, {}};
        std::memcpy(e_pub.x, g_EnrolleeKeys.PublicKey, 32);
        std::memcpy(e_pub.y, g_EnrolleeKeys.PublicKey + 32, 32);
        std::memcpy(e_temp.x, g_EnrolleeKeys.TempPublicKey, 32);
        std::memcpy(e_temp.y, g_EnrolleeKeys.TempPublicKey + 32, 32);
        uint8_t k[32] = {};
        ZEV_AgreementOut out{};
        out.key = k;
        ASSERT_EQ(ZEV_SM2_GenerateKeyWithECC_Responder(g_phSessionHandle, 256, uuid.data(), 16,
                                                       g_MyMsgInfo.UUID_E, 16, &priv, &temp_priv,
                                                       &temp_pub, &e_pub, &e_temp, &out),
                  0);
        const Bytes dh = sm3(bytes_of(k, 32));
        const size_t addr_len = g_AddressMode == TEXT_ADDRESS
                                    ? strnlen(reinterpret_cast<const char*>(g_MyMsgInfo.LocalAddress), 16)
                                    : 6;
        const Bytes kdk = hmac(dh, cat({bytes_of(g_EnrolleeKeys.Nonce, 16),
                                        bytes_of(g_MyMsgInfo.LocalAddress, addr_len), nonce}));
        const Bytes label = text("Wi-Fi Easy and Secure Key Derivation");
        Bytes kdf;
        for (uint32_t i = 1; i <= 3; ++i) {
            const Bytes r = hmac(kdk, cat({be32(i), label, be32(640)}));
            kdf.insert(kdf.end(), r.begin(), r.end());
        }
        auth_key = head(kdf, 32);
        key_wrap_key = Bytes(kdf.begin() + 32, kdf.begin() + 48);
        emsk = Bytes(kdf.begin() + 64, kdf.end());
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

    std::vector<Attr> m2_attrs() const {
        const bool wifi = g_WPS_mode == WIFI_WPS;
        const Bytes oui = wifi ? Bytes{0x00, 0x50, 0xF2, 0x04} : Bytes{0x00, 0x00, 0x14, 0x72};
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
    std::vector<Attr> m4_attrs(const Bytes& settings_plaintext) const {
        return {
            {ATTR_VERSION, {0x10}},
            {ATTR_MSG_TYPE, {WPS_MSG_TYPE_M4}},
            {ATTR_ENROLLEE_NONCE, bytes_of(g_EnrolleeKeys.Nonce, 16)},
            {ATTR_R_HASH1, r_hash(1)},
            {ATTR_R_HASH2, r_hash(2)},
            {ATTR_ENCR_SETTINGS, seal(settings_plaintext)},
        };
    }
    Bytes m4_settings() const { return settings_plain(ATTR_R_SNONCE1, r_s1, auth_key); }
    std::vector<Attr> m6_attrs(const Bytes& settings_plaintext) const {
        return {
            {ATTR_VERSION, {0x10}},
            {ATTR_MSG_TYPE, {WPS_MSG_TYPE_M6}},
            {ATTR_ENROLLEE_NONCE, bytes_of(g_EnrolleeKeys.Nonce, 16)},
            {ATTR_ENCR_SETTINGS, seal(settings_plaintext)},
        };
    }
    Bytes m6_settings() const { return settings_plain(ATTR_R_SNONCE2, r_s2, auth_key); }
};

// Device information as SetDeviceInfo and StartWPS leave it, set here directly.
inline void set_device_info(uint32_t wps_mode, uint32_t address_mode, const char* pin) {
    g_WPS_mode = wps_mode;
    g_AddressMode = address_mode;
    MyMsgInfo& i = g_MyMsgInfo;
    std::memset(&i, 0, sizeof(i));
    const uint8_t mac[6] = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
    std::memcpy(i.LocalAddress, mac, 6);
    std::memcpy(i.UUID_E, "enrollee-uuid-16", 16);
    std::strcpy(i.Manufacturer, "WAPI-WPS-STA");
    std::strcpy(i.ModelName, "WAPI-WPS-STA-Enrollee");
    std::strcpy(i.ModelNumber, "12345");
    std::strcpy(i.SerialNumber, "67890123");
    std::strcpy(i.DeviceName, "station");
    std::strncpy(i.DevicePassword, pin, 32);
    i.DevicePasswordId = 0;
    i.PrimaryDeviceCategory = 1;
    i.PrimaryDeviceSubCategory = 1;
    i.RFBands = 3;
    i.ConnectionTypeFlags = 1;
    i.AuthTypeFlags = wps_mode == WIFI_WPS ? 0x0027 : 0xE000;
    i.EncrTypeFlags = wps_mode == WIFI_WPS ? 0x000F : 0x8000;
    i.OSVersion = 0x0A0B0C0D;
    i.ConfigError = 0;
    i.ConfigMethods = 0x008C;
}

}  // namespace msgtest
