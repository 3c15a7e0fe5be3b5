// The secure-chip client's defences: who may serve the service, deadlines on a service that
// stalls, one watcher however often a run is started, and unloading the library under a running
// watcher.
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#ifdef _WIN32
#include <windows.h>
// After windows.h:
#include <sddl.h>
#include <tlhelp32.h>
#else
#include <dlfcn.h>
#include <pwd.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
extern char** environ;
#endif

#include "common/exchange.h"
#include "securechip/chip_fixture.h"

namespace {

using namespace chiptest;
using chipsim::Fault;

struct Cleanup {
    std::function<void()> run;
    ~Cleanup() { run(); }
};

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
    const char* nine[9] = {kForeignAccount, kForeignAccount, kForeignAccount,
                           kForeignAccount, kForeignAccount, kForeignAccount,
                           kForeignAccount, kForeignAccount, kForeignAccount};
    struct Case {
        uint32_t classes;
        const char* const* extra;
        uint32_t count;
        int32_t result;
    } cases[] = {
        {WAPIWPS_CHIP_PEER_DEFAULT, nullptr, 0, 0},     {WAPIWPS_CHIP_PEER_ANY, good, 1, 0},
        {0, nine, WAPIWPS_CHIP_PEER_MAX_EXTRA, 0},      {0x8, nullptr, 0, -1},  // unknown class
        {0, nine, WAPIWPS_CHIP_PEER_MAX_EXTRA + 1, -1},                         // too many accounts
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
    TraceCapture& trace = TraceCapture::start();
    Cleanup stop_trace{[] { TraceCapture::stop(); }};
    ASSERT_EQ(CreateSecureChipClient(&g_SecureChipClient, record_status, &log_), 0);

    Bytes key;
    if (c.connects) {
        ASSERT_TRUE(log_.wait_count(1));
        ASSERT_EQ(export_key(&key), 0);
        EXPECT_EQ(key, key_bytes(sim_->public_key(0)));
        EXPECT_EQ(trace.text().find("refused"), std::string::npos);
        return;
    }
    ASSERT_TRUE(trace.wait_for("Secure-chip service refused: the server")) << trace.text();
    EXPECT_NE(trace.text().find(own), std::string::npos) << trace.text();
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

#ifndef _WIN32
// A local process of another account binds the service's socket first. It is refused without a
// byte; allowed explicitly, the same process is used, so only the check kept it out.
TEST(SecureChipSquat, AnotherAccountsServerIsNeverSentAByte) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to run the squatting service as nobody";
    const passwd* nobody = ::getpwnam("nobody");
    if (nobody == nullptr) GTEST_SKIP() << "no account named nobody";
    const std::string uid = std::to_string(nobody->pw_uid);
    const char* path = std::getenv("WAPIWPS_SECURECHIP_SOCKET");
    ASSERT_NE(path, nullptr);

    int out[2];
    ASSERT_EQ(::pipe(out), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    const char* argv[] = {CHIPSIM_PATH, "--socket", path, "--user",
                          "nobody",     "--for",    "60", nullptr};
    pid_t child = -1;
    ASSERT_EQ(
        posix_spawn(&child, CHIPSIM_PATH, &actions, nullptr, const_cast<char**>(argv), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    StatusLog log;
    Cleanup cleanup{[&] {
        release_secure_chip_client();
        if (child > 0) ::kill(child, SIGKILL);
        if (child > 0) ::waitpid(child, nullptr, 0);
        ::close(out[0]);
        secure_chip_set_timeout(0);
        platform::chip_set_peer_policy(platform::kChipPeerDefault, nullptr, 0);
        TraceCapture::stop();
    }};
    struct stat st;
    ASSERT_TRUE(eventually([&] { return ::stat(path, &st) == 0; }));

    secure_chip_set_timeout(kShortTimeoutMs);
    TraceCapture& trace = TraceCapture::start();
    ASSERT_EQ(CreateSecureChipClient(&g_SecureChipClient, record_status, &log), 0);
    ASSERT_TRUE(trace.wait_for("refused: the server runs as uid " + uid + ", which is not allowed"))
        << trace.text();
    Bytes key(48);
    EXPECT_EQ(SPI_GenPrivateKeyAndPublicKey(nullptr, key.data()), -1);
    EXPECT_TRUE(log.snapshot().empty());

    const char* allowed[] = {uid.c_str()};
    ASSERT_EQ(WapiWps_SetSecureChipPeerPolicy(WAPIWPS_CHIP_PEER_DEFAULT, allowed, 1), 0);
    ASSERT_TRUE(log.wait_count(1));
    EXPECT_EQ(SPI_GenPrivateKeyAndPublicKey(nullptr, key.data()), 0);
    release_secure_chip_client();

    ::kill(child, SIGTERM);
    std::string said;
    char buf[256];
    for (ssize_t n; (n = ::read(out[0], buf, sizeof buf)) > 0;) said.append(buf, n);
    ::waitpid(child, nullptr, 0);
    child = -1;
    EXPECT_NE(said.find("served 1\n"), std::string::npos) << said;
}
#endif

// ---- Deadlines ----------------------------------------------------------------------------------

// A service that reads the request but never answers, or that stops reading altogether: the
// request fails at the timeout, the connection is dropped (status 2) and the watcher reconnects.
struct DeadlineCase {
    const char* name;
    bool stall;  // stop reading altogether, instead of reading and staying silent
    bool sign;   // command 4, else command 7
};

class SecureChipDeadlineTest : public ChipTest,
                               public ::testing::WithParamInterface<DeadlineCase> {};

TEST_P(SecureChipDeadlineTest, NoAnswerFailsTheRequestAndDropsTheConnection) {
    const DeadlineCase& c = GetParam();
    ASSERT_EQ(WapiWps_SetSecureChipTimeout(kShortTimeoutMs), 0);
    if (c.stall)
        sim_->set_stalled(true);
    else
        sim_->set_fault(Fault::kSilent);
    uint8_t out[48];
    std::memset(out, 0xEE, sizeof out);
    const uint8_t data[52] = {0x10, 0x20};
    int32_t r = c.sign ? SecureChip_Sign_With_Private_Key(out, data, sizeof data)
                       : SPI_GenPrivateKeyAndPublicKey(nullptr, out);
    EXPECT_EQ(r, -1);
    EXPECT_EQ(out[0], 0xEE);
    ASSERT_TRUE(log_.wait_count(2));
    EXPECT_EQ(log_.snapshot()[1], kChipStatusLost);

    sim_->set_stalled(false);
    ASSERT_TRUE(log_.wait_count(3));
    Bytes key;
    ASSERT_EQ(export_key(&key), 0);
    EXPECT_EQ(key, key_bytes(sim_->public_key(0)));
}

INSTANTIATE_TEST_SUITE_P(Services, SecureChipDeadlineTest,
                         ::testing::Values(DeadlineCase{"SilentExport", false, false},
                                           DeadlineCase{"SilentSign", false, true},
                                           DeadlineCase{"StalledExport", true, false},
                                           DeadlineCase{"StalledSign", true, true}),
                         [](const auto& info) { return std::string(info.param.name); });

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

// A chip that never answers during M7: the run is not held up; M7 fails with a NACK carrying
// Configuration Error 18 and the run ends without result.
using SecureChipM7Test = ChipTest;

TEST_F(SecureChipM7Test, SilentChipFailsM7WithNack18) {
    ASSERT_EQ(WapiWps_SetSecureChipTimeout(kShortTimeoutMs), 0);
    exchange::Options o;
    o.wps_mode = WAPIWPS_MODE_WAPI_CERT;
    o.secure_chip = true;
    o.registrar.certificate_mode = 1;
    o.registrar.cert_list = {0x01, 0x02, 0x03};
    o.after_start = [this] {
        eventually([] { return client_connected(g_SecureChipClient); });
        sim_->set_fault(Fault::kSilent, 100);
    };
    const exchange::Transcript t = exchange::run(o);
    EXPECT_EQ(t.nack_error(), 18);
    EXPECT_EQ(t.last_result(), WAPIWPS_RESULT_ENDED);
    EXPECT_FALSE(t.m8_done);
}

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
TEST_F(SecureChipLifetimeTest, HundredRunsHoldOneWatcherAndOneConnection) {
    uint8_t frame[64];
    uint32_t frame_len = 0;
    size_t threads = 0;
    size_t descriptors = 0;
    for (int run = 0; run < 100; ++run) {
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
