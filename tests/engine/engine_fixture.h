// Shared pieces of the engine tests: a context reset, the fixture and frame makers.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "api/context.h"
#include "common/reference.h"
#include "common/test_bytes.h"
#include "engine/engine.h"
#include "messages/messages.h"
#include "platform/platform.h"
#include "wapiwps.h"

namespace enginetest {

using Bytes = std::vector<uint8_t>;

constexpr uint8_t kPeer[6] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
constexpr uint8_t kLocal[16] = {0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB};
constexpr uint8_t kSentinel = 0xA5;

// Puts every field the engine reads or writes back to its load value.
inline void reset_context() {
    StopWPS();
    g_AddressMode = MAC_ADDRESS;
    g_EapIdentifier = 0;
    g_FragOffset = 0;
    g_FragTotalLength = 0;
    std::memset(g_FragBuffer, 0, sizeof g_FragBuffer);
    std::memset(g_PrevMsgBuf, 0, sizeof g_PrevMsgBuf);
    g_PrevMsgLen = 0;
}

class EngineTest : public ::testing::Test {
  protected:
    void SetUp() override {
        reset_context();
        out.assign(WAPIWPS_MAX_FRAME_LEN, kSentinel);
    }
    void TearDown() override {
        reset_context();
    }
    // Starts a run in the given modes; the EAPOL-Start output is discarded.
    void start(int32_t wpsMode, int32_t addressMode = WAPIWPS_ADDRESS_MAC) {
        const char* peer =
            addressMode == WAPIWPS_ADDRESS_MAC ? reinterpret_cast<const char*>(kPeer) : "10.0.0.1";
        Bytes start_frame(WAPIWPS_MAX_FRAME_LEN);
        uint32_t len = 0;
        ASSERT_EQ(1,
                  StartWPS(kLocal, addressMode, wpsMode, peer, nullptr, start_frame.data(), &len));
        log.lines.clear();
    }
    int32_t feed(const Bytes& frame) {
        out_len = 0xDEADBEEF;
        return ProcessReceivePacket(frame.data(), static_cast<uint32_t>(frame.size()), out.data(),
                                    &out_len);
    }
    // The answer without the prefix (MAC mode).
    Bytes answer() const {
        const size_t skip = g_AddressMode == MAC_ADDRESS ? kPrefixLen : 0;
        return Bytes(out.begin() + static_cast<long>(skip),
                     out.begin() + static_cast<long>(out_len));
    }

    ref::TraceCapture log;  // the trace lines of the test
    Bytes out;
    uint32_t out_len = 0;
};

// ---- Frame makers ------------------------------------------------------------------------------

struct Header {
    uint8_t eapolType = 0;
    uint8_t code = EAP_CODE_REQUEST;
    uint8_t id = 7;
    uint8_t eapType = EAP_TYPE_WAPI;
    std::array<uint8_t, 3> vendor{0x00, 0x81, 0xDB};
    uint32_t vendorType = 1;
    uint8_t opcode = WSC_OP_MSG;
    uint8_t flags = 0;
};

inline Header wifi_header() {
    Header h;
    h.eapType = EAP_TYPE_WIFI;
    h.vendor = {0x00, 0x37, 0x2A};
    return h;
}

// A message frame with correct big-endian lengths around `body`.
inline Bytes message_frame(const Header& h, const Bytes& body) {
    const uint16_t len = static_cast<uint16_t>(body.size() + 14);
    Bytes f = {2,
               h.eapolType,
               uint8_t(len >> 8),
               uint8_t(len),
               h.code,
               h.id,
               uint8_t(len >> 8),
               uint8_t(len),
               h.eapType,
               h.vendor[0],
               h.vendor[1],
               h.vendor[2],
               uint8_t(h.vendorType >> 24),
               uint8_t(h.vendorType >> 16),
               uint8_t(h.vendorType >> 8),
               uint8_t(h.vendorType),
               h.opcode,
               h.flags};
    testbytes::append(f, body);
    return f;
}

// Version and Message Type attributes, then `extra` filler bytes: enough for the dispatcher to
// route it and for any parser to refuse it.
inline Bytes routed_body(uint8_t messageType, size_t extra = 0, uint8_t fill = 0x5A) {
    Bytes b(10 + extra, fill);
    const uint8_t head[10] = {0x10, 0x4A, 0x00, 0x01, 0x10, 0x10, 0x22, 0x00, 0x01, messageType};
    std::memcpy(b.data(), head, sizeof head);
    return b;
}

// An M8 fragment as registrars of this protocol send it: the EAP length field holds, in the
// machine's order, the copy length + 9.
inline Bytes fragment_frame(uint8_t flags, const Bytes& payload, int32_t copyLength,
                            uint8_t id = 9) {
    Header h;
    h.flags = flags;
    h.id = id;
    Bytes f = message_frame(h, payload);
    const uint16_t field = static_cast<uint16_t>(copyLength + 9);
    f[OFF_EAP_LENGTH] = uint8_t(field);
    f[OFF_EAP_LENGTH + 1] = uint8_t(field >> 8);
    return f;
}

inline Bytes identity_request(uint8_t id = 7) {
    return {0x02, 0x00, 0x00, 0x05, 0x01, id, 0x00, 0x05, 0x01};
}
inline Bytes eap_failure(uint8_t id = 7) {
    return {0x02, 0x00, 0x00, 0x04, 0x04, id, 0x00, 0x04};
}
inline Bytes start_frame(const Header& h = Header{}) {
    Header s = h;
    s.opcode = WSC_OP_START;
    return message_frame(s, {});
}

using testbytes::hex;

}  // namespace enginetest
