// M7: layout of the body and of the sealed settings in every mode, the signed byte ranges, the
// identity lookup, and the failure path of the secure chip. Everything the library writes is
// opened and checked here with libgcrypt.
#include "exchange_fixture.h"
#include "signing/support.h"
#include "platform/platform.h"
#include "wapiwps.h"

namespace {

using namespace msgtest;

constexpr int64_t kClock = 1700000000;
constexpr uint8_t kUuidR[16] = {0x52, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

struct Built {
    Bytes body;
    Bytes sealed;    // Encrypted Settings value
    Bytes settings;  // opened, padding included
};

class M7Test : public Keyed {
protected:
    void SetUp() override {
        Keyed::SetUp();
        FakeClock::install_repeatable(kClock);
        g_WPS_mode = WAPI_WPS_CERT;
        g_IsDoSecureChip = 0;
        CertificateMode = 1;
        std::memcpy(UUID_R, kUuidR, 16);
        SetCertIdentityStruct2(0, nullptr);
    }
    void TearDown() override {
        SetCertIdentityStruct2(0, nullptr);
        FakeClock::remove();
        g_IsDoSecureChip = 0;
    }

    // Registers identities: each (uuid first byte, data length, data fill byte).
    void register_identities(std::initializer_list<std::tuple<uint8_t, uint16_t, uint8_t>> ids) {
        std::vector<uint8_t> entries(ids.size() * WAPIWPS_IDENTITY_ENTRY_LEN, 0);
        size_t i = 0;
        for (auto [uuid0, len, fill] : ids) {
            uint8_t* e = entries.data() + i++ * WAPIWPS_IDENTITY_ENTRY_LEN;
            std::memcpy(e, kUuidR, 16);
            e[0] = uuid0;
            std::memcpy(e + 16, &len, 2);
            std::memset(e + 18, fill, len);
        }
        ASSERT_EQ(SetCertIdentityStruct2(static_cast<uint8_t>(ids.size()), entries.data()), 1);
    }

    Built build() {
        Built b;
        b.body = msgtest::build(BuildMessageM7);
        std::vector<Attr> attrs;
        EXPECT_TRUE(testwire::parse(b.body.data(), b.body.size(), attrs));
        for (const Attr& a : attrs)
            if (a.type == ATTR_ENCR_SETTINGS) b.sealed = a.value;
        if (b.sealed.size() >= 16)
            b.settings = sm4_ofb(reg.key_wrap_key, head(b.sealed, 16), Bytes(b.sealed.begin() + 16, b.sealed.end()));
        return b;
    }

    // Checks the body (Authenticator over the previous message and the body before it), that it
    // is now the previous message, and the settings' Key Wrap Authenticator and padding; returns
    // the settings before the Key Wrap Authenticator.
    Bytes check_common(const Built& b) {
        const Bytes start = cat({tlv(ATTR_VERSION, {0x10}), tlv(ATTR_MSG_TYPE, {0x0B}),
                                 tlv(ATTR_REGISTRAR_NONCE, bytes_of(g_RegistrarKeys.Nonce, 16)),
                                 tlv(ATTR_ENCR_SETTINGS, b.sealed)});
        const Bytes mac = head(hmac(reg.auth_key, cat({prev, start})), 8);
        EXPECT_EQ(b.body, cat({start, tlv(ATTR_AUTHENTICATOR, mac)}));
        EXPECT_EQ(bytes_of(g_EnrolleeKeys.Authenticator, 8), mac);
        EXPECT_EQ(bytes_of(g_PrevMsgBuf, g_PrevMsgLen), b.body);
        if (b.sealed.empty() || b.settings.empty() || b.settings.back() + 12u > b.settings.size()) return {};
        const Bytes inner = head(b.settings, b.settings.size() - b.settings.back() - 12);
        EXPECT_EQ(b.settings, settings_plain(inner, reg.auth_key));
        return inner;
    }
};

TEST_F(M7Test, PskModeSealsSecretNonceAndKwaWithAFullBlockOfPadding) {
    g_WPS_mode = WAPI_WPS_PSK;
    const Built b = build();
    EXPECT_EQ(check_common(b), tlv(ATTR_E_SNONCE2, bytes_of(g_EnrolleeKeys.SecretNonce2, 16)));
    EXPECT_EQ(b.settings.size(), 48u);
}

TEST_F(M7Test, WifiFlavourSendsAnEmptyEncryptedSettings) {
    g_WPS_mode = WIFI_WPS;
    const Built b = build();
    EXPECT_TRUE(b.sealed.empty());
    check_common(b);
}

// Certificate mode: what the request holds and which of its bytes the signature covers.
struct CertCase {
    const char* name;
    uint8_t certificate_mode;
    int identity_len;   // -1: no identity registered for UUID_R
    size_t request_len;
    size_t signed_len;  // 0: no signature
};

class M7CertTest : public M7Test, public ::testing::WithParamInterface<CertCase> {};

TEST_P(M7CertTest, RequestLayoutAndSignedRange) {
    const CertCase& c = GetParam();
    CertificateMode = c.certificate_mode;
    if (c.identity_len >= 0)
        register_identities({{kUuidR[0], static_cast<uint16_t>(c.identity_len), 0x5A}});
    if (c.certificate_mode == 2) {  // signs with the key pair held from an earlier run
        for (uint8_t i = 0; i < 24; ++i) GeneratePrivateKey[i] = uint8_t(0x11 + i);
        std::memcpy(g_MyMsgInfo.GeneratePublicKey, support::public_key_of(GeneratePrivateKey).data(), 48);
    }
    const Bytes s = check_common(build());
    ASSERT_EQ(s.size(), c.request_len + 29);
    const Bytes request(s.begin() + 29, s.end());
    EXPECT_EQ(s, cat({tlv(ATTR_E_SNONCE2, bytes_of(g_EnrolleeKeys.SecretNonce2, 16)),
                      tlv(ATTR_CERTIFICATE_NEEDED, {uint8_t(c.identity_len < 0)}), tlv(ATTR_X509_CERT_REQ, request)}));
    EXPECT_EQ(CertificateNeeded, c.identity_len < 0 ? 1 : 0);
    if (c.signed_len == 0) return;

    const Bytes published = bytes_of(g_MyMsgInfo.GeneratePublicKey, 48), sig(request.end() - 48, request.end());
    Bytes identity(c.identity_len < 0 ? 0 : size_t(c.identity_len), 0x5A);
    if (c.certificate_mode == 1) identity = cat({{0x00, 0x01}, be16(uint16_t(c.identity_len)), identity});
    EXPECT_EQ(request, cat({c.certificate_mode == 1 ? tlv(ATTR_SIGNING_PUBLIC_KEY, published) : Bytes{},
                            c.identity_len >= 0 ? tlv(ATTR_CERTIFICATE_IDENTITY, identity) : Bytes{},
                            tlv(ATTR_IDENTITY_SIGNATURE, sig)}));
    // The signature verifies over exactly signed_len bytes from the start of the request, with
    // the key whose public half was published (the key pair is consistent for this generator).
    ASSERT_EQ(support::public_key_of(GeneratePrivateKey), published) << "pick another generator seed";
    EXPECT_TRUE(ref::wapi192_verify(published, request.data(), c.signed_len, sig.data()));
    EXPECT_EQ(ref::wapi192_verify(published, request.data(), request.size() - 52, sig.data()),
              c.signed_len == request.size() - 52);
}

INSTANTIATE_TEST_SUITE_P(
    Modes, M7CertTest,
    ::testing::Values(CertCase{"NewKeyNoIdentity", 1, -1, 104, 52},
                      CertCase{"NewKeyWithIdentity", 1, 100, 212, 52},
                      CertCase{"NewKeyWithFullIdentity", 1, 1024, 1136, 52},
                      CertCase{"NewKeyWithEmptyIdentity", 1, 0, 112, 52},
                      CertCase{"HeldKeyWithIdentity", 2, 100, 156, 104},
                      CertCase{"HeldKeyNoIdentity", 2, -1, 0, 0}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(M7Test, FirstOfTwoIdentitiesWithTheSameUuidIsUsed) {
    CertificateMode = 2;
    std::memset(GeneratePrivateKey, 0x11, 24);  // a held key pair
    std::memcpy(g_MyMsgInfo.GeneratePublicKey, support::public_key_of(GeneratePrivateKey).data(), 48);
    register_identities({{0x01, 10, 0x11}, {kUuidR[0], 20, 0x22}, {kUuidR[0], 30, 0x33}});
    EXPECT_EQ(check_common(build()).size(), 20u + 4 + 52 + 29);
    EXPECT_EQ(CertificateNeeded, 0);
}

TEST_F(M7Test, EveryNewKeySignatureVerifiesUnlessTheMinimalEncodingShortenedTheKey) {
    int consistent = 0;
    for (uint32_t seed = 1; seed <= 40; ++seed) {
        SetUp();
        FakeClock::install_repeatable(kClock + seed);
        const Bytes s = check_common(build());  // the request starts at byte 29
        ASSERT_EQ(s.size(), 29u + 104);
        const Bytes published = bytes_of(g_MyMsgInfo.GeneratePublicKey, 48);
        const bool consistent_pair = support::public_key_of(GeneratePrivateKey) == published;
        EXPECT_EQ(ref::wapi192_verify(published, s.data() + 29, 52, s.data() + s.size() - 48), consistent_pair)
            << "seed " << seed;
        consistent += consistent_pair;
    }
    EXPECT_GT(consistent, 30);
}

// On every path that signs, a failed signature fails the build and keeps the previous message:
// the chip's (no service client exists in this process, so it always fails here), and the
// software path's without a held key (a zero key would sign with d = 0, which anyone can forge).
TEST_F(M7Test, FailedSignatureReturnsFalseAndKeepsThePreviousMessage) {
    struct Case {
        uint8_t certificate_mode;
        bool identity, chip;
    };
    for (const Case c : {Case{1, false, true}, Case{1, true, true}, Case{2, true, true}, Case{2, true, false}}) {
        SetUp();
        CertificateMode = c.certificate_mode;
        if (c.identity) register_identities({{kUuidR[0], 10, 0x11}});
        g_IsDoSecureChip = c.chip;
        std::memset(GeneratePrivateKey, 0, sizeof GeneratePrivateKey);
        uint8_t out[2048];
        uint32_t len = 0;
        EXPECT_FALSE(BuildMessageM7(out, &len)) << int(c.certificate_mode) << c.identity << c.chip;
        EXPECT_EQ(bytes_of(g_PrevMsgBuf, g_PrevMsgLen), prev);
        TearDown();
    }
}

}  // namespace
