// SM2 key exchange (GB/T 32918.3, without the optional confirmation hashes), both roles.
//
// With w = ceil(ceil(log2 n)/2) - 1 and x̄ = 2^w + (x mod 2^w), the caller with static key d,
// temporary key r and temporary public point R computes
//     t = (d + x̄(R)·r) mod n,   Q = [h·t](P' + [x̄(R')]R'),   h = 1,
// where P' and R' are the peer's static and temporary public points, and
//     K = SM3(xQ || yQ || ZA || ZB || 00000001) || SM3(... || 00000002) || ...   (keyBits/8 bytes)
// ZA is always the initiator's Z and ZB the responder's, so the roles differ only in which
// identity goes first; both sides reach the same K.
//
// Choices of the stand-in:
// - The bits fields of the input records are ignored (the enrollee writes 256; other callers
//   may leave them zero).
// - The caller's own static public key is derived from its private key; its temporary public
//   key must be [r]G for the temporary private key given, else ZEV_ERR_PARAM (a mismatched pair
//   would silently give a key the peer cannot reach).
// - Private keys outside [1, n-1] are ZEV_ERR_PARAM; peer points off the curve, with an
//   unreduced coordinate, or all zero (infinity), and a shared point at infinity, ZEV_ERR_POINT.
// - An identity pointer may be null only with length 0. Lengths above 8191 bytes are refused:
//   ENTL, the identity's length in bits, is a 16-bit field.
// - The session is checked first (ZEV_ERR_SESSION), then the operands. The agreed key is written
//   only on success; every input is read before it, so out->key may alias an input record.
#include <cstring>

#include "zev.h"
#include "zev_internal.h"

