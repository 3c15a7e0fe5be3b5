// `wapiwps enroll`: the enrollee over a live interface. The library writes every answer with the
// 8-byte MAC prefix; the host strips it and puts the Ethernet header in its place. The host owns
// the timing: EAPOL-Start is repeated every second until a registrar answers, and the run gives
// up after --timeout seconds in which the library accepted no frame.
#include <chrono>
#include <cstdio>
#include <thread>

#include "enrollee.h"
#include "link.h"
#include "wapiwps.h"

namespace cli {
namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kStartRepeat = std::chrono::seconds(1);
// The library's secure-chip watcher looks for the service every 500 ms and pauses 1 s after a
// failed attempt; one such period is granted before the exchange begins.
constexpr auto kChipConnectGrace = std::chrono::milliseconds(1200);
constexpr Mac kBroadcast = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

bool addressed_to(const Mac& dst, const Mac& own) {
    return dst == own || dst == kPaeGroupAddress || dst == kBroadcast;
}

bool accepted(int32_t result, const Bytes& answer) {
    return !answer.empty() || (result >= WAPIWPS_RESULT_ACCEPTED && result <= WAPIWPS_RESULT_ENDED);
}

}  // namespace

int run_enroll(const Options& opt) {
    std::string error;
    Link link;
    PcapWriter pcap;
    if (const int rc = open_link_and_capture(opt, link, pcap); rc != kExitOk) return rc;
    const Mac own = link.own_mac();
    const Mac peer = opt.peer ? *opt.peer : kPaeGroupAddress;
    std::printf("wapiwps enroll on %s (%s), registrar %s, timeout %u s\n", opt.iface.c_str(),
                mac_to_string(own).c_str(), mac_to_string(peer).c_str(), opt.timeout_s);

    Enrollee enrollee(opt, own, peer);
    if (!enrollee.prepare(error)) {
        std::fprintf(stderr, "wapiwps: %s\n", error.c_str());
        return kExitSetup;
    }
    Mac dst{};
    Bytes start_frame;
    if (!enrollee.start(dst, start_frame, error)) {
        std::fprintf(stderr, "wapiwps: %s\n", error.c_str());
        return kExitSetup;
    }
    if (opt.secure_chip) {
        std::this_thread::sleep_for(kChipConnectGrace);
    }
    FrameDecoder sent_decoder(opt.show_secrets), received_decoder(opt.show_secrets);
    int seq = 0;
    auto send = [&](const Mac& to, const Bytes& frame) {
        print_frame(++seq, "enrollee  -> registrar", own, to, frame, sent_decoder);
        pcap.write(to, own, frame);
        if (!link.send(to, frame, error)) {
            std::fprintf(stderr, "wapiwps: %s\n", error.c_str());
            return false;
        }
        return true;
    };
    if (!send(dst, start_frame)) {
        return kExitLink;
    }

    const auto silence = std::chrono::seconds(opt.timeout_s);
    auto deadline = Clock::now() + silence;
    auto next_start = Clock::now() + kStartRepeat;
    std::optional<Mac> registrar =
        opt.peer && *opt.peer != kPaeGroupAddress ? opt.peer : std::nullopt;
    while (!enrollee.finished()) {
        const auto now = Clock::now();
        if (now >= deadline) {
            std::printf("timeout: no frame accepted for %u s (state %s)\n", opt.timeout_s,
                        state_name(enrollee.state()));
            enrollee.print_reason();
            return finish_pcap(pcap, kExitTimeout);
        }
        if (enrollee.state() == WAPIWPS_WAIT_REQUEST_IDENTITY && now >= next_start) {
            std::printf("no answer yet: EAPOL-Start again\n");
            if (!send(dst, start_frame)) {
                return kExitLink;
            }
            next_start = now + kStartRepeat;
        }
        auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(
            std::min(deadline,
                     enrollee.state() == WAPIWPS_WAIT_REQUEST_IDENTITY ? next_start : deadline) -
            now);
        Mac src{}, to{};
        Bytes frame;
        Link::Receive r = link.receive(src, to, frame, static_cast<int>(wait.count()) + 1, error);
        if (r == Link::Receive::Error) {
            std::fprintf(stderr, "wapiwps: %s\n", error.c_str());
            return kExitLink;
        }
        if (r == Link::Receive::Timeout || !addressed_to(to, own) ||
            (registrar && src != *registrar)) {
            continue;  // silence, or a frame meant for someone else
        }
        print_frame(++seq, "registrar -> enrollee ", src, to, frame, received_decoder);
        pcap.write(to, src, frame);
        Bytes answer;
        Mac answer_dst{};
        int32_t result = enrollee.receive(frame, answer_dst, answer);
        if (accepted(result, answer)) {
            deadline = Clock::now() + silence;
            registrar = src;  // from now on only this registrar is heard
        }
        if (!answer.empty() && !send(answer_dst, answer)) {
            return kExitLink;
        }
    }
    bool have_credential = enrollee.print_credential();
    if (enrollee.succeeded() && have_credential) {
        std::printf("result: success\n");
        return finish_pcap(pcap, kExitOk);
    }
    enrollee.print_reason();
    std::printf("result: failed (the run ended without a credential)\n");
    return finish_pcap(pcap, kExitFailed);
}

}  // namespace cli
