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
    through_m3(WIFI_WPS);
    // Wi-Fi M4 cannot pass (its settings open to nothing), so M5 is built on M3 as previous.
    const Bytes body = build(BuildMessageM5);
    const Bytes expected_start = cat({tlv(0x104A, {0x10}), tlv(0x1022, {0x09}), tlv(0x1039, reg.nonce), tlv(0x1018, {})});
    ASSERT_EQ(body.size(), expected_start.size() + 12);
    EXPECT_EQ(head(body, expected_start.size()), expected_start);
}

using Mutation = void (*)(std::vector<Attr>&, const Registrar&);

struct M6Case {
    const char* name;
    Mutation mutate;
    int32_t code;
    const char* line;
    bool authenticate = true;
};

void reseal(std::vector<Attr>& a, const Registrar& r, const Bytes& plain) {
    find_attr(a, ATTR_ENCR_SETTINGS)->value = r.seal(plain);
}

const M6Case kM6Cases[] = {
    {"NoAuthenticator", [](auto&, const auto&) {}, -53, nullptr, false},
    {"NoVersion", [](auto& a, const auto&) { remove_attr(a, ATTR_VERSION); }, -55, nullptr},
    {"MessageTypeM4", [](auto& a, const auto&) { find_attr(a, ATTR_MSG_TYPE)->value = {WPS_MSG_TYPE_M4}; }, -56, nullptr},
    {"WrongEnrolleeNonce", [](auto& a, const auto&) { find_attr(a, ATTR_ENROLLEE_NONCE)->value[3] ^= 1; }, -57, nullptr},
    {"NoEncryptedSettings", [](auto& a, const auto&) { remove_attr(a, ATTR_ENCR_SETTINGS); }, -58, nullptr},
    {"PadValueBeyondTheLength",
     [](auto& a, const auto& r) {
         Bytes p = head(r.m6_settings(), 32);
         p.push_back(0x40);  // 33 bytes whose last byte claims 64 bytes of padding
         reseal(a, r, p);
     }, -59, "pad value is error.\r\n"},
    {"PadBytesDiffer",
     [](auto& a, const auto& r) {
         Bytes p = r.m6_settings();
         p[p.size() - 5] = 0x0F;
         reseal(a, r, p);
     }, -59, "pad string is error.\r\n"},
    {"SettingsOnlyAnIv", [](auto& a, const auto&) { find_attr(a, ATTR_ENCR_SETTINGS)->value = Bytes(16, 7); }, -59,
     "pad value is error.\r\n"},
    {"WrongKeyWrapAuthenticator",
     [](auto& a, const auto& r) {
         Bytes p = r.m6_settings();
         p[25] ^= 1;
         reseal(a, r, p);
     }, -59, "Unpack M6 error, error code is -59.\r\n"},
    {"TooShortOnceThePaddingIsGone",
     [](auto& a, const auto& r) {
         Bytes p = head(r.m6_settings(), 20);
         p.insert(p.end(), 12, 12);
         reseal(a, r, p);
     }, -59, "Unpack M6 error, error code is -59.\r\n"},
    {"RS2DoesNotMatchRHash2",
     [](auto& a, const auto& r) { reseal(a, r, settings_plain(ATTR_R_SNONCE2, Bytes(16, 0x98), r.auth_key)); }, -60,
     nullptr},
    // Accepted variants.
    {"PadValueZeroRemovesNothing",
     [](auto& a, const auto& r) {
         Bytes p = head(r.m6_settings(), 32);
         p.insert(p.end(), 16, 0x00);
         reseal(a, r, p);
     }, 0, nullptr},
    {"InnerTypesNotExamined",
     [](auto& a, const auto& r) { reseal(a, r, settings_plain(0x1234, r.r_s2, r.auth_key)); }, 0, nullptr},
};

class M6Checks : public Exchange, public ::testing::WithParamInterface<M6Case> {};

TEST_P(M6Checks, CodeAndLine) {
    const M6Case& c = GetParam();
    through_m5();
    std::vector<Attr> attrs = reg.m6_attrs(reg.m6_settings());
    c.mutate(attrs, reg);
    const Bytes body = c.authenticate ? reg.authenticated(encode(attrs)) : encode(attrs);
    expect_verdict("M6", m6, body, c.code, c.line);
}

INSTANTIATE_TEST_SUITE_P(Steps, M6Checks, ::testing::ValuesIn(kM6Cases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(Exchange, M6AuthenticatorMismatch) {
    through_m5();
    Bytes body = valid_m6();
    body.back() ^= 0x80;
    EXPECT_EQ(m6(body), -54);
}

TEST_F(Exchange, M6AcceptedState) {
    through_m5();
    const Bytes body = valid_m6();
    ASSERT_EQ(m6(body), 0);
    EXPECT_EQ(bytes_of(g_RegistrarKeys.SecretNonce2, 16), reg.r_s2);
    EXPECT_EQ(bytes_of(g_EnrolleeKeys.Hash2, 32), reg.r_hash(2)) << "R-Hash2 recomputed into Hash2";
    EXPECT_EQ(bytes_of(g_RegistrarKeys.Authenticator, 8), Bytes(body.end() - 8, body.end()));
    EXPECT_EQ(bytes_of(g_PrevMsgBuf, g_PrevMsgLen), body);
}

TEST_F(Exchange, M6WifiFlavourFailsOnThePadding) {
    through_m3(WIFI_WPS);
    build(BuildMessageM5);
    TraceCapture trace;
    EXPECT_EQ(m6(valid_m6()), -59);
    EXPECT_TRUE(trace.has("pad value is error.\r\n"));
}

}  // namespace
