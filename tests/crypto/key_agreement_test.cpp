// SM2 key agreement session: the record reset, InitSession's time-seeded nonces, the first key
// pair, and an agreed key that the registrar's side of the exchange reaches too.
#include <gtest/gtest.h>

#include "api/context.h"
#include "crypto/crypto.h"
#include "messages/messages.h"
#include "signing/support.h"
#include "zev.h"

namespace {

using namespace support;
using ref::bytes_of;

TEST(InitSession, DrawsFollowTheSecondOfEachDraw) {
    for (bool tick : {false, true}) {  // within one second, or a second later at every reading
        FakeClock::install(1600000000, tick);
        ASSERT_TRUE(InitSession());
        FakeClock::remove();
        EXPECT_EQ(bytes_of(g_EnrolleeKeys.Nonce, 16), FakeClock::expected_draw(1600000000));
        EXPECT_EQ(bytes_of(g_EnrolleeKeys.SecretNonce1, 16), FakeClock::expected_draw(1600000000 + tick));
        EXPECT_EQ(bytes_of(g_EnrolleeKeys.SecretNonce2, 16), FakeClock::expected_draw(1600000000 + 2 * tick));
        EXPECT_EQ(FakeClock::srand_calls, 3) << "re-seeded before each draw";
        EXPECT_NE(bytes_of(g_EnrolleeKeys.PublicKey, 64), Bytes(64, 0));
        EXPECT_EQ(g_RegistrarKeys.SimpleConfigState, 1) << "both records are reset";
    }
}

TEST(InitSession, FailsWhenTheKeyPairCannotBeMade) {
    void* const saved = g_phSessionHandle;
    g_phSessionHandle = nullptr;  // the library refuses an unknown session
    ref::TraceCapture capture;
    EXPECT_FALSE(InitSession());
    g_phSessionHandle = saved;
    EXPECT_TRUE(capture.has("ZEV_SM2_GenerateAgreementDataWithECC != 0.\r\n"));
    EXPECT_TRUE(capture.has("CreatePubkey faile.\r\n"));
    EXPECT_EQ(bytes_of(g_EnrolleeKeys.PublicKey, 64), Bytes(64, 0)) << "keeps its cleared public key";
}

TEST(ComputerExchangeKey, RegistrarReachesTheSameKey) {
    std::memcpy(g_MyMsgInfo.UUID_E, "enrollee-uuid-16", 16);
    std::memcpy(UUID_R, "registrar-uuid16", 16);
    ASSERT_TRUE(InitSession());
    uint8_t body[kMaxBodyLen];
    uint32_t len = 0;
    ASSERT_TRUE(BuildMessageM1(body, &len));  // makes the temporary pair

    // The registrar's two pairs, and its view of the exchange as the responder.
    ZEV_ECCPrivateKey r_priv{}, r_temp_priv{};
    ZEV_ECCPublicKey r_pub{}, r_temp_pub{}, e_pub{256, {}, {}}, e_temp_pub{256, {}, {}};
    ASSERT_EQ(ZEV_SM2_GenerateAgreementDataWithECC(g_phSessionHandle, &r_priv, &r_pub), 0);
    ASSERT_EQ(ZEV_SM2_GenerateAgreementDataWithECC(g_phSessionHandle, &r_temp_priv, &r_temp_pub), 0);
    for (auto [pub, record] : {std::pair{&r_pub, g_RegistrarKeys.PublicKey},
                               {&r_temp_pub, g_RegistrarKeys.TempPublicKey}}) {
        std::memcpy(record, pub->x, 32);
        std::memcpy(record + 32, pub->y, 32);
    }
    ref::TraceCapture capture;
    ASSERT_EQ(ComputerExchangeKey(), 0);
    EXPECT_TRUE(capture.has("ComputerExchangeKey success.\r\n"));
    for (auto [pub, record] : {std::pair{&e_pub, g_EnrolleeKeys.PublicKey},
                               {&e_temp_pub, g_EnrolleeKeys.TempPublicKey}}) {
        std::memcpy(pub->x, record, 32);
        std::memcpy(pub->y, record + 32, 32);
    }
    uint8_t registrar_key[32] = {};
    ZEV_AgreementOut out{};
    out.key = registrar_key;
    ASSERT_EQ(ZEV_SM2_GenerateKeyWithECC_Responder(g_phSessionHandle, 256, UUID_R, 16,
                                                   g_MyMsgInfo.UUID_E, 16, &r_priv, &r_temp_priv,
                                                   &r_temp_pub, &e_pub, &e_temp_pub, &out),
              0);
    EXPECT_EQ(bytes_of(g_EnrolleeKeys.SharedSecret, 32), bytes_of(registrar_key, 32));
    EXPECT_NE(bytes_of(registrar_key, 32), Bytes(32, 0));
}

TEST(ComputerExchangeKey, ReportsTheLibraryFailure) {
    std::memset(g_RegistrarKeys.PublicKey, 0, 64);  // not a curve point
    std::memset(g_RegistrarKeys.TempPublicKey, 0, 64);
    ref::TraceCapture capture;
    EXPECT_EQ(ComputerExchangeKey(), -1);
    bool found = false;
    for (const auto& l : capture.lines) found |= l.rfind("ZEV_SM2_GenerateKeyWithECC error, ret = ", 0) == 0;
    EXPECT_TRUE(found);
}

}  // namespace
