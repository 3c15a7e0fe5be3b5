// The --pcap file: every frame as an Ethernet/EAPOL packet, written with libpcap's dump writer.
#include <pcap/pcap.h>
#include <sys/time.h>

#include <cstdio>

#include "cli.h"

namespace cli {

PcapWriter::~PcapWriter() {
    if (dumper_ != nullptr) {
        pcap_dump_close(static_cast<pcap_dumper_t*>(dumper_));
    }
    if (dead_ != nullptr) {
        pcap_close(static_cast<pcap_t*>(dead_));
    }
}

bool PcapWriter::open(const std::string& path, std::string& error) {
    constexpr int kSnapLen = 65535;
    pcap_t* dead = pcap_open_dead(DLT_EN10MB, kSnapLen);
    if (dead == nullptr) {
        error = "cannot create a pcap writer";
        return false;
    }
    pcap_dumper_t* dumper = pcap_dump_open(dead, path.c_str());
    if (dumper == nullptr) {
        error = "cannot open pcap file " + path + ": " + pcap_geterr(dead);
        pcap_close(dead);
        return false;
    }
    dead_ = dead;
    dumper_ = dumper;
    path_ = path;
    return true;
}

bool PcapWriter::close(std::string& error) {
    if (dumper_ != nullptr) {
        auto* dumper = static_cast<pcap_dumper_t*>(dumper_);
        if (pcap_dump_flush(dumper) != 0) failed_ = true;
        pcap_dump_close(dumper);
        dumper_ = nullptr;
    }
    if (dead_ != nullptr) {
        pcap_close(static_cast<pcap_t*>(dead_));
        dead_ = nullptr;
    }
    if (failed_) error = "cannot write pcap file " + path_ + " (frames are missing from it)";
    return !failed_;
}

int finish_pcap(PcapWriter& pcap, int code) {
    std::string error;
    if (pcap.close(error)) return code;
    std::fprintf(stderr, "wapiwps: %s\n", error.c_str());
    return kExitLink;
}

void PcapWriter::write(const Mac& dst, const Mac& src, std::span<const uint8_t> eapol) {
    if (dumper_ == nullptr) {
        return;
    }
    Bytes frame = ethernet_frame(dst, src, eapol);
    pcap_pkthdr header{};
    gettimeofday(&header.ts, nullptr);
    header.caplen = static_cast<bpf_u_int32>(frame.size());
    header.len = header.caplen;
    auto* dumper = static_cast<pcap_dumper_t*>(dumper_);
    pcap_dump(reinterpret_cast<u_char*>(dumper), &header, frame.data());
    // Flushed per frame so that an interrupted run still leaves a readable file; a write that
    // fails (a full disk, /dev/full) is reported when the command ends.
    if (pcap_dump_flush(dumper) != 0) failed_ = true;
}

}  // namespace cli
