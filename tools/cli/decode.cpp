// Frame decoding for the transcript: EAPOL, EAP and Simple Config headers, then the attributes
// with their names, lengths and values. Reads only bytes that exist; a malformed frame is
// described, never trusted.
#include <algorithm>
#include <cstdio>

#include "cli.h"

namespace cli {
namespace {

uint16_t be16(std::span<const uint8_t> b, size_t at) {
    return static_cast<uint16_t>((b[at] << 8) | b[at + 1]);
}
uint32_t be32(std::span<const uint8_t> b, size_t at) {
    return (static_cast<uint32_t>(be16(b, at)) << 16) | be16(b, at + 2);
}

std::string format(const char* fmt, auto... args) {
    char line[256];
    std::snprintf(line, sizeof line, fmt, args...);
    return line;
}

// EAPOL and EAP constants.
constexpr uint8_t kEapolTypeEap = 0;
constexpr uint8_t kEapolTypeStart = 1;
constexpr uint8_t kEapRequest = 1;
constexpr uint8_t kEapResponse = 2;
constexpr uint8_t kEapFailure = 4;
constexpr uint8_t kEapTypeIdentity = 1;
constexpr uint8_t kEapTypeWapiWps = 242;
constexpr uint8_t kEapTypeExpanded = 254;
constexpr size_t kWscHeaderEnd = 18;  // EAPOL 4 + EAP 5 + vendor id 3 + vendor type 4 + op + flags
constexpr uint8_t kOpStart = 1, kOpAck = 2, kOpNack = 3, kOpMsg = 4, kOpDone = 5;
constexpr uint8_t kFlagMore = 0x01, kFlagLength = 0x02;

constexpr uint16_t kAttrMessageType = 0x1022;

// How an attribute value is shown.
enum class Show { Number, Text, Bytes, Secret, MessageType, Nested, Sealed };

struct AttributeInfo {
    uint16_t type;
    const char* name;
    Show show;
};

// Every attribute the exchange carries, in type order.
constexpr AttributeInfo kAttributes[] = {
    {0x1002, "Association State", Show::Number},
    {0x1004, "Authentication Type Flags", Show::Number},
    {0x1005, "Authenticator", Show::Secret},
    {0x1008, "Config Methods", Show::Number},
    {0x1009, "Configuration Error", Show::Number},
    {0x100D, "Connection Type Flags", Show::Number},
    {0x100E, "Credential", Show::Nested},
    {0x1010, "Encryption Type Flags", Show::Number},
    {0x1011, "Device Name", Show::Text},
    {0x1012, "Device Password ID", Show::Number},
    {0x1014, "E-Hash1", Show::Secret},
    {0x1015, "E-Hash2", Show::Secret},
    {0x1016, "E-SNonce1", Show::Secret},
    {0x1017, "E-SNonce2", Show::Secret},
    {0x1018, "Encrypted Settings", Show::Sealed},
    {0x101A, "Enrollee Nonce", Show::Secret},
    {0x101E, "Key Wrap Authenticator", Show::Secret},
    {0x1020, "MAC Address", Show::Bytes},
    {0x1021, "Manufacturer", Show::Text},
    {0x1022, "Message Type", Show::MessageType},
    {0x1023, "Model Name", Show::Text},
    {0x1024, "Model Number", Show::Text},
    {0x1027, "Network Key", Show::Secret},
    {0x102D, "OS Version", Show::Number},
    {0x1032, "Public Key", Show::Secret},
    {0x1039, "Registrar Nonce", Show::Secret},
    {0x103C, "RF Bands", Show::Number},
    {0x103D, "R-Hash1", Show::Secret},
    {0x103E, "R-Hash2", Show::Secret},
    {0x103F, "R-SNonce1", Show::Secret},
    {0x1040, "R-SNonce2", Show::Secret},
    {0x1042, "Serial Number", Show::Text},
    {0x1044, "Simple Config State", Show::Number},
    {0x1047, "UUID-E", Show::Bytes},
    {0x1048, "UUID-R", Show::Bytes},
    {0x104A, "Version", Show::Number},
    {0x104B, "X.509 Certificate Request", Show::Nested},
    {0x1054, "Primary Device Type", Show::Bytes},
    {0x1FF6, "Certificate Needed", Show::Number},
    {0x1FF7, "Certificate List", Show::Bytes},
    {0x1FF8, "Identity Signature", Show::Secret},
    {0x1FF9, "Certificate Mode", Show::Number},
    {0x1FFE, "Certificate Identity", Show::Bytes},
    {0x1FFF, "Signing Public Key", Show::Secret},
};

const AttributeInfo* find_attribute(uint16_t type) {
    for (const AttributeInfo& info : kAttributes) {
        if (info.type == type) {
            return &info;
        }
    }
    return nullptr;
}

const char* op_code_name(uint8_t op) {
    switch (op) {
        case kOpStart:
            return "Start";
        case kOpAck:
            return "ACK";
        case kOpNack:
            return "NACK";
        case kOpMsg:
            return "MSG";
        case kOpDone:
            return "Done";
        default:
            return "unknown";
    }
}

const char* eap_code_name(uint8_t code) {
    switch (code) {
        case 1:
            return "Request";
        case 2:
            return "Response";
        case 3:
            return "Success";
        case 4:
            return "Failure";
        default:
            return "unknown";
    }
}

const char* eapol_type_name(uint8_t type) {
    switch (type) {
        case 0:
            return "EAP-Packet";
        case 1:
            return "Start";
        case 2:
            return "Logoff";
        case 3:
            return "Key";
        default:
            return "unknown";
    }
}

std::string quoted_text(std::span<const uint8_t> bytes) {
    std::string s = "\"";
    for (uint8_t c : bytes) {
        if (c >= 0x20 && c < 0x7F && c != '"' && c != '\\') {
            s += static_cast<char>(c);
        } else {
            s += format("\\x%02x", c);
        }
    }
    return s + "\"";
}

// Hex in lines of 32 bytes, each line indented to `indent`.
void hex_lines(std::span<const uint8_t> bytes, const std::string& indent,
               std::vector<std::string>& out) {
    constexpr size_t kPerLine = 32;
    for (size_t at = 0; at < bytes.size(); at += kPerLine) {
        size_t n = bytes.size() - at < kPerLine ? bytes.size() - at : kPerLine;
        out.push_back(indent + hex(bytes.subspan(at, n)));
    }
}

// The WSC payload of a message frame: the bytes after the flags (and after the length field of
// an LF frame).
std::span<const uint8_t> wsc_payload(std::span<const uint8_t> eapol, uint8_t flags) {
    size_t start = kWscHeaderEnd + ((flags & kFlagLength) ? 2 : 0);
    size_t end = eapol.size();
    // The EAP length bounds the payload when it is shorter than the frame (link-layer padding).
    size_t eap_end = 4 + static_cast<size_t>(be16(eapol, 6));
    if (eap_end < end) {
        end = eap_end;
    }
    if (start >= end) {
        return {};
    }
    return eapol.subspan(start, end - start);
}

// The Message Type attribute of a message body, 0 when absent.
uint8_t find_message_type(std::span<const uint8_t> body) {
    size_t at = 0;
    while (at + 4 <= body.size()) {
        uint16_t type = be16(body, at);
        size_t len = be16(body, at + 2);
        if (at + 4 + len > body.size()) {
            break;
        }
        if (type == kAttrMessageType && len == 1) {
            return body[at + 4];
        }
        at += 4 + len;
    }
    return 0;
}

}  // namespace

const char* message_type_name(uint8_t type) {
    switch (type) {
        case 0x04:
            return "M1";
        case 0x05:
            return "M2";
        case 0x06:
            return "M2D";
        case 0x07:
            return "M3";
        case 0x08:
            return "M4";
        case 0x09:
            return "M5";
        case 0x0A:
            return "M6";
        case 0x0B:
            return "M7";
        case 0x0C:
            return "M8";
        case 0x0D:
            return "ACK";
        case 0x0E:
            return "NACK";
        case 0x0F:
            return "Done";
        default:
            return "unknown";
    }
}

const char* wps_mode_name(uint32_t mode) {
    switch (mode) {
        case 1:
            return "Wi-Fi flavour";
        case 3:
            return "WAPI certificate mode";
        default:
            return "WAPI pre-shared-key mode";
    }
}

std::string mac_to_string(const Mac& mac) {
    return format("%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
}

bool parse_mac(const std::string& text, Mac& mac) {
    if (text.size() != 17) {
        return false;
    }
    auto nibble = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    };
    for (size_t i = 0; i < 6; ++i) {
        int hi = nibble(text[i * 3]);
        int lo = nibble(text[i * 3 + 1]);
        if (hi < 0 || lo < 0 || (i < 5 && text[i * 3 + 2] != ':' && text[i * 3 + 2] != '-')) {
            return false;
        }
        mac[i] = static_cast<uint8_t>(hi * 16 + lo);
    }
    return true;
}

std::string hex(std::span<const uint8_t> bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string s;
    s.reserve(bytes.size() * 3);
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (i != 0) {
            s += ' ';
        }
        s += kDigits[bytes[i] >> 4];
        s += kDigits[bytes[i] & 0x0F];
    }
    return s;
}

