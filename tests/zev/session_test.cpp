// ZEV_OpenSession: the parameter block's checks, the registry of handles, and refusal of
// handles the stand-in never returned by every entry point.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <thread>
#include <vector>

#include "zev.h"
#include "zev/zev_test_util.h"

using namespace zevtest;

namespace {

ZEV_SessionParams recommended() {
    const auto p = curve_params(kRecommendedCurve);
    EXPECT_TRUE(p.has_value());
    return p.value_or(ZEV_SessionParams{});
}

// Big-endian 32-byte v += delta (delta small, no overflow expected).
void add_small(uint8_t* v, int delta) {
    int carry = delta;
    for (int i = 31; i >= 0 && carry != 0; --i) {
        const int sum = v[i] + carry;
        v[i] = static_cast<uint8_t>(sum & 0xFF);
        carry = sum >> 8;  // arithmetic shift keeps a borrow negative
    }
}

TEST(ZevSession, OpensTheRecommendedAndExampleCurvesOnceEach) {
    const ZEV_SessionParams rec = recommended();
    const auto ex = curve_params(kExampleCurve);
    ASSERT_TRUE(ex.has_value());
    void* a = nullptr;
    void* b = nullptr;
    void* c = nullptr;
    ASSERT_EQ(ZEV_OpenSession(&a, &rec), ZEV_OK);
    ASSERT_EQ(ZEV_OpenSession(&b, &rec), ZEV_OK);
    ASSERT_EQ(ZEV_OpenSession(&c, &*ex), ZEV_OK);
    EXPECT_NE(a, nullptr);
    EXPECT_EQ(a, b);  // the same block again: the same session
    EXPECT_NE(a, c);
}

// Only a 64-bit little-endian 6 is a valid count.
TEST(ZevSession, RefusesAnyOtherParameterCount) {
    const uint8_t counts[][8] = {
        {0, 0, 0, 0, 0, 0, 0, 0},
        {5, 0, 0, 0, 0, 0, 0, 0},
        {7, 0, 0, 0, 0, 0, 0, 0},
        {6, 0, 0, 0, 0, 0, 0, 1},
        {6, 1, 0, 0, 0, 0, 0, 0},
        {0, 0, 0, 0, 0, 0, 0, 6},  // big-endian 6
        {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
    };
    for (const auto& count : counts) {
        ZEV_SessionParams p = recommended();
        std::memcpy(p.count, count, sizeof p.count);
        void* handle = &p;  // must survive the refusal
        EXPECT_EQ(ZEV_OpenSession(&handle, &p), ZEV_ERR_PARAM) << to_hex(count, 8);
        EXPECT_EQ(handle, &p);
    }
}

TEST(ZevSession, RefusesNullArguments) {
    const ZEV_SessionParams p = recommended();
    void* handle = nullptr;
    EXPECT_EQ(ZEV_OpenSession(nullptr, &p), ZEV_ERR_PARAM);
    EXPECT_EQ(ZEV_OpenSession(&handle, nullptr), ZEV_ERR_PARAM);
    EXPECT_EQ(handle, nullptr);
}

struct BadCurve {
    const char* name;
    std::function<void(ZEV_SessionParams&)> spoil;
};

// Every spoiled block is refused with ZEV_ERR_PARAM and no handle.
TEST(ZevSession, RefusesUnusableCurves) {
    const std::vector<BadCurve> cases = {
        {"G off the curve", [](ZEV_SessionParams& p) { p.gy[31] ^= 1; }},
        {"G all zero",
         [](ZEV_SessionParams& p) {
             std::memset(p.gx, 0, 32);
             std::memset(p.gy, 0, 32);
         }},
        {"Gx = p (unreduced)", [](ZEV_SessionParams& p) { std::memcpy(p.gx, p.p, 32); }},
        {"p even", [](ZEV_SessionParams& p) { p.p[31] ^= 1; }},
        {"p = 2^256 - 1, composite", [](ZEV_SessionParams& p) { std::memset(p.p, 0xFF, 32); }},
        {"p = 3",
         [](ZEV_SessionParams& p) {
             std::memset(p.p, 0, 32);
             p.p[31] = 3;
         }},
        {"a = p (unreduced)", [](ZEV_SessionParams& p) { std::memcpy(p.a, p.p, 32); }},
        {"b = p + 0 (unreduced)", [](ZEV_SessionParams& p) { std::memcpy(p.b, p.p, 32); }},
        {"singular y^2 = x^3 through (1, 1)",
         [](ZEV_SessionParams& p) {
             std::memset(p.a, 0, 32);
             std::memset(p.b, 0, 32);
             std::memset(p.gx, 0, 32);
             std::memset(p.gy, 0, 32);
             p.gx[31] = 1;
             p.gy[31] = 1;
         }},
        {"n - 1, even", [](ZEV_SessionParams& p) { add_small(p.n, -1); }},
        {"n = 0", [](ZEV_SessionParams& p) { std::memset(p.n, 0, 32); }},
        {"n = 2",
         [](ZEV_SessionParams& p) {
             std::memset(p.n, 0, 32);
             p.n[31] = 2;
         }},
        {"n far below p (cofactor > 1 or wrong)",
         [](ZEV_SessionParams& p) {
             std::memset(p.n, 0, 16);  // 2^128-sized, prime or not: outside the Hasse interval
         }},
    };
    for (const BadCurve& c : cases) {
        ZEV_SessionParams p = recommended();
        c.spoil(p);
        void* handle = nullptr;
        EXPECT_EQ(ZEV_OpenSession(&handle, &p), ZEV_ERR_PARAM) << c.name;
        EXPECT_EQ(handle, nullptr) << c.name;
    }
}

// A prime next to n passes the primality and Hasse checks; only [n']G != O gives it away.
TEST(ZevSession, RefusesAPrimeOrderThatIsNotTheOrderOfG) {
    ZEV_SessionParams p = recommended();
    gcry_mpi_t n = nullptr;
    ASSERT_EQ(gcry_mpi_scan(&n, GCRYMPI_FMT_USG, p.n, 32, nullptr), 0u);
    do {
        gcry_mpi_add_ui(n, n, 2);
    } while (gcry_prime_check(n, 0) != 0);
    size_t written = 0;
    ASSERT_EQ(gcry_mpi_print(GCRYMPI_FMT_USG, p.n, 32, &written, n), 0u);
    ASSERT_EQ(written, 32u);
    gcry_mpi_release(n);
    void* handle = nullptr;
    EXPECT_EQ(ZEV_OpenSession(&handle, &p), ZEV_ERR_PARAM);
}

// Another generator of the same curve is another valid block; the registry holds 16 sessions,
// and the blocks already open keep opening once it is full.
TEST(ZevSession, RegistryFillsUpWithoutLosingOpenSessions) {
    void* rec = open_curve(kRecommendedCurve);
    void* ex = open_curve(kExampleCurve);
    ZEV_SessionParams p = recommended();
    RefCurve curve(p);
    ASSERT_TRUE(curve.ok());
    int opened = 0;
    int32_t rc = ZEV_OK;
    for (uint8_t k = 2; k < 40 && rc == ZEV_OK; ++k) {
        uint8_t scalar[32] = {};
        scalar[31] = k;
        ZEV_SessionParams q = p;
        ASSERT_TRUE(curve.mul(scalar, nullptr, nullptr, q.gx, q.gy));
        void* handle = nullptr;
        rc = ZEV_OpenSession(&handle, &q);
        if (rc == ZEV_OK) ++opened;
    }
    EXPECT_EQ(rc, ZEV_ERR_SESSION);
    EXPECT_LE(opened, 14);
    void* again = nullptr;
    ASSERT_EQ(ZEV_OpenSession(&again, &p), ZEV_OK);
    EXPECT_EQ(again, rec);
    uint8_t digest[32];
    uint32_t len = 0;
    EXPECT_EQ(ZEV_SM3(ex, digest, 0, digest, &len), ZEV_OK);
}

TEST(ZevSession, ConcurrentOpensOfOneBlockShareTheHandle) {
    const ZEV_SessionParams p = recommended();
    void* handles[4] = {};
    std::vector<std::thread> threads;
    for (void*& h : handles) threads.emplace_back([&p, &h] { ZEV_OpenSession(&h, &p); });
    for (std::thread& t : threads) t.join();
    for (void* h : handles) EXPECT_EQ(h, handles[0]);
    EXPECT_NE(handles[0], nullptr);
}

// Handles the stand-in never returned: each entry point says ZEV_ERR_SESSION and writes nothing.
TEST(ZevSession, EveryEntryPointRefusesForeignHandles) {
    void* good = open_curve(kRecommendedCurve);
    ZEV_SessionParams block = recommended();
    int local = 0;
    void* const handles[] = {nullptr,
                             &local,
                             &block,
                             reinterpret_cast<void*>(1),
                             static_cast<uint8_t*>(good) + 1,
                             reinterpret_cast<void*>(~static_cast<uintptr_t>(0))};
    const uint8_t data[16] = {};
    uint8_t id[16] = {};
    ZEV_ECCPrivateKey priv{};
    ZEV_ECCPublicKey pub{};
    ASSERT_EQ(ZEV_SM2_GenerateAgreementDataWithECC(good, &priv, &pub), ZEV_OK);
    for (void* h : handles) {
        SCOPED_TRACE(testing::Message() << "handle " << h);
        uint8_t out[64];
        std::memset(out, 0xAB, sizeof out);
        uint32_t len = 99;
        EXPECT_EQ(ZEV_SM3(h, data, sizeof data, out, &len), ZEV_ERR_SESSION);
        EXPECT_EQ(len, 99u);
        EXPECT_EQ(ZEV_HMAC_SM3(h, data, sizeof data, data, sizeof data, out, 32), ZEV_ERR_SESSION);
        ZEV_ECCPrivateKey new_priv{};
        ZEV_ECCPublicKey new_pub{};
        EXPECT_EQ(ZEV_SM2_GenerateAgreementDataWithECC(h, &new_priv, &new_pub), ZEV_ERR_SESSION);
        EXPECT_EQ(new_priv.bits, 0u);
        ZEV_AgreementOut agreement{};
        agreement.key = out;
        EXPECT_EQ(ZEV_SM2_GenerateKeyWithECC(h, 256, id, 16, id, 16, &priv, &priv, &pub, &pub, &pub,
                                             &agreement),
                  ZEV_ERR_SESSION);
        EXPECT_EQ(ZEV_SM2_GenerateKeyWithECC_Responder(h, 256, id, 16, id, 16, &priv, &priv, &pub,
                                                       &pub, &pub, &agreement),
                  ZEV_ERR_SESSION);
        for (uint8_t b : out) ASSERT_EQ(b, 0xAB);
    }
}

}  // namespace
