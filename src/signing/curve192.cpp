// The WAPI 192-bit curve: set-up at attach, field and Jacobian point arithmetic, and the two
// scalar multipliers.
#include "signing/curve192.h"

#include "signing/field192.h"
#include "signing/signing.h"

void fixed_base_table_load();  // fixed_base_table.cpp

namespace {

// Domain parameters as 24-byte big-endian strings.
constexpr uint8_t kP[kCurveBytes] = {0xBD, 0xB6, 0xF4, 0xFE, 0x3E, 0x8B, 0x1D, 0x9E,
                                     0x0D, 0xA8, 0xC0, 0xD4, 0x6F, 0x4C, 0x31, 0x8C,
                                     0xEF, 0xE4, 0xAF, 0xE3, 0xB6, 0xB8, 0x55, 0x1F};
constexpr uint8_t kA[kCurveBytes] = {0xBB, 0x8E, 0x5E, 0x8F, 0xBC, 0x11, 0x5E, 0x13,
                                     0x9F, 0xE6, 0xA8, 0x14, 0xFE, 0x48, 0xAA, 0xA6,
                                     0xF0, 0xAD, 0xA1, 0xAA, 0x5D, 0xF9, 0x19, 0x85};
constexpr uint8_t kB[kCurveBytes] = {0x18, 0x54, 0xBE, 0xBD, 0xC3, 0x1B, 0x21, 0xB7,
                                     0xAE, 0xFC, 0x80, 0xAB, 0x0E, 0xCD, 0x10, 0xD5,
                                     0xB1, 0xB3, 0x30, 0x8E, 0x6D, 0xBF, 0x11, 0xC1};
constexpr uint8_t kGx[kCurveBytes] = {0x4A, 0xD5, 0xF7, 0x04, 0x8D, 0xE7, 0x09, 0xAD,
                                      0x51, 0x23, 0x6D, 0xE6, 0x5E, 0x4D, 0x4B, 0x48,
                                      0x2C, 0x83, 0x6D, 0xC6, 0xE4, 0x10, 0x66, 0x40};
constexpr uint8_t kGy[kCurveBytes] = {0x02, 0xBB, 0x3A, 0x02, 0xD4, 0xAA, 0xAD, 0xAC,
                                      0xAE, 0x24, 0x81, 0x7A, 0x4C, 0xA3, 0xA1, 0xB0,
                                      0x14, 0xB5, 0x27, 0x04, 0x32, 0xDB, 0x27, 0xD2};
constexpr uint8_t kN[kCurveBytes] = {0xBD, 0xB6, 0xF4, 0xFE, 0x3E, 0x8B, 0x1D, 0x9E,
                                     0x0D, 0xA8, 0xC0, 0xD4, 0x0F, 0xC9, 0x62, 0x19,
                                     0x5D, 0xFA, 0xE7, 0x6F, 0x56, 0x56, 0x46, 0x77};

// Plain static storage: zero before CurveSetup, constant afterwards.
CurveParams g_Curve;
ModMulFn g_ModMulP;
bool g_CurveReady;

// Multiplication modulo p behind the process-wide pointer: the operands go into the three-limb
// Montgomery form (field192.h), are multiplied there and come back as a BigNum. Operands wider
// than 192 bits, which no caller passes, take the schoolbook product and long division.
void mod_mul_p_mont(BigNum& r, const BigNum& a, const BigNum& b) {
    if (a.count > kCurveLimbs || b.count > kCurveLimbs || a.count < 0 || b.count < 0) {
        bn_mod_mul(r, a, b, g_Curve.p);
        return;
    }
    F192 fa = {{0, 0, 0}}, fb = {{0, 0, 0}}, t;
    for (int32_t l = 0; l < a.count; ++l) fa.v[l / 2] |= uint64_t{a.limb[l]} << (32 * (l % 2));
    for (int32_t l = 0; l < b.count; ++l) fb.v[l / 2] |= uint64_t{b.limb[l]} << (32 * (l % 2));
    f192_reduce_once(fa, fa, mont_p());
    f192_reduce_once(fb, fb, mont_p());
    f192_mul(t, fa, fb, mont_p());          // a b / 2^192
    f192_mul(t, t, mont_p().r2, mont_p());  // a b
    // Written in place: limbs beyond the count stay zero, as bn_from_limbs leaves them.
    for (int32_t l = 0; l < kCurveLimbs; ++l) r.limb[l] = static_cast<uint32_t>(t.v[l / 2] >> (32 * (l % 2)));
    for (int32_t l = kCurveLimbs; l < kBigNumLimbs; ++l) r.limb[l] = 0;
    r.count = kCurveLimbs;
    bn_normalise(r);
}

const CurveParams& ready_params() {
    if (!g_CurveReady) CurveSetup();
    return g_Curve;
}

// Field helpers modulo p on reduced operands.
void fmul(BigNum& r, const BigNum& a, const BigNum& b) {
    g_ModMulP(r, a, b);
}
void fsqr(BigNum& r, const BigNum& a) {
    g_ModMulP(r, a, a);
}

// BigNum coordinates (below p) into the Montgomery form of field192.h and back: the point
// formulas exist once, there.
F192 to_form(const BigNum& a) {
    const int32_t count = a.count < 0 ? 0 : a.count;
    F192 t;
    f192_from_u32_limbs(t, a.limb, count, mont_p());
    f192_to_mont(t, t, mont_p());
    return t;
}
void from_form(BigNum& r, const F192& a) {
    F192 t;
    f192_from_mont(t, a, mont_p());
    uint32_t limbs[kCurveLimbs];
    f192_to_u32_limbs(limbs, t);
    bn_from_limbs(r, limbs, kCurveLimbs);
}
JacF to_jac(const JacobianPoint& p) {
    return JacF{to_form(p.X), to_form(p.Y), to_form(p.Z)};
}
void from_jac(JacobianPoint& r, const JacF& j) {
    from_form(r.X, j.X);
    from_form(r.Y, j.Y);
    from_form(r.Z, j.Z);
}

void set_infinity(JacobianPoint& r) {
    bn_zero(r.X);
    bn_zero(r.Y);
    bn_zero(r.Z);
    r.infinity = 1;
}

void from_affine(JacobianPoint& r, const AffinePoint& q) {
    r.X = q.x;
    r.Y = q.y;
    bn_set_u32(r.Z, 1);
    r.infinity = 0;
}

void affine_infinity(AffinePoint& r) {
    bn_zero(r.x);
    bn_zero(r.y);
    r.infinity = 1;
}

}  // namespace

