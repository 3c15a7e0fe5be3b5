// The registrar on its own, fed hand-made frames: byte-exact answers, and a clear refusal (with
// nothing sent and nothing changed) for everything out of place.
#include <gtest/gtest.h>
#include "common/test_bytes.h"

#include "registrar/crypto.h"
#include "registrar/registrar.h"
#include "registrar/wire.h"

namespace {

using registrar::Bytes;
using registrar::Registrar;
using registrar::Status;
namespace wire = registrar::wire;

const Bytes kEapolStart = {0x02, 0x01, 0x00, 0x00};

Bytes response_identity(uint8_t id, const std::string& text) {
    const auto n = static_cast<uint8_t>(text.size() + 5);
    Bytes f = {0x02, 0x00, 0x00, n, 0x02, id, 0x00, n, 0x01};
    testbytes::append(f, text);
    return f;
}

// A response frame from the enrollee around `message` (WAPI flavour).
Bytes response(uint8_t id, uint8_t op_code, const Bytes& message) {
    const auto len = static_cast<uint16_t>(message.size() + 14);
    Bytes f = {0x02, 0x00, static_cast<uint8_t>(len >> 8), static_cast<uint8_t>(len),
               0x02, id,   static_cast<uint8_t>(len >> 8), static_cast<uint8_t>(len),
               0xF2, 0x00, 0x81, 0xDB, 0x00, 0x00, 0x00, 0x01, op_code, 0x00};
    testbytes::append(f, message);
    return f;
}

// A well-formed M1 with fresh SM2 keys (PSK mode: no Certificate Mode).
Bytes make_m1() {
    registrar::crypto::init();
    registrar::crypto::Sm2KeyPair a, b;
    std::string error;
    EXPECT_TRUE(registrar::crypto::sm2_generate(a, error)) << error;
    EXPECT_TRUE(registrar::crypto::sm2_generate(b, error)) << error;
    Bytes m;
    auto put = [&m](uint16_t type, const Bytes& v) { wire::put_attr(m, type, v); };
    put(wire::ATTR_VERSION, {0x10});
    put(wire::ATTR_MESSAGE_TYPE, {0x04});
    put(wire::ATTR_UUID_E, Bytes(16, 0xE1));
    put(wire::ATTR_MAC_ADDRESS, {2, 3, 4, 5, 6, 7});
    put(wire::ATTR_ENROLLEE_NONCE, Bytes(16, 0x4E));
    Bytes pk(a.pub.begin(), a.pub.end());
    pk.insert(pk.end(), b.pub.begin(), b.pub.end());
    put(wire::ATTR_PUBLIC_KEY, pk);
    put(wire::ATTR_AUTH_TYPE_FLAGS, {0xE0, 0x00});
    put(wire::ATTR_ENCR_TYPE_FLAGS, {0x80, 0x00});
    put(wire::ATTR_CONNECTION_TYPE_FLAGS, {0x01});
    put(wire::ATTR_CONFIG_METHODS, {0x00, 0x8C});
    put(wire::ATTR_SIMPLE_CONFIG_STATE, {0x01});
    put(wire::ATTR_MANUFACTURER, {});
    put(wire::ATTR_MODEL_NAME, {'m'});
    put(wire::ATTR_MODEL_NUMBER, {'1'});
    put(wire::ATTR_SERIAL_NUMBER, {'s'});
    put(wire::ATTR_PRIMARY_DEVICE_TYPE, {0x00, 0x01, 0x00, 0x00, 0x14, 0x72, 0x00, 0x01});
    put(wire::ATTR_DEVICE_NAME, {'d'});
    put(wire::ATTR_RF_BANDS, {0x03});
    put(wire::ATTR_ASSOCIATION_STATE, {0x00, 0x00});
    put(wire::ATTR_DEVICE_PASSWORD_ID, {0x00, 0x04});
    put(wire::ATTR_CONFIG_ERROR, {0x00, 0x00});
    put(wire::ATTR_OS_VERSION, {0x80, 0x00, 0x00, 0x01});
    return m;
}

registrar::Config psk_config() {
    registrar::Config c;
    c.wps_mode = 2;
    c.eap_identifier = 0x21;
    c.network_key = {1, 2, 3, 4};
    return c;
}

// Brings a registrar to the point where it waits for M1; returns the identifier of Start.
uint8_t to_wait_m1(Registrar& r) {
    std::vector<Bytes> out;
    EXPECT_EQ(r.handle(kEapolStart, out), Status::Continue);
    EXPECT_EQ(r.handle(response_identity(out.at(0)[5], "BWIPS-SimpleConfig-Enrollee-1-0"), out), Status::Continue);
    return out.at(1)[5];
}

TEST(RegistrarProtocol, AnswersStartAndIdentityExactly) {
    Registrar r(psk_config());
    std::vector<Bytes> out;
    ASSERT_EQ(r.handle(kEapolStart, out), Status::Continue);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0], (Bytes{0x02, 0x00, 0x00, 0x05, 0x01, 0x21, 0x00, 0x05, 0x01}));
    ASSERT_EQ(r.handle(response_identity(0x21, "BWIPS-SimpleConfig-Enrollee-1-0"), out), Status::Continue);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[1], (Bytes{
                          0x02, 0x00, 0x00, 0x0E,   // EAPOL body 14
                          0x01, 0x22, 0x00, 0x0E,   // Request, next identifier, length 14
                          0xF2, 0x00, 0x81, 0xDB,   // WAPI type and vendor id
                          0x00, 0x00, 0x00, 0x01,   // vendor type
                          0x01, 0x00,               // Start, no flags
                      }));
}

