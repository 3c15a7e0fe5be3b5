// The registrar's view of the wire: byte-order helpers, the attribute codec (a strict walk into a
// list of attributes, and a writer that can misbehave on purpose), and the frame layouts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "registrar/registrar.h"

namespace registrar::wire {

// ---- Byte order -------------------------------------------------------------------------------
inline uint16_t get_be16(std::span<const uint8_t> b, size_t at) {
    return static_cast<uint16_t>((b[at] << 8) | b[at + 1]);
}
inline void put_be16(Bytes& out, uint16_t v) {
    out.push_back(static_cast<uint8_t>(v >> 8));
    out.push_back(static_cast<uint8_t>(v));
}
inline void put_be32(Bytes& out, uint32_t v) {
    put_be16(out, static_cast<uint16_t>(v >> 16));
    put_be16(out, static_cast<uint16_t>(v));
}
inline void append(Bytes& out, std::span<const uint8_t> b) { out.insert(out.end(), b.begin(), b.end()); }

// ---- Attribute types and Message Type values --------------------------------------------------
enum : uint16_t {
    ATTR_ASSOCIATION_STATE = 0x1002,
    ATTR_AUTH_TYPE_FLAGS = 0x1004,
    ATTR_AUTHENTICATOR = 0x1005,
    ATTR_CONFIG_METHODS = 0x1008,
    ATTR_CONFIG_ERROR = 0x1009,
    ATTR_CONNECTION_TYPE_FLAGS = 0x100D,
    ATTR_CREDENTIAL = 0x100E,
    ATTR_ENCR_TYPE_FLAGS = 0x1010,
    ATTR_DEVICE_NAME = 0x1011,
    ATTR_DEVICE_PASSWORD_ID = 0x1012,
    ATTR_E_HASH1 = 0x1014,
    ATTR_E_HASH2 = 0x1015,
    ATTR_E_SNONCE1 = 0x1016,
    ATTR_E_SNONCE2 = 0x1017,
    ATTR_ENCRYPTED_SETTINGS = 0x1018,
    ATTR_ENROLLEE_NONCE = 0x101A,
    ATTR_KEY_WRAP_AUTH = 0x101E,
    ATTR_MAC_ADDRESS = 0x1020,
    ATTR_MANUFACTURER = 0x1021,
    ATTR_MESSAGE_TYPE = 0x1022,
    ATTR_MODEL_NAME = 0x1023,
    ATTR_MODEL_NUMBER = 0x1024,
    ATTR_NETWORK_KEY = 0x1027,
    ATTR_OS_VERSION = 0x102D,
    ATTR_PUBLIC_KEY = 0x1032,
    ATTR_REGISTRAR_NONCE = 0x1039,
    ATTR_RF_BANDS = 0x103C,
    ATTR_R_HASH1 = 0x103D,
    ATTR_R_HASH2 = 0x103E,
    ATTR_R_SNONCE1 = 0x103F,
    ATTR_R_SNONCE2 = 0x1040,
    ATTR_SERIAL_NUMBER = 0x1042,
    ATTR_SIMPLE_CONFIG_STATE = 0x1044,
    ATTR_UUID_E = 0x1047,
    ATTR_UUID_R = 0x1048,
    ATTR_VERSION = 0x104A,
    ATTR_X509_CERT_REQUEST = 0x104B,
    ATTR_PRIMARY_DEVICE_TYPE = 0x1054,
    ATTR_CERTIFICATE_NEEDED = 0x1FF6,
    ATTR_CERTIFICATE_LIST = 0x1FF7,
    ATTR_IDENTITY_SIGNATURE = 0x1FF8,
    ATTR_CERTIFICATE_MODE = 0x1FF9,
    ATTR_CERTIFICATE_IDENTITY = 0x1FFE,
    ATTR_SIGNING_PUBLIC_KEY = 0x1FFF,
};

enum : uint8_t {
    MSG_M1 = 0x04, MSG_M2 = 0x05, MSG_M2D = 0x06, MSG_M3 = 0x07, MSG_M4 = 0x08, MSG_M5 = 0x09,
    MSG_M6 = 0x0A, MSG_M7 = 0x0B, MSG_M8 = 0x0C, MSG_ACK = 0x0D, MSG_NACK = 0x0E, MSG_DONE = 0x0F,
};

constexpr size_t kAttrHeaderLen = 4;
constexpr size_t kAuthenticatorLen = 8;
constexpr size_t kAuthenticatorAttrLen = kAttrHeaderLen + kAuthenticatorLen;  // 12

// ---- Attribute walk ---------------------------------------------------------------------------
struct Attr {
    uint16_t type = 0;
    size_t offset = 0;                  // of the attribute's header within the sequence
    std::span<const uint8_t> value;
};

// A sequence of attributes that was walked completely: every header and value lies inside it and
// nothing trails the last attribute.
class AttrList {
public:
    // Returns false (with `error` set) when the sequence is not exactly a run of attributes.
    bool parse(std::span<const uint8_t> seq, std::string& error);
    // First attribute of the type, or nothing.
    const Attr* find(uint16_t type) const;
    const std::vector<Attr>& all() const { return attrs_; }

private:
    std::vector<Attr> attrs_;
};

// One rule of a message check table: presence plus the allowed value length.
enum class Width { Exact, AtMost, Any };
struct AttrRule {
    uint16_t type;
    Width rule;
    uint16_t width;
    const char* name;
};
// Checks every rule in order; the first failure sets `error` ("<message>: <name> ...").
bool check_rules(const AttrList& list, std::span<const AttrRule> rules, const char* message,
                 std::string& error);

// ---- Attribute writer -------------------------------------------------------------------------
// Appends attributes to a body, applying the registrar's one configured fault when it names this
// message and attribute (omit it, grow it past its width, flip a byte of it).
class AttrWriter {
public:
    AttrWriter(Bytes& out, const Fault& fault, uint8_t message) : out_(out), fault_(fault), message_(message) {}
    // `width` is the attribute's fixed width or its upper bound (text); an oversize fault writes
    // width + 1 bytes.
    void add(uint16_t type, std::span<const uint8_t> value, size_t width);
    void add_u8(uint16_t type, uint8_t v) { add(type, std::span<const uint8_t>(&v, 1), 1); }
    void add_be16(uint16_t type, uint16_t v);
    void add_be32(uint16_t type, uint32_t v);
    void add_text(uint16_t type, const std::string& text, size_t max_len = 32);

private:
    Bytes& out_;
    const Fault& fault_;
    uint8_t message_;
};

// Writes one attribute with no fault applied.
void put_attr(Bytes& out, uint16_t type, std::span<const uint8_t> value);

// ---- Frames -----------------------------------------------------------------------------------
constexpr uint8_t kEapolVersion = 2;
constexpr uint8_t kEapolPacket = 0;
constexpr uint8_t kEapolStart = 1;
constexpr uint8_t kEapRequest = 1;
constexpr uint8_t kEapResponse = 2;
constexpr uint8_t kEapFailure = 4;
constexpr uint8_t kEapTypeIdentity = 1;
constexpr uint8_t kEapTypeWapi = 242;
constexpr uint8_t kEapTypeWifi = 254;
constexpr uint8_t kOpStart = 1, kOpAck = 2, kOpNack = 3, kOpMsg = 4, kOpDone = 5;
constexpr uint8_t kFlagMore = 0x01, kFlagLength = 0x02;
constexpr size_t kEapolHeaderLen = 4;
constexpr size_t kEapHeaderLen = 5;
constexpr size_t kMessageOffset = 18;   // EAPOL 4 + EAP 5 + vendor 3 + vendor type 4 + op + flags

struct Flavour {
    uint8_t eap_type;
    uint8_t vendor[3];
    const char* identity;
};
const Flavour& flavour_of(uint32_t wps_mode);

Bytes request_identity(uint8_t id);
Bytes eap_failure(uint8_t id);
// A request frame carrying `message` with `op_code` (Start: an empty message).
Bytes request_frame(const Flavour& f, uint8_t id, uint8_t op_code, std::span<const uint8_t> message);
// One M8 fragment. The EAP length is written in the enrollee's reading, see frames.cpp.
Bytes fragment_frame(const Flavour& f, uint8_t id, uint8_t flags, std::optional<uint16_t> total_len,
                     std::span<const uint8_t> chunk);

// A received frame from the enrollee, checked up to the Simple Config header.
struct Received {
    enum class Kind { EapolStart, Identity, Expanded } kind = Kind::EapolStart;
    uint8_t id = 0;
    uint8_t op_code = 0;
    std::span<const uint8_t> payload;   // identity text, or the message after the flags
};
std::optional<Received> parse_frame(std::span<const uint8_t> frame, const Flavour& f, std::string& error);

}  // namespace registrar::wire
