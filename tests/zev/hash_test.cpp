// ZEV_SM3 and ZEV_HMAC_SM3 against published vectors.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "zev.h"
#include "zev/zev_test_util.h"

using namespace zevtest;

namespace {

constexpr size_t kDigestLen = 32;

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


}  // namespace
