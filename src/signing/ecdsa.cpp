// The software signature: key generation and ECDSA with SHA-256 (hash reduced mod n) over the
// WAPI 192-bit curve.
#include "common/bytes.h"
#include "platform/platform.h"
#include "signing/curve192.h"
#include "signing/field192.h"
#include "signing/sha256.h"
#include "signing/signing.h"

// Every step on a secret (the key, the nonce, its inverse, r*d) runs in field192.h's
// constant-time arithmetic. The BigNum values at the interfaces enter through
// f192_from_u32_limbs, which looks at their (public) counts and never at their limbs. Only the
// decision to redraw a nonce or a key leaves the masks, through platform::declassify.

namespace {

// The caller's key limbs reduced mod n: r*d mod n does not change, and a key of more limbs than a
// 192-bit value needs no room beyond the reduction.
void load_private_key(F192& d, const uint32_t* keyLimbs, int32_t keyLimbCount) {
    f192_from_u32_limbs(d, keyLimbs, keyLimbCount, mont_n());
}

void load_scalar(F192& r, const BigNum& a) {
    f192_from_u32_limbs(r, a.limb, a.count, mont_n());
}

// ECDSA with e, d and k in plain form below n. Writes r || s and returns true, or returns false
// (nothing written) when this k gives r = 0, no inverse, u = 0 or s = 0.
bool sign_core(uint8_t* signature, const F192& e, const F192& d, const F192& k) {
    const Mont192& n = mont_n();
    // r = x(kG) mod n; x is below p < 2n.
    F192 x, y, r;
    const uint64_t infinity = comb_mul(x, y, k);
    f192_reduce_once(r, x, n);
    // u = e + r d mod n: the Montgomery product r d / 2^192, times 2^384 / 2^192.
    F192 t, u;
    f192_mul(t, r, d, n);
    f192_mul(t, t, n.r2, n);
    f192_add(u, e, t, n);
    // s = k^-1 u: the inverse in the form times u in plain form is plain.
    F192 km, kinv, s;
    f192_to_mont(km, k, n);
    f192_inverse(kinv, km, n);
    f192_mul(s, kinv, u, n);
    uint64_t redraw = infinity | f192_zero_mask(r) | f192_zero_mask(kinv) | f192_zero_mask(u) |
                      f192_zero_mask(s);
    platform::declassify(&redraw, sizeof redraw);
    if (redraw == 0) {
        f192_to_bytes(signature, r);
        f192_to_bytes(signature + kCurveBytes, s);
    }
    secure_wipe(&t, sizeof t);
    secure_wipe(&u, sizeof u);
    secure_wipe(&km, sizeof km);
    secure_wipe(&kinv, sizeof kinv);
    return redraw == 0;
}

// All ones when a < b (both below 2^63).
inline uint64_t below_mask(uint64_t a, uint64_t b) {
    return 0 - ((a - b) >> 63);
}
inline uint64_t equal_mask(uint64_t a, uint64_t b) {
    return 0 - (((a ^ b) - 1) >> 63);
}

// v in the minimal big-endian form, left-aligned in out, bytes beyond its length unchanged (the
// intended quirk of key generation). The length depends on the value, which may be the private
// key, so every one of the 24 output bytes is read and written back and every byte of v is read
// for each of them: where the value ends is never a branch or an index.
void write_minimal(uint8_t* out, const F192& v) {
    uint8_t be[kCurveBytes];
    f192_to_bytes(be, v);
    uint64_t len = 0, seen = 0;
    for (size_t i = 0; i < kCurveBytes; ++i) {
        seen |= (uint64_t{be[i]} + 0xFF) >> 8;  // 1 from the first non-zero byte on
        len += seen;
    }
    const uint64_t shift = kCurveBytes - len;
    for (uint64_t i = 0; i < kCurveBytes; ++i) {
        uint64_t b = 0;
        for (uint64_t j = 0; j < kCurveBytes; ++j) b |= be[j] & equal_mask(j, i + shift);
        const uint64_t keep = below_mask(i, len);
        out[i] = static_cast<uint8_t>((out[i] & ~keep) | (b & keep));
    }
    secure_wipe(be, sizeof be);
}

}  // namespace

void ecdsa_message_scalar(BigNum& e, const uint8_t* message, uint32_t messageLength) {
    uint8_t digest[kSha256DigestBytes];
    sha256(message, messageLength, digest);
    bn_from_bytes(e, digest, sizeof digest);
    bn_mod(e, e, curve_params().n);
}

bool ecdsa_sign_with_k(uint8_t* signature, const BigNum& e, const BigNum& d, const BigNum& k) {
    F192 fe, fd, fk;
    load_scalar(fe, e);
    load_scalar(fd, d);
    load_scalar(fk, k);
    const bool ok = sign_core(signature, fe, fd, fk);
    secure_wipe(&fd, sizeof fd);
    secure_wipe(&fk, sizeof fk);
    return ok;
}

