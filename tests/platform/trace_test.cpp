// Trace routing: the host callback, secrets only on request, bounded lines and the environment
// sinks. Lines from the secure-chip watcher's thread are the secure-chip tests' (run under TSan).
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "platform/platform_os.h"
#include "wapiwps.h"

namespace {

using platform::detail::kTraceLineMax;

void set_env(const char* name, const char* value) {
#if defined(_WIN32)
    _putenv_s(name, value != nullptr ? value : "");
#else
    if (value != nullptr) {
        setenv(name, value, 1);
    } else {
        unsetenv(name);
    }
#endif
}

struct Collected {
    std::vector<std::string> lines;
};

void collect(void* context, const char* line) {
    static_cast<Collected*>(context)->lines.emplace_back(line);
}

class TraceRouting : public ::testing::Test {
  protected:
    void SetUp() override { reset(); }
    void TearDown() override { reset(); }
    static void reset() {
        WapiWps_SetTraceCallback(nullptr, nullptr, 0);
        set_env("WAPIWPS_TRACE", nullptr);
        set_env("WAPIWPS_TRACE_SECRETS", nullptr);
        platform::detail::trace_reload_environment();
    }
    Collected got_;
};

TEST_F(TraceRouting, CallbackReceivesFormattedLinesUntilRemoved) {
    ASSERT_EQ(WapiWps_SetTraceCallback(collect, &got_, 0), 0);
    trace("Unpack M2 error, error code is %d.\r\n", -18);
    trace("%s %zu %llu %x\r\n", "sizes", size_t{4096}, 1ULL << 40, 0xBEEFu);
    WapiWps_SetTraceCallback(nullptr, &got_, 1);
    trace("two\r\n");
    EXPECT_FALSE(trace_secrets_allowed());
    const std::vector<std::string> expected = {"Unpack M2 error, error code is -18.\r\n",
                                               "sizes 4096 1099511627776 beef\r\n"};
    EXPECT_EQ(got_.lines, expected);
}

TEST_F(TraceRouting, SecretsHiddenUnlessTheHostAsks) {
    const uint8_t key[3] = {0x01, 0xAB, 0xFF};
    EXPECT_FALSE(trace_secrets_allowed());

    WapiWps_SetTraceCallback(collect, &got_, 0);
    EXPECT_FALSE(trace_secrets_allowed());
    trace_secret_bytes("AuthKey", key, sizeof(key));
    EXPECT_TRUE(got_.lines.empty());

    WapiWps_SetTraceCallback(collect, &got_, 1);
    EXPECT_TRUE(trace_secrets_allowed());
    trace_secret_bytes("AuthKey", key, sizeof(key));
    ASSERT_EQ(got_.lines.size(), 1u);
    EXPECT_EQ(got_.lines[0], "AuthKey[0000]: 01abff\r\n");
}

TEST_F(TraceRouting, SecretBytesSplitIntoBoundedLines) {
    WapiWps_SetTraceCallback(collect, &got_, 1);
    std::vector<uint8_t> blob(4096);
    for (size_t i = 0; i < blob.size(); ++i) blob[i] = static_cast<uint8_t>(i);
    trace_secret_bytes("g_PrevMsgBuf", blob.data(), blob.size());
    ASSERT_EQ(got_.lines.size(), 4096u / 32);
    EXPECT_EQ(got_.lines[1].substr(0, 20), "g_PrevMsgBuf[0032]: ");
    EXPECT_EQ(got_.lines[1].substr(20, 4), "2021");
    for (const std::string& line : got_.lines) EXPECT_LT(line.size(), kTraceLineMax);
    trace_secret_bytes("Empty", nullptr, 5);
    EXPECT_EQ(got_.lines.back(), "Empty: (0 bytes)\r\n");
}

// Environment secrets count only without a callback; the callback's own flag wins.
TEST_F(TraceRouting, EnvironmentSecretsNeedAnEnvironmentSink) {
    set_env("WAPIWPS_TRACE_SECRETS", "1");
    platform::detail::trace_reload_environment();
    EXPECT_FALSE(trace_secrets_allowed()) << "nothing is traced, so nothing is allowed";

    set_env("WAPIWPS_TRACE", "debug");
    platform::detail::trace_reload_environment();
    EXPECT_TRUE(trace_secrets_allowed());
    WapiWps_SetTraceCallback(collect, &got_, 0);
    EXPECT_FALSE(trace_secrets_allowed());

    set_env("WAPIWPS_TRACE_SECRETS", "yes");
    WapiWps_SetTraceCallback(nullptr, nullptr, 0);
    platform::detail::trace_reload_environment();
    EXPECT_FALSE(trace_secrets_allowed()) << "only the value 1 enables secrets";
}

class TraceLineLength : public TraceRouting, public ::testing::WithParamInterface<size_t> {};

// Lines up to kTraceLineMax - 1 characters pass whole; longer ones are cut and end in "...\r\n".
TEST_P(TraceLineLength, LongLinesAreCutSafely) {
    WapiWps_SetTraceCallback(collect, &got_, 0);
    size_t len = GetParam();
    std::string text(len, 'x');
    trace("%s", text.c_str());
    ASSERT_EQ(got_.lines.size(), 1u);
    const std::string& line = got_.lines[0];
    if (len < kTraceLineMax) {
        EXPECT_EQ(line, text);
    } else {
        EXPECT_EQ(line.size(), kTraceLineMax - 1);
        EXPECT_EQ(line.substr(line.size() - 5), "...\r\n");
        EXPECT_EQ(line.substr(0, line.size() - 5), std::string(kTraceLineMax - 6, 'x'));
    }
}

INSTANTIATE_TEST_SUITE_P(Platform, TraceLineLength,
                         ::testing::Values(0, 1, kTraceLineMax - 2, kTraceLineMax - 1,
                                           kTraceLineMax, kTraceLineMax + 1, 100000));

// A file sink appends; "stderr" writes there; a file that cannot be opened discards quietly.
TEST_F(TraceRouting, EnvironmentSinks) {
    std::string path = ::testing::TempDir() + "wapiwps_trace_test.log";
    std::ofstream(path, std::ios::binary) << "earlier\n";
    set_env("WAPIWPS_TRACE", path.c_str());
    platform::detail::trace_reload_environment();
    trace("Start WPS. WPS_mode = %d\r\n", 1);
    EXPECT_FALSE(trace_secrets_allowed());
    platform::detail::trace_reload_environment();  // closes the file
    std::stringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    EXPECT_EQ(content.str(), "earlier\nStart WPS. WPS_mode = 1\r\n");
    std::remove(path.c_str());

    set_env("WAPIWPS_TRACE", "stderr");
    platform::detail::trace_reload_environment();
    ::testing::internal::CaptureStderr();
    trace("SetDeviceInfo.\r\n");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "SetDeviceInfo.\r\n");

    set_env("WAPIWPS_TRACE", "/nonexistent-dir/for/wapiwps/trace.log");
    platform::detail::trace_reload_environment();
    trace("dropped\r\n");
}

TEST(ConsolePrint, WritesToStandardOutput) {
    ::testing::internal::CaptureStdout();
    console_print("pipe %s %d\n", "connected", 7);
    std::fflush(stdout);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "pipe connected 7\n");
}

}  // namespace
