// Security extensions: the random source, wiping what a run leaves behind, and restoring the
// software signing key of certificate mode 2.
#include <cstring>

#include "api/context.h"
#include "common/bytes.h"
#include "crypto/crypto.h"
#include "platform/platform.h"
#include "signing/curve192.h"
#include "wapiwps.h"

namespace {

constexpr int32_t kRefused = -1;
constexpr int32_t kSystemSourceUnavailable = -2;

template <typename... Field>
void wipe_all(Field&... fields) {
    (secure_wipe(fields, sizeof fields), ...);
}

void wipe_key_record(PartyKeyInfo& r) {
    wipe_all(r.PrivateKey, r.TempPrivateKey, r.SecretNonce1, r.SecretNonce2, r.Psk1, r.Psk2,
             r.SharedSecret, r.AuthKey, r.KeyWrapKey, r.Emsk, r.Kdk, r.DhKey);
}

}  // namespace

// Nonces, hashes, Authenticators and IVs have been on the air and stay; the key pair of
// GeneratePrivateKey, the admin login key and the results outlive the run on purpose.
void wipe_run_secrets() {
    wipe_all(g_MyMsgInfo.DevicePassword, g_HmacScratch);
    wipe_key_record(g_EnrolleeKeys);
    wipe_key_record(g_RegistrarKeys);
}

extern "C" int32_t WapiWps_SetRandomSource(int32_t source) {
    if (source == WAPIWPS_RANDOM_COMPATIBLE) {
        platform::set_random_source(platform::RandomSource::Compatible);
        return 0;
    }
    if (source != WAPIWPS_RANDOM_SYSTEM) return kRefused;
    if (!platform::system_random_available()) {
        trace("The operating system's random generator cannot be read.\r\n");
        return kSystemSourceUnavailable;
    }
    platform::set_random_source(platform::RandomSource::System);
    return 0;
}

extern "C" int32_t WapiWps_ClearSecrets(void) {
    wipe_run_secrets();
    // The delivered credential lives in g_PrevMsgBuf, where g_ResultData points.
    wipe_all(GeneratePrivateKey, g_MyMsgInfo.GeneratePublicKey, g_SecureChipAdminLoginKey,
             g_PrevMsgBuf);
    g_SecureChipAdminLoginKeyLen = 0;
    g_PrevMsgLen = 0;
    g_ResultData = nullptr;
    g_ResultLength = 0;
    g_CertCount = 0;
    return 0;
}

// The 24 bytes are kept as given, because mode 2 signs with them read as one big-endian integer;
// the public key is that integer times G, written as a mode-1 run writes it (minimal form).
extern "C" int32_t WapiWps_SetSigningKey(const uint8_t privateKey[24]) {
    if (privateKey == nullptr) return kRefused;
    BigNum d;
    bn_from_bytes(d, privateKey, kEccPrivateKeyLen);
    if (bn_is_zero(d) || bn_compare(d, curve_params().n) >= 0) {
        secure_wipe(&d, sizeof d);
        return kRefused;
    }
    AffinePoint q;
    fixed_base_mul(q, d);
    secure_wipe(&d, sizeof d);
    std::memcpy(GeneratePrivateKey, privateKey, kEccPrivateKeyLen);
    std::memset(g_MyMsgInfo.GeneratePublicKey, 0, sizeof g_MyMsgInfo.GeneratePublicKey);
    size_t written = 0;
    bn_to_bytes_minimal(q.x, g_MyMsgInfo.GeneratePublicKey, kCurveBytes, &written);
    bn_to_bytes_minimal(q.y, g_MyMsgInfo.GeneratePublicKey + kCurveBytes, kCurveBytes, &written);
    trace("Signing key set.\r\n");
    return 0;
}
