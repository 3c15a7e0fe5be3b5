// BigNum arithmetic: conversions, add, subtract, compare, schoolbook multiply, long-division
// remainder and the binary modular inverse.
#include "signing/bignum.h"

namespace {

// Treats an out-of-range count (possible only through a corrupted value) as the nearest legal
// one, so that no routine indexes outside the limb array.
int32_t used_limbs(const BigNum& a) {
    if (a.count < 0) return 0;
    if (a.count > kBigNumLimbs) return kBigNumLimbs;
    return a.count;
}

int32_t leading_zero_bits(uint32_t v) {
    int32_t n = 0;
    if (v == 0) return 32;
    while ((v & 0x80000000u) == 0) {
        v <<= 1;
        ++n;
    }
    return n;
}

// Shifts right by one bit in place.
void shift_right_1(BigNum& a) {
    const int32_t n = used_limbs(a);
    for (int32_t i = 0; i < n; ++i) {
        uint32_t next = (i + 1 < n) ? a.limb[i + 1] : 0;
        a.limb[i] = (a.limb[i] >> 1) | (next << 31);
    }
    a.count = n;
    bn_normalise(a);
}

int32_t significant_limbs(const BigNum& a) {
    int32_t n = used_limbs(a);
    while (n > 0 && a.limb[n - 1] == 0) --n;
    return n;
}

bool is_even(const BigNum& a) {
    return bn_is_zero(a) || (a.limb[0] & 1u) == 0;
}

bool is_one(const BigNum& a) {
    return used_limbs(a) == 1 && a.limb[0] == 1;
}

// x = x / 2 mod m for odd m and x < m.
void half_mod(BigNum& x, const BigNum& m) {
    if (!is_even(x)) bn_add(x, x, m);
    shift_right_1(x);
}

}  // namespace

// ---- Basics ----------------------------------------------------------------------------------

void bn_zero(BigNum& r) {
    r = BigNum{};
}

void bn_set_u32(BigNum& r, uint32_t v) {
    bn_zero(r);
    r.limb[0] = v;
    r.count = v ? 1 : 0;
}

bool bn_is_zero(const BigNum& a) {
    const int32_t n = used_limbs(a);
    return n == 0 || (n == 1 && a.limb[0] == 0);
}

void bn_copy(BigNum& r, const BigNum& a) {
    if (&r == &a) return;
    r = a;
}

void bn_normalise(BigNum& r) {
    int32_t n = used_limbs(r);
    while (n > 0 && r.limb[n - 1] == 0) --n;
    r.count = n;
}

int32_t bn_bit_length(const BigNum& a) {
    int32_t n = used_limbs(a);
    while (n > 0 && a.limb[n - 1] == 0) --n;
    if (n == 0) return 0;
    return 32 * n - leading_zero_bits(a.limb[n - 1]);
}

uint32_t bn_bit(const BigNum& a, int32_t i) {
    if (i < 0 || i / 32 >= used_limbs(a)) return 0;
    return (a.limb[i / 32] >> (i % 32)) & 1u;
}

// ---- Conversions -----------------------------------------------------------------------------

bool bn_from_bytes(BigNum& r, const uint8_t* bytes, size_t len) {
    BigNum t;
    bn_zero(t);
    if (bytes == nullptr) len = 0;
    size_t first = 0;
    while (first < len && bytes[first] == 0) ++first;
    const size_t significant = len - first;
    if (significant > 4 * static_cast<size_t>(kBigNumLimbs)) {
        bn_zero(r);
        return false;
    }
    // Walk from the least significant byte at the end of the string.
    for (size_t k = 0; k < significant; ++k) {
        const uint8_t b = bytes[len - 1 - k];
        t.limb[k / 4] |= uint32_t{b} << (8 * (k % 4));
    }
    t.count = static_cast<int32_t>((significant + 3) / 4);
    bn_normalise(t);
    r = t;
    return true;
}

void bn_from_limbs(BigNum& r, const uint32_t* limbs, int32_t count) {
    BigNum t;
    bn_zero(t);
    if (limbs == nullptr || count < 0) count = 0;
    if (count > kBigNumLimbs) count = kBigNumLimbs;
    for (int32_t i = 0; i < count; ++i) t.limb[i] = limbs[i];
    t.count = count;
    bn_normalise(t);
    r = t;
}

namespace {
size_t byte_length(const BigNum& a) {
    return static_cast<size_t>(bn_bit_length(a) + 7) / 8;
}
uint8_t byte_at(const BigNum& a, size_t k) {  // k-th byte from the least significant end
    return static_cast<uint8_t>(a.limb[k / 4] >> (8 * (k % 4)));
}
}  // namespace

int32_t bn_to_bytes_fixed(const BigNum& a, uint8_t* out, size_t width, size_t bound) {
    const size_t len = byte_length(a);
    if (len > bound) return kBnErrAboveBound;
    if (len > width) return kBnErrWidth;
    if (out == nullptr) return kBnErrWidth;
    for (size_t i = 0; i < width; ++i) {
        const size_t k = width - 1 - i;
        out[i] = k < len ? byte_at(a, k) : 0;
    }
    return kBnOk;
}

