// M8 in fragments from the reference registrar, cut the way the enrollee's reassembly reads them
// (the reassembly's quirks are pinned with hand-built fragments in tests/engine): every legal
// split delivers what the whole message delivers. (A long certificate list in two fragments is
// delivered in tests/alloc.)
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
        if (static_cast<size_t>(k) + 1 >= t.outcome.m8_split_points) break;
        ASSERT_LT(k, 64);
    }
    EXPECT_GE(runs, 1u);
}

}  // namespace
