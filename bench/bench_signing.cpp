// The software signature beside libgcrypt and OpenSSL on the same curve (explicit parameters):
// ECDSA sign, key generation, fixed- and variable-base multiplication, SHA-256 throughput.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <benchmark/benchmark.h>
#include <gcrypt.h>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/ecdsa.h>
#include <openssl/evp.h>
#include <openssl/sha.h>

#include <cstring>
#include <vector>

#include "signing/bignum.h"
#include "signing/curve192.h"
#include "signing/field192.h"
#include "signing/sha256.h"
#include "signing/signing.h"

namespace {

// A fixed key and message, the same for every implementation.
constexpr uint8_t kKey[24] = {0x90, 0xD8, 0xE7, 0xEC, 0x0B, 0x70, 0xF0, 0xC6,
                              0x96, 0xA8, 0x27, 0x55, 0x9D, 0x85, 0x90, 0x99,
                              0xE0, 0x0B, 0xE6, 0xD8, 0x4C, 0x53, 0x63, 0xE4};
constexpr uint8_t kMessage[52] = {0x1F, 0xFF, 0x00, 0x30, 1, 2, 3, 4, 5, 6, 7, 8, 9};

std::vector<uint8_t> curve_bytes(const BigNum& v) {
    std::vector<uint8_t> out(24);
    bn_to_bytes_fixed(v, out.data(), out.size(), kBnByteBound);
    return out;
}

// ---- Ours ------------------------------------------------------------------------------------

void BM_Ours_Sign(benchmark::State& state) {
    uint32_t limbs[6];
    const int32_t count = bytes_to_limbs(kKey, sizeof kKey, limbs, 6);
    uint8_t sig[48];
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            Sign_With_Private_Key(sig, kMessage, sizeof kMessage, limbs, count));
    }
}
BENCHMARK(BM_Ours_Sign);

void BM_Ours_KeyGen(benchmark::State& state) {
    uint8_t d[24], x[24], y[24];
    for (auto _ : state) {
        std::memset(d, 0, 24);
        std::memset(x, 0, 24);
        std::memset(y, 0, 24);
        benchmark::DoNotOptimize(GenPrivateKeyAndPublicKey(d, x, y));
    }
}
BENCHMARK(BM_Ours_KeyGen);

void BM_Ours_FixedBaseMul(benchmark::State& state) {
    BigNum k;
    bn_from_bytes(k, kKey, sizeof kKey);
    AffinePoint r;
    for (auto _ : state) {
        fixed_base_mul(r, k);
        benchmark::DoNotOptimize(r);
    }
}
BENCHMARK(BM_Ours_FixedBaseMul);

void BM_Ours_VariableBaseMul(benchmark::State& state) {
    BigNum k;
    bn_from_bytes(k, kKey, sizeof kKey);
    AffinePoint g;
    g.x = curve_params().gx;
    g.y = curve_params().gy;
    g.infinity = 0;
    AffinePoint r;
    for (auto _ : state) {
        variable_base_mul(r, k, g);
        benchmark::DoNotOptimize(r);
    }
}
BENCHMARK(BM_Ours_VariableBaseMul);

void BM_Ours_ModMulP(benchmark::State& state) {
    BigNum a = curve_params().gx, b = curve_params().gy;
    ModMulFn mul = curve_mod_mul();
    for (auto _ : state) {
        mul(a, a, b);
        benchmark::DoNotOptimize(a);
    }
}
BENCHMARK(BM_Ours_ModMulP);

void BM_Ours_InverseP(benchmark::State& state) {
    BigNum a = curve_params().gx;
    for (auto _ : state) {
        bn_mod_inverse(a, a, curve_params().p);
        benchmark::DoNotOptimize(a);
    }
}
BENCHMARK(BM_Ours_InverseP);

