// BigNum: conversions with their error codes and the deliberate minimal form, and every
// arithmetic routine against libgcrypt's MPI on random operands.
#include <gtest/gtest.h>

#include <cstring>

#include "signing/signing.h"
#include "support.h"

using namespace support;

namespace {

bool normalised(const BigNum& a) {
    return a.count == 0 || a.limb[a.count - 1] != 0;
}

}  // namespace

TEST(BigNum, ZeroInBothForms) {
    BigNum z0, z1;
    bn_zero(z0);
    bn_zero(z1);
    z1.count = 1;  // one zero limb: also zero
    EXPECT_TRUE(bn_is_zero(z1));
    EXPECT_EQ(bn_compare(z0, z1), 0);
    BigNum inv;
    bn_mod_inverse(inv, z1, curve_params().p);
    EXPECT_TRUE(bn_is_zero(inv));
    AffinePoint r;
    fixed_base_mul(r, z1);
    EXPECT_EQ(r.infinity, 1);
    variable_base_mul(r, z1, *fixed_base_point(1));
    EXPECT_EQ(r.infinity, 1);
}

TEST(BigNum, BytesAndLimbsIn) {
    BigNum a;
    const Bytes b = hex("0000000102030405060708");
    ASSERT_TRUE(bn_from_bytes(a, b.data(), b.size()));
    EXPECT_EQ(a.count, 2);  // 8 significant bytes
    EXPECT_EQ(a.limb[1], 0x01020304u);
    Bytes big(65, 0xFF);  // 65 significant bytes do not fit 16 limbs
    EXPECT_FALSE(bn_from_bytes(a, big.data(), big.size()));
    EXPECT_TRUE(bn_is_zero(a));
    big[0] = 0;  // leading zeros do not count
    EXPECT_TRUE(bn_from_bytes(a, big.data(), big.size()));
    EXPECT_EQ(a.count, 16);
    const uint32_t limbs[20] = {7, 0, 0};
    bn_from_limbs(a, limbs, 3);
    EXPECT_EQ(a.count, 1);
    bn_from_limbs(a, limbs, -4);
    EXPECT_EQ(a.count, 0);
    bn_from_limbs(a, limbs, 1000);
    EXPECT_EQ(a.count, 1);
    bn_from_limbs(a, nullptr, 3);
    EXPECT_TRUE(bn_is_zero(a));
}

TEST(BigNum, BytesOutWithTheirCodes) {
    const BigNum v = bn_hex("0102030405");
    uint8_t out[8];
    std::memset(out, 0xEE, sizeof out);
    EXPECT_EQ(bn_to_bytes_fixed(v, out, 4, kBnByteBound), kBnErrWidth);
    EXPECT_EQ(to_hex(out, 8), "EEEEEEEEEEEEEEEE");                 // nothing written
    EXPECT_EQ(bn_to_bytes_fixed(v, out, 4, 4), kBnErrAboveBound);  // the bound is checked first
    EXPECT_EQ(bn_to_bytes_fixed(v, out, 8, kBnByteBound), kBnOk);
    EXPECT_EQ(to_hex(out, 8), "0000000102030405");
    // The minimal form is left-aligned and leaves the rest; a refusal reports nothing written.
    uint8_t min[6] = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66};
    size_t n = 99;
    EXPECT_EQ(bn_to_bytes_minimal(bn_hex("00ABCDEF"), min, kBnByteBound, &n), kBnOk);
    EXPECT_EQ(n, 3u);
    EXPECT_EQ(to_hex(min, 6), "ABCDEF445566");
    EXPECT_EQ(bn_to_bytes_minimal(v, min, 2, &n), kBnErrAboveBound);
    EXPECT_EQ(n, 0u);
    EXPECT_EQ(to_hex(min, 6), "ABCDEF445566");
}

TEST(BigNum, BytesToLimbs) {
    const Bytes key = hex("007401071FA3AFE99F5AD73F5A366C9D8881F9C62E258B2B");
    uint32_t limbs[6] = {};
    EXPECT_EQ(bytes_to_limbs(key.data(), key.size(), limbs, 6), 6);
    EXPECT_EQ(limbs[0], 0x2E258B2Bu);
    EXPECT_EQ(limbs[5], 0x00740107u);
    // Leading zero bytes need no room; significant bytes beyond the room fail and write nothing.
    uint32_t two[2] = {0xAAAAAAAAu, 0xAAAAAAAAu};
    EXPECT_EQ(bytes_to_limbs(key.data(), key.size(), two, 2), -1);
    EXPECT_EQ(two[0], 0xAAAAAAAAu);
    const Bytes small = hex("0000000000000000000000010203");
    EXPECT_EQ(bytes_to_limbs(small.data(), small.size(), two, 2), 1);
    EXPECT_EQ(two[0], 0x00010203u);
    EXPECT_EQ(bytes_to_limbs(nullptr, 4, two, 2), -1);
    EXPECT_EQ(bytes_to_limbs(nullptr, 0, nullptr, 0), 0);
    two[0] = 0;  // all-zero bytes give no limbs, and nothing below the output is read
    EXPECT_EQ(bytes_to_limbs(Bytes(24, 0).data(), 24, two + 1, 1), 0);
}

