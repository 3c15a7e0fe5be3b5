// The enrollee context: the one process-wide record of a registration run.
//
// Every field is a global with static storage, zero at load unless a start value is given, and
// no field is guarded by a lock: the host drives the exports from one thread. Globals must stay
// trivially constructible, because the process-attach routine may run before C++ dynamic
// initialisation.
#pragma once

#include <cstddef>
#include <cstdint>

// ---- Sizes shared by several subsystems -------------------------------------------------------
constexpr size_t kMsgBufLen = 4096;       // g_PrevMsgBuf, g_FragBuffer
constexpr size_t kTextFieldLen = 32;      // Manufacturer ... DevicePassword
constexpr size_t kAddressLen = 16;        // LocalAddress, PeerAddress
constexpr size_t kUuidLen = 16;
constexpr size_t kNonceLen = 16;
constexpr size_t kSm2CoordLen = 32;
constexpr size_t kSm2PublicKeyLen = 64;   // x || y
constexpr size_t kSm2PrivateKeyLen = 32;
constexpr size_t kEccPublicKeyLen = 48;   // WAPI 192-bit curve, x || y
constexpr size_t kEccPrivateKeyLen = 24;
constexpr size_t kIdentityEntryLen = 1042; // uuid[16], Length u16 host order, data[1024]
constexpr size_t kIdentityDataMax = 1024;
constexpr size_t kExtraCertLen = 128;
constexpr size_t kPrefixLen = 8;
// Largest frame the library writes: M7 with a 1024-byte identity, headers and prefix, rounded up.
constexpr size_t kMaxOutFrameLen = 2048;

// ---- Protocol constants ----------------------------------------------------------------------
enum : uint32_t {
    WAIT_START = 1,
    WAIT_REQUEST_IDENTITY = 2,
    WAIT_WPS_START = 3,
    WAIT_M2 = 4,
    WAIT_M4 = 5,
    WAIT_M6 = 6,
    WAIT_M8 = 7,
    WAIT_REQUEST_FAILURE = 8,
    SEND_NACK_WAIT_FAILURE = 9,
    SEND_ACK_WAIT_FAILURE = 10,
};

// g_WPS_mode: 1 is the Wi-Fi flavour, 3 the WAPI certificate mode, every other non-zero value
// the WAPI pre-shared-key mode.
enum : uint32_t { NO_WPS = 0, WIFI_WPS = 1, WAPI_WPS_PSK = 2, WAPI_WPS_CERT = 3 };

enum : uint32_t { MAC_ADDRESS = 0, IPV4_ADDRESS = 1, TEXT_ADDRESS = 2 };

enum : uint32_t { NO_FRAG = 0, DO_FRAG = 1, END_FRAG = 2 };

// ---- Device information advertised in M1 (numbers in host order) -----------------------------
// Text fields hold up to 32 bytes and are NUL-terminated when shorter; readers use a bounded
// length (strnlen over the field), never an unbounded strlen.
struct MyMsgInfo {
    uint8_t LocalAddress[kAddressLen];
    uint8_t UUID_E[kUuidLen];
    char Manufacturer[kTextFieldLen];
    char ModelName[kTextFieldLen];
    char ModelNumber[kTextFieldLen];
    char SerialNumber[kTextFieldLen];
    char DeviceName[kTextFieldLen];      // UTF-8
    char DevicePassword[kTextFieldLen];  // the PIN, or "00000000"
    uint16_t DevicePasswordId;
    uint16_t PrimaryDeviceCategory;
    uint16_t PrimaryDeviceSubCategory;
    uint8_t RFBands;
    uint8_t ConnectionTypeFlags;
    uint16_t AuthTypeFlags;
    uint16_t EncrTypeFlags;
    uint32_t OSVersion;
    uint16_t ConfigError;
    uint16_t ConfigMethods;
    uint8_t GeneratePublicKey[kEccPublicKeyLen];  // x || y, made or exported by M7
};

