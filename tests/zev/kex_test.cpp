// SM2 key exchange of the stand-in: the published and computed vectors (both roles), agreement
// of initiator and responder on random keys, and refusal of bad points and operands.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "zev.h"
#include "zev/zev_test_util.h"

using namespace zevtest;

namespace {

constexpr uint32_t kMaxKeyLen = 512;  // 4096 bits, the largest key the stand-in derives

struct Party {
    std::vector<uint8_t> id;
    ZEV_ECCPrivateKey d{};  // static key
    ZEV_ECCPrivateKey r{};  // temporary key
    ZEV_ECCPublicKey p{};
    ZEV_ECCPublicKey rp{};
};

struct KexVector {
    std::string name;
    std::string curve;
    uint32_t key_bits = 0;
    Party a, b;  // initiator, responder
    std::vector<uint8_t> za, zb, x1_bar, x2_bar, k;
};

std::vector<KexVector> load_kex_vectors() {
    std::vector<KexVector> out;
    const auto doc = load_vectors("sm2_kex.json");
    if (!doc || doc->find("vectors") == nullptr) return out;
    for (const JsonValue& v : doc->find("vectors")->items) {
        KexVector kv;
        kv.name = v.find("vector_id") != nullptr ? v.find("vector_id")->text : "?";
        kv.curve = v.find("curve") != nullptr ? v.find("curve")->text : "";
        kv.key_bits = static_cast<uint32_t>(std::stoul(v.find("klen_bits")->text));
        kv.a.id = hex_bytes(v, "IDA_hex");
        kv.b.id = hex_bytes(v, "IDB_hex");
        const bool ok = hex_field(v, "dA", kv.a.d.K, 32) && hex_field(v, "rA", kv.a.r.K, 32) &&
                        hex_field(v, "xA", kv.a.p.x, 32) && hex_field(v, "yA", kv.a.p.y, 32) &&
                        hex_field(v, "x1", kv.a.rp.x, 32) && hex_field(v, "y1", kv.a.rp.y, 32) &&
                        hex_field(v, "dB", kv.b.d.K, 32) && hex_field(v, "rB", kv.b.r.K, 32) &&
                        hex_field(v, "xB", kv.b.p.x, 32) && hex_field(v, "yB", kv.b.p.y, 32) &&
                        hex_field(v, "x2", kv.b.rp.x, 32) && hex_field(v, "y2", kv.b.rp.y, 32);
        EXPECT_TRUE(ok) << kv.name;
        for (ZEV_ECCPrivateKey* k : {&kv.a.d, &kv.a.r, &kv.b.d, &kv.b.r}) k->bits = 256;
        for (ZEV_ECCPublicKey* k : {&kv.a.p, &kv.a.rp, &kv.b.p, &kv.b.rp}) k->bits = 256;
        kv.za = hex_bytes(v, "ZA");
        kv.zb = hex_bytes(v, "ZB");
        kv.x1_bar = hex_bytes(v, "x1_bar");
        kv.x2_bar = hex_bytes(v, "x2_bar");
        kv.k = hex_bytes(v, "K");
        out.push_back(kv);
    }
    return out;
}

const KexVector* find_vector(const std::vector<KexVector>& all, const std::string& name) {
    for (const KexVector& v : all) {
        if (v.name == name) return &v;
    }
    ADD_FAILURE() << "no vector " << name;
    return nullptr;
}

enum class Role { kInitiator, kResponder };

// One call of either function, with every operand open to spoiling by a test.
struct Call {
    uint32_t key_bits = 256;
    std::vector<uint8_t> own_id, peer_id;
    ZEV_ECCPrivateKey d{}, r{};
    ZEV_ECCPublicKey own_r{}, peer_p{}, peer_r{};
    bool null_output = false;
    uint8_t key[kMaxKeyLen];

    Call(const Party& own, const Party& peer, uint32_t bits)
        : key_bits(bits),
          own_id(own.id),
          peer_id(peer.id),
          d(own.d),
          r(own.r),
          own_r(own.rp),
          peer_p(peer.p),
          peer_r(peer.rp) {
        std::memset(key, 0xAA, sizeof key);
    }

    int32_t run(void* handle, Role role) {
        ZEV_AgreementOut out{};
        out.key = key;
        auto fn = role == Role::kInitiator ? ZEV_SM2_GenerateKeyWithECC
                                           : ZEV_SM2_GenerateKeyWithECC_Responder;
        return fn(handle, key_bits, own_id.data(), static_cast<uint32_t>(own_id.size()),
                  peer_id.data(), static_cast<uint32_t>(peer_id.size()), &d, &r, &own_r, &peer_p,
                  &peer_r, null_output ? nullptr : &out);
    }

