// The secure-chip client against the in-process service simulator: connection tracking, both
// commands byte for byte, every misbehaviour of the service, the wrappers M7 calls, and the
// client's defences: who may serve the service (a server of another account is refused by the
// same check that the policy table drives here), deadlines on a service that stalls, one watcher
// however often a run is started, and unloading the library under a running watcher.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#ifdef _WIN32
#include <windows.h>
// After windows.h:
#include <sddl.h>
#include <tlhelp32.h>
#else
#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#endif

#include "api/context.h"
#include "chipsim/chipsim.h"
#include "common/exchange.h"
#include "common/test_bytes.h"
#include "platform/platform.h"
#include "platform/securechip_transport.h"
#include "signing/securechip.h"
#include "wapiwps.h"

namespace {

using chipsim::Fault;

using Bytes = std::vector<uint8_t>;
using Codes = std::vector<int32_t>;

// The timeout the tests give the client: short, so that a service that never answers costs
// little, yet long enough that a service that does answer is never cut off on a loaded machine
// under the sanitizers. No test asserts on how long anything took.
constexpr uint32_t kShortTimeoutMs = 600;

using exchange::eventually;

// Status codes one client reported.
struct StatusLog {
    std::mutex lock;
    std::vector<int32_t> codes;

    Codes snapshot() {
        std::lock_guard<std::mutex> guard(lock);
        return codes;
    }
    // Waits until the log holds `count` codes; false after 10 s.
    bool wait_count(size_t count) {
        return eventually([&] { return snapshot().size() >= count; });
    }
};

void record_status(int32_t* status, void* context) {
    auto* log = static_cast<StatusLog*>(context);
    std::lock_guard<std::mutex> guard(log->lock);
    log->codes.push_back(*status);
}

// The library's trace lines while installed. The watcher traces from its own thread, so the text
// lives in globals that no test destroys.
std::mutex g_trace_lock;
std::string g_trace;

void capture_trace(void*, const char* line) {
    std::lock_guard<std::mutex> guard(g_trace_lock);
    g_trace += line;
}
void start_trace(bool secrets = false) {
    std::lock_guard<std::mutex> guard(g_trace_lock);
    g_trace.clear();
    trace_set_callback(capture_trace, nullptr, secrets);
}
std::string trace_text() {
    std::lock_guard<std::mutex> guard(g_trace_lock);
    return g_trace;
}
bool traced(const std::string& needle) { return trace_text().find(needle) != std::string::npos; }

bool client_connected(SecureChipClient* client) {
    std::lock_guard<std::mutex> guard(client->lock);
    return client->connected != 0;
}
// Not connected and the pipe closed.
bool client_dropped(SecureChipClient* client) {
    std::lock_guard<std::mutex> guard(client->lock);
    return client->connected == 0 && client->hPipe == nullptr;
}

// Serves the simulator and connects one client (g_SecureChipClient) to it. Every test leaves the
// timeout and peer policy at their defaults and no watcher running.
class ChipTest : public ::testing::Test {
  protected:
    void SetUp() override {
        secure_chip_set_timeout(timeout_ms());
        sim_ = std::make_unique<chipsim::Simulator>();
        ASSERT_TRUE(sim_->start());
        SecureChipPrivateKeyIndex = 0;
        std::memset(g_SecureChipSignParam, 0, sizeof g_SecureChipSignParam);
        if (!connect_at_start()) return;
        ASSERT_EQ(CreateSecureChipClient(&g_SecureChipClient, record_status, &log_), 0);
        client_ = g_SecureChipClient;
        ASSERT_TRUE(log_.wait_count(1));
        ASSERT_TRUE(client_connected(client_));
    }
    void TearDown() override {
        trace_set_callback(nullptr, nullptr, false);
        release_secure_chip_client();
        if (sim_) sim_->stop();
        secure_chip_set_timeout(0);
        ASSERT_TRUE(platform::chip_set_peer_policy(platform::kChipPeerDefault, nullptr, 0));
    }
    virtual uint32_t timeout_ms() const { return kShortTimeoutMs; }
    virtual bool connect_at_start() const { return true; }

