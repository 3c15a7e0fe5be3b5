// ZEV_SM2_GenerateAgreementDataWithECC: keys in range, public key = [d]G, fresh every call.
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include "zev.h"
#include "zev/zev_test_util.h"

using namespace zevtest;

namespace {

class ZevKeygen : public ::testing::TestWithParam<const char*> {};

// Against libgcrypt directly: 0 < d < n and (x, y) = [d]G, on both curves (the example curve's
// n is well below 2^256, so out-of-range draws are frequent there and must be redrawn).
TEST_P(ZevKeygen, KeysAreInRangeAndMatchTheirPrivateKey) {
    void* handle = open_curve(GetParam());
    const auto params = curve_params(GetParam());
    ASSERT_TRUE(params.has_value());
    RefCurve curve(*params);
    ASSERT_TRUE(curve.ok());
    const uint8_t zero[32] = {};
    std::set<std::string> seen;
    for (int i = 0; i < 32; ++i) {
        ZEV_ECCPrivateKey priv{};
        ZEV_ECCPublicKey pub{};
        ASSERT_EQ(ZEV_SM2_GenerateAgreementDataWithECC(handle, &priv, &pub), ZEV_OK);
        EXPECT_EQ(priv.bits, 256u);
        EXPECT_EQ(pub.bits, 256u);
        EXPECT_NE(0, std::memcmp(priv.K, zero, 32));
        EXPECT_LT(std::memcmp(priv.K, params->n, 32), 0) << to_hex(priv.K, 32);
        uint8_t x[32], y[32];
        ASSERT_TRUE(curve.mul(priv.K, nullptr, nullptr, x, y));
        EXPECT_EQ(to_hex(pub.x, 32) + to_hex(pub.y, 32), to_hex(x, 32) + to_hex(y, 32));
        EXPECT_TRUE(seen.insert(to_hex(priv.K, 32)).second);
    }
}

INSTANTIATE_TEST_SUITE_P(BothCurves, ZevKeygen,
                         ::testing::Values(kRecommendedCurve, kExampleCurve));

TEST(ZevKeygenErrors, NullRecordsAreRefusedWithoutWriting) {
    void* handle = open_curve(kRecommendedCurve);
    ZEV_ECCPrivateKey priv{};
    ZEV_ECCPublicKey pub{};
    EXPECT_EQ(ZEV_SM2_GenerateAgreementDataWithECC(handle, nullptr, &pub), ZEV_ERR_PARAM);
    EXPECT_EQ(ZEV_SM2_GenerateAgreementDataWithECC(handle, &priv, nullptr), ZEV_ERR_PARAM);
    EXPECT_EQ(pub.bits, 0u);
    EXPECT_EQ(priv.bits, 0u);
}

}  // namespace
