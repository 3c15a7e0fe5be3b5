// M8: the registrar's last message. Opens the Encrypted Settings, checks the Key Wrap
// Authenticator and our address inside the Credential, and stores the delivered credential (a
// network key or a certificate list) for the result getters. Checks run in the order below; the
// first failure is the result and nothing is rolled back.
#include <cstring>

#include "api/context.h"
#include "common/bytes.h"
#include "crypto/crypto.h"
#include "messages/messages.h"
#include "messages/tlv_checks.h"
#include "platform/platform.h"

namespace {

constexpr size_t kAreaLen = 4096;   // value area and credential area
constexpr size_t kKwaTailLen = 12;  // Key Wrap Authenticator attribute: 4-byte header, 8 bytes
constexpr uint8_t kM8MsgType[] = {WPS_MSG_TYPE_M8};
// Longest network key we hand to the host: 64 raw bytes, or 64 hex characters decoding to 32.
// Longer keys would not fit the getter's documented 64-byte buffer or the 32-byte decoding area,
// so they are refused with the network-key code (tested in M8FaultTest and M8HexKeyTest).
constexpr size_t kMaxRawKeyLen = 64;
constexpr size_t kMaxHexKeyLen = 64;
constexpr size_t kHexKeyAreaLen = 32;

// The Credential attribute's value, taken out of the opened settings.
uint8_t g_Credential[kAreaLen];
uint16_t g_CredentialLength;


std::span<const uint8_t> opened(const ParseState& s) {
    return std::span<const uint8_t>(s.value.data(), s.value.size());
}
std::span<const uint8_t> credential() {
    return std::span<const uint8_t>(g_Credential, sizeof g_Credential);
}

StepResult store_authenticator(ParseState& s) {
    store_registrar_authenticator(s);
    trace("Unpack M8 g_phSessionHandle1=%x.\r\n", session_handle_trace());
    return kStepPassed;
}

// The Key Wrap Authenticator is the last attribute before the padding and covers what precedes it.
StepResult check_key_wrap_auth(ParseState& s) {
    strip_padding(s);
    uint8_t kwa[8];
    uint16_t kwa_len = 0;
    if (s.decrypted_len < kKwaTailLen ||
        GetTlvFromType(ATTR_KEY_WRAP_AUTH, opened(s), s.decrypted_len, kwa, &kwa_len) == 0 ||
        kwa_len != sizeof kwa)
        return kStepFailed;
    uint8_t mac[32];
    HmacSHA256(g_EnrolleeKeys.AuthKey, 32, s.value.data(),
               static_cast<uint32_t>(s.decrypted_len - kKwaTailLen), mac);
    if (!equal_ct(mac, kwa, sizeof kwa)) return kStepFailed;
    return kStepPassed;
}

// Certificate mode only: whether new certificates follow.
StepResult read_certificate_needed(ParseState& s) {
    if (g_WPS_mode != WAPI_WPS_CERT) return kStepPassed;
    uint8_t needed[16];
    uint16_t needed_len = 0;
    if (GetTlvFromType(ATTR_CERTIFICATE_NEEDED, opened(s), s.decrypted_len, needed, &needed_len) ==
            0 ||
        needed_len != 1)
        return kStepFailed;
    NewCertificateFlag = needed[0] != 0 ? 1 : 0;
    return kStepPassed;
}

StepResult take_credential(ParseState& s) {
    g_CredentialLength = 0;
    if (GetTlvFromType(ATTR_CREDENTIAL, opened(s), s.decrypted_len, g_Credential,
                       &g_CredentialLength) == 0)
        return kStepFailed;
    return kStepPassed;
}

// Our address inside the Credential. A six-byte address is compared up to its first zero byte,
// as the address field is read as text; a text address must match in length and bytes.
StepResult check_mac_address(ParseState&) {
    uint8_t mac[kAddressLen + 16];
    uint16_t mac_len = 0;
    if (GetTlvFromType(ATTR_MAC_ADDRESS, credential(), g_CredentialLength, mac, &mac_len) == 0)
        return kStepFailed;
    const size_t text_len = field_strlen(g_MyMsgInfo.LocalAddress, kAddressLen);
    bool same;
    if (g_AddressMode == TEXT_ADDRESS) {
        same = mac_len == text_len && std::memcmp(mac, g_MyMsgInfo.LocalAddress, text_len) == 0;
    } else {
        const size_t n = text_len < 6 ? text_len : 6;
        same = mac_len == 6 && std::memcmp(mac, g_MyMsgInfo.LocalAddress, n) == 0;
    }
    return same ? kStepPassed : kStepFailed;
}

void store_result(const uint8_t* data, size_t len) {
    std::memset(g_PrevMsgBuf, 0, sizeof g_PrevMsgBuf);
    std::memcpy(g_PrevMsgBuf, data, len);
    g_ResultData = g_PrevMsgBuf;
    g_ResultLength = static_cast<uint16_t>(len);
}

StepResult store_network_key(ParseState& s) {
    uint16_t key_len = 0;
    if (GetTlvFromType(ATTR_NETWORK_KEY, credential(), g_CredentialLength, s.value, &key_len) == 0)
        return kStepFailed;
    trace("WAPI-PSK-WPS :NETWORK_KEY Length = %d.\r\n", key_len);
    if (g_PeerCertFlag == 0) {
        if (key_len > kMaxRawKeyLen) return kStepFailed;
        store_result(s.value.data(), key_len);
        return kStepPassed;
    }
    // The registrar announced a hexadecimal key (Authentication Type Flags 0x2000 in M2).
    uint8_t decoded[kHexKeyAreaLen] = {};
    const bool ok = key_len % 2 == 0 && key_len <= kMaxHexKeyLen &&
                    HexToBytes(reinterpret_cast<const char*>(s.value.data()), decoded,
                               key_len / 2) == 0;
    if (ok) store_result(decoded, key_len / 2u);
    secure_wipe(decoded, sizeof decoded);
    return ok ? kStepPassed : step_failed_as(CheckId::M8HexKey);
}

StepResult store_certificate_list(ParseState& s) {
    if (NewCertificateFlag == 0) {
        trace("No need new cert.\r\n");
        return kStepPassed;
    }
    trace("There are new certs in packet.\r\n");
    uint16_t list_len = 0;
    // A list shorter than its 2-byte count is as good as absent.
    if (GetTlvFromType(ATTR_CERTIFICATE_LIST, credential(), g_CredentialLength, s.value,
                       &list_len) == 0 ||
        list_len < 2)
        return step_failed_as(CheckId::M8CertificateList);
    g_CertCount = get_be16(s.value.data());
    trace("certlistLength = %d,cert count is %d.\r\n", list_len, g_CertCount);
    store_result(s.value.data() + 2, list_len - 2u);
    return kStepPassed;
}

// The credential by mode; other modes store nothing.
StepResult store_credential(ParseState& s) {
    std::memset(s.value.data(), 0, s.value.size());
    if (g_WPS_mode == WIFI_WPS || g_WPS_mode == WAPI_WPS_PSK) return store_network_key(s);
    if (g_WPS_mode == WAPI_WPS_CERT) return store_certificate_list(s);
    return kStepPassed;
}

// M8 checks, in the order they run; the first failure is the result.
// clang-format off
constexpr TlvStep kM8Steps[] = {
    // attribute            rule              width  equals                check                     then
    {ATTR_AUTHENTICATOR,    TlvRule::kExact,  8,     nullptr,              CheckId::M8Authenticator,      store_authenticator},
    {0,                     TlvRule::kStep,   0,     nullptr,              CheckId::M8AuthCheck, check_registrar_authenticator},
    {ATTR_VERSION,          TlvRule::kExact,  1,     nullptr,              CheckId::M8Version,            nullptr},
    {ATTR_MSG_TYPE,         TlvRule::kExact,  1,     kM8MsgType,           CheckId::M8MsgType,        nullptr},
    {ATTR_ENROLLEE_NONCE,   TlvRule::kExact,  16,    g_EnrolleeKeys.Nonce, CheckId::M8EnrolleeNonce,      nullptr},
    {ATTR_ENCR_SETTINGS,    TlvRule::kAny,    0,     nullptr,              CheckId::M8EncrSettings,  open_registrar_settings},
    {0,                     TlvRule::kStep,   0,     nullptr,              CheckId::M8PadValue,       check_pad_value},
    {0,                     TlvRule::kStep,   0,     nullptr,              CheckId::M8PadString,      check_pad_bytes},
    {0,                     TlvRule::kStep,   0,     nullptr,              CheckId::M8KeyWrapAuth,        check_key_wrap_auth},
    {0,                     TlvRule::kStep,   0,     nullptr,              CheckId::M8CertificateNeeded,  read_certificate_needed},
    {0,                     TlvRule::kStep,   0,     nullptr,              CheckId::M8Credential,         take_credential},
    {0,                     TlvRule::kStep,   0,     nullptr,              CheckId::M8MacAddress,         check_mac_address},
    {0,                     TlvRule::kStep,   0,     nullptr,              CheckId::M8NetworkKey,         store_credential},
};
// clang-format on

}  // namespace

int32_t UnpackMessageM8(std::span<const uint8_t> readable, int32_t length) {
    static uint8_t value[kAreaLen];
    std::memset(value, 0, sizeof value);
    std::memset(g_Credential, 0, sizeof g_Credential);
    trace("Unpack M8 g_phSessionHandle0=%x.\r\n", session_handle_trace());
    ParseState state{readable, length, std::span<uint8_t>(value, sizeof value), 0, 0};
    const int32_t code = run_tlv_steps(kM8Steps, state);
    secure_wipe(value, sizeof value);
    secure_wipe(g_Credential, sizeof g_Credential);
    return code;
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
