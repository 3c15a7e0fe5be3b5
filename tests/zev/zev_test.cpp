// The ZEV stand-in, tested lightly: SM3 and HMAC-SM3 against published vectors, the SM2 key
// exchange vectors from both sides, refusal of bad points and operands, and one agreement of
// initiator and responder on fresh keys.
#include <gtest/gtest.h>

#include <functional>

#include "signing/support.h"
#include "zev.h"

namespace {

using namespace support;
using testjson::Json;

constexpr char kRecommendedCurve[] = "sm2p256v1 (GB/T 32918.5 recommended curve)";
constexpr char kExampleCurve[] = "SM2 standard example Fp-256 curve (GM/T 0003 Annex A)";

void put32(const Json& v, const char* key, uint8_t* dst) {
    const Bytes b = hex(v.at(key).get<std::string>());
    ASSERT_EQ(b.size(), 32u) << key;
    std::memcpy(dst, b.data(), 32);
}

const Json& kex_doc() {
    return vectors("sm2_kex.json");
}

void* open_curve(const std::string& name, ZEV_SessionParams* params = nullptr) {
    ZEV_SessionParams p{};
    for (auto [key, dst] : {std::pair{"p", p.p}, {"a", p.a}, {"b", p.b}, {"Gx", p.gx},
                            {"Gy", p.gy}, {"n", p.n}})
        put32(kex_doc().at("curves")[name], key, dst);
    p.count[0] = 6;
    if (params != nullptr) *params = p;
    void* handle = nullptr;
    EXPECT_EQ(ZEV_OpenSession(&handle, &p), ZEV_OK) << name;
    return handle;
}

struct Party {
    Bytes id;
    ZEV_ECCPrivateKey d{256, {}}, r{256, {}};  // static and temporary key
    ZEV_ECCPublicKey p{256, {}, {}}, rp{256, {}, {}};
};

// Party A (the initiator) or B of a vector.
Party vector_party(const Json& v, bool a) {
    Party party;
    party.id = hex(v.at(a ? "IDA_hex" : "IDB_hex").get<std::string>());
    const char* const keys[2][6] = {{"dA", "rA", "xA", "yA", "x1", "y1"},
                                    {"dB", "rB", "xB", "yB", "x2", "y2"}};
    uint8_t* const dst[6] = {party.d.K, party.r.K, party.p.x, party.p.y, party.rp.x, party.rp.y};
    for (int i = 0; i < 6; ++i) put32(v, keys[a ? 0 : 1][i], dst[i]);
    return party;
}

const Json& vector_named(const std::string& name) {
    for (const Json& v : kex_doc().at("vectors"))
        if (v.at("vector_id").get<std::string>() == name) return v;
    ADD_FAILURE() << "no vector " << name;
    return kex_doc().at("vectors").at(0);
}

enum class Role { kInitiator, kResponder };

// One call of either function, with every operand open to spoiling by a test.
struct Call {
    uint32_t key_bits;
    Bytes own_id, peer_id;
    ZEV_ECCPrivateKey d, r;
    ZEV_ECCPublicKey own_r, peer_p, peer_r;
    bool null_output = false;
    uint8_t key[512];  // 4096 bits, the largest key the stand-in derives

