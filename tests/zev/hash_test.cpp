// ZEV_SM3 and ZEV_HMAC_SM3: published vectors, the HMAC construction over ZEV_SM3 for every
// key length around the block size, and the error paths.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "zev.h"
#include "zev/zev_test_util.h"

using namespace zevtest;

namespace {

constexpr size_t kDigestLen = 32;
constexpr size_t kBlockLen = 64;

// The message of a vector: msg_hex, or one of the generated messages its msg_rule names.
std::vector<uint8_t> vector_message(const JsonValue& v) {
    const JsonValue* hex = v.find("msg_hex");
    if (hex != nullptr && hex->is_string())
        return from_hex(hex->text).value_or(std::vector<uint8_t>{});
    const JsonValue* rule = v.find("msg_rule");
    const std::string r = rule != nullptr ? rule->text : "";
    if (r.rfind("1,000,000 x 'a'", 0) == 0) return std::vector<uint8_t>(1000000, 'a');
    if (r.rfind("bytes 00..FF repeated 16 times", 0) == 0) {
        std::vector<uint8_t> m(4096);
        for (size_t i = 0; i < m.size(); ++i) m[i] = static_cast<uint8_t>(i);
        return m;
    }
    ADD_FAILURE() << "unknown message rule: " << r;
    return {};
}

size_t number(const JsonValue& v, const char* key) {
    const JsonValue* f = v.find(key);
    return f != nullptr ? std::stoul(f->text) : static_cast<size_t>(-1);
}

class ZevHash : public ::testing::Test {
  protected:
    void SetUp() override { handle_ = open_curve(kRecommendedCurve); }
    void* handle_ = nullptr;
};

TEST_F(ZevHash, Sm3MatchesPublishedVectors) {
    const auto doc = load_vectors("sm3.json");
    ASSERT_TRUE(doc.has_value());
    const JsonValue* vectors = doc->find("vectors");
    ASSERT_NE(vectors, nullptr);
    ASSERT_GE(vectors->items.size(), 12u);
    for (const JsonValue& v : vectors->items) {
        const std::vector<uint8_t> msg = vector_message(v);
        SCOPED_TRACE("message length " + std::to_string(msg.size()));
        ASSERT_EQ(msg.size(), number(v, "len"));
        uint8_t expected[kDigestLen];
        ASSERT_TRUE(hex_field(v, "digest", expected, sizeof expected));
        uint8_t digest[kDigestLen] = {};
        uint32_t digest_len = 0;
        ASSERT_EQ(
            ZEV_SM3(handle_, msg.data(), static_cast<uint32_t>(msg.size()), digest, &digest_len),
            ZEV_OK);
        EXPECT_EQ(digest_len, kDigestLen);
        EXPECT_EQ(to_hex(digest, kDigestLen), to_hex(expected, kDigestLen));
    }
}

TEST_F(ZevHash, HmacSm3MatchesPublishedVectors) {
    const auto doc = load_vectors("hmac_sm3.json");
    ASSERT_TRUE(doc.has_value());
    const JsonValue* vectors = doc->find("vectors");
    ASSERT_NE(vectors, nullptr);
    ASSERT_GE(vectors->items.size(), 10u);
    for (const JsonValue& v : vectors->items) {
        const std::vector<uint8_t> key = hex_bytes(v, "key_hex");
        const std::vector<uint8_t> msg = vector_message(v);
        SCOPED_TRACE("key length " + std::to_string(key.size()) + ", message length " +
                     std::to_string(msg.size()));
        ASSERT_EQ(key.size(), number(v, "key_len"));
        ASSERT_EQ(msg.size(), number(v, "msg_len"));
        uint8_t expected[kDigestLen];
        ASSERT_TRUE(hex_field(v, "mac", expected, sizeof expected));
        uint8_t mac[kDigestLen] = {};
        ASSERT_EQ(ZEV_HMAC_SM3(handle_, msg.data(), static_cast<uint32_t>(msg.size()), key.data(),
                               static_cast<uint32_t>(key.size()), mac, kDigestLen),
                  ZEV_OK);
        EXPECT_EQ(to_hex(mac, kDigestLen), to_hex(expected, kDigestLen));
    }
}

// HMAC(K, m) = H((K' ^ opad) || H((K' ^ ipad) || m)), K' = K, or H(K) when K is longer than a
// block, zero-padded to the block. Computed here with ZEV_SM3 alone.
std::vector<uint8_t> hmac_by_hand(void* h, const std::vector<uint8_t>& key,
                                  const std::vector<uint8_t>& msg) {
    uint8_t k[kBlockLen] = {};
    uint32_t len = 0;
    if (key.size() > kBlockLen) {
        ZEV_SM3(h, key.data(), static_cast<uint32_t>(key.size()), k, &len);
    } else if (!key.empty()) {
        std::memcpy(k, key.data(), key.size());
    }
    std::vector<uint8_t> inner(kBlockLen), outer(kBlockLen + kDigestLen);
    for (size_t i = 0; i < kBlockLen; ++i) {
        inner[i] = k[i] ^ 0x36;
        outer[i] = k[i] ^ 0x5C;
    }
    inner.insert(inner.end(), msg.begin(), msg.end());
    ZEV_SM3(h, inner.data(), static_cast<uint32_t>(inner.size()), outer.data() + kBlockLen, &len);
    std::vector<uint8_t> mac(kDigestLen);
    ZEV_SM3(h, outer.data(), static_cast<uint32_t>(outer.size()), mac.data(), &len);
    return mac;
}

TEST_F(ZevHash, HmacEqualsTheConstructionOverSm3ForEveryKeyLengthUpTo130) {
    std::vector<uint8_t> msg(100);
    for (size_t i = 0; i < msg.size(); ++i) msg[i] = static_cast<uint8_t>(i * 13 + 1);
    for (size_t key_len = 0; key_len <= 130; ++key_len) {
        std::vector<uint8_t> key(key_len);
        for (size_t i = 0; i < key_len; ++i) key[i] = static_cast<uint8_t>(0xA5 ^ (i * 7));
        const size_t msg_len = key_len % msg.size();
        const std::vector<uint8_t> m(msg.begin(), msg.begin() + static_cast<long>(msg_len));
        uint8_t mac[kDigestLen];
        ASSERT_EQ(ZEV_HMAC_SM3(handle_, m.data(), static_cast<uint32_t>(m.size()), key.data(),
                               static_cast<uint32_t>(key.size()), mac, kDigestLen),
                  ZEV_OK);
        EXPECT_EQ(to_hex(mac, kDigestLen), to_hex(hmac_by_hand(handle_, key, m).data(), kDigestLen))
            << "key length " << key_len;
    }
}

// macLength is the room at mac: more than 32 is fine and only 32 bytes are written.
TEST_F(ZevHash, HmacWritesExactly32BytesWhateverTheRoom) {
    const uint8_t key[16] = {1, 2, 3};
    uint8_t mac[40];
    std::memset(mac, 0xEE, sizeof mac);
    ASSERT_EQ(ZEV_HMAC_SM3(handle_, key, sizeof key, key, sizeof key, mac, sizeof mac), ZEV_OK);
    for (size_t i = kDigestLen; i < sizeof mac; ++i) EXPECT_EQ(mac[i], 0xEE) << i;
}

// Null pointers are accepted only with length 0, and behave like any other empty input.
TEST_F(ZevHash, NullPointersWithLengthZeroMeanEmptyInput) {
    const uint8_t empty[1] = {0};
    uint8_t a[kDigestLen], b[kDigestLen];
    uint32_t len = 0;
    ASSERT_EQ(ZEV_SM3(handle_, nullptr, 0, a, &len), ZEV_OK);
    ASSERT_EQ(ZEV_SM3(handle_, empty, 0, b, nullptr), ZEV_OK);  // the length output is optional
    EXPECT_EQ(0, std::memcmp(a, b, kDigestLen));
    ASSERT_EQ(ZEV_HMAC_SM3(handle_, nullptr, 0, nullptr, 0, a, kDigestLen), ZEV_OK);
    ASSERT_EQ(ZEV_HMAC_SM3(handle_, empty, 0, empty, 0, b, kDigestLen), ZEV_OK);
    EXPECT_EQ(0, std::memcmp(a, b, kDigestLen));
}

// Refused calls return ZEV_ERR_PARAM and leave the output untouched.
TEST_F(ZevHash, BadArgumentsAreRefusedWithoutWriting) {
    const uint8_t data[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    uint8_t out[kDigestLen];
    std::memset(out, 0xCC, sizeof out);
    uint32_t len = 77;
    EXPECT_EQ(ZEV_SM3(handle_, nullptr, 1, out, &len), ZEV_ERR_PARAM);
    EXPECT_EQ(ZEV_SM3(handle_, data, sizeof data, nullptr, &len), ZEV_ERR_PARAM);
    EXPECT_EQ(len, 77u);
    EXPECT_EQ(ZEV_HMAC_SM3(handle_, nullptr, 1, data, 8, out, kDigestLen), ZEV_ERR_PARAM);
    EXPECT_EQ(ZEV_HMAC_SM3(handle_, data, 8, nullptr, 1, out, kDigestLen), ZEV_ERR_PARAM);
    EXPECT_EQ(ZEV_HMAC_SM3(handle_, data, 8, data, 8, nullptr, kDigestLen), ZEV_ERR_PARAM);
    EXPECT_EQ(ZEV_HMAC_SM3(handle_, data, 8, data, 8, out, kDigestLen - 1), ZEV_ERR_PARAM);
    EXPECT_EQ(ZEV_HMAC_SM3(handle_, data, 8, data, 8, out, 0), ZEV_ERR_PARAM);
    for (uint8_t b : out) EXPECT_EQ(b, 0xCC);
}

}  // namespace
