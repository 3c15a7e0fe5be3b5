// The secure-chip client against the in-process service simulator: connection tracking, both
// commands byte for byte, every misbehaviour of the service, and the wrappers M7 calls.
#include <algorithm>
#include <atomic>
#include <cstdlib>

#ifndef _WIN32
#include <unistd.h>
#endif

#include "securechip/chip_fixture.h"

namespace {

using chipsim::Fault;
using chipsim::Simulator;
using namespace chiptest;

// Each test process serves on its own socket, so parallel test programs do not meet.
[[maybe_unused]] const bool g_socket_env = [] {
#ifndef _WIN32
    std::string path = "/tmp/wapiwps_chip_test_" + std::to_string(::getpid()) + ".sock";
    ::setenv("WAPIWPS_SECURECHIP_SOCKET", path.c_str(), 1);
#endif
    return true;
}();

using SecureChipTest = ChipTest;

TEST_F(SecureChipTest, ConnectsAfterStartWithStatusOpened) {
    EXPECT_EQ(log_.snapshot(), (std::vector<int32_t>{kChipStatusOpened}));
    EXPECT_NE(client_pipe(client_), nullptr);
}

TEST_F(SecureChipTest, ExportRequestAndKeyAreExact) {
    SecureChipPrivateKeyIndex = 3;
    Bytes key;
    ASSERT_EQ(export_key(&key), 0);
    EXPECT_EQ(key, key_bytes(sim_->public_key(3)));
    EXPECT_EQ(sim_->last_request(), (Bytes{
                                        0x00, 0x00, 0x00, 0x07,  // command 7
                                        0x00, 0x00, 0x00, 0x04,  // body length 4
                                        0x00, 0x00, 0x00, 0x03,  // key index 3
                                    }));
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
    EXPECT_FALSE(Simulator::verify(sim_->public_key(4), data.data(), n, sig));

    Bytes req = sim_->last_request();
    ASSERT_EQ(req.size(), n + 32u);
    Bytes expected;
    auto be32 = [&](uint32_t v) {
        for (int shift = 24; shift >= 0; shift -= 8) expected.push_back(uint8_t(v >> shift));
    };
    be32(4);                                                             // command 4
    be32(n + 24);                                                        // body length N + 24
    be32(5);                                                             // key index
    for (int i = 0; i < 16; ++i) expected.push_back(uint8_t(0xA0 + i));  // sign parameter
    be32(n);                                                             // N
    EXPECT_EQ(Bytes(req.begin(), req.begin() + 32), expected);
    EXPECT_TRUE(std::equal(data.begin(), data.end(), req.begin() + 32));
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
    EXPECT_EQ(log_.snapshot().size(), 1u);
}

TEST_F(SecureChipTest, ServiceStopReportsLostOnceAndRestartReconnects) {
    sim_->stop();
    ASSERT_TRUE(log_.wait_count(2));
    EXPECT_EQ(log_.snapshot(), (std::vector<int32_t>{1, 2}));
    EXPECT_FALSE(client_connected(client_));
    EXPECT_EQ(client_pipe(client_), nullptr);

    // Requests while the service is down fail at once and report nothing more.
    uint8_t sig[48];
    uint8_t data[4] = {1, 2, 3, 4};
    EXPECT_EQ(SecureChip_Sign_With_Private_Key(sig, data, sizeof data), -1);
    Bytes key;
    EXPECT_EQ(export_key(&key), -1);
    EXPECT_EQ(log_.snapshot(), (std::vector<int32_t>{1, 2}));

    ASSERT_TRUE(sim_->start());
    ASSERT_TRUE(log_.wait_count(3));
    EXPECT_EQ(log_.snapshot(), (std::vector<int32_t>{1, 2, 1}));
    ASSERT_EQ(export_key(&key), 0);
    EXPECT_EQ(key, key_bytes(sim_->public_key(0)));
}

// A misbehaving answer fails the command with -1 but leaves the connection up.
struct FaultCase {
    const char* name;
    Fault fault;
};

class SecureChipFaultTest : public SecureChipTest,
                            public ::testing::WithParamInterface<FaultCase> {};

TEST_P(SecureChipFaultTest, BothCommandsFailAndConnectionSurvives) {
    Bytes key;
    uint8_t sig[48];
    uint8_t data[52] = {0x1F, 0xFF, 0x00, 0x30};

    sim_->set_fault(GetParam().fault);
    Bytes before(48, 0xEE);
    key = before;
    EXPECT_EQ(SPI_GenPrivateKeyAndPublicKey(nullptr, key.data()), -1);
    EXPECT_EQ(key, before);

    sim_->set_fault(GetParam().fault);
    std::memset(sig, 0xEE, sizeof sig);
    EXPECT_EQ(SecureChip_Sign_With_Private_Key(sig, data, sizeof data), -1);
    EXPECT_EQ(sig[47], 0xEE);

    EXPECT_TRUE(client_connected(client_));
    EXPECT_EQ(log_.snapshot(), (std::vector<int32_t>{1}));
    ASSERT_EQ(export_key(&key), 0);
    EXPECT_EQ(key, key_bytes(sim_->public_key(0)));
    ASSERT_EQ(SecureChip_Sign_With_Private_Key(sig, data, sizeof data), 0);
    EXPECT_TRUE(Simulator::verify(sim_->public_key(0), data, sizeof data, sig));
}

INSTANTIATE_TEST_SUITE_P(Faults, SecureChipFaultTest,
                         ::testing::Values(FaultCase{"NonZeroStatus", Fault::kBadStatus},
                                           FaultCase{"OversizedLength", Fault::kOversizedLength},
                                           FaultCase{"ShortReply", Fault::kShortReply}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(SecureChipTest, UnknownSlotIsRefused) {
    SecureChipPrivateKeyIndex = 100;
    Bytes key;
    EXPECT_EQ(export_key(&key), -1);
    uint8_t sig[48];
    uint8_t data[1] = {0};
    EXPECT_EQ(SecureChip_Sign_With_Private_Key(sig, data, 1), -1);
    EXPECT_TRUE(client_connected(client_));
}

// The answer is cut at 6,144 bytes like a message-mode pipe read; the rest stays queued and is
// what the next transaction reads, so every later answer arrives one request late.
TEST_F(SecureChipTest, LongReplyIsCutAndItsRestAnswersTheNextRequest) {
    sim_->set_fault(Fault::kLongReply);
    Bytes key;
    ASSERT_EQ(export_key(&key), 0);
    EXPECT_EQ(key, key_bytes(sim_->public_key(0)));  // the head of the long answer

    ASSERT_EQ(export_key(&key), 0);
    EXPECT_EQ(key, Bytes(48, 0x5A));  // the tail, taken as the second answer

    SecureChipPrivateKeyIndex = 1;
    ASSERT_EQ(export_key(&key), 0);
    EXPECT_EQ(key, key_bytes(sim_->public_key(0)));  // the answer to the second request
    EXPECT_TRUE(client_connected(client_));
    EXPECT_EQ(log_.snapshot(), (std::vector<int32_t>{1}));
}

// A rest longer than one read is itself handed out 6,144 bytes at a time.
TEST_F(SecureChipTest, LongReplyRestLongerThanOneReadTakesTwoReads) {
    Bytes tail = {0, 0, 0, 0, 0, 0, 0, 56};  // status 0, L = 56
    tail.resize(56, 0x5A);
    tail.resize(7000, 0);  // 6,144 bytes in the second read, 856 in the third
    sim_->set_long_reply_tail(tail);
    sim_->set_fault(Fault::kLongReply);
    Bytes key;
    ASSERT_EQ(export_key(&key), 0);
    EXPECT_EQ(key, key_bytes(sim_->public_key(0)));
    ASSERT_EQ(export_key(&key), 0);
    EXPECT_EQ(key, Bytes(48, 0x5A));
    EXPECT_EQ(export_key(&key), -1);  // the last 856 zero bytes: status 0 but L = 0
    ASSERT_EQ(export_key(&key), 0);   // the answer to the second request
    EXPECT_EQ(key, key_bytes(sim_->public_key(0)));
    EXPECT_EQ(log_.snapshot(), (std::vector<int32_t>{1}));
}

TEST_F(SecureChipTest, TransactCopySizeOverReceiveBufferReturnsOneWithoutCopy) {
    uint8_t request[12] = {0, 0, 0, 7, 0, 0, 0, 4, 0, 0, 0, 0};
    uint8_t dest[8];
    std::memset(dest, 0xEE, sizeof dest);
    EXPECT_EQ(SecureChipTransact(client_, request, sizeof request, 6145, dest), 1);
    EXPECT_EQ(dest[0], 0xEE);
    EXPECT_TRUE(client_connected(client_));
    // The answer was read (and dropped), so the pipe stays in step with the requests.
    Bytes key;
    ASSERT_EQ(export_key(&key), 0);
    EXPECT_EQ(key, key_bytes(sim_->public_key(0)));
}

TEST_F(SecureChipTest, VanishingServiceFailsTransactionReportsLostOnceThenReconnects) {
    sim_->set_fault(Fault::kVanish);
    uint8_t request[12] = {0, 0, 0, 7, 0, 0, 0, 4, 0, 0, 0, 0};
    uint8_t dest[1024];
    EXPECT_EQ(SecureChipTransact(client_, request, sizeof request, 1024, dest), -2);
    // The watcher may already be reconnecting (status 1); the drop itself is reported once.
    std::vector<int32_t> codes = log_.snapshot();
    ASSERT_GE(codes.size(), 2u);
    EXPECT_EQ(std::vector<int32_t>(codes.begin(), codes.begin() + 2), (std::vector<int32_t>{1, 2}));
    EXPECT_EQ(std::count(codes.begin(), codes.end(), 2), 1);

    // The service still runs: the watcher opens a new pipe.
    ASSERT_TRUE(log_.wait_count(3));
    EXPECT_EQ(log_.snapshot(), (std::vector<int32_t>{1, 2, 1}));
    Bytes key;
    ASSERT_EQ(export_key(&key), 0);

    sim_->set_fault(Fault::kVanish);
    uint8_t sig[48];
    uint8_t data[3] = {9, 8, 7};
    EXPECT_EQ(SecureChip_Sign_With_Private_Key(sig, data, sizeof data), -1);
    ASSERT_TRUE(log_.wait_count(5));
    EXPECT_EQ(log_.snapshot(), (std::vector<int32_t>{1, 2, 1, 2, 1}));
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
        uint8_t request[12] = {0, 0, 0, 7, 0, 0, 0, 4, 0, 0, 0, 0};
        uint8_t dest[1024];
        result = SecureChipTransact(client_, request, sizeof request, sizeof dest, dest);
    });
    ASSERT_TRUE(eventually([&] { return sim_->requests_served() > served; }));
    sim_->withdraw();
    bool returned = eventually([&] { return result.load() != 99; });
    if (!returned) sim_->stop();  // unblock the thread so that the failure is reported, not hung
    protocol.join();
    ASSERT_TRUE(returned);
    EXPECT_EQ(result.load(), -2);
    EXPECT_EQ(log_.snapshot(), (std::vector<int32_t>{1, 2}));
    EXPECT_EQ(client_pipe(client_), nullptr);
    EXPECT_FALSE(client_connected(client_));
}

// A client whose service never ran: the pipe is null, so the write fails with -1 and no status.
TEST(SecureChipNoService, TransactWithoutPipeFailsAndReportsNothing) {
    StatusLog log;
    auto* client = new SecureChipClient;
    client->running.store(1);
    client->statusCallback = record_status;
    client->callbackContext = &log;
    uint8_t request[12] = {0, 0, 0, 7, 0, 0, 0, 4, 0, 0, 0, 0};
    uint8_t dest[16];
    EXPECT_EQ(SecureChipTransact(client, request, sizeof request, 16, dest), -1);
    EXPECT_EQ(svr_ExportSignPublicKey_ECC(client, 0, 48, dest), -1);
    EXPECT_TRUE(log.snapshot().empty());
    DestroySecureChipClient(client);
}

TEST(SecureChipNoClient, BothStubsAndWrappersFailWithoutTouchingAnything) {
    ASSERT_EQ(g_SecureChipClient, nullptr);
    uint8_t out[48];
    std::memset(out, 0xEE, sizeof out);
    uint8_t data[8] = {};
    uint8_t param[16] = {};
    EXPECT_EQ(svr_ExportSignPublicKey_ECC(nullptr, 0, 48, out), -1);
    EXPECT_EQ(svr_sign_ECC_ECDSA(nullptr, 0, param, sizeof data, data, out), -1);
    EXPECT_EQ(SPI_GenPrivateKeyAndPublicKey(nullptr, out), -1);
    EXPECT_EQ(SecureChip_Sign_With_Private_Key(out, data, sizeof data), -1);
    for (uint8_t b : out) ASSERT_EQ(b, 0xEE);
}

// Trace lines of the export wrapper: the admin login key only when secrets are allowed.
TEST_F(SecureChipTest, ExportTracesLoginKeyOnlyWhenSecretsAllowed) {
    std::memset(g_SecureChipAdminLoginKey, 'k', sizeof g_SecureChipAdminLoginKey);  // no NUL
    g_SecureChipAdminLoginKeyLen = 256;
    SecureChipPrivateKeyIndex = 1;
    Bytes key;
    {
        TraceCapture& cap = TraceCapture::start(false);
        ASSERT_EQ(export_key(&key), 0);
        const std::string text = cap.text();
        EXPECT_NE(text.find("SPI_GenPrivateKeyAndPublicKey : SecureChipPrivateKeyIndex 1\n"),
                  std::string::npos);
        EXPECT_NE(text.find("g_SecureChipAdminLoginKeyLen 256\n"), std::string::npos);
        EXPECT_NE(text.find("g_SecureChipAdminLoginKey <hidden>\n"), std::string::npos);
        EXPECT_EQ(text.find("kkkk"), std::string::npos) << text;
    }
    TraceCapture::stop();
    {
        TraceCapture& cap = TraceCapture::start(true);
        sim_->set_fault(Fault::kBadStatus);
        EXPECT_EQ(export_key(&key), -1);
        const std::string text = cap.text();
        EXPECT_NE(text.find("g_SecureChipAdminLoginKey " + std::string(256, 'k') + "\n"),
                  std::string::npos);
        EXPECT_NE(text.find("svr_ExportSignPublicKey_ECC -1\n"), std::string::npos);
    }
    TraceCapture::stop();
    std::memset(g_SecureChipAdminLoginKey, 0, sizeof g_SecureChipAdminLoginKey);
    g_SecureChipAdminLoginKeyLen = 0;
}

}  // namespace
