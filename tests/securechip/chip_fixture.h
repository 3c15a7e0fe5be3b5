// Shared pieces of the secure-chip tests: a status recorder, a trace recorder, bounded waits and
// the fixture that serves the in-process simulator to one client.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "api/context.h"
#include "chipsim/chipsim.h"
#include "platform/platform.h"
#include "platform/securechip_transport.h"
#include "signing/securechip.h"
#include "wapiwps.h"

namespace chiptest {

using Bytes = std::vector<uint8_t>;

// Generous bound for state changes the watcher makes on its 500 ms / 1 s rhythm.
inline constexpr auto kStateWait = std::chrono::seconds(10);
// The timeout the tests give the client: short, so that a service that never answers costs
// little, yet long enough that a service that does answer is never cut off on a loaded machine
// under the sanitizers. No test asserts on how long anything took.
inline constexpr uint32_t kShortTimeoutMs = 600;

// Polls a condition with a bounded wait.
template <typename Pred>
bool eventually(Pred pred) {
    auto deadline = std::chrono::steady_clock::now() + kStateWait;
    while (std::chrono::steady_clock::now() < deadline) {
        if (pred()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return pred();
}

// Status codes one client reported.
struct StatusLog {
    std::mutex lock;
    std::condition_variable changed;
    std::vector<int32_t> codes;

    std::vector<int32_t> snapshot() {
        std::lock_guard<std::mutex> guard(lock);
        return codes;
    }
    // Waits until the log holds `count` codes; false after kStateWait.
    bool wait_count(size_t count) {
        std::unique_lock<std::mutex> guard(lock);
        return changed.wait_for(guard, kStateWait, [&] { return codes.size() >= count; });
    }
};

inline void record_status(int32_t* status, void* context) {
    auto* log = static_cast<StatusLog*>(context);
    {
        std::lock_guard<std::mutex> guard(log->lock);
        log->codes.push_back(*status);
    }
    log->changed.notify_all();
}

// The library's trace lines while installed. The watcher traces from its own thread and may still
// hold the callback's context just after it is removed, so the one capture is never destroyed.
class TraceCapture {
  public:
    static TraceCapture& start(bool secrets = false) {
        static TraceCapture* capture_ = new TraceCapture;
        capture_->clear();
        trace_set_callback(capture, capture_, secrets);
        return *capture_;
    }
    static void stop() { trace_set_callback(nullptr, nullptr, false); }
    std::string text() {
        std::lock_guard<std::mutex> guard(lock_);
        return text_;
    }
    void clear() {
        std::lock_guard<std::mutex> guard(lock_);
        text_.clear();
    }
    bool wait_for(const std::string& needle) {
        return eventually([&] { return text().find(needle) != std::string::npos; });
    }

  private:
    static void capture(void* context, const char* line) {
        auto* self = static_cast<TraceCapture*>(context);
        std::lock_guard<std::mutex> guard(self->lock_);
        self->text_ += line;
    }
    std::mutex lock_;
    std::string text_;
};

inline platform::ChipPipe* client_pipe(SecureChipClient* client) {
    std::lock_guard<std::mutex> guard(client->lock);
    return client->hPipe;
}

inline bool client_connected(SecureChipClient* client) {
    std::lock_guard<std::mutex> guard(client->lock);
    return client->connected != 0;
}

inline Bytes key_bytes(const std::array<uint8_t, 48>& key) {
    return Bytes(key.begin(), key.end());
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

    std::unique_ptr<chipsim::Simulator> sim_;
    StatusLog log_;
    SecureChipClient* client_ = nullptr;
};

// The same with the simulator serving but no client yet.
class ChipTestWithoutClient : public ChipTest {
    bool connect_at_start() const override { return false; }
};

}  // namespace chiptest
