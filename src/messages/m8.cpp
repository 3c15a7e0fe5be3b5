// M8: the registrar's last message. Opens the Encrypted Settings, checks the Key Wrap
// Authenticator and our address inside the Credential, and stores the delivered credential (a
// network key or a certificate list) for the result getters. Checks run in the order below; the
// first failure is the result and nothing is rolled back.
#include <cstring>

#include "api/context.h"
#include "common/bytes.h"
#include "crypto/crypto.h"
#include "messages/messages.h"
#include "platform/platform.h"

namespace {

constexpr int32_t kErrM8Authenticator = -61;
constexpr int32_t kErrM8AuthenticatorCheck = -62;
constexpr int32_t kErrM8Version = -63;
constexpr int32_t kErrM8MessageType = -64;
constexpr int32_t kErrM8EnrolleeNonce = -65;
constexpr int32_t kErrM8EncryptedSettings = -66;
constexpr int32_t kErrM8Padding = -59;  // shared with M6's padding check, on purpose
constexpr int32_t kErrM8KeyWrapAuth = -67;
constexpr int32_t kErrM8CertificateNeeded = -68;
constexpr int32_t kErrM8Credential = -68;  // shares -68 with Certificate Needed; the trace differs
constexpr int32_t kErrM8MacAddress = -69;
constexpr int32_t kErrM8NetworkKey = -70;
constexpr int32_t kErrM8CertificateList = -72;

constexpr size_t kAreaLen = 4096;  // value area and credential area
constexpr size_t kKwaTailLen = 12; // Key Wrap Authenticator attribute: 4-byte header, 8 bytes
constexpr size_t kAuthenticatorTailLen = 12;
// Longest network key we hand to the host: 64 raw bytes, or 64 hex characters decoding to 32.
// Longer keys would not fit the getter's documented 64-byte buffer or the 32-byte decoding area,
// so they are refused with the network-key code (tested in NetworkKeyBounds).
constexpr size_t kMaxRawKeyLen = 64;
constexpr size_t kMaxHexKeyLen = 64;
constexpr size_t kHexKeyAreaLen = 32;

int32_t fail(int32_t code) {
    trace("Unpack M8 error, error code is %d.\r\n", code);
    return code;
}

uint32_t handle_for_trace() {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(g_phSessionHandle));
}

// Finds one attribute of exactly `width` bytes (0: any width) in body[0, length).
bool find_exact(uint16_t type, std::span<const uint8_t> readable, int32_t length,
                std::span<uint8_t> value, uint16_t* value_len, size_t width) {
    if (GetTlvFromType(type, readable, length, value, value_len) == 0) return false;
    return width == 0 || *value_len == width;
}

// The Authenticator covers M7 as sent and this body up to, not including, its last attribute.
bool authenticator_matches(std::span<const uint8_t> readable, int32_t length) {
    if (length < static_cast<int32_t>(kAuthenticatorTailLen) ||
        static_cast<size_t>(length) > readable.size())
        return false;
    uint8_t mac[32];
    ComputeAuthenticator(g_EnrolleeKeys.AuthKey, g_PrevMsgBuf, g_PrevMsgLen, readable.data(),
                         length - static_cast<int32_t>(kAuthenticatorTailLen), mac);
    return equal_ct(mac, g_RegistrarKeys.Authenticator, 8);
}

// Checks and strips the padding (value = count); returns false with its own trace line.
// An empty plaintext (the Wi-Fi flavour opens nothing) has no padding byte to read; we refuse it
// as a bad padding value rather than read before the buffer (tested in WifiFlavourM8).
bool strip_padding(const uint8_t* plain, uint16_t* plain_len) {
    if (*plain_len == 0) {
        trace("pad value is error.\r\n");
        return false;
    }
    const uint8_t pad = plain[*plain_len - 1];
    if (pad > *plain_len) {
        trace("pad value is error.\r\n");
        return false;
    }
    for (size_t i = *plain_len - pad; i < *plain_len; ++i) {
        if (plain[i] != pad) {
            trace("pad string is error.\r\n");
            return false;
        }
    }
    *plain_len = static_cast<uint16_t>(*plain_len - pad);
    return true;
}

