// Attribute walk and writer, and the frame layouts the registrar sends and accepts.
#include "wire.h"

#include <algorithm>
#include <cstring>

namespace registrar::wire {

// ---- Attribute walk ---------------------------------------------------------------------------

bool AttrList::parse(std::span<const uint8_t> seq, std::string& error) {
    attrs_.clear();
    size_t at = 0;
    while (at < seq.size()) {
        if (seq.size() - at < kAttrHeaderLen) {
            error = "attribute header cut short at offset " + std::to_string(at);
            return false;
        }
        const uint16_t type = get_be16(seq, at);
        const size_t len = get_be16(seq, at + 2);
        if (seq.size() - at - kAttrHeaderLen < len) {
            error = "attribute " + std::to_string(type) + " at offset " + std::to_string(at) +
                    " runs past the end (" + std::to_string(len) + " bytes)";
            return false;
        }
        attrs_.push_back(Attr{type, at, seq.subspan(at + kAttrHeaderLen, len)});
        at += kAttrHeaderLen + len;
    }
    return true;
}

const Attr* AttrList::find(uint16_t type) const {
    for (const Attr& a : attrs_) {
        if (a.type == type) return &a;
    }
    return nullptr;
}

bool check_rules(const AttrList& list, std::span<const AttrRule> rules, const char* message,
                 std::string& error) {
    for (const AttrRule& r : rules) {
        const Attr* a = list.find(r.type);
        if (a == nullptr) {
            error = std::string(message) + ": " + r.name + " missing";
            return false;
        }
        const size_t n = a->value.size();
        const bool ok = r.rule == Width::Any || (r.rule == Width::Exact && n == r.width) ||
                        (r.rule == Width::AtMost && n <= r.width);
        if (!ok) {
            error = std::string(message) + ": " + r.name + " has length " + std::to_string(n);
            return false;
        }
    }
    return true;
}

// ---- Attribute writer -------------------------------------------------------------------------

void put_attr(Bytes& out, uint16_t type, std::span<const uint8_t> value) {
    put_be16(out, type);
    put_be16(out, static_cast<uint16_t>(value.size()));
    append(out, value);
}

void AttrWriter::add(uint16_t type, std::span<const uint8_t> value, size_t width) {
    const bool targeted = fault_.message == message_ && fault_.attribute == type;
    if (!targeted) {
        put_attr(out_, type, value);
        return;
    }
    Bytes v(value.begin(), value.end());
    switch (fault_.kind) {
    case Fault::Kind::OmitAttribute:
        return;
    case Fault::Kind::OversizeAttribute:
        v.resize(width + 1, 0x00);
        break;
    case Fault::Kind::CorruptAttribute:
        if (fault_.value < v.size()) v[fault_.value] ^= 0xFF;
        break;
    default:
        break;
    }
    put_attr(out_, type, v);
}

void AttrWriter::add_be16(uint16_t type, uint16_t v) {
    const uint8_t b[2] = {static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v)};
    add(type, b, sizeof b);
}

void AttrWriter::add_be32(uint16_t type, uint32_t v) {
    const uint8_t b[4] = {static_cast<uint8_t>(v >> 24), static_cast<uint8_t>(v >> 16),
                          static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v)};
    add(type, b, sizeof b);
}

void AttrWriter::add_text(uint16_t type, const std::string& text, size_t max_len) {
    const auto* p = reinterpret_cast<const uint8_t*>(text.data());
    add(type, std::span<const uint8_t>(p, text.size()), max_len);
}

// ---- Frames -----------------------------------------------------------------------------------

namespace {

constexpr Flavour kWapi{kEapTypeWapi, {0x00, 0x81, 0xDB}, "BWIPS-SimpleConfig-Enrollee-1-0"};
constexpr Flavour kWifi{kEapTypeWifi, {0x00, 0x37, 0x2A}, "WFA-SimpleConfig-Enrollee-1-0"};
constexpr uint32_t kVendorType = 1;

void put_eapol(Bytes& out, uint8_t type, uint16_t body_len) {
    out.push_back(kEapolVersion);
    out.push_back(type);
    put_be16(out, body_len);
}

void put_expanded_header(Bytes& out, const Flavour& f, uint8_t op_code, uint8_t flags) {
    out.insert(out.end(), f.vendor, f.vendor + 3);
    put_be32(out, kVendorType);
    out.push_back(op_code);
    out.push_back(flags);
}

}  // namespace

const Flavour& flavour_of(uint32_t wps_mode) { return wps_mode == 1 ? kWifi : kWapi; }

Bytes request_identity(uint8_t id) {
    Bytes out;
    put_eapol(out, kEapolPacket, kEapHeaderLen);
    out.push_back(kEapRequest);
    out.push_back(id);
    put_be16(out, kEapHeaderLen);
    out.push_back(kEapTypeIdentity);
    return out;
}

