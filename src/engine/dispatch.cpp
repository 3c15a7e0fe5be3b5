// The receive dispatcher: classifies one received frame, checks it against the protocol state,
// has it checked and parsed, builds the answer in the host's buffer and collects a fragmented M8.
#include <cstring>

#include "api/context.h"
#include "common/check_codes.h"
#include "engine/engine.h"
#include "engine/frame_bytes.h"
#include "engine/run_status.h"
#include "messages/messages.h"
#include "platform/platform.h"
#include "wapiwps.h"

namespace {

constexpr int32_t kResultAccepted = WAPIWPS_RESULT_ACCEPTED;
constexpr int32_t kResultM8Done = WAPIWPS_RESULT_M8_DONE;
constexpr int32_t kResultSuccess = WAPIWPS_RESULT_SUCCESS;
constexpr int32_t kResultEnded = WAPIWPS_RESULT_ENDED;
constexpr int32_t kResultDropped = WAPIWPS_RESULT_DROPPED;
constexpr uint16_t kNackForRegistrarNack = 0;
constexpr size_t kMsgTypeOffsetInPayload = 9;  // Version attribute (5 bytes), then Message Type
constexpr size_t kLengthFieldLen = 2;
constexpr size_t kMacAddressLen = 6;

// The frame being handled and where its answer goes.
struct Received {
    const uint8_t* frame;
    uint32_t length;
    uint8_t identifier;
    uint8_t* answer;  // after the prefix in MAC_ADDRESS mode
    uint32_t* outLength;
};

// Checkers report a negative code; the host sees its 16-bit pattern, zero-extended. Only the low
// 16 bits decide whether the frame was refused.
int32_t checker_result(int32_t code) {
    return static_cast<uint16_t>(code);
}

// An answer has been built at rx.answer: count the prefix in front of it.
int32_t answered(const Received& rx, int32_t result) {
    if (g_AddressMode == MAC_ADDRESS) *rx.outLength += kPrefixLen;
    return result;
}

int32_t answer_nack(const Received& rx, uint16_t configError) {
    PackNack(rx.answer, rx.outLength, configError);
    return answered(rx, kResultAccepted);
}

// Drops the frame for the reason of `id`, tracing that row's line (some rows trace nothing).
int32_t drop(CheckId id) {
    fail_check(id);
    return kResultDropped;
}

// The message body after the headers (and the length field of an LF frame), as far as it exists.
std::span<const uint8_t> body_of(const Received& rx, size_t payloadOffset) {
    if (payloadOffset >= rx.length) return {};
    return {rx.frame + payloadOffset, rx.length - payloadOffset};
}

// We refused the registrar's message: NACK 18, and the status says which check refused it.
int32_t refuse_message(const Received& rx, uint8_t messageType) {
    run_status_refused(messageType);
    return answer_nack(rx, CONFIG_ERROR_MESSAGE_REFUSED);
}

// ---- EAP-Failure, Identity, Start ---------------------------------------------------------------

int32_t on_failure(const Received& rx) {
    trace("EAP_CODE_FAILURE.\r\n");
    const bool after_done = g_State_Machine == WAIT_REQUEST_FAILURE;
    const bool after_refusal =
        g_State_Machine == SEND_NACK_WAIT_FAILURE || g_State_Machine == SEND_ACK_WAIT_FAILURE;
    if (!after_done && !after_refusal) return drop(CheckId::DropOutOfOrder);
    g_EapIdentifier = rx.identifier;
    const int32_t refused = checker_result(UnpackFailure(rx.frame, rx.length));
    if (refused != 0) return refused;
    if (after_done)
        trace("Receive Teap failure message when WAIT_REQUEST_FAILURE.\r\n");
    else
        trace("Receive Teap failure message when SEND_NACK_WAIT_FAILURE.\r\n");
    g_State_Machine = WAIT_START;
    StopWPS();
    return after_done ? kResultSuccess : kResultEnded;
}

int32_t on_identity(const Received& rx) {
    trace("EAP_TYPE_IDENTITY.\r\n");
    if (g_State_Machine != WAIT_REQUEST_IDENTITY) return drop(CheckId::DropOutOfOrder);
    g_EapIdentifier = rx.identifier;
    const int32_t refused = checker_result(UnpackRequestIdentity(rx.frame, rx.length));
    if (refused != 0) return refused;
    PackResponseIdentity(rx.answer, rx.outLength);
    g_State_Machine = WAIT_WPS_START;
    return answered(rx, kResultAccepted);
}

int32_t on_start(const Received& rx) {
    trace("WPS Start.\r\n");
    if (g_State_Machine != WAIT_WPS_START) return drop(CheckId::DropOutOfOrderStart);
    g_EapIdentifier = rx.identifier;
    const int32_t refused = checker_result(UnpackRequestStart(rx.frame, rx.length));
    if (refused != 0) return refused;
    if (PackM1(rx.answer, rx.outLength) != 0) return drop(CheckId::DropM1NotBuilt);
    g_State_Machine = WAIT_M2;
    return answered(rx, kResultAccepted);
}

// ---- M2, M4, M6: parse, answer with the next message or a NACK -------------------------------

using FrameParser = int32_t (*)(const uint8_t* frame, uint32_t frameLength);
using FramePacker = int32_t (*)(uint8_t* buffer, uint32_t* outLength);

int32_t on_message(const Received& rx, uint8_t messageType, uint32_t expectedState,
                   FrameParser unpack, FramePacker pack, uint32_t nextState) {
    if (g_State_Machine != expectedState) return drop(CheckId::DropOutOfOrderMessage);
    g_EapIdentifier = rx.identifier;
    if (checker_result(unpack(rx.frame, rx.length)) != 0) return refuse_message(rx, messageType);
    // Only M7 can fail to build (the signature); the run then ends as after a refused message.
    if (pack(rx.answer, rx.outLength) != 0) {
        if (pack == PackM7) {
            fail_check(CheckId::DropM7NotBuilt);
            return refuse_message(rx, WPS_MSG_TYPE_M7);
        }
        return answer_nack(rx, CONFIG_ERROR_MESSAGE_REFUSED);
    }
    g_State_Machine = nextState;
    return answered(rx, kResultAccepted);
}

// ---- M8 and its reassembly ---------------------------------------------------------------------

// Appends one fragment's payload. The copy length comes from the EAP length field read in host
// order (see ProcessReceivePacket). Our own bound, which the protocol does not define: a payload
// that is negative, runs past the received frame or past the 4096-byte buffer is refused whole.
bool append_fragment(const Received& rx, size_t payloadOffset, int32_t payloadLength) {
    if (payloadLength < 0) return false;
    const size_t n = static_cast<size_t>(payloadLength);
    if (payloadOffset > rx.length || n > rx.length - payloadOffset) return false;
    if (n > kMsgBufLen - g_FragOffset) return false;
    if (n != 0) std::memcpy(g_FragBuffer + g_FragOffset, rx.frame + payloadOffset, n);
    g_FragOffset = static_cast<uint16_t>(g_FragOffset + n);
    return true;
}

// A fragment that does not fit ends the collection: NACK 18 and an empty buffer. This reset is
// ours; in a normal run g_FragOffset is never reset.
int32_t refuse_fragment(const Received& rx) {
    fail_check(CheckId::DropFragmentBounds);
    g_FragState = NO_FRAG;
    g_FragOffset = 0;
    return refuse_message(rx, WPS_MSG_TYPE_M8);
}

int32_t accept_m8(const Received& rx) {
    run_status_credential();
    PackDone(rx.answer, rx.outLength);
    g_State_Machine = WAIT_REQUEST_FAILURE;
    return answered(rx, kResultM8Done);
}

int32_t on_m8(const Received& rx, size_t payloadOffset, int32_t payloadLength) {
    if (g_State_Machine != WAIT_M8) return drop(CheckId::DropOutOfOrderMessage);
    g_EapIdentifier = rx.identifier;
    if (g_FragState == DO_FRAG) {
        if (!append_fragment(rx, payloadOffset, payloadLength)) return refuse_fragment(rx);
        PackAck(rx.answer, rx.outLength);
        answered(rx, kResultDropped);
        trace("DO_FRAG.\r\n");
        return kResultDropped;  // with the ACK in the buffer
    }
    if (g_FragState == END_FRAG) {
        if (!append_fragment(rx, payloadOffset, payloadLength)) return refuse_fragment(rx);
        if (checker_result(UnpackM8Entire(g_FragBuffer, g_FragOffset)) != 0)
            return refuse_message(rx, WPS_MSG_TYPE_M8);
        const int32_t result = accept_m8(rx);
        trace("END_FRAG.\r\n");
        return result;
    }
    trace("UnpackLen = %d.\r\n", static_cast<int>(rx.length));
    if (checker_result(UnpackM8(rx.frame, rx.length)) != 0)
        return refuse_message(rx, WPS_MSG_TYPE_M8);
    return accept_m8(rx);
}

// ---- Messages with an op-code other than Start -------------------------------------------------

// Fragmentation flags move the reassembly state before the message type is even looked at.
void note_fragment_flags(uint8_t flags) {
    if ((flags & WSC_FLAG_MF) != 0 && g_FragState == NO_FRAG) {
        trace("MF  NO_FRAG.\r\n");
        std::memset(g_FragBuffer, 0, sizeof g_FragBuffer);
        g_FragState = DO_FRAG;
    } else if ((flags & WSC_FLAG_MF) == 0 && g_FragState == DO_FRAG) {
        trace("no MF NO_FRAG.\r\n");
        g_FragState = END_FRAG;
    }
}

int32_t on_wps_message(const Received& rx, int32_t payloadLength) {
    const uint8_t flags = frame_byte(rx.frame, rx.length, OFF_FLAGS);
    note_fragment_flags(flags);
    size_t payloadOffset = OFF_MESSAGE;
    if ((flags & WSC_FLAG_LF) != 0) {
        trace("LF NO_FRAG.\r\n");
        g_FragTotalLength = frame_host16(rx.frame, rx.length, payloadOffset);  // as it stands
        payloadOffset += kLengthFieldLen;
        payloadLength -= static_cast<int32_t>(kLengthFieldLen);
    }
    // Every frame, continuation fragments included, is routed by byte 9 of its own payload.
    const uint8_t messageType =
        frame_byte(rx.frame, rx.length, payloadOffset + kMsgTypeOffsetInPayload);
    switch (messageType) {
        case WPS_MSG_TYPE_M2:
            trace("WPS_MSG_TYPE_M2.\r\n");
            return on_message(rx, messageType, WAIT_M2, UnpackM2, PackM3, WAIT_M4);
        case WPS_MSG_TYPE_M2D:
            trace("WPS_MSG_TYPE_M2D.\r\n");
            g_EapIdentifier = rx.identifier;
            run_status_m2d(body_of(rx, payloadOffset));
            PackAck(rx.answer, rx.outLength);
            g_State_Machine = SEND_ACK_WAIT_FAILURE;
            return answered(rx, kResultAccepted);
        case WPS_MSG_TYPE_M4:
            trace("WPS_MSG_TYPE_M4.\r\n");
            return on_message(rx, messageType, WAIT_M4, UnpackM4, PackM5, WAIT_M6);
        case WPS_MSG_TYPE_M6:
            trace("WPS_MSG_TYPE_M6.\r\n");
            return on_message(rx, messageType, WAIT_M6, UnpackM6, PackM7, WAIT_M8);
        case WPS_MSG_TYPE_M8:
            return on_m8(rx, payloadOffset, payloadLength);
        case WACA_MSG_TYPE_NACK:
            trace("WACA_MSG_TYPE_NACK.\r\n");
            g_EapIdentifier = rx.identifier;
            run_status_registrar_nack(body_of(rx, payloadOffset));
            return answer_nack(rx, kNackForRegistrarNack);
        default:
            return drop(CheckId::DropNotOurMessage);
    }
}

}  // namespace

