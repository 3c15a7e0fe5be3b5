// Test-side references computed with libgcrypt, independent of the library's own primitives, and
// a scoped capture of the library's trace lines. Shared by every test program.
#pragma once

#include <gcrypt.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "common/test_bytes.h"
#include "platform/platform.h"
#include "registrar/crypto.h"

namespace ref {

using Bytes = std::vector<uint8_t>;

// The reference registrar's libgcrypt set-up: one for every test program.
inline void init_gcrypt() { registrar::crypto::init(); }

inline Bytes bytes_of(const uint8_t* p, size_t n) { return Bytes(p, p + n); }

using testbytes::cat;

inline Bytes digest(int algorithm, const uint8_t* data, size_t len) {
    init_gcrypt();
    Bytes out(gcry_md_get_algo_dlen(algorithm));
    gcry_md_hash_buffer(algorithm, out.data(), data, len);
    return out;
}
inline Bytes sha256(const Bytes& data) { return digest(GCRY_MD_SHA256, data.data(), data.size()); }

// SM3, HMAC-SM3 and SM4-OFB (which encrypts and decrypts alike) are the reference registrar's.
inline Bytes sm3(const Bytes& data) {
    init_gcrypt();
    const auto d = registrar::crypto::sm3(data);
    return Bytes(d.begin(), d.end());
}
inline Bytes hmac_sm3(const Bytes& key, const Bytes& data) {
    init_gcrypt();
    const auto mac = registrar::crypto::hmac_sm3(key, {data});
    return Bytes(mac.begin(), mac.end());
}
inline Bytes sm4_ofb(const Bytes& key, const Bytes& iv, const Bytes& in) {
    init_gcrypt();
    return registrar::crypto::sm4_ofb(key, iv, in);
}

// The WAPI 192-bit curve, as libgcrypt reads it.
inline constexpr char kWapi192Curve[] =
    "(ecc (p #BDB6F4FE3E8B1D9E0DA8C0D46F4C318CEFE4AFE3B6B8551F#)"
    "(a #BB8E5E8FBC115E139FE6A814FE48AAA6F0ADA1AA5DF91985#)"
    "(b #1854BEBDC31B21B7AEFC80AB0ECD10D5B1B3308E6DBF11C1#)"
    "(g #044AD5F7048DE709AD51236DE65E4D4B482C836DC6E410664002BB3A02D4AAADACAE24817A4CA3A1B014B5270432DB27D2#)"
    "(n #BDB6F4FE3E8B1D9E0DA8C0D40FC962195DFAE76F56564677#))";

// ECDSA verification over the WAPI 192-bit curve with e = SHA-256(message) mod n, as the reference
// registrar verifies M7. pub48 is x || y, sig48 is r || s.
inline bool wapi192_verify(const Bytes& pub48, const uint8_t* msg, size_t msg_len,
                           const uint8_t* sig48) {
    init_gcrypt();
    return registrar::crypto::ecdsa192_verify(pub48, {msg, msg_len}, {sig48, 48});
}

// Collects the library's trace lines for the duration of a scope.
struct TraceCapture {
    std::vector<std::string> lines;
    TraceCapture() { trace_set_callback(&TraceCapture::on_line, this, false); }
    ~TraceCapture() { trace_set_callback(nullptr, nullptr, false); }
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;
    static void on_line(void* self, const char* line) {
        static_cast<TraceCapture*>(self)->lines.emplace_back(line);
    }
    // A line equal to `line`.
    bool has(const std::string& line) const { return count(line) != 0; }
    size_t count(const std::string& line) const {
        size_t n = 0;
        for (const auto& l : lines) n += (l == line);
        return n;
    }
    // A line containing `text`.
    bool contains(const std::string& text) const {
        for (const auto& l : lines)
            if (l.find(text) != std::string::npos) return true;
        return false;
    }
};

}  // namespace ref
