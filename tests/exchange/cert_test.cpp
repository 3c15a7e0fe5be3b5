// Whole exchanges in the certificate mode: certificate modes 1 and 2, with and without a
// registered identity, Certificate Needed 0. The enrollee's generator is substituted so that its
// keys repeat (and have no leading zero byte: that quirk is pinned in tests/messages/m7_test.cpp).
#include <gtest/gtest.h>

#include "common/exchange.h"
#include "common/deterministic.h"
#include "wapiwps.h"

namespace {

using exchange::Bytes;

constexpr std::array<uint8_t, 16> kUuidR = {0x52, 0x45, 0x47, 0x49, 0x53, 0x54, 0x52, 0x41,
                                            0x52, 0x2D, 0x55, 0x55, 0x49, 0x44, 0x2D, 0x31};

class CertExchange : public testing::Test {
protected:
    void SetUp() override { testdet::make_deterministic(kGoodBase); }
    void TearDown() override { testdet::restore_randomness(); }

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
    static exchange::Identity identity_for(const std::array<uint8_t, 16>& uuid, size_t len) {
        exchange::Identity id;
        id.uuid = uuid;
        for (size_t i = 0; i < len; ++i) id.data.push_back(static_cast<uint8_t>('a' + i % 26));
        return id;
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

    static constexpr uint32_t kGoodBase = 7;   // a key pair without leading zero bytes
};

TEST_F(CertExchange, Mode1WithoutIdentitySignsTheSigningKey) {
    const exchange::Options o = options(1);
    const exchange::Transcript t = exchange::run(o);
    expect_delivered(t, o);
    EXPECT_EQ(t.outcome.certificate_needed_m7, 1);
    EXPECT_TRUE(t.outcome.signature_verified);
    EXPECT_EQ(t.outcome.signed_length, 52u);   // the Signing Public Key attribute
    EXPECT_TRUE(t.outcome.certificate_identity.empty());
    ASSERT_EQ(t.outcome.signing_public_key.size(), 48u);
    EXPECT_TRUE(std::equal(t.cert_public_key.begin(), t.cert_public_key.end(), t.outcome.signing_public_key.begin()));
}

TEST_F(CertExchange, Mode1WithIdentitySoftwareSignsOnlyTheKey) {
    exchange::Options o = options(1);
    o.identities = {identity_for({}, 10), identity_for(kUuidR, 37)};
    const exchange::Transcript t = exchange::run(o);
    expect_delivered(t, o);
    EXPECT_EQ(t.outcome.certificate_needed_m7, 0);
    EXPECT_TRUE(t.outcome.signature_verified);
    EXPECT_EQ(t.outcome.signed_length, 52u);
    // Count 1 and the length, both big-endian, then the registered bytes.
    Bytes expected = {0x00, 0x01, 0x00, 37};
    expected.insert(expected.end(), o.identities[1].data.begin(), o.identities[1].data.end());
    EXPECT_EQ(t.outcome.certificate_identity, expected);
}

TEST_F(CertExchange, Mode2WithIdentitySignsItWithTheEarlierKey) {
    const exchange::Transcript first = exchange::run(options(1));
    expect_delivered(first, options(1));
    ASSERT_TRUE(first.outcome.signature_verified);

    exchange::Options o = options(2);
    o.identities = {identity_for(kUuidR, 100)};
    o.registrar.known_public_key = first.outcome.signing_public_key;
    const exchange::Transcript t = exchange::run(o);
    expect_delivered(t, o);
    EXPECT_EQ(t.outcome.certificate_needed_m7, 0);
    EXPECT_TRUE(t.outcome.signature_verified);
    EXPECT_EQ(t.outcome.signed_length, 104u);   // the whole identity attribute
    EXPECT_EQ(t.outcome.certificate_identity, o.identities[0].data);
    EXPECT_TRUE(t.outcome.signing_public_key.empty());
}

TEST_F(CertExchange, Mode2WithAnotherKeyIsRefused) {
    exchange::Options o = options(2);
    o.identities = {identity_for(kUuidR, 20)};
    o.registrar.known_public_key = Bytes(48, 0x01);
    const exchange::Transcript t = exchange::run(o);
    EXPECT_TRUE(t.registrar_refused);
    EXPECT_NE(t.registrar_error.find("Identity Signature does not verify"), std::string::npos);
    EXPECT_FALSE(t.m8_done);
}

TEST_F(CertExchange, Mode2WithoutIdentitySendsAnEmptyRequest) {
    const exchange::Options o = options(2);
    const exchange::Transcript t = exchange::run(o);
    expect_delivered(t, o);
    EXPECT_EQ(t.outcome.certificate_needed_m7, 1);
    EXPECT_FALSE(t.outcome.signature_verified);
    EXPECT_EQ(t.outcome.signed_length, 0u);
    EXPECT_TRUE(t.outcome.signing_public_key.empty());
    EXPECT_TRUE(t.outcome.certificate_identity.empty());
}

TEST_F(CertExchange, CertificateNeeded0DeliversNothing) {
    exchange::Options o = options(1);
    o.registrar.certificate_needed = 0;
    const exchange::Transcript t = exchange::run(o);
    ASSERT_FALSE(t.registrar_refused) << t.registrar_error;
    EXPECT_EQ(t.last_result(), WAPIWPS_RESULT_SUCCESS);
    EXPECT_TRUE(t.has_trace("No need new cert."));
    EXPECT_EQ(t.cert_rc, 1);
}

TEST_F(CertExchange, EmptyCertificateListCarriesOnlyTheCount) {
    exchange::Options o = options(1);
    o.registrar.cert_list.clear();
    o.registrar.cert_count = 0;
    const exchange::Transcript t = exchange::run(o);
    expect_delivered(t, o);
    EXPECT_TRUE(t.cert_list.empty());
}

// The certificate mode in the other address modes: the key schedule takes M1's address (6 bytes
// for IPv4, the text in text mode) and the credential's MAC Address must match it.
TEST_F(CertExchange, OtherAddressModesDeliver) {
    for (int32_t mode : {WAPIWPS_ADDRESS_IPV4, WAPIWPS_ADDRESS_TEXT}) {
        exchange::Options o = options(1);
        o.address_mode = mode;
        o.local_address = mode == WAPIWPS_ADDRESS_IPV4 ? Bytes{10, 1, 2, 3} : exchange::text("station-42");
        o.peer = exchange::text("ap");
        o.pin = "7654321";
        o.identities = {identity_for(kUuidR, 5)};
        const exchange::Transcript t = exchange::run(o);
        expect_delivered(t, o);
        EXPECT_EQ(t.outcome.certificate_needed_m7, 0);
    }
}

}  // namespace
