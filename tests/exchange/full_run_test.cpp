// Whole exchanges, StartWPS to EAP-Failure, in the pre-shared-key flavour: address modes, PINs,
// raw and hexadecimal keys; the credential the host reads is exactly the one the registrar sent.
#include <gtest/gtest.h>

#include "common/exchange.h"
#include "wapiwps.h"

namespace {

using exchange::Bytes;

struct PskCase {
    const char* name;
    int32_t address_mode;
    std::optional<std::string> pin;
    bool hex;
    size_t key_len;
};

exchange::Options psk_options(const PskCase& c) {
    exchange::Options o;
    o.wps_mode = WAPIWPS_MODE_WAPI_PSK;
    o.address_mode = c.address_mode;
    o.pin = c.pin;
    if (c.address_mode == WAPIWPS_ADDRESS_IPV4) o.local_address = {192, 168, 7, 9};
    if (c.address_mode == WAPIWPS_ADDRESS_TEXT) o.local_address = exchange::text("enrollee-01");
    if (c.address_mode != WAPIWPS_ADDRESS_MAC) o.peer = exchange::text("registrar-7");
    o.registrar.hex_network_key = c.hex;
    for (size_t i = 0; i < c.key_len; ++i) o.registrar.network_key.push_back(static_cast<uint8_t>(0xA0 + i));
    return o;
}

class PskExchange : public testing::TestWithParam<PskCase> {};

TEST_P(PskExchange, RunsToSuccessAndDeliversTheKey) {
    const PskCase& c = GetParam();
    const exchange::Transcript t = exchange::run(psk_options(c));
    ASSERT_FALSE(t.registrar_refused) << t.registrar_error;
    EXPECT_TRUE(t.registrar_finished);
    EXPECT_TRUE(t.outcome.m1_ok && t.outcome.m3_ok && t.outcome.m5_ok && t.outcome.m7_ok);
    EXPECT_TRUE(t.outcome.done_received);
    EXPECT_FALSE(t.outcome.nack_received);
    EXPECT_TRUE(t.prefix_ok);
    // Request/Identity, Start, M2, M4, M6, M8 are answered with 0 and M8 with 1, then 2 at the end.
    EXPECT_EQ(t.results, (std::vector<int32_t>{0, 0, 0, 0, 0, 1, 2}));
    EXPECT_EQ(t.final_state, static_cast<uint32_t>(WAPIWPS_WAIT_START));
    ASSERT_TRUE(t.m8_done);
    EXPECT_EQ(t.psk_rc, 0);
    EXPECT_EQ(t.psk, Bytes(psk_options(c).registrar.network_key));
    // The key stays readable after the closing EAP-Failure.
    EXPECT_EQ(t.psk_rc_after, 0);
    EXPECT_EQ(t.psk_after, t.psk);
    // The key schedule took the address M1 carried (IPv4: 4 bytes and two zeros).
    Bytes address = psk_options(c).local_address;
    if (c.address_mode == WAPIWPS_ADDRESS_IPV4) address.resize(6, 0);
    EXPECT_EQ(t.outcome.enrollee_address, address);
}

const PskCase kPskCases[] = {
    {"MacDefaultPin", WAPIWPS_ADDRESS_MAC, std::nullopt, false, 16},
    {"MacHexKey", WAPIWPS_ADDRESS_MAC, "12345670", true, 32},
    {"Ipv4OddPin", WAPIWPS_ADDRESS_IPV4, "1234567", true, 16},
    {"TextLongPin", WAPIWPS_ADDRESS_TEXT, "0123456789abcdefghijklmnopqrstu", false, 64},
    {"MacOneByteKey", WAPIWPS_ADDRESS_MAC, std::nullopt, false, 1},
};
INSTANTIATE_TEST_SUITE_P(Modes, PskExchange, testing::ValuesIn(kPskCases),
                         [](const auto& info) { return std::string(info.param.name); });

// The first frames of a run, byte for byte.
TEST(ExchangeFrames, OpeningFramesAreExact) {
    exchange::Options o = psk_options({"", WAPIWPS_ADDRESS_MAC, std::nullopt, false, 8});
    o.registrar.eap_identifier = 7;
    const exchange::Transcript t = exchange::run(o);
    ASSERT_GE(t.steps.size(), 4u);
    EXPECT_EQ(t.steps[0].frame, (Bytes{0x02, 0x01, 0x00, 0x00}));   // EAPOL-Start
    EXPECT_EQ(t.steps[1].frame, (Bytes{
                                    0x02, 0x00, 0x00, 0x05,   // EAPOL v2, EAP packet, body 5
                                    0x01, 0x07, 0x00, 0x05,   // Request, id 7, length 5
                                    0x01,                     // Identity
                                }));
    Bytes identity = {0x02, 0x00, 0x00, 0x24, 0x02, 0x07, 0x00, 0x24, 0x01};
    const std::string text = "BWIPS-SimpleConfig-Enrollee-1-0";
    identity.insert(identity.end(), text.begin(), text.end());
    EXPECT_EQ(t.steps[2].frame, identity);
    EXPECT_EQ(t.steps[3].frame, (Bytes{
                                    0x02, 0x00, 0x00, 0x0E,   // EAPOL body 14
                                    0x01, 0x08, 0x00, 0x0E,   // Request, id 8, length 14
                                    0xF2,                     // WAPI expanded type
                                    0x00, 0x81, 0xDB,         // vendor id
                                    0x00, 0x00, 0x00, 0x01,   // vendor type
                                    0x01, 0x00,               // Start, no flags
                                }));
    // The closing EAP-Failure echoes the identifier of the Done it answers.
    const Bytes& failure = t.steps.back().frame;
    ASSERT_EQ(failure.size(), 8u);
    EXPECT_EQ(failure[4], 0x04);
    EXPECT_EQ(failure[5], t.steps[t.steps.size() - 2].frame[5]);
}

// The Wi-Fi flavour encrypts nothing: the enrollee reads M4's settings as zeros and fails the Key
// Wrap Authenticator (-51), answers NACK 18, and the run ends with 100.
TEST(WifiExchange, FailsAtM4WithNack18) {
    exchange::Options o = psk_options({"", WAPIWPS_ADDRESS_MAC, "12345670", false, 8});
    o.wps_mode = WAPIWPS_MODE_WIFI;
    const exchange::Transcript t = exchange::run(o);
    ASSERT_FALSE(t.registrar_refused) << t.registrar_error;
    EXPECT_TRUE(t.has_trace("Unpack M4 error, error code is -51."));
    EXPECT_TRUE(t.outcome.nack_received);
    EXPECT_EQ(t.nack_error(), 18);
    EXPECT_FALSE(t.outcome.m5_ok);
    EXPECT_EQ(t.last_result(), WAPIWPS_RESULT_ENDED);
    EXPECT_TRUE(t.registrar_finished);
    // Its Start frame carries the Wi-Fi type and vendor id.
    ASSERT_GE(t.steps.size(), 4u);
    EXPECT_EQ(t.steps[3].frame[8], 0xFE);
    EXPECT_EQ(Bytes(t.steps[3].frame.begin() + 9, t.steps[3].frame.begin() + 12), (Bytes{0x00, 0x37, 0x2A}));
}

// Closing paths the registrar can open: M2D (the enrollee ACKs) and a NACK in place of a message
// (the enrollee answers NACK 0). Both end with EAP-Failure and result 100.
struct ClosingCase {
    const char* name;
    registrar::Fault fault;
    uint16_t enrollee_error;
    uint8_t enrollee_state_before_failure;
};

class ClosingExchange : public testing::TestWithParam<ClosingCase> {};

TEST_P(ClosingExchange, EndsWith100) {
    exchange::Options o = psk_options({"", WAPIWPS_ADDRESS_MAC, std::nullopt, false, 8});
    o.registrar.fault = GetParam().fault;
    const exchange::Transcript t = exchange::run(o);
    ASSERT_FALSE(t.registrar_refused) << t.registrar_error;
    EXPECT_TRUE(t.registrar_finished);
    EXPECT_EQ(t.last_result(), WAPIWPS_RESULT_ENDED);
    ASSERT_GE(t.steps.size(), 3u);
    EXPECT_EQ(t.steps[t.steps.size() - 3].state_after, GetParam().enrollee_state_before_failure);
    if (GetParam().fault.kind == registrar::Fault::Kind::SendM2D) {
        EXPECT_FALSE(t.outcome.nack_received);
    } else {
        EXPECT_TRUE(t.outcome.nack_received);
        EXPECT_EQ(t.nack_error(), GetParam().enrollee_error);
    }
}

using K = registrar::Fault::Kind;
const ClosingCase kClosingCases[] = {
    {"M2D", {K::SendM2D, 0x05, 0, 0}, 0, WAPIWPS_SEND_ACK_WAIT_FAILURE},
    {"NackForM6", {K::SendNack, 0x0A, 0, 5}, 0, WAPIWPS_SEND_NACK_WAIT_FAILURE},
};
INSTANTIATE_TEST_SUITE_P(Paths, ClosingExchange, testing::ValuesIn(kClosingCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