TEST(BigNum, ArithmeticAgainstLibgcrypt) {
    std::mt19937_64 rng(0xB16B00B5);
    const BigNum& p = curve_params().p;
    const BigNum& n = curve_params().n;
    for (int i = 0; i < 300; ++i) {
        const BigNum a = random_bn(rng, 7), b = random_bn(rng, 7);
        BigNum r;
        bn_add(r, a, b);
        ASSERT_TRUE(normalised(r));
        Mpi ref;
        gcry_mpi_add(ref, Mpi(a), Mpi(b));
        ASSERT_EQ(bn_to_hex(r), bn_to_hex(ref.bn()));
        const int c = gcry_mpi_cmp(Mpi(a), Mpi(b));
        ASSERT_EQ(bn_compare(a, b), c < 0 ? -1 : (c > 0 ? 1 : 0));
        const BigNum& hi = c >= 0 ? a : b;
        const BigNum& lo = c >= 0 ? b : a;
        bn_sub(r, hi, lo);
        ASSERT_TRUE(normalised(r));
        gcry_mpi_sub(ref, Mpi(hi), Mpi(lo));
        ASSERT_EQ(bn_to_hex(r), bn_to_hex(ref.bn()));
        bn_mul(r, a, b);
        ASSERT_TRUE(normalised(r));
        gcry_mpi_mul(ref, Mpi(a), Mpi(b));
        ASSERT_EQ(bn_to_hex(r), bn_to_hex(ref.bn()));
        // Modular inverse alternately mod p and mod n; no inverse is reported as zero.
        const BigNum& m = (i % 2) ? p : n;
        bn_mod_inverse(r, a, m);
        if (!gcry_mpi_invm(ref, Mpi(a), Mpi(m))) gcry_mpi_set_ui(ref, 0);
        ASSERT_EQ(bn_to_hex(r), bn_to_hex(ref.bn())) << bn_to_hex(a);
        // Modular multiplication through the curve's pointer.
        const BigNum x = random_below(rng, p), y = random_below(rng, p);
        curve_mod_mul()(r, x, y);
        gcry_mpi_mulm(ref, Mpi(x), Mpi(y), Mpi(p));
        ASSERT_EQ(bn_to_hex(r), bn_to_hex(ref.bn()));
    }
    BigNum r, six, nine;
    bn_set_u32(six, 6);
    bn_set_u32(nine, 9);
    bn_mod_inverse(r, six, nine);  // shared factor with an odd modulus: no inverse
    EXPECT_TRUE(bn_is_zero(r));
    bn_mod_inverse(r, n, n);
    EXPECT_TRUE(bn_is_zero(r));
}

TEST(BigNum, ModAgainstLibgcrypt) {
    // Random moduli, and p and n with dividends of all-ones and all-zero limbs or just below a
    // multiple, which drive the quotient estimate to its correction and add-back paths.
    std::mt19937_64 rng(0xB16B00B5);
    for (int i = 0; i < 900; ++i) {
        BigNum a = random_bn(rng, 12), m = random_bn(rng, 7);
        if (i % 3 != 0) m = (i % 3 == 1) ? curve_params().p : curve_params().n;
        if (bn_is_zero(m)) continue;
        if (i % 6 == 1) {  // a = q*m - small
            BigNum q = random_bn(rng, 6), small = random_bn(rng, 1);
            bn_mul(a, q, m);
            if (bn_compare(a, small) >= 0) bn_sub(a, a, small);
        }
        BigNum r = a;
        bn_mod(r, i % 2 ? r : a, m);  // aliased output every other time
        ASSERT_TRUE(normalised(r));
        Mpi ref;
        gcry_mpi_mod(ref, Mpi(a), Mpi(m));
        ASSERT_EQ(bn_to_hex(r), bn_to_hex(ref.bn())) << bn_to_hex(a) << " mod " << bn_to_hex(m);
    }
    BigNum zero, r;
    bn_zero(zero);
    bn_mod(r, curve_params().p, zero);  // a zero modulus gives zero, not a trap
    EXPECT_TRUE(bn_is_zero(r));
}
