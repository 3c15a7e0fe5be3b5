// Test-side references computed with libgcrypt, independent of the library's own primitives, and
// a scoped capture of the library's trace lines. Shared by every test program.
#pragma once

#include <gcrypt.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "platform/platform.h"

namespace ref {

using Bytes = std::vector<uint8_t>;

inline void init_gcrypt() {
    static bool done = false;
    if (!done) {
        gcry_check_version(nullptr);
        gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
        done = true;
    }
}

inline Bytes bytes_of(const uint8_t* p, size_t n) { return Bytes(p, p + n); }

inline Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

inline Bytes digest(int algorithm, const uint8_t* data, size_t len) {
    init_gcrypt();
    Bytes out(gcry_md_get_algo_dlen(algorithm));
    gcry_md_hash_buffer(algorithm, out.data(), data, len);
    return out;
}
inline Bytes sm3(const Bytes& data) { return digest(GCRY_MD_SM3, data.data(), data.size()); }
inline Bytes sha256(const Bytes& data) { return digest(GCRY_MD_SHA256, data.data(), data.size()); }

inline Bytes hmac_sm3(const Bytes& key, const Bytes& data) {
    init_gcrypt();
    gcry_mac_hd_t h;
    gcry_mac_open(&h, GCRY_MAC_HMAC_SM3, 0, nullptr);
    gcry_mac_setkey(h, key.data(), key.size());
    gcry_mac_write(h, data.data(), data.size());
    Bytes out(32);
    size_t len = out.size();
    gcry_mac_read(h, out.data(), &len);
    gcry_mac_close(h);
    return out;
}

// SM4 in output-feedback mode: encrypts and decrypts alike.
inline Bytes sm4_ofb(const Bytes& key, const Bytes& iv, const Bytes& in) {
    init_gcrypt();
    gcry_cipher_hd_t h;
    gcry_cipher_open(&h, GCRY_CIPHER_SM4, GCRY_CIPHER_MODE_OFB, 0);
    gcry_cipher_setkey(h, key.data(), key.size());
    gcry_cipher_setiv(h, iv.data(), iv.size());
    Bytes out(in.size());
    if (!in.empty()) gcry_cipher_encrypt(h, out.data(), out.size(), in.data(), in.size());
    gcry_cipher_close(h);
    return out;
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
