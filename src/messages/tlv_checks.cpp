// The table-driven parser steps shared by the M2, M4, M6 and M8 parsers (contracts in
// tlv_checks.h).
#include "messages/tlv_checks.h"

#include <cstring>

#include "api/context.h"
#include "crypto/crypto.h"
#include "messages/messages.h"
#include "platform/platform.h"

namespace {

constexpr size_t kSettingsNonceOffset = 4;
constexpr size_t kSettingsKwaCovered = 20;
constexpr size_t kSettingsKwaOffset = 24;
constexpr size_t kSettingsMinLen = kSettingsKwaOffset + kAuthenticatorLen;

}  // namespace

int32_t run_tlv_steps(std::span<const TlvStep> steps, ParseState& state) {
    for (const TlvStep& step : steps) {
        if (step.rule != TlvRule::kStep) {
            state.value_len = 0;
            const bool found = GetTlvFromType(step.type, state.readable, state.length, state.value,
                                              &state.value_len) != 0;
            bool ok = found;
            if (ok && step.rule == TlvRule::kExact) ok = state.value_len == step.width;
            if (ok && step.rule == TlvRule::kAtMost) ok = state.value_len <= step.width;
            if (ok && step.equals != nullptr)
                ok = std::memcmp(state.value.data(), step.equals, step.width) == 0;
            if (!ok) return fail_check(step.check);
        }
        if (step.then != nullptr) {
            const StepResult result = step.then(state);
            if (result.failed)
                return fail_check(result.id == CheckId::Count ? step.check : result.id);
        }
    }
    return 0;
}

StepResult store_registrar_authenticator(ParseState& s) {
    std::memcpy(g_RegistrarKeys.Authenticator, s.value.data(),
                sizeof(g_RegistrarKeys.Authenticator));
    return kStepPassed;
}

StepResult check_registrar_authenticator(ParseState& s) {
    return VerifyAuthenticator(s.readable, s.length, g_RegistrarKeys.Authenticator) ? kStepPassed
                                                                                    : kStepFailed;
}

StepResult open_registrar_settings(ParseState& s) {
    s.decrypted_len = 0;
    DecryptMessage(s.value, s.value_len, &s.decrypted_len);
    return kStepPassed;
}

void keep_as_previous_message(std::span<const uint8_t> readable, int32_t length) {
    std::memset(g_PrevMsgBuf, 0, sizeof(g_PrevMsgBuf));
    const size_t n = length > 0 ? static_cast<size_t>(length) : 0;
    if (n <= readable.size() && n <= sizeof(g_PrevMsgBuf) && n != 0)
        std::memcpy(g_PrevMsgBuf, readable.data(), n);
    g_PrevMsgLen = static_cast<uint16_t>(n);
}

void keep_sent_message(const uint8_t* body, uint32_t length) {
    std::memset(g_PrevMsgBuf, 0, sizeof(g_PrevMsgBuf));
    const size_t n = length < sizeof(g_PrevMsgBuf) ? length : sizeof(g_PrevMsgBuf);
    if (n != 0) std::memcpy(g_PrevMsgBuf, body, n);
    g_PrevMsgLen = static_cast<uint16_t>(length);
}

StepResult check_settings_key_wrap_auth(const ParseState& s) {
    if (s.decrypted_len < kSettingsMinLen) return kStepFailed;
    uint8_t mac[kMacLen] = {};
    HmacSHA256_16(g_EnrolleeKeys.AuthKey, sizeof(g_EnrolleeKeys.AuthKey), s.value.data(),
                  kSettingsKwaCovered, mac);
    if (!equal_ct(mac, s.value.data() + kSettingsKwaOffset, kAuthenticatorLen)) return kStepFailed;
    return kStepPassed;
}

StepResult check_settings_r_hash(const ParseState& s, uint8_t* secretNonce,
                                 void (*compute)(uint8_t* out), uint8_t* ownHash,
                                 const uint8_t* receivedHash) {
    std::memcpy(secretNonce, s.value.data() + kSettingsNonceOffset, kNonceLen);
    compute(ownHash);
    if (!equal_ct(ownHash, receivedHash, kHashLen)) return kStepFailed;
    return kStepPassed;
}

StepResult check_pad_value(ParseState& s) {
    const size_t n = s.decrypted_len;
    if (n == 0 || s.value[n - 1] > n) return kStepFailed;
    return kStepPassed;
}

StepResult check_pad_bytes(ParseState& s) {
    const size_t n = s.decrypted_len;
    const uint8_t pad = s.value[n - 1];
    for (size_t i = n - pad; i < n; ++i)
        if (s.value[i] != pad) return kStepFailed;
    return kStepPassed;
}

void strip_padding(ParseState& s) {
    s.decrypted_len = static_cast<uint16_t>(s.decrypted_len - s.value[s.decrypted_len - 1]);
}
