// Helpers of the signing, crypto and ZEV stand-in tests: hex, BigNum <-> libgcrypt MPI, and points
// of the WAPI curve through libgcrypt.
#pragma once

#include <gcrypt.h>

#include <cstdio>
#include <map>
#include <random>
#include <string>

#include "common/deterministic.h"
#include "common/reference.h"
#include "common/test_bytes.h"
#include "common/vectors.h"
#include "platform/platform.h"
#include "signing/bignum.h"
#include "signing/curve192.h"

namespace support {

using testbytes::Bytes;
using testbytes::hex;

inline std::string to_hex(const uint8_t* p, size_t n) {
    std::string s;
    char buf[3];
    for (size_t i = 0; i < n; ++i) {
        std::snprintf(buf, sizeof buf, "%02X", p[i]);
        s += buf;
    }
    return s;
}
inline std::string to_hex(const Bytes& b) { return to_hex(b.data(), b.size()); }

inline Bytes random_bytes(size_t n) {
    ref::init_gcrypt();
    Bytes out(n);
    if (n != 0) gcry_create_nonce(out.data(), n);
    return out;
}

// A vector file, read once; a missing one has already failed the test.
inline const testjson::Json& vectors(const std::string& file) {
    static std::map<std::string, testjson::Json> cache;
    auto [it, fresh] = cache.try_emplace(file);
    if (fresh) it->second = testjson::load_vectors(file);
    return it->second;
}

inline BigNum bn_hex(const std::string& text) {
    const Bytes b = hex(text);
    BigNum r;
    bn_from_bytes(r, b.data(), b.size());
    return r;
}
inline std::string bn_to_hex(const BigNum& a) {  // minimal upper-case hex, "0" for zero
    uint8_t buf[4 * kBigNumLimbs];
    size_t n = 0;
    bn_to_bytes_minimal(a, buf, sizeof buf, &n);
    return n == 0 ? "0" : to_hex(buf, n);
}

// Up to `limbs` limbs of random length, mixing full, empty and all-ones limbs to reach the
// carry and borrow corners.
inline BigNum random_bn(std::mt19937_64& rng, int32_t limbs) {
    BigNum r;
    bn_zero(r);
    r.count = static_cast<int32_t>(rng() % static_cast<uint64_t>(limbs + 1));
    for (int32_t i = 0; i < r.count; ++i) {
        const uint64_t kind = rng() % 8;
        r.limb[i] = kind == 0 ? 0 : kind == 1 ? 0xFFFFFFFFu : static_cast<uint32_t>(rng());
    }
    bn_normalise(r);
    return r;
}
inline BigNum random_below(std::mt19937_64& rng, const BigNum& m) {
    BigNum r;
    bn_zero(r);
    for (int32_t i = 0; i < m.count; ++i) r.limb[i] = static_cast<uint32_t>(rng());
    r.count = m.count;
    bn_normalise(r);
    bn_mod(r, r, m);
    return r;
}

// A libgcrypt MPI owned for one scope: of a BigNum, or a fresh zero for a result.
struct Mpi {
    gcry_mpi_t m;
    Mpi() : m((ref::init_gcrypt(), gcry_mpi_new(0))) {}
    explicit Mpi(const BigNum& a) : Mpi() {
        uint8_t buf[4 * kBigNumLimbs];
        size_t n = 0;
        bn_to_bytes_minimal(a, buf, sizeof buf, &n);
        if (n != 0) gcry_mpi_release(m), gcry_mpi_scan(&m, GCRYMPI_FMT_USG, buf, n, nullptr);
    }
    Mpi(const Mpi&) = delete;
    ~Mpi() { gcry_mpi_release(m); }
    operator gcry_mpi_t() const { return m; }
    BigNum bn() const {
        uint8_t buf[4 * kBigNumLimbs + 8];
        size_t n = 0;
        gcry_mpi_print(GCRYMPI_FMT_USG, buf, sizeof buf, &n, m);
        BigNum r;
        bn_from_bytes(r, buf, gcry_mpi_cmp_ui(m, 0) == 0 ? 0 : n);
        return r;
    }
};

struct RefPoint {
    bool infinity;
    BigNum x, y;
};
// k * (x, y) on the WAPI curve through gcry_mpi_ec_mul.
inline RefPoint ref_mul(const BigNum& k, const BigNum& x, const BigNum& y) {
    static const gcry_ctx_t ctx = [] {
        ref::init_gcrypt();
        gcry_sexp_t s = nullptr;
        gcry_ctx_t c = nullptr;
        gcry_sexp_new(&s, ref::kWapi192Curve, 0, 1);
        gcry_mpi_ec_new(&c, s, nullptr);
        gcry_sexp_release(s);
        return c;
    }();
    Mpi mx(x), my(y), mk(k), ax, ay;
    gcry_mpi_point_t p = gcry_mpi_point_set(nullptr, mx, my, GCRYMPI_CONST_ONE);
    gcry_mpi_point_t r = gcry_mpi_point_new(0);
    gcry_mpi_ec_mul(r, mk, p, ctx);
    RefPoint out{};
    out.infinity = gcry_mpi_ec_get_affine(ax, ay, r, ctx) != 0;
    if (!out.infinity) out.x = ax.bn(), out.y = ay.bn();
    gcry_mpi_point_release(p);
    gcry_mpi_point_release(r);
    return out;
}
// d * G for the 24 key bytes read as one integer: x || y, 24 bytes each.
inline Bytes public_key_of(const uint8_t* d24) {
    const CurveParams& c = curve_params();
    BigNum d;
    bn_from_bytes(d, d24, 24);
    const RefPoint q = ref_mul(d, c.gx, c.gy);
    Bytes out(48);
    bn_to_bytes_fixed(q.x, out.data(), 24, 24);
    bn_to_bytes_fixed(q.y, out.data() + 24, 24, 24);
    return out;
}
// libgcrypt's ECDSA verification of r || s over msg under the public key (qx, qy).
inline bool ref_verify(const BigNum& qx, const BigNum& qy, const uint8_t* msg, size_t len,
                       const uint8_t* sig) {
    Bytes pub(48);
    bn_to_bytes_fixed(qx, pub.data(), 24, 24);
    bn_to_bytes_fixed(qy, pub.data() + 24, 24, 24);
    return ref::wapi192_verify(pub, msg, len, sig);
}


}  // namespace support
