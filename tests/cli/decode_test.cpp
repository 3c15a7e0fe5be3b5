// The host's frame decoder, state mirror and command line, on hand-made frames.
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

TEST(CliClassify, FramesWithoutMessage) {
    const Bytes start = {0x02, 0x01, 0x00, 0x00};
    const Bytes identity_request = {0x02, 0x00, 0x00, 0x05, 0x01, 0x01, 0x00, 0x05, 0x01};
    const Bytes failure = {0x02, 0x00, 0x00, 0x04, 0x04, 0x09, 0x00, 0x04};
    EXPECT_EQ(cli::classify_frame(start).kind, cli::FrameKind::EapolStart);
    EXPECT_EQ(cli::classify_frame(identity_request).kind, cli::FrameKind::IdentityRequest);
    EXPECT_EQ(cli::classify_frame(failure).kind, cli::FrameKind::Failure);
    EXPECT_EQ(cli::classify_frame(wapi_frame(1, 0, {})).kind, cli::FrameKind::WscStart);
    EXPECT_EQ(cli::classify_frame(Bytes{0x02, 0x00}).kind, cli::FrameKind::Unknown);
    auto m2 = cli::classify_frame(wapi_frame(4, 0, kM2Head));
    EXPECT_EQ(m2.kind, cli::FrameKind::Message);
    EXPECT_EQ(m2.message_type, 0x05);
}

struct MirrorCase {
    int before;
    int32_t result;
    uint8_t op;  // 0: no answer; 0xFF: Response/Identity
    uint8_t msg_type;
    int after;
};

class CliMirror : public ::testing::TestWithParam<MirrorCase> {};

TEST_P(CliMirror, StateFollowsResultAndAnswer) {
    const MirrorCase& c = GetParam();
    Bytes answer;
    if (c.op == 0xFF) {
        answer = {0x02, 0x00, 0x00, 0x06, 0x02, 0x01, 0x00, 0x06, 0x01, 'x'};
    } else if (c.op != 0) {
        answer =
            wapi_frame(c.op, 0, {0x10, 0x4A, 0x00, 0x01, 0x10, 0x10, 0x22, 0x00, 0x01, c.msg_type});
        answer[4] = 0x02;  // a Response
    }
    EXPECT_EQ(cli::mirror_state(c.before, c.result, answer), c.after);
}

INSTANTIATE_TEST_SUITE_P(
    Transitions, CliMirror,
    ::testing::Values(MirrorCase{2, 0, 0xFF, 0, 3},      // Request/Identity answered
                      MirrorCase{3, 0, 4, 0x04, 4},      // Start answered by M1
                      MirrorCase{4, 0, 4, 0x07, 5},      // M2 → M3
                      MirrorCase{5, 0, 4, 0x09, 6},      // M4 → M5
                      MirrorCase{6, 0, 4, 0x0B, 7},      // M6 → M7
                      MirrorCase{7, 1, 5, 0x0F, 8},      // M8 → Done
                      MirrorCase{7, -100, 2, 0x0D, 7},   // M8 fragment ACKed: state stays
                      MirrorCase{4, 0, 2, 0x0D, 10},     // M2D ACKed
                      MirrorCase{5, 0, 3, 0x0E, 9},      // NACK
                      MirrorCase{8, 2, 0, 0, 1},         // closing EAP-Failure after Done
                      MirrorCase{9, 100, 0, 0, 1},       // closing EAP-Failure after NACK
                      MirrorCase{4, -100, 0, 0, 4},      // dropped
                      MirrorCase{2, 65536 - 3, 0, 0, 2}  // refused by a checker
                      ));

TEST(CliDecode, ResponseIdentityShowsTheText) {
    // The WAPI Response/Identity with identifier 7: 40 bytes.
    Bytes f = {0x02, 0x00, 0x00, 0x24, 0x02, 0x07, 0x00, 0x24, 0x01};
    const std::string id = "BWIPS-SimpleConfig-Enrollee-1-0";
    f.insert(f.end(), id.begin(), id.end());
    cli::FrameDecoder d(false);
    auto lines = d.decode(f);
    EXPECT_TRUE(has_line(
        lines, "EAP Response, id 7, length 36, type Identity \"BWIPS-SimpleConfig-Enrollee-1-0\""))
        << joined(lines);
}

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

