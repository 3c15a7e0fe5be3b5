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

// The real clock and the real C library generator, behind the test seams.
int64_t os_time_seconds();
uint64_t os_file_time();
void os_srand(uint32_t seed);
int os_rand();

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
