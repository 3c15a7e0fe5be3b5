// The reference registrar: the other half of the registration exchange, written as a registrar's
// developer would, independent of the enrollee library's internals (libgcrypt for SM4-OFB,
// HMAC-SM3 and ECDSA; the ZEV stand-in's responder function for the SM2 key agreement).
//
// It plays the authenticator too: EAPOL-Start is answered with EAP Request/Identity, the
// Response/Identity with Start, M1 with M2 ... M7 with M8 (whole or in fragments), Done, NACK or
// the ACK of M2D with EAP-Failure. It never does I/O: frames go in and out as byte vectors that
// start at the EAPOL header (no link layer, no 8-byte prefix).
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace registrar {

using Bytes = std::vector<uint8_t>;

// One deliberate misbehaviour at a time, for tests. `message` is the Message Type the fault
// applies to (0x05 M2, 0x08 M4, 0x0A M6, 0x0C M8); `attribute` the attribute type where relevant.
struct Fault {
    enum class Kind {
        None,
        WrongPin,             // derive the registrar's hashes from a different device password
        OmitAttribute,        // leave `attribute` out of `message`
        OversizeAttribute,    // give `attribute` in `message` one byte more than its width
        CorruptAttribute,     // flip the first value byte of `attribute` in `message`
        BadAuthenticator,     // flip a bit of `message`'s Authenticator
        AuthenticatorNotLast, // move the Authenticator of `message` before the last attribute
        WrongEnrolleeNonce,   // echo a different Enrollee Nonce in `message`
        BadKeyWrapAuth,       // corrupt the Key Wrap Authenticator inside `message`'s settings
        BadPaddingValue,      // last padding byte larger than the plaintext (M6, M8)
        BadPaddingString,     // padding bytes that differ (M6, M8)
        WrongSecretNonce,     // R-S1 (M4) or R-S2 (M6) that does not match R-Hash
        SendM2D,              // answer M1 with M2D instead of M2
        SendNack,             // answer with a NACK instead of `message`
        MessageType,          // put `value` in the Message Type of `message`
        CertificateModeValue, // send Certificate Mode `value` in M2
        WrongMacAddress,      // put another enrollee address into M8's Credential
    };
    Kind kind = Kind::None;
    uint8_t message = 0;
    uint16_t attribute = 0;
    uint32_t value = 0;
};

struct Config {
    uint32_t wps_mode = 3;             // 1 Wi-Fi flavour, 2 WAPI pre-shared key, 3 WAPI certificate
    std::string pin = "00000000";      // the device password the registrar holds
    std::array<uint8_t, 16> uuid_r{};  // the registrar's UUID
    uint8_t eap_identifier = 1;        // identifier of the first EAP request; increments per request
    // The enrollee address written into M8's Credential: 6 bytes, or the text in address mode 2.
    Bytes enrollee_address;
    uint32_t address_mode = 0;         // the enrollee's address mode (KDK input, M8 check)
    // PSK modes: the network key. With hex_network_key the registrar advertises Authentication
    // Type Flags 0x2000 in M2 and sends the key as hexadecimal text.
    Bytes network_key;
    bool hex_network_key = false;
    // Certificate mode.
    uint8_t certificate_mode = 1;      // 1: certify a new key, 2: sign the registered identity
    uint8_t certificate_needed = 1;    // Certificate Needed in M8 (1: a certificate list follows)
    uint16_t cert_count = 1;
    Bytes cert_list;                   // list bytes after the count
    // M8 in fragments of at most this many message bytes (0: whole).
    size_t fragment_size = 0;
    Fault fault;
};

// What the registrar learnt from the enrollee, for tests and the demo transcript.
struct Outcome {
    bool m1_ok = false, m3_ok = false, m5_ok = false, m7_ok = false;
    bool done_received = false;
    bool nack_received = false;
    uint16_t nack_config_error = 0;    // as the bytes arrived, read little-endian
    bool signature_verified = false;   // M7's Identity Signature checked with libgcrypt
    Bytes signing_public_key;          // 48 bytes from M7, when present
    Bytes certificate_identity;        // Certificate Identity value from M7, when present
    uint8_t certificate_needed_m7 = 0;
    std::array<uint8_t, 16> uuid_e{};
    Bytes enrollee_nonce;
};

enum class Status {
    Continue,   // frames to send are in `out`; wait for the next frame
    Finished,   // EAP-Failure sent: the exchange is over
    Refused,    // the frame was refused; see last_error()
};

class Registrar {
public:
    explicit Registrar(Config config);
    ~Registrar();
    Registrar(const Registrar&) = delete;
    Registrar& operator=(const Registrar&) = delete;

    // Handles one frame from the enrollee and appends the frames to send to `out`.
    Status handle(std::span<const uint8_t> frame, std::vector<Bytes>& out);

    const Outcome& outcome() const;
    const std::string& last_error() const;

private:
    struct Impl;
    Impl* impl_;
};

}  // namespace registrar