const char* state_name(int state) {
    switch (state) {
        case 1:
            return "WAIT_START";
        case 2:
            return "WAIT_REQUEST_IDENTITY";
        case 3:
            return "WAIT_WPS_START";
        case 4:
            return "WAIT_M2";
        case 5:
            return "WAIT_M4";
        case 6:
            return "WAIT_M6";
        case 7:
            return "WAIT_M8";
        case 8:
            return "WAIT_REQUEST_FAILURE";
        case 9:
            return "SEND_NACK_WAIT_FAILURE";
        case 10:
            return "SEND_ACK_WAIT_FAILURE";
        default:
            return "unknown";
    }
}

std::string describe_result(int32_t result) {
    constexpr int32_t kCheckerBase = 65536;
    switch (result) {
        case 0:
            return "0 (accepted, answer written)";
        case 1:
            return "1 (M8 accepted, Done written)";
        case 2:
            return "2 (EAP-Failure after Done: run succeeded)";
        case 100:
            return "100 (EAP-Failure after NACK or M2D: run ended without result)";
        case -100:
            return "-100 (dropped)";
        default:
            break;
    }
    if (result > kCheckerBase - 200 && result < kCheckerBase) {
        return format("%d (refused by a header check, code %d)", result, result - kCheckerBase);
    }
    return format("%d (unexpected)", result);
}