TEST(RegistrarProtocol, WifiFlavourUsesItsTypeVendorAndIdentity) {
    registrar::Config c = psk_config();
    c.wps_mode = 1;
    Registrar r(c);
    std::vector<Bytes> out;
    r.handle(kEapolStart, out);
    EXPECT_EQ(r.handle(response_identity(0x21, "BWIPS-SimpleConfig-Enrollee-1-0"), out), Status::Refused);
    EXPECT_NE(r.last_error().find("WFA-SimpleConfig-Enrollee-1-0"), std::string::npos);
    ASSERT_EQ(r.handle(response_identity(0x21, "WFA-SimpleConfig-Enrollee-1-0"), out), Status::Continue);
    EXPECT_EQ(out.back()[8], 0xFE);
    EXPECT_EQ(Bytes(out.back().begin() + 9, out.back().begin() + 12), (Bytes{0x00, 0x37, 0x2A}));
}

struct Refusal {
    const char* name;
    Bytes frame;
    const char* error;   // a part of last_error()
};

class RegistrarRefusesAtStart : public testing::TestWithParam<Refusal> {};

// Each refused frame leaves the registrar where it was: the proper frame still works after it.
TEST_P(RegistrarRefusesAtStart, AndStaysReady) {
    Registrar r(psk_config());
    std::vector<Bytes> out;
    ASSERT_EQ(r.handle(kEapolStart, out), Status::Continue);
    out.clear();
    EXPECT_EQ(r.handle(GetParam().frame, out), Status::Refused);
    EXPECT_TRUE(out.empty());
    EXPECT_NE(r.last_error().find(GetParam().error), std::string::npos) << r.last_error();
    EXPECT_EQ(r.handle(response_identity(0x21, "BWIPS-SimpleConfig-Enrollee-1-0"), out), Status::Continue);
}

