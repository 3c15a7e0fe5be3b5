// Everything that differs between Windows and POSIX, behind one small interface, so that the
// protocol code has no #ifdef and never includes an OS header.
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(__MINGW32__)
// MinGW's C++ runtime formats with its own C99 printf (%zu, %llu), not msvcrt's.
#define WAPIWPS_PRINTF(fmt_index, first_arg) __attribute__((format(gnu_printf, fmt_index, first_arg)))
#elif defined(__GNUC__)
#define WAPIWPS_PRINTF(fmt_index, first_arg) __attribute__((format(printf, fmt_index, first_arg)))
#else
#define WAPIWPS_PRINTF(fmt_index, first_arg)
#endif

// ---- Trace -----------------------------------------------------------------------------------
// printf-style diagnostic line. Discarded unless the host installed a callback or set
// WAPIWPS_TRACE=stderr|debug|<file path>.
void trace(const char* fmt, ...) WAPIWPS_PRINTF(1, 2);

// True when the host explicitly asked for secrets (PIN, keys, admin login key) in trace lines.
// Code that would print a secret prints "<hidden>" otherwise.
bool trace_secrets_allowed();

// Dumps bytes as hex under a label, only when secrets are allowed (key material).
void trace_secret_bytes(const char* label, const uint8_t* data, size_t len);

// Host callback routing (the trace extension export).
using trace_callback_fn = void (*)(void* context, const char* line);
void trace_set_callback(trace_callback_fn fn, void* context, bool include_secrets);

// The secure-chip client's own diagnostics go to the process's standard output.
void console_print(const char* fmt, ...) WAPIWPS_PRINTF(1, 2);

namespace platform {

// ---- Time and the C library generator ------------------------------------------------------
// Calendar time in whole seconds since 1970 (_time64 / time()).
int64_t time_seconds();
// System time as a Windows file time: 100 ns units since 1601-01-01 (GetSystemTime +
// SystemTimeToFileTime; on POSIX computed from the real-time clock).
uint64_t system_file_time();
// The C library generator's sequence, srand/rand, from a state private to the library: exactly
// the values the platform's own srand/rand give for the same seed (msvcrt's LCG on Windows,
// glibc's TYPE_3 additive generator elsewhere), without disturbing the host's generator.
// RAND_MAX is 32767 on Windows and 2^31-1 on glibc.
void c_srand(uint32_t seed);
int c_rand();

// Test seams: replace the clock and the generator (nullptr restores the real ones).
using time_fn = int64_t (*)();
using file_time_fn = uint64_t (*)();
using srand_fn = void (*)(uint32_t);
using rand_fn = int (*)();
void set_time_source(time_fn now, file_time_fn file_now);
void set_generator(srand_fn seed, rand_fn next);

// ---- Where secrets and unique values come from ----------------------------------------------
// Compatible: the time-seeded C library generator above, which peers built for this protocol
// expect (the default). System: the operating system's generator (BCryptGenRandom, getrandom).
enum class RandomSource : int32_t { Compatible = 0, System = 1 };
RandomSource random_source();
void set_random_source(RandomSource source);
// Reads WAPIWPS_RANDOM ("system" or "compatible"; anything else changes nothing). Process attach.
void random_source_from_environment();
// True when the operating system's generator answers a draw now.
bool system_random_available();
// Fills out with len bytes from the operating system's generator. Never returns unfilled: if the
// generator fails (which the systems document as impossible once it has answered), the process
// is stopped rather than left to make predictable keys.
void system_random(uint8_t* out, size_t len);

// ---- Text and system information -------------------------------------------------------------
// Converts NUL-terminated UTF-16 to UTF-8, writing at most out_cap bytes and cutting at a
// character boundary; no terminator is written. Returns the number of bytes written.
// Unpaired surrogates become U+FFFD.
size_t utf16_to_utf8(const uint16_t* text, char* out, size_t out_cap);

// The operating system's version value: GetVersion() on Windows; on POSIX the kernel release
// packed the same way (major | minor << 8 | build << 16, build from the patch level).
uint32_t os_version();

// Sleeps the calling thread.
void sleep_ms(uint32_t ms);

// ---- Constant-time checking ------------------------------------------------------------------
// Tells valgrind's memcheck that n bytes derived from secrets are public from here on (a
// signature half, a public key, the decision to redraw a nonce). The constant-time test runs the
// signing code under memcheck with the secrets marked undefined, so any branch or memory index
// on a secret is reported; values that legitimately become public pass through here first.
// Compiled to nothing where valgrind's header is absent, and a no-op outside valgrind.
void declassify(const void* p, size_t n);

}  // namespace platform
