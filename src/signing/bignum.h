// Big numbers for the signature over the WAPI 192-bit curve, the curve arithmetic on top of
// them, and the entry points the tests and benchmarks reach below the public signing calls.
//
// Contracts that every routine here keeps:
//  - Limb order: 32-bit unsigned limbs, least significant first.
//  - Normalisation: every result has no leading zero limbs. Zero is count 0; a count of 1 with a
//    zero limb is accepted as zero on input too (bn_is_zero tests both forms).
//  - Room: a BigNum holds kBigNumLimbs limbs. The product of two 192-bit numbers needs 12, the
//    hash value 8; operands of bn_mul must satisfy a.count + b.count <= kBigNumLimbs and bn_add
//    needs max(a.count, b.count) + 1 <= kBigNumLimbs. Callers stay far inside this: every value
//    that reaches an operation is at most 12 limbs.
//  - Aliasing: the output may be the same object as any input, for every routine.
//  - Nothing allocates; everything works on the caller's stack and on plain static storage that
//    is initialised by CurveSetup (no dynamic initialisation).
//  - Counts read from outside (bn_from_limbs) are clamped to [0, kBigNumLimbs].
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr int32_t kBigNumLimbs = 16;

struct BigNum {
    int32_t count;
    uint32_t limb[kBigNumLimbs];
};

// Results of the fixed-width conversion to bytes.
inline constexpr int32_t kBnOk = 0;
inline constexpr int32_t kBnErrAboveBound = 5;  // the value exceeds the caller's upper bound
inline constexpr int32_t kBnErrWidth = 6;       // the value does not fit the requested width
// Upper bound, in bytes, that the signing code passes to the conversions.
inline constexpr size_t kBnByteBound = 100;

// ---- Basics ----------------------------------------------------------------------------------
void bn_zero(BigNum& r);
void bn_set_u32(BigNum& r, uint32_t v);
bool bn_is_zero(const BigNum& a);
void bn_copy(BigNum& r, const BigNum& a);
void bn_normalise(BigNum& r);
// Number of significant bits (0 for zero).
int32_t bn_bit_length(const BigNum& a);
// Bit i of a (0 beyond the count).
uint32_t bn_bit(const BigNum& a, int32_t i);

// ---- Conversions -----------------------------------------------------------------------------
// Big-endian unsigned bytes to a BigNum. Leading zero bytes are allowed in any number; false
// (and r set to zero) when the significant bytes need more than kBigNumLimbs limbs.
bool bn_from_bytes(BigNum& r, const uint8_t* bytes, size_t len);
// Little-endian limbs with a count; the count is clamped to [0, kBigNumLimbs] and normalised.
void bn_from_limbs(BigNum& r, const uint32_t* limbs, int32_t count);
// Fixed width: big-endian, left-padded with zeros to width bytes. kBnErrAboveBound when the
// value has more than bound bytes, kBnErrWidth when it has more than width bytes; nothing is
// written on error.
int32_t bn_to_bytes_fixed(const BigNum& a, uint8_t* out, size_t width, size_t bound);
// Minimal: big-endian without leading zero bytes, written from out[0]; bytes beyond the written
// length are left as they were (deliberately: key generation relies on this left alignment).
// Zero writes nothing. kBnErrAboveBound when the value has more than bound bytes.
int32_t bn_to_bytes_minimal(const BigNum& a, uint8_t* out, size_t bound, size_t* written);

// ---- Arithmetic ------------------------------------------------------------------------------
// -1, 0 or 1 as a is below, equal to or above b.
int32_t bn_compare(const BigNum& a, const BigNum& b);
void bn_add(BigNum& r, const BigNum& a, const BigNum& b);
// r = a - b; requires a >= b (r becomes zero otherwise).
void bn_sub(BigNum& r, const BigNum& a, const BigNum& b);
// Schoolbook product, row by row: each limb of b multiplies all of a and accumulates.
void bn_mul(BigNum& r, const BigNum& a, const BigNum& b);
// r = a mod m by long division; m must be non-zero (r becomes zero otherwise).
void bn_mod(BigNum& r, const BigNum& a, const BigNum& m);
// r = a^-1 mod m for odd m; r = 0 when a is 0 mod m or shares a factor with m.
void bn_mod_inverse(BigNum& r, const BigNum& a, const BigNum& m);
// Modular helpers on reduced operands (a, b < m).
void bn_mod_add(BigNum& r, const BigNum& a, const BigNum& b, const BigNum& m);
void bn_mod_sub(BigNum& r, const BigNum& a, const BigNum& b, const BigNum& m);
// r = a * b mod m through the schoolbook product and the long division.
void bn_mod_mul(BigNum& r, const BigNum& a, const BigNum& b, const BigNum& m);
