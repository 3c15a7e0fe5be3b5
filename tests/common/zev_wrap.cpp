// The ZEV wrappers. This object is taken from the test_common archive only by a program linked
// with --wrap (nothing else refers to __wrap_ names), so other programs need no hooks.
#include "common/zev_wrap.h"

#include "zev.h"

namespace {
struct Bracket {
    Bracket() { zev_wrap_enter(); }
    ~Bracket() { zev_wrap_leave(); }
};
}  // namespace

#define ZEV_AGREEMENT_PARAMS                                                                     \
    void *h, uint32_t bits, const uint8_t *id, uint32_t id_len, const uint8_t *peer_id,          \
        uint32_t peer_len, const ZEV_ECCPrivateKey *d, const ZEV_ECCPrivateKey *td,              \
        const ZEV_ECCPublicKey *tq, const ZEV_ECCPublicKey *pq, const ZEV_ECCPublicKey *ptq,     \
        ZEV_AgreementOut *out
#define ZEV_AGREEMENT_ARGS h, bits, id, id_len, peer_id, peer_len, d, td, tq, pq, ptq, out

extern "C" {
int32_t __real_ZEV_SM2_GenerateAgreementDataWithECC(void*, ZEV_ECCPrivateKey*, ZEV_ECCPublicKey*);
int32_t __real_ZEV_SM2_GenerateKeyWithECC(ZEV_AGREEMENT_PARAMS);
int32_t __real_ZEV_SM2_GenerateKeyWithECC_Responder(ZEV_AGREEMENT_PARAMS);
int32_t __real_ZEV_SM3(void*, const uint8_t*, uint32_t, uint8_t*, uint32_t*);
int32_t __real_ZEV_HMAC_SM3(void*, const uint8_t*, uint32_t, const uint8_t*, uint32_t, uint8_t*,
                            uint32_t);

int32_t __wrap_ZEV_SM2_GenerateAgreementDataWithECC(void* h, ZEV_ECCPrivateKey* d,
                                                    ZEV_ECCPublicKey* q) {
    Bracket bracket;
    return __real_ZEV_SM2_GenerateAgreementDataWithECC(h, d, q);
}
int32_t __wrap_ZEV_SM2_GenerateKeyWithECC(ZEV_AGREEMENT_PARAMS) {
    Bracket bracket;
    return __real_ZEV_SM2_GenerateKeyWithECC(ZEV_AGREEMENT_ARGS);
}
int32_t __wrap_ZEV_SM2_GenerateKeyWithECC_Responder(ZEV_AGREEMENT_PARAMS) {
    Bracket bracket;
    return __real_ZEV_SM2_GenerateKeyWithECC_Responder(ZEV_AGREEMENT_ARGS);
}
int32_t __wrap_ZEV_SM3(void* h, const uint8_t* data, uint32_t len, uint8_t* digest,
                       uint32_t* digest_len) {
    Bracket bracket;
    return __real_ZEV_SM3(h, data, len, digest, digest_len);
}
int32_t __wrap_ZEV_HMAC_SM3(void* h, const uint8_t* data, uint32_t len, const uint8_t* key,
                            uint32_t key_len, uint8_t* mac, uint32_t mac_len) {
    Bracket bracket;
    return __real_ZEV_HMAC_SM3(h, data, len, key, key_len, mac, mac_len);
}
}
