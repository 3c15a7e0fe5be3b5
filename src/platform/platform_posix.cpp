// POSIX implementation of the platform interface (minimal; routing comes with the trace work).
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "platform/platform.h"

void trace(const char*, ...) {}
bool trace_secrets_allowed() { return false; }
void trace_secret_bytes(const char*, const uint8_t*, size_t) {}
void trace_set_callback(trace_callback_fn, void*, bool) {}
void console_print(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    std::vprintf(fmt, args);
    va_end(args);
}

namespace platform {
int64_t time_seconds() { return static_cast<int64_t>(std::time(nullptr)); }
uint64_t system_file_time() { return 0; }
void c_srand(uint32_t seed) { std::srand(seed); }
int c_rand() { return std::rand(); }
void set_time_source(time_fn, file_time_fn) {}
void set_generator(srand_fn, rand_fn) {}
size_t utf16_to_utf8(const uint16_t*, char*, size_t) { return 0; }
uint32_t os_version() { return 0; }
void sleep_ms(uint32_t) {}
}  // namespace platform
