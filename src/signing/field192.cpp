// Montgomery arithmetic modulo p and n with three 64-bit limbs, and the constant-time comb.
#include "signing/field192.h"

#include "signing/curve192.h"

namespace {

// ---- 64 x 64 -> 128 ------------------------------------------------------------------------

// lo, hi = a * b + c + d (never overflows: (2^64 - 1)^2 + 2 (2^64 - 1) = 2^128 - 1).
inline void mul_add(uint64_t a, uint64_t b, uint64_t c, uint64_t d, uint64_t& lo, uint64_t& hi) {
#if defined(__SIZEOF_INT128__)
    __extension__ typedef unsigned __int128 u128;
    const u128 t = static_cast<u128>(a) * b + c + d;
    lo = static_cast<uint64_t>(t);
    hi = static_cast<uint64_t>(t >> 64);
#else
    // Portable path for compilers without a 128-bit type: four 32 x 32 products.
    const uint64_t a0 = a & 0xFFFFFFFFu, a1 = a >> 32, b0 = b & 0xFFFFFFFFu, b1 = b >> 32;
    const uint64_t p00 = a0 * b0, p01 = a0 * b1, p10 = a1 * b0, p11 = a1 * b1;
    const uint64_t mid = (p00 >> 32) + (p01 & 0xFFFFFFFFu) + (p10 & 0xFFFFFFFFu);
    uint64_t l = (p00 & 0xFFFFFFFFu) | (mid << 32);
    uint64_t h = p11 + (p01 >> 32) + (p10 >> 32) + (mid >> 32);
    l += c;
    h += static_cast<uint64_t>(l < c);
    l += d;
    h += static_cast<uint64_t>(l < d);
    lo = l;
    hi = h;
#endif
}

// r = a + b + carry_in; returns the carry out (0 or 1).
inline uint64_t add_carry(uint64_t a, uint64_t b, uint64_t carry, uint64_t& r) {
    const uint64_t s = a + b;
    const uint64_t c1 = static_cast<uint64_t>(s < a);
    r = s + carry;
    return c1 | static_cast<uint64_t>(r < s);
}

// r = a - b - borrow_in; returns the borrow out (0 or 1).
inline uint64_t sub_borrow(uint64_t a, uint64_t b, uint64_t borrow, uint64_t& r) {
    const uint64_t d = a - b;
    const uint64_t b1 = static_cast<uint64_t>(a < b);
    r = d - borrow;
    return b1 | static_cast<uint64_t>(d < borrow);
}

// ---- The moduli, their constants computed at compile time -------------------------------------

constexpr uint64_t neg_inverse_64(uint64_t m0) {
    uint64_t x = 1;  // Newton: each step doubles the correct low bits of m0^-1.
    for (int i = 0; i < 6; ++i) x *= 2 - m0 * x;
    return ~x + 1;
}

// (2^(192 + bits) mod m) starting from 2^192 mod m = 2^192 - m (since m < 2^192 < 2m).
constexpr F192 power_of_two_mod(const F192& m, int bits) {
    F192 r{};
    uint64_t borrow = 0;
    for (int i = 0; i < 3; ++i) {
        const uint64_t d = 0 - m.v[i] - borrow;
        borrow = (m.v[i] != 0 || borrow != 0) ? 1 : 0;
        r.v[i] = d;
    }
    for (int b = 0; b < bits; ++b) {
        const uint64_t top = r.v[2] >> 63;
        r.v[2] = (r.v[2] << 1) | (r.v[1] >> 63);
        r.v[1] = (r.v[1] << 1) | (r.v[0] >> 63);
        r.v[0] <<= 1;
        // Subtract m when the doubled value reached 2^192 or m.
        bool ge = top != 0;
        if (!ge) {
            ge = true;
            for (int i = 2; i >= 0; --i) {
                if (r.v[i] != m.v[i]) {
                    ge = r.v[i] > m.v[i];
                    break;
                }
            }
        }
        if (ge) {
            uint64_t bw = 0;
            for (int i = 0; i < 3; ++i) {
                const uint64_t d = r.v[i] - m.v[i] - bw;
                bw = (r.v[i] < m.v[i] || (r.v[i] == m.v[i] && bw != 0)) ? 1 : 0;
                r.v[i] = d;
            }
        }
    }
    return r;
}

constexpr Mont192 make_mont(const F192& m) {
    Mont192 c{};
    c.m = m;
    c.m0inv = neg_inverse_64(m.v[0]);
    c.one = power_of_two_mod(m, 0);
    c.r2 = power_of_two_mod(m, 192);
    c.exp_inv = m;
    c.exp_inv.v[0] -= 2;  // the low limbs of p and n are odd and above 2
    return c;
}

// p and n of the WAPI curve (the values of curve192.cpp's byte strings), least significant first.
constexpr F192 kP = {{0xEFE4AFE3B6B8551Full, 0x0DA8C0D46F4C318Cull, 0xBDB6F4FE3E8B1D9Eull}};
constexpr F192 kN = {{0x5DFAE76F56564677ull, 0x0DA8C0D40FC96219ull, 0xBDB6F4FE3E8B1D9Eull}};
constexpr Mont192 kMontP = make_mont(kP);
constexpr Mont192 kMontN = make_mont(kN);
static_assert(kMontP.m0inv * kP.v[0] == ~uint64_t{0}, "-p^-1 mod 2^64");
static_assert(kMontN.m0inv * kN.v[0] == ~uint64_t{0}, "-n^-1 mod 2^64");

}  // namespace

