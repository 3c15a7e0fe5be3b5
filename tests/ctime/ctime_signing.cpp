// Constant-time check of signing and key generation, in the manner of libsecp256k1's ctime test:
// under valgrind's memcheck, the private key and the nonce are marked undefined, so every branch
// or memory index that depends on them is reported as a use of uninitialised data. The CTest
// test runs this with --error-exitcode and requires zero reports.
//
// With --expect-report the program instead runs the NAF multiplier, whose digit walk branches on
// the scalar, on an undefined scalar: memcheck must report it (a second CTest test that is
// expected to fail), which shows that the marking reaches the code under test.
#include <valgrind/memcheck.h>

#include <cstdio>
#include <cstring>

#include "signing/curve192.h"
#include "signing/signing.h"

namespace {

// Distinct keys and nonces, including a key with a zero top byte (the minimal-form case).
constexpr uint32_t kKeys[][6] = {
    {0x56564676u, 0x5DFAE76Fu, 0x0FC96219u, 0x0DA8C0D4u, 0x3E8B1D9Eu, 0xBDB6F4FEu},  // n - 1
    {0x9D859099u, 0xE00BE6D8u, 0x4C5363E4u, 0x96A82755u, 0x0B70F0C6u, 0x00D8E7ECu},
    {0x00000001u, 0, 0, 0, 0, 0},
    {0x12345678u, 0x9ABCDEF0u, 0x0F1E2D3Cu, 0x4B5A6978u, 0x8796A5B4u, 0x7C3D5E1Fu},
};

BigNum scalar(const uint32_t* limbs) {
    BigNum b{};
    for (int i = 0; i < 6; ++i) b.limb[i] = limbs[i];
    b.count = 6;  // the count is public: only the limbs are marked
    return b;
}

int run_checked() {
    CurveSetup();
    const uint8_t message[52] = {0x1F, 0xFF, 0x00, 0x30, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    int signatures = 0;
    for (const auto& key : kKeys) {
        for (const auto& nonce : kKeys) {
            uint32_t d[6];
            std::memcpy(d, key, sizeof d);
            BigNum k = scalar(nonce);
            VALGRIND_MAKE_MEM_UNDEFINED(d, sizeof d);
            VALGRIND_MAKE_MEM_UNDEFINED(k.limb, 6 * sizeof(uint32_t));
            uint8_t signature[48];
            const int32_t written = sign_with_explicit_k(signature, message, sizeof message, d, 6, k);
            VALGRIND_MAKE_MEM_DEFINED(signature, sizeof signature);
            if (written == 48) ++signatures;
        }
        BigNum d = scalar(key);
        VALGRIND_MAKE_MEM_UNDEFINED(d.limb, 6 * sizeof(uint32_t));
        uint8_t priv[24] = {}, x[24] = {}, y[24] = {};
        key_pair_from_scalar(d, priv, x, y);
        VALGRIND_MAKE_MEM_DEFINED(priv, sizeof priv);
    }
    std::printf("%d signatures and %zu key pairs made with secret inputs marked undefined\n",
                signatures, sizeof kKeys / sizeof kKeys[0]);
    return signatures == 16 ? 0 : 2;
}

int run_expect_report() {
    CurveSetup();
    BigNum d = scalar(kKeys[1]);
    VALGRIND_MAKE_MEM_UNDEFINED(d.limb, 6 * sizeof(uint32_t));
    AffinePoint g{}, q{};
    g.x = curve_params().gx;
    g.y = curve_params().gy;
    variable_base_mul(q, d, g);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "--expect-report") == 0) return run_expect_report();
    return run_checked();
}
