// Shared helpers of the ZEV stand-in tests.
#include "zev/zev_test_util.h"

#include <gtest/gtest.h>

#include <cstring>

namespace zevtest {
namespace {

gcry_mpi_t mpi_of(const uint8_t* b, size_t len) {
    gcry_mpi_t m = nullptr;
    gcry_mpi_scan(&m, GCRYMPI_FMT_USG, b, len, nullptr);
    return m;
}

void mpi_out(gcry_mpi_t m, uint8_t* out, size_t len) {
    std::memset(out, 0, len);
    size_t used = (gcry_mpi_get_nbits(m) + 7) / 8, written = 0;
    if (used == 0 || used > len) return;
    gcry_mpi_print(GCRYMPI_FMT_USG, out + len - used, used, &written, m);
}

}  // namespace

std::optional<ZEV_SessionParams> curve_params(const std::string& name) {
    const auto doc = load_vectors("sm2_kex.json");
    if (!doc) return std::nullopt;
    const JsonValue* curves = doc->find("curves");
    const JsonValue* c = curves != nullptr ? curves->find(name) : nullptr;
    if (c == nullptr) return std::nullopt;
    ZEV_SessionParams p{};
    if (!hex_field(*c, "p", p.p, 32) || !hex_field(*c, "a", p.a, 32) ||
        !hex_field(*c, "b", p.b, 32) || !hex_field(*c, "Gx", p.gx, 32) ||
        !hex_field(*c, "Gy", p.gy, 32) || !hex_field(*c, "n", p.n, 32)) {
        return std::nullopt;
    }
    p.count[0] = 6;
    return p;
}

void* open_curve(const std::string& name) {
    const auto params = curve_params(name);
    if (!params) {
        ADD_FAILURE() << "no curve " << name << " in sm2_kex.json";
        return nullptr;
    }
    void* handle = nullptr;
    const int32_t rc = ZEV_OpenSession(&handle, &*params);
    if (rc != ZEV_OK) ADD_FAILURE() << "ZEV_OpenSession: " << rc;
    return handle;
}

bool hex_field(const JsonValue& v, const char* key, uint8_t* dst, size_t len) {
    const JsonValue* f = v.find(key);
    if (f == nullptr || !f->is_string()) return false;
    const auto bytes = from_hex(f->text);
    if (!bytes || bytes->size() != len) return false;
    std::memcpy(dst, bytes->data(), len);
    return true;
}

std::vector<uint8_t> hex_bytes(const JsonValue& v, const char* key) {
    const JsonValue* f = v.find(key);
    if (f == nullptr || !f->is_string()) return {};
    return from_hex(f->text).value_or(std::vector<uint8_t>{});
}

std::string to_hex(const uint8_t* p, size_t len) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string s;
    for (size_t i = 0; i < len; ++i) {
        s.push_back(kDigits[p[i] >> 4]);
        s.push_back(kDigits[p[i] & 15]);
    }
    return s;
}

RefCurve::RefCurve(const ZEV_SessionParams& params) : params_(params) {
    gcry_mpi_t p = mpi_of(params.p, 32), a = mpi_of(params.a, 32), b = mpi_of(params.b, 32);
    gcry_mpi_t gx = mpi_of(params.gx, 32), gy = mpi_of(params.gy, 32);
    n_ = mpi_of(params.n, 32);
    gcry_sexp_t curve = nullptr;
    if (gcry_sexp_build(&curve, nullptr, "(ecc (p %m)(a %m)(b %m)(g.x %m)(g.y %m)(n %m)(h %u))", p,
                        a, b, gx, gy, n_, 1u) == 0) {
        if (gcry_mpi_ec_new(&ctx_, curve, nullptr) != 0) ctx_ = nullptr;
    }
    gcry_sexp_release(curve);
    for (gcry_mpi_t m : {p, a, b, gx, gy}) gcry_mpi_release(m);
}

RefCurve::~RefCurve() {
    gcry_ctx_release(ctx_);
    gcry_mpi_release(n_);
}

bool RefCurve::mul(const uint8_t* k, const uint8_t* px, const uint8_t* py, uint8_t* x,
                   uint8_t* y) const {
    gcry_mpi_point_t base = nullptr;
    if (px == nullptr) {
        base = gcry_mpi_ec_get_point("g", ctx_, 1);
    } else {
        gcry_mpi_t mx = mpi_of(px, 32), my = mpi_of(py, 32);
        base = gcry_mpi_point_set(nullptr, mx, my, GCRYMPI_CONST_ONE);
        gcry_mpi_release(mx);
        gcry_mpi_release(my);
    }
    gcry_mpi_t scalar = mpi_of(k, 32);
    gcry_mpi_point_t r = gcry_mpi_point_new(0);
    gcry_mpi_ec_mul(r, scalar, base, ctx_);
    gcry_mpi_t rx = gcry_mpi_new(0), ry = gcry_mpi_new(0);
    const bool finite = gcry_mpi_ec_get_affine(rx, ry, r, ctx_) == 0;
    mpi_out(rx, x, 32);
    mpi_out(ry, y, 32);
    for (gcry_mpi_t m : {scalar, rx, ry}) gcry_mpi_release(m);
    gcry_mpi_point_release(r);
    gcry_mpi_point_release(base);
    return finite;
}

bool RefCurve::on_curve(const uint8_t* x, const uint8_t* y) const {
    gcry_mpi_t mx = mpi_of(x, 32), my = mpi_of(y, 32);
    gcry_mpi_point_t pt = gcry_mpi_point_set(nullptr, mx, my, GCRYMPI_CONST_ONE);
    const bool on = gcry_mpi_ec_curve_point(pt, ctx_) != 0;
    gcry_mpi_point_release(pt);
    gcry_mpi_release(mx);
    gcry_mpi_release(my);
    return on;
}

void RefCurve::negate_scalar(const uint8_t* v, uint8_t* out) const {
    gcry_mpi_t m = mpi_of(v, 32), r = gcry_mpi_new(0);
    gcry_mpi_subm(r, n_, m, n_);
    mpi_out(r, out, 32);
    gcry_mpi_release(m);
    gcry_mpi_release(r);
}

void x_bar(const uint8_t* x, uint8_t* out) {
    std::memset(out, 0, 16);
    std::memcpy(out + 16, x + 16, 16);
    out[16] = static_cast<uint8_t>((out[16] & 0x7F) | 0x80);
}

}  // namespace zevtest