const Mont192& mont_p() {
    return kMontP;
}
const Mont192& mont_n() {
    return kMontN;
}

// ---- Masks and moves -------------------------------------------------------------------------

uint64_t f192_zero_mask(const F192& a) {
    const uint64_t any = a.v[0] | a.v[1] | a.v[2];
    // any | -any has its top bit set exactly when any is non-zero.
    return ((any | (0 - any)) >> 63) - 1;
}

void f192_cmov(F192& r, const F192& a, uint64_t mask) {
    for (int i = 0; i < 3; ++i) r.v[i] ^= (r.v[i] ^ a.v[i]) & mask;
}

// ---- Arithmetic ------------------------------------------------------------------------------

namespace {
// r = t (with its 2^192 carry bit t3) minus m when that is non-negative; t < 2m.
inline void subtract_if_needed(F192& r, const uint64_t t[3], uint64_t t3, const Mont192& m) {
    uint64_t d[3];
    uint64_t bw = sub_borrow(t[0], m.m.v[0], 0, d[0]);
    bw = sub_borrow(t[1], m.m.v[1], bw, d[1]);
    bw = sub_borrow(t[2], m.m.v[2], bw, d[2]);
    const uint64_t use_d = 0 - (t3 | (bw ^ 1));
    for (int i = 0; i < 3; ++i) r.v[i] = (t[i] & ~use_d) | (d[i] & use_d);
}
}  // namespace

void f192_add(F192& r, const F192& a, const F192& b, const Mont192& m) {
    uint64_t t[3];
    uint64_t c = add_carry(a.v[0], b.v[0], 0, t[0]);
    c = add_carry(a.v[1], b.v[1], c, t[1]);
    c = add_carry(a.v[2], b.v[2], c, t[2]);
    subtract_if_needed(r, t, c, m);
}

void f192_sub(F192& r, const F192& a, const F192& b, const Mont192& m) {
    uint64_t t[3];
    uint64_t bw = sub_borrow(a.v[0], b.v[0], 0, t[0]);
    bw = sub_borrow(a.v[1], b.v[1], bw, t[1]);
    bw = sub_borrow(a.v[2], b.v[2], bw, t[2]);
    const uint64_t mask = 0 - bw;
    uint64_t c = add_carry(t[0], m.m.v[0] & mask, 0, r.v[0]);
    c = add_carry(t[1], m.m.v[1] & mask, c, r.v[1]);
    add_carry(t[2], m.m.v[2] & mask, c, r.v[2]);
}