    Call(const Party& own, const Party& peer, uint32_t bits)
        : key_bits(bits), own_id(own.id), peer_id(peer.id), d(own.d), r(own.r), own_r(own.rp),
          peer_p(peer.p), peer_r(peer.rp) {
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
    bool key_untouched() const { return Bytes(key, key + sizeof key) == Bytes(sizeof key, 0xAA); }
};

std::string agree(void* handle, Role role, const Party& own, const Party& peer, uint32_t bits) {
    Call c(own, peer, bits);
    const int32_t rc = c.run(handle, role);
    return rc == ZEV_OK ? to_hex(c.key, bits / 8) : "error " + std::to_string(rc);
}

TEST(ZevHash, Sm3AndHmacSm3MatchPublishedVectors) {
    void* handle = open_curve(kRecommendedCurve);
    for (const char* file : {"sm3.json", "hmac_sm3.json"}) {
        const auto& doc = vectors(file);
        ASSERT_GE(doc.at("vectors").size(), 10u) << file;
        for (const Json& v : doc.at("vectors")) {
            // msg_hex, or the rules "1,000,000 x 'a'" and "bytes 00..FF repeated 16 times".
            const size_t len = v.at(v.contains("len") ? "len" : "msg_len").get<size_t>();
            Bytes msg(len, 'a');
            if (testjson::text_or_empty(v, "msg_rule").rfind("bytes 00..FF", 0) == 0)
                for (size_t i = 0; i < len; ++i) msg[i] = static_cast<uint8_t>(i);
            if (v.contains("msg_hex") && v.at("msg_hex").is_string()) msg = hex(v.at("msg_hex").get<std::string>());
            ASSERT_EQ(msg.size(), len) << file;
            const uint32_t msg_len = static_cast<uint32_t>(len);
            uint8_t out[32] = {};
            uint32_t out_len = 32;
            if (v.contains("key_hex")) {
                const Bytes key = hex(v.at("key_hex").get<std::string>());
                ASSERT_EQ(ZEV_HMAC_SM3(handle, msg.data(), msg_len, key.data(),
                                       static_cast<uint32_t>(key.size()), out, 32),
                          ZEV_OK);
            } else {
                out_len = 0;
                ASSERT_EQ(ZEV_SM3(handle, msg.data(), msg_len, out, &out_len), ZEV_OK);
            }
            EXPECT_EQ(out_len, 32u);
            EXPECT_EQ(to_hex(out, 32), to_hex(hex(v.at(v.contains("mac") ? "mac" : "digest").get<std::string>())))
                << file << ", message length " << len;
        }
    }
}

TEST(ZevKex, VectorsGiveThePublishedKeyFromBothSides) {
    ASSERT_EQ(kex_doc().at("vectors").size(), 4u);
    for (const Json& v : kex_doc().at("vectors")) {
        void* handle = open_curve(v.at("curve").get<std::string>());
        const Party a = vector_party(v, true), b = vector_party(v, false);
        const uint32_t bits = static_cast<uint32_t>(v.at("klen_bits").get<size_t>());
        const std::string expected = to_hex(hex(v.at("K").get<std::string>()));
        EXPECT_EQ(agree(handle, Role::kInitiator, a, b, bits), expected) << v.at("vector_id").get<std::string>();
        EXPECT_EQ(agree(handle, Role::kResponder, b, a, bits), expected) << v.at("vector_id").get<std::string>();
    }
}

TEST(ZevKex, InitiatorAndResponderAgreeOnFreshKeys) {
    void* handle = open_curve(kExampleCurve);
    std::mt19937 rng(128);
    for (int i = 0; i < 4; ++i) {
        Party a, b;
        for (Party* p : {&a, &b}) {
            p->id.resize(rng() % 41);
            for (uint8_t& byte : p->id) byte = static_cast<uint8_t>(rng());
            ASSERT_EQ(ZEV_SM2_GenerateAgreementDataWithECC(handle, &p->d, &p->p), ZEV_OK);
            ASSERT_EQ(ZEV_SM2_GenerateAgreementDataWithECC(handle, &p->r, &p->rp), ZEV_OK);
        }
        const std::string ka = agree(handle, Role::kInitiator, a, b, 128);
        EXPECT_EQ(ka.size(), 32u);
        EXPECT_EQ(ka, agree(handle, Role::kResponder, b, a, 128));
    }
}

// Each bad point or operand is refused by both functions with its own status and no key written.
TEST(ZevKex, SpoiledOperandsAreRefusedWithoutWriting) {
    void* handle = open_curve(kRecommendedCurve);
    struct Spoil {
        const char* name;
        std::function<void(Call&)> apply;
        int32_t expected;
    };
    const Spoil spoils[] = {
        {"peer static key off the curve", [](Call& c) { c.peer_p.y[31] ^= 1; }, ZEV_ERR_POINT},
        {"peer temporary key off the curve", [](Call& c) { c.peer_r.x[0] ^= 0x40; }, ZEV_ERR_POINT},
        {"peer static key at infinity (all zero)", [](Call& c) { c.peer_p = {256, {}, {}}; },
         ZEV_ERR_POINT},
        {"peer temporary key at infinity (all zero)", [](Call& c) { c.peer_r = {256, {}, {}}; },
         ZEV_ERR_POINT},
        {"own temporary public key not [r]G", [](Call& c) { c.own_r.x[5] ^= 1; }, ZEV_ERR_PARAM},
        {"own temporary public key is the peer's", [](Call& c) { c.own_r = c.peer_r; },
         ZEV_ERR_PARAM},
        {"key bits 4104", [](Call& c) { c.key_bits = 4104; }, ZEV_ERR_PARAM},
        {"null output record", [](Call& c) { c.null_output = true; }, ZEV_ERR_PARAM},
    };
    const Json& v = vector_named("uuid_enrollee_initiator");
    const Party a = vector_party(v, true), b = vector_party(v, false);
    for (const Spoil& s : spoils) {
        for (Role role : {Role::kInitiator, Role::kResponder}) {
            Call c(role == Role::kInitiator ? a : b, role == Role::kInitiator ? b : a, 256);
            s.apply(c);
            EXPECT_EQ(c.run(handle, role), s.expected) << s.name << " " << static_cast<int>(role);
            EXPECT_TRUE(c.key_untouched()) << s.name;
        }
    }
}

// A peer static key P' = -[x̄(R')]R' is a valid point, but makes P' + [x̄(R')]R' the point at
// infinity: the shared point is infinity and the exchange must fail rather than hash it.
TEST(ZevKex, SharedPointAtInfinityIsRefused) {
    void* handle = open_curve(kRecommendedCurve);
    const Json& v = vector_named("uuid_enrollee_initiator");
    Call c(vector_party(v, true), vector_party(v, false), 256);
    ref::init_gcrypt();
    gcry_ctx_t ctx = nullptr;
    ASSERT_EQ(gcry_mpi_ec_new(&ctx, nullptr, "sm2p256v1"), 0u);
    uint8_t bar[32] = {};  // x̄ = 2^127 + (x mod 2^127)
    std::memcpy(bar + 16, c.peer_r.x + 16, 16);
    bar[16] |= 0x80;
    gcry_mpi_t k = nullptr, x = nullptr, y = nullptr, n = gcry_mpi_ec_get_mpi("n", ctx, 1);
    gcry_mpi_scan(&k, GCRYMPI_FMT_USG, bar, 32, nullptr);
    gcry_mpi_scan(&x, GCRYMPI_FMT_USG, c.peer_r.x, 32, nullptr);
    gcry_mpi_scan(&y, GCRYMPI_FMT_USG, c.peer_r.y, 32, nullptr);
    gcry_mpi_subm(k, n, k, n);
    gcry_mpi_point_t r = gcry_mpi_point_set(nullptr, x, y, GCRYMPI_CONST_ONE);
    gcry_mpi_ec_mul(r, k, r, ctx);
    ASSERT_EQ(gcry_mpi_ec_get_affine(x, y, r, ctx), 0);
    size_t written = 0;
    for (auto [m, out] : {std::pair{x, c.peer_p.x}, {y, c.peer_p.y}}) {
        std::memset(out, 0, 32);
        gcry_mpi_print(GCRYMPI_FMT_USG, out + 32 - (gcry_mpi_get_nbits(m) + 7) / 8, 32, &written, m);
    }
    gcry_mpi_point_release(r);
    for (gcry_mpi_t m : {k, x, y, n}) gcry_mpi_release(m);
    gcry_ctx_release(ctx);
    for (Role role : {Role::kInitiator, Role::kResponder}) {
        Call spoiled = c;
        EXPECT_EQ(spoiled.run(handle, role), ZEV_ERR_POINT);
        EXPECT_TRUE(spoiled.key_untouched());
    }
}

// On the example curve p < 2^255, so x + p still fits in 32 bytes: an unreduced coordinate of
// a point that is on the curve modulo p must still be refused.
TEST(ZevKex, UnreducedPeerCoordinatesAreRefused) {
    ZEV_SessionParams params;
    void* handle = open_curve(kExampleCurve, &params);
    const Json& v = vector_named("annexA");
    for (int which = 0; which < 4; ++which) {
        Call c(vector_party(v, true), vector_party(v, false), 128);
        uint8_t* coord[] = {c.peer_p.x, c.peer_p.y, c.peer_r.x, c.peer_r.y};
        int carry = 0;
        for (int i = 31; i >= 0; --i) {
            carry += coord[which][i] + params.p[i];
            coord[which][i] = static_cast<uint8_t>(carry);
            carry >>= 8;
        }
        ASSERT_EQ(carry, 0) << which;
        EXPECT_EQ(c.run(handle, Role::kInitiator), ZEV_ERR_POINT) << which;
        EXPECT_TRUE(c.key_untouched());
    }
}

}  // namespace
