// The clock and the C library generator as the protocol code sees them: the operating system's
// clock and a private copy of the platform's generator, unless a test has substituted its own to
// make nonces, IVs and time stamps deterministic.
#include <atomic>

#include "platform/platform.h"
#include "platform/platform_os.h"

namespace platform {
namespace {

constinit std::atomic<time_fn> g_time_override{nullptr};
constinit std::atomic<file_time_fn> g_file_time_override{nullptr};
constinit std::atomic<srand_fn> g_srand_override{nullptr};
constinit std::atomic<rand_fn> g_rand_override{nullptr};

// Our own generator state: the host's srand/rand sequence is never touched by the library.
#if defined(_WIN32)
detail::MsvcrtRand g_compat_rand;
#else
detail::GlibcRand g_compat_rand;
#endif

}  // namespace

int64_t time_seconds() {
    time_fn now = g_time_override.load(std::memory_order_acquire);
    return now != nullptr ? now() : detail::os_time_seconds();
}

uint64_t system_file_time() {
    file_time_fn now = g_file_time_override.load(std::memory_order_acquire);
    return now != nullptr ? now() : detail::os_file_time();
}

void c_srand(uint32_t seed) {
    srand_fn seed_fn = g_srand_override.load(std::memory_order_acquire);
    if (seed_fn != nullptr) {
        seed_fn(seed);
    } else {
        g_compat_rand.seed(seed);
    }
}

int c_rand() {
    rand_fn next = g_rand_override.load(std::memory_order_acquire);
    return next != nullptr ? next() : g_compat_rand.next();
}

// Each pointer is replaced on its own; nullptr puts the operating system's function back.
void set_time_source(time_fn now, file_time_fn file_now) {
    g_time_override.store(now, std::memory_order_release);
    g_file_time_override.store(file_now, std::memory_order_release);
}

void set_generator(srand_fn seed, rand_fn next) {
    g_srand_override.store(seed, std::memory_order_release);
    g_rand_override.store(next, std::memory_order_release);
}

}  // namespace platform
