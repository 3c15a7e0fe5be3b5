// SMS4: the standard's block and round-key vectors, the 1,000,000-iteration vector, published and
// computed OFB streams, and libgcrypt's SM4-OFB on thousands of random keys, IVs and lengths.
#include <gtest/gtest.h>

#include "crypto/crypto.h"
#include "crypto_test_util.h"
#include "common/vectors.h"

namespace {

using cryptotest::Bytes;
using testjson::JsonValue;

Bytes hex(const JsonValue& v, const char* key) {
    const JsonValue* m = v.find(key);
    if (m == nullptr) return {};
    auto b = testjson::from_hex(m->text);
    return b ? *b : Bytes{};
}

const JsonValue& sm4_vectors() {
    static const JsonValue doc = testjson::load_vectors("sm4.json").value_or(JsonValue{});
    return doc;
}

TEST(Sms4Block, StandardExampleWithRoundKeys) {
    const JsonValue& block = sm4_vectors()["block"].items.at(0);
    const Bytes key = hex(block, "key");
    Sms4Schedule schedule{};
    ASSERT_EQ(Sms4KeySchedule(&schedule, key.data(), key.size()), 0);
    const auto& rks = block["round_keys_rk0_rk31"].items;
    ASSERT_EQ(rks.size(), 32u);
    for (size_t i = 0; i < 32; ++i) {
        const uint32_t expected = static_cast<uint32_t>(std::stoul(rks[i].text, nullptr, 16));
        EXPECT_EQ(schedule.rk[i], expected) << "rk" << i;
        EXPECT_EQ(schedule.rk_rev[31 - i], expected) << "reverse rk" << i;
    }
    EXPECT_EQ(schedule.key_length, 16u);
    Bytes out(16);
    Sms4EncryptBlock(schedule, hex(block, "plaintext").data(), out.data());
    EXPECT_EQ(out, hex(block, "ciphertext"));
}

TEST(Sms4Block, MillionIterationsInPlace) {
    const JsonValue& block = sm4_vectors()["block"].items.at(1);
    const Bytes key = hex(block, "key");
    Sms4Schedule schedule{};
    ASSERT_EQ(Sms4KeySchedule(&schedule, key.data(), key.size()), 0);
    Bytes data = hex(block, "plaintext");
    const long iterations = std::stol(block["iterations"].text);
    for (long i = 0; i < iterations; ++i) Sms4EncryptBlock(schedule, data.data(), data.data());
    EXPECT_EQ(data, hex(block, "ciphertext"));
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
    for (const JsonValue& v : sm4_vectors()["ofb"].items) {
        const Bytes key = hex(v, "key");
        const Bytes iv = hex(v, "iv");
        const size_t len = std::stoul(v.find("len")->text);
        Bytes plain = hex(v, "plaintext");
        if (plain.empty()) plain.assign(len, 0);  // the 2048-zero-byte keystream entry
        plain.resize(len);
        const Bytes iv_before = iv;
        Bytes out(len);
        ASSERT_EQ(Sms4Ofb(iv.data(), plain.data(), static_cast<int32_t>(len), key.data(), out.data()), 0);
        EXPECT_EQ(iv, iv_before) << "the caller's IV is not changed";
        if (v.find("ciphertext") != nullptr) {
            Bytes expected = hex(v, "ciphertext");
            expected.resize(len);
            EXPECT_EQ(out, expected) << "len " << len;
        } else {
            EXPECT_EQ(ref::sm3(out), hex(v, "ciphertext_sm3"));
            EXPECT_EQ(Bytes(out.begin(), out.begin() + 32), hex(v, "ciphertext_first_32"));
            EXPECT_EQ(Bytes(out.end() - 32, out.end()), hex(v, "ciphertext_last_32"));
        }
    }
}

TEST(Sms4Ofb, MatchesLibgcryptOnRandomKeysIvsAndLengths) {
    for (int i = 0; i < 3000; ++i) {
        const Bytes key = cryptotest::random_bytes(16);
        const Bytes iv = cryptotest::random_bytes(16);
        const Bytes lenb = cryptotest::random_bytes(2);
        const size_t len = 1 + ((lenb[0] | (lenb[1] << 8)) % 700);
        const Bytes plain = cryptotest::random_bytes(len);
        Bytes out(len);
        ASSERT_EQ(Sms4Ofb(iv.data(), plain.data(), static_cast<int32_t>(len), key.data(), out.data()), 0);
        ASSERT_EQ(out, ref::sm4_ofb(key, iv, plain)) << "case " << i << " len " << len;
    }
}

TEST(Sms4Ofb, InPlaceAndInverse) {
    const Bytes key = cryptotest::random_bytes(16);
    const Bytes iv = cryptotest::random_bytes(16);
    const Bytes plain = cryptotest::random_bytes(77);
    Bytes data = plain;
    ASSERT_EQ(Sms4Ofb(iv.data(), data.data(), 77, key.data(), data.data()), 0);
    EXPECT_EQ(data, ref::sm4_ofb(key, iv, plain));
    ASSERT_EQ(Sms4Ofb(iv.data(), data.data(), 77, key.data(), data.data()), 0);
    EXPECT_EQ(data, plain);
}

TEST(Sms4Ofb, RefusesMissingOperandsAndEmptyLengths) {
    uint8_t key[16] = {}, iv[16] = {}, in[4] = {1, 2, 3, 4}, out[4] = {9, 9, 9, 9};
    EXPECT_EQ(Sms4Ofb(nullptr, in, 4, key, out), -1);
    EXPECT_EQ(Sms4Ofb(iv, nullptr, 4, key, out), -1);
    EXPECT_EQ(Sms4Ofb(iv, in, 4, nullptr, out), -1);
    EXPECT_EQ(Sms4Ofb(iv, in, 4, key, nullptr), -1);
    EXPECT_EQ(Sms4Ofb(iv, in, 0, key, out), -1);
    EXPECT_EQ(Sms4Ofb(iv, in, -5, key, out), -1);
    for (uint8_t b : out) EXPECT_EQ(b, 9) << "nothing is written on refusal";
}

}  // namespace
