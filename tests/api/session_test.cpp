// Session exports: SetDeviceInfo, StartWPS, StartWPS_SecureChip, StopWPS.
#include "engine/engine_fixture.h"

namespace {

using enginetest::Bytes;
using enginetest::hex;
using enginetest::kLocal;
using enginetest::kPeer;

class SessionTest : public enginetest::EngineTest {
  protected:
    int32_t start_with(int32_t address, int32_t mode, const void* peer, const char* pin) {
        out_len = 0xDEADBEEF;
        return StartWPS(kLocal, address, mode, peer, pin, out.data(), &out_len);
    }
    static std::string text(const char* field, size_t cap) {
        return std::string(field, strnlen(field, cap));
    }
};

// Host strings are UTF-16 units.
std::vector<wapiwps_utf16> utf16(std::initializer_list<uint16_t> units) {
    std::vector<wapiwps_utf16> v;
    for (uint16_t u : units) v.push_back(static_cast<wapiwps_utf16>(u));
    v.push_back(0);
    return v;
}

// The fixed identity texts are pinned byte for byte by the M1 layout test.
TEST_F(SessionTest, SetDeviceInfoFillsTheM1Identity) {
    const uint8_t uuid[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    const auto name = utf16({'S', 't', 'a', 0x00E9});  // "Staé"
    EXPECT_EQ(0, SetDeviceInfo(uuid, name.data()));
    EXPECT_EQ(0, std::memcmp(g_MyMsgInfo.UUID_E, uuid, 16));
    EXPECT_EQ(text(g_MyMsgInfo.DeviceName, 32), "Sta\xC3\xA9");
    EXPECT_TRUE(log.has("SetDeviceInfo.\r\n"));
}

// Our bound: the name is cut at a UTF-8 character boundary to fit 32 bytes, with no NUL when full.
TEST_F(SessionTest, LongDeviceNameIsCutAtACharacterBoundary) {
    const uint8_t uuid[16] = {};
    std::vector<wapiwps_utf16> name(11, static_cast<wapiwps_utf16>(0x4E2D));  // 11 x 3 bytes
    name.push_back(0);
    EXPECT_EQ(0, SetDeviceInfo(uuid, name.data()));
    EXPECT_EQ(strnlen(g_MyMsgInfo.DeviceName, 32), 30u);
    EXPECT_EQ(g_MyMsgInfo.DeviceName[30], 0);

    std::vector<wapiwps_utf16> ascii(100, static_cast<wapiwps_utf16>('x'));
    ascii.push_back(0);
    EXPECT_EQ(0, SetDeviceInfo(uuid, ascii.data()));
    EXPECT_EQ(std::string(g_MyMsgInfo.DeviceName, 32), std::string(32, 'x'));

}

TEST_F(SessionTest, SetDeviceInfoRefusesNullAndForgetsTheIdentityList) {
    const uint8_t uuid[16] = {9};
    const auto name = utf16({'n'});
    g_MyMsgInfo.UUID_E[0] = 0x77;
    EXPECT_EQ(-1, SetDeviceInfo(nullptr, name.data()));
    EXPECT_EQ(-1, SetDeviceInfo(uuid, nullptr));
    EXPECT_EQ(g_MyMsgInfo.UUID_E[0], 0x77);

    std::vector<uint8_t> entry(WAPIWPS_IDENTITY_ENTRY_LEN, 0);
    ASSERT_EQ(1, SetCertIdentityStruct2(1, entry.data()));
    EXPECT_EQ(0, SetDeviceInfo(uuid, name.data()));
    EXPECT_EQ(g_IdentityCount, 0);
    EXPECT_EQ(g_IdentityList, nullptr);
}

TEST_F(SessionTest, ModeZeroResetsAndWritesNothing) {
    g_State_Machine = WAIT_M4;
    EXPECT_EQ(0, start_with(WAPIWPS_ADDRESS_MAC, WAPIWPS_MODE_NO_WPS, kPeer, nullptr));
    EXPECT_EQ(g_State_Machine, WAIT_START);
    EXPECT_EQ(g_WPS_mode, NO_WPS);
    EXPECT_EQ(out_len, 0xDEADBEEF);
    EXPECT_TRUE(
        std::all_of(out.begin(), out.end(), [](uint8_t b) { return b == enginetest::kSentinel; }));
    EXPECT_TRUE(log.has("WPS mode is NO_WPS.\r\n"));
}

TEST_F(SessionTest, EapolStartWithAndWithoutThePrefix) {
    EXPECT_EQ(1, start_with(WAPIWPS_ADDRESS_MAC, WAPIWPS_MODE_WAPI_CERT, kPeer, nullptr));
    EXPECT_EQ(Bytes(out.begin(), out.begin() + out_len), hex("001122334455 891B 02010000"));
    EXPECT_EQ(g_State_Machine, WAIT_REQUEST_IDENTITY);
    EXPECT_EQ(0, std::memcmp(PeerAddress, kPeer, 6));
    for (int32_t address : {WAPIWPS_ADDRESS_IPV4, WAPIWPS_ADDRESS_TEXT}) {
        EXPECT_EQ(1, start_with(address, WAPIWPS_MODE_WIFI, "192.168.1.1", nullptr));
        EXPECT_EQ(Bytes(out.begin(), out.begin() + out_len), hex("02010000"));
        EXPECT_EQ(std::string(reinterpret_cast<char*>(PeerAddress), 11), "192.168.1.1");
    }
    EXPECT_TRUE(log.has("Start WPS Success.\r\n"));
}

TEST_F(SessionTest, LocalAddressWidthFollowsTheAddressMode) {
    struct Case {
        int32_t mode;
        size_t width;
    };
    for (const Case c : {Case{0, 6}, Case{1, 4}, Case{2, 16}, Case{7, 6}}) {
        const uint8_t local[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
        std::memset(g_MyMsgInfo.LocalAddress, 0xEE, 16);
        StartWPS(local, c.mode, WAPIWPS_MODE_WAPI_PSK,
                 c.mode == 0 || c.mode == 7 ? (const void*)kPeer : "p", nullptr, out.data(),
                 &out_len);
        for (size_t i = 0; i < 16; ++i)
            EXPECT_EQ(g_MyMsgInfo.LocalAddress[i], i < c.width ? local[i] : 0)
                << c.mode << ' ' << i;
    }
}

TEST_F(SessionTest, FlagsFollowTheFlavour) {
    start_with(WAPIWPS_ADDRESS_MAC, WAPIWPS_MODE_WIFI, kPeer, nullptr);
    EXPECT_EQ(g_MyMsgInfo.AuthTypeFlags, 0x0027);
    EXPECT_EQ(g_MyMsgInfo.EncrTypeFlags, 0x000F);
    for (int32_t mode : {2, 3, 9}) {
        start_with(WAPIWPS_ADDRESS_MAC, mode, kPeer, nullptr);
        EXPECT_EQ(g_MyMsgInfo.AuthTypeFlags, 0xE000);
        EXPECT_EQ(g_MyMsgInfo.EncrTypeFlags, 0x8000);
        EXPECT_EQ(g_WPS_mode, uint32_t(mode));
    }
}

TEST_F(SessionTest, PinRules) {
    start_with(WAPIWPS_ADDRESS_MAC, WAPIWPS_MODE_WAPI_PSK, kPeer, nullptr);
    EXPECT_EQ(g_MyMsgInfo.DevicePasswordId, 4);
    EXPECT_EQ(std::string(g_MyMsgInfo.DevicePassword, 9), std::string("00000000\0", 9));

    // Text modes keep the text; a PIN beyond 32 characters is cut to the field (our bound).
    // The peer text is cut to its 16-byte field too.
    start_with(WAPIWPS_ADDRESS_TEXT, WAPIWPS_MODE_WAPI_PSK, "fe80::1234:5678:9abc:def0",
               "1234567890123456789012345678901234567890");
    EXPECT_EQ(std::string(reinterpret_cast<char*>(PeerAddress), 16), "fe80::1234:5678:");
    EXPECT_EQ(g_MyMsgInfo.DevicePasswordId, 0);
    EXPECT_EQ(std::string(g_MyMsgInfo.DevicePassword, 32), "12345678901234567890123456789012");

    // MAC mode takes exactly 8 bytes and inherits nothing from the longer PIN before it.
    const char pin[8] = {'8', '7', '6', '5', '4', '3', '2', '1'};
    start_with(WAPIWPS_ADDRESS_MAC, WAPIWPS_MODE_WAPI_PSK, kPeer, pin);
    EXPECT_EQ(std::string(g_MyMsgInfo.DevicePassword, 32),
              std::string("87654321") + std::string(24, '\0'));
    EXPECT_TRUE(log.has("pPIN != NULL.\r\n"));

    // A shorter MAC-mode PIN is read up to its NUL, never past the host's string.
    const char short_pin[5] = {'1', '2', '3', '4', '\0'};
    start_with(WAPIWPS_ADDRESS_MAC, WAPIWPS_MODE_WAPI_PSK, kPeer, short_pin);
    EXPECT_EQ(std::string(g_MyMsgInfo.DevicePassword, 32), std::string("1234") + std::string(28, '\0'));
}

TEST_F(SessionTest, TextLocalAddressIsReadUpToItsNul) {
    const char local[9] = "10.1.2.3";  // 9 bytes: a 16-byte read would run past it
    ASSERT_EQ(StartWPS(reinterpret_cast<const uint8_t*>(local), WAPIWPS_ADDRESS_TEXT,
                       WAPIWPS_MODE_WAPI_PSK, "peer", nullptr, out.data(), &out_len),
              1);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(g_MyMsgInfo.LocalAddress), 16),
              std::string("10.1.2.3") + std::string(8, '\0'));
}

TEST_F(SessionTest, StartResetsTheRunButKeepsTheListAndFragmentOffset) {
    std::memset(g_PrevMsgBuf, 0x42, sizeof g_PrevMsgBuf);
    g_PrevMsgLen = 12;
    g_PeerCertFlag = 1;
    g_FragState = DO_FRAG;
    g_FragOffset = 321;
    std::vector<uint8_t> entry(WAPIWPS_IDENTITY_ENTRY_LEN, 0);
    ASSERT_EQ(1, SetCertIdentityStruct2(1, entry.data()));
    EXPECT_EQ(1, start_with(WAPIWPS_ADDRESS_MAC, WAPIWPS_MODE_WAPI_CERT, kPeer, nullptr));
    EXPECT_TRUE(
        std::all_of(g_PrevMsgBuf, g_PrevMsgBuf + kMsgBufLen, [](uint8_t b) { return b == 0; }));
    EXPECT_EQ(g_PrevMsgLen, 0);
    EXPECT_EQ(g_PeerCertFlag, 0);
    EXPECT_EQ(g_FragState, NO_FRAG);
    EXPECT_EQ(g_FragOffset, 321);
    EXPECT_EQ(g_IdentityCount, 1);
    EXPECT_NE(g_IdentityList, nullptr);
}

TEST_F(SessionTest, NullPointersRefuseBeforeAnyChange) {
    start_with(WAPIWPS_ADDRESS_MAC, WAPIWPS_MODE_WAPI_CERT, kPeer, nullptr);
    g_State_Machine = WAIT_M6;
    EXPECT_EQ(0, StartWPS(nullptr, 0, 3, kPeer, nullptr, out.data(), &out_len));
    EXPECT_EQ(0, StartWPS(kLocal, 0, 3, nullptr, nullptr, out.data(), &out_len));
    EXPECT_EQ(0, StartWPS(kLocal, 0, 3, kPeer, nullptr, nullptr, &out_len));
    EXPECT_EQ(0, StartWPS(kLocal, 0, 3, kPeer, nullptr, out.data(), nullptr));
    EXPECT_EQ(0, StartWPS_SecureChip(kLocal, 0, 3, kPeer, nullptr, out.data(), nullptr));
    EXPECT_EQ(g_State_Machine, WAIT_M6);
    EXPECT_EQ(g_WPS_mode, WAPI_WPS_CERT);
}

// The run is started either way; only a created client switches signing to the chip.
TEST_F(SessionTest, SecureChipStartReportsTheClientOutcome) {
    // The client is created (its watcher waits for a service) even with no service running.
    EXPECT_EQ(1, StartWPS_SecureChip(kLocal, 0, 3, kPeer, nullptr, out.data(), &out_len));
    EXPECT_EQ(g_State_Machine, WAIT_REQUEST_IDENTITY);
    EXPECT_EQ(out_len, 12u);
    EXPECT_EQ(g_IsDoSecureChip, 1);
    EXPECT_EQ(0, StartWPS_SecureChip(kLocal, 0, 0, kPeer, nullptr, out.data(), &out_len));
    EXPECT_EQ(g_IsDoSecureChip, 0);
}

TEST_F(SessionTest, StopTwiceIsHarmless) {
    start_with(WAPIWPS_ADDRESS_MAC, WAPIWPS_MODE_WAPI_CERT, kPeer, nullptr);
    std::vector<uint8_t> entry(WAPIWPS_IDENTITY_ENTRY_LEN, 0);
    SetCertIdentityStruct2(1, entry.data());
    g_ResultLength = 5;
    EXPECT_EQ(1, StopWPS());
    EXPECT_EQ(1, StopWPS());
    EXPECT_EQ(g_State_Machine, WAIT_START);
    EXPECT_EQ(g_WPS_mode, NO_WPS);
    EXPECT_EQ(g_IdentityList, nullptr);
    EXPECT_EQ(g_ResultLength, 5);  // results stay readable
    for (uint8_t b : PeerAddress) EXPECT_EQ(b, 0);
    g_ResultLength = 0;
}

}  // namespace
