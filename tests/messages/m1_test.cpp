// M1 byte layout: attribute order and values, the Primary Device Type with the repeated category,
// the MAC Address length rule, Certificate Mode only in mode 3, and the copy kept for M3.
#include <gtest/gtest.h>

#include "registrar_side.h"

namespace {

using namespace msgtest;

struct M1Case {
    uint32_t wps_mode;
    uint32_t address_mode;
    Bytes oui;
    bool certificate_mode;
};

class M1Layout : public ::testing::TestWithParam<M1Case> {};

// The whole body as the protocol lays it out, written independently of the builder.
Bytes expected_m1(const M1Case& c, size_t mac_len) {
    const MyMsgInfo& i = g_MyMsgInfo;
    const Bytes public_key = cat({bytes_of(g_EnrolleeKeys.PublicKey, 64), bytes_of(g_EnrolleeKeys.TempPublicKey, 64)});
    Bytes m = cat({
        tlv(0x104A, {0x10}),                                  // Version
        tlv(0x1022, {0x04}),                                  // Message Type M1
        tlv(0x1047, bytes_of(i.UUID_E, 16)),                  // UUID-E
        tlv(0x1020, bytes_of(i.LocalAddress, mac_len)),       // MAC Address
        tlv(0x101A, bytes_of(g_EnrolleeKeys.Nonce, 16)),      // Enrollee Nonce
        tlv(0x1032, public_key),                              // Public Key: first pair, then temporary
        tlv(0x1004, be16(i.AuthTypeFlags)),                   // Authentication Type Flags
        tlv(0x1010, be16(i.EncrTypeFlags)),                   // Encryption Type Flags
        tlv(0x100D, {0x01}),                                  // Connection Type Flags
        tlv(0x1008, {0x00, 0x8C}),                            // Config Methods
        tlv(0x1044, {0x01}),                                  // Simple Config State
        tlv(0x1021, text(i.Manufacturer)),                    // Manufacturer
        tlv(0x1023, text(i.ModelName)),                       // Model Name
        tlv(0x1024, text(i.ModelNumber)),                     // Model Number
        tlv(0x1042, text(i.SerialNumber)),                    // Serial Number
        tlv(0x1054, cat({{0x00, 0x01}, c.oui, {0x00, 0x01}})),  // Primary Device Type
        tlv(0x1011, text(i.DeviceName)),                      // Device Name
        tlv(0x103C, {0x03}),                                  // RF Bands
        tlv(0x1002, {0x00, 0x00}),                            // Association State
        tlv(0x1012, be16(i.DevicePasswordId)),                // Device Password ID
        tlv(0x1009, {0x00, 0x00}),                            // Configuration Error
        tlv(0x102D, {0x0A, 0x0B, 0x0C, 0x0D}),                // OS Version
    });
    if (c.certificate_mode) m = cat({m, tlv(0x1FF9, {0x0F})});  // Certificate Mode
    return m;
}

TEST_P(M1Layout, WholeBody) {
    const M1Case c = GetParam();
    set_device_info(c.wps_mode, c.address_mode, "12345670");
    if (c.address_mode == TEXT_ADDRESS) std::memcpy(g_MyMsgInfo.LocalAddress, "192.168.1.20", 13);
    if (c.address_mode == IPV4_ADDRESS) {
        std::memset(g_MyMsgInfo.LocalAddress, 0, 16);
        std::memcpy(g_MyMsgInfo.LocalAddress, "\xC0\xA8\x01\x14", 4);
    }
    ASSERT_TRUE(InitSession());
    std::vector<uint8_t> out(kMaxBodyLen, 0xEE);
    uint32_t len = 0;
    ASSERT_TRUE(BuildMessageM1(out.data(), &len));
    const size_t mac_len = c.address_mode == TEXT_ADDRESS ? 12 : 6;
    const Bytes expected = expected_m1(c, mac_len);
    ASSERT_EQ(len, expected.size());
    EXPECT_EQ(head(out, len), expected);
    EXPECT_EQ(out[len], 0xEE) << "nothing written past the body";

    // Every M1 begins with Version, Message Type and the UUID-E header.
    const Bytes prefix = {0x10, 0x4A, 0x00, 0x01, 0x10, 0x10, 0x22, 0x00, 0x01, 0x04, 0x10, 0x47, 0x00, 0x10};
    EXPECT_EQ(head(out, prefix.size()), prefix);
    // The copy kept for the Authenticator of M3.
    EXPECT_EQ(g_PrevMsgLen, len);
    EXPECT_EQ(bytes_of(g_PrevMsgBuf, len), head(out, len));
    EXPECT_EQ(g_PrevMsgBuf[len], 0);
    if (c.certificate_mode) {
        EXPECT_EQ(CertificateModeOffer, 0x0F);
    }
    EXPECT_NE(bytes_of(g_EnrolleeKeys.TempPublicKey, 64), Bytes(64, 0));
}

INSTANTIATE_TEST_SUITE_P(
    Modes, M1Layout,
    ::testing::Values(M1Case{WIFI_WPS, MAC_ADDRESS, {0x00, 0x50, 0xF2, 0x04}, false},
                      M1Case{WAPI_WPS_PSK, MAC_ADDRESS, {0x00, 0x00, 0x14, 0x72}, false},
                      M1Case{WAPI_WPS_CERT, MAC_ADDRESS, {0x00, 0x00, 0x14, 0x72}, true},
                      M1Case{7, MAC_ADDRESS, {0x00, 0x00, 0x14, 0x72}, false},  // another PSK value
                      M1Case{WAPI_WPS_PSK, IPV4_ADDRESS, {0x00, 0x00, 0x14, 0x72}, false},
                      M1Case{WAPI_WPS_PSK, TEXT_ADDRESS, {0x00, 0x00, 0x14, 0x72}, false}));

TEST(M1, DefaultsAndEdgeFields) {
    set_device_info(WIFI_WPS, IPV4_ADDRESS, "12345670");
    std::memset(g_MyMsgInfo.LocalAddress, 0, 16);
    std::memcpy(g_MyMsgInfo.LocalAddress, "\x0A\x00\x00\x07", 4);
    // Full 32-byte texts carry no NUL; an empty one gives a zero-length attribute.
    std::memset(g_MyMsgInfo.Manufacturer, 'M', 32);
    g_MyMsgInfo.DeviceName[0] = '\0';
    g_MyMsgInfo.PrimaryDeviceSubCategory = 9;  // not read: the category is repeated
    ASSERT_TRUE(InitSession());
    std::vector<uint8_t> out(kMaxBodyLen);
    uint32_t len = 0;
    ASSERT_TRUE(BuildMessageM1(out.data(), &len));
    const Bytes body = head(out, len);
    auto find = [&](uint16_t type) {
        for (size_t off = 0; off + 4 <= body.size();) {
            const uint16_t t = static_cast<uint16_t>(body[off] << 8 | body[off + 1]);
            const size_t l = static_cast<size_t>(body[off + 2] << 8 | body[off + 3]);
            if (t == type) return Bytes(body.begin() + off + 4, body.begin() + off + 4 + l);
            off += 4 + l;
        }
        return Bytes{0xDE, 0xAD};
    };
    EXPECT_EQ(find(0x1020), (Bytes{0x0A, 0x00, 0x00, 0x07, 0x00, 0x00})) << "4-byte address sends 6 bytes";
    EXPECT_EQ(find(0x1021), Bytes(32, 'M'));
    EXPECT_EQ(find(0x1011), Bytes{});
    EXPECT_EQ(find(0x1054), (Bytes{0x00, 0x01, 0x00, 0x50, 0xF2, 0x04, 0x00, 0x01}));
    EXPECT_EQ(find(0x1008), (Bytes{0x00, 0x8C}));
    EXPECT_EQ(find(0x103C), Bytes{0x03});
    EXPECT_EQ(find(0x100D), Bytes{0x01});
    EXPECT_EQ(find(0x1009), (Bytes{0x00, 0x00}));
    EXPECT_EQ(find(0x1044), Bytes{0x01});
    EXPECT_EQ(find(0x1002), (Bytes{0x00, 0x00}));
    EXPECT_EQ(find(0x1FF9), (Bytes{0xDE, 0xAD})) << "no Certificate Mode outside mode 3";
}

TEST(M1, SecondBuildReplacesTheTemporaryPair) {
    set_device_info(WAPI_WPS_PSK, MAC_ADDRESS, "12345670");
    ASSERT_TRUE(InitSession());
    std::vector<uint8_t> out(kMaxBodyLen);
    uint32_t len = 0;
    ASSERT_TRUE(BuildMessageM1(out.data(), &len));
    const Bytes first = bytes_of(g_EnrolleeKeys.TempPublicKey, 64);
    ASSERT_TRUE(BuildMessageM1(out.data(), &len));
    EXPECT_NE(bytes_of(g_EnrolleeKeys.TempPublicKey, 64), first);
}

TEST(M1, KeyPairFailureSendsAZeroTemporaryKey) {
    set_device_info(WAPI_WPS_PSK, MAC_ADDRESS, "12345670");
    ASSERT_TRUE(InitSession());
    void* const saved = g_phSessionHandle;
    g_phSessionHandle = nullptr;  // the library refuses an unknown session
    std::vector<uint8_t> out(kMaxBodyLen);
    uint32_t len = 0;
    EXPECT_TRUE(BuildMessageM1(out.data(), &len)) << "the builder has no failure path";
    g_phSessionHandle = saved;
    EXPECT_EQ(bytes_of(g_EnrolleeKeys.TempPublicKey, 64), Bytes(64, 0));
    EXPECT_EQ(bytes_of(g_EnrolleeKeys.TempPrivateKey, 32), Bytes(32, 0));
    // Public Key value: first pair intact, temporary half zero. It follows Version, Message Type,
    // UUID-E, MAC Address (6) and Enrollee Nonce: 5 + 5 + 20 + 10 + 20 = 60 bytes, then the header.
    EXPECT_EQ(Bytes(out.begin() + 64, out.begin() + 128), bytes_of(g_EnrolleeKeys.PublicKey, 64));
    EXPECT_EQ(Bytes(out.begin() + 128, out.begin() + 192), Bytes(64, 0));
}

}  // namespace