int32_t sign_with_explicit_k(uint8_t* signature, const uint8_t* message, uint32_t messageLength,
                             const uint32_t* keyLimbs, int32_t keyLimbCount, const BigNum& k) {
    if (signature == nullptr || (message == nullptr && messageLength != 0)) return 0;
    BigNum e;
    ecdsa_message_scalar(e, message, messageLength);
    F192 fe, fd, fk;
    load_scalar(fe, e);
    load_private_key(fd, keyLimbs, keyLimbCount);
    load_scalar(fk, k);
    const bool ok = sign_core(signature, fe, fd, fk);
    secure_wipe(&fd, sizeof fd);
    secure_wipe(&fk, sizeof fk);
    return ok ? static_cast<int32_t>(kSignatureBytes) : 0;
}

// A null signature buffer, or a null message with a non-zero length, signs nothing and returns 0
// (the M7 builder never passes either); every other call returns 48.
int32_t Sign_With_Private_Key(uint8_t* signature, const uint8_t* message, uint32_t messageLength,
                              const uint32_t* keyLimbs, int32_t keyLimbCount) {
    if (signature == nullptr || (message == nullptr && messageLength != 0)) return 0;
    const BigNum& n = curve_params().n;
    BigNum e, k;
    F192 fe, fd, fk;
    load_private_key(fd, keyLimbs, keyLimbCount);
    ecdsa_message_scalar(e, message, messageLength);
    load_scalar(fe, e);
    trace("enter Sign_With_Private_Key.\r\n");
    // Draw until the nonce gives non-zero r, an invertible k, non-zero u and non-zero s.
    do {
        RandomScalar(k, n);
        load_scalar(fk, k);
    } while (!sign_core(signature, fe, fd, fk));
    trace("after do while.\r\n");
    secure_wipe(&fd, sizeof fd);
    secure_wipe(&fk, sizeof fk);
    secure_wipe(&k, sizeof k);
    trace("out Sign_With_Private_Key.\r\n");
    return static_cast<int32_t>(kSignatureBytes);
}

void key_pair_from_scalar(const BigNum& d, uint8_t* privateKey, uint8_t* publicX,
                          uint8_t* publicY) {
    F192 fd, x, y;
    load_scalar(fd, d);
    if (privateKey != nullptr) write_minimal(privateKey, fd);
    // d*G by the comb: the point the NAF multiplier gives, in constant time.
    comb_mul(x, y, fd);
    platform::declassify(&x, sizeof x);
    platform::declassify(&y, sizeof y);
    if (publicX != nullptr) write_minimal(publicX, x);
    if (publicY != nullptr) write_minimal(publicY, y);
    secure_wipe(&fd, sizeof fd);
}

// The key and both coordinates go out in the minimal form, left-aligned in the caller's zeroed
// 24-byte areas: a value whose top byte is zero comes out shorter. This is intended and kept.
int32_t GenPrivateKeyAndPublicKey(uint8_t* privateKey, uint8_t* publicX, uint8_t* publicY) {
    const CurveParams& c = curve_params();
    // A zero key would have no public point; like the signer's zero values it is redrawn. With
    // this generator it cannot occur (every drawn limb has its low bit set, n has even limbs and
    // the raw draw is below 2n), so the loop is a guard only.
    BigNum d;
    uint64_t zero = 0;
    do {
        RandomScalar(d, c.n);
        F192 fd;
        load_scalar(fd, d);
        zero = f192_zero_mask(fd);
        secure_wipe(&fd, sizeof fd);
        platform::declassify(&zero, sizeof zero);
    } while (zero != 0);
    key_pair_from_scalar(d, privateKey, publicX, publicY);
    secure_wipe(&d, sizeof d);
    trace("GenPrivateKeyAndPublicKey success.\r\n");
    return 0;
}

int32_t bytes_to_limbs(const uint8_t* bytes, size_t len, uint32_t* limbs, size_t max_limbs) {
    if (len == 0) return 0;
    if (bytes == nullptr || limbs == nullptr) return -1;
    // Leading zero bytes do not count against the room; significant bytes that do not fit make
    // the call fail with -1 and write nothing.
    size_t first = 0;
    while (first < len && bytes[first] == 0) ++first;
    const size_t significant = len - first;
    const size_t needed = (significant + 3) / 4;
    if (needed > max_limbs) return -1;
    for (size_t l = 0; l < needed; ++l) limbs[l] = 0;
    for (size_t k = 0; k < significant; ++k) {
        limbs[k / 4] |= uint32_t{bytes[len - 1 - k]} << (8 * (k % 4));
    }
    int32_t count = static_cast<int32_t>(needed);
    while (count > 0 && limbs[count - 1] == 0) --count;
    return count;
}