// The Key Wrap Authenticator is the last attribute before the padding and covers what precedes it.
bool key_wrap_auth_matches(std::span<const uint8_t> plain, uint16_t plain_len) {
    if (plain_len < kKwaTailLen) return false;
    uint8_t kwa[8];
    uint16_t kwa_len = 0;
    if (!find_exact(ATTR_KEY_WRAP_AUTH, plain, plain_len, kwa, &kwa_len, sizeof kwa)) return false;
    uint8_t mac[32];
    HmacSHA256(g_EnrolleeKeys.AuthKey, 32, plain.data(),
               static_cast<uint32_t>(plain_len - kKwaTailLen), mac);
    return equal_ct(mac, kwa, sizeof kwa);
}

// Our address inside the Credential. A six-byte address is compared up to its first zero byte,
// as the address field is read as text; a text address must match exactly.
bool mac_address_matches(std::span<const uint8_t> credential, uint16_t credential_len) {
    uint8_t mac[kAddressLen + 16];
    uint16_t mac_len = 0;
    if (GetTlvFromType(ATTR_MAC_ADDRESS, credential, credential_len, mac, &mac_len) == 0)
        return false;
    const size_t text_len = field_strlen(g_MyMsgInfo.LocalAddress, kAddressLen);
    if (g_AddressMode == TEXT_ADDRESS)
        return mac_len == text_len && std::memcmp(mac, g_MyMsgInfo.LocalAddress, text_len) == 0;
    if (mac_len != 6) return false;
    const size_t n = text_len < 6 ? text_len : 6;
    return std::memcmp(mac, g_MyMsgInfo.LocalAddress, n) == 0;
}

void store_result(const uint8_t* data, size_t len) {
    std::memset(g_PrevMsgBuf, 0, sizeof g_PrevMsgBuf);
    std::memcpy(g_PrevMsgBuf, data, len);
    g_ResultData = g_PrevMsgBuf;
    g_ResultLength = static_cast<uint16_t>(len);
}

int32_t store_network_key(std::span<const uint8_t> credential, uint16_t credential_len,
                          std::span<uint8_t> area) {
    uint16_t key_len = 0;
    if (GetTlvFromType(ATTR_NETWORK_KEY, credential, credential_len, area, &key_len) == 0)
        return fail(kErrM8NetworkKey);
    trace("WAPI-PSK-WPS :NETWORK_KEY Length = %d.\r\n", key_len);
    if (g_PeerCertFlag == 0) {
        if (key_len > kMaxRawKeyLen) return fail(kErrM8NetworkKey);
        store_result(area.data(), key_len);
        return 0;
    }
    // The registrar announced a hexadecimal key (Authentication Type Flags 0x2000 in M2).
    uint8_t decoded[kHexKeyAreaLen] = {};
    if (key_len % 2 != 0 || key_len > kMaxHexKeyLen ||
        HexToBytes(reinterpret_cast<const char*>(area.data()), decoded, key_len / 2) != 0) {
        trace("HexKey is not correct.\r\n");
        secure_wipe(decoded, sizeof decoded);
        return kErrM8NetworkKey;
    }
    store_result(decoded, key_len / 2u);
    secure_wipe(decoded, sizeof decoded);
    return 0;
}

