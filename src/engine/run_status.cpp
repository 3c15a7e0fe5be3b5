// The run status record and the dispatcher's notes into it.
#include "engine/run_status.h"

#include <cstring>

#include "api/context.h"
#include "common/bytes.h"
#include "common/check_codes.h"
#include "messages/attributes.h"
#include "wapiwps.h"

RunStatus g_RunStatus = {0, 0, 0, WAPIWPS_OUTCOME_NONE, 0, 0, 0, -1, {}, {}, {}, {}};

namespace {

constexpr size_t kTlvHeaderLen = 4;

// First attribute of `type` in `body`, walked without trace lines and only over bytes that exist;
// an empty span when absent or cut short.
std::span<const uint8_t> find_attribute(std::span<const uint8_t> body, uint16_t type) {
    size_t offset = 0;
    while (body.size() - offset >= kTlvHeaderLen) {
        const uint16_t t = get_be16(body.data() + offset);
        const size_t len = get_be16(body.data() + offset + 2);
        offset += kTlvHeaderLen;
        if (len > body.size() - offset) break;
        if (t == type) return body.subspan(offset, len);
        offset += len;
    }
    return {};
}

void copy_text(char (&out)[kStatusTextLen], std::span<const uint8_t> value) {
    const size_t n = value.size() < kStatusTextLen - 1 ? value.size() : kStatusTextLen - 1;
    if (n != 0) std::memcpy(out, value.data(), n);
    out[n] = '\0';
}

int32_t config_error_of(std::span<const uint8_t> body) {
    const std::span<const uint8_t> v = find_attribute(body, ATTR_CONFIG_ERROR);
    return v.size() == 2 ? int32_t{get_be16(v.data())} : -1;
}

// The message we sent last, by the state that waits for the answer to it.
uint32_t last_sent_message() {
    switch (g_State_Machine) {
        case WAIT_M2:
            return WPS_MSG_TYPE_M1;
        case WAIT_M4:
            return WPS_MSG_TYPE_M3;
        case WAIT_M6:
            return WPS_MSG_TYPE_M5;
        case WAIT_M8:
            return WPS_MSG_TYPE_M7;
        case WAIT_REQUEST_FAILURE:
            return WPS_MSG_TYPE_DONE;
        default:
            return 0;
    }
}

// The first way a run ends is the one reported; a credential can still be taken back by a NACK.
bool run_still_open() {
    return g_RunStatus.outcome == WAPIWPS_OUTCOME_RUNNING ||
           g_RunStatus.outcome == WAPIWPS_OUTCOME_CREDENTIAL;
}

}  // namespace

void run_status_begin() {
    g_RunStatus = RunStatus{0, 0, 0, WAPIWPS_OUTCOME_RUNNING, 0, 0, 0, -1, {}, {}, {}, {}};
}

void run_status_frame(int32_t result) {
    g_RunStatus.last_result = result;
    const CheckRow* row = last_failed_check();
    g_RunStatus.last_code = row != nullptr ? row->code : 0;
    g_RunStatus.last_reason = row != nullptr ? row->reason : WAPIWPS_REASON_NONE;
}

void run_status_refused(uint8_t messageType) {
    if (!run_still_open()) return;
    const CheckRow* row = last_failed_check();
    g_RunStatus.outcome = WAPIWPS_OUTCOME_REFUSED;
    g_RunStatus.message = messageType;
    g_RunStatus.code = row != nullptr ? row->code : 0;
    g_RunStatus.reason = row != nullptr ? row->reason : WAPIWPS_REASON_NONE;
    std::memset(g_RunStatus.detail, 0, sizeof g_RunStatus.detail);
    std::strncpy(g_RunStatus.detail, last_failed_check_line(), sizeof g_RunStatus.detail - 1);
}

void run_status_credential() {
    if (g_RunStatus.outcome == WAPIWPS_OUTCOME_RUNNING)
        g_RunStatus.outcome = WAPIWPS_OUTCOME_CREDENTIAL;
}

void run_status_registrar_nack(std::span<const uint8_t> body) {
    if (!run_still_open()) return;
    g_RunStatus.outcome = WAPIWPS_OUTCOME_NACK;
    g_RunStatus.message = last_sent_message();
    g_RunStatus.config_error = config_error_of(body);
    // The registrar checks our half of the password in M3 (E-Hash1) and M5 (E-Hash2): a NACK in
    // answer to either is, in practice, a PIN the registrar does not share.
    const bool after_proof =
        g_RunStatus.message == WPS_MSG_TYPE_M3 || g_RunStatus.message == WPS_MSG_TYPE_M5;
    g_RunStatus.reason = after_proof ? WAPIWPS_REASON_WRONG_PASSWORD : WAPIWPS_REASON_NONE;
}

void run_status_m2d(std::span<const uint8_t> body) {
    if (!run_still_open()) return;
    g_RunStatus.outcome = WAPIWPS_OUTCOME_M2D;
    g_RunStatus.message = WPS_MSG_TYPE_M2D;
    g_RunStatus.reason = WAPIWPS_REASON_NONE;
    g_RunStatus.config_error = config_error_of(body);
    copy_text(g_RunStatus.manufacturer, find_attribute(body, ATTR_MANUFACTURER));
    copy_text(g_RunStatus.model_name, find_attribute(body, ATTR_MODEL_NAME));
    copy_text(g_RunStatus.device_name, find_attribute(body, ATTR_DEVICE_NAME));
}
