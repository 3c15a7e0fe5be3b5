// The in-process exchange harness.
#include "common/exchange.h"

#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>

#include "api/context.h"
#include "platform/platform.h"
#include "signing/securechip.h"
#include "wapiwps.h"

#ifndef _WIN32
#include <unistd.h>
#endif

namespace exchange {

namespace {

constexpr size_t kFrameCap = WAPIWPS_MAX_FRAME_LEN;
constexpr size_t kMaxFrames = 64;  // a run that goes on longer is stuck

void collect_trace(void* context, const char* line) {
    static_cast<std::vector<std::string>*>(context)->push_back(line);
}

// Strips and checks the MAC-mode prefix of a frame the library wrote.
Bytes strip_prefix(const Options& o, const uint8_t* out, uint32_t len, bool& prefix_ok) {
    if (o.address_mode != WAPIWPS_ADDRESS_MAC) return Bytes(out, out + len);
    if (len < WAPIWPS_PREFIX_LEN) {
        prefix_ok = false;
        return {};
    }
    const bool ok = o.peer.size() == 6 && std::memcmp(out, o.peer.data(), 6) == 0 && out[6] == 0x89 && out[7] == 0x1B;
    prefix_ok = prefix_ok && ok;
    return Bytes(out + WAPIWPS_PREFIX_LEN, out + len);
}

void read_cert_results(Transcript& t, bool chip) {
    std::vector<uint8_t> list(4096);
    std::array<uint8_t, 128> extra{};
    uint16_t list_len = 0, extra_len = 0;
    if (chip) {
        t.cert_rc = GetWPSResult_Cert_SecureChip(t.cert_uuid_r.data(), list.data(), &list_len, &t.cert_count,
                                                 extra.data(), &extra_len, &t.cert_key_index,
                                                 t.cert_public_key.data());
    } else {
        t.cert_rc = GetWPSResult_Cert(t.cert_uuid_r.data(), list.data(), &list_len, &t.cert_count, extra.data(),
                                      &extra_len, t.cert_private_key.data(), t.cert_public_key.data());
    }
    if (t.cert_rc == 0) t.cert_list.assign(list.begin(), list.begin() + std::min<size_t>(list_len, list.size()));
}

void read_psk(int32_t& rc, Bytes& key) {
    std::array<uint8_t, 64> buf{};
    uint16_t len = 0;
    rc = GetWPSResult_PSK(buf.data(), &len);
    if (rc == 0) key.assign(buf.begin(), buf.begin() + std::min<size_t>(len, buf.size()));
}

}  // namespace

bool Transcript::has_trace(const std::string& text) const {
    for (const std::string& line : trace) {
        if (line.find(text) != std::string::npos) return true;
    }
    return false;
}

Bytes text(const std::string& s) { return Bytes(s.begin(), s.end()); }

Options psk_run() {
    Options o;
    o.wps_mode = WAPIWPS_MODE_WAPI_PSK;
    o.pin = "12345670";
    o.registrar.network_key = text("network-key");
    return o;
}

Options cert_run(uint8_t certificate_mode, const Bytes& held_public_key) {
    Options o = psk_run();
    o.wps_mode = WAPIWPS_MODE_WAPI_CERT;
    o.registrar.uuid_r = kUuidR;
    o.registrar.certificate_mode = certificate_mode;
    o.registrar.cert_count = 2;
    o.registrar.cert_list = {0x30, 0x03, 0x02, 0x01, 0x01};
    o.registrar.known_public_key = held_public_key;
    o.registrar.require_signature = false;
    if (certificate_mode == 2) o.identities = {Identity{kUuidR, Bytes(100, 0x5A)}};
    return o;
}

Transcript run(Options o) {
    Transcript t;
    if (o.record_trace) trace_set_callback(collect_trace, &t.trace, false);

    // The registrar holds the same password and knows the enrollee's mode.
    registrar::Config rc = o.registrar;
    rc.wps_mode = static_cast<uint32_t>(o.wps_mode);
    rc.address_mode = static_cast<uint32_t>(o.address_mode);
    rc.pin = o.registrar_pin.value_or(o.pin.value_or("00000000"));
    registrar::Registrar reg(rc);

    // The device name as UTF-16 with its terminator.
    const wapiwps_utf16 name[] = {'e', 'n', 'r', 'o', 'l', 'l', 'e', 'e', 0};
    SetDeviceInfo(o.uuid_e.data(), name);
    if (!o.identities.empty()) {
        Bytes entries(o.identities.size() * WAPIWPS_IDENTITY_ENTRY_LEN, 0);
        for (size_t i = 0; i < o.identities.size(); ++i) {
            uint8_t* e = entries.data() + i * WAPIWPS_IDENTITY_ENTRY_LEN;
            const Identity& id = o.identities[i];
            const auto len = static_cast<uint16_t>(std::min<size_t>(id.data.size(), WAPIWPS_IDENTITY_DATA_MAX));
            std::memcpy(e, id.uuid.data(), 16);
            std::memcpy(e + 16, &len, 2);   // host byte order, as the entry layout says
            std::memcpy(e + 18, id.data.data(), len);
        }
        SetCertIdentityStruct2(static_cast<uint8_t>(o.identities.size()), entries.data());
    }
    g_FragOffset = 0;  // the library never resets it (deliberately); each run starts clean

    // The peer argument: 6 bytes, or a NUL-terminated text; the local address likewise padded.
    Bytes peer = o.peer;
    if (o.address_mode != WAPIWPS_ADDRESS_MAC) peer.push_back(0);
    Bytes local = o.local_address;
    local.resize(std::max<size_t>(local.size(), 16), 0);

    std::vector<uint8_t> out(kFrameCap);
    uint32_t out_len = 0;
    const char* pin = o.pin ? o.pin->c_str() : nullptr;
    if (o.secure_chip) {
        // A failed client still leaves the run started (with software signing).
        t.start_result = StartWPS_SecureChip(local.data(), o.address_mode, o.wps_mode, peer.data(), pin,
                                             out.data(), &out_len);
    } else {
        t.start_result = StartWPS(local.data(), o.address_mode, o.wps_mode, peer.data(), pin, out.data(), &out_len);
        if (t.start_result == 0) {
            trace_set_callback(nullptr, nullptr, false);
            return t;
        }
    }
    if (o.after_start) o.after_start();
    std::deque<Bytes> to_registrar;
    to_registrar.push_back(strip_prefix(o, out.data(), out_len, t.prefix_ok));

    size_t frames = 0;
    while (!to_registrar.empty() && frames < kMaxFrames) {
        const Bytes frame = std::move(to_registrar.front());
        to_registrar.pop_front();
        if (o.before_registrar) o.before_registrar(reg, frame, frames);
        ++frames;
        std::vector<registrar::Bytes> replies;
        const registrar::Status status = reg.handle(frame, replies);
        t.steps.push_back(Step{false, frame, 0, 0, status});
        if (status == registrar::Status::Refused) {
            t.registrar_refused = true;
            t.registrar_error = reg.last_error();
            break;
        }
        for (const registrar::Bytes& reply : replies) {
            out_len = 0;
            if (o.around_enrollee) o.around_enrollee(reply, true);
            const int32_t result =
                ProcessReceivePacket(reply.data(), static_cast<uint32_t>(reply.size()), out.data(), &out_len);
            if (o.around_enrollee) o.around_enrollee(reply, false);
            t.results.push_back(result);
            t.steps.push_back(Step{true, reply, result, g_State_Machine, registrar::Status::Continue});
            if (result == WAPIWPS_RESULT_M8_DONE) {
                t.m8_done = true;
                if (o.wps_mode == WAPIWPS_MODE_WAPI_CERT) read_cert_results(t, o.secure_chip);
                else read_psk(t.psk_rc, t.psk);
            }
            const bool answered = out_len > 0 && result != WAPIWPS_RESULT_SUCCESS && result != WAPIWPS_RESULT_ENDED &&
                                  (result == WAPIWPS_RESULT_ACCEPTED || result == WAPIWPS_RESULT_M8_DONE ||
                                   result == WAPIWPS_RESULT_DROPPED);
            if (answered) to_registrar.push_back(strip_prefix(o, out.data(), out_len, t.prefix_ok));
        }
        if (status == registrar::Status::Finished) {
            t.registrar_finished = true;
            break;
        }
    }
    t.outcome = reg.outcome();
    t.final_state = g_State_Machine;
    read_psk(t.psk_rc_after, t.psk_after);
    trace_set_callback(nullptr, nullptr, false);
    return t;
}

void use_own_chip_socket(const char* program) {
#ifndef _WIN32
    const std::string path = "/tmp/wapiwps_" + std::string(program) + "_" + std::to_string(::getpid()) + ".sock";
    ::setenv("WAPIWPS_SECURECHIP_SOCKET", path.c_str(), 1);
#else
    (void)program;
#endif
}

void wait_chip_connected() {
    eventually([] {
        if (g_SecureChipClient == nullptr) return false;
        std::lock_guard<std::mutex> guard(g_SecureChipClient->lock);
        return g_SecureChipClient->connected != 0;
    });
}

}  // namespace exchange
