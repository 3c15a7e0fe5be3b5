// RandomScalar: scalars from the C library generator, reseeded from the clock at every draw.
#include "platform/platform.h"
#include "signing/curve192.h"

namespace {

// File-time units (100 ns) from 1601-01-01 to 1970-01-01, and per second.
constexpr uint64_t kFileTimeToUnixEpoch = 116444736000000000ull;
constexpr uint64_t kFileTimeUnitsPerSecond = 10000000ull;

// Grows by one for every rand() taken here, for the life of the process. Plain static storage.
int32_t g_RandomCounter;

uint32_t clock_seed() {
    const uint64_t file_time = platform::system_file_time();
    // A clock before 1970 would wrap; the seed is then simply those wrapped seconds truncated,
    // which is as good a seed as any and never traps.
    return static_cast<uint32_t>((file_time - kFileTimeToUnixEpoch) / kFileTimeUnitsPerSecond);
}

// One 11-bit-shifted contribution: rand() plus a counter term, in 32-bit wrapping arithmetic.
uint32_t next_word() {
    const uint32_t r = static_cast<uint32_t>(platform::c_rand());
    const int32_t c = g_RandomCounter;
    const uint32_t t = r + static_cast<uint32_t>(c >> 1) + 3u * static_cast<uint32_t>(c);
    g_RandomCounter = static_cast<int32_t>(static_cast<uint32_t>(c) + 1u);
    return t;
}

}  // namespace

// The seed is the clock in whole seconds, so two draws within one second repeat the same rand()
// sequence and differ only through the counter; this is the intended behaviour of the scheme.
int32_t RandomScalar(BigNum& out, const BigNum& modulus) {
    platform::c_srand(clock_seed());
    BigNum m = modulus;
    bn_normalise(m);
    BigNum v;
    bn_zero(v);
    for (int32_t l = 0; l < m.count; ++l) {
        uint32_t limb = 1;
        for (int shift = 0; shift <= 22; shift += 11) limb |= next_word() << shift;
        v.limb[l] = limb;
    }
    v.count = m.count;
    bn_normalise(v);
    bn_mod(out, v, m);
    return 0;
}

int32_t random_counter() {
    return g_RandomCounter;
}
void set_random_counter(int32_t value) {
    g_RandomCounter = value;
}
