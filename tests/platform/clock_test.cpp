// The private generator, the real clock's units, and the OS version value.
#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "platform/platform.h"
#include "platform/platform_os.h"

namespace {

class Seams : public ::testing::Test {
  protected:
    void TearDown() override {
        platform::set_time_source(nullptr, nullptr);
        platform::set_generator(nullptr, nullptr);
    }
};

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
