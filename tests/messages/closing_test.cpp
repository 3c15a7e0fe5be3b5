// Done, ACK and NACK bodies.
#include "engine/engine_fixture.h"

namespace {

using enginetest::Bytes;
using enginetest::hex;

class ClosingTest : public enginetest::EngineTest {
  protected:
    void SetUp() override {
        EngineTest::SetUp();
        for (uint8_t i = 0; i < 16; ++i) {
            g_EnrolleeKeys.Nonce[i] = static_cast<uint8_t>(0xE0 + i);
            g_RegistrarKeys.Nonce[i] = static_cast<uint8_t>(0x20 + i);
        }
        std::memset(g_PrevMsgBuf, 0x3C, sizeof g_PrevMsgBuf);
        g_PrevMsgLen = 77;
    }
    void TearDown() override {
        // Building never touches the previous message.
        EXPECT_EQ(g_PrevMsgLen, 77);
        EXPECT_TRUE(std::all_of(g_PrevMsgBuf, g_PrevMsgBuf + kMsgBufLen,
                                [](uint8_t b) { return b == 0x3C; }));
        std::memset(g_EnrolleeKeys.Nonce, 0, 16);
        std::memset(g_RegistrarKeys.Nonce, 0, 16);
        EngineTest::TearDown();
    }
    Bytes nonces() const {
        return hex(
            "101A0010 E0E1E2E3E4E5E6E7E8E9EAEBECEDEEEF 10390010 202122232425262728292A2B2C2D2E2F");
    }
};

TEST_F(ClosingTest, DoneAndAckDifferOnlyInMessageType) {
    uint8_t done[64], ack[64];
    uint32_t done_len = 0, ack_len = 0;
    EXPECT_TRUE(BuildMessageDone(done, &done_len));
    EXPECT_TRUE(BuildMessageACK(ack, &ack_len));
    Bytes expect_done = hex("104A000110 102200010F");
    Bytes expect_ack = hex("104A000110 102200010D");
    const Bytes n = nonces();
    for (Bytes* e : {&expect_done, &expect_ack}) e->insert(e->end(), n.begin(), n.end());
    ASSERT_EQ(done_len, 50u);
    ASSERT_EQ(ack_len, 50u);
    EXPECT_EQ(Bytes(done, done + 50), expect_done);
    EXPECT_EQ(Bytes(ack, ack + 50), expect_ack);
    EXPECT_TRUE(log.has("Build message Done.\r\n"));
    EXPECT_TRUE(log.has("Build message ACK success.\r\n"));
}

// The Configuration Error goes out little-endian on purpose.
TEST_F(ClosingTest, NackCarriesConfigurationErrorLittleEndian) {
    uint8_t nack[64];
    uint32_t len = 0;
    EXPECT_TRUE(BuildMessageNACK(nack, &len, 18));
    ASSERT_EQ(len, 56u);
    Bytes expect = hex("104A000110 102200010E");
    const Bytes n = nonces();
    expect.insert(expect.end(), n.begin(), n.end());
    Bytes tail = hex("100900021200");
    expect.insert(expect.end(), tail.begin(), tail.end());
    EXPECT_EQ(Bytes(nack, nack + 56), expect);
    EXPECT_TRUE(BuildMessageNACK(nack, &len, 0x0102));
    EXPECT_EQ(Bytes(nack + 50, nack + 56), hex("100900020201"));
}

}  // namespace
