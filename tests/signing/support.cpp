#include "support.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <optional>

#include "platform/platform.h"

namespace signing_test {

std::vector<uint8_t> from_hex(const std::string& hex) {
    std::vector<uint8_t> out;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        out.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    }
    return out;
}

std::string to_hex(const uint8_t* data, size_t len) {
    std::string s;
    char buf[3];
    for (size_t i = 0; i < len; ++i) {
        std::snprintf(buf, sizeof buf, "%02X", data[i]);
        s += buf;
    }
    return s;
}

BigNum bn_hex(const std::string& hex) {
    const std::vector<uint8_t> b = from_hex(hex);
    BigNum r;
    bn_from_bytes(r, b.data(), b.size());
    return r;
}

std::string bn_to_hex(const BigNum& a) {
    uint8_t buf[4 * kBigNumLimbs];
    size_t n = 0;
    bn_to_bytes_minimal(a, buf, sizeof buf, &n);
    return n == 0 ? "0" : to_hex(buf, n);
}

BigNum random_bn(std::mt19937_64& rng, int32_t limbs) {
    BigNum r;
    bn_zero(r);
    const int32_t n = static_cast<int32_t>(rng() % static_cast<uint64_t>(limbs + 1));
    for (int32_t i = 0; i < n; ++i) {
        // Mix full, empty and all-ones limbs to reach the carry and borrow corners.
        switch (rng() % 8) {
            case 0:
                r.limb[i] = 0;
                break;
            case 1:
                r.limb[i] = 0xFFFFFFFFu;
                break;
            default:
                r.limb[i] = static_cast<uint32_t>(rng());
                break;
        }
    }
    r.count = n;
    bn_normalise(r);
    return r;
}

BigNum random_below(std::mt19937_64& rng, const BigNum& m) {
    BigNum r;
    bn_zero(r);
    for (int32_t i = 0; i < m.count; ++i) r.limb[i] = static_cast<uint32_t>(rng());
    r.count = m.count;
    bn_normalise(r);
    bn_mod(r, r, m);
    return r;
}

const testjson::JsonValue& vectors(const char* file) {
    static std::map<std::string, testjson::JsonValue> cache;
    auto it = cache.find(file);
    if (it != cache.end()) return it->second;
    return cache[file] = testjson::load_vectors(file).value_or(testjson::JsonValue{});
}

void gcrypt_init() {
    static bool done = false;
    if (done) return;
    gcry_check_version(nullptr);
    gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
    gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
    done = true;
}

gcry_mpi_t to_mpi(const BigNum& a) {
    uint8_t buf[4 * kBigNumLimbs];
    size_t n = 0;
    bn_to_bytes_minimal(a, buf, sizeof buf, &n);
    gcry_mpi_t m = nullptr;
    if (n == 0) return gcry_mpi_new(0);
    gcry_mpi_scan(&m, GCRYMPI_FMT_USG, buf, n, nullptr);
    return m;
}

BigNum from_mpi(gcry_mpi_t m) {
    uint8_t buf[4 * kBigNumLimbs + 8];
    size_t n = 0;
    BigNum r;
    bn_zero(r);
    if (gcry_mpi_cmp_ui(m, 0) == 0) return r;
    gcry_mpi_print(GCRYMPI_FMT_USG, buf, sizeof buf, &n, m);
    bn_from_bytes(r, buf, n);
    return r;
}

