// M7: the enrollee's last proof message. Reveals E-S2 inside Encrypted Settings and, in the WAPI
// certificate mode, carries the certificate request: a signing public key, optionally the
// identity registered for this registrar, and an ECDSA signature made in software or by the
// secure chip.
#include <cstring>

#include "api/context.h"
#include "common/bytes.h"
#include "crypto/crypto.h"
#include "messages/messages.h"
#include "messages/tlv_checks.h"
#include "platform/platform.h"
#include "signing/signing.h"

namespace {

constexpr size_t kAttrHeaderLen = 4;
constexpr size_t kSignatureLen = 48;
constexpr size_t kSigningKeyAttrLen = kAttrHeaderLen + kEccPublicKeyLen;  // 52
constexpr size_t kIdentityPrefixLen = 4;  // u16 1, u16 Length, in CertificateMode 1

// Work buffers. The largest request is CertificateMode 1 with a full identity: Signing Public Key
// (52) + Certificate Identity (4 + 4 + 1024) + Identity Signature (52). The settings add
// E-SNonce2, Certificate Needed, the request header, the Key Wrap Authenticator and a block of
// padding; sealing adds the IV.
constexpr size_t kMaxRequestLen =
    kSigningKeyAttrLen + kAttrHeaderLen + kIdentityPrefixLen + kIdentityDataMax +
    kAttrHeaderLen + kSignatureLen;
constexpr size_t kMaxSettingsLen =
    (kAttrHeaderLen + 16) + (kAttrHeaderLen + 1) + (kAttrHeaderLen + kMaxRequestLen) +
    (kAttrHeaderLen + 8) + 16;
constexpr size_t kMaxSealedLen = 16 + kMaxSettingsLen;
constexpr size_t kMaxM7BodyLen = (kAttrHeaderLen + 1) * 2 + (kAttrHeaderLen + kNonceLen) +
                                 (kAttrHeaderLen + kMaxSealedLen) + (kAttrHeaderLen + 8);
static_assert(kMaxM7BodyLen <= kMaxBodyLen, "M7 must fit the host's output frame");
static_assert(kMaxSealedLen <= 0xFFFF, "Encrypted Settings length is a 16-bit field");

constexpr uint8_t kVersion = WPS_VERSION;
constexpr uint8_t kMsgType = WPS_MSG_TYPE_M7;

struct Identity {
    bool found = false;
    size_t index = 0;
    uint16_t length = 0;
    const uint8_t* data = nullptr;
};

// The first entry whose uuid equals UUID_R. Length was bounded to 1024 when the list was set;
// it is clamped again here so that a corrupted entry can never overrun the request buffer.
Identity find_identity() {
    Identity id;
    if (g_IdentityList == nullptr) return id;
    for (size_t i = 0; i < g_IdentityCount; ++i) {
        const uint8_t* entry = g_IdentityList + i * kIdentityEntryLen;
        if (std::memcmp(entry, UUID_R, 8) == 0 && std::memcmp(entry + 8, UUID_R + 8, 8) == 0) {
            uint16_t length = 0;
            std::memcpy(&length, entry + kUuidLen, sizeof length);  // host byte order
            id.found = true;
            id.index = i;
            id.length = length > kIdentityDataMax ? static_cast<uint16_t>(kIdentityDataMax) : length;
            id.data = entry + kUuidLen + 2;
            return id;
        }
    }
    return id;
}

// A public key is not a secret: it goes into the trace as one line of hex.
void trace_public_key(const char* label, const uint8_t* key) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    char hex[kEccPublicKeyLen * 2 + 1];
    for (size_t i = 0; i < kEccPublicKeyLen; ++i) {
        hex[2 * i] = kHex[key[i] >> 4];
        hex[2 * i + 1] = kHex[key[i] & 0x0F];
    }
    hex[kEccPublicKeyLen * 2] = '\0';
    trace("%s: %s\r\n", label, hex);
}

