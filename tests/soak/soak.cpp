// Soak: many whole exchanges in one process against the reference registrar, cycling through
// every way a run can go (pre-shared key, certificate modes 1 and 2, the secure chip, M8 in
// fragments, a registrar NACK, M2D, a wrong PIN). Built for `make soak` under ASan+LSan and
// valgrind, not for `make test`: what it looks for is a leak, a stale field or a crash that
// shows only after thousands of runs, so each run checks its own outcome and the program stops
// at the first one that goes wrong.
//   soak [COUNT]   (default 1000)
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "common/exchange.h"
#include "wapiwps.h"

#if defined(WAPIWPS_HAVE_CHIPSIM) && !defined(_WIN32)
#include "chipsim/chipsim.h"
#define SOAK_WITH_CHIP 1
#else
#define SOAK_WITH_CHIP 0
#endif

namespace {

using exchange::Bytes;
using Kind = registrar::Fault::Kind;

struct Scenario {
    const char* name;
    exchange::Options (*options)(const Bytes& held_key);
    int32_t expected_result;  // the last ProcessReceivePacket result
    bool chip;
};

exchange::Options with_fault(Kind kind, uint8_t message) {
    exchange::Options o = exchange::psk_run();
    o.registrar.fault.kind = kind;
    o.registrar.fault.message = message;
    return o;
}

const Scenario kScenarios[] = {
    {"psk", [](const Bytes&) { return exchange::psk_run(); }, WAPIWPS_RESULT_SUCCESS, false},
    {"cert1", [](const Bytes&) { return exchange::cert_run(1); }, WAPIWPS_RESULT_SUCCESS, false},
    {"cert2", [](const Bytes& k) { return exchange::cert_run(2, k); }, WAPIWPS_RESULT_SUCCESS, false},
    {"fragmented-m8",
     [](const Bytes&) {
         exchange::Options o = exchange::cert_run(1);
         o.registrar.m8_split_index = 1000;  // two fragments, split just before the trailer
         return o;
     },
     WAPIWPS_RESULT_SUCCESS, false},
    {"registrar-nack", [](const Bytes&) { return with_fault(Kind::SendNack, 0x08); }, WAPIWPS_RESULT_ENDED, false},
    {"m2d", [](const Bytes&) { return with_fault(Kind::SendM2D, 0x05); }, WAPIWPS_RESULT_ENDED, false},
    {"wrong-pin",
     [](const Bytes&) {
         exchange::Options o = exchange::psk_run();
         o.registrar_pin = "87654321";
         return o;
     },
     WAPIWPS_RESULT_ENDED, false},
#if SOAK_WITH_CHIP
    // The service simulator in-process; the client connects on its watcher thread.
    {"secure-chip",
     [](const Bytes&) {
         exchange::Options o = exchange::cert_run(1);
         o.secure_chip = true;
         o.after_start = exchange::wait_chip_connected;
         o.registrar.require_signature = true;
         return o;
     },
     WAPIWPS_RESULT_SUCCESS, true},
#endif
};

}  // namespace

int main(int argc, char** argv) {
    const long count = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 1000;
    if (count <= 0) {
        std::fprintf(stderr, "usage: soak [COUNT]\n");
        return 2;
    }
#if SOAK_WITH_CHIP
    exchange::use_own_chip_socket("soak");
    chipsim::Simulator sim;
    if (!sim.start()) {
        std::fprintf(stderr, "soak: the secure-chip simulator did not start\n");
        return 1;
    }
#endif
    // Certificate mode 2 signs with the key a mode-1 run left behind: the first run makes it.
    Bytes known_key;
    const size_t kinds = sizeof kScenarios / sizeof kScenarios[0];
    std::vector<long> runs(kinds, 0);
    const auto start = std::chrono::steady_clock::now();
    for (long i = 0; i < count; ++i) {
        const Scenario& s = kScenarios[static_cast<size_t>(i) % kinds];
        const exchange::Transcript t = exchange::run(s.options(known_key));
        if (t.last_result() != s.expected_result || t.registrar_refused) {
            std::fprintf(stderr, "soak: run %ld (%s) ended with %d, expected %d%s%s\n", i, s.name,
                         t.last_result(), s.expected_result,
                         t.registrar_refused ? "; registrar: " : "", t.registrar_error.c_str());
            std::printf("soak: 0 passed, 1 failed\n");
            return 1;
        }
        if (!s.chip && t.outcome.signing_public_key.size() == 48) known_key = t.outcome.signing_public_key;
        ++runs[static_cast<size_t>(i) % kinds];
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
#if SOAK_WITH_CHIP
    sim.stop();
#endif
    for (size_t k = 0; k < kinds; ++k) std::printf("  %-16s %ld runs\n", kScenarios[k].name, runs[k]);
    std::printf("soak: %ld exchanges in %.1f s (%.1f per second)\n", count, seconds, count / seconds);
    std::printf("soak: %ld passed, 0 failed\n", count);
    return 0;
}
