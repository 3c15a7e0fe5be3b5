// The security extensions against the attacks they answer: the private C generator, the PIN and
// key recovery that the compatible random source allows and the system source prevents, the
// wiping of secrets, and the restored signing key of certificate mode 2.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "api/context.h"
#include "common/exchange.h"
#include "common/reference.h"
#include "crypto/crypto.h"
#include "engine/engine.h"
#include "messages/attributes.h"
#include "messages/messages.h"
#include "platform/platform.h"
#include "platform/platform_os.h"
#include "signing/curve192.h"
#include "signing/signing.h"
#include "wapiwps.h"

namespace {

using Bytes = std::vector<uint8_t>;
using ref::bytes_of;
using ref::cat;

constexpr int64_t kRunSecond = 1700000040;  // 40 s into a minute that starts at 1700000000
int64_t fixed_time() { return kRunSecond; }
uint64_t fixed_file_time() { return (11644473600ull + kRunSecond) * 10000000ull; }

// The attacker's clock guess (a plain function pointer seam needs it in static storage).
int64_t g_guess_second;
int64_t guess_time() { return g_guess_second; }
uint64_t guess_file_time() { return (11644473600ull + static_cast<uint64_t>(g_guess_second)) * 10000000ull; }

double elapsed_ms(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - since)
        .count();
}

class Security : public ::testing::Test {
  protected:
    void SetUp() override { platform::set_time_source(fixed_time, fixed_file_time); }
    void TearDown() override {
        platform::set_time_source(nullptr, nullptr);
        WapiWps_SetRandomSource(WAPIWPS_RANDOM_COMPATIBLE);
    }
};

// ---- The private generator is the platform's ------------------------------------------------

