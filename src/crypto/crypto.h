// Key agreement, key schedule, settings encryption and the library's random bytes.
//
// SM2, SM3 and HMAC-SM3 are reached only through zev.h, with the session handle opened at
// process attach. SMS4 is our own code. All keyed hashes stage their input in g_HmacScratch.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "api/context.h"

// ---- Session and key agreement -------------------------------------------------------------
// At process attach, after the signing curve: fills the SM2 parameter block and opens the ZEV
// session into g_phSessionHandle (the status is not examined).
void OpenZevSession();
bool InitSession();                      // nonces, secret nonces, first key pair
void ResetPartyKeyInfo(PartyKeyInfo& record);
int32_t CreatePubkey();                  // 0 or -1
// M1's temporary key pair into g_EnrolleeKeys.TempPrivateKey/TempPublicKey; zero when the
// library cannot make it.
void CreateTempPubkey();
int32_t ComputerExchangeKey();           // 0 or -1; fills g_EnrolleeKeys.SharedSecret
constexpr char KDF_LABEL[] = "Wi-Fi Easy and Secure Key Derivation";  // 36 characters
// The session handle as printed by the "%x" trace lines around ZEV calls: its low 32 bits.
uint32_t session_handle_trace();

// ---- HMAC-SM3 and the key schedule ---------------------------------------------------------
// Sizes every message that carries these values shares.
constexpr size_t kMacLen = 32;           // one HMAC-SM3 output
constexpr size_t kHashLen = 32;          // E-Hash/R-Hash values
constexpr size_t kAuthenticatorLen = 8;  // the Authenticator: the first 8 bytes of an HMAC
constexpr size_t kIvLen = 16;            // one Encrypted Settings IV (an SMS4 block)
constexpr size_t kHmacScratchLen = 8192;  // holds the largest previous + current message pair
extern uint8_t g_HmacScratch[kHmacScratchLen];

// HMAC-SM3 of data under key into out[32]. An input larger than the scratch is refused: out is
// zeroed, so any comparison against it fails.
void HmacSHA256(const uint8_t* key, uint32_t keyLength, const uint8_t* data, uint32_t dataLength,
                uint8_t* out);
void HmacSHA256_16(const uint8_t* key, uint32_t keyLength, const uint8_t* data,
                   uint16_t dataLength, uint8_t* out);
bool GenerateDHKey(PartyKeyInfo& own);
bool ComputeKDK(PartyKeyInfo& own, const PartyKeyInfo& peer, const uint8_t* address,
                bool enrolleeFirst);
bool DeriveKeys(PartyKeyInfo& own);
bool GenerateSessionKeys(PartyKeyInfo& own, const PartyKeyInfo& peer, const uint8_t* address,
                         bool enrolleeFirst);
// HMAC-SM3 under the 32-byte key of first || second. A negative or oversized secondLength
// yields a zeroed out.
void ComputeAuthenticator(const uint8_t* key, const uint8_t* first, int32_t firstLength,
                          const uint8_t* second, int32_t secondLength, uint8_t* out);
// HMAC-SM3 under key of the pieces concatenated in g_HmacScratch, traced as HmacSHA256. Pieces
// that together exceed the scratch are refused: out is zeroed.
void HmacPieces(const uint8_t* key, uint32_t keyLength,
                std::span<const std::span<const uint8_t>> pieces, uint8_t* out);
// Checks the Authenticator of a received body: the first 8 bytes of HMAC-SM3 under
// g_EnrolleeKeys.AuthKey over g_PrevMsgBuf || the first length - 12 body bytes must equal
// `received`. False as well when length is below 12, beyond the readable bytes or beyond
// kMsgBufLen (a body that cannot become the previous message is never accepted).
bool VerifyAuthenticator(std::span<const uint8_t> readable, int32_t length,
                         const uint8_t* received);
void ComputeEHashes();
void ComputeRHash1(uint8_t* out);
void ComputeRHash2(uint8_t* out);

// Constant-time comparison of n bytes (Authenticators, hashes).
bool equal_ct(const uint8_t* a, const uint8_t* b, size_t n);

// ---- SMS4 ----------------------------------------------------------------------------------
struct Sms4Schedule {
    uint32_t rk[32];       // encryption round keys
    uint32_t rk_rev[32];   // the same in reverse order
    uint32_t key_length;   // 16
};
int32_t Sms4KeySchedule(Sms4Schedule* schedule, const uint8_t* key, size_t keyLength);
void Sms4EncryptBlock(const Sms4Schedule& schedule, const uint8_t* input, uint8_t* output);
int32_t Sms4EncryptBlockChecked(const Sms4Schedule* schedule, const uint8_t* input,
                                uint8_t* output);
// OFB keystream XOR (encrypts and decrypts). -1 without output for missing pointers or a
// non-positive length.
int32_t Sms4Ofb(const uint8_t* iv, const uint8_t* input, int32_t length, const uint8_t* key,
                uint8_t* output);

// ---- Settings encryption -------------------------------------------------------------------
// Seals plain into out (IV || ciphertext) under g_EnrolleeKeys.KeyWrapKey; *outLength becomes
// plainLength + 16. Does nothing in the Wi-Fi flavour.
void EncryptMessage(const uint8_t* plain, uint16_t plainLength, uint8_t* out,
                    uint16_t* outLength);
// Opens in place the value of `length` bytes at the start of `buffer`; *outLength becomes
// length - 16. In the Wi-Fi flavour the buffer is zeroed instead. A value shorter than 16 bytes
// or longer than the buffer opens to nothing (zeroed buffer, length 0).
void DecryptMessage(std::span<uint8_t> buffer, uint16_t length, uint16_t* outLength);

// ---- Random bytes --------------------------------------------------------------------------
// 16 bytes from the C generator seeded with the calendar time just before the draw: two draws
// within one second are equal, by design.
void RandomBytes16(uint8_t* out);
