// Attribute codec: AddTlv's wire form and GetTlvFromType's walk, its two intended quirks and the
// bounds we add around them.
#include "engine/engine_fixture.h"

namespace {

using enginetest::Bytes;
using enginetest::hex;

int32_t find(uint16_t type, const Bytes& message, int32_t length, Bytes& value,
             uint16_t& valueLength) {
    return GetTlvFromType(type, message, length, value, &valueLength);
}

TEST(AddTlv, WritesTypeAndLengthBigEndianAndAdvances) {
    uint8_t buf[16] = {};
    uint8_t* cursor = buf;
    const uint8_t m1 = 0x04, version = 0x10;
    AddTlv(&cursor, ATTR_MSG_TYPE, &m1, 1);
    AddTlv(&cursor, ATTR_VERSION, &version, 1);
    EXPECT_EQ(Bytes(buf, cursor), hex("1022000104 104A000110"));
}

TEST(AddTlv, LongLengthIsTruncatedOnTheWireButCopiedWhole) {
    Bytes value(65536 + 3, 0x77);
    Bytes buf(value.size() + 8, 0);
    uint8_t* cursor = buf.data();
    AddTlv(&cursor, 0x1FF7, value.data(), static_cast<uint32_t>(value.size()));
    EXPECT_EQ(cursor, buf.data() + 4 + value.size());
    EXPECT_EQ(Bytes(buf.begin(), buf.begin() + 4), hex("1FF70003"));  // 65539 & 0xFFFF
    EXPECT_EQ(buf[4 + value.size() - 1], 0x77);
    EXPECT_EQ(buf[4 + value.size()], 0x00);
}

TEST(GetTlvFromType, EmptyOrNegativeMessageIsNotFound) {
    enginetest::TraceLog log;
    trace_set_callback(enginetest::record_trace, &log, false);
    Bytes msg = hex("10220001 04"), value(16);
    uint16_t len = 0xFFFF;
    EXPECT_EQ(0, find(ATTR_MSG_TYPE, msg, 0, value, len));
    EXPECT_EQ(0, find(ATTR_MSG_TYPE, msg, -5, value, len));
    EXPECT_EQ(len, 0xFFFF);
    trace_set_callback(nullptr, nullptr, false);
    EXPECT_TRUE(log.has("not find.\r\n"));
}

TEST(GetTlvFromType, FindsFirstOfTypeAndReturnsOffsetPastIt) {
    // 0: Version(1)  5: Nonce(2 bytes)  11: Nonce again (ignored)
    Bytes msg = hex("104A000110 101A0002AABB 101A0002CCDD");
    Bytes value(8, 0);
    uint16_t len = 0;
    EXPECT_EQ(11, find(ATTR_ENROLLEE_NONCE, msg, int32_t(msg.size()), value, len));
    EXPECT_EQ(len, 2);
    EXPECT_EQ(value[0], 0xAA);
    EXPECT_EQ(value[1], 0xBB);
}

TEST(GetTlvFromType, AbsentTypeWalksTheWholeSequence) {
    enginetest::TraceLog log;
    trace_set_callback(enginetest::record_trace, &log, false);
    Bytes msg = hex("104A000110 10220001 05"), value(8);
    uint16_t len = 0;
    EXPECT_EQ(0, find(ATTR_UUID_R, msg, int32_t(msg.size()), value, len));
    trace_set_callback(nullptr, nullptr, false);
    EXPECT_TRUE(log.has("GetTlvFromType now type = 104A.\r\n"));
    EXPECT_TRUE(log.has("GetTlvFromType now type = 1022.\r\n"));
    EXPECT_TRUE(log.has("not find.\r\n"));
}

TEST(GetTlvFromType, ZeroLengthAttributeIsFound) {
    Bytes msg = hex("104A000110 10480000 10220001 05"), value(8);
    uint16_t len = 0xFF;
    EXPECT_EQ(9, find(ATTR_UUID_R, msg, int32_t(msg.size()), value, len));
    EXPECT_EQ(len, 0);
}

TEST(GetTlvFromType, OverlongEarlierAttributeEndsTheSearch) {
    // The first attribute claims 0x40 bytes of a 14-byte message: nothing after it is examined.
    Bytes msg = hex("104A0040 10 1022000105 AAAA"), value(128);
    uint16_t len = 0;
    EXPECT_EQ(0, find(ATTR_MSG_TYPE, msg, int32_t(msg.size()), value, len));
}

TEST(GetTlvFromType, OverlongMatchIsRefusedWithItsTrace) {
    enginetest::TraceLog log;
    trace_set_callback(enginetest::record_trace, &log, false);
    Bytes msg = hex("104A000110 10220009 05"), value(128);
    uint16_t len = 0;
    EXPECT_EQ(0, find(ATTR_MSG_TYPE, msg, int32_t(msg.size()), value, len));
    trace_set_callback(nullptr, nullptr, false);
    EXPECT_TRUE(log.has("Length > remain, Length = 9, remain = 5.\r\n"));
}

// Intended quirk 1: the bound counts from the type field, so a last value may run up to 3 bytes
// past the stated length and is still copied whole (when those bytes exist).
TEST(GetTlvFromType, LastValueMayRunThreeBytesPastStatedLength) {
    Bytes msg = hex("104A000110 10480004 01020304");  // 13 bytes present
    Bytes value(8, 0);
    uint16_t len = 0;
    // Stated length 10: remain = 5 at offset 5, L = 4 < 5: copied from the value, all 4 bytes.
    EXPECT_EQ(13, find(ATTR_UUID_R, msg, 10, value, len));
    EXPECT_EQ(len, 4);
    EXPECT_EQ(Bytes(value.begin(), value.begin() + 4), hex("01020304"));
}

// Intended quirk 2: L equal to the remaining count copies from the length field itself.
TEST(GetTlvFromType, LengthEqualToRemainCopiesFromTheLengthField) {
    Bytes msg = hex("104A000110 10480004 0102 0304");
    Bytes value(8, 0);
    uint16_t len = 0;
    // Stated length 9: remain at offset 5 is 4 = L.
    EXPECT_EQ(13, find(ATTR_UUID_R, msg, 9, value, len));
    EXPECT_EQ(len, 4);
    EXPECT_EQ(Bytes(value.begin(), value.begin() + 4), hex("00040102"));
}

// Our bounds around the quirks: bytes that do not exist are never read, and the value span is
// never overrun; both read as "not found".
TEST(GetTlvFromType, NeverReadsPastReadableNorWritesPastValue) {
    Bytes msg = hex("104A000110 10480004 0102");  // value cut short: 2 of 4 bytes present
    Bytes value(8, 0xEE);
    uint16_t len = 0x55;
    EXPECT_EQ(0, find(ATTR_UUID_R, msg, 10, value, len));
    EXPECT_EQ(len, 0x55);
    EXPECT_EQ(value, Bytes(8, 0xEE));

    Bytes whole = hex("104A000110 10480004 01020304");
    Bytes small(3, 0xEE);
    EXPECT_EQ(0, find(ATTR_UUID_R, whole, int32_t(whole.size()), small, len));
    EXPECT_EQ(small, Bytes(3, 0xEE));

    // A stated length larger than the readable bytes: a header beyond them is not read.
    Bytes header_cut = hex("104A000110 1048");
    EXPECT_EQ(0, find(ATTR_UUID_R, header_cut, 100, value, len));
}

}  // namespace
