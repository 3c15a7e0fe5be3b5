// SM2 key exchange (GB/T 32918.3) for both roles: not yet implemented, every call fails.
#include "zev.h"
#include "zev_internal.h"

extern "C" int32_t ZEV_SM2_GenerateKeyWithECC(void*, uint32_t, const uint8_t*, uint32_t,
                                              const uint8_t*, uint32_t, const ZEV_ECCPrivateKey*,
                                              const ZEV_ECCPrivateKey*, const ZEV_ECCPublicKey*,
                                              const ZEV_ECCPublicKey*, const ZEV_ECCPublicKey*,
                                              ZEV_AgreementOut*) {
    return ZEV_ERR_CRYPTO;
}

extern "C" int32_t ZEV_SM2_GenerateKeyWithECC_Responder(
    void*, uint32_t, const uint8_t*, uint32_t, const uint8_t*, uint32_t, const ZEV_ECCPrivateKey*,
    const ZEV_ECCPrivateKey*, const ZEV_ECCPublicKey*, const ZEV_ECCPublicKey*,
    const ZEV_ECCPublicKey*, ZEV_AgreementOut*) {
    return ZEV_ERR_CRYPTO;
}
