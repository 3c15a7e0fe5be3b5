// The command-line host's transcript decoder over arbitrary frames: it reads frames from the air
// (enroll, registrar) and from capture files (decode, replay) and must describe anything without
// reading past it. The decoder is compiled in here from the host's sources, so no other target
// is needed.
#include <cstddef>
#include <cstdint>
#include <span>

#include "../tools/cli/decode.cpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::span<const uint8_t> frame(data, size);
    // Twice through one decoder, so that a fragment's state meets the next frame.
    cli::FrameDecoder decoder(true);
    decoder.decode(frame);
    decoder.decode(frame);
    cli::FrameDecoder hidden(false);
    hidden.decode(frame);
    cli::FrameInfo info = cli::classify_frame(frame);
    (void)info;
    for (int state = 1; state <= 10; ++state) {
        (void)cli::mirror_state(state, 0, frame);
        (void)cli::mirror_state(state, -100, frame);
    }
    cli::Mac dst{};
    cli::Bytes eapol;
    (void)cli::split_prefix(frame, dst, eapol);
    // The same bytes as a captured packet of every link type the capture reader knows.
    for (int linktype : {cli::kLinkEthernet, cli::kLinkLinuxCooked, cli::kLinkLinuxCooked2, 147}) {
        const cli::Packet p = cli::capture_packet(linktype, frame, 1);
        if (p.eapol) decoder.decode(p.frame);
    }
    return 0;
}
