// `wapiwps decode` and `wapiwps replay`: a capture file read back. decode prints the transcript
// the demo prints; replay hands the registrar's frames to the library and shows, frame by frame,
// what the library made of them and why a run stopped.
#include <pcap/pcap.h>

#include <cstdio>
#include <string>
#include <vector>

#include "enrollee.h"
#include "wapiwps.h"

namespace cli {
namespace {

constexpr size_t kMessageOffset = 18;  // EAPOL, EAP and WSC headers
constexpr uint8_t kEapolTypeEapPacket = 0;
constexpr uint8_t kEapRequest = 1;
constexpr uint8_t kEapFailure = 4;
constexpr Mac kUnknownMac = {};

enum class Direction { ToRegistrar, ToEnrollee, Unknown };

// Reads every packet of a capture file. False, with a message, when the file cannot be read.
bool read_capture(const std::string& path, std::vector<Packet>& packets) {
    char errbuf[PCAP_ERRBUF_SIZE] = {};
    pcap_t* in = pcap_open_offline(path.c_str(), errbuf);
    if (in == nullptr) {
        std::fprintf(stderr, "wapiwps: cannot read %s: %s\n", path.c_str(), errbuf);
        return false;
    }
    const int linktype = pcap_datalink(in);
    pcap_pkthdr* header = nullptr;
    const u_char* data = nullptr;
    int rc;
    while ((rc = pcap_next_ex(in, &header, &data)) == 1)
        packets.push_back(capture_packet(linktype, std::span<const uint8_t>(data, header->caplen),
                                         packets.size() + 1));
    if (rc == PCAP_ERROR) {
        // A file cut short mid-packet still yields the packets before the cut.
        std::fprintf(stderr, "wapiwps: %s: %s (the packets before it are used)\n", path.c_str(),
                     pcap_geterr(in));
    }
    pcap_close(in);
    return true;
}

// Who sent a frame: the registrar sends EAP Requests and the Failure, the enrollee EAPOL-Start
// and Responses.
Direction direction_of(std::span<const uint8_t> frame) {
    const FrameInfo info = classify_frame(frame);
    if (info.kind == FrameKind::EapolStart) return Direction::ToRegistrar;
    if (frame.size() < 5 || frame[1] != kEapolTypeEapPacket) return Direction::Unknown;
    if (frame[4] == kEapRequest || frame[4] == kEapFailure) return Direction::ToEnrollee;
    return Direction::ToRegistrar;
}

const char* direction_label(Direction d) {
    switch (d) {
        case Direction::ToRegistrar:
            return "enrollee  -> registrar";
        case Direction::ToEnrollee:
            return "registrar -> enrollee ";
        default:
            return "unknown direction     ";
    }
}

// The enrollee's mode as the capture shows it: the Wi-Fi flavour by its EAP type, the
// certificate mode by a Certificate Mode attribute in M1 or M2.
uint32_t mode_of(const std::vector<Packet>& packets) {
    bool wapi = false;
    for (const Packet& p : packets) {
        if (!p.eapol || p.frame.size() < 9 || p.frame[1] != kEapolTypeEapPacket) continue;
        if (p.frame[8] == 254) return 1;
        if (p.frame[8] != 242) continue;
        wapi = true;
        const FrameInfo info = classify_frame(p.frame);
        if (info.kind != FrameKind::Message ||
            (info.message_type != 0x04 && info.message_type != 0x05))
            continue;
        const size_t start = kMessageOffset + ((info.flags & 0x02) != 0 ? 2 : 0);
        for (size_t at = start; at + 4 <= p.frame.size();) {
            const uint16_t type = static_cast<uint16_t>((p.frame[at] << 8) | p.frame[at + 1]);
            const size_t len = static_cast<size_t>((p.frame[at + 2] << 8) | p.frame[at + 3]);
            if (type == 0x1FF9) return 3;
            at += 4 + len;
        }
    }
    return wapi ? 2 : 3;
}

const char* reason_name(uint32_t reason) {
    switch (reason) {
        case WAPIWPS_REASON_MALFORMED_FRAME:
            return "malformed frame";
        case WAPIWPS_REASON_OUT_OF_ORDER:
            return "out of order";
        case WAPIWPS_REASON_NOT_OURS:
            return "not ours";
        case WAPIWPS_REASON_AUTHENTICATOR:
            return "Authenticator mismatch";
        case WAPIWPS_REASON_WRONG_PASSWORD:
            return "wrong device password";
        case WAPIWPS_REASON_SETTINGS:
            return "settings do not decrypt or unpad";
        case WAPIWPS_REASON_ATTRIBUTE:
            return "missing or malformed attribute";
        case WAPIWPS_REASON_KEY_AGREEMENT:
            return "key agreement failed";
        case WAPIWPS_REASON_SECURE_CHIP:
            return "secure-chip failure";
        case WAPIWPS_REASON_CREDENTIAL:
            return "credential refused";
        case WAPIWPS_REASON_NO_RUN:
            return "no run";
        default:
            return "none";
    }
}

}  // namespace

int run_decode(const Options& opt) {
    std::vector<Packet> packets;
    if (!read_capture(opt.input_path, packets)) return kExitLink;
    std::printf("wapiwps decode: %s, %zu packets\n", opt.input_path.c_str(), packets.size());
    FrameDecoder to_registrar(opt.show_secrets), to_enrollee(opt.show_secrets),
        unknown(opt.show_secrets);
    for (const Packet& p : packets) {
        if (!p.eapol) {
            std::printf("#%-3zu (%s) skipped\n", p.number, p.note.c_str());
            continue;
        }
        const Direction d = direction_of(p.frame);
        FrameDecoder& decoder = d == Direction::ToRegistrar  ? to_registrar
                                : d == Direction::ToEnrollee ? to_enrollee
                                                             : unknown;
        print_frame(static_cast<int>(p.number), direction_label(d), p.src, p.dst, p.frame, decoder);
        if (classify_frame(p.frame).kind == FrameKind::Unknown)
            std::printf("    (not a frame of this exchange: shown as far as it parses)\n");
    }
    return kExitOk;
}

int run_replay(const Options& given) {
    std::vector<Packet> packets;
    if (!read_capture(given.input_path, packets)) return kExitLink;
    std::string error;
    Options opt = given;
    if (!opt.mode_given) opt.wps_mode = mode_of(packets);
    // Our address is where the registrar's frames went; the registrar's is where they came from.
    Mac own = {0x02, 0x00, 0x00, 0x00, 0x00, 0x01}, peer = kPaeGroupAddress;
    for (const Packet& p : packets) {
        if (p.eapol && direction_of(p.frame) == Direction::ToEnrollee && p.src != kUnknownMac) {
            own = p.dst;
            peer = p.src;
            break;
        }
    }
    std::printf("wapiwps replay: %s in %s%s; the registrar's frames go to the library in order\n",
                given.input_path.c_str(), wps_mode_name(opt.wps_mode),
                opt.mode_given ? "" : " (from the capture)");
    std::printf(
        "  (the library makes its own nonces and keys: from M2 on the captured frames were "
        "made for another M1, so the replay diverges there)\n");

    Enrollee enrollee(opt, own, peer);
    Mac dst{};
    Bytes start_frame;
    if (!enrollee.prepare(error) || !enrollee.start(dst, start_frame, error)) {
        std::fprintf(stderr, "wapiwps: %s\n", error.c_str());
        return kExitSetup;
    }
    FrameDecoder decoder(opt.show_secrets);
    bool stopped_early = false, diverged = false;
    for (const Packet& p : packets) {
        if (!p.eapol || direction_of(p.frame) != Direction::ToEnrollee) continue;
        print_frame(static_cast<int>(p.number), direction_label(Direction::ToEnrollee), p.src,
                    p.dst, p.frame, decoder);
        Bytes answer;
        Mac answer_dst{};
        const int32_t result = enrollee.receive(p.frame, answer_dst, answer);
        WapiWpsStatus st{};
        st.size = sizeof st;
        WapiWps_GetStatus(&st);
        if (st.lastCode == WAPIWPS_RESULT_DROPPED)
            std::printf("  why: dropped, %s\n", reason_name(st.lastReason));
        else if (st.lastCode != 0)
            std::printf("  why: %s (code %d, %s)\n", WapiWps_ResultText(st.lastCode), st.lastCode,
                        reason_name(st.lastReason));
        if (result > WAPIWPS_CHECKER_BASE - 200 && result < WAPIWPS_CHECKER_BASE)
            stopped_early = true;  // the captured frame itself is malformed
        if (st.outcome == WAPIWPS_OUTCOME_REFUSED && st.message == 0x05 &&
            (st.code == -21 || st.code == -24)) {
            if (!diverged)
                std::printf(
                    "  replay: M2 was made for the captured enrollee's M1, not for ours; "
                    "the frames after it cannot be checked\n");
            diverged = true;
        } else if (st.outcome == WAPIWPS_OUTCOME_REFUSED) {
            stopped_early = true;
        }
        if (st.outcome == WAPIWPS_OUTCOME_NACK || st.outcome == WAPIWPS_OUTCOME_M2D)
            stopped_early = true;
    }
    enrollee.print_reason();
    std::printf("result: %s\n", stopped_early ? "the capture shows why the exchange stopped (above)"
                                              : "no reason to stop before the replay diverged");
    if (enrollee.state() != WAPIWPS_WAIT_START) StopWPS();
    return stopped_early ? kExitFailed : kExitOk;
}

}  // namespace cli
