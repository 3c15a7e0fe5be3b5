// chipsim: runs the secure-chip service simulator until SIGINT/SIGTERM (or, with --for N, for N
// seconds), printing each slot's public key at start and "served N" at the end.
//   chipsim [--seed N] [--socket PATH] [--slots N] [--for SECONDS] [--user NAME]
// --user (POSIX, as root): serve as that account, e.g. to play a local process of another user
// that squats the service's socket.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "chipsim/chipsim.h"

#ifndef _WIN32
#include <grp.h>
#include <pwd.h>
#include <unistd.h>
#endif

namespace {
// Set by SIGINT/SIGTERM so that the socket is removed (or the event reset) on the way out.
volatile std::sig_atomic_t g_stop = 0;
void on_signal(int) {
    g_stop = 1;
}

// Drops to the named account for good; false if that is not possible.
bool become_user(const char* name) {
#ifdef _WIN32
    (void)name;
    return false;
#else
    const passwd* pw = ::getpwnam(name);
    return pw != nullptr && ::setgroups(0, nullptr) == 0 && ::setgid(pw->pw_gid) == 0 &&
           ::setuid(pw->pw_uid) == 0;
#endif
}
}  // namespace

int main(int argc, char** argv) {
    chipsim::Options options;
    long run_for = -1;
    const char* user = nullptr;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--seed") == 0) {
            options.seed = static_cast<uint32_t>(std::strtoul(argv[i + 1], nullptr, 0));
        } else if (std::strcmp(argv[i], "--socket") == 0) {
            options.socket_path = argv[i + 1];
        } else if (std::strcmp(argv[i], "--slots") == 0) {
            options.slots = static_cast<uint32_t>(std::strtoul(argv[i + 1], nullptr, 0));
        } else if (std::strcmp(argv[i], "--user") == 0) {
            user = argv[i + 1];
        } else if (std::strcmp(argv[i], "--for") == 0) {
            run_for = std::strtol(argv[i + 1], nullptr, 0);
        } else {
            std::fprintf(stderr,
                         "usage: chipsim [--seed N] [--socket PATH] [--slots N] [--for S] "
                         "[--user NAME]\n");
            return 2;
        }
    }
    if (user != nullptr && !become_user(user)) {
        std::fprintf(stderr, "chipsim: cannot become %s\n", user);
        return 1;
    }
    chipsim::Simulator sim(options);
    if (!sim.start()) {
        std::fprintf(stderr, "chipsim: cannot serve on %s\n", sim.socket_path().c_str());
        return 1;
    }
    for (uint32_t slot = 0; slot < options.slots; ++slot) {
        auto key = sim.public_key(slot);
        std::printf("slot %u public key ", slot);
        for (uint8_t b : key) std::printf("%02X", b);
        std::printf("\n");
    }
    std::fflush(stdout);
    std::signal(SIGINT, on_signal);
    std::signal(SIGTERM, on_signal);
    const auto start = std::chrono::steady_clock::now();
    while (g_stop == 0 && (run_for < 0 || std::chrono::steady_clock::now() - start <
                                              std::chrono::seconds(run_for)))
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    sim.stop();
    std::printf("served %u\n", sim.requests_served());
    return 0;
}
