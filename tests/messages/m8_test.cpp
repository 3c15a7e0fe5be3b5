// M8: every check in its order with its code and trace line, the stored credential in each mode,
// and the bounds we added. Messages are built here with libgcrypt, independent of the library.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include "api/context.h"
#include "common/reference.h"
#include "common/wire.h"
#include "messages/attributes.h"
#include "messages/messages.h"
#include "platform/platform.h"
#include "wapiwps.h"

namespace {

using ref::Bytes;

constexpr uint8_t kLocalMac[6] = {0x02, 0x1B, 0x44, 0x11, 0x3A, 0xB7};

// What the test registrar puts into M8, and where it misbehaves.
struct M8Spec {
    Bytes mac{kLocalMac, kLocalMac + 6};
    Bytes network_key = Bytes{'s', 'e', 'c', 'r', 'e', 't', '-', 'k', 'e', 'y'};
    bool with_network_key = true;
    bool with_cert_list = true;
    Bytes cert_list = Bytes{0x00, 0x02, 0xC1, 0xC2, 0xC3};
    int cert_needed = 1;  // -1: attribute absent
    bool with_credential = true;
    bool with_version = true;
    bool with_encrypted = true;
    bool with_authenticator = true;
    uint8_t msg_type = WPS_MSG_TYPE_M8;
    bool wrong_nonce = false;
    bool bad_authenticator = false;
    bool bad_kwa = false;
    int padding = -1;                 // -1: the proper padding; otherwise this many bytes...
    uint8_t padding_value = 0;        // ...of this value
    bool padding_string_broken = false;
    Bytes kwa_extra;  // bytes the Key Wrap Authenticator covers beyond the settings before it
};

class M8Test : public ::testing::Test {
protected:
    void SetUp() override {
        g_WPS_mode = WAPI_WPS_PSK;
        g_AddressMode = MAC_ADDRESS;
        g_PeerCertFlag = 0;
        std::memset(g_MyMsgInfo.LocalAddress, 0, sizeof g_MyMsgInfo.LocalAddress);
        std::memcpy(g_MyMsgInfo.LocalAddress, kLocalMac, 6);
        for (int i = 0; i < 32; ++i) g_EnrolleeKeys.AuthKey[i] = static_cast<uint8_t>(0x40 + i);
        for (int i = 0; i < 16; ++i) {
            g_EnrolleeKeys.KeyWrapKey[i] = static_cast<uint8_t>(0x90 + i);
            g_EnrolleeKeys.Nonce[i] = static_cast<uint8_t>(0x20 + i);
        }
        std::memset(g_PrevMsgBuf, 0, sizeof g_PrevMsgBuf);
        for (int i = 0; i < 60; ++i) g_PrevMsgBuf[i] = static_cast<uint8_t>(0xF0 - i);
        g_PrevMsgLen = 60;
        prev_ = Bytes(g_PrevMsgBuf, g_PrevMsgBuf + 60);
        g_ResultData = nullptr;
        g_ResultLength = 0;
        g_CertCount = 0;
        NewCertificateFlag = 0;
    }

    Bytes settings_for(const M8Spec& m) const {
        Bytes credential;
        testwire::append_tlv(credential, ATTR_MAC_ADDRESS, m.mac);
        if (g_WPS_mode == WAPI_WPS_CERT) {
            if (m.with_cert_list) testwire::append_tlv(credential, ATTR_CERTIFICATE_LIST, m.cert_list);
        } else if (m.with_network_key) {
            testwire::append_tlv(credential, ATTR_NETWORK_KEY, m.network_key);
        }
        Bytes s;
        if (m.cert_needed >= 0)
            testwire::append_tlv(s, ATTR_CERTIFICATE_NEEDED, Bytes{static_cast<uint8_t>(m.cert_needed)});
        if (m.with_credential) testwire::append_tlv(s, ATTR_CREDENTIAL, credential);
        Bytes covered = s;
        covered.insert(covered.end(), m.kwa_extra.begin(), m.kwa_extra.end());
        auto kwa = ref::hmac_sm3(ref::bytes_of(g_EnrolleeKeys.AuthKey, 32), covered);
        if (m.bad_kwa) kwa[0] ^= 1;
        testwire::append_tlv(s, ATTR_KEY_WRAP_AUTH, Bytes(kwa.begin(), kwa.begin() + 8));
        if (m.padding < 0) {
            const size_t pad = 16 - s.size() % 16;
            s.insert(s.end(), pad, static_cast<uint8_t>(pad));
        } else {
            s.insert(s.end(), static_cast<size_t>(m.padding), m.padding_value);
        }
        if (m.padding_string_broken) s[s.size() - 2] ^= 0x40;
        return s;
    }

