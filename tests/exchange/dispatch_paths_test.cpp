// The dispatcher's transitions that need a real registrar (the state table in
// tests/engine/dispatch_matrix_test.cpp has the rest): M2 to M8 accepted with the state after each,
// Done, the closing failure after Done, and a failing M7 answered by NACK 18. Fragmented M8s are
// in fragments_test.cpp.
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
    std::vector<uint32_t> states;
    for (const exchange::Step& s : t.steps)
        if (s.to_enrollee) states.push_back(s.state_after);
    EXPECT_EQ(states, (std::vector<uint32_t>{3, 4, 5, 6, 7, 8, 1}));
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