int32_t store_certificate_list(std::span<const uint8_t> credential, uint16_t credential_len,
                               std::span<uint8_t> area) {
    if (NewCertificateFlag == 0) {
        trace("No need new cert.\r\n");
        return 0;
    }
    trace("There are new certs in packet.\r\n");
    uint16_t list_len = 0;
    // A list shorter than its 2-byte count is as good as absent.
    if (GetTlvFromType(ATTR_CERTIFICATE_LIST, credential, credential_len, area, &list_len) == 0 ||
        list_len < 2)
        return fail(kErrM8CertificateList);
    g_CertCount = get_be16(area.data());
    trace("certlistLength = %d,cert count is %d.\r\n", list_len, g_CertCount);
    store_result(area.data() + 2, list_len - 2u);
    return 0;
}

}  // namespace

int32_t UnpackMessageM8(std::span<const uint8_t> readable, int32_t length) {
    static uint8_t value[kAreaLen];
    static uint8_t credential[kAreaLen];
    std::memset(value, 0, sizeof value);
    std::memset(credential, 0, sizeof credential);
    uint16_t value_len = 0;

    trace("Unpack M8 g_phSessionHandle0=%x.\r\n", handle_for_trace());

    if (!find_exact(ATTR_AUTHENTICATOR, readable, length, value, &value_len, 8))
        return fail(kErrM8Authenticator);
    std::memcpy(g_RegistrarKeys.Authenticator, value, 8);
    trace("Unpack M8 g_phSessionHandle1=%x.\r\n", handle_for_trace());

    if (!authenticator_matches(readable, length)) return fail(kErrM8AuthenticatorCheck);
    if (!find_exact(ATTR_VERSION, readable, length, value, &value_len, 1))
        return fail(kErrM8Version);
    if (!find_exact(ATTR_MSG_TYPE, readable, length, value, &value_len, 1) ||
        value[0] != WPS_MSG_TYPE_M8)
        return fail(kErrM8MessageType);
    if (!find_exact(ATTR_ENROLLEE_NONCE, readable, length, value, &value_len, kNonceLen) ||
        !equal_ct(value, g_EnrolleeKeys.Nonce, kNonceLen))
        return fail(kErrM8EnrolleeNonce);
    if (!find_exact(ATTR_ENCR_SETTINGS, readable, length, value, &value_len, 0))
        return fail(kErrM8EncryptedSettings);

    uint16_t plain_len = 0;
    DecryptMessage(value, value_len, &plain_len);
    if (!strip_padding(value, &plain_len)) return kErrM8Padding;
    if (!key_wrap_auth_matches(value, plain_len)) return fail(kErrM8KeyWrapAuth);

    uint8_t field[16];
    uint16_t field_len = 0;
    if (g_WPS_mode == WAPI_WPS_CERT) {
        if (!find_exact(ATTR_CERTIFICATE_NEEDED, std::span<const uint8_t>(value), plain_len, field,
                        &field_len, 1)) {
            trace("Unpack M8 error, error code is -68,WPS_NEW_CERTIFICATE_NEEDED.\r\n");
            return kErrM8CertificateNeeded;
        }
        NewCertificateFlag = field[0] != 0 ? 1 : 0;
    }

    uint16_t credential_len = 0;
    if (GetTlvFromType(ATTR_CREDENTIAL, std::span<const uint8_t>(value), plain_len, credential,
                       &credential_len) == 0)
        return fail(kErrM8Credential);
    if (!mac_address_matches(credential, credential_len)) return fail(kErrM8MacAddress);

    std::memset(value, 0, sizeof value);
    switch (g_WPS_mode) {
        case WIFI_WPS:
        case WAPI_WPS_PSK:
            return store_network_key(credential, credential_len, value);
        case WAPI_WPS_CERT:
            return store_certificate_list(credential, credential_len, value);
        default:
            return 0;
    }
}

int32_t HexToBytes(const char* text, uint8_t* out, int32_t count) {
    auto nibble = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    };
    for (int32_t i = 0; i < count; ++i) {
        const int hi = nibble(text[2 * i]);
        if (hi < 0) return -1;
        const int lo = nibble(text[2 * i + 1]);
        if (lo < 0) return -1;
        out[i] = static_cast<uint8_t>((hi << 4) | lo);
    }
    return 0;
}
