// `wapiwps registrar`: the reference registrar over a live interface, for one exchange. It
// answers at the source address of the enrollee's frames, ignores exact repeats and frames of
// other stations, and repeats its last request (up to three times) when the enrollee stays
// silent for a second, as an authenticator does.
#include <chrono>
#include <cstdio>
#include <memory>

#include "enrollee.h"
#include "link.h"
#include "registrar_side.h"

namespace cli {
namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kRepeatAfter = std::chrono::seconds(1);
constexpr int kMaxRepeats = 3;
constexpr Mac kBroadcast = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

}  // namespace

int run_registrar(const Options& opt) {
    std::string error;
    Link link;
    PcapWriter pcap;
    if (const int rc = open_link_and_capture(opt, link, pcap); rc != kExitOk) return rc;
    const Mac own = link.own_mac();
    std::printf("wapiwps registrar on %s (%s): waiting for EAPOL-Start\n", opt.iface.c_str(),
                mac_to_string(own).c_str());
    std::fflush(stdout);

    std::unique_ptr<registrar::Registrar> reg;
    Mac enrollee{};
    Bytes last_in;
    std::vector<registrar::Bytes> last_out;
    int repeats = 0;
    bool refused = false;
    FrameDecoder received_decoder(opt.show_secrets), sent_decoder(opt.show_secrets);
    int seq = 0;
    const auto silence = std::chrono::seconds(opt.timeout_s);
    const bool wait_forever = opt.timeout_s == 0;
    auto deadline = Clock::now() + silence;
    auto last_sent = Clock::now();

    auto send_all = [&](const std::vector<registrar::Bytes>& frames) {
        for (const registrar::Bytes& f : frames) {
            print_frame(++seq, "registrar -> enrollee ", own, enrollee, f, sent_decoder);
            pcap.write(enrollee, own, f);
            if (!link.send(enrollee, f, error)) {
                std::fprintf(stderr, "wapiwps: %s\n", error.c_str());
                return false;
            }
        }
        last_sent = Clock::now();
        return true;
    };

    for (;;) {
        const auto now = Clock::now();
        if ((reg || !wait_forever) && now >= deadline) {
            std::printf("timeout: no frame from the enrollee for %u s\n", opt.timeout_s);
            if (reg) {
                print_registrar_outcome(reg->outcome());
            }
            return finish_pcap(pcap, refused ? kExitFailed : kExitTimeout);
        }
        if (reg && !last_out.empty() && repeats < kMaxRepeats && now - last_sent >= kRepeatAfter) {
            ++repeats;
            std::printf("no answer: repeating the last frame (%d of %d)\n", repeats, kMaxRepeats);
            if (!send_all(last_out)) {
                return kExitLink;
            }
        }
        Mac src{}, to{};
        Bytes frame;
        Link::Receive r = link.receive(src, to, frame, 200, error);
        if (r == Link::Receive::Error) {
            std::fprintf(stderr, "wapiwps: %s\n", error.c_str());
            return kExitLink;
        }
        if (r == Link::Receive::Timeout ||
            !(to == own || to == kPaeGroupAddress || to == kBroadcast)) {
            continue;
        }
        const FrameInfo info = classify_frame(frame);
        if (!reg) {
            if (info.kind != FrameKind::EapolStart || (opt.peer && src != *opt.peer)) {
                continue;  // only an EAPOL-Start opens the exchange
            }
            enrollee = src;
            reg = std::make_unique<registrar::Registrar>(registrar_config(opt, enrollee));
            std::printf("enrollee %s started\n", mac_to_string(enrollee).c_str());
        } else if (src != enrollee || frame == last_in || info.kind == FrameKind::EapolStart) {
            if (src == enrollee) {
                std::printf("repeat from the enrollee ignored\n");
            }
            continue;
        }
        print_frame(++seq, "enrollee  -> registrar", src, to, frame, received_decoder);
        pcap.write(to, src, frame);
        last_in = frame;
        deadline = Clock::now() + (wait_forever ? std::chrono::seconds(10) : silence);
        std::vector<registrar::Bytes> replies;
        registrar::Status status = reg->handle(frame, replies);
        if (status == registrar::Status::Refused) {
            std::printf("  registrar refused the frame: %s\n", reg->last_error().c_str());
            refused = true;
        }
        if (!replies.empty()) {
            last_out = replies;
            repeats = 0;
            if (!send_all(replies)) {
                return kExitLink;
            }
        }
        if (status == registrar::Status::Finished) {
            print_registrar_outcome(reg->outcome());
            const bool ok = reg->outcome().done_received;
            std::printf("result: %s\n",
                        ok ? "success (Done received, EAP-Failure sent)" : "failed (no Done)");
            return finish_pcap(pcap, ok ? kExitOk : kExitFailed);
        }
    }
}

}  // namespace cli
