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
//
// Extra use of `value` (additive): CorruptAttribute flips the value byte at offset `value` (0, the
// default, is the first byte); WrongPin with `value` 1 changes only the second half of the PIN, so
// the run fails at M6 instead of M4; MessageType keeps the frame's dispatch byte (byte 9 of the
// message) right by putting a one-byte Connection Type Flags there, so that the wrong value is seen
// by the Message Type check rather than by the enrollee's dispatcher.
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
        SendM2D,              // answer M1 with M2D instead of M2 (Configuration Error `value`)
        SendNack,             // answer with a NACK instead of `message` (Configuration Error `value`)
        MessageType,          // put `value` in the Message Type of `message`
        CertificateModeValue, // send Certificate Mode `value` in M2
        WrongMacAddress,      // put another enrollee address into M8's Credential
        // Additions (the meaning of the kinds above is unchanged):
        HexKeyOddLength,      // hexadecimal Network Key with its last character dropped
        HexKeyBadCharacter,   // hexadecimal Network Key with a 'g' in place of its first digit
        HexKeyTooLong,        // hexadecimal Network Key grown to 66 characters
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
    // Additions.
    // Certificate mode 2: the enrollee's signing public key (x || y, 48 bytes) from an earlier run.
    Bytes known_public_key;
    // With a signature that does not verify, refuse M7 (true) or go on to M8 regardless (false).
    bool require_signature = true;
    // When >= 0: send M8 in exactly two fragments, split at the legal split point of this index
    // (counted from the front; an index past the last point takes the last). Overrides
    // fragment_size. Outcome::m8_split_points tells how many legal points the run's M8 had.
    int m8_split_index = -1;
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
    // Additions.
    // Which bytes of the X.509 Certificate Request the verified signature covered:
    // 0 none verified; else the count of bytes from the start of the request.
    size_t signed_length = 0;
    size_t m8_fragments = 0;           // frames M8 went out in (1 when whole)
    size_t m8_split_points = 0;        // legal split points of the fragmented M8 (body + trailer)
    Bytes network_key_sent;            // the Network Key value as it went out in M8
    Bytes enrollee_address;            // MAC Address of M1 (6 bytes, or the address text)
    uint8_t last_message_type = 0;     // Message Type of the last message the registrar built
};

enum class Status {
    Continue,   // frames to send are in `out`; wait for the next frame
    Finished,   // EAP-Failure sent: the exchange is over
    Refused,    // the frame was refused; see last_error(). Nothing is sent and the registrar
                // still waits for the frame it expected.
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
