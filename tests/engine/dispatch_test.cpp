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

// ---- Identity ----------------------------------------------------------------------------------

TEST_F(DispatchTest, IdentityRequestIsAnsweredInBothFlavoursAndAddressModes) {
    struct Case {
        int32_t mode, address;
        size_t length;
    };
    for (const Case c : {Case{3, 0, 48}, Case{2, 1, 40}, Case{1, 0, 46}, Case{1, 2, 38}}) {
        start(c.mode, c.address);
        out.assign(out.size(), enginetest::kSentinel);
        EXPECT_EQ(0, feed(enginetest::identity_request(0x42)));
        ASSERT_EQ(out_len, c.length);
        const Bytes a = answer();
        EXPECT_EQ(a[OFF_EAP_CODE], EAP_CODE_RESPONSE);
        EXPECT_EQ(a[OFF_EAP_ID], 0x42);
        EXPECT_EQ(g_EapIdentifier, 0x42);
        EXPECT_EQ(g_State_Machine, WAIT_WPS_START);
        EXPECT_EQ(out[0], c.address == 0 ? 0x00 : 0x02);
    }
}

TEST_F(DispatchTest, IdentityCheckerCodeComesBackAsItsSixteenBitPattern) {
    start(WAPIWPS_MODE_WAPI_PSK);
    Bytes f = enginetest::identity_request();
    f[3] = 6;
    EXPECT_EQ(65536 - 3, feed(f));
    f.push_back(0);
    EXPECT_EQ(65536 - 1, feed(f));
    EXPECT_EQ(g_State_Machine, WAIT_REQUEST_IDENTITY);
    EXPECT_EQ(out_len, 0u);
}

// ---- Start -------------------------------------------------------------------------------------

TEST_F(DispatchTest, StartCheckerCodes) {
    start(WAPIWPS_MODE_WAPI_CERT);
    g_State_Machine = WAIT_WPS_START;
    Bytes f = enginetest::start_frame();
    f.push_back(0);  // right in every header field, one byte too long
    EXPECT_EQ(65536 - 17, feed(f));
    Bytes g = enginetest::start_frame();
    g[3] = 15;
    EXPECT_EQ(65536 - 8, feed(g));
    EXPECT_EQ(g_State_Machine, WAIT_WPS_START);
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
    // A payload that the dispatcher routes as M8 (byte 9 is 0x0C), then `extra` bytes.
    static Bytes m8_payload(size_t extra, uint8_t fill) {
        return routed_body(WPS_MSG_TYPE_M8, extra, fill);
    }
};

TEST_F(ReassemblyTest, FirstFragmentIsCollectedAndAcknowledged) {
    const Bytes p = m8_payload(30, 0x11);
    EXPECT_EQ(kDropped, feed(enginetest::fragment_frame(WSC_FLAG_MF, p, int32_t(p.size()))));
    expect_ack();
    EXPECT_EQ(out_len, 76u);
    EXPECT_EQ(g_FragState, DO_FRAG);
    EXPECT_EQ(g_FragOffset, p.size());
    EXPECT_EQ(Bytes(g_FragBuffer, g_FragBuffer + p.size()), p);
    EXPECT_EQ(g_State_Machine, WAIT_M8);
    EXPECT_TRUE(log.has("MF  NO_FRAG.\r\n"));
    EXPECT_TRUE(log.has("DO_FRAG.\r\n"));
}

TEST_F(ReassemblyTest, LastFragmentCompletesTheMessageForTheParser) {
    const Bytes p1 = m8_payload(30, 0x11), p2 = m8_payload(20, 0x22);
    feed(enginetest::fragment_frame(WSC_FLAG_MF, p1, int32_t(p1.size())));
    // The collected bytes are not an M8 the parser accepts: NACK 18.
    EXPECT_EQ(0, feed(enginetest::fragment_frame(0, p2, int32_t(p2.size()))));
    expect_nack(0x1200);
    EXPECT_EQ(g_FragState, END_FRAG);
    EXPECT_EQ(g_FragOffset, p1.size() + p2.size());
    EXPECT_EQ(Bytes(g_FragBuffer + p1.size(), g_FragBuffer + g_FragOffset), p2);
    EXPECT_TRUE(log.has("no MF NO_FRAG.\r\n"));
    EXPECT_TRUE(log.has("Start Unpack M8 Entire.\r\n"));
}

