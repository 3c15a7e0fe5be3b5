// The documentation's code runs: the README's host loop and the host guide's loop (compiled as C
// in docs_tests, as C++ in docs_cxx_tests) enrol against the reference registrar over a link
// that can lose a frame; and docs/errors.md is what the table of check codes says it is.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <deque>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "errors_doc.h"
#include "registrar/registrar.h"
#include "wapiwps.h"

#if defined(WAPIWPS_DOCS_CXX)
#define DOCS_LINKAGE
#else
#define DOCS_LINKAGE extern "C"
#endif

// What the documentation's blocks define ...
DOCS_LINKAGE int32_t enroll_network_key(const uint8_t my_uuid[16], const uint8_t my_mac[6],
                                        const uint8_t ap_mac[6], uint8_t* key, uint16_t* key_len);
DOCS_LINKAGE int host_enroll(const uint8_t mac[6], const uint8_t ap[6], int32_t mode,
                             const char* pin);
DOCS_LINKAGE int read_certificate(void);
DOCS_LINKAGE void enable_library_log(FILE* log);

// ... and what they expect from the host: a link to the registrar and a clock.
namespace {

using Bytes = std::vector<uint8_t>;

struct Link {
    registrar::Registrar* registrar = nullptr;
    std::deque<Bytes> inbox;
    uint32_t clock_ms = 0;
    size_t sent = 0;
    size_t lose = SIZE_MAX;  // index of an enrollee frame that never arrives
    int certificate_reads = 0;
};
Link g_link;

}  // namespace

DOCS_LINKAGE void send_frame(const uint8_t* frame, uint32_t len) {
    const size_t index = g_link.sent++;
    if (index == g_link.lose || len < WAPIWPS_PREFIX_LEN) return;
    std::vector<Bytes> replies;
    g_link.registrar->handle(Bytes(frame + WAPIWPS_PREFIX_LEN, frame + len), replies);
    for (Bytes& r : replies) g_link.inbox.push_back(std::move(r));
}

DOCS_LINKAGE uint32_t receive_frame(uint8_t* frame, uint32_t cap, uint32_t timeout_ms) {
    if (g_link.inbox.empty()) {
        g_link.clock_ms += timeout_ms;  // nothing arrived in time
        return 0;
    }
    const Bytes f = std::move(g_link.inbox.front());
    g_link.inbox.pop_front();
    const size_t n = f.size() < cap ? f.size() : cap;
    std::memcpy(frame, f.data(), n);
    return static_cast<uint32_t>(n);
}

DOCS_LINKAGE uint32_t now_ms(void) {
    return g_link.clock_ms;
}

namespace {

const uint8_t kUuid[16] = {0xE0, 0xE1, 0xE2, 0xE3, 0xE4, 0xE5, 0xE6, 0xE7,
                           0xE8, 0xE9, 0xEA, 0xEB, 0xEC, 0xED, 0xEE, 0xEF};
const uint8_t kMac[6] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
const uint8_t kAp[6] = {0x02, 0x66, 0x77, 0x88, 0x99, 0xAA};
const Bytes kNetworkKey = {'d', 'o', 'c', 's', '-', 'k', 'e', 'y'};

registrar::Config config(uint32_t mode, const char* pin) {
    registrar::Config c;
    c.wps_mode = mode;
    c.pin = pin;
    c.enrollee_address = Bytes(kMac, kMac + 6);
    c.network_key = kNetworkKey;
    c.cert_list = {0x30, 0x82, 0x00, 0x01};
    c.require_signature = false;
    return c;
}

class DocsExample : public testing::Test {
  protected:
    void use(const registrar::Config& c, size_t lose = SIZE_MAX) {
        registrar_ = std::make_unique<registrar::Registrar>(c);
        g_link = Link{};
        g_link.registrar = registrar_.get();
        g_link.lose = lose;
    }
    void TearDown() override { g_link = Link{}; }
    std::unique_ptr<registrar::Registrar> registrar_;
};

// The README's loop delivers the key, and names a registrar that is not ready.
TEST_F(DocsExample, ReadmeLoopDeliversTheNetworkKeyOrReportsM2D) {
    registrar::Config c = config(WAPIWPS_MODE_WAPI_PSK, "00000000");
    use(c);
    uint8_t key[WAPIWPS_NETWORK_KEY_MAX] = {};
    uint16_t key_len = 0;
    ASSERT_EQ(0, enroll_network_key(kUuid, kMac, kAp, key, &key_len));
    EXPECT_EQ(Bytes(key, key + key_len), kNetworkKey);
    EXPECT_TRUE(registrar_->outcome().done_received);
    c.fault = {registrar::Fault::Kind::SendM2D, 0x05, 0, 0};
    use(c);
    EXPECT_EQ(WAPIWPS_OUTCOME_M2D, enroll_network_key(kUuid, kMac, kAp, key, &key_len));
}

// A lost EAPOL-Start is sent again; a lost answer (M3, the enrollee's fourth frame) likewise.
TEST_F(DocsExample, GuideLoopRecoversLostFramesAndReadsTheCertificate) {
    for (size_t lose : {size_t{0}, size_t{3}}) {
        use(config(WAPIWPS_MODE_WAPI_CERT, "00000000"), lose);
        EXPECT_EQ(0, host_enroll(kMac, kAp, WAPIWPS_MODE_WAPI_CERT, nullptr)) << lose;
        EXPECT_TRUE(registrar_->outcome().done_received);
    }
}

TEST_F(DocsExample, GuideLoopNamesAWrongPin) {
    use(config(WAPIWPS_MODE_WAPI_PSK, "11112222"));
    std::FILE* log = std::tmpfile();
    ASSERT_NE(log, nullptr);
    enable_library_log(log);
    EXPECT_EQ(1, host_enroll(kMac, kAp, WAPIWPS_MODE_WAPI_PSK, "33334444"));
    WapiWps_SetTraceCallback(nullptr, nullptr, 0);
    EXPECT_GT(std::ftell(log), 0);
    std::fclose(log);
    WapiWpsStatus st{};
    st.size = sizeof st;
    ASSERT_EQ(0, WapiWps_GetStatus(&st));
    EXPECT_EQ(st.reason, uint32_t{WAPIWPS_REASON_WRONG_PASSWORD});
    // Outside a run the certificate reader refuses.
    EXPECT_EQ(-1, read_certificate());
}

// The platform's own UTF-16 literal is the header's UTF-16 type, without a cast.
TEST(Utf16Literal, IsTheDeviceNameType) {
#if defined(_WIN32)
    EXPECT_EQ(0, SetDeviceInfo(kUuid, L"Office laptop"));
#else
    EXPECT_EQ(0, SetDeviceInfo(kUuid, u"Office laptop"));
#endif
}

TEST(ErrorsDoc, MatchesTheTableOfCheckCodes) {
    std::ifstream in(WAPIWPS_DOCS_DIR "/errors.md", std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    EXPECT_EQ(text.str(), codesdoc::errors_markdown())
        << "docs/errors.md is out of date: run `ninja -C build/linux errors-doc`";
}

}  // namespace
