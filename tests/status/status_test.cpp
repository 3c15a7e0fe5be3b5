// What a host can tell its user from WapiWps_GetStatus alone, after whole exchanges against the
// reference registrar misbehaving one way at a time: a wrong PIN, a registrar that refused, one
// that is not ready (M2D), a frame that was not ours, a chip that did not sign.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "api/context.h"
#include "common/check_codes.h"
#include "common/exchange.h"
#include "wapiwps.h"

namespace {

using K = registrar::Fault::Kind;

constexpr int32_t kPsk = WAPIWPS_MODE_WAPI_PSK;
constexpr int32_t kCert = WAPIWPS_MODE_WAPI_CERT;
constexpr int32_t kWifi = WAPIWPS_MODE_WIFI;

WapiWpsStatus read_status() {
    WapiWpsStatus s;
    std::memset(&s, 0xA5, sizeof s);
    s.size = sizeof s;
    EXPECT_EQ(0, WapiWps_GetStatus(&s));
    EXPECT_EQ(s.size, sizeof s) << "the host's size stays";
    return s;
}

struct StatusCase {
    const char* name;
    int32_t wps_mode;
    registrar::Fault fault;
    bool chip_fails;  // the run claims the secure chip, but no service client exists
    int32_t last_result;
    uint32_t outcome;
    uint32_t reason;
    uint32_t message;
    int32_t code;
    int32_t config_error;
    const char* detail;
};

class StatusExchange : public testing::TestWithParam<StatusCase> {};

TEST_P(StatusExchange, TheOutcomeSaysWhyTheRunEnded) {
    const StatusCase& c = GetParam();
    exchange::Options o = c.wps_mode == kCert ? exchange::cert_run(1) : exchange::psk_run();
    o.wps_mode = c.wps_mode;
    o.registrar.fault = c.fault;
    o.registrar.hex_network_key = c.fault.kind == K::HexKeyBadCharacter;
    if (c.chip_fails) o.after_start = [] { g_IsDoSecureChip = 1; };
    const exchange::Transcript t = exchange::run(o);
    ASSERT_FALSE(t.registrar_refused) << t.registrar_error;
    EXPECT_EQ(t.last_result(), c.last_result);

    const WapiWpsStatus s = read_status();
    EXPECT_EQ(s.state, uint32_t{WAPIWPS_WAIT_START});
    EXPECT_EQ(s.wpsMode, 0);
    EXPECT_EQ(s.lastResult, c.last_result);
    EXPECT_EQ(s.lastCode, 0);
    EXPECT_EQ(s.outcome, c.outcome);
    EXPECT_EQ(s.reason, c.reason);
    EXPECT_EQ(s.message, c.message);
    EXPECT_EQ(s.code, c.code);
    EXPECT_EQ(s.configError, c.config_error);
    EXPECT_STREQ(s.detail, c.detail);
    if (c.code != 0) {
        // The detail is the trace line the library wrote, the registrar read NACK 18, and the
        // code has a row and a text.
        EXPECT_EQ(t.nack_error(), 18);
        EXPECT_TRUE(t.has_trace(std::string(c.detail) + "\r\n")) << c.detail;
        ASSERT_NE(find_check_code(c.code), nullptr);
        EXPECT_STREQ(WapiWps_ResultText(c.code), find_check_code(c.code)->text);
    }
    const bool m2d = c.outcome == WAPIWPS_OUTCOME_M2D;
    EXPECT_STREQ(s.manufacturer, m2d ? "wapiwps" : "");
    EXPECT_STREQ(s.modelName, m2d ? "reference registrar" : "");
    EXPECT_STREQ(s.deviceName, m2d ? "registrar" : "");
}

constexpr int32_t kOk = WAPIWPS_RESULT_SUCCESS;
constexpr int32_t kEnd = WAPIWPS_RESULT_ENDED;
constexpr uint32_t kCred = WAPIWPS_OUTCOME_CREDENTIAL;
constexpr uint32_t kRefused = WAPIWPS_OUTCOME_REFUSED;
constexpr uint32_t kNack = WAPIWPS_OUTCOME_NACK;

// clang-format off
const StatusCase kCases[] = {
    // name                 mode   fault                                     chip   result outcome  reason                          msg   code  cfg  detail
    {"SuccessCert",         kCert, {},                                       false, kOk,  kCred,    WAPIWPS_REASON_NONE,            0,    0,    -1, ""},
    {"WifiSettingsUnsealed",kWifi, {},                                       false, kEnd, kRefused, WAPIWPS_REASON_SETTINGS,        0x08, -51,  -1, "Unpack M4 error, error code is -51."},
    {"WrongPin",            kCert, {K::WrongPin, 0, 0, 0},                   false, kEnd, kRefused, WAPIWPS_REASON_WRONG_PASSWORD,  0x08, -52,  -1, "Unpack M4 error, error code is -52."},
    {"WrongPinSecondHalf",  kPsk,  {K::WrongPin, 0, 0, 1},                   false, kEnd, kRefused, WAPIWPS_REASON_WRONG_PASSWORD,  0x0A, -60,  -1, "Unpack M6 error, error code is -60."},
    {"RegistrarNackAfterM5",kPsk,  {K::SendNack, 0x0A, 0, 18},               false, kEnd, kNack,    WAPIWPS_REASON_WRONG_PASSWORD,  0x09, 0,    18, ""},
    {"RegistrarNackAfterM1",kWifi, {K::SendNack, 0x05, 0, 12},               false, kEnd, kNack,    WAPIWPS_REASON_NONE,            0x04, 0,    12, ""},
    {"RegistrarNotReady",   kCert, {K::SendM2D, 0x05, 0, 15},                false, kEnd, WAPIWPS_OUTCOME_M2D, WAPIWPS_REASON_NONE, 0x06, 0,   15, ""},
    {"KeyAgreement",        kCert, {K::CorruptAttribute, 0x05, 0x1032, 0},   false, kEnd, kRefused, WAPIWPS_REASON_KEY_AGREEMENT,   0x05, -21,  -1, "Unpack M2 error, ComputerExchangeKey error code is -21."},
    {"M2Authenticator",     kPsk,  {K::BadAuthenticator, 0x05, 0, 0},        false, kEnd, kRefused, WAPIWPS_REASON_AUTHENTICATOR,   0x05, -21,  -1, "Unpack M2 error, error code is -21."},
    {"M6Authenticator",     kCert, {K::BadAuthenticator, 0x0A, 0, 0},        false, kEnd, kRefused, WAPIWPS_REASON_AUTHENTICATOR,   0x0A, -54,  -1, "Unpack M6 error, error code is -54."},
    {"Attribute",           kWifi, {K::OversizeAttribute, 0x05, 0x1021, 0},  false, kEnd, kRefused, WAPIWPS_REASON_ATTRIBUTE,       0x05, -30,  -1, "Unpack M2 error, error code is -30."},
    {"CertificateMode",     kCert, {K::CertificateModeValue, 0x05, 0, 3},    false, kEnd, kRefused, WAPIWPS_REASON_ATTRIBUTE,       0x05, -42,  -1, "Unpack M2 error, error code is -42 ex."},
    {"M4Settings",          kPsk,  {K::BadKeyWrapAuth, 0x08, 0, 0},          false, kEnd, kRefused, WAPIWPS_REASON_SETTINGS,        0x08, -51,  -1, "Unpack M4 error, error code is -51."},
    {"M8Padding",           kCert, {K::BadPaddingString, 0x0C, 0, 0},        false, kEnd, kRefused, WAPIWPS_REASON_SETTINGS,        0x0C, -59,  -1, "pad string is error."},
    {"M8MacAddress",        kPsk,  {K::WrongMacAddress, 0x0C, 0, 0},         false, kEnd, kRefused, WAPIWPS_REASON_CREDENTIAL,      0x0C, -69,  -1, "Unpack M8 error, error code is -69."},
    {"M8HexKey",            kPsk,  {K::HexKeyBadCharacter, 0x0C, 0, 0},      false, kEnd, kRefused, WAPIWPS_REASON_CREDENTIAL,      0x0C, -70,  -1, "HexKey is not correct."},
    {"ChipDidNotSign",      kCert, {},                                       true,  kEnd, kRefused, WAPIWPS_REASON_SECURE_CHIP,     0x0B, -100, -1, "PackM7 failed."},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Runs, StatusExchange, testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

// A frame of another flavour in the middle of a run: dropped with nothing to send, reported as
// not ours, and the run goes on to its credential. StartWPS then clears the outcome.
TEST(StatusFrames, AForeignFrameIsNotOursAndTheRunGoesOn) {
    exchange::Options o = exchange::psk_run();
    WapiWpsStatus during{};
    int32_t foreign_result = 0;
    uint32_t foreign_len = 1;
    o.before_registrar = [&](registrar::Registrar&, const exchange::Bytes&, size_t index) {
        if (index != 2) return;  // M1 is on its way: the run waits for M2
        // A Wi-Fi flavour Start (EAP type 254, vendor 00:37:2A).
        const uint8_t wifi_start[] = {0x02, 0x00, 0x00, 0x0E, 0x01, 0x09, 0x00, 0x0E, 0xFE,
                                      0x00, 0x37, 0x2A, 0x00, 0x00, 0x00, 0x01, 0x01, 0x00};
        uint8_t out[WAPIWPS_MAX_FRAME_LEN];
        foreign_result = ProcessReceivePacket(wifi_start, sizeof wifi_start, out, &foreign_len);
        during = read_status();
    };
    const exchange::Transcript t = exchange::run(o);
    EXPECT_EQ(t.last_result(), WAPIWPS_RESULT_SUCCESS);
    EXPECT_EQ(foreign_result, WAPIWPS_RESULT_DROPPED);
    EXPECT_EQ(foreign_len, 0u);
    EXPECT_EQ(during.state, uint32_t{WAPIWPS_WAIT_M2});
    EXPECT_EQ(during.wpsMode, kPsk);
    EXPECT_EQ(during.lastResult, WAPIWPS_RESULT_DROPPED);
    EXPECT_EQ(during.lastCode, -100);
    EXPECT_EQ(during.lastReason, uint32_t{WAPIWPS_REASON_NOT_OURS});
    EXPECT_EQ(during.outcome, uint32_t{WAPIWPS_OUTCOME_RUNNING});
    EXPECT_EQ(read_status().outcome, uint32_t{WAPIWPS_OUTCOME_CREDENTIAL});

    // Any frame after the run: no run, nothing written.
    uint8_t out[16];
    uint32_t len = 7;
    EXPECT_EQ(WAPIWPS_RESULT_DROPPED, ProcessReceivePacket(out, 0, out, &len));
    EXPECT_EQ(len, 7u);
    EXPECT_EQ(read_status().lastReason, uint32_t{WAPIWPS_REASON_NO_RUN});

    const uint8_t mac[6] = {2, 0, 0, 0, 0, 1};
    ASSERT_EQ(1, StartWPS(mac, WAPIWPS_ADDRESS_MAC, kCert, mac, nullptr, out, &len));
    const uint8_t long_identity[] = {0x02, 0x00, 0x00, 0x05, 0x01, 0x01, 0x00, 0x05, 0x01, 0x00};
    uint8_t answer[WAPIWPS_MAX_FRAME_LEN];
    EXPECT_EQ(WAPIWPS_CHECKER_BASE - 1,
              ProcessReceivePacket(long_identity, sizeof long_identity, answer, &len));
    EXPECT_EQ(len, 0u);
    const WapiWpsStatus restarted = read_status();
    EXPECT_EQ(restarted.outcome, uint32_t{WAPIWPS_OUTCOME_RUNNING});
    EXPECT_EQ(restarted.lastCode, -1);
    EXPECT_EQ(restarted.lastReason, uint32_t{WAPIWPS_REASON_MALFORMED_FRAME});
    EXPECT_EQ(restarted.code, 0);
    StopWPS();
    EXPECT_EQ(read_status().outcome, uint32_t{WAPIWPS_OUTCOME_STOPPED});
}

TEST(StatusFrames, SizeAndNullAreChecked) {
    EXPECT_EQ(-1, WapiWps_GetStatus(nullptr));
    WapiWpsStatus s{};
    s.size = sizeof s - 1;
    EXPECT_EQ(-1, WapiWps_GetStatus(&s));
}

// Every result and check code has a sentence; the checker form reads the same as the plain code;
// a shared code reads as its first row, which names each meaning.
TEST(ResultText, EveryCodeOfTheTableHasItsSentence) {
    for (const CheckRow& row : kCheckRows) {
        const CheckRow* first = find_check_code(row.code);
        ASSERT_NE(first, nullptr);
        EXPECT_STREQ(WapiWps_ResultText(row.code), first->text);
        if (row.code < 0) {
            EXPECT_STREQ(WapiWps_ResultText(WAPIWPS_CHECKER_BASE + row.code), first->text);
        }
    }
    EXPECT_STREQ(WapiWps_ResultText(65522), check_row(CheckId::StartWapiVendor).text);
    EXPECT_STREQ(WapiWps_ResultText(-71), "Unknown result code.");
    EXPECT_STREQ(WapiWps_ResultText(WAPIWPS_CHECKER_BASE), "Unknown result code.");
    EXPECT_STREQ(WapiWps_ResultText(3), "Unknown result code.");
}

}  // namespace