// Coarsely integrated operand scanning: one row of a * b[i], then one reduction step that clears
// the lowest word, three times.
void f192_mul(F192& r, const F192& a, const F192& b, const Mont192& m) {
    uint64_t t0 = 0, t1 = 0, t2 = 0, t3 = 0;
    for (int i = 0; i < 3; ++i) {
        uint64_t c, t4, discard;
        mul_add(a.v[0], b.v[i], t0, 0, t0, c);
        mul_add(a.v[1], b.v[i], t1, c, t1, c);
        mul_add(a.v[2], b.v[i], t2, c, t2, c);
        t4 = add_carry(t3, c, 0, t3);
        const uint64_t q = t0 * m.m0inv;
        mul_add(q, m.m.v[0], t0, 0, discard, c);
        mul_add(q, m.m.v[1], t1, c, t0, c);
        mul_add(q, m.m.v[2], t2, c, t1, c);
        const uint64_t c2 = add_carry(t3, c, 0, t2);
        t3 = t4 + c2;
    }
    const uint64_t t[3] = {t0, t1, t2};
    subtract_if_needed(r, t, t3, m);
}

void f192_to_mont(F192& r, const F192& a, const Mont192& m) {
    f192_mul(r, a, m.r2, m);
}

void f192_from_mont(F192& r, const F192& a, const Mont192& m) {
    const F192 one = {{1, 0, 0}};
    f192_mul(r, a, one, m);
}

void f192_inverse(F192& r, const F192& a, const Mont192& m) {
    // Fixed 4-bit windows over the public exponent m - 2: 192 squarings and 48 products.
    F192 powers[16];
    powers[0] = m.one;
    powers[1] = a;
    for (int i = 2; i < 16; ++i) f192_mul(powers[i], powers[i - 1], a, m);
    F192 acc = m.one;
    for (int w = 47; w >= 0; --w) {
        for (int s = 0; s < 4; ++s) f192_mul(acc, acc, acc, m);
        const unsigned window = static_cast<unsigned>(m.exp_inv.v[w / 16] >> (4 * (w % 16))) & 15u;
        f192_mul(acc, acc, powers[window], m);
    }
    r = acc;
}

// ---- Conversions -------------------------------------------------------------------------

void f192_reduce_once(F192& r, const F192& a, const Mont192& m) {
    subtract_if_needed(r, a.v, 0, m);
}

void f192_from_u32_limbs(F192& r, const uint32_t* limbs, int32_t count, const Mont192& m) {
    if (limbs == nullptr || count < 0) count = 0;
    if (count > 16) count = 16;
    F192 acc = {{0, 0, 0}};
    if (count <= 6) {  // the usual case: one chunk, one masked subtraction
        for (int32_t l = 0; l < count; ++l) acc.v[l / 2] |= uint64_t{limbs[l]} << (32 * (l % 2));
        f192_reduce_once(r, acc, m);
        return;
    }
    // Horner over 192-bit chunks from the top: acc = acc * 2^192 + chunk (mod m).
    const int32_t chunks = (count + 5) / 6;
    for (int32_t c = chunks - 1; c >= 0; --c) {
        F192 chunk = {{0, 0, 0}};
        for (int32_t l = 0; l < 6 && 6 * c + l < count; ++l)
            chunk.v[l / 2] |= uint64_t{limbs[6 * c + l]} << (32 * (l % 2));
        f192_reduce_once(chunk, chunk, m);
        f192_mul(acc, acc, m.r2, m);
        f192_add(acc, acc, chunk, m);
    }
    r = acc;
}

void f192_to_u32_limbs(uint32_t out[6], const F192& a) {
    for (int l = 0; l < 6; ++l) out[l] = static_cast<uint32_t>(a.v[l / 2] >> (32 * (l % 2)));
}

