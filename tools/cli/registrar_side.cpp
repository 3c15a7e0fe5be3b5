// Configuration and outcome report of the reference registrar.
#include "registrar_side.h"

#include <cstdio>

#include "enrollee.h"

namespace cli {

registrar::Config registrar_config(const Options& opt, const Mac& enrollee) {
    registrar::Config config;
    config.wps_mode = opt.wps_mode;
    config.pin = opt.registrar_pin ? *opt.registrar_pin : opt.pin ? *opt.pin : "00000000";
    config.uuid_r = kReferenceRegistrarUuid;
    config.enrollee_address.assign(enrollee.begin(), enrollee.end());
    config.address_mode = 0;
    config.network_key.assign(opt.network_key.begin(), opt.network_key.end());
    config.certificate_mode = 1;
    config.certificate_needed = 1;
    // The enrollee writes its new key pair in minimal form, so a key or coordinate with a zero top
    // byte comes out short and left-aligned while the signature reads the full 24 bytes: about one
    // run in 85 carries a signature that cannot verify. The host reports that and goes on to M8.
    config.require_signature = false;
    config.cert_count = 1;
    config.cert_list.assign(kDemoCertificateList,
                            kDemoCertificateList + sizeof kDemoCertificateList - 1);
    if (opt.fragment_m8) {
        // Without a size: two fragments, cut at the first point where the enrollee's reassembly
        // takes the second fragment for M8 (its byte 9 must read 0x0C).
        config.fragment_size = opt.fragment_size;
        config.m8_split_index = opt.fragment_size == 0 ? 0 : -1;
    }
    return config;
}

void print_registrar_outcome(const registrar::Outcome& o) {
    std::printf("registrar: M1 %s, M3 %s, M5 %s, M7 %s, Done %s", o.m1_ok ? "ok" : "-",
                o.m3_ok ? "ok" : "-", o.m5_ok ? "ok" : "-", o.m7_ok ? "ok" : "-",
                o.done_received ? "received" : "not received");
    if (o.nack_received) {
        std::printf(", NACK received (configuration error %u)", o.nack_config_error);
    }
    if (!o.signing_public_key.empty()) {
        std::printf(", M7 signature %s", o.signature_verified ? "verified" : "NOT verified");
    }
    std::printf("\n");
    if (!o.signing_public_key.empty() && !o.signature_verified) {
        std::printf(
            "  (expected now and then: the enrollee writes a key or coordinate whose top byte is "
            "zero short and left-aligned, so its signature cannot verify)\n");
    }
    std::fflush(stdout);
}

}  // namespace cli