const Refusal kRefusals[] = {
    {"Empty", {}, "shorter than an EAPOL header"},
    {"ThreeBytes", {0x02, 0x00, 0x00}, "shorter than an EAPOL header"},
    {"BodyLengthLies", {0x02, 0x00, 0x00, 0x09, 0x02, 0x21, 0x00, 0x05, 0x01}, "EAPOL body length"},
    {"EapolStartAgain", {0x02, 0x01, 0x00, 0x00}, "EAPOL-Start in the middle"},
    {"EapolKey", {0x02, 0x03, 0x00, 0x00}, "neither EAP nor Start"},
    {"EapHeaderCut", {0x02, 0x00, 0x00, 0x02, 0x02, 0x21}, "EAP header cut short"},
    {"EapRequest", {0x02, 0x00, 0x00, 0x05, 0x01, 0x21, 0x00, 0x05, 0x01}, "is not Response"},
    {"EapLengthLies", {0x02, 0x00, 0x00, 0x05, 0x02, 0x21, 0x00, 0x06, 0x01}, "EAP length"},
    {"OtherIdentifier", response_identity(0x20, "BWIPS-SimpleConfig-Enrollee-1-0"), "does not answer request"},
    {"WrongIdentity", response_identity(0x21, "BWIPS-SimpleConfig-Enrollee-1-1"), "identity is not"},
    {"IdentityPrefix", response_identity(0x21, "BWIPS-SimpleConfig-Enrollee-1-"), "identity is not"},
    {"MessageTooEarly", response(0x21, 4, {0x10, 0x4A, 0x00, 0x01, 0x10}), "none was expected"},
    {"DoneTooEarly", response(0x21, 5, {}), "Done before M8"},
    {"AckTooEarly", response(0x21, 2, {}), "ACK while nothing"},
    {"OpCode9", response(0x21, 9, {}), "op-code 9"},
};
INSTANTIATE_TEST_SUITE_P(Frames, RegistrarRefusesAtStart, testing::ValuesIn(kRefusals),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(RegistrarProtocol, AnswersM1WithM2CarryingEveryAttribute) {
    Registrar r(psk_config());
    const uint8_t id = to_wait_m1(r);
    std::vector<Bytes> out;
    ASSERT_EQ(r.handle(response(id, 4, make_m1()), out), Status::Continue) << r.last_error();
    ASSERT_EQ(out.size(), 1u);
    const Bytes& f = out[0];
    const std::span<const uint8_t> body = std::span<const uint8_t>(f).subspan(18);
    wire::AttrList list;
    std::string error;
    ASSERT_TRUE(list.parse(body, error)) << error;
    EXPECT_EQ(body[9], 0x05);
    const uint16_t expected[] = {0x104A, 0x1022, 0x101A, 0x1039, 0x1048, 0x1032, 0x1004, 0x1010, 0x100D, 0x1008, 0x1021,
                                 0x1023, 0x1024, 0x1042, 0x1054, 0x1011, 0x103C, 0x1002, 0x1009, 0x1012, 0x102D, 0x1005};
    ASSERT_EQ(list.all().size(), std::size(expected));
    for (size_t i = 0; i < std::size(expected); ++i) EXPECT_EQ(list.all()[i].type, expected[i]) << i;
    EXPECT_EQ(Bytes(list.find(0x101A)->value.begin(), list.find(0x101A)->value.end()), Bytes(16, 0x4E));
    EXPECT_EQ(Bytes(list.find(0x1054)->value.begin(), list.find(0x1054)->value.end()),
              (Bytes{0x00, 0x01, 0x00, 0x00, 0x14, 0x72, 0x00, 0x01}));
    EXPECT_EQ(Bytes(list.find(0x1004)->value.begin(), list.find(0x1004)->value.end()), (Bytes{0xE0, 0x00}));
    EXPECT_EQ(r.outcome().enrollee_address, (Bytes{2, 3, 4, 5, 6, 7}));
}

TEST(RegistrarProtocol, HexKeyAdvertises2000AndCertificateModeComesLast) {
    registrar::Config c = psk_config();
    c.wps_mode = 3;
    c.hex_network_key = true;
    c.certificate_mode = 2;
    Registrar r(c);
    const uint8_t id = to_wait_m1(r);
    Bytes m1 = make_m1();
    wire::put_attr(m1, wire::ATTR_CERTIFICATE_MODE, Bytes{0x0F});
    std::vector<Bytes> out;
    ASSERT_EQ(r.handle(response(id, 4, m1), out), Status::Continue) << r.last_error();
    wire::AttrList list;
    std::string error;
    ASSERT_TRUE(list.parse(std::span<const uint8_t>(out[0]).subspan(18), error));
    EXPECT_EQ(Bytes(list.find(0x1004)->value.begin(), list.find(0x1004)->value.end()), (Bytes{0x20, 0x00}));
    const auto& all = list.all();
    ASSERT_GE(all.size(), 2u);
    EXPECT_EQ(all[all.size() - 2].type, 0x1FF9);
    EXPECT_EQ(all[all.size() - 2].value[0], 2);
    EXPECT_EQ(all.back().type, 0x1005);
}

struct BadM1 {
    const char* name;
    uint16_t type;      // attribute to change
    int mode;           // 0 drop it, 1 grow it by a byte, 2 cut the message inside it
    const char* error;
};

class RegistrarRefusesM1 : public testing::TestWithParam<BadM1> {};

TEST_P(RegistrarRefusesM1, WithAClearError) {
    Registrar r(psk_config());
    const uint8_t id = to_wait_m1(r);
    const Bytes good = make_m1();
    wire::AttrList list;
    std::string error;
    ASSERT_TRUE(list.parse(good, error));
    const wire::Attr* a = list.find(GetParam().type);
    ASSERT_NE(a, nullptr);
    Bytes bad(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(a->offset));
    const size_t end = a->offset + 4 + a->value.size();
    if (GetParam().mode == 1) {
        Bytes v(a->value.begin(), a->value.end());
        v.push_back(0);
        wire::put_attr(bad, a->type, v);
    }
    if (GetParam().mode == 2) {
        bad.insert(bad.end(), good.begin() + static_cast<std::ptrdiff_t>(a->offset),
                   good.begin() + static_cast<std::ptrdiff_t>(a->offset + 4 + a->value.size() / 2));
    } else {
        bad.insert(bad.end(), good.begin() + static_cast<std::ptrdiff_t>(end), good.end());
    }
    std::vector<Bytes> out;
    EXPECT_EQ(r.handle(response(id, 4, bad), out), Status::Refused);
    EXPECT_TRUE(out.empty());
    EXPECT_NE(r.last_error().find(GetParam().error), std::string::npos) << r.last_error();
    EXPECT_FALSE(r.outcome().m1_ok);
    // The proper M1 is still taken.
    EXPECT_EQ(r.handle(response(id, 4, good), out), Status::Continue) << r.last_error();
}

const BadM1 kBadM1[] = {
    {"NoVersion", 0x104A, 0, "Version missing"},
    {"LongMessageType", 0x1022, 1, "Message Type has length 2"},
    {"NoUuid", 0x1047, 0, "UUID-E missing"},
    {"NoNonce", 0x101A, 0, "Enrollee Nonce missing"},
    {"ShortPublicKey", 0x1032, 2, "runs past the end"},
    {"LongPublicKey", 0x1032, 1, "Public Key has length 129"},
    {"NoPublicKey", 0x1032, 0, "Public Key missing"},
    {"NoOsVersion", 0x102D, 0, "OS Version missing"},
    {"CutInsideDeviceName", 0x1011, 2, "runs past the end"},
};
INSTANTIATE_TEST_SUITE_P(Attributes, RegistrarRefusesM1, testing::ValuesIn(kBadM1),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(RegistrarProtocol, M1PublicKeyOffTheCurveIsRefused) {
    Registrar r(psk_config());
    const uint8_t id = to_wait_m1(r);
    Bytes m1 = make_m1();
    wire::AttrList list;
    std::string error;
    ASSERT_TRUE(list.parse(m1, error));
    m1[list.find(0x1032)->offset + 4 + 63] ^= 0x01;   // y of the first key
    std::vector<Bytes> out;
    EXPECT_EQ(r.handle(response(id, 4, m1), out), Status::Refused);
    EXPECT_NE(r.last_error().find("key agreement"), std::string::npos) << r.last_error();
}

// The enrollee's NACK carries its Configuration Error little-endian; the registrar reads it so
// and closes with EAP-Failure echoing the NACK's identifier.
TEST(RegistrarProtocol, NackIsReadLittleEndianAndClosed) {
    Registrar r(psk_config());
    const uint8_t id = to_wait_m1(r);
    Bytes nack;
    wire::put_attr(nack, wire::ATTR_VERSION, Bytes{0x10});
    wire::put_attr(nack, wire::ATTR_MESSAGE_TYPE, Bytes{0x0E});
    wire::put_attr(nack, wire::ATTR_ENROLLEE_NONCE, Bytes(16, 1));
    wire::put_attr(nack, wire::ATTR_REGISTRAR_NONCE, Bytes(16, 2));
    wire::put_attr(nack, wire::ATTR_CONFIG_ERROR, Bytes{0x12, 0x00});
    std::vector<Bytes> out;
    ASSERT_EQ(r.handle(response(id, 3, nack), out), Status::Finished);
    EXPECT_TRUE(r.outcome().nack_received);
    EXPECT_EQ(r.outcome().nack_config_error, 18);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0], (Bytes{0x02, 0x00, 0x00, 0x04, 0x04, id, 0x00, 0x04}));
    EXPECT_EQ(r.handle(kEapolStart, out), Status::Refused);
    EXPECT_NE(r.last_error().find("over"), std::string::npos);
}

