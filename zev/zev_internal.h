// Internal contracts of the ZEV stand-in: sessions, libgcrypt start-up, MPI and point helpers.
//
// Everything here is private to zev/ (hidden symbols). Secret scalars live in secure MPIs
// (gcry_mpi_snew) so that libgcrypt wipes them on release and multiplies them in constant time.
#pragma once

#include <gcrypt.h>

#include <cstddef>
#include <cstdint>

#include "zev.h"

namespace zev {

constexpr size_t kCoordLen = 32;       // every integer of the parameter block and the records
constexpr size_t kParamCount = 6;      // p, a, b, Gx, Gy, n
constexpr uint32_t kRecordBits = 256;  // bits written into the records we fill
constexpr size_t kDigestLen = 32;      // SM3 and HMAC-SM3 output

// One opened session: the curve of its parameter block, checked once at opening. Sessions are
// never closed; the enrollee opens one per process.
struct Session {
    bool in_use;
    uint8_t params[sizeof(ZEV_SessionParams)];  // the block as given (a, b, Gx, Gy enter Z)
    gcry_sexp_t curve;                          // (ecc (p)(a)(b)(g.x)(g.y)(n)(h 1))
    gcry_mpi_t p;
    gcry_mpi_t n;
};

// The session behind a handle, or nullptr when the handle is not one we returned. Never
// dereferences the handle before it is found in the registry.
const Session* find_session(const void* handle);

// Field offsets inside Session::params (the ZEV_SessionParams layout).
constexpr size_t kOffA = offsetof(ZEV_SessionParams, a);
constexpr size_t kOffB = offsetof(ZEV_SessionParams, b);
constexpr size_t kOffGx = offsetof(ZEV_SessionParams, gx);
constexpr size_t kOffGy = offsetof(ZEV_SessionParams, gy);

// ---- libgcrypt start-up ------------------------------------------------------------------
// Initialises libgcrypt once per process (thread-safe); leaves an initialisation done by the
// host or a test program alone. False when the library is too old to have SM3.
bool ensure_gcrypt();

// ---- MPI helpers ---------------------------------------------------------------------------
// Owns one gcry_mpi_t (released, and so wiped if secure, at scope end).
class Mpi {
  public:
    Mpi() = default;
    explicit Mpi(gcry_mpi_t m) : m_(m) {}
    ~Mpi() { gcry_mpi_release(m_); }
    Mpi(const Mpi&) = delete;
    Mpi& operator=(const Mpi&) = delete;
    gcry_mpi_t get() const { return m_; }
    void reset(gcry_mpi_t m) {
        gcry_mpi_release(m_);
        m_ = m;
    }
    explicit operator bool() const { return m_ != nullptr; }

  private:
    gcry_mpi_t m_ = nullptr;
};

// Owns one gcry_mpi_point_t.
class Point {
  public:
    Point() : p_(gcry_mpi_point_new(0)) {}
    explicit Point(gcry_mpi_point_t p) : p_(p) {}
    ~Point() { gcry_mpi_point_release(p_); }
    Point(const Point&) = delete;
    Point& operator=(const Point&) = delete;
    gcry_mpi_point_t get() const { return p_; }

  private:
    gcry_mpi_point_t p_;
};

// Owns one EC context.
class EcContext {
  public:
    EcContext() = default;
    ~EcContext() { gcry_ctx_release(ctx_); }
    EcContext(const EcContext&) = delete;
    EcContext& operator=(const EcContext&) = delete;
    gcry_ctx_t get() const { return ctx_; }
    gcry_ctx_t* out() { return &ctx_; }

  private:
    gcry_ctx_t ctx_ = nullptr;
};

// Big-endian bytes to a public MPI / to a secure MPI (for private scalars). nullptr on failure.
gcry_mpi_t mpi_from_be(const uint8_t* bytes, size_t len);
gcry_mpi_t secret_mpi_from_be(const uint8_t* bytes, size_t len);
// Writes m as exactly len big-endian bytes; false (and out zeroed) when m does not fit.
bool mpi_to_be(gcry_mpi_t m, uint8_t* out, size_t len);

// A fresh EC context over the session's curve. Each call gets its own, so concurrent calls on
// one session never share libgcrypt's scratch values.
bool make_ec_context(const Session& session, EcContext& ctx);

// Reads a 32-byte coordinate pair as a curve point after checking it: both coordinates below p,
// not the all-zero encoding of the point at infinity, on the curve. False on any failure.
bool point_from_coords(const Session& session, gcry_ctx_t ctx, const uint8_t* x, const uint8_t* y,
                       Point& out);
// Affine coordinates of pt into x[32], y[32]; false for the point at infinity.
bool point_to_coords(gcry_ctx_t ctx, gcry_mpi_point_t pt, uint8_t* x, uint8_t* y);

// Overwrites n bytes in a way the compiler keeps.
void wipe(void* p, size_t n);

}  // namespace zev