    int32_t export_key(Bytes* key) {
        key->assign(48, 0);
        return SPI_GenPrivateKeyAndPublicKey(nullptr, key->data());
    }
    // The slot's public key as the simulator serves it.
    Bytes sim_key(uint32_t slot) const {
        const auto k = sim_->public_key(slot);
        return Bytes(k.begin(), k.end());
    }
    // Exports slot `slot`'s key and expects it to be the simulator's.
    void expect_export_works(uint32_t slot = 0) {
        Bytes key;
        SecureChipPrivateKeyIndex = slot;
        ASSERT_EQ(export_key(&key), 0);
        EXPECT_EQ(key, sim_key(slot));
    }

    std::unique_ptr<chipsim::Simulator> sim_;
    StatusLog log_;
    SecureChipClient* client_ = nullptr;
};

// The same with the simulator serving but no client yet.
class ChipTestWithoutClient : public ChipTest {
    bool connect_at_start() const override { return false; }
};


using chipsim::Simulator;

[[maybe_unused]] const bool g_own_socket = (exchange::use_own_chip_socket("securechip"), true);


const uint8_t kExportSlot0[12] = {0, 0, 0, 7, 0, 0, 0, 4, 0, 0, 0, 0};  // command 7, slot 0

using SecureChipTest = ChipTest;

TEST_F(SecureChipTest, ExportRequestAndKeyAreExact) {
    expect_export_works(3);
    EXPECT_EQ(sim_->last_request(), (Bytes{0, 0, 0, 7, 0, 0, 0, 4, 0, 0, 0, 3}));  // cmd, L, slot
}

class SecureChipSignTest : public SecureChipTest, public ::testing::WithParamInterface<uint32_t> {};

TEST_P(SecureChipSignTest, SignRequestIsExactAndSignatureVerifies) {
    const uint32_t n = GetParam();
    Bytes data(n);
    for (uint32_t i = 0; i < n; ++i) data[i] = static_cast<uint8_t>(i * 7 + 1);
    SecureChipPrivateKeyIndex = 5;
    for (int i = 0; i < 16; ++i) g_SecureChipSignParam[i] = static_cast<uint8_t>(0xA0 + i);

    uint8_t sig[48];
    ASSERT_EQ(SecureChip_Sign_With_Private_Key(sig, data.data(), n), 0);
    EXPECT_TRUE(Simulator::verify(sim_->public_key(5), data.data(), n, sig));

    // Command 4, body length N + 24, key index 5, the sign parameter, N, the data.
    Bytes expected;
    for (uint32_t v : {4u, n + 24, 5u})
        for (int shift = 24; shift >= 0; shift -= 8) expected.push_back(uint8_t(v >> shift));
    for (int i = 0; i < 16; ++i) expected.push_back(uint8_t(0xA0 + i));
    for (int shift = 24; shift >= 0; shift -= 8) expected.push_back(uint8_t(n >> shift));
    expected.insert(expected.end(), data.begin(), data.end());
    EXPECT_EQ(sim_->last_request(), expected);
}

// 52 and 1080: the two lengths M7 signs; 10208 fills the 10,240-byte request buffer exactly.
INSTANTIATE_TEST_SUITE_P(DataLengths, SecureChipSignTest,
                         ::testing::Values(0u, 1u, 52u, 1080u, 4096u, 10208u));

TEST_F(SecureChipTest, SignDataBeyondRequestBufferFailsWithoutSending) {
    Bytes data(10209, 0x11);
    uint8_t sig[48];
    std::memset(sig, 0xEE, sizeof sig);
    uint32_t served = sim_->requests_served();
    EXPECT_EQ(SecureChip_Sign_With_Private_Key(sig, data.data(), 10209), -1);
    EXPECT_EQ(sim_->requests_served(), served);
    EXPECT_EQ(sig[0], 0xEE);
    EXPECT_TRUE(client_connected(client_));
    EXPECT_EQ(log_.snapshot(), Codes{kChipStatusOpened});
}

TEST_F(SecureChipTest, ServiceStopReportsLostOnceAndRestartReconnects) {
    sim_->stop();
    ASSERT_TRUE(log_.wait_count(2));
    EXPECT_EQ(log_.snapshot(), (Codes{1, 2}));
    EXPECT_TRUE(client_dropped(client_));

    // Requests while the service is down fail at once and report nothing more.
    uint8_t sig[48];
    uint8_t data[4] = {1, 2, 3, 4};
    EXPECT_EQ(SecureChip_Sign_With_Private_Key(sig, data, sizeof data), -1);
    Bytes key;
    EXPECT_EQ(export_key(&key), -1);
    EXPECT_EQ(log_.snapshot(), (Codes{1, 2}));

    ASSERT_TRUE(sim_->start());
    ASSERT_TRUE(log_.wait_count(3));
    EXPECT_EQ(log_.snapshot(), (Codes{1, 2, 1}));
    expect_export_works();
}

// A misbehaving answer fails the command with -1 but leaves the connection up.
class SecureChipFaultTest : public SecureChipTest, public ::testing::WithParamInterface<Fault> {};

// The sign answer's checks are the answer table's below.
TEST_P(SecureChipFaultTest, ExportFailsAndConnectionSurvives) {
    sim_->set_fault(GetParam());
    Bytes key(48, 0xEE);
    EXPECT_EQ(SPI_GenPrivateKeyAndPublicKey(nullptr, key.data()), -1);
    EXPECT_EQ(key, Bytes(48, 0xEE));
    EXPECT_TRUE(client_connected(client_));
    EXPECT_EQ(log_.snapshot(), Codes{1});
    expect_export_works();
}

INSTANTIATE_TEST_SUITE_P(Faults, SecureChipFaultTest,
                         ::testing::Values(Fault::kBadStatus, Fault::kOversizedLength,
                                           Fault::kShortReply));

// The answer is cut at 6,144 bytes like a message-mode pipe read; the rest stays queued and is
// what the next transactions read, 6,144 bytes at a time, so every later answer arrives late.
TEST_F(SecureChipTest, LongReplyIsCutAndItsRestAnswersTheNextRequests) {
    // Status 0 and L = 40, then a 32-byte key; 6,144 bytes in the second read, 856 in the third.
    Bytes tail(7000, 0);
    tail[7] = 40;
    std::fill(tail.begin() + 8, tail.begin() + 40, 0x5A);
    sim_->set_long_reply_tail(tail);
    sim_->set_fault(Fault::kLongReply);
    expect_export_works();  // the head of the long answer
    Bytes key;
    ASSERT_EQ(export_key(&key), 0);
    // The tail, taken as the second answer: a short key comes out zero-filled to 48 bytes.
    EXPECT_EQ(key, testbytes::cat({Bytes(32, 0x5A), Bytes(16, 0)}));
    EXPECT_EQ(export_key(&key), -1);  // the last 856 zero bytes: status 0 but L = 0
    SecureChipPrivateKeyIndex = 1;
    ASSERT_EQ(export_key(&key), 0);
    EXPECT_EQ(key, sim_key(0));  // the answer to the second request
    EXPECT_EQ(log_.snapshot(), Codes{1});
}

TEST_F(SecureChipTest, TransactCopySizeOverReceiveBufferReturnsOneWithoutCopy) {
    uint8_t dest[8];
    std::memset(dest, 0xEE, sizeof dest);
    EXPECT_EQ(SecureChipTransact(client_, kExportSlot0, sizeof kExportSlot0, 6145, dest), 1);
    EXPECT_EQ(dest[0], 0xEE);
    // The answer was read (and dropped), so the pipe stays in step with the requests.
    expect_export_works();
}

TEST_F(SecureChipTest, VanishingServiceFailsTheTransactionAndReportsLostOnce) {
    sim_->set_fault(Fault::kVanish);
    uint8_t dest[1024];
    EXPECT_EQ(SecureChipTransact(client_, kExportSlot0, sizeof kExportSlot0, 1024, dest), -2);
    // The watcher may already be reconnecting (status 1); the drop itself is reported once.
    Codes codes = log_.snapshot();
    ASSERT_GE(codes.size(), 2u);
    EXPECT_EQ(Codes(codes.begin(), codes.begin() + 2), (Codes{1, 2}));
    EXPECT_EQ(std::count(codes.begin(), codes.end(), 2), 1);
}

// The service announces its stop while a transaction waits for an answer that never comes: the
// watcher drops the pipe under the transaction, which returns -2; the drop is reported once. The
// timeout is long here, so that it is the watcher's drop that ends the wait.
class SecureChipLongWaitTest : public ChipTest {
    uint32_t timeout_ms() const override { return 60000; }
};

TEST_F(SecureChipLongWaitTest, ServiceWithdrawingDuringTransactionInterruptsIt) {
    sim_->set_fault(Fault::kSilent);
    uint32_t served = sim_->requests_served();
    std::atomic<int32_t> result{99};
    std::thread protocol([&] {
        uint8_t dest[1024];
        result = SecureChipTransact(client_, kExportSlot0, sizeof kExportSlot0, sizeof dest, dest);
    });
    ASSERT_TRUE(eventually([&] { return sim_->requests_served() > served; }));
    sim_->withdraw();
    bool returned = eventually([&] { return result.load() != 99; });
    if (!returned) sim_->stop();  // unblock the thread so that the failure is reported, not hung
    protocol.join();
    ASSERT_TRUE(returned);
    EXPECT_EQ(result.load(), -2);
    EXPECT_EQ(log_.snapshot(), (Codes{1, 2}));
    EXPECT_TRUE(client_dropped(client_));
}

// Trace lines of the export wrapper: the admin login key only when secrets are allowed.
TEST_F(SecureChipTest, ExportTracesLoginKeyOnlyWhenSecretsAllowed) {
    std::memset(g_SecureChipAdminLoginKey, 'k', sizeof g_SecureChipAdminLoginKey);  // no NUL
    g_SecureChipAdminLoginKeyLen = 256;
    start_trace(false);
    expect_export_works(1);
    EXPECT_TRUE(traced("SPI_GenPrivateKeyAndPublicKey : SecureChipPrivateKeyIndex 1\n"));
    EXPECT_TRUE(traced("g_SecureChipAdminLoginKeyLen 256\n"));
    EXPECT_TRUE(traced("g_SecureChipAdminLoginKey <hidden>\n"));
    EXPECT_FALSE(traced("kkkk")) << trace_text();

    start_trace(true);
    sim_->set_fault(Fault::kBadStatus);
    Bytes key;
    EXPECT_EQ(export_key(&key), -1);
    EXPECT_TRUE(traced("g_SecureChipAdminLoginKey " + std::string(256, 'k') + "\n"));
    EXPECT_TRUE(traced("svr_ExportSignPublicKey_ECC -1\n"));
    std::memset(g_SecureChipAdminLoginKey, 0, sizeof g_SecureChipAdminLoginKey);
    g_SecureChipAdminLoginKeyLen = 0;
}

// ---- Answers ------------------------------------------------------------------------------------

// The answer checks of the two secure-chip commands, one table row per answer shape: the two
// readings of L, and the bounds chosen for what the service may send.
Bytes answer(uint32_t status, uint32_t length, size_t payload_len) {
    Bytes out;  // status, L, then the payload
    for (uint32_t v : {status, length})
        for (int shift = 24; shift >= 0; shift -= 8) out.push_back(uint8_t(v >> shift));
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
    const size_t n = c.received.size() < view.size() ? c.received.size() : view.size();
    std::memcpy(view.data(), c.received.data(), n);
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

// ---- Who is on the other end --------------------------------------------------------------------

// The test's own account as the peer policy spells it, and whether it is a "system" account.
std::string own_account() {
#ifdef _WIN32
    HANDLE token = nullptr;
    OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token);
    alignas(TOKEN_USER) BYTE buf[256];
    DWORD len = 0;
    GetTokenInformation(token, TokenUser, buf, sizeof buf, &len);
    CloseHandle(token);
    char* text = nullptr;
    ConvertSidToStringSidA(reinterpret_cast<TOKEN_USER*>(buf)->User.Sid, &text);
    std::string account = text != nullptr ? text : "";
    LocalFree(text);
    return account;
#else
    return std::to_string(::geteuid());
#endif
}
bool own_account_is_system() {
#ifdef _WIN32
    return own_account() == "S-1-5-18";
#else
    return ::geteuid() == 0;
#endif
}
#ifdef _WIN32
constexpr const char* kForeignAccount = "S-1-5-21-1-2-3-4242";
#else
constexpr const char* kForeignAccount = "4000000";
#endif

TEST(SecureChipPeerPolicy, RefusesMalformedPoliciesAndKeepsTheOldOne) {
    const char* good[] = {kForeignAccount};
    const char* bad_text[] = {"not an account"};
    const char* empty[] = {""};
    std::vector<const char*> nine(9, kForeignAccount);
    struct Case {
        uint32_t classes;
        const char* const* extra;
        uint32_t count;
        int32_t result;
    } cases[] = {
        {WAPIWPS_CHIP_PEER_DEFAULT, nullptr, 0, 0},     {WAPIWPS_CHIP_PEER_ANY, good, 1, 0},
        {0, nine.data(), WAPIWPS_CHIP_PEER_MAX_EXTRA, 0}, {0x8, nullptr, 0, -1},  // unknown class
        {0, nine.data(), WAPIWPS_CHIP_PEER_MAX_EXTRA + 1, -1},                  // too many accounts
        {WAPIWPS_CHIP_PEER_SELF, nullptr, 1, -1},  // a count without a list
        {WAPIWPS_CHIP_PEER_SELF, bad_text, 1, -1},      {WAPIWPS_CHIP_PEER_SELF, empty, 1, -1},
    };
    for (const Case& c : cases)
        EXPECT_EQ(WapiWps_SetSecureChipPeerPolicy(c.classes, c.extra, c.count), c.result)
            << "classes " << c.classes << ", " << c.count << " accounts";
    EXPECT_EQ(WapiWps_SetSecureChipPeerPolicy(WAPIWPS_CHIP_PEER_DEFAULT, nullptr, 0), 0);
}

// The simulator serves as the test's own account; each row is a policy and whether it lets that
// account serve. A refused server is traced, counted as "not running" and never sent a byte.
struct PolicyCase {
    const char* name;
    uint32_t classes;
    bool extra_own;      // the own account listed explicitly
    bool extra_foreign;  // another account listed
    bool connects;
};

class SecureChipPolicyTest : public ChipTestWithoutClient,
                             public ::testing::WithParamInterface<PolicyCase> {};

TEST_P(SecureChipPolicyTest, ConnectsOnlyToAnAllowedServer) {
    const PolicyCase& c = GetParam();
    const std::string own = own_account();
    std::vector<const char*> extra;
    if (c.extra_own) extra.push_back(own.c_str());
    if (c.extra_foreign) extra.push_back(kForeignAccount);
    ASSERT_EQ(WapiWps_SetSecureChipPeerPolicy(c.classes, extra.data(),
                                              static_cast<uint32_t>(extra.size())),
              0);
    start_trace();
    ASSERT_EQ(CreateSecureChipClient(&g_SecureChipClient, record_status, &log_), 0);

    if (c.connects) {
        ASSERT_TRUE(log_.wait_count(1));
        expect_export_works();
        EXPECT_FALSE(traced("refused"));
        return;
    }
    ASSERT_TRUE(eventually([] { return traced("Secure-chip service refused: the server"); }))
        << trace_text();
    EXPECT_TRUE(traced(own)) << trace_text();
    Bytes key;
    EXPECT_EQ(export_key(&key), -1);
    EXPECT_TRUE(log_.snapshot().empty());
    EXPECT_FALSE(client_connected(g_SecureChipClient));
    EXPECT_EQ(sim_->requests_served(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Policies, SecureChipPolicyTest,
    ::testing::Values(PolicyCase{"Default", WAPIWPS_CHIP_PEER_DEFAULT, false, false, true},
                      PolicyCase{"SelfOnly", WAPIWPS_CHIP_PEER_SELF, false, false, true},
                      PolicyCase{"Any", WAPIWPS_CHIP_PEER_ANY, false, true, true},
                      PolicyCase{"OwnAccountListed", 0, true, true, true},
                      PolicyCase{"ForeignAccountOnly", 0, false, true, false},
                      PolicyCase{"SystemOnly", WAPIWPS_CHIP_PEER_SYSTEM, false, false,
                                 own_account_is_system()}),
    [](const auto& info) { return std::string(info.param.name); });

// ---- Deadlines ----------------------------------------------------------------------------------

// A service that reads an export request but never answers, or that stops reading a sign request
// altogether (the parameter): the request fails at the timeout, the connection is dropped
// (status 2) and the watcher reconnects.
class SecureChipDeadlineTest : public ChipTest, public ::testing::WithParamInterface<bool> {};

TEST_P(SecureChipDeadlineTest, NoAnswerFailsTheRequestAndDropsTheConnection) {
    const bool stall_and_sign = GetParam();
    ASSERT_EQ(WapiWps_SetSecureChipTimeout(kShortTimeoutMs), 0);
    if (stall_and_sign)
        sim_->set_stalled(true);
    else
        sim_->set_fault(Fault::kSilent);
    uint8_t out[48];
    std::memset(out, 0xEE, sizeof out);
    const uint8_t data[52] = {0x10, 0x20};
    EXPECT_EQ(stall_and_sign ? SecureChip_Sign_With_Private_Key(out, data, sizeof data)
                             : SPI_GenPrivateKeyAndPublicKey(nullptr, out),
              -1);
    EXPECT_EQ(out[0], 0xEE);
    ASSERT_TRUE(log_.wait_count(2));
    EXPECT_EQ(log_.snapshot()[1], kChipStatusLost);

    sim_->set_stalled(false);
    ASSERT_TRUE(log_.wait_count(3));
    expect_export_works();
}

INSTANTIATE_TEST_SUITE_P(Services, SecureChipDeadlineTest, ::testing::Bool(), [](const auto& i) {
    return i.param ? "StalledSign" : "SilentExport";
});

#ifndef _WIN32
// A service that stalled with its listen queue full: the connect gives up at the timeout.
using SecureChipConnectTest = ChipTestWithoutClient;

TEST_F(SecureChipConnectTest, StalledServiceWithFullQueueGivesUpAtTheTimeout) {
    sim_->set_stalled(true);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, sim_->socket_path().c_str(), sizeof addr.sun_path - 1);
    int queued = ::socket(AF_UNIX, SOCK_SEQPACKET, 0);  // takes the one place in the queue
    ASSERT_EQ(::connect(queued, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
    platform::ChipPipe* pipe = nullptr;
    char why[64];
    EXPECT_EQ(platform::chip_pipe_open(&pipe, kShortTimeoutMs, why, sizeof why),
              platform::ChipOpen::kError);
    EXPECT_EQ(platform::chip_last_error(), static_cast<uint32_t>(ETIMEDOUT));
    EXPECT_EQ(pipe, nullptr);
    ::close(queued);
    sim_->set_stalled(false);
}
#endif

// ---- Lifetime -----------------------------------------------------------------------------------

size_t thread_count() {
#ifdef _WIN32
    HANDLE snap = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    size_t n = 0;
    for (BOOL more = Thread32First(snap, &entry); more; more = Thread32Next(snap, &entry))
        n += entry.th32OwnerProcessID == GetCurrentProcessId();
    CloseHandle(snap);
    return n;
#else
    namespace fs = std::filesystem;
    return static_cast<size_t>(std::distance(fs::directory_iterator("/proc/self/task"), {}));
#endif
}

// Open descriptors (Linux); 0 elsewhere.
size_t descriptor_count() {
#ifdef __linux__
    namespace fs = std::filesystem;
    return static_cast<size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), {}));
#else
    return 0;
#endif
}

using SecureChipLifetimeTest = ChipTestWithoutClient;

const uint8_t kLocal[6] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
const uint8_t kPeer[6] = {0x02, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE};

// Each StartWPS_SecureChip replaces the previous client: one watcher and one connection however
// many runs are started.
TEST_F(SecureChipLifetimeTest, ManyRunsHoldOneWatcherAndOneConnection) {
    uint8_t frame[64];
    uint32_t frame_len = 0;
    size_t threads = 0;
    size_t descriptors = 0;
    for (int run = 0; run < 30; ++run) {
        ASSERT_EQ(StartWPS_SecureChip(kLocal, 0, 3, kPeer, nullptr, frame, &frame_len), 1);
        ASSERT_TRUE(eventually([&] {
            return client_connected(g_SecureChipClient) &&
                   sim_->connections_accepted() == static_cast<uint32_t>(run + 1);
        }));
        if (run == 0) {
            threads = thread_count();
            descriptors = descriptor_count();
        }
    }
    // The service ends its side of each dropped connection (Windows: a thread, everywhere: a
    // descriptor) when it notices the close; the client's own are gone at once.
    EXPECT_TRUE(eventually([&] { return thread_count() == threads; })) << thread_count();
    EXPECT_TRUE(eventually([&] { return descriptor_count() == descriptors; }))
        << descriptor_count() << " descriptors, " << descriptors << " after the first run";
    StopWPS();
}

// The library is loaded, a run started with the chip, and the library freed, twenty times, with
// the watcher connected on every other round. POSIX: the unload joins the watcher, so the
// library really goes and its thread with it. Windows: the first watcher pinned the library, so
// FreeLibrary leaves it mapped, and each new run replaces the previous watcher.
TEST_F(SecureChipLifetimeTest, UnloadingTheLibraryLeavesNoWatcherBehind) {
    using StartFn = int32_t (*)(const uint8_t*, int32_t, int32_t, const void*, const char*,
                                uint8_t*, uint32_t*);
#ifdef _WIN32
    std::string path = std::string("Z:") + WAPIWPS_LIB_PATH;
    for (char& ch : path)
        if (ch == '/') ch = '\\';
    auto load = [&] {
        return static_cast<void*>(
            LoadLibraryExA(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH));
    };
    auto symbol = [](void* lib, const char* name) {
        return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(lib), name));
    };
    auto unload = [](void* lib) { FreeLibrary(static_cast<HMODULE>(lib)); };