namespace zev {
namespace {

constexpr uint32_t kMaxKeyBits = 4096;
constexpr uint32_t kMaxKeyLen = kMaxKeyBits / 8;
constexpr uint32_t kMaxIdLen = 8191;  // 8 * 8191 = 65528 bits, the largest ENTL in 16 bits
constexpr size_t kCounterLen = 4;

enum class Role { kInitiator, kResponder };

// The operands of one call, in ABI order.
struct Operands {
    uint32_t key_bits;
    const uint8_t* own_id;
    uint32_t own_id_len;
    const uint8_t* peer_id;
    uint32_t peer_id_len;
    const ZEV_ECCPrivateKey* own_private;
    const ZEV_ECCPrivateKey* own_temp_private;
    const ZEV_ECCPublicKey* own_temp_public;
    const ZEV_ECCPublicKey* peer_public;
    const ZEV_ECCPublicKey* peer_temp_public;
    ZEV_AgreementOut* out;
};

bool id_ok(const uint8_t* id, uint32_t len) {
    return (id != nullptr || len == 0) && len <= kMaxIdLen;
}

bool operands_ok(const Operands& o) {
    return o.key_bits > 0 && o.key_bits % 8 == 0 && o.key_bits <= kMaxKeyBits &&
           id_ok(o.own_id, o.own_id_len) && id_ok(o.peer_id, o.peer_id_len) &&
           o.own_private != nullptr && o.own_temp_private != nullptr &&
           o.own_temp_public != nullptr && o.peer_public != nullptr &&
           o.peer_temp_public != nullptr && o.out != nullptr && o.out->key != nullptr;
}

// Z = SM3(ENTL || ID || a || b || xG || yG || x || y), ENTL the bit length of ID, big-endian.
bool compute_z(const Session& s, const uint8_t* id, uint32_t id_len, const uint8_t* x,
               const uint8_t* y, uint8_t* z) {
    const uint32_t entl = id_len * 8;
    uint8_t entl_be[2] = {static_cast<uint8_t>(entl >> 8), static_cast<uint8_t>(entl)};
    gcry_md_hd_t md = nullptr;
    if (gcry_md_open(&md, GCRY_MD_SM3, 0) != 0) return false;
    gcry_md_write(md, entl_be, sizeof entl_be);
    if (id_len != 0) gcry_md_write(md, id, id_len);
    gcry_md_write(md, s.params + kOffA, kCoordLen);
    gcry_md_write(md, s.params + kOffB, kCoordLen);
    gcry_md_write(md, s.params + kOffGx, kCoordLen);
    gcry_md_write(md, s.params + kOffGy, kCoordLen);
    gcry_md_write(md, x, kCoordLen);
    gcry_md_write(md, y, kCoordLen);
    const unsigned char* digest = gcry_md_read(md, GCRY_MD_SM3);
    if (digest != nullptr) std::memcpy(z, digest, kDigestLen);
    gcry_md_close(md);
    return digest != nullptr;
}

// x̄ = 2^w + (x mod 2^w) of a 32-byte x coordinate.
gcry_mpi_t x_bar(const uint8_t* x, unsigned w) {
    gcry_mpi_t m = mpi_from_be(x, kCoordLen);
    if (m == nullptr) return nullptr;
    gcry_mpi_clear_highbit(m, w);
    gcry_mpi_set_bit(m, w);
    return m;
}

// A private scalar in [1, n-1] as a secure MPI, or nullptr.
gcry_mpi_t private_scalar(const Session& s, const ZEV_ECCPrivateKey& record) {
    gcry_mpi_t d = secret_mpi_from_be(record.K, kCoordLen);
    if (d != nullptr && (gcry_mpi_cmp_ui(d, 0) == 0 || gcry_mpi_cmp(d, s.n) >= 0)) {
        gcry_mpi_release(d);
        return nullptr;
    }
    return d;
}

// [k]G as coordinates.
bool base_mul(gcry_ctx_t ctx, gcry_mpi_point_t g, gcry_mpi_t k, uint8_t* x, uint8_t* y) {
    Point pt;
    gcry_mpi_ec_mul(pt.get(), k, g, ctx);
    return point_to_coords(ctx, pt.get(), x, y);
}

// K = KDF(xQ || yQ || ZA || ZB, len) with the SM3 counter-mode KDF; len <= kMaxKeyLen.
void kdf(const uint8_t* xq, const uint8_t* yq, const uint8_t* za, const uint8_t* zb, uint8_t* key,
         uint32_t len) {
    uint8_t input[4 * kCoordLen + kCounterLen];
    std::memcpy(input, xq, kCoordLen);
    std::memcpy(input + kCoordLen, yq, kCoordLen);
    std::memcpy(input + 2 * kCoordLen, za, kDigestLen);
    std::memcpy(input + 3 * kCoordLen, zb, kDigestLen);
    uint8_t block[kDigestLen];
    uint32_t counter = 1;
    for (uint32_t done = 0; done < len; done += kDigestLen, ++counter) {
        uint8_t* ct = input + 4 * kCoordLen;
        ct[0] = static_cast<uint8_t>(counter >> 24);
        ct[1] = static_cast<uint8_t>(counter >> 16);
        ct[2] = static_cast<uint8_t>(counter >> 8);
        ct[3] = static_cast<uint8_t>(counter);
        gcry_md_hash_buffer(GCRY_MD_SM3, block, input, sizeof input);
        const uint32_t take = len - done < kDigestLen ? len - done : kDigestLen;
        std::memcpy(key + done, block, take);
    }
    wipe(block, sizeof block);
    wipe(input, 2 * kCoordLen);
}

int32_t agree(Role role, void* handle, const Operands& o) {
    const Session* session = find_session(handle);
    if (session == nullptr) return ZEV_ERR_SESSION;
    if (!operands_ok(o)) return ZEV_ERR_PARAM;
    const Session& s = *session;

    EcContext ctx;
    if (!make_ec_context(s, ctx)) return ZEV_ERR_CRYPTO;
    Point g(gcry_mpi_ec_get_point("g", ctx.get(), 1));
    if (g.get() == nullptr) return ZEV_ERR_CRYPTO;

    // Own private keys in range.
    Mpi d(private_scalar(s, *o.own_private));
    Mpi r(private_scalar(s, *o.own_temp_private));
    if (!d || !r) return ZEV_ERR_PARAM;

    // Peer points: on the curve and not infinity.
    Point peer_static, peer_temp;
    if (!point_from_coords(s, ctx.get(), o.peer_public->x, o.peer_public->y, peer_static) ||
        !point_from_coords(s, ctx.get(), o.peer_temp_public->x, o.peer_temp_public->y, peer_temp)) {
        return ZEV_ERR_POINT;
    }

    // Own public keys derived and the temporary pair consistent: the costly checks come last.
    uint8_t own_x[kCoordLen], own_y[kCoordLen], temp_x[kCoordLen], temp_y[kCoordLen];
    if (!base_mul(ctx.get(), g.get(), d.get(), own_x, own_y) ||
        !base_mul(ctx.get(), g.get(), r.get(), temp_x, temp_y)) {
        return ZEV_ERR_CRYPTO;
    }
    if (std::memcmp(temp_x, o.own_temp_public->x, kCoordLen) != 0 ||
        std::memcmp(temp_y, o.own_temp_public->y, kCoordLen) != 0) {
        return ZEV_ERR_PARAM;
    }

    // Z of both parties, in the order of the roles.
    uint8_t z_own[kDigestLen], z_peer[kDigestLen];
    if (!compute_z(s, o.own_id, o.own_id_len, own_x, own_y, z_own) ||
        !compute_z(s, o.peer_id, o.peer_id_len, o.peer_public->x, o.peer_public->y, z_peer)) {
        return ZEV_ERR_CRYPTO;
    }
    const uint8_t* za = role == Role::kInitiator ? z_own : z_peer;
    const uint8_t* zb = role == Role::kInitiator ? z_peer : z_own;

    // t = (d + x̄own·r) mod n, then Q = [t](P' + [x̄peer]R').
    const unsigned w = (gcry_mpi_get_nbits(s.n) + 1) / 2 - 1;
    Mpi xbar_own(x_bar(o.own_temp_public->x, w)), xbar_peer(x_bar(o.peer_temp_public->x, w));
    Mpi t(gcry_mpi_snew(0));
    if (!xbar_own || !xbar_peer || !t) return ZEV_ERR_CRYPTO;
    gcry_mpi_mulm(t.get(), xbar_own.get(), r.get(), s.n);
    gcry_mpi_addm(t.get(), t.get(), d.get(), s.n);
    Point scaled, sum, q;
    gcry_mpi_ec_mul(scaled.get(), xbar_peer.get(), peer_temp.get(), ctx.get());
    gcry_mpi_ec_add(sum.get(), peer_static.get(), scaled.get(), ctx.get());
    gcry_mpi_ec_mul(q.get(), t.get(), sum.get(), ctx.get());
    uint8_t xq[kCoordLen], yq[kCoordLen];
    if (!point_to_coords(ctx.get(), q.get(), xq, yq)) return ZEV_ERR_POINT;

    // The key, staged so that nothing reaches the caller before every step has succeeded.
    uint8_t key[kMaxKeyLen];
    const uint32_t key_len = o.key_bits / 8;
    kdf(xq, yq, za, zb, key, key_len);
    std::memcpy(o.out->key, key, key_len);
    wipe(key, key_len);
    wipe(xq, sizeof xq);
    wipe(yq, sizeof yq);
    return ZEV_OK;
}

}  // namespace
}  // namespace zev

