// The software signature: the fixed-nonce known answers, every signature we make verified by
// libgcrypt, key generation, the left-aligned minimal encoding of keys and coordinates, and the
// clock-and-counter behaviour of RandomScalar.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "signing/signing.h"
#include "support.h"

using namespace signing_test;

namespace {

// A fixed instant: 2026-11-21 12:00:00 UTC as a file time.
constexpr uint64_t kUnixToFileTime = 116444736000000000ull;
constexpr uint64_t kSeconds = 1795262400ull;
constexpr uint64_t kFileTime = kUnixToFileTime + kSeconds * 10000000ull;

struct Key {
    uint32_t limbs[6];
    int32_t count;
};

Key key_from_hex(const std::string& hex24) {
    const std::vector<uint8_t> b = from_hex(hex24);
    Key k{};
    k.count = bytes_to_limbs(b.data(), b.size(), k.limbs, 6);
    return k;
}

AffinePoint public_key(const BigNum& d) {
    AffinePoint q;
    fixed_base_mul(q, d);
    return q;
}

class WithFakeClock : public ::testing::Test {
  protected:
    void SetUp() override {
        gcrypt_init();
        saved_counter_ = random_counter();
        FakeClock::install(kFileTime);
    }
    void TearDown() override {
        FakeClock::uninstall();
        set_random_counter(saved_counter_);
    }
    int32_t saved_counter_ = 0;
};

}  // namespace

TEST(EcdsaVectors, FixedNonceSignatures) {
    const auto& list = vectors("ecdsa_wapi192.json")["vectors"].items;
    ASSERT_GE(list.size(), 8u);
    for (const auto& v : list) {
        const std::string what = v["description"].str();
        const std::vector<uint8_t> msg = from_hex(v["msg_hex"].str());
        BigNum e;
        ecdsa_message_scalar(e, msg.data(), static_cast<uint32_t>(msg.size()));
        EXPECT_EQ(bn_to_hex(e), bn_to_hex(bn_hex(v["e_sha256_mod_n"].str()))) << what;
        const Key key = key_from_hex(v["d"].str());
        uint8_t sig[kSignatureBytes + 4];
        std::memset(sig, 0xA5, sizeof sig);
        ASSERT_EQ(sign_with_explicit_k(sig, msg.data(), static_cast<uint32_t>(msg.size()),
                                       key.limbs, key.count, bn_hex(v["k"].str())),
                  48)
            << what;
        EXPECT_EQ(to_hex(sig, kSignatureBytes), v["signature_r_s_48"].str()) << what;
        EXPECT_EQ(to_hex(sig + kSignatureBytes, 4), "A5A5A5A5") << what;  // exactly 48 written
        // The published public key is d*G by both multipliers.
        const BigNum d = bn_hex(v["d"].str());
        AffinePoint q = public_key(d), qv;
        AffinePoint g = *fixed_base_point(1);
        variable_base_mul(qv, d, g);
        EXPECT_EQ(bn_to_hex(q.x), bn_to_hex(bn_hex(v["Qx"].str()))) << what;
        EXPECT_EQ(bn_to_hex(q.y), bn_to_hex(bn_hex(v["Qy"].str()))) << what;
        EXPECT_EQ(bn_compare(q.x, qv.x), 0) << what;
        EXPECT_EQ(bn_compare(q.y, qv.y), 0) << what;
    }
}

TEST(EcdsaVectors, LeftAlignedKeyGivesASignatureThatDoesNotVerify) {
    gcrypt_init();
    // The key whose top byte is zero, as key generation leaves it in a zeroed 24-byte area and
    // the signer then reads all 24 bytes as one integer (d * 256).
    for (const auto& v : vectors("ecdsa_wapi192.json")["vectors"].items) {
        if (!v.has("left_aligned_key_quirk")) continue;
        const auto& q = v["left_aligned_key_quirk"];
        std::vector<uint8_t> area(24, 0);
        const std::vector<uint8_t> minimal =
            from_hex(v["d_minimal_as_GenPrivateKeyAndPublicKey_writes"].str());
        ASSERT_EQ(minimal.size(), 23u);
        std::memcpy(area.data(), minimal.data(), minimal.size());
        EXPECT_EQ(to_hex(area), q["area_24_bytes"].str());
        const Key key = key_from_hex(to_hex(area));
        const std::vector<uint8_t> msg = from_hex(v["msg_hex"].str());
        uint8_t sig[kSignatureBytes];
        ASSERT_EQ(
            sign_with_explicit_k(sig, msg.data(), 3, key.limbs, key.count, bn_hex(v["k"].str())),
            48);
        EXPECT_EQ(to_hex(sig, 24), q["r"].str());
        EXPECT_EQ(to_hex(sig + 24, 24), q["s"].str());
        BigNum e;
        ecdsa_message_scalar(e, msg.data(), 3);
        EXPECT_FALSE(ref_verify(e, sig, bn_hex(v["Qx"].str()), bn_hex(v["Qy"].str())));
        return;
    }
    FAIL() << "no left-aligned key vector";
}