    std::string hex_key() const { return to_hex(key, key_bits / 8); }
    bool key_untouched() const {
        for (uint8_t b : key) {
            if (b != 0xAA) return false;
        }
        return true;
    }
};

std::string agree(void* handle, Role role, const Party& own, const Party& peer, uint32_t bits) {
    Call c(own, peer, bits);
    const int32_t rc = c.run(handle, role);
    EXPECT_EQ(rc, ZEV_OK);
    return rc == ZEV_OK ? c.hex_key() : "error " + std::to_string(rc);
}

// Z = SM3(ENTL || ID || a || b || Gx || Gy || x || y) through ZEV_SM3.
std::vector<uint8_t> z_of(void* handle, const ZEV_SessionParams& c, const Party& party) {
    const size_t entl = party.id.size() * 8;
    std::vector<uint8_t> in = {static_cast<uint8_t>(entl >> 8), static_cast<uint8_t>(entl)};
    in.insert(in.end(), party.id.begin(), party.id.end());
    for (const uint8_t* f : {c.a, c.b, c.gx, c.gy, party.p.x, party.p.y})
        in.insert(in.end(), f, f + 32);
    std::vector<uint8_t> z(32);
    uint32_t len = 0;
    EXPECT_EQ(ZEV_SM3(handle, in.data(), static_cast<uint32_t>(in.size()), z.data(), &len), ZEV_OK);
    return z;
}

class ZevKex : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { vectors_ = new std::vector<KexVector>(load_kex_vectors()); }
    static void TearDownTestSuite() {
        delete vectors_;
        vectors_ = nullptr;
    }
    const KexVector& uuid_initiator() { return *find_vector(*vectors_, "uuid_enrollee_initiator"); }
    static std::vector<KexVector>* vectors_;
};
std::vector<KexVector>* ZevKex::vectors_ = nullptr;

// Each vector from both sides: A through the initiator function, B through the responder.
TEST_F(ZevKex, VectorsGiveThePublishedKeyFromBothSides) {
    ASSERT_EQ(vectors_->size(), 4u);
    for (const KexVector& v : *vectors_) {
        SCOPED_TRACE(v.name);
        void* handle = open_curve(v.curve);
        const auto params = curve_params(v.curve);
        ASSERT_TRUE(params.has_value());
        // The vector's own Z values and x̄ agree with their definitions.
        EXPECT_EQ(to_hex(z_of(handle, *params, v.a).data(), 32), to_hex(v.za.data(), v.za.size()));
        EXPECT_EQ(to_hex(z_of(handle, *params, v.b).data(), 32), to_hex(v.zb.data(), v.zb.size()));
        uint8_t bar[32];
        x_bar(v.a.rp.x, bar);
        EXPECT_EQ(to_hex(bar, 32), to_hex(v.x1_bar.data(), v.x1_bar.size()));
        x_bar(v.b.rp.x, bar);
        EXPECT_EQ(to_hex(bar, 32), to_hex(v.x2_bar.data(), v.x2_bar.size()));

        const std::string expected = to_hex(v.k.data(), v.k.size());
        EXPECT_EQ(agree(handle, Role::kInitiator, v.a, v.b, v.key_bits), expected);
        EXPECT_EQ(agree(handle, Role::kResponder, v.b, v.a, v.key_bits), expected);
    }
}

struct RandomCase {
    const char* curve;
    uint32_t key_bits;
};

class ZevKexRandom : public ::testing::TestWithParam<RandomCase> {};

Party random_party(void* handle, std::mt19937& rng) {
    Party p;
    p.id.resize(rng() % 41);  // 0 to 40 bytes, 16 most often in practice
    for (uint8_t& b : p.id) b = static_cast<uint8_t>(rng());
    EXPECT_EQ(ZEV_SM2_GenerateAgreementDataWithECC(handle, &p.d, &p.p), ZEV_OK);
    EXPECT_EQ(ZEV_SM2_GenerateAgreementDataWithECC(handle, &p.r, &p.rp), ZEV_OK);
    return p;
}

std::string describe(const Party& p) {
    return "id " + to_hex(p.id.data(), p.id.size()) + " d " + to_hex(p.d.K, 32) + " r " +
           to_hex(p.r.K, 32);
}

