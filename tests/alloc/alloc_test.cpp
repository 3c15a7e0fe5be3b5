// After StartWPS, ProcessReceivePacket never allocates: the process's allocator is interposed
// with a counting one, whole exchanges run against the reference registrar in every mode, and
// the count taken inside the enrollee's calls must stay zero. The ZEV library's own calls are
// excluded (linked through --wrap, counting paused inside them): the vendor library is not ours.
// The same runs measure the enrollee's peak stack per call by painting the stack beforehand.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <utility>

#include "common/exchange.h"
#include "wapiwps.h"
#include "common/zev_wrap.h"

#if defined(WAPIWPS_HAVE_CHIPSIM) && !defined(_WIN32)
#include "chipsim/chipsim.h"
#define ALLOC_WITH_CHIP 1
#else
#define ALLOC_WITH_CHIP 0
#endif

// The sanitizers bring their own allocator and stack layout: neither counting nor painting.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ALLOC_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ALLOC_SANITIZED 1
#endif
#endif
#if !defined(ALLOC_SANITIZED) && defined(__GLIBC__) && defined(ALLOC_ZEV_WRAPPED)
#define ALLOC_COUNTING 1
#else
#define ALLOC_COUNTING 0
#endif

namespace {
// Plain thread-locals: the allocator may run before any constructor, and only the thread that
// calls the library is counted (the secure-chip simulator serves from a thread of its own).
thread_local bool g_counting = false;
thread_local long g_allocations = 0;
[[maybe_unused]] void note_allocation() {
    if (g_counting) ++g_allocations;
}

thread_local bool g_zev_paused_counting = false;
}  // namespace

#if ALLOC_COUNTING
// glibc's own entry points, under the names it exports for exactly this purpose.
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
void* malloc(size_t n) {
    note_allocation();
    return __libc_malloc(n);
}
void* calloc(size_t n, size_t size) {
    note_allocation();
    return __libc_calloc(n, size);
}
void* realloc(void* p, size_t n) {
    note_allocation();
    return __libc_realloc(p, n);
}
void* aligned_alloc(size_t alignment, size_t n) {
    note_allocation();
    return __libc_memalign(alignment, n);
}
int posix_memalign(void** out, size_t alignment, size_t n) {
    note_allocation();
    *out = __libc_memalign(alignment, n);
    return *out != nullptr ? 0 : 12;  // ENOMEM
}
}
#endif

// The ZEV calls, wrapped at link time (tests/alloc/extra.cmake): counting pauses inside them.
void zev_wrap_enter() {
    g_zev_paused_counting = g_counting;
    g_counting = false;
}
void zev_wrap_leave() {
    g_counting = g_zev_paused_counting;
}

