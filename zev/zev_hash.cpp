// ZEV_SM3 and ZEV_HMAC_SM3 over libgcrypt's SM3 and HMAC-SM3.
//
// A null data (or key) pointer is accepted only with length 0. Outputs are written only on
// success; on failure the caller's buffers are left as they were.
#include <cstring>

#include "zev.h"
#include "zev_internal.h"

namespace {

// Stands in for a null pointer of length 0: libgcrypt wants a real address.
constexpr uint8_t kEmpty[1] = {0};

bool readable(const uint8_t* p, uint32_t len) {
    return p != nullptr || len == 0;
}

}  // namespace

using namespace zev;

// digestLength is an optional output: written (32) when non-null.
extern "C" int32_t ZEV_SM3(void* hSession, const uint8_t* data, uint32_t dataLength,
                           uint8_t* digest, uint32_t* digestLength) {
    if (find_session(hSession) == nullptr) return ZEV_ERR_SESSION;
    if (!readable(data, dataLength) || digest == nullptr) return ZEV_ERR_PARAM;
    gcry_md_hash_buffer(GCRY_MD_SM3, digest, data != nullptr ? data : kEmpty, dataLength);
    if (digestLength != nullptr) *digestLength = kDigestLen;
    return ZEV_OK;
}

// Any key length: keys longer than the 64-byte block are hashed first by HMAC itself. macLength
// is the room at mac, at least 32; exactly 32 bytes are written.
extern "C" int32_t ZEV_HMAC_SM3(void* hSession, const uint8_t* data, uint32_t dataLength,
                                const uint8_t* key, uint32_t keyLength, uint8_t* mac,
                                uint32_t macLength) {
    if (find_session(hSession) == nullptr) return ZEV_ERR_SESSION;
    if (!readable(data, dataLength) || !readable(key, keyLength) || mac == nullptr ||
        macLength < kDigestLen) {
        return ZEV_ERR_PARAM;
    }
    gcry_mac_hd_t hd = nullptr;
    if (gcry_mac_open(&hd, GCRY_MAC_HMAC_SM3, GCRY_MAC_FLAG_SECURE, nullptr) != 0) {
        return ZEV_ERR_CRYPTO;
    }
    uint8_t result[kDigestLen];
    size_t result_len = sizeof result;
    const bool ok = gcry_mac_setkey(hd, key != nullptr ? key : kEmpty, keyLength) == 0 &&
                    gcry_mac_write(hd, data != nullptr ? data : kEmpty, dataLength) == 0 &&
                    gcry_mac_read(hd, result, &result_len) == 0 && result_len == kDigestLen;
    gcry_mac_close(hd);
    if (ok) std::memcpy(mac, result, kDigestLen);
    wipe(result, sizeof result);
    return ok ? ZEV_OK : ZEV_ERR_CRYPTO;
}
