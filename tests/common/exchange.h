// The in-process exchange: the enrollee library driven against a reference Registrar, frame by
// frame, with every frame, result, state and trace line recorded. StartWPS, then frames back and
// forth through ProcessReceivePacket (the 8-byte prefix stripped in MAC mode) until the
// registrar finishes or refuses, or a side falls silent.
#pragma once

#include <array>
#include <chrono>
#include <functional>
#include <cstdint>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "registrar/registrar.h"

namespace exchange {

using Bytes = std::vector<uint8_t>;

struct Identity {
    std::array<uint8_t, 16> uuid{};
    Bytes data;   // at most 1024 bytes
};

struct Options {
    int32_t wps_mode = 3;
    int32_t address_mode = 0;                          // 0 MAC, 1 IPv4, 2 text
    Bytes local_address = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};  // 6, 4 or up to 16 text bytes
    Bytes peer = {0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB};           // MAC: 6 bytes; else text
    std::optional<std::string> pin;                    // nothing: StartWPS without a PIN
    std::optional<std::string> registrar_pin;          // nothing: the enrollee's password
    std::array<uint8_t, 16> uuid_e = {0xE0, 0xE1, 0xE2, 0xE3, 0xE4, 0xE5, 0xE6, 0xE7,
                                      0xE8, 0xE9, 0xEA, 0xEB, 0xEC, 0xED, 0xEE, 0xEF};
    std::vector<Identity> identities;                  // SetCertIdentityStruct2 when not empty
    bool secure_chip = false;                          // StartWPS_SecureChip, chip getters
    std::function<void()> after_start;                 // e.g. wait for the chip client
    registrar::Config registrar;                       // pin and modes are filled in
    // Called with the registrar and each enrollee frame (its index counted from 0) just before the
    // frame is handed over: tests use it to slip other frames in first.
    std::function<void(registrar::Registrar&, const Bytes&, size_t)> before_registrar;
    // Called with each registrar frame just before (true) and just after (false) the enrollee's
    // ProcessReceivePacket: the allocation test and the exchange benchmark measure inside it.
    std::function<void(const Bytes&, bool)> around_enrollee;
    bool record_trace = true;  // false: no trace callback, so the host side allocates nothing
};

// One frame and what its receiver made of it.
struct Step {
    bool to_enrollee = false;
    Bytes frame;                      // as sent, from the EAPOL header (prefix stripped)
    int32_t result = 0;               // enrollee: ProcessReceivePacket's result
    uint32_t state_after = 0;         // enrollee: g_State_Machine after the call
    registrar::Status status = registrar::Status::Continue;   // registrar
};

struct Transcript {
    std::vector<Step> steps;
    std::vector<int32_t> results;     // every ProcessReceivePacket result, in order
    std::vector<std::string> trace;   // the library's trace lines
    bool prefix_ok = true;            // MAC mode: every enrollee frame carried peer, 0x89, 0x1B
    bool registrar_finished = false;
    bool registrar_refused = false;
    std::string registrar_error;
    registrar::Outcome outcome;
    uint32_t final_state = 0;

    // Results read when ProcessReceivePacket returned 1 (before the closing EAP-Failure).
    bool m8_done = false;
    int32_t psk_rc = -2;
    Bytes psk;
    int32_t cert_rc = -2;
    std::array<uint8_t, 16> cert_uuid_r{};
    Bytes cert_list;
    uint16_t cert_count = 0;
    std::array<uint8_t, 24> cert_private_key{};
    std::array<uint8_t, 48> cert_public_key{};
    uint32_t cert_key_index = 0;                        // chip runs
    int32_t start_result = -1;                          // StartWPS or StartWPS_SecureChip
    // After the run: the PSK getter (which still answers after StopWPS).
    int32_t psk_rc_after = -2;
    Bytes psk_after;

    int32_t last_result() const { return results.empty() ? 0 : results.back(); }
    bool has_trace(const std::string& text) const;
    // Configuration Error of the enrollee's NACK as the registrar read it (little-endian).
    uint16_t nack_error() const { return outcome.nack_config_error; }
};

// The registrar's UUID in the ready-made certificate runs.
inline constexpr std::array<uint8_t, 16> kUuidR = {0xC0, 0xC1, 0xC2, 0xC3, 0xC4, 0xC5, 0xC6, 0xC7,
                                                   0xC8, 0xC9, 0xCA, 0xCB, 0xCC, 0xCD, 0xCE, 0xCF};

// Ready-made runs: the pre-shared key, and certificate mode 1 without an identity or mode 2 with
// a 100-byte identity for kUuidR, signed with the key pair an earlier mode-1 run left behind
// (`held_public_key`). The registrar lets a signature that does not verify pass: about one
// software key in 85 is published short on purpose.
Options psk_run();
Options cert_run(uint8_t certificate_mode, const Bytes& held_public_key = {});

// Runs one exchange. Installs a trace callback for its duration and restores the default after.
Transcript run(Options options);

// Polls a condition (every 2 ms, for at most 10 s) and gives its last value: for state that another
// thread, such as the secure-chip watcher, changes.
template <typename Pred>
bool eventually(Pred pred) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
        if (pred()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return pred();
}

// Points the secure-chip client and the simulator at a socket of this process's own, so that
// test programs running side by side never meet. Windows has one fixed pipe name: nothing to do.
void use_own_chip_socket(const char* program);

// Waits (at most 10 s) until the newest secure-chip client has connected to its service: the
// Options::after_start of chip runs.
void wait_chip_connected();

// Text address helper: the bytes of a string, without NUL.
Bytes text(const std::string& s);

}  // namespace exchange