// Intended: the copy length is the EAP length field read in host order, minus 9.
TEST_F(ReassemblyTest, CopyLengthComesFromTheHostOrderEapLength) {
    const Bytes p = m8_payload(40, 0x33);
    Header h;
    h.flags = WSC_FLAG_MF;
    Bytes f = message_frame(h, p);  // big-endian 0x0046 there: host order reads 0x4600
    f[OFF_EAP_LENGTH] = 25 + 9;     // host order: 34 - 9 = 25
    f[OFF_EAP_LENGTH + 1] = 0;
    EXPECT_EQ(kDropped, feed(f));
    EXPECT_EQ(g_FragOffset, 25);
}

TEST_F(ReassemblyTest, LengthFieldIsStoredAndSkipped) {
    Bytes p = {0x01, 0x23};  // message length field, kept as it stands
    const Bytes body = m8_payload(10, 0x44);
    p.insert(p.end(), body.begin(), body.end());
    EXPECT_EQ(kDropped,
              feed(enginetest::fragment_frame(WSC_FLAG_MF | WSC_FLAG_LF, p, int32_t(p.size()))));
    EXPECT_EQ(g_FragTotalLength, 0x2301);
    EXPECT_EQ(g_FragOffset, body.size());
    EXPECT_EQ(Bytes(g_FragBuffer, g_FragBuffer + body.size()), body);
    EXPECT_TRUE(log.has("LF NO_FRAG.\r\n"));
}

TEST_F(ReassemblyTest, ContinuationWithoutM8TypeByteIsDropped) {
    const Bytes p1 = m8_payload(30, 0x11);
    feed(enginetest::fragment_frame(WSC_FLAG_MF, p1, int32_t(p1.size())));
    const Bytes p2(40, 0x77);  // byte 9 is 0x77: not routed as M8
    EXPECT_EQ(kDropped, feed(enginetest::fragment_frame(0, p2, int32_t(p2.size()))));
    EXPECT_EQ(out_len, 0u);
    EXPECT_EQ(g_FragOffset, p1.size());
    EXPECT_EQ(g_FragState, END_FRAG);  // the flags were noted all the same
}

TEST_F(ReassemblyTest, OffsetIsNeverResetByANormalRun) {
    g_FragOffset = 100;
    start(WAPIWPS_MODE_WAPI_CERT);
    g_State_Machine = WAIT_M8;
    EXPECT_EQ(g_FragOffset, 100);
    const Bytes p = m8_payload(6, 0x55);
    feed(enginetest::fragment_frame(WSC_FLAG_MF, p, int32_t(p.size())));
    EXPECT_EQ(g_FragOffset, 100 + p.size());
    EXPECT_EQ(Bytes(g_FragBuffer + 100, g_FragBuffer + 100 + p.size()), p);
}

// Our bounds: a fragment that would overflow the buffer, claims more bytes than arrived, or a
// negative length is refused with NACK 18 and the collection restarts from nothing.
struct BadFragment {
    const char* name;
    uint16_t startOffset;
    uint8_t flags;
    size_t present;      // payload bytes in the frame
    int32_t copyLength;  // what the EAP length field claims
};
class BadFragments : public ReassemblyTest, public ::testing::WithParamInterface<BadFragment> {};

TEST_P(BadFragments, AreRefusedAndResetTheCollection) {
    const BadFragment& c = GetParam();
    g_FragOffset = c.startOffset;
    Bytes p = m8_payload(c.present - 10, 0x66);
    if ((c.flags & WSC_FLAG_LF) != 0) p.insert(p.begin(), {0x00, 0x10});  // the length field
    EXPECT_EQ(0, feed(enginetest::fragment_frame(c.flags, p, c.copyLength)));
    expect_nack(0x1200);
    EXPECT_EQ(g_FragState, NO_FRAG);
    EXPECT_EQ(g_FragOffset, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Dispatch, BadFragments,
    ::testing::Values(BadFragment{"overflow", 4090, WSC_FLAG_MF, 20, 20},
                      BadFragment{"overflow_with_lf", 4000, WSC_FLAG_MF | WSC_FLAG_LF, 200, 200},
                      BadFragment{"short", 0, WSC_FLAG_MF, 20, 21},
                      BadFragment{"huge", 0, WSC_FLAG_MF, 20, 65535 - 9},
                      BadFragment{"negative", 0, WSC_FLAG_MF, 20, -9},
                      BadFragment{"negative_after_lf", 0, WSC_FLAG_MF | WSC_FLAG_LF, 20, 1}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(ReassemblyTest, FragmentFillingTheBufferExactlyIsAccepted) {
    g_FragOffset = 4096 - 20;
    const Bytes p = m8_payload(10, 0x66);
    EXPECT_EQ(kDropped, feed(enginetest::fragment_frame(WSC_FLAG_MF, p, 20)));
    EXPECT_EQ(g_FragOffset, 4096);
    EXPECT_EQ(g_FragState, DO_FRAG);
}

}  // namespace
