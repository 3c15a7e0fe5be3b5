// One registrar misbehaviour at a time: the enrollee's parser names the failing check in its trace
// line, answers NACK with Configuration Error 18 (read little-endian by the registrar), and the
// run ends with EAP-Failure and result 100.
#include <gtest/gtest.h>

#include "common/exchange.h"
#include "wapiwps.h"

namespace {

using K = registrar::Fault::Kind;

struct FaultCase {
    const char* name;
    int32_t wps_mode;
    registrar::Fault fault;
    const char* trace;   // the line (or its distinctive part) the enrollee writes
};

class FaultExchange : public testing::TestWithParam<FaultCase> {};

TEST_P(FaultExchange, EnrolleeNamesTheCheckAndNacks18) {
    const FaultCase& c = GetParam();
    exchange::Options o;
    o.wps_mode = c.wps_mode;
    o.pin = "24681357";
    o.registrar.network_key = {0x10, 0x20, 0x30, 0x40, 0x50, 0x60, 0x70, 0x80};
    o.registrar.hex_network_key = c.fault.kind == K::HexKeyOddLength || c.fault.kind == K::HexKeyBadCharacter ||
                                  c.fault.kind == K::HexKeyTooLong;
    o.registrar.cert_list = {0x30, 0x82, 0x01, 0x00};
    o.registrar.fault = c.fault;
    // A software key with a leading zero byte makes M7's signature fail now and then (pinned by
    // its own test); these cases are about the fault, so the registrar goes on regardless.
    o.registrar.require_signature = false;
    const exchange::Transcript t = exchange::run(o);
    ASSERT_FALSE(t.registrar_refused) << t.registrar_error;
    EXPECT_TRUE(t.has_trace(c.trace)) << c.trace;
    EXPECT_TRUE(t.outcome.nack_received);
    EXPECT_EQ(t.nack_error(), 18);
    EXPECT_FALSE(t.m8_done);
    EXPECT_EQ(t.last_result(), WAPIWPS_RESULT_ENDED);
    EXPECT_EQ(t.final_state, static_cast<uint32_t>(WAPIWPS_WAIT_START));
    EXPECT_TRUE(t.registrar_finished);
}

constexpr int32_t kPsk = WAPIWPS_MODE_WAPI_PSK;
constexpr int32_t kCert = WAPIWPS_MODE_WAPI_CERT;
constexpr int32_t kWifi = WAPIWPS_MODE_WIFI;

const FaultCase kM2Cases[] = {
    {"RegistrarNonceMissing", kCert, {K::OmitAttribute, 0x05, 0x1039, 0}, "Unpack M2 error, error code is -18."},
    {"RegistrarNonceLong", kCert, {K::OversizeAttribute, 0x05, 0x1039, 0}, "Unpack M2 error, error code is -18."},
    {"PublicKeyMissing", kCert, {K::OmitAttribute, 0x05, 0x1032, 0}, "Unpack M2 error, error code is -19."},
    {"PublicKeyLong", kCert, {K::OversizeAttribute, 0x05, 0x1032, 0}, "Unpack M2 error, error code is -19."},
    {"AuthenticatorMissing", kCert, {K::OmitAttribute, 0x05, 0x1005, 0}, "Unpack M2 error, error code is -20."},
    {"AuthenticatorLong", kCert, {K::OversizeAttribute, 0x05, 0x1005, 0}, "Unpack M2 error, error code is -20."},
    {"PublicKeyOffCurve", kCert, {K::CorruptAttribute, 0x05, 0x1032, 0},
     "Unpack M2 error, ComputerExchangeKey error code is -21."},
    {"BadAuthenticator", kCert, {K::BadAuthenticator, 0x05, 0, 0}, "Unpack M2 error, error code is -21."},
    {"AuthenticatorNotLast", kCert, {K::AuthenticatorNotLast, 0x05, 0, 0}, "Unpack M2 error, error code is -21."},
    {"VersionMissing", kCert, {K::OmitAttribute, 0x05, 0x104A, 0}, "Unpack M2 error, error code is -22."},
    {"MessageTypeM2D", kCert, {K::MessageType, 0x05, 0, 0x06}, "Unpack M2 error, error code is -23."},
    {"EnrolleeNonceWrong", kCert, {K::WrongEnrolleeNonce, 0x05, 0, 0}, "Unpack M2 error, error code is -24."},
    {"EnrolleeNonceMissing", kCert, {K::OmitAttribute, 0x05, 0x101A, 0}, "Unpack M2 error, error code is -24."},
    {"UuidRMissing", kCert, {K::OmitAttribute, 0x05, 0x1048, 0}, "Unpack M2 error, error code is -25."},
    {"AuthTypeFlagsLong", kCert, {K::OversizeAttribute, 0x05, 0x1004, 0}, "Unpack M2 error, error code is -26."},
    {"EncrTypeFlagsMissing", kCert, {K::OmitAttribute, 0x05, 0x1010, 0}, "Unpack M2 error, error code is -27."},
    {"ConnectionTypeFlagsLong", kCert, {K::OversizeAttribute, 0x05, 0x100D, 0}, "Unpack M2 error, error code is -28."},
    {"ConfigMethodsMissing", kCert, {K::OmitAttribute, 0x05, 0x1008, 0}, "Unpack M2 error, error code is -29."},
    {"Manufacturer33", kCert, {K::OversizeAttribute, 0x05, 0x1021, 0}, "Unpack M2 error, error code is -30."},
    {"ModelName33", kCert, {K::OversizeAttribute, 0x05, 0x1023, 0}, "Unpack M2 error, error code is -31."},
    {"ModelNumber33", kCert, {K::OversizeAttribute, 0x05, 0x1024, 0}, "Unpack M2 error, error code is -32."},
    {"SerialNumber33", kCert, {K::OversizeAttribute, 0x05, 0x1042, 0}, "Unpack M2 error, error code is -33."},
    {"PrimaryDeviceTypeMissing", kCert, {K::OmitAttribute, 0x05, 0x1054, 0}, "Unpack M2 error, error code is -34."},
    {"WifiOuiWrong", kWifi, {K::CorruptAttribute, 0x05, 0x1054, 2}, "Unpack M2 error, error code is -35."},
    {"WapiOuiWrong", kPsk, {K::CorruptAttribute, 0x05, 0x1054, 5}, "Unpack M2 error, error code is -36."},
    {"DeviceName33", kCert, {K::OversizeAttribute, 0x05, 0x1011, 0}, "Unpack M2 error, error code is -37."},
    {"RfBandsMissing", kCert, {K::OmitAttribute, 0x05, 0x103C, 0}, "Unpack M2 error, error code is -38."},
    {"AssociationStateLong", kCert, {K::OversizeAttribute, 0x05, 0x1002, 0}, "Unpack M2 error, error code is -39."},
    {"ConfigErrorMissing", kCert, {K::OmitAttribute, 0x05, 0x1009, 0}, "Unpack M2 error, error code is -40."},
    {"DevicePasswordIdMissing", kCert, {K::OmitAttribute, 0x05, 0x1012, 0}, "Unpack M2 error, error code is -41."},
    {"OsVersionLong", kCert, {K::OversizeAttribute, 0x05, 0x102D, 0}, "Unpack M2 error, error code is -42."},
    {"CertificateModeMissing", kCert, {K::OmitAttribute, 0x05, 0x1FF9, 0},
     "Unpack M2 error, error code is -42 extension."},
    {"CertificateModeLong", kCert, {K::OversizeAttribute, 0x05, 0x1FF9, 0},
     "Unpack M2 error, error code is -42 extension."},
    {"CertificateMode0", kCert, {K::CertificateModeValue, 0x05, 0, 0}, "Unpack M2 error, error code is -42 ex."},
    {"CertificateMode3", kCert, {K::CertificateModeValue, 0x05, 0, 3}, "Unpack M2 error, error code is -42 ex."},
};

const FaultCase kM4Cases[] = {
    {"AuthenticatorMissing", kPsk, {K::OmitAttribute, 0x08, 0x1005, 0}, "Unpack M4 error, error code is -43."},
    {"BadAuthenticator", kPsk, {K::BadAuthenticator, 0x08, 0, 0}, "Unpack M4 error, error code is -44."},
    {"AuthenticatorNotLast", kPsk, {K::AuthenticatorNotLast, 0x08, 0, 0}, "Unpack M4 error, error code is -44."},
    {"VersionMissing", kPsk, {K::OmitAttribute, 0x08, 0x104A, 0}, "Unpack M4 error, error code is -45."},
    {"MessageTypeM6", kPsk, {K::MessageType, 0x08, 0, 0x0A}, "Unpack M4 error, error code is -46."},
    {"EnrolleeNonceWrong", kPsk, {K::WrongEnrolleeNonce, 0x08, 0, 0}, "Unpack M4 error, error code is -47."},
    {"RHash1Missing", kPsk, {K::OmitAttribute, 0x08, 0x103D, 0}, "Unpack M4 error, error code is -48."},
    {"RHash2Long", kPsk, {K::OversizeAttribute, 0x08, 0x103E, 0}, "Unpack M4 error, error code is -49."},
    {"SettingsMissing", kPsk, {K::OmitAttribute, 0x08, 0x1018, 0}, "Unpack M4 error, error code is -50."},
    {"BadKeyWrapAuth", kPsk, {K::BadKeyWrapAuth, 0x08, 0, 0}, "Unpack M4 error, error code is -51."},
    {"WrongRS1", kPsk, {K::WrongSecretNonce, 0x08, 0, 0}, "Unpack M4 error, error code is -52."},
    {"WrongPin", kCert, {K::WrongPin, 0, 0, 0}, "Unpack M4 error, error code is -52."},
};

const FaultCase kM6Cases[] = {
    {"AuthenticatorMissing", kPsk, {K::OmitAttribute, 0x0A, 0x1005, 0}, "Unpack M6 error, error code is -53."},
    {"BadAuthenticator", kPsk, {K::BadAuthenticator, 0x0A, 0, 0}, "Unpack M6 error, error code is -54."},
    {"AuthenticatorNotLast", kCert, {K::AuthenticatorNotLast, 0x0A, 0, 0}, "Unpack M6 error, error code is -54."},
    {"VersionLong", kPsk, {K::OversizeAttribute, 0x0A, 0x104A, 0}, "Unpack M6 error, error code is -55."},
    {"MessageTypeM4", kPsk, {K::MessageType, 0x0A, 0, 0x08}, "Unpack M6 error, error code is -56."},
    {"EnrolleeNonceWrong", kPsk, {K::WrongEnrolleeNonce, 0x0A, 0, 0}, "Unpack M6 error, error code is -57."},
    {"SettingsMissing", kPsk, {K::OmitAttribute, 0x0A, 0x1018, 0}, "Unpack M6 error, error code is -58."},
    {"PaddingValue", kPsk, {K::BadPaddingValue, 0x0A, 0, 0}, "pad value is error."},
    {"PaddingString", kPsk, {K::BadPaddingString, 0x0A, 0, 0}, "pad string is error."},
    {"BadKeyWrapAuth", kPsk, {K::BadKeyWrapAuth, 0x0A, 0, 0}, "Unpack M6 error, error code is -59."},
    {"WrongRS2", kPsk, {K::WrongSecretNonce, 0x0A, 0, 0}, "Unpack M6 error, error code is -60."},
    {"WrongSecondPinHalf", kCert, {K::WrongPin, 0, 0, 1}, "Unpack M6 error, error code is -60."},
};

const FaultCase kM8Cases[] = {
    {"AuthenticatorMissing", kPsk, {K::OmitAttribute, 0x0C, 0x1005, 0}, "Unpack M8 error, error code is -61."},
    {"BadAuthenticator", kCert, {K::BadAuthenticator, 0x0C, 0, 0}, "Unpack M8 error, error code is -62."},
    {"AuthenticatorNotLast", kPsk, {K::AuthenticatorNotLast, 0x0C, 0, 0}, "Unpack M8 error, error code is -62."},
    {"VersionMissing", kPsk, {K::OmitAttribute, 0x0C, 0x104A, 0}, "Unpack M8 error, error code is -63."},
    {"MessageTypeDone", kPsk, {K::MessageType, 0x0C, 0, 0x0F}, "Unpack M8 error, error code is -64."},
    {"EnrolleeNonceWrong", kPsk, {K::WrongEnrolleeNonce, 0x0C, 0, 0}, "Unpack M8 error, error code is -65."},
    {"SettingsMissing", kPsk, {K::OmitAttribute, 0x0C, 0x1018, 0}, "Unpack M8 error, error code is -66."},
    {"PaddingValue", kPsk, {K::BadPaddingValue, 0x0C, 0, 0}, "pad value is error."},
    {"PaddingString", kCert, {K::BadPaddingString, 0x0C, 0, 0}, "pad string is error."},
    {"BadKeyWrapAuth", kPsk, {K::BadKeyWrapAuth, 0x0C, 0, 0}, "Unpack M8 error, error code is -67."},
    {"CertificateNeededMissing", kCert, {K::OmitAttribute, 0x0C, 0x1FF6, 0},
     "Unpack M8 error, error code is -68,WPS_NEW_CERTIFICATE_NEEDED."},
    {"CredentialMissing", kPsk, {K::OmitAttribute, 0x0C, 0x100E, 0}, "Unpack M8 error, error code is -68."},
    {"WrongMacAddress", kPsk, {K::WrongMacAddress, 0x0C, 0, 0}, "Unpack M8 error, error code is -69."},
    {"MacAddressMissing", kCert, {K::OmitAttribute, 0x0C, 0x1020, 0}, "Unpack M8 error, error code is -69."},
    {"NetworkKeyMissing", kPsk, {K::OmitAttribute, 0x0C, 0x1027, 0}, "Unpack M8 error, error code is -70."},
    {"HexKeyOddLength", kPsk, {K::HexKeyOddLength, 0x0C, 0, 0}, "HexKey is not correct."},
    {"HexKeyBadCharacter", kPsk, {K::HexKeyBadCharacter, 0x0C, 0, 0}, "HexKey is not correct."},
    {"HexKeyTooLong", kPsk, {K::HexKeyTooLong, 0x0C, 0, 0}, "HexKey is not correct."},
    {"CertificateListMissing", kCert, {K::OmitAttribute, 0x0C, 0x1FF7, 0}, "Unpack M8 error, error code is -72."},
};

auto case_name = [](const auto& info) { return std::string(info.param.name); };
INSTANTIATE_TEST_SUITE_P(M2, FaultExchange, testing::ValuesIn(kM2Cases), case_name);
INSTANTIATE_TEST_SUITE_P(M4, FaultExchange, testing::ValuesIn(kM4Cases), case_name);
INSTANTIATE_TEST_SUITE_P(M6, FaultExchange, testing::ValuesIn(kM6Cases), case_name);
INSTANTIATE_TEST_SUITE_P(M8, FaultExchange, testing::ValuesIn(kM8Cases), case_name);

}  // namespace
