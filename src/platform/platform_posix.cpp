// The platform interface on POSIX systems (Linux builds, tests and tools).
#include <fcntl.h>
#include <sys/random.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "platform/platform.h"
#include "platform/platform_os.h"

namespace platform::detail {

// No debugger channel exists here: "debug" means standard error, marked so that it can be told
// apart from a program's own output.
void debug_output(const char* line) {
    std::fprintf(stderr, "wapiwps[debug]: %s", line);
}

int64_t os_time_seconds() {
    return static_cast<int64_t>(::time(nullptr));
}

uint64_t os_file_time() {
    struct timespec now {};
    if (::clock_gettime(CLOCK_REALTIME, &now) != 0) return 0;
    uint64_t seconds = static_cast<uint64_t>(now.tv_sec) + kFileTimeEpochOffsetSeconds;
    return seconds * kFileTimeUnitsPerSecond + static_cast<uint64_t>(now.tv_nsec) / 100;
}

namespace {

// Kernels before getrandom(2) (3.17) still have /dev/urandom.
bool read_urandom(uint8_t* out, size_t len) {
    const int fd = ::open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    size_t done = 0;
    while (done < len) {
        const ssize_t n = ::read(fd, out + done, len - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        done += static_cast<size_t>(n);
    }
    ::close(fd);
    return done == len;
}

}  // namespace

bool os_system_random(uint8_t* out, size_t len) {
    size_t done = 0;
    while (done < len) {
        const ssize_t n = ::getrandom(out + done, len - done, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && errno == ENOSYS) return read_urandom(out, len);
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

namespace {

// Reads the leading decimal number of text, saturated at limit, and steps past it and one
// following '.'.
uint32_t take_version_part(const char*& text, uint32_t limit) {
    uint32_t value = 0;
    while (*text >= '0' && *text <= '9') {
        value = value * 10 + static_cast<uint32_t>(*text - '0');
        if (value > limit) value = limit;
        ++text;
    }
    if (*text == '.') ++text;
    return value;
}

}  // namespace

uint32_t pack_release_version(const char* release) {
    if (release == nullptr) return 0;
    uint32_t major = take_version_part(release, 0xFF);
    uint32_t minor = take_version_part(release, 0xFF);
    uint32_t patch = take_version_part(release, 0xFFFF);
    return major | (minor << 8) | (patch << 16);
}

}  // namespace platform::detail

namespace platform {
namespace {

constexpr uint32_t kReplacementChar = 0xFFFD;

// UTF-8 bytes of one code point (surrogate code points have already become U+FFFD).
size_t encode_utf8(uint32_t cp, char (&out)[4]) {
    if (cp < 0x80) {
        out[0] = static_cast<char>(cp);
        return 1;
    }
    if (cp < 0x800) {
        out[0] = static_cast<char>(0xC0 | (cp >> 6));
        out[1] = static_cast<char>(0x80 | (cp & 0x3F));
        return 2;
    }
    if (cp < 0x10000) {
        out[0] = static_cast<char>(0xE0 | (cp >> 12));
        out[1] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out[2] = static_cast<char>(0x80 | (cp & 0x3F));
        return 3;
    }
    out[0] = static_cast<char>(0xF0 | (cp >> 18));
    out[1] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out[2] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out[3] = static_cast<char>(0x80 | (cp & 0x3F));
    return 4;
}

uint32_t decode_utf16(const uint16_t* text, size_t units) {
    if (units == 2) {
        return 0x10000 + ((static_cast<uint32_t>(text[0]) - 0xD800) << 10) +
               (static_cast<uint32_t>(text[1]) - 0xDC00);
    }
    bool surrogate = text[0] >= 0xD800 && text[0] <= 0xDFFF;
    return surrogate ? kReplacementChar : text[0];
}

}  // namespace

// Same behaviour as the Windows build (WideCharToMultiByte, code page 65001): whole characters
// only, unpaired surrogates as U+FFFD, stop at the first character that does not fit.
size_t utf16_to_utf8(const uint16_t* text, char* out, size_t out_cap) {
    if (text == nullptr || out == nullptr) return 0;
    size_t written = 0;
    while (*text != 0) {
        size_t units = detail::utf16_char_units(text);
        char bytes[4];
        size_t n = encode_utf8(decode_utf16(text, units), bytes);
        if (n > out_cap - written) break;
        for (size_t i = 0; i < n; ++i) out[written + i] = bytes[i];
        written += n;
        text += units;
    }
    return written;
}

// The kernel release, packed like GetVersion() (see pack_release_version).
uint32_t os_version() {
    struct utsname name {};
    if (::uname(&name) != 0) return 0;
    return detail::pack_release_version(name.release);
}

void sleep_ms(uint32_t ms) {
    struct timespec rest {};
    rest.tv_sec = static_cast<time_t>(ms / 1000);
    rest.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
    while (::nanosleep(&rest, &rest) != 0 && errno == EINTR) {
    }
}

}  // namespace platform
