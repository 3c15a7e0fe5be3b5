// The live link: libpcap for capture and injection (no raw sockets of our own), the interface's
// own address from sysfs.
#include "link.h"

#include <pcap/pcap.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>

namespace cli {
namespace {

bool read_interface_mac(const std::string& iface, Mac& mac) {
    if (iface.empty() || iface.find('/') != std::string::npos) {
        return false;
    }
    std::ifstream in("/sys/class/net/" + iface + "/address");
    std::string text;
    return static_cast<bool>(std::getline(in, text)) && parse_mac(text, mac);
}

}  // namespace

Link::~Link() {
    if (pcap_ != nullptr) {
        pcap_close(static_cast<pcap_t*>(pcap_));
    }
}

bool Link::open(const std::string& iface, std::string& error) {
    constexpr int kSnapLen = 4096 + kEthernetHeaderLen;
    constexpr int kBufferTimeoutMs = 50;
    char errbuf[PCAP_ERRBUF_SIZE] = {};
    if (!read_interface_mac(iface, own_mac_)) {
        error = "interface " + iface + " not found or has no Ethernet address";
        return false;
    }
    pcap_t* p = pcap_create(iface.c_str(), errbuf);
    if (p == nullptr) {
        error = std::string("pcap_create: ") + errbuf;
        return false;
    }
    pcap_ = p;
    pcap_set_snaplen(p, kSnapLen);
    // Promiscuous so that frames to the PAE group address arrive whatever the multicast filter.
    pcap_set_promisc(p, 1);
    pcap_set_immediate_mode(p, 1);
    pcap_set_timeout(p, kBufferTimeoutMs);
    int rc = pcap_activate(p);
    if (rc < 0) {
        error = "cannot open " + iface + ": " + pcap_geterr(p);
        return false;
    }
    if (pcap_datalink(p) != DLT_EN10MB) {
        error = iface + " is not an Ethernet interface";
        return false;
    }
    bpf_program program{};
    if (pcap_compile(p, &program, "ether proto 0x888e", 1, PCAP_NETMASK_UNKNOWN) != 0 ||
        pcap_setfilter(p, &program) != 0) {
        error = std::string("cannot set the EAPOL filter: ") + pcap_geterr(p);
        pcap_freecode(&program);
        return false;
    }
    pcap_freecode(&program);
    // Our own transmissions are not wanted back; where the direction cannot be set, receive()
    // drops frames from our own address instead.
    pcap_setdirection(p, PCAP_D_IN);
    // Non-blocking, so that receive() waits with poll() and always keeps its deadline.
    if (pcap_setnonblock(p, 1, errbuf) != 0) {
        error = std::string("cannot make the capture non-blocking: ") + errbuf;
        return false;
    }
    return true;
}

bool Link::send(const Mac& dst, std::span<const uint8_t> eapol, std::string& error) {
    Bytes frame = ethernet_frame(dst, own_mac_, eapol);
    if (pcap_sendpacket(static_cast<pcap_t*>(pcap_), frame.data(),
                        static_cast<int>(frame.size())) != 0) {
        error = std::string("cannot send: ") + pcap_geterr(static_cast<pcap_t*>(pcap_));
        return false;
    }
    return true;
}

Link::Receive Link::receive(Mac& src, Mac& dst, Bytes& eapol, int timeout_ms, std::string& error) {
    auto* p = static_cast<pcap_t*>(pcap_);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    const int fd = pcap_get_selectable_fd(p);
    for (;;) {
        pcap_pkthdr* header = nullptr;
        const u_char* data = nullptr;
        int rc = pcap_next_ex(p, &header, &data);
        if (rc < 0) {
            error = std::string("capture failed: ") + pcap_geterr(p);
            return Receive::Error;
        }
        if (rc == 1 && header->caplen >= kEthernetHeaderLen && header->caplen == header->len) {
            std::copy(data, data + 6, dst.begin());
            std::copy(data + 6, data + 12, src.begin());
            const uint16_t ethertype = static_cast<uint16_t>((data[12] << 8) | data[13]);
            if (ethertype == kEthertypeEapol && src != own_mac_) {
                eapol.assign(data + kEthernetHeaderLen, data + header->caplen);
                // Short frames arrive padded to the Ethernet minimum; the library checks exact
                // lengths, so the frame is cut back to what its EAPOL header declares.
                if (eapol.size() >= 4) {
                    const size_t declared = 4 + static_cast<size_t>((eapol[2] << 8) | eapol[3]);
                    if (declared < eapol.size()) {
                        eapol.resize(declared);
                    }
                }
                return Receive::Frame;
            }
        }
        auto now = std::chrono::steady_clock::now();
        if (now >= deadline) {
            return Receive::Timeout;
        }
        if (rc == 0) {
            auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now).count();
            const int wait_ms = static_cast<int>(left < 100 ? left + 1 : 100);
            if (fd >= 0) {
                pollfd pfd{fd, POLLIN, 0};
                poll(&pfd, 1, wait_ms);
            } else {
                poll(nullptr, 0, wait_ms);
            }
        }
    }
}

int open_link_and_capture(const Options& opt, Link& link, PcapWriter& pcap) {
    std::string error;
    if (!link.open(opt.iface, error) ||
        (!opt.pcap_path.empty() && !pcap.open(opt.pcap_path, error))) {
        std::fprintf(stderr, "wapiwps: %s\n", error.c_str());
        return kExitLink;
    }
    return kExitOk;
}

}  // namespace cli
