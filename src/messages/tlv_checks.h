// Table-driven parser steps shared by the M2, M4 and M6 parsers: each parser lists its checks as a
// const table in protocol order and runs it here; the first failing step is the result.
#pragma once

#include <cstdint>
#include <span>

#include "common/check_codes.h"

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
int32_t run_tlv_steps(std::span<const TlvStep> steps, ParseState& state);

// ---- Steps shared by the parsers of the registrar's messages ------------------------------
StepResult store_registrar_authenticator(ParseState& s);

// The Authenticator is taken to be the last 12 bytes of the body: its position is not searched.
StepResult check_registrar_authenticator(ParseState& s);

// Opens the Encrypted Settings value in place in the value buffer.
StepResult open_registrar_settings(ParseState& s);

// Keeps an accepted body as the previous message for the next Authenticator. Parsers call it
// only after the Authenticator check, which guarantees length <= readable and <= kMsgBufLen.
void keep_as_previous_message(std::span<const uint8_t> readable, int32_t length);

// Keeps a body just built as the previous message (its length modulo 65536, as the wire keeps it).
void keep_sent_message(const uint8_t* body, uint32_t length);

// ---- Opened settings of M4 and M6 -----------------------------------------------------------
// Read by position: a 4-byte header (not examined), the secret nonce, a 4-byte header (not
// examined) and the Key Wrap Authenticator over the first 20 bytes.
// Fails when the opened settings are too short for the nonce and the Key Wrap Authenticator, or
// when the Key Wrap Authenticator is wrong.
StepResult check_settings_key_wrap_auth(const ParseState& s);
// Takes the registrar's secret nonce into `secretNonce`, recomputes its R-Hash with `compute`
// into `ownHash` (an E-Hash field no longer needed after M3) and fails unless it equals
// `receivedHash`.
StepResult check_settings_r_hash(const ParseState& s, uint8_t* secretNonce,
                                 void (*compute)(uint8_t* out), uint8_t* ownHash,
                                 const uint8_t* receivedHash);

// ---- Padding of opened settings, shared by the M6 and M8 parsers ---------------------------
// Both report -59 for a bad padding value and for bad padding bytes, on purpose: the registrar
// tells them apart only by the trace line (their rows in the code table). Settings that opened
// to nothing (the Wi-Fi flavour, or an IV alone) have no padding byte to read and fail as a bad
// value.
StepResult check_pad_value(ParseState& s);

StepResult check_pad_bytes(ParseState& s);

// Drops the checked padding (a value of 0 removes nothing).
void strip_padding(ParseState& s);
