// The clock and generator seams, the real clock's units, and the OS version value.
#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "platform/platform.h"
#include "platform/platform_os.h"

namespace {

int64_t fixed_now() {
    return 1700000000;
}
uint64_t fixed_file_now() {
    return 0x01D9F0A1B2C3D4E5ULL;
}

uint32_t g_seed = 0;
int g_next = 0;
void fake_srand(uint32_t seed) {
    g_seed = seed;
    g_next = 0;
}
int fake_rand() {
    return static_cast<int>(g_seed & 0xFF) + g_next++;
}

class Seams : public ::testing::Test {
  protected:
    void TearDown() override {
        platform::set_time_source(nullptr, nullptr);
        platform::set_generator(nullptr, nullptr);
    }
};

TEST_F(Seams, TimeSourceReplacesAndRestores) {
    platform::set_time_source(fixed_now, fixed_file_now);
    EXPECT_EQ(platform::time_seconds(), 1700000000);
    EXPECT_EQ(platform::system_file_time(), 0x01D9F0A1B2C3D4E5ULL);
    platform::set_time_source(nullptr, nullptr);
    EXPECT_NE(platform::time_seconds(), 1700000000);
}

TEST_F(Seams, GeneratorReplacesAndRestores) {
    platform::set_generator(fake_srand, fake_rand);
    platform::c_srand(0x1234);
    EXPECT_EQ(platform::c_rand(), 0x34);
    EXPECT_EQ(platform::c_rand(), 0x35);
    platform::set_generator(nullptr, nullptr);
}

// Without a seam the library's private generator gives exactly the platform's srand/rand values
// and leaves the host's sequence alone. The other platform's generator: its published srand(1).
TEST_F(Seams, PrivateGeneratorIsThePlatformsRand) {
    std::vector<uint32_t> seeds = {0, 1, 2, 7, 12345, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    for (uint32_t s = 0x9E3779B9, i = 0; i < 200; ++i, s = s * 1664525u + 1013904223u)
        seeds.push_back(s);
    for (uint32_t seed : seeds) {
        std::srand(seed);
        platform::c_srand(seed);
        for (int i = 0; i < 40; ++i) ASSERT_EQ(platform::c_rand(), std::rand()) << seed << " #" << i;
    }
    platform::detail::MsvcrtRand msvcrt{};
    msvcrt.seed(1);
    for (int v : {41, 18467, 6334, 26500, 19169}) EXPECT_EQ(msvcrt.next(), v);
    platform::detail::GlibcRand glibc{};
    glibc.seed(1);
    for (int v : {1804289383, 846930886, 1681692777, 1714636915, 1957747793})
        EXPECT_EQ(glibc.next(), v);
}

// The file time and the calendar time describe the same instant: 100 ns units since 1601.
TEST(RealClock, FileTimeAgreesWithCalendarTime) {
    using platform::detail::kFileTimeEpochOffsetSeconds;
    using platform::detail::kFileTimeUnitsPerSecond;
    int64_t before = platform::time_seconds();
    uint64_t file_time = platform::system_file_time();
    int64_t after = platform::time_seconds();
    int64_t file_seconds =
        static_cast<int64_t>(file_time / kFileTimeUnitsPerSecond - kFileTimeEpochOffsetSeconds);
    EXPECT_GE(file_seconds, before - 1);
    EXPECT_LE(file_seconds, after + 1);
}

TEST(OsVersion, MajorVersionIsPlausible) {
    uint32_t v = platform::os_version();
    EXPECT_GE(v & 0xFF, 2u);
}

#if !defined(_WIN32)
TEST(OsVersion, ReleaseTextPackedLikeGetVersion) {
    using platform::detail::pack_release_version;
    EXPECT_EQ(pack_release_version("6.1.0-18-amd64"), 0x00000106u);
    EXPECT_EQ(pack_release_version("5.15.153.1-microsoft-standard-WSL2"), 0x00990F05u);
    EXPECT_EQ(pack_release_version("4.19"), 0x00001304u);
    EXPECT_EQ(pack_release_version("6.8.12"), 0x000C0806u);
    EXPECT_EQ(pack_release_version("300.10.70000"), 0xFFFF0AFFu);  // saturated, not wrapped
    EXPECT_EQ(pack_release_version(""), 0u);
    EXPECT_EQ(pack_release_version(nullptr), 0u);
}
#endif

}  // namespace
