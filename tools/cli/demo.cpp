// `wapiwps demo`: one whole exchange between the library and the in-process reference registrar,
// printed frame by frame.
#include <cstdio>
#include <deque>

#include "chip.h"
#include "enrollee.h"
#include "registrar_side.h"

namespace cli {
namespace {

constexpr Mac kDemoEnrolleeMac = {0x02, 0x00, 0x00, 0x00, 0x00, 0x01};
constexpr Mac kDemoRegistrarMac = {0x02, 0x00, 0x00, 0x00, 0x00, 0x02};
// More frames than any exchange needs (M8 in 16-byte fragments included): a guard against a
// peer pair that keeps answering each other for ever.
constexpr int kMaxFrames = 1000;

}  // namespace

int run_demo(const Options& opt) {
    std::string error;
    PcapWriter pcap;
    if (!opt.pcap_path.empty() && !pcap.open(opt.pcap_path, error)) {
        std::fprintf(stderr, "wapiwps: %s\n", error.c_str());
        return kExitLink;
    }
    ChipService chip;
    if (opt.secure_chip && !chip.start(error)) {
        std::fprintf(stderr, "wapiwps: secure-chip simulator: %s\n", error.c_str());
        return kExitSetup;
    }
    const char* signing = opt.wps_mode != 3 ? ""
                          : opt.secure_chip ? ", secure-chip signing"
                                            : ", software signing";
    std::printf("wapiwps demo: %s%s, %s\n", wps_mode_name(opt.wps_mode), signing,
                opt.pin ? ("PIN " + *opt.pin).c_str() : "push button (password \"00000000\")");
    std::printf("  enrollee %s (library), registrar %s (reference, in-process)%s\n",
                mac_to_string(kDemoEnrolleeMac).c_str(), mac_to_string(kDemoRegistrarMac).c_str(),
                opt.fragment_m8 ? ", M8 fragmented" : "");

    Enrollee enrollee(opt, kDemoEnrolleeMac, kDemoRegistrarMac);
    if (!enrollee.prepare(error)) {
        std::fprintf(stderr, "wapiwps: %s\n", error.c_str());
        return kExitSetup;
    }
    registrar::Registrar reg(registrar_config(opt, kDemoEnrolleeMac));
    FrameDecoder to_registrar(opt.show_secrets), to_enrollee(opt.show_secrets);

    Mac dst{};
    Bytes frame;
    if (!enrollee.start(dst, frame, error)) {
        std::fprintf(stderr, "wapiwps: %s\n", error.c_str());
        return kExitSetup;
    }
    std::deque<Bytes> outbox{frame};
    bool registrar_refused = false, registrar_finished = false;
    int seq = 0;
    while (!outbox.empty() && seq < kMaxFrames && !registrar_refused && !registrar_finished) {
        Bytes sent = std::move(outbox.front());
        outbox.pop_front();
        print_frame(++seq, "enrollee  -> registrar", kDemoEnrolleeMac, dst, sent, to_registrar);
        pcap.write(dst, kDemoEnrolleeMac, sent);

        std::vector<registrar::Bytes> replies;
        registrar::Status status = reg.handle(sent, replies);
        if (status == registrar::Status::Refused) {
            std::printf("  registrar refused the frame: %s\n", reg.last_error().c_str());
            registrar_refused = true;
        }
        registrar_finished = status == registrar::Status::Finished;
        for (const registrar::Bytes& reply : replies) {
            print_frame(++seq, "registrar -> enrollee ", kDemoRegistrarMac, kDemoEnrolleeMac, reply,
                        to_enrollee);
            pcap.write(kDemoEnrolleeMac, kDemoRegistrarMac, reply);
            if (opt.secure_chip && classify_frame(reply).message_type == 0x0A) {
                // M7 is signed by the chip: give the library's watcher time to reach the service.
                chip.wait_for_client();
            }
            Bytes answer;
            enrollee.receive(reply, dst, answer);
            if (!answer.empty()) {
                outbox.push_back(std::move(answer));
            }
        }
    }
    print_registrar_outcome(reg.outcome());
    bool have_credential = enrollee.print_credential();
    if (enrollee.succeeded() && have_credential && !registrar_refused) {
        std::printf("result: success\n");
        return finish_pcap(pcap, kExitOk);
    }
    enrollee.print_reason();
    if (registrar_refused) {
        std::printf("result: failed (the registrar refused a frame)\n");
    } else if (enrollee.finished()) {
        std::printf("result: failed (the run ended without a credential)\n");
    } else {
        std::printf("result: failed (the exchange stalled in state %s)\n",
                    state_name(enrollee.state()));
    }
    return finish_pcap(pcap, kExitFailed);
}

}  // namespace cli
