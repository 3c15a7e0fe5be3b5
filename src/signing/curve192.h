// The WAPI 192-bit curve y^2 = x^3 + ax + b (a general, not p - 3): domain parameters, Jacobian
// point arithmetic, the fixed-base comb and NAF multipliers, RandomScalar and the internal
// signing entry with an explicit nonce. Value contracts are those of bignum.h.
//
// All state (parameters, the converted fixed-base table, the modular-multiplication pointer) is
// plain static storage filled by CurveSetup at process attach and never changed afterwards;
// the entry points below call CurveSetup themselves if attach has not run yet.
#pragma once

#include <cstddef>
#include <cstdint>

#include "signing/bignum.h"

inline constexpr size_t kCurveBytes = 24;  // width of p, coordinates and signature halves
inline constexpr int32_t kCurveLimbs = 6;
inline constexpr size_t kSignatureBytes = 48;  // r || s
inline constexpr size_t kFixedBaseEntries = 128;
inline constexpr size_t kFixedBaseEntryBytes = 48;  // x then y, each 6 little-endian limbs

// Affine point; infinity = 1 marks the point at infinity (x, y then unused), 0 a finite point.
struct AffinePoint {
    BigNum x;
    BigNum y;
    int32_t infinity;
};

// Jacobian point: x = X / Z^2, y = Y / Z^3.
struct JacobianPoint {
    BigNum X;
    BigNum Y;
    BigNum Z;
    int32_t infinity;
};

struct CurveParams {
    BigNum p, a, b, gx, gy, n;
};

// Modular multiplication modulo p, chosen at set-up.
using ModMulFn = void (*)(BigNum& r, const BigNum& a, const BigNum& b);

const CurveParams& curve_params();
ModMulFn curve_mod_mul();

// The stored table: entry i as its 48 bytes (nullptr for i >= 128).
const uint8_t* fixed_base_table_entry(size_t i);
// The table converted at set-up (nullptr for i >= 128).
const AffinePoint* fixed_base_point(size_t i);

// ---- Point arithmetic (outputs may alias inputs) ----------------------------------------------
void point_double(JacobianPoint& r, const JacobianPoint& p);
// r = p + q with q affine; q must be finite.
void point_add_mixed(JacobianPoint& r, const JacobianPoint& p, const AffinePoint& q);
// One modular inverse of Z and four multiplications.
void point_to_affine(AffinePoint& r, const JacobianPoint& p);

// ---- Scalar multiplication ------------------------------------------------------------------
// k*G with the 128-entry comb table; k must be below 2^192 (limbs beyond the sixth are ignored).
void fixed_base_mul(AffinePoint& r, const BigNum& k);
// k*P by the non-adjacent form; k of up to 6 limbs; P finite.
void variable_base_mul(AffinePoint& r, const BigNum& k, const AffinePoint& p);
// Non-adjacent form of k, two bits per digit (01 = +1, 11 = -1), 16 digits per word, two words
// per limb of k plus one for the final carry. Returns the normalised word count; words must have
// room for 2 * 6 + 1 words.
inline constexpr size_t kNafWords = 2 * kCurveLimbs + 1;
int32_t naf_recode(const BigNum& k, uint32_t* words);

// ---- Randomness and signing ------------------------------------------------------------------
// A scalar below modulus from the C library generator, reseeded from the clock at every draw
// (see random_scalar.cpp). Returns 0.
int32_t RandomScalar(BigNum& out, const BigNum& modulus);
// The process-wide draw counter (tests read and reset it; nothing else writes it).
int32_t random_counter();
void set_random_counter(int32_t value);

// ECDSA core: e (already reduced mod n), d (below n), k. Writes r || s (48 bytes) and returns
// true; false when this k must be redrawn (r = 0, k not invertible, u = 0 or s = 0), in which
// case nothing is written.
bool ecdsa_sign_with_k(uint8_t* signature, const BigNum& e, const BigNum& d, const BigNum& k);
// e = SHA-256(message) as a big-endian integer, reduced mod n.
void ecdsa_message_scalar(BigNum& e, const uint8_t* message, uint32_t messageLength);
// Sign_With_Private_Key with the nonce given instead of drawn (tests and known answers):
// returns 48, or 0 when this k cannot give a signature (nothing written) or an argument is null.
int32_t sign_with_explicit_k(uint8_t* signature, const uint8_t* message, uint32_t messageLength,
                             const uint32_t* keyLimbs, int32_t keyLimbCount, const BigNum& k);
// GenPrivateKeyAndPublicKey after the draw: d (non-zero, below n) written minimally into
// privateKey, d*G into publicX and publicY, in constant time in d (the constant-time test marks d
// undefined and calls this). Null outputs are skipped.
void key_pair_from_scalar(const BigNum& d, uint8_t* privateKey, uint8_t* publicX,
                          uint8_t* publicY);
