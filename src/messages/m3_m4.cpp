// M3: the enrollee's commitment to both password halves (E-Hash1, E-Hash2). M4: the registrar's
// commitments and its first secret nonce, which proves it knows the first half.
#include <cstring>

#include "common/bytes.h"
#include "crypto/crypto.h"
#include "messages/messages.h"
#include "messages/tlv_checks.h"
#include "platform/platform.h"

namespace {

constexpr size_t kWorkLen = 2048;

constexpr size_t kM3Len = 6 * kTlvHeaderLen + 1 + 1 + kNonceLen + 2 * kHashLen + kAuthenticatorLen;
static_assert(kM3Len <= kMaxBodyLen, "M3 must fit the output frame");

constexpr uint8_t kM4MsgType[1] = {WPS_MSG_TYPE_M4};


StepResult store_r_hash1(ParseState& s) {
    std::memcpy(g_RegistrarKeys.Hash1, s.value.data(), kHashLen);
    return kStepPassed;
}
StepResult store_r_hash2(ParseState& s) {
    std::memcpy(g_RegistrarKeys.Hash2, s.value.data(), kHashLen);
    return kStepPassed;
}
StepResult open_settings(ParseState& s) {
    // The padding is left in place: M4 does not examine it.
    open_registrar_settings(s);
    trace("DecryptMessage success  outlen = %d.\r\n", static_cast<int>(s.decrypted_len));
    return kStepPassed;
}
StepResult check_key_wrap_auth(ParseState& s) {
    // Settings too short to hold the nonce and the Key Wrap Authenticator fail this step.
    return check_settings_key_wrap_auth(s);
}
StepResult check_r_hash1(ParseState& s) {
    // Recomputed into the E-Hash1 field on purpose: E-Hash1 is not needed after M3.
    return check_settings_r_hash(s, g_RegistrarKeys.SecretNonce1, ComputeRHash1,
                                 g_EnrolleeKeys.Hash1, g_RegistrarKeys.Hash1);
}

// M4 checks, in the order they run; the first failure is the result.
// clang-format off
constexpr TlvStep kM4Steps[] = {
    // attribute            rule              width  equals                check                then
    {ATTR_AUTHENTICATOR,    TlvRule::kExact,  8,     nullptr,              CheckId::M4Authenticator, store_registrar_authenticator},
    {0,                     TlvRule::kStep,   0,     nullptr,              CheckId::M4AuthCheck,     check_registrar_authenticator},
    {ATTR_VERSION,          TlvRule::kExact,  1,     nullptr,              CheckId::M4Version,       nullptr},
    {ATTR_MSG_TYPE,         TlvRule::kExact,  1,     kM4MsgType,           CheckId::M4MsgType,       nullptr},
    {ATTR_ENROLLEE_NONCE,   TlvRule::kExact,  16,    g_EnrolleeKeys.Nonce, CheckId::M4EnrolleeNonce, nullptr},
    {ATTR_R_HASH1,          TlvRule::kExact,  32,    nullptr,              CheckId::M4RHash1,        store_r_hash1},
    {ATTR_R_HASH2,          TlvRule::kExact,  32,    nullptr,              CheckId::M4RHash2,        store_r_hash2},
    {ATTR_ENCR_SETTINGS,    TlvRule::kAny,    0,     nullptr,              CheckId::M4EncrSettings,  open_settings},
    {0,                     TlvRule::kStep,   0,     nullptr,              CheckId::M4KeyWrapAuth,   check_key_wrap_auth},
    {0,                     TlvRule::kStep,   0,     nullptr,              CheckId::M4RHash1Check,   check_r_hash1},
};
// clang-format on

}  // namespace

bool BuildMessageM3(uint8_t* out, uint32_t* outLength) {
    trace("Build M3.\r\n");
    uint8_t* cursor = out;
    const uint8_t version = WPS_VERSION;
    const uint8_t msg_type = WPS_MSG_TYPE_M3;
    AddTlv(&cursor, ATTR_VERSION, &version, 1);
    AddTlv(&cursor, ATTR_MSG_TYPE, &msg_type, 1);
    AddTlv(&cursor, ATTR_REGISTRAR_NONCE, g_RegistrarKeys.Nonce, kNonceLen);
    ComputeEHashes();
    AddTlv(&cursor, ATTR_E_HASH1, g_EnrolleeKeys.Hash1, kHashLen);
    AddTlv(&cursor, ATTR_E_HASH2, g_EnrolleeKeys.Hash2, kHashLen);

    uint8_t mac[kMacLen] = {};
    ComputeAuthenticator(g_EnrolleeKeys.AuthKey, g_PrevMsgBuf, g_PrevMsgLen, out,
                         static_cast<int32_t>(cursor - out), mac);
    std::memcpy(g_EnrolleeKeys.Authenticator, mac, kAuthenticatorLen);
    AddTlv(&cursor, ATTR_AUTHENTICATOR, g_EnrolleeKeys.Authenticator, kAuthenticatorLen);

    *outLength = static_cast<uint32_t>(cursor - out);
    keep_sent_message(out, *outLength);
    trace("Build M3 success.\r\n");
    return true;
}

int32_t UnpackMessageM4(std::span<const uint8_t> readable, int32_t length) {
    uint8_t work[kWorkLen] = {};
    ParseState state{readable, length, std::span<uint8_t>(work, sizeof(work)), 0, 0};
    const int32_t code = run_tlv_steps(kM4Steps, state);
    secure_wipe(work, sizeof(work));
    if (code != 0) return code;
    keep_as_previous_message(readable, length);
    return 0;
}
