// M5 layout (sealed settings with a full block of padding) and every M6 check with its state.
#include <gtest/gtest.h>

#include "exchange_fixture.h"

namespace {

using namespace msgtest;

TEST_F(Exchange, M5LayoutAndSealedSettings) {
    through_m3();
    const Bytes m4_body = valid_m4();
    ASSERT_EQ(m4(m4_body), 0);
    TraceCapture trace;
    const Bytes body = build(BuildMessageM5);
    EXPECT_TRUE(trace.has("M5   Encrypted length = 64.\r\n"));
    // Version, Message Type, Registrar Nonce, Encrypted Settings (64), Authenticator.
    const Bytes start = cat({tlv(0x104A, {0x10}), tlv(0x1022, {0x09}), tlv(0x1039, reg.nonce), be16(0x1018), be16(64)});
    ASSERT_EQ(body.size(), start.size() + 64 + 12);
    EXPECT_EQ(head(body, start.size()), start);
    const Bytes sealed(body.begin() + start.size(), body.begin() + start.size() + 64);
    const Bytes iv = head(sealed, 16);
    EXPECT_EQ(iv, bytes_of(g_EnrolleeKeys.LastIv, 16));
    const Bytes plain = sm4_ofb(reg.key_wrap_key, iv, Bytes(sealed.begin() + 16, sealed.end()));
    const Bytes e_snonce = tlv(0x1016, bytes_of(g_EnrolleeKeys.SecretNonce1, 16));
    const Bytes expected_plain = cat({e_snonce, tlv(0x101E, head(hmac(reg.auth_key, e_snonce), 8)), Bytes(16, 0x10)});
    EXPECT_EQ(plain, expected_plain) << "the last block is sixteen 0x10 bytes";
    const Bytes before_auth(body.begin(), body.end() - 12);
    EXPECT_EQ(Bytes(body.end() - 12, body.end()),
              tlv(0x1005, head(hmac(reg.auth_key, cat({m4_body, before_auth})), 8)));
    EXPECT_EQ(bytes_of(g_PrevMsgBuf, g_PrevMsgLen), body);
}

TEST_F(Exchange, M5WifiFlavourSendsAnEmptyEncryptedSettings) {
    through_m5(WIFI_WPS);
    const Bytes expected_start = cat({tlv(0x104A, {0x10}), tlv(0x1022, {0x09}), tlv(0x1039, reg.nonce), tlv(0x1018, {})});
    ASSERT_EQ(m5.size(), expected_start.size() + 12);
    EXPECT_EQ(head(m5, expected_start.size()), expected_start);
}

const ParserCase kM6Cases[] = {
    {6, "NoAuthenticator", [](auto&, auto&) {}, -53, nullptr, Auth::kUnsigned},
    {6, "AuthenticatorMismatch", [](auto&, auto&) {}, -54, nullptr, Auth::kTampered},
    {6, "NoVersion", [](auto& a, auto&) { remove_attr(a, ATTR_VERSION); }, -55},
    {6, "MessageTypeM4", [](auto& a, auto&) { find_attr(a, ATTR_MSG_TYPE)->value = {WPS_MSG_TYPE_M4}; }, -56},
    {6, "WrongEnrolleeNonce", [](auto& a, auto&) { find_attr(a, ATTR_ENROLLEE_NONCE)->value[3] ^= 1; }, -57},
    {6, "NoEncryptedSettings", [](auto& a, auto&) { remove_attr(a, ATTR_ENCR_SETTINGS); }, -58},
    {6, "PadValueBeyondTheLength",
     [](auto& a, const auto& r) {
         Bytes p = head(r.settings(2), 32);
         p.push_back(0x40);  // 33 bytes whose last byte claims 64 bytes of padding
         reseal(a, r, p);
     }, -59, "pad value is error.\r\n"},
    {6, "PadBytesDiffer",
     [](auto& a, const auto& r) {
         Bytes p = r.settings(2);
         p[p.size() - 5] = 0x0F;
         reseal(a, r, p);
     }, -59, "pad string is error.\r\n"},
    {6, "SettingsOnlyAnIv", [](auto& a, auto&) { find_attr(a, ATTR_ENCR_SETTINGS)->value = Bytes(16, 7); }, -59,
     "pad value is error.\r\n"},
    {6, "WrongKeyWrapAuthenticator",
     [](auto& a, const auto& r) {
         Bytes p = r.settings(2);
         p[25] ^= 1;
         reseal(a, r, p);
     }, -59},
    {6, "TooShortOnceThePaddingIsGone",
     [](auto& a, const auto& r) {
         Bytes p = head(r.settings(2), 20);
         p.insert(p.end(), 12, 12);
         reseal(a, r, p);
     }, -59},
    {6, "RS2DoesNotMatchRHash2",
     [](auto& a, const auto& r) { reseal(a, r, settings_plain(tlv(ATTR_R_SNONCE2, Bytes(16, 0x98)), r.auth_key)); }, -60},
    {6, "WifiFlavourFailsOnThePadding", [](auto&, auto&) {}, -59, "pad value is error.\r\n", Auth::kSigned, WIFI_WPS},
    // Accepted variants.
    {6, "PadValueZeroRemovesNothing",
     [](auto& a, const auto& r) {
         Bytes p = head(r.settings(2), 32);
         p.insert(p.end(), 16, 0x00);
         reseal(a, r, p);
     }, 0},
    {6, "InnerTypesNotExamined",
     [](auto& a, const auto& r) { reseal(a, r, settings_plain(tlv(0x1234, r.r_s2), r.auth_key)); }, 0},
};

INSTANTIATE_TEST_SUITE_P(M6, ParserChecks, ::testing::ValuesIn(kM6Cases), case_name);

TEST_F(Exchange, M6AcceptedState) {
    through_m5();
    const Bytes body = valid_m6();
    ASSERT_EQ(m6(body), 0);
    EXPECT_EQ(bytes_of(g_RegistrarKeys.SecretNonce2, 16), reg.r_s2);
    EXPECT_EQ(bytes_of(g_EnrolleeKeys.Hash2, 32), reg.r_hash(2)) << "R-Hash2 recomputed into Hash2";
    EXPECT_EQ(bytes_of(g_RegistrarKeys.Authenticator, 8), Bytes(body.end() - 8, body.end()));
}

}  // namespace
