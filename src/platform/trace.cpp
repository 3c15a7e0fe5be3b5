// The trace sink shared by every platform: a printf-style line is formatted into a bounded stack
// buffer and handed to the host's callback, or to the sink named by WAPIWPS_TRACE, or dropped.
//
// Safe before main and from the secure-chip watcher thread: the state is a handful of atomics
// with constant initialisation (constinit: no constructor runs), and a line never touches the
// heap.
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/platform.h"
#include "platform/platform_os.h"

namespace {

using platform::detail::kTraceLineMax;

// Where lines go when no callback is installed, read once from WAPIWPS_TRACE.
enum EnvSink : int {
    kEnvUnread = 0,
    kEnvDiscard = 1,
    kEnvStderr = 2,
    kEnvDebug = 3,
    kEnvFile = 4,
};

constexpr char kTruncatedTail[] = "...\r\n";
constexpr size_t kHexBytesPerLine = 32;

constinit std::atomic<trace_callback_fn> g_trace_callback{nullptr};
constinit std::atomic<void*> g_trace_context{nullptr};
constinit std::atomic<bool> g_trace_callback_secrets{false};
constinit std::atomic<int> g_env_sink{kEnvUnread};
constinit std::atomic<bool> g_env_secrets{false};
constinit std::atomic<FILE*> g_trace_file{nullptr};

bool env_is(const char* value, const char* expected) {
    return value != nullptr && std::strcmp(value, expected) == 0;
}

// Reads WAPIWPS_TRACE and WAPIWPS_TRACE_SECRETS. Two threads may race here on the first line;
// both compute the same answer, and only one of them keeps an opened file.
int load_env_sink() {
    int sink = g_env_sink.load(std::memory_order_acquire);
    if (sink != kEnvUnread) return sink;

    g_env_secrets.store(env_is(std::getenv("WAPIWPS_TRACE_SECRETS"), "1"),
                        std::memory_order_relaxed);
    const char* target = std::getenv("WAPIWPS_TRACE");
    if (target == nullptr || target[0] == '\0') {
        sink = kEnvDiscard;
    } else if (env_is(target, "stderr")) {
        sink = kEnvStderr;
    } else if (env_is(target, "debug")) {
        sink = kEnvDebug;
    } else {
        // Anything else names a file that lines are appended to; an unopenable path discards.
        // Binary mode: lines already end in "\r\n" and must not gain a second '\r' on Windows.
        FILE* file = std::fopen(target, "ab");
        FILE* expected = nullptr;
        if (file != nullptr && !g_trace_file.compare_exchange_strong(expected, file)) {
            std::fclose(file);
        }
        sink = g_trace_file.load() != nullptr ? kEnvFile : kEnvDiscard;
    }
    g_env_sink.store(sink, std::memory_order_release);
    return sink;
}

// True when some sink would receive a line, so that discarded lines cost no formatting.
bool trace_enabled() {
    return g_trace_callback.load(std::memory_order_acquire) != nullptr ||
           load_env_sink() != kEnvDiscard;
}

void emit_line(const char* line) {
    trace_callback_fn fn = g_trace_callback.load(std::memory_order_acquire);
    if (fn != nullptr) {
        fn(g_trace_context.load(std::memory_order_acquire), line);
        return;
    }
    switch (load_env_sink()) {
        case kEnvStderr:
            std::fputs(line, stderr);
            break;
        case kEnvDebug:
            platform::detail::debug_output(line);
            break;
        case kEnvFile: {
            FILE* file = g_trace_file.load(std::memory_order_acquire);
            if (file != nullptr) {
                std::fputs(line, file);
                std::fflush(file);
            }
            break;
        }
        default:
            break;
    }
}

// Formats into line (kTraceLineMax bytes). A line that does not fit is cut and ends in
// "...\r\n", so a sink always receives a whole, terminated line.
void format_line(char* line, const char* fmt, va_list args) {
    int n = std::vsnprintf(line, kTraceLineMax, fmt, args);
    if (n < 0) {
        line[0] = '\0';
        return;
    }
    if (static_cast<size_t>(n) >= kTraceLineMax) {
        std::memcpy(line + kTraceLineMax - sizeof(kTruncatedTail), kTruncatedTail,
                    sizeof(kTruncatedTail));
    }
}

}  // namespace

void trace(const char* fmt, ...) {
    if (fmt == nullptr || !trace_enabled()) return;
    char line[kTraceLineMax];
    va_list args;
    va_start(args, fmt);
    format_line(line, fmt, args);
    va_end(args);
    emit_line(line);
}

// With a callback installed its includeSecrets flag decides; without one, the environment
// variable WAPIWPS_TRACE_SECRETS=1 does. Nothing else ever enables secrets.
bool trace_secrets_allowed() {
    if (g_trace_callback.load(std::memory_order_acquire) != nullptr) {
        return g_trace_callback_secrets.load(std::memory_order_acquire);
    }
    if (load_env_sink() == kEnvDiscard) return false;
    return g_env_secrets.load(std::memory_order_relaxed);
}

// Key material as hex, 32 bytes per line, each line labelled with its offset.
void trace_secret_bytes(const char* label, const uint8_t* data, size_t len) {
    if (!trace_secrets_allowed()) return;
    if (label == nullptr) label = "";
    if (data == nullptr) len = 0;
    if (len == 0) {
        trace("%s: (0 bytes)\r\n", label);
        return;
    }
    for (size_t offset = 0; offset < len; offset += kHexBytesPerLine) {
        size_t count = len - offset < kHexBytesPerLine ? len - offset : kHexBytesPerLine;
        char hex[kHexBytesPerLine * 2 + 1];
        for (size_t i = 0; i < count; ++i) {
            static constexpr char kDigits[] = "0123456789abcdef";
            hex[2 * i] = kDigits[data[offset + i] >> 4];
            hex[2 * i + 1] = kDigits[data[offset + i] & 0x0F];
        }
        hex[2 * count] = '\0';
        trace("%s[%04zu]: %s\r\n", label, offset, hex);
    }
}

void trace_set_callback(trace_callback_fn fn, void* context, bool include_secrets) {
    // Clear the callback first so that no line pairs the new context with the old function.
    g_trace_callback.store(nullptr, std::memory_order_release);
    g_trace_context.store(context, std::memory_order_release);
    g_trace_callback_secrets.store(fn != nullptr && include_secrets, std::memory_order_release);
    g_trace_callback.store(fn, std::memory_order_release);
}

void console_print(const char* fmt, ...) {
    if (fmt == nullptr) return;
    va_list args;
    va_start(args, fmt);
    std::vprintf(fmt, args);
    va_end(args);
}

namespace platform::detail {

void trace_reload_environment() {
    FILE* file = g_trace_file.exchange(nullptr);
    if (file != nullptr) std::fclose(file);
    g_env_sink.store(kEnvUnread, std::memory_order_release);
    g_env_secrets.store(false, std::memory_order_release);
}

}  // namespace platform::detail