void CurveSetup() {
    bn_from_bytes(g_Curve.p, kP, sizeof kP);
    bn_from_bytes(g_Curve.a, kA, sizeof kA);
    bn_from_bytes(g_Curve.b, kB, sizeof kB);
    bn_from_bytes(g_Curve.gx, kGx, sizeof kGx);
    bn_from_bytes(g_Curve.gy, kGy, sizeof kGy);
    bn_from_bytes(g_Curve.n, kN, sizeof kN);
    g_ModMulP = mod_mul_p_mont;
    g_CurveReady = true;
    fixed_base_table_load();
    comb_table_load();
}

const CurveParams& curve_params() {
    return ready_params();
}

ModMulFn curve_mod_mul() {
    ready_params();
    return g_ModMulP;
}

// ---- Point arithmetic ------------------------------------------------------------------------

void point_double(JacobianPoint& r, const JacobianPoint& p) {
    ready_params();
    if (p.infinity || bn_is_zero(p.Y)) {
        set_infinity(r);
        return;
    }
    JacF j = to_jac(p);
    jac_double(j, j);
    from_jac(r, j);
    r.infinity = bn_is_zero(r.Z) ? 1 : 0;
}

void point_add_mixed(JacobianPoint& r, const JacobianPoint& p, const AffinePoint& q) {
    ready_params();
    if (q.infinity) {
        r = p;
        return;
    }
    if (p.infinity) {
        from_affine(r, q);
        return;
    }
    JacF sum;
    const uint64_t cases = jac_add_affine(sum, to_jac(p), to_form(q.x), to_form(q.y));
    if ((cases & 1u) != 0) {  // same x: the same point doubles, P + (-P) is infinity
        if ((cases & 2u) != 0) {
            point_double(r, p);
        } else {
            set_infinity(r);
        }
        return;
    }
    from_jac(r, sum);
    r.infinity = 0;
}