FrameInfo classify_frame(std::span<const uint8_t> f) {
    FrameInfo info;
    if (f.size() < 4) {
        return info;
    }
    if (f[1] == kEapolTypeStart) {
        info.kind = FrameKind::EapolStart;
        return info;
    }
    if (f[1] != kEapolTypeEap || f.size() < 8) {
        return info;
    }
    if (f[4] == kEapFailure) {
        info.kind = FrameKind::Failure;
        return info;
    }
    if (f.size() < 9) {
        return info;
    }
    if (f[8] == kEapTypeIdentity) {
        info.kind = f[4] == kEapRequest    ? FrameKind::IdentityRequest
                    : f[4] == kEapResponse ? FrameKind::IdentityResponse
                                           : FrameKind::Unknown;
        return info;
    }
    if ((f[8] != kEapTypeWapiWps && f[8] != kEapTypeExpanded) || f.size() < kWscHeaderEnd) {
        return info;
    }
    info.flags = f[17];
    switch (f[16]) {
        case kOpStart:
            info.kind = FrameKind::WscStart;
            return info;
        case kOpAck:
            info.kind = FrameKind::Ack;
            break;
        case kOpNack:
            info.kind = FrameKind::Nack;
            break;
        case kOpDone:
            info.kind = FrameKind::Done;
            break;
        case kOpMsg:
            info.kind = FrameKind::Message;
            break;
        default:
            return info;
    }
    info.message_type = find_message_type(wsc_payload(f, info.flags));
    return info;
}

