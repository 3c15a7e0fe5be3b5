// Frame layer: the three header writers, the checkers of the frames that carry no message, the
// packers of EAPOL-Start and Response/Identity, and the wrappers that put headers around each
// message builder or strip them before each parser.
#include <climits>
#include <cstring>
#include <span>

#include "api/context.h"
#include "common/bytes.h"
#include "common/check_codes.h"
#include "crypto/crypto.h"
#include "engine/engine.h"
#include "engine/frame_bytes.h"
#include "messages/messages.h"
#include "platform/platform.h"

namespace {

constexpr uint16_t kIdentityRequestLen = 9;
constexpr uint16_t kIdentityBodyLen = 5;
constexpr uint16_t kStartFrameLen = 18;
constexpr uint16_t kStartBodyLen = 14;
constexpr uint16_t kFailureFrameLen = 8;
constexpr uint16_t kFailureBodyLen = 4;
constexpr size_t kIdentityWifiLen = sizeof IDENTITY_WIFI - 1;
constexpr size_t kIdentityWapiLen = sizeof IDENTITY_WAPI - 1;
static_assert(kIdentityWifiLen == 29 && kIdentityWapiLen == 31);

// Every frame we write fits the host's output buffer, prefix included.
static_assert(kPrefixLen + kFrameHeaderLen + kMaxBodyLen <= kMaxOutFrameLen);
static_assert(kPrefixLen + kEapolHeaderLen + kEapHeaderLen + kIdentityWapiLen <= kMaxOutFrameLen);

uint8_t flavour_eap_type() {
    return is_wifi_flavour() ? EAP_TYPE_WIFI : EAP_TYPE_WAPI;
}
const uint8_t (&flavour_vendor_id())[3] {
    return is_wifi_flavour() ? VENDOR_ID_WIFI : VENDOR_ID_WAPI;
}

// One check of a checker table: its row in the code table (code and trace line) and the
// condition that refuses the frame.
struct FrameCheck {
    CheckId id;
    bool (*refuses)(const uint8_t* frame, uint32_t frameLength);
};

// Runs the table in order; the first refusal is traced from its row and its code returned.
int32_t run_checks(std::span<const FrameCheck> checks, const uint8_t* frame, uint32_t frameLength) {
    for (const FrameCheck& check : checks)
        if (check.refuses(frame, frameLength)) return fail_check(check.id);
    return 0;
}

bool wrong_eapol_type(const uint8_t* f, uint32_t n) {
    return frame_byte(f, n, OFF_EAPOL_TYPE) != EAPOL_TYPE_EAP_PACKET;
}
bool not_request(const uint8_t* f, uint32_t n) {
    return frame_byte(f, n, OFF_EAP_CODE) != EAP_CODE_REQUEST;
}
bool wifi_wrong_type(const uint8_t* f, uint32_t n) {
    return is_wifi_flavour() && frame_byte(f, n, OFF_EAP_TYPE) != EAP_TYPE_WIFI;
}
bool wapi_wrong_type(const uint8_t* f, uint32_t n) {
    return !is_wifi_flavour() && frame_byte(f, n, OFF_EAP_TYPE) != EAP_TYPE_WAPI;
}
bool wifi_wrong_vendor(const uint8_t* f, uint32_t n) {
    return is_wifi_flavour() && !frame_vendor_is(f, n, VENDOR_ID_WIFI);
}
bool wapi_wrong_vendor(const uint8_t* f, uint32_t n) {
    return !is_wifi_flavour() && !frame_vendor_is(f, n, VENDOR_ID_WAPI);
}
bool wrong_vendor_type(const uint8_t* f, uint32_t n) {
    return frame_be32(f, n, OFF_VENDOR_TYPE) != VENDOR_TYPE_SIMPLE_CONFIG;
}

// Message frame header, in the order the checks run.
constexpr FrameCheck kHeaderChecks[] = {
    {CheckId::HeaderEapolType, wrong_eapol_type},
    {CheckId::HeaderEapCode, not_request},
    {CheckId::HeaderWifiEapType, wifi_wrong_type},
    {CheckId::HeaderWapiEapType, wapi_wrong_type},
    {CheckId::HeaderWifiVendor, wifi_wrong_vendor},
    {CheckId::HeaderWapiVendor, wapi_wrong_vendor},
    {CheckId::HeaderVendorType, wrong_vendor_type},
    {CheckId::HeaderOpcode,
     [](const uint8_t* f, uint32_t n) { return frame_byte(f, n, OFF_OPCODE) != WSC_OP_MSG; }},
};

// EAP Request/Identity: the length test comes first, so the others read inside the frame.
constexpr FrameCheck kIdentityChecks[] = {
    {CheckId::IdentityFrameLength, [](const uint8_t*, uint32_t n) { return n != kIdentityRequestLen; }},
    {CheckId::IdentityEapolType, wrong_eapol_type},
    {CheckId::IdentityBodyLength,
     [](const uint8_t* f, uint32_t n) {
         return frame_be16(f, n, OFF_EAPOL_LENGTH) != kIdentityBodyLen;
     }},
    {CheckId::IdentityEapCode, not_request},
    {CheckId::IdentityEapType,
     [](const uint8_t* f, uint32_t n) {
         return frame_byte(f, n, OFF_EAP_TYPE) != EAP_TYPE_IDENTITY;
     }},
    {CheckId::IdentityEapLength,
     [](const uint8_t* f, uint32_t n) {
         return frame_be16(f, n, OFF_EAP_LENGTH) != kIdentityBodyLen;
     }},
};

// Start: the frame length is tested last, after every header field.
constexpr FrameCheck kStartChecks[] = {
    {CheckId::StartEapolType, wrong_eapol_type},
    {CheckId::StartBodyLength,
     [](const uint8_t* f, uint32_t n) {
         return frame_be16(f, n, OFF_EAPOL_LENGTH) != kStartBodyLen;
     }},
    {CheckId::StartEapCode, not_request},
    {CheckId::StartWifiEapType, wifi_wrong_type},
    {CheckId::StartWapiEapType, wapi_wrong_type},
    {CheckId::StartEapLength,
     [](const uint8_t* f, uint32_t n) {
         return frame_be16(f, n, OFF_EAP_LENGTH) != kStartBodyLen;
     }},
    {CheckId::StartWifiVendor, wifi_wrong_vendor},
    {CheckId::StartWapiVendor, wapi_wrong_vendor},
    {CheckId::StartVendorType, wrong_vendor_type},
    {CheckId::StartOpcode,
     [](const uint8_t* f, uint32_t n) { return frame_byte(f, n, OFF_OPCODE) != WSC_OP_START; }},
    {CheckId::StartFrameLength, [](const uint8_t*, uint32_t n) { return n != kStartFrameLen; }},
};

// EAP-Failure. Its codes overlap the header checker's on purpose; they are distinct checks.
constexpr FrameCheck kFailureChecks[] = {
    {CheckId::FailureFrameLength, [](const uint8_t*, uint32_t n) { return n != kFailureFrameLen; }},
    {CheckId::FailureEapolType, wrong_eapol_type},
    {CheckId::FailureBodyLength,
     [](const uint8_t* f, uint32_t n) {
         return frame_be16(f, n, OFF_EAPOL_LENGTH) != kFailureBodyLen;
     }},
    {CheckId::FailureEapCode,
     [](const uint8_t* f, uint32_t n) {
         return frame_byte(f, n, OFF_EAP_CODE) != EAP_CODE_FAILURE;
     }},
};

// ---- Sent side ---------------------------------------------------------------------------------

using BodyBuilder = bool (*)(uint8_t* out, uint32_t* outLength);

// Writes the three headers in front of a body of `messageLength` bytes already at offset 18.
void wrap_message(uint8_t* buffer, uint8_t opcode, uint32_t messageLength, uint32_t* outLength) {
    const uint16_t length = static_cast<uint16_t>(messageLength);
    AddWpsHeader(buffer + kEapolHeaderLen + kEapHeaderLen, opcode);
    AddTeapHeader(buffer + kEapolHeaderLen, EAP_CODE_RESPONSE, g_EapIdentifier,
                  static_cast<uint16_t>(length + kWpsHeaderLen), flavour_eap_type());
    AddEapolHeader(buffer, EAPOL_TYPE_EAP_PACKET,
                   static_cast<uint16_t>(length + kEapHeaderLen + kWpsHeaderLen));
    *outLength = messageLength + static_cast<uint32_t>(kFrameHeaderLen);
}

// Builds a body at offset 18 and wraps it. A builder that fails, or reports more than the
// output buffer has room for, gives -1 and no output length.
int32_t pack_message(uint8_t* buffer, uint32_t* outLength, uint8_t opcode, BodyBuilder build) {
    uint32_t messageLength = 0;
    if (!build(buffer + kFrameHeaderLen, &messageLength) || messageLength > kMaxBodyLen) return -1;
    wrap_message(buffer, opcode, messageLength, outLength);
    return 0;
}

// ---- Received side -----------------------------------------------------------------------------

// The body after the 18 header bytes: the bytes that exist, and the stated length (negative
// when the frame is shorter than its headers).
std::span<const uint8_t> body_of(const uint8_t* frame, uint32_t frameLength) {
    if (frameLength <= kFrameHeaderLen) return {};
    return {frame + kFrameHeaderLen, frameLength - kFrameHeaderLen};
}
int32_t stated_body_length(uint32_t frameLength) {
    const int64_t length = int64_t{frameLength} - int64_t{kFrameHeaderLen};
    return length > INT32_MAX ? INT32_MAX : static_cast<int32_t>(length);
}

using BodyParser = int32_t (*)(std::span<const uint8_t> readable, int32_t length);

int32_t unpack_message(const uint8_t* frame, uint32_t frameLength, BodyParser parse) {
    const uint8_t* cursor = frame;
    const int32_t header = UnpackHeader(&cursor, frameLength);
    if (header != 0) return header;
    return parse(body_of(frame, frameLength), stated_body_length(frameLength));
}

}  // namespace