namespace {

int32_t dispatch(const uint8_t* frame, uint32_t frameLen, uint8_t* outFrame, uint32_t* outLen) {
    // Without a run nothing is written at all, not even the output length.
    if (g_WPS_mode == NO_WPS) return drop(CheckId::DropNoRun);
    // Our choice: missing host pointers refuse the frame before anything is written.
    if (frame == nullptr || outFrame == nullptr || outLen == nullptr)
        return drop(CheckId::DropNoBuffer);
    // Our choice: a frame that is examined and not answered leaves a zero length, so that the
    // host sends exactly when the length is non-zero. Every answer sets it again.
    *outLen = 0;
    Received rx{frame, frameLen, frame_byte(frame, frameLen, OFF_EAP_ID), outFrame, outLen};
    // The prefix goes out before the frame is examined, whatever happens to it.
    if (g_AddressMode == MAC_ADDRESS) {
        std::memcpy(outFrame, PeerAddress, kMacAddressLen);
        std::memcpy(outFrame + kMacAddressLen, PrefixType, sizeof PrefixType);
        rx.answer = outFrame + kPrefixLen;
    }
    trace("Start Process Packet.\r\n");

    if (frame_byte(frame, frameLen, OFF_EAP_CODE) == EAP_CODE_FAILURE) return on_failure(rx);
    const uint8_t eapType = frame_byte(frame, frameLen, OFF_EAP_TYPE);
    if (eapType == EAP_TYPE_IDENTITY) return on_identity(rx);

    const bool is_request = frame_byte(frame, frameLen, OFF_EAP_CODE) == EAP_CODE_REQUEST;
    if (is_wifi_flavour()) {
        trace("WIFI WPS mode.\r\n");
        if (!is_request || eapType != EAP_TYPE_WIFI) return drop(CheckId::DropNotOurFlavour);
    } else {
        trace("WAPI WPS mode.\r\n");
        if (!is_request || eapType != EAP_TYPE_WAPI) return drop(CheckId::DropNotOurFlavour);
    }

    // Read in host byte order on purpose: registrars of this protocol size their fragments for
    // exactly this copy length. Used only as the copy length of M8 fragments.
    const int32_t payloadLength = int32_t{frame_host16(frame, frameLen, OFF_EAP_LENGTH)} -
                                  static_cast<int32_t>(kWpsHeaderLen);

    if (frame_byte(frame, frameLen, OFF_OPCODE) == WSC_OP_START) return on_start(rx);
    return on_wps_message(rx, payloadLength);
}

}  // namespace

int32_t ProcessReceivePacket(const uint8_t* frame, uint32_t frameLen, uint8_t* outFrame,
                             uint32_t* outLen) {
    clear_failed_check();
    const int32_t result = dispatch(frame, frameLen, outFrame, outLen);
    run_status_frame(result);
    return result;
}
