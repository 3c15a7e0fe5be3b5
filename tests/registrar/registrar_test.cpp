// The registrar on its own: byte-exact answers to hand-made Identity and Start frames (its later
// messages are judged by the library in every exchange), and its ECDSA rule, which the exchanges'
// signature checks rest on: the hash is SHA-256 reduced mod n, so the X9.62 signature of the same
// message does not verify. (Its SM3, HMAC and SM4 need no test of their own: no exchange gets
// past M2 if they differ from the library's.)
#include <gtest/gtest.h>

#include <string>

#include "common/test_bytes.h"
#include "common/vectors.h"
#include "registrar/crypto.h"
#include "registrar/registrar.h"

namespace {

using registrar::Bytes;
using registrar::Registrar;
using registrar::Status;
using testjson::Json;
namespace crypto = registrar::crypto;

using testbytes::hex;

const Bytes kEapolStart = {0x02, 0x01, 0x00, 0x00};

TEST(RegistrarProtocol, AnswersStartAndIdentityExactly) {
    registrar::Config config;
    config.wps_mode = 2;  // pre-shared key
    config.eap_identifier = 0x21;
    Registrar r(config);
    std::vector<Bytes> out;
    ASSERT_EQ(r.handle(kEapolStart, out), Status::Continue);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0], (Bytes{0x02, 0x00, 0x00, 0x05, 0x01, 0x21, 0x00, 0x05, 0x01}));
    Bytes identity = {0x02, 0x00, 0x00, 36, 0x02, 0x21, 0x00, 36, 0x01};  // Response/Identity
    testbytes::append(identity, std::string("BWIPS-SimpleConfig-Enrollee-1-0"));
    ASSERT_EQ(r.handle(identity, out), Status::Continue);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[1], (Bytes{
                          0x02, 0x00, 0x00, 0x0E,   // EAPOL body 14
                          0x01, 0x22, 0x00, 0x0E,   // Request, next identifier, length 14
                          0xF2, 0x00, 0x81, 0xDB,   // WAPI type and vendor id
                          0x00, 0x00, 0x00, 0x01,   // vendor type
                          0x01, 0x00,               // Start, no flags
                      }));
}

TEST(RegistrarCrypto, EcdsaVerifiesTheModNSignatureOnly) {
    crypto::init();
    const Json doc = testjson::load_vectors("ecdsa_wapi192.json");
    ASSERT_FALSE(doc.at("vectors").empty());
    for (const auto& v : doc.at("vectors")) {
        Bytes q = hex(v.at("Qx").get<std::string>());
        const Bytes qy = hex(v.at("Qy").get<std::string>());
        q.insert(q.end(), qy.begin(), qy.end());
        const Bytes msg = hex(v.at("msg_hex").get<std::string>());
        const Bytes sig = hex(v.at("signature_r_s_48").get<std::string>());
        EXPECT_TRUE(crypto::ecdsa192_verify(q, msg, sig)) << v.at("description").get<std::string>();
        // The same k with the leftmost-192-bits rule gives another signature, which must fail.
        const Bytes x962 = hex(v.at("x962_variant").at("signature_r_s_48").get<std::string>());
        if (x962 != sig) {
            EXPECT_FALSE(crypto::ecdsa192_verify(q, msg, x962)) << v.at("description").get<std::string>();
        }
        // Any change of message or signature is refused.
        Bytes other = msg;
        other.push_back(0x00);
        EXPECT_FALSE(crypto::ecdsa192_verify(q, other, sig));
        Bytes bad = sig;
        bad[47] ^= 0x01;
        EXPECT_FALSE(crypto::ecdsa192_verify(q, msg, bad));
    }
}

}  // namespace
