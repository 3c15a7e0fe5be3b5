// RandomScalar: scalars from the C library generator, reseeded from the clock at every draw, or
// (system random source) uniform scalars from the operating system's generator.
#include "common/bytes.h"
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

// System source: a scalar uniform in [1, modulus - 1], by rejection. As many bytes as the modulus
// has are drawn, the bits above its top bit cleared, and the draw kept when 0 < v < modulus
// (for n of the signing curve about one draw in four is drawn again). A modulus below 2 has no
// such value and gives 0.
//
// This serves the software key d and the ECDSA nonce k alike. For k we chose rejection-sampled
// system bytes over RFC 6979 (deterministic, optionally hedged): a uniform k from a sound
// generator is exactly what ECDSA needs, it leaves the signer and its known answers unchanged
// (RandomScalar never sees the key or the message that RFC 6979 would hash), and the failure
// RFC 6979 guards against, a broken generator, would already have given away d, which is drawn
// from the same source.
void system_scalar(BigNum& out, const BigNum& modulus) {
    const int32_t bits = bn_bit_length(modulus);
    if (bits < 2) {
        bn_zero(out);
        return;
    }
    const size_t len = static_cast<size_t>(bits + 7) / 8;
    const uint8_t top_mask = static_cast<uint8_t>(0xFF >> ((8 - bits % 8) % 8));
    uint8_t bytes[4 * kBigNumLimbs] = {};
    do {
        platform::system_random(bytes, len);
        bytes[0] &= top_mask;
        bn_from_bytes(out, bytes, len);
    } while (bn_is_zero(out) || bn_compare(out, modulus) >= 0);
    secure_wipe(bytes, sizeof bytes);
}

}  // namespace

// The seed is the clock in whole seconds, so two draws within one second repeat the same rand()
// sequence and differ only through the counter; this is the intended behaviour of the scheme.
int32_t RandomScalar(BigNum& out, const BigNum& modulus) {
    BigNum m = modulus;
    bn_normalise(m);
    if (platform::random_source() == platform::RandomSource::System && !bn_is_zero(m)) {
        system_scalar(out, m);
        return 0;
    }
    platform::c_srand(clock_seed());
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
