// Whole exchanges in the certificate mode that only a registrar can judge: the signature over
// M7's request verifies in certificate modes 1 and 2 (mode 2 with the key of an earlier run), and
// the certificates arrive (the address modes are walked in psk_run_test.cpp). The request's
// layout, the identity lookup, the signed ranges, Certificate Needed 0 and empty lists are pinned
// by hand-built messages in tests/messages. The enrollee's generator is substituted so that its keys repeat (and have no
// leading zero byte: pinned in m7_test.cpp).
#include <gtest/gtest.h>

#include "common/exchange.h"
#include "common/deterministic.h"
#include "wapiwps.h"

namespace {


constexpr std::array<uint8_t, 16> kUuidR = {0x52, 0x45, 0x47, 0x49, 0x53, 0x54, 0x52, 0x41,
                                            0x52, 0x2D, 0x55, 0x55, 0x49, 0x44, 0x2D, 0x31};

class CertExchange : public testing::Test {
protected:
    void SetUp() override { FakeClock::install_repeatable(kGoodClock); }
    void TearDown() override { FakeClock::remove(); }

    static exchange::Options options(uint8_t certificate_mode) {
        exchange::Options o;
        o.wps_mode = WAPIWPS_MODE_WAPI_CERT;
        o.pin = "31415926";
        o.registrar.uuid_r = kUuidR;
        o.registrar.certificate_mode = certificate_mode;
        o.registrar.cert_count = 2;
        o.registrar.cert_list = {0x30, 0x82, 0x01, 0x0A, 0xDE, 0xAD, 0xBE, 0xEF, 0x30, 0x03, 0x01, 0x02, 0x03};
        return o;
    }
    static void expect_delivered(const exchange::Transcript& t, const exchange::Options& o) {
        ASSERT_FALSE(t.registrar_refused) << t.registrar_error;
        EXPECT_EQ(t.last_result(), WAPIWPS_RESULT_SUCCESS);
        EXPECT_TRUE(t.outcome.done_received);
        ASSERT_TRUE(t.m8_done);
        EXPECT_EQ(t.cert_rc, 0);
        EXPECT_EQ(t.cert_uuid_r, kUuidR);
        EXPECT_EQ(t.cert_count, o.registrar.cert_count);
        EXPECT_EQ(t.cert_list, o.registrar.cert_list);
    }

    static constexpr int64_t kGoodClock = 1700000007;   // a key pair without leading zero bytes
};

// Mode 1 without an identity signs the Signing Public Key attribute; mode 2 then signs the whole
// identity with the key that run left behind.
TEST_F(CertExchange, Mode1SignsTheSigningKeyAndMode2TheIdentityWithIt) {
    const exchange::Options o1 = options(1);
    const exchange::Transcript first = exchange::run(o1);
    expect_delivered(first, o1);
    EXPECT_EQ(first.outcome.certificate_needed_m7, 1);
    EXPECT_TRUE(first.outcome.signature_verified);
    EXPECT_EQ(first.outcome.signed_length, 52u);   // the Signing Public Key attribute
    EXPECT_TRUE(first.outcome.certificate_identity.empty());
    ASSERT_EQ(first.outcome.signing_public_key.size(), 48u);
    EXPECT_TRUE(std::equal(first.cert_public_key.begin(), first.cert_public_key.end(),
                           first.outcome.signing_public_key.begin()));

    exchange::Options o = options(2);
    o.identities = {{kUuidR, {}}};
    for (int i = 0; i < 100; ++i) o.identities[0].data.push_back(static_cast<uint8_t>('a' + i % 26));
    o.registrar.known_public_key = first.outcome.signing_public_key;
    const exchange::Transcript t = exchange::run(o);
    expect_delivered(t, o);
    EXPECT_EQ(t.outcome.certificate_needed_m7, 0);
    EXPECT_TRUE(t.outcome.signature_verified);
    EXPECT_EQ(t.outcome.signed_length, 104u);   // the whole identity attribute
    EXPECT_EQ(t.outcome.certificate_identity, o.identities[0].data);
    EXPECT_TRUE(t.outcome.signing_public_key.empty());
}

}  // namespace
