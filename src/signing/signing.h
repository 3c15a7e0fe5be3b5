// Software signature over the WAPI 192-bit curve, and the secure-chip client. Used by M7.
#pragma once

#include <cstddef>
#include <cstdint>

// ---- Software signature ----------------------------------------------------------------------
// At process attach, before the ZEV session: domain parameters, the modular multiplication
// pointer and the fixed-base table.
void CurveSetup();

// Draws a key pair. Each output is a 24-byte area the caller zeroed; values are written in the
// minimal big-endian form (left-aligned, shorter when the top byte is zero). Returns 0.
int32_t GenPrivateKeyAndPublicKey(uint8_t* privateKey, uint8_t* publicX, uint8_t* publicY);

// ECDSA with SHA-256 (hash reduced mod n) with the key given as little-endian 32-bit limbs.
// Writes r || s (48 bytes) and returns 48. A null signature buffer, or a null message with a
// non-zero length, writes nothing and returns 0.
int32_t Sign_With_Private_Key(uint8_t* signature, const uint8_t* message, uint32_t messageLength,
                              const uint32_t* keyLimbs, int32_t keyLimbCount);

// Converts a big-endian byte string to little-endian 32-bit limbs; returns the normalised count,
// or -1 (nothing written) when the significant bytes need more than max_limbs limbs or a pointer
// is null. Leading zero bytes need no room.
int32_t bytes_to_limbs(const uint8_t* bytes, size_t len, uint32_t* limbs, size_t max_limbs);

// ---- Secure-chip client ------------------------------------------------------------------
struct SecureChipClient;
using SecureChipStatusFn = void (*)(int32_t* status, void* context);
extern SecureChipClient* g_SecureChipClient;

int32_t CreateSecureChipClient(SecureChipClient** out, SecureChipStatusFn statusCallback,
                               void* callbackContext);  // 0 or -1
// Exports the slot's public key (x || y, 48 bytes); 0 or non-zero.
int32_t SPI_GenPrivateKeyAndPublicKey(uint8_t* privateKeyIgnored, uint8_t* publicKey);
// Signs data with the slot's key; r || s into signature (48 bytes); 0 or non-zero.
int32_t SecureChip_Sign_With_Private_Key(uint8_t* signature, const uint8_t* data,
                                         uint32_t dataLength);
