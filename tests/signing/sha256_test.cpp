// SHA-256: the published vectors (FIPS 180-2 and computed boundary lengths, read from the
// vectors directory), streaming against one-shot, libgcrypt on random input, and the status
// codes of the context.
#include "signing/sha256.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support.h"

using namespace signing_test;

namespace {

// Builds a vector's message from msg_ascii, msg_hex, or a rule of the form "<count> x '<c>'"
// (also "1,000,000 x 'a'").
std::vector<uint8_t> vector_message(const testjson::JsonValue& v) {
    if (v.has("msg_ascii"))
        return std::vector<uint8_t>(v["msg_ascii"].str().begin(), v["msg_ascii"].str().end());
    if (v.has("msg_hex")) return from_hex(v["msg_hex"].str());
    std::string rule = v["msg_rule"].str();
    std::string digits;
    for (char c : rule.substr(0, rule.find(" x ")))
        if (c != ',') digits += c;
    const char fill = rule[rule.find('\'') + 1];
    return std::vector<uint8_t>(std::stoul(digits), static_cast<uint8_t>(fill));
}

std::string digest_hex(const std::vector<uint8_t>& m) {
    uint8_t d[32];
    EXPECT_EQ(sha256(m.data(), m.size(), d), kShaSuccess);
    return to_hex(d, 32);
}

}  // namespace

TEST(Sha256, PublishedVectors) {
    const auto& list = vectors("sha256.json")["vectors"].items;
    ASSERT_GE(list.size(), 14u);
    bool saw_million = false, saw55 = false, saw56 = false, saw64 = false;
    for (const auto& v : list) {
        const std::vector<uint8_t> m = vector_message(v);
        ASSERT_EQ(m.size(), static_cast<size_t>(v["len"].number())) << v["source"].str();
        EXPECT_EQ(digest_hex(m), v["digest"].str())
            << "len " << m.size() << ", " << v["source"].str();
        saw_million |= m.size() == 1000000;
        saw55 |= m.size() == 55;
        saw56 |= m.size() == 56;
        saw64 |= m.size() == 64;
    }
    EXPECT_TRUE(saw_million && saw55 && saw56 && saw64);
}

TEST(Sha256, StreamingEqualsOneShotAtEverySplit) {
    std::vector<uint8_t> m(200);
    for (size_t i = 0; i < m.size(); ++i) m[i] = static_cast<uint8_t>(i * 7 + 3);
    for (size_t len : {0u, 1u, 55u, 56u, 63u, 64u, 65u, 119u, 120u, 128u, 200u}) {
        uint8_t whole[32];
        sha256(m.data(), len, whole);
        for (size_t cut = 0; cut <= len; ++cut) {
            Sha256Context ctx;
            ASSERT_EQ(sha256_reset(&ctx), kShaSuccess);
            ASSERT_EQ(sha256_input(&ctx, m.data(), cut), kShaSuccess);
            ASSERT_EQ(sha256_input(&ctx, m.data() + cut, len - cut), kShaSuccess);
            uint8_t d[32];
            ASSERT_EQ(sha256_result(&ctx, d), kShaSuccess);
            ASSERT_EQ(to_hex(d, 32), to_hex(whole, 32)) << "len " << len << " cut " << cut;
        }
    }
}

TEST(Sha256, MatchesLibgcryptOnRandomInputs) {
    gcrypt_init();
    std::mt19937_64 rng(0x5A256);
    for (int i = 0; i < 500; ++i) {
        std::vector<uint8_t> m(rng() % 300);
        for (auto& b : m) b = static_cast<uint8_t>(rng());
        uint8_t ours[32], theirs[32];
        sha256(m.data(), m.size(), ours);
        gcry_md_hash_buffer(GCRY_MD_SHA256, theirs, m.data(), m.size());
        ASSERT_EQ(to_hex(ours, 32), to_hex(theirs, 32)) << "len " << m.size();
    }
}

TEST(Sha256, StatusCodes) {
    const uint8_t data[3] = {'a', 'b', 'c'};
    uint8_t d[32];
    Sha256Context ctx;
    // Null context or data: 1; but an empty input returns 0 before any null check.
    EXPECT_EQ(sha256_reset(nullptr), kShaNull);
    EXPECT_EQ(sha256_input(nullptr, data, 3), kShaNull);
    EXPECT_EQ(sha256_input(nullptr, nullptr, 0), kShaSuccess);
    EXPECT_EQ(sha256_result(nullptr, d), kShaNull);
    ASSERT_EQ(sha256_reset(&ctx), kShaSuccess);
    EXPECT_EQ(sha256_input(&ctx, nullptr, 3), kShaNull);
    EXPECT_EQ(sha256_input(&ctx, data, 3), kShaSuccess);
    EXPECT_EQ(sha256_result(&ctx, d), kShaSuccess);
    EXPECT_EQ(to_hex(d, 32), "BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD");
    // Taking the result again gives the same digest.
    uint8_t again[32];
    EXPECT_EQ(sha256_result(&ctx, again), kShaSuccess);
    EXPECT_EQ(to_hex(again, 32), to_hex(d, 32));
    // Input after the result: 3, and the context stays corrupted with 3.
    EXPECT_EQ(sha256_input(&ctx, nullptr, 0), kShaSuccess);
    EXPECT_EQ(sha256_input(&ctx, data, 1), kShaStateError);
    EXPECT_EQ(ctx.corrupted, kShaStateError);
    EXPECT_EQ(sha256_result(&ctx, again), kShaStateError);
    EXPECT_EQ(sha256_input(&ctx, data, 1), kShaStateError);
    // Reset clears it.
    ASSERT_EQ(sha256_reset(&ctx), kShaSuccess);
    EXPECT_EQ(sha256_input(&ctx, data, 3), kShaSuccess);
}

TEST(Sha256, BitCountOverflowCorruptsAndIgnoresInput) {
    const uint8_t data[2] = {1, 2};
    Sha256Context ctx;
    sha256_reset(&ctx);
    ctx.length_high = 0xFFFFFFFFu;
    ctx.length_low = 0xFFFFFFF8u;  // one more byte reaches 2^64 bits
    EXPECT_EQ(sha256_input(&ctx, data, 1), kShaNull);
    EXPECT_EQ(ctx.corrupted, kShaNull);
    EXPECT_EQ(ctx.block_index, 0u);  // nothing taken
    EXPECT_EQ(sha256_input(&ctx, data, 2), kShaNull);
    uint8_t d[32];
    EXPECT_EQ(sha256_result(&ctx, d), kShaNull);
    // One bit below the edge is still accepted.
    sha256_reset(&ctx);
    ctx.length_high = 0xFFFFFFFFu;
    ctx.length_low = 0xFFFFFFF0u;
    EXPECT_EQ(sha256_input(&ctx, data, 1), kShaSuccess);
    EXPECT_EQ(ctx.length_low, 0xFFFFFFF8u);
}

TEST(Sha256, DamagedBlockIndexNeverWritesOutsideTheBlock) {
    const uint8_t data[4] = {1, 2, 3, 4};
    Sha256Context ctx;
    sha256_reset(&ctx);
    ctx.block_index = 0xFFFFFF00u;
    EXPECT_EQ(sha256_input(&ctx, data, 4), kShaSuccess);
    EXPECT_EQ(ctx.block_index, 4u);
}
