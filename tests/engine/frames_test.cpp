// Frame layer: header writers, the checkers with every code in order, the packers and wrappers.
#include "engine_fixture.h"

namespace {

using enginetest::Bytes;
using enginetest::Header;
using enginetest::hex;
using enginetest::message_frame;

class FramesTest : public enginetest::EngineTest {};

TEST_F(FramesTest, ResponseIdentityInBothFlavours) {
    g_EapIdentifier = 7;
    uint8_t buf[64] = {};
    uint32_t len = 0;
    g_WPS_mode = WAPI_WPS_CERT;
    EXPECT_EQ(0, PackResponseIdentity(buf, &len));
    Bytes wapi = hex("02000024 0207002401");  // EAPOL body 36; EAP Response, id 7, length 36, Identity
    testbytes::append(wapi, "BWIPS-SimpleConfig-Enrollee-1-0");
    EXPECT_EQ(Bytes(buf, buf + len), wapi);
    ASSERT_EQ(len, 40u);

    g_WPS_mode = WIFI_WPS;
    EXPECT_EQ(0, PackResponseIdentity(buf, &len));
    Bytes wifi = hex("02000022 0207002201");
    testbytes::append(wifi, "WFA-SimpleConfig-Enrollee-1-0");
    EXPECT_EQ(Bytes(buf, buf + len), wifi);
}

TEST_F(FramesTest, AckFrameHasHeadersAroundTheBody) {
    g_WPS_mode = WAPI_WPS_PSK;
    g_EapIdentifier = 0x33;
    Bytes buf(128, 0);
    uint32_t len = 0;
    EXPECT_EQ(0, PackAck(buf.data(), &len));
    ASSERT_EQ(len, 68u);
    // EAPOL v2, EAP packet, body 64 | Response, id 0x33, length 64, type 242 | WAPI vendor,
    // vendor type 1, op-code ACK, flags 0 | body: Version, Message Type ACK ...
    EXPECT_EQ(Bytes(buf.begin(), buf.begin() + 28),
              hex("02000040 02330040F2 0081DB 00000001 02 00 104A000110 102200010D"));
    g_WPS_mode = WIFI_WPS;
    EXPECT_EQ(0, PackDone(buf.data(), &len));
    EXPECT_EQ(Bytes(buf.begin(), buf.begin() + 28),
              hex("02000040 02330040FE 00372A 00000001 05 00 104A000110 102200010F"));
}

// ---- UnpackHeader (-101 .. -108) and UnpackRequestStart (-7 .. -17), one spoiled header each --

struct HeaderCase {
    const char* name;
    uint32_t mode;
    void (*spoil)(Header&);
    int32_t header_code, start_code;
};

class HeaderCodes : public FramesTest, public ::testing::WithParamInterface<HeaderCase> {};

TEST_P(HeaderCodes, FirstFailingCheckIsReported) {
    const HeaderCase& c = GetParam();
    g_WPS_mode = c.mode;
    Header h = c.mode == WIFI_WPS ? enginetest::wifi_header() : Header{};
    c.spoil(h);
    const Bytes frame = message_frame(h, enginetest::routed_body(WPS_MSG_TYPE_M2, 4));
    const uint8_t* p = frame.data();
    EXPECT_EQ(c.header_code, UnpackHeader(&p, uint32_t(frame.size())));
    EXPECT_EQ(p, c.header_code == 0 ? frame.data() + 18 : frame.data());
    if (c.header_code != 0) {
        EXPECT_TRUE(log.has("Unpack header error, error code is " + std::to_string(c.header_code) +
                            ".\r\n"));
    }
    Header start = c.mode == WIFI_WPS ? enginetest::wifi_header() : Header{};
    start.opcode = WSC_OP_START;
    c.spoil(start);
    const Bytes f = message_frame(start, {});
    EXPECT_EQ(c.start_code, UnpackRequestStart(f.data(), uint32_t(f.size())));
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Frames, HeaderCodes, ::testing::Values(
    HeaderCase{"wapi_ok", WAPI_WPS_CERT, [](Header&) {}, 0, 0},
    HeaderCase{"wifi_ok", WIFI_WPS, [](Header&) {}, 0, 0},
    HeaderCase{"flags_not_examined", WAPI_WPS_CERT, [](Header& h) { h.flags = 3; }, 0, 0},
    HeaderCase{"eapol_type", WAPI_WPS_CERT, [](Header& h) { h.eapolType = 1; h.code = 2; }, -101, -7},
    HeaderCase{"eap_code", WAPI_WPS_CERT, [](Header& h) { h.code = 2; h.eapType = 1; }, -102, -9},
    HeaderCase{"wifi_type", WIFI_WPS, [](Header& h) { h.eapType = 242; h.vendor = {0, 0, 0}; }, -103, -10},
    HeaderCase{"wapi_type", WAPI_WPS_PSK, [](Header& h) { h.eapType = 254; h.vendor = {0, 0, 0}; }, -104, -11},
    HeaderCase{"wifi_vendor", WIFI_WPS, [](Header& h) { h.vendor = {0x00, 0x81, 0xDB}; h.vendorType = 2; }, -105, -13},
    HeaderCase{"wapi_vendor", WAPI_WPS_CERT, [](Header& h) { h.vendor = {0x00, 0x37, 0x2A}; h.vendorType = 2; }, -106, -14},
    HeaderCase{"vendor_type", WAPI_WPS_CERT, [](Header& h) { h.vendorType = 0x01000000; h.opcode = 2; }, -107, -15},
    HeaderCase{"opcode", WAPI_WPS_CERT, [](Header& h) { h.opcode = WSC_OP_ACK; }, -108, -16}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

// ---- UnpackRequestIdentity (-1 .. -6), the Start lengths and UnpackFailure (-106 .. -109) ------

struct BytesCase {
    const char* name;
    int32_t (*check)(const uint8_t*, uint32_t);
    const char* frame;
    int32_t code;
};

class FrameCodes : public FramesTest, public ::testing::WithParamInterface<BytesCase> {};

TEST_P(FrameCodes, FirstFailingCheckIsReported) {
    const BytesCase& c = GetParam();
    g_WPS_mode = WAPI_WPS_CERT;
    const Bytes f = hex(c.frame);
    EXPECT_EQ(c.code, c.check(f.data(), uint32_t(f.size())));
    // Identity and Start refusals name their code in their line; the identity body-length one
    // also gives the length read.
    const std::string code = std::to_string(c.code);
    const std::string line = c.check == UnpackRequestStart
                                 ? "Unpack request start error, error code is " + code + ".\r\n"
                                 : "Unpack Request Identity message erro, error code is " + code +
                                       (c.code == -3 ? ", pEapolHead->BodyLength = 6.\r\n" : ".\r\n");
    EXPECT_EQ(log.has(line), c.check != UnpackFailure && c.code != 0) << line;
}

constexpr auto kIdentity = UnpackRequestIdentity;
constexpr auto kStart = UnpackRequestStart;
constexpr auto kFailure = UnpackFailure;

INSTANTIATE_TEST_SUITE_P(
    Frames, FrameCodes,
    ::testing::Values(BytesCase{"identity_ok", kIdentity, "020000050107000501", 0},
                      BytesCase{"identity_length", kIdentity, "02000005010700050100", -1},
                      BytesCase{"identity_short", kIdentity, "0200000501070005", -1},
                      BytesCase{"identity_eapol_type", kIdentity, "020100060207000503", -2},
                      BytesCase{"identity_body_length", kIdentity, "020000060207000503", -3},
                      BytesCase{"identity_code", kIdentity, "020000050207000603", -4},
                      BytesCase{"identity_type", kIdentity, "020000050107000603", -5},
                      BytesCase{"identity_eap_length", kIdentity, "020000050107000601", -6},
                      BytesCase{"start_body_length", kStart, "0200000F 0107000F F2 0081DB 00000001 01 00", -8},
                      BytesCase{"start_eap_length", kStart, "0200000E 0107000F F2 0081DB 00000001 01 00", -12},
                      // One byte too long fails only after every header test passed; a short
                      // frame's missing bytes read as 0, so its vendor type fails.
                      BytesCase{"start_one_byte_long", kStart, "0200000E 0107000E F2 0081DB 00000001 01 00 00", -17},
                      BytesCase{"start_short", kStart, "0200000E 0107000E F2 0081DB 00", -15},
                      BytesCase{"failure_ok", kFailure, "0200000404070004", 0},
                      BytesCase{"failure_nine_bytes", kFailure, "020000040407000400", -106},
                      BytesCase{"failure_eapol_type", kFailure, "0201000504070004", -107},
                      BytesCase{"failure_body_length", kFailure, "0200000503070004", -108},
                      BytesCase{"failure_code", kFailure, "0200000403070004", -109}),
    [](const auto& info) { return std::string(info.param.name); });

// ---- Received-side wrappers ---------------------------------------------------------------------

// The header code comes back before any parsing; frames shorter than their headers are refused
// without reading past them.
TEST_F(FramesTest, ReceivedWrappersReportTheHeaderCodeAndSurviveShortFrames) {
    g_WPS_mode = WAPI_WPS_CERT;
    Header h;
    h.opcode = WSC_OP_DONE;
    const Bytes f = message_frame(h, enginetest::routed_body(WPS_MSG_TYPE_M4, 8)),
                bare = message_frame(Header{}, {});
    for (auto unpack : {UnpackM2, UnpackM4, UnpackM6, UnpackM8}) {
        EXPECT_EQ(-108, unpack(f.data(), uint32_t(f.size())));
        for (uint32_t n = 0; n <= 18; ++n) {
            const Bytes cut(bare.begin(), bare.begin() + n);  // exactly n bytes exist
            EXPECT_NE(0, unpack(cut.data(), n)) << n;
            EXPECT_NE(0, UnpackM8Entire(cut.data(), n)) << n;
        }
    }
    EXPECT_TRUE(log.has("Start Unpack M2.\r\n"));
    EXPECT_FALSE(log.has("Unpack M2 success.\r\n"));
}

}  // namespace
