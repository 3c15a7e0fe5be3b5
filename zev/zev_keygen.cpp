// ZEV_SM2_GenerateAgreementDataWithECC: a fresh key pair d, P = [d]G on the session's curve.
#include <cstring>

#include "zev.h"
#include "zev_internal.h"

namespace zev {
namespace {

// Rejection sampling of d in [1, n-1] from bit strings as long as n; each draw is accepted
// with probability above one half, so running out of attempts means the generator is broken.
constexpr int kMaxDraws = 64;

gcry_mpi_t random_scalar(gcry_mpi_t n) {
    const unsigned bits = gcry_mpi_get_nbits(n);
    for (int i = 0; i < kMaxDraws; ++i) {
        gcry_mpi_t d = gcry_mpi_snew(bits);
        if (d == nullptr) return nullptr;
        gcry_mpi_randomize(d, bits, GCRY_STRONG_RANDOM);
        if (gcry_mpi_cmp_ui(d, 0) != 0 && gcry_mpi_cmp(d, n) < 0) return d;
        gcry_mpi_release(d);
    }
    return nullptr;
}

}  // namespace
}  // namespace zev

using namespace zev;

// The records are written only on success; bits is set to 256 in both.
extern "C" int32_t ZEV_SM2_GenerateAgreementDataWithECC(void* hSession,
                                                        ZEV_ECCPrivateKey* privateKey,
                                                        ZEV_ECCPublicKey* publicKey) {
    const Session* session = find_session(hSession);
    if (session == nullptr) return ZEV_ERR_SESSION;
    if (privateKey == nullptr || publicKey == nullptr) return ZEV_ERR_PARAM;

    EcContext ctx;
    if (!make_ec_context(*session, ctx)) return ZEV_ERR_CRYPTO;
    Point g(gcry_mpi_ec_get_point("g", ctx.get(), 1));
    Mpi d(random_scalar(session->n));
    if (g.get() == nullptr || !d) return ZEV_ERR_CRYPTO;

    Point pub;
    gcry_mpi_ec_mul(pub.get(), d.get(), g.get(), ctx.get());
    uint8_t k[kCoordLen], x[kCoordLen], y[kCoordLen];
    const bool ok = mpi_to_be(d.get(), k, sizeof k) && point_to_coords(ctx.get(), pub.get(), x, y);
    if (ok) {
        privateKey->bits = kRecordBits;
        std::memcpy(privateKey->K, k, sizeof k);
        publicKey->bits = kRecordBits;
        std::memcpy(publicKey->x, x, sizeof x);
        std::memcpy(publicKey->y, y, sizeof y);
    }
    wipe(k, sizeof k);
    return ok ? ZEV_OK : ZEV_ERR_CRYPTO;
}
