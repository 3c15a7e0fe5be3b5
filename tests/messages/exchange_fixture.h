// Runs the enrollee's side up to a chosen message against the test-side registrar.
#pragma once

#include <gtest/gtest.h>

#include "registrar_side.h"

namespace msgtest {

class Exchange : public ::testing::Test {
protected:
    Registrar reg;
    Bytes m1, m3, m5;

    void start(uint32_t wps_mode = WAPI_WPS_PSK, const char* pin = "12345670") {
        set_device_info(wps_mode, MAC_ADDRESS, pin);
        g_PeerCertFlag = 0;
        CertificateMode = 0;
        ASSERT_TRUE(InitSession());
        m1 = build(BuildMessageM1);
        reg.make_keys_and_derive();
    }
    static Bytes build(bool (*builder)(uint8_t*, uint32_t*)) {
        std::vector<uint8_t> out(kMaxBodyLen, 0xEE);
        uint32_t len = 0;
        EXPECT_TRUE(builder(out.data(), &len));
        EXPECT_LE(len, kMaxBodyLen);
        return head(out, len);
    }
    Bytes valid_m2() const { return reg.authenticated(encode(reg.m2_attrs())); }
    Bytes valid_m4() const { return reg.authenticated(encode(reg.m4_attrs(reg.m4_settings()))); }
    Bytes valid_m6() const { return reg.authenticated(encode(reg.m6_attrs(reg.m6_settings()))); }
    static int32_t m2(const Bytes& b) { return UnpackMessageM2(b, static_cast<int32_t>(b.size())); }
    static int32_t m4(const Bytes& b) { return UnpackMessageM4(b, static_cast<int32_t>(b.size())); }
    static int32_t m6(const Bytes& b) { return UnpackMessageM6(b, static_cast<int32_t>(b.size())); }

    // A parser's verdict on `body`: `code` with its failure line (`line`, or the usual one) and
    // the previous message kept, or 0 with `body` the new previous message.
    static void expect_verdict(const char* message, int32_t (*parse)(const Bytes&), const Bytes& body,
                               int32_t code, const char* line) {
        const Bytes prev = bytes_of(g_PrevMsgBuf, g_PrevMsgLen);
        TraceCapture trace;
        EXPECT_EQ(parse(body), code);
        if (code == 0) {
            EXPECT_EQ(bytes_of(g_PrevMsgBuf, g_PrevMsgLen), body);
            return;
        }
        const std::string want = line != nullptr ? line
                                                 : std::string("Unpack ") + message + " error, error code is " +
                                                       std::to_string(code) + ".\r\n";
        EXPECT_TRUE(trace.has(want)) << want;
        EXPECT_EQ(bytes_of(g_PrevMsgBuf, g_PrevMsgLen), prev) << "the previous message stays";
    }

    void through_m3(uint32_t wps_mode = WAPI_WPS_PSK, const char* pin = "12345670") {
        start(wps_mode, pin);
        ASSERT_EQ(m2(valid_m2()), 0);
        m3 = build(BuildMessageM3);
    }
    void through_m5(uint32_t wps_mode = WAPI_WPS_PSK) {
        through_m3(wps_mode);
        ASSERT_EQ(m4(valid_m4()), 0);
        m5 = build(BuildMessageM5);
    }
};

}  // namespace msgtest