int32_t bn_to_bytes_minimal(const BigNum& a, uint8_t* out, size_t bound, size_t* written) {
    const size_t len = byte_length(a);
    if (written != nullptr) *written = 0;
    if (len > bound) return kBnErrAboveBound;
    if (out == nullptr && len != 0) return kBnErrAboveBound;
    for (size_t i = 0; i < len; ++i) out[i] = byte_at(a, len - 1 - i);
    if (written != nullptr) *written = len;
    return kBnOk;
}

// ---- Arithmetic ------------------------------------------------------------------------------

int32_t bn_compare(const BigNum& a, const BigNum& b) {
    const int32_t na = significant_limbs(a), nb = significant_limbs(b);
    if (na != nb) return na < nb ? -1 : 1;
    for (int32_t i = na - 1; i >= 0; --i) {
        if (a.limb[i] != b.limb[i]) return a.limb[i] < b.limb[i] ? -1 : 1;
    }
    return 0;
}

void bn_add(BigNum& r, const BigNum& a, const BigNum& b) {
    const int32_t na = used_limbs(a), nb = used_limbs(b);
    const int32_t n = na > nb ? na : nb;
    BigNum t;
    bn_zero(t);
    uint64_t carry = 0;
    for (int32_t i = 0; i < n; ++i) {
        const uint64_t s = uint64_t{i < na ? a.limb[i] : 0u} + (i < nb ? b.limb[i] : 0u) + carry;
        t.limb[i] = static_cast<uint32_t>(s);
        carry = s >> 32;
    }
    t.count = n;
    // The carry limb is dropped only if the caller broke the room contract.
    if (carry != 0 && n < kBigNumLimbs) t.limb[t.count++] = static_cast<uint32_t>(carry);
    bn_normalise(t);
    r = t;
}

void bn_sub(BigNum& r, const BigNum& a, const BigNum& b) {
    if (bn_compare(a, b) < 0) {
        bn_zero(r);
        return;
    }
    const int32_t na = used_limbs(a), nb = used_limbs(b);
    BigNum t;
    bn_zero(t);
    uint32_t borrow = 0;
    for (int32_t i = 0; i < na; ++i) {
        const uint64_t sub = uint64_t{i < nb ? b.limb[i] : 0u} + borrow;
        const uint64_t av = a.limb[i];
        t.limb[i] = static_cast<uint32_t>(av - sub);
        borrow = av < sub ? 1u : 0u;
    }
    t.count = na;
    bn_normalise(t);
    r = t;
}

namespace {
// acc[0..n] += a[0..n-1] * m: one row of the schoolbook product; returns the carry out of acc[n-1]
// which the caller stores in acc[n].
uint32_t mul_accumulate_row(uint32_t* acc, const uint32_t* a, int32_t n, uint32_t m) {
    uint64_t carry = 0;
    for (int32_t i = 0; i < n; ++i) {
        const uint64_t v = uint64_t{a[i]} * m + acc[i] + carry;
        acc[i] = static_cast<uint32_t>(v);
        carry = v >> 32;
    }
    return static_cast<uint32_t>(carry);
}
}  // namespace

void bn_mul(BigNum& r, const BigNum& a, const BigNum& b) {
    int32_t na = used_limbs(a), nb = used_limbs(b);
    BigNum t;
    bn_zero(t);
    if (bn_is_zero(a) || bn_is_zero(b)) {
        r = t;
        return;
    }
    // Room contract: a product never needs more than kBigNumLimbs limbs for the callers here; a
    // caller that breaks it gets the product truncated to the room rather than a stray write.
    if (na + nb > kBigNumLimbs) {
        if (na > kBigNumLimbs / 2) na = kBigNumLimbs / 2;
        if (nb > kBigNumLimbs / 2) nb = kBigNumLimbs / 2;
    }
    for (int32_t j = 0; j < nb; ++j) {
        t.limb[j + na] = mul_accumulate_row(&t.limb[j], a.limb, na, b.limb[j]);
    }
    t.count = na + nb;
    bn_normalise(t);
    r = t;
}

