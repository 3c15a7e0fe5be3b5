// The built `wapiwps` program as a script sees it, one smoke run: a demo exchange written to a
// capture, which reads back (`decode`) and replays.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#if !defined(_WIN32)
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace {

#if defined(WAPIWPS_CLI_BINARY) && !defined(_WIN32)

struct Outcome {
    int exit_code = -1;
    std::string output;
    bool has(const std::string& s) const { return output.find(s) != std::string::npos; }
};

// Runs the program, bounded by timeout(1), collecting stdout and stderr.
Outcome run_cli(const std::string& args) {
    Outcome r;
    const std::string command = "timeout 60 " + std::string(WAPIWPS_CLI_BINARY) + " " + args + " 2>&1";
    FILE* p = popen(command.c_str(), "r");
    if (p == nullptr) return r;
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) r.output.append(buf, n);
    const int status = pclose(p);
    r.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}

TEST(CliProgram, DemoRunsToSuccessAndItsCaptureDecodesAndReplays) {
    const std::string pcap = ::testing::TempDir() + "wapiwps-cli-" + std::to_string(getpid()) + ".pcap";
    const Outcome demo = run_cli("demo --pcap=" + pcap);
    EXPECT_EQ(demo.exit_code, 0) << demo.output;
    for (const char* line : {"message M1 (0x04)", "message M7 (0x0b)",
                             "ProcessReceivePacket = 2 (EAP-Failure after Done: run succeeded)",
                             "credential (GetWPSResult_Cert = 0):", "result: success"})
        EXPECT_TRUE(demo.has(line)) << line << "\n" << demo.output;
    // Secrets stay out of the transcript unless asked for.
    EXPECT_TRUE(demo.has("private key            24 bytes <hidden")) << demo.output;
    const Outcome decoded = run_cli("decode " + pcap);
    EXPECT_EQ(decoded.exit_code, 0) << decoded.output;
    EXPECT_TRUE(decoded.has("message M8 (0x0c)")) << decoded.output;
    const Outcome replayed = run_cli("replay " + pcap);
    EXPECT_EQ(replayed.exit_code, 0) << replayed.output;
    std::remove(pcap.c_str());
}

#else

TEST(CliProgram, NotBuilt) {
    GTEST_SKIP() << "the wapiwps program is not built for this platform";
}

#endif

}  // namespace
