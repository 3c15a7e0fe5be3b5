// M1: the enrollee's identity, nonce and SM2 agreement public data. M2: the registrar's answer,
// which brings its nonce, UUID and public keys and starts the session keys.
#include <cstring>

#include "common/bytes.h"
#include "crypto/crypto.h"
#include "messages/messages.h"
#include "messages/tlv_checks.h"
#include "platform/platform.h"
#include "zev.h"

namespace {

constexpr size_t kTlvHeaderLen = 4;
constexpr size_t kPublicKeyAttrLen = 128;  // first public key x || y, then temporary x || y
constexpr size_t kPublicKeyWorkLen = 256;
constexpr size_t kPrimaryDevTypeLen = 8;
constexpr size_t kMacAddressLen = 6;
constexpr uint8_t kOuiWifi[4] = {0x00, 0x50, 0xF2, 0x04};
constexpr uint8_t kOuiWapi[4] = {0x00, 0x00, 0x14, 0x72};

// Largest M1: every text field full, a 16-byte text address and the Certificate Mode attribute.
constexpr size_t kM1MaxLen = 23 * kTlvHeaderLen + 1 + 1 + kUuidLen + kAddressLen + kNonceLen +
                             kPublicKeyAttrLen + 2 + 2 + 1 + 2 + 1 + 5 * kTextFieldLen +
                             kPrimaryDevTypeLen + 1 + 2 + 2 + 2 + 4 + 1;
static_assert(kM1MaxLen <= kMaxBodyLen, "M1 must fit the output frame");

// ---- M1 --------------------------------------------------------------------------------------

void add_u8(uint8_t** cursor, uint16_t type, uint8_t v) {
    AddTlv(cursor, type, &v, 1);
}
void add_be16(uint8_t** cursor, uint16_t type, uint16_t v) {
    uint8_t b[2];
    put_be16(b, v);
    AddTlv(cursor, type, b, sizeof(b));
}
void add_be32(uint8_t** cursor, uint16_t type, uint32_t v) {
    uint8_t b[4];
    put_be32(b, v);
    AddTlv(cursor, type, b, sizeof(b));
}
void add_text(uint8_t** cursor, uint16_t type, const char* field) {
    AddTlv(cursor, type, field, static_cast<uint32_t>(field_strlen(field, kTextFieldLen)));
}

// Makes the temporary key pair and lays out the 128-byte Public Key value in `work`.
void make_public_key_value(uint8_t* work) {
    std::memcpy(work, g_EnrolleeKeys.PublicKey, kSm2PublicKeyLen);
    ZEV_ECCPrivateKey private_key{};
    ZEV_ECCPublicKey public_key{};
    trace("BuildMessageM1 Start ZEV_SM2_GenerateAgreementDataWithECC==%x.\r\n",
          session_handle_trace());
    const int32_t status =
        ZEV_SM2_GenerateAgreementDataWithECC(g_phSessionHandle, &private_key, &public_key);
    trace("BuildMessageM1 End ZEV_SM2_GenerateAgreementDataWithECC==%x.\r\n",
          session_handle_trace());
    if (status != 0) {
        // Our choice when the library cannot make the pair: M1 still goes out (the builder has no
        // failure path), but with a zero temporary key rather than whatever the library left in
        // its records. The registrar cannot agree on a key with the zero point, so the exchange
        // stops at M2 instead of running on half-written key material.
        trace("BuildMessageM1 ZEV_SM2_GenerateAgreementDataWithECC != 0.\r\n");
        std::memset(&private_key, 0, sizeof(private_key));
        std::memset(&public_key, 0, sizeof(public_key));
    }
    std::memcpy(g_EnrolleeKeys.TempPrivateKey, private_key.K, kSm2PrivateKeyLen);
    std::memcpy(g_EnrolleeKeys.TempPublicKey, public_key.x, kSm2CoordLen);
    std::memcpy(g_EnrolleeKeys.TempPublicKey + kSm2CoordLen, public_key.y, kSm2CoordLen);
    secure_wipe(&private_key, sizeof(private_key));
    std::memcpy(work + kSm2PublicKeyLen, g_EnrolleeKeys.TempPublicKey, kSm2PublicKeyLen);
}

// ---- M2 --------------------------------------------------------------------------------------

constexpr uint8_t kM2MsgType[1] = {WPS_MSG_TYPE_M2};
constexpr uint8_t kCertModeSign = 1;
constexpr uint8_t kCertModeRequest = 2;
constexpr size_t kM2ValueLen = 1024;


StepResult store_registrar_nonce(ParseState& s) {
    std::memcpy(g_RegistrarKeys.Nonce, s.value.data(), kNonceLen);
    return kStepPassed;
}
StepResult store_uuid_r(ParseState& s) {
    std::memcpy(UUID_R, s.value.data(), kUuidLen);
    return kStepPassed;
}
StepResult store_public_keys(ParseState& s) {
    std::memcpy(g_RegistrarKeys.PublicKey, s.value.data(), kSm2PublicKeyLen);
    std::memcpy(g_RegistrarKeys.TempPublicKey, s.value.data() + kSm2PublicKeyLen, kSm2PublicKeyLen);
    return kStepPassed;
}
StepResult agree_key(ParseState&) {
    trace("Start ComputerExchangeKey.\r\n");
    if (ComputerExchangeKey() != 0) return kStepFailed;
    return kStepPassed;
}
StepResult derive_session_keys(ParseState&) {
    trace("Start GenerateSessionKeys.\r\n");
    GenerateSessionKeys(g_EnrolleeKeys, g_RegistrarKeys, g_MyMsgInfo.LocalAddress, true);
    trace("GenerateSessionKeys success.\r\n");
    return kStepPassed;
}
StepResult note_peer_cert_flag(ParseState& s) {
    // Only exactly 0x20 0x00 marks a certificate-issuing peer; any other value leaves the flag.
    if (s.value[0] == 0x20 && s.value[1] == 0x00) g_PeerCertFlag = 1;
    return kStepPassed;
}
StepResult check_oui(ParseState& s) {
    const uint8_t* oui = s.value.data() + 2;
    if (is_wifi_flavour()) {
        if (std::memcmp(oui, kOuiWifi, sizeof(kOuiWifi)) != 0)
            return step_failed_as(CheckId::M2OuiWifi);
    } else if (std::memcmp(oui, kOuiWapi, sizeof(kOuiWapi)) != 0) {
        return step_failed_as(CheckId::M2OuiWapi);
    }
    return kStepPassed;
}
StepResult check_certificate_mode(ParseState& s) {
    if (g_WPS_mode != WAPI_WPS_CERT) return kStepPassed;
    s.value_len = 0;
    if (GetTlvFromType(ATTR_CERTIFICATE_MODE, s.readable, s.length, s.value, &s.value_len) == 0 ||
        s.value_len != 1)
        return kStepFailed;
    CertificateMode = s.value[0];
    trace("Generate flags is %d.\r\n", static_cast<int>(CertificateMode));
    if (CertificateMode != kCertModeSign && CertificateMode != kCertModeRequest)
        return step_failed_as(CheckId::M2CertificateModeValue);
    return kStepPassed;
}

// M2 checks, in the order they run; the first failure is the result.
// clang-format off
constexpr TlvStep kM2Steps[] = {
    // attribute                  rule              width  equals               check                 then
    {ATTR_REGISTRAR_NONCE,        TlvRule::kExact,  16,    nullptr,             CheckId::M2RegistrarNonce, store_registrar_nonce},
    {ATTR_UUID_R,                 TlvRule::kExact,  16,    nullptr,             CheckId::M2UuidR,          store_uuid_r},
    {ATTR_PUBLIC_KEY,             TlvRule::kExact,  128,   nullptr,             CheckId::M2PublicKey,      store_public_keys},
    {ATTR_AUTHENTICATOR,          TlvRule::kExact,  8,     nullptr,             CheckId::M2Authenticator,  store_registrar_authenticator},
    {0,                           TlvRule::kStep,   0,     nullptr,             CheckId::M2KeyAgreement, agree_key},
    {0,                           TlvRule::kStep,   0,     nullptr,             CheckId::Count,       derive_session_keys},
    {0,                           TlvRule::kStep,   0,     nullptr,             CheckId::M2AuthCheck,      check_registrar_authenticator},
    {ATTR_VERSION,                TlvRule::kExact,  1,     nullptr,             CheckId::M2Version,        nullptr},
    {ATTR_MSG_TYPE,               TlvRule::kExact,  1,     kM2MsgType,          CheckId::M2MsgType,        nullptr},
    {ATTR_ENROLLEE_NONCE,         TlvRule::kExact,  16,    g_EnrolleeKeys.Nonce, CheckId::M2EnrolleeNonce, nullptr},
    {ATTR_AUTH_TYPE_FLAGS,        TlvRule::kExact,  2,     nullptr,             CheckId::M2AuthTypeFlags,  note_peer_cert_flag},
    {ATTR_ENCR_TYPE_FLAGS,        TlvRule::kExact,  2,     nullptr,             CheckId::M2EncrTypeFlags,  nullptr},
    {ATTR_CONNECTION_TYPE_FLAGS,  TlvRule::kExact,  1,     nullptr,             CheckId::M2ConnTypeFlags,  nullptr},
    {ATTR_CONFIG_METHODS,         TlvRule::kExact,  2,     nullptr,             CheckId::M2ConfigMethods,  nullptr},
    {ATTR_MANUFACTURER,           TlvRule::kAtMost, 32,    nullptr,             CheckId::M2Manufacturer,   nullptr},
    {ATTR_MODEL_NAME,             TlvRule::kAtMost, 32,    nullptr,             CheckId::M2ModelName,      nullptr},
    {ATTR_MODEL_NUMBER,           TlvRule::kAtMost, 32,    nullptr,             CheckId::M2ModelNumber,    nullptr},
    {ATTR_SERIAL_NUMBER,          TlvRule::kAtMost, 32,    nullptr,             CheckId::M2SerialNumber,   nullptr},
    {ATTR_PRIMARY_DEV_TYPE,       TlvRule::kExact,  8,     nullptr,             CheckId::M2PrimaryDevType, check_oui},
    {ATTR_DEVICE_NAME,            TlvRule::kAtMost, 32,    nullptr,             CheckId::M2DeviceName,     nullptr},
    {ATTR_RF_BANDS,               TlvRule::kExact,  1,     nullptr,             CheckId::M2RfBands,        nullptr},
    {ATTR_ASSOCIATION_STATE,      TlvRule::kExact,  2,     nullptr,             CheckId::M2AssocState,     nullptr},
    {ATTR_CONFIG_ERROR,           TlvRule::kExact,  2,     nullptr,             CheckId::M2ConfigError,    nullptr},
    {ATTR_DEVICE_PASSWORD_ID,     TlvRule::kExact,  2,     nullptr,             CheckId::M2DevicePasswordId, nullptr},
    {ATTR_OS_VERSION,             TlvRule::kExact,  4,     nullptr,             CheckId::M2OsVersion,      nullptr},
    {0,                           TlvRule::kStep,   0,     nullptr,             CheckId::M2CertificateModeMissing, check_certificate_mode},
};
// clang-format on

}  // namespace

