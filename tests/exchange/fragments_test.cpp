// M8 in fragments, the way the enrollee's reassembly reads them: op-code 4 with MF (and LF plus a
// 2-byte total on the first), an EAP length that the enrollee reads little-endian, every fragment
// routed by its own byte 9, and 18 bytes after the message because the reassembled length is
// handed on less 18.
#include <gtest/gtest.h>

#include "api/context.h"
#include "common/exchange.h"
#include "wapiwps.h"

namespace {

using exchange::Bytes;

exchange::Options psk_run() {
    exchange::Options o;
    o.wps_mode = WAPIWPS_MODE_WAPI_PSK;
    o.pin = "11223344";
    o.registrar.network_key = Bytes(32, 0x5A);
    return o;
}

// The frames the registrar sent as M8 fragments (op-code 4 with MF or LF, or following one).
std::vector<Bytes> fragments_of(const exchange::Transcript& t) {
    std::vector<Bytes> out;
    bool in_m8 = false;
    for (const exchange::Step& s : t.steps) {
        if (!s.to_enrollee || s.frame.size() < 18 || s.frame[16] != 4) continue;
        if (s.frame[17] != 0 || in_m8) {
            out.push_back(s.frame);
            in_m8 = (s.frame[17] & 0x01) != 0;
        }
    }
    return out;
}

// Checks one fragment's layout and returns its chunk (the bytes the enrollee collects).
Bytes check_fragment(const Bytes& f, bool first, bool last) {
    const bool lf = (f[17] & 0x02) != 0;
    EXPECT_EQ(lf, first);
    EXPECT_EQ((f[17] & 0x01) != 0, !last);
    const size_t start = lf ? 20 : 18;
    const size_t chunk = f.size() - start;
    // EAPOL body length is the real one, big-endian; the EAP length holds chunk + 9 (+ 2 with LF)
    // little-endian, which is what the enrollee subtracts from.
    EXPECT_EQ(static_cast<size_t>((f[2] << 8) | f[3]), f.size() - 4);
    EXPECT_EQ(static_cast<size_t>(f[6] | (f[7] << 8)), chunk + 9 + (lf ? 2 : 0));
    EXPECT_EQ(f[start + 9], 0x0C);   // routed to the M8 branch
    return Bytes(f.begin() + static_cast<std::ptrdiff_t>(start), f.end());
}

// Splitting at every legal point gives the same result as the whole M8: each run's M8 is split in
// two at the k-th legal point until k has passed all points of that run's M8.
TEST(M8Fragments, EveryLegalTwoWaySplitDeliversTheSameKey) {
    const exchange::Transcript whole = exchange::run(psk_run());
    ASSERT_EQ(whole.last_result(), WAPIWPS_RESULT_SUCCESS);
    ASSERT_EQ(whole.outcome.m8_fragments, 1u);

    size_t runs = 0;
    for (int k = 0;; ++k) {
        exchange::Options o = psk_run();
        o.registrar.m8_split_index = k;
        const exchange::Transcript t = exchange::run(o);
        ASSERT_FALSE(t.registrar_refused) << t.registrar_error;
        ++runs;
        EXPECT_EQ(t.outcome.m8_fragments, 2u);
        // First fragment: dropped (-100) with an ACK; second: Done; then success.
        ASSERT_GE(t.results.size(), 3u);
        EXPECT_EQ(t.results[t.results.size() - 3], WAPIWPS_RESULT_DROPPED);
        EXPECT_EQ(t.results[t.results.size() - 2], WAPIWPS_RESULT_M8_DONE);
        EXPECT_EQ(t.last_result(), WAPIWPS_RESULT_SUCCESS);
        EXPECT_EQ(t.psk, whole.psk);
        const std::vector<Bytes> frags = fragments_of(t);
        EXPECT_EQ(frags.size(), 2u);
        for (size_t i = 0; i < frags.size(); ++i) check_fragment(frags[i], i == 0, i + 1 == frags.size());
        if (static_cast<size_t>(k) + 1 >= t.outcome.m8_split_points) break;
        ASSERT_LT(k, 64);
    }
    EXPECT_GE(runs, 1u);
}

// With a size bound the registrar cuts at the furthest legal point within it; whether such a point
// exists depends on the ciphertext, so a refusal must say so. When it succeeds every chunk keeps
// within the bound and the key arrives.
class M8FragmentSize : public testing::TestWithParam<size_t> {};

TEST_P(M8FragmentSize, FragmentsKeepTheBoundOrTheRegistrarSaysWhy) {
    for (int attempt = 0; attempt < 8; ++attempt) {
        exchange::Options o = psk_run();
        o.registrar.fragment_size = GetParam();
        const exchange::Transcript t = exchange::run(o);
        if (t.registrar_refused) {
            EXPECT_NE(t.registrar_error.find("no legal split point"), std::string::npos) << t.registrar_error;
            continue;
        }
        EXPECT_EQ(t.last_result(), WAPIWPS_RESULT_SUCCESS);
        EXPECT_EQ(t.psk, o.registrar.network_key);
        const std::vector<Bytes> frags = fragments_of(t);
        EXPECT_EQ(frags.size(), t.outcome.m8_fragments);
        Bytes collected;
        for (size_t i = 0; i < frags.size(); ++i) {
            const Bytes chunk = check_fragment(frags[i], i == 0, i + 1 == frags.size());
            EXPECT_LE(chunk.size(), GetParam());
            collected.insert(collected.end(), chunk.begin(), chunk.end());
        }
        // The collected bytes are M8 and the 18-byte trailer.
        ASSERT_GT(collected.size(), 18u);
        EXPECT_EQ(collected[9], 0x0C);
        EXPECT_EQ(collected[collected.size() - 18 + 9], 0x0C);
    }
}

// Bounds below the 126-byte M8 of these runs (a 32-byte key).
INSTANTIATE_TEST_SUITE_P(Bounds, M8FragmentSize, testing::Values(size_t{48}, size_t{125}));

// Certificate lists make long M8s; a two-way split before the trailer delivers them.
TEST(M8Fragments, LongCertificateListInTwoFragments) {
    exchange::Options o;
    o.wps_mode = WAPIWPS_MODE_WAPI_CERT;
    o.registrar.require_signature = false;
    o.registrar.cert_count = 3;
    for (int i = 0; i < 900; ++i) o.registrar.cert_list.push_back(static_cast<uint8_t>(i * 7));
    o.registrar.m8_split_index = 1000;   // past the last point: the split just before the trailer
    const exchange::Transcript t = exchange::run(o);
    ASSERT_FALSE(t.registrar_refused) << t.registrar_error;
    EXPECT_EQ(t.last_result(), WAPIWPS_RESULT_SUCCESS);
    EXPECT_EQ(t.cert_list, o.registrar.cert_list);
    EXPECT_EQ(t.cert_count, 3);
    const std::vector<Bytes> frags = fragments_of(t);
    ASSERT_EQ(frags.size(), 2u);
    EXPECT_EQ(frags[1].size(), 18u + 18u);   // header and the trailer alone
}

}  // namespace
