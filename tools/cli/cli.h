// The command-line host `wapiwps`: what its three commands share (options, exit codes, frame
// decoding for the transcript, the pcap file, the live link).
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace cli {

using Bytes = std::vector<uint8_t>;
using Mac = std::array<uint8_t, 6>;

// Exit codes a script can rely on; --help and docs/cli.md list them.
enum ExitCode : int {
    kExitOk = 0,       // the exchange finished and the credential was delivered
    kExitFailed = 1,   // the exchange failed or was refused (NACK, refusal, stalled exchange)
    kExitUsage = 2,    // bad command line
    kExitTimeout = 3,  // the peer stayed silent longer than --timeout
    kExitLink = 4,     // the interface or the pcap file could not be opened or used
    kExitSetup = 5,    // the library or the secure-chip simulator could not be set up
};

enum class Command { None, Demo, Enroll, Registrar, Decode, Replay };

struct Options {
    Command command = Command::None;
    bool help = false;
    bool version = false;  // --version: print the library's version
    uint32_t wps_mode = 3;           // 1 Wi-Fi flavour, 2 WAPI pre-shared key, 3 certificate
    std::optional<std::string> pin;  // absent: push-button password "00000000"
    std::optional<std::string> registrar_pin;  // demo: the registrar holds another password
    bool secure_chip = false;
    bool fragment_m8 = false;  // the registrar sends M8 in fragments
    size_t fragment_size = 0;  // at most this many bytes each; 0: two, split early
    std::string pcap_path;
    bool show_secrets = false;
    bool trace = false;  // print the library's own diagnostic lines
    std::string iface;
    std::optional<Mac> peer;
    uint32_t timeout_s = 10;
    std::string network_key = "wapiwps-demo-psk";
    std::optional<std::string> identity;  // certificate identity registered for the registrar
    std::string input_path;               // decode, replay: the capture file
    bool mode_given = false;              // replay: --mode was on the command line
};

// Parses argv (without the program name). On failure returns false and sets `error`.
bool parse_options(const std::vector<std::string>& args, Options& opt, std::string& error);
const char* usage_text(Command command);

// ---- Text helpers ---------------------------------------------------------------------------
std::string mac_to_string(const Mac& mac);
bool parse_mac(const std::string& text, Mac& mac);
std::string hex(std::span<const uint8_t> bytes);
const char* state_name(int state);
const char* message_type_name(uint8_t type);
const char* wps_mode_name(uint32_t mode);
std::string describe_result(int32_t result);

// ---- Frame classification and decoding -------------------------------------------------------
// What a frame (starting at the EAPOL header) is, as far as the exchange is concerned.
enum class FrameKind {
    Unknown,
    EapolStart,
    IdentityRequest,
    IdentityResponse,
    WscStart,
    Message,
    Ack,
    Nack,
    Done,
    Failure
};
struct FrameInfo {
    FrameKind kind = FrameKind::Unknown;
    uint8_t message_type = 0;  // Message Type of a WSC message frame, 0 when not known
    uint8_t flags = 0;         // WSC flags byte
};
FrameInfo classify_frame(std::span<const uint8_t> eapol);

// The protocol state the enrollee is in after a ProcessReceivePacket call, mirrored from the
// result and from the answer it wrote (for a library without WapiWps_GetStatus).
int mirror_state(int state, int32_t result, std::span<const uint8_t> answer);

// Turns frames into readable transcript lines. One decoder per direction: it also collects the
// fragments of a fragmented message and decodes the whole once the last one has arrived.
class FrameDecoder {
  public:
    explicit FrameDecoder(bool show_secrets) : show_secrets_(show_secrets) {}
    std::vector<std::string> decode(std::span<const uint8_t> eapol);

  private:
    void decode_attributes(std::span<const uint8_t> body, int depth, std::vector<std::string>& out);
    bool show_secrets_;
    Bytes pending_;  // fragments collected so far
    bool in_fragments_ = false;
};

// ---- Capture files -------------------------------------------------------------------------
// One packet of a capture file, as far as the transcript is concerned.
struct Packet {
    size_t number = 0;  // 1-based, counting every packet of the file
    Mac src{}, dst{};   // zero when the link type carries none
    bool eapol = false;
    Bytes frame;        // the EAPOL frame (from its header), cut to its declared length
    std::string note;   // why a packet is not EAPOL
};
// Link types (pcap LINKTYPE_ values) read as such; any other is taken as bare EAPOL frames.
constexpr int kLinkEthernet = 1;
constexpr int kLinkLinuxCooked = 113;
constexpr int kLinkLinuxCooked2 = 276;
// Takes the EAPOL frame out of one captured packet. Never reads past `data`.
Packet capture_packet(int linktype, std::span<const uint8_t> data, size_t number);

// ---- pcap output -----------------------------------------------------------------------------
// Writes frames as Ethernet/EAPOL packets to a pcap file (the classic format, DLT_EN10MB).
class PcapWriter {
  public:
    PcapWriter() = default;
    ~PcapWriter();
    PcapWriter(const PcapWriter&) = delete;
    PcapWriter& operator=(const PcapWriter&) = delete;
    bool open(const std::string& path, std::string& error);
    bool is_open() const { return file_ != nullptr; }
    void write(const Mac& dst, const Mac& src, std::span<const uint8_t> eapol);
    // Flushes and closes the file. False, with `error`, when any frame could not be written.
    bool close(std::string& error);

  private:
    void* file_ = nullptr;  // std::FILE*
    std::string path_;
    bool failed_ = false;
};

// Closes the --pcap file: `code` when it was written whole, else a message and kExitLink.
int finish_pcap(PcapWriter& pcap, int code);

constexpr uint16_t kEthertypeEapol = 0x888E;
constexpr size_t kEthernetHeaderLen = 14;
constexpr Mac kPaeGroupAddress = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x03};
Bytes ethernet_frame(const Mac& dst, const Mac& src, std::span<const uint8_t> eapol);

// Splits the library's MAC-mode output (8-byte prefix, then the frame) into destination and frame.
bool split_prefix(std::span<const uint8_t> out, Mac& dst, Bytes& eapol);

// ---- Commands --------------------------------------------------------------------------------
int run_demo(const Options& opt);
int run_enroll(const Options& opt);
int run_registrar(const Options& opt);
int run_decode(const Options& opt);
int run_replay(const Options& opt);

}  // namespace cli
