// Curve arithmetic: the fixed-base table against the vectors file and libgcrypt, both scalar
// multipliers against libgcrypt on random scalars and at the edges, the NAF recoding, and the
// point-at-infinity rules of the Jacobian formulas.
#include <gtest/gtest.h>

#include "support.h"

using namespace signing_test;

namespace {

AffinePoint generator() {
    AffinePoint g;
    g.x = curve_params().gx;
    g.y = curve_params().gy;
    g.infinity = 0;
    return g;
}

void expect_same(const AffinePoint& ours, const RefPoint& ref, const std::string& what) {
    ASSERT_EQ(ours.infinity != 0, ref.infinity) << what;
    if (ref.infinity) return;
    ASSERT_EQ(bn_to_hex(ours.x), bn_to_hex(ref.x)) << what;
    ASSERT_EQ(bn_to_hex(ours.y), bn_to_hex(ref.y)) << what;
}

BigNum pow2(int bits) {
    BigNum r;
    bn_zero(r);
    r.limb[bits / 32] = 1u << (bits % 32);
    r.count = bits / 32 + 1;
    return r;
}

}  // namespace

TEST(FixedBaseTable, MatchesTheVectorsFile) {
    const auto& entries = vectors("wapi192_fixed_base_table.json")["entries"].items;
    ASSERT_EQ(entries.size(), kFixedBaseEntries);
    for (const auto& e : entries) {
        const size_t i = static_cast<size_t>(e["i"].number());
        ASSERT_LT(i, kFixedBaseEntries);
        EXPECT_EQ(to_hex(fixed_base_table_entry(i), kFixedBaseEntryBytes),
                  e["stored_48_bytes_le_limbs"].str())
            << "entry " << i;
        if (i == 64) continue;
        EXPECT_EQ(bn_to_hex(fixed_base_point(i)->x), bn_to_hex(bn_hex(e["x"].str()))) << i;
        EXPECT_EQ(bn_to_hex(fixed_base_point(i)->y), bn_to_hex(bn_hex(e["y"].str()))) << i;
    }
    EXPECT_EQ(fixed_base_table_entry(128), nullptr);
    EXPECT_EQ(fixed_base_point(128), nullptr);
}

TEST(FixedBaseTable, EveryEntryRecomputedWithLibgcrypt) {
    const CurveParams& c = curve_params();
    // Entry 0 is G itself; entry 64 is all zeros.
    expect_same(*fixed_base_point(0), ref_mul(pow2(0), c.gx, c.gy), "entry 0");
    for (size_t b = 0; b < kFixedBaseEntryBytes; ++b) EXPECT_EQ(fixed_base_table_entry(64)[b], 0);
    for (size_t i = 1; i < 64; ++i) {
        BigNum k;
        bn_zero(k);
        for (int l = 0; l < 6; ++l) {
            if (i & (size_t{1} << l)) bn_add(k, k, pow2(32 * l));
        }
        expect_same(*fixed_base_point(i), ref_mul(k, c.gx, c.gy), "entry " + std::to_string(i));
        bn_mul(k, k, pow2(16));
        expect_same(*fixed_base_point(64 + i), ref_mul(k, c.gx, c.gy),
                    "entry " + std::to_string(64 + i));
    }
}

TEST(ScalarMul, FixedBaseAgainstLibgcrypt) {
    const CurveParams& c = curve_params();
    std::mt19937_64 rng(0xC0FFEE);
    for (int i = 0; i < loops(500); ++i) {
        // Mostly scalars below n, some with sparse or dense limbs up to 2^192.
        const BigNum k = (i % 4 == 0) ? random_bn(rng, 6) : random_below(rng, c.n);
        AffinePoint ours;
        fixed_base_mul(ours, k);
        expect_same(ours, ref_mul(k, c.gx, c.gy), "k = " + bn_to_hex(k));
    }
}

TEST(ScalarMul, VariableBaseAgainstLibgcrypt) {
    const CurveParams& c = curve_params();
    std::mt19937_64 rng(0xBADC0DE);
    // On G (as key generation uses it) and on other points of the curve.
    for (int i = 0; i < loops(200); ++i) {
        const BigNum k = (i % 4 == 0) ? random_bn(rng, 6) : random_below(rng, c.n);
        const AffinePoint& base = (i % 2) ? *fixed_base_point(1 + i % 63) : generator();
        AffinePoint ours;
        variable_base_mul(ours, k, base);
        expect_same(ours, ref_mul(k, base.x, base.y), "k = " + bn_to_hex(k));
    }
}

