// BigNum: conversions with their error codes and the deliberate minimal form, and every
// arithmetic routine against libgcrypt's MPI on random operands.
#include <gtest/gtest.h>

#include <cstring>

#include "signing/signing.h"
#include "support.h"

using namespace signing_test;

namespace {

// a op b through libgcrypt, as a BigNum.
template <typename Fn>
BigNum ref(const BigNum& a, const BigNum& b, Fn fn) {
    gcry_mpi_t ma = to_mpi(a), mb = to_mpi(b), r = gcry_mpi_new(0);
    fn(r, ma, mb);
    BigNum out = from_mpi(r);
    gcry_mpi_release(ma);
    gcry_mpi_release(mb);
    gcry_mpi_release(r);
    return out;
}

bool normalised(const BigNum& a) {
    return a.count == 0 || a.limb[a.count - 1] != 0;
}

class BigNumRandom : public ::testing::Test {
  protected:
    void SetUp() override { gcrypt_init(); }
    std::mt19937_64 rng{0xB16B00B5};
};

}  // namespace

TEST(BigNum, ZeroInBothForms) {
    BigNum z0, z1;
    bn_zero(z0);
    bn_zero(z1);
    z1.count = 1;  // one zero limb: also zero
    EXPECT_TRUE(bn_is_zero(z0));
    EXPECT_TRUE(bn_is_zero(z1));
    EXPECT_EQ(bn_compare(z0, z1), 0);
    const BigNum& p = curve_params().p;
    BigNum inv;
    bn_mod_inverse(inv, z1, p);
    EXPECT_TRUE(bn_is_zero(inv));
    AffinePoint r;
    fixed_base_mul(r, z1);
    EXPECT_EQ(r.infinity, 1);
    variable_base_mul(r, z1, *fixed_base_point(1));
    EXPECT_EQ(r.infinity, 1);
}

TEST(BigNum, BytesRoundTripAndNormalisation) {
    const std::vector<uint8_t> b = from_hex("0000000102030405060708");
    BigNum a;
    ASSERT_TRUE(bn_from_bytes(a, b.data(), b.size()));
    EXPECT_EQ(a.count, 2);  // 8 significant bytes
    EXPECT_EQ(a.limb[0], 0x05060708u);
    EXPECT_EQ(a.limb[1], 0x01020304u);
    // 65 significant bytes do not fit 16 limbs.
    std::vector<uint8_t> big(65, 0xFF);
    EXPECT_FALSE(bn_from_bytes(a, big.data(), big.size()));
    EXPECT_TRUE(bn_is_zero(a));
    // Leading zeros do not count.
    big.insert(big.begin(), 10, 0);
    big.erase(big.begin() + 10);
    EXPECT_TRUE(bn_from_bytes(a, big.data(), big.size()));
    EXPECT_EQ(a.count, 16);
}

TEST(BigNum, LimbsCountIsClampedAndNormalised) {
    const uint32_t limbs[20] = {7, 0, 0};
    BigNum a;
    bn_from_limbs(a, limbs, 3);
    EXPECT_EQ(a.count, 1);
    bn_from_limbs(a, limbs, -4);
    EXPECT_EQ(a.count, 0);
    bn_from_limbs(a, limbs, 1000);
    EXPECT_EQ(a.count, 1);
    bn_from_limbs(a, nullptr, 3);
    EXPECT_TRUE(bn_is_zero(a));
}

TEST(BigNum, FixedWidthConversionCodes) {
    const BigNum v = bn_hex("0102030405");
    uint8_t out[8];
    std::memset(out, 0xEE, sizeof out);
    EXPECT_EQ(bn_to_bytes_fixed(v, out, 8, kBnByteBound), kBnOk);
    EXPECT_EQ(to_hex(out, 8), "0000000102030405");
    std::memset(out, 0xEE, sizeof out);
    EXPECT_EQ(bn_to_bytes_fixed(v, out, 4, kBnByteBound), kBnErrWidth);  // does not fit width
    EXPECT_EQ(to_hex(out, 8), "EEEEEEEEEEEEEEEE");                       // nothing written
    EXPECT_EQ(bn_to_bytes_fixed(v, out, 4, 4), kBnErrAboveBound);        // above the bound first
    BigNum zero;
    bn_zero(zero);
    EXPECT_EQ(bn_to_bytes_fixed(zero, out, 3, kBnByteBound), kBnOk);
    EXPECT_EQ(to_hex(out, 3), "000000");
}

