// Whole exchanges in the certificate mode that only a registrar can judge: the signature over
// M7's request verifies in certificate modes 1 and 2 (mode 2 with the key of an earlier run), and
// the certificates arrive (the address modes are walked in psk_run_test.cpp). The request's
// layout, the identity lookup, the signed ranges, Certificate Needed 0 and empty lists are pinned
// by hand-built messages in tests/messages. The enrollee's generator is substituted so that its
// keys repeat (and have no leading zero byte: pinned in m7_test.cpp).
#include <gtest/gtest.h>

#include "common/deterministic.h"
#include "common/exchange.h"
#include "wapiwps.h"

namespace {

class CertExchange : public testing::Test {
protected:
    void SetUp() override { FakeClock::install_repeatable(kGoodClock); }
    void TearDown() override { FakeClock::remove(); }

    static void expect_delivered(const exchange::Transcript& t, const exchange::Options& o) {
        ASSERT_FALSE(t.registrar_refused) << t.registrar_error;
        EXPECT_EQ(t.last_result(), WAPIWPS_RESULT_SUCCESS);
        EXPECT_TRUE(t.outcome.done_received);
        ASSERT_TRUE(t.m8_done);
        EXPECT_EQ(t.cert_rc, 0);
        EXPECT_EQ(t.cert_uuid_r, exchange::kUuidR);
        EXPECT_EQ(t.cert_count, o.registrar.cert_count);
        EXPECT_EQ(t.cert_list, o.registrar.cert_list);
    }

    static constexpr int64_t kGoodClock = 1700000007;   // a key pair without leading zero bytes
};

// Mode 1 without an identity signs the Signing Public Key attribute; mode 2 then signs the whole
// identity with the key that run left behind.
TEST_F(CertExchange, Mode1SignsTheSigningKeyAndMode2TheIdentityWithIt) {
    const exchange::Options o1 = exchange::cert_run(1);
    const exchange::Transcript first = exchange::run(o1);
    expect_delivered(first, o1);
    EXPECT_EQ(first.outcome.certificate_needed_m7, 1);
    EXPECT_TRUE(first.outcome.signature_verified);
    EXPECT_EQ(first.outcome.signed_length, 52u);   // the Signing Public Key attribute
    EXPECT_TRUE(first.outcome.certificate_identity.empty());
    ASSERT_EQ(first.outcome.signing_public_key.size(), 48u);
    EXPECT_TRUE(std::equal(first.cert_public_key.begin(), first.cert_public_key.end(),
                           first.outcome.signing_public_key.begin()));

    const exchange::Options o = exchange::cert_run(2, first.outcome.signing_public_key);
    const exchange::Transcript t = exchange::run(o);
    expect_delivered(t, o);
    EXPECT_EQ(t.outcome.certificate_needed_m7, 0);
    EXPECT_TRUE(t.outcome.signature_verified);
    EXPECT_EQ(t.outcome.signed_length, 104u);   // the whole identity attribute
    EXPECT_EQ(t.outcome.certificate_identity, o.identities[0].data);
    EXPECT_TRUE(t.outcome.signing_public_key.empty());
}

}  // namespace
