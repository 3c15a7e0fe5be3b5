// Result getters and the inputs of the certificate variant: the identity list and the
// secure-chip parameters.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "api/context.h"
#include "common/bytes.h"
#include "platform/platform.h"
#include "wapiwps.h"

namespace {

constexpr int32_t kNotThisMode = -1;
constexpr int32_t kNoNewCertificate = 1;
constexpr uint8_t kCertificateModeWithExtra = 2;
constexpr size_t kNetworkKeyMax = 64;        // the key buffer the host provides
constexpr size_t kCertListMax = kMsgBufLen;  // the certificate-list buffer the host provides
constexpr size_t kSignParamLen = sizeof g_SecureChipSignParam;
constexpr int32_t kChipBufferMax = 256;
constexpr size_t kEntryLengthOffset = kUuidLen;
constexpr size_t kEntryDataOffset = kUuidLen + 2;
static_assert(kEntryDataOffset + kIdentityDataMax == kIdentityEntryLen);
static_assert(WAPIWPS_IDENTITY_ENTRY_LEN == kIdentityEntryLen);

// The outputs shared by the three certificate getters.
struct CertOutputs {
    uint8_t* uuidR;
    uint8_t* certList;
    uint16_t* certListLen;
    uint16_t* certCount;
    uint8_t* extraCert;
    uint16_t* extraCertLen;
    uint8_t* pubKey;
};

bool all_present(const CertOutputs& out) {
    return out.uuidR && out.certList && out.certListLen && out.certCount && out.extraCert &&
           out.extraCertLen && out.pubKey;
}

// The result bytes, bounded by the buffers the host is documented to pass.
uint16_t copy_result(uint8_t* out, size_t capacity) {
    const uint16_t n = static_cast<uint16_t>(std::min<size_t>(g_ResultLength, capacity));
    if (g_ResultData == nullptr) return 0;
    if (n != 0) std::memcpy(out, g_ResultData, n);
    return n;
}

// Common head of the certificate getters: -1 outside certificate mode, 1 without a new
// certificate, else 0 with everything but the key written.
int32_t fill_cert_outputs(const CertOutputs& out) {
    if (g_WPS_mode != WAPI_WPS_CERT) return kNotThisMode;
    if (NewCertificateFlag == 0) {
        trace("No need new cert.\r\n");
        return kNoNewCertificate;
    }
    std::memcpy(out.uuidR, UUID_R, kUuidLen);
    *out.certListLen = copy_result(out.certList, kCertListMax);
    *out.certCount = g_CertCount;
    if (CertificateMode == kCertificateModeWithExtra) {
        const uint16_t n = std::min<uint16_t>(g_ExtraCertLength, kExtraCertLen);
        std::memcpy(out.extraCert, g_ExtraCert, n);
        *out.extraCertLen = n;
    }
    std::memcpy(out.pubKey, g_MyMsgInfo.GeneratePublicKey, kEccPublicKeyLen);
    return 0;
}

}  // namespace

int32_t GetWPSResult_PSK(uint8_t* key, uint16_t* keyLen) {
    trace("GetWPSResult_PSK.\r\n");
    if (key == nullptr || keyLen == nullptr) return kNotThisMode;
    if (g_WPS_mode == WAPI_WPS_CERT) return kNotThisMode;
    // A network key longer than the documented 64-byte buffer is cut to it (our bound).
    *keyLen = copy_result(key, kNetworkKeyMax);
    return 0;
}

int32_t GetWPSResult_Cert(uint8_t uuidR[16], uint8_t* certList, uint16_t* certListLen,
                          uint16_t* certCount, uint8_t* extraCert, uint16_t* extraCertLen,
                          uint8_t privKey[24], uint8_t pubKey[48]) {
    trace("GetWPSResult_Cert.\r\n");
    const CertOutputs out{uuidR, certList, certListLen, certCount, extraCert, extraCertLen, pubKey};
    if (!all_present(out) || privKey == nullptr) return kNotThisMode;
    const int32_t result = fill_cert_outputs(out);
    if (result != 0) return result;
    std::memcpy(privKey, GeneratePrivateKey, kEccPrivateKeyLen);
    trace("GetWPSResult_Cert success.\r\n");
    return 0;
}

int32_t GetWPSResult_Cert_SecureChip(uint8_t uuidR[16], uint8_t* certList, uint16_t* certListLen,
                                     uint16_t* certCount, uint8_t* extraCert,
                                     uint16_t* extraCertLen, uint32_t* keyIndex,
                                     uint8_t pubKey[48]) {
    trace("GetWPSResult_Cert.\r\n");
    const CertOutputs out{uuidR, certList, certListLen, certCount, extraCert, extraCertLen, pubKey};
    if (!all_present(out) || keyIndex == nullptr) return kNotThisMode;
    const int32_t result = fill_cert_outputs(out);
    if (result != 0) return result;
    *keyIndex = SecureChipPrivateKeyIndex;
    trace("GetWPSResult_Cert success.\r\n");
    return 0;
}