TEST(CliDecode, EncryptedSettingsShownSealed) {
    Bytes body = kM2Head;
    Bytes es = {0x10, 0x18, 0x00, 0x14};  // 16-byte IV, 4 bytes of ciphertext
    for (uint8_t i = 0; i < 20; ++i) es.push_back(i);
    body.insert(body.end(), es.begin(), es.end());
    cli::FrameDecoder d(false);
    auto lines = d.decode(wapi_frame(4, 0, body));
    EXPECT_TRUE(has_line(lines, "sealed: IV and 4 bytes of ciphertext")) << joined(lines);
    EXPECT_TRUE(has_line(lines, "IV 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f"))
        << joined(lines);
    EXPECT_TRUE(has_line(lines, "10 11 12 13")) << joined(lines);
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

TEST(CliDecode, FragmentsAreReassembledBeforeDecoding) {
    Bytes body = kM2Head;
    const Bytes name = {0x10, 0x11, 0x00, 0x03, 'a', 'b', 'c'};
    body.insert(body.end(), name.begin(), name.end());
    Bytes first_part(body.begin(), body.begin() + 8), second_part(body.begin() + 8, body.end());
    Bytes first = wapi_frame(4, 0x03, {});  // MF and LF: a 2-byte total length comes first
    first.push_back(0x00);
    first.push_back(static_cast<uint8_t>(body.size()));
    first.insert(first.end(), first_part.begin(), first_part.end());
    first[3] = first[7] = static_cast<uint8_t>(first.size() - 4);

    cli::FrameDecoder d(false);
    auto lines = d.decode(first);
    EXPECT_TRUE(has_line(lines, "flags 0x03 MF LF, message length 17")) << joined(lines);
    EXPECT_TRUE(has_line(lines, "fragment of 8 bytes (8 collected, more follow)")) << joined(lines);
    EXPECT_FALSE(has_line(lines, "Device Name")) << joined(lines);

    lines = d.decode(wapi_frame(4, 0, second_part));
    EXPECT_TRUE(has_line(lines, "reassembled message of 17 bytes")) << joined(lines);
    EXPECT_TRUE(has_line(lines, "\"abc\"")) << joined(lines);
}

TEST(CliFrames, PrefixAndEthernetHeader) {
    const Bytes out = {0x02, 0, 0, 0, 0, 0x02, 0x89, 0x1B, 0x02, 0x01, 0x00, 0x00};
    cli::Mac dst{};
    Bytes eapol;
    ASSERT_TRUE(cli::split_prefix(out, dst, eapol));
    EXPECT_EQ(cli::mac_to_string(dst), "02:00:00:00:00:02");
    EXPECT_EQ(eapol, (Bytes{0x02, 0x01, 0x00, 0x00}));
    Bytes bad = out;
    bad[7] = 0x1C;
    EXPECT_FALSE(cli::split_prefix(bad, dst, eapol));
    EXPECT_FALSE(cli::split_prefix(Bytes(out.begin(), out.begin() + 7), dst, eapol));

    const cli::Mac src = {0x02, 0, 0, 0, 0, 0x01};
    Bytes eth = cli::ethernet_frame(dst, src, eapol);
    EXPECT_EQ(eth, (Bytes{0x02, 0, 0, 0, 0, 0x02,  // destination
                          0x02, 0, 0, 0, 0, 0x01,  // source
                          0x88, 0x8E,              // EAPOL
                          0x02, 0x01, 0x00, 0x00}));
}

TEST(CliOptions, MacParsing) {
    cli::Mac mac{};
    EXPECT_TRUE(cli::parse_mac("01:80:C2:00:00:03", mac));
    EXPECT_EQ(mac, cli::kPaeGroupAddress);
    EXPECT_TRUE(cli::parse_mac("02-00-00-00-00-0a", mac));
    EXPECT_FALSE(cli::parse_mac("02:00:00:00:00", mac));
    EXPECT_FALSE(cli::parse_mac("02:00:00:00:00:0g", mac));
    EXPECT_FALSE(cli::parse_mac("02:00:00:00:00:001", mac));
}

struct OptionCase {
    std::vector<std::string> args;
    bool ok;
};

class CliOptionLines : public ::testing::TestWithParam<OptionCase> {};

TEST_P(CliOptionLines, AcceptsOrRefuses) {
    cli::Options opt;
    std::string error;
    EXPECT_EQ(cli::parse_options(GetParam().args, opt, error), GetParam().ok) << error;
    if (!GetParam().ok) {
        EXPECT_FALSE(error.empty());
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, CliOptionLines,
    ::testing::Values(
        OptionCase{{"demo"}, true},
        OptionCase{{"demo", "--mode", "psk", "--pin", "12345670", "--fragment-m8"}, true},
        OptionCase{{"demo", "--fragment-m8", "128", "--pcap", "x.pcap", "--show-secrets"}, true},
        OptionCase{{"demo", "--mode", "wpa"}, false},
        OptionCase{{"demo", "--pin", "1234"}, false},  // MAC mode reads exactly 8 characters
        OptionCase{{"demo", "--pin", "1234567a"}, false},
        OptionCase{{"demo", "--fragment-m8", "8"}, false},
        OptionCase{{"demo", "--iface", "eth0"}, false},  // live options only for live commands
        OptionCase{{"demo", "--pcap"}, false}, OptionCase{{"enroll"}, false},  // needs --iface
        OptionCase{{"enroll", "--iface", "eth0", "--timeout", "0"}, false},
        OptionCase{{"enroll", "--iface", "eth0", "--peer", "02:00:00:00:00:02", "--timeout", "5"},
                   true},
        OptionCase{{"enroll", "--iface", "eth0", "--fragment-m8"}, false},
        OptionCase{{"registrar", "--iface", "eth0", "--timeout", "0", "--fragment-m8"}, true},
        OptionCase{{"registrar", "--iface", "eth0", "--secure-chip"}, false},
        OptionCase{{"registrar", "--help"}, true}, OptionCase{{"frobnicate"}, false},
        OptionCase{{}, false}));

TEST(CliOptions, DefaultsAreCertificateModeWithoutPin) {
    cli::Options opt;
    std::string error;
    ASSERT_TRUE(cli::parse_options({"demo"}, opt, error));
    EXPECT_EQ(opt.command, cli::Command::Demo);
    EXPECT_EQ(opt.wps_mode, 3u);
    EXPECT_FALSE(opt.pin.has_value());
    EXPECT_FALSE(opt.secure_chip);
    EXPECT_FALSE(opt.fragment_m8);
    EXPECT_EQ(opt.timeout_s, 10u);
}

TEST(CliText, ResultsAndStates) {
    EXPECT_EQ(cli::describe_result(65536 - 7), "65529 (refused by a header check, code -7)");
    EXPECT_EQ(cli::describe_result(-100), "-100 (dropped)");
    EXPECT_STREQ(cli::state_name(7), "WAIT_M8");
    EXPECT_STREQ(cli::state_name(11), "unknown");
}

}  // namespace
