// SHA-256 (FIPS 180-2), the message hash of the software signature.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr size_t kSha256DigestBytes = 32;
inline constexpr size_t kSha256BlockBytes = 64;

// Status codes of the SHA-256 routines.
inline constexpr int32_t kShaSuccess = 0;
inline constexpr int32_t kShaNull = 1;        // null context or data; also the overflow state
inline constexpr int32_t kShaStateError = 3;  // input after the result was taken

struct Sha256Context {
    uint32_t intermediate_hash[8];  // chaining words
    uint32_t length_low;            // bit count, low half
    uint32_t length_high;           // bit count, high half
    uint32_t block_index;           // bytes held in block
    uint8_t block[kSha256BlockBytes];
    int32_t computed;   // 1 once the result was taken
    int32_t corrupted;  // 0, or the status every later call returns
};

// Standard initial values; kShaNull for a null context.
int32_t sha256_reset(Sha256Context* ctx);
// Appends bytes, compressing each full block. A zero length returns kShaSuccess at once, before
// the null checks. Input after the result turns the context corrupted with kShaStateError; a bit
// count that would pass 2^64 turns it corrupted with kShaNull and the rest is ignored.
int32_t sha256_input(Sha256Context* ctx, const uint8_t* data, size_t len);
// Pads once, writes the 32-byte digest big-endian; later calls write the same digest.
int32_t sha256_result(Sha256Context* ctx, uint8_t digest[kSha256DigestBytes]);
// reset, input, result.
int32_t sha256(const uint8_t* data, size_t len, uint8_t digest[kSha256DigestBytes]);
