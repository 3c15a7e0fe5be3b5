// The software signature: key generation and ECDSA with SHA-256 (hash reduced mod n) over the
// WAPI 192-bit curve.
#include "common/bytes.h"
#include "platform/platform.h"
#include "signing/curve192.h"
#include "signing/sha256.h"
#include "signing/signing.h"

namespace {

// Loads the caller's key limbs. The key is reduced mod n on entry: r*d mod n does not change,
// and a key of more limbs than a 192-bit value cannot overflow the product's room.
void load_private_key(BigNum& d, const uint32_t* keyLimbs, int32_t keyLimbCount) {
    bn_from_limbs(d, keyLimbs, keyLimbCount);
    bn_mod(d, d, curve_params().n);
}

}  // namespace

void ecdsa_message_scalar(BigNum& e, const uint8_t* message, uint32_t messageLength) {
    uint8_t digest[kSha256DigestBytes];
    sha256(message, messageLength, digest);
    bn_from_bytes(e, digest, sizeof digest);
    bn_mod(e, e, curve_params().n);
}

bool ecdsa_sign_with_k(uint8_t* signature, const BigNum& e, const BigNum& d, const BigNum& k) {
    const BigNum& n = curve_params().n;
    // r = x(kG) mod n.
    AffinePoint kg;
    fixed_base_mul(kg, k);
    if (kg.infinity) return false;
    BigNum r;
    bn_mod(r, kg.x, n);
    if (bn_is_zero(r)) return false;
    // u = e + r d mod n, with a single conditional subtraction.
    BigNum t, u;
    bn_mul(t, r, d);
    bn_mod(t, t, n);
    bn_add(u, e, t);
    if (bn_compare(u, n) >= 0) bn_sub(u, u, n);
    BigNum kinv;
    bn_mod_inverse(kinv, k, n);
    if (bn_is_zero(kinv) || bn_is_zero(u)) return false;
    BigNum s;
    bn_mod_mul(s, kinv, u, n);
    if (bn_is_zero(s)) return false;
    bn_to_bytes_fixed(r, signature, kCurveBytes, kBnByteBound);
    bn_to_bytes_fixed(s, signature + kCurveBytes, kCurveBytes, kBnByteBound);
    secure_wipe(&kinv, sizeof kinv);
    return true;
}

int32_t sign_with_explicit_k(uint8_t* signature, const uint8_t* message, uint32_t messageLength,
                             const uint32_t* keyLimbs, int32_t keyLimbCount, const BigNum& k) {
    if (signature == nullptr || (message == nullptr && messageLength != 0)) return 0;
    BigNum d, e;
    load_private_key(d, keyLimbs, keyLimbCount);
    ecdsa_message_scalar(e, message, messageLength);
    const bool ok = ecdsa_sign_with_k(signature, e, d, k);
    secure_wipe(&d, sizeof d);
    return ok ? static_cast<int32_t>(kSignatureBytes) : 0;
}

// A null signature buffer, or a null message with a non-zero length, signs nothing and returns 0
// (the M7 builder never passes either); every other call returns 48.
int32_t Sign_With_Private_Key(uint8_t* signature, const uint8_t* message, uint32_t messageLength,
                              const uint32_t* keyLimbs, int32_t keyLimbCount) {
    if (signature == nullptr || (message == nullptr && messageLength != 0)) return 0;
    const BigNum& n = curve_params().n;
    BigNum d, e, k;
    load_private_key(d, keyLimbs, keyLimbCount);
    ecdsa_message_scalar(e, message, messageLength);
    trace("enter Sign_With_Private_Key.\r\n");
    // Draw until the nonce gives non-zero r, an invertible k, non-zero u and non-zero s.
    do {
        RandomScalar(k, n);
    } while (!ecdsa_sign_with_k(signature, e, d, k));
    trace("after do while.\r\n");
    secure_wipe(&d, sizeof d);
    secure_wipe(&k, sizeof k);
    trace("out Sign_With_Private_Key.\r\n");
    return static_cast<int32_t>(kSignatureBytes);
}

// The key and both coordinates go out in the minimal form, left-aligned in the caller's zeroed
// 24-byte areas: a value whose top byte is zero comes out shorter. This is intended and kept.
int32_t GenPrivateKeyAndPublicKey(uint8_t* privateKey, uint8_t* publicX, uint8_t* publicY) {
    const CurveParams& c = curve_params();
    // A zero key would have no public point; like the signer's zero values it is redrawn. With
    // this generator it cannot occur (every drawn limb has its low bit set, n has even limbs and
    // the raw draw is below 2n), so the loop is a guard only.
    BigNum d;
    do {
        RandomScalar(d, c.n);
    } while (bn_is_zero(d));
    size_t written = 0;
    if (privateKey != nullptr) bn_to_bytes_minimal(d, privateKey, kCurveBytes, &written);
    AffinePoint g;
    g.x = c.gx;
    g.y = c.gy;
    g.infinity = 0;
    AffinePoint q;
    variable_base_mul(q, d, g);
    if (publicX != nullptr) bn_to_bytes_minimal(q.x, publicX, kCurveBytes, &written);
    if (publicY != nullptr) bn_to_bytes_minimal(q.y, publicY, kCurveBytes, &written);
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