void f192_to_bytes(uint8_t out[24], const F192& a) {
    for (int i = 0; i < 24; ++i) {
        const int k = 23 - i;  // byte k from the least significant end
        out[i] = static_cast<uint8_t>(a.v[k / 8] >> (8 * (k % 8)));
    }
}

// ---- Jacobian points in Montgomery form ---------------------------------------------------------

namespace {

// The curve's a and the table, in the form modulo p. Plain static storage, filled at set-up.
F192 g_CurveA;
F192 g_CombX[kFixedBaseEntries];
F192 g_CombY[kFixedBaseEntries];

const Mont192& P() {
    return kMontP;
}
inline void fmul(F192& r, const F192& a, const F192& b) {
    f192_mul(r, a, b, P());
}
inline void fadd(F192& r, const F192& a, const F192& b) {
    f192_add(r, a, b, P());
}
inline void fsub(F192& r, const F192& a, const F192& b) {
    f192_sub(r, a, b, P());
}

}  // namespace

void jac_double(JacF& r, const JacF& p) {
    F192 xx, yy, yyyy, zz, s, m, t;
    fmul(xx, p.X, p.X);
    fmul(yy, p.Y, p.Y);
    fmul(yyyy, yy, yy);
    fmul(zz, p.Z, p.Z);
    fmul(s, p.X, yy);
    fadd(s, s, s);
    fadd(s, s, s);
    fmul(t, zz, zz);
    fmul(t, t, g_CurveA);
    fadd(m, xx, xx);
    fadd(m, m, xx);
    fadd(m, m, t);
    F192 x3, y3, z3;
    fmul(x3, m, m);
    fsub(x3, x3, s);
    fsub(x3, x3, s);
    fsub(t, s, x3);
    fmul(y3, m, t);
    fadd(t, yyyy, yyyy);
    fadd(t, t, t);
    fadd(t, t, t);
    fsub(y3, y3, t);
    fmul(z3, p.Y, p.Z);
    fadd(z3, z3, z3);
    r.X = x3;
    r.Y = y3;
    r.Z = z3;
}

uint64_t jac_add_affine(JacF& r, const JacF& p, const F192& x2, const F192& y2) {
    F192 z1z1, u2, s2, h, rr, hh, hhh, v, t;
    fmul(z1z1, p.Z, p.Z);
    fmul(u2, x2, z1z1);
    fmul(s2, y2, p.Z);
    fmul(s2, s2, z1z1);
    fsub(h, u2, p.X);
    fsub(rr, s2, p.Y);
    fmul(hh, h, h);
    fmul(hhh, h, hh);
    fmul(v, p.X, hh);
    F192 x3, y3, z3;
    fmul(x3, rr, rr);
    fsub(x3, x3, hhh);
    fsub(x3, x3, v);
    fsub(x3, x3, v);
    fsub(t, v, x3);
    fmul(y3, rr, t);
    fmul(t, p.Y, hhh);
    fsub(y3, y3, t);
    fmul(z3, p.Z, h);
    const uint64_t same_x = f192_zero_mask(h);
    const uint64_t same_point = same_x & f192_zero_mask(rr);
    r.X = x3;
    r.Y = y3;
    r.Z = z3;
    return (same_x & 1u) | (same_point & 2u);
}

const F192& curve_a_mont() {
    return g_CurveA;
}

