// Sealing and opening of Encrypted Settings values, and the time-seeded random bytes behind
// every nonce and IV.
#include <gtest/gtest.h>

#include <array>

#include "api/context.h"
#include "crypto/crypto.h"
#include "crypto_test_util.h"

namespace {

using cryptotest::Bytes;
using cryptotest::FakeClock;

class SettingsCipher : public ::testing::Test {
protected:
    void SetUp() override {
        saved_mode_ = g_WPS_mode;
        g_WPS_mode = WAPI_WPS_PSK;
        const Bytes key = cryptotest::random_bytes(16);
        std::memcpy(g_EnrolleeKeys.KeyWrapKey, key.data(), 16);
        FakeClock::install(1700000000, false);
    }
    void TearDown() override {
        FakeClock::remove();
        g_WPS_mode = saved_mode_;
    }
    Bytes key() const { return cryptotest::bytes_of(g_EnrolleeKeys.KeyWrapKey, 16); }
    uint32_t saved_mode_ = 0;
};

TEST_F(SettingsCipher, SealThenOpenEveryLengthUpTo64) {
    for (uint16_t len = 0; len <= 64; ++len) {
        FakeClock::now = 1700000000 + len;  // a fresh IV for each length
        const Bytes plain = cryptotest::random_bytes(len);
        std::array<uint8_t, 2048> sealed{};
        uint16_t sealed_len = 0xBEEF;
        EncryptMessage(plain.data(), len, sealed.data(), &sealed_len);
        ASSERT_EQ(sealed_len, len + 16u);
        const Bytes iv = cryptotest::bytes_of(sealed.data(), 16);
        EXPECT_EQ(iv, cryptotest::bytes_of(g_EnrolleeKeys.LastIv, 16)) << "IV first, kept in LastIv";
        EXPECT_EQ(iv, FakeClock::expected_draw(FakeClock::now));
        EXPECT_EQ(cryptotest::bytes_of(sealed.data() + 16, len), ref::sm4_ofb(key(), iv, plain));

        uint16_t opened_len = 0;
        DecryptMessage(sealed, sealed_len, &opened_len);
        ASSERT_EQ(opened_len, len);
        EXPECT_EQ(cryptotest::bytes_of(sealed.data(), len), plain) << "len " << len;
        for (size_t i = len; i < sealed.size(); ++i) ASSERT_EQ(sealed[i], 0) << "rest cleared";
    }
}

TEST_F(SettingsCipher, ThirtySevenBytesSealTo53WithTheIvFirst) {
    const Bytes plain = cryptotest::random_bytes(37);
    std::array<uint8_t, 2048> sealed{};
    uint16_t sealed_len = 0;
    EncryptMessage(plain.data(), 37, sealed.data(), &sealed_len);
    EXPECT_EQ(sealed_len, 53);
    // Sealing a ciphertext again under its own IV gives the plaintext back: one keystream XOR.
    Bytes again(37);
    ASSERT_EQ(Sms4Ofb(sealed.data(), sealed.data() + 16, 37, g_EnrolleeKeys.KeyWrapKey, again.data()), 0);
    EXPECT_EQ(again, plain);
}

TEST_F(SettingsCipher, TwoSealingsWithinOneSecondShareTheIv) {
    const Bytes plain = cryptotest::random_bytes(20);
    std::array<uint8_t, 64> a{}, b{}, c{};
    uint16_t la = 0, lb = 0, lc = 0;
    EncryptMessage(plain.data(), 20, a.data(), &la);
    EncryptMessage(plain.data(), 20, b.data(), &lb);
    EXPECT_EQ(a, b);
    FakeClock::now += 1;
    EncryptMessage(plain.data(), 20, c.data(), &lc);
    EXPECT_NE(cryptotest::bytes_of(a.data(), 16), cryptotest::bytes_of(c.data(), 16));
}

TEST_F(SettingsCipher, WifiFlavourSealsNothingAndOpensToZeros) {
    g_WPS_mode = WIFI_WPS;
    const Bytes plain = cryptotest::random_bytes(48);
    std::array<uint8_t, 128> out;
    out.fill(0xAA);
    uint16_t out_len = 7;
    EncryptMessage(plain.data(), 48, out.data(), &out_len);
    EXPECT_EQ(out_len, 7) << "length untouched";
    for (uint8_t b : out) EXPECT_EQ(b, 0xAA) << "output untouched";

    std::array<uint8_t, 2048> buffer;
    buffer.fill(0x5C);
    uint16_t opened = 0;
    DecryptMessage(buffer, 64, &opened);
    EXPECT_EQ(opened, 0) << "the caller's length stays";
    for (uint8_t b : buffer) ASSERT_EQ(b, 0);
}

TEST_F(SettingsCipher, ValuesOutsideTheContractOpenToNothing) {
    std::array<uint8_t, 2048> buffer;
    // Shorter than its IV.
    buffer.fill(0x77);
    uint16_t opened = 99;
    DecryptMessage(buffer, 15, &opened);
    EXPECT_EQ(opened, 0);
    for (uint8_t b : buffer) ASSERT_EQ(b, 0);
    // Longer than the bytes that exist.
    std::array<uint8_t, 40> small;
    small.fill(0x77);
    opened = 99;
    DecryptMessage(small, 41, &opened);
    EXPECT_EQ(opened, 0);
    for (uint8_t b : small) ASSERT_EQ(b, 0);
    // Exactly an IV: opens to an empty plaintext.
    buffer.fill(0x77);
    DecryptMessage(buffer, 16, &opened);
    EXPECT_EQ(opened, 0);
    for (uint8_t b : buffer) ASSERT_EQ(b, 0);
}

TEST_F(SettingsCipher, LargestValueOpensWhole) {
    std::array<uint8_t, 2048> buffer{};
    const Bytes iv = cryptotest::random_bytes(16);
    const Bytes plain = cryptotest::random_bytes(2032);
    const Bytes ct = ref::sm4_ofb(key(), iv, plain);
    std::memcpy(buffer.data(), iv.data(), 16);
    std::memcpy(buffer.data() + 16, ct.data(), ct.size());
    uint16_t opened = 0;
    DecryptMessage(buffer, 2048, &opened);
    ASSERT_EQ(opened, 2032);
    EXPECT_EQ(cryptotest::bytes_of(buffer.data(), 2032), plain);
}

TEST(RandomBytes, SeededWithTheCalendarSecondBeforeEachDraw) {
    FakeClock::install(1234567, false);
    uint8_t a[16], b[16];
    RandomBytes16(a);
    RandomBytes16(b);
    EXPECT_EQ(FakeClock::srand_calls, 2);
    EXPECT_EQ(cryptotest::bytes_of(a, 16), FakeClock::expected_draw(1234567));
    EXPECT_EQ(cryptotest::bytes_of(a, 16), cryptotest::bytes_of(b, 16));
    FakeClock::now = 1234568;
    RandomBytes16(b);
    EXPECT_EQ(cryptotest::bytes_of(b, 16), FakeClock::expected_draw(1234568));
    FakeClock::remove();
}

// Only the low 8 bits of each generator value are used.
int high_bits_rand() { return 0x7F00 | 0x42; }
void ignore_seed(uint32_t) {}

TEST(RandomBytes, TakesTheLowEightBitsOfEachValue) {
    platform::set_generator(&ignore_seed, &high_bits_rand);
    uint8_t out[16];
    RandomBytes16(out);
    for (uint8_t b : out) EXPECT_EQ(b, 0x42);
    platform::set_generator(nullptr, nullptr);
}

}  // namespace
