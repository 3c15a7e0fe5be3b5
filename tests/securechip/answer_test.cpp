// The answer checks of the two secure-chip commands, one table row per answer shape: the two
// readings of L, and the bounds chosen for what the service may send.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "signing/securechip.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes answer(uint32_t status, uint32_t length, size_t payload_len) {
    Bytes out;  // status, L, then the payload
    for (uint32_t v : {status, length})
        for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>(v >> shift));
    for (size_t i = 0; i < payload_len; ++i) out.push_back(static_cast<uint8_t>(0x40 + i));
    return out;
}

struct AnswerCase {
    const char* name;
    bool export_answer;  // command 7 (L counts all) or command 4 (L counts the payload)
    Bytes received;
    int32_t result;
    size_t copied;  // output bytes written on success; the rest keeps 0xEE
};

class SecureChipAnswerTest : public ::testing::TestWithParam<AnswerCase> {};

TEST_P(SecureChipAnswerTest, CheckAndCopy) {
    const AnswerCase& c = GetParam();
    // The zeroed fixed-size view the transaction fills.
    Bytes view(c.export_answer ? kChipExportCopyLen : kChipSignCopyLen, 0);
    std::memcpy(view.data(), c.received.data(), std::min(view.size(), c.received.size()));
    Bytes out(48, 0xEE);
    int32_t r =
        c.export_answer
            ? chip_parse_export_answer(view.data(), view.size(), c.received.size(), out.data())
            : chip_parse_sign_answer(view.data(), view.size(), c.received.size(), out.data());
    ASSERT_EQ(r, c.result);
    for (size_t i = 0; i < out.size(); ++i) {
        uint8_t expected = i < c.copied ? static_cast<uint8_t>(0x40 + i) : 0xEE;
        ASSERT_EQ(out[i], expected) << "byte " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, SecureChipAnswerTest,
    ::testing::Values(
        // Command 7: L = 56 counts the header, 48 key bytes.
        AnswerCase{"ExportWhole56", true, answer(0, 56, 48), 0, 48},
        AnswerCase{"ExportShorterKeyCopiedAsIs", true, answer(0, 40, 32), 0, 32},
        AnswerCase{"ExportHeaderOnly", true, answer(0, 8, 0), 0, 0},
        AnswerCase{"ExportNonZeroStatus", true, answer(1, 56, 48), -1, 0},
        AnswerCase{"ExportLBelowHeader", true, answer(0, 7, 48), -1, 0},
        AnswerCase{"ExportOversizedL", true, answer(0, 57, 49), -1, 0},
        AnswerCase{"ExportLPastReceived", true, answer(0, 56, 47), -1, 0},
        AnswerCase{"ExportHugeL", true, answer(0, 0xFFFFFFFF, 48), -1, 0},
        AnswerCase{"ExportTruncatedHeader", true, Bytes{0, 0, 0, 0, 0, 0, 0}, -1, 0},
        // Command 4: L = 48 counts r || s alone.
        AnswerCase{"SignPayload48", false, answer(0, 48, 48), 0, 48},
        AnswerCase{"SignWholeLengthReadingRejected", false, answer(0, 56, 48), -1, 0},
        AnswerCase{"SignShortPayload", false, answer(0, 48, 20), -1, 0},
        AnswerCase{"SignNonZeroStatus", false, answer(0x80000001, 48, 48), -1, 0},
        AnswerCase{"SignEmptyPayload", false, answer(0, 0, 0), 0, 0},
        AnswerCase{"SignHugeL", false, answer(0, 0xFFFFFFF0, 48), -1, 0},
        // More than the 56-byte view arrived: only the view counts.
        AnswerCase{"SignLongerThanView", false, answer(0, 48, 200), 0, 48}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
