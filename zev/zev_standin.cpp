// ZEV stand-in over libgcrypt: libgcrypt start-up, the session registry and ZEV_OpenSession.
//
// Replacing the stand-in with a vendor library
// --------------------------------------------
// wapiwps reaches SM2 key agreement, SM3 and HMAC-SM3 only through the C ABI of zev.h and links
// against the zev shared library by name (zev.dll on Windows, libzev.so elsewhere). A vendor
// library that exports the same functions with the same record layouts and calling convention
// replaces this one by putting its zev.dll beside wapiwps.dll; nothing in wapiwps is rebuilt.
// The vendor's status codes may differ from ours: the enrollee only tests for zero.
// ZEV_SM2_GenerateKeyWithECC_Responder is our own extension for the reference registrar (the
// responder of the key exchange); the enrollee never calls it, so a vendor library need not have
// it, and only our registrar and tests need this stand-in.
//
// Sessions
// --------
// A session is the curve of one parameter block, checked once when it is opened. Opening the
// same block again returns the same handle, so repeated opens never grow the registry; a
// handle is only ever compared against the registry, never dereferenced first, so a stale or
// garbage handle is refused with ZEV_ERR_SESSION. Sessions are never closed (the enrollee keeps
// its one session for the life of the process).
#include <cstring>
#include <mutex>

#include "zev.h"
#include "zev_internal.h"