int mirror_state(int state, int32_t result, std::span<const uint8_t> answer) {
    constexpr int32_t kResultSuccess = 2, kResultEnded = 100, kResultDropped = -100;
    if (result == kResultSuccess || result == kResultEnded) {
        return 1;  // the closing EAP-Failure ran StopWPS
    }
    if (answer.empty()) {
        return state;  // refused or dropped: the library never moves without answering
    }
    FrameInfo info = classify_frame(answer);
    switch (info.kind) {
        case FrameKind::IdentityResponse:
            return 3;
        case FrameKind::Done:
            return 8;
        case FrameKind::Nack:
            return 9;
        // An ACK with a drop result answers an M8 fragment (the state stays); otherwise it answers
        // M2D.
        case FrameKind::Ack:
            return result == kResultDropped ? state : 10;
        case FrameKind::Message:
            switch (info.message_type) {
                case 0x04:
                    return 4;
                case 0x07:
                    return 5;
                case 0x09:
                    return 6;
                case 0x0B:
                    return 7;
                default:
                    return state;
            }
        default:
            return state;
    }
}

std::vector<std::string> FrameDecoder::decode(std::span<const uint8_t> f) {
    std::vector<std::string> out;
    if (f.size() < 4) {
        out.push_back(format("    truncated EAPOL header (%zu bytes)", f.size()));
        return out;
    }
    const uint16_t body_len = be16(f, 2);
    std::string line = format("    EAPOL v%u %s, body %u", f[0], eapol_type_name(f[1]), body_len);
    if (f[1] != kEapolTypeEap) {
        out.push_back(line);
        return out;
    }
    if (f.size() < 8) {
        out.push_back(line + format(" | truncated EAP header (%zu bytes)", f.size() - 4));
        return out;
    }
    const uint16_t eap_len = be16(f, 6);
    line += format(" | EAP %s, id %u, length %u", eap_code_name(f[4]), f[5], eap_len);
    // Fragments carry their EAP length little-endian on purpose (the enrollee reads it in host
    // order to size the fragment copy); say so rather than call the frame malformed.
    const uint16_t swapped = static_cast<uint16_t>((eap_len >> 8) | (eap_len << 8));
    if (eap_len != f.size() - 4 && f.size() >= 9 &&
        (swapped == f.size() - 4 || swapped == f.size() - 9)) {
        line += format(" (little-endian %u)", swapped);
    }
    if (f[4] == kEapFailure || f.size() < 9) {
        out.push_back(line);
        return out;
    }
    const uint8_t eap_type = f[8];
    if (eap_type == kEapTypeIdentity) {
        size_t end = 4 + static_cast<size_t>(eap_len) < f.size() ? 4 + static_cast<size_t>(eap_len)
                                                                 : f.size();
        auto text = end > 9 ? f.subspan(9, end - 9) : std::span<const uint8_t>{};
        out.push_back(line + ", type Identity" +
                      (text.empty() ? std::string() : " " + quoted_text(text)));
        return out;
    }
    if (eap_type != kEapTypeWapiWps && eap_type != kEapTypeExpanded) {
        out.push_back(line + format(", type %u (not Simple Config)", eap_type));
        return out;
    }
    line +=
        eap_type == kEapTypeWapiWps ? ", type 242 (WAPI WPS)" : ", type 254 (expanded, WFA WSC)";
    if (f.size() < kWscHeaderEnd) {
        out.push_back(line + format(" | truncated WSC header (%zu bytes)", f.size()));
        return out;
    }
    const uint8_t op = f[16], flags = f[17];
    out.push_back(line);
    std::string wsc = format("    WSC vendor %02x:%02x:%02x type %u, op-code %s (%u), flags 0x%02x",
                             f[9], f[10], f[11], be32(f, 12), op_code_name(op), op, flags);
    if (flags & kFlagMore) wsc += " MF";
    if (flags & kFlagLength) wsc += " LF";
    if ((flags & kFlagLength) && f.size() >= kWscHeaderEnd + 2) {
        wsc += format(", message length %u", be16(f, kWscHeaderEnd));
    }
    out.push_back(wsc);
    std::span<const uint8_t> body = wsc_payload(f, flags);

    // Fragments are collected and decoded as one message once the last has arrived.
    if ((flags & kFlagMore) || in_fragments_) {
        pending_.insert(pending_.end(), body.begin(), body.end());
        if (flags & kFlagMore) {
            in_fragments_ = true;
            out.push_back(format("    fragment of %zu bytes (%zu collected, more follow)",
                                 body.size(), pending_.size()));
            return out;
        }
        in_fragments_ = false;
        out.push_back(format("    last fragment of %zu bytes: reassembled message of %zu bytes",
                             body.size(), pending_.size()));
        Bytes whole;
        whole.swap(pending_);
        uint8_t mt = find_message_type(whole);
        out.push_back(
            format("    message %s (0x%02x), %zu bytes", message_type_name(mt), mt, whole.size()));
        decode_attributes(whole, 0, out);
        return out;
    }
    if (body.empty()) {
        return out;
    }
    uint8_t mt = find_message_type(body);
    out.push_back(
        format("    message %s (0x%02x), %zu bytes", message_type_name(mt), mt, body.size()));
    decode_attributes(body, 0, out);
    return out;
}