// The arithmetic under the signing paths: one Montgomery product and the constant-time Fermat
// inverse modulo p, in the three-limb form.
void BM_Ours_MontMulP(benchmark::State& state) {
    F192 a = mont_p().r2, b = mont_p().one;
    for (auto _ : state) {
        f192_mul(a, a, b, mont_p());
        benchmark::DoNotOptimize(a);
    }
}
BENCHMARK(BM_Ours_MontMulP);

void BM_Ours_InverseP_ConstantTime(benchmark::State& state) {
    F192 a = mont_p().r2;
    for (auto _ : state) {
        f192_inverse(a, a, mont_p());
        benchmark::DoNotOptimize(a);
    }
}
BENCHMARK(BM_Ours_InverseP_ConstantTime);

void BM_Ours_Sha256(benchmark::State& state) {
    std::vector<uint8_t> data(static_cast<size_t>(state.range(0)), 0x61);
    uint8_t d[32];
    for (auto _ : state) benchmark::DoNotOptimize(sha256(data.data(), data.size(), d));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_Ours_Sha256)->Arg(64)->Arg(1024)->Arg(65536);

// ---- libgcrypt -------------------------------------------------------------------------------

struct GcryptKey {
    gcry_sexp_t key = nullptr;
    gcry_sexp_t data = nullptr;
    gcry_ctx_t ctx = nullptr;
    GcryptKey() {
        gcry_check_version(nullptr);
        gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
        gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
        const CurveParams& c = curve_params();
        AffinePoint q;
        BigNum d;
        bn_from_bytes(d, kKey, sizeof kKey);
        fixed_base_mul(q, d);
        std::vector<uint8_t> g(1, 0x04), qq(1, 0x04);
        for (const BigNum* v : {&c.gx, &c.gy}) {
            auto b = curve_bytes(*v);
            g.insert(g.end(), b.begin(), b.end());
        }
        for (const BigNum* v : {&q.x, &q.y}) {
            auto b = curve_bytes(*v);
            qq.insert(qq.end(), b.begin(), b.end());
        }
        auto p = curve_bytes(c.p), a = curve_bytes(c.a), b = curve_bytes(c.b), n = curve_bytes(c.n);
        gcry_sexp_build(&key, nullptr,
                        "(private-key (ecc (p %b)(a %b)(b %b)(g %b)(n %b)(h %d)(q %b)(d %b)))", 24,
                        p.data(), 24, a.data(), 24, b.data(), 49, g.data(), 24, n.data(), 1, 49,
                        qq.data(), 24, kKey);
        uint8_t e[32];
        sha256(kMessage, sizeof kMessage, e);
        BigNum ev;
        bn_from_bytes(ev, e, 32);
        bn_mod(ev, ev, c.n);
        auto eb = curve_bytes(ev);
        gcry_sexp_build(&data, nullptr, "(data (flags raw)(value %b))", 24, eb.data());
        gcry_mpi_ec_new(&ctx, key, nullptr);
    }
};

GcryptKey& gcrypt_key() {
    static GcryptKey k;
    return k;
}

void BM_Gcrypt_Sign(benchmark::State& state) {
    GcryptKey& k = gcrypt_key();
    for (auto _ : state) {
        gcry_sexp_t sig = nullptr;
        if (gcry_pk_sign(&sig, k.data, k.key) != 0) state.SkipWithError("gcry_pk_sign failed");
        gcry_sexp_release(sig);
    }
}
BENCHMARK(BM_Gcrypt_Sign);

void BM_Gcrypt_PointMul(benchmark::State& state) {
    GcryptKey& k = gcrypt_key();
    gcry_mpi_point_t g = gcry_mpi_ec_get_point("g", k.ctx, 1);
    gcry_mpi_point_t r = gcry_mpi_point_new(0);
    gcry_mpi_t d = nullptr;
    gcry_mpi_scan(&d, GCRYMPI_FMT_USG, kKey, sizeof kKey, nullptr);
    for (auto _ : state) gcry_mpi_ec_mul(r, d, g, k.ctx);
    gcry_mpi_release(d);
    gcry_mpi_point_release(r);
    gcry_mpi_point_release(g);
}
BENCHMARK(BM_Gcrypt_PointMul);