TEST(EcdsaVectors, OpenSslSignaturesVerifyWithOurHashScalar) {
    gcrypt_init();
    // Signatures made elsewhere with e = SHA-256 mod n: our e makes libgcrypt accept them.
    for (const auto& v : vectors("ecdsa_wapi192.json")["openssl_made_signatures"].items) {
        const std::vector<uint8_t> msg = from_hex(v["msg_hex"].str());
        BigNum e;
        ecdsa_message_scalar(e, msg.data(), static_cast<uint32_t>(msg.size()));
        const AffinePoint q = public_key(bn_hex(v["d"].str()));
        std::vector<uint8_t> sig = from_hex(v["r"].str() + v["s"].str());
        EXPECT_TRUE(ref_verify(e, sig.data(), q.x, q.y)) << v["msg_hex"].str();
    }
}

TEST(EcdsaVectors, ThirdPartyKeyPairs) {
    for (const auto& v : vectors("ecdsa_wapi192.json")["third_party_keypairs"].items) {
        const BigNum d = bn_hex(v["d"].str());
        AffinePoint qf = public_key(d), qv;
        variable_base_mul(qv, d, *fixed_base_point(1));
        EXPECT_EQ(bn_to_hex(qf.x), bn_to_hex(bn_hex(v["Qx"].str())));
        EXPECT_EQ(bn_to_hex(qf.y), bn_to_hex(bn_hex(v["Qy"].str())));
        EXPECT_EQ(bn_to_hex(qv.x), bn_to_hex(bn_hex(v["Qx"].str())));
        EXPECT_EQ(bn_to_hex(qv.y), bn_to_hex(bn_hex(v["Qy"].str())));
    }
}

TEST(Ecdsa, EverySignatureVerifiesWithLibgcrypt) {
    gcrypt_init();
    std::mt19937_64 rng(0x5161);
    const BigNum& n = curve_params().n;
    const CurveParams& c = curve_params();
    for (int i = 0; i < loops(2000); ++i) {
        BigNum d = random_below(rng, n);
        if (bn_is_zero(d)) continue;
        const RefPoint q = ref_mul(d, c.gx, c.gy);  // the key made independently
        std::vector<uint8_t> msg(rng() % 200);
        for (auto& b : msg) b = static_cast<uint8_t>(rng());
        // Every other key is passed as d + m*n with up to 12 limbs: it must act as d.
        BigNum key = d;
        if (i % 2 == 1) {
            BigNum m = random_bn(rng, 6), mn;
            bn_mul(mn, m, n);
            bn_add(key, mn, d);
        }
        uint32_t limbs[kBigNumLimbs] = {};
        for (int32_t l = 0; l < key.count; ++l) limbs[l] = key.limb[l];
        uint8_t sig[kSignatureBytes + 8];
        std::memset(sig, 0x5A, sizeof sig);
        ASSERT_EQ(Sign_With_Private_Key(sig, msg.data(), static_cast<uint32_t>(msg.size()), limbs,
                                        key.count),
                  48);
        ASSERT_EQ(to_hex(sig + kSignatureBytes, 8), "5A5A5A5A5A5A5A5A");
        BigNum e;
        ecdsa_message_scalar(e, msg.data(), static_cast<uint32_t>(msg.size()));
        ASSERT_TRUE(ref_verify(e, sig, q.x, q.y))
            << "d = " << bn_to_hex(d) << " msg len " << msg.size();
    }
}

TEST(Ecdsa, OddArgumentsNeverCrash) {
    const uint8_t msg[3] = {'a', 'b', 'c'};
    uint32_t limbs[20];
    for (auto& l : limbs) l = 0xFFFFFFFFu;
    uint8_t sig[kSignatureBytes];
    EXPECT_EQ(Sign_With_Private_Key(nullptr, msg, 3, limbs, 6), 0);
    EXPECT_EQ(Sign_With_Private_Key(sig, nullptr, 3, limbs, 6), 0);
    EXPECT_EQ(Sign_With_Private_Key(sig, nullptr, 0, limbs, 6), 48);  // empty message
    EXPECT_EQ(Sign_With_Private_Key(sig, msg, 3, limbs, -1), 48);     // key 0
    EXPECT_EQ(Sign_With_Private_Key(sig, msg, 3, limbs, 20), 48);     // clamped, reduced mod n
    EXPECT_EQ(Sign_With_Private_Key(sig, msg, 3, nullptr, 6), 48);
    // A nonce of zero or n cannot sign.
    BigNum zero;
    bn_zero(zero);
    EXPECT_EQ(sign_with_explicit_k(sig, msg, 3, limbs, 6, zero), 0);
    EXPECT_EQ(sign_with_explicit_k(sig, msg, 3, limbs, 6, curve_params().n), 0);
}

