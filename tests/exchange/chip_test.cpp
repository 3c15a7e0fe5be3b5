// Certificate-mode exchanges signed by the secure chip (the service simulator in-process): the
// chip signs other byte ranges of the certificate request than the software path, and the
// registrar records which range verified.
#if defined(WAPIWPS_HAVE_CHIPSIM) && !defined(_WIN32)

#include <gtest/gtest.h>

#include <memory>

#include "chipsim/chipsim.h"
#include "common/exchange.h"
#include "wapiwps.h"

namespace {

using exchange::Bytes;

// Mode 1 without an identity signs the Signing Public Key attribute, and delivers the chip's key;
// with an identity the chip covers all of the request but its last 4 bytes; mode 2 signs the
// whole identity with the slot's key.
struct ChipCase {
    const char* name;
    uint8_t certificate_mode;
    size_t identity_len;  // 0: none registered
    size_t signed_length;
};

class ChipExchange : public testing::TestWithParam<ChipCase> {
protected:
    static void SetUpTestSuite() {
        exchange::use_own_chip_socket("exchange");
        sim_ = new chipsim::Simulator();
        ASSERT_TRUE(sim_->start());
    }
    static void TearDownTestSuite() {
        sim_->stop();
        delete sim_;
        sim_ = nullptr;
    }

    static Bytes chip_key() {
        const auto k = sim_->public_key(0);
        return Bytes(k.begin(), k.end());
    }
    static chipsim::Simulator* sim_;
};
chipsim::Simulator* ChipExchange::sim_ = nullptr;

TEST_P(ChipExchange, ChipSignatureVerifiesOverTheIntendedBytes) {
    const ChipCase& c = GetParam();
    exchange::Options o = exchange::cert_run(c.certificate_mode, c.certificate_mode == 2 ? chip_key() : Bytes{});
    o.secure_chip = true;
    o.after_start = exchange::wait_chip_connected;
    o.registrar.require_signature = true;
    o.identities.clear();
    if (c.identity_len != 0) o.identities = {exchange::Identity{exchange::kUuidR, Bytes(c.identity_len, 0x41)}};
    const exchange::Transcript t = exchange::run(o);
    ASSERT_FALSE(t.registrar_refused) << t.registrar_error;
    EXPECT_EQ(t.last_result(), WAPIWPS_RESULT_SUCCESS);
    EXPECT_TRUE(t.outcome.signature_verified);
    EXPECT_EQ(t.outcome.signed_length, c.signed_length);
    if (c.identity_len == 0) {
        EXPECT_EQ(t.outcome.signing_public_key, chip_key());
        EXPECT_EQ(t.cert_rc, 0);
        EXPECT_EQ(Bytes(t.cert_public_key.begin(), t.cert_public_key.end()), chip_key());
    }
}

INSTANTIATE_TEST_SUITE_P(Modes, ChipExchange,
                         testing::Values(ChipCase{"Mode1WithoutIdentity", 1, 0, 52},
                                         ChipCase{"Mode1WithIdentity", 1, 30, 30 + 56},
                                         ChipCase{"Mode2WithIdentity", 2, 45, 45 + 4}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace

#endif
