// A clock set by hand (or a second later at every reading) and a C generator with msvcrt's LCG
// that restarts at every srand, so that the enrollee's nonces, IVs and software keys repeat and
// every draw can be replayed.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/platform.h"
#include "signing/curve192.h"

struct FakeClock {
    static inline int64_t now = 0;
    static inline bool tick = false;
    static inline uint32_t state = 0, last_seed = 0;
    static inline int srand_calls = 0;

    static int64_t time() { return tick ? now++ : now; }
    static uint64_t file_time() {
        return static_cast<uint64_t>(time()) * 10000000ull + 116444736000000000ull;
    }
    static void seed(uint32_t s) {
        state = last_seed = s;
        ++srand_calls;
    }
    static int next() {
        state = state * 214013u + 2531011u;
        return static_cast<int>((state >> 16) & 0x7FFF);
    }
    // The 16 bytes of a byte draw seeded with `second`.
    static std::vector<uint8_t> expected_draw(int64_t second) {
        state = static_cast<uint32_t>(second);
        std::vector<uint8_t> out(16);
        for (auto& b : out) b = static_cast<uint8_t>(next());
        return out;
    }
    static void install(int64_t start, bool ticking = false) {
        now = start;
        tick = ticking;
        srand_calls = 0;
        platform::set_time_source(&time, &file_time);
        platform::set_generator(&seed, &next);
    }
    // The clock stopped at `start` and the signing counter at 0: whole runs repeat.
    static void install_repeatable(int64_t start) {
        set_random_counter(0);
        install(start);
    }
    static void remove() {
        platform::set_time_source(nullptr, nullptr);
        platform::set_generator(nullptr, nullptr);
    }
};
