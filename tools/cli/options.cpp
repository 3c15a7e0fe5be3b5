// Command line of `wapiwps`: the three commands, their options and their help texts.
#include <cstdlib>

#include "cli.h"

namespace cli {
namespace {

constexpr const char* kMainUsage =
    "usage: wapiwps <command> [options]\n"
    "\n"
    "Runs the enrollee side of a WAPI Simple Config registration through the wapiwps library.\n"
    "\n"
    "commands:\n"
    "  demo       a whole exchange against the in-process reference registrar\n"
    "  enroll     the enrollee over a real interface (libpcap)\n"
    "  registrar  the reference registrar over a real interface (libpcap)\n"
    "  decode     print the decoded transcript of a capture file\n"
    "  replay     feed a capture's registrar frames to the library and say where it stops\n"
    "\n"
    "'wapiwps <command> --help' describes the options of each command. Options take their\n"
    "value as the next argument or after '=' (--mode=psk). 'wapiwps --version' prints the\n"
    "version of the library in use.\n"
    "\n"
    "exit codes: 0 success, 1 exchange failed or refused, 2 usage error, 3 timeout,\n"
    "            4 interface or pcap error, 5 library or secure-chip set-up error\n";

constexpr const char* kDemoUsage =
    "usage: wapiwps demo [options]\n"
    "\n"
    "Runs a whole exchange between the library and the in-process reference registrar and\n"
    "prints every frame, every state change and the credential the getters return.\n"
    "\n"
    "  --mode psk|cert|wifi   WAPI pre-shared key, WAPI certificate (default), Wi-Fi flavour\n"
    "  --pin DIGITS           the 8-digit device password (default: push button, \"00000000\")\n"
    "  --registrar-pin DIGITS the registrar holds this password instead (a wrong-PIN run)\n"
    "  --secure-chip          sign M7 with the secure-chip simulator (StartWPS_SecureChip)\n"
    "  --fragment-m8 [N]      the registrar sends M8 in fragments: without N in two, split at\n"
    "                         the first point the enrollee's reassembly accepts; with N in\n"
    "                         fragments of at most N bytes (refused when M8 offers no such cut)\n"
    "  --identity TEXT        register TEXT as certificate identity for the registrar\n"
    "  --network-key TEXT     the key the registrar delivers in PSK modes\n"
    "  --pcap FILE            write every frame as Ethernet/EAPOL to a pcap file\n"
    "  --show-secrets         show keys, nonces, hashes and authenticators\n"
    "  --trace                print the library's diagnostic lines (on stderr)\n"
    "  --help                 this text\n"
    "\n"
    "exit codes: 0 success, 1 exchange failed or refused, 2 usage error,\n"
    "            4 pcap error, 5 library or secure-chip set-up error\n";

constexpr const char* kEnrollUsage =
    "usage: wapiwps enroll --iface IF [options]\n"
    "\n"
    "Runs the enrollee over the Ethernet interface IF: sends EAPOL-Start (repeated every second\n"
    "until a registrar answers) and answers the registrar's frames through the library.\n"
    "\n"
    "  --iface IF             the interface (required)\n"
    "  --peer MAC             the registrar's address (default: PAE group 01:80:c2:00:00:03)\n"
    "  --mode psk|cert|wifi   as for demo (default cert)\n"
    "  --pin DIGITS           the 8-digit device password (default: push button)\n"
    "  --secure-chip          sign M7 with the secure-chip service (StartWPS_SecureChip)\n"
    "  --identity TEXT        register TEXT as certificate identity for the reference\n"
    "                         registrar's UUID (the one 'wapiwps registrar' uses)\n"
    "  --timeout SECONDS      give up after this much silence (default 10)\n"
    "  --pcap FILE            write every frame sent or received to a pcap file\n"
    "  --show-secrets, --trace, --help   as for demo\n"
    "\n"
    "exit codes: 0 success, 1 exchange failed or refused, 2 usage error, 3 timeout,\n"
    "            4 interface or pcap error, 5 library or secure-chip set-up error\n";

constexpr const char* kRegistrarUsage =
    "usage: wapiwps registrar --iface IF [options]\n"
    "\n"
    "Runs the reference registrar over the Ethernet interface IF for one exchange: waits for\n"
    "EAPOL-Start (to the PAE group address or to this interface) and answers the enrollee at\n"
    "the source address of its frames. Exact repeats of a frame are ignored.\n"
    "\n"
    "  --iface IF             the interface (required)\n"
    "  --peer MAC             accept only this enrollee (default: the first that starts)\n"
    "  --mode psk|cert|wifi   the flavour it serves (default cert)\n"
    "  --pin DIGITS           the device password it holds (default \"00000000\")\n"
    "  --fragment-m8 [N]      send M8 in fragments (as for demo)\n"
    "  --network-key TEXT     the key delivered in PSK modes\n"
    "  --timeout SECONDS      give up after this much silence (default 10; 0 waits for ever\n"
    "                         for the first EAPOL-Start)\n"
    "  --pcap FILE, --show-secrets, --help   as for demo\n"
    "\n"
    "exit codes: 0 success (Done received), 1 exchange failed or refused, 2 usage error,\n"
    "            3 timeout, 4 interface or pcap error\n";

constexpr const char* kDecodeUsage =
    "usage: wapiwps decode FILE.pcap [options]\n"
    "\n"
    "Prints every EAPOL frame of a capture as the demo transcript does: Ethernet (also with a\n"
    "VLAN tag) and Linux cooked captures, and files of bare EAPOL frames. Frames that are not\n"
    "EAPOL, or that cannot be parsed, are marked and skipped.\n"
    "\n"
    "  --show-secrets         show keys, nonces, hashes and authenticators\n"
    "  --help                 this text\n"
    "\n"
    "exit codes: 0 decoded, 2 usage error, 4 the file cannot be read\n";

constexpr const char* kReplayUsage =
    "usage: wapiwps replay FILE.pcap [options]\n"
    "\n"
    "Starts a run and hands the capture's registrar frames (EAP Requests and Failures) to the\n"
    "library in order, printing per frame the result, the state and the status reason, so a\n"
    "field capture shows where and why an exchange stopped. The library makes its own nonces\n"
    "and keys, so the captured M2 (made for the captured enrollee's M1) cannot match them: the\n"
    "replay necessarily diverges at M2, at the latest at its Authenticator check.\n"
    "\n"
    "  --mode psk|cert|wifi   the enrollee's mode (default: from the capture)\n"
    "  --pin DIGITS           the device password (default: push button)\n"
    "  --show-secrets, --trace, --help   as for demo\n"
    "\n"
    "exit codes: 0 the library accepted every frame, 1 a frame was refused or the run ended\n"
    "            without a credential, 2 usage error, 4 the file cannot be read\n";

bool parse_mode(const std::string& text, uint32_t& mode) {
    if (text == "psk") {
        mode = 2;
        return true;
    }
    if (text == "cert") {
        mode = 3;
        return true;
    }
    if (text == "wifi") {
        mode = 1;
        return true;
    }
    return false;
}

bool parse_unsigned(const std::string& text, unsigned long max, unsigned long& value) {
    if (text.empty() || text.size() > 9) {
        return false;
    }
    for (char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
    }
    value = std::strtoul(text.c_str(), nullptr, 10);
    return value <= max;
}

bool is_pin(const std::string& text) {
    if (text.size() != 8) {
        return false;
    }
    for (char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
    }
    return true;
}

}  // namespace

const char* usage_text(Command command) {
    switch (command) {
        case Command::Demo:
            return kDemoUsage;
        case Command::Enroll:
            return kEnrollUsage;
        case Command::Registrar:
            return kRegistrarUsage;
        case Command::Decode:
            return kDecodeUsage;
        case Command::Replay:
            return kReplayUsage;
        case Command::None:
            break;
    }
    return kMainUsage;
}

bool parse_options(const std::vector<std::string>& raw, Options& opt, std::string& error) {
    // "--opt=value" is "--opt value"; a value attached to an option that takes none is refused.
    std::vector<std::string> args;
    std::vector<bool> attached;
    for (const std::string& a : raw) {
        const size_t eq = a.find('=');
        if (a.rfind("--", 0) == 0 && eq != std::string::npos && eq > 2) {
            args.push_back(a.substr(0, eq));
            attached.push_back(false);
            args.push_back(a.substr(eq + 1));
            attached.push_back(true);
        } else {
            args.push_back(a);
            attached.push_back(false);
        }
    }
    if (args.empty()) {
        error = "missing command";
        return false;
    }
    const std::string& cmd = args[0];
    if (cmd == "demo")
        opt.command = Command::Demo;
    else if (cmd == "enroll")
        opt.command = Command::Enroll;
    else if (cmd == "registrar")
        opt.command = Command::Registrar;
    else if (cmd == "decode")
        opt.command = Command::Decode;
    else if (cmd == "replay")
        opt.command = Command::Replay;
    else if (cmd == "--help" || cmd == "-h" || cmd == "help") {
        opt.help = true;
        return true;
    } else if (cmd == "--version") {
        opt.version = true;
        return true;
    } else {
        error = "unknown command '" + cmd + "'";
        return false;
    }

    const bool live = opt.command == Command::Enroll || opt.command == Command::Registrar;
    const bool offline = opt.command == Command::Decode || opt.command == Command::Replay;
    const bool exchange = !offline || opt.command == Command::Replay;
    for (size_t i = 1; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (attached[i]) {
            error = "option " + args[i - 1] + " takes no value";
            return false;
        }
        // Options with a value take the next argument.
        auto value = [&](std::string& out) {
            if (i + 1 >= args.size()) {
                error = "option " + a + " needs a value";
                return false;
            }
            out = args[++i];
            return true;
        };
        std::string v;
        unsigned long n = 0;
        if (a == "--help" || a == "-h") {
            opt.help = true;
        } else if (offline && a.rfind("-", 0) != 0 && opt.input_path.empty()) {
            opt.input_path = a;
        } else if (a == "--mode" && exchange) {
            if (!value(v)) return false;
            if (!parse_mode(v, opt.wps_mode)) {
                error = "--mode takes psk, cert or wifi";
                return false;
            }
            opt.mode_given = true;
        } else if (a == "--pin" && exchange) {
            if (!value(v)) return false;
            // The library reads exactly eight characters of the PIN in MAC address mode.
            if (!is_pin(v)) {
                error = "--pin takes exactly 8 digits";
                return false;
            }
            opt.pin = v;
        } else if (a == "--registrar-pin" && opt.command == Command::Demo) {
            if (!value(v)) return false;
            if (!is_pin(v)) {
                error = "--registrar-pin takes exactly 8 digits";
                return false;
            }
            opt.registrar_pin = v;
        } else if (a == "--secure-chip" && !offline && opt.command != Command::Registrar) {
            opt.secure_chip = true;
        } else if (a == "--fragment-m8" && !offline && opt.command != Command::Enroll) {
            opt.fragment_m8 = true;
            if (i + 1 < args.size() && !args[i + 1].empty() && args[i + 1][0] != '-') {
                if (!parse_unsigned(args[++i], 4096, n) || n < 16) {
                    error = "--fragment-m8 takes a size of 16 to 4096 bytes";
                    return false;
                }
                opt.fragment_size = n;
            }
        } else if (a == "--identity" && !offline && opt.command != Command::Registrar) {
            if (!value(v)) return false;
            if (v.empty() || v.size() > 1024) {
                error = "--identity takes 1 to 1024 characters";
                return false;
            }
            opt.identity = v;
        } else if (a == "--network-key" && !offline && opt.command != Command::Enroll) {
            if (!value(v)) return false;
            if (v.empty() || v.size() > 64) {
                error = "--network-key takes 1 to 64 characters";
                return false;
            }
            opt.network_key = v;
        } else if (a == "--pcap" && !offline) {
            if (!value(v)) return false;
            opt.pcap_path = v;
        } else if (a == "--show-secrets") {
            opt.show_secrets = true;
        } else if (a == "--trace" && exchange) {
            opt.trace = true;
        } else if (a == "--iface" && live) {
            if (!value(v)) return false;
            opt.iface = v;
        } else if (a == "--peer" && live) {
            if (!value(v)) return false;
            Mac mac{};
            if (!parse_mac(v, mac)) {
                error = "--peer takes a MAC address like 02:00:00:00:00:02";
                return false;
            }
            opt.peer = mac;
        } else if (a == "--timeout" && live) {
            if (!value(v)) return false;
            if (!parse_unsigned(v, 3600, n)) {
                error = "--timeout takes 0 to 3600 seconds";
                return false;
            }
            opt.timeout_s = static_cast<uint32_t>(n);
        } else {
            error = "unknown option '" + a + "' for " + cmd;
            return false;
        }
    }
    if (offline && !opt.help && opt.input_path.empty()) {
        error = cmd + " needs a capture file";
        return false;
    }
    if (live && !opt.help && opt.iface.empty()) {
        error = cmd + " needs --iface";
        return false;
    }
    if (opt.command == Command::Enroll && opt.timeout_s == 0) {
        error = "enroll needs a --timeout of at least 1 second";
        return false;
    }
    return true;
}

}  // namespace cli