// ---- Header writers
// ------------------------------------------------------------------------------

size_t AddEapolHeader(uint8_t* buffer, uint8_t packetType, uint16_t bodyLength) {
    buffer[0] = EAPOL_VERSION;
    buffer[OFF_EAPOL_TYPE] = packetType;
    put_be16(buffer + OFF_EAPOL_LENGTH, bodyLength);
    trace("Add Eapol header success.\r\n");
    return kEapolHeaderLen;
}

size_t AddTeapHeader(uint8_t* buffer, uint8_t code, uint8_t identifier, uint16_t dataLength,
                     uint8_t eapType) {
    buffer[0] = code;
    buffer[1] = identifier;
    put_be16(buffer + 2, static_cast<uint16_t>(dataLength + kEapHeaderLen));
    buffer[4] = eapType;
    trace("Add Teap header success.\r\n");
    return kEapHeaderLen;
}

size_t AddWpsHeader(uint8_t* buffer, uint8_t opcode) {
    std::memcpy(buffer, flavour_vendor_id(), 3);
    put_be32(buffer + 3, VENDOR_TYPE_SIMPLE_CONFIG);
    buffer[7] = opcode;
    buffer[8] = 0;  // flags: we never fragment what we send
    trace("Add WPS header success.\r\n");
    return kWpsHeaderLen;
}