namespace {

void jac_cmov(JacF& r, const JacF& a, uint64_t mask) {
    f192_cmov(r.X, a.X, mask);
    f192_cmov(r.Y, a.Y, mask);
    f192_cmov(r.Z, a.Z, mask);
}

// All ones when a == b (both below 2^63).
inline uint64_t equal_mask(uint64_t a, uint64_t b) {
    return 0 - (((a ^ b) - 1) >> 63);
}

// The comb index from bit `bit` of each of k's six 32-bit limbs, limb l giving bit l.
inline uint64_t comb_index(const F192& k, int bit) {
    uint64_t index = 0;
    for (int l = 0; l < kCurveLimbs; ++l) index |= ((k.v[l / 2] >> (32 * (l % 2) + bit)) & 1u) << l;
    return index;
}

// Adds table entry base + index (index 0 adds nothing) to q, which is the point at infinity
// while *infinity is all ones. Every one of the 63 candidate entries is read.
void comb_step(JacF& q, uint64_t& infinity, size_t base, uint64_t index) {
    F192 x = {{0, 0, 0}}, y = {{0, 0, 0}};
    for (size_t i = 1; i < 64; ++i) {
        const uint64_t hit = equal_mask(i, index);
        f192_cmov(x, g_CombX[base + i], hit);
        f192_cmov(y, g_CombY[base + i], hit);
    }
    JacF sum;
    jac_add_affine(sum, q, x, y);
    const JacF entry = {x, y, kMontP.one};
    jac_cmov(sum, entry, infinity);
    const uint64_t none = equal_mask(index, 0);
    jac_cmov(sum, q, none);
    q = sum;
    infinity &= none;
}

}  // namespace

void comb_table_load() {
    F192 a_plain;
    const CurveParams& c = curve_params();
    uint32_t limbs[6] = {};
    for (int32_t l = 0; l < kCurveLimbs && l < c.a.count; ++l) limbs[l] = c.a.limb[l];
    f192_from_u32_limbs(a_plain, limbs, kCurveLimbs, kMontP);
    f192_to_mont(g_CurveA, a_plain, kMontP);
    for (size_t i = 0; i < kFixedBaseEntries; ++i) {
        const uint8_t* e = fixed_base_table_entry(i);
        uint32_t xl[6], yl[6];
        for (int l = 0; l < 6; ++l) {
            const uint8_t* px = e + 4 * l;
            const uint8_t* py = e + 24 + 4 * l;
            xl[l] = uint32_t{px[0]} | (uint32_t{px[1]} << 8) | (uint32_t{px[2]} << 16) |
                    (uint32_t{px[3]} << 24);
            yl[l] = uint32_t{py[0]} | (uint32_t{py[1]} << 8) | (uint32_t{py[2]} << 16) |
                    (uint32_t{py[3]} << 24);
        }
        F192 x, y;
        f192_from_u32_limbs(x, xl, 6, kMontP);
        f192_from_u32_limbs(y, yl, 6, kMontP);
        f192_to_mont(g_CombX[i], x, kMontP);
        f192_to_mont(g_CombY[i], y, kMontP);
    }
}

// Why the additions need no doubling case: with k < n, every partial sum T the walk has built is
// at most k (the rest of k is added at lower weights later), and the entry c added next is a
// sub-sum of k's bits at positions T does not use. T = +-c (mod n) with 0 <= T, c < n would need
// T = c, impossible for a non-zero c on disjoint bits, or T + c = n, impossible since T + c <= k.
uint64_t comb_mul(F192& x, F192& y, const F192& k) {
    curve_params();  // set-up, if attach has not run
    JacF q = {{{0, 0, 0}}, {{0, 0, 0}}, {{0, 0, 0}}};
    uint64_t infinity = ~uint64_t{0};
    for (int j = 0; j < 16; ++j) {
        jac_double(q, q);
        comb_step(q, infinity, 0, comb_index(k, 15 - j));
        comb_step(q, infinity, 64, comb_index(k, 31 - j));
    }
    // To affine: Z = 0 (infinity) inverts to 0 and gives (0, 0).
    F192 zinv, z2, z3;
    f192_inverse(zinv, q.Z, kMontP);
    fmul(z2, zinv, zinv);
    fmul(z3, z2, zinv);
    fmul(x, q.X, z2);
    fmul(y, q.Y, z3);
    f192_from_mont(x, x, kMontP);
    f192_from_mont(y, y, kMontP);
    return infinity;
}