// Makes (mode 1) the key pair whose public half goes into the request.
bool make_signing_key() {
    trace("Start PK cert generate mode.\r\n");
    std::memset(GeneratePrivateKey, 0, sizeof GeneratePrivateKey);
    std::memset(g_MyMsgInfo.GeneratePublicKey, 0, sizeof g_MyMsgInfo.GeneratePublicKey);
    if (g_IsDoSecureChip) {
        const int32_t rc =
            SPI_GenPrivateKeyAndPublicKey(GeneratePrivateKey, g_MyMsgInfo.GeneratePublicKey);
        trace_public_key("g_MyMsgInfo.GeneratePublicKey", g_MyMsgInfo.GeneratePublicKey);
        return rc == 0;
    }
    GenPrivateKeyAndPublicKey(GeneratePrivateKey, g_MyMsgInfo.GeneratePublicKey,
                              g_MyMsgInfo.GeneratePublicKey + 24);
    return true;
}

// Signs the first `signed_len` bytes of the request and appends Identity Signature to it.
bool sign_request(uint8_t* request, uint8_t** cursor, size_t signed_len) {
    uint8_t signature[kSignatureLen] = {};
    if (g_IsDoSecureChip) {
        if (SecureChip_Sign_With_Private_Key(signature, request,
                                             static_cast<uint32_t>(signed_len)) != 0)
            return false;
    } else {
        // Only a key made by a mode-1 run or restored by the host can sign; a zero key would
        // sign with d = 0, which anyone can forge.
        uint8_t any = 0;
        for (const uint8_t b : GeneratePrivateKey) any = static_cast<uint8_t>(any | b);
        if (any == 0) {
            trace("No signing key held, M7 not signed.\r\n");
            return false;
        }
        uint32_t limbs[12] = {};
        const int32_t count =
            bytes_to_limbs(GeneratePrivateKey, sizeof GeneratePrivateKey, limbs, 12);
        Sign_With_Private_Key(signature, request, static_cast<uint32_t>(signed_len), limbs, count);
        secure_wipe(limbs, sizeof limbs);
    }
    AddTlv(cursor, ATTR_IDENTITY_SIGNATURE, signature, kSignatureLen);
    return true;
}

// Builds the X.509 Certificate Request value into `request`; returns false when the secure chip
// fails. The number of signed bytes follows the registrar's expectations for each case, even
// where it does not cover the whole request.
bool build_certificate_request(const Identity& id, uint8_t* request, size_t* request_len) {
    uint8_t* cursor = request;
    if (CertificateMode == 1) {
        if (!make_signing_key()) return false;
        AddTlv(&cursor, ATTR_SIGNING_PUBLIC_KEY, g_MyMsgInfo.GeneratePublicKey, kEccPublicKeyLen);
        if (CertificateNeeded == 0) {
            uint8_t value[kIdentityPrefixLen + kIdentityDataMax];
            put_be16(value, 1);
            put_be16(value + 2, id.length);
            std::memcpy(value + kIdentityPrefixLen, id.data, id.length);
            AddTlv(&cursor, ATTR_CERTIFICATE_IDENTITY, value, kIdentityPrefixLen + id.length);
            trace("Cert identity length = %d.\r\n", id.length);
        }
        trace("Start Sign With Private Key.\r\n");
        size_t signed_len = kSigningKeyAttrLen;
        if (CertificateNeeded == 1 && g_IsDoSecureChip) {
            trace("g_IsDoSecureChip\n");
            if (!sign_request(request, &cursor, signed_len)) {
                trace("SecureChip_Sign_With_Private_Key error\n");
                return false;
            }
        } else {
            // With an identity the chip signs all but the request's last 4 bytes; the software
            // path signs the Signing Public Key attribute only.
            if (CertificateNeeded == 0 && g_IsDoSecureChip) signed_len = id.length + 56u;
            if (!sign_request(request, &cursor, signed_len)) return false;
        }
        trace("Stop Sign With Private Key.\r\n");
    } else if (CertificateMode == 2 && CertificateNeeded == 0) {
        // The identity as registered, signed whole with the key held from an earlier run.
        AddTlv(&cursor, ATTR_CERTIFICATE_IDENTITY, id.data, id.length);
        if (!sign_request(request, &cursor, kAttrHeaderLen + id.length)) return false;
    }
    *request_len = static_cast<size_t>(cursor - request);
    return true;
}