// ---- Checkers
// ------------------------------------------------------------------------------------

int32_t UnpackHeader(const uint8_t** frame, uint32_t frameLength) {
    const int32_t code = run_checks(kHeaderChecks, *frame, frameLength);
    if (code != 0) return code;
    // The flags are not examined: an LF frame's length field is read as message.
    *frame += kFrameHeaderLen;
    trace("Unpack header success.\r\n");
    return 0;
}

int32_t UnpackRequestIdentity(const uint8_t* frame, uint32_t frameLength) {
    for (const FrameCheck& check : kIdentityChecks) {
        if (!check.refuses(frame, frameLength)) continue;
        // The body-length line also shows the length it found.
        return fail_check(check.id,
                          static_cast<int>(frame_be16(frame, frameLength, OFF_EAPOL_LENGTH)));
    }
    trace("Unpack Request Identity success.\r\n");
    return 0;
}

int32_t UnpackRequestStart(const uint8_t* frame, uint32_t frameLength) {
    const int32_t code = run_checks(kStartChecks, frame, frameLength);
    if (code == 0) trace("Unpack request start success.\r\n");
    return code;
}

int32_t UnpackFailure(const uint8_t* frame, uint32_t frameLength) {
    const int32_t code = run_checks(kFailureChecks, frame, frameLength);
    if (code == 0) trace("Unpack failure message success.\r\n");
    return code;
}

// ---- Packers without a message
// -------------------------------------------------------------------

int32_t PackEapolStart(uint8_t* buffer, uint32_t* outLength) {
    *outLength = static_cast<uint32_t>(AddEapolHeader(buffer, EAPOL_TYPE_START, 0));
    trace("Pack EapolStart success.\r\n");
    return 0;
}

int32_t PackResponseIdentity(uint8_t* buffer, uint32_t* outLength) {
    const char* identity = is_wifi_flavour() ? IDENTITY_WIFI : IDENTITY_WAPI;
    const size_t n = is_wifi_flavour() ? kIdentityWifiLen : kIdentityWapiLen;
    AddEapolHeader(buffer, EAPOL_TYPE_EAP_PACKET, static_cast<uint16_t>(n + kEapHeaderLen));
    AddTeapHeader(buffer + kEapolHeaderLen, EAP_CODE_RESPONSE, g_EapIdentifier,
                  static_cast<uint16_t>(n), EAP_TYPE_IDENTITY);
    std::memcpy(buffer + kEapolHeaderLen + kEapHeaderLen, identity, n);
    *outLength = static_cast<uint32_t>(n + kEapolHeaderLen + kEapHeaderLen);
    trace("Pack Response Identity success.\r\n");
    return 0;
}

// ---- Message wrappers, sent side
// -----------------------------------------------------------------