TEST(BigNum, MinimalConversionIsLeftAlignedAndLeavesTheRest) {
    const BigNum v = bn_hex("00ABCDEF");
    uint8_t out[6] = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66};
    size_t n = 99;
    EXPECT_EQ(bn_to_bytes_minimal(v, out, kBnByteBound, &n), kBnOk);
    EXPECT_EQ(n, 3u);
    EXPECT_EQ(to_hex(out, 6), "ABCDEF445566");
    EXPECT_EQ(bn_to_bytes_minimal(v, out, 2, &n), kBnErrAboveBound);
    BigNum zero;
    bn_zero(zero);
    EXPECT_EQ(bn_to_bytes_minimal(zero, out, kBnByteBound, &n), kBnOk);
    EXPECT_EQ(n, 0u);
}

TEST(BigNum, BytesToLimbs) {
    const std::vector<uint8_t> key = from_hex("007401071FA3AFE99F5AD73F5A366C9D8881F9C62E258B2B");
    uint32_t limbs[6] = {};
    EXPECT_EQ(bytes_to_limbs(key.data(), key.size(), limbs, 6), 6);
    EXPECT_EQ(limbs[0], 0x2E258B2Bu);
    EXPECT_EQ(limbs[5], 0x00740107u);
    // Leading zero bytes need no room; significant bytes beyond the room fail and write nothing.
    uint32_t two[2] = {0xAAAAAAAAu, 0xAAAAAAAAu};
    const std::vector<uint8_t> small = from_hex("0000000000000000000000010203");
    EXPECT_EQ(bytes_to_limbs(small.data(), small.size(), two, 2), 1);
    EXPECT_EQ(two[0], 0x00010203u);
    two[0] = 0xAAAAAAAAu;
    EXPECT_EQ(bytes_to_limbs(key.data(), key.size(), two, 2), -1);
    EXPECT_EQ(two[0], 0xAAAAAAAAu);
    EXPECT_EQ(bytes_to_limbs(nullptr, 4, two, 2), -1);
    EXPECT_EQ(bytes_to_limbs(nullptr, 0, nullptr, 0), 0);
    const uint8_t zeros[24] = {};
    EXPECT_EQ(bytes_to_limbs(zeros, 24, limbs, 6), 0);
}

TEST_F(BigNumRandom, AddSubCompareMulAgainstLibgcrypt) {
    for (int i = 0; i < loops(500); ++i) {
        const BigNum a = random_bn(rng, 7), b = random_bn(rng, 7);
        BigNum r;
        bn_add(r, a, b);
        ASSERT_TRUE(normalised(r));
        ASSERT_EQ(bn_to_hex(r), bn_to_hex(ref(a, b, gcry_mpi_add)));
        const bool a_ge = bn_compare(a, b) >= 0;
        gcry_mpi_t ma = to_mpi(a), mb = to_mpi(b);
        const int c = gcry_mpi_cmp(ma, mb);
        gcry_mpi_release(ma);
        gcry_mpi_release(mb);
        ASSERT_EQ(bn_compare(a, b), c < 0 ? -1 : (c > 0 ? 1 : 0));
        bn_sub(r, a_ge ? a : b, a_ge ? b : a);
        ASSERT_TRUE(normalised(r));
        ASSERT_EQ(bn_to_hex(r),
                  bn_to_hex(a_ge ? ref(a, b, gcry_mpi_sub) : ref(b, a, gcry_mpi_sub)));
        bn_mul(r, a, b);
        ASSERT_TRUE(normalised(r));
        ASSERT_EQ(bn_to_hex(r), bn_to_hex(ref(a, b, gcry_mpi_mul)));
    }
}

