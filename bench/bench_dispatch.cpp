// Time ProcessReceivePacket takes to answer an Identity request, a Start (M1, or the drop when
// the key agreement session cannot start) and an M2D (ACK).
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "api/context.h"
#include "wapiwps.h"

namespace {

const uint8_t kPeer[6] = {0, 0x11, 0x22, 0x33, 0x44, 0x55};
const uint8_t kLocal[6] = {0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB};

std::vector<uint8_t> wapi_message(uint8_t opcode, const std::vector<uint8_t>& body) {
    const uint16_t len = static_cast<uint16_t>(body.size() + 14);
    const uint8_t header[18] = {2,
                                0,
                                uint8_t(len >> 8),
                                uint8_t(len),
                                1,
                                7,
                                uint8_t(len >> 8),
                                uint8_t(len),
                                242,
                                0x00,
                                0x81,
                                0xDB,
                                0,
                                0,
                                0,
                                1,
                                opcode,
                                0};
    std::vector<uint8_t> f(sizeof header + body.size());
    std::memcpy(f.data(), header, sizeof header);
    if (!body.empty()) std::memcpy(f.data() + sizeof header, body.data(), body.size());
    return f;
}

void run(benchmark::State& state, const std::vector<uint8_t>& frame, uint32_t fromState) {
    std::vector<uint8_t> out(WAPIWPS_MAX_FRAME_LEN);
    uint32_t len = 0;
    StartWPS(kLocal, WAPIWPS_ADDRESS_MAC, WAPIWPS_MODE_WAPI_CERT, kPeer, nullptr, out.data(), &len);
    for (auto _ : state) {
        g_State_Machine = fromState;
        benchmark::DoNotOptimize(
            ProcessReceivePacket(frame.data(), uint32_t(frame.size()), out.data(), &len));
        benchmark::ClobberMemory();
    }
    StopWPS();
}

void BM_IdentityRequest(benchmark::State& state) {
    run(state, {0x02, 0x00, 0x00, 0x05, 0x01, 0x07, 0x00, 0x05, 0x01}, WAIT_REQUEST_IDENTITY);
}
void BM_Start(benchmark::State& state) {
    run(state, wapi_message(1, {}), WAIT_WPS_START);
}
void BM_M2D(benchmark::State& state) {
    run(state, wapi_message(4, {0x10, 0x4A, 0x00, 0x01, 0x10, 0x10, 0x22, 0x00, 0x01, 0x06}),
        WAIT_M2);
}

}  // namespace

BENCHMARK(BM_IdentityRequest);
BENCHMARK(BM_Start);
BENCHMARK(BM_M2D);
BENCHMARK_MAIN();
