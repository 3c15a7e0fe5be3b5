// Session control exports: the device identity for M1, starting a run (EAPOL-Start), starting
// one with the secure chip, and stopping.
#include <cstdlib>
#include <cstring>

#include "api/context.h"
#include "common/bytes.h"
#include "engine/engine.h"
#include "engine/run_status.h"
#include "platform/platform.h"
#include "signing/signing.h"
#include "wapiwps.h"

namespace {

constexpr char kManufacturer[] = "WAPI-WPS-STA";
constexpr char kModelName[] = "WAPI-WPS-STA-Enrollee";
constexpr char kModelNumber[] = "12345";
constexpr char kSerialNumber[] = "67890123";
constexpr char kDefaultPin[] = "00000000";
constexpr size_t kDefaultPinLen = sizeof kDefaultPin - 1;
constexpr size_t kMacPinLen = 8;
constexpr size_t kMacAddressLen = 6;
constexpr size_t kIpv4AddressLen = 4;
constexpr size_t kTextAddressLen = 16;
constexpr uint16_t kPasswordIdPin = 0;
constexpr uint16_t kPasswordIdDefault = 4;
constexpr uint16_t kAuthFlagsWifi = 0x0027;
constexpr uint16_t kEncrFlagsWifi = 0x000F;
constexpr uint16_t kAuthFlagsWapi = 0xE000;
constexpr uint16_t kEncrFlagsWapi = 0x8000;
constexpr uint16_t kPrimaryDeviceCategory = 1;
constexpr uint16_t kPrimaryDeviceSubCategory = 1;
constexpr uint8_t kRfBands = 3;
constexpr uint8_t kConnectionTypeFlags = 1;
constexpr uint16_t kConfigMethods = 0x008C;
// A 32-byte UTF-8 name never needs more than 33 UTF-16 units; the rest is not read.
constexpr size_t kNameUnitsRead = 64;

static_assert(sizeof(kModelName) <= kTextFieldLen &&
              kPrefixLen + kEapolHeaderLen <= kMaxOutFrameLen);

void forget_identity_list() {
    g_IdentityCount = 0;
    std::free(g_IdentityList);
    g_IdentityList = nullptr;
}

// The reset shared by StopWPS and StartWPS (which keeps the identity list).
void reset_session() {
    wipe_run_secrets();
    g_State_Machine = WAIT_START;
    g_WPS_mode = NO_WPS;
    g_FragState = NO_FRAG;
    std::memset(PeerAddress, 0, sizeof PeerAddress);
    g_PeerCertFlag = 0;
    g_IsDoSecureChip = 0;
}

void set_text(char (&field)[kTextFieldLen], const char* text) {
    std::memset(field, 0, sizeof field);
    std::memcpy(field, text, std::strlen(text));
}

// The PIN is cut to its 32-byte field (our bound). The field is zeroed first so that an 8-byte
// MAC-mode PIN never inherits the tail of a longer earlier one.
void set_device_password(const char* pPIN) {
    std::memset(g_MyMsgInfo.DevicePassword, 0, sizeof g_MyMsgInfo.DevicePassword);
    if (pPIN == nullptr) {
        trace("pPIN == NULL.\r\n");
        g_MyMsgInfo.DevicePasswordId = kPasswordIdDefault;
        std::memcpy(g_MyMsgInfo.DevicePassword, kDefaultPin, kDefaultPinLen);
        return;
    }
    trace("pPIN != NULL.\r\n");
    g_MyMsgInfo.DevicePasswordId = kPasswordIdPin;
    // MAC mode takes eight characters and needs no terminator; the other modes take a text. Both
    // stop at a NUL: the password is only ever read up to its NUL, so stopping there changes
    // nothing and never reads past a shorter string the host passed.
    const size_t n = field_strlen(pPIN, g_AddressMode == MAC_ADDRESS
                                            ? kMacPinLen
                                            : sizeof g_MyMsgInfo.DevicePassword);
    std::memcpy(g_MyMsgInfo.DevicePassword, pPIN, n);
}

// Binary addresses keep their full width, zero bytes included. A text address is only ever read
// up to its NUL, so its copy stops there too and never reads past a shorter host string.
void set_local_address(const uint8_t* localAddress, int32_t addressMode) {
    std::memset(g_MyMsgInfo.LocalAddress, 0, sizeof g_MyMsgInfo.LocalAddress);
    const size_t n = addressMode == static_cast<int32_t>(TEXT_ADDRESS)
                         ? field_strlen(localAddress, kTextAddressLen)
                     : addressMode == static_cast<int32_t>(IPV4_ADDRESS) ? kIpv4AddressLen
                                                                         : kMacAddressLen;
    std::memcpy(g_MyMsgInfo.LocalAddress, localAddress, n);
}

// Writes EAPOL-Start, behind the 8-byte prefix in MAC_ADDRESS mode.
void write_eapol_start(const void* peer, uint8_t* outFrame, uint32_t* outLen) {
    if (g_AddressMode == MAC_ADDRESS) {
        std::memcpy(PeerAddress, peer, kMacAddressLen);
        trace("g_AddressMode is MAC_ADDRESS.\r\n");
        std::memcpy(outFrame, PeerAddress, kMacAddressLen);
        std::memcpy(outFrame + kMacAddressLen, PrefixType, sizeof PrefixType);
        PackEapolStart(outFrame + kPrefixLen, outLen);
        *outLen += kPrefixLen;
        return;
    }
    // The peer text is cut to the 16-byte field (our bound) and kept without its NUL.
    const char* text = static_cast<const char*>(peer);
    std::memcpy(PeerAddress, text, field_strlen(text, sizeof PeerAddress));
    PackEapolStart(outFrame, outLen);
}

void ignore_chip_status(int32_t*, void*) {}

}  // namespace