// Fragments: LF and the 2-byte total on the first, MF on all but the last, and an EAP length that
// the enrollee, reading it little-endian, turns into exactly the chunk's size.
TEST(RegistrarFrames, FragmentLayout) {
    const wire::Flavour& f = wire::flavour_of(2);
    const Bytes chunk = {0x10, 0x4A, 0x00, 0x01, 0x10, 0x10, 0x22, 0x00, 0x01, 0x0C, 0xAA, 0xBB};
    EXPECT_EQ(wire::fragment_frame(f, 9, wire::kFlagMore, uint16_t{300}, chunk),
              (Bytes{
                  0x02, 0x00, 0x00, 0x1C,   // EAPOL body: 28 bytes, big-endian
                  0x01, 0x09, 0x17, 0x00,   // Request, id 9, EAP length 12 + 9 + 2 = 23 little-endian
                  0xF2, 0x00, 0x81, 0xDB, 0x00, 0x00, 0x00, 0x01,
                  0x04, 0x03,               // message, MF | LF
                  0x01, 0x2C,               // total length 300
                  0x10, 0x4A, 0x00, 0x01, 0x10, 0x10, 0x22, 0x00, 0x01, 0x0C, 0xAA, 0xBB,
              }));
    const Bytes last = wire::fragment_frame(f, 10, 0, std::nullopt, chunk);
    ASSERT_EQ(last.size(), 18u + chunk.size());
    EXPECT_EQ(last[6], 12 + 9);   // little-endian low byte first
    EXPECT_EQ(last[7], 0x00);
    EXPECT_EQ(last[17], 0x00);
}

