// ZEV stand-in over libgcrypt (placeholder: every call fails until the implementation lands).
#include "zev.h"
extern "C" {
ZEV_API int32_t ZEV_OpenSession(void**, const void*) { return ZEV_ERR_SESSION; }
ZEV_API int32_t ZEV_SM2_GenerateAgreementDataWithECC(void*, ZEV_ECCPrivateKey*, ZEV_ECCPublicKey*) { return ZEV_ERR_SESSION; }
ZEV_API int32_t ZEV_SM2_GenerateKeyWithECC(void*, uint32_t, const uint8_t*, uint32_t, const uint8_t*, uint32_t, const ZEV_ECCPrivateKey*, const ZEV_ECCPrivateKey*, const ZEV_ECCPublicKey*, const ZEV_ECCPublicKey*, const ZEV_ECCPublicKey*, ZEV_AgreementOut*) { return ZEV_ERR_SESSION; }
ZEV_API int32_t ZEV_SM2_GenerateKeyWithECC_Responder(void*, uint32_t, const uint8_t*, uint32_t, const uint8_t*, uint32_t, const ZEV_ECCPrivateKey*, const ZEV_ECCPrivateKey*, const ZEV_ECCPublicKey*, const ZEV_ECCPublicKey*, const ZEV_ECCPublicKey*, ZEV_AgreementOut*) { return ZEV_ERR_SESSION; }
ZEV_API int32_t ZEV_SM3(void*, const uint8_t*, uint32_t, uint8_t*, uint32_t*) { return ZEV_ERR_SESSION; }
ZEV_API int32_t ZEV_HMAC_SM3(void*, const uint8_t*, uint32_t, const uint8_t*, uint32_t, uint8_t*, uint32_t) { return ZEV_ERR_SESSION; }
}
