// The enrollee side of the host, shared by `demo` and `enroll`: drives the library through its
// exported functions only, mirrors its state for the transcript and collects the credential.
#pragma once

#include "cli.h"

namespace cli {

// The reference registrar's UUID (used by `demo` and by `wapiwps registrar`), so that --identity
// can be registered for it in advance.
constexpr std::array<uint8_t, 16> kReferenceRegistrarUuid = {
    0x52, 0x45, 0x47, 0x49, 0x53, 0x54, 0x52, 0x41, 0x52, 0x2d, 0x77, 0x61, 0x70, 0x69, 0x77, 0x70};
constexpr std::array<uint8_t, 16> kHostEnrolleeUuid = {
    0x45, 0x4e, 0x52, 0x4f, 0x4c, 0x4c, 0x45, 0x45, 0x2d, 0x77, 0x61, 0x70, 0x69, 0x77, 0x70, 0x73};

// Prints one frame of the transcript: a header line with direction and addresses, then the
// decoded frame.
void print_frame(int seq, const char* direction, const Mac& src, const Mac& dst,
                 std::span<const uint8_t> eapol, FrameDecoder& decoder);

class Enrollee {
  public:
    Enrollee(const Options& opt, const Mac& own, const Mac& peer);
    ~Enrollee();

    // Device info, identity, trace callback. False with `error` when the library refuses.
    bool prepare(std::string& error);
    // StartWPS (or StartWPS_SecureChip): the EAPOL-Start frame and where it goes.
    bool start(Mac& dst, Bytes& frame, std::string& error);
    // Hands one received frame to ProcessReceivePacket; `answer` is empty when none was written.
    int32_t receive(std::span<const uint8_t> frame, Mac& dst, Bytes& answer);

    int state() const { return state_; }
    bool finished() const { return final_result_ != 0; }
    bool succeeded() const { return final_result_ == 2; }
    // Prints the credential exactly as the getters returned it. Returns false when there is none.
    bool print_credential() const;
    // Prints why the run has no credential, from WapiWps_GetStatus.
    void print_reason() const;

  private:
    void read_certificate_result();
    void read_psk_result();

    const Options& opt_;
    Mac own_;
    Mac peer_;
    int state_ = 1;
    int32_t final_result_ = 0;  // 2 or 100 once the closing EAP-Failure has been handed in
    bool m8_accepted_ = false;
    Bytes out_;

    // The credential as the getters returned it.
    bool have_cert_ = false;
    int32_t cert_rc_ = 0;
    std::array<uint8_t, 16> uuid_r_{};
    Bytes cert_list_;
    uint16_t cert_count_ = 0;
    Bytes extra_cert_;
    Bytes private_key_;
    uint32_t key_index_ = 0;
    std::array<uint8_t, 48> public_key_{};
    std::array<uint8_t, 16> sign_param_{};
    bool have_psk_ = false;
    int32_t psk_rc_ = 0;
    Bytes psk_;
};

}  // namespace cli