TEST_F(WithFakeClock, RandomScalarFollowsTheClockAndTheCounter) {
    // Recompute the draw: seed = whole seconds since 1970; limb = 1 | t0 | t1 << 11 | t2 << 22
    // with t = rand() + (c >> 1) + 3c, c counting every rand() taken.
    const BigNum& n = curve_params().n;
    for (int32_t start : {0, 1, 1000, 0x7FFFFFFE, -5}) {
        set_random_counter(start);
        BigNum k;
        RandomScalar(k, n);
        EXPECT_EQ(FakeClock::last_seed(), static_cast<uint32_t>(kSeconds));
        uint32_t state = static_cast<uint32_t>(kSeconds);
        int32_t c = start;
        BigNum raw;
        bn_zero(raw);
        for (int l = 0; l < 6; ++l) {
            uint32_t limb = 1;
            for (int shift : {0, 11, 22}) {
                state = state * 214013u + 2531011u;
                const uint32_t r = (state >> 16) & 0x7FFF;
                const uint32_t t =
                    r + static_cast<uint32_t>(c >> 1) + 3u * static_cast<uint32_t>(c);
                c = static_cast<int32_t>(static_cast<uint32_t>(c) + 1u);
                limb |= t << shift;
            }
            raw.limb[l] = limb;
        }
        raw.count = 6;
        bn_normalise(raw);
        gcry_mpi_t mr = to_mpi(raw), mn = to_mpi(n);
        gcry_mpi_mod(mr, mr, mn);
        EXPECT_EQ(bn_to_hex(k), bn_to_hex(from_mpi(mr))) << "counter " << start;
        gcry_mpi_release(mr);
        gcry_mpi_release(mn);
        EXPECT_EQ(random_counter(), c);
        EXPECT_EQ(random_counter(), static_cast<int32_t>(static_cast<uint32_t>(start) + 18u));
    }
}

TEST_F(WithFakeClock, TwoSignaturesInOneSecondDifferOnlyThroughTheCounter) {
    const Key key = key_from_hex("90D8E7EC0B70F0C696A827559D859099E00BE6D84C5363E4");
    const uint8_t msg[3] = {'a', 'b', 'c'};
    uint8_t first[kSignatureBytes], second[kSignatureBytes], replay[kSignatureBytes];
    set_random_counter(0);
    ASSERT_EQ(Sign_With_Private_Key(first, msg, 3, key.limbs, key.count), 48);
    ASSERT_EQ(Sign_With_Private_Key(second, msg, 3, key.limbs, key.count), 48);
    EXPECT_NE(to_hex(first, 24), to_hex(second, 24));  // different r: different k
    EXPECT_GE(FakeClock::srand_calls(), 2);            // reseeded at every draw
    // The same second and the same counter give the same nonce, hence the same signature.
    set_random_counter(0);
    ASSERT_EQ(Sign_With_Private_Key(replay, msg, 3, key.limbs, key.count), 48);
    EXPECT_EQ(to_hex(replay, 48), to_hex(first, 48));
    // Another second with the counter at its start value gives another nonce.
    FakeClock::set(kFileTime + 10000000ull);
    set_random_counter(0);
    ASSERT_EQ(Sign_With_Private_Key(replay, msg, 3, key.limbs, key.count), 48);
    EXPECT_NE(to_hex(replay, 24), to_hex(first, 24));
}

TEST_F(WithFakeClock, GeneratedKeysMatchLibgcrypt) {
    // Each area must hold the minimal big-endian form, left-aligned, the rest still zero.
    auto minimal_area = [](const BigNum& v) {
        std::vector<uint8_t> area(24, 0);
        size_t n = 0;
        bn_to_bytes_minimal(v, area.data(), 24, &n);
        return to_hex(area);
    };
    const CurveParams& c = curve_params();
    for (int i = 0; i < 20; ++i) {
        const uint64_t t = kFileTime + static_cast<uint64_t>(i) * 10000000ull;
        FakeClock::set(t);
        set_random_counter(i * 100);
        uint8_t d[24] = {}, x[24] = {}, y[24] = {};
        ASSERT_EQ(GenPrivateKeyAndPublicKey(d, x, y), 0);
        EXPECT_EQ(random_counter(), i * 100 + 18);  // one draw of six limbs
        // Replay the draw for the key, then compute the public key with libgcrypt.
        FakeClock::set(t);
        set_random_counter(i * 100);
        BigNum kd;
        RandomScalar(kd, c.n);
        const RefPoint ref = ref_mul(kd, c.gx, c.gy);
        ASSERT_FALSE(ref.infinity);
        EXPECT_EQ(to_hex(d, 24), minimal_area(kd)) << i;
        EXPECT_EQ(to_hex(x, 24), minimal_area(ref.x)) << i;
        EXPECT_EQ(to_hex(y, 24), minimal_area(ref.y)) << i;
    }
}

