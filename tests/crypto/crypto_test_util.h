// Test-side helpers for the crypto suite: libgcrypt references computed independently of the
// library, and a substitutable clock and C generator.
#pragma once

#include <gcrypt.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "common/reference.h"
#include "platform/platform.h"

namespace cryptotest {

using ref::Bytes;
using ref::bytes_of;
using ref::cat;
using ref::init_gcrypt;
using ref::TraceCapture;







inline Bytes random_bytes(size_t n) {
    init_gcrypt();
    Bytes out(n);
    if (n != 0) gcry_create_nonce(out.data(), n);
    return out;
}

// A clock the test moves by hand and a C generator that is a plain LCG over the last seed, so
// that draws are reproducible and a re-seed with the same second repeats the same bytes.
struct FakeClock {
    static inline int64_t now = 1700000000;
    static inline bool tick_each_call = false;
    static inline uint32_t state = 0;
    static inline int srand_calls = 0;

    static int64_t time() { return tick_each_call ? now++ : now; }
    static uint64_t file_time() { return 0; }
    static void seed(uint32_t s) {
        state = s;
        ++srand_calls;
    }
    static int next() {
        state = state * 1103515245u + 12345u;
        return static_cast<int>((state >> 16) & 0x7FFF);
    }
    // The 16 bytes a draw seeded with `second` must give.
    static Bytes expected_draw(int64_t second) {
        uint32_t s = static_cast<uint32_t>(second);
        Bytes out(16);
        for (auto& b : out) {
            s = s * 1103515245u + 12345u;
            b = static_cast<uint8_t>(((s >> 16) & 0x7FFF) & 0xFF);
        }
        return out;
    }
    static void install(int64_t start, bool tick) {
        now = start;
        tick_each_call = tick;
        srand_calls = 0;
        platform::set_time_source(&FakeClock::time, &FakeClock::file_time);
        platform::set_generator(&FakeClock::seed, &FakeClock::next);
    }
    static void remove() {
        platform::set_time_source(nullptr, nullptr);
        platform::set_generator(nullptr, nullptr);
    }
};


}  // namespace cryptotest
