// MPI and curve-point helpers of the ZEV stand-in: big-endian conversions and checked points.
#include <cstring>

#include "zev_internal.h"

namespace zev {

gcry_mpi_t mpi_from_be(const uint8_t* bytes, size_t len) {
    gcry_mpi_t m = nullptr;
    if (gcry_mpi_scan(&m, GCRYMPI_FMT_USG, bytes, len, nullptr) != 0) return nullptr;
    return m;
}

// libgcrypt makes the MPI secure when the buffer it scans is secure, so the bytes pass through
// a wiped secure copy instead of being scanned from the caller's record.
gcry_mpi_t secret_mpi_from_be(const uint8_t* bytes, size_t len) {
    auto* staged = static_cast<uint8_t*>(gcry_malloc_secure(len == 0 ? 1 : len));
    if (staged == nullptr) return nullptr;
    std::memcpy(staged, bytes, len);
    gcry_mpi_t m = nullptr;
    if (gcry_mpi_scan(&m, GCRYMPI_FMT_USG, staged, len, nullptr) != 0) m = nullptr;
    wipe(staged, len);
    gcry_free(staged);
    return m;
}

bool mpi_to_be(gcry_mpi_t m, uint8_t* out, size_t len) {
    std::memset(out, 0, len);
    const size_t bits = gcry_mpi_get_nbits(m);
    if (bits > len * 8) return false;
    const size_t used = (bits + 7) / 8;
    if (used == 0) return true;
    size_t written = 0;
    if (gcry_mpi_print(GCRYMPI_FMT_USG, out + (len - used), used, &written, m) != 0 ||
        written != used) {
        std::memset(out, 0, len);
        return false;
    }
    return true;
}

bool make_ec_context(const Session& session, EcContext& ctx) {
    return gcry_mpi_ec_new(ctx.out(), session.curve, nullptr) == 0;
}

namespace {

bool all_zero(const uint8_t* b, size_t len) {
    uint8_t acc = 0;
    for (size_t i = 0; i < len; ++i) acc |= b[i];
    return acc == 0;
}

}  // namespace

bool point_from_coords(const Session& session, gcry_ctx_t ctx, const uint8_t* x, const uint8_t* y,
                       Point& out) {
    // Fixed-width records have no other encoding of the point at infinity than all zeros.
    if (all_zero(x, kCoordLen) && all_zero(y, kCoordLen)) return false;
    Mpi mx(mpi_from_be(x, kCoordLen)), my(mpi_from_be(y, kCoordLen));
    if (!mx || !my || out.get() == nullptr) return false;
    // Coordinates must be reduced: libgcrypt would otherwise accept x + p for x.
    if (gcry_mpi_cmp(mx.get(), session.p) >= 0 || gcry_mpi_cmp(my.get(), session.p) >= 0) {
        return false;
    }
    gcry_mpi_point_set(out.get(), mx.get(), my.get(), GCRYMPI_CONST_ONE);
    return gcry_mpi_ec_curve_point(out.get(), ctx) != 0;
}

bool point_to_coords(gcry_ctx_t ctx, gcry_mpi_point_t pt, uint8_t* x, uint8_t* y) {
    Mpi mx(gcry_mpi_new(0)), my(gcry_mpi_new(0));
    if (gcry_mpi_ec_get_affine(mx.get(), my.get(), pt, ctx) != 0) return false;
    return mpi_to_be(mx.get(), x, kCoordLen) && mpi_to_be(my.get(), y, kCoordLen);
}

void wipe(void* p, size_t n) {
    volatile uint8_t* b = static_cast<volatile uint8_t*>(p);
    for (size_t i = 0; i < n; ++i) b[i] = 0;
}

}  // namespace zev
