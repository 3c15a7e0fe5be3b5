// The receive dispatcher beyond its state table (dispatch_matrix_test.cpp): no mode, null host
// pointers, the prefix, checker codes, short frames, and M8 reassembly with our bounds.
#include "engine_fixture.h"

namespace {

using enginetest::Bytes;
using enginetest::Header;
using enginetest::hex;
using enginetest::message_frame;
using enginetest::routed_body;

constexpr int32_t kDropped = WAPIWPS_RESULT_DROPPED;

class DispatchTest : public enginetest::EngineTest {
  protected:
    bool output_untouched() const {
        return std::all_of(out.begin(), out.end(),
                           [](uint8_t b) { return b == enginetest::kSentinel; });
    }
    Bytes prefix() const { return Bytes(out.begin(), out.begin() + 8); }
    // Message Type and Configuration Error of a NACK answer.
    void expect_nack(uint16_t wireError) {
        const Bytes a = answer();
        ASSERT_EQ(a.size(), 74u);
        EXPECT_EQ(a[OFF_OPCODE], WSC_OP_NACK);
        EXPECT_EQ(a[27], WACA_MSG_TYPE_NACK);
        EXPECT_EQ(Bytes(a.end() - 2, a.end()),
                  Bytes({uint8_t(wireError >> 8), uint8_t(wireError)}));
        EXPECT_EQ(g_State_Machine, SEND_NACK_WAIT_FAILURE);
    }
    void expect_ack() {
        const Bytes a = answer();
        ASSERT_EQ(a.size(), 68u);
        EXPECT_EQ(a[OFF_OPCODE], WSC_OP_ACK);
        EXPECT_EQ(a[27], WPS_MSG_TYPE_ACK);
    }
    Bytes message(uint8_t type, size_t extra = 16, uint8_t id = 0x21) {
        Header h;
        h.id = id;
        return message_frame(h, routed_body(type, extra));
    }
};

TEST_F(DispatchTest, NothingIsTouchedWithoutAMode) {
    for (const Bytes& f :
         {enginetest::identity_request(), enginetest::eap_failure(), message(WPS_MSG_TYPE_M2D)}) {
        EXPECT_EQ(kDropped, feed(f));
        EXPECT_EQ(out_len, 0xDEADBEEF);
        EXPECT_TRUE(output_untouched());
    }
    EXPECT_TRUE(log.has("Cannot Process Receive Packet,because WPS mode is NO_WPS.\r\n"));
}

TEST_F(DispatchTest, NullHostPointersAreRefusedBeforeAnythingIsWritten) {
    start(WAPIWPS_MODE_WAPI_CERT);
    const Bytes f = enginetest::identity_request();
    uint32_t len = 0;
    EXPECT_EQ(kDropped, ProcessReceivePacket(nullptr, 9, out.data(), &len));
    EXPECT_EQ(kDropped, ProcessReceivePacket(f.data(), 9, nullptr, &len));
    EXPECT_EQ(kDropped, ProcessReceivePacket(f.data(), 9, out.data(), nullptr));
    EXPECT_TRUE(output_untouched());
    EXPECT_EQ(g_State_Machine, WAIT_REQUEST_IDENTITY);
}

TEST_F(DispatchTest, PrefixIsWrittenEvenForADroppedFrame) {
    start(WAPIWPS_MODE_WAPI_CERT);
    g_State_Machine = WAIT_WPS_START;
    EXPECT_EQ(kDropped, feed(enginetest::identity_request()));
    EXPECT_EQ(prefix(), hex("001122334455 891B"));
    EXPECT_EQ(out_len, 0u);
    EXPECT_EQ(g_State_Machine, WAIT_WPS_START);
    EXPECT_TRUE(log.has("Drop packet, error code is -100.\r\n"));
}

// A checker's refusal comes back as its code's 16-bit pattern: nothing answered, the state kept.
TEST_F(DispatchTest, CheckerCodesComeBackAsTheirSixteenBitPattern) {
    start(WAPIWPS_MODE_WAPI_CERT);
    Bytes long_identity = enginetest::identity_request(), bad_length = enginetest::identity_request();
    Bytes long_start = enginetest::start_frame(), bad_start = enginetest::start_frame();
    long_identity.push_back(0);  // right in every header field, one byte too long
    bad_length[3] = 6;
    long_start.push_back(0);
    bad_start[3] = 15;
    struct Case {
        uint32_t state;
        const Bytes& frame;
        int32_t code;
    };
    for (const Case& c : {Case{2, bad_length, -3}, Case{2, long_identity, -1}, Case{3, long_start, -17},
                          Case{3, bad_start, -8}}) {
        g_State_Machine = c.state;
        EXPECT_EQ(65536 + c.code, feed(c.frame));
        EXPECT_EQ(g_State_Machine, c.state);
        EXPECT_EQ(out_len, 0u);
    }
}

// ---- Message types -----------------------------------------------------------------------------

// Bytes beyond a short frame count as 0: the message type then reads 0 and the frame is dropped.
TEST_F(DispatchTest, ShortFramesTakeTheZeroBytePath) {
    start(WAPIWPS_MODE_WAPI_CERT);
    const Bytes full = message(WPS_MSG_TYPE_M2D);
    for (uint32_t state : {2u, 4u, 7u, 8u}) {
        for (size_t n = 0; n < 28; ++n) {
            g_State_Machine = state;
            Bytes cut(full.begin(), full.begin() + long(n));
            const int32_t result =
                ProcessReceivePacket(cut.data(), uint32_t(n), out.data(), &out_len);
            EXPECT_NE(result, 0) << n;
            EXPECT_EQ(g_State_Machine, state) << n;
        }
    }
}

// ---- M8 reassembly -----------------------------------------------------------------------------

class ReassemblyTest : public DispatchTest {
  protected:
    void SetUp() override {
        DispatchTest::SetUp();
        start(WAPIWPS_MODE_WAPI_CERT);
        g_State_Machine = WAIT_M8;
    }
};

// A payload that the dispatcher routes as M8 (byte 9 is 0x0C), then `extra` bytes.
Bytes m8_payload(size_t extra, uint8_t fill) { return routed_body(WPS_MSG_TYPE_M8, extra, fill); }

// One collection: a first fragment with the length field, a continuation whose copy length is
// the host-order EAP length, one that is not routed as M8, and the last fragment, which completes
// a message the parser refuses. The offset is never reset by a normal run.
TEST_F(ReassemblyTest, FragmentsAreCollectedAcknowledgedAndCompleted) {
    g_FragOffset = 100;
    start(WAPIWPS_MODE_WAPI_CERT);
    g_State_Machine = WAIT_M8;
    ASSERT_EQ(g_FragOffset, 100);
    const Bytes p1 = m8_payload(10, 0x44), p2 = m8_payload(40, 0x33), p3 = m8_payload(20, 0x22);
    EXPECT_EQ(kDropped, feed(enginetest::fragment_frame(WSC_FLAG_MF | WSC_FLAG_LF, testbytes::cat({hex("0123"), p1}),
                                                        int32_t(p1.size() + 2))));
    expect_ack();
    EXPECT_EQ(out_len, 76u);
    EXPECT_EQ(g_FragState, DO_FRAG);
    EXPECT_EQ(g_FragTotalLength, 0x2301) << "the length field is kept as it stands";
    EXPECT_EQ(Bytes(g_FragBuffer + 100, g_FragBuffer + g_FragOffset), p1);
    EXPECT_TRUE(log.has("MF  NO_FRAG.\r\n") && log.has("LF NO_FRAG.\r\n") && log.has("DO_FRAG.\r\n"));

    Header h;
    h.flags = WSC_FLAG_MF;
    Bytes f = message_frame(h, p2);  // big-endian 0x0046 there: host order reads 0x4600
    f[OFF_EAP_LENGTH] = 25 + 9;      // host order: 34 - 9 = 25 bytes copied
    f[OFF_EAP_LENGTH + 1] = 0;
    EXPECT_EQ(kDropped, feed(f));
    EXPECT_EQ(Bytes(g_FragBuffer + 120, g_FragBuffer + g_FragOffset), Bytes(p2.begin(), p2.begin() + 25));

    const Bytes unrouted(40, 0x77);  // byte 9 is 0x77: not routed as M8
    EXPECT_EQ(kDropped, feed(enginetest::fragment_frame(0, unrouted, 40)));
    EXPECT_EQ(out_len, 0u);
    EXPECT_EQ(g_FragOffset, 145);
    EXPECT_EQ(g_FragState, END_FRAG) << "the flags were noted all the same";

    EXPECT_EQ(0, feed(enginetest::fragment_frame(0, p3, int32_t(p3.size()))));
    expect_nack(0x1200);
    EXPECT_EQ(Bytes(g_FragBuffer + 145, g_FragBuffer + g_FragOffset), p3);
    EXPECT_TRUE(log.has("no MF NO_FRAG.\r\n") && log.has("Start Unpack M8 Entire.\r\n"));
}

// Our bounds: a fragment that would overflow the buffer, claims more bytes than arrived, or a
// negative length is refused with NACK 18 and the collection restarts from nothing; one that
// fills the buffer exactly is collected.
struct BadFragment {
    const char* name;
    uint16_t startOffset;
    uint8_t flags;
    size_t present;      // payload bytes in the frame
    int32_t copyLength;  // what the EAP length field claims
    bool refused = true;
};
class Fragments : public ReassemblyTest, public ::testing::WithParamInterface<BadFragment> {};

TEST_P(Fragments, BeyondTheBoundsAreRefusedAndResetTheCollection) {
    const BadFragment& c = GetParam();
    g_FragOffset = c.startOffset;
    Bytes p = m8_payload(c.present - 10, 0x66);
    if ((c.flags & WSC_FLAG_LF) != 0) p.insert(p.begin(), {0x00, 0x10});  // the length field
    EXPECT_EQ(c.refused ? 0 : kDropped, feed(enginetest::fragment_frame(c.flags, p, c.copyLength)));
    if (c.refused) expect_nack(0x1200);
    EXPECT_EQ(g_FragState, c.refused ? NO_FRAG : DO_FRAG);
    EXPECT_EQ(g_FragOffset, c.refused ? 0 : 4096);
}

INSTANTIATE_TEST_SUITE_P(
    Dispatch, Fragments,
    ::testing::Values(BadFragment{"overflow", 4090, WSC_FLAG_MF, 20, 20},
                      BadFragment{"overflow_with_lf", 4000, WSC_FLAG_MF | WSC_FLAG_LF, 200, 200},
                      BadFragment{"short", 0, WSC_FLAG_MF, 20, 21},
                      BadFragment{"huge", 0, WSC_FLAG_MF, 20, 65535 - 9},
                      BadFragment{"negative", 0, WSC_FLAG_MF, 20, -9},
                      BadFragment{"negative_after_lf", 0, WSC_FLAG_MF | WSC_FLAG_LF, 20, 1},
                      BadFragment{"fills_exactly", 4096 - 20, WSC_FLAG_MF, 20, 20, false}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