bool BuildMessageM1(uint8_t* out, uint32_t* outLength) {
    trace("Build M1.\r\n");
    uint8_t* cursor = out;
    const MyMsgInfo& info = g_MyMsgInfo;
    // A text address is sent as its characters; every other mode sends the 6 address bytes.
    const uint32_t address_len =
        (g_AddressMode == TEXT_ADDRESS)
            ? static_cast<uint32_t>(field_strlen(info.LocalAddress, kAddressLen))
            : static_cast<uint32_t>(kMacAddressLen);
    // The sub-category position repeats the category on purpose: peers read it that way.
    uint8_t primary_dev_type[kPrimaryDevTypeLen];
    put_be16(primary_dev_type, info.PrimaryDeviceCategory);
    std::memcpy(primary_dev_type + 2, is_wifi_flavour() ? kOuiWifi : kOuiWapi, 4);
    put_be16(primary_dev_type + 6, info.PrimaryDeviceCategory);

    add_u8(&cursor, ATTR_VERSION, WPS_VERSION);                             // 1
    add_u8(&cursor, ATTR_MSG_TYPE, WPS_MSG_TYPE_M1);                        // 2
    AddTlv(&cursor, ATTR_UUID_E, info.UUID_E, kUuidLen);                    // 3
    AddTlv(&cursor, ATTR_MAC_ADDRESS, info.LocalAddress, address_len);      // 4
    AddTlv(&cursor, ATTR_ENROLLEE_NONCE, g_EnrolleeKeys.Nonce, kNonceLen);  // 5
    uint8_t public_key[kPublicKeyWorkLen] = {};
    make_public_key_value(public_key);
    AddTlv(&cursor, ATTR_PUBLIC_KEY, public_key, kPublicKeyAttrLen);               // 6
    add_be16(&cursor, ATTR_AUTH_TYPE_FLAGS, info.AuthTypeFlags);                   // 7
    add_be16(&cursor, ATTR_ENCR_TYPE_FLAGS, info.EncrTypeFlags);                   // 8
    add_u8(&cursor, ATTR_CONNECTION_TYPE_FLAGS, info.ConnectionTypeFlags);         // 9
    add_be16(&cursor, ATTR_CONFIG_METHODS, info.ConfigMethods);                    // 10
    add_u8(&cursor, ATTR_SIMPLE_CONFIG_STATE, g_EnrolleeKeys.SimpleConfigState);   // 11
    add_text(&cursor, ATTR_MANUFACTURER, info.Manufacturer);                       // 12
    add_text(&cursor, ATTR_MODEL_NAME, info.ModelName);                            // 13
    add_text(&cursor, ATTR_MODEL_NUMBER, info.ModelNumber);                        // 14
    add_text(&cursor, ATTR_SERIAL_NUMBER, info.SerialNumber);                      // 15
    AddTlv(&cursor, ATTR_PRIMARY_DEV_TYPE, primary_dev_type, kPrimaryDevTypeLen);  // 16
    add_text(&cursor, ATTR_DEVICE_NAME, info.DeviceName);                          // 17
    add_u8(&cursor, ATTR_RF_BANDS, info.RFBands);                                  // 18
    add_be16(&cursor, ATTR_ASSOCIATION_STATE, g_EnrolleeKeys.AssociationState);    // 19
    add_be16(&cursor, ATTR_DEVICE_PASSWORD_ID, info.DevicePasswordId);             // 20
    add_be16(&cursor, ATTR_CONFIG_ERROR, info.ConfigError);                        // 21
    add_be32(&cursor, ATTR_OS_VERSION, info.OSVersion);                            // 22
    if (g_WPS_mode == WAPI_WPS_CERT) {
        CertificateModeOffer = CERTIFICATE_MODE_OFFER;
        add_u8(&cursor, ATTR_CERTIFICATE_MODE, CertificateModeOffer);  // 23
    }

    *outLength = static_cast<uint32_t>(cursor - out);
    keep_sent_message(out, *outLength);
    trace("Build M1 success.\r\n");
    return true;
}

int32_t UnpackMessageM2(std::span<const uint8_t> readable, int32_t length) {
    uint8_t value[kM2ValueLen] = {};
    ParseState state{readable, length, std::span<uint8_t>(value, sizeof(value)), 0, 0};
    const int32_t code = run_tlv_steps(kM2Steps, state);
    if (code != 0) return code;
    keep_as_previous_message(readable, length);
    return 0;
}
