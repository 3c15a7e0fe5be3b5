// The messages the registrar builds: M2 (or M2D), M4, M6, M8 and NACK, each a flat run of
// attributes in wire order, with the configured fault applied where it names the message.
#include <algorithm>
#include <cstring>

#include "session.h"

namespace registrar {

using namespace wire;

namespace {

constexpr uint8_t kVersion = 0x10;
constexpr uint16_t kAuthFlagsHexKey = 0x2000;   // tells the enrollee the key is hexadecimal text
constexpr uint16_t kAuthFlagsWapi = 0xE000;
constexpr uint16_t kAuthFlagsWifi = 0x0027;
constexpr uint16_t kEncrFlagsWapi = 0x8000;
constexpr uint16_t kEncrFlagsWifi = 0x000F;
constexpr uint16_t kConfigMethods = 0x008C;
constexpr uint16_t kDeviceCategory = 0x0001;
constexpr uint8_t kOuiWifi[4] = {0x00, 0x50, 0xF2, 0x04};
constexpr uint8_t kOuiWapi[4] = {0x00, 0x00, 0x14, 0x72};
constexpr uint32_t kOsVersion = 0x80000000;
constexpr size_t kTrailerLen = 18;
constexpr size_t kDispatchByte = 9;             // Message Type value when Version comes first
constexpr size_t kMinFragment = kDispatchByte + 1;

Bytes to_hex(std::span<const uint8_t> key) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    Bytes out;
    for (uint8_t b : key) {
        out.push_back(static_cast<uint8_t>(kDigits[b >> 4]));
        out.push_back(static_cast<uint8_t>(kDigits[b & 0x0F]));
    }
    return out;
}

}  // namespace

// ---- Shared pieces ----------------------------------------------------------------------------

void Session::begin_message(Bytes& body, AttrWriter& w, uint8_t message) {
    // The enrollee routes a frame by byte 9 of its message, the Message Type value when Version
    // comes first. Faults on the first two attributes keep that byte right, so that the frame
    // still reaches the parser whose check they are meant to meet.
    const uint8_t routed[1] = {message};
    if (faulty(Fault::Kind::OmitAttribute, message) && config.fault.attribute == ATTR_VERSION) {
        put_attr(body, ATTR_CONNECTION_TYPE_FLAGS, routed);   // a one-byte stand-in for Version
        put_attr(body, ATTR_MESSAGE_TYPE, routed);
    } else if (faulty(Fault::Kind::OversizeAttribute, message) && config.fault.attribute == ATTR_VERSION) {
        put_attr(body, ATTR_MESSAGE_TYPE, routed);
        const uint8_t long_version[2] = {message, kVersion};   // its first byte lands on byte 9
        put_attr(body, ATTR_VERSION, long_version);
    } else if (faulty(Fault::Kind::MessageType, message)) {
        w.add_u8(ATTR_VERSION, kVersion);
        put_attr(body, ATTR_CONNECTION_TYPE_FLAGS, routed);
        w.add_u8(ATTR_MESSAGE_TYPE, static_cast<uint8_t>(config.fault.value));
    } else {
        w.add_u8(ATTR_VERSION, kVersion);
        w.add_u8(ATTR_MESSAGE_TYPE, message);
    }
    outcome.last_message_type = message;
}

void Session::finish_with_authenticator(Bytes& body, uint8_t message) {
    crypto::Digest mac = crypto::hmac_sm3(keys.auth_key, {prev, body});
    if (faulty(Fault::Kind::BadAuthenticator, message)) mac[0] ^= 0x01;
    const std::span<const uint8_t> value(mac.data(), kAuthenticatorLen);
    if (faulty(Fault::Kind::AuthenticatorNotLast, message)) {
        AttrList list;
        std::string ignored;
        list.parse(body, ignored);
        Bytes attr;
        put_attr(attr, ATTR_AUTHENTICATOR, value);
        const size_t at = list.all().empty() ? body.size() : list.all().back().offset;
        body.insert(body.begin() + static_cast<std::ptrdiff_t>(at), attr.begin(), attr.end());
    } else {
        AttrWriter w(body, config.fault, message);
        w.add(ATTR_AUTHENTICATOR, value, kAuthenticatorLen);
    }
    prev = body;
}

void Session::add_key_wrap_auth(Bytes& settings, uint8_t message) const {
    crypto::Digest kwa = crypto::hmac_sm3(keys.auth_key, {settings});
    if (faulty(Fault::Kind::BadKeyWrapAuth, message)) kwa[0] ^= 0x01;
    AttrWriter w(settings, config.fault, message);
    w.add(ATTR_KEY_WRAP_AUTH, std::span<const uint8_t>(kwa.data(), kAuthenticatorLen), kAuthenticatorLen);
}

