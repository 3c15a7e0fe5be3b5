// The registrar's state for one exchange, shared by its dispatcher and its message code.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "crypto.h"
#include "registrar/registrar.h"
#include "wire.h"

namespace registrar {

// One exchange's state (the body of Registrar::Impl).
struct Session {
    enum class Phase {
        Idle,          // waiting for EAPOL-Start
        WaitIdentity,  // Request/Identity sent
        WaitM1,        // Start sent
        WaitM3,
        WaitM5,
        WaitM7,
        WaitFragAck,   // an M8 fragment with more to follow sent
        WaitDone,      // M8 (or its last fragment) sent
        WaitM2dAck,    // M2D sent
        WaitNackReply, // a NACK sent in place of a message
        Finished,
    };

    explicit Session(Config c);

    Config config;
    Outcome outcome;
    std::string last_error;
    Phase phase = Phase::Idle;
    const wire::Flavour& flavour;
    uint8_t next_id = 0;    // identifier of the next request
    uint8_t last_id = 0;    // identifier of the last request sent

    // Learnt from M1.
    std::array<uint8_t, 16> uuid_e{};
    std::array<uint8_t, 16> n1{};
    std::array<uint8_t, 128> enrollee_public{};   // first key x || y, then temporary key x || y
    Bytes enrollee_address;

    // Own material.
    std::array<uint8_t, 16> n2{};
    crypto::Sm2KeyPair own, own_temp;
    crypto::SessionKeys keys;
    std::array<uint8_t, 16> psk1{}, psk2{};        // first 16 bytes of HMAC(AuthKey, PIN half)
    std::array<uint8_t, 16> r_s1{}, r_s2{};
    crypto::Digest e_hash1{}, e_hash2{};
    Bytes prev;                                    // last message sent or accepted

    // M8 in fragments.
    std::vector<Bytes> fragments;
    size_t next_fragment = 0;

    bool refuse(std::string why) {
        last_error = std::move(why);
        return false;
    }

    // ---- Frames (registrar.cpp) ----
    Bytes request(uint8_t op_code, std::span<const uint8_t> message);

    // ---- Received messages (messages_in.cpp); false with last_error set when refused ----
    bool accept_m1(std::span<const uint8_t> body);
    bool accept_m3(std::span<const uint8_t> body);
    bool accept_m5(std::span<const uint8_t> body);
    bool accept_m7(std::span<const uint8_t> body);
    bool accept_done(std::span<const uint8_t> body);
    bool accept_nack(std::span<const uint8_t> body);

    // ---- Sent messages (messages_out.cpp) ----
    bool prepare_keys();                            // after M1: key pairs, agreement, schedule
    Bytes build_m2();
    Bytes build_m2d();
    Bytes build_m4();
    Bytes build_m6();
    Bytes build_m8();
    Bytes build_nack(uint16_t config_error);
    // Splits M8 (with its trailer) into request frames; false when no legal split fits.
    bool fragment_m8(std::span<const uint8_t> body);

    // ---- Shared helpers (messages_out.cpp) ----
    void begin_message(Bytes& body, wire::AttrWriter& w, uint8_t message);
    void finish_with_authenticator(Bytes& body, uint8_t message);
    void pad_settings(Bytes& settings, uint8_t message) const;
    void add_key_wrap_auth(Bytes& settings, uint8_t message) const;
    Bytes seal(std::span<const uint8_t> plain) const;
    // The sealed settings of M4 and M6: one secret nonce (R-S1 or R-S2) and its Key Wrap
    // Authenticator, padded, with the WrongSecretNonce fault applied for `message`.
    Bytes seal_secret_nonce(uint16_t type, const std::array<uint8_t, 16>& nonce, uint8_t message);
    crypto::Digest r_hash(std::span<const uint8_t> secret, std::span<const uint8_t> psk) const;
    bool faulty(Fault::Kind kind, uint8_t message) const {
        return config.fault.kind == kind && config.fault.message == message;
    }
};

}  // namespace registrar
