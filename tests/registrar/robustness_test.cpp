// Whatever arrives, the registrar answers with a refusal or a frame, never more: before every
// frame of real exchanges it is handed mutated copies (flipped bytes, cuts, growth, random
// frames); a refused copy must leave it unchanged, so the real frame that follows still completes
// the exchange.
#include <gtest/gtest.h>

#include <random>

#include "common/exchange.h"
#include "wapiwps.h"

namespace {

using exchange::Bytes;

Bytes mutate(const Bytes& frame, std::mt19937& rng) {
    Bytes m = frame;
    std::uniform_int_distribution<int> kind(0, 4);
    auto pick = [&rng](size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(rng); };
    switch (kind(rng)) {
    case 0:   // flip one byte
        if (!m.empty()) m[pick(m.size())] ^= static_cast<uint8_t>(1u << pick(8));
        break;
    case 1:   // cut
        m.resize(pick(m.size() + 1));
        break;
    case 2:   // grow, fixing the EAPOL length so the frame passes the first checks
        m.push_back(static_cast<uint8_t>(rng()));
        if (m.size() >= 4) {
            m[2] = static_cast<uint8_t>((m.size() - 4) >> 8);
            m[3] = static_cast<uint8_t>(m.size() - 4);
        }
        break;
    case 3:   // a byte deep in the message, where the attributes are
        if (m.size() > 18) m[18 + pick(m.size() - 18)] ^= 0xFF;
        break;
    default:  // random frame of random length
        m.assign(pick(300), 0);
        for (auto& b : m) b = static_cast<uint8_t>(rng());
        break;
    }
    return m;
}

struct Run {
    const char* name;
    int32_t wps_mode;
    size_t fragment_index;   // -1 as size_t: whole M8
};

class RegistrarRobustness : public testing::TestWithParam<Run> {};

TEST_P(RegistrarRobustness, RefusalsChangeNothing) {
    std::mt19937 rng(20261121);
    size_t refused = 0, accepted_copies = 0;
    for (int round = 0; round < 12; ++round) {
        exchange::Options o;
        o.wps_mode = GetParam().wps_mode;
        o.registrar.network_key = {9, 8, 7, 6, 5, 4, 3, 2};
        o.registrar.require_signature = false;
        if (GetParam().fragment_index != static_cast<size_t>(-1))
            o.registrar.m8_split_index = static_cast<int>(GetParam().fragment_index);
        bool copy_accepted = false;
        o.before_registrar = [&](registrar::Registrar& reg, const Bytes& frame, size_t) {
            if (copy_accepted) return;
            for (int i = 0; i < 6; ++i) {
                const Bytes m = mutate(frame, rng);
                if (m == frame) continue;
                std::vector<registrar::Bytes> out;
                const registrar::Status s = reg.handle(m, out);
                if (s == registrar::Status::Refused) {
                    ++refused;
                    EXPECT_TRUE(out.empty());
                    EXPECT_FALSE(reg.last_error().empty());
                } else {
                    // A change the registrar does not check (a text byte, the EAPOL version):
                    // the exchange has moved on, so stop interfering.
                    copy_accepted = true;
                    ++accepted_copies;
                    return;
                }
            }
        };
        const exchange::Transcript t = exchange::run(o);
        if (!copy_accepted) {
            EXPECT_EQ(t.last_result(), WAPIWPS_RESULT_SUCCESS) << t.registrar_error;
            EXPECT_TRUE(t.registrar_finished);
        }
    }
    EXPECT_GT(refused, 100u);
    RecordProperty("refused", static_cast<int>(refused));
    RecordProperty("accepted_copies", static_cast<int>(accepted_copies));
}

const Run kRuns[] = {
    {"Psk", WAPIWPS_MODE_WAPI_PSK, static_cast<size_t>(-1)},
    {"Cert", WAPIWPS_MODE_WAPI_CERT, static_cast<size_t>(-1)},
    {"PskFragmented", WAPIWPS_MODE_WAPI_PSK, 0},
};
INSTANTIATE_TEST_SUITE_P(Modes, RegistrarRobustness, testing::ValuesIn(kRuns),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