void FrameDecoder::decode_attributes(std::span<const uint8_t> body, int depth,
                                     std::vector<std::string>& out) {
    const std::string indent(6 + 2 * static_cast<size_t>(depth), ' ');
    size_t at = 0;
    while (at < body.size()) {
        if (body.size() - at < 4) {
            out.push_back(indent + format("(%zu trailing bytes, too short for an attribute)",
                                          body.size() - at));
            return;
        }
        const uint16_t type = be16(body, at);
        const size_t len = be16(body, at + 2);
        const AttributeInfo* info = find_attribute(type);
        std::string head = indent + format("%-26s 0x%04x %4zu  ",
                                           info ? info->name : "(unknown attribute)", type, len);
        if (len > body.size() - at - 4) {
            out.push_back(head + format("malformed: length runs %zu bytes past the message",
                                        len - (body.size() - at - 4)));
            return;
        }
        std::span<const uint8_t> v = body.subspan(at + 4, len);
        const Show show = info ? info->show : Show::Bytes;
        switch (show) {
            case Show::Number:
                if (len == 1)
                    out.push_back(head + format("0x%02x", v[0]));
                else if (len == 2)
                    out.push_back(head + format("0x%04x", be16(v, 0)));
                else if (len == 4)
                    out.push_back(head + format("0x%08x", be32(v, 0)));
                else
                    out.push_back(head + hex(v));
                break;
            case Show::MessageType:
                out.push_back(head + (len == 1
                                          ? format("%s (0x%02x)", message_type_name(v[0]), v[0])
                                          : hex(v)));
                break;
            case Show::Text:
                out.push_back(head + quoted_text(v));
                break;
            case Show::Secret:
                if (!show_secrets_) {
                    out.push_back(head + "<hidden, --show-secrets shows it>");
                    break;
                }
                [[fallthrough]];
            case Show::Bytes:
                if (len <= 32) {
                    out.push_back(head + hex(v));
                } else {
                    out.push_back(head);
                    hex_lines(v, indent + "  ", out);
                }
                break;
            case Show::Nested:
                out.push_back(head + "nested attributes:");
                decode_attributes(v, depth + 1, out);
                break;
            case Show::Sealed:
                if (len < 16) {
                    out.push_back(head + "sealed, too short for its IV: " + hex(v));
                    break;
                }
                out.push_back(head + format("sealed: IV and %zu bytes of ciphertext", len - 16));
                out.push_back(indent + "  IV " + hex(v.first(16)));
                hex_lines(v.subspan(16), indent + "  ", out);
                break;
        }
        at += 4 + len;
    }
}

