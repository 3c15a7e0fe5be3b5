// The dispatcher's state machine as one table: every state (1-10) against every kind of frame,
// with the result, the kind of answer written and the state after.
//
// Message frames here are structurally valid for the dispatcher (Version and Message Type
// attributes) but carry no valid Authenticator: in its waiting state the parser refuses them, so
// the table records NACK 18 and state 9 there. The accepted M2/M4/M6/M8 transitions need real
// cryptography and are walked against the reference registrar in tests/exchange/psk_run_test.cpp.
#include <map>
#include <sstream>

#include "engine_fixture.h"

namespace {

using enginetest::Bytes;
using enginetest::Header;
using enginetest::message_frame;
using enginetest::routed_body;

// A cell: "result answer next-state", or "-" for a drop (result -100, nothing written, state
// unchanged). A checker's refusal comes back as its code's 16-bit pattern (65430 is -106). Answers: Id (Response/Identity), M1, Ack, Nack18, Nack0 (Configuration Error on the
// wire, little-endian), none.
struct Row {
    const char* frame;
    const char* cells[10];  // states 1 to 10
};

// clang-format off
const Row kMatrix[] = {
    //                 1      2              3             4              5              6              7                8               9               10
    {"Identity",      {"-",   "0 Id 3",      "-",          "-",           "-",           "-",           "-",             "-",            "-",            "-"}},
    {"Start",         {"-",   "-",           "0 M1 4",     "-",           "-",           "-",           "-",             "-",            "-",            "-"}},
    {"M2",            {"-",   "-",           "-",          "0 Nack18 9",  "-",           "-",           "-",             "-",            "-",            "-"}},
    {"M2D",           {"0 Ack 10", "0 Ack 10", "0 Ack 10", "0 Ack 10",    "0 Ack 10",    "0 Ack 10",    "0 Ack 10",      "0 Ack 10",     "0 Ack 10",     "0 Ack 10"}},
    {"M4",            {"-",   "-",           "-",          "-",           "0 Nack18 9",  "-",           "-",             "-",            "-",            "-"}},
    {"M6",            {"-",   "-",           "-",          "-",           "-",           "0 Nack18 9",  "-",             "-",            "-",            "-"}},
    {"M8 whole",      {"-",   "-",           "-",          "-",           "-",           "-",           "0 Nack18 9",    "-",            "-",            "-"}},
    {"M8 first",      {"-",   "-",           "-",          "-",           "-",           "-",           "-100 Ack 7",    "-",            "-",            "-"}},
    {"M8 middle",     {"-",   "-",           "-",          "-",           "-",           "-",           "-100 Ack 7",    "-",            "-",            "-"}},
    {"M8 last",       {"-",   "-",           "-",          "-",           "-",           "-",           "0 Nack18 9",    "-",            "-",            "-"}},
    {"Other type",    {"-",   "-",           "-",          "-",           "-",           "-",           "-",             "-",            "-",            "-"}},
    {"Registrar NACK",{"0 Nack0 9", "0 Nack0 9", "0 Nack0 9", "0 Nack0 9", "0 Nack0 9",  "0 Nack0 9",   "0 Nack0 9",     "0 Nack0 9",    "0 Nack0 9",    "0 Nack0 9"}},
    {"EAP-Failure",   {"-",   "-",           "-",          "-",           "-",           "-",           "-",             "2 none 1",     "100 none 1",   "100 none 1"}},
    {"EAP-Failure bad",{"-",  "-",           "-",          "-",           "-",           "-",           "-",             "65430 none 8", "65430 none 9", "65430 none 10"}},
    {"Wrong flavour", {"-",   "-",           "-",          "-",           "-",           "-",           "-",             "-",            "-",            "-"}},
    {"Wrong vendor",  {"-",   "-",           "-",          "0 Nack18 9",  "-",           "-",           "-",             "-",            "-",            "-"}},
    {"Wrong op-code", {"-",   "-",           "-",          "0 Nack18 9",  "-",           "-",           "-",             "-",            "-",            "-"}},
};
// clang-format on

// The frame of each row (continuations arrive while fragments are being collected).
std::map<std::string, Bytes> frames() {
    Header h, other_vendor, ack;
    h.id = other_vendor.id = ack.id = 0x21;
    other_vendor.vendor = {0x00, 0x37, 0x2A};
    ack.opcode = WSC_OP_ACK;
    auto message = [](const Header& hh, uint8_t type) { return message_frame(hh, routed_body(type, 16)); };
    const Bytes m8 = routed_body(WPS_MSG_TYPE_M8, 16);
    const Bytes first = testbytes::cat({Bytes{0x01, 0x00}, m8});  // LF: the length field
    using enginetest::fragment_frame;
    return {{"Identity", enginetest::identity_request(0x21)},
            {"Start", enginetest::start_frame(h)},
            {"M2", message(h, WPS_MSG_TYPE_M2)},
            {"M2D", message(h, WPS_MSG_TYPE_M2D)},
            {"M4", message(h, WPS_MSG_TYPE_M4)},
            {"M6", message(h, WPS_MSG_TYPE_M6)},
            {"M8 whole", message(h, WPS_MSG_TYPE_M8)},
            {"M8 first", fragment_frame(WSC_FLAG_MF | WSC_FLAG_LF, first, int32_t(first.size()), 0x21)},
            {"M8 middle", fragment_frame(WSC_FLAG_MF, m8, int32_t(m8.size()), 0x21)},
            {"M8 last", fragment_frame(0, m8, int32_t(m8.size()), 0x21)},
            {"Other type", message(h, WPS_MSG_TYPE_M3)},
            {"Registrar NACK", message(h, WACA_MSG_TYPE_NACK)},
            {"EAP-Failure", enginetest::eap_failure(0x21)},
            {"EAP-Failure bad", testbytes::cat({enginetest::eap_failure(0x21), Bytes{0}})},
            {"Wrong flavour", message_frame(enginetest::wifi_header(), routed_body(WPS_MSG_TYPE_M2D))},
            {"Wrong vendor", message(other_vendor, WPS_MSG_TYPE_M2)},
            {"Wrong op-code", message(ack, WPS_MSG_TYPE_M2)}};
}

class DispatchMatrix : public enginetest::EngineTest {
  protected:
    // The kind of answer in the output buffer, from its bytes.
    std::string answer_kind() {
        if (out_len == 0) return "none";
        const Bytes a = answer();
        if (a.size() < 18) return "short";
        if (a[OFF_EAP_CODE] == EAP_CODE_RESPONSE && a[OFF_EAP_TYPE] == 1) return "Id";
        if (a.size() < 28) return "short";
        const uint8_t type = a[OFF_MESSAGE + 9];
        if (a[OFF_OPCODE] == WSC_OP_MSG && type == WPS_MSG_TYPE_M1) return "M1";
        if (a[OFF_OPCODE] == WSC_OP_ACK && type == WPS_MSG_TYPE_ACK) return "Ack";
        if (a[OFF_OPCODE] == WSC_OP_NACK && type == WACA_MSG_TYPE_NACK) {
            const uint16_t error = uint16_t(a[a.size() - 2] << 8 | a[a.size() - 1]);
            return error == 0x1200 ? "Nack18" : error == 0 ? "Nack0" : "Nack?";
        }
        return "other";
    }
};

TEST_F(DispatchMatrix, EveryStateAgainstEveryFrame) {
    const std::map<std::string, Bytes> frame = frames();
    for (const Row& row : kMatrix) {
        for (uint32_t state = 1; state <= 10; ++state) {
            start(WAPIWPS_MODE_WAPI_CERT);
            g_State_Machine = state;
            const std::string kind = row.frame;
            if (kind == "M8 middle" || kind == "M8 last") {
                g_FragState = DO_FRAG;
                g_FragOffset = 40;
            }
            const Bytes& f = frame.at(kind);
            out_len = 0;
            const int32_t result =
                ProcessReceivePacket(f.data(), uint32_t(f.size()), out.data(), &out_len);
            std::ostringstream got;
            got << result << ' ' << answer_kind() << ' ' << g_State_Machine;
            std::string want = row.cells[state - 1];
            if (want == "-") want = "-100 none " + std::to_string(state);
            EXPECT_EQ(got.str(), want) << kind << " in state " << state;
            // An answer always echoes the identifier of the frame it answers.
            if (out_len > 0) {
                EXPECT_EQ(answer()[OFF_EAP_ID], 0x21) << kind << " in state " << state;
            }
        }
    }
}

}  // namespace
