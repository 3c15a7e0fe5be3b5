// The --pcap file: every frame as an Ethernet/EAPOL packet in the classic pcap format (the one
// libpcap's dump writer produces), written directly so the host needs no libpcap for it.
#include <chrono>
#include <cstdio>

#include "cli.h"

namespace cli {
namespace {

// Every field little-endian: readers tell the byte order from the magic number.
constexpr uint32_t kPcapMagic = 0xA1B2C3D4;
constexpr uint32_t kSnapLen = 65535;
constexpr uint32_t kLinkTypeEthernet = 1;

void put_le16(Bytes& out, uint16_t v) {
    out.push_back(static_cast<uint8_t>(v));
    out.push_back(static_cast<uint8_t>(v >> 8));
}

void put_le32(Bytes& out, uint32_t v) {
    put_le16(out, static_cast<uint16_t>(v));
    put_le16(out, static_cast<uint16_t>(v >> 16));
}

}  // namespace

PcapWriter::~PcapWriter() {
    if (file_ != nullptr) {
        std::fclose(static_cast<std::FILE*>(file_));
    }
}

bool PcapWriter::open(const std::string& path, std::string& error) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        error = "cannot open pcap file " + path;
        return false;
    }
    // Global header: magic, version 2.4, zone 0, accuracy 0, snapshot length, link type.
    Bytes header;
    put_le32(header, kPcapMagic);
    put_le16(header, 2);
    put_le16(header, 4);
    put_le32(header, 0);
    put_le32(header, 0);
    put_le32(header, kSnapLen);
    put_le32(header, kLinkTypeEthernet);
    if (std::fwrite(header.data(), 1, header.size(), file) != header.size() ||
        std::fflush(file) != 0) {
        error = "cannot write pcap file " + path;
        std::fclose(file);
        return false;
    }
    file_ = file;
    path_ = path;
    return true;
}

bool PcapWriter::close(std::string& error) {
    if (file_ != nullptr) {
        auto* file = static_cast<std::FILE*>(file_);
        if (std::fflush(file) != 0) failed_ = true;
        if (std::fclose(file) != 0) failed_ = true;
        file_ = nullptr;
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
    if (file_ == nullptr) {
        return;
    }
    const Bytes frame = ethernet_frame(dst, src, eapol);
    const auto now = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    Bytes record;
    put_le32(record, static_cast<uint32_t>(now.count() / 1000000));
    put_le32(record, static_cast<uint32_t>(now.count() % 1000000));
    put_le32(record, static_cast<uint32_t>(frame.size()));
    put_le32(record, static_cast<uint32_t>(frame.size()));
    record.insert(record.end(), frame.begin(), frame.end());
    auto* file = static_cast<std::FILE*>(file_);
    // Flushed per frame so that an interrupted run still leaves a readable file; a write that
    // fails (a full disk, /dev/full) is reported when the command ends.
    if (std::fwrite(record.data(), 1, record.size(), file) != record.size() ||
        std::fflush(file) != 0) {
        failed_ = true;
    }
}

}  // namespace cli
