// The registrar on its own, fed hand-made frames: byte-exact answers to Identity and Start, and
// refusal of an M1 whose public key is off the curve.
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

}  // namespace
