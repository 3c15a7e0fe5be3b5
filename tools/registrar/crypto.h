// The registrar's cryptography: SM3, HMAC-SM3, SM4-OFB and ECDSA verification over the WAPI
// 192-bit curve through libgcrypt, the SM2 key agreement through the ZEV stand-in, and the key
// schedule of the exchange.
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>

#include "registrar/registrar.h"

namespace registrar::crypto {

using Digest = std::array<uint8_t, 32>;

// Initialises libgcrypt once (idempotent).
void init();

Digest sm3(std::span<const uint8_t> data);
// HMAC-SM3 of the concatenated pieces.
Digest hmac_sm3(std::span<const uint8_t> key, std::initializer_list<std::span<const uint8_t>> pieces);
// SM4 in output-feedback mode: encryption and decryption are the same operation.
Bytes sm4_ofb(std::span<const uint8_t> key16, std::span<const uint8_t> iv16, std::span<const uint8_t> data);
void random_bytes(std::span<uint8_t> out);
// Equality of equal-length byte strings in time independent of their contents.
bool equal_ct(std::span<const uint8_t> a, std::span<const uint8_t> b);

// ECDSA verification over the WAPI 192-bit curve, message hash e = SHA-256(message) mod n (this
// signature reduces the whole digest rather than keeping its leftmost 192 bits).
// public_key48 = x || y, signature48 = r || s, 24 bytes each, big-endian.
bool ecdsa192_verify(std::span<const uint8_t> public_key48, std::span<const uint8_t> message,
                     std::span<const uint8_t> signature48);

// ---- SM2 key agreement (responder B) ----------------------------------------------------------
struct Sm2KeyPair {
    std::array<uint8_t, 32> priv{};
    std::array<uint8_t, 64> pub{};   // x || y
};
// Opens the ZEV session once per process; false with `error` set when the library refuses.
bool sm2_generate(Sm2KeyPair& out, std::string& error);
// The agreed 32-byte key as responder: own = the registrar's pairs, peer = the enrollee's public
// keys from M1 (first, then temporary), ids UUID_R (own) and UUID_E (peer).
bool sm2_agree_responder(const Sm2KeyPair& own, const Sm2KeyPair& own_temp,
                         std::span<const uint8_t> peer_pub64, std::span<const uint8_t> peer_temp_pub64,
                         std::span<const uint8_t> uuid_r, std::span<const uint8_t> uuid_e,
                         Digest& key, std::string& error);

// ---- Key schedule -----------------------------------------------------------------------------
struct SessionKeys {
    Digest auth_key{};
    std::array<uint8_t, 16> key_wrap_key{};
    Digest emsk{};
};
// DHKey = SM3(K); KDK = HMAC(DHKey, N1 || enrollee address || N2); three KDF rounds.
SessionKeys derive_session_keys(std::span<const uint8_t> agreed, std::span<const uint8_t> n1,
                                std::span<const uint8_t> enrollee_address, std::span<const uint8_t> n2);

}  // namespace registrar::crypto
