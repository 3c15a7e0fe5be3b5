// Fuzzes ProcessReceivePacket from an arbitrary starting point. Input: state (1 byte, taken
// mod 10 + 1), modes (1 byte: low 3 bits the WPS mode, next 2 bits the address mode), fragment
// state and offset (1 byte: low 2 bits the state, the rest times 64 the offset), then up to eight
// frames, each a big-endian 2-byte length and that many bytes. Every frame is an exact-size heap
// copy so that any read past it is caught.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "api/context.h"
#include "common/check_codes.h"
#include "wapiwps.h"

namespace {

void reset(const uint8_t* head) {
    StopWPS();
    g_State_Machine = head[0] % 10 + 1;
    g_WPS_mode = head[1] & 0x07;
    g_AddressMode = (head[1] >> 3) & 0x03;
    g_FragState = head[2] & 0x03;
    g_FragOffset = static_cast<uint16_t>((head[2] >> 2) * 64);
    g_EapIdentifier = 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t kHead = 3;
    constexpr int kMaxFrames = 8;
    if (size < kHead) return 0;
    reset(data);
    size_t pos = kHead;
    std::vector<uint8_t> out(WAPIWPS_MAX_FRAME_LEN);
    for (int i = 0; i < kMaxFrames && pos + 2 <= size; ++i) {
        size_t len = (size_t{data[pos]} << 8) | data[pos + 1];
        pos += 2;
        if (len > size - pos) len = size - pos;
        const std::vector<uint8_t> frame(data + pos, data + pos + len);
        pos += len;
        uint32_t out_len = 0xFFFFFFFF;
        const int32_t result = ProcessReceivePacket(
            frame.data(), static_cast<uint32_t>(frame.size()), out.data(), &out_len);
        // Every refusal has its row in the code table, and the status agrees with the result.
        WapiWpsStatus status{};
        status.size = sizeof status;
        if (WapiWps_GetStatus(&status) != 0 || status.lastResult != result) std::abort();
        if (status.lastCode != 0 && find_check_code(status.lastCode) == nullptr) std::abort();
        if (result > WAPIWPS_CHECKER_BASE - 200 && result < WAPIWPS_CHECKER_BASE &&
            status.lastCode != result - WAPIWPS_CHECKER_BASE)
            std::abort();
        if (out_len != 0xFFFFFFFF && out_len > WAPIWPS_MAX_FRAME_LEN) std::abort();
        if (g_FragOffset > kMsgBufLen) std::abort();
        if (g_State_Machine < WAIT_START || g_State_Machine > SEND_ACK_WAIT_FAILURE) std::abort();
    }
    StopWPS();
    return 0;
}
