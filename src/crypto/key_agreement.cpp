// SM2 key agreement session: the ZEV session opened at load, the per-exchange key records, the
// enrollee's first key pair and the agreed key.
#include <cstring>

#include "common/bytes.h"
#include "crypto/crypto.h"
#include "platform/platform.h"
#include "zev.h"

namespace {

constexpr uint32_t kSm2Bits = 256;
constexpr uint32_t kAgreedKeyBits = 256;
constexpr uint64_t kSessionParamCount = 6;

// The recommended 256-bit curve of the SM2 standard, each value a 32-byte big-endian integer.
// clang-format off
constexpr uint8_t kSm2P[32] = {
    0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
    0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
constexpr uint8_t kSm2A[32] = {
    0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
    0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFC};
constexpr uint8_t kSm2B[32] = {
    0x28, 0xE9, 0xFA, 0x9E, 0x9D, 0x9F, 0x5E, 0x34, 0x4D, 0x5A, 0x9E, 0x4B, 0xCF, 0x65, 0x09, 0xA7,
    0xF3, 0x97, 0x89, 0xF5, 0x15, 0xAB, 0x8F, 0x92, 0xDD, 0xBC, 0xBD, 0x41, 0x4D, 0x94, 0x0E, 0x93};
constexpr uint8_t kSm2Gx[32] = {
    0x32, 0xC4, 0xAE, 0x2C, 0x1F, 0x19, 0x81, 0x19, 0x5F, 0x99, 0x04, 0x46, 0x6A, 0x39, 0xC9, 0x94,
    0x8F, 0xE3, 0x0B, 0xBF, 0xF2, 0x66, 0x0B, 0xE1, 0x71, 0x5A, 0x45, 0x89, 0x33, 0x4C, 0x74, 0xC7};
constexpr uint8_t kSm2Gy[32] = {
    0xBC, 0x37, 0x36, 0xA2, 0xF4, 0xF6, 0x77, 0x9C, 0x59, 0xBD, 0xCE, 0xE3, 0x6B, 0x69, 0x21, 0x53,
    0xD0, 0xA9, 0x87, 0x7C, 0xC6, 0x2A, 0x47, 0x40, 0x02, 0xDF, 0x32, 0xE5, 0x21, 0x39, 0xF0, 0xA0};
constexpr uint8_t kSm2N[32] = {
    0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
    0x72, 0x03, 0xDF, 0x6B, 0x21, 0xC6, 0x05, 0x2B, 0x53, 0xBB, 0xF4, 0x09, 0x39, 0xD5, 0x41, 0x23};
// clang-format on

static_assert(sizeof(ZEV_SessionParams) == 200, "the session parameter block is 200 bytes");
static_assert(sizeof(ZEV_AgreementOut) == 80, "the agreement output record is 80 bytes");

// Filled at each load from the constants above (a plain aggregate: no constructor runs).
ZEV_SessionParams SessionParams;

ZEV_ECCPrivateKey private_record(const uint8_t* key) {
    ZEV_ECCPrivateKey record{};
    record.bits = kSm2Bits;
    std::memcpy(record.K, key, sizeof(record.K));
    return record;
}

ZEV_ECCPublicKey public_record(const uint8_t* xy) {
    ZEV_ECCPublicKey record{};
    record.bits = kSm2Bits;
    std::memcpy(record.x, xy, kSm2CoordLen);
    std::memcpy(record.y, xy + kSm2CoordLen, kSm2CoordLen);
    return record;
}

}  // namespace

void OpenZevSession() {
    std::memcpy(SessionParams.p, kSm2P, 32);
    std::memcpy(SessionParams.a, kSm2A, 32);
    std::memcpy(SessionParams.b, kSm2B, 32);
    std::memcpy(SessionParams.gx, kSm2Gx, 32);
    std::memcpy(SessionParams.gy, kSm2Gy, 32);
    std::memcpy(SessionParams.n, kSm2N, 32);
    for (int i = 0; i < 8; ++i)
        SessionParams.count[i] = static_cast<uint8_t>(kSessionParamCount >> (8 * i));
    trace("Start ZEV_OpenSession==%x.\r\n", session_handle_trace());
    // The status is not examined: a session that failed to open shows up as failing calls later.
    ZEV_OpenSession(&g_phSessionHandle, &SessionParams);
    trace("End ZEV_OpenSession==%x.\r\n", session_handle_trace());
}

void ResetPartyKeyInfo(PartyKeyInfo& record) {
    // The identifier byte and the private and temporary keys are left as they are: the next key
    // generation overwrites the keys.
    record.SimpleConfigState = 1;
    record.AssociationState = 0;
    std::memset(record.Nonce, 0, sizeof(record.Nonce));
    std::memset(record.PublicKey, 0, sizeof(record.PublicKey));
    std::memset(record.Hash1, 0, sizeof(record.Hash1));
    std::memset(record.Hash2, 0, sizeof(record.Hash2));
    std::memset(record.SecretNonce1, 0, sizeof(record.SecretNonce1));
    std::memset(record.SecretNonce2, 0, sizeof(record.SecretNonce2));
    std::memset(record.Psk1, 0, sizeof(record.Psk1));
    std::memset(record.Psk2, 0, sizeof(record.Psk2));
    std::memset(record.SharedSecret, 0, sizeof(record.SharedSecret));
    std::memset(record.Authenticator, 0, sizeof(record.Authenticator));
    std::memset(record.AuthKey, 0, sizeof(record.AuthKey));
    std::memset(record.KeyWrapKey, 0, sizeof(record.KeyWrapKey));
    std::memset(record.Emsk, 0, sizeof(record.Emsk));
    std::memset(record.Kdk, 0, sizeof(record.Kdk));
    std::memset(record.DhKey, 0, sizeof(record.DhKey));
    std::memset(record.LastIv, 0, sizeof(record.LastIv));
    record.KdfLabel = KDF_LABEL;
}

bool InitSession() {
    trace("Start InitSession.\r\n");
    ResetPartyKeyInfo(g_EnrolleeKeys);
    ResetPartyKeyInfo(g_RegistrarKeys);
    // Three separately seeded draws: equal within one second, which peers rely on.
    RandomBytes16(g_EnrolleeKeys.Nonce);
    RandomBytes16(g_EnrolleeKeys.SecretNonce1);
    RandomBytes16(g_EnrolleeKeys.SecretNonce2);
    trace("Start CreatePubkey.\r\n");
    if (CreatePubkey() == -1) {
        trace("CreatePubkey faile.\r\n");
        return false;
    }
    trace("InitSession Success.\r\n");
    return true;
}

namespace {

// One SM2 agreement key pair from the ZEV library into private_key[32] and public_key[64]
// (x || y). On a non-zero status nothing is written and the status is returned.
int32_t make_agreement_pair(uint8_t* private_key, uint8_t* public_key) {
    ZEV_ECCPrivateKey zev_private{};
    ZEV_ECCPublicKey zev_public{};
    const int32_t status =
        ZEV_SM2_GenerateAgreementDataWithECC(g_phSessionHandle, &zev_private, &zev_public);
    if (status == 0) {
        std::memcpy(private_key, zev_private.K, kSm2PrivateKeyLen);
        std::memcpy(public_key, zev_public.x, kSm2CoordLen);
        std::memcpy(public_key + kSm2CoordLen, zev_public.y, kSm2CoordLen);
    }
    secure_wipe(&zev_private, sizeof(zev_private));
    return status;
}

}  // namespace

int32_t CreatePubkey() {
    trace("CreatePubkey Start.\r\n");
    trace("Start ZEV_SM2_GenerateAgreementDataWithECC==%x.\r\n", session_handle_trace());
    if (make_agreement_pair(g_EnrolleeKeys.PrivateKey, g_EnrolleeKeys.PublicKey) != 0) {
        trace("ZEV_SM2_GenerateAgreementDataWithECC != 0.\r\n");
        return -1;
    }
    trace("End ZEV_SM2_GenerateAgreementDataWithECC==%x.\r\n", session_handle_trace());
    trace("CreatePubkey End.\r\n");
    return 0;
}

void CreateTempPubkey() {
    trace("BuildMessageM1 Start ZEV_SM2_GenerateAgreementDataWithECC==%x.\r\n",
          session_handle_trace());
    const int32_t status =
        make_agreement_pair(g_EnrolleeKeys.TempPrivateKey, g_EnrolleeKeys.TempPublicKey);
    trace("BuildMessageM1 End ZEV_SM2_GenerateAgreementDataWithECC==%x.\r\n",
          session_handle_trace());
    if (status != 0) {
        // Our choice when the library cannot make the pair: M1 still goes out (the builder has no
        // failure path), but with a zero temporary key rather than whatever the library left in
        // its records. The registrar cannot agree on a key with the zero point, so the exchange
        // stops at M2 instead of running on half-written key material.
        trace("BuildMessageM1 ZEV_SM2_GenerateAgreementDataWithECC != 0.\r\n");
        std::memset(g_EnrolleeKeys.TempPrivateKey, 0, sizeof(g_EnrolleeKeys.TempPrivateKey));
        std::memset(g_EnrolleeKeys.TempPublicKey, 0, sizeof(g_EnrolleeKeys.TempPublicKey));
    }
}

int32_t ComputerExchangeKey() {
    ZEV_ECCPrivateKey own_private = private_record(g_EnrolleeKeys.PrivateKey);
    ZEV_ECCPrivateKey own_temp_private = private_record(g_EnrolleeKeys.TempPrivateKey);
    const ZEV_ECCPublicKey own_temp_public = public_record(g_EnrolleeKeys.TempPublicKey);
    const ZEV_ECCPublicKey peer_public = public_record(g_RegistrarKeys.PublicKey);
    const ZEV_ECCPublicKey peer_temp_public = public_record(g_RegistrarKeys.TempPublicKey);
    // Only the key pointer is ours; the record's other bytes belong to the library.
    ZEV_AgreementOut agreement{};
    agreement.key = g_EnrolleeKeys.SharedSecret;

    trace("Start ZEV_SM2_GenerateKeyWithECC==%x.\r\n", session_handle_trace());
    const int32_t status =
        ZEV_SM2_GenerateKeyWithECC(g_phSessionHandle, kAgreedKeyBits, g_MyMsgInfo.UUID_E, kUuidLen,
                                   UUID_R, kUuidLen, &own_private, &own_temp_private,
                                   &own_temp_public, &peer_public, &peer_temp_public, &agreement);
    trace("End ZEV_SM2_GenerateKeyWithECC==%x.\r\n", session_handle_trace());
    secure_wipe(&own_private, sizeof(own_private));
    secure_wipe(&own_temp_private, sizeof(own_temp_private));
    if (status != 0) {
        trace("ZEV_SM2_GenerateKeyWithECC error, ret = %d.\r\n", status);
        return -1;
    }
    trace("ComputerExchangeKey success.\r\n");
    return 0;
}