Bytes eap_failure(uint8_t id) {
    Bytes out;
    put_eapol(out, kEapolPacket, 4);
    out.push_back(kEapFailure);
    out.push_back(id);
    put_be16(out, 4);
    return out;
}

Bytes request_frame(const Flavour& f, uint8_t id, uint8_t op_code, std::span<const uint8_t> message) {
    const auto eap_len = static_cast<uint16_t>(message.size() + kMessageOffset - kEapolHeaderLen);
    Bytes out;
    put_eapol(out, kEapolPacket, eap_len);
    out.push_back(kEapRequest);
    out.push_back(id);
    put_be16(out, eap_len);
    out.push_back(f.eap_type);
    put_expanded_header(out, f, op_code, 0);
    append(out, message);
    return out;
}

Bytes fragment_frame(const Flavour& f, uint8_t id, uint8_t flags, std::optional<uint16_t> total_len,
                     std::span<const uint8_t> chunk) {
    const size_t extra = total_len ? 2 : 0;
    const auto frame_len = kMessageOffset + extra + chunk.size();
    // The enrollee sizes the copy of a fragment from the EAP length read in its own (little-
    // endian) byte order, less 9, less 2 more when the length field is present. This field is
    // therefore written little-endian on purpose, holding exactly that sum, so that the copy
    // takes the fragment's bytes and nothing beyond them.
    const auto enrollee_len = static_cast<uint16_t>(chunk.size() + 9 + extra);
    Bytes out;
    put_eapol(out, kEapolPacket, static_cast<uint16_t>(frame_len - kEapolHeaderLen));
    out.push_back(kEapRequest);
    out.push_back(id);
    out.push_back(static_cast<uint8_t>(enrollee_len));
    out.push_back(static_cast<uint8_t>(enrollee_len >> 8));
    out.push_back(f.eap_type);
    put_expanded_header(out, f, kOpMsg, static_cast<uint8_t>(flags | (total_len ? kFlagLength : 0)));
    if (total_len) put_be16(out, *total_len);
    append(out, chunk);
    return out;
}

std::optional<Received> parse_frame(std::span<const uint8_t> frame, const Flavour& f, std::string& error) {
    if (frame.size() < kEapolHeaderLen) {
        error = "frame shorter than an EAPOL header";
        return std::nullopt;
    }
    const uint16_t body_len = get_be16(frame, 2);
    if (body_len != frame.size() - kEapolHeaderLen) {
        error = "EAPOL body length " + std::to_string(body_len) + " does not match the frame";
        return std::nullopt;
    }
    Received r;
    if (frame[1] == kEapolStart) {
        if (body_len != 0) {
            error = "EAPOL-Start with a body";
            return std::nullopt;
        }
        r.kind = Received::Kind::EapolStart;
        return r;
    }
    if (frame[1] != kEapolPacket) {
        error = "EAPOL packet type " + std::to_string(frame[1]) + " is neither EAP nor Start";
        return std::nullopt;
    }
    if (frame.size() < kEapolHeaderLen + kEapHeaderLen) {
        error = "EAP header cut short";
        return std::nullopt;
    }
    if (frame[4] != kEapResponse) {
        error = "EAP code " + std::to_string(frame[4]) + " is not Response";
        return std::nullopt;
    }
    if (get_be16(frame, 6) != body_len) {
        error = "EAP length does not match the frame";
        return std::nullopt;
    }
    r.id = frame[5];
    if (frame[8] == kEapTypeIdentity) {
        r.kind = Received::Kind::Identity;
        r.payload = frame.subspan(kEapolHeaderLen + kEapHeaderLen);
        return r;
    }
    if (frame[8] != f.eap_type) {
        error = "EAP type " + std::to_string(frame[8]) + " is not the flavour's";
        return std::nullopt;
    }
    if (frame.size() < kMessageOffset) {
        error = "Simple Config header cut short";
        return std::nullopt;
    }
    if (!std::equal(f.vendor, f.vendor + 3, frame.begin() + 9)) {
        error = "vendor id is not the flavour's";
        return std::nullopt;
    }
    if (get_be16(frame, 12) != 0 || get_be16(frame, 14) != kVendorType) {
        error = "vendor type is not 1";
        return std::nullopt;
    }
    if (frame[17] != 0) {
        error = "the enrollee never fragments, yet flags are " + std::to_string(frame[17]);
        return std::nullopt;
    }
    r.kind = Received::Kind::Expanded;
    r.op_code = frame[16];
    r.payload = frame.subspan(kMessageOffset);
    return r;
}

}  // namespace registrar::wire