void BM_Gcrypt_Sha256(benchmark::State& state) {
    std::vector<uint8_t> data(static_cast<size_t>(state.range(0)), 0x61);
    uint8_t d[32];
    for (auto _ : state) gcry_md_hash_buffer(GCRY_MD_SHA256, d, data.data(), data.size());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_Gcrypt_Sha256)->Arg(64)->Arg(1024)->Arg(65536);

// ---- OpenSSL ---------------------------------------------------------------------------------

struct OpenSslKey {
    EC_GROUP* group = nullptr;
    EC_KEY* key = nullptr;
    uint8_t e[24];
    OpenSslKey() {
        const CurveParams& c = curve_params();
        auto bn = [](const BigNum& v) {
            auto b = curve_bytes(v);
            return BN_bin2bn(b.data(), static_cast<int>(b.size()), nullptr);
        };
        BIGNUM *p = bn(c.p), *a = bn(c.a), *b = bn(c.b), *gx = bn(c.gx), *gy = bn(c.gy),
               *n = bn(c.n);
        BIGNUM* one = BN_new();
        BN_one(one);
        group = EC_GROUP_new_curve_GFp(p, a, b, nullptr);
        EC_POINT* g = EC_POINT_new(group);
        EC_POINT_set_affine_coordinates(group, g, gx, gy, nullptr);
        EC_GROUP_set_generator(group, g, n, one);
        key = EC_KEY_new();
        EC_KEY_set_group(key, group);
        BIGNUM* d = BN_bin2bn(kKey, sizeof kKey, nullptr);
        EC_KEY_set_private_key(key, d);
        EC_POINT* q = EC_POINT_new(group);
        EC_POINT_mul(group, q, d, nullptr, nullptr, nullptr);
        EC_KEY_set_public_key(key, q);
        uint8_t h[32];
        sha256(kMessage, sizeof kMessage, h);
        BigNum ev;
        bn_from_bytes(ev, h, 32);
        bn_mod(ev, ev, c.n);
        bn_to_bytes_fixed(ev, e, 24, kBnByteBound);
        for (BIGNUM* v : {p, a, b, gx, gy, n, one, d}) BN_free(v);
        EC_POINT_free(g);
        EC_POINT_free(q);
    }
};

OpenSslKey& openssl_key() {
    static OpenSslKey k;
    return k;
}

void BM_OpenSsl_Sign(benchmark::State& state) {
    OpenSslKey& k = openssl_key();
    for (auto _ : state) {
        ECDSA_SIG* sig = ECDSA_do_sign(k.e, sizeof k.e, k.key);
        if (sig == nullptr) state.SkipWithError("ECDSA_do_sign failed");
        ECDSA_SIG_free(sig);
    }
}
BENCHMARK(BM_OpenSsl_Sign);

void BM_OpenSsl_PointMul(benchmark::State& state) {
    OpenSslKey& k = openssl_key();
    BIGNUM* d = BN_bin2bn(kKey, sizeof kKey, nullptr);
    EC_POINT* q = EC_POINT_new(k.group);
    for (auto _ : state) EC_POINT_mul(k.group, q, d, nullptr, nullptr, nullptr);
    EC_POINT_free(q);
    BN_free(d);
}
BENCHMARK(BM_OpenSsl_PointMul);

void BM_OpenSsl_Sha256(benchmark::State& state) {
    std::vector<uint8_t> data(static_cast<size_t>(state.range(0)), 0x61);
    uint8_t d[32];
    for (auto _ : state) {
        unsigned int len = 0;
        EVP_Digest(data.data(), data.size(), d, &len, EVP_sha256(), nullptr);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_OpenSsl_Sha256)->Arg(64)->Arg(1024)->Arg(65536);

}  // namespace

BENCHMARK_MAIN();
