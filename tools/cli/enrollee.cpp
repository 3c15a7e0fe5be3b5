// The enrollee side of the host over the exported API of wapiwps.h.
#include "enrollee.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "wapiwps.h"

namespace cli {
namespace {

constexpr uint32_t kSecureChipKeyIndex = 1;
constexpr std::array<uint8_t, 16> kSecureChipSignParam = {'w', 'a', 'p', 'i', 'w', 'p', 's', '-',
                                                          's', 'i', 'g', 'n', '-', 'p', 'a', 'r'};
// The simulator does not check the admin login key; the library only keeps it in memory.
constexpr std::array<uint8_t, 16> kSecureChipLoginKey = {'d', 'e', 'm', 'o', '-', 'a', 'd', 'm',
                                                         'i', 'n', '-', 'l', 'o', 'g', 'i', 'n'};

void trace_line(void*, const char* line) {
    size_t n = std::strlen(line);
    while (n > 0 && (line[n - 1] == '\n' || line[n - 1] == '\r')) {
        --n;
    }
    std::fprintf(stderr, "    [lib] %.*s\n", static_cast<int>(n), line);
}

std::string printable(std::span<const uint8_t> bytes) {
    std::string s;
    for (uint8_t c : bytes) {
        if (c < 0x20 || c >= 0x7F) {
            return {};
        }
        s += static_cast<char>(c);
    }
    return s;
}

void print_bytes(const char* label, std::span<const uint8_t> bytes) {
    std::printf("  %-22s %zu bytes\n", label, bytes.size());
    for (size_t at = 0; at < bytes.size(); at += 32) {
        size_t n = bytes.size() - at < 32 ? bytes.size() - at : 32;
        std::printf("      %s\n", hex(bytes.subspan(at, n)).c_str());
    }
    std::string text = printable(bytes);
    if (!text.empty()) {
        std::printf("      \"%s\"\n", text.c_str());
    }
}

}  // namespace

void print_frame(int seq, const char* direction, const Mac& src, const Mac& dst,
                 std::span<const uint8_t> eapol, FrameDecoder& decoder) {
    std::printf("#%-3d %s  %s -> %s  %zu bytes\n", seq, direction, mac_to_string(src).c_str(),
                mac_to_string(dst).c_str(), eapol.size());
    for (const std::string& line : decoder.decode(eapol)) {
        std::printf("%s\n", line.c_str());
    }
    std::fflush(stdout);
}

Enrollee::Enrollee(const Options& opt, const Mac& own, const Mac& peer)
    : opt_(opt), own_(own), peer_(peer), out_(WAPIWPS_MAX_FRAME_LEN) {}

Enrollee::~Enrollee() {
    if (opt_.trace) {
        WapiWps_SetTraceCallback(nullptr, nullptr, 0);
    }
}

bool Enrollee::prepare(std::string& error) {
    if (opt_.trace) {
        WapiWps_SetTraceCallback(trace_line, nullptr, opt_.show_secrets ? 1 : 0);
    }
    static constexpr wapiwps_utf16 kDeviceName[] = {'w', 'a', 'p', 'i', 'w', 'p', 's',
                                                    ' ', 'h', 'o', 's', 't', 0};
    SetDeviceInfo(kHostEnrolleeUuid.data(), kDeviceName);
    if (opt_.secure_chip) {
        if (SetSecureChipParam(static_cast<int32_t>(kSecureChipLoginKey.size()),
                               kSecureChipLoginKey.data(), 0, nullptr, kSecureChipKeyIndex,
                               kSecureChipSignParam.data()) != 0) {
            error = "SetSecureChipParam refused the secure-chip parameters";
            return false;
        }
    }
    return true;
}

bool Enrollee::start(Mac& dst, Bytes& frame, std::string& error) {
    uint32_t out_len = 0;
    const char* pin = opt_.pin ? opt_.pin->c_str() : nullptr;
    int32_t ok = opt_.secure_chip ? StartWPS_SecureChip(own_.data(), WAPIWPS_ADDRESS_MAC,
                                                        static_cast<int32_t>(opt_.wps_mode),
                                                        peer_.data(), pin, out_.data(), &out_len)
                                  : StartWPS(own_.data(), WAPIWPS_ADDRESS_MAC,
                                             static_cast<int32_t>(opt_.wps_mode), peer_.data(), pin,
                                             out_.data(), &out_len);
    if (!ok) {
        error = opt_.secure_chip ? "StartWPS_SecureChip failed (secure-chip client not created)"
                                 : "StartWPS failed";
        return false;
    }
    // The identity list survives StartWPS; it is registered after it so that no earlier
    // StopWPS can have dropped it.
    if (opt_.identity) {
        std::array<uint8_t, WAPIWPS_IDENTITY_ENTRY_LEN> entry{};
        std::copy(kReferenceRegistrarUuid.begin(), kReferenceRegistrarUuid.end(), entry.begin());
        const uint16_t len = static_cast<uint16_t>(opt_.identity->size());
        std::memcpy(entry.data() + 16, &len,
                    sizeof len);  // host byte order, as the entry layout says
        std::memcpy(entry.data() + 18, opt_.identity->data(), len);
        if (!SetCertIdentityStruct2(1, entry.data())) {
            error = "SetCertIdentityStruct2 refused the identity";
            return false;
        }
    }
    if (out_len > out_.size() || !split_prefix(std::span(out_).first(out_len), dst, frame)) {
        error = "StartWPS wrote no MAC-mode frame";
        return false;
    }
    std::printf("state %s -> %s (StartWPS%s wrote EAPOL-Start)\n", state_name(state_),
                state_name(2), opt_.secure_chip ? "_SecureChip" : "");
    state_ = 2;
    return true;
}

int32_t Enrollee::receive(std::span<const uint8_t> frame, Mac& dst, Bytes& answer) {
    answer.clear();
    uint32_t out_len = 0;
    const int32_t result = ProcessReceivePacket(frame.data(), static_cast<uint32_t>(frame.size()),
                                                out_.data(), &out_len);
    if (out_len > 0 && out_len <= out_.size()) {
        if (!split_prefix(std::span(out_).first(out_len), dst, answer)) {
            std::printf("  library wrote %u bytes without the MAC-mode prefix; not sent\n",
                        out_len);
            answer.clear();
        }
    }
    std::printf("  ProcessReceivePacket = %s%s\n", describe_result(result).c_str(),
                answer.empty() ? "" : ", answer written");
    // The state as the library reports it.
    WapiWpsStatus status{};
    status.size = sizeof status;
    const int next = WapiWps_GetStatus(&status) == 0 ? static_cast<int>(status.state)
                                                     : mirror_state(state_, result, answer);
    if (next != state_) {
        std::printf("state %s -> %s\n", state_name(state_), state_name(next));
        state_ = next;
    }
    if (result == WAPIWPS_RESULT_M8_DONE) {
        m8_accepted_ = true;
        // Certificate results must be read now: the closing EAP-Failure runs StopWPS.
        if (opt_.wps_mode == WAPIWPS_MODE_WAPI_CERT) {
            read_certificate_result();
        } else {
            read_psk_result();
        }
    }
    if (result == WAPIWPS_RESULT_SUCCESS || result == WAPIWPS_RESULT_ENDED) {
        final_result_ = result;
        if (result == WAPIWPS_RESULT_SUCCESS && opt_.wps_mode != WAPIWPS_MODE_WAPI_CERT) {
            read_psk_result();  // the pre-shared key stays readable after StopWPS
        }
    }
    std::fflush(stdout);
    return result;
}

void Enrollee::read_certificate_result() {
    cert_list_.assign(4096, 0);
    extra_cert_.assign(128, 0);
    uint16_t list_len = 0, extra_len = 0;
    if (opt_.secure_chip) {
        cert_rc_ = GetWPSResult_Cert_SecureChipEx(
            uuid_r_.data(), cert_list_.data(), &list_len, &cert_count_, extra_cert_.data(),
            &extra_len, &key_index_, public_key_.data(), sign_param_.data());
    } else {
        private_key_.assign(24, 0);
        cert_rc_ = GetWPSResult_Cert(uuid_r_.data(), cert_list_.data(), &list_len, &cert_count_,
                                     extra_cert_.data(), &extra_len, private_key_.data(),
                                     public_key_.data());
    }
    cert_list_.resize(list_len <= cert_list_.size() ? list_len : cert_list_.size());
    extra_cert_.resize(extra_len <= extra_cert_.size() ? extra_len : extra_cert_.size());
    have_cert_ = true;
}

void Enrollee::read_psk_result() {
    psk_.assign(4096, 0);
    uint16_t len = 0;
    psk_rc_ = GetWPSResult_PSK(psk_.data(), &len);
    psk_.resize(len <= psk_.size() ? len : psk_.size());
    have_psk_ = true;
}

bool Enrollee::print_credential() const {
    if (!m8_accepted_) {
        std::printf("no credential: M8 was not accepted\n");
        return false;
    }
    if (have_cert_) {
        const char* getter =
            opt_.secure_chip ? "GetWPSResult_Cert_SecureChipEx" : "GetWPSResult_Cert";
        std::printf("credential (%s = %d%s):\n", getter, cert_rc_,
                    cert_rc_ == 1   ? ", no new certificate"
                    : cert_rc_ == 0 ? ""
                                    : ", not certificate mode");
        if (cert_rc_ != 0) {
            return cert_rc_ == 1;
        }
        print_bytes("UUID-R", uuid_r_);
        std::printf("  %-22s %u\n", "certificate count", cert_count_);
        print_bytes("certificate list", cert_list_);
        print_bytes("extra certificate", extra_cert_);
        if (opt_.secure_chip) {
            std::printf("  %-22s %u\n", "key index", key_index_);
            print_bytes("sign parameter", sign_param_);
        } else if (opt_.show_secrets) {
            print_bytes("private key", private_key_);
        } else {
            std::printf("  %-22s 24 bytes <hidden, --show-secrets shows it>\n", "private key");
        }
        print_bytes("public key", public_key_);
        return true;
    }
    if (have_psk_) {
        std::printf("credential (GetWPSResult_PSK = %d):\n", psk_rc_);
        if (psk_rc_ != 0) {
            return false;
        }
        print_bytes("network key", psk_);
        return true;
    }
    return false;
}

void Enrollee::print_reason() const {
    WapiWpsStatus st{};
    st.size = sizeof st;
    if (WapiWps_GetStatus(&st) != 0) return;
    const char* mode = wps_mode_name(opt_.wps_mode);
    const char* sent = message_type_name(static_cast<uint8_t>(st.message));
    switch (st.outcome) {
        case WAPIWPS_OUTCOME_REFUSED:
            // The sentence names the message ("M4 refused: R-Hash1 mismatch; ...").
            std::printf("reason: %s\n        code %d, library trace \"%s\"\n",
                        WapiWps_ResultText(st.code), st.code, st.detail);
            return;
        case WAPIWPS_OUTCOME_NACK:
            std::printf("reason: the registrar refused with a NACK after our %s", sent);
            if (st.configError >= 0) std::printf(" (Configuration Error %d)", st.configError);
            if (st.reason == WAPIWPS_REASON_WRONG_PASSWORD)
                std::printf(": it probably holds another PIN\n");
            else if (st.message == 0x04)
                std::printf(": it may not serve the %s\n", mode);
            else
                std::printf("\n");
            return;
        case WAPIWPS_OUTCOME_M2D:
            std::printf("reason: the registrar%s%s%s is not ready for this device (M2D", 
                        st.manufacturer[0] != '\0' ? " " : "", st.manufacturer,
                        st.modelName[0] != '\0' ? (std::string(" ") + st.modelName).c_str() : "");
            if (st.configError >= 0) std::printf(", Configuration Error %d", st.configError);
            std::printf("): it may not serve the %s, or waits for its button or PIN\n", mode);
            return;
        default:
            break;
    }
    if (st.state == WAPIWPS_WAIT_REQUEST_IDENTITY)
        std::printf("reason: no registrar answered EAPOL-Start\n");
    else if (st.state == WAPIWPS_WAIT_WPS_START)
        std::printf("reason: the registrar did not start the exchange: it may not serve the %s\n",
                    mode);
    else if (st.lastReason == WAPIWPS_REASON_NOT_OURS)
        std::printf("reason: the registrar's last frame was not for this run (%s)\n",
                    WapiWps_ResultText(st.lastResult));
}

}  // namespace cli
