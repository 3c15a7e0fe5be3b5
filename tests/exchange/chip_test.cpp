// Certificate-mode exchanges signed by the secure chip (the service simulator in-process): the
// chip signs other byte ranges of the certificate request than the software path, and the
// registrar records which range verified.
#if defined(WAPIWPS_HAVE_CHIPSIM) && !defined(_WIN32)

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>

#include "chipsim/chipsim.h"
#include "common/exchange.h"
#include "wapiwps.h"

namespace {

using exchange::Bytes;

constexpr std::array<uint8_t, 16> kUuidR = {0xC0, 0xC1, 0xC2, 0xC3, 0xC4, 0xC5, 0xC6, 0xC7,
                                            0xC8, 0xC9, 0xCA, 0xCB, 0xCC, 0xCD, 0xCE, 0xCF};

class ChipExchange : public testing::Test {
protected:
    static void SetUpTestSuite() {
        const std::string path = "/tmp/wapiwps_reg_chip_" + std::to_string(::getpid()) + ".sock";
        ::setenv("WAPIWPS_SECURECHIP_SOCKET", path.c_str(), 1);
        sim_ = new chipsim::Simulator();
        ASSERT_TRUE(sim_->start());
    }
    static void TearDownTestSuite() {
        sim_->stop();
        delete sim_;
        sim_ = nullptr;
    }

    static exchange::Options options(uint8_t certificate_mode) {
        exchange::Options o;
        o.wps_mode = WAPIWPS_MODE_WAPI_CERT;
        o.secure_chip = true;
        o.after_start = exchange::wait_chip_connected;
        o.registrar.uuid_r = kUuidR;
        o.registrar.certificate_mode = certificate_mode;
        o.registrar.cert_list = {0x01, 0x02, 0x03};
        return o;
    }
    static exchange::Identity identity(size_t len) {
        exchange::Identity id;
        id.uuid = kUuidR;
        for (size_t i = 0; i < len; ++i) id.data.push_back(static_cast<uint8_t>(0x41 + i % 26));
        return id;
    }
    static Bytes chip_key() {
        const auto k = sim_->public_key(0);
        return Bytes(k.begin(), k.end());
    }

    static chipsim::Simulator* sim_;
};
chipsim::Simulator* ChipExchange::sim_ = nullptr;

TEST_F(ChipExchange, Mode1WithoutIdentitySignsTheSigningKeyAttribute) {
    const exchange::Transcript t = exchange::run(options(1));
    ASSERT_FALSE(t.registrar_refused) << t.registrar_error;
    EXPECT_EQ(t.start_result, 1);
    EXPECT_EQ(t.last_result(), WAPIWPS_RESULT_SUCCESS);
    EXPECT_TRUE(t.outcome.signature_verified);
    EXPECT_EQ(t.outcome.signed_length, 52u);
    EXPECT_EQ(t.outcome.signing_public_key, chip_key());
    EXPECT_EQ(t.cert_rc, 0);
    EXPECT_EQ(Bytes(t.cert_public_key.begin(), t.cert_public_key.end()), chip_key());
}

// With an identity the chip covers all of the request but its last 4 bytes.
TEST_F(ChipExchange, Mode1WithIdentitySignsAllButTheLastFourBytes) {
    exchange::Options o = options(1);
    o.identities = {identity(30)};
    const exchange::Transcript t = exchange::run(o);
    ASSERT_FALSE(t.registrar_refused) << t.registrar_error;
    EXPECT_EQ(t.last_result(), WAPIWPS_RESULT_SUCCESS);
    EXPECT_TRUE(t.outcome.signature_verified);
    EXPECT_EQ(t.outcome.signed_length, 30u + 56u);
}

TEST_F(ChipExchange, Mode2SignsTheWholeIdentityWithTheSlotKey) {
    exchange::Options o = options(2);
    o.identities = {identity(45)};
    o.registrar.known_public_key = chip_key();
    const exchange::Transcript t = exchange::run(o);
    ASSERT_FALSE(t.registrar_refused) << t.registrar_error;
    EXPECT_EQ(t.last_result(), WAPIWPS_RESULT_SUCCESS);
    EXPECT_TRUE(t.outcome.signature_verified);
    EXPECT_EQ(t.outcome.signed_length, 45u + 4u);
}

}  // namespace

#endif
