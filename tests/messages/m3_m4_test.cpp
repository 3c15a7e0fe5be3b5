// M3 layout and values, and every M4 check with the state it leaves.
#include <gtest/gtest.h>

#include "exchange_fixture.h"

namespace {

using namespace msgtest;

TEST_F(Exchange, M3LayoutHashesAndAuthenticator) {
    start(WAPI_WPS_PSK, "1234567");  // odd length: 4/3 split
    const Bytes m2_body = valid_m2();
    ASSERT_EQ(m2(m2_body), 0);
    const Bytes body = build(BuildMessageM3);
    const Bytes psk1 = hmac(reg.auth_key, text("1234"));
    const Bytes psk2 = hmac(reg.auth_key, text("567"));
    const Bytes pke = Registrar::pk_e(), pkr = reg.pk_r();
    const Bytes e_hash1 = hmac(reg.auth_key, cat({bytes_of(g_EnrolleeKeys.SecretNonce1, 16), head(psk1, 16), pke, pkr}));
    const Bytes e_hash2 = hmac(reg.auth_key, cat({bytes_of(g_EnrolleeKeys.SecretNonce2, 16), head(psk2, 16), pke, pkr}));
    const Bytes before_auth = cat({
        tlv(0x104A, {0x10}),     // Version
        tlv(0x1022, {0x07}),     // Message Type M3
        tlv(0x1039, reg.nonce),  // Registrar Nonce
        tlv(0x1014, e_hash1),    // E-Hash1
        tlv(0x1015, e_hash2),    // E-Hash2
    });
    const Bytes expected = cat({before_auth, tlv(0x1005, head(hmac(reg.auth_key, cat({m2_body, before_auth})), 8))});
    ASSERT_EQ(body, expected);
    EXPECT_EQ(bytes_of(g_EnrolleeKeys.Psk1, 32), psk1);
    EXPECT_EQ(bytes_of(g_EnrolleeKeys.Psk2, 32), psk2);
    EXPECT_EQ(bytes_of(g_EnrolleeKeys.Authenticator, 8), Bytes(body.end() - 8, body.end()));
    EXPECT_EQ(bytes_of(g_PrevMsgBuf, g_PrevMsgLen), body);
}

const ParserCase kM4Cases[] = {
    {4, "NoAuthenticator", [](auto&, auto&) {}, -43, nullptr, Auth::kUnsigned},
    {4, "AuthenticatorMismatch", [](auto&, auto&) {}, -44, nullptr, Auth::kTampered},
    {4, "AuthenticatorNotLast", [](auto&, auto&) {}, -44, nullptr, Auth::kNotLast},
    {4, "NoVersion", [](auto& a, auto&) { remove_attr(a, ATTR_VERSION); }, -45},
    {4, "MessageTypeM6", [](auto& a, auto&) { find_attr(a, ATTR_MSG_TYPE)->value = {WPS_MSG_TYPE_M6}; }, -46},
    {4, "WrongEnrolleeNonce", [](auto& a, auto&) { find_attr(a, ATTR_ENROLLEE_NONCE)->value[0] ^= 1; }, -47},
    {4, "NoEnrolleeNonce", [](auto& a, auto&) { remove_attr(a, ATTR_ENROLLEE_NONCE); }, -47},
    {4, "RHash1Short", [](auto& a, auto&) { find_attr(a, ATTR_R_HASH1)->value.resize(31); }, -48},
    {4, "NoRHash2", [](auto& a, auto&) { remove_attr(a, ATTR_R_HASH2); }, -49},
    {4, "NoEncryptedSettings", [](auto& a, auto&) { remove_attr(a, ATTR_ENCR_SETTINGS); }, -50},
    {4, "SettingsLargerThanTheWorkBuffer", [](auto& a, const auto& r) { reseal(a, r, Bytes(2040, 0x10)); }, -50},
    {4, "WrongKeyWrapAuthenticator",
     [](auto& a, const auto& r) {
         Bytes p = r.settings(1);
         p[30] ^= 1;
         reseal(a, r, p);
     }, -51},
    {4, "SettingsTooShortForTheKeyWrapAuthenticator", [](auto& a, const auto& r) { reseal(a, r, head(r.settings(1), 28)); }, -51},
    {4, "SettingsOnlyAnIv", [](auto& a, auto&) { find_attr(a, ATTR_ENCR_SETTINGS)->value = Bytes(16, 7); }, -51},
    {4, "WifiFlavourOpensToNothing", [](auto&, auto&) {}, -51, nullptr, Auth::kSigned, WIFI_WPS},
    {4, "RS1DoesNotMatchRHash1",
     [](auto& a, const auto& r) { reseal(a, r, settings_plain(tlv(ATTR_R_SNONCE1, Bytes(16, 0x99)), r.auth_key)); }, -52},
    // Accepted variants.
    {4, "VersionValueNotExamined", [](auto& a, auto&) { find_attr(a, ATTR_VERSION)->value = {0x11}; }, 0},
    {4, "InnerTypesNotExamined", [](auto& a, const auto& r) { reseal(a, r, settings_plain(tlv(0x7777, r.r_s1), r.auth_key)); }, 0},
    {4, "PaddingNotExamined",
     [](auto& a, const auto& r) {
         Bytes p = head(r.settings(1), 32);
         p.push_back(0xFF);
         reseal(a, r, p);
     }, 0},
};

INSTANTIATE_TEST_SUITE_P(M4, ParserChecks, ::testing::ValuesIn(kM4Cases), case_name);

TEST_F(Exchange, M4AcceptedState) {
    through_m3();
    const Bytes body = valid_m4();
    TraceCapture trace;
    ASSERT_EQ(m4(body), 0);
    EXPECT_TRUE(trace.has("DecryptMessage success  outlen = 48.\r\n"));
    EXPECT_EQ(bytes_of(g_RegistrarKeys.SecretNonce1, 16), reg.r_s1);
    EXPECT_EQ(bytes_of(g_RegistrarKeys.Hash1, 32), reg.r_hash(1));
    EXPECT_EQ(bytes_of(g_RegistrarKeys.Hash2, 32), reg.r_hash(2));
    EXPECT_EQ(bytes_of(g_EnrolleeKeys.Hash1, 32), reg.r_hash(1)) << "R-Hash1 recomputed into Hash1";
    EXPECT_EQ(bytes_of(g_RegistrarKeys.Authenticator, 8), Bytes(body.end() - 8, body.end()));
}

TEST_F(Exchange, M4StatedLengthBeyondTheReadableBytes) {
    through_m3();
    const Bytes body = valid_m4();
    EXPECT_EQ(UnpackMessageM4(std::span<const uint8_t>(body.data(), body.size() - 1),
                              static_cast<int32_t>(body.size())),
              -43);
    EXPECT_EQ(UnpackMessageM4(body, 11), -43);
}

}  // namespace