TEST(CompatibleGenerator, EqualsThePlatformsRandForManySeedsWithoutTouchingIt) {
    std::vector<uint32_t> seeds = {0, 1, 2, 7, 12345, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    for (uint32_t s = 0x9E3779B9, i = 0; i < 200; ++i, s = s * 1664525u + 1013904223u)
        seeds.push_back(s);
    for (uint32_t seed : seeds) {
        std::srand(seed);
        platform::c_srand(seed);
        for (int i = 0; i < 40; ++i) ASSERT_EQ(platform::c_rand(), std::rand()) << seed << " #" << i;
    }
    // Published first outputs of the generator of the other platform, for srand(1).
    platform::detail::MsvcrtRand msvcrt{};
    msvcrt.seed(1);
    for (int v : {41, 18467, 6334, 26500, 19169}) EXPECT_EQ(msvcrt.next(), v);
    platform::detail::GlibcRand glibc{};
    glibc.seed(1);
    for (int v : {1804289383, 846930886, 1681692777, 1714636915, 1957747793})
        EXPECT_EQ(glibc.next(), v);
}

// ---- What a registrar that ran M2 learns: compatible against system random source --------------

struct RunValues {
    Bytes n1, es1, es2, iv_m5, iv_m7;   // Enrollee Nonce, secret nonces, IVs of M5 and M7
    Bytes e_hash1, e_hash2, auth_key, pke, pkr;
};

Bytes attribute(const Bytes& frame, uint16_t type) {
    if (frame.size() <= OFF_MESSAGE) return {};
    const std::span<const uint8_t> body(frame.data() + OFF_MESSAGE, frame.size() - OFF_MESSAGE);
    Bytes value(4096);
    uint16_t len = 0;
    if (GetTlvFromType(type, body, static_cast<int32_t>(body.size()), value, &len) == 0) return {};
    value.resize(len);
    return value;
}

exchange::Transcript run_recording(RunValues& v) {
    exchange::Options o;
    o.pin = "12345670";
    o.registrar.require_signature = false;  // a minimal-form short key is the intended exception
    o.before_registrar = [&v](registrar::Registrar&, const Bytes& frame, size_t) {
        const Bytes type = attribute(frame, ATTR_MSG_TYPE);
        if (type.size() != 1) return;
        if (type[0] == WPS_MSG_TYPE_M1) v.n1 = attribute(frame, ATTR_ENROLLEE_NONCE);
        if (type[0] == WPS_MSG_TYPE_M5 || type[0] == WPS_MSG_TYPE_M7) {
            const Bytes sealed = attribute(frame, ATTR_ENCR_SETTINGS);
            const size_t iv_len = sealed.size() < 16 ? sealed.size() : 16;
            (type[0] == WPS_MSG_TYPE_M5 ? v.iv_m5 : v.iv_m7).assign(sealed.begin(), sealed.begin() + iv_len);
        }
        if (type[0] != WPS_MSG_TYPE_M3) return;
        v.e_hash1 = attribute(frame, ATTR_E_HASH1);
        v.e_hash2 = attribute(frame, ATTR_E_HASH2);
        // The registrar derives the same AuthKey and holds both public keys; read them here.
        v.auth_key = bytes_of(g_EnrolleeKeys.AuthKey, 32);
        v.pke = bytes_of(g_EnrolleeKeys.PublicKey, 64);
        v.pkr = bytes_of(g_RegistrarKeys.PublicKey, 64);
        v.es1 = bytes_of(g_EnrolleeKeys.SecretNonce1, 16);
        v.es2 = bytes_of(g_EnrolleeKeys.SecretNonce2, 16);
    };
    return exchange::run(o);
}

// The rogue registrar's offline search: E-S1 and E-S2 taken to be the Enrollee Nonce of M1, each
// 4-digit half tried in turn (two HMACs per candidate). Empty when a half is not found.
std::string recover_pin(const RunValues& v, size_t& hmacs) {
    std::string pin;
    for (const Bytes* target : {&v.e_hash1, &v.e_hash2}) {
        bool found = false;
        for (int c = 0; c < 10000 && !found; ++c) {
            char half[5];
            std::snprintf(half, sizeof half, "%04d", c);
            const Bytes psk = ref::hmac_sm3(v.auth_key, Bytes(half, half + 4));
            const Bytes h = ref::hmac_sm3(v.auth_key, cat({v.n1, Bytes(psk.begin(), psk.begin() + 16), v.pke, v.pkr}));
            hmacs += 2;
            if (h == *target) {
                pin += half;
                found = true;
            }
        }
        if (!found) return {};
    }
    return pin;
}

class RandomSource : public Security, public ::testing::WithParamInterface<int32_t> {};

TEST_P(RandomSource, TwoRunsInOneSecondPinRecoveryAndTheHostGenerator) {
    const bool system = GetParam() == WAPIWPS_RANDOM_SYSTEM;
    ASSERT_EQ(WapiWps_SetRandomSource(GetParam()), 0);
    std::srand(1);
    std::vector<int> host_expected;
    for (int i = 0; i < 5; ++i) host_expected.push_back(std::rand());
    std::srand(1);

    RunValues runs[2];
    for (RunValues& v : runs) ASSERT_TRUE(run_recording(v).m8_done);

    // The host's generator reads on as if the library had never run.
    for (int expected : host_expected) EXPECT_EQ(std::rand(), expected);
    // Within one second the compatible source repeats one 16-byte value everywhere.
    std::set<Bytes> values;
    for (const RunValues& v : runs)
        for (const Bytes* b : {&v.n1, &v.es1, &v.es2, &v.iv_m5, &v.iv_m7}) {
            ASSERT_EQ(b->size(), 16u);
            values.insert(*b);
        }
    EXPECT_EQ(values.size(), system ? 10u : 1u);

    size_t hmacs = 0;
    const auto t0 = std::chrono::steady_clock::now();
    const std::string pin = recover_pin(runs[0], hmacs);
    std::printf("PIN search (%s): %zu HMAC-SM3 in %.1f ms, %s\n", system ? "system" : "compatible",
                hmacs, elapsed_ms(t0), pin.empty() ? "not found" : pin.c_str());
    if (system) {
        EXPECT_EQ(pin, "");
    } else {
        EXPECT_EQ(pin, "12345670");
        EXPECT_LE(hmacs, 20000u);
    }
}

INSTANTIATE_TEST_SUITE_P(Sources, RandomSource,
                         ::testing::Values(WAPIWPS_RANDOM_COMPATIBLE, WAPIWPS_RANDOM_SYSTEM));

// Knowing the run's minute and that a few scalars were drawn before, the compatible key falls to
// a search over (draws before, second); the system key does not.
TEST_F(Security, SoftwareKeyRecoveryFromThePublicKey) {
    constexpr int32_t kDrawsBefore = 2;
    constexpr int kMaxDrawsBefore = 3;
    for (int32_t source : {WAPIWPS_RANDOM_COMPATIBLE, WAPIWPS_RANDOM_SYSTEM}) {
        ASSERT_EQ(WapiWps_SetRandomSource(source), 0);
        set_random_counter(18 * kDrawsBefore);
        uint8_t priv[24] = {}, x[24] = {}, y[24] = {};
        GenPrivateKeyAndPublicKey(priv, x, y);
        const Bytes target = cat({bytes_of(x, 24), bytes_of(y, 24)});

        ASSERT_EQ(WapiWps_SetRandomSource(WAPIWPS_RANDOM_COMPATIBLE), 0);
        Bytes found;
        size_t guesses = 0;
        const auto t0 = std::chrono::steady_clock::now();
        for (int draws = 0; draws <= kMaxDrawsBefore && found.empty(); ++draws)
            for (int64_t second = 1700000000; second < 1700000060 && found.empty(); ++second) {
                ++guesses;
                g_guess_second = second;
                platform::set_time_source(guess_time, guess_file_time);
                set_random_counter(18 * draws);
                // The key generation's own steps, with the faster comb multiplier for d*G.
                BigNum d;
                RandomScalar(d, curve_params().n);
                AffinePoint q;
                fixed_base_mul(q, d);
                uint8_t db[24] = {}, gx[24] = {}, gy[24] = {};
                size_t w = 0;
                bn_to_bytes_minimal(q.x, gx, 24, &w);
                bn_to_bytes_minimal(q.y, gy, 24, &w);
                if (cat({bytes_of(gx, 24), bytes_of(gy, 24)}) == target) {
                    bn_to_bytes_minimal(d, db, 24, &w);
                    found = bytes_of(db, 24);
                }
            }
        std::printf("key search (%s): %zu guesses in %.1f ms (%.3f ms each), %s\n",
                    source == WAPIWPS_RANDOM_SYSTEM ? "system" : "compatible", guesses,
                    elapsed_ms(t0), elapsed_ms(t0) / static_cast<double>(guesses),
                    found.empty() ? "not found" : "found");
        platform::set_time_source(fixed_time, fixed_file_time);
        if (source == WAPIWPS_RANDOM_SYSTEM) {
            EXPECT_TRUE(found.empty());
        } else {
            EXPECT_EQ(found, bytes_of(priv, 24));
            EXPECT_EQ(guesses, static_cast<size_t>(60 * kDrawsBefore + 41));
        }
    }
}

TEST(RandomSourceExport, UnknownValuesChangeNothing) {
    ASSERT_EQ(WapiWps_SetRandomSource(WAPIWPS_RANDOM_SYSTEM), 0);
    for (int32_t bad : {-1, 2, 100}) EXPECT_EQ(WapiWps_SetRandomSource(bad), -1);
    EXPECT_EQ(platform::random_source(), platform::RandomSource::System);
    EXPECT_EQ(WapiWps_SetRandomSource(WAPIWPS_RANDOM_COMPATIBLE), 0);
    EXPECT_EQ(platform::random_source(), platform::RandomSource::Compatible);
}

// ---- Secrets are wiped where a run ends -------------------------------------------------------

struct Field {
    const char* name;
    uint8_t* data;
    size_t len;
};

std::vector<Field> run_secret_fields() {
    std::vector<Field> f = {{"DevicePassword", reinterpret_cast<uint8_t*>(g_MyMsgInfo.DevicePassword), 32},
                            {"g_HmacScratch", g_HmacScratch, sizeof g_HmacScratch}};
    for (PartyKeyInfo* r : {&g_EnrolleeKeys, &g_RegistrarKeys}) {
        f.push_back({"PrivateKey", r->PrivateKey, 32});
        f.push_back({"TempPrivateKey", r->TempPrivateKey, 32});
        f.push_back({"SecretNonce1", r->SecretNonce1, 16});
        f.push_back({"SecretNonce2", r->SecretNonce2, 16});
        f.push_back({"Psk1", r->Psk1, 32});
        f.push_back({"Psk2", r->Psk2, 32});
        f.push_back({"SharedSecret", r->SharedSecret, 32});
        f.push_back({"AuthKey", r->AuthKey, 32});
        f.push_back({"KeyWrapKey", r->KeyWrapKey, 16});
        f.push_back({"Emsk", r->Emsk, 32});
        f.push_back({"Kdk", r->Kdk, 32});
        f.push_back({"DhKey", r->DhKey, 32});
    }
    return f;
}

std::vector<Field> kept_secret_fields() {
    return {{"GeneratePrivateKey", GeneratePrivateKey, 24},
            {"GeneratePublicKey", g_MyMsgInfo.GeneratePublicKey, 48},
            {"AdminLoginKey", g_SecureChipAdminLoginKey, sizeof g_SecureChipAdminLoginKey},
            {"Credential", g_PrevMsgBuf, sizeof g_PrevMsgBuf}};
}

bool all_zero(const Field& f) {
    for (size_t i = 0; i < f.len; ++i)
        if (f.data[i] != 0) return false;
    return true;
}

void fill(const std::vector<Field>& fields) {
    for (const Field& f : fields) std::memset(f.data, 0xA5, f.len);
}

void end_by_failure(uint32_t state) {
    const uint8_t failure[] = {0x02, 0x00, 0x00, 0x04, 0x04, 0x07, 0x00, 0x04};
    g_WPS_mode = WAPI_WPS_PSK;
    g_State_Machine = state;
    uint8_t out[WAPIWPS_MAX_FRAME_LEN];
    uint32_t out_len = 0;
    ProcessReceivePacket(failure, sizeof failure, out, &out_len);
}

struct WipePoint {
    const char* name;
    void (*act)();
    bool run_secrets_only_scratch;  // a single HMAC: only the scratch is ours to check
    bool kept_wiped;                // the kept key pair, admin key and credential go too
};

const WipePoint kWipePoints[] = {
    {"StopWPS", [] { StopWPS(); }, false, false},
    {"StartWPS",
     [] {
         const uint8_t local[6] = {2, 0, 0, 0, 0, 1}, peer[6] = {2, 0, 0, 0, 0, 2};
         uint8_t out[WAPIWPS_MAX_FRAME_LEN];
         uint32_t len = 0;
         StartWPS(local, WAPIWPS_ADDRESS_MAC, WAPIWPS_MODE_WAPI_PSK, peer, nullptr, out, &len);
         std::memset(g_MyMsgInfo.DevicePassword, 0, 32);  // the new run's PIN, not a leftover
     },
     false, false},
    {"EapFailureAfterDone", [] { end_by_failure(WAIT_REQUEST_FAILURE); }, false, false},
    {"EapFailureAfterNack", [] { end_by_failure(SEND_NACK_WAIT_FAILURE); }, false, false},
    {"EachHmac",
     [] {
         uint8_t mac[32];
         HmacSHA256(g_EnrolleeKeys.AuthKey, 32, reinterpret_cast<const uint8_t*>("secret"), 6, mac);
     },
     true, false},
    {"ClearSecrets", [] { WapiWps_ClearSecrets(); }, false, true},
};

TEST(Wipe, EveryListedFieldIsZeroAfterEachPoint) {
    for (const WipePoint& p : kWipePoints) {
        SCOPED_TRACE(p.name);
        const std::vector<Field> run = run_secret_fields(), kept = kept_secret_fields();
        fill(run);
        fill(kept);
        std::memset(g_HmacScratch, 0, sizeof g_HmacScratch);
        p.act();
        for (const Field& f : run) {
            const bool checked = !p.run_secrets_only_scratch || f.data == g_HmacScratch;
            EXPECT_TRUE(!checked || all_zero(f)) << f.name;
        }
        for (const Field& f : kept) {
            // StartWPS has always cleared the previous message, and with it an old credential.
            const bool cleared_anyway = f.data == g_PrevMsgBuf && std::string(p.name) == "StartWPS";
            EXPECT_EQ(all_zero(f), p.kept_wiped || cleared_anyway) << f.name;
        }
    }
    WapiWps_ClearSecrets();
    StopWPS();
}

// A whole run: after its closing EAP-Failure nothing secret is left, yet the key is still read.
TEST_F(Security, AWholeRunLeavesOnlyTheDeliveredKey) {
    exchange::Options o;
    o.wps_mode = WAPIWPS_MODE_WAPI_PSK;
    o.pin = "12345670";
    o.registrar.network_key = {'n', 'e', 't', '-', 'k', 'e', 'y'};
    const exchange::Transcript t = exchange::run(o);
    ASSERT_EQ(t.last_result(), WAPIWPS_RESULT_SUCCESS);
    for (const Field& f : run_secret_fields()) EXPECT_TRUE(all_zero(f)) << f.name;
    EXPECT_EQ(t.psk_after, o.registrar.network_key);
}

// ---- Certificate mode 2 with a restored key, and with none --------------------------------------

TEST_F(Security, SetSigningKeyRestoresAKeyForMode2AndWithoutOneM7IsRefused) {
    const CurveParams& c = curve_params();
    uint8_t n[24] = {}, n_minus_1[24] = {};
    ASSERT_EQ(bn_to_bytes_fixed(c.n, n, 24, 100), 0);
    std::memcpy(n_minus_1, n, 24);
    n_minus_1[23] -= 1;
    const uint8_t zero[24] = {}, ones[24] = {0xFF, 0xFF, 0xFF};
    WapiWps_ClearSecrets();
    for (const uint8_t* bad : std::initializer_list<const uint8_t*>{nullptr, zero, n, ones})
        EXPECT_EQ(WapiWps_SetSigningKey(bad), -1);
    EXPECT_TRUE(all_zero(kept_secret_fields()[0]) && all_zero(kept_secret_fields()[1]));
    EXPECT_EQ(WapiWps_SetSigningKey(n_minus_1), 0);

    exchange::Options o;
    o.registrar.certificate_mode = 2;
    o.registrar.uuid_r = {0xA1};
    exchange::Identity id;
    id.uuid = o.registrar.uuid_r;
    id.data.assign(20, 0x5A);
    o.identities = {id};

    const uint8_t key[24] = {0x3C, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB,
                             0xCC, 0xDD, 0xEE, 0xF0, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08};
    ASSERT_EQ(WapiWps_SetSigningKey(key), 0);
    EXPECT_EQ(bytes_of(GeneratePrivateKey, 24), bytes_of(key, 24));
    o.registrar.known_public_key = bytes_of(g_MyMsgInfo.GeneratePublicKey, 48);
    ASSERT_TRUE(o.registrar.known_public_key[0] != 0 && o.registrar.known_public_key[24] != 0)
        << "pick a key whose coordinates are 24 bytes long";
    exchange::Transcript t = exchange::run(o);
    EXPECT_TRUE(t.m8_done);
    EXPECT_TRUE(t.outcome.signature_verified);

    WapiWps_ClearSecrets();
    t = exchange::run(o);
    EXPECT_FALSE(t.m8_done);
    EXPECT_EQ(t.nack_error(), 18);
    EXPECT_TRUE(t.has_trace("No signing key held, M7 not signed.\r\n"));
}

}  // namespace
