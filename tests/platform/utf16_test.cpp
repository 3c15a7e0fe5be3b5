// UTF-16 to UTF-8 conversion: whole characters only, U+FFFD for unpaired surrogates, and a cut
// at a character boundary when the output capacity runs out.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/platform.h"

namespace {

struct Utf16Case {
    const char* name;
    std::vector<uint16_t> text;  // without the terminating NUL
    std::string utf8;
};

std::string convert(std::vector<uint16_t> text, size_t cap) {
    text.push_back(0);
    std::vector<char> out(cap + 8, '\x7F');  // guard bytes past the capacity
    size_t n = platform::utf16_to_utf8(text.data(), out.data(), cap);
    EXPECT_LE(n, cap);
    for (size_t i = cap; i < out.size(); ++i) EXPECT_EQ(out[i], '\x7F') << "wrote past capacity";
    return std::string(out.data(), n);
}

class Utf16Conversion : public ::testing::TestWithParam<Utf16Case> {};

TEST_P(Utf16Conversion, MatchesExpectedBytes) {
    const Utf16Case& c = GetParam();
    EXPECT_EQ(convert(c.text, 256), c.utf8);
}

const Utf16Case kCases[] = {
    {"Empty", {}, ""},
    {"Ascii", {'S', 'T', 'A', '-', '1'}, "STA-1"},
    {"TwoByte", {0x00E9, 0x03A9}, "\xC3\xA9\xCE\xA9"},                                // é Ω
    {"ThreeByte", {0x4E2D, 0x6587, 0x20AC}, "\xE4\xB8\xAD\xE6\x96\x87\xE2\x82\xAC"},  // 中文€
    {"EdgeOfRanges",
     {0x007F, 0x0080, 0x07FF, 0x0800, 0xFFFF},
     "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF"},
    {"SurrogatePair", {0xD83D, 0xDE00}, "\xF0\x9F\x98\x80"},  // U+1F600
    {"LowestPair", {0xD800, 0xDC00}, "\xF0\x90\x80\x80"},     // U+10000
    {"HighestPair", {0xDBFF, 0xDFFF}, "\xF4\x8F\xBF\xBF"},    // U+10FFFF
    {"LoneHigh", {'a', 0xD800, 'z'}, "a\xEF\xBF\xBDz"},
    {"LoneLow", {0xDC00, 'z'}, "\xEF\xBF\xBDz"},
    {"HighAtEnd", {'a', 0xDBFF}, "a\xEF\xBF\xBD"},
    {"LowThenHigh", {0xDC00, 0xD800}, "\xEF\xBF\xBD\xEF\xBF\xBD"},
    {"TwoHighsThenLow", {0xD800, 0xD83D, 0xDE00}, "\xEF\xBF\xBD\xF0\x9F\x98\x80"},
};

INSTANTIATE_TEST_SUITE_P(Platform, Utf16Conversion, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

// Every capacity from 0 to the full length: the output is the longest prefix of whole characters
// that fits, and nothing is written beyond the capacity.
TEST(Utf16Capacity, CutsAtCharacterBoundaryAtEveryCapacity) {
    // 'A' (1) é (2) 中 (3) U+1F600 (4) 'Z' (1): boundaries at 0 1 3 6 10 11.
    const std::vector<uint16_t> text = {'A', 0x00E9, 0x4E2D, 0xD83D, 0xDE00, 'Z'};
    const std::string full = "A\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80Z";
    const size_t boundaries[] = {0, 1, 3, 6, 10, 11};
    for (size_t cap = 0; cap <= full.size() + 2; ++cap) {
        size_t expected = 0;
        for (size_t b : boundaries)
            if (b <= cap) expected = b;
        EXPECT_EQ(convert(text, cap), full.substr(0, expected)) << "capacity " << cap;
    }
}

TEST(Utf16Capacity, NullArgumentsWriteNothing) {
    char out[4] = {'x', 'x', 'x', 'x'};
    const uint16_t text[] = {'a', 0};
    EXPECT_EQ(platform::utf16_to_utf8(nullptr, out, sizeof(out)), 0u);
    EXPECT_EQ(platform::utf16_to_utf8(text, nullptr, 4), 0u);
    EXPECT_EQ(out[0], 'x');
}

}  // namespace
