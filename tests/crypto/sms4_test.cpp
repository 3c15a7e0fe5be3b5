// SMS4: the standard's block and round-key vectors, the 1,000,000-iteration vector, published and
// computed OFB streams, and libgcrypt's SM4-OFB on random keys, IVs and lengths.
#include <gtest/gtest.h>

#include "crypto/crypto.h"
#include "signing/support.h"

namespace {

using namespace support;

Bytes field(const testjson::Json& v, const char* key) {
    return v.contains(key) ? hex(v.at(key).get<std::string>()) : Bytes{};
}

TEST(Sms4Block, StandardExamplesWithRoundKeys) {
    const auto& doc = vectors("sm4.json");
    const auto& block = doc.at("block").at(0);
    const Bytes key = field(block, "key");
    Sms4Schedule schedule{};
    ASSERT_EQ(Sms4KeySchedule(&schedule, key.data(), key.size()), 0);
    const auto& rks = block.at("round_keys_rk0_rk31");
    ASSERT_EQ(rks.size(), 32u);
    for (size_t i = 0; i < 32; ++i) {
        const uint32_t expected = static_cast<uint32_t>(std::stoul(rks[i].get<std::string>(), nullptr, 16));
        EXPECT_EQ(schedule.rk[i], expected) << "rk" << i;
        EXPECT_EQ(schedule.rk_rev[31 - i], expected) << "reverse rk" << i;
    }
    EXPECT_EQ(schedule.key_length, 16u);
    Bytes out(16);
    Sms4EncryptBlock(schedule, field(block, "plaintext").data(), out.data());
    EXPECT_EQ(out, field(block, "ciphertext"));
    // The million iterations, in place.
    const auto& million = doc.at("block").at(1);
    ASSERT_EQ(Sms4KeySchedule(&schedule, field(million, "key").data(), 16), 0);
    Bytes data = field(million, "plaintext");
    for (long i = million.at("iterations").get<long>(); i > 0; --i)
        Sms4EncryptBlock(schedule, data.data(), data.data());
    EXPECT_EQ(data, field(million, "ciphertext"));
}

TEST(Sms4Block, CheckedEntryPointsRefuseMissingOperands) {
    const uint8_t key[16] = {};
    uint8_t block[16] = {};
    Sms4Schedule schedule{};
    EXPECT_EQ(Sms4KeySchedule(nullptr, key, 16), -1);
    EXPECT_EQ(Sms4KeySchedule(&schedule, nullptr, 16), -1);
    EXPECT_EQ(Sms4KeySchedule(&schedule, key, 15), -1);
    EXPECT_EQ(Sms4KeySchedule(&schedule, key, 32), -1);
    ASSERT_EQ(Sms4KeySchedule(&schedule, key, 16), 0);
    EXPECT_EQ(Sms4EncryptBlockChecked(nullptr, block, block), -1);
    EXPECT_EQ(Sms4EncryptBlockChecked(&schedule, nullptr, block), -1);
    EXPECT_EQ(Sms4EncryptBlockChecked(&schedule, block, block), 0);
}

TEST(Sms4Ofb, PublishedAndComputedStreams) {
    for (const auto& v : vectors("sm4.json").at("ofb")) {
        const Bytes key = field(v, "key"), iv = field(v, "iv");
        const size_t len = v.at("len").get<size_t>();
        Bytes plain = field(v, "plaintext");
        plain.resize(len);  // the 2048-zero-byte keystream entry has none
        Bytes out(len);
        ASSERT_EQ(Sms4Ofb(iv.data(), plain.data(), static_cast<int32_t>(len), key.data(), out.data()), 0);
        EXPECT_EQ(iv, field(v, "iv")) << "the caller's IV is not changed";
        if (v.contains("ciphertext")) {
            Bytes expected = field(v, "ciphertext");
            expected.resize(len);
            EXPECT_EQ(out, expected) << "len " << len;
        } else {
            EXPECT_EQ(ref::sm3(out), field(v, "ciphertext_sm3"));
            EXPECT_EQ(Bytes(out.begin(), out.begin() + 32), field(v, "ciphertext_first_32"));
            EXPECT_EQ(Bytes(out.end() - 32, out.end()), field(v, "ciphertext_last_32"));
        }
    }
}

TEST(Sms4Ofb, MatchesLibgcryptOnRandomKeysIvsAndLengths) {
    std::mt19937_64 rng(0x5A54);
    for (int i = 0; i < 300; ++i) {
        const Bytes key = random_bytes(16), iv = random_bytes(16);
        const Bytes plain = random_bytes(1 + rng() % 700);
        const int32_t len = static_cast<int32_t>(plain.size());
        Bytes out = plain;  // every other case in place
        ASSERT_EQ(Sms4Ofb(iv.data(), i % 2 ? out.data() : plain.data(), len, key.data(), out.data()), 0);
        ASSERT_EQ(out, ref::sm4_ofb(key, iv, plain)) << "case " << i;
    }
}

TEST(Sms4Ofb, RefusesMissingOperandsAndEmptyLengths) {
    uint8_t key[16] = {}, iv[16] = {}, in[4] = {1, 2, 3, 4}, out[4] = {9, 9, 9, 9};
    EXPECT_EQ(Sms4Ofb(nullptr, in, 4, key, out), -1);
    EXPECT_EQ(Sms4Ofb(iv, nullptr, 4, key, out), -1);
    EXPECT_EQ(Sms4Ofb(iv, in, 4, nullptr, out), -1);
    EXPECT_EQ(Sms4Ofb(iv, in, 4, key, nullptr), -1);
    EXPECT_EQ(Sms4Ofb(iv, in, 0, key, out), -1);
    EXPECT_EQ(Sms4Ofb(iv, in, -5, key, out), -1);
    EXPECT_EQ(to_hex(out, 4), "09090909") << "nothing is written on refusal";
}

}  // namespace
