// Table-driven parser steps shared by the M2, M4 and M6 parsers: each parser lists its checks as a
// const table in protocol order and runs it here; the first failing step is the result.
#pragma once

#include <climits>
#include <cstdint>
#include <cstring>
#include <span>

#include "api/context.h"
#include "common/check_codes.h"
#include "crypto/crypto.h"
#include "messages/messages.h"
#include "platform/platform.h"

enum class TlvRule : uint8_t {
    kStep,    // not an attribute check: only `then` runs
    kExact,   // present with exactly `width` bytes (and equal to `equals` when given)
    kAtMost,  // present with at most `width` bytes
    kAny,     // present, any length that fits the value buffer
};

// What a parser's steps share: the received body and the value of the last attribute read.
struct ParseState {
    std::span<const uint8_t> readable;  // the bytes that really exist from the body's start
    int32_t length;                     // the stated body length
    std::span<uint8_t> value;           // the parser's value (work) buffer
    uint16_t value_len;
    uint16_t decrypted_len;
};

// A step's own verdict: passed, or failed with the row of its table entry, or with another row
// of the code table (a step that can fail in more than one way).
struct StepResult {
    bool failed;
    CheckId id;  // CheckId::Count: the step's own row
};
constexpr StepResult kStepPassed{false, CheckId::Count};
constexpr StepResult kStepFailed{true, CheckId::Count};
constexpr StepResult step_failed_as(CheckId id) { return {true, id}; }

struct TlvStep {
    uint16_t type;
    TlvRule rule;
    uint16_t width;
    const uint8_t* equals;  // kExact only: the value must equal these `width` bytes
    CheckId check;          // the row of the code table (code, trace line); Count: cannot fail
    StepResult (*then)(ParseState& state);  // runs after the attribute check passed, or alone
};

// Runs the steps in order. A failure traces the line of its row in the code table and returns
// its code.
inline int32_t run_tlv_steps(std::span<const TlvStep> steps, ParseState& state) {
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

// ---- Steps shared by the parsers of the registrar's messages ------------------------------
inline StepResult store_registrar_authenticator(ParseState& s) {
    std::memcpy(g_RegistrarKeys.Authenticator, s.value.data(),
                sizeof(g_RegistrarKeys.Authenticator));
    return kStepPassed;
}

// The Authenticator is taken to be the last 12 bytes of the body: its position is not searched.
inline StepResult check_registrar_authenticator(ParseState& s) {
    return VerifyAuthenticator(s.readable, s.length, g_RegistrarKeys.Authenticator) ? kStepPassed
                                                                                     : kStepFailed;
}

// Opens the Encrypted Settings value in place in the value buffer.
inline StepResult open_registrar_settings(ParseState& s) {
    s.decrypted_len = 0;
    DecryptMessage(s.value, s.value_len, &s.decrypted_len);
    return kStepPassed;
}

// Keeps an accepted body as the previous message for the next Authenticator. Parsers call it
// only after the Authenticator check, which guarantees length <= readable and <= kMsgBufLen.
inline void keep_as_previous_message(std::span<const uint8_t> readable, int32_t length) {
    std::memset(g_PrevMsgBuf, 0, sizeof(g_PrevMsgBuf));
    const size_t n = length > 0 ? static_cast<size_t>(length) : 0;
    if (n <= readable.size() && n <= sizeof(g_PrevMsgBuf) && n != 0)
        std::memcpy(g_PrevMsgBuf, readable.data(), n);
    g_PrevMsgLen = static_cast<uint16_t>(n);
}

// Keeps a body just built as the previous message (its length modulo 65536, as the wire keeps it).
inline void keep_sent_message(const uint8_t* body, uint32_t length) {
    std::memset(g_PrevMsgBuf, 0, sizeof(g_PrevMsgBuf));
    const size_t n = length < sizeof(g_PrevMsgBuf) ? length : sizeof(g_PrevMsgBuf);
    if (n != 0) std::memcpy(g_PrevMsgBuf, body, n);
    g_PrevMsgLen = static_cast<uint16_t>(length);
}

// ---- Padding of opened settings, shared by the M6 and M8 parsers ---------------------------
// Both report -59 for a bad padding value and for bad padding bytes, on purpose: the registrar
// tells them apart only by the trace line (their rows in the code table). Settings that opened
// to nothing (the Wi-Fi flavour, or an IV alone) have no padding byte to read and fail as a bad
// value.
inline StepResult check_pad_value(ParseState& s) {
    const size_t n = s.decrypted_len;
    if (n == 0 || s.value[n - 1] > n) return kStepFailed;
    return kStepPassed;
}

inline StepResult check_pad_bytes(ParseState& s) {
    const size_t n = s.decrypted_len;
    const uint8_t pad = s.value[n - 1];
    for (size_t i = n - pad; i < n; ++i)
        if (s.value[i] != pad) return kStepFailed;
    return kStepPassed;
}

// Drops the checked padding (a value of 0 removes nothing).
inline void strip_padding(ParseState& s) {
    s.decrypted_len = static_cast<uint16_t>(s.decrypted_len - s.value[s.decrypted_len - 1]);
}
