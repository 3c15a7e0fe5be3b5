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
    bool edge_fields = false;  // a full 32-byte text (no NUL), an empty one, a subcategory not read
};

Bytes field(const char* s) { return Bytes(s, s + strnlen(s, 32)); }

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
        tlv(0x1021, field(i.Manufacturer)),                    // Manufacturer
        tlv(0x1023, field(i.ModelName)),                       // Model Name
        tlv(0x1024, field(i.ModelNumber)),                     // Model Number
        tlv(0x1042, field(i.SerialNumber)),                    // Serial Number
        tlv(0x1054, cat({{0x00, 0x01}, c.oui, {0x00, 0x01}})),  // Primary Device Type
        tlv(0x1011, field(i.DeviceName)),                      // Device Name
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
    if (c.edge_fields) {
        std::memset(g_MyMsgInfo.Manufacturer, 'M', 32);
        g_MyMsgInfo.DeviceName[0] = '\0';
        g_MyMsgInfo.PrimaryDeviceSubCategory = 9;  // the category is repeated in its place
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
                      M1Case{WAPI_WPS_PSK, TEXT_ADDRESS, {0x00, 0x00, 0x14, 0x72}, false},
                      M1Case{WIFI_WPS, IPV4_ADDRESS, {0x00, 0x50, 0xF2, 0x04}, false, true}));

// A second build replaces the temporary pair; when no pair can be made, M1 still goes out (the
// builder has no failure path) with a zero temporary key.
TEST(M1, TemporaryPairIsNewEachBuildAndZeroWhenItCannotBeMade) {
    set_device_info(WAPI_WPS_PSK, MAC_ADDRESS, "12345670");
    ASSERT_TRUE(InitSession());
    build(BuildMessageM1);
    const Bytes first = bytes_of(g_EnrolleeKeys.TempPublicKey, 64);
    build(BuildMessageM1);
    EXPECT_NE(bytes_of(g_EnrolleeKeys.TempPublicKey, 64), first);
    void* const saved = g_phSessionHandle;
    g_phSessionHandle = nullptr;  // the library refuses an unknown session
    const Bytes out = build(BuildMessageM1);
    g_phSessionHandle = saved;
    EXPECT_EQ(bytes_of(g_EnrolleeKeys.TempPrivateKey, 32), Bytes(32, 0));
    // The Public Key value after Version, Message Type, UUID-E, MAC Address, Enrollee Nonce (60
    // bytes) and its header: the first pair intact, the temporary half zero.
    EXPECT_EQ(Bytes(out.begin() + 64, out.begin() + 192), cat({bytes_of(g_EnrolleeKeys.PublicKey, 64), Bytes(64, 0)}));
}

}  // namespace