int32_t SetDeviceInfo(const uint8_t uuid[16], const wapiwps_utf16* deviceName) {
    trace("SetDeviceInfo.\r\n");
    // Our choice: a missing pointer changes nothing.
    if (uuid == nullptr || deviceName == nullptr) return -1;
    forget_identity_list();
    std::memcpy(g_MyMsgInfo.UUID_E, uuid, kUuidLen);
    set_text(g_MyMsgInfo.Manufacturer, kManufacturer);
    set_text(g_MyMsgInfo.ModelName, kModelName);
    set_text(g_MyMsgInfo.ModelNumber, kModelNumber);
    set_text(g_MyMsgInfo.SerialNumber, kSerialNumber);

    // The name is cut at a UTF-8 character boundary to fit its 32-byte field (our bound).
    uint16_t units[kNameUnitsRead + 1] = {};
    for (size_t i = 0; i < kNameUnitsRead && deviceName[i] != 0; ++i)
        units[i] = static_cast<uint16_t>(deviceName[i]);
    std::memset(g_MyMsgInfo.DeviceName, 0, sizeof g_MyMsgInfo.DeviceName);
    platform::utf16_to_utf8(units, g_MyMsgInfo.DeviceName, sizeof g_MyMsgInfo.DeviceName);

    g_MyMsgInfo.OSVersion = platform::os_version();
    g_MyMsgInfo.PrimaryDeviceCategory = kPrimaryDeviceCategory;
    g_MyMsgInfo.PrimaryDeviceSubCategory = kPrimaryDeviceSubCategory;
    g_MyMsgInfo.RFBands = kRfBands;
    g_MyMsgInfo.ConnectionTypeFlags = kConnectionTypeFlags;
    g_MyMsgInfo.ConfigError = 0;
    g_MyMsgInfo.ConfigMethods = kConfigMethods;
    return 0;
}

int32_t StartWPS(const uint8_t* localAddress, int32_t addressMode, int32_t wpsMode,
                 const void* peer, const char* pPIN, uint8_t* outFrame, uint32_t* outLen) {
    // Our choice: missing host pointers refuse the call before anything changes.
    if (localAddress == nullptr || peer == nullptr || outFrame == nullptr || outLen == nullptr)
        return 0;
    trace("Stop WPS 2.\r\n");
    reset_session();
    run_status_begin();

    trace("Start WPS. WPS_mode = %d\r\n", static_cast<int>(wpsMode));
    g_WPS_mode = static_cast<uint32_t>(wpsMode);
    g_AddressMode = static_cast<uint32_t>(addressMode);
    set_local_address(localAddress, addressMode);
    if (g_WPS_mode == NO_WPS) {
        trace("WPS mode is NO_WPS.\r\n");
        return 0;
    }
    g_MyMsgInfo.AuthTypeFlags = is_wifi_flavour() ? kAuthFlagsWifi : kAuthFlagsWapi;
    g_MyMsgInfo.EncrTypeFlags = is_wifi_flavour() ? kEncrFlagsWifi : kEncrFlagsWapi;
    set_device_password(pPIN);
    std::memset(g_PrevMsgBuf, 0, sizeof g_PrevMsgBuf);
    g_PrevMsgLen = 0;

    if (g_State_Machine != WAIT_START) {
        trace("WAIT_START != g_State_Machine.\r\n");
        return 0;
    }
    write_eapol_start(peer, outFrame, outLen);
    g_State_Machine = WAIT_REQUEST_IDENTITY;
    g_FragState = NO_FRAG;
    trace("Start WPS Success.\r\n");
    return 1;
}

int32_t StartWPS_SecureChip(const uint8_t* localAddress, int32_t addressMode, int32_t wpsMode,
                            const void* peer, const char* pPIN, uint8_t* outFrame,
                            uint32_t* outLen) {
    if (StartWPS(localAddress, addressMode, wpsMode, peer, pPIN, outFrame, outLen) == 0) return 0;
    // The run stays started with software signing when the service cannot be reached.
    if (CreateSecureChipClient(&g_SecureChipClient, ignore_chip_status, nullptr) != 0) return 0;
    g_IsDoSecureChip = 1;
    return 1;
}

int32_t StopWPS(void) {
    trace("Stop WPS.\r\n");
    reset_session();
    forget_identity_list();
    return 1;
}