// ---- Per-party key record ---------------------------------------------------------------------
struct PartyKeyInfo {
    uint8_t SimpleConfigState;
    uint8_t Identifier;  // peer record: identifier of the last accepted EAP request
    uint16_t AssociationState;
    uint8_t Nonce[kNonceLen];
    uint8_t PublicKey[kSm2PublicKeyLen];
    uint8_t PrivateKey[kSm2PrivateKeyLen];
    uint8_t TempPrivateKey[kSm2PrivateKeyLen];
    uint8_t TempPublicKey[kSm2PublicKeyLen];
    uint8_t Hash1[32];
    uint8_t Hash2[32];
    uint8_t SecretNonce1[16];
    uint8_t SecretNonce2[16];
    uint8_t Psk1[32];
    uint8_t Psk2[32];
    uint8_t SharedSecret[32];
    uint8_t Authenticator[8];
    uint8_t AuthKey[32];
    uint8_t KeyWrapKey[16];
    uint8_t Emsk[32];
    uint8_t Kdk[32];
    uint8_t DhKey[32];
    uint8_t LastIv[16];
    const char* KdfLabel;
};

// ---- Session control ---------------------------------------------------------------------------
extern uint32_t g_State_Machine;  // starts at WAIT_START
extern uint32_t g_WPS_mode;
extern uint32_t g_AddressMode;
extern uint8_t g_IsDoSecureChip;
extern uint8_t g_EapIdentifier;
extern uint8_t g_PeerCertFlag;
extern uint8_t PeerAddress[kAddressLen];
extern const uint8_t PrefixType[2];  // 0x89, 0x1B
extern MyMsgInfo g_MyMsgInfo;

// ---- M8 reassembly -----------------------------------------------------------------------------
extern uint32_t g_FragState;
extern uint8_t g_FragBuffer[kMsgBufLen];
extern uint16_t g_FragOffset;
extern uint16_t g_FragTotalLength;

// ---- Previous message, for the Authenticator of the next one -----------------------------------
extern uint8_t g_PrevMsgBuf[kMsgBufLen];
extern uint16_t g_PrevMsgLen;

// ---- Certificate identities (owned heap block of g_IdentityCount entries) ----------------------
extern uint8_t g_IdentityCount;
extern uint8_t* g_IdentityList;

// ---- Keys ----------------------------------------------------------------------------------------
extern PartyKeyInfo g_EnrolleeKeys;
extern PartyKeyInfo g_RegistrarKeys;
extern void* g_phSessionHandle;  // ZEV session, opened at process attach

// ---- Values taken from the registrar's messages and made by M7 ---------------------------------
extern uint8_t UUID_R[kUuidLen];
extern uint8_t CertificateMode;       // from M2 (certificate mode): 1 or 2
extern uint8_t CertificateModeOffer;  // sent in M1 (certificate mode): 15
extern uint8_t CertificateNeeded;     // written by M7
extern uint8_t GeneratePrivateKey[kEccPrivateKeyLen];

// ---- Results (read by the getters) -------------------------------------------------------------
extern const uint8_t* g_ResultData;  // points into g_PrevMsgBuf after M8
extern uint16_t g_ResultLength;
extern uint16_t g_CertCount;
extern uint8_t NewCertificateFlag;
extern uint8_t g_ExtraCert[kExtraCertLen];
extern uint16_t g_ExtraCertLength;

// ---- Secure-chip parameters --------------------------------------------------------------------
extern uint8_t g_SecureChipAdminLoginKey[256];
extern int32_t g_SecureChipAdminLoginKeyLen;
extern uint8_t g_SecureChipParam2[256];
extern int32_t g_SecureChipParam2Len;
extern uint32_t SecureChipPrivateKeyIndex;
extern uint8_t g_SecureChipSignParam[16];

// True for the Wi-Fi flavour, false for every WAPI mode.
inline bool is_wifi_flavour() { return g_WPS_mode == WIFI_WPS; }

// Wipes the secrets of a run (device password, secret fields of both key records, the HMAC
// scratch). StartWPS and StopWPS call it, and so every run's closing EAP-Failure.
void wipe_run_secrets();

// Runs once when the process attaches the library: prepares the signing curve, then opens the
// ZEV session. Called by the platform's attach hook (DllMain or a constructor).
void on_process_attach();
