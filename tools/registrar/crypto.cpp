// libgcrypt and ZEV behind the registrar's small crypto interface.
#include "crypto.h"

#include <gcrypt.h>

#include <cstring>
#include <memory>
#include <mutex>

#include "wire.h"
#include "zev.h"

namespace registrar::crypto {

namespace {

// WAPI 192-bit curve.
constexpr uint8_t kP192[24] = {0xBD, 0xB6, 0xF4, 0xFE, 0x3E, 0x8B, 0x1D, 0x9E, 0x0D, 0xA8, 0xC0, 0xD4,
                               0x6F, 0x4C, 0x31, 0x8C, 0xEF, 0xE4, 0xAF, 0xE3, 0xB6, 0xB8, 0x55, 0x1F};
constexpr uint8_t kA192[24] = {0xBB, 0x8E, 0x5E, 0x8F, 0xBC, 0x11, 0x5E, 0x13, 0x9F, 0xE6, 0xA8, 0x14,
                               0xFE, 0x48, 0xAA, 0xA6, 0xF0, 0xAD, 0xA1, 0xAA, 0x5D, 0xF9, 0x19, 0x85};
constexpr uint8_t kB192[24] = {0x18, 0x54, 0xBE, 0xBD, 0xC3, 0x1B, 0x21, 0xB7, 0xAE, 0xFC, 0x80, 0xAB,
                               0x0E, 0xCD, 0x10, 0xD5, 0xB1, 0xB3, 0x30, 0x8E, 0x6D, 0xBF, 0x11, 0xC1};
constexpr uint8_t kG192[49] = {0x04,
                               0x4A, 0xD5, 0xF7, 0x04, 0x8D, 0xE7, 0x09, 0xAD, 0x51, 0x23, 0x6D, 0xE6,
                               0x5E, 0x4D, 0x4B, 0x48, 0x2C, 0x83, 0x6D, 0xC6, 0xE4, 0x10, 0x66, 0x40,
                               0x02, 0xBB, 0x3A, 0x02, 0xD4, 0xAA, 0xAD, 0xAC, 0xAE, 0x24, 0x81, 0x7A,
                               0x4C, 0xA3, 0xA1, 0xB0, 0x14, 0xB5, 0x27, 0x04, 0x32, 0xDB, 0x27, 0xD2};
constexpr uint8_t kN192[24] = {0xBD, 0xB6, 0xF4, 0xFE, 0x3E, 0x8B, 0x1D, 0x9E, 0x0D, 0xA8, 0xC0, 0xD4,
                               0x0F, 0xC9, 0x62, 0x19, 0x5D, 0xFA, 0xE7, 0x6F, 0x56, 0x56, 0x46, 0x77};

// SM2 recommended 256-bit curve (GB/T 32918.5), the parameter block of ZEV_OpenSession.
constexpr uint8_t kSm2Params[6][32] = {
    {0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
     0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
    {0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
     0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFC},
    {0x28, 0xE9, 0xFA, 0x9E, 0x9D, 0x9F, 0x5E, 0x34, 0x4D, 0x5A, 0x9E, 0x4B, 0xCF, 0x65, 0x09, 0xA7,
     0xF3, 0x97, 0x89, 0xF5, 0x15, 0xAB, 0x8F, 0x92, 0xDD, 0xBC, 0xBD, 0x41, 0x4D, 0x94, 0x0E, 0x93},
    {0x32, 0xC4, 0xAE, 0x2C, 0x1F, 0x19, 0x81, 0x19, 0x5F, 0x99, 0x04, 0x46, 0x6A, 0x39, 0xC9, 0x94,
     0x8F, 0xE3, 0x0B, 0xBF, 0xF2, 0x66, 0x0B, 0xE1, 0x71, 0x5A, 0x45, 0x89, 0x33, 0x4C, 0x74, 0xC7},
    {0xBC, 0x37, 0x36, 0xA2, 0xF4, 0xF6, 0x77, 0x9C, 0x59, 0xBD, 0xCE, 0xE3, 0x6B, 0x69, 0x21, 0x53,
     0xD0, 0xA9, 0x87, 0x7C, 0xC6, 0x2A, 0x47, 0x40, 0x02, 0xDF, 0x32, 0xE5, 0x21, 0x39, 0xF0, 0xA0},
    {0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
     0x72, 0x03, 0xDF, 0x6B, 0x21, 0xC6, 0x05, 0x2B, 0x53, 0xBB, 0xF4, 0x09, 0x39, 0xD5, 0x41, 0x23},
};

constexpr char kKdfLabel[] = "Wi-Fi Easy and Secure Key Derivation";
constexpr uint32_t kKdfBits = 640;
constexpr int kKdfRounds = 3;

struct SexpFree {
    void operator()(gcry_sexp_t s) const { gcry_sexp_release(s); }
};
using Sexp = std::unique_ptr<std::remove_pointer_t<gcry_sexp_t>, SexpFree>;
struct MpiFree {
    void operator()(gcry_mpi_t m) const { gcry_mpi_release(m); }
};
using Mpi = std::unique_ptr<std::remove_pointer_t<gcry_mpi_t>, MpiFree>;

Mpi mpi_from(std::span<const uint8_t> be) {
    gcry_mpi_t m = nullptr;
    if (gcry_mpi_scan(&m, GCRYMPI_FMT_USG, be.data(), be.size(), nullptr) != 0) return Mpi();
    return Mpi(m);
}

void* zev_session(std::string& error) {
    static std::once_flag once;
    static void* handle = nullptr;
    static int32_t status = 0;
    std::call_once(once, [] {
        ZEV_SessionParams params{};
        std::memcpy(params.p, kSm2Params[0], 32);
        std::memcpy(params.a, kSm2Params[1], 32);
        std::memcpy(params.b, kSm2Params[2], 32);
        std::memcpy(params.gx, kSm2Params[3], 32);
        std::memcpy(params.gy, kSm2Params[4], 32);
        std::memcpy(params.n, kSm2Params[5], 32);
        params.count[0] = 6;
        status = ZEV_OpenSession(&handle, &params);
    });
    if (status != ZEV_OK) {
        error = "ZEV_OpenSession failed with status " + std::to_string(status);
        return nullptr;
    }
    return handle;
}

}  // namespace

void init() {
    static std::once_flag once;
    std::call_once(once, [] {
        gcry_check_version(nullptr);
        gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
        gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
    });
}

Digest sm3(std::span<const uint8_t> data) {
    Digest out{};
    gcry_md_hash_buffer(GCRY_MD_SM3, out.data(), data.data(), data.size());
    return out;
}

Digest hmac_sm3(std::span<const uint8_t> key, std::initializer_list<std::span<const uint8_t>> pieces) {
    Digest out{};
    gcry_mac_hd_t h = nullptr;
    if (gcry_mac_open(&h, GCRY_MAC_HMAC_SM3, 0, nullptr) != 0) return out;
    gcry_mac_setkey(h, key.data(), key.size());
    for (auto p : pieces) gcry_mac_write(h, p.data(), p.size());
    size_t len = out.size();
    gcry_mac_read(h, out.data(), &len);
    gcry_mac_close(h);
    return out;
}

Bytes sm4_ofb(std::span<const uint8_t> key16, std::span<const uint8_t> iv16, std::span<const uint8_t> data) {
    Bytes out(data.size());
    gcry_cipher_hd_t h = nullptr;
    if (gcry_cipher_open(&h, GCRY_CIPHER_SM4, GCRY_CIPHER_MODE_OFB, 0) != 0) return out;
    gcry_cipher_setkey(h, key16.data(), key16.size());
    gcry_cipher_setiv(h, iv16.data(), iv16.size());
    if (!data.empty()) gcry_cipher_encrypt(h, out.data(), out.size(), data.data(), data.size());
    gcry_cipher_close(h);
    return out;
}

void random_bytes(std::span<uint8_t> out) { gcry_create_nonce(out.data(), out.size()); }

bool equal_ct(std::span<const uint8_t> a, std::span<const uint8_t> b) {
    if (a.size() != b.size()) return false;
    uint8_t diff = 0;
    for (size_t i = 0; i < a.size(); ++i) diff = static_cast<uint8_t>(diff | (a[i] ^ b[i]));
    return diff == 0;
}

bool ecdsa192_verify(std::span<const uint8_t> public_key48, std::span<const uint8_t> message,
                     std::span<const uint8_t> signature48) {
    if (public_key48.size() != 48 || signature48.size() != 48) return false;
    uint8_t q[49] = {0x04};
    std::memcpy(q + 1, public_key48.data(), 48);
    gcry_sexp_t raw = nullptr;
    if (gcry_sexp_build(&raw, nullptr, "(public-key(ecc(p %b)(a %b)(b %b)(g %b)(n %b)(h %u)(q %b)))",
                        24, kP192, 24, kA192, 24, kB192, 49, kG192, 24, kN192, 1u, 49, q) != 0)
        return false;
    Sexp key(raw);

    // e = SHA-256(message) mod n, handed over as a raw value so that libgcrypt does not truncate.
    uint8_t digest[32];
    gcry_md_hash_buffer(GCRY_MD_SHA256, digest, message.data(), message.size());
    Mpi e = mpi_from(digest);
    Mpi n = mpi_from(kN192);
    if (!e || !n) return false;
    gcry_mpi_mod(e.get(), e.get(), n.get());
    if (gcry_sexp_build(&raw, nullptr, "(data(flags raw)(value %m))", e.get()) != 0) return false;
    Sexp data(raw);
    if (gcry_sexp_build(&raw, nullptr, "(sig-val(ecdsa(r %b)(s %b)))", 24, signature48.data(), 24,
                        signature48.data() + 24) != 0)
        return false;
    Sexp sig(raw);
    return gcry_pk_verify(sig.get(), data.get(), key.get()) == 0;
}

bool sm2_generate(Sm2KeyPair& out, std::string& error) {
    void* session = zev_session(error);
    if (session == nullptr) return false;
    ZEV_ECCPrivateKey priv{};
    ZEV_ECCPublicKey pub{};
    priv.bits = 256;
    pub.bits = 256;
    const int32_t status = ZEV_SM2_GenerateAgreementDataWithECC(session, &priv, &pub);
    if (status != ZEV_OK) {
        error = "ZEV_SM2_GenerateAgreementDataWithECC failed with status " + std::to_string(status);
        return false;
    }
    std::memcpy(out.priv.data(), priv.K, 32);
    std::memcpy(out.pub.data(), pub.x, 32);
    std::memcpy(out.pub.data() + 32, pub.y, 32);
    return true;
}

bool sm2_agree_responder(const Sm2KeyPair& own, const Sm2KeyPair& own_temp,
                         std::span<const uint8_t> peer_pub64, std::span<const uint8_t> peer_temp_pub64,
                         std::span<const uint8_t> uuid_r, std::span<const uint8_t> uuid_e,
                         Digest& key, std::string& error) {
    void* session = zev_session(error);
    if (session == nullptr) return false;
    auto priv_record = [](const std::array<uint8_t, 32>& k) {
        ZEV_ECCPrivateKey r{};
        r.bits = 256;
        std::memcpy(r.K, k.data(), 32);
        return r;
    };
    auto pub_record = [](std::span<const uint8_t> xy) {
        ZEV_ECCPublicKey r{};
        r.bits = 256;
        std::memcpy(r.x, xy.data(), 32);
        std::memcpy(r.y, xy.data() + 32, 32);
        return r;
    };
    const ZEV_ECCPrivateKey own_priv = priv_record(own.priv);
    const ZEV_ECCPrivateKey own_temp_priv = priv_record(own_temp.priv);
    const ZEV_ECCPublicKey own_temp_pub = pub_record(own_temp.pub);
    const ZEV_ECCPublicKey peer_pub = pub_record(peer_pub64);
    const ZEV_ECCPublicKey peer_temp_pub = pub_record(peer_temp_pub64);
    ZEV_AgreementOut agreement{};
    agreement.key = key.data();
    const int32_t status = ZEV_SM2_GenerateKeyWithECC_Responder(
        session, 256, uuid_r.data(), static_cast<uint32_t>(uuid_r.size()), uuid_e.data(),
        static_cast<uint32_t>(uuid_e.size()), &own_priv, &own_temp_priv, &own_temp_pub, &peer_pub,
        &peer_temp_pub, &agreement);
    if (status != ZEV_OK) {
        error = "SM2 key agreement (responder) failed with status " + std::to_string(status);
        return false;
    }
    return true;
}

SessionKeys derive_session_keys(std::span<const uint8_t> agreed, std::span<const uint8_t> n1,
                                std::span<const uint8_t> enrollee_address, std::span<const uint8_t> n2) {
    const Digest dh_key = sm3(agreed);
    const Digest kdk = hmac_sm3(dh_key, {n1, enrollee_address, n2});
    Bytes stream;
    for (int i = 1; i <= kKdfRounds; ++i) {
        Bytes input;
        wire::put_be32(input, static_cast<uint32_t>(i));
        input.insert(input.end(), kKdfLabel, kKdfLabel + sizeof kKdfLabel - 1);
        wire::put_be32(input, kKdfBits);
        const Digest round = hmac_sm3(kdk, {input});
        stream.insert(stream.end(), round.begin(), round.end());
    }
    SessionKeys keys;
    std::memcpy(keys.auth_key.data(), stream.data(), 32);
    std::memcpy(keys.key_wrap_key.data(), stream.data() + 32, 16);
    // The EMSK is the whole third round; bytes 48-63 are not used.
    std::memcpy(keys.emsk.data(), stream.data() + 64, 32);
    return keys;
}

}  // namespace registrar::crypto
