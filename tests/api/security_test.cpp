// The security extensions against the attacks they answer: PIN and key recovery that the
// compatible random source allows and the system source prevents, the host's generator, the
// wiping of secrets, and the restored signing key of certificate mode 2.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

#include "common/exchange.h"
#include "common/reference.h"
#include "crypto/crypto.h"
#include "engine/engine.h"
#include "messages/messages.h"
#include "signing/curve192.h"
#include "wapiwps.h"

namespace {

using Bytes = std::vector<uint8_t>;
using ref::bytes_of;
using ref::cat;

// Runs happen 40 s into the minute that starts at kMinute; the attacker's guesses walk it.
constexpr int64_t kMinute = 1700000000;
int64_t g_now = kMinute + 40;
int64_t now() { return g_now; }
uint64_t file_now() { return (11644473600ull + static_cast<uint64_t>(g_now)) * 10000000ull; }

Bytes attribute(const Bytes& frame, uint16_t type) {
    if (frame.size() <= OFF_MESSAGE) return {};
    const std::span<const uint8_t> body(frame.data() + OFF_MESSAGE, frame.size() - OFF_MESSAGE);
    Bytes value(4096);
    uint16_t len = 0;
    if (GetTlvFromType(type, body, static_cast<int32_t>(body.size()), value, &len) == 0) return {};
    value.resize(len);
    return value;
}

// What one run shows: values on the air, and what a registrar that ran M2 holds.
struct RunValues {
    Bytes n1, es1, es2, iv_m5, iv_m7, e_hash1, e_hash2, auth_key, pke, pkr, signing_key;
};

RunValues run_recording() {
    RunValues v;
    exchange::Options o = exchange::cert_run(1);
    o.before_registrar = [&v](registrar::Registrar&, const Bytes& frame, size_t) {
        const Bytes type = attribute(frame, ATTR_MSG_TYPE);
        const uint8_t t = type.size() == 1 ? type[0] : 0;
        if (t == WPS_MSG_TYPE_M1) v.n1 = attribute(frame, ATTR_ENROLLEE_NONCE);
        if (t == WPS_MSG_TYPE_M5 || t == WPS_MSG_TYPE_M7) {
            const Bytes sealed = attribute(frame, ATTR_ENCR_SETTINGS);
            (t == WPS_MSG_TYPE_M5 ? v.iv_m5 : v.iv_m7) = Bytes(sealed.begin(), sealed.begin() + std::min<size_t>(16, sealed.size()));
        }
        if (t != WPS_MSG_TYPE_M3) return;
        v.e_hash1 = attribute(frame, ATTR_E_HASH1);
        v.e_hash2 = attribute(frame, ATTR_E_HASH2);
        v.auth_key = bytes_of(g_EnrolleeKeys.AuthKey, 32);  // the registrar derives the same
        v.pke = bytes_of(g_EnrolleeKeys.PublicKey, 64);
        v.pkr = bytes_of(g_RegistrarKeys.PublicKey, 64);
        v.es1 = bytes_of(g_EnrolleeKeys.SecretNonce1, 16);
        v.es2 = bytes_of(g_EnrolleeKeys.SecretNonce2, 16);
    };
    const exchange::Transcript t = exchange::run(o);
    EXPECT_TRUE(t.m8_done);
    v.signing_key = t.outcome.signing_public_key;
    return v;
}

// The rogue registrar's offline search: E-S1 and E-S2 taken to be the Enrollee Nonce of M1, each
// 4-digit half tried in turn, two HMACs per candidate. Empty when a half is not found.
std::string recover_pin(const RunValues& v, size_t& hmacs) {
    std::string pin;
    for (const Bytes* target : {&v.e_hash1, &v.e_hash2}) {
        const size_t before = pin.size();
        for (int c = 0; c < 10000 && pin.size() == before; ++c, hmacs += 2) {
            char half[12];
            std::snprintf(half, sizeof half, "%04d", c);
            const Bytes psk = ref::hmac_sm3(v.auth_key, Bytes(half, half + 4));
            if (ref::hmac_sm3(v.auth_key, cat({v.n1, Bytes(psk.begin(), psk.begin() + 16), v.pke, v.pkr})) == *target)
                pin += half;
        }
        if (pin.size() == before) return {};
    }
    return pin;
}

// The key search given the minute: for each count of scalars drawn before, each second; the
// key generation's own steps with the comb multiplier. Returns the guesses, 0 when not found.
size_t recover_key(const Bytes& public_key, int max_draws_before) {
    size_t guesses = 0;
    for (int draws = 0; draws <= max_draws_before; ++draws)
        for (g_now = kMinute; g_now < kMinute + 60; ++g_now) {
            ++guesses;
            set_random_counter(18 * draws);
            BigNum d;
            RandomScalar(d, curve_params().n);
            AffinePoint q;
            fixed_base_mul(q, d);
            uint8_t xy[48] = {};
            size_t w = 0;
            bn_to_bytes_minimal(q.x, xy, 24, &w);
            bn_to_bytes_minimal(q.y, xy + 24, 24, &w);
            if (bytes_of(xy, 48) == public_key) return guesses;
        }
    return 0;
}

// The secrets of a run (wiped at every end of a run) and those kept on purpose.
struct Field {
    const char* name;
    uint8_t* data;
    size_t len;
};
std::vector<Field> run_secret_fields() {
    std::vector<Field> f = {{"DevicePassword", reinterpret_cast<uint8_t*>(g_MyMsgInfo.DevicePassword), 32},
                            {"g_HmacScratch", g_HmacScratch, sizeof g_HmacScratch}};
    for (PartyKeyInfo* r : {&g_EnrolleeKeys, &g_RegistrarKeys})
        f.insert(f.end(), {{"PrivateKey", r->PrivateKey, 32}, {"TempPrivateKey", r->TempPrivateKey, 32},
                           {"SecretNonce1", r->SecretNonce1, 16}, {"SecretNonce2", r->SecretNonce2, 16},
                           {"Psk1", r->Psk1, 32}, {"Psk2", r->Psk2, 32}, {"SharedSecret", r->SharedSecret, 32},
                           {"AuthKey", r->AuthKey, 32}, {"KeyWrapKey", r->KeyWrapKey, 16}, {"Emsk", r->Emsk, 32},
                           {"Kdk", r->Kdk, 32}, {"DhKey", r->DhKey, 32}});
    return f;
}
std::vector<Field> kept_secret_fields() {
    return {{"GeneratePrivateKey", GeneratePrivateKey, 24},
            {"GeneratePublicKey", g_MyMsgInfo.GeneratePublicKey, 48},
            {"AdminLoginKey", g_SecureChipAdminLoginKey, sizeof g_SecureChipAdminLoginKey},
            {"Credential", g_PrevMsgBuf, sizeof g_PrevMsgBuf}};
}
bool all_zero(const Field& f) {
    return std::all_of(f.data, f.data + f.len, [](uint8_t b) { return b == 0; });
}

class Security : public ::testing::TestWithParam<int32_t> {
  protected:
    void SetUp() override { platform::set_time_source(now, file_now); }
    void TearDown() override {
        platform::set_time_source(nullptr, nullptr);
        WapiWps_SetRandomSource(WAPIWPS_RANDOM_COMPATIBLE);
    }
};

TEST_P(Security, TwoRunsInOneSecondAgainstPinAndKeyRecovery) {
    const bool system = GetParam() == WAPIWPS_RANDOM_SYSTEM;
    ASSERT_EQ(WapiWps_SetRandomSource(GetParam()), 0);
    std::srand(1);
    std::vector<int> host_expected;
    for (int i = 0; i < 5; ++i) host_expected.push_back(std::rand());
    std::srand(1);
    g_now = kMinute + 40;
    set_random_counter(18 * 2);  // two scalars drawn before: the first run's key is the third
    const RunValues runs[2] = {run_recording(), run_recording()};

    // The host's generator reads on as if the library had never run.
    for (int expected : host_expected) EXPECT_EQ(std::rand(), expected);
    // After the runs' closing EAP-Failure no run secret is left.
    for (const Field& f : run_secret_fields()) EXPECT_TRUE(all_zero(f)) << f.name;
    // Within one second the compatible source repeats one 16-byte value everywhere.
    // Kept as text: g++ 12 at -O3 warns falsely inside std::vector's ordering.
    std::set<std::string> values;
    for (const RunValues& v : runs)
        for (const Bytes* b : {&v.n1, &v.es1, &v.es2, &v.iv_m5, &v.iv_m7}) {
            ASSERT_EQ(b->size(), 16u);
            values.insert(std::string(b->begin(), b->end()));
        }
    EXPECT_EQ(values.size(), system ? 10u : 1u);

    size_t hmacs = 0;
    const std::string pin = recover_pin(runs[0], hmacs);
    EXPECT_EQ(pin, system ? "" : "12345670");
    EXPECT_LE(hmacs, 20000u);

    ASSERT_EQ(WapiWps_SetRandomSource(WAPIWPS_RANDOM_COMPATIBLE), 0);  // the attacker's generator
    EXPECT_EQ(recover_key(runs[0].signing_key, 2), system ? 0u : 60u * 2 + 41);
}

INSTANTIATE_TEST_SUITE_P(Sources, Security,
                         ::testing::Values(WAPIWPS_RANDOM_COMPATIBLE, WAPIWPS_RANDOM_SYSTEM));

TEST(RandomSourceExport, UnknownValuesChangeNothingAndTheEnvironmentSetsTheStart) {
    ASSERT_EQ(WapiWps_SetRandomSource(WAPIWPS_RANDOM_SYSTEM), 0);
    for (int32_t bad : {-1, 2, 100}) EXPECT_EQ(WapiWps_SetRandomSource(bad), -1);
    EXPECT_EQ(platform::random_source(), platform::RandomSource::System);
    for (const char* value : {"system", "bogus", "compatible", "SYSTEM"}) {
#if defined(_WIN32)
        _putenv_s("WAPIWPS_RANDOM", value);
#else
        setenv("WAPIWPS_RANDOM", value, 1);
#endif
        platform::random_source_from_environment();
        EXPECT_EQ(platform::random_source() == platform::RandomSource::System,
                  value[0] == 's' || value[0] == 'b') << value;
    }
}

void end_by_failure(uint32_t state) {  // the success path is the whole runs above
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
    bool only_scratch;  // a single HMAC: only the scratch is its to wipe
    bool kept_wiped;    // the kept key pair, admin key and credential go too
};
const WipePoint kWipePoints[] = {
    {"StopWPS", [] { StopWPS(); }, false, false},
    {"StartWPS", [] {
         const uint8_t mac[6] = {2, 0, 0, 0, 0, 1};
         uint8_t out[WAPIWPS_MAX_FRAME_LEN];
         uint32_t len = 0;
         StartWPS(mac, WAPIWPS_ADDRESS_MAC, WAPIWPS_MODE_WAPI_PSK, mac, nullptr, out, &len);
         std::memset(g_MyMsgInfo.DevicePassword, 0, 32);  // the new run's password, not a leftover
     }, false, false},
    {"EapFailureAfterNack", [] { end_by_failure(SEND_NACK_WAIT_FAILURE); }, false, false},
    {"EachHmac", [] {
         uint8_t mac[32];
         HmacSHA256(g_EnrolleeKeys.AuthKey, 32, reinterpret_cast<const uint8_t*>("secret"), 6, mac);
     }, true, false},
    {"ClearSecrets", [] { WapiWps_ClearSecrets(); }, false, true},
};

TEST(Wipe, EveryListedFieldIsZeroAfterEachPoint) {
    for (const WipePoint& p : kWipePoints) {
        SCOPED_TRACE(p.name);
        for (const Field& f : run_secret_fields()) std::memset(f.data, 0xA5, f.len);
        for (const Field& f : kept_secret_fields()) std::memset(f.data, 0xA5, f.len);
        std::memset(g_HmacScratch, 0, sizeof g_HmacScratch);
        p.act();
        for (const Field& f : run_secret_fields())
            EXPECT_TRUE(all_zero(f) || (p.only_scratch && f.data != g_HmacScratch)) << f.name;
        for (const Field& f : kept_secret_fields()) {
            // StartWPS has always cleared the previous message, and with it an old credential.
            const bool cleared_anyway = f.data == g_PrevMsgBuf && std::string(p.name) == "StartWPS";
            EXPECT_EQ(all_zero(f), p.kept_wiped || cleared_anyway) << f.name;
        }
    }
    WapiWps_ClearSecrets();
    StopWPS();
}

TEST(SigningKey, RestoredKeySignsMode2AndWithoutAnyKeyM7IsRefused) {
    uint8_t n[24] = {};
    const uint8_t zero[24] = {};
    ASSERT_EQ(bn_to_bytes_fixed(curve_params().n, n, 24, 100), 0);
    WapiWps_ClearSecrets();
    for (const uint8_t* bad : std::initializer_list<const uint8_t*>{nullptr, zero, n})
        EXPECT_EQ(WapiWps_SetSigningKey(bad), -1);
    EXPECT_TRUE(all_zero(kept_secret_fields()[0]) && all_zero(kept_secret_fields()[1]));

    exchange::Options o = exchange::cert_run(2);
    const uint8_t key[24] = {0x3C, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB,
                             0xCC, 0xDD, 0xEE, 0xF0, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08};
    ASSERT_EQ(WapiWps_SetSigningKey(key), 0);
    EXPECT_EQ(bytes_of(GeneratePrivateKey, 24), bytes_of(key, 24));
    o.registrar.known_public_key = bytes_of(g_MyMsgInfo.GeneratePublicKey, 48);
    ASSERT_TRUE(o.registrar.known_public_key[0] != 0 && o.registrar.known_public_key[24] != 0)
        << "pick a key whose coordinates are 24 bytes long";
    exchange::Transcript t = exchange::run(o);
    EXPECT_TRUE(t.m8_done && t.outcome.signature_verified);

    WapiWps_ClearSecrets();
    t = exchange::run(o);
    EXPECT_FALSE(t.m8_done);
    EXPECT_EQ(t.nack_error(), 18);
    EXPECT_TRUE(t.has_trace("No signing key held, M7 not signed.\r\n"));
}

}  // namespace
