// The platform interface on Windows (the DLL hosts load, and the test programs run under Wine).
#include <windows.h>
// After windows.h, which it needs.
#include <bcrypt.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "platform/platform.h"
#include "platform/platform_os.h"

namespace platform::detail {

void debug_output(const char* line) {
    ::OutputDebugStringA(line);
}

int64_t os_time_seconds() {
    return static_cast<int64_t>(::_time64(nullptr));
}

uint64_t os_file_time() {
    SYSTEMTIME now;
    ::GetSystemTime(&now);
    FILETIME file_time;
    if (!::SystemTimeToFileTime(&now, &file_time)) return 0;
    return (static_cast<uint64_t>(file_time.dwHighDateTime) << 32) | file_time.dwLowDateTime;
}

bool os_system_random(uint8_t* out, size_t len) {
    while (len > 0) {
        const ULONG chunk = len > 0x10000000u ? 0x10000000u : static_cast<ULONG>(len);
        if (!BCRYPT_SUCCESS(::BCryptGenRandom(nullptr, out, chunk, BCRYPT_USE_SYSTEM_PREFERRED_RNG)))
            return false;
        out += chunk;
        len -= chunk;
    }
    return true;
}

}  // namespace platform::detail

namespace platform {
namespace {

constexpr UINT kCodePageUtf8 = 65001;

}  // namespace

// WideCharToMultiByte with code page 65001, one character at a time, so that the text is cut
// at a character boundary when out_cap runs out (a whole-text call would fail instead).
// Unpaired surrogates come out as U+FFFD, as the code page conversion writes them.
size_t utf16_to_utf8(const uint16_t* text, char* out, size_t out_cap) {
    if (text == nullptr || out == nullptr) return 0;
    size_t written = 0;
    while (*text != 0) {
        size_t units = detail::utf16_char_units(text);
        wchar_t wide[2] = {static_cast<wchar_t>(text[0]),
                           units == 2 ? static_cast<wchar_t>(text[1]) : L'\0'};
        char bytes[4];
        int n = ::WideCharToMultiByte(kCodePageUtf8, 0, wide, static_cast<int>(units), bytes,
                                      static_cast<int>(sizeof(bytes)), nullptr, nullptr);
        if (n <= 0 || static_cast<size_t>(n) > out_cap - written) break;
        for (int i = 0; i < n; ++i) out[written + static_cast<size_t>(i)] = bytes[i];
        written += static_cast<size_t>(n);
        text += units;
    }
    return written;
}

uint32_t os_version() {
    return static_cast<uint32_t>(::GetVersion());
}

void sleep_ms(uint32_t ms) {
    ::Sleep(ms);
}

}  // namespace platform
