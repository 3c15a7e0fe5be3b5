// Fuzzes the reference registrar, which also reads frames from a live link (`wapiwps registrar`).
// A real exchange runs between the enrollee library and the registrar; the enrollee frame whose
// index the first input byte names is replaced by the rest of the input, so that each of the
// registrar's parsers (Identity, M1, M3, M5, M7, Done, NACK, ACK) meets arbitrary bytes in the
// state where it expects its message. The second byte picks the WPS mode.
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "api/context.h"
#include "registrar/registrar.h"
#include "wapiwps.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint8_t kLocal[6] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
constexpr uint8_t kPeer[6] = {0x02, 0x66, 0x77, 0x88, 0x99, 0xAA};
constexpr size_t kMaxRounds = 24;

registrar::Config config_for(uint32_t wps_mode) {
    registrar::Config c;
    c.wps_mode = wps_mode;
    c.enrollee_address.assign(kLocal, kLocal + 6);
    c.network_key = {'f', 'u', 'z', 'z', '-', 'k', 'e', 'y'};
    c.cert_list = {'c', 'e', 'r', 't'};
    c.require_signature = false;
    for (size_t i = 0; i < c.uuid_r.size(); ++i) c.uuid_r[i] = static_cast<uint8_t>(0x50 + i);
    return c;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2 || size > 4096) return 0;
    const size_t replaced = data[0] % 8;
    const uint32_t wps_mode = 1 + data[1] % 3;
    const Bytes fuzz_frame(data + 2, data + size);

    static const uint8_t uuid[16] = {0xE0};
    static const wapiwps_utf16 name[] = {'f', 'u', 'z', 'z', 0};
    SetDeviceInfo(uuid, name);
    uint8_t out[WAPIWPS_MAX_FRAME_LEN];
    uint32_t out_len = 0;
    if (!StartWPS(kLocal, WAPIWPS_ADDRESS_MAC, static_cast<int32_t>(wps_mode), kPeer, nullptr, out,
                  &out_len))
        return 0;
    g_FragOffset = 0;

    registrar::Registrar reg(config_for(wps_mode));
    Bytes to_registrar(out + WAPIWPS_PREFIX_LEN, out + out_len);
    for (size_t round = 0; round < kMaxRounds; ++round) {
        const Bytes& frame = round == replaced ? fuzz_frame : to_registrar;
        std::vector<Bytes> answers;
        if (reg.handle(std::span<const uint8_t>(frame.data(), frame.size()), answers) !=
                registrar::Status::Continue ||
            answers.empty())
            break;
        to_registrar.clear();
        for (const Bytes& a : answers) {
            out_len = 0;
            ProcessReceivePacket(a.data(), static_cast<uint32_t>(a.size()), out, &out_len);
            if (out_len > WAPIWPS_PREFIX_LEN)
                to_registrar.assign(out + WAPIWPS_PREFIX_LEN, out + out_len);
        }
        if (to_registrar.empty()) break;
    }
    StopWPS();
    return 0;
}
