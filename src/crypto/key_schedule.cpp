// The session key schedule: DHKey, KDK, the three-round key derivation and its split, the
// password hashes and the Authenticator, all HMAC-SM3 (traced as HmacSHA256).
#include <cstring>

#include "common/bytes.h"
#include "crypto/crypto.h"
#include "platform/platform.h"
#include "zev.h"

namespace {

constexpr size_t kKeyLen = 32;
constexpr size_t kPskPrefixLen = 16;  // only the first half of each PSK enters the hashes
constexpr size_t kAuthenticatorAttrLen = 12;  // 4-byte header + 8-byte value, always last
constexpr size_t kMacAddressLen = 6;
constexpr size_t kKdfLabelLen = 36;
constexpr uint32_t kKdfRounds = 3;
constexpr uint32_t kKdfTotalBits = 640;
// Split of the 96 derived bytes. Bytes 48..63 are discarded on purpose: peers take the EMSK
// from the third round, not from the bytes that follow KeyWrapKey.
constexpr size_t kAuthKeyOffset = 0;
constexpr size_t kKeyWrapKeyOffset = 32;
constexpr size_t kEmskOffset = 64;

using Bytes = std::span<const uint8_t>;

// HMAC(AuthKey, secret nonce || first 16 bytes of psk || own PublicKey || peer PublicKey).
void password_hash(const PartyKeyInfo& own, const PartyKeyInfo& peer, const uint8_t* secret_nonce,
                   const uint8_t* psk, uint8_t* out) {
    const Bytes pieces[] = {
        {secret_nonce, kNonceLen},
        {psk, kPskPrefixLen},
        {own.PublicKey, kSm2PublicKeyLen},
        {peer.PublicKey, kSm2PublicKeyLen},
    };
    HmacPieces(own.AuthKey, kKeyLen, pieces, out);
}

}  // namespace

bool GenerateDHKey(PartyKeyInfo& own) {
    uint8_t digest[kMacLen] = {};
    uint32_t digest_len = 0;
    trace("Start GenerateDHKey ZEV_HMAC_SM3==%x.\r\n", session_handle_trace());
    ZEV_SM3(g_phSessionHandle, own.SharedSecret, sizeof(own.SharedSecret), digest, &digest_len);
    trace("End GenerateDHKey ZEV_HMAC_SM3==%x.\r\n", session_handle_trace());
    std::memcpy(own.DhKey, digest, sizeof(own.DhKey));
    secure_wipe(digest, sizeof(digest));
    return true;
}

bool ComputeKDK(PartyKeyInfo& own, const PartyKeyInfo& peer, const uint8_t* address,
                bool enrolleeFirst) {
    // A text address contributes its characters up to the first zero byte (bounded by the
    // 16-byte address field); every other mode contributes the 6 address bytes, zeros included.
    const size_t address_len =
        (g_AddressMode == TEXT_ADDRESS) ? field_strlen(address, kAddressLen) : kMacAddressLen;
    const uint8_t* first = enrolleeFirst ? own.Nonce : peer.Nonce;
    const uint8_t* second = enrolleeFirst ? peer.Nonce : own.Nonce;
    const Bytes pieces[] = {{first, kNonceLen}, {address, address_len}, {second, kNonceLen}};
    HmacPieces(own.DhKey, kKeyLen, pieces, own.Kdk);
    return true;
}

