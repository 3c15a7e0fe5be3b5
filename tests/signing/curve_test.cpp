// Curve arithmetic: the fixed-base table against the vectors file, both scalar multipliers
// against libgcrypt on random scalars and at the edges, the NAF recoding, and the
// point-at-infinity rules of the Jacobian formulas.
#include <gtest/gtest.h>

#include "support.h"

using namespace support;

namespace {

const AffinePoint& generator() {
    return *fixed_base_point(0);
}

void expect_same(const AffinePoint& ours, const RefPoint& ref, const std::string& what) {
    ASSERT_EQ(ours.infinity != 0, ref.infinity) << what;
    if (ref.infinity) return;
    ASSERT_EQ(bn_to_hex(ours.x), bn_to_hex(ref.x)) << what;
    ASSERT_EQ(bn_to_hex(ours.y), bn_to_hex(ref.y)) << what;
}

}  // namespace

TEST(FixedBaseTable, MatchesTheVectorsFile) {
    const auto& doc = vectors("wapi192_fixed_base_table.json");
    const auto& entries = doc.at("entries");
    ASSERT_EQ(entries.size(), kFixedBaseEntries);
    for (const auto& e : entries) {
        const size_t i = static_cast<size_t>(e.at("i").get<size_t>());
        ASSERT_LT(i, kFixedBaseEntries);
        EXPECT_EQ(to_hex(fixed_base_table_entry(i), kFixedBaseEntryBytes),
                  e.at("stored_48_bytes_le_limbs").get<std::string>())
            << "entry " << i;
        if (i == 64) continue;
        EXPECT_EQ(bn_to_hex(fixed_base_point(i)->x), bn_to_hex(bn_hex(e.at("x").get<std::string>()))) << i;
        EXPECT_EQ(bn_to_hex(fixed_base_point(i)->y), bn_to_hex(bn_hex(e.at("y").get<std::string>()))) << i;
    }
    EXPECT_EQ(fixed_base_table_entry(128), nullptr);
    EXPECT_EQ(fixed_base_point(128), nullptr);
}

TEST(ScalarMul, BothMultipliersAgainstLibgcrypt) {
    const CurveParams& c = curve_params();
    BigNum one, two, nm1, np1, ones;
    bn_set_u32(one, 1);
    bn_set_u32(two, 2);
    bn_sub(nm1, c.n, one);
    bn_add(np1, c.n, one);
    bn_from_bytes(ones, Bytes(24, 0xFF).data(), 24);
    std::vector<BigNum> ks = {one, two, nm1, c.n, np1, ones};
    // Mostly scalars below n, some with sparse or dense limbs up to 2^192.
    std::mt19937_64 rng(0xC0FFEE);
    for (int i = 0; i < 200; ++i) ks.push_back(i % 4 ? random_below(rng, c.n) : random_bn(rng, 6));
    for (size_t i = 0; i < ks.size(); ++i) {
        const BigNum& k = ks[i];
        AffinePoint f, v;
        fixed_base_mul(f, k);
        expect_same(f, ref_mul(k, c.gx, c.gy), "fixed k = " + bn_to_hex(k));
        // On G (as key generation uses it) and on other points of the curve.
        const AffinePoint& base = (i % 2) ? *fixed_base_point(1 + i % 63) : generator();
        variable_base_mul(v, k, base);
        expect_same(v, ref_mul(k, base.x, base.y), "variable k = " + bn_to_hex(k));
    }
}

TEST(Naf, RecodingMatchesThePublishedDigits) {
    const auto& ex = vectors("ecdsa_wapi192.json").at("naf_example");
    uint32_t words[kNafWords];
    const int32_t n = naf_recode(bn_hex(ex.at("k").get<std::string>()), words);
    ASSERT_GT(n, 0);
    std::string digits;
    for (int32_t w = n - 1; w >= 0; --w) {
        for (int d = 15; d >= 0; --d) {
            const uint32_t v = (words[w] >> (2 * d)) & 3u;
            if (digits.empty() && v == 0) continue;
            digits += "+0-"[v == 1 ? 0 : (v == 3 ? 2 : 1)];
            EXPECT_NE(v, 2u);
        }
    }
    EXPECT_EQ(digits, ex.at("naf_digits_msb_first").get<std::string>());
}

TEST(Naf, NoAdjacentNonZeroDigitsAndFinalCarryWord) {
    std::mt19937_64 rng(7);
    uint32_t words[kNafWords];
    for (int i = 0; i < 300; ++i) {
        const BigNum k = random_bn(rng, 6);
        const int32_t n = naf_recode(k, words);
        ASSERT_LE(n, 2 * std::max(k.count, 0) + 1);
        bool prev = false;
        for (int32_t d = 0; d < 16 * n; ++d) {
            const bool nz = ((words[d / 16] >> (2 * (d % 16))) & 3u) != 0;
            ASSERT_FALSE(prev && nz) << bn_to_hex(k);
            prev = nz;
        }
    }
    // 2^192 - 1 = +2^192 - 1 needs the final carry word.
    BigNum ones;
    bn_from_bytes(ones, Bytes(24, 0xFF).data(), 24);
    EXPECT_EQ(naf_recode(ones, words), 13);
    EXPECT_EQ(words[12], 1u);
    EXPECT_EQ(words[0], 3u);  // -1 at position 0
    bn_zero(ones);
    EXPECT_EQ(naf_recode(ones, words), 0);
}

TEST(PointArithmetic, InfinityRules) {
    const AffinePoint& g = generator();
    JacobianPoint inf{}, r, sum, dbl;
    inf.infinity = 1;
    point_double(r, inf);
    EXPECT_EQ(r.infinity, 1);
    point_add_mixed(r, inf, g);  // O + G = G
    AffinePoint a, ad;
    point_to_affine(a, r);
    EXPECT_EQ(a.infinity, 0);
    EXPECT_EQ(bn_compare(a.x, g.x), 0);
    // G + G through the addition equals 2G.
    point_add_mixed(sum, r, g);
    point_double(dbl, r);
    point_to_affine(a, sum);
    point_to_affine(ad, dbl);
    EXPECT_EQ(bn_compare(a.x, ad.x), 0);
    EXPECT_EQ(bn_compare(a.y, ad.y), 0);
    // G + (-G) is infinity.
    AffinePoint neg = g;
    bn_sub(neg.y, curve_params().p, g.y);
    point_add_mixed(sum, r, neg);
    EXPECT_EQ(sum.infinity, 1);
    point_to_affine(a, sum);
    EXPECT_EQ(a.infinity, 1);
}
