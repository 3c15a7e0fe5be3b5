// The software signature: the fixed-nonce known answers, every signature we make verified by
// libgcrypt, key generation, the left-aligned minimal encoding of keys and coordinates, and the
// clock-and-counter behaviour of RandomScalar.
#include <gtest/gtest.h>

#include <cstring>

#include "signing/signing.h"
#include "support.h"

using namespace support;

namespace {

constexpr int64_t kSeconds = 1795262400;  // 2026-11-21 12:00:00 UTC

class WithFakeClock : public ::testing::Test {
protected:
    void SetUp() override {
        saved_counter_ = random_counter();
        FakeClock::install(kSeconds);
    }
    void TearDown() override {
        FakeClock::remove();
        set_random_counter(saved_counter_);
    }
    int32_t saved_counter_ = 0;
};

}  // namespace

TEST(EcdsaVectors, FixedNonceSignaturesAndKeyPairs) {
    const auto& doc = vectors("ecdsa_wapi192.json");
    ASSERT_GE(doc.at("vectors").size(), 8u);
    for (const auto& v : doc.at("vectors")) {
        const std::string what = v.at("description").get<std::string>();
        const Bytes msg = hex(v.at("msg_hex").get<std::string>());
        BigNum e;
        ecdsa_message_scalar(e, msg.data(), static_cast<uint32_t>(msg.size()));
        EXPECT_EQ(bn_to_hex(e), bn_to_hex(bn_hex(v.at("e_sha256_mod_n").get<std::string>()))) << what;
        const BigNum key = bn_hex(v.at("d").get<std::string>());
        uint8_t sig[kSignatureBytes + 4];
        std::memset(sig, 0xA5, sizeof sig);
        ASSERT_EQ(sign_with_explicit_k(sig, msg.data(), static_cast<uint32_t>(msg.size()),
                                       key.limb, key.count, bn_hex(v.at("k").get<std::string>())),
                  48)
            << what;
        EXPECT_EQ(to_hex(sig, sizeof sig), v.at("signature_r_s_48").get<std::string>() + "A5A5A5A5") << what;
    }
    // The published public keys are d*G by both multipliers.
    auto pairs = doc.at("vectors");
    for (const auto& v : doc.at("third_party_keypairs")) pairs.push_back(v);
    for (const auto& v : pairs) {
        const BigNum d = bn_hex(v.at("d").get<std::string>());
        AffinePoint qf, qv;
        fixed_base_mul(qf, d);
        variable_base_mul(qv, d, *fixed_base_point(1));
        for (const AffinePoint* q : {&qf, &qv}) {
            EXPECT_EQ(bn_to_hex(q->x), bn_to_hex(bn_hex(v.at("Qx").get<std::string>()))) << v.at("d").get<std::string>();
            EXPECT_EQ(bn_to_hex(q->y), bn_to_hex(bn_hex(v.at("Qy").get<std::string>()))) << v.at("d").get<std::string>();
        }
    }
}

TEST(EcdsaVectors, LeftAlignedKeyGivesASignatureThatDoesNotVerify) {
    // The key whose top byte is zero, as key generation leaves it in a zeroed 24-byte area and
    // the signer then reads all 24 bytes as one integer (d * 256).
    for (const auto& v : vectors("ecdsa_wapi192.json").at("vectors")) {
        if (!v.contains("left_aligned_key_quirk")) continue;
        const auto& q = v.at("left_aligned_key_quirk");
        const std::string minimal = v.at("d_minimal_as_GenPrivateKeyAndPublicKey_writes").get<std::string>();
        ASSERT_EQ(minimal.size(), 46u);
        EXPECT_EQ(minimal + "00", q.at("area_24_bytes").get<std::string>());
        const BigNum key = bn_hex(minimal + "00");
        const Bytes msg = hex(v.at("msg_hex").get<std::string>());
        uint8_t sig[kSignatureBytes];
        ASSERT_EQ(
            sign_with_explicit_k(sig, msg.data(), 3, key.limb, key.count, bn_hex(v.at("k").get<std::string>())),
            48);
        EXPECT_EQ(to_hex(sig, 48), q.at("r").get<std::string>() + q.at("s").get<std::string>());
        EXPECT_FALSE(ref_verify(bn_hex(v.at("Qx").get<std::string>()), bn_hex(v.at("Qy").get<std::string>()), msg.data(), 3, sig));
        return;
    }
    FAIL() << "no left-aligned key vector";
}

TEST(EcdsaVectors, OpenSslSignaturesVerifyWithOurHashScalar) {
    // Signatures made elsewhere with e = SHA-256 mod n verify under our public key.
    for (const auto& v : vectors("ecdsa_wapi192.json").at("openssl_made_signatures")) {
        const Bytes msg = hex(v.at("msg_hex").get<std::string>());
        AffinePoint q;
        fixed_base_mul(q, bn_hex(v.at("d").get<std::string>()));
        const Bytes sig = hex(v.at("r").get<std::string>() + v.at("s").get<std::string>());
        EXPECT_TRUE(ref_verify(q.x, q.y, msg.data(), msg.size(), sig.data())) << v.at("msg_hex").get<std::string>();
    }
}