// Settings of the certificate mode: E-SNonce2, Certificate Needed, X.509 Certificate Request.
bool build_certificate_settings(uint8_t** cursor) {
    trace("WAPI_WPS_CERT.\r\n");
    AddTlv(cursor, ATTR_E_SNONCE2, g_EnrolleeKeys.SecretNonce2, 16);
    trace("Start Check Reg for cert info.\r\n");
    trace("build M7\r\n");
    trace("********************\r\n");

    const Identity id = find_identity();
    if (id.found) {
        trace("Find this uuid_R's cert, the number is %d.\r\n", static_cast<int>(id.index));
        CertificateNeeded = 0;
    } else {
        trace("Don't find this uuid_R's cert.\r\n");
        CertificateNeeded = 1;
    }
    AddTlv(cursor, ATTR_CERTIFICATE_NEEDED, &CertificateNeeded, 1);

    uint8_t request[kMaxRequestLen] = {};
    size_t request_len = 0;
    if (!build_certificate_request(id, request, &request_len)) return false;
    AddTlv(cursor, ATTR_X509_CERT_REQ, request, static_cast<uint32_t>(request_len));
    return true;
}

void append_key_wrap_auth(uint8_t* settings, uint8_t** cursor) {
    uint8_t mac[32];
    HmacSHA256(g_EnrolleeKeys.AuthKey, 32, settings,
               static_cast<uint32_t>(*cursor - settings), mac);
    AddTlv(cursor, ATTR_KEY_WRAP_AUTH, mac, 8);
}

// Padding of value = count, 1 to 16 bytes: a length already a multiple of 16 gets a full block.
void append_padding(uint8_t** cursor, size_t content_len) {
    const uint8_t pad = static_cast<uint8_t>(16 - content_len % 16);
    std::memset(*cursor, pad, pad);
    *cursor += pad;
}

}  // namespace

bool BuildMessageM7(uint8_t* out, uint32_t* outLength) {
    trace("Build M7.\r\n");
    uint8_t* cursor = out;
    AddTlv(&cursor, ATTR_VERSION, &kVersion, 1);
    AddTlv(&cursor, ATTR_MSG_TYPE, &kMsgType, 1);
    trace("before Registrar Nonce.\r\n");
    AddTlv(&cursor, ATTR_REGISTRAR_NONCE, g_RegistrarKeys.Nonce, kNonceLen);
    trace("before Encrypted settings.\r\n");
    trace("g_WPS_mode %d.", static_cast<int>(g_WPS_mode));

    // Settings S, then the Key Wrap Authenticator over S.
    uint8_t settings[kMaxSettingsLen] = {};
    uint8_t* s = settings;
    if (g_WPS_mode == WIFI_WPS || g_WPS_mode == WAPI_WPS_PSK) {
        AddTlv(&s, ATTR_E_SNONCE2, g_EnrolleeKeys.SecretNonce2, 16);
        append_key_wrap_auth(settings, &s);
    } else if (g_WPS_mode == WAPI_WPS_CERT) {
        if (!build_certificate_settings(&s)) {
            secure_wipe(settings, sizeof settings);
            return false;
        }
        append_key_wrap_auth(settings, &s);
    }
    append_padding(&s, static_cast<size_t>(s - settings));

    uint8_t sealed[kMaxSealedLen] = {};
    uint16_t sealed_len = 0;
    EncryptMessage(settings, static_cast<uint16_t>(s - settings), sealed, &sealed_len);
    secure_wipe(settings, sizeof settings);
    AddTlv(&cursor, ATTR_ENCR_SETTINGS, sealed, sealed_len);

    uint8_t mac[32];
    ComputeAuthenticator(g_EnrolleeKeys.AuthKey, g_PrevMsgBuf, g_PrevMsgLen, out,
                         static_cast<int32_t>(cursor - out), mac);
    std::memcpy(g_EnrolleeKeys.Authenticator, mac, 8);
    AddTlv(&cursor, ATTR_AUTHENTICATOR, mac, 8);

    *outLength = static_cast<uint32_t>(cursor - out);
    keep_sent_message(out, *outLength);
    trace("Build M7 success.\r\n");
    return true;
}
