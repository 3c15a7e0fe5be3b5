// Shared helpers of the signing tests: hex, BigNum <-> libgcrypt MPI, the WAPI curve as a
// libgcrypt context built from explicit parameters, and reference point multiplication and
// ECDSA verification.
#pragma once

#include <gcrypt.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "common/vectors.h"
#include "signing/bignum.h"
#include "signing/curve192.h"

namespace signing_test {

// Random-input loops run their full count in normal builds and a fifth of it under the
// sanitizers, which slow our arithmetic (not libgcrypt's) about tenfold: the suite stays at a
// few seconds either way.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr int kLoopDivisor = 5;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr int kLoopDivisor = 5;
#else
inline constexpr int kLoopDivisor = 1;
#endif
#else
inline constexpr int kLoopDivisor = 1;
#endif
constexpr int loops(int full) {
    return full / kLoopDivisor;
}

std::vector<uint8_t> from_hex(const std::string& hex);
std::string to_hex(const uint8_t* data, size_t len);
inline std::string to_hex(const std::vector<uint8_t>& v) {
    return to_hex(v.data(), v.size());
}

BigNum bn_hex(const std::string& hex);
std::string bn_to_hex(const BigNum& a);  // minimal upper-case hex, "0" for zero

// A random value of up to `limbs` limbs with random length (bytes) and random top limbs.
BigNum random_bn(std::mt19937_64& rng, int32_t limbs);
BigNum random_below(std::mt19937_64& rng, const BigNum& m);

// Vector files, loaded once.
const testjson::JsonValue& vectors(const char* file);

// libgcrypt, initialised once.
void gcrypt_init();
gcry_mpi_t to_mpi(const BigNum& a);
BigNum from_mpi(gcry_mpi_t m);

struct RefPoint {
    bool infinity;
    BigNum x;
    BigNum y;
};
// k * (x, y) on the WAPI curve through gcry_mpi_ec_mul.
RefPoint ref_mul(const BigNum& k, const BigNum& x, const BigNum& y);
// gcry_pk_verify with (data (flags raw)(value e)) over the explicit-parameter curve.
bool ref_verify(const BigNum& e, const uint8_t signature[48], const BigNum& qx, const BigNum& qy);

// Deterministic clock and generator for RandomScalar: a fixed file time and an LCG whose
// sequence restarts at every srand, like the C library's.
struct FakeClock {
    static void install(uint64_t file_time);
    static void uninstall();
    static void set(uint64_t file_time);
    static uint32_t last_seed();
    static int srand_calls();
};

}  // namespace signing_test