void Session::pad_settings(Bytes& settings, uint8_t message) const {
    size_t count = 16 - settings.size() % 16;
    const bool bad_string = faulty(Fault::Kind::BadPaddingString, message);
    if (bad_string && count < 2) count += 16;
    settings.insert(settings.end(), count, static_cast<uint8_t>(count));
    if (bad_string) settings[settings.size() - count] ^= 0x01;
    if (faulty(Fault::Kind::BadPaddingValue, message)) {
        settings.back() = static_cast<uint8_t>(std::min<size_t>(settings.size() + 1, 0xFF));
    }
}

Bytes Session::seal(std::span<const uint8_t> plain) const {
    Bytes out(16);
    crypto::random_bytes(out);
    const Bytes cipher = crypto::sm4_ofb(keys.key_wrap_key, std::span<const uint8_t>(out.data(), 16), plain);
    append(out, cipher);
    return out;
}

crypto::Digest Session::r_hash(std::span<const uint8_t> secret, std::span<const uint8_t> psk) const {
    const std::span<const uint8_t> pk_e(enrollee_public.data(), 64);
    return crypto::hmac_sm3(keys.auth_key, {secret, psk, pk_e, own.pub});
}

// ---- Keys after M1 ----------------------------------------------------------------------------

bool Session::prepare_keys() {
    crypto::random_bytes(n2);
    crypto::random_bytes(r_s1);
    crypto::random_bytes(r_s2);
    std::string error;
    if (!crypto::sm2_generate(own, error) || !crypto::sm2_generate(own_temp, error)) return refuse(error);
    crypto::Digest agreed{};
    const std::span<const uint8_t> pub(enrollee_public);
    if (!crypto::sm2_agree_responder(own, own_temp, pub.first(64), pub.subspan(64, 64), config.uuid_r,
                                     uuid_e, agreed, error))
        return refuse(error);
    keys = crypto::derive_session_keys(agreed, n1, enrollee_address, n2);

    // The PIN halves: the first takes the odd character. A wrong-PIN fault changes the first
    // character (the run fails at M4) or, with value 1, only the second half (it fails at M6).
    std::string pin = config.pin;
    const size_t first_len = pin.size() / 2 + pin.size() % 2;
    std::string first = pin.substr(0, first_len), second = pin.substr(first_len);
    if (config.fault.kind == Fault::Kind::WrongPin) {
        std::string& half = config.fault.value == 1 ? second : first;
        if (half.empty()) half.push_back('x');
        else half[0] = static_cast<char>(half[0] ^ 0x01);
    }
    auto psk_of = [&](const std::string& half) {
        const auto* p = reinterpret_cast<const uint8_t*>(half.data());
        const crypto::Digest d = crypto::hmac_sm3(keys.auth_key, {std::span<const uint8_t>(p, half.size())});
        std::array<uint8_t, 16> out{};
        std::copy_n(d.begin(), out.size(), out.begin());
        return out;
    };
    psk1 = psk_of(first);
    psk2 = psk_of(second);
    return true;
}

// ---- M2, M2D ----------------------------------------------------------------------------------

Bytes Session::build_m2() {
    const bool wifi = config.wps_mode == 1;
    Bytes body;
    AttrWriter w(body, config.fault, MSG_M2);
    begin_message(body, w, MSG_M2);
    std::array<uint8_t, 16> echoed = n1;
    if (faulty(Fault::Kind::WrongEnrolleeNonce, MSG_M2)) echoed[0] ^= 0x01;
    w.add(ATTR_ENROLLEE_NONCE, echoed, 16);
    w.add(ATTR_REGISTRAR_NONCE, n2, 16);
    w.add(ATTR_UUID_R, config.uuid_r, 16);
    Bytes public_key(own.pub.begin(), own.pub.end());
    append(public_key, own_temp.pub);
    w.add(ATTR_PUBLIC_KEY, public_key, 128);
    w.add_be16(ATTR_AUTH_TYPE_FLAGS,
               config.hex_network_key ? kAuthFlagsHexKey : (wifi ? kAuthFlagsWifi : kAuthFlagsWapi));
    w.add_be16(ATTR_ENCR_TYPE_FLAGS, wifi ? kEncrFlagsWifi : kEncrFlagsWapi);
    w.add_u8(ATTR_CONNECTION_TYPE_FLAGS, 0x01);
    w.add_be16(ATTR_CONFIG_METHODS, kConfigMethods);
    w.add_text(ATTR_MANUFACTURER, "wapiwps");
    w.add_text(ATTR_MODEL_NAME, "reference registrar");
    w.add_text(ATTR_MODEL_NUMBER, "1");
    w.add_text(ATTR_SERIAL_NUMBER, "0001");
    Bytes device_type;
    put_be16(device_type, kDeviceCategory);
    device_type.insert(device_type.end(), wifi ? kOuiWifi : kOuiWapi, (wifi ? kOuiWifi : kOuiWapi) + 4);
    put_be16(device_type, kDeviceCategory);
    w.add(ATTR_PRIMARY_DEVICE_TYPE, device_type, 8);
    w.add_text(ATTR_DEVICE_NAME, "registrar");
    w.add_u8(ATTR_RF_BANDS, 0x03);
    w.add_be16(ATTR_ASSOCIATION_STATE, 0);
    w.add_be16(ATTR_CONFIG_ERROR, 0);
    w.add_be16(ATTR_DEVICE_PASSWORD_ID, 0);
    w.add_be32(ATTR_OS_VERSION, kOsVersion);
    if (config.wps_mode == 3) {
        const bool other = config.fault.kind == Fault::Kind::CertificateModeValue;
        w.add_u8(ATTR_CERTIFICATE_MODE, other ? static_cast<uint8_t>(config.fault.value) : config.certificate_mode);
    }
    finish_with_authenticator(body, MSG_M2);
    return body;
}