int32_t GetWPSResult_Cert_SecureChipEx(uint8_t uuidR[16], uint8_t* certList, uint16_t* certListLen,
                                       uint16_t* certCount, uint8_t* extraCert,
                                       uint16_t* extraCertLen, uint32_t* keyIndex,
                                       uint8_t pubKey[48], uint8_t signParam[16]) {
    trace("GetWPSResult_Cert.\r\n");
    const CertOutputs out{uuidR, certList, certListLen, certCount, extraCert, extraCertLen, pubKey};
    if (!all_present(out) || keyIndex == nullptr || signParam == nullptr) return kNotThisMode;
    const int32_t result = fill_cert_outputs(out);
    if (result != 0) return result;
    *keyIndex = SecureChipPrivateKeyIndex;
    std::memcpy(signParam, g_SecureChipSignParam, kSignParamLen);
    trace("GetWPSResult_Cert success.\r\n");
    return 0;
}

// Our rule for a refused call (an entry over 1024 data bytes, null entries, no memory): the new
// list is built completely before it replaces the old one, so a refusal leaves the previous
// list and count exactly as they were. A second successful call frees the previous list.
int32_t SetCertIdentityStruct2(uint8_t count, const void* entries) {
    trace("Identity_UUID.num = %d, ptempStruct->num = %d.\r\n", int{count}, int{count});
    if (count == 0) {
        std::free(g_IdentityList);
        g_IdentityList = nullptr;
        g_IdentityCount = 0;
        return 1;
    }
    if (entries == nullptr) return 0;
    const uint8_t* source = static_cast<const uint8_t*>(entries);
    for (size_t i = 0; i < count; ++i) {
        if (get_host16(source + i * kIdentityEntryLen + kEntryLengthOffset) > kIdentityDataMax) {
            trace("iCert = %d, Length = %d.\r\n", static_cast<int>(i),
                  int{get_host16(source + i * kIdentityEntryLen + kEntryLengthOffset)});
            return 0;
        }
    }
    uint8_t* list = static_cast<uint8_t*>(std::calloc(count, kIdentityEntryLen));
    if (list == nullptr) {
        trace("new buf fail.\r\n");
        return 0;
    }
    trace("new buf ok.\r\n");
    for (size_t i = 0; i < count; ++i) {
        const uint8_t* from = source + i * kIdentityEntryLen;
        uint8_t* to = list + i * kIdentityEntryLen;
        const uint16_t length = get_host16(from + kEntryLengthOffset);
        trace("iCert = %d, Length = %d.\r\n", static_cast<int>(i), int{length});
        put_host16(to + kEntryLengthOffset, length);
        trace("before copy2.\r\n");
        std::memcpy(to + kEntryDataOffset, from + kEntryDataOffset, length);
        trace("after copy1.\r\n");
        std::memcpy(to, from, kUuidLen);
        trace("after copy2.\r\n");
    }
    std::free(g_IdentityList);
    g_IdentityList = list;
    g_IdentityCount = count;
    return 1;
}

int32_t SetSecureChipParam(int32_t len1, const uint8_t* buf1, int32_t len2, const uint8_t* buf2,
                           uint32_t keyIndex, const uint8_t signParam[16]) {
    // The lengths, the key slot and the sign bytes are stored before anything is checked.
    g_SecureChipParam2Len = len2;
    SecureChipPrivateKeyIndex = keyIndex;
    g_SecureChipAdminLoginKeyLen = len1;
    if (signParam != nullptr) std::memcpy(g_SecureChipSignParam, signParam, kSignParamLen);
    if (len1 < 0 || len1 > kChipBufferMax || len2 < 0 || len2 > kChipBufferMax) return -1;
    // Our choice: a missing buffer with a non-zero length is refused like a bad length.
    if ((len1 != 0 && buf1 == nullptr) || (len2 != 0 && buf2 == nullptr)) return -1;
    std::memset(g_SecureChipAdminLoginKey, 0, sizeof g_SecureChipAdminLoginKey);
    std::memset(g_SecureChipParam2, 0, sizeof g_SecureChipParam2);
    if (len1 != 0) std::memcpy(g_SecureChipAdminLoginKey, buf1, static_cast<size_t>(len1));
    if (len2 != 0) std::memcpy(g_SecureChipParam2, buf2, static_cast<size_t>(len2));
    return 0;
}
