// The one table of every code the checkers, the parsers and the dispatcher produce: per check its
// code, where it runs, its reason class, its exact trace line and an English sentence for hosts.
// The checkers and parsers trace from here, WapiWps_ResultText and WapiWps_GetStatus read it, and
// docs/errors.md is generated from it (tools/codesdoc; a test compares the two).
//
// Several checks share a code on purpose (-21, -42, -59, -68, -70, and -106 ... -108 between the
// frame header and EAP-Failure checkers): each has its own row, and the first row of a code
// carries the sentence that names every meaning of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "wapiwps.h"

enum class CheckId : uint16_t {
    // ProcessReceivePacket's own results.
    ResultAccepted,
    ResultM8Done,
    ResultSuccess,
    ResultEnded,
    // The dispatcher's refusals (-100).
    DropOutOfOrder,
    DropOutOfOrderStart,
    DropOutOfOrderMessage,
    DropNoRun,
    DropNoBuffer,
    DropNotOurFlavour,
    DropNotOurMessage,
    DropM1NotBuilt,
    DropM7NotBuilt,
    DropFragmentBounds,
    // EAP Request/Identity.
    IdentityFrameLength,
    IdentityEapolType,
    IdentityBodyLength,
    IdentityEapCode,
    IdentityEapType,
    IdentityEapLength,
    // Start.
    StartEapolType,
    StartBodyLength,
    StartEapCode,
    StartWifiEapType,
    StartWapiEapType,
    StartEapLength,
    StartWifiVendor,
    StartWapiVendor,
    StartVendorType,
    StartOpcode,
    StartFrameLength,
    // M2.
    M2RegistrarNonce,
    M2PublicKey,
    M2Authenticator,
    M2KeyAgreement,
    M2AuthCheck,
    M2Version,
    M2MsgType,
    M2EnrolleeNonce,
    M2UuidR,
    M2AuthTypeFlags,
    M2EncrTypeFlags,
    M2ConnTypeFlags,
    M2ConfigMethods,
    M2Manufacturer,
    M2ModelName,
    M2ModelNumber,
    M2SerialNumber,
    M2PrimaryDevType,
    M2OuiWifi,
    M2OuiWapi,
    M2DeviceName,
    M2RfBands,
    M2AssocState,
    M2ConfigError,
    M2DevicePasswordId,
    M2OsVersion,
    M2CertificateModeMissing,
    M2CertificateModeValue,
    // M4.
    M4Authenticator,
    M4AuthCheck,
    M4Version,
    M4MsgType,
    M4EnrolleeNonce,
    M4RHash1,
    M4RHash2,
    M4EncrSettings,
    M4KeyWrapAuth,
    M4RHash1Check,
    // M6.
    M6Authenticator,
    M6AuthCheck,
    M6Version,
    M6MsgType,
    M6EnrolleeNonce,
    M6EncrSettings,
    M6PadValue,
    M6PadString,
    M6KeyWrapAuth,
    M6RHash2Check,
    // M8.
    M8Authenticator,
    M8AuthCheck,
    M8Version,
    M8MsgType,
    M8EnrolleeNonce,
    M8EncrSettings,
    M8PadValue,
    M8PadString,
    M8KeyWrapAuth,
    M8CertificateNeeded,
    M8Credential,
    M8MacAddress,
    M8NetworkKey,
    M8HexKey,
    M8CertificateList,
    // Message frame header (before every M2, M4, M6 and M8).
    HeaderEapolType,
    HeaderEapCode,
    HeaderWifiEapType,
    HeaderWapiEapType,
    HeaderWifiVendor,
    HeaderWapiVendor,
    HeaderVendorType,
    HeaderOpcode,
    // EAP-Failure.
    FailureFrameLength,
    FailureEapolType,
    FailureBodyLength,
    FailureEapCode,
    Count,
};

struct CheckRow {
    CheckId id;
    int32_t code;
    const char* where;   // "M2", "Start", "header", "dispatcher", "result" ...
    uint32_t reason;     // WAPIWPS_REASON_*
    const char* trace;   // the exact trace line ("" when the step traces nothing)
    const char* text;    // one English sentence for hosts
};

