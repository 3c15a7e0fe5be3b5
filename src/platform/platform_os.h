// What the shared platform code (trace, clock and generator seams) needs from each operating
// system, implemented once in platform_posix.cpp and once in platform_win32.cpp. Internal to
// src/platform/ and the platform tests.
#pragma once

#include <cstddef>
#include <cstdint>

namespace platform::detail {

// Writes one finished line to the debugger channel: OutputDebugStringA on Windows; on POSIX,
// standard error with a "wapiwps[debug]: " prefix, because there is no debugger channel there.
void debug_output(const char* line);

// The real clock, behind the test seams.
int64_t os_time_seconds();
uint64_t os_file_time();
// The operating system's cryptographic generator; false when it did not fill all len bytes.
bool os_system_random(uint8_t* out, size_t len);

// The two C library generators, each over a state of its own (plain aggregates: zero state until
// seeded, usable before dynamic initialisation). Windows builds use the first, others the second.
// msvcrt: x = x * 214013 + 2531011, output (x >> 16) & 0x7FFF.
struct MsvcrtRand {
    uint32_t holdrand;
    void seed(uint32_t s);
    int next();
};
// glibc's srand/rand (random_r TYPE_3): 31 words seeded by x * 16807 mod 2^31-1, an additive
// lagged generator r[i] = r[i-31] + r[i-3] with the first 310 outputs discarded, output >> 1.
struct GlibcRand {
    int32_t state[31];
    uint32_t front;  // index of fptr
    uint32_t rear;   // index of rptr
    void seed(uint32_t s);
    int next();
};

#if !defined(_WIN32)
// Packs a kernel release "major.minor.patch[-anything]" like GetVersion():
// major | minor << 8 | patch << 16, major and minor saturated at 255 and patch at 65535; missing
// parts count as 0 ("6.1" gives 0x0106).
uint32_t pack_release_version(const char* release);
#endif

// Forgets what was read from WAPIWPS_TRACE / WAPIWPS_TRACE_SECRETS so that the next trace line
// reads them again (and closes a trace file). The library reads them once; tests change them
// between cases, with no other thread tracing at the time.
void trace_reload_environment();

// Number of UTF-16 units (1 or 2) that make the character starting at text[0], which is not
// NUL: 2 only for a high surrogate followed by a low surrogate. A lone surrogate is one unit.
inline size_t utf16_char_units(const uint16_t* text) {
    bool high = text[0] >= 0xD800 && text[0] <= 0xDBFF;
    bool low_follows = high && text[1] >= 0xDC00 && text[1] <= 0xDFFF;
    return low_follows ? 2 : 1;
}

// Longest line handed to a sink, terminator included. Longer lines are cut and end in "...\r\n".
constexpr size_t kTraceLineMax = 512;

// Seconds between 1601-01-01 and 1970-01-01, and file-time units (100 ns) per second.
constexpr uint64_t kFileTimeEpochOffsetSeconds = 11644473600ULL;
constexpr uint64_t kFileTimeUnitsPerSecond = 10000000ULL;

}  // namespace platform::detail
