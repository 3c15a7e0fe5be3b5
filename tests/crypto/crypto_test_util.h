// Test-side helpers for the crypto suite: libgcrypt references computed independently of the
// library, and a substitutable clock and C generator.
#pragma once

#include <gcrypt.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "platform/platform.h"

namespace cryptotest {

using Bytes = std::vector<uint8_t>;

inline void init_gcrypt() {
    static bool done = false;
    if (!done) {
        gcry_check_version(nullptr);
        gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
        done = true;
    }
}

inline Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

inline Bytes bytes_of(const uint8_t* p, size_t n) { return Bytes(p, p + n); }

inline Bytes ref_sm3(const Bytes& data) {
    init_gcrypt();
    Bytes out(32);
    gcry_md_hash_buffer(GCRY_MD_SM3, out.data(), data.data(), data.size());
    return out;
}

inline Bytes ref_hmac_sm3(const Bytes& key, const Bytes& data) {
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

inline Bytes ref_sm4_ofb(const Bytes& key, const Bytes& iv, const Bytes& in) {
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

inline Bytes random_bytes(size_t n) {
    init_gcrypt();
    Bytes out(n);
    if (n != 0) gcry_create_nonce(out.data(), n);
    return out;
}

// A clock the test moves by hand and a C generator that is a plain LCG over the last seed, so
// that draws are reproducible and a re-seed with the same second repeats the same bytes.
struct FakeClock {
    static inline int64_t now = 1700000000;
    static inline bool tick_each_call = false;
    static inline uint32_t state = 0;
    static inline int srand_calls = 0;

    static int64_t time() { return tick_each_call ? now++ : now; }
    static uint64_t file_time() { return 0; }
    static void seed(uint32_t s) {
        state = s;
        ++srand_calls;
    }
    static int next() {
        state = state * 1103515245u + 12345u;
        return static_cast<int>((state >> 16) & 0x7FFF);
    }
    // The 16 bytes a draw seeded with `second` must give.
    static Bytes expected_draw(int64_t second) {
        uint32_t s = static_cast<uint32_t>(second);
        Bytes out(16);
        for (auto& b : out) {
            s = s * 1103515245u + 12345u;
            b = static_cast<uint8_t>(((s >> 16) & 0x7FFF) & 0xFF);
        }
        return out;
    }
    static void install(int64_t start, bool tick) {
        now = start;
        tick_each_call = tick;
        srand_calls = 0;
        platform::set_time_source(&FakeClock::time, &FakeClock::file_time);
        platform::set_generator(&FakeClock::seed, &FakeClock::next);
    }
    static void remove() {
        platform::set_time_source(nullptr, nullptr);
        platform::set_generator(nullptr, nullptr);
    }
};

// Collects trace lines for the duration of a scope.
struct TraceCapture {
    std::vector<std::string> lines;
    TraceCapture() { trace_set_callback(&TraceCapture::on_line, this, false); }
    ~TraceCapture() { trace_set_callback(nullptr, nullptr, false); }
    static void on_line(void* self, const char* line) {
        static_cast<TraceCapture*>(self)->lines.emplace_back(line);
    }
    bool has(const std::string& line) const {
        for (const auto& l : lines)
            if (l == line) return true;
        return false;
    }
    size_t count(const std::string& line) const {
        size_t n = 0;
        for (const auto& l : lines) n += (l == line);
        return n;
    }
};

}  // namespace cryptotest
