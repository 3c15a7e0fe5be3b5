// A capture read back (`wapiwps decode`, `wapiwps replay`), the reason a failed run prints, a pcap
// file that cannot be written, and --opt=value.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#if !defined(_WIN32)
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace {

#if defined(WAPIWPS_CLI_BINARY) && !defined(_WIN32)

struct CliRun {
    int exit_code = -1;
    std::string output;
    bool has(const std::string& s) const { return output.find(s) != std::string::npos; }
};

CliRun wapiwps(const std::string& args) {
    CliRun r;
    const std::string command =
        "timeout 60 " + std::string(WAPIWPS_CLI_BINARY) + " " + args + " 2>&1";
    FILE* p = popen(command.c_str(), "r");
    if (p == nullptr) return r;
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) r.output.append(buf, n);
    const int status = pclose(p);
    r.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}

std::string temp_file(const std::string& name) {
    return ::testing::TempDir() + "wapiwps-capture-" + std::to_string(getpid()) + "-" + name;
}

// A pcap file of bare EAPOL frames (link type USER0, as other tools write them), little-endian.
void write_raw_capture(const std::string& path, const std::vector<std::vector<uint8_t>>& frames) {
    std::vector<uint8_t> file = {0xD4, 0xC3, 0xB2, 0xA1, 2,    0,    4, 0, 0,   0, 0, 0,
                                 0,    0,    0,    0,    0xFF, 0xFF, 0, 0, 147, 0, 0, 0};
    auto le32 = [&](uint32_t v) {
        for (int i = 0; i < 4; ++i) file.push_back(static_cast<uint8_t>(v >> (8 * i)));
    };
    for (const auto& f : frames) {
        le32(1);
        le32(0);
        le32(static_cast<uint32_t>(f.size()));
        le32(static_cast<uint32_t>(f.size()));
        file.insert(file.end(), f.begin(), f.end());
    }
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(file.data()),
               static_cast<std::streamsize>(file.size()));
}

TEST(CaptureCommands, ADemoCaptureDecodesAndReplaysUpToTheUnavoidableDivergence) {
    const std::string pcap = temp_file("psk.pcap");
    ASSERT_EQ(wapiwps("demo --mode=psk --pcap=" + pcap).exit_code, 0);
    const CliRun decoded = wapiwps("decode " + pcap);
    EXPECT_EQ(decoded.exit_code, 0) << decoded.output;
    for (const char* line : {"EAPOL v2 Start", "message M1 (0x04)", "message M8 (0x0c)",
                             "message Done (0x0f)", "EAP Failure"})
        EXPECT_TRUE(decoded.has(line)) << line;
    const CliRun replayed = wapiwps("replay " + pcap);
    EXPECT_EQ(replayed.exit_code, 0) << replayed.output;
    EXPECT_TRUE(replayed.has("WAPI pre-shared-key mode (from the capture)"));
    EXPECT_TRUE(replayed.has("M2 was made for the captured enrollee's M1"));
    std::remove(pcap.c_str());
}

// Raw frames of another tool: a Request/Identity, a Start with the Wi-Fi vendor id in the WAPI
// flavour (refused as 65536 - 14), and two bytes that are no frame at all.
TEST(CaptureCommands, ARawCaptureShowsWhyTheRegistrarsStartWasRefused) {
    const std::string pcap = temp_file("raw.pcap");
    write_raw_capture(pcap, {{0x02, 0x00, 0x00, 0x05, 0x01, 0x01, 0x00, 0x05, 0x01},
                             {0x02, 0x00, 0x00, 0x0E, 0x01, 0x02, 0x00, 0x0E, 0xF2, 0x00, 0x37,
                              0x2A, 0x00, 0x00, 0x00, 0x01, 0x01, 0x00},
                             {0x01, 0x02}});
    const CliRun decoded = wapiwps("decode " + pcap);
    EXPECT_EQ(decoded.exit_code, 0);
    EXPECT_TRUE(decoded.has("truncated EAPOL header (2 bytes)")) << decoded.output;
    const CliRun replayed = wapiwps("replay --mode=psk " + pcap);
    EXPECT_EQ(replayed.exit_code, 1) << replayed.output;
    EXPECT_TRUE(replayed.has("65522")) << replayed.output;
    EXPECT_TRUE(replayed.has("Start refused: WAPI flavour and the vendor id is not 00:81:DB."));
    std::remove(pcap.c_str());
}

struct ExitCase {
    const char* args;
    int exit_code;
    const char* line;
};

TEST(CaptureCommands, FailuresSayWhy) {
    const ExitCase cases[] = {
        {"demo --registrar-pin 11112222", 1,
         "reason: M4 refused: R-Hash1 mismatch; the registrar used another PIN (first half)."},
        {"demo --pcap /dev/full", 4, "cannot write pcap file /dev/full"},
        {"demo --show-secrets=1", 2, "option --show-secrets takes no value"},
        {"decode /nonexistent/capture.pcap", 4, "cannot read /nonexistent/capture.pcap"},
        {"replay", 2, "replay needs a capture file"},
    };
    for (const ExitCase& c : cases) {
        const CliRun r = wapiwps(c.args);
        EXPECT_EQ(r.exit_code, c.exit_code) << c.args << "\n" << r.output;
        EXPECT_TRUE(r.has(c.line)) << c.args << "\n" << r.output;
    }
}

#endif

}  // namespace
