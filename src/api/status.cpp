// The status and result-text extensions: what the dispatcher noted about the run, and one
// sentence per result and check code, both read from the code table.
#include <cstring>

#include "api/context.h"
#include "common/check_codes.h"
#include "engine/run_status.h"
#include "wapiwps.h"

namespace {

// The first version of WapiWpsStatus; later versions only grow at the end.
constexpr uint32_t kStatusMinSize = sizeof(WapiWpsStatus);
constexpr int32_t kCheckerBase = WAPIWPS_CHECKER_BASE;
constexpr int32_t kLowestCode = -200;

}  // namespace

int32_t WapiWps_GetStatus(WapiWpsStatus* status) {
    if (status == nullptr || status->size < kStatusMinSize) return -1;
    const RunStatus& r = g_RunStatus;
    WapiWpsStatus s{};
    s.size = status->size;
    s.state = g_State_Machine;
    s.wpsMode = static_cast<int32_t>(g_WPS_mode);
    s.lastResult = r.last_result;
    s.lastCode = r.last_code;
    s.lastReason = r.last_reason;
    // A run that no export or frame ended, while no mode is set any more, was abandoned.
    s.outcome = (r.outcome == WAPIWPS_OUTCOME_RUNNING && g_WPS_mode == NO_WPS)
                    ? WAPIWPS_OUTCOME_STOPPED
                    : r.outcome;
    s.reason = r.reason;
    s.message = r.message;
    s.code = r.code;
    s.configError = r.config_error;
    std::memcpy(s.detail, r.detail, sizeof s.detail);
    std::memcpy(s.manufacturer, r.manufacturer, sizeof s.manufacturer);
    std::memcpy(s.modelName, r.model_name, sizeof s.modelName);
    std::memcpy(s.deviceName, r.device_name, sizeof s.deviceName);
    std::memcpy(status, &s, sizeof s);
    return 0;
}

const char* WapiWps_ResultText(int32_t code) {
    // Checker codes come back as their 16-bit pattern.
    if (code > kCheckerBase + kLowestCode && code < kCheckerBase) code -= kCheckerBase;
    const CheckRow* row = find_check_code(code);
    return row != nullptr ? row->text : "Unknown result code.";
}
