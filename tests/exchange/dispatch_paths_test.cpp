// The dispatcher's transitions that need a real registrar: M2 to M8 accepted, Done, the closing
// failure after Done, fragmented M8 answered by ACKs, and a failing M7 answered by NACK 18.
#include <gtest/gtest.h>

#include "common/exchange.h"
#include "engine/engine_fixture.h"

namespace {

using exchange::Bytes;

// The enrollee's frames in order (prefix already stripped by the harness).
std::vector<Bytes> enrollee_frames(const exchange::Transcript& t) {
    std::vector<Bytes> frames;
    for (const exchange::Step& s : t.steps)
        if (!s.to_enrollee) frames.push_back(s.frame);
    return frames;
}

TEST(DispatchExchange, WholeRunWalksEveryStateToSuccess) {
    exchange::Options o;
    o.wps_mode = WAPIWPS_MODE_WAPI_CERT;
    const exchange::Transcript t = exchange::run(o);
    // Identity, Start, M2, M4, M6, M8, closing failure.
    EXPECT_EQ(t.results, (std::vector<int32_t>{0, 0, 0, 0, 0, 1, 2}));
    EXPECT_TRUE(t.prefix_ok);
    EXPECT_EQ(t.final_state, WAIT_START);
    EXPECT_TRUE(t.outcome.done_received);
    // The last frame we sent is Done: op-code 5, Message Type 0x0F, 50-byte body.
    const Bytes done = enrollee_frames(t).back();
    ASSERT_EQ(done.size(), 68u);
    EXPECT_EQ(done[OFF_OPCODE], WSC_OP_DONE);
    EXPECT_EQ(done[OFF_MESSAGE + 9], WPS_MSG_TYPE_DONE);
    EXPECT_TRUE(t.has_trace("Receive Teap failure message when WAIT_REQUEST_FAILURE.\r\n"));
}

TEST(DispatchExchange, FragmentedM8IsAcknowledgedThenAccepted) {
    exchange::Options o;
    o.wps_mode = WAPIWPS_MODE_WAPI_PSK;
    o.registrar.network_key = Bytes(40, 'k');
    o.registrar.m8_split_index = 0;  // two fragments
    const exchange::Transcript t = exchange::run(o);
    ASSERT_GE(t.outcome.m8_fragments, 2u) << t.registrar_error;
    // One -100 (with an ACK written) per fragment before the last, then Done and success.
    std::vector<int32_t> expected = {0, 0, 0, 0, 0};
    expected.insert(expected.end(), t.outcome.m8_fragments - 1, WAPIWPS_RESULT_DROPPED);
    expected.insert(expected.end(), {1, 2});
    EXPECT_EQ(t.results, expected);
    EXPECT_TRUE(t.has_trace("DO_FRAG.\r\n"));
    EXPECT_TRUE(t.has_trace("END_FRAG.\r\n"));
    EXPECT_EQ(t.psk_after, Bytes(40, 'k'));
    const std::vector<Bytes> sent = enrollee_frames(t);
    const Bytes& ack = sent[sent.size() - 2];
    EXPECT_EQ(ack[OFF_OPCODE], WSC_OP_ACK);
    EXPECT_EQ(ack[OFF_MESSAGE + 9], WPS_MSG_TYPE_ACK);
}

// Our rule: an M7 that cannot be built (the chip does not answer) ends the run like a refused
// message: NACK 18, result 0, then the closing failure gives 100.
TEST(DispatchExchange, FailingM7IsAnsweredWithNack18) {
    exchange::Options o;
    o.wps_mode = WAPIWPS_MODE_WAPI_CERT;
    o.before_registrar = [](registrar::Registrar&, const Bytes&, size_t index) {
        if (index == 0) g_IsDoSecureChip = 1;  // chip signing, with no service behind it
    };
    const exchange::Transcript t = exchange::run(o);
    g_IsDoSecureChip = 0;
    EXPECT_EQ(t.results, (std::vector<int32_t>{0, 0, 0, 0, 0, 100}));
    EXPECT_TRUE(t.has_trace("PackM7 failed.\r\n"));
    EXPECT_TRUE(t.outcome.nack_received);
    EXPECT_EQ(t.nack_error(), 18);
    EXPECT_EQ(t.final_state, WAIT_START);
}

}  // namespace