// The attribute walk takes exactly a run of attributes.
TEST(RegistrarWire, AttributeWalkIsStrict) {
    wire::AttrList list;
    std::string error;
    EXPECT_TRUE(list.parse({}, error));
    EXPECT_TRUE(list.all().empty());
    const Bytes ok = {0x10, 0x4A, 0x00, 0x01, 0x10, 0x10, 0x05, 0x00, 0x00};
    ASSERT_TRUE(list.parse(ok, error));
    ASSERT_EQ(list.all().size(), 2u);
    EXPECT_TRUE(list.all()[1].value.empty());
    EXPECT_EQ(list.all()[1].offset, 5u);
    EXPECT_FALSE(list.parse(Bytes{0x10, 0x4A, 0x00, 0x02, 0x10}, error));   // value past the end
    EXPECT_FALSE(list.parse(Bytes{0x10, 0x4A, 0x00, 0x01, 0x10, 0x10}, error));   // trailing bytes
    EXPECT_FALSE(list.parse(Bytes{0x10, 0x4A, 0xFF, 0xFF}, error));
    // The first of two attributes of one type is the one found.
    const Bytes dup = {0x10, 0x22, 0x00, 0x01, 0x05, 0x10, 0x22, 0x00, 0x01, 0x06};
    ASSERT_TRUE(list.parse(dup, error));
    EXPECT_EQ(list.find(0x1022)->value[0], 0x05);
    EXPECT_EQ(list.find(0x9999), nullptr);
}

}  // namespace