#else
    const char* path = WAPIWPS_LIB_PATH;
    auto load = [&] { return dlopen(path, RTLD_NOW | RTLD_LOCAL); };
    auto symbol = [](void* lib, const char* name) { return dlsym(lib, name); };
    auto unload = [](void* lib) { dlclose(lib); };
#endif
    const size_t base = thread_count();
    for (int round = 0; round < 20; ++round) {
        void* lib = load();
        ASSERT_NE(lib, nullptr) << path;
        auto start = reinterpret_cast<StartFn>(symbol(lib, "StartWPS_SecureChip"));
        ASSERT_NE(start, nullptr);
        const uint32_t accepted = sim_->connections_accepted();
        uint8_t frame[64];
        uint32_t frame_len = 0;
        ASSERT_EQ(start(kLocal, 0, 3, kPeer, nullptr, frame, &frame_len), 1);
        if (round % 2 == 1) {
            ASSERT_TRUE(eventually([&] { return sim_->connections_accepted() > accepted; }));
        }
        unload(lib);
#ifdef _WIN32
        // Still mapped, and at most the one watcher and the service's thread for its connection
        // (those of dropped connections end when they notice).
        HMODULE still = nullptr;
        EXPECT_TRUE(
            GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT, path.c_str(), &still));
        EXPECT_TRUE(eventually([&] { return thread_count() <= base + 2; })) << thread_count();
#else
        EXPECT_EQ(dlopen(path, RTLD_NOW | RTLD_NOLOAD), nullptr) << "still mapped";
        EXPECT_EQ(thread_count(), base);
#endif
    }
}

}  // namespace
