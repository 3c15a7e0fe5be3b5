// The outcome of the current or last run and what became of the last received frame, kept by the
// dispatcher for WapiWps_GetStatus. Written only on the protocol thread, read by the same thread;
// nothing here changes what goes on the wire.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

constexpr size_t kStatusTextLen = 33;  // 32 bytes of a registrar's text and a NUL
constexpr size_t kStatusDetailLen = 128;

struct RunStatus {
    int32_t last_result;
    int32_t last_code;
    uint32_t last_reason;
    uint32_t outcome;  // WAPIWPS_OUTCOME_*
    uint32_t reason;
    uint32_t message;
    int32_t code;
    int32_t config_error;  // -1: none
    char detail[kStatusDetailLen];
    char manufacturer[kStatusTextLen];
    char model_name[kStatusTextLen];
    char device_name[kStatusTextLen];
};
extern RunStatus g_RunStatus;

// StartWPS: a new run, nothing known yet.
void run_status_begin();
// After each ProcessReceivePacket: its result, and the check that refused the frame, if any.
void run_status_frame(int32_t result);
// We refused the registrar's message `messageType` (the failed check tells why).
void run_status_refused(uint8_t messageType);
// M8 accepted: the credential is delivered.
void run_status_credential();
// The registrar sent a NACK or an M2D with this message body (attributes, read for display
// only). Called before the dispatcher moves the state on.
void run_status_registrar_nack(std::span<const uint8_t> body);
void run_status_m2d(std::span<const uint8_t> body);
