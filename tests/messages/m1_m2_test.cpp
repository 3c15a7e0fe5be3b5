// M1 builder and M2 parser. M1: the byte layout (attribute order and values, the Primary Device
// Type with the repeated category, the MAC Address length rule, Certificate Mode only in mode 3).
// M2: every check in its order with its own code and line, the stores it makes (and keeps on a
// later failure), the peer-certificate flag and the certificate-mode rule.
#include <gtest/gtest.h>

#include "exchange_fixture.h"

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

namespace {

using namespace msgtest;

using Mutation = void (*)(std::vector<Attr>&);

struct M2Case {
    const char* name;
    uint32_t wps_mode;
    Mutation mutate;
    int32_t code;
    const char* line;  // the failure line, when not the usual one
    bool authenticate = true;
};

void set_value(std::vector<Attr>& a, uint16_t type, Bytes v) { find_attr(a, type)->value = std::move(v); }

const M2Case kM2Cases[] = {
    {"NoRegistrarNonce", WAPI_WPS_PSK, [](auto& a) { remove_attr(a, ATTR_REGISTRAR_NONCE); }, -18, nullptr},
    {"ShortRegistrarNonce", WAPI_WPS_PSK, [](auto& a) { set_value(a, ATTR_REGISTRAR_NONCE, Bytes(15, 1)); }, -18, nullptr},
    {"NoUuidR", WAPI_WPS_PSK, [](auto& a) { remove_attr(a, ATTR_UUID_R); }, -25, nullptr},
    {"PublicKeyWithoutTemporaryKey", WAPI_WPS_PSK, [](auto& a) { find_attr(a, ATTR_PUBLIC_KEY)->value.resize(64); }, -19, nullptr},
    {"NoAuthenticator", WAPI_WPS_PSK, [](auto&) {}, -20, nullptr, false},
    {"KeyAgreementFails", WAPI_WPS_PSK, [](auto& a) { set_value(a, ATTR_PUBLIC_KEY, Bytes(128, 0)); }, -21,
     "Unpack M2 error, ComputerExchangeKey error code is -21.\r\n"},
    {"NoVersion", WAPI_WPS_PSK, [](auto& a) { remove_attr(a, ATTR_VERSION); }, -22, nullptr},
    {"MessageTypeM2D", WAPI_WPS_PSK, [](auto& a) { set_value(a, ATTR_MSG_TYPE, {WPS_MSG_TYPE_M2D}); }, -23, nullptr},
    {"WrongEnrolleeNonce", WAPI_WPS_PSK, [](auto& a) { find_attr(a, ATTR_ENROLLEE_NONCE)->value[15] ^= 1; }, -24, nullptr},
    {"NoEnrolleeNonce", WAPI_WPS_PSK, [](auto& a) { remove_attr(a, ATTR_ENROLLEE_NONCE); }, -24, nullptr},
    {"AuthTypeFlagsOneByte", WAPI_WPS_PSK, [](auto& a) { set_value(a, ATTR_AUTH_TYPE_FLAGS, {0x20}); }, -26, nullptr},
    {"NoEncrTypeFlags", WAPI_WPS_PSK, [](auto& a) { remove_attr(a, ATTR_ENCR_TYPE_FLAGS); }, -27, nullptr},
    {"NoConnectionTypeFlags", WAPI_WPS_PSK, [](auto& a) { remove_attr(a, ATTR_CONNECTION_TYPE_FLAGS); }, -28, nullptr},
    {"ConfigMethodsThreeBytes", WAPI_WPS_PSK, [](auto& a) { set_value(a, ATTR_CONFIG_METHODS, {0, 0, 0x8C}); }, -29, nullptr},
    {"Manufacturer33", WAPI_WPS_PSK, [](auto& a) { set_value(a, ATTR_MANUFACTURER, Bytes(33, 'm')); }, -30, nullptr},
    {"ManufacturerLargerThanTheValueBuffer", WAPI_WPS_PSK, [](auto& a) { set_value(a, ATTR_MANUFACTURER, Bytes(1100, 'm')); }, -30, nullptr},
    {"ModelName33", WAPI_WPS_PSK, [](auto& a) { set_value(a, ATTR_MODEL_NAME, Bytes(33, 'n')); }, -31, nullptr},
    {"NoModelNumber", WAPI_WPS_PSK, [](auto& a) { remove_attr(a, ATTR_MODEL_NUMBER); }, -32, nullptr},
    {"SerialNumber33", WAPI_WPS_PSK, [](auto& a) { set_value(a, ATTR_SERIAL_NUMBER, Bytes(33, 's')); }, -33, nullptr},
    {"PrimaryDeviceType7", WAPI_WPS_PSK, [](auto& a) { find_attr(a, ATTR_PRIMARY_DEV_TYPE)->value.resize(7); }, -34, nullptr},
    {"WapiFlavourWithWifiOui", WAPI_WPS_PSK, [](auto& a) { set_value(a, ATTR_PRIMARY_DEV_TYPE, {0, 1, 0x00, 0x50, 0xF2, 0x04, 0, 1}); }, -36, nullptr},
    {"WifiFlavourWithWapiOui", WIFI_WPS, [](auto& a) { set_value(a, ATTR_PRIMARY_DEV_TYPE, {0, 1, 0x00, 0x00, 0x14, 0x72, 0, 1}); }, -35, nullptr},
    {"DeviceName33", WAPI_WPS_PSK, [](auto& a) { set_value(a, ATTR_DEVICE_NAME, Bytes(33, 'd')); }, -37, nullptr},
    {"NoRfBands", WAPI_WPS_PSK, [](auto& a) { remove_attr(a, ATTR_RF_BANDS); }, -38, nullptr},
    {"AssociationStateOneByte", WAPI_WPS_PSK, [](auto& a) { set_value(a, ATTR_ASSOCIATION_STATE, {0}); }, -39, nullptr},
    {"NoConfigurationError", WAPI_WPS_PSK, [](auto& a) { remove_attr(a, ATTR_CONFIG_ERROR); }, -40, nullptr},
    {"NoDevicePasswordId", WAPI_WPS_PSK, [](auto& a) { remove_attr(a, ATTR_DEVICE_PASSWORD_ID); }, -41, nullptr},
    {"OsVersionTwoBytes", WAPI_WPS_PSK, [](auto& a) { set_value(a, ATTR_OS_VERSION, {0, 1}); }, -42, nullptr},
    {"CertificateModeMissing", WAPI_WPS_CERT, [](auto& a) { remove_attr(a, ATTR_CERTIFICATE_MODE); }, -42,
     "Unpack M2 error, error code is -42 extension.\r\n"},
    {"CertificateModeTwoBytes", WAPI_WPS_CERT, [](auto& a) { set_value(a, ATTR_CERTIFICATE_MODE, {1, 1}); }, -42,
     "Unpack M2 error, error code is -42 extension.\r\n"},
    {"CertificateModeThree", WAPI_WPS_CERT, [](auto& a) { set_value(a, ATTR_CERTIFICATE_MODE, {3}); }, -42,
     "Unpack M2 error, error code is -42 ex.\r\n"},
    // Accepted variants.
    {"Manufacturer32", WAPI_WPS_PSK, [](auto& a) { set_value(a, ATTR_MANUFACTURER, Bytes(32, 'm')); }, 0, nullptr},
    {"ManufacturerEmpty", WAPI_WPS_PSK, [](auto& a) { set_value(a, ATTR_MANUFACTURER, {}); }, 0, nullptr},
    {"PskModeWithoutCertificateMode", WAPI_WPS_PSK, [](auto& a) { remove_attr(a, ATTR_CERTIFICATE_MODE); }, 0, nullptr},
    {"CertificateModeTwo", WAPI_WPS_CERT, [](auto& a) { set_value(a, ATTR_CERTIFICATE_MODE, {2}); }, 0, nullptr},
    {"VersionValueNotExamined", WAPI_WPS_PSK, [](auto& a) { set_value(a, ATTR_VERSION, {0x20}); }, 0, nullptr},
    {"WifiFlavour", WIFI_WPS, [](auto&) {}, 0, nullptr},
};

class M2Checks : public Exchange, public ::testing::WithParamInterface<M2Case> {};

TEST_P(M2Checks, CodeAndLine) {
    const M2Case& c = GetParam();
    start(c.wps_mode);
    std::vector<Attr> attrs = reg.m2_attrs();
    c.mutate(attrs);
    const Bytes body = c.authenticate ? reg.authenticated(encode(attrs)) : encode(attrs);
    expect_verdict("M2", m2, body, c.code, c.line);
}

INSTANTIATE_TEST_SUITE_P(Steps, M2Checks, ::testing::ValuesIn(kM2Cases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(Exchange, M2AcceptedStoresAndDerives) {
    start(WAPI_WPS_CERT);
    const Bytes body = valid_m2();
    ASSERT_EQ(m2(body), 0);
    EXPECT_EQ(bytes_of(g_RegistrarKeys.Nonce, 16), reg.nonce);
    EXPECT_EQ(bytes_of(UUID_R, 16), reg.uuid);
    EXPECT_EQ(bytes_of(g_RegistrarKeys.PublicKey, 64), reg.pk_r());
    const Bytes public_key = reg.public_key_attr();
    EXPECT_EQ(bytes_of(g_RegistrarKeys.TempPublicKey, 64), Bytes(public_key.begin() + 64, public_key.end()));
    EXPECT_EQ(bytes_of(g_RegistrarKeys.Authenticator, 8), Bytes(body.end() - 8, body.end()));
    EXPECT_EQ(bytes_of(g_EnrolleeKeys.AuthKey, 32), reg.auth_key);
    EXPECT_EQ(bytes_of(g_EnrolleeKeys.KeyWrapKey, 16), reg.key_wrap_key);
    EXPECT_EQ(bytes_of(g_EnrolleeKeys.Emsk, 32), reg.emsk);
    EXPECT_EQ(CertificateMode, 1);
    EXPECT_EQ(g_PrevMsgLen, body.size());
    EXPECT_EQ(bytes_of(g_PrevMsgBuf, body.size()), body);
}

TEST_F(Exchange, M2AuthenticatorMismatchAndPosition) {
    start();
    Bytes body = valid_m2();
    body.back() ^= 0x01;
    {
        TraceCapture trace;
        EXPECT_EQ(m2(body), -21);
        EXPECT_TRUE(trace.has("Unpack M2 error, error code is -21.\r\n"));
        EXPECT_EQ(bytes_of(g_EnrolleeKeys.AuthKey, 32), reg.auth_key) << "derived keys stay";
    }
    // A right value that is not the last attribute fails as well: the position is not searched.
    start();
    const Bytes good = valid_m2();
    const Bytes moved = cat({good, tlv(ATTR_RF_BANDS, {0x03})});
    EXPECT_EQ(m2(moved), -21);
}

TEST_F(Exchange, M2StoresBeforeAFailureStay) {
    start();
    std::vector<Attr> attrs = reg.m2_attrs();
    remove_attr(attrs, ATTR_UUID_R);
    EXPECT_EQ(m2(reg.authenticated(encode(attrs))), -25);
    EXPECT_EQ(bytes_of(g_RegistrarKeys.Nonce, 16), reg.nonce);
}

TEST_F(Exchange, M2PeerCertificateFlag) {
    const std::pair<Bytes, uint8_t> cases[] = {{{0x20, 0x00}, 1}, {{0xE0, 0x00}, 0}, {{0x00, 0x20}, 0}};
    for (const auto& [flags, expected] : cases) {
        start();
        std::vector<Attr> attrs = reg.m2_attrs();
        find_attr(attrs, ATTR_AUTH_TYPE_FLAGS)->value = flags;
        EXPECT_EQ(m2(reg.authenticated(encode(attrs))), 0);
        EXPECT_EQ(g_PeerCertFlag, expected);
    }
}

TEST_F(Exchange, M2StatedLengthBeyondTheReadableBytesIsRefused) {
    start();
    const Bytes body = valid_m2();
    EXPECT_EQ(UnpackMessageM2(std::span<const uint8_t>(body.data(), body.size() - 4),
                              static_cast<int32_t>(body.size())),
              -20);
    EXPECT_EQ(UnpackMessageM2(body, static_cast<int32_t>(body.size()) + 8), -21);
    EXPECT_EQ(UnpackMessageM2(body, 0), -18);
    EXPECT_EQ(UnpackMessageM2(body, -5), -18);
}

}  // namespace