namespace {

// ---- Stack painting --------------------------------------------------------------------------
constexpr size_t kPaintLen = 128 * 1024;
constexpr uint8_t kPaint = 0xA5;

uintptr_t g_paint_low = 0;

// Fills kPaintLen bytes just below the caller's frame and notes their lowest address.
__attribute__((noinline)) void paint_stack() {
    volatile uint8_t area[kPaintLen];
    for (size_t i = 0; i < kPaintLen; ++i) area[i] = kPaint;
    g_paint_low = reinterpret_cast<uintptr_t>(&area[0]);
}

// The lowest painted byte that was overwritten since, as a depth below top.
__attribute__((noinline)) size_t depth_used(uintptr_t low, uintptr_t top) {
    const volatile uint8_t* p = reinterpret_cast<const volatile uint8_t*>(low);
    size_t i = 0;
    while (i < kPaintLen && p[i] == kPaint) ++i;
    return top - (low + i);
}

// ---- Scenarios -------------------------------------------------------------------------------
struct Mode {
    const char* name;
    uint8_t certificate_mode;  // 0 for the pre-shared key
    int m8_split;              // -1: M8 whole; else two fragments split at this legal point
    bool chip;                 // signed by the secure chip (the simulator, in-process)
};

const Mode kModes[] = {
    {"psk", 0, -1, false},
    {"cert1", 1, -1, false},
    {"cert2", 2, -1, false},
    {"cert1_fragmented_m8", 1, 1000, false},
    {"cert1_secure_chip", 1, -1, true},
};

#if ALLOC_WITH_CHIP
chipsim::Simulator* g_sim = nullptr;
#endif

class NoAllocation : public ::testing::TestWithParam<Mode> {
protected:
    static void SetUpTestSuite() {
#if ALLOC_WITH_CHIP
        exchange::use_own_chip_socket("alloc");
        g_sim = new chipsim::Simulator();
        ASSERT_TRUE(g_sim->start());
#endif
    }
    static void TearDownTestSuite() {
#if ALLOC_WITH_CHIP
        g_sim->stop();
        delete g_sim;
        g_sim = nullptr;
#endif
    }
};

// The runs also deliver what the registrar sent, the long certificate list in two fragments too.
TEST_P(NoAllocation, ProcessReceivePacketNeverAllocates) {
    // The interposed allocator sees the process's allocations (else this test could not fail).
    g_allocations = 0;
    g_counting = true;
    void* probe = std::malloc(24);
    g_counting = false;
    std::free(probe);
    ASSERT_EQ(g_allocations, ALLOC_COUNTING ? 1 : 0);
    const Mode& m = GetParam();
    if (m.chip && !ALLOC_WITH_CHIP) GTEST_SKIP() << "no secure-chip simulator in this build";
    // Certificate mode 2 signs with the key pair a mode-1 run left behind.
    const exchange::Bytes held = m.certificate_mode == 2 ? exchange::run(exchange::cert_run(1)).outcome.signing_public_key
                                                         : exchange::Bytes{};
    exchange::Options o = m.certificate_mode == 0 ? exchange::psk_run() : exchange::cert_run(m.certificate_mode, held);
    o.record_trace = false;
    o.registrar.m8_split_index = m.m8_split;
    if (m.certificate_mode != 0) {  // a list long enough for the M8 to be split
        o.registrar.cert_count = 3;
        o.registrar.cert_list.clear();
        for (int i = 0; i < 1500; ++i) o.registrar.cert_list.push_back(static_cast<uint8_t>(i * 7));
    }
#if ALLOC_WITH_CHIP
    if (m.chip) {
        o.secure_chip = true;
        o.after_start = exchange::wait_chip_connected;
    }
#endif
    long calls = 0, allocations = 0;
    size_t peak = 0;
    uintptr_t low = 0, top = 0;
    if (ALLOC_COUNTING) o.around_enrollee = [&](const exchange::Bytes&, bool before) {
        if (before) {
            top = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
            paint_stack();
            low = g_paint_low;
            g_allocations = 0;
            g_counting = true;
        } else {
            g_counting = false;
            allocations += g_allocations;
            ++calls;
            const size_t used = depth_used(low, top);
            if (used > peak) peak = used;
        }
    };
    const exchange::Transcript t = exchange::run(o);
    EXPECT_EQ(t.last_result(), WAPIWPS_RESULT_SUCCESS);
    EXPECT_TRUE(t.m8_done);
    EXPECT_EQ(t.outcome.m8_fragments, m.m8_split < 0 ? 1u : 2u);
    EXPECT_EQ(t.cert_list, o.registrar.cert_list);
    EXPECT_EQ(t.cert_count, m.certificate_mode != 0 ? 3 : 0);
    if (!ALLOC_COUNTING) GTEST_SKIP() << "the allocator is interposed only on glibc (Linux) without sanitizers";
    EXPECT_GE(calls, 7);
    EXPECT_EQ(allocations, 0) << "allocations inside ProcessReceivePacket";
    // A host may run the library on a small thread stack; 32 KiB is our bound for one call.
    EXPECT_LT(peak, 32u * 1024u);
    std::printf("[ %s ] %ld calls, %ld allocations, peak stack of ProcessReceivePacket %zu bytes\n",
                m.name, calls, allocations, peak);
}

// The peak stack of every other export, by the same painting (ProcessReceivePacket is measured
// in the exchanges above). Each call is made with valid arguments and large enough buffers.
TEST(PeakStack, EveryOtherExportStaysSmall) {
#if defined(ALLOC_SANITIZED)
    GTEST_SKIP() << "stack painting is meaningless under the sanitizers";
#endif
    static uint8_t frame[WAPIWPS_MAX_FRAME_LEN], list[8192], extra[8192];
    static const uint8_t local[16] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
    static const uint8_t peer[6] = {0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB};
    static const uint8_t uuid[16] = {1}, sign_param[16] = {2};
    static uint8_t entry[WAPIWPS_IDENTITY_ENTRY_LEN] = {3};
    static const wapiwps_utf16 name[] = {'s', 't', 'a', 0};
    uint32_t len = 0;
    uint16_t a = 0, b = 0, c = 0;
    uint32_t index = 0;
    uint8_t uuid_r[16], priv[24], pub[48], param[16];
    const std::pair<const char*, std::function<void()>> calls[] = {
        {"SetDeviceInfo", [&] { SetDeviceInfo(uuid, name); }},
        {"SetCertIdentityStruct2", [&] { SetCertIdentityStruct2(1, entry); }},
        {"SetSecureChipParam", [&] { SetSecureChipParam(4, list, 4, extra, 1, sign_param); }},
        {"StartWPS", [&] { StartWPS(local, 0, WAPIWPS_MODE_WAPI_CERT, peer, "12345670", frame, &len); }},
        {"GetWPSResult_PSK", [&] { GetWPSResult_PSK(list, &a); }},
        {"GetWPSResult_Cert", [&] { GetWPSResult_Cert(uuid_r, list, &a, &b, extra, &c, priv, pub); }},
        {"GetWPSResult_Cert_SecureChip",
         [&] { GetWPSResult_Cert_SecureChip(uuid_r, list, &a, &b, extra, &c, &index, pub); }},
        {"GetWPSResult_Cert_SecureChipEx",
         [&] { GetWPSResult_Cert_SecureChipEx(uuid_r, list, &a, &b, extra, &c, &index, pub, param); }},
        {"StopWPS", [&] { StopWPS(); }},
        {"WapiWps_SetTraceCallback", [&] { WapiWps_SetTraceCallback(nullptr, nullptr, 0); }},
    };
    for (const auto& [name_text, call] : calls) {
        const uintptr_t top = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
        paint_stack();
        call();
        const size_t used = depth_used(g_paint_low, top);
        EXPECT_LT(used, 32u * 1024u) << name_text;
        std::printf("[ %s ] peak stack %zu bytes\n", name_text, used);
    }
}

INSTANTIATE_TEST_SUITE_P(Modes, NoAllocation, ::testing::ValuesIn(kModes),
                         [](const ::testing::TestParamInfo<Mode>& info) {
                             return std::string(info.param.name);
                         });

}  // namespace