namespace {

using namespace msgtest;

void set_value(std::vector<Attr>& a, uint16_t type, Bytes v) { find_attr(a, type)->value = std::move(v); }

// The three parsers' checks; the M4 and M6 tables are instantiated beside their builders' tests.
TEST_P(ParserChecks, CodeAndLine) {
    const ParserCase& c = GetParam();
    if (c.message == 2) start(c.wps_mode);
    if (c.message == 4) through_m3(c.wps_mode);
    if (c.message == 6) through_m5(c.wps_mode);
    std::vector<Attr> attrs = c.message == 2 ? reg.m2_attrs()
                                             : reg.sealed_attrs(c.message == 4 ? WPS_MSG_TYPE_M4 : WPS_MSG_TYPE_M6,
                                                                reg.settings(c.message / 2 - 1));
    c.mutate(attrs, reg);
    Bytes body = c.auth == Auth::kUnsigned ? encode(attrs) : reg.authenticated(encode(attrs));
    if (c.auth == Auth::kTampered) body[body.size() - 3] ^= 0x40;
    if (c.auth == Auth::kNotLast) body = cat({body, tlv(ATTR_RF_BANDS, {0x03})});  // not searched for
    const Bytes prev = bytes_of(g_PrevMsgBuf, g_PrevMsgLen);
    TraceCapture trace;
    EXPECT_EQ((c.message == 2 ? m2 : c.message == 4 ? m4 : m6)(body), c.code);
    if (c.code == 0) {
        EXPECT_EQ(bytes_of(g_PrevMsgBuf, g_PrevMsgLen), body);
        return;
    }
    const std::string want = c.line != nullptr ? c.line
                                               : "Unpack M" + std::to_string(c.message) + " error, error code is " +
                                                     std::to_string(c.code) + ".\r\n";
    EXPECT_TRUE(trace.has(want)) << want;
    EXPECT_EQ(bytes_of(g_PrevMsgBuf, g_PrevMsgLen), prev) << "the previous message stays";
}

const ParserCase kM2Cases[] = {
    {2, "NoRegistrarNonce", [](auto& a, auto&) { remove_attr(a, ATTR_REGISTRAR_NONCE); }, -18},
    {2, "ShortRegistrarNonce", [](auto& a, auto&) { set_value(a, ATTR_REGISTRAR_NONCE, Bytes(15, 1)); }, -18},
    {2, "NoUuidR", [](auto& a, auto&) { remove_attr(a, ATTR_UUID_R); }, -25},
    {2, "PublicKeyWithoutTemporaryKey", [](auto& a, auto&) { find_attr(a, ATTR_PUBLIC_KEY)->value.resize(64); }, -19},
    {2, "NoAuthenticator", [](auto&, auto&) {}, -20, nullptr, Auth::kUnsigned},
    {2, "AuthenticatorMismatch", [](auto&, auto&) {}, -21, nullptr, Auth::kTampered},
    {2, "AuthenticatorNotLast", [](auto&, auto&) {}, -21, nullptr, Auth::kNotLast},
    {2, "KeyAgreementFails", [](auto& a, auto&) { set_value(a, ATTR_PUBLIC_KEY, Bytes(128, 0)); }, -21,
     "Unpack M2 error, ComputerExchangeKey error code is -21.\r\n"},
    {2, "NoVersion", [](auto& a, auto&) { remove_attr(a, ATTR_VERSION); }, -22},
    {2, "MessageTypeM2D", [](auto& a, auto&) { set_value(a, ATTR_MSG_TYPE, {WPS_MSG_TYPE_M2D}); }, -23},
    {2, "WrongEnrolleeNonce", [](auto& a, auto&) { find_attr(a, ATTR_ENROLLEE_NONCE)->value[15] ^= 1; }, -24},
    {2, "NoEnrolleeNonce", [](auto& a, auto&) { remove_attr(a, ATTR_ENROLLEE_NONCE); }, -24},
    {2, "AuthTypeFlagsOneByte", [](auto& a, auto&) { set_value(a, ATTR_AUTH_TYPE_FLAGS, {0x20}); }, -26},
    {2, "NoEncrTypeFlags", [](auto& a, auto&) { remove_attr(a, ATTR_ENCR_TYPE_FLAGS); }, -27},
    {2, "NoConnectionTypeFlags", [](auto& a, auto&) { remove_attr(a, ATTR_CONNECTION_TYPE_FLAGS); }, -28},
    {2, "ConfigMethodsThreeBytes", [](auto& a, auto&) { set_value(a, ATTR_CONFIG_METHODS, {0, 0, 0x8C}); }, -29},
    {2, "Manufacturer33", [](auto& a, auto&) { set_value(a, ATTR_MANUFACTURER, Bytes(33, 'm')); }, -30},
    {2, "ManufacturerLargerThanTheValueBuffer", [](auto& a, auto&) { set_value(a, ATTR_MANUFACTURER, Bytes(1100, 'm')); }, -30},
    {2, "ModelName33", [](auto& a, auto&) { set_value(a, ATTR_MODEL_NAME, Bytes(33, 'n')); }, -31},
    {2, "NoModelNumber", [](auto& a, auto&) { remove_attr(a, ATTR_MODEL_NUMBER); }, -32},
    {2, "SerialNumber33", [](auto& a, auto&) { set_value(a, ATTR_SERIAL_NUMBER, Bytes(33, 's')); }, -33},
    {2, "PrimaryDeviceType7", [](auto& a, auto&) { find_attr(a, ATTR_PRIMARY_DEV_TYPE)->value.resize(7); }, -34},
    {2, "WapiFlavourWithWifiOui", [](auto& a, auto&) { set_value(a, ATTR_PRIMARY_DEV_TYPE, {0, 1, 0x00, 0x50, 0xF2, 0x04, 0, 1}); }, -36},
    {2, "WifiFlavourWithWapiOui", [](auto& a, auto&) { set_value(a, ATTR_PRIMARY_DEV_TYPE, {0, 1, 0x00, 0x00, 0x14, 0x72, 0, 1}); }, -35, nullptr, Auth::kSigned, WIFI_WPS},
    {2, "DeviceName33", [](auto& a, auto&) { set_value(a, ATTR_DEVICE_NAME, Bytes(33, 'd')); }, -37},
    {2, "NoRfBands", [](auto& a, auto&) { remove_attr(a, ATTR_RF_BANDS); }, -38},
    {2, "AssociationStateOneByte", [](auto& a, auto&) { set_value(a, ATTR_ASSOCIATION_STATE, {0}); }, -39},
    {2, "NoConfigurationError", [](auto& a, auto&) { remove_attr(a, ATTR_CONFIG_ERROR); }, -40},
    {2, "NoDevicePasswordId", [](auto& a, auto&) { remove_attr(a, ATTR_DEVICE_PASSWORD_ID); }, -41},
    {2, "OsVersionTwoBytes", [](auto& a, auto&) { set_value(a, ATTR_OS_VERSION, {0, 1}); }, -42},
    {2, "CertificateModeMissing", [](auto& a, auto&) { remove_attr(a, ATTR_CERTIFICATE_MODE); }, -42,
     "Unpack M2 error, error code is -42 extension.\r\n", Auth::kSigned, WAPI_WPS_CERT},
    {2, "CertificateModeTwoBytes", [](auto& a, auto&) { set_value(a, ATTR_CERTIFICATE_MODE, {1, 1}); }, -42,
     "Unpack M2 error, error code is -42 extension.\r\n", Auth::kSigned, WAPI_WPS_CERT},
    {2, "CertificateModeThree", [](auto& a, auto&) { set_value(a, ATTR_CERTIFICATE_MODE, {3}); }, -42,
     "Unpack M2 error, error code is -42 ex.\r\n", Auth::kSigned, WAPI_WPS_CERT},
    // Accepted variants.
    {2, "Manufacturer32", [](auto& a, auto&) { set_value(a, ATTR_MANUFACTURER, Bytes(32, 'm')); }, 0},
    {2, "ManufacturerEmpty", [](auto& a, auto&) { set_value(a, ATTR_MANUFACTURER, {}); }, 0},
    {2, "PskModeWithoutCertificateMode", [](auto& a, auto&) { remove_attr(a, ATTR_CERTIFICATE_MODE); }, 0},
    {2, "CertificateModeTwo", [](auto& a, auto&) { set_value(a, ATTR_CERTIFICATE_MODE, {2}); }, 0, nullptr, Auth::kSigned, WAPI_WPS_CERT},
    {2, "VersionValueNotExamined", [](auto& a, auto&) { set_value(a, ATTR_VERSION, {0x20}); }, 0},
    {2, "WifiFlavour", [](auto&, auto&) {}, 0, nullptr, Auth::kSigned, WIFI_WPS},
};

INSTANTIATE_TEST_SUITE_P(M2, ParserChecks, ::testing::ValuesIn(kM2Cases), case_name);

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