bool DeriveKeys(PartyKeyInfo& own) {
    if (own.KdfLabel == nullptr || own.KdfLabel[0] == '\0') return false;
    const size_t label_len = field_strlen(own.KdfLabel, kKdfLabelLen);
    uint8_t derived[kKdfRounds * kMacLen] = {};
    for (uint32_t i = 1; i <= kKdfRounds; ++i) {
        uint8_t counter[4];
        uint8_t total_bits[4];
        put_be32(counter, i);
        put_be32(total_bits, kKdfTotalBits);
        const Bytes pieces[] = {
            {counter, sizeof(counter)},
            {reinterpret_cast<const uint8_t*>(own.KdfLabel), label_len},
            {total_bits, sizeof(total_bits)},
        };
        HmacPieces(own.Kdk, kKeyLen, pieces, derived + (i - 1) * kMacLen);
    }
    std::memcpy(own.AuthKey, derived + kAuthKeyOffset, sizeof(own.AuthKey));
    std::memcpy(own.KeyWrapKey, derived + kKeyWrapKeyOffset, sizeof(own.KeyWrapKey));
    std::memcpy(own.Emsk, derived + kEmskOffset, sizeof(own.Emsk));
    secure_wipe(derived, sizeof(derived));
    return true;
}

bool GenerateSessionKeys(PartyKeyInfo& own, const PartyKeyInfo& peer, const uint8_t* address,
                         bool enrolleeFirst) {
    GenerateDHKey(own);
    ComputeKDK(own, peer, address, enrolleeFirst);
    // A missing label leaves the keys zero; the Authenticator check that follows then fails,
    // which is how the exchange learns of it.
    DeriveKeys(own);
    return true;
}

void ComputeAuthenticator(const uint8_t* key, const uint8_t* first, int32_t firstLength,
                          const uint8_t* second, int32_t secondLength, uint8_t* out) {
    if (out == nullptr) return;
    if (firstLength < 0 || secondLength < 0 || (first == nullptr && firstLength != 0) ||
        (second == nullptr && secondLength != 0)) {
        std::memset(out, 0, kMacLen);
        return;
    }
    const Bytes pieces[] = {{first, static_cast<size_t>(firstLength)},
                            {second, static_cast<size_t>(secondLength)}};
    HmacPieces(key, kKeyLen, pieces, out);
}

bool VerifyAuthenticator(std::span<const uint8_t> readable, int32_t length,
                         const uint8_t* received) {
    if (received == nullptr || length < static_cast<int32_t>(kAuthenticatorAttrLen)) return false;
    const size_t body_len = static_cast<size_t>(length);
    if (body_len > readable.size() || body_len > kMsgBufLen || g_PrevMsgLen > kMsgBufLen)
        return false;
    uint8_t mac[kMacLen] = {};
    ComputeAuthenticator(g_EnrolleeKeys.AuthKey, g_PrevMsgBuf, g_PrevMsgLen, readable.data(),
                         static_cast<int32_t>(body_len - kAuthenticatorAttrLen), mac);
    return equal_ct(mac, received, kAuthenticatorLen);
}

void ComputeEHashes() {
    PartyKeyInfo& own = g_EnrolleeKeys;
    const uint8_t* password = reinterpret_cast<const uint8_t*>(g_MyMsgInfo.DevicePassword);
    const size_t len = field_strlen(g_MyMsgInfo.DevicePassword, kTextFieldLen);
    // The odd character of an odd-length password belongs to the first half.
    const size_t first_len = len / 2 + len % 2;
    HmacSHA256(own.AuthKey, kKeyLen, password, static_cast<uint32_t>(first_len), own.Psk1);
    HmacSHA256(own.AuthKey, kKeyLen, password + first_len, static_cast<uint32_t>(len - first_len),
               own.Psk2);
    password_hash(own, g_RegistrarKeys, own.SecretNonce1, own.Psk1, own.Hash1);
    password_hash(own, g_RegistrarKeys, own.SecretNonce2, own.Psk2, own.Hash2);
}

void ComputeRHash1(uint8_t* out) {
    if (out == nullptr) return;
    password_hash(g_EnrolleeKeys, g_RegistrarKeys, g_RegistrarKeys.SecretNonce1,
                  g_EnrolleeKeys.Psk1, out);
}

void ComputeRHash2(uint8_t* out) {
    if (out == nullptr) return;
    password_hash(g_EnrolleeKeys, g_RegistrarKeys, g_RegistrarKeys.SecretNonce2,
                  g_EnrolleeKeys.Psk2, out);
}
