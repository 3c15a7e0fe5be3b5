// A live Ethernet interface opened with libpcap, carrying EAPOL frames only.
#pragma once

#include "cli.h"

namespace cli {

class Link {
  public:
    Link() = default;
    ~Link();
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    // Opens the interface for capture and injection with the filter "ether proto 0x888e".
    bool open(const std::string& iface, std::string& error);
    const Mac& own_mac() const { return own_mac_; }

    bool send(const Mac& dst, std::span<const uint8_t> eapol, std::string& error);

    enum class Receive { Frame, Timeout, Error };
    // Waits up to timeout_ms for one EAPOL frame not sent by this interface itself.
    Receive receive(Mac& src, Mac& dst, Bytes& eapol, int timeout_ms, std::string& error);

  private:
    void* pcap_ = nullptr;  // pcap_t*
    Mac own_mac_{};
};

// Opens the interface and, when the options name one, the pcap file: kExitOk, or kExitLink after
// printing why.
int open_link_and_capture(const Options& opt, Link& link, PcapWriter& pcap);

}  // namespace cli
