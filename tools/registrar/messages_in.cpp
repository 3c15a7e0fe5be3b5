// The messages the registrar accepts: M1, M3, M5, M7, Done and NACK. Each check table runs in
// order and the first failure is the refusal; messages after M1 must end with their Authenticator.
#include <algorithm>
#include <cstring>

#include "session.h"

namespace registrar {

using namespace wire;

namespace {

constexpr size_t kIvLen = 16;
constexpr size_t kBlockLen = 16;
constexpr size_t kSignatureLen = 48;
constexpr size_t kSigningKeyAttrLen = kAttrHeaderLen + 48;   // 52

// M1: the enrollee's identity, nonce and the two SM2 public keys.
constexpr AttrRule kM1Rules[] = {
    {ATTR_VERSION, Width::Exact, 1, "Version"},
    {ATTR_MESSAGE_TYPE, Width::Exact, 1, "Message Type"},
    {ATTR_UUID_E, Width::Exact, 16, "UUID-E"},
    {ATTR_MAC_ADDRESS, Width::AtMost, 16, "MAC Address"},
    {ATTR_ENROLLEE_NONCE, Width::Exact, 16, "Enrollee Nonce"},
    {ATTR_PUBLIC_KEY, Width::Exact, 128, "Public Key"},
    {ATTR_AUTH_TYPE_FLAGS, Width::Exact, 2, "Authentication Type Flags"},
    {ATTR_ENCR_TYPE_FLAGS, Width::Exact, 2, "Encryption Type Flags"},
    {ATTR_CONNECTION_TYPE_FLAGS, Width::Exact, 1, "Connection Type Flags"},
    {ATTR_CONFIG_METHODS, Width::Exact, 2, "Config Methods"},
    {ATTR_SIMPLE_CONFIG_STATE, Width::Exact, 1, "Simple Config State"},
    {ATTR_MANUFACTURER, Width::AtMost, 32, "Manufacturer"},
    {ATTR_MODEL_NAME, Width::AtMost, 32, "Model Name"},
    {ATTR_MODEL_NUMBER, Width::AtMost, 32, "Model Number"},
    {ATTR_SERIAL_NUMBER, Width::AtMost, 32, "Serial Number"},
    {ATTR_PRIMARY_DEVICE_TYPE, Width::Exact, 8, "Primary Device Type"},
    {ATTR_DEVICE_NAME, Width::AtMost, 32, "Device Name"},
    {ATTR_RF_BANDS, Width::Exact, 1, "RF Bands"},
    {ATTR_ASSOCIATION_STATE, Width::Exact, 2, "Association State"},
    {ATTR_DEVICE_PASSWORD_ID, Width::Exact, 2, "Device Password ID"},
    {ATTR_CONFIG_ERROR, Width::Exact, 2, "Configuration Error"},
    {ATTR_OS_VERSION, Width::Exact, 4, "OS Version"},
};
constexpr AttrRule kM1CertRules[] = {
    {ATTR_CERTIFICATE_MODE, Width::Exact, 1, "Certificate Mode"},
};

constexpr AttrRule kM3Rules[] = {
    {ATTR_VERSION, Width::Exact, 1, "Version"},
    {ATTR_MESSAGE_TYPE, Width::Exact, 1, "Message Type"},
    {ATTR_REGISTRAR_NONCE, Width::Exact, 16, "Registrar Nonce"},
    {ATTR_E_HASH1, Width::Exact, 32, "E-Hash1"},
    {ATTR_E_HASH2, Width::Exact, 32, "E-Hash2"},
    {ATTR_AUTHENTICATOR, Width::Exact, 8, "Authenticator"},
};

// M5 and M7 share their outer layout.
constexpr AttrRule kSealedRules[] = {
    {ATTR_VERSION, Width::Exact, 1, "Version"},
    {ATTR_MESSAGE_TYPE, Width::Exact, 1, "Message Type"},
    {ATTR_REGISTRAR_NONCE, Width::Exact, 16, "Registrar Nonce"},
    {ATTR_ENCRYPTED_SETTINGS, Width::Any, 0, "Encrypted Settings"},
    {ATTR_AUTHENTICATOR, Width::Exact, 8, "Authenticator"},
};

constexpr AttrRule kClosingRules[] = {
    {ATTR_VERSION, Width::Exact, 1, "Version"},
    {ATTR_MESSAGE_TYPE, Width::Exact, 1, "Message Type"},
    {ATTR_ENROLLEE_NONCE, Width::Exact, 16, "Enrollee Nonce"},
    {ATTR_REGISTRAR_NONCE, Width::Exact, 16, "Registrar Nonce"},
};

constexpr AttrRule kM7CertRules[] = {
    {ATTR_CERTIFICATE_NEEDED, Width::Exact, 1, "Certificate Needed"},
    {ATTR_X509_CERT_REQUEST, Width::Any, 0, "X.509 Certificate Request"},
};

std::span<const uint8_t> value_of(const AttrList& list, uint16_t type) { return list.find(type)->value; }

}  // namespace

// Parses `body` and runs the common checks of a message from the enrollee: the rules, the Message
// Type, and (when `with_auth`) the Authenticator as the last attribute over prev || the rest.
static bool check_message(Session& s, std::span<const uint8_t> body, AttrList& list,
                          std::span<const AttrRule> rules, uint8_t type, const char* name, bool with_auth) {
    std::string error;
    if (!list.parse(body, error)) return s.refuse(std::string(name) + ": " + error);
    if (!check_rules(list, rules, name, error)) return s.refuse(error);
    if (value_of(list, ATTR_MESSAGE_TYPE)[0] != type)
        return s.refuse(std::string(name) + ": Message Type " + std::to_string(value_of(list, ATTR_MESSAGE_TYPE)[0]));
    if (!with_auth) return true;
    if (list.all().back().type != ATTR_AUTHENTICATOR)
        return s.refuse(std::string(name) + ": Authenticator is not the last attribute");
    const crypto::Digest mac =
        crypto::hmac_sm3(s.keys.auth_key, {s.prev, body.first(body.size() - kAuthenticatorAttrLen)});
    if (!crypto::equal_ct(std::span<const uint8_t>(mac.data(), kAuthenticatorLen), value_of(list, ATTR_AUTHENTICATOR)))
        return s.refuse(std::string(name) + ": Authenticator does not verify");
    return true;
}

// Opens Encrypted Settings: IV, SM4-OFB, padding (1 to 16 bytes of its own count), attributes
// ending in the Key Wrap Authenticator over everything before it. `plain` gets the attributes.
static bool open_settings(Session& s, std::span<const uint8_t> sealed, const char* name,
                          Bytes& plain, AttrList& settings) {
    const std::string n(name);
    if (sealed.empty()) return s.refuse(n + ": Encrypted Settings are empty (nothing was encrypted)");
    if (sealed.size() < kIvLen + kBlockLen || (sealed.size() - kIvLen) % kBlockLen != 0)
        return s.refuse(n + ": Encrypted Settings of " + std::to_string(sealed.size()) + " bytes");
    plain = crypto::sm4_ofb(s.keys.key_wrap_key, sealed.first(kIvLen), sealed.subspan(kIvLen));
    const uint8_t pad = plain.back();
    if (pad == 0 || pad > kBlockLen || pad > plain.size()) return s.refuse(n + ": padding value " + std::to_string(pad));
    if (!std::all_of(plain.end() - pad, plain.end(), [pad](uint8_t b) { return b == pad; }))
        return s.refuse(n + ": padding bytes differ");
    plain.resize(plain.size() - pad);
    std::string error;
    if (!settings.parse(plain, error)) return s.refuse(n + " settings: " + error);
    if (settings.all().empty() || settings.all().back().type != ATTR_KEY_WRAP_AUTH ||
        settings.all().back().value.size() != kAuthenticatorLen)
        return s.refuse(n + ": settings do not end with a Key Wrap Authenticator");
    const Attr& kwa = settings.all().back();
    const crypto::Digest mac = crypto::hmac_sm3(s.keys.auth_key, {std::span<const uint8_t>(plain).first(kwa.offset)});
    if (!crypto::equal_ct(std::span<const uint8_t>(mac.data(), kAuthenticatorLen), kwa.value))
        return s.refuse(n + ": Key Wrap Authenticator does not verify");
    return true;
}

static bool check_registrar_nonce(Session& s, const AttrList& list, const char* name) {
    if (!crypto::equal_ct(value_of(list, ATTR_REGISTRAR_NONCE), s.n2))
        return s.refuse(std::string(name) + ": Registrar Nonce is not ours");
    return true;
}

// Reveals a secret nonce against the hash committed in M3.
static bool check_secret(Session& s, const AttrList& settings, uint16_t type,
                         std::span<const uint8_t> psk, const crypto::Digest& committed, const char* name) {
    const Attr* nonce = settings.find(type);
    if (nonce == nullptr || nonce->value.size() != 16)
        return s.refuse(std::string(name) + ": secret nonce missing or not 16 bytes");
    const crypto::Digest h = s.r_hash(nonce->value, psk);
    if (!crypto::equal_ct(h, committed))
        return s.refuse(std::string(name) + ": secret nonce does not match its hash (device password differs)");
    return true;
}

bool Session::accept_m1(std::span<const uint8_t> body) {
    AttrList list;
    if (!check_message(*this, body, list, kM1Rules, MSG_M1, "M1", false)) return false;
    std::string error;
    if (config.wps_mode == 3 && !check_rules(list, kM1CertRules, "M1", error)) return refuse(error);
    const auto address = value_of(list, ATTR_MAC_ADDRESS);
    if (address.empty()) return refuse("M1: empty MAC Address");
    std::ranges::copy(value_of(list, ATTR_UUID_E), uuid_e.begin());
    std::ranges::copy(value_of(list, ATTR_ENROLLEE_NONCE), n1.begin());
    std::ranges::copy(value_of(list, ATTR_PUBLIC_KEY), enrollee_public.begin());
    enrollee_address.assign(address.begin(), address.end());
    outcome.uuid_e = uuid_e;
    outcome.enrollee_nonce.assign(n1.begin(), n1.end());
    outcome.enrollee_address = enrollee_address;
    prev.assign(body.begin(), body.end());
    outcome.m1_ok = true;
    return true;
}

bool Session::accept_m3(std::span<const uint8_t> body) {
    AttrList list;
    if (!check_message(*this, body, list, kM3Rules, MSG_M3, "M3", true)) return false;
    if (!check_registrar_nonce(*this, list, "M3")) return false;
    std::ranges::copy(value_of(list, ATTR_E_HASH1), e_hash1.begin());
    std::ranges::copy(value_of(list, ATTR_E_HASH2), e_hash2.begin());
    prev.assign(body.begin(), body.end());
    outcome.m3_ok = true;
    return true;
}

bool Session::accept_m5(std::span<const uint8_t> body) {
    AttrList list, settings;
    Bytes plain;
    if (!check_message(*this, body, list, kSealedRules, MSG_M5, "M5", true)) return false;
    if (!check_registrar_nonce(*this, list, "M5")) return false;
    if (!open_settings(*this, value_of(list, ATTR_ENCRYPTED_SETTINGS), "M5", plain, settings)) return false;
    if (!check_secret(*this, settings, ATTR_E_SNONCE1, psk1, e_hash1, "M5")) return false;
    prev.assign(body.begin(), body.end());
    outcome.m5_ok = true;
    return true;
}

bool Session::accept_m7(std::span<const uint8_t> body) {
    AttrList list, settings;
    Bytes plain;
    if (!check_message(*this, body, list, kSealedRules, MSG_M7, "M7", true)) return false;
    if (!check_registrar_nonce(*this, list, "M7")) return false;
    if (!open_settings(*this, value_of(list, ATTR_ENCRYPTED_SETTINGS), "M7", plain, settings)) return false;
    if (!check_secret(*this, settings, ATTR_E_SNONCE2, psk2, e_hash2, "M7")) return false;
    if (config.wps_mode == 3) {
        std::string error;
        if (!check_rules(settings, kM7CertRules, "M7 settings", error)) return refuse(error);
        outcome.certificate_needed_m7 = value_of(settings, ATTR_CERTIFICATE_NEEDED)[0];
        const auto request = value_of(settings, ATTR_X509_CERT_REQUEST);
        AttrList parts;
        if (!parts.parse(request, error)) return refuse("M7 certificate request: " + error);
        if (const Attr* key = parts.find(ATTR_SIGNING_PUBLIC_KEY)) {
            if (key->value.size() != 48) return refuse("M7: Signing Public Key is not 48 bytes");
            outcome.signing_public_key.assign(key->value.begin(), key->value.end());
        }
        if (const Attr* identity = parts.find(ATTR_CERTIFICATE_IDENTITY))
            outcome.certificate_identity.assign(identity->value.begin(), identity->value.end());
        if (!request.empty()) {
            // The signed bytes start at the request's first byte; how many depends on the
            // certificate mode, on Certificate Needed and on the signer (chip or software). Try the
            // whole request before the signature, the Signing Public Key attribute alone, and the
            // request less its last 4 bytes, and record which one verified.
            const Attr& sig = parts.all().back();
            if (sig.type != ATTR_IDENTITY_SIGNATURE || sig.value.size() != kSignatureLen)
                return refuse("M7: certificate request does not end with a 48-byte Identity Signature");
            const std::span<const uint8_t> key =
                config.certificate_mode == 2 ? std::span<const uint8_t>(config.known_public_key)
                                             : std::span<const uint8_t>(outcome.signing_public_key);
            if (key.size() != 48) return refuse("M7: no 48-byte public key to verify the signature with");
            const size_t signed_max = sig.offset;
            std::vector<size_t> candidates = {signed_max};
            if (signed_max > kSigningKeyAttrLen) candidates.push_back(kSigningKeyAttrLen);
            if (signed_max >= 4) candidates.push_back(signed_max - 4);
            for (size_t n : candidates) {
                if (crypto::ecdsa192_verify(key, request.first(n), sig.value)) {
                    outcome.signature_verified = true;
                    outcome.signed_length = n;
                    break;
                }
            }
            if (!outcome.signature_verified && config.require_signature)
                return refuse("M7: Identity Signature does not verify over any signed range");
        }
    }
    prev.assign(body.begin(), body.end());
    outcome.m7_ok = true;
    return true;
}

bool Session::accept_done(std::span<const uint8_t> body) {
    AttrList list;
    if (!check_message(*this, body, list, kClosingRules, MSG_DONE, "Done", false)) return false;
    if (!crypto::equal_ct(value_of(list, ATTR_ENROLLEE_NONCE), n1) || !check_registrar_nonce(*this, list, "Done"))
        return refuse("Done: nonces are not this exchange's");
    outcome.done_received = true;
    return true;
}

bool Session::accept_nack(std::span<const uint8_t> body) {
    AttrList list;
    if (!check_message(*this, body, list, kClosingRules, MSG_NACK, "NACK", false)) return false;
    const Attr* error = list.find(ATTR_CONFIG_ERROR);
    if (error == nullptr || error->value.size() != 2) return refuse("NACK: Configuration Error missing");
    // The enrollee writes this one number in its own (little-endian) byte order, on purpose.
    outcome.nack_config_error = static_cast<uint16_t>(error->value[0] | (error->value[1] << 8));
    outcome.nack_received = true;
    return true;
}

}  // namespace registrar