TEST_P(ZevKexRandom, InitiatorAndResponderAgreeOnFreshKeys) {
    void* handle = open_curve(GetParam().curve);
    const uint32_t bits = GetParam().key_bits;
    std::mt19937 rng(bits);
    std::string previous;
    for (int i = 0; i < 16; ++i) {
        const Party a = random_party(handle, rng), b = random_party(handle, rng);
        const std::string ka = agree(handle, Role::kInitiator, a, b, bits);
        const std::string kb = agree(handle, Role::kResponder, b, a, bits);
        EXPECT_EQ(ka, kb) << "A: " << describe(a) << "\nB: " << describe(b);
        EXPECT_NE(ka, previous);
        previous = ka;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Curves, ZevKexRandom,
    ::testing::Values(RandomCase{kRecommendedCurve, 256}, RandomCase{kExampleCurve, 128}),
    [](const auto& info) {
        return std::string(info.param.curve == kRecommendedCurve ? "Recommended" : "Example") +
               std::to_string(info.param.key_bits);
    });

struct Spoil {
    const char* name;
    std::function<void(Call&)> apply;
    int32_t expected;
};

// Each spoiled operand is refused by both functions with its own status and no key written.
TEST_F(ZevKex, SpoiledOperandsAreRefusedWithoutWriting) {
    void* handle = open_curve(kRecommendedCurve);
    const auto params = curve_params(kRecommendedCurve);
    ASSERT_TRUE(params.has_value());
    const uint8_t* n = params->n;
    const std::vector<Spoil> spoils = {
        // Peer points.
        {"peer static key off the curve", [](Call& c) { c.peer_p.y[31] ^= 1; }, ZEV_ERR_POINT},
        {"peer temporary key off the curve", [](Call& c) { c.peer_r.x[0] ^= 0x40; }, ZEV_ERR_POINT},
        {"peer static key at infinity (all zero)",
         [](Call& c) {
             std::memset(c.peer_p.x, 0, 32);
             std::memset(c.peer_p.y, 0, 32);
         },
         ZEV_ERR_POINT},
        {"peer temporary key at infinity (all zero)",
         [](Call& c) {
             std::memset(c.peer_r.x, 0, 32);
             std::memset(c.peer_r.y, 0, 32);
         },
         ZEV_ERR_POINT},
        // Own keys.
        {"own static key 0", [](Call& c) { std::memset(c.d.K, 0, 32); }, ZEV_ERR_PARAM},
        {"own static key n", [n](Call& c) { std::memcpy(c.d.K, n, 32); }, ZEV_ERR_PARAM},
        {"own temporary public key not [r]G", [](Call& c) { c.own_r.x[5] ^= 1; }, ZEV_ERR_PARAM},
        {"own temporary public key is the peer's", [](Call& c) { c.own_r = c.peer_r; },
         ZEV_ERR_PARAM},
        // Lengths.
        {"key bits 0", [](Call& c) { c.key_bits = 0; }, ZEV_ERR_PARAM},
        {"key bits 4104", [](Call& c) { c.key_bits = 4104; }, ZEV_ERR_PARAM},
        {"own id of 8192 bytes", [](Call& c) { c.own_id.assign(8192, 1); }, ZEV_ERR_PARAM},
        // Null pointers.
        {"null output record", [](Call& c) { c.null_output = true; }, ZEV_ERR_PARAM},
    };
    const KexVector& v = uuid_initiator();
    for (const Spoil& s : spoils) {
        for (Role role : {Role::kInitiator, Role::kResponder}) {
            Call c(role == Role::kInitiator ? v.a : v.b, role == Role::kInitiator ? v.b : v.a, 256);
            s.apply(c);
            EXPECT_EQ(c.run(handle, role), s.expected)
                << s.name << (role == Role::kInitiator ? " (initiator)" : " (responder)");
            EXPECT_TRUE(c.key_untouched()) << s.name;
        }
    }
}

// A peer static key P' = -[x̄(R')]R' is a valid point, but makes P' + [x̄(R')]R' the point at
// infinity: the shared point is infinity and the exchange must fail rather than hash it.
TEST_F(ZevKex, SharedPointAtInfinityIsRefused) {
    void* handle = open_curve(kRecommendedCurve);
    const auto params = curve_params(kRecommendedCurve);
    RefCurve curve(*params);
    ASSERT_TRUE(curve.ok());
    const KexVector& v = uuid_initiator();
    for (Role role : {Role::kInitiator, Role::kResponder}) {
        Call c(v.a, v.b, 256);
        uint8_t bar[32], minus_bar[32];
        x_bar(c.peer_r.x, bar);
        curve.negate_scalar(bar, minus_bar);
        ASSERT_TRUE(curve.mul(minus_bar, c.peer_r.x, c.peer_r.y, c.peer_p.x, c.peer_p.y));
        ASSERT_TRUE(curve.on_curve(c.peer_p.x, c.peer_p.y));
        EXPECT_EQ(c.run(handle, role), ZEV_ERR_POINT);
        EXPECT_TRUE(c.key_untouched());
    }
}

// On the example curve p < 2^255, so x + p still fits in 32 bytes: an unreduced coordinate of
// a point that is on the curve modulo p must still be refused.
TEST_F(ZevKex, UnreducedPeerCoordinatesAreRefused) {
    const KexVector* v = find_vector(*vectors_, "annexA");
    ASSERT_NE(v, nullptr);
    void* handle = open_curve(kExampleCurve);
    const auto params = curve_params(kExampleCurve);
    for (int which = 0; which < 4; ++which) {
        Call c(v->a, v->b, v->key_bits);
        uint8_t* coord = which == 0   ? c.peer_p.x
                         : which == 1 ? c.peer_p.y
                         : which == 2 ? c.peer_r.x
                                      : c.peer_r.y;
        int carry = 0;
        for (int i = 31; i >= 0; --i) {
            const int sum = coord[i] + params->p[i] + carry;
            coord[i] = static_cast<uint8_t>(sum);
            carry = sum >> 8;
        }
        ASSERT_EQ(carry, 0) << which;
        EXPECT_EQ(c.run(handle, Role::kInitiator), ZEV_ERR_POINT) << which;
        EXPECT_TRUE(c.key_untouched());
    }
}

}  // namespace