constexpr uint32_t kMalformed = WAPIWPS_REASON_MALFORMED_FRAME;
constexpr uint32_t kOutOfOrder = WAPIWPS_REASON_OUT_OF_ORDER;
constexpr uint32_t kNotOurs = WAPIWPS_REASON_NOT_OURS;
constexpr uint32_t kAuthenticator = WAPIWPS_REASON_AUTHENTICATOR;
constexpr uint32_t kWrongPassword = WAPIWPS_REASON_WRONG_PASSWORD;
constexpr uint32_t kSettings = WAPIWPS_REASON_SETTINGS;
constexpr uint32_t kAttribute = WAPIWPS_REASON_ATTRIBUTE;
constexpr uint32_t kKeyAgreement = WAPIWPS_REASON_KEY_AGREEMENT;
constexpr uint32_t kSecureChip = WAPIWPS_REASON_SECURE_CHIP;
constexpr uint32_t kCredential = WAPIWPS_REASON_CREDENTIAL;
constexpr uint32_t kNoRun = WAPIWPS_REASON_NO_RUN;
constexpr uint32_t kNoReason = WAPIWPS_REASON_NONE;

// clang-format off
inline constexpr CheckRow kCheckRows[] = {
    // id                              code  where           reason          trace line, then the sentence for hosts
    {CheckId::ResultAccepted,            0,  "result",     kNoReason,      "",
     "Frame accepted: send the answer written to the output buffer."},
    {CheckId::ResultM8Done,              1,  "result",     kNoReason,      "",
     "M8 accepted and Done written: send it, and read certificate results now, before the closing EAP-Failure."},
    {CheckId::ResultSuccess,             2,  "result",     kNoReason,      "",
     "EAP-Failure after Done: the run succeeded and has ended (StopWPS has run)."},
    {CheckId::ResultEnded,             100,  "result",     kNoReason,      "",
     "EAP-Failure after a NACK or an M2D: the run ended without a credential; WapiWps_GetStatus says why."},

    {CheckId::DropOutOfOrder,         -100,  "dispatcher", kOutOfOrder,    "Drop packet, error code is -100.\r\n",
     "Frame dropped, nothing to send (the same code for each of the dispatcher's refusals): no run, the wrong moment of the exchange, another flavour or message type, or a missing buffer (after an M8 fragment the ACK is in the buffer and *outLen is set)."},
    {CheckId::DropOutOfOrderStart,    -100,  "dispatcher", kOutOfOrder,    "drop it, error code is -100.\r\n",
     "Start dropped: it arrived at another moment than after Response/Identity."},
    {CheckId::DropOutOfOrderMessage,  -100,  "dispatcher", kOutOfOrder,    "",
     "Message dropped: it is not the one the exchange waits for."},
    {CheckId::DropNoRun,              -100,  "dispatcher", kNoRun,         "Cannot Process Receive Packet,because WPS mode is NO_WPS.\r\n",
     "Frame dropped: no run is active (call StartWPS first)."},
    {CheckId::DropNoBuffer,           -100,  "dispatcher", kMalformed,     "Drop packet, error code is -100.\r\n",
     "Frame dropped: the frame, the output buffer or the output length pointer is NULL."},
    {CheckId::DropNotOurFlavour,      -100,  "dispatcher", kNotOurs,       "drop it, error code is -100.\r\n",
     "Frame dropped: not an EAP Request of this run's flavour (EAP type 242 WAPI, 254 Wi-Fi)."},
    {CheckId::DropNotOurMessage,      -100,  "dispatcher", kNotOurs,       "",
     "Frame dropped: its Message Type is not one the enrollee receives."},
    {CheckId::DropM1NotBuilt,         -100,  "dispatcher", kKeyAgreement,  "PackeM1 failed.\r\n",
     "Start dropped: the key agreement session could not start, so M1 was not built."},
    {CheckId::DropM7NotBuilt,         -100,  "M7",         kSecureChip,    "PackM7 failed.\r\n",
     "M6 accepted but M7 could not be signed (the secure chip failed): NACK 18 sent."},
    {CheckId::DropFragmentBounds,     -100,  "dispatcher", kMalformed,     "M8 fragment out of bounds, error code is -100.\r\n",
     "M8 fragment refused: it runs past its frame or past the 4096-byte reassembly buffer (NACK 18 sent)."},

    {CheckId::IdentityFrameLength,      -1,  "Request/Identity", kMalformed, "Unpack Request Identity message erro, error code is -1.\r\n",
     "Request/Identity refused: the frame is not 9 bytes long."},
    {CheckId::IdentityEapolType,        -2,  "Request/Identity", kMalformed, "Unpack Request Identity message erro, error code is -2.\r\n",
     "Request/Identity refused: the EAPOL packet type is not 0 (EAP packet)."},
    {CheckId::IdentityBodyLength,       -3,  "Request/Identity", kMalformed, "Unpack Request Identity message erro, error code is -3, pEapolHead->BodyLength = %d.\r\n",
     "Request/Identity refused: the EAPOL body length is not 5."},
    {CheckId::IdentityEapCode,          -4,  "Request/Identity", kMalformed, "Unpack Request Identity message erro, error code is -4.\r\n",
     "Request/Identity refused: the EAP code is not 1 (Request)."},
    {CheckId::IdentityEapType,          -5,  "Request/Identity", kMalformed, "Unpack Request Identity message erro, error code is -5.\r\n",
     "Request/Identity refused: the EAP type is not 1 (Identity)."},
    {CheckId::IdentityEapLength,        -6,  "Request/Identity", kMalformed, "Unpack Request Identity message erro, error code is -6.\r\n",
     "Request/Identity refused: the EAP length is not 5."},

    {CheckId::StartEapolType,           -7,  "Start", kMalformed, "Unpack request start error, error code is -7.\r\n",
     "Start refused: the EAPOL packet type is not 0 (EAP packet)."},
    {CheckId::StartBodyLength,          -8,  "Start", kMalformed, "Unpack request start error, error code is -8.\r\n",
     "Start refused: the EAPOL body length is not 14."},
    {CheckId::StartEapCode,             -9,  "Start", kMalformed, "Unpack request start error, error code is -9.\r\n",
     "Start refused: the EAP code is not 1 (Request)."},
    {CheckId::StartWifiEapType,        -10,  "Start", kMalformed, "Unpack request start error, error code is -10.\r\n",
     "Start refused: Wi-Fi flavour and the EAP type is not 254."},
    {CheckId::StartWapiEapType,        -11,  "Start", kMalformed, "Unpack request start error, error code is -11.\r\n",
     "Start refused: WAPI flavour and the EAP type is not 242."},
    {CheckId::StartEapLength,          -12,  "Start", kMalformed, "Unpack request start error, error code is -12.\r\n",
     "Start refused: the EAP length is not 14."},
    {CheckId::StartWifiVendor,         -13,  "Start", kMalformed, "Unpack request start error, error code is -13.\r\n",
     "Start refused: Wi-Fi flavour and the vendor id is not 00:37:2A."},
    {CheckId::StartWapiVendor,         -14,  "Start", kMalformed, "Unpack request start error, error code is -14.\r\n",
     "Start refused: WAPI flavour and the vendor id is not 00:81:DB."},
    {CheckId::StartVendorType,         -15,  "Start", kMalformed, "Unpack request start error, error code is -15.\r\n",
     "Start refused: the vendor type is not 1."},
    {CheckId::StartOpcode,             -16,  "Start", kMalformed, "Unpack request start error, error code is -16.\r\n",
     "Start refused: the op-code is not 1 (Start)."},
    {CheckId::StartFrameLength,        -17,  "Start", kMalformed, "Unpack request start error, error code is -17.\r\n",
     "Start refused: the frame is not 18 bytes long."},

    {CheckId::M2RegistrarNonce,        -18,  "M2", kAttribute,     "Unpack M2 error, error code is -18.\r\n",
     "M2 refused: Registrar Nonce missing or not 16 bytes."},
    {CheckId::M2PublicKey,             -19,  "M2", kAttribute,     "Unpack M2 error, error code is -19.\r\n",
     "M2 refused: Public Key missing or not 128 bytes."},
    {CheckId::M2Authenticator,         -20,  "M2", kAttribute,     "Unpack M2 error, error code is -20.\r\n",
     "M2 refused: Authenticator missing or not 8 bytes."},
    {CheckId::M2KeyAgreement,          -21,  "M2", kKeyAgreement,  "Unpack M2 error, ComputerExchangeKey error code is -21.\r\n",
     "M2 refused: the SM2 key agreement with the registrar's public keys failed, or (same code) the Authenticator does not match."},
    {CheckId::M2AuthCheck,             -21,  "M2", kAuthenticator, "Unpack M2 error, error code is -21.\r\n",
     "M2 refused: the Authenticator does not match (it must be the last attribute)."},
    {CheckId::M2Version,               -22,  "M2", kAttribute,     "Unpack M2 error, error code is -22.\r\n",
     "M2 refused: Version missing or not 1 byte."},
    {CheckId::M2MsgType,               -23,  "M2", kAttribute,     "Unpack M2 error, error code is -23.\r\n",
     "M2 refused: Message Type missing or not 0x05."},
    {CheckId::M2EnrolleeNonce,         -24,  "M2", kAttribute,     "Unpack M2 error, error code is -24.\r\n",
     "M2 refused: Enrollee Nonce missing or not ours."},
    {CheckId::M2UuidR,                 -25,  "M2", kAttribute,     "Unpack M2 error, error code is -25.\r\n",
     "M2 refused: UUID-R missing or not 16 bytes."},
    {CheckId::M2AuthTypeFlags,         -26,  "M2", kAttribute,     "Unpack M2 error, error code is -26.\r\n",
     "M2 refused: Authentication Type Flags missing or not 2 bytes."},
    {CheckId::M2EncrTypeFlags,         -27,  "M2", kAttribute,     "Unpack M2 error, error code is -27.\r\n",
     "M2 refused: Encryption Type Flags missing or not 2 bytes."},
    {CheckId::M2ConnTypeFlags,         -28,  "M2", kAttribute,     "Unpack M2 error, error code is -28.\r\n",
     "M2 refused: Connection Type Flags missing or not 1 byte."},
    {CheckId::M2ConfigMethods,         -29,  "M2", kAttribute,     "Unpack M2 error, error code is -29.\r\n",
     "M2 refused: Config Methods missing or not 2 bytes."},
    {CheckId::M2Manufacturer,          -30,  "M2", kAttribute,     "Unpack M2 error, error code is -30.\r\n",
     "M2 refused: Manufacturer missing or longer than 32 bytes."},
    {CheckId::M2ModelName,             -31,  "M2", kAttribute,     "Unpack M2 error, error code is -31.\r\n",
     "M2 refused: Model Name missing or longer than 32 bytes."},
    {CheckId::M2ModelNumber,           -32,  "M2", kAttribute,     "Unpack M2 error, error code is -32.\r\n",
     "M2 refused: Model Number missing or longer than 32 bytes."},
    {CheckId::M2SerialNumber,          -33,  "M2", kAttribute,     "Unpack M2 error, error code is -33.\r\n",
     "M2 refused: Serial Number missing or longer than 32 bytes."},
    {CheckId::M2PrimaryDevType,        -34,  "M2", kAttribute,     "Unpack M2 error, error code is -34.\r\n",
     "M2 refused: Primary Device Type missing or not 8 bytes."},
    {CheckId::M2OuiWifi,               -35,  "M2", kAttribute,     "Unpack M2 error, error code is -35.\r\n",
     "M2 refused: Wi-Fi flavour and the Primary Device Type's OUI is not 00 50 F2 04."},
    {CheckId::M2OuiWapi,               -36,  "M2", kAttribute,     "Unpack M2 error, error code is -36.\r\n",
     "M2 refused: WAPI flavour and the Primary Device Type's OUI is not 00 00 14 72."},
    {CheckId::M2DeviceName,            -37,  "M2", kAttribute,     "Unpack M2 error, error code is -37.\r\n",
     "M2 refused: Device Name missing or longer than 32 bytes."},
    {CheckId::M2RfBands,               -38,  "M2", kAttribute,     "Unpack M2 error, error code is -38.\r\n",
     "M2 refused: RF Bands missing or not 1 byte."},
    {CheckId::M2AssocState,            -39,  "M2", kAttribute,     "Unpack M2 error, error code is -39.\r\n",
     "M2 refused: Association State missing or not 2 bytes."},
    {CheckId::M2ConfigError,           -40,  "M2", kAttribute,     "Unpack M2 error, error code is -40.\r\n",
     "M2 refused: Configuration Error missing or not 2 bytes."},
    {CheckId::M2DevicePasswordId,      -41,  "M2", kAttribute,     "Unpack M2 error, error code is -41.\r\n",
     "M2 refused: Device Password ID missing or not 2 bytes."},
    {CheckId::M2OsVersion,             -42,  "M2", kAttribute,     "Unpack M2 error, error code is -42.\r\n",
     "M2 refused: OS Version missing or not 4 bytes, or (same code, certificate mode) Certificate Mode missing, not 1 byte, or not 1 or 2."},
    {CheckId::M2CertificateModeMissing, -42, "M2", kAttribute,     "Unpack M2 error, error code is -42 extension.\r\n",
     "M2 refused: certificate mode and Certificate Mode is missing or not 1 byte."},
    {CheckId::M2CertificateModeValue,  -42,  "M2", kAttribute,     "Unpack M2 error, error code is -42 ex.\r\n",
     "M2 refused: Certificate Mode is neither 1 nor 2."},

    {CheckId::M4Authenticator,         -43,  "M4", kAttribute,     "Unpack M4 error, error code is -43.\r\n",
     "M4 refused: Authenticator missing or not 8 bytes."},
    {CheckId::M4AuthCheck,             -44,  "M4", kAuthenticator, "Unpack M4 error, error code is -44.\r\n",
     "M4 refused: the Authenticator does not match (it must be the last attribute)."},
    {CheckId::M4Version,               -45,  "M4", kAttribute,     "Unpack M4 error, error code is -45.\r\n",
     "M4 refused: Version missing or not 1 byte."},
    {CheckId::M4MsgType,               -46,  "M4", kAttribute,     "Unpack M4 error, error code is -46.\r\n",
     "M4 refused: Message Type missing or not 0x08."},
    {CheckId::M4EnrolleeNonce,         -47,  "M4", kAttribute,     "Unpack M4 error, error code is -47.\r\n",
     "M4 refused: Enrollee Nonce missing or not ours."},
    {CheckId::M4RHash1,                -48,  "M4", kAttribute,     "Unpack M4 error, error code is -48.\r\n",
     "M4 refused: R-Hash1 missing or not 32 bytes."},
    {CheckId::M4RHash2,                -49,  "M4", kAttribute,     "Unpack M4 error, error code is -49.\r\n",
     "M4 refused: R-Hash2 missing or not 32 bytes."},
    {CheckId::M4EncrSettings,          -50,  "M4", kAttribute,     "Unpack M4 error, error code is -50.\r\n",
     "M4 refused: Encrypted Settings missing."},
    {CheckId::M4KeyWrapAuth,           -51,  "M4", kSettings,      "Unpack M4 error, error code is -51.\r\n",
     "M4 refused: the Encrypted Settings do not decrypt to a verified R-SNonce1 (Key Wrap Authenticator)."},
    {CheckId::M4RHash1Check,           -52,  "M4", kWrongPassword, "Unpack M4 error, error code is -52.\r\n",
     "M4 refused: R-Hash1 mismatch; the registrar used another PIN (first half)."},

    {CheckId::M6Authenticator,         -53,  "M6", kAttribute,     "Unpack M6 error, error code is -53.\r\n",
     "M6 refused: Authenticator missing or not 8 bytes."},
    {CheckId::M6AuthCheck,             -54,  "M6", kAuthenticator, "Unpack M6 error, error code is -54.\r\n",
     "M6 refused: the Authenticator does not match (it must be the last attribute)."},
    {CheckId::M6Version,               -55,  "M6", kAttribute,     "Unpack M6 error, error code is -55.\r\n",
     "M6 refused: Version missing or not 1 byte."},
    {CheckId::M6MsgType,               -56,  "M6", kAttribute,     "Unpack M6 error, error code is -56.\r\n",
     "M6 refused: Message Type missing or not 0x0A."},
    {CheckId::M6EnrolleeNonce,         -57,  "M6", kAttribute,     "Unpack M6 error, error code is -57.\r\n",
     "M6 refused: Enrollee Nonce missing or not ours."},
    {CheckId::M6EncrSettings,          -58,  "M6", kAttribute,     "Unpack M6 error, error code is -58.\r\n",
     "M6 refused: Encrypted Settings missing."},
    {CheckId::M6PadValue,              -59,  "M6", kSettings,      "pad value is error.\r\n",
     "M6 or M8 refused: the last padding byte of the Encrypted Settings exceeds their length, or (same code) the padding bytes differ or, in M6, the Key Wrap Authenticator does not match."},
    {CheckId::M6PadString,             -59,  "M6", kSettings,      "pad string is error.\r\n",
     "M6 refused: the padding bytes of the Encrypted Settings differ."},
    {CheckId::M6KeyWrapAuth,           -59,  "M6", kSettings,      "Unpack M6 error, error code is -59.\r\n",
     "M6 refused: the Encrypted Settings do not decrypt to a verified R-SNonce2 (Key Wrap Authenticator)."},
    {CheckId::M6RHash2Check,           -60,  "M6", kWrongPassword, "Unpack M6 error, error code is -60.\r\n",
     "M6 refused: R-Hash2 mismatch; the registrar used another PIN (second half)."},

    {CheckId::M8Authenticator,         -61,  "M8", kAttribute,     "Unpack M8 error, error code is -61.\r\n",
     "M8 refused: Authenticator missing or not 8 bytes."},
    {CheckId::M8AuthCheck,             -62,  "M8", kAuthenticator, "Unpack M8 error, error code is -62.\r\n",
     "M8 refused: the Authenticator does not match (it must be the last attribute)."},
    {CheckId::M8Version,               -63,  "M8", kAttribute,     "Unpack M8 error, error code is -63.\r\n",
     "M8 refused: Version missing or not 1 byte."},
    {CheckId::M8MsgType,               -64,  "M8", kAttribute,     "Unpack M8 error, error code is -64.\r\n",
     "M8 refused: Message Type missing or not 0x0C."},
    {CheckId::M8EnrolleeNonce,         -65,  "M8", kAttribute,     "Unpack M8 error, error code is -65.\r\n",
     "M8 refused: Enrollee Nonce missing or not ours."},
    {CheckId::M8EncrSettings,          -66,  "M8", kAttribute,     "Unpack M8 error, error code is -66.\r\n",
     "M8 refused: Encrypted Settings missing."},
    {CheckId::M8PadValue,              -59,  "M8", kSettings,      "pad value is error.\r\n",
     "M8 refused: the last padding byte of the Encrypted Settings exceeds their length."},
    {CheckId::M8PadString,             -59,  "M8", kSettings,      "pad string is error.\r\n",
     "M8 refused: the padding bytes of the Encrypted Settings differ."},
    {CheckId::M8KeyWrapAuth,           -67,  "M8", kSettings,      "Unpack M8 error, error code is -67.\r\n",
     "M8 refused: the Key Wrap Authenticator of the Encrypted Settings is missing or does not match."},
    {CheckId::M8CertificateNeeded,     -68,  "M8", kAttribute,     "Unpack M8 error, error code is -68,WPS_NEW_CERTIFICATE_NEEDED.\r\n",
     "M8 refused: certificate mode and Certificate Needed is missing or not 1 byte, or (same code) the Credential is missing."},
    {CheckId::M8Credential,            -68,  "M8", kAttribute,     "Unpack M8 error, error code is -68.\r\n",
     "M8 refused: the Credential is missing from the Encrypted Settings."},
    {CheckId::M8MacAddress,            -69,  "M8", kCredential,    "Unpack M8 error, error code is -69.\r\n",
     "M8 refused: the Credential's MAC Address is missing or not ours."},
    {CheckId::M8NetworkKey,            -70,  "M8", kCredential,    "Unpack M8 error, error code is -70.\r\n",
     "M8 refused: the Network Key is missing, longer than 64 bytes, or (same code) not valid hexadecimal text."},
    {CheckId::M8HexKey,                -70,  "M8", kCredential,    "HexKey is not correct.\r\n",
     "M8 refused: the hexadecimal Network Key has an odd length, a non-hex character or more than 64 characters."},
    {CheckId::M8CertificateList,       -72,  "M8", kCredential,    "Unpack M8 error, error code is -72.\r\n",
     "M8 refused: new certificates announced but the Certificate List is missing or shorter than its count."},

    {CheckId::HeaderEapolType,        -101,  "header", kMalformed, "Unpack header error, error code is -101.\r\n",
     "Message frame refused: the EAPOL packet type is not 0 (EAP packet)."},
    {CheckId::HeaderEapCode,          -102,  "header", kMalformed, "Unpack header error, error code is -102.\r\n",
     "Message frame refused: the EAP code is not 1 (Request)."},
    {CheckId::HeaderWifiEapType,      -103,  "header", kMalformed, "Unpack header error, error code is -103.\r\n",
     "Message frame refused: Wi-Fi flavour and the EAP type is not 254."},
    {CheckId::HeaderWapiEapType,      -104,  "header", kMalformed, "Unpack header error, error code is -104.\r\n",
     "Message frame refused: WAPI flavour and the EAP type is not 242."},
    {CheckId::HeaderWifiVendor,       -105,  "header", kMalformed, "Unpack header error, error code is -105.\r\n",
     "Message frame refused: Wi-Fi flavour and the vendor id is not 00:37:2A."},
    {CheckId::HeaderWapiVendor,       -106,  "header", kMalformed, "Unpack header error, error code is -106.\r\n",
     "Message frame refused: WAPI flavour and the vendor id is not 00:81:DB; or (same code) an EAP-Failure that is not 8 bytes long."},
    {CheckId::HeaderVendorType,       -107,  "header", kMalformed, "Unpack header error, error code is -107.\r\n",
     "Message frame refused: the vendor type is not 1; or (same code) an EAP-Failure whose EAPOL packet type is not 0."},
    {CheckId::HeaderOpcode,           -108,  "header", kMalformed, "Unpack header error, error code is -108.\r\n",
     "Message frame refused: the op-code is not 4 (message); or (same code) an EAP-Failure whose EAPOL body length is not 4."},

    {CheckId::FailureFrameLength,     -106,  "EAP-Failure", kMalformed, "Unpack failure message erro, error code is -106.\r\n",
     "EAP-Failure refused: the frame is not 8 bytes long."},
    {CheckId::FailureEapolType,       -107,  "EAP-Failure", kMalformed, "Unpack failure message erro, error code is -107.\r\n",
     "EAP-Failure refused: the EAPOL packet type is not 0 (EAP packet)."},
    {CheckId::FailureBodyLength,      -108,  "EAP-Failure", kMalformed, "Unpack failure message erro, error code is -108.\r\n",
     "EAP-Failure refused: the EAPOL body length is not 4."},
    {CheckId::FailureEapCode,         -109,  "EAP-Failure", kMalformed, "Unpack failure message erro, error code is -109.\r\n",
     "EAP-Failure refused: the EAP code is not 4 (Failure)."},
};
// clang-format on

constexpr bool rows_in_id_order() {
    for (size_t i = 0; i < std::size(kCheckRows); ++i)
        if (static_cast<size_t>(kCheckRows[i].id) != i) return false;
    return std::size(kCheckRows) == static_cast<size_t>(CheckId::Count);
}
static_assert(rows_in_id_order(), "kCheckRows must list every CheckId once, in order");

constexpr const CheckRow& check_row(CheckId id) { return kCheckRows[static_cast<size_t>(id)]; }
constexpr int32_t check_code(CheckId id) { return check_row(id).code; }

// The first row of a code (its summary), or nullptr for a code no check produces.
const CheckRow* find_check_code(int32_t code);

// ---- Failure of a check ---------------------------------------------------------------------
// Traces the row's line (a printf format for the rows that carry a value) and remembers the row
// and the formatted line as the last failed check, for the run status. Returns the row's code.
int32_t fail_check(CheckId id, ...);

// The last failed check since clear_failed_check(): its row (nullptr when none) and its line
// without the line end.
void clear_failed_check();
const CheckRow* last_failed_check();
const char* last_failed_check_line();