using namespace zev;

extern "C" int32_t ZEV_SM2_GenerateKeyWithECC(
    void* hSession, uint32_t keyBits, const uint8_t* ownId, uint32_t ownIdLength,
    const uint8_t* peerId, uint32_t peerIdLength, const ZEV_ECCPrivateKey* ownPrivateKey,
    const ZEV_ECCPrivateKey* ownTempPrivateKey, const ZEV_ECCPublicKey* ownTempPublicKey,
    const ZEV_ECCPublicKey* peerPublicKey, const ZEV_ECCPublicKey* peerTempPublicKey,
    ZEV_AgreementOut* out) {
    const Operands o{keyBits,
                     ownId,
                     ownIdLength,
                     peerId,
                     peerIdLength,
                     ownPrivateKey,
                     ownTempPrivateKey,
                     ownTempPublicKey,
                     peerPublicKey,
                     peerTempPublicKey,
                     out};
    return agree(Role::kInitiator, hSession, o);
}

extern "C" int32_t ZEV_SM2_GenerateKeyWithECC_Responder(
    void* hSession, uint32_t keyBits, const uint8_t* ownId, uint32_t ownIdLength,
    const uint8_t* peerId, uint32_t peerIdLength, const ZEV_ECCPrivateKey* ownPrivateKey,
    const ZEV_ECCPrivateKey* ownTempPrivateKey, const ZEV_ECCPublicKey* ownTempPublicKey,
    const ZEV_ECCPublicKey* peerPublicKey, const ZEV_ECCPublicKey* peerTempPublicKey,
    ZEV_AgreementOut* out) {
    const Operands o{keyBits,
                     ownId,
                     ownIdLength,
                     peerId,
                     peerIdLength,
                     ownPrivateKey,
                     ownTempPrivateKey,
                     ownTempPublicKey,
                     peerPublicKey,
                     peerTempPublicKey,
                     out};
    return agree(Role::kResponder, hSession, o);
}
