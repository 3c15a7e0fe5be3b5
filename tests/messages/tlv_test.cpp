// Attribute codec: AddTlv's wire form and GetTlvFromType's walk, its two intended quirks and the
// bounds we add around them.
#include "engine/engine_fixture.h"

namespace {

using enginetest::Bytes;
using enginetest::hex;

// Type and length big-endian, the cursor advanced; a length above 16 bits is truncated on the
// wire but the value copied whole.
TEST(AddTlv, WritesTypeAndLengthBigEndianAndAdvances) {
    Bytes value(65536 + 3, 0x77), buf(value.size() + 16, 0);
    uint8_t* cursor = buf.data();
    const uint8_t m1 = 0x04;
    AddTlv(&cursor, ATTR_MSG_TYPE, &m1, 1);
    AddTlv(&cursor, 0x1FF7, value.data(), static_cast<uint32_t>(value.size()));
    EXPECT_EQ(cursor, buf.data() + 9 + value.size());
    EXPECT_EQ(Bytes(buf.begin(), buf.begin() + 9), hex("1022000104 1FF70003"));  // 65539 & 0xFFFF
    EXPECT_EQ(buf[9 + value.size() - 1], 0x77);
    EXPECT_EQ(buf[9 + value.size()], 0x00);
}

// GetTlvFromType on hand-made sequences, with its two intended quirks and the bounds we add
// around them. `stated` is the length handed over (kWhole: the whole message); a refusal returns 0
// and leaves the length and the value untouched.
constexpr int32_t kWhole = INT32_MIN;

struct Lookup {
    const char* name;
    const char* message;
    int32_t stated;
    uint16_t type;
    size_t room;           // bytes of the value buffer
    int32_t offset;        // the result: offset past the attribute, or 0
    const char* value;     // hex of the copied value; nullptr when refused
};

const Lookup kLookups[] = {
    {"EmptyMessage", "10220001 04", 0, ATTR_MSG_TYPE, 16, 0, nullptr},
    {"NegativeLength", "10220001 04", -5, ATTR_MSG_TYPE, 16, 0, nullptr},
    {"FirstOfItsType", "104A000110 101A0002AABB 101A0002CCDD", kWhole, ATTR_ENROLLEE_NONCE, 8, 11, "AABB"},
    {"Absent", "104A000110 10220001 05", kWhole, ATTR_UUID_R, 8, 0, nullptr},
    {"ZeroLength", "104A000110 10480000 10220001 05", kWhole, ATTR_UUID_R, 8, 9, ""},
    // An earlier attribute claiming more than the message ends the search.
    {"OverlongEarlier", "104A0040 10 1022000105 AAAA", kWhole, ATTR_MSG_TYPE, 128, 0, nullptr},
    {"OverlongMatch", "104A000110 10220009 05", kWhole, ATTR_MSG_TYPE, 128, 0, nullptr},
    // Quirk 1: the bound counts from the type field, so the last value may run 3 bytes past the
    // stated length (10 here) and is copied whole when those bytes exist.
    {"LastValuePastStatedLength", "104A000110 10480004 01020304", 10, ATTR_UUID_R, 8, 13, "01020304"},
    // Quirk 2: a length equal to the remaining count (stated 9) copies from the length field.
    {"LengthEqualToRemain", "104A000110 10480004 01020304", 9, ATTR_UUID_R, 8, 13, "00040102"},
    // Our bounds: bytes that do not exist are never read, the value buffer never overrun.
    {"ValueCutShort", "104A000110 10480004 0102", 10, ATTR_UUID_R, 8, 0, nullptr},
    {"ValueLargerThanRoom", "104A000110 10480004 01020304", kWhole, ATTR_UUID_R, 3, 0, nullptr},
    {"HeaderCutShort", "104A000110 1048", 100, ATTR_UUID_R, 8, 0, nullptr},
};

TEST(GetTlvFromType, Lookups) {
    for (const Lookup& c : kLookups) {
        const Bytes msg = hex(c.message);
        Bytes value(c.room, 0xEE);
        uint16_t len = 0x5555;
        const int32_t stated = c.stated == kWhole ? int32_t(msg.size()) : c.stated;
        EXPECT_EQ(c.offset, GetTlvFromType(c.type, msg, stated, value, &len)) << c.name;
        if (c.value == nullptr) {
            EXPECT_EQ(len, 0x5555) << c.name;
            EXPECT_EQ(value, Bytes(c.room, 0xEE)) << c.name;
        } else {
            const Bytes want = hex(c.value);
            EXPECT_EQ(len, want.size()) << c.name;
            EXPECT_EQ(Bytes(value.begin(), value.begin() + long(want.size())), want) << c.name;
        }
    }
}

}  // namespace
