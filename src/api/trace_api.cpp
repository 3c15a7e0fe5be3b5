// The trace extension export: lets a host receive the library's diagnostic lines.
#include "platform/platform.h"
#include "wapiwps.h"

extern "C" int32_t WapiWps_SetTraceCallback(wapiwps_trace_fn fn, void* context,
                                            int32_t includeSecrets) {
    trace_set_callback(fn, context, includeSecrets != 0);
    return 0;
}
