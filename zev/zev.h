/*
 * ZEV: the SM2/SM3 cryptographic library ABI that wapiwps calls.
 *
 * wapiwps reaches SM2 key agreement, SM3 and HMAC-SM3 only through these functions, so a vendor
 * library exporting the same C ABI replaces our stand-in by swapping zev.dll / libzev.so.
 * Every function returns 0 on success and a non-zero status on failure.
 */
#ifndef ZEV_H
#define ZEV_H

#include <stdint.h>

#if defined(_WIN32)
#if defined(ZEV_BUILDING)
#define ZEV_API __declspec(dllexport)
#else
#define ZEV_API __declspec(dllimport)
#endif
#else
#define ZEV_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Status codes of the stand-in. */
#define ZEV_OK 0
#define ZEV_ERR_PARAM 1       /* null pointer, bad length or bits */
#define ZEV_ERR_SESSION 2     /* unknown or unopened session */
#define ZEV_ERR_POINT 3       /* a peer point is not on the curve or is the point at infinity */
#define ZEV_ERR_CRYPTO 4      /* the underlying library failed */

/* Session parameter block: six 32-byte big-endian integers and their count (6, little-endian). */
typedef struct ZEV_SessionParams {
    uint8_t p[32];
    uint8_t a[32];
    uint8_t b[32];
    uint8_t gx[32];
    uint8_t gy[32];
    uint8_t n[32];
    uint8_t count[8];
} ZEV_SessionParams;

/* Key records (32-byte coordinates). bits is little-endian host order; set to 256. */
typedef struct ZEV_ECCPrivateKey {
    uint32_t bits;
    uint8_t K[32];
} ZEV_ECCPrivateKey;

typedef struct ZEV_ECCPublicKey {
    uint32_t bits;
    uint8_t x[32];
    uint8_t y[32];
} ZEV_ECCPublicKey;

/*
 * Agreement output record, 80 bytes. The first 64 bytes are reserved (room for the optional
 * confirmation hashes of the SM2 key exchange; the stand-in leaves them untouched). key points at
 * the caller's destination of keyBits/8 bytes.
 */
typedef struct ZEV_AgreementOut {
    uint8_t reserved[64];
    uint8_t* key;
    uint8_t reserved2[16 - sizeof(uint8_t*)];
} ZEV_AgreementOut;

/* Opens a session over the curve in params (a ZEV_SessionParams) and stores its handle. */
ZEV_API int32_t ZEV_OpenSession(void** phSession, const void* params);

/* Generates a fresh SM2 key pair on the session's curve. */
ZEV_API int32_t ZEV_SM2_GenerateAgreementDataWithECC(void* hSession, ZEV_ECCPrivateKey* privateKey,
                                                     ZEV_ECCPublicKey* publicKey);

/*
 * SM2 key exchange (GB/T 32918.3, without the optional confirmation hashes), the caller being the
 * initiator A and the peer the responder B. The caller's static public key is derived from
 * ownPrivateKey. Writes keyBits/8 bytes through out->key.
 */
ZEV_API int32_t ZEV_SM2_GenerateKeyWithECC(
    void* hSession, uint32_t keyBits, const uint8_t* ownId, uint32_t ownIdLength,
    const uint8_t* peerId, uint32_t peerIdLength, const ZEV_ECCPrivateKey* ownPrivateKey,
    const ZEV_ECCPrivateKey* ownTempPrivateKey, const ZEV_ECCPublicKey* ownTempPublicKey,
    const ZEV_ECCPublicKey* peerPublicKey, const ZEV_ECCPublicKey* peerTempPublicKey,
    ZEV_AgreementOut* out);

/*
 * The same exchange seen from the responder B (the registrar): same operands, the caller's
 * records being B's and the peer's being A's. Both sides reach the same key.
 * An extension of the stand-in; a vendor library need not have it (the enrollee never calls it).
 */
ZEV_API int32_t ZEV_SM2_GenerateKeyWithECC_Responder(
    void* hSession, uint32_t keyBits, const uint8_t* ownId, uint32_t ownIdLength,
    const uint8_t* peerId, uint32_t peerIdLength, const ZEV_ECCPrivateKey* ownPrivateKey,
    const ZEV_ECCPrivateKey* ownTempPrivateKey, const ZEV_ECCPublicKey* ownTempPublicKey,
    const ZEV_ECCPublicKey* peerPublicKey, const ZEV_ECCPublicKey* peerTempPublicKey,
    ZEV_AgreementOut* out);

/* SM3 of dataLength bytes into the 32-byte digest; *digestLength receives 32. */
ZEV_API int32_t ZEV_SM3(void* hSession, const uint8_t* data, uint32_t dataLength, uint8_t* digest,
                        uint32_t* digestLength);

/* HMAC-SM3 of data under key; macLength must be at least 32; 32 bytes are written to mac. */
ZEV_API int32_t ZEV_HMAC_SM3(void* hSession, const uint8_t* data, uint32_t dataLength,
                             const uint8_t* key, uint32_t keyLength, uint8_t* mac,
                             uint32_t macLength);

#ifdef __cplusplus
}
#endif

#endif /* ZEV_H */
