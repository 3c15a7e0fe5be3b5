// The built `wapiwps` program as a script sees it: exit code, transcript lines, the credential.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#if !defined(_WIN32)
#include <sys/wait.h>
#endif

namespace {

#if defined(WAPIWPS_CLI_BINARY) && !defined(_WIN32)

struct Outcome {
    int exit_code = -1;
    std::string output;
    bool has(const std::string& s) const { return output.find(s) != std::string::npos; }
};

// Runs a shell command, bounded by timeout(1), collecting stdout and stderr.
Outcome run_shell(const std::string& command, int limit_s = 60) {
    Outcome r;
    std::string full = "timeout " + std::to_string(limit_s) + " " + command + " 2>&1";
    FILE* p = popen(full.c_str(), "r");
    if (p == nullptr) {
        return r;
    }
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) {
        r.output.append(buf, n);
    }
    int status = pclose(p);
    r.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}

Outcome run_cli(const std::string& args) {
    return run_shell(std::string(WAPIWPS_CLI_BINARY) + " " + args);
}

struct DemoCase {
    const char* name;
    const char* args;
    int exit_code;
    std::vector<const char*> lines;
};

class CliDemo : public ::testing::TestWithParam<DemoCase> {};

TEST_P(CliDemo, RunsTheWholeExchange) {
    const DemoCase& c = GetParam();
    Outcome r = run_cli(std::string("demo ") + c.args);
    EXPECT_EQ(r.exit_code, c.exit_code) << r.output;
    for (const char* line : c.lines) {
        EXPECT_TRUE(r.has(line)) << "missing: " << line << "\n" << r.output;
    }
    // Secrets stay out of the transcript unless asked for.
    if (std::string(c.args).find("--show-secrets") == std::string::npos) {
        EXPECT_FALSE(r.has("private key            24 bytes\n")) << r.output;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Modes, CliDemo,
    ::testing::Values(
        DemoCase{"CertDefault",
                 "",
                 0,
                 {"state WAIT_START -> WAIT_REQUEST_IDENTITY (StartWPS wrote EAPOL-Start)",
                  "type Identity \"BWIPS-SimpleConfig-Enrollee-1-0\"", "message M1 (0x04)",
                  "Public Key                 0x1032  128  <hidden",
                  "Certificate Mode           0x1ff9    1  0x0f", "message M7 (0x0b)",
                  "Encrypted Settings         0x1018  176  sealed",
                  "state WAIT_M8 -> WAIT_REQUEST_FAILURE",
                  "ProcessReceivePacket = 2 (EAP-Failure after Done: run succeeded)", "M7 ok",
                  "credential (GetWPSResult_Cert = 0):",
                  "\"-----BEGIN DEMO CERTIFICATE----- wapiwps reference registrar\"",
                  "private key            24 bytes <hidden", "result: success"}},
        DemoCase{"Psk",
                 "--mode psk --pin 12345670",
                 0,
                 {"Device Password ID         0x1012    2  0x0000",
                  "credential (GetWPSResult_PSK = 0):", "network key            16 bytes",
                  "\"wapiwps-demo-psk\"", "result: success"}}),
    [](const auto& info) { return std::string(info.param.name); });

#else

TEST(CliProgram, NotBuilt) {
    GTEST_SKIP() << "the wapiwps program is not built for this platform";
}

#endif

}  // namespace