// Finds, by stepping the fake clock one second at a time from `first` seconds after kFileTime, a
// draw whose key (or whose public x) has a zero top byte; returns the file time, with the counter
// reset to `counter` before each draw. The tests start at the first hit of a search from 0
// (found once; kept so that the suite stays fast) and would step on if the draw ever changed.
namespace {
uint64_t find_time(int32_t counter, bool want_short_x, uint64_t first) {
    const CurveParams& c = curve_params();
    for (uint64_t s = first; s < first + 20000; ++s) {
        const uint64_t t = kFileTime + s * 10000000ull;
        FakeClock::set(t);
        set_random_counter(counter);
        BigNum d;
        RandomScalar(d, c.n);
        if (!want_short_x) {
            if (bn_bit_length(d) <= 184 && bn_bit_length(d) > 176) return t;
            continue;
        }
        AffinePoint q;
        fixed_base_mul(q, d);
        if (bn_bit_length(q.x) <= 184 && bn_bit_length(q.x) > 176) return t;
    }
    return 0;
}
}  // namespace

TEST_F(WithFakeClock, ShortPrivateKeyIsLeftAlignedAndItsSignatureNoLongerMatches) {
    const uint64_t t = find_time(0, false, 14);
    ASSERT_EQ(t, kFileTime + 14 * 10000000ull);
    FakeClock::set(t);
    set_random_counter(0);
    uint8_t d[24] = {}, x[24] = {}, y[24] = {};
    ASSERT_EQ(GenPrivateKeyAndPublicKey(d, x, y), 0);
    EXPECT_EQ(d[23], 0);  // 23 bytes written from the start, the last byte left as zeroed
    EXPECT_NE(d[0], 0);
    // The real key is the 23 bytes; the public key belongs to it.
    BigNum real;
    bn_from_bytes(real, d, 23);
    const AffinePoint q = public_key(real);
    BigNum qx, qy;
    bn_from_bytes(qx, x, 24);
    bn_from_bytes(qy, y, 24);
    if (x[0] != 0 && y[0] != 0) {
        EXPECT_EQ(bn_compare(q.x, qx), 0);
        EXPECT_EQ(bn_compare(q.y, qy), 0);
    }
    // Signing with the 24-byte area as the key (as the certificate request does) uses d * 256:
    // the signature does not verify under the published key; with the real key it does.
    const uint8_t msg[3] = {'a', 'b', 'c'};
    BigNum e;
    ecdsa_message_scalar(e, msg, 3);
    uint32_t limbs[6];
    uint8_t sig[kSignatureBytes];
    const int32_t count = bytes_to_limbs(d, 24, limbs, 6);
    ASSERT_EQ(Sign_With_Private_Key(sig, msg, 3, limbs, count), 48);
    EXPECT_FALSE(ref_verify(e, sig, q.x, q.y));
    const int32_t real_count = bytes_to_limbs(d, 23, limbs, 6);
    ASSERT_EQ(Sign_With_Private_Key(sig, msg, 3, limbs, real_count), 48);
    EXPECT_TRUE(ref_verify(e, sig, q.x, q.y));
}

TEST_F(WithFakeClock, ShortPublicXIsLeftAligned) {
    const uint64_t t = find_time(0, true, 496);
    ASSERT_EQ(t, kFileTime + 496 * 10000000ull);
    FakeClock::set(t);
    set_random_counter(0);
    uint8_t d[24] = {}, x[24], y[24] = {};
    std::memset(x, 0, sizeof x);
    x[23] = 0xEE;  // untouched past the written length
    ASSERT_EQ(GenPrivateKeyAndPublicKey(d, x, y), 0);
    EXPECT_NE(x[0], 0);
    EXPECT_EQ(x[23], 0xEE);
    // Replay the draw for the key itself rather than trusting its (possibly short) bytes.
    FakeClock::set(t);
    set_random_counter(0);
    BigNum kd;
    RandomScalar(kd, curve_params().n);
    const AffinePoint q = public_key(kd);
    BigNum x23;
    bn_from_bytes(x23, x, 23);
    EXPECT_EQ(bn_compare(x23, q.x), 0);  // the 23 significant bytes, left-aligned
}
