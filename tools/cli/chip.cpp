// The in-process secure-chip simulator behind --secure-chip.
#include "chip.h"

#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

#if defined(WAPIWPS_CLI_HAVE_CHIPSIM) && __has_include("chipsim/chipsim.h")
#include "chipsim/chipsim.h"
#define WAPIWPS_CLI_CHIPSIM 1
#endif

namespace cli {

#if defined(WAPIWPS_CLI_CHIPSIM)
namespace {

// Linux lists every socket bound to a path in /proc/net/unix; a connection accepted by the
// service shows the listening path too, so more than one entry means a client is connected.
int sockets_on_path(const std::string& path) {
    std::ifstream in("/proc/net/unix");
    std::string line;
    int count = 0;
    while (std::getline(in, line)) {
        if (line.size() > path.size() &&
            line.compare(line.size() - path.size(), path.size(), path) == 0 &&
            line[line.size() - path.size() - 1] == ' ') {
            ++count;
        }
    }
    return count;
}

}  // namespace
#endif

struct ChipService::Impl {
    std::string dir;
    std::string socket_path;
#if defined(WAPIWPS_CLI_CHIPSIM)
    std::unique_ptr<chipsim::Simulator> sim;
#endif
};

ChipService::ChipService() : impl_(std::make_unique<Impl>()) {}

ChipService::~ChipService() {
#if defined(WAPIWPS_CLI_CHIPSIM)
    if (impl_->sim) {
        impl_->sim->stop();
        impl_->sim.reset();
    }
#endif
    if (!impl_->socket_path.empty()) {
        unlink(impl_->socket_path.c_str());
    }
    if (!impl_->dir.empty()) {
        rmdir(impl_->dir.c_str());
    }
}

bool ChipService::start(std::string& error) {
#if defined(WAPIWPS_CLI_CHIPSIM)
    char dir[] = "/tmp/wapiwps-chip-XXXXXX";
    if (mkdtemp(dir) == nullptr) {
        error = "cannot create a temporary directory for the service socket";
        return false;
    }
    impl_->dir = dir;
    impl_->socket_path = impl_->dir + "/QMX470_pipe";
    // The library's client finds the service through this variable.
    setenv("WAPIWPS_SECURECHIP_SOCKET", impl_->socket_path.c_str(), 1);
    chipsim::Options options;
    options.socket_path = impl_->socket_path;
    impl_->sim = std::make_unique<chipsim::Simulator>(options);
    if (!impl_->sim->start()) {
        error = "the simulator did not start on " + impl_->socket_path;
        return false;
    }
    return true;
#else
    error = "the secure-chip simulator is not part of this build";
    return false;
#endif
}

void ChipService::wait_for_client() {
#if defined(WAPIWPS_CLI_CHIPSIM)
    // The library's watcher polls for the service every 500 ms; wait for its connection, bounded.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    while (impl_->sim && sockets_on_path(impl_->socket_path) < 2 &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
#endif
}

}  // namespace cli
