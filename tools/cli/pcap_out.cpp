// The --pcap file: every frame as an Ethernet/EAPOL packet, written with libpcap's dump writer.
#include <pcap/pcap.h>
#include <sys/time.h>

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
    return true;
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
    // Flushed per frame so that an interrupted run still leaves a readable file.
    pcap_dump_flush(dumper);
}

}  // namespace cli