TEST(Ecdsa, EverySignatureVerifiesWithLibgcrypt) {
    std::mt19937_64 rng(0x5161);
    const CurveParams& c = curve_params();
    for (int i = 0; i < 300; ++i) {
        const BigNum d = random_below(rng, c.n);
        if (bn_is_zero(d)) continue;
        const RefPoint q = ref_mul(d, c.gx, c.gy);  // the key made independently
        Bytes msg(rng() % 200);
        for (auto& b : msg) b = static_cast<uint8_t>(rng());
        // Every other key is passed as d + m*n with up to 12 limbs: it must act as d.
        BigNum key = d;
        if (i % 2 == 1) {
            BigNum m = random_bn(rng, 6), mn;
            bn_mul(mn, m, c.n);
            bn_add(key, mn, d);
        }
        uint8_t sig[kSignatureBytes + 8];
        std::memset(sig, 0x5A, sizeof sig);
        ASSERT_EQ(Sign_With_Private_Key(sig, msg.data(), static_cast<uint32_t>(msg.size()),
                                        key.limb, key.count),
                  48);
        ASSERT_EQ(to_hex(sig + kSignatureBytes, 8), "5A5A5A5A5A5A5A5A");
        ASSERT_TRUE(ref_verify(q.x, q.y, msg.data(), msg.size(), sig)) << "d = " << bn_to_hex(d);
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
        BigNum k, raw;
        RandomScalar(k, n);
        EXPECT_EQ(FakeClock::last_seed, static_cast<uint32_t>(kSeconds));
        FakeClock::state = static_cast<uint32_t>(kSeconds);
        uint32_t c = static_cast<uint32_t>(start);
        raw.count = 6;
        for (int l = 0; l < 6; ++l) {
            raw.limb[l] = 1;
            for (int shift : {0, 11, 22}) {
                const uint32_t t = static_cast<uint32_t>(FakeClock::next()) +
                                   static_cast<uint32_t>(static_cast<int32_t>(c) >> 1) + 3u * c;
                raw.limb[l] |= t << shift;
                ++c;
            }
        }
        bn_normalise(raw);
        Mpi ref;
        gcry_mpi_mod(ref, Mpi(raw), Mpi(n));
        EXPECT_EQ(bn_to_hex(k), bn_to_hex(ref.bn())) << "counter " << start;
        EXPECT_EQ(random_counter(), static_cast<int32_t>(c));
    }
}

TEST_F(WithFakeClock, TwoSignaturesInOneSecondDifferOnlyThroughTheCounter) {
    const BigNum key = bn_hex("90D8E7EC0B70F0C696A827559D859099E00BE6D84C5363E4");
    const uint8_t msg[3] = {'a', 'b', 'c'};
    uint8_t first[kSignatureBytes], second[kSignatureBytes], replay[kSignatureBytes];
    set_random_counter(0);
    ASSERT_EQ(Sign_With_Private_Key(first, msg, 3, key.limb, key.count), 48);
    ASSERT_EQ(Sign_With_Private_Key(second, msg, 3, key.limb, key.count), 48);
    EXPECT_NE(to_hex(first, 24), to_hex(second, 24));  // different r: different k
    EXPECT_GE(FakeClock::srand_calls, 2);               // reseeded at every draw
    // The same second and the same counter give the same nonce; another second another one.
    set_random_counter(0);
    ASSERT_EQ(Sign_With_Private_Key(replay, msg, 3, key.limb, key.count), 48);
    EXPECT_EQ(to_hex(replay, 48), to_hex(first, 48));
    FakeClock::now += 1;
    set_random_counter(0);
    ASSERT_EQ(Sign_With_Private_Key(replay, msg, 3, key.limb, key.count), 48);
    EXPECT_NE(to_hex(replay, 24), to_hex(first, 24));
}

TEST_F(WithFakeClock, GeneratedKeysAreMinimalLeftAlignedAndMatchLibgcrypt) {
    // Each area holds the minimal big-endian form, left-aligned, the rest untouched. Second 14
    // draws a key with a zero top byte, second 496 a public x with one.
    auto minimal_area = [](const BigNum& v) {
        Bytes area(24, 0xEE);
        size_t n = 0;
        bn_to_bytes_minimal(v, area.data(), 24, &n);
        return to_hex(area);
    };
    const CurveParams& c = curve_params();
    int short_values = 0;
    for (int64_t s : {0, 1, 2, 14, 496}) {
        FakeClock::now = kSeconds + s;
        set_random_counter(0);
        uint8_t d[24], x[24], y[24];
        for (uint8_t* area : {d, x, y}) std::memset(area, 0xEE, 24);
        ASSERT_EQ(GenPrivateKeyAndPublicKey(d, x, y), 0);
        EXPECT_EQ(random_counter(), 18);  // one draw of six limbs
        // Replay the draw for the key, then compute the public key with libgcrypt.
        set_random_counter(0);
        BigNum kd;
        RandomScalar(kd, c.n);
        const RefPoint ref = ref_mul(kd, c.gx, c.gy);
        EXPECT_EQ(to_hex(d, 24), minimal_area(kd)) << s;
        EXPECT_EQ(to_hex(x, 24), minimal_area(ref.x)) << s;
        EXPECT_EQ(to_hex(y, 24), minimal_area(ref.y)) << s;
        short_values += (bn_bit_length(kd) <= 184) + (bn_bit_length(ref.x) <= 184);
    }
    EXPECT_GE(short_values, 2);
}
