// HMAC-SM3 through the closed library, staged in the shared scratch buffer, and the
// constant-time comparison used for every Authenticator and hash check.
#include <cstring>

#include "common/bytes.h"
#include "crypto/crypto.h"
#include "platform/platform.h"
#include "zev.h"

uint8_t g_HmacScratch[kHmacScratchLen];

uint32_t session_handle_trace() {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(g_phSessionHandle));
}

void HmacPieces(const uint8_t* key, uint32_t keyLength,
                std::span<const std::span<const uint8_t>> pieces, uint8_t* out) {
    if (out == nullptr) return;
    // Every keyed hash starts from a clear scratch, so no byte of an earlier input can leak in.
    std::memset(g_HmacScratch, 0, sizeof(g_HmacScratch));
    size_t total = 0;
    for (const auto& piece : pieces) {
        // Refused rather than truncated: a zero MAC never matches a real one by accident of a
        // partial input (callers also check their lengths before comparing).
        if (piece.size() > kHmacScratchLen - total) {
            std::memset(out, 0, kMacLen);
            secure_wipe(g_HmacScratch, total);
            return;
        }
        if (!piece.empty()) std::memcpy(g_HmacScratch + total, piece.data(), piece.size());
        total += piece.size();
    }
    trace("Start HmacSHA256 ZEV_HMAC_SM3==%x.\r\n", session_handle_trace());
    ZEV_HMAC_SM3(g_phSessionHandle, g_HmacScratch, static_cast<uint32_t>(total), key, keyLength,
                 out, kMacLen);
    trace("End HmacSHA256 ZEV_HMAC_SM3==%x.\r\n", session_handle_trace());
    // The input may be a password half, a secret nonce or opened settings: never left behind.
    secure_wipe(g_HmacScratch, total);
}

void HmacSHA256(const uint8_t* key, uint32_t keyLength, const uint8_t* data, uint32_t dataLength,
                uint8_t* out) {
    if (out == nullptr) return;
    if (data == nullptr && dataLength != 0) {
        std::memset(out, 0, kMacLen);
        return;
    }
    const std::span<const uint8_t> piece[] = {{data, dataLength}};
    HmacPieces(key, keyLength, piece, out);
}

void HmacSHA256_16(const uint8_t* key, uint32_t keyLength, const uint8_t* data, uint16_t dataLength,
                   uint8_t* out) {
    HmacSHA256(key, keyLength, data, dataLength, out);
}

bool equal_ct(const uint8_t* a, const uint8_t* b, size_t n) {
    uint8_t diff = 0;
    for (size_t i = 0; i < n; ++i) diff = static_cast<uint8_t>(diff | (a[i] ^ b[i]));
    // Read through a volatile so that the compiler cannot turn the loop into an early exit.
    volatile uint8_t result = diff;
    return result == 0;
}
