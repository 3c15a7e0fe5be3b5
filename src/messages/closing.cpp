// Done, ACK and NACK: the closing messages. They carry the two nonces and no Authenticator, and
// leave g_PrevMsgBuf alone.
#include "api/context.h"
#include "common/bytes.h"
#include "messages/messages.h"
#include "platform/platform.h"

namespace {

constexpr size_t kClosingBodyLen = (kTlvHeaderLen + 1) * 2 + (kTlvHeaderLen + kNonceLen) * 2;
constexpr size_t kNackBodyLen = kClosingBodyLen + kTlvHeaderLen + 2;
static_assert(kClosingBodyLen == 50 && kNackBodyLen == 56);
static_assert(kNackBodyLen <= kMaxBodyLen);

// Version, Message Type, Enrollee Nonce, Registrar Nonce: the common head of all three bodies.
uint8_t* add_closing_head(uint8_t* out, uint8_t messageType) {
    uint8_t* cursor = out;
    const uint8_t version = WPS_VERSION;
    AddTlv(&cursor, ATTR_VERSION, &version, 1);
    AddTlv(&cursor, ATTR_MSG_TYPE, &messageType, 1);
    AddTlv(&cursor, ATTR_ENROLLEE_NONCE, g_EnrolleeKeys.Nonce, kNonceLen);
    AddTlv(&cursor, ATTR_REGISTRAR_NONCE, g_RegistrarKeys.Nonce, kNonceLen);
    return cursor;
}

}  // namespace

bool BuildMessageDone(uint8_t* out, uint32_t* outLength) {
    trace("Build message Done.\r\n");
    const uint8_t* end = add_closing_head(out, WPS_MSG_TYPE_DONE);
    *outLength = static_cast<uint32_t>(end - out);
    trace("Build message Done success.\r\n");
    return true;
}

bool BuildMessageACK(uint8_t* out, uint32_t* outLength) {
    trace("Build message ACK.\r\n");
    const uint8_t* end = add_closing_head(out, WPS_MSG_TYPE_ACK);
    *outLength = static_cast<uint32_t>(end - out);
    trace("Build message ACK success.\r\n");
    return true;
}

bool BuildMessageNACK(uint8_t* out, uint32_t* outLength, uint16_t configError) {
    trace("Build message NACK.\r\n");
    uint8_t* cursor = add_closing_head(out, WACA_MSG_TYPE_NACK);
    // Intended: the error goes out in host (little-endian) order, unlike every other number,
    // because registrars of this protocol read exactly these bytes.
    uint8_t error[2];
    put_host16(error, configError);
    AddTlv(&cursor, ATTR_CONFIG_ERROR, error, sizeof error);
    *outLength = static_cast<uint32_t>(cursor - out);
    trace("Build message NACK success.\r\n");
    return true;
}
