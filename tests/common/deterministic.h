// Makes the enrollee's nonces, IVs and software keys repeatable: a fixed clock and a small
// generator in place of the C library's, and the signing counter at a known value.
#pragma once

#include <cstdint>

#include "platform/platform.h"
#include "signing/curve192.h"

namespace testdet {

inline uint32_t g_lcg = 1;
inline uint32_t g_seed_base = 0;

inline void fake_srand(uint32_t seed) { g_lcg = seed ^ g_seed_base; }
inline int fake_rand() {
    g_lcg = g_lcg * 1103515245u + 12345u;
    return static_cast<int>((g_lcg >> 16) & 0x7FFF);
}
inline int64_t fixed_time() { return 1700000000; }
inline uint64_t fixed_file_time() { return 116444736000000000ull + 1700000000ull * 10000000ull; }

// Installs the seams; `base` picks one repeatable sequence among many.
inline void make_deterministic(uint32_t base) {
    g_seed_base = base;
    set_random_counter(0);
    platform::set_generator(fake_srand, fake_rand);
    platform::set_time_source(fixed_time, fixed_file_time);
}

inline void restore_randomness() {
    platform::set_generator(nullptr, nullptr);
    platform::set_time_source(nullptr, nullptr);
}

}  // namespace testdet
