// Whole exchanges, StartWPS to EAP-Failure, in the pre-shared-key flavour: address modes, PINs,
// raw and hexadecimal keys; the credential the host reads is exactly the one the registrar sent.
// They also walk the dispatcher's accepted transitions, which need a real registrar (the state
// table in tests/engine/dispatch_matrix_test.cpp has the rest): the state after each frame, Done,
// and the closing failure after Done.
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
    std::vector<uint32_t> states;
    for (const exchange::Step& s : t.steps)
        if (s.to_enrollee) states.push_back(s.state_after);
    EXPECT_EQ(states, (std::vector<uint32_t>{3, 4, 5, 6, 7, 8, 1}));
    EXPECT_EQ(t.final_state, static_cast<uint32_t>(WAPIWPS_WAIT_START));
    EXPECT_TRUE(t.has_trace("Receive Teap failure message when WAIT_REQUEST_FAILURE.\r\n"));
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

// M8 in fragments from the reference registrar, split in two at the k-th legal point until k has
// passed all of them: every split delivers the key (the reassembly's quirks are pinned with
// hand-built fragments in tests/engine; a long certificate list in two fragments in tests/alloc).
TEST(M8Fragments, EveryLegalTwoWaySplitDeliversTheSameKey) {
    for (int k = 0;; ++k) {
        exchange::Options o = psk_options(kPskCases[1]);
        o.registrar.m8_split_index = k;
        const exchange::Transcript t = exchange::run(o);
        ASSERT_FALSE(t.registrar_refused) << t.registrar_error;
        EXPECT_EQ(t.outcome.m8_fragments, 2u);
        // First fragment: dropped (-100) with an ACK; second: Done; then success.
        ASSERT_GE(t.results.size(), 3u);
        EXPECT_EQ(t.results[t.results.size() - 3], WAPIWPS_RESULT_DROPPED);
        EXPECT_EQ(t.results[t.results.size() - 2], WAPIWPS_RESULT_M8_DONE);
        EXPECT_EQ(t.last_result(), WAPIWPS_RESULT_SUCCESS);
        EXPECT_EQ(t.psk, o.registrar.network_key);
        if (static_cast<size_t>(k) + 1 >= t.outcome.m8_split_points) break;
        ASSERT_LT(k, 64);
    }
}

}  // namespace
