// HMAC-SM3 wrappers and the key schedule, each checked against the same value computed
// independently here with libgcrypt's SM3 and HMAC-SM3.
#include <gtest/gtest.h>

#include "api/context.h"
#include "common/bytes.h"
#include "crypto/crypto.h"
#include "signing/support.h"

namespace {

using namespace support;
using ref::bytes_of;
using ref::cat;

Bytes be32(uint32_t v) {
    Bytes b(4);
    put_be32(b.data(), v);
    return b;
}

class KeySchedule : public ::testing::Test {
protected:
    void SetUp() override {
        saved_mode_ = g_AddressMode;
        std::memcpy(saved_password_, g_MyMsgInfo.DevicePassword, sizeof(saved_password_));
        ResetPartyKeyInfo(g_EnrolleeKeys);
        ResetPartyKeyInfo(g_RegistrarKeys);
        for (PartyKeyInfo* k : {&g_EnrolleeKeys, &g_RegistrarKeys}) {
            for (auto [p, n] : {std::pair{k->Nonce, 16}, {k->PublicKey, 64}, {k->SecretNonce1, 16},
                                {k->SecretNonce2, 16}, {k->SharedSecret, 32}, {k->AuthKey, 32},
                                {k->DhKey, 32}, {k->Kdk, 32}})
                std::memcpy(p, random_bytes(n).data(), n);
        }
    }
    void TearDown() override {
        g_AddressMode = saved_mode_;
        std::memcpy(g_MyMsgInfo.DevicePassword, saved_password_, sizeof(saved_password_));
    }
    static Bytes auth_key() { return bytes_of(g_EnrolleeKeys.AuthKey, 32); }
    uint32_t saved_mode_ = 0;
    char saved_password_[32] = {};
};

TEST(HmacSm3, PublishedVectors) {
    const auto& doc = vectors("hmac_sm3.json");
    ASSERT_GE(doc.at("vectors").size(), 3u);
    for (const auto& v : doc.at("vectors")) {
        const Bytes key = hex(v.at("key_hex").get<std::string>());
        Bytes msg(v.at("msg_len").get<size_t>());  // without msg_hex: bytes 00..FF repeated
        for (size_t i = 0; i < msg.size(); ++i) msg[i] = static_cast<uint8_t>(i);
        if (v.contains("msg_hex") && v.at("msg_hex").is_string()) msg = hex(v.at("msg_hex").get<std::string>());
        uint8_t out[32];
        HmacSHA256(key.data(), static_cast<uint32_t>(key.size()), msg.data(),
                   static_cast<uint32_t>(msg.size()), out);
        EXPECT_EQ(to_hex(out, 32), to_hex(hex(v.at("mac").get<std::string>()))) << "message length " << msg.size();
    }
}

TEST(HmacSm3, MatchesLibgcryptThroughBothEntriesAndRefusesOversizedInput) {
    for (int i = 0; i < 100; ++i) {
        const Bytes key = random_bytes(1 + i % 80);
        const Bytes data = random_bytes(i == 0 ? kHmacScratchLen : (i * 37) % 5000);
        uint8_t out[32], out16[32];
        HmacSHA256(key.data(), static_cast<uint32_t>(key.size()), data.data(),
                   static_cast<uint32_t>(data.size()), out);
        HmacSHA256_16(key.data(), static_cast<uint32_t>(key.size()), data.data(),
                      static_cast<uint16_t>(data.size()), out16);
        ASSERT_EQ(bytes_of(out, 32), ref::hmac_sm3(key, data)) << "case " << i;
        ASSERT_EQ(bytes_of(out16, 32), ref::hmac_sm3(key, data));
    }
    // Larger than the scratch: a zero MAC.
    const Bytes too_big(kHmacScratchLen + 1, 0x33);
    uint8_t out[32];
    std::memset(out, 0xFF, sizeof(out));
    HmacSHA256(too_big.data(), 32, too_big.data(), static_cast<uint32_t>(too_big.size()), out);
    EXPECT_EQ(bytes_of(out, 32), Bytes(32, 0));
}

struct KdkCase {
    uint32_t address_mode;
    const char* address;  // 16-byte field contents
    size_t expected_address_len;
};

class KdkAddress : public KeySchedule, public ::testing::WithParamInterface<KdkCase> {};

// The whole chain DhKey -> KDK -> the three KDF rounds, with the address length of each mode.
TEST_P(KdkAddress, SessionKeysChainDhKeyKdkAndKdf) {
    const KdkCase c = GetParam();
    g_AddressMode = c.address_mode;
    uint8_t address[16] = {};
    std::memcpy(address, c.address, std::strlen(c.address));
    const Bytes ne = bytes_of(g_EnrolleeKeys.Nonce, 16), nr = bytes_of(g_RegistrarKeys.Nonce, 16);
    const Bytes addr = bytes_of(address, c.expected_address_len);
    ASSERT_TRUE(GenerateSessionKeys(g_EnrolleeKeys, g_RegistrarKeys, address, true));
    const Bytes dh = ref::sm3(bytes_of(g_EnrolleeKeys.SharedSecret, 32));
    const Bytes kdk = ref::hmac_sm3(dh, cat({ne, addr, nr}));
    EXPECT_EQ(bytes_of(g_EnrolleeKeys.DhKey, 32), dh);
    EXPECT_EQ(bytes_of(g_EnrolleeKeys.Kdk, 32), kdk);
    Bytes rounds;
    for (uint32_t i = 1; i <= 3; ++i) {
        const Bytes r = ref::hmac_sm3(kdk, cat({be32(i), Bytes(KDF_LABEL, KDF_LABEL + 36), be32(640)}));
        rounds.insert(rounds.end(), r.begin(), r.end());
    }
    EXPECT_EQ(bytes_of(g_EnrolleeKeys.AuthKey, 32), Bytes(rounds.begin(), rounds.begin() + 32));
    EXPECT_EQ(bytes_of(g_EnrolleeKeys.KeyWrapKey, 16), Bytes(rounds.begin() + 32, rounds.begin() + 48));
    // EMSK is the whole third round, never the bytes that follow KeyWrapKey.
    EXPECT_EQ(bytes_of(g_EnrolleeKeys.Emsk, 32), Bytes(rounds.begin() + 64, rounds.end()));
    // With the enrollee second, the nonces change places.
    ASSERT_TRUE(ComputeKDK(g_EnrolleeKeys, g_RegistrarKeys, address, false));
    EXPECT_EQ(bytes_of(g_EnrolleeKeys.Kdk, 32), ref::hmac_sm3(dh, cat({nr, addr, ne})));
}

INSTANTIATE_TEST_SUITE_P(
    Modes, KdkAddress,
    ::testing::Values(KdkCase{MAC_ADDRESS, "\x01\x02\x03\x04\x05\x06", 6},
                      KdkCase{MAC_ADDRESS, "", 6},                  // zero bytes still count
                      KdkCase{IPV4_ADDRESS, "\xC0\xA8\x01\x02", 6},  // 4 bytes + 2 zero bytes
                      KdkCase{TEXT_ADDRESS, "10.0.0.7", 8},
                      KdkCase{TEXT_ADDRESS, "0123456789abcdef", 16}));  // full field, no NUL

TEST_F(KeySchedule, MissingLabelLeavesKeysButSessionKeysStillReportSuccess) {
    std::memset(g_EnrolleeKeys.AuthKey, 0, 32);
    g_EnrolleeKeys.KdfLabel = nullptr;
    EXPECT_FALSE(DeriveKeys(g_EnrolleeKeys));
    EXPECT_EQ(auth_key(), Bytes(32, 0));
    uint8_t address[16] = {1, 2, 3, 4, 5, 6};
    EXPECT_TRUE(GenerateSessionKeys(g_EnrolleeKeys, g_RegistrarKeys, address, true));
    EXPECT_EQ(auth_key(), Bytes(32, 0));
    g_EnrolleeKeys.KdfLabel = "";
    EXPECT_FALSE(DeriveKeys(g_EnrolleeKeys));
}

struct PasswordCase {
    const char* password;
    size_t first_len;
};

class PasswordHalves : public KeySchedule, public ::testing::WithParamInterface<PasswordCase> {};

TEST_P(PasswordHalves, EHashesAndRHashesOverTheTwoHalves) {
    const PasswordCase c = GetParam();
    std::memset(g_MyMsgInfo.DevicePassword, 0, 32);
    std::memcpy(g_MyMsgInfo.DevicePassword, c.password, std::strlen(c.password));
    ComputeEHashes();
    const Bytes pw(c.password, c.password + std::strlen(c.password));
    const Bytes psk1 = ref::hmac_sm3(auth_key(), Bytes(pw.begin(), pw.begin() + c.first_len));
    const Bytes psk2 = ref::hmac_sm3(auth_key(), Bytes(pw.begin() + c.first_len, pw.end()));
    EXPECT_EQ(bytes_of(g_EnrolleeKeys.Psk1, 32), psk1);
    EXPECT_EQ(bytes_of(g_EnrolleeKeys.Psk2, 32), psk2);
    // Over a secret nonce, the PSK half's first 16 bytes and both public keys.
    auto hash = [&](const uint8_t* nonce, const Bytes& psk) {
        return ref::hmac_sm3(auth_key(), cat({bytes_of(nonce, 16), Bytes(psk.begin(), psk.begin() + 16),
                                              bytes_of(g_EnrolleeKeys.PublicKey, 64),
                                              bytes_of(g_RegistrarKeys.PublicKey, 64)}));
    };
    EXPECT_EQ(bytes_of(g_EnrolleeKeys.Hash1, 32), hash(g_EnrolleeKeys.SecretNonce1, psk1));
    EXPECT_EQ(bytes_of(g_EnrolleeKeys.Hash2, 32), hash(g_EnrolleeKeys.SecretNonce2, psk2));
    uint8_t r1[32], r2[32];
    ComputeRHash1(r1);
    ComputeRHash2(r2);
    EXPECT_EQ(bytes_of(r1, 32), hash(g_RegistrarKeys.SecretNonce1, psk1));
    EXPECT_EQ(bytes_of(r2, 32), hash(g_RegistrarKeys.SecretNonce2, psk2));
}

INSTANTIATE_TEST_SUITE_P(Lengths, PasswordHalves,
                         ::testing::Values(PasswordCase{"12345670", 4}, PasswordCase{"1234567", 4},
                                           PasswordCase{"1", 1}, PasswordCase{"", 0},
                                           PasswordCase{"0123456789abcdef0123456789abcdef", 16}));

TEST_F(KeySchedule, Authenticators) {
    const Bytes prev = random_bytes(300), cur = random_bytes(123);
    uint8_t out[32];
    ComputeAuthenticator(g_EnrolleeKeys.AuthKey, prev.data(), 300, cur.data(), 123, out);
    EXPECT_EQ(bytes_of(out, 32), ref::hmac_sm3(auth_key(), cat({prev, cur})));
    ComputeAuthenticator(g_EnrolleeKeys.AuthKey, prev.data(), 300, cur.data(), -1, out);
    EXPECT_EQ(bytes_of(out, 32), Bytes(32, 0)) << "a negative length yields a zero MAC";
    const Bytes huge(kHmacScratchLen, 1);
    ComputeAuthenticator(g_EnrolleeKeys.AuthKey, prev.data(), 300, huge.data(),
                         static_cast<int32_t>(huge.size()), out);
    EXPECT_EQ(bytes_of(out, 32), Bytes(32, 0)) << "an oversized input yields a zero MAC";
    // Verification covers the previous message and the current one but its last twelve bytes.
    std::memcpy(g_PrevMsgBuf, prev.data(), 200);
    g_PrevMsgLen = 200;
    const Bytes mac = ref::hmac_sm3(auth_key(), cat({Bytes(prev.begin(), prev.begin() + 200),
                                                     Bytes(cur.begin(), cur.begin() + 48)}));
    const Bytes body(cur.begin(), cur.begin() + 60);
    EXPECT_TRUE(VerifyAuthenticator(body, 60, mac.data()));
    EXPECT_FALSE(VerifyAuthenticator(body, 59, mac.data()));
    EXPECT_FALSE(VerifyAuthenticator(std::span<const uint8_t>(body.data(), 59), 60, mac.data()))
        << "a stated length beyond the readable bytes";
    EXPECT_FALSE(VerifyAuthenticator(body, 11, mac.data())) << "shorter than an Authenticator";
    EXPECT_FALSE(VerifyAuthenticator(body, -3, mac.data()));
}

TEST(EqualCt, ComparesEveryByte) {
    uint8_t a[32] = {}, b[32] = {};
    EXPECT_TRUE(equal_ct(a, b, 32));
    for (size_t i = 0; i < 32; ++i) {
        b[i] = 0x80;
        EXPECT_FALSE(equal_ct(a, b, 32)) << i;
        EXPECT_TRUE(equal_ct(a, b, i)) << "only the first n bytes count";
        b[i] = 0;
    }
}

}  // namespace
