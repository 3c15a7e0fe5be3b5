// The private copies of the C library generators, and the choice between them and the operating
// system's generator for every secret or unique value the library draws.
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "platform/platform.h"
#include "platform/platform_os.h"

namespace platform {
namespace detail {

void MsvcrtRand::seed(uint32_t s) {
    holdrand = s;
}

int MsvcrtRand::next() {
    holdrand = holdrand * 214013u + 2531011u;
    return static_cast<int>((holdrand >> 16) & 0x7FFF);
}

namespace {
constexpr uint32_t kGlibcDegree = 31;
constexpr uint32_t kGlibcSeparation = 3;
constexpr int kGlibcDiscarded = 10 * static_cast<int>(kGlibcDegree);
}  // namespace

void GlibcRand::seed(uint32_t s) {
    if (s == 0) s = 1;
    // The seed is read as a signed 32-bit word, as glibc does; the products below fit 64 bits and
    // every stored word fits 32 (Schrage's method for 16807 * word mod 2^31-1).
    int64_t word = static_cast<int32_t>(s);
    state[0] = static_cast<int32_t>(word);
    for (uint32_t i = 1; i < kGlibcDegree; ++i) {
        const int64_t hi = word / 127773;
        const int64_t lo = word % 127773;
        word = 16807 * lo - 2836 * hi;
        if (word < 0) word += 2147483647;
        state[i] = static_cast<int32_t>(word);
    }
    front = kGlibcSeparation;
    rear = 0;
    for (int i = 0; i < kGlibcDiscarded; ++i) next();
}

int GlibcRand::next() {
    const uint32_t value = static_cast<uint32_t>(state[front]) + static_cast<uint32_t>(state[rear]);
    state[front] = static_cast<int32_t>(value);
    front = (front + 1) % kGlibcDegree;
    rear = (rear + 1) % kGlibcDegree;
    return static_cast<int>(value >> 1);
}

}  // namespace detail

namespace {
constinit std::atomic<int32_t> g_random_source{static_cast<int32_t>(RandomSource::Compatible)};
}  // namespace

RandomSource random_source() {
    return static_cast<RandomSource>(g_random_source.load(std::memory_order_acquire));
}

void set_random_source(RandomSource source) {
    g_random_source.store(static_cast<int32_t>(source), std::memory_order_release);
}

void random_source_from_environment() {
    const char* value = std::getenv("WAPIWPS_RANDOM");
    if (value == nullptr) return;
    if (std::strcmp(value, "system") == 0) set_random_source(RandomSource::System);
    if (std::strcmp(value, "compatible") == 0) set_random_source(RandomSource::Compatible);
}

bool system_random_available() {
    uint8_t probe[16];
    const bool ok = detail::os_system_random(probe, sizeof probe);
    std::memset(probe, 0, sizeof probe);
    return ok;
}

void system_random(uint8_t* out, size_t len) {
    if (len == 0) return;
    // A failing generator is retried once; a second failure stops the process, because every
    // way of carrying on would hand out guessable nonces or keys.
    if (detail::os_system_random(out, len) || detail::os_system_random(out, len)) return;
    trace("The operating system's random generator failed.\r\n");
    std::abort();
}

}  // namespace platform