void point_to_affine(AffinePoint& r, const JacobianPoint& p) {
    ready_params();
    if (p.infinity || bn_is_zero(p.Z)) {
        affine_infinity(r);
        return;
    }
    BigNum zinv, z2, z3, x, y;
    bn_mod_inverse(zinv, p.Z, g_Curve.p);
    fsqr(z2, zinv);
    fmul(x, p.X, z2);
    fmul(z3, z2, zinv);
    fmul(y, p.Y, z3);
    r.x = x;
    r.y = y;
    r.infinity = 0;
}

// ---- Fixed-base comb -------------------------------------------------------------------------

// The constant-time comb of field192.cpp on the BigNum interface. k is taken modulo n first: the
// same point, and the form the comb's addition rules need.
void fixed_base_mul(AffinePoint& r, const BigNum& k) {
    ready_params();
    const int32_t limbs = k.count < 0 ? 0 : (k.count > kCurveLimbs ? kCurveLimbs : k.count);
    F192 kk, x, y;
    f192_from_u32_limbs(kk, k.limb, limbs, mont_n());
    if (comb_mul(x, y, kk) != 0) {
        affine_infinity(r);
        return;
    }
    uint32_t xl[kCurveLimbs], yl[kCurveLimbs];
    f192_to_u32_limbs(xl, x);
    f192_to_u32_limbs(yl, y);
    bn_from_limbs(r.x, xl, kCurveLimbs);
    bn_from_limbs(r.y, yl, kCurveLimbs);
    r.infinity = 0;
}

// ---- NAF variable-base -----------------------------------------------------------------------

namespace {
// Recoding tables indexed by carry * 4 + bit + 2 * next bit.
constexpr uint32_t kNafNextCarry[8] = {0, 0, 0, 1, 0, 1, 1, 1};
constexpr int32_t kNafDigit[8] = {0, +1, 0, -1, +1, 0, -1, 0};
constexpr uint32_t kNafPlus = 1u;   // 01
constexpr uint32_t kNafMinus = 3u;  // 11
}  // namespace

int32_t naf_recode(const BigNum& k, uint32_t* words) {
    BigNum kk = k;
    bn_normalise(kk);
    int32_t limbs = kk.count > kCurveLimbs ? kCurveLimbs : kk.count;
    const int32_t word_count = 2 * limbs + 1;
    for (int32_t w = 0; w < word_count; ++w) words[w] = 0;
    uint32_t carry = 0;
    const int32_t bits = 32 * limbs;
    for (int32_t i = 0; i < bits; ++i) {
        const uint32_t index =
            carry * 4 + bn_bit(kk, i) + 2 * (i + 1 < bits ? bn_bit(kk, i + 1) : 0);
        const int32_t digit = kNafDigit[index];
        carry = kNafNextCarry[index];
        if (digit != 0) words[i / 16] |= (digit > 0 ? kNafPlus : kNafMinus) << (2 * (i % 16));
    }
    // The last carry is one more +1 digit at position 32 * limbs.
    if (carry != 0) words[bits / 16] |= kNafPlus;
    int32_t n = word_count;
    while (n > 0 && words[n - 1] == 0) --n;
    return n;
}

void variable_base_mul(AffinePoint& r, const BigNum& k, const AffinePoint& p) {
    ready_params();
    uint32_t words[kNafWords];
    const int32_t n = naf_recode(k, words);
    if (n == 0 || p.infinity) {
        affine_infinity(r);
        return;
    }
    AffinePoint neg = p;
    bn_mod_sub(neg.y, g_Curve.p, p.y, g_Curve.p);
    if (bn_is_zero(p.y)) bn_zero(neg.y);
    JacobianPoint q;
    set_infinity(q);
    // Skip the leading zero digits of the top word, then double and add per digit.
    int32_t top = 15;
    while (top > 0 && ((words[n - 1] >> (2 * top)) & 3u) == 0) --top;
    for (int32_t w = n - 1; w >= 0; --w) {
        for (int32_t d = (w == n - 1 ? top : 15); d >= 0; --d) {
            point_double(q, q);
            const uint32_t digit = (words[w] >> (2 * d)) & 3u;
            if (digit == kNafPlus) point_add_mixed(q, q, p);
            if (digit == kNafMinus) point_add_mixed(q, q, neg);
        }
    }
    point_to_affine(r, q);
}
