// Sealing and opening of Encrypted Settings values: IV || SMS4-OFB ciphertext under KeyWrapKey.
#include <cstring>

#include "common/bytes.h"
#include "crypto/crypto.h"

namespace {

constexpr size_t kWorkLen = 2048;  // largest plaintext an Encrypted Settings value may open to
constexpr size_t kMaxPlainLen = 0xFFFF - kIvLen;

void clear_front(std::span<uint8_t> buffer, size_t n) {
    if (n > buffer.size()) n = buffer.size();
    if (n != 0) std::memset(buffer.data(), 0, n);
}

}  // namespace

void EncryptMessage(const uint8_t* plain, uint16_t plainLength, uint8_t* out, uint16_t* outLength) {
    // Settings travel in the clear in the Wi-Fi flavour: output and length stay untouched.
    if (is_wifi_flavour()) return;
    if (out == nullptr || outLength == nullptr) return;
    // A plaintext whose sealed length would not fit the 16-bit length seals to nothing; no
    // builder comes near it.
    if (plainLength > kMaxPlainLen) {
        *outLength = 0;
        return;
    }
    RandomBytes16(g_EnrolleeKeys.LastIv);
    if (plain != nullptr)
        Sms4Ofb(g_EnrolleeKeys.LastIv, plain, plainLength, g_EnrolleeKeys.KeyWrapKey, out + kIvLen);
    std::memcpy(out, g_EnrolleeKeys.LastIv, kIvLen);
    *outLength = static_cast<uint16_t>(plainLength + kIvLen);
}

void DecryptMessage(std::span<uint8_t> buffer, uint16_t length, uint16_t* outLength) {
    if (outLength == nullptr) return;
    uint8_t work[kWorkLen] = {};

    if (is_wifi_flavour()) {
        // Not encrypted in this flavour: the settings open to zeros and the caller's length stays.
        clear_front(buffer, kWorkLen);
        copy_bounded(buffer, std::span<const uint8_t>(work, kWorkLen), *outLength);
        return;
    }

    // A value too short to hold its IV, or longer than the bytes that exist, opens to nothing.
    if (length < kIvLen || length > buffer.size() || length - kIvLen > kWorkLen) {
        clear_front(buffer, kWorkLen);
        *outLength = 0;
        return;
    }
    const size_t plain_len = length - kIvLen;
    Sms4Ofb(buffer.data(), buffer.data() + kIvLen, static_cast<int32_t>(plain_len),
            g_EnrolleeKeys.KeyWrapKey, work);
    clear_front(buffer, kWorkLen);
    std::memcpy(buffer.data(), work, plain_len);
    *outLength = static_cast<uint16_t>(plain_len);
    secure_wipe(work, sizeof(work));
}