int32_t PackM1(uint8_t* buffer, uint32_t* outLength) {
    trace("Start Pack M1.\r\n");
    if (!InitSession()) return -1;
    uint32_t messageLength = 0;
    if (!BuildMessageM1(buffer + kFrameHeaderLen, &messageLength) || messageLength > kMaxBodyLen)
        return -1;
    trace("msglen = %d.\r\n", static_cast<int>(messageLength));
    wrap_message(buffer, WSC_OP_MSG, messageLength, outLength);
    trace("Pack M1 success.\r\n");
    return 0;
}

int32_t PackM3(uint8_t* buffer, uint32_t* outLength) {
    trace("Start pack M3.\r\n");
    const int32_t code = pack_message(buffer, outLength, WSC_OP_MSG, BuildMessageM3);
    if (code == 0) trace("Pack M3 success.\r\n");
    return code;
}

int32_t PackM5(uint8_t* buffer, uint32_t* outLength) {
    trace("Start Pack M5.\r\n");
    const int32_t code = pack_message(buffer, outLength, WSC_OP_MSG, BuildMessageM5);
    if (code == 0) trace("Pack M5 success.\r\n");
    return code;
}

int32_t PackM7(uint8_t* buffer, uint32_t* outLength) {
    trace("Start Pack M7.\r\n");
    const int32_t code = pack_message(buffer, outLength, WSC_OP_MSG, BuildMessageM7);
    if (code == 0) trace("Pack M7 success.\r\n");
    return code;
}

int32_t PackDone(uint8_t* buffer, uint32_t* outLength) {
    trace("Start Pack Done message.\r\n");
    pack_message(buffer, outLength, WSC_OP_DONE, BuildMessageDone);
    trace("Pack Done message success.\r\n");
    return 0;
}

int32_t PackAck(uint8_t* buffer, uint32_t* outLength) {
    trace("Start Pack ACK message.\r\n");
    pack_message(buffer, outLength, WSC_OP_ACK, BuildMessageACK);
    trace("Pack ACK message success.\r\n");
    return 0;
}

int32_t PackNack(uint8_t* buffer, uint32_t* outLength, uint16_t configError) {
    trace("Start Pack NACK message.\r\n");
    uint32_t messageLength = 0;
    BuildMessageNACK(buffer + kFrameHeaderLen, &messageLength, configError);
    wrap_message(buffer, WSC_OP_NACK, messageLength, outLength);
    g_State_Machine = SEND_NACK_WAIT_FAILURE;
    trace("Pack NACK message success.\r\n");
    return 0;
}

// ---- Message wrappers, received side
// -------------------------------------------------------------

int32_t UnpackM2(const uint8_t* frame, uint32_t frameLength) {
    trace("Start Unpack M2.\r\n");
    const uint8_t* cursor = frame;
    trace("Unpack M2    p = %d.\r\n", static_cast<int>(reinterpret_cast<uintptr_t>(cursor)));
    const int32_t header = UnpackHeader(&cursor, frameLength);
    trace("Unpack M2    p = %d.\r\n", static_cast<int>(reinterpret_cast<uintptr_t>(cursor)));
    if (header != 0) return header;
    const int32_t code =
        UnpackMessageM2(body_of(frame, frameLength), stated_body_length(frameLength));
    if (code == 0) trace("Unpack M2 success.\r\n");
    return code;
}

int32_t UnpackM4(const uint8_t* frame, uint32_t frameLength) {
    trace("Start Unpack M4.\r\n");
    const int32_t code = unpack_message(frame, frameLength, UnpackMessageM4);
    if (code == 0) trace("Unpack M4 success.\r\n");
    return code;
}

int32_t UnpackM6(const uint8_t* frame, uint32_t frameLength) {
    trace("Start Unpack M6.\r\n");
    const int32_t code = unpack_message(frame, frameLength, UnpackMessageM6);
    if (code == 0) trace("Unpack M6 success.\r\n");
    return code;
}

int32_t UnpackM8(const uint8_t* frame, uint32_t frameLength) {
    trace("Start Unpack M8.\r\n");
    const int32_t code = unpack_message(frame, frameLength, UnpackMessageM8);
    if (code == 0) trace("Unpack M8 success.\r\n");
    return code;
}

int32_t UnpackM8Entire(const uint8_t* buffer, uint32_t length) {
    trace("Start Unpack M8 Entire.\r\n");
    // Intended: the collected payloads carry no headers, yet the parser is told 18 bytes less,
    // as registrars of this protocol expect. Every collected byte stays readable.
    const int32_t code =
        UnpackMessageM8(std::span<const uint8_t>(buffer, length), stated_body_length(length));
    if (code == 0) trace("Unpack M8 success.\r\n");
    return code;
}