namespace {

// The curve's parameters as an (ecc ...) list; q given for a public key.
gcry_sexp_t curve_sexp(const char* head, const BigNum* qx, const BigNum* qy) {
    const CurveParams& c = curve_params();
    std::vector<uint8_t> g(49, 0), q(49, 0);
    g[0] = 0x04;
    bn_to_bytes_fixed(c.gx, &g[1], 24, 100);
    bn_to_bytes_fixed(c.gy, &g[25], 24, 100);
    gcry_mpi_t p = to_mpi(c.p), a = to_mpi(c.a), b = to_mpi(c.b), n = to_mpi(c.n);
    gcry_sexp_t s = nullptr;
    gcry_error_t err;
    if (qx != nullptr) {
        q[0] = 0x04;
        bn_to_bytes_fixed(*qx, &q[1], 24, 100);
        bn_to_bytes_fixed(*qy, &q[25], 24, 100);
        err = gcry_sexp_build(
            &s, nullptr, "(public-key (ecc (p %m)(a %m)(b %m)(g %b)(n %m)(h %d)(q %b)))", p, a, b,
            static_cast<int>(g.size()), g.data(), n, 1, static_cast<int>(q.size()), q.data());
    } else {
        err = gcry_sexp_build(&s, nullptr, "(ecc (p %m)(a %m)(b %m)(g %b)(n %m)(h %d))", p, a, b,
                              static_cast<int>(g.size()), g.data(), n, 1);
    }
    (void)head;
    EXPECT_EQ(err, 0u) << gcry_strerror(err);
    gcry_mpi_release(p);
    gcry_mpi_release(a);
    gcry_mpi_release(b);
    gcry_mpi_release(n);
    return s;
}

gcry_ctx_t curve_ctx() {
    static gcry_ctx_t ctx = nullptr;
    if (ctx != nullptr) return ctx;
    gcrypt_init();
    gcry_sexp_t s = curve_sexp("ecc", nullptr, nullptr);
    const gcry_error_t err = gcry_mpi_ec_new(&ctx, s, nullptr);
    EXPECT_EQ(err, 0u) << gcry_strerror(err);
    gcry_sexp_release(s);
    return ctx;
}

}  // namespace

RefPoint ref_mul(const BigNum& k, const BigNum& x, const BigNum& y) {
    gcry_ctx_t ctx = curve_ctx();
    gcry_mpi_point_t p = gcry_mpi_point_new(0), r = gcry_mpi_point_new(0);
    gcry_mpi_t mx = to_mpi(x), my = to_mpi(y), one = gcry_mpi_set_ui(nullptr, 1), mk = to_mpi(k);
    gcry_mpi_point_set(p, mx, my, one);
    gcry_mpi_ec_mul(r, mk, p, ctx);
    gcry_mpi_t ax = gcry_mpi_new(0), ay = gcry_mpi_new(0);
    RefPoint out{};
    out.infinity = gcry_mpi_ec_get_affine(ax, ay, r, ctx) != 0;
    if (!out.infinity) {
        out.x = from_mpi(ax);
        out.y = from_mpi(ay);
    }
    for (gcry_mpi_t m : {mx, my, one, mk, ax, ay}) gcry_mpi_release(m);
    gcry_mpi_point_release(p);
    gcry_mpi_point_release(r);
    return out;
}

bool ref_verify(const BigNum& e, const uint8_t signature[48], const BigNum& qx, const BigNum& qy) {
    gcrypt_init();
    gcry_sexp_t key = curve_sexp("public-key", &qx, &qy);
    gcry_sexp_t sig = nullptr, data = nullptr;
    gcry_mpi_t me = to_mpi(e);
    gcry_sexp_build(&sig, nullptr, "(sig-val (ecdsa (r %b)(s %b)))", 24, signature, 24,
                    signature + 24);
    gcry_sexp_build(&data, nullptr, "(data (flags raw)(value %m))", me);
    const gcry_error_t err = gcry_pk_verify(sig, data, key);
    gcry_mpi_release(me);
    gcry_sexp_release(sig);
    gcry_sexp_release(data);
    gcry_sexp_release(key);
    return err == 0;
}

namespace {
uint64_t g_file_time = 0;
uint32_t g_state = 0;
uint32_t g_last_seed = 0;
int g_srand_calls = 0;
uint64_t fake_file_time() {
    return g_file_time;
}
int64_t fake_time() {
    return static_cast<int64_t>((g_file_time - 116444736000000000ull) / 10000000ull);
}
void fake_srand(uint32_t seed) {
    g_state = seed;
    g_last_seed = seed;
    ++g_srand_calls;
}
// The Windows C library's generator: 15-bit outputs.
int fake_rand() {
    g_state = g_state * 214013u + 2531011u;
    return static_cast<int>((g_state >> 16) & 0x7FFF);
}
}  // namespace

void FakeClock::install(uint64_t file_time) {
    g_file_time = file_time;
    g_srand_calls = 0;
    platform::set_time_source(fake_time, fake_file_time);
    platform::set_generator(fake_srand, fake_rand);
}
void FakeClock::uninstall() {
    platform::set_time_source(nullptr, nullptr);
    platform::set_generator(nullptr, nullptr);
}
void FakeClock::set(uint64_t file_time) {
    g_file_time = file_time;
}
uint32_t FakeClock::last_seed() {
    return g_last_seed;
}
int FakeClock::srand_calls() {
    return g_srand_calls;
}

}  // namespace signing_test
