// M5: the enrollee reveals its first secret nonce, sealed. M6: the registrar's second secret
// nonce, which proves it knows the second half of the password.
#include <cstring>

#include "common/bytes.h"
#include "crypto/crypto.h"
#include "messages/messages.h"
#include "messages/tlv_checks.h"
#include "platform/platform.h"

namespace {

constexpr size_t kWorkLen = 2048;
constexpr size_t kPlainBufLen = 128;
constexpr size_t kSealedBufLen = 1024;

// M5 settings: E-SNonce1 (20) and the Key Wrap Authenticator (12) are 32 bytes, a whole number of
// blocks, so the padding is always one full block of 0x10.
constexpr size_t kM5SettingsContentLen =
    kTlvHeaderLen + kNonceLen + kTlvHeaderLen + kAuthenticatorLen;
constexpr size_t kM5PadLen = 16 - (kM5SettingsContentLen % 16);
constexpr size_t kM5SettingsLen = kM5SettingsContentLen + kM5PadLen;
constexpr size_t kKwaCoveredLen = kTlvHeaderLen + kNonceLen;
static_assert(kM5SettingsLen == 48 && kM5PadLen == 16, "M5 settings are 48 bytes");

constexpr size_t kM5Len =
    5 * kTlvHeaderLen + 1 + 1 + kNonceLen + kIvLen + kM5SettingsLen + kAuthenticatorLen;
static_assert(kM5Len <= kMaxBodyLen, "M5 must fit the output frame");

constexpr uint8_t kM6MsgType[1] = {WPS_MSG_TYPE_M6};


StepResult check_key_wrap_auth(ParseState& s) {
    // A padding value of 0 removes nothing. Settings too short for the nonce and the Key Wrap
    // Authenticator once the padding is gone fail this step.
    strip_padding(s);
    return check_settings_key_wrap_auth(s);
}
StepResult check_r_hash2(ParseState& s) {
    // Recomputed into the E-Hash2 field on purpose: E-Hash2 is not needed after M3.
    return check_settings_r_hash(s, g_RegistrarKeys.SecretNonce2, ComputeRHash2,
                                 g_EnrolleeKeys.Hash2, g_RegistrarKeys.Hash2);
}

// M6 checks, in the order they run; the first failure is the result.
// clang-format off
constexpr TlvStep kM6Steps[] = {
    // attribute            rule              width  equals                check                then
    {ATTR_AUTHENTICATOR,    TlvRule::kExact,  8,     nullptr,              CheckId::M6Authenticator, store_registrar_authenticator},
    {0,                     TlvRule::kStep,   0,     nullptr,              CheckId::M6AuthCheck,     check_registrar_authenticator},
    {ATTR_VERSION,          TlvRule::kExact,  1,     nullptr,              CheckId::M6Version,       nullptr},
    {ATTR_MSG_TYPE,         TlvRule::kExact,  1,     kM6MsgType,           CheckId::M6MsgType,       nullptr},
    {ATTR_ENROLLEE_NONCE,   TlvRule::kExact,  16,    g_EnrolleeKeys.Nonce, CheckId::M6EnrolleeNonce, nullptr},
    {ATTR_ENCR_SETTINGS,    TlvRule::kAny,    0,     nullptr,              CheckId::M6EncrSettings,  open_registrar_settings},
    {0,                     TlvRule::kStep,   0,     nullptr,              CheckId::M6PadValue, check_pad_value},
    {0,                     TlvRule::kStep,   0,     nullptr,              CheckId::M6PadString, check_pad_bytes},
    {0,                     TlvRule::kStep,   0,     nullptr,              CheckId::M6KeyWrapAuth, check_key_wrap_auth},
    {0,                     TlvRule::kStep,   0,     nullptr,              CheckId::M6RHash2Check,   check_r_hash2},
};
// clang-format on

}  // namespace

bool BuildMessageM5(uint8_t* out, uint32_t* outLength) {
    trace("Build M5.\r\n");
    uint8_t* cursor = out;
    const uint8_t version = WPS_VERSION;
    const uint8_t msg_type = WPS_MSG_TYPE_M5;
    AddTlv(&cursor, ATTR_VERSION, &version, 1);
    AddTlv(&cursor, ATTR_MSG_TYPE, &msg_type, 1);
    AddTlv(&cursor, ATTR_REGISTRAR_NONCE, g_RegistrarKeys.Nonce, kNonceLen);

    // Settings plaintext: E-SNonce1, its Key Wrap Authenticator, one block of padding.
    uint8_t plain[kPlainBufLen] = {};
    uint8_t* p = plain;
    AddTlv(&p, ATTR_E_SNONCE1, g_EnrolleeKeys.SecretNonce1, kNonceLen);
    uint8_t mac[kMacLen] = {};
    HmacSHA256(g_EnrolleeKeys.AuthKey, sizeof(g_EnrolleeKeys.AuthKey), plain, kKwaCoveredLen, mac);
    AddTlv(&p, ATTR_KEY_WRAP_AUTH, mac, kAuthenticatorLen);
    std::memset(p, static_cast<int>(kM5PadLen), kM5PadLen);

    // In the Wi-Fi flavour nothing is sealed and the attribute goes out empty.
    uint8_t sealed[kSealedBufLen] = {};
    uint16_t sealed_len = 0;
    EncryptMessage(plain, static_cast<uint16_t>(kM5SettingsLen), sealed, &sealed_len);
    secure_wipe(plain, sizeof(plain));
    AddTlv(&cursor, ATTR_ENCR_SETTINGS, sealed, sealed_len);
    trace("M5   Encrypted length = %d.\r\n", static_cast<int>(sealed_len));

    ComputeAuthenticator(g_EnrolleeKeys.AuthKey, g_PrevMsgBuf, g_PrevMsgLen, out,
                         static_cast<int32_t>(cursor - out), mac);
    std::memcpy(g_EnrolleeKeys.Authenticator, mac, kAuthenticatorLen);
    AddTlv(&cursor, ATTR_AUTHENTICATOR, g_EnrolleeKeys.Authenticator, kAuthenticatorLen);

    *outLength = static_cast<uint32_t>(cursor - out);
    keep_sent_message(out, *outLength);
    trace("Build M5 success.\r\n");
    return true;
}

int32_t UnpackMessageM6(std::span<const uint8_t> readable, int32_t length) {
    uint8_t work[kWorkLen] = {};
    ParseState state{readable, length, std::span<uint8_t>(work, sizeof(work)), 0, 0};
    const int32_t code = run_tlv_steps(kM6Steps, state);
    secure_wipe(work, sizeof(work));
    if (code != 0) return code;
    keep_as_previous_message(readable, length);
    return 0;
}