Bytes Session::build_m2d() {
    Bytes body;
    AttrWriter w(body, config.fault, MSG_M2D);
    begin_message(body, w, MSG_M2D);
    w.add(ATTR_ENROLLEE_NONCE, n1, 16);
    w.add(ATTR_REGISTRAR_NONCE, n2, 16);
    w.add(ATTR_UUID_R, config.uuid_r, 16);
    // Like a registrar that is not ready for this enrollee: its identity, and why (the fault's
    // `value`; 0 by default).
    w.add_text(ATTR_MANUFACTURER, "wapiwps");
    w.add_text(ATTR_MODEL_NAME, "reference registrar");
    w.add_text(ATTR_DEVICE_NAME, "registrar");
    w.add_be16(ATTR_CONFIG_ERROR, static_cast<uint16_t>(config.fault.value));
    return body;
}

Bytes Session::build_nack(uint16_t config_error) {
    Bytes body;
    AttrWriter w(body, config.fault, MSG_NACK);
    begin_message(body, w, MSG_NACK);
    w.add(ATTR_ENROLLEE_NONCE, n1, 16);
    w.add(ATTR_REGISTRAR_NONCE, n2, 16);
    w.add_be16(ATTR_CONFIG_ERROR, config_error);
    return body;
}

// ---- M4, M6 -----------------------------------------------------------------------------------

Bytes Session::build_m4() {
    Bytes body;
    AttrWriter w(body, config.fault, MSG_M4);
    begin_message(body, w, MSG_M4);
    std::array<uint8_t, 16> echoed = n1;
    if (faulty(Fault::Kind::WrongEnrolleeNonce, MSG_M4)) echoed[0] ^= 0x01;
    w.add(ATTR_ENROLLEE_NONCE, echoed, 16);
    w.add(ATTR_R_HASH1, r_hash(r_s1, psk1), 32);
    w.add(ATTR_R_HASH2, r_hash(r_s2, psk2), 32);

    const Bytes sealed = seal_secret_nonce(ATTR_R_SNONCE1, r_s1, MSG_M4);
    w.add(ATTR_ENCRYPTED_SETTINGS, sealed, sealed.size());
    finish_with_authenticator(body, MSG_M4);
    return body;
}

Bytes Session::seal_secret_nonce(uint16_t type, const std::array<uint8_t, 16>& nonce,
                                 uint8_t message) {
    Bytes settings;
    AttrWriter s(settings, config.fault, message);
    std::array<uint8_t, 16> revealed = nonce;
    if (faulty(Fault::Kind::WrongSecretNonce, message)) revealed[0] ^= 0x01;
    s.add(type, revealed, 16);
    add_key_wrap_auth(settings, message);
    pad_settings(settings, message);
    return seal(settings);
}

Bytes Session::build_m6() {
    Bytes body;
    AttrWriter w(body, config.fault, MSG_M6);
    begin_message(body, w, MSG_M6);
    std::array<uint8_t, 16> echoed = n1;
    if (faulty(Fault::Kind::WrongEnrolleeNonce, MSG_M6)) echoed[0] ^= 0x01;
    w.add(ATTR_ENROLLEE_NONCE, echoed, 16);

    const Bytes sealed = seal_secret_nonce(ATTR_R_SNONCE2, r_s2, MSG_M6);
    w.add(ATTR_ENCRYPTED_SETTINGS, sealed, sealed.size());
    finish_with_authenticator(body, MSG_M6);
    return body;
}

// ---- M8 ---------------------------------------------------------------------------------------

