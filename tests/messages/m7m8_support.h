// Test-side encoders and libgcrypt helpers for the M7 and M8 tests: independent of the library's
// own codec and ciphers, so that a shared mistake cannot hide.
#pragma once

#include <gcrypt.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "common/reference.h"

namespace m7m8 {

using ref::Bytes;

inline void tlv(Bytes& out, uint16_t type, const Bytes& value) {
    out.push_back(static_cast<uint8_t>(type >> 8));
    out.push_back(static_cast<uint8_t>(type));
    out.push_back(static_cast<uint8_t>(value.size() >> 8));
    out.push_back(static_cast<uint8_t>(value.size()));
    out.insert(out.end(), value.begin(), value.end());
}

struct Attr {
    uint16_t type;
    Bytes value;
};

// Walks a flat attribute sequence; fails the walk (returns false) on any overrun.
inline bool parse(const uint8_t* p, size_t n, std::vector<Attr>& out) {
    size_t off = 0;
    while (off < n) {
        if (n - off < 4) return false;
        const uint16_t type = static_cast<uint16_t>(p[off] << 8 | p[off + 1]);
        const size_t len = static_cast<size_t>(p[off + 2] << 8 | p[off + 3]);
        if (n - off - 4 < len) return false;
        out.push_back({type, Bytes(p + off + 4, p + off + 4 + len)});
        off += 4 + len;
    }
    return true;
}

// Keyed references from raw key bytes (the library keeps its keys in fixed arrays).
inline Bytes hmac_sm3(const uint8_t* key, size_t key_len, const Bytes& data) {
    return ref::hmac_sm3(ref::bytes_of(key, key_len), data);
}
inline Bytes sm4_ofb(const uint8_t* key, const uint8_t* iv, const Bytes& in) {
    return ref::sm4_ofb(ref::bytes_of(key, 16), ref::bytes_of(iv, 16), in);
}


// The WAPI 192-bit curve.
inline const char* kCurveP = "BDB6F4FE3E8B1D9E0DA8C0D46F4C318CEFE4AFE3B6B8551F";
inline const char* kCurveA = "BB8E5E8FBC115E139FE6A814FE48AAA6F0ADA1AA5DF91985";
inline const char* kCurveB = "1854BEBDC31B21B7AEFC80AB0ECD10D5B1B3308E6DBF11C1";
inline const char* kCurveG =
    "044AD5F7048DE709AD51236DE65E4D4B482C836DC6E410664002BB3A02D4AAADACAE24817A4CA3A1B014B5270432DB27D2";
inline const char* kCurveN = "BDB6F4FE3E8B1D9E0DA8C0D40FC962195DFAE76F56564677";

// ECDSA verification with e = SHA-256(message) mod n handed to libgcrypt as a raw value.
inline bool ecdsa_verify(const Bytes& pub48, const uint8_t* msg, size_t msg_len, const uint8_t* sig48) {
    const Bytes digest = ref::digest(GCRY_MD_SHA256, msg, msg_len);
    gcry_mpi_t e = nullptr, n = nullptr;
    gcry_mpi_scan(&e, GCRYMPI_FMT_USG, digest.data(), digest.size(), nullptr);
    gcry_mpi_scan(&n, GCRYMPI_FMT_HEX, kCurveN, 0, nullptr);
    gcry_mpi_mod(e, e, n);
    std::string key_text = std::string("(public-key (ecc (p #") + kCurveP + "#) (a #" + kCurveA +
                           "#) (b #" + kCurveB + "#) (g #" + kCurveG + "#) (n #" + kCurveN +
                           "#) (q #04";
    static constexpr char kHex[] = "0123456789ABCDEF";
    for (uint8_t b : pub48) {
        key_text += kHex[b >> 4];
        key_text += kHex[b & 15];
    }
    key_text += "#)))";
    gcry_sexp_t key = nullptr, data = nullptr, sig = nullptr;
    gcry_sexp_sscan(&key, nullptr, key_text.data(), key_text.size());
    gcry_sexp_build(&data, nullptr, "(data (flags raw) (value %m))", e);
    gcry_sexp_build(&sig, nullptr, "(sig-val (ecdsa (r %b) (s %b)))", 24, sig48, 24, sig48 + 24);
    const bool ok = gcry_pk_verify(sig, data, key) == 0;
    gcry_sexp_release(key);
    gcry_sexp_release(data);
    gcry_sexp_release(sig);
    gcry_mpi_release(e);
    gcry_mpi_release(n);
    return ok;
}

}  // namespace m7m8