TEST(ScalarMul, EdgeScalars) {
    const CurveParams& c = curve_params();
    BigNum one, two, nm1, np1, all_ones;
    bn_set_u32(one, 1);
    bn_set_u32(two, 2);
    bn_sub(nm1, c.n, one);
    bn_add(np1, c.n, one);
    bn_zero(all_ones);
    for (int l = 0; l < 6; ++l) all_ones.limb[l] = 0xFFFFFFFFu;
    all_ones.count = 6;
    const BigNum* edges[] = {&one, &two, &nm1, &c.n, &np1, &all_ones};
    for (const BigNum* k : edges) {
        AffinePoint f, v;
        fixed_base_mul(f, *k);
        variable_base_mul(v, *k, generator());
        const RefPoint ref = ref_mul(*k, c.gx, c.gy);
        expect_same(f, ref, "fixed k = " + bn_to_hex(*k));
        expect_same(v, ref, "variable k = " + bn_to_hex(*k));
    }
    // n*G is the point at infinity for both.
    AffinePoint r;
    fixed_base_mul(r, c.n);
    EXPECT_EQ(r.infinity, 1);
}

TEST(Naf, RecodingMatchesThePublishedDigits) {
    const auto& ex = vectors("ecdsa_wapi192.json")["naf_example"];
    uint32_t words[kNafWords];
    const int32_t n = naf_recode(bn_hex(ex["k"].str()), words);
    ASSERT_GT(n, 0);
    std::string digits;
    bool leading = true;
    for (int32_t w = n - 1; w >= 0; --w) {
        for (int d = 15; d >= 0; --d) {
            const uint32_t v = (words[w] >> (2 * d)) & 3u;
            if (leading && v == 0) continue;
            leading = false;
            EXPECT_NE(v, 2u);
            digits += v == 1 ? '+' : (v == 3 ? '-' : '0');
        }
    }
    EXPECT_EQ(digits, ex["naf_digits_msb_first"].str());
}

TEST(Naf, NoAdjacentNonZeroDigitsAndFinalCarryWord) {
    std::mt19937_64 rng(7);
    for (int i = 0; i < 500; ++i) {
        const BigNum k = random_bn(rng, 6);
        uint32_t words[kNafWords];
        const int32_t n = naf_recode(k, words);
        ASSERT_LE(n, 2 * std::max(k.count, 0) + 1);
        bool prev = false;
        for (int32_t w = 0; w < n; ++w) {
            for (int d = 0; d < 16; ++d) {
                const bool nz = ((words[w] >> (2 * d)) & 3u) != 0;
                ASSERT_FALSE(prev && nz) << bn_to_hex(k);
                prev = nz;
            }
        }
    }
    // All ones in six limbs: 2^192 - 1 = +2^192 - 1 needs the final carry word.
    BigNum ones;
    bn_zero(ones);
    for (int l = 0; l < 6; ++l) ones.limb[l] = 0xFFFFFFFFu;
    ones.count = 6;
    uint32_t words[kNafWords];
    EXPECT_EQ(naf_recode(ones, words), 13);
    EXPECT_EQ(words[12], 1u);
    EXPECT_EQ(words[0], 3u);  // -1 at position 0
    BigNum zero;
    bn_zero(zero);
    EXPECT_EQ(naf_recode(zero, words), 0);
}

TEST(PointArithmetic, InfinityRules) {
    const AffinePoint g = generator();
    JacobianPoint inf;
    bn_zero(inf.X);
    bn_zero(inf.Y);
    bn_zero(inf.Z);
    inf.infinity = 1;
    JacobianPoint r;
    point_double(r, inf);
    EXPECT_EQ(r.infinity, 1);
    point_add_mixed(r, inf, g);  // O + G = G
    AffinePoint a;
    point_to_affine(a, r);
    EXPECT_EQ(a.infinity, 0);
    EXPECT_EQ(bn_compare(a.x, g.x), 0);
    // G + G through the addition equals 2G.
    JacobianPoint jg = r, sum, dbl;
    point_add_mixed(sum, jg, g);
    point_double(dbl, jg);
    AffinePoint as, ad;
    point_to_affine(as, sum);
    point_to_affine(ad, dbl);
    EXPECT_EQ(bn_compare(as.x, ad.x), 0);
    EXPECT_EQ(bn_compare(as.y, ad.y), 0);
    // G + (-G) is infinity.
    AffinePoint neg = g;
    bn_sub(neg.y, curve_params().p, g.y);
    point_add_mixed(sum, jg, neg);
    EXPECT_EQ(sum.infinity, 1);
    point_to_affine(as, sum);
    EXPECT_EQ(as.infinity, 1);
}
