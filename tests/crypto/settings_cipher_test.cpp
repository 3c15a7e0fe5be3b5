// Sealing and opening of Encrypted Settings values under the time-seeded IV.
#include <gtest/gtest.h>

#include <array>

#include "api/context.h"
#include "crypto/crypto.h"
#include "signing/support.h"

namespace {

using namespace support;
using ref::bytes_of;

class SettingsCipher : public ::testing::Test {
protected:
    void SetUp() override {
        saved_mode_ = g_WPS_mode;
        g_WPS_mode = WAPI_WPS_PSK;
        std::memcpy(g_EnrolleeKeys.KeyWrapKey, random_bytes(16).data(), 16);
        FakeClock::install(1700000000);
    }
    void TearDown() override {
        FakeClock::remove();
        g_WPS_mode = saved_mode_;
    }
    Bytes key() const { return bytes_of(g_EnrolleeKeys.KeyWrapKey, 16); }
    uint32_t saved_mode_ = 0;
};

TEST_F(SettingsCipher, SealThenOpenEveryLengthUpTo64) {
    for (uint16_t len = 0; len <= 64; ++len) {
        FakeClock::now = 1700000000 + len;  // a fresh IV for each length
        const Bytes plain = random_bytes(len);
        std::array<uint8_t, 2048> sealed{};
        uint16_t sealed_len = 0xBEEF;
        EncryptMessage(plain.data(), len, sealed.data(), &sealed_len);
        ASSERT_EQ(sealed_len, len + 16u);
        const Bytes iv = bytes_of(sealed.data(), 16);
        EXPECT_EQ(iv, bytes_of(g_EnrolleeKeys.LastIv, 16)) << "IV first, kept in LastIv";
        EXPECT_EQ(iv, FakeClock::expected_draw(FakeClock::now));
        EXPECT_EQ(bytes_of(sealed.data() + 16, len), ref::sm4_ofb(key(), iv, plain));

        uint16_t opened_len = 0;
        DecryptMessage(sealed, sealed_len, &opened_len);
        ASSERT_EQ(opened_len, len);
        EXPECT_EQ(bytes_of(sealed.data(), len), plain) << "len " << len;
        for (size_t i = len; i < sealed.size(); ++i) ASSERT_EQ(sealed[i], 0) << "rest cleared";
    }
}

TEST_F(SettingsCipher, WifiFlavourSealsNothingAndOpensToZeros) {
    g_WPS_mode = WIFI_WPS;
    const Bytes plain = random_bytes(48);
    std::array<uint8_t, 128> out;
    out.fill(0xAA);
    uint16_t out_len = 7;
    EncryptMessage(plain.data(), 48, out.data(), &out_len);
    EXPECT_EQ(out_len, 7) << "length untouched";
    EXPECT_EQ(bytes_of(out.data(), out.size()), Bytes(out.size(), 0xAA)) << "output untouched";
    std::array<uint8_t, 2048> buffer;
    buffer.fill(0x5C);
    uint16_t opened = 0;
    DecryptMessage(buffer, 64, &opened);
    EXPECT_EQ(opened, 0) << "the caller's length stays";
    EXPECT_EQ(bytes_of(buffer.data(), buffer.size()), Bytes(buffer.size(), 0));
}

TEST_F(SettingsCipher, ValuesOutsideTheContractOpenToNothing) {
    // Shorter than its IV, exactly an IV (an empty plaintext), longer than the bytes that exist.
    for (auto [size, len] : {std::pair{2048, 15}, {2048, 16}, {40, 41}}) {
        std::vector<uint8_t> buffer(size, 0x77);
        uint16_t opened = 99;
        DecryptMessage(std::span(buffer.data(), buffer.size()), static_cast<uint16_t>(len), &opened);
        EXPECT_EQ(opened, 0) << len;
        EXPECT_EQ(buffer, Bytes(buffer.size(), 0)) << len;
    }
}

TEST_F(SettingsCipher, LargestValueOpensWhole) {
    std::array<uint8_t, 2048> buffer{};
    const Bytes iv = random_bytes(16), plain = random_bytes(2032);
    const Bytes ct = ref::sm4_ofb(key(), iv, plain);
    std::memcpy(buffer.data(), iv.data(), 16);
    std::memcpy(buffer.data() + 16, ct.data(), ct.size());
    uint16_t opened = 0;
    DecryptMessage(buffer, 2048, &opened);
    ASSERT_EQ(opened, 2032);
    EXPECT_EQ(bytes_of(buffer.data(), 2032), plain);
}

}  // namespace
