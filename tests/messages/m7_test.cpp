// M7: layout of the body and of the sealed settings in every mode, the signed byte ranges, the
// identity lookup, and the failure path of the secure chip. Everything the library writes is
// opened and checked here with libgcrypt.
#include <gtest/gtest.h>

#include <cstring>

#include "api/context.h"
#include "common/deterministic.h"
#include "common/reference.h"
#include "common/wire.h"
#include "messages/attributes.h"
#include "messages/messages.h"
#include "platform/platform.h"
#include "wapiwps.h"

namespace {

using testwire::Attr;
using ref::Bytes;

constexpr uint8_t kUuidR[16] = {0x52, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

struct Built {
    Bytes body;
    std::vector<Attr> attrs;
    Bytes sealed;    // Encrypted Settings value
    Bytes settings;  // opened, padding included
};

class M7Test : public ::testing::Test {
protected:
    void SetUp() override {
        testdet::make_deterministic(0);
        g_WPS_mode = WAPI_WPS_CERT;
        g_IsDoSecureChip = 0;
        CertificateMode = 1;
        for (int i = 0; i < 32; ++i) g_EnrolleeKeys.AuthKey[i] = static_cast<uint8_t>(0xA0 + i);
        for (int i = 0; i < 16; ++i) {
            g_EnrolleeKeys.KeyWrapKey[i] = static_cast<uint8_t>(0x30 + i);
            g_EnrolleeKeys.SecretNonce2[i] = static_cast<uint8_t>(0xE0 + i);
            g_RegistrarKeys.Nonce[i] = static_cast<uint8_t>(0x70 + i);
        }
        std::memcpy(UUID_R, kUuidR, 16);
        std::memset(g_PrevMsgBuf, 0, sizeof g_PrevMsgBuf);
        for (int i = 0; i < 40; ++i) g_PrevMsgBuf[i] = static_cast<uint8_t>(i * 3);
        g_PrevMsgLen = 40;
        prev_ = Bytes(g_PrevMsgBuf, g_PrevMsgBuf + 40);
        SetCertIdentityStruct2(0, nullptr);
    }
    void TearDown() override {
        SetCertIdentityStruct2(0, nullptr);
        testdet::restore_randomness();
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
        uint8_t out[2048] = {};
        uint32_t len = 0;
        EXPECT_TRUE(BuildMessageM7(out, &len));
        b.body.assign(out, out + len);
        EXPECT_TRUE(testwire::parse(out, len, b.attrs));
        for (const Attr& a : b.attrs)
            if (a.type == ATTR_ENCR_SETTINGS) b.sealed = a.value;
        if (b.sealed.size() >= 16) {
            const Bytes ct(b.sealed.begin() + 16, b.sealed.end());
            b.settings = ref::sm4_ofb(ref::bytes_of(g_EnrolleeKeys.KeyWrapKey, 16), ref::bytes_of(b.sealed.data(), 16), ct);
        }
        return b;
    }

    // Checks the body frame common to every mode and returns the unpadded settings.
    Bytes check_common(const Built& b) {
        EXPECT_EQ(b.attrs.size(), 5u);
        if (b.attrs.size() != 5) return {};
        EXPECT_EQ(b.attrs[0].type, ATTR_VERSION);
        EXPECT_EQ(b.attrs[0].value, Bytes{0x10});
        EXPECT_EQ(b.attrs[1].type, ATTR_MSG_TYPE);
        EXPECT_EQ(b.attrs[1].value, Bytes{0x0B});
        EXPECT_EQ(b.attrs[2].type, ATTR_REGISTRAR_NONCE);
        EXPECT_EQ(b.attrs[2].value, Bytes(g_RegistrarKeys.Nonce, g_RegistrarKeys.Nonce + 16));
        EXPECT_EQ(b.attrs[3].type, ATTR_ENCR_SETTINGS);
        EXPECT_EQ(b.attrs[4].type, ATTR_AUTHENTICATOR);
        // Authenticator: HMAC over the previous message and this body up to its last attribute.
        Bytes covered = prev_;
        covered.insert(covered.end(), b.body.begin(), b.body.end() - 12);
        const auto mac = ref::hmac_sm3(ref::bytes_of(g_EnrolleeKeys.AuthKey, 32), covered);
        EXPECT_EQ(b.attrs[4].value, Bytes(mac.begin(), mac.begin() + 8));
        EXPECT_EQ(0, std::memcmp(g_EnrolleeKeys.Authenticator, mac.data(), 8));
        // M7 is now the previous message.
        EXPECT_EQ(g_PrevMsgLen, b.body.size());
        EXPECT_EQ(0, std::memcmp(g_PrevMsgBuf, b.body.data(), b.body.size()));
        // Padding: value = count, 1..16 bytes.
        EXPECT_FALSE(b.settings.empty());
        if (b.settings.empty()) return {};
        const uint8_t pad = b.settings.back();
        EXPECT_GE(pad, 1);
        EXPECT_LE(pad, 16);
        for (size_t i = b.settings.size() - pad; i < b.settings.size(); ++i)
            EXPECT_EQ(b.settings[i], pad);
        EXPECT_EQ(b.settings.size() % 16, 0u);
        Bytes s(b.settings.begin(), b.settings.end() - pad);
        // Key Wrap Authenticator: the last attribute, over everything before it.
        EXPECT_GE(s.size(), 12u);
        const Bytes before(s.begin(), s.end() - 12);
        const auto kwa = ref::hmac_sm3(ref::bytes_of(g_EnrolleeKeys.AuthKey, 32), before);
        EXPECT_EQ(Bytes(s.end() - 12, s.end() - 8), (Bytes{0x10, 0x1E, 0x00, 0x08}));
        EXPECT_EQ(Bytes(s.end() - 8, s.end()), Bytes(kwa.begin(), kwa.begin() + 8));
        return s;
    }

    Bytes prev_;
};

TEST_F(M7Test, PskModeSealsSecretNonceAndKwaWithAFullBlockOfPadding) {
    g_WPS_mode = WAPI_WPS_PSK;
    const Built b = build();
    const Bytes s = check_common(b);
    EXPECT_EQ(b.sealed.size(), 64u);
    EXPECT_EQ(b.settings.size(), 48u);
    EXPECT_EQ(b.settings.back(), 0x10);
    std::vector<Attr> attrs;
    ASSERT_TRUE(testwire::parse(s.data(), s.size(), attrs));
    ASSERT_EQ(attrs.size(), 2u);
    EXPECT_EQ(attrs[0].type, ATTR_E_SNONCE2);
    EXPECT_EQ(attrs[0].value, Bytes(g_EnrolleeKeys.SecretNonce2, g_EnrolleeKeys.SecretNonce2 + 16));
}

TEST_F(M7Test, WifiFlavourSendsAnEmptyEncryptedSettings) {
    g_WPS_mode = WIFI_WPS;
    const Built b = build();
    ASSERT_EQ(b.attrs.size(), 5u);
    EXPECT_EQ(b.attrs[3].type, ATTR_ENCR_SETTINGS);
    EXPECT_TRUE(b.attrs[3].value.empty());
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
    // CertificateMode 2 signs with the key pair held from an earlier run.
    uint8_t held_private[24];
    for (int i = 0; i < 24; ++i) held_private[i] = static_cast<uint8_t>(0x11 + i);
    if (c.certificate_mode == 2) {
        std::memcpy(GeneratePrivateKey, held_private, 24);
        const Bytes pub = ref::wapi192_public_key(held_private);
        std::memcpy(g_MyMsgInfo.GeneratePublicKey, pub.data(), 48);
    }

    const Built b = build();
    const Bytes s = check_common(b);
    EXPECT_EQ(CertificateNeeded, c.identity_len >= 0 ? 0 : 1);
    EXPECT_EQ(s.size(), c.request_len + 41);

    std::vector<Attr> attrs;
    ASSERT_TRUE(testwire::parse(s.data(), s.size(), attrs));
    ASSERT_EQ(attrs.size(), 4u);
    EXPECT_EQ(attrs[0].type, ATTR_E_SNONCE2);
    EXPECT_EQ(attrs[1].type, ATTR_CERTIFICATE_NEEDED);
    EXPECT_EQ(attrs[1].value, Bytes{CertificateNeeded});
    EXPECT_EQ(attrs[2].type, ATTR_X509_CERT_REQ);
    const Bytes& request = attrs[2].value;
    ASSERT_EQ(request.size(), c.request_len);
    if (c.signed_len == 0) return;

    std::vector<Attr> parts;
    ASSERT_TRUE(testwire::parse(request.data(), request.size(), parts));
    ASSERT_EQ(parts.back().type, ATTR_IDENTITY_SIGNATURE);
    ASSERT_EQ(parts.back().value.size(), 48u);
    const Bytes published(g_MyMsgInfo.GeneratePublicKey, g_MyMsgInfo.GeneratePublicKey + 48);
    if (c.certificate_mode == 1) {
        EXPECT_EQ(parts[0].type, ATTR_SIGNING_PUBLIC_KEY);
        EXPECT_EQ(parts[0].value, published);
    }
    if (c.identity_len >= 0) {
        const Attr& identity = parts[c.certificate_mode == 1 ? 1 : 0];
        EXPECT_EQ(identity.type, ATTR_CERTIFICATE_IDENTITY);
        const size_t head = c.certificate_mode == 1 ? 4 : 0;
        Bytes expected(head + static_cast<size_t>(c.identity_len), 0x5A);
        if (head) {
            const uint8_t mode_and_length[4] = {0x00, 0x01, static_cast<uint8_t>(c.identity_len >> 8),
                                                static_cast<uint8_t>(c.identity_len)};
            std::memcpy(expected.data(), mode_and_length, 4);
        }
        EXPECT_EQ(identity.value, expected);
    }
    // The signature verifies over exactly signed_len bytes from the start of the request, with
    // the key whose public half was published (the key pair is consistent for this generator).
    ASSERT_EQ(ref::wapi192_public_key(GeneratePrivateKey), published) << "pick another generator seed";
    EXPECT_TRUE(ref::wapi192_verify(published, request.data(), c.signed_len,
                                   parts.back().value.data()));
    if (c.signed_len != request.size() - 52) {
        EXPECT_FALSE(ref::wapi192_verify(published, request.data(), request.size() - 52,
                                        parts.back().value.data()));
    }
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

TEST_F(M7Test, NoIdentityRequestPadsWithFifteenBytes) {
    const Built b = build();
    check_common(b);
    EXPECT_EQ(b.settings.size(), 160u);  // 145 + 15
    EXPECT_EQ(b.settings.back(), 0x0F);
}

TEST_F(M7Test, FirstOfTwoIdentitiesWithTheSameUuidIsUsed) {
    CertificateMode = 2;
    register_identities({{0x01, 10, 0x11}, {kUuidR[0], 20, 0x22}, {kUuidR[0], 30, 0x33}});
    const Built b = build();
    const Bytes s = check_common(b);
    EXPECT_EQ(CertificateNeeded, 0);
    EXPECT_EQ(s.size(), 20u + 4 + 52 + 41);
}

TEST_F(M7Test, EveryNewKeySignatureVerifiesUnlessTheMinimalEncodingShortenedTheKey) {
    int consistent = 0, shortened = 0;
    for (uint32_t seed = 1; seed <= 40; ++seed) {
        SetUp();
        testdet::make_deterministic(seed);
        const Built b = build();
        const Bytes s = check_common(b);
        std::vector<Attr> attrs, parts;
        ASSERT_TRUE(testwire::parse(s.data(), s.size(), attrs));
        ASSERT_TRUE(testwire::parse(attrs[2].value.data(), attrs[2].value.size(), parts));
        const Bytes published(g_MyMsgInfo.GeneratePublicKey, g_MyMsgInfo.GeneratePublicKey + 48);
        const bool verified = ref::wapi192_verify(published, attrs[2].value.data(), 52,
                                                 parts.back().value.data());
        if (ref::wapi192_public_key(GeneratePrivateKey) == published) {
            EXPECT_TRUE(verified) << "seed " << seed;
            ++consistent;
        } else {
            EXPECT_FALSE(verified) << "seed " << seed;
            ++shortened;
        }
    }
    EXPECT_GT(consistent, 30);
}

// On every path that signs, a failed chip signature fails the build and keeps the previous
// message (no service client exists in this process, so the chip always fails here).
TEST_F(M7Test, SecureChipFailureReturnsFalseAndKeepsThePreviousMessage) {
    struct Case {
        uint8_t certificate_mode;
        bool identity;
    };
    for (const Case c : {Case{1, false}, Case{1, true}, Case{2, true}}) {
        SetUp();
        CertificateMode = c.certificate_mode;
        if (c.identity) register_identities({{kUuidR[0], 10, 0x11}});
        g_IsDoSecureChip = 1;
        uint8_t out[2048];
        uint32_t len = 0;
        EXPECT_FALSE(BuildMessageM7(out, &len)) << int(c.certificate_mode) << c.identity;
        EXPECT_EQ(g_PrevMsgLen, 40);
        EXPECT_EQ(0, std::memcmp(g_PrevMsgBuf, prev_.data(), prev_.size()));
        TearDown();
    }
}

}  // namespace