namespace zev {
namespace {

// The oldest libgcrypt with SM3 in both its hash and MAC interfaces.
constexpr char kMinGcryptVersion[] = "1.9.0";
constexpr unsigned kSecureMemoryLen = 65536;
constexpr unsigned kSecureMemoryChunk = 32768;
constexpr size_t kMaxSessions = 16;

// Plain zero-initialised storage: no constructor runs before the loader calls us.
Session g_sessions[kMaxSessions];
std::mutex g_registry_lock;

bool init_gcrypt_once() {
    if (gcry_check_version(kMinGcryptVersion) == nullptr) return false;
    // A host or test program that set libgcrypt up itself keeps its own choices.
    if (gcry_control(GCRYCTL_INITIALIZATION_FINISHED_P)) return true;
    // Secure memory may not be lockable (containers, Wine): use it anyway, without warnings.
    gcry_control(GCRYCTL_DISABLE_SECMEM_WARN);
    gcry_control(GCRYCTL_AUTO_EXPAND_SECMEM, kSecureMemoryChunk);
    gcry_control(GCRYCTL_INIT_SECMEM, kSecureMemoryLen, 0);
    gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
    return true;
}

// Little-endian 64-bit count at the end of the block.
uint64_t get_le64(const uint8_t* b) {
    uint64_t v = 0;
    for (int i = 7; i >= 0; --i) v = (v << 8) | b[i];
    return v;
}

// ---- Curve checks ----------------------------------------------------------------------------
// The parameter block is checked as a whole before a session is made from it: a prime field, a
// non-singular curve, a base point on it of prime order n, and cofactor 1 (n inside the Hasse
// interval of p). Cofactor 1 is what the key exchange assumes (h = 1): every point on the curve
// other than infinity then has order n, so on-curve checks of peer points suffice.

struct CurveMpis {
    Mpi p, a, b, gx, gy, n;
};

bool read_curve(const uint8_t* block, CurveMpis& c) {
    c.p.reset(mpi_from_be(block + offsetof(ZEV_SessionParams, p), kCoordLen));
    c.a.reset(mpi_from_be(block + kOffA, kCoordLen));
    c.b.reset(mpi_from_be(block + kOffB, kCoordLen));
    c.gx.reset(mpi_from_be(block + kOffGx, kCoordLen));
    c.gy.reset(mpi_from_be(block + kOffGy, kCoordLen));
    c.n.reset(mpi_from_be(block + offsetof(ZEV_SessionParams, n), kCoordLen));
    return c.p && c.a && c.b && c.gx && c.gy && c.n;
}

// Miller-Rabin with the first sixteen primes as fixed bases. Deterministic on purpose: the
// enrollee opens its session while the operating system loads it, and libgcrypt's own prime
// test would start its random generator there (on Windows, an entropy poll under the loader
// lock). The block comes from the host, not from the air, so fixed bases are enough.
constexpr unsigned kPrimeBases[] = {2, 3, 5, 7, 11, 13, 17, 19, 23, 29, 31, 37, 41, 43, 47, 53};

bool is_prime(gcry_mpi_t m) {
    for (unsigned b : kPrimeBases) {
        if (gcry_mpi_cmp_ui(m, b) == 0) return true;
    }
    if (gcry_mpi_cmp_ui(m, kPrimeBases[15]) < 0 || !gcry_mpi_test_bit(m, 0)) return false;
    Mpi m_minus_1(gcry_mpi_new(0)), d(gcry_mpi_new(0)), a(gcry_mpi_new(0)), x(gcry_mpi_new(0));
    gcry_mpi_sub_ui(m_minus_1.get(), m, 1);
    unsigned s = 0;
    while (!gcry_mpi_test_bit(m_minus_1.get(), s)) ++s;
    gcry_mpi_rshift(d.get(), m_minus_1.get(), s);
    for (unsigned b : kPrimeBases) {
        gcry_mpi_set_ui(a.get(), b);
        gcry_mpi_powm(x.get(), a.get(), d.get(), m);
        if (gcry_mpi_cmp_ui(x.get(), 1) == 0 || gcry_mpi_cmp(x.get(), m_minus_1.get()) == 0)
            continue;
        bool witness = true;
        for (unsigned i = 1; i < s && witness; ++i) {
            gcry_mpi_mulm(x.get(), x.get(), x.get(), m);
            if (gcry_mpi_cmp(x.get(), m_minus_1.get()) == 0) witness = false;
        }
        if (witness) return false;
    }
    return true;
}

// p an odd prime above 3; a, b reduced; 4a^3 + 27b^2 != 0 (mod p).
bool field_and_coefficients_ok(const CurveMpis& c) {
    if (gcry_mpi_cmp_ui(c.p.get(), 3) <= 0 || !gcry_mpi_test_bit(c.p.get(), 0)) return false;
    if (!is_prime(c.p.get())) return false;
    if (gcry_mpi_cmp(c.a.get(), c.p.get()) >= 0 || gcry_mpi_cmp(c.b.get(), c.p.get()) >= 0) {
        return false;
    }
    Mpi t(gcry_mpi_new(0)), u(gcry_mpi_new(0));
    gcry_mpi_mulm(t.get(), c.a.get(), c.a.get(), c.p.get());
    gcry_mpi_mulm(t.get(), t.get(), c.a.get(), c.p.get());
    gcry_mpi_mul_ui(t.get(), t.get(), 4);
    gcry_mpi_mulm(u.get(), c.b.get(), c.b.get(), c.p.get());
    gcry_mpi_mul_ui(u.get(), u.get(), 27);
    gcry_mpi_addm(t.get(), t.get(), u.get(), c.p.get());
    return gcry_mpi_cmp_ui(t.get(), 0) != 0;
}

// n prime and (n - (p + 1))^2 <= 4p, so that the curve has exactly n points.
bool order_ok(const CurveMpis& c) {
    if (gcry_mpi_cmp_ui(c.n.get(), 2) <= 0 || !is_prime(c.n.get())) return false;
    Mpi d(gcry_mpi_new(0)), lhs(gcry_mpi_new(0)), rhs(gcry_mpi_new(0));
    gcry_mpi_add_ui(d.get(), c.p.get(), 1);
    gcry_mpi_sub(d.get(), c.n.get(), d.get());
    gcry_mpi_mul(lhs.get(), d.get(), d.get());
    gcry_mpi_mul_ui(rhs.get(), c.p.get(), 4);
    return gcry_mpi_cmp(lhs.get(), rhs.get()) <= 0;
}

// G is a valid point of the curve and [n]G is the point at infinity.
bool base_point_ok(Session& s, const uint8_t* block) {
    EcContext ctx;
    if (!make_ec_context(s, ctx)) return false;
    Point g;
    if (!point_from_coords(s, ctx.get(), block + kOffGx, block + kOffGy, g)) return false;
    Point ng;
    gcry_mpi_ec_mul(ng.get(), s.n, g.get(), ctx.get());
    Mpi x(gcry_mpi_new(0)), y(gcry_mpi_new(0));
    return gcry_mpi_ec_get_affine(x.get(), y.get(), ng.get(), ctx.get()) != 0;
}

void release_session(Session& s) {
    gcry_sexp_release(s.curve);
    gcry_mpi_release(s.p);
    gcry_mpi_release(s.n);
    std::memset(&s, 0, sizeof s);
}

// Fills a free slot from the block; false (slot left free) when the curve is not acceptable.
bool build_session(const uint8_t* block, Session& s) {
    CurveMpis c;
    if (!read_curve(block, c) || !field_and_coefficients_ok(c) || !order_ok(c)) return false;
    std::memcpy(s.params, block, sizeof s.params);
    s.p = gcry_mpi_copy(c.p.get());
    s.n = gcry_mpi_copy(c.n.get());
    gcry_error_t err =
        gcry_sexp_build(&s.curve, nullptr, "(ecc (p %m)(a %m)(b %m)(g.x %m)(g.y %m)(n %m)(h %u))",
                        c.p.get(), c.a.get(), c.b.get(), c.gx.get(), c.gy.get(), c.n.get(), 1u);
    if (err != 0 || s.p == nullptr || s.n == nullptr || !base_point_ok(s, block)) {
        release_session(s);
        return false;
    }
    return true;
}

}  // namespace

bool ensure_gcrypt() {
    static const bool ok = init_gcrypt_once();
    return ok;
}

const Session* find_session(const void* handle) {
    if (handle == nullptr) return nullptr;
    std::lock_guard<std::mutex> hold(g_registry_lock);
    for (const Session& s : g_sessions) {
        if (static_cast<const void*>(&s) == handle && s.in_use) return &s;
    }
    return nullptr;
}

}  // namespace zev

using namespace zev;

extern "C" int32_t ZEV_OpenSession(void** phSession, const void* params) {
    if (phSession == nullptr || params == nullptr) return ZEV_ERR_PARAM;
    const auto* block = static_cast<const uint8_t*>(params);
    if (get_le64(block + offsetof(ZEV_SessionParams, count)) != kParamCount) return ZEV_ERR_PARAM;
    if (!ensure_gcrypt()) return ZEV_ERR_CRYPTO;

    std::lock_guard<std::mutex> hold(g_registry_lock);
    // The same curve again: the session already made for it.
    for (Session& s : g_sessions) {
        if (s.in_use && std::memcmp(s.params, block, sizeof s.params) == 0) {
            *phSession = &s;
            return ZEV_OK;
        }
    }
    // A refused block leaves *phSession as it was, whether or not the registry has room.
    Session fresh{};
    if (!build_session(block, fresh)) return ZEV_ERR_PARAM;
    for (Session& s : g_sessions) {
        if (s.in_use) continue;
        s = fresh;
        s.in_use = true;
        *phSession = &s;
        return ZEV_OK;
    }
    release_session(fresh);
    return ZEV_ERR_SESSION;  // every slot holds another curve
}