void bn_mod(BigNum& r, const BigNum& a, const BigNum& m) {
    const int32_t n = significant_limbs(m), len = significant_limbs(a);
    if (n == 0) {
        bn_zero(r);
        return;
    }
    if (bn_compare(a, m) < 0) {
        if (&r != &a) r = a;
        r.count = len;
        return;
    }
    const BigNum& mm = m;
    const BigNum& aa = a;
    // Long division (Knuth's algorithm D) on normalised copies: shift both so that the divisor's
    // top bit is set, then produce one quotient limb per step, keeping only the remainder.
    const int32_t s = leading_zero_bits(mm.limb[n - 1]);
    uint32_t v[kBigNumLimbs];
    uint32_t u[kBigNumLimbs + 1];
    for (int32_t i = n - 1; i > 0; --i) {
        v[i] = (mm.limb[i] << s) | (s ? mm.limb[i - 1] >> (32 - s) : 0);
    }
    v[0] = mm.limb[0] << s;
    u[len] = s ? aa.limb[len - 1] >> (32 - s) : 0;
    for (int32_t i = len - 1; i > 0; --i) {
        u[i] = (aa.limb[i] << s) | (s ? aa.limb[i - 1] >> (32 - s) : 0);
    }
    u[0] = aa.limb[0] << s;

    if (n == 1) {
        uint64_t rem = 0;
        for (int32_t i = len; i >= 0; --i) rem = ((rem << 32) | u[i]) % v[0];
        bn_set_u32(r, static_cast<uint32_t>(rem >> s));
        return;
    }
    const uint64_t base = uint64_t{1} << 32;
    for (int32_t j = len - n; j >= 0; --j) {
        // Estimate the quotient limb from the top two limbs, then correct it at most twice.
        const uint64_t num = (uint64_t{u[j + n]} << 32) | u[j + n - 1];
        uint64_t qhat = num / v[n - 1];
        uint64_t rhat = num % v[n - 1];
        while (qhat >= base || qhat * v[n - 2] > ((rhat << 32) | u[j + n - 2])) {
            --qhat;
            rhat += v[n - 1];
            if (rhat >= base) break;
        }
        // Multiply and subtract.
        int64_t borrow = 0;
        uint64_t carry = 0;
        for (int32_t i = 0; i < n; ++i) {
            const uint64_t p = qhat * v[i] + carry;
            carry = p >> 32;
            const int64_t t = int64_t{u[i + j]} - borrow - static_cast<int64_t>(p & 0xFFFFFFFFu);
            u[i + j] = static_cast<uint32_t>(t);
            borrow = t < 0 ? 1 : 0;
        }
        const int64_t t = int64_t{u[j + n]} - borrow - static_cast<int64_t>(carry);
        u[j + n] = static_cast<uint32_t>(t);
        // The estimate was one too large: add the divisor back.
        if (t < 0) {
            uint64_t c = 0;
            for (int32_t i = 0; i < n; ++i) {
                const uint64_t sum = uint64_t{u[i + j]} + v[i] + c;
                u[i + j] = static_cast<uint32_t>(sum);
                c = sum >> 32;
            }
            u[j + n] = static_cast<uint32_t>(uint64_t{u[j + n]} + c);
        }
    }
    // Undo the normalising shift on the remainder.
    BigNum t;
    bn_zero(t);
    for (int32_t i = 0; i < n; ++i) {
        t.limb[i] = (u[i] >> s) | (s ? u[i + 1] << (32 - s) : 0);
    }
    t.count = n;
    bn_normalise(t);
    r = t;
}

void bn_mod_inverse(BigNum& r, const BigNum& a, const BigNum& m) {
    // Binary extended Euclid for an odd modulus: keeps u*x1 = a' and v*x2 = a' invariants mod m
    // (a' the reduced input) while halving u and v.
    BigNum u, v, x1, x2;
    bn_mod(u, a, m);
    if (bn_is_zero(u) || is_even(m)) {
        bn_zero(r);
        return;
    }
    bn_copy(v, m);
    bn_normalise(v);
    bn_set_u32(x1, 1);
    bn_zero(x2);
    while (!is_one(u) && !is_one(v)) {
        if (bn_is_zero(u) || bn_is_zero(v)) {  // gcd(a, m) > 1: no inverse
            bn_zero(r);
            return;
        }
        while (is_even(u)) {
            shift_right_1(u);
            half_mod(x1, m);
        }
        while (is_even(v)) {
            shift_right_1(v);
            half_mod(x2, m);
        }
        if (bn_compare(u, v) >= 0) {
            bn_sub(u, u, v);
            bn_mod_sub(x1, x1, x2, m);
        } else {
            bn_sub(v, v, u);
            bn_mod_sub(x2, x2, x1, m);
        }
    }
    r = is_one(u) ? x1 : x2;
}

void bn_mod_add(BigNum& r, const BigNum& a, const BigNum& b, const BigNum& m) {
    BigNum t;
    bn_add(t, a, b);
    if (bn_compare(t, m) >= 0) bn_sub(t, t, m);
    r = t;
}

void bn_mod_sub(BigNum& r, const BigNum& a, const BigNum& b, const BigNum& m) {
    BigNum t;
    if (bn_compare(a, b) >= 0) {
        bn_sub(t, a, b);
    } else {
        bn_add(t, a, m);
        bn_sub(t, t, b);
    }
    r = t;
}

void bn_mod_mul(BigNum& r, const BigNum& a, const BigNum& b, const BigNum& m) {
    BigNum t;
    bn_mul(t, a, b);
    bn_mod(r, t, m);
}