Bytes ethernet_frame(const Mac& dst, const Mac& src, std::span<const uint8_t> eapol) {
    Bytes frame;
    frame.reserve(kEthernetHeaderLen + eapol.size());
    frame.insert(frame.end(), dst.begin(), dst.end());
    frame.insert(frame.end(), src.begin(), src.end());
    frame.push_back(static_cast<uint8_t>(kEthertypeEapol >> 8));
    frame.push_back(static_cast<uint8_t>(kEthertypeEapol & 0xFF));
    frame.insert(frame.end(), eapol.begin(), eapol.end());
    return frame;
}

bool split_prefix(std::span<const uint8_t> out, Mac& dst, Bytes& eapol) {
    constexpr size_t kPrefixLen = 8;
    constexpr uint8_t kPrefixType0 = 0x89, kPrefixType1 = 0x1B;
    if (out.size() < kPrefixLen || out[6] != kPrefixType0 || out[7] != kPrefixType1) {
        return false;
    }
    std::copy(out.begin(), out.begin() + 6, dst.begin());
    eapol.assign(out.begin() + kPrefixLen, out.end());
    return true;
}

// ---- Capture files -------------------------------------------------------------------------

namespace {

constexpr uint16_t kEthertypeVlan = 0x8100;
constexpr size_t kVlanTagLen = 4;
constexpr size_t kSllHeaderLen = 16;
constexpr size_t kSll2HeaderLen = 20;
constexpr size_t kLibraryPrefixLen = 8;  // the library's MAC-mode prefix: address, 0x89, 0x1B

// Short frames arrive padded to the Ethernet minimum: cut back to what the EAPOL header declares.
Bytes eapol_of(std::span<const uint8_t> bytes) {
    Bytes frame(bytes.begin(), bytes.end());
    if (frame.size() >= 4) {
        const size_t declared = 4 + static_cast<size_t>(be16(bytes, 2));
        if (declared < frame.size()) frame.resize(declared);
    }
    return frame;
}

}  // namespace

Packet capture_packet(int linktype, std::span<const uint8_t> data, size_t number) {
    Packet p;
    p.number = number;
    const size_t n = data.size();
    auto ethertype_payload = [&](uint16_t type, size_t at) {
        if (type == kEthertypeEapol) {
            p.eapol = true;
            p.frame = eapol_of(data.subspan(at));
        } else {
            p.note = format("not EAPOL: ethertype 0x%04x", type);
        }
    };
    switch (linktype) {
        case kLinkEthernet: {
            if (n < kEthernetHeaderLen) {
                p.note = "truncated Ethernet header";
                return p;
            }
            std::copy(data.begin(), data.begin() + 6, p.dst.begin());
            std::copy(data.begin() + 6, data.begin() + 12, p.src.begin());
            uint16_t type = be16(data, 12);
            size_t at = kEthernetHeaderLen;
            if (type == kEthertypeVlan && n >= at + kVlanTagLen) {
                type = be16(data, at + 2);
                at += kVlanTagLen;
            }
            ethertype_payload(type, at);
            return p;
        }
        case kLinkLinuxCooked:
        case kLinkLinuxCooked2: {
            const bool v2 = linktype == kLinkLinuxCooked2;
            if (n < (v2 ? kSll2HeaderLen : kSllHeaderLen)) {
                p.note = "truncated Linux cooked header";
                return p;
            }
            ethertype_payload(be16(data, v2 ? 0 : 14), v2 ? kSll2HeaderLen : kSllHeaderLen);
            return p;
        }
        default:
            // Bare EAPOL frames (as other tools write them), or the library's own MAC-mode
            // output with its 8-byte prefix in front.
            p.eapol = true;
            if (n >= kLibraryPrefixLen + 4 && data[6] == 0x89 && data[7] == 0x1B) {
                std::copy(data.begin(), data.begin() + 6, p.dst.begin());
                p.frame = eapol_of(data.subspan(kLibraryPrefixLen));
            } else {
                p.frame = eapol_of(data);
            }
            return p;
    }
}

}  // namespace cli