    Bytes build(const M8Spec& m) const {
        Bytes body;
        if (m.with_version) testwire::append_tlv(body, ATTR_VERSION, Bytes{0x10});
        testwire::append_tlv(body, ATTR_MSG_TYPE, Bytes{m.msg_type});
        Bytes nonce(g_EnrolleeKeys.Nonce, g_EnrolleeKeys.Nonce + 16);
        if (m.wrong_nonce) nonce[15] ^= 1;
        testwire::append_tlv(body, ATTR_ENROLLEE_NONCE, nonce);
        if (m.with_encrypted) {
            Bytes sealed(16);
            for (int i = 0; i < 16; ++i) sealed[i] = static_cast<uint8_t>(0x5C ^ i);
            const Bytes ct = ref::sm4_ofb(ref::bytes_of(g_EnrolleeKeys.KeyWrapKey, 16), ref::bytes_of(sealed.data(), 16), settings_for(m));
            sealed.insert(sealed.end(), ct.begin(), ct.end());
            testwire::append_tlv(body, ATTR_ENCR_SETTINGS, sealed);
        }
        if (m.with_authenticator) {
            Bytes covered = prev_;
            covered.insert(covered.end(), body.begin(), body.end());
            auto mac = ref::hmac_sm3(ref::bytes_of(g_EnrolleeKeys.AuthKey, 32), covered);
            if (m.bad_authenticator) mac[3] ^= 0x80;
            testwire::append_tlv(body, ATTR_AUTHENTICATOR, Bytes(mac.begin(), mac.begin() + 8));
        }
        return body;
    }

    int32_t unpack(const Bytes& body) {
        return UnpackMessageM8(std::span<const uint8_t>(body.data(), body.size()),
                               static_cast<int32_t>(body.size()));
    }

    bool traced(const std::string& text) const { return trace_.contains(text); }

    void restore_previous_message() {
        std::memset(g_PrevMsgBuf, 0, sizeof g_PrevMsgBuf);
        std::memcpy(g_PrevMsgBuf, prev_.data(), prev_.size());
        g_PrevMsgLen = static_cast<uint16_t>(prev_.size());
    }

    Bytes result() const {
        return g_ResultData ? Bytes(g_ResultData, g_ResultData + g_ResultLength) : Bytes{};
    }

