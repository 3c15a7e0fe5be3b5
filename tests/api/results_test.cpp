// Result getters, SetCertIdentityStruct2 and SetSecureChipParam.
#include "engine/engine_fixture.h"

namespace {

using enginetest::Bytes;

class ResultsTest : public enginetest::EngineTest {
  protected:
    void SetUp() override {
        EngineTest::SetUp();
        result.assign(300, 0);
        for (size_t i = 0; i < result.size(); ++i) result[i] = uint8_t(i);
        g_ResultData = result.data();
        g_ResultLength = 40;
        g_CertCount = 2;
        NewCertificateFlag = 1;
        CertificateMode = 1;
        std::memset(UUID_R, 0xA1, 16);
        std::memset(g_ExtraCert, 0xE7, sizeof g_ExtraCert);
        g_ExtraCertLength = 100;
        std::memset(GeneratePrivateKey, 0x9C, 24);
        std::memset(g_MyMsgInfo.GeneratePublicKey, 0x9D, 48);
        SecureChipPrivateKeyIndex = 5;
        std::memset(g_SecureChipSignParam, 0x5E, 16);
    }
    void TearDown() override {
        g_ResultData = nullptr;
        g_ResultLength = g_CertCount = g_ExtraCertLength = 0;
        NewCertificateFlag = CertificateMode = 0;
        SetCertIdentityStruct2(0, nullptr);
        EngineTest::TearDown();
    }
    // Every output of the certificate getters, pre-filled with 0xCC.
    struct Outputs {
        uint8_t uuid[16], list[4096], extra[128], priv[24], pub[48], sign[16];
        uint16_t listLen = 0xCCCC, count = 0xCCCC, extraLen = 0xCCCC;
        uint32_t keyIndex = 0xCCCCCCCC;
        Outputs() {
            for (uint8_t* p : {uuid, list, extra, priv, pub, sign}) std::memset(p, 0xCC, 16);
        }
    };
    int32_t cert(Outputs& o) {
        return GetWPSResult_Cert(o.uuid, o.list, &o.listLen, &o.count, o.extra, &o.extraLen, o.priv,
                                 o.pub);
    }
    int32_t chip(Outputs& o) {
        return GetWPSResult_Cert_SecureChip(o.uuid, o.list, &o.listLen, &o.count, o.extra,
                                            &o.extraLen, &o.keyIndex, o.pub);
    }
    int32_t chip_ex(Outputs& o) {
        return GetWPSResult_Cert_SecureChipEx(o.uuid, o.list, &o.listLen, &o.count, o.extra,
                                              &o.extraLen, &o.keyIndex, o.pub, o.sign);
    }
    Bytes result;
};

TEST_F(ResultsTest, PskModeGivesTheKeyAndRefusesCertificateGetters) {
    g_WPS_mode = WAPI_WPS_PSK;
    uint8_t key[64 + 8];
    std::memset(key, 0xCC, sizeof key);
    uint16_t len = 0;
    EXPECT_EQ(0, GetWPSResult_PSK(key, &len));
    EXPECT_EQ(len, 40);
    EXPECT_EQ(Bytes(key, key + 40), Bytes(result.begin(), result.begin() + 40));
    Outputs o;
    EXPECT_EQ(-1, cert(o));
    EXPECT_EQ(-1, chip(o));
    EXPECT_EQ(-1, chip_ex(o));
    EXPECT_EQ(o.listLen, 0xCCCC);
    // After the closing failure (mode 0) the key is still readable. Our bound: a key longer than
    // the documented 64-byte buffer is cut to it.
    g_WPS_mode = NO_WPS;
    g_ResultLength = 200;
    EXPECT_EQ(0, GetWPSResult_PSK(key, &len));
    EXPECT_EQ(len, 64);
    EXPECT_EQ(key[64], 0xCC);
    // Certificate mode refuses the getter and leaves the length alone.
    g_WPS_mode = WAPI_WPS_CERT;
    len = 0x1234;
    EXPECT_EQ(-1, GetWPSResult_PSK(key, &len));
    EXPECT_EQ(len, 0x1234);
}

TEST_F(ResultsTest, NoNewCertificateWritesNothing) {
    g_WPS_mode = WAPI_WPS_CERT;
    NewCertificateFlag = 0;
    Outputs o;
    EXPECT_EQ(1, cert(o));
    EXPECT_EQ(1, chip(o));
    EXPECT_EQ(1, chip_ex(o));
    EXPECT_EQ(o.listLen, 0xCCCC);
    EXPECT_EQ(o.uuid[0], 0xCC);
    EXPECT_TRUE(log.has("No need new cert.\r\n"));
}

TEST_F(ResultsTest, CertificateGettersFillTheirOutputs) {
    g_WPS_mode = WAPI_WPS_CERT;
    Outputs a, b, c;
    EXPECT_EQ(0, cert(a));
    EXPECT_EQ(0, chip(b));
    EXPECT_EQ(0, chip_ex(c));
    for (Outputs* o : {&a, &b, &c}) {
        EXPECT_EQ(o->uuid[15], 0xA1);
        EXPECT_EQ(o->listLen, 40);
        EXPECT_EQ(Bytes(o->list, o->list + 40), Bytes(result.begin(), result.begin() + 40));
        EXPECT_EQ(o->count, 2);
        EXPECT_EQ(o->pub[47], 0x9D);
        // Certificate mode 1: no extra certificate.
        EXPECT_EQ(o->extraLen, 0xCCCC);
        EXPECT_EQ(o->extra[0], 0xCC);
    }
    EXPECT_EQ(a.priv[23], 0x9C);
    EXPECT_EQ(b.keyIndex, 5u);
    EXPECT_EQ(b.priv[0], 0xCC);
    EXPECT_EQ(c.sign[15], 0x5E);
    EXPECT_TRUE(log.has("GetWPSResult_Cert success.\r\n"));
    CertificateMode = 2;  // hands out the extra certificate
    EXPECT_EQ(0, cert(a));
    EXPECT_EQ(a.extraLen, 100);
    EXPECT_EQ(a.extra[99], 0xE7);
}

TEST_F(ResultsTest, NullOutputsAreRefused) {
    g_WPS_mode = WAPI_WPS_CERT;
    Outputs o;
    uint16_t len;
    EXPECT_EQ(-1, GetWPSResult_PSK(nullptr, &len));
    EXPECT_EQ(-1, GetWPSResult_Cert(o.uuid, nullptr, &o.listLen, &o.count, o.extra, &o.extraLen,
                                    o.priv, o.pub));
    EXPECT_EQ(-1, GetWPSResult_Cert(o.uuid, o.list, &o.listLen, &o.count, o.extra, &o.extraLen,
                                    nullptr, o.pub));
    EXPECT_EQ(-1, GetWPSResult_Cert_SecureChip(o.uuid, o.list, &o.listLen, &o.count, o.extra,
                                               &o.extraLen, nullptr, o.pub));
    EXPECT_EQ(-1, GetWPSResult_Cert_SecureChipEx(o.uuid, o.list, &o.listLen, &o.count, o.extra,
                                                 &o.extraLen, &o.keyIndex, o.pub, nullptr));
    EXPECT_EQ(o.listLen, 0xCCCC);
}

// ---- SetSecureChipParam ------------------------------------------------------------------------

TEST_F(ResultsTest, SecureChipParamStoresAndZeroPads) {
    const uint8_t key[3] = {1, 2, 3}, second[2] = {9, 8}, sign[16] = {0x11};
    std::memset(g_SecureChipAdminLoginKey, 0xFF, 256);
    EXPECT_EQ(0, SetSecureChipParam(3, key, 2, second, 77, sign));
    EXPECT_EQ(g_SecureChipAdminLoginKeyLen, 3);
    EXPECT_EQ(g_SecureChipParam2Len, 2);
    EXPECT_EQ(SecureChipPrivateKeyIndex, 77u);
    EXPECT_EQ(g_SecureChipSignParam[0], 0x11);
    EXPECT_EQ(Bytes(g_SecureChipAdminLoginKey, g_SecureChipAdminLoginKey + 4), Bytes({1, 2, 3, 0}));
    EXPECT_EQ(g_SecureChipAdminLoginKey[255], 0);
    EXPECT_EQ(g_SecureChipParam2[1], 8);
    EXPECT_EQ(0, SetSecureChipParam(1, second, 1, key, 1, sign));
    EXPECT_EQ(Bytes(g_SecureChipAdminLoginKey, g_SecureChipAdminLoginKey + 2), Bytes({9, 0}));
    EXPECT_EQ(Bytes(g_SecureChipParam2, g_SecureChipParam2 + 2), Bytes({1, 0}));
    EXPECT_EQ(0, SetSecureChipParam(0, nullptr, 0, nullptr, 1, sign));
    EXPECT_EQ(g_SecureChipAdminLoginKey[0], 0);
}

TEST_F(ResultsTest, SecureChipParamOutOfRangeStoresIndexAndSignFirst) {
    const uint8_t key[3] = {1, 2, 3}, sign[16] = {0x22, 0x33};
    ASSERT_EQ(0, SetSecureChipParam(3, key, 0, nullptr, 1, sign));
    const uint8_t sign2[16] = {0x44};
    Bytes big(300, 0x55);
    EXPECT_EQ(-1, SetSecureChipParam(257, big.data(), 0, nullptr, 9, sign2));
    EXPECT_EQ(SecureChipPrivateKeyIndex, 9u);
    EXPECT_EQ(g_SecureChipSignParam[0], 0x44);
    EXPECT_EQ(g_SecureChipAdminLoginKey[0], 1);  // old contents stay
    EXPECT_EQ(-1, SetSecureChipParam(0, nullptr, -1, nullptr, 9, sign2));
    EXPECT_EQ(-1, SetSecureChipParam(4, nullptr, 0, nullptr, 9, sign2));
    EXPECT_EQ(g_SecureChipAdminLoginKey[0], 1);
    EXPECT_EQ(0, SetSecureChipParam(256, big.data(), 256, big.data(), 9, sign2));
    EXPECT_EQ(g_SecureChipParam2[255], 0x55);
}

// ---- SetCertIdentityStruct2 --------------------------------------------------------------------

Bytes identity_entries(std::initializer_list<uint16_t> lengths) {
    Bytes entries;
    uint8_t seed = 1;
    for (uint16_t length : lengths) {
        Bytes e(WAPIWPS_IDENTITY_ENTRY_LEN, 0xEE);  // bytes past Length must not matter
        std::memset(e.data(), seed, 16);
        e[16] = uint8_t(length);  // host order
        e[17] = uint8_t(length >> 8);
        for (size_t i = 0; i < std::min<size_t>(length, 1024); ++i) e[18 + i] = uint8_t(seed + i);
        entries.insert(entries.end(), e.begin(), e.end());
        ++seed;
    }
    return entries;
}

TEST_F(ResultsTest, IdentityListKeepsUuidLengthAndData) {
    const Bytes entries = identity_entries({5, 1024});
    EXPECT_EQ(1, SetCertIdentityStruct2(2, entries.data()));
    ASSERT_NE(g_IdentityList, nullptr);
    EXPECT_EQ(g_IdentityCount, 2);
    EXPECT_EQ(Bytes(g_IdentityList, g_IdentityList + 23),
              Bytes(entries.begin(), entries.begin() + 23));
    EXPECT_EQ(g_IdentityList[23], 0);  // beyond Length: zero, not the caller's bytes
    EXPECT_EQ(Bytes(g_IdentityList + 1042, g_IdentityList + 2084),
              Bytes(entries.begin() + 1042, entries.end()));
    EXPECT_TRUE(log.has("Identity_UUID.num = 2, ptempStruct->num = 2.\r\n"));
    EXPECT_TRUE(log.has("iCert = 1, Length = 1024.\r\n"));
}

// Our rule: a refused call leaves the previous list exactly as it was.
TEST_F(ResultsTest, RefusedIdentityListKeepsThePreviousOne) {
    const Bytes first = identity_entries({3});
    ASSERT_EQ(1, SetCertIdentityStruct2(1, first.data()));
    uint8_t* const kept = g_IdentityList;
    const Bytes bad = identity_entries({10, 1025});
    EXPECT_EQ(0, SetCertIdentityStruct2(2, bad.data()));
    EXPECT_EQ(g_IdentityList, kept);
    EXPECT_EQ(g_IdentityCount, 1);
    EXPECT_EQ(0, SetCertIdentityStruct2(3, nullptr));
    EXPECT_EQ(g_IdentityList, kept);
    EXPECT_EQ(g_IdentityList[16], 3);
}

TEST_F(ResultsTest, SecondListReplacesTheFirstAndCountZeroClears) {
    const Bytes a = identity_entries({3}), b = identity_entries({7, 8, 9});
    ASSERT_EQ(1, SetCertIdentityStruct2(1, a.data()));
    ASSERT_EQ(1, SetCertIdentityStruct2(3, b.data()));  // the first list is freed (LeakSanitizer)
    EXPECT_EQ(g_IdentityCount, 3);
    EXPECT_EQ(g_IdentityList[2 * 1042 + 16], 9);
    EXPECT_EQ(1, SetCertIdentityStruct2(0, b.data()));
    EXPECT_EQ(g_IdentityCount, 0);
    EXPECT_EQ(g_IdentityList, nullptr);
    EXPECT_EQ(1, SetCertIdentityStruct2(0, nullptr));
}

}  // namespace
