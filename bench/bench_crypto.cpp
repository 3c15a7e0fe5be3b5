// Crypto and message timings: our SMS4-OFB beside libgcrypt's and OpenSSL's SM4-OFB, HMAC-SM3
// through the wrapper beside libgcrypt directly, and the M1 builder and M2 parser end to end.
#include <benchmark/benchmark.h>
#include <gcrypt.h>
#include <openssl/evp.h>

#include <cstring>
#include <vector>

#include "api/context.h"
#include "common/bytes.h"
#include "crypto/crypto.h"
#include "messages/messages.h"
#include "zev.h"

namespace {

const uint8_t kKey[16] = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF,
                          0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x32, 0x10};
const uint8_t kIv[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

void init_gcrypt() {
    static bool done = false;
    if (!done) {
        gcry_check_version(nullptr);
        gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
        done = true;
    }
}

// ---- SMS4-OFB: every call expands the key, as EncryptMessage and DecryptMessage do ------------

void BM_Sms4Ofb_Ours(benchmark::State& state) {
    const size_t n = static_cast<size_t>(state.range(0));
    std::vector<uint8_t> in(n, 0x5A), out(n);
    for (auto _ : state) {
        Sms4Ofb(kIv, in.data(), static_cast<int32_t>(n), kKey, out.data());
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}

void BM_Sms4Ofb_Libgcrypt(benchmark::State& state) {
    init_gcrypt();
    const size_t n = static_cast<size_t>(state.range(0));
    std::vector<uint8_t> in(n, 0x5A), out(n);
    gcry_cipher_hd_t h;
    gcry_cipher_open(&h, GCRY_CIPHER_SM4, GCRY_CIPHER_MODE_OFB, 0);
    for (auto _ : state) {
        gcry_cipher_setkey(h, kKey, 16);
        gcry_cipher_setiv(h, kIv, 16);
        gcry_cipher_encrypt(h, out.data(), n, in.data(), n);
        benchmark::DoNotOptimize(out.data());
    }
    gcry_cipher_close(h);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}

void BM_Sms4Ofb_OpenSSL(benchmark::State& state) {
    const EVP_CIPHER* cipher = EVP_sm4_ofb();
    if (cipher == nullptr) {
        state.SkipWithError("OpenSSL has no sm4-ofb");
        return;
    }
    const size_t n = static_cast<size_t>(state.range(0));
    std::vector<uint8_t> in(n, 0x5A), out(n + 16);
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    for (auto _ : state) {
        int len = 0;
        EVP_EncryptInit_ex(ctx, cipher, nullptr, kKey, kIv);
        EVP_EncryptUpdate(ctx, out.data(), &len, in.data(), static_cast<int>(n));
        benchmark::DoNotOptimize(out.data());
    }
    EVP_CIPHER_CTX_free(ctx);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}

BENCHMARK(BM_Sms4Ofb_Ours)->Arg(64)->Arg(1024)->Arg(16384);
BENCHMARK(BM_Sms4Ofb_Libgcrypt)->Arg(64)->Arg(1024)->Arg(16384);
BENCHMARK(BM_Sms4Ofb_OpenSSL)->Arg(64)->Arg(1024)->Arg(16384);

void BM_Sms4Block_Ours(benchmark::State& state) {
    Sms4Schedule schedule;
    Sms4KeySchedule(&schedule, kKey, 16);
    uint8_t block[16] = {};
    for (auto _ : state) {
        Sms4EncryptBlock(schedule, block, block);
        benchmark::DoNotOptimize(block);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * 16));
}
BENCHMARK(BM_Sms4Block_Ours);

// ---- HMAC-SM3 --------------------------------------------------------------------------------

void BM_HmacSm3_Wrapper(benchmark::State& state) {
    const size_t n = static_cast<size_t>(state.range(0));
    std::vector<uint8_t> data(n, 0xA5);
    uint8_t key[32] = {7}, out[32];
    for (auto _ : state) {
        HmacSHA256(key, 32, data.data(), static_cast<uint32_t>(n), out);
        benchmark::DoNotOptimize(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}

void BM_HmacSm3_Libgcrypt(benchmark::State& state) {
    init_gcrypt();
    const size_t n = static_cast<size_t>(state.range(0));
    std::vector<uint8_t> data(n, 0xA5);
    uint8_t key[32] = {7}, out[32];
    for (auto _ : state) {
        gcry_mac_hd_t h;
        gcry_mac_open(&h, GCRY_MAC_HMAC_SM3, 0, nullptr);
        gcry_mac_setkey(h, key, 32);
        gcry_mac_write(h, data.data(), n);
        size_t len = 32;
        gcry_mac_read(h, out, &len);
        gcry_mac_close(h);
        benchmark::DoNotOptimize(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}

BENCHMARK(BM_HmacSm3_Wrapper)->Arg(44)->Arg(160)->Arg(1024)->Arg(4096);
BENCHMARK(BM_HmacSm3_Libgcrypt)->Arg(44)->Arg(160)->Arg(1024)->Arg(4096);

// ---- M1 and M2 -------------------------------------------------------------------------------

void set_device() {
    g_WPS_mode = WAPI_WPS_PSK;
    g_AddressMode = MAC_ADDRESS;
    std::memcpy(g_MyMsgInfo.LocalAddress, "\x00\x1A\x2B\x3C\x4D\x5E", 6);
    std::memcpy(g_MyMsgInfo.UUID_E, "enrollee-uuid-16", 16);
    std::strcpy(g_MyMsgInfo.Manufacturer, "WAPI-WPS-STA");
    std::strcpy(g_MyMsgInfo.ModelName, "WAPI-WPS-STA-Enrollee");
    std::strcpy(g_MyMsgInfo.DevicePassword, "12345670");
    g_MyMsgInfo.PrimaryDeviceCategory = 1;
}

void BM_BuildMessageM1(benchmark::State& state) {
    set_device();
    InitSession();
    std::vector<uint8_t> out(kMaxBodyLen);
    for (auto _ : state) {
        uint32_t len = 0;
        BuildMessageM1(out.data(), &len);  // includes the temporary SM2 key pair
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_BuildMessageM1)->Unit(benchmark::kMicrosecond);

void put_tlv(std::vector<uint8_t>& out, uint16_t type, const uint8_t* v, size_t n) {
    uint8_t h[4];
    put_be16(h, type);
    put_be16(h + 2, static_cast<uint16_t>(n));
    out.insert(out.end(), h, h + 4);
    out.insert(out.end(), v, v + n);
}

void BM_UnpackMessageM2(benchmark::State& state) {
    set_device();
    InitSession();
    std::vector<uint8_t> m1(kMaxBodyLen);
    uint32_t m1_len = 0;
    BuildMessageM1(m1.data(), &m1_len);
    ZEV_ECCPrivateKey priv{}, temp_priv{};
    ZEV_ECCPublicKey pub{}, temp_pub{};
    ZEV_SM2_GenerateAgreementDataWithECC(g_phSessionHandle, &priv, &pub);
    ZEV_SM2_GenerateAgreementDataWithECC(g_phSessionHandle, &temp_priv, &temp_pub);
    uint8_t public_key[128];
    std::memcpy(public_key, pub.x, 32);
    std::memcpy(public_key + 32, pub.y, 32);
    std::memcpy(public_key + 64, temp_pub.x, 32);
    std::memcpy(public_key + 96, temp_pub.y, 32);
    const uint8_t one[1] = {0x10}, type[1] = {WPS_MSG_TYPE_M2}, two[2] = {0, 0}, four[4] = {0, 0, 0, 1};
    const uint8_t nonce[16] = {0x4E}, pdt[8] = {0, 1, 0x00, 0x00, 0x14, 0x72, 0, 1};
    std::vector<uint8_t> body;
    put_tlv(body, ATTR_VERSION, one, 1);
    put_tlv(body, ATTR_MSG_TYPE, type, 1);
    put_tlv(body, ATTR_ENROLLEE_NONCE, g_EnrolleeKeys.Nonce, 16);
    put_tlv(body, ATTR_REGISTRAR_NONCE, nonce, 16);
    put_tlv(body, ATTR_UUID_R, reinterpret_cast<const uint8_t*>("registrar-uuid16"), 16);
    put_tlv(body, ATTR_PUBLIC_KEY, public_key, 128);
    put_tlv(body, ATTR_AUTH_TYPE_FLAGS, two, 2);
    put_tlv(body, ATTR_ENCR_TYPE_FLAGS, two, 2);
    put_tlv(body, ATTR_CONNECTION_TYPE_FLAGS, one, 1);
    put_tlv(body, ATTR_CONFIG_METHODS, two, 2);
    put_tlv(body, ATTR_MANUFACTURER, one, 1);
    put_tlv(body, ATTR_MODEL_NAME, one, 1);
    put_tlv(body, ATTR_MODEL_NUMBER, one, 1);
    put_tlv(body, ATTR_SERIAL_NUMBER, one, 1);
    put_tlv(body, ATTR_PRIMARY_DEV_TYPE, pdt, 8);
    put_tlv(body, ATTR_DEVICE_NAME, one, 1);
    put_tlv(body, ATTR_RF_BANDS, one, 1);
    put_tlv(body, ATTR_ASSOCIATION_STATE, two, 2);
    put_tlv(body, ATTR_CONFIG_ERROR, two, 2);
    put_tlv(body, ATTR_DEVICE_PASSWORD_ID, two, 2);
    put_tlv(body, ATTR_OS_VERSION, four, 4);
    const uint8_t zero[8] = {};
    put_tlv(body, ATTR_AUTHENTICATOR, zero, 8);
    // The enrollee's own parse derives the keys; the Authenticator is then set to match.
    UnpackMessageM2(body, static_cast<int32_t>(body.size()));
    uint8_t mac[32];
    ComputeAuthenticator(g_EnrolleeKeys.AuthKey, m1.data(), static_cast<int32_t>(m1_len), body.data(),
                         static_cast<int32_t>(body.size() - 12), mac);
    std::memcpy(body.data() + body.size() - 8, mac, 8);

    const PartyKeyInfo enrollee = g_EnrolleeKeys;
    for (auto _ : state) {
        state.PauseTiming();
        g_EnrolleeKeys = enrollee;
        std::memcpy(g_PrevMsgBuf, m1.data(), m1_len);
        g_PrevMsgLen = static_cast<uint16_t>(m1_len);
        state.ResumeTiming();
        const int32_t code = UnpackMessageM2(body, static_cast<int32_t>(body.size()));
        if (code != 0) state.SkipWithError("M2 refused");
    }
}
BENCHMARK(BM_UnpackMessageM2)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
