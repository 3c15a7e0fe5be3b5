// SHA-256: the published vectors (FIPS 180-2 and computed boundary lengths), streaming at every
// split against libgcrypt on random input, and the status codes of the context.
#include "signing/sha256.h"

#include <gtest/gtest.h>

#include "support.h"

using namespace support;

namespace {

std::string digest_hex(const Bytes& m) {
    uint8_t d[32];
    EXPECT_EQ(sha256(m.data(), m.size(), d), kShaSuccess);
    return to_hex(d, 32);
}

}  // namespace

TEST(Sha256, PublishedVectors) {
    const auto& doc = vectors("sha256.json");
    ASSERT_GE(doc.at("vectors").size(), 14u);
    for (const auto& v : doc.at("vectors")) {
        // The message: msg_ascii, msg_hex, or a rule "<count> x '<c>'" (also "1,000,000 x 'a'").
        const std::string ascii = testjson::text_or_empty(v, "msg_ascii");
        Bytes m(ascii.begin(), ascii.end());
        if (v.contains("msg_hex")) {
            m = hex(v.at("msg_hex").get<std::string>());
        } else if (v.contains("msg_rule")) {
            std::string rule = v.at("msg_rule").get<std::string>(), digits;
            for (char c : rule.substr(0, rule.find(" x "))) digits += c == ',' ? "" : std::string(1, c);
            m.assign(std::stoul(digits), static_cast<uint8_t>(rule[rule.find('\'') + 1]));
        }
        ASSERT_EQ(m.size(), v.at("len").get<size_t>()) << testjson::text_or_empty(v, "source");
        EXPECT_EQ(digest_hex(m), v.at("digest").get<std::string>()) << "len " << m.size();
    }
}

TEST(Sha256, StreamingAtEverySplitMatchesLibgcrypt) {
    std::mt19937_64 rng(0x5A256);
    for (int i = 0; i < 300; ++i) {
        Bytes m(i < 11 ? std::vector<size_t>{0, 1, 55, 56, 63, 64, 65, 119, 120, 128, 200}[i]
                       : rng() % 300);
        for (auto& b : m) b = static_cast<uint8_t>(rng());
        const std::string expected = to_hex(ref::sha256(m));
        ASSERT_EQ(digest_hex(m), expected) << "len " << m.size();
        if (i >= 11) continue;
        for (size_t cut = 0; cut <= m.size(); ++cut) {
            Sha256Context ctx;
            uint8_t d[32];
            ASSERT_EQ(sha256_reset(&ctx), kShaSuccess);
            ASSERT_EQ(sha256_input(&ctx, m.data(), cut), kShaSuccess);
            ASSERT_EQ(sha256_input(&ctx, m.data() + cut, m.size() - cut), kShaSuccess);
            ASSERT_EQ(sha256_result(&ctx, d), kShaSuccess);
            ASSERT_EQ(to_hex(d, 32), expected) << "len " << m.size() << " cut " << cut;
        }
    }
}

TEST(Sha256, StatusCodes) {
    const uint8_t data[3] = {'a', 'b', 'c'};
    uint8_t d[32], again[32];
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
    // Taking the result again gives the same digest.
    EXPECT_EQ(sha256_result(&ctx, again), kShaSuccess);
    EXPECT_EQ(to_hex(again, 32), to_hex(d, 32));
    EXPECT_EQ(to_hex(d, 32), to_hex(ref::sha256(Bytes(data, data + 3))));
    // Input after the result: 3, and the context stays corrupted with 3.
    EXPECT_EQ(sha256_input(&ctx, nullptr, 0), kShaSuccess);
    EXPECT_EQ(sha256_input(&ctx, data, 1), kShaStateError);
    EXPECT_EQ(ctx.corrupted, kShaStateError);
    EXPECT_EQ(sha256_result(&ctx, again), kShaStateError);
    EXPECT_EQ(sha256_input(&ctx, data, 1), kShaStateError);
    ASSERT_EQ(sha256_reset(&ctx), kShaSuccess);  // reset clears it
    EXPECT_EQ(sha256_input(&ctx, data, 3), kShaSuccess);
}

TEST(Sha256, BitCountOverflowAndDamagedBlockIndex) {
    const uint8_t data[4] = {1, 2, 3, 4};
    uint8_t d[32];
    Sha256Context ctx;
    sha256_reset(&ctx);
    ctx.length_high = 0xFFFFFFFFu;
    ctx.length_low = 0xFFFFFFF8u;  // one more byte reaches 2^64 bits: corrupted, nothing taken
    EXPECT_EQ(sha256_input(&ctx, data, 1), kShaNull);
    EXPECT_EQ(ctx.corrupted, kShaNull);
    EXPECT_EQ(ctx.block_index, 0u);
    EXPECT_EQ(sha256_input(&ctx, data, 2), kShaNull);
    EXPECT_EQ(sha256_result(&ctx, d), kShaNull);
    sha256_reset(&ctx);  // one bit below the edge is still accepted
    ctx.length_high = 0xFFFFFFFFu;
    ctx.length_low = 0xFFFFFFF0u;
    EXPECT_EQ(sha256_input(&ctx, data, 1), kShaSuccess);
    EXPECT_EQ(ctx.length_low, 0xFFFFFFF8u);
    sha256_reset(&ctx);  // a damaged index never writes outside the block
    ctx.block_index = 0xFFFFFF00u;
    EXPECT_EQ(sha256_input(&ctx, data, 4), kShaSuccess);
    EXPECT_EQ(ctx.block_index, 4u);
}
