// Constant-time arithmetic modulo the two 192-bit moduli of the WAPI curve (the field prime p
// and the group order n), and the constant-time comb multiplier built on it. The signing and
// key-generation paths run here; bignum.h's BigNum stays the format at every interface.
//
// Representation: three 64-bit limbs, least significant first, in Montgomery form (x * 2^192
// mod m). Neither p nor n has a special shape that a dedicated reduction could use, so Montgomery
// reduction is the cheapest general one: word-by-word, no division and no data-dependent
// correction beyond one masked subtraction. Three 64-bit limbs need 9 multiply-accumulates per
// product against 36 for six 32-bit limbs. 64 x 64 -> 128-bit products use unsigned __int128
// where the compiler has it and a portable 32-bit-halves routine otherwise (same results).
//
// Contracts:
//  - Every operand and result is fully reduced (below its modulus).
//  - No routine branches on, or indexes memory by, a limb value: secrets (the private key, the
//    nonce, its inverse, r*d, the comb's table indices) flow only through masks. Exponents of the
//    Fermat inverses are the public m - 2.
//  - Outputs may alias inputs.
#pragma once

#include <cstddef>
#include <cstdint>

struct F192 {
    uint64_t v[3];
};

// A modulus with its Montgomery constants (set up once, constant afterwards).
struct Mont192 {
    F192 m;           // the odd modulus, top bit set (2^192 < 2m)
    uint64_t m0inv;   // -m^-1 mod 2^64
    F192 r2;          // 2^384 mod m (to enter the form)
    F192 one;         // 2^192 mod m (1 in the form)
    F192 exp_inv;     // m - 2, the Fermat exponent
};

const Mont192& mont_p();
const Mont192& mont_n();

// ---- Masks and moves -------------------------------------------------------------------------
// All ones when a is zero, else zero.
uint64_t f192_zero_mask(const F192& a);
// r = mask ? a : r (mask all ones or zero).
void f192_cmov(F192& r, const F192& a, uint64_t mask);

// ---- Arithmetic modulo m (operands reduced) --------------------------------------------------
void f192_add(F192& r, const F192& a, const F192& b, const Mont192& m);
void f192_sub(F192& r, const F192& a, const F192& b, const Mont192& m);
// Montgomery product a * b / 2^192 mod m. Also correct for a below 2^192 with b below m.
void f192_mul(F192& r, const F192& a, const F192& b, const Mont192& m);
void f192_to_mont(F192& r, const F192& a, const Mont192& m);
void f192_from_mont(F192& r, const F192& a, const Mont192& m);
// r = a^-1 in the form (a in the form); 0 for 0. Fermat's little theorem: m is prime.
void f192_inverse(F192& r, const F192& a, const Mont192& m);

// ---- Conversions -------------------------------------------------------------------------
// A value below 2^192 reduced once: exact since 2^192 < 2m.
void f192_reduce_once(F192& r, const F192& a, const Mont192& m);
// The value of count little-endian 32-bit limbs (count public, clamped to [0, 16]) mod m, in
// plain form, without looking at the limbs' values.
void f192_from_u32_limbs(F192& r, const uint32_t* limbs, int32_t count, const Mont192& m);
void f192_to_u32_limbs(uint32_t out[6], const F192& a);
// 24 bytes big-endian, zero-padded.
void f192_to_bytes(uint8_t out[24], const F192& a);

// ---- Jacobian points modulo p, coordinates in the form ----------------------------------------
// Z = 0 is the point at infinity. The formulas are for a general a (the WAPI curve's is not -3).
struct JacF {
    F192 X, Y, Z;
};
// 2P = (M^2 - 2S, M (S - X3) - 8 Y^4, 2YZ) with M = 3X^2 + aZ^4, S = 4XY^2; infinity stays
// infinity.
void jac_double(JacF& r, const JacF& p);
// P + (x2, y2) by H = x2 Z^2 - X, R = y2 Z^3 - Y: X3 = R^2 - H^3 - 2 X H^2,
// Y3 = R (X H^2 - X3) - Y H^3, Z3 = Z H. No special case: P must be finite and not +-(x2, y2).
// Returns the masks of the cases it does not handle: bit 0 when H = 0 (same x), bit 1 when also
// R = 0 (the same point), computed without branching.
uint64_t jac_add_affine(JacF& r, const JacF& p, const F192& x2, const F192& y2);
// The curve's a in the form (set up with the table).
const F192& curve_a_mont();

// ---- The constant-time comb k*G ----------------------------------------------------------
// Loads the Montgomery-form copy of the fixed-base table (at curve set-up).
void comb_table_load();
// k*G for k below n (plain form). x and y come out in plain form; the return value is all ones
// when the result is the point at infinity (k = 0), else zero. The table walk reads every
// entry at every step and selects by mask.
uint64_t comb_mul(F192& x, F192& y, const F192& k);
