// Whole exchanges against the reference registrar in one process, PSK and certificate modes:
// the enrollee's answer time for each received message, and per exchange the time inside the
// enrollee's ProcessReceivePacket split into the ZEV library's calls (timed through link-time
// wrappers, bench/CMakeLists.txt) and our own code. The iteration's CPU time is a whole exchange,
// both sides included (one thread), so its inverse is exchanges per second on one core.
#include <benchmark/benchmark.h>

#include <time.h>

#include <map>
#include <string>

#include "common/exchange.h"
#include "wapiwps.h"
#include "common/zev_wrap.h"

namespace {

// Everything is timed in the thread's CPU time, since the machine may be shared. A read of that
// clock is a system call of a few hundred ns, so the figures are corrected by the reads each
// bucket contains, at a cost per read measured at the start.
int64_t cpu_now_ns() {
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return int64_t{ts.tv_sec} * 1000000000 + ts.tv_nsec;
}
double clock_read_ns() {
    constexpr int kReads = 20000;
    const int64_t start = cpu_now_ns();
    for (int i = 0; i < kReads; ++i) benchmark::DoNotOptimize(cpu_now_ns());
    return static_cast<double>(cpu_now_ns() - start) / kReads;
}

bool g_inside_enrollee = false;
int64_t g_zev_enrollee_ns = 0;  // ZEV time inside the enrollee's calls
int64_t g_zev_all_ns = 0;       // ZEV time of both sides
int64_t g_zev_enrollee_calls = 0;
int64_t g_zev_all_calls = 0;

int64_t g_zev_start = 0;

int64_t since(int64_t start) {
    return cpu_now_ns() - start;
}

}  // namespace

// The ZEV calls of both sides, wrapped at link time (tests/common/zev_wrap.cpp).
void zev_wrap_enter() {
    g_zev_start = cpu_now_ns();
}
void zev_wrap_leave() {
    const int64_t ns = since(g_zev_start);
    g_zev_all_ns += ns;
    ++g_zev_all_calls;
    if (g_inside_enrollee) {
        g_zev_enrollee_ns += ns;
        ++g_zev_enrollee_calls;
    }
}

namespace {

constexpr std::array<uint8_t, 16> kUuidR = {0xC0, 0xC1, 0xC2, 0xC3, 0xC4, 0xC5, 0xC6, 0xC7,
                                            0xC8, 0xC9, 0xCA, 0xCB, 0xCC, 0xCD, 0xCE, 0xCF};

// The received frame's name: EAP code and type, then the Simple Config op-code and Message Type.
std::string frame_name(const exchange::Bytes& f) {
    if (f.size() > 4 && f[4] == 4) return "Failure";
    if (f.size() > 8 && f[4] == 1 && f[8] == 1) return "Identity";
    if (f.size() > 16 && f[16] == 1) return "Start";
    if (f.size() > 27 && f[16] == 4) {
        switch (f[27]) {
            case 0x05: return "M2";
            case 0x08: return "M4";
            case 0x0A: return "M6";
            case 0x0C: return "M8";
        }
    }
    return "Other";
}

void run_exchanges(benchmark::State& state, exchange::Options o) {
    o.record_trace = false;
    std::map<std::string, int64_t> per_message_ns;
    int64_t enrollee_ns = 0, enrollee_calls = 0;
    const double read_ns = clock_read_ns();
    int64_t call_start = 0;
    o.around_enrollee = [&](const exchange::Bytes& frame, bool before) {
        if (before) {
            g_inside_enrollee = true;
            call_start = cpu_now_ns();
            return;
        }
        const int64_t ns = since(call_start);
        g_inside_enrollee = false;
        enrollee_ns += ns;
        ++enrollee_calls;
        per_message_ns[frame_name(frame)] += ns;
    };
    g_zev_enrollee_ns = g_zev_all_ns = g_zev_enrollee_calls = g_zev_all_calls = 0;
    const int64_t bench_start = cpu_now_ns();
    for (auto _ : state) {
        const exchange::Transcript t = exchange::run(o);
        if (t.last_result() != WAPIWPS_RESULT_SUCCESS) {
            state.SkipWithError(("exchange failed: " + t.registrar_error).c_str());
            break;
        }
    }
    // A timed span holds about one clock read of its own; the enrollee's span also holds both
    // reads of every ZEV call inside it.
    const double zev_enrollee = g_zev_enrollee_ns - read_ns * g_zev_enrollee_calls;
    const double own = enrollee_ns - g_zev_enrollee_ns - read_ns * (enrollee_calls + g_zev_enrollee_calls);
    const auto avg = benchmark::Counter::kAvgIterations;
    const double us = 1e-3;
    for (const auto& [name, ns] : per_message_ns) state.counters[name + "_us"] = benchmark::Counter(ns * us, avg);
    state.counters["enrollee_us"] = benchmark::Counter((own + zev_enrollee) * us, avg);
    state.counters["enrollee_zev_us"] = benchmark::Counter(zev_enrollee * us, avg);
    state.counters["enrollee_own_us"] = benchmark::Counter(own * us, avg);
    state.counters["zev_both_sides_us"] =
        benchmark::Counter((g_zev_all_ns - read_ns * g_zev_all_calls) * us, avg);
    state.counters["clock_read_ns"] = read_ns;
    // Per CPU second of this thread, which runs both sides.
    state.counters["exchanges_per_cpu_s"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * 1e9 / static_cast<double>(cpu_now_ns() - bench_start));
}

exchange::Options psk() {
    exchange::Options o;
    o.wps_mode = WAPIWPS_MODE_WAPI_PSK;
    o.pin = "12345670";
    o.registrar.network_key = {'b', 'e', 'n', 'c', 'h'};
    return o;
}

exchange::Options cert1() {
    exchange::Options o = psk();
    o.wps_mode = WAPIWPS_MODE_WAPI_CERT;
    o.registrar.uuid_r = kUuidR;
    o.registrar.certificate_mode = 1;
    o.registrar.cert_list = {0x30, 0x82, 0x01, 0x0A, 0xDE, 0xAD, 0xBE, 0xEF, 0x30, 0x03, 0x01};
    // The registrar checks the signature, but about one key in 85 is published short on purpose
    // (the minimal-form quirk) and its signature cannot verify: such runs still complete.
    o.registrar.require_signature = false;
    return o;
}

void BM_Exchange_Psk(benchmark::State& state) {
    run_exchanges(state, psk());
}
void BM_Exchange_Cert1(benchmark::State& state) {
    run_exchanges(state, cert1());
}
BENCHMARK(BM_Exchange_Psk)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Exchange_Cert1)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