TEST_F(BigNumRandom, ModAgainstLibgcrypt) {
    for (int i = 0; i < loops(500); ++i) {
        const BigNum a = random_bn(rng, 12);
        BigNum m = random_bn(rng, 7);
        if (bn_is_zero(m)) continue;
        BigNum r;
        bn_mod(r, a, m);
        ASSERT_TRUE(normalised(r));
        ASSERT_EQ(bn_to_hex(r), bn_to_hex(ref(a, m, gcry_mpi_mod)))
            << bn_to_hex(a) << " mod " << bn_to_hex(m);
        // Aliased output.
        BigNum x = a;
        bn_mod(x, x, m);
        ASSERT_EQ(bn_compare(x, r), 0);
    }
}

TEST_F(BigNumRandom, ModCornersWithQuotientCorrection) {
    // Dividends made of all-ones and all-zero limbs drive the quotient estimate to its
    // correction and add-back paths.
    const BigNum& p = curve_params().p;
    const BigNum& n = curve_params().n;
    const BigNum* moduli[] = {&p, &n};
    for (const BigNum* m : moduli) {
        for (int i = 0; i < 500; ++i) {
            BigNum a = random_bn(rng, 12);
            BigNum mm = *m;
            if (i % 3 == 0) {  // a = q*m - small
                BigNum q = random_bn(rng, 6), small = random_bn(rng, 1);
                bn_mul(a, q, mm);
                if (bn_compare(a, small) >= 0) bn_sub(a, a, small);
            }
            BigNum r;
            bn_mod(r, a, mm);
            ASSERT_EQ(bn_to_hex(r), bn_to_hex(ref(a, mm, gcry_mpi_mod)));
        }
    }
    BigNum zero, r;
    bn_zero(zero);
    bn_mod(r, p, zero);  // a zero modulus gives zero, not a trap
    EXPECT_TRUE(bn_is_zero(r));
}

TEST_F(BigNumRandom, ModularInverseAgainstLibgcrypt) {
    const BigNum& p = curve_params().p;
    const BigNum& n = curve_params().n;
    for (int i = 0; i < loops(500); ++i) {
        const BigNum& m = (i % 2) ? p : n;
        const BigNum a = random_bn(rng, 7);
        BigNum r;
        bn_mod_inverse(r, a, m);
        BigNum am;
        bn_mod(am, a, m);
        if (bn_is_zero(am)) {
            ASSERT_TRUE(bn_is_zero(r));
            continue;
        }
        gcry_mpi_t ma = to_mpi(a), mm = to_mpi(m), inv = gcry_mpi_new(0);
        ASSERT_TRUE(gcry_mpi_invm(inv, ma, mm));
        ASSERT_EQ(bn_to_hex(r), bn_to_hex(from_mpi(inv)));
        gcry_mpi_release(ma);
        gcry_mpi_release(mm);
        gcry_mpi_release(inv);
    }
    // Small odd modulus with a shared factor: no inverse, reported as zero.
    BigNum nine, three, r;
    bn_set_u32(nine, 9);
    bn_set_u32(three, 6);
    bn_mod_inverse(r, three, nine);
    EXPECT_TRUE(bn_is_zero(r));
    // n itself and multiples of n have no inverse mod n.
    bn_mod_inverse(r, n, n);
    EXPECT_TRUE(bn_is_zero(r));
}

TEST_F(BigNumRandom, ModMulThroughThePointerAgainstLibgcrypt) {
    const BigNum& p = curve_params().p;
    ModMulFn mul = curve_mod_mul();
    ASSERT_NE(mul, nullptr);
    for (int i = 0; i < loops(500); ++i) {
        const BigNum a = random_below(rng, p), b = random_below(rng, p);
        BigNum r;
        mul(r, a, b);
        gcry_mpi_t ma = to_mpi(a), mb = to_mpi(b), mp = to_mpi(p), mr = gcry_mpi_new(0);
        gcry_mpi_mulm(mr, ma, mb, mp);
        ASSERT_EQ(bn_to_hex(r), bn_to_hex(from_mpi(mr)));
        for (gcry_mpi_t m : {ma, mb, mp, mr}) gcry_mpi_release(m);
    }
}