    Bytes prev_;
    ref::TraceCapture trace_;
};

// One misbehaviour at a time: the code and the trace line it must produce.
struct FaultCase {
    const char* name;
    uint32_t wps_mode;
    std::function<void(M8Spec&)> fault;
    int32_t code;
    const char* line;
};

class M8FaultTest : public M8Test, public ::testing::WithParamInterface<FaultCase> {};

TEST_P(M8FaultTest, RefusedWithItsCode) {
    const FaultCase& c = GetParam();
    g_WPS_mode = c.wps_mode;
    M8Spec m;
    c.fault(m);
    EXPECT_EQ(unpack(build(m)), c.code);
    EXPECT_TRUE(traced(c.line)) << c.line;
    EXPECT_EQ(g_ResultData, nullptr) << "nothing stored on failure";
}

const FaultCase kFaults[] = {
    {"NoAuthenticator", 2, [](M8Spec& m) { m.with_authenticator = false; }, -61,
     "Unpack M8 error, error code is -61.\r\n"},
    {"BadAuthenticator", 2, [](M8Spec& m) { m.bad_authenticator = true; }, -62,
     "Unpack M8 error, error code is -62.\r\n"},
    {"NoVersion", 2, [](M8Spec& m) { m.with_version = false; }, -63,
     "Unpack M8 error, error code is -63.\r\n"},
    {"MessageTypeAck", 2, [](M8Spec& m) { m.msg_type = WPS_MSG_TYPE_ACK; }, -64,
     "Unpack M8 error, error code is -64.\r\n"},
    {"WrongEnrolleeNonce", 2, [](M8Spec& m) { m.wrong_nonce = true; }, -65,
     "Unpack M8 error, error code is -65.\r\n"},
    {"NoEncryptedSettings", 2, [](M8Spec& m) { m.with_encrypted = false; }, -66,
     "Unpack M8 error, error code is -66.\r\n"},
    {"PaddingValueTooLarge", 2,
     [](M8Spec& m) { m.padding = 1, m.padding_value = 0xF0; }, -59, "pad value is error.\r\n"},
    {"PaddingStringBroken", 2, [](M8Spec& m) { m.padding_string_broken = true; }, -59,
     "pad string is error.\r\n"},
    {"BadKeyWrapAuthenticator", 2, [](M8Spec& m) { m.bad_kwa = true; }, -67,
     "Unpack M8 error, error code is -67.\r\n"},
    {"NoCertificateNeeded", 3, [](M8Spec& m) { m.cert_needed = -1; }, -68,
     "Unpack M8 error, error code is -68,WPS_NEW_CERTIFICATE_NEEDED.\r\n"},
    {"NoCredential", 2, [](M8Spec& m) { m.with_credential = false; }, -68,
     "Unpack M8 error, error code is -68.\r\n"},
    {"WrongMacAddress", 2, [](M8Spec& m) { m.mac[5] ^= 1; }, -69,
     "Unpack M8 error, error code is -69.\r\n"},
    {"MacAddressOfFiveBytes", 2, [](M8Spec& m) { m.mac.pop_back(); }, -69,
     "Unpack M8 error, error code is -69.\r\n"},
    {"NoNetworkKey", 2, [](M8Spec& m) { m.with_network_key = false; }, -70,
     "Unpack M8 error, error code is -70.\r\n"},
    {"RawKeyLongerThan64", 2, [](M8Spec& m) { m.network_key.assign(65, 'k'); }, -70,
     "Unpack M8 error, error code is -70.\r\n"},
    {"NoCertificateList", 3, [](M8Spec& m) { m.with_cert_list = false; }, -72,
     "Unpack M8 error, error code is -72.\r\n"},
    {"CertificateListOfOneByte", 3, [](M8Spec& m) { m.cert_list = {0x01}; }, -72,
     "Unpack M8 error, error code is -72.\r\n"},
};

INSTANTIATE_TEST_SUITE_P(Checks, M8FaultTest, ::testing::ValuesIn(kFaults),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(M8Test, RawNetworkKeyIsStoredAsReceived) {
    M8Spec m;
    ASSERT_EQ(unpack(build(m)), 0);
    EXPECT_EQ(result(), m.network_key);
    EXPECT_EQ(g_ResultData, g_PrevMsgBuf);
    // Nothing of the previous message stays behind the stored key.
    EXPECT_EQ(Bytes(g_PrevMsgBuf + m.network_key.size(), g_PrevMsgBuf + 64),
              Bytes(64 - m.network_key.size(), 0));
    EXPECT_TRUE(traced("WAPI-PSK-WPS :NETWORK_KEY Length = 10.\r\n"));
    uint8_t key[64] = {};
    uint16_t key_len = 0;
    EXPECT_EQ(GetWPSResult_PSK(key, &key_len), 0);
    EXPECT_EQ(Bytes(key, key + key_len), m.network_key);
}

// A hexadecimal key (announced by Authentication Type Flags 0x2000 in M2).
struct HexCase {
    std::string text;
    int32_t code;
    Bytes stored;
};

class M8HexKeyTest : public M8Test, public ::testing::WithParamInterface<HexCase> {};

TEST_P(M8HexKeyTest, DecodedOrRefused) {
    const HexCase& c = GetParam();
    g_PeerCertFlag = 1;
    M8Spec m;
    m.network_key.assign(c.text.begin(), c.text.end());
    EXPECT_EQ(unpack(build(m)), c.code);
    if (c.code == 0) {
        EXPECT_EQ(result(), c.stored);
    } else {
        EXPECT_TRUE(traced("HexKey is not correct.\r\n"));
        EXPECT_EQ(g_ResultData, nullptr);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Keys, M8HexKeyTest,
    ::testing::Values(
        HexCase{std::string(64, 'a'), 0, Bytes(32, 0xAA)},
        HexCase{"00FFa5B6", 0, Bytes{0x00, 0xFF, 0xA5, 0xB6}},
        HexCase{std::string(63, 'a'), -70, {}},                    // odd length
        HexCase{std::string(62, 'a') + "g1", -70, {}},             // not a hex digit
        HexCase{std::string(66, 'a'), -70, {}}));                  // longer than 64 characters

TEST_F(M8Test, CertificateListIsStoredWithItsCount) {
    g_WPS_mode = WAPI_WPS_CERT;
    M8Spec m;
    m.cert_list = {0x00, 0x03, 0xAB, 0xCD, 0xEF, 0x01};
    ASSERT_EQ(unpack(build(m)), 0);
    EXPECT_EQ(NewCertificateFlag, 1);
    EXPECT_EQ(g_CertCount, 3);
    EXPECT_EQ(result(), (Bytes{0xAB, 0xCD, 0xEF, 0x01}));
    EXPECT_TRUE(traced("certlistLength = 6,cert count is 3.\r\n"));
}

TEST_F(M8Test, CertificateListOfJustTheCountStoresNoBytes) {
    g_WPS_mode = WAPI_WPS_CERT;
    M8Spec m;
    m.cert_list = {0x00, 0x00};
    ASSERT_EQ(unpack(build(m)), 0);
    EXPECT_EQ(g_CertCount, 0);
    EXPECT_EQ(g_ResultLength, 0);
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
    EXPECT_TRUE(traced("No need new cert.\r\n"));
}

TEST_F(M8Test, PaddingByteZeroIsAcceptedAndStripsNothing) {
    M8Spec m;
    m.padding = 1;
    m.padding_value = 0;
    // Nothing is stripped, so the Key Wrap Authenticator is checked over the settings and the
    // first byte of its own header: a registrar that computed it conventionally is refused...
    EXPECT_EQ(unpack(build(m)), -67);
    EXPECT_FALSE(traced("pad value is error."));
    // ...and one that covered that byte too is accepted.
    restore_previous_message();
    m.kwa_extra = {0x10};
    EXPECT_EQ(unpack(build(m)), 0);
}

TEST_F(M8Test, AddressStartingWithZeroMatchesAnySixBytes) {
    std::memset(g_MyMsgInfo.LocalAddress, 0, 6);
    M8Spec m;
    m.mac = {0x99, 0x88, 0x77, 0x66, 0x55, 0x44};
    EXPECT_EQ(unpack(build(m)), 0);
}

TEST_F(M8Test, MacAddressWithAZeroThirdByteIsComparedOnTwoBytes) {
    const uint8_t local[6] = {0x02, 0x03, 0x00, 0x04, 0x05, 0x06};
    std::memcpy(g_MyMsgInfo.LocalAddress, local, 6);
    M8Spec m;
    m.mac = {0x02, 0x03, 0x77, 0x77, 0x77, 0x77};
    EXPECT_EQ(unpack(build(m)), 0);
}

TEST_F(M8Test, TextAddressMustMatchInLengthAndBytes) {
    g_AddressMode = TEXT_ADDRESS;
    std::memset(g_MyMsgInfo.LocalAddress, 0, sizeof g_MyMsgInfo.LocalAddress);
    std::memcpy(g_MyMsgInfo.LocalAddress, "10.1.2.3", 8);
    M8Spec m;
    m.mac = Bytes{'1', '0', '.', '1', '.', '2', '.', '3'};
    EXPECT_EQ(unpack(build(m)), 0);
    m.mac.push_back('0');
    restore_previous_message();  // a successful M8 leaves the credential in its place
    EXPECT_EQ(unpack(build(m)), -69);
}

TEST_F(M8Test, WifiFlavourOpensNothingAndIsRefusedAtThePadding) {
    g_WPS_mode = WIFI_WPS;
    EXPECT_EQ(unpack(build(M8Spec{})), -59);
    EXPECT_TRUE(traced("pad value is error.\r\n"));
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

TEST(HexToBytes, ConvertsPairsAndStopsAtTheFirstBadCharacter) {
    uint8_t out[4] = {0xEE, 0xEE, 0xEE, 0xEE};
    EXPECT_EQ(HexToBytes("0aF1", out, 2), 0);
    EXPECT_EQ(out[0], 0x0A);
    EXPECT_EQ(out[1], 0xF1);
    EXPECT_EQ(HexToBytes("12x4", out, 2), -1);
    EXPECT_EQ(out[0], 0x12) << "bytes before the bad character stay written";
    EXPECT_EQ(HexToBytes("zz", out, 0), 0);
}

}  // namespace
