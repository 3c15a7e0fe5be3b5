// M8: every check in its order with its code and trace line, the stored credential in each mode,
// the deliberate address and padding rules, and the bounds we added. Messages are built here with
// libgcrypt, independent of the library.
#include <string>

#include "exchange_fixture.h"
#include "wapiwps.h"

namespace {

using namespace msgtest;

constexpr uint8_t kLocalMac[6] = {0x02, 0x1B, 0x44, 0x11, 0x3A, 0xB7};

// What the test registrar puts into M8, and where it misbehaves.
struct M8Spec {
    Bytes mac{kLocalMac, kLocalMac + 6};
    Bytes network_key = text("secret-key");
    Bytes cert_list = Bytes{0x00, 0x02, 0xC1, 0xC2, 0xC3};
    int cert_needed = 1;  // -1: attribute absent
    bool with_network_key = true, with_cert_list = true, with_credential = true, with_version = true,
         with_encrypted = true, with_authenticator = true;
    uint8_t msg_type = WPS_MSG_TYPE_M8;
    bool wrong_nonce = false, bad_authenticator = false, bad_kwa = false;
    int padding = -1;                 // -1: the proper padding; otherwise this many bytes...
    uint8_t padding_value = 0;        // ...of this value
    bool padding_string_broken = false;
    Bytes kwa_extra;  // bytes the Key Wrap Authenticator covers beyond the settings before it
};

class M8Test : public Keyed {
protected:
    void SetUp() override {
        Keyed::SetUp();
        g_WPS_mode = WAPI_WPS_PSK;
        std::memset(g_MyMsgInfo.LocalAddress, 0, sizeof g_MyMsgInfo.LocalAddress);
        std::memcpy(g_MyMsgInfo.LocalAddress, kLocalMac, 6);
        g_ResultData = nullptr;
        g_ResultLength = 0;
        g_CertCount = 0;
        NewCertificateFlag = 0;
    }

    Bytes build(const M8Spec& m) const {
        Bytes credential = tlv(ATTR_MAC_ADDRESS, m.mac), s;
        if (g_WPS_mode == WAPI_WPS_CERT && m.with_cert_list)
            credential = cat({credential, tlv(ATTR_CERTIFICATE_LIST, m.cert_list)});
        if (g_WPS_mode != WAPI_WPS_CERT && m.with_network_key)
            credential = cat({credential, tlv(ATTR_NETWORK_KEY, m.network_key)});
        if (m.cert_needed >= 0) s = tlv(ATTR_CERTIFICATE_NEEDED, {uint8_t(m.cert_needed)});
        if (m.with_credential) s = cat({s, tlv(ATTR_CREDENTIAL, credential)});
        Bytes kwa = head(hmac(reg.auth_key, cat({s, m.kwa_extra})), 8);
        kwa[0] ^= m.bad_kwa;
        s = cat({s, tlv(ATTR_KEY_WRAP_AUTH, kwa)});
        if (m.padding < 0) s.insert(s.end(), 16 - s.size() % 16, uint8_t(16 - s.size() % 16));
        if (m.padding >= 0) s.insert(s.end(), size_t(m.padding), m.padding_value);
        if (m.padding_string_broken) s[s.size() - 2] ^= 0x40;

        Bytes nonce = bytes_of(g_EnrolleeKeys.Nonce, 16);
        nonce[15] ^= m.wrong_nonce;
        Bytes body = cat({m.with_version ? tlv(ATTR_VERSION, {0x10}) : Bytes{}, tlv(ATTR_MSG_TYPE, {m.msg_type}),
                          tlv(ATTR_ENROLLEE_NONCE, nonce), m.with_encrypted ? tlv(ATTR_ENCR_SETTINGS, reg.seal(s)) : Bytes{}});
        if (!m.with_authenticator) return body;
        body = reg.authenticated(body);
        body.back() ^= m.bad_authenticator;
        return body;
    }

    static int32_t unpack(const Bytes& body) { return UnpackMessageM8(body, static_cast<int32_t>(body.size())); }
    static Bytes result() { return g_ResultData ? Bytes(g_ResultData, g_ResultData + g_ResultLength) : Bytes{}; }

