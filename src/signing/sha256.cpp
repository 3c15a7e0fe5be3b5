// SHA-256 (FIPS 180-2) with a streaming context.
#include "signing/sha256.h"

#include "common/bytes.h"

namespace {

constexpr uint32_t kInitial[8] = {0x6A09E667, 0xBB67AE85, 0x3C6EF372, 0xA54FF53A,
                                  0x510E527F, 0x9B05688C, 0x1F83D9AB, 0x5BE0CD19};

constexpr uint32_t kRound[64] = {
    0x428A2F98, 0x71374491, 0xB5C0FBCF, 0xE9B5DBA5, 0x3956C25B, 0x59F111F1, 0x923F82A4, 0xAB1C5ED5,
    0xD807AA98, 0x12835B01, 0x243185BE, 0x550C7DC3, 0x72BE5D74, 0x80DEB1FE, 0x9BDC06A7, 0xC19BF174,
    0xE49B69C1, 0xEFBE4786, 0x0FC19DC6, 0x240CA1CC, 0x2DE92C6F, 0x4A7484AA, 0x5CB0A9DC, 0x76F988DA,
    0x983E5152, 0xA831C66D, 0xB00327C8, 0xBF597FC7, 0xC6E00BF3, 0xD5A79147, 0x06CA6351, 0x14292967,
    0x27B70A85, 0x2E1B2138, 0x4D2C6DFC, 0x53380D13, 0x650A7354, 0x766A0ABB, 0x81C2C92E, 0x92722C85,
    0xA2BFE8A1, 0xA81A664B, 0xC24B8B70, 0xC76C51A3, 0xD192E819, 0xD6990624, 0xF40E3585, 0x106AA070,
    0x19A4C116, 0x1E376C08, 0x2748774C, 0x34B0BCB5, 0x391C0CB3, 0x4ED8AA4A, 0x5B9CCA4F, 0x682E6FF3,
    0x748F82EE, 0x78A5636F, 0x84C87814, 0x8CC70208, 0x90BEFFFA, 0xA4506CEB, 0xBEF9A3F7, 0xC67178F2};

constexpr uint32_t rotr(uint32_t x, int n) {
    return (x >> n) | (x << (32 - n));
}

void compress(uint32_t h[8], const uint8_t* block) {
    uint32_t w[64];
    for (int t = 0; t < 16; ++t) w[t] = get_be32(block + 4 * t);
    for (int t = 16; t < 64; ++t) {
        const uint32_t s0 = rotr(w[t - 15], 7) ^ rotr(w[t - 15], 18) ^ (w[t - 15] >> 3);
        const uint32_t s1 = rotr(w[t - 2], 17) ^ rotr(w[t - 2], 19) ^ (w[t - 2] >> 10);
        w[t] = w[t - 16] + s0 + w[t - 7] + s1;
    }
    uint32_t a = h[0], b = h[1], c = h[2], d = h[3], e = h[4], f = h[5], g = h[6], k = h[7];
    for (int t = 0; t < 64; ++t) {
        const uint32_t t1 =
            k + (rotr(e, 6) ^ rotr(e, 11) ^ rotr(e, 25)) + ((e & f) ^ (~e & g)) + kRound[t] + w[t];
        const uint32_t t2 =
            (rotr(a, 2) ^ rotr(a, 13) ^ rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
        k = g;
        g = f;
        f = e;
        e = d + t1;
        d = c;
        c = b;
        b = a;
        a = t1 + t2;
    }
    h[0] += a;
    h[1] += b;
    h[2] += c;
    h[3] += d;
    h[4] += e;
    h[5] += f;
    h[6] += g;
    h[7] += k;
}

// Adds bits to the 64-bit count; false (count unchanged) when it would pass 2^64.
bool add_bits(Sha256Context* ctx, uint32_t bits) {
    const uint32_t low = ctx->length_low + bits;
    const uint32_t carry = low < ctx->length_low ? 1u : 0u;
    if (carry != 0 && ctx->length_high == 0xFFFFFFFFu) return false;
    ctx->length_low = low;
    ctx->length_high += carry;
    return true;
}

void finish(Sha256Context* ctx) {
    // 0x80, zeros up to 56 bytes (spilling into one more block when needed), the bit count.
    ctx->block[ctx->block_index++] = 0x80;
    if (ctx->block_index > 56) {
        while (ctx->block_index < kSha256BlockBytes) ctx->block[ctx->block_index++] = 0;
        compress(ctx->intermediate_hash, ctx->block);
        ctx->block_index = 0;
    }
    while (ctx->block_index < 56) ctx->block[ctx->block_index++] = 0;
    put_be32(ctx->block + 56, ctx->length_high);
    put_be32(ctx->block + 60, ctx->length_low);
    compress(ctx->intermediate_hash, ctx->block);
    for (uint8_t& b : ctx->block) b = 0;
    ctx->block_index = 0;
    ctx->length_low = 0;
    ctx->length_high = 0;
    ctx->computed = 1;
}

}  // namespace

int32_t sha256_reset(Sha256Context* ctx) {
    if (ctx == nullptr) return kShaNull;
    for (int i = 0; i < 8; ++i) ctx->intermediate_hash[i] = kInitial[i];
    ctx->length_low = 0;
    ctx->length_high = 0;
    ctx->block_index = 0;
    for (uint8_t& b : ctx->block) b = 0;
    ctx->computed = 0;
    ctx->corrupted = 0;
    return kShaSuccess;
}

int32_t sha256_input(Sha256Context* ctx, const uint8_t* data, size_t len) {
    if (len == 0) return kShaSuccess;
    if (ctx == nullptr || data == nullptr) return kShaNull;
    if (ctx->computed) {
        ctx->corrupted = kShaStateError;
        return kShaStateError;
    }
    if (ctx->corrupted) return ctx->corrupted;
    // A corrupted block index (only through a damaged context) restarts the block rather than
    // writing past it.
    if (ctx->block_index >= kSha256BlockBytes) ctx->block_index = 0;
    while (len > 0) {
        size_t take = kSha256BlockBytes - ctx->block_index;
        if (take > len) take = len;
        if (!add_bits(ctx, static_cast<uint32_t>(take * 8))) {
            ctx->corrupted = kShaNull;
            return kShaNull;
        }
        for (size_t i = 0; i < take; ++i) ctx->block[ctx->block_index + i] = data[i];
        ctx->block_index += static_cast<uint32_t>(take);
        data += take;
        len -= take;
        if (ctx->block_index == kSha256BlockBytes) {
            compress(ctx->intermediate_hash, ctx->block);
            ctx->block_index = 0;
        }
    }
    return kShaSuccess;
}

int32_t sha256_result(Sha256Context* ctx, uint8_t digest[kSha256DigestBytes]) {
    if (ctx == nullptr || digest == nullptr) return kShaNull;
    if (ctx->corrupted) return ctx->corrupted;
    if (!ctx->computed) {
        if (ctx->block_index >= kSha256BlockBytes) ctx->block_index = 0;
        finish(ctx);
    }
    for (int i = 0; i < 8; ++i) put_be32(digest + 4 * i, ctx->intermediate_hash[i]);
    return kShaSuccess;
}

int32_t sha256(const uint8_t* data, size_t len, uint8_t digest[kSha256DigestBytes]) {
    Sha256Context ctx;
    sha256_reset(&ctx);
    const int32_t status = sha256_input(&ctx, data, len);
    if (status != kShaSuccess) return status;
    return sha256_result(&ctx, digest);
}