Bytes Session::build_m8() {
    Bytes body;
    AttrWriter w(body, config.fault, MSG_M8);
    begin_message(body, w, MSG_M8);
    std::array<uint8_t, 16> echoed = n1;
    if (faulty(Fault::Kind::WrongEnrolleeNonce, MSG_M8)) echoed[0] ^= 0x01;
    w.add(ATTR_ENROLLEE_NONCE, echoed, 16);

    // Credential: the enrollee's address, then the network key or the certificate list.
    Bytes credential;
    AttrWriter c(credential, config.fault, MSG_M8);
    Bytes address = config.enrollee_address.empty() ? enrollee_address : config.enrollee_address;
    if (config.fault.kind == Fault::Kind::WrongMacAddress && !address.empty()) address.back() ^= 0x01;
    c.add(ATTR_MAC_ADDRESS, address, address.size());
    if (config.wps_mode == 3) {
        if (config.certificate_needed != 0) {
            Bytes list;
            put_be16(list, config.cert_count);
            append(list, config.cert_list);
            c.add(ATTR_CERTIFICATE_LIST, list, list.size());
        }
    } else {
        Bytes key = config.hex_network_key ? to_hex(config.network_key) : config.network_key;
        switch (config.fault.kind) {
        case Fault::Kind::HexKeyOddLength:
            if (!key.empty()) key.pop_back();
            break;
        case Fault::Kind::HexKeyBadCharacter:
            if (!key.empty()) key[0] = 'g';
            break;
        case Fault::Kind::HexKeyTooLong:
            key.resize(66, '0');
            break;
        default:
            break;
        }
        outcome.network_key_sent = key;
        c.add(ATTR_NETWORK_KEY, key, key.size());
    }

    Bytes settings;
    AttrWriter s(settings, config.fault, MSG_M8);
    s.add(ATTR_CREDENTIAL, credential, credential.size());
    if (config.wps_mode == 3) s.add_u8(ATTR_CERTIFICATE_NEEDED, config.certificate_needed);
    // The enrollee checks the Key Wrap Authenticator over everything but the last 12 bytes of the
    // unpadded settings, so it must be the last attribute before the padding.
    add_key_wrap_auth(settings, MSG_M8);
    pad_settings(settings, MSG_M8);
    const Bytes sealed = seal(settings);
    w.add(ATTR_ENCRYPTED_SETTINGS, sealed, sealed.size());
    finish_with_authenticator(body, MSG_M8);
    return body;
}

bool Session::fragment_m8(std::span<const uint8_t> body) {
    // The enrollee hands its parser the collected bytes less 18, so 18 bytes follow the message.
    // They look like the head of a message (Version, then Message Type M8), which puts 0x0C at
    // their byte 9: every fragment is routed by its own byte 9, so this makes a split just before
    // the trailer always legal.
    Bytes data(body.begin(), body.end());
    const uint8_t trailer[kTrailerLen] = {0x10, 0x4A, 0x00, 0x01, 0x10, 0x10, 0x22, 0x00, 0x01, MSG_M8};
    data.insert(data.end(), trailer, trailer + kTrailerLen);

    // A split at k is legal when both sides keep at least the dispatch byte and data[k + 9] is M8.
    std::vector<size_t> legal;
    for (size_t k = kMinFragment; k + kMinFragment <= data.size(); ++k) {
        if (data[k + kDispatchByte] == MSG_M8) legal.push_back(k);
    }
    outcome.m8_split_points = legal.size();
    if (legal.empty()) return refuse("M8: no legal split point");

    std::vector<size_t> cuts;
    if (config.m8_split_index >= 0) {
        const auto i = std::min<size_t>(static_cast<size_t>(config.m8_split_index), legal.size() - 1);
        cuts.push_back(legal[i]);
    } else {
        // Greedy: the furthest legal cut within fragment_size of the previous one.
        size_t pos = 0;
        while (data.size() - pos > config.fragment_size) {
            size_t best = 0;
            for (size_t k : legal) {
                if (k > pos && k - pos <= config.fragment_size) best = k;
            }
            if (best == 0) {
                return refuse("M8: no legal split point within " + std::to_string(config.fragment_size) +
                              " bytes of offset " + std::to_string(pos));
            }
            cuts.push_back(best);
            pos = best;
        }
    }
    cuts.push_back(data.size());

    fragments.clear();
    next_fragment = 0;
    size_t pos = 0;
    for (size_t i = 0; i < cuts.size(); ++i) {
        const bool first = i == 0, last = i + 1 == cuts.size();
        const std::span<const uint8_t> chunk(data.data() + pos, cuts[i] - pos);
        const uint8_t flags = last ? 0 : kFlagMore;
        std::optional<uint16_t> total;
        if (first) total = static_cast<uint16_t>(data.size());
        fragments.push_back(fragment_frame(flavour, 0, flags, total, chunk));
        pos = cuts[i];
    }
    return true;
}

}  // namespace registrar
