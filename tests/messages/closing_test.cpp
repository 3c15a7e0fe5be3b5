// Done, ACK and NACK bodies.
#include "engine/engine_fixture.h"

namespace {

using enginetest::Bytes;
using enginetest::hex;

class ClosingTest : public enginetest::EngineTest {};

// Version, Message Type and both nonces; a NACK then carries the Configuration Error,
// little-endian on purpose. Building never touches the previous message.
TEST_F(ClosingTest, DoneAckAndNackBodies) {
    const Bytes nonces = hex("101A0010 E0E1E2E3E4E5E6E7E8E9EAEBECEDEEEF 10390010 202122232425262728292A2B2C2D2E2F");
    for (uint8_t i = 0; i < 16; ++i) {
        g_EnrolleeKeys.Nonce[i] = static_cast<uint8_t>(0xE0 + i);
        g_RegistrarKeys.Nonce[i] = static_cast<uint8_t>(0x20 + i);
    }
    std::memset(g_PrevMsgBuf, 0x3C, sizeof g_PrevMsgBuf);
    g_PrevMsgLen = 77;
    uint8_t b[64];
    uint32_t len = 0;
    EXPECT_TRUE(BuildMessageDone(b, &len));
    EXPECT_EQ(Bytes(b, b + len), testbytes::cat({hex("104A000110 102200010F"), nonces}));
    EXPECT_TRUE(BuildMessageACK(b, &len));
    EXPECT_EQ(Bytes(b, b + len), testbytes::cat({hex("104A000110 102200010D"), nonces}));
    EXPECT_TRUE(BuildMessageNACK(b, &len, 18));
    EXPECT_EQ(Bytes(b, b + len), testbytes::cat({hex("104A000110 102200010E"), nonces, hex("100900021200")}));
    EXPECT_TRUE(BuildMessageNACK(b, &len, 0x0102));
    EXPECT_EQ(Bytes(b + 50, b + len), hex("100900020201"));
    EXPECT_TRUE(log.has("Build message Done.\r\n"));
    EXPECT_TRUE(log.has("Build message ACK success.\r\n"));
    EXPECT_EQ(g_PrevMsgLen, 77);
    EXPECT_TRUE(std::all_of(g_PrevMsgBuf, g_PrevMsgBuf + kMsgBufLen, [](uint8_t x) { return x == 0x3C; }));
    std::memset(g_EnrolleeKeys.Nonce, 0, 16);
    std::memset(g_RegistrarKeys.Nonce, 0, 16);
}

}  // namespace