    TraceCapture trace_;
};

// One misbehaviour or deliberate rule at a time: the code and the trace line it must produce, or
// what an accepted M8 stores. `change` may also change the enrollee's own records.
struct M8Case {
    const char* name;
    uint32_t wps_mode;
    void (*change)(M8Spec&);
    int32_t code;
    const char* line = nullptr;    // nullptr: the usual line, "Unpack M8 error, error code is <code>."
    const char* stored = nullptr;  // hex of the stored result, when checked
};

class M8Checks : public M8Test, public ::testing::WithParamInterface<M8Case> {};

TEST_P(M8Checks, CodeLineAndStore) {
    const M8Case& c = GetParam();
    g_WPS_mode = c.wps_mode;
    M8Spec m;
    c.change(m);
    EXPECT_EQ(unpack(build(m)), c.code);
    if (c.code == 0) {
        if (c.stored != nullptr) {
            EXPECT_EQ(result(), testbytes::hex(c.stored));
        }
        return;
    }
    const std::string line = c.line ? c.line : "Unpack M8 error, error code is " + std::to_string(c.code) + ".\r\n";
    EXPECT_TRUE(trace_.contains(line)) << line;
    EXPECT_EQ(g_ResultData, nullptr) << "nothing stored on failure";
}

void hex_key(M8Spec& m, const std::string& key) {
    g_PeerCertFlag = 1;  // Authentication Type Flags 0x2000 in M2 announced a hexadecimal key
    m.network_key.assign(key.begin(), key.end());
}
void text_address(M8Spec& m, const char* sent) {
    g_AddressMode = TEXT_ADDRESS;
    std::memcpy(g_MyMsgInfo.LocalAddress, "10.1.2.3\0\0\0\0\0\0\0", 16);
    m.mac = text(sent);
}

const M8Case kM8Cases[] = {
    {"NoAuthenticator", 2, [](M8Spec& m) { m.with_authenticator = false; }, -61},
    {"BadAuthenticator", 2, [](M8Spec& m) { m.bad_authenticator = true; }, -62},
    {"NoVersion", 2, [](M8Spec& m) { m.with_version = false; }, -63},
    {"MessageTypeAck", 2, [](M8Spec& m) { m.msg_type = WPS_MSG_TYPE_ACK; }, -64},
    {"WrongEnrolleeNonce", 2, [](M8Spec& m) { m.wrong_nonce = true; }, -65},
    {"NoEncryptedSettings", 2, [](M8Spec& m) { m.with_encrypted = false; }, -66},
    {"PaddingValueTooLarge", 2, [](M8Spec& m) { m.padding = 1; m.padding_value = 0xF0; }, -59, "pad value is error.\r\n"},
    {"PaddingStringBroken", 2, [](M8Spec& m) { m.padding_string_broken = true; }, -59, "pad string is error.\r\n"},
    {"WifiFlavourOpensNothing", 1, [](M8Spec&) {}, -59, "pad value is error.\r\n"},
    {"BadKeyWrapAuthenticator", 2, [](M8Spec& m) { m.bad_kwa = true; }, -67},
    // A padding byte 0 strips nothing, so the Key Wrap Authenticator is checked over the settings
    // and the first byte of its own header: a registrar that computed it conventionally is refused.
    {"PaddingZeroStripsNothing", 2, [](M8Spec& m) { m.padding = 1; }, -67},
    {"NoCertificateNeeded", 3, [](M8Spec& m) { m.cert_needed = -1; }, -68,
     "Unpack M8 error, error code is -68,WPS_NEW_CERTIFICATE_NEEDED.\r\n"},
    {"NoCredential", 2, [](M8Spec& m) { m.with_credential = false; }, -68},
    {"WrongMacAddress", 2, [](M8Spec& m) { m.mac[5] ^= 1; }, -69},
    {"MacAddressOfFiveBytes", 2, [](M8Spec& m) { m.mac.pop_back(); }, -69},
    {"TextAddressLonger", 2, [](M8Spec& m) { text_address(m, "10.1.2.30"); }, -69},
    {"NoNetworkKey", 2, [](M8Spec& m) { m.with_network_key = false; }, -70},
    {"RawKeyLongerThan64", 2, [](M8Spec& m) { m.network_key.assign(65, 'k'); }, -70},
    {"HexKeyOddLength", 2, [](M8Spec& m) { hex_key(m, std::string(63, 'a')); }, -70, "HexKey is not correct.\r\n"},
    {"HexKeyNotAHexDigit", 2, [](M8Spec& m) { hex_key(m, std::string(62, 'a') + "g1"); }, -70, "HexKey is not correct.\r\n"},
    {"HexKeyLongerThan64", 2, [](M8Spec& m) { hex_key(m, std::string(66, 'a')); }, -70, "HexKey is not correct.\r\n"},
    {"NoCertificateList", 3, [](M8Spec& m) { m.with_cert_list = false; }, -72},
    {"CertificateListOfOneByte", 3, [](M8Spec& m) { m.cert_list = {0x01}; }, -72},
    // Accepted variants.
    {"HexKey64", 2, [](M8Spec& m) { hex_key(m, std::string(64, 'a')); }, 0, nullptr, "AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA"},
    {"HexKeyMixedCase", 2, [](M8Spec& m) { hex_key(m, "00FFa5B6"); }, 0, nullptr, "00FFA5B6"},
    {"CertificateListOfJustTheCount", 3, [](M8Spec& m) { m.cert_list = {0x00, 0x00}; }, 0, nullptr, ""},
    {"PaddingZeroWithKwaOverItsOwnHeaderByte", 2, [](M8Spec& m) { m.padding = 1; m.kwa_extra = {0x10}; }, 0},
    {"AddressStartingWithZeroMatchesAnySixBytes", 2,
     [](M8Spec& m) { g_MyMsgInfo.LocalAddress[0] = 0; m.mac = {0x99, 0x88, 0x77, 0x66, 0x55, 0x44}; }, 0},
    {"AddressWithAZeroThirdByteIsComparedOnTwoBytes", 2,
     [](M8Spec& m) { g_MyMsgInfo.LocalAddress[2] = 0; m.mac = {0x02, 0x1B, 0x77, 0x77, 0x77, 0x77}; }, 0},
    {"TextAddress", 2, [](M8Spec& m) { text_address(m, "10.1.2.3"); }, 0},
};

INSTANTIATE_TEST_SUITE_P(Checks, M8Checks, ::testing::ValuesIn(kM8Cases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(M8Test, RawNetworkKeyIsStoredAsReceived) {
    M8Spec m;
    ASSERT_EQ(unpack(build(m)), 0);
    EXPECT_EQ(result(), m.network_key);
    EXPECT_EQ(g_ResultData, g_PrevMsgBuf);
    // Nothing of the previous message stays behind the stored key.
    EXPECT_EQ(Bytes(g_PrevMsgBuf + m.network_key.size(), g_PrevMsgBuf + 64),
              Bytes(64 - m.network_key.size(), 0));
    EXPECT_TRUE(trace_.contains("WAPI-PSK-WPS :NETWORK_KEY Length = 10.\r\n"));
}

TEST_F(M8Test, CertificateListIsStoredWithItsCount) {
    g_WPS_mode = WAPI_WPS_CERT;
    M8Spec m;
    m.cert_list = {0x00, 0x03, 0xAB, 0xCD, 0xEF, 0x01};
    ASSERT_EQ(unpack(build(m)), 0);
    EXPECT_EQ(NewCertificateFlag, 1);
    EXPECT_EQ(g_CertCount, 3);
    EXPECT_EQ(result(), (Bytes{0xAB, 0xCD, 0xEF, 0x01}));
    EXPECT_TRUE(trace_.contains("certlistLength = 6,cert count is 3.\r\n"));
}

TEST_F(M8Test, NoNewCertificateLeavesPreviousResultsUntouched) {
    g_WPS_mode = WAPI_WPS_CERT;
    g_ResultData = g_PrevMsgBuf;
    g_ResultLength = 7;
    g_CertCount = 9;
    M8Spec m;
    m.cert_needed = 0;
    ASSERT_EQ(unpack(build(m)), 0);
    EXPECT_EQ(NewCertificateFlag, 0);
    EXPECT_EQ(g_ResultLength, 7);
    EXPECT_EQ(g_CertCount, 9);
    EXPECT_TRUE(trace_.contains("No need new cert.\r\n"));
}

TEST_F(M8Test, BodyShorterThanItsAuthenticatorIsRefused) {
    const Bytes body = build(M8Spec{});
    // The stated length cuts into the Authenticator: it is no longer found whole.
    EXPECT_LT(UnpackMessageM8(std::span<const uint8_t>(body.data(), body.size()),
                              static_cast<int32_t>(body.size()) - 8),
              0);
    EXPECT_EQ(UnpackMessageM8(std::span<const uint8_t>(body.data(), 4), 4), -61);
    EXPECT_EQ(UnpackMessageM8(std::span<const uint8_t>(), -18), -61);
}

}  // namespace
