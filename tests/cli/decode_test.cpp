// The host's frame decoder on hand-made frames: secrets hidden, malformed input described.
#include <gtest/gtest.h>

#include <algorithm>

#include "cli.h"
#include "common/test_bytes.h"

namespace {

using cli::Bytes;

bool has_line(const std::vector<std::string>& lines, const std::string& needle) {
    return std::any_of(lines.begin(), lines.end(),
                       [&](const std::string& l) { return l.find(needle) != std::string::npos; });
}

std::string joined(const std::vector<std::string>& lines) {
    std::string s;
    for (const auto& l : lines) s += l + "\n";
    return s;
}

// A WAPI message frame around `body` (op-code 4, flags 0, identifier 7).
Bytes wapi_frame(uint8_t op, uint8_t flags, const Bytes& body) {
    const uint16_t n = static_cast<uint16_t>(body.size() + 14);
    Bytes f = {
        0x02,
        0x00,
        static_cast<uint8_t>(n >> 8),
        static_cast<uint8_t>(n),  // EAPOL v2, EAP packet
        0x01,
        0x07,
        static_cast<uint8_t>(n >> 8),
        static_cast<uint8_t>(n),  // Request, id 7
        0xF2,                     // type 242
        0x00,
        0x81,
        0xDB,
        0x00,
        0x00,
        0x00,
        0x01,  // vendor id, type 1
        op,
        flags,
    };
    testbytes::append(f, body);
    return f;
}

const Bytes kM2Head = {
    0x10, 0x4A, 0x00, 0x01, 0x10,  // Version 0x10
    0x10, 0x22, 0x00, 0x01, 0x05,  // Message Type M2
};

TEST(CliDecode, SecretsHiddenUnlessAsked) {
    Bytes body = kM2Head;
    Bytes nonce = {0x10, 0x39, 0x00, 0x10};  // Registrar Nonce, 16 bytes of 0xAB
    nonce.insert(nonce.end(), 16, 0xAB);
    body.insert(body.end(), nonce.begin(), nonce.end());
    const Bytes uuid_r = {0x10, 0x48, 0x00, 0x02, 0x12, 0x34};
    body.insert(body.end(), uuid_r.begin(), uuid_r.end());
    auto frame = wapi_frame(4, 0, body);

    cli::FrameDecoder hidden(false);
    auto lines = hidden.decode(frame);
    EXPECT_TRUE(has_line(lines, "Registrar Nonce")) << joined(lines);
    EXPECT_TRUE(has_line(lines, "<hidden")) << joined(lines);
    EXPECT_FALSE(has_line(lines, "ab ab ab")) << joined(lines);
    EXPECT_TRUE(has_line(lines, "12 34")) << joined(lines);  // not a secret

    cli::FrameDecoder shown(true);
    lines = shown.decode(frame);
    EXPECT_TRUE(has_line(lines, "ab ab ab ab")) << joined(lines);
    EXPECT_TRUE(has_line(lines, "message M2 (0x05)")) << joined(lines);
}

// Attributes that claim more bytes than the message holds, and truncated headers, are described
// and never read past the frame.
TEST(CliDecode, MalformedInputIsDescribed) {
    Bytes body = kM2Head;
    const Bytes overrun = {0x10, 0x21, 0x00, 0x40, 'a', 'b'};
    body.insert(body.end(), overrun.begin(), overrun.end());
    cli::FrameDecoder d(false);
    auto lines = d.decode(wapi_frame(4, 0, body));
    EXPECT_TRUE(has_line(lines, "malformed: length runs 62 bytes past the message"))
        << joined(lines);

    Bytes tail = kM2Head;
    tail.push_back(0x10);
    lines = d.decode(wapi_frame(4, 0, tail));
    EXPECT_TRUE(has_line(lines, "1 trailing bytes")) << joined(lines);

    for (size_t n = 0; n < 18; ++n) {
        Bytes cut = wapi_frame(4, 0, kM2Head);
        cut.resize(n);
        cli::FrameDecoder fresh(true);
        EXPECT_FALSE(fresh.decode(cut).empty()) << n;
    }
}

}  // namespace
