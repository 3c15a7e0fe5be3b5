// Secure-chip service simulator: serves the service's wire protocol (command 7, export a slot's
// public key; command 4, sign with a slot's key) on the same transport the enrollee's client
// uses, and can misbehave on purpose, one fault at a time.
//
// Windows: a message-mode pipe server "\\.\pipe\QMX470_pipe"; the event "Global\NamedPipeRuning"
// is set while serving and reset on stop. POSIX: an AF_UNIX SOCK_SEQPACKET socket at the given
// path (default: $WAPIWPS_SECURECHIP_SOCKET, else /run/wapiwps/securechip.sock, whose directory
// is created when missing), removed on stop.
//
// Keys: one per slot on the WAPI 192-bit curve, derived from the seed. Signatures are ECDSA with
// e = SHA-256(data) mod n and a random k, r || s as two 24-byte big-endian halves.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace chipsim {

inline constexpr size_t kKeyLen = 48;         // x || y, or r || s
inline constexpr size_t kPipeReadLen = 6144;  // the client's receive buffer

// How the next answers go wrong.
enum class Fault {
    kNone,
    kBadStatus,        // status 0x80000001, otherwise a normal answer
    kOversizedLength,  // L and payload of 200 bytes (more than the 48-byte key or signature)
    kShortReply,       // the header announces the normal L but only 10 payload bytes follow
    kLongReply,        // the normal answer padded to 6,144 bytes, then long_reply_tail()
    kVanish,           // the connection is closed without an answer
    kSilent,           // the request is read but never answered; the connection stays open
};

struct Options {
    std::string socket_path;  // POSIX only; empty: environment or default
    uint32_t seed = 1;        // key derivation seed
    uint32_t slots = 8;       // slots 0 .. slots-1 hold keys; other slots answer status 1
};

class Simulator {
  public:
    explicit Simulator(Options options = {});
    ~Simulator();
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    // Starts serving on a thread of its own (creates the socket / sets the running event).
    bool start();
    // Stops serving: the socket path is removed / the running event reset, every connection
    // closed. Harmless when not started.
    void stop();
    bool serving() const;
    // Announces that the service stopped (the socket path is removed / the running event reset)
    // but keeps every connection open and unanswered ones pending, as a service that hangs while
    // shutting down would. stop() still cleans up.
    void withdraw();
    // While stalled the service accepts no connection (POSIX: one waits in the listen queue,
    // further ones cannot connect) and reads no request, as a service that hangs would.
    // Connections stay open.
    void set_stalled(bool stalled);
    bool stalled() const;
    const std::string& socket_path() const;

    // The slot's public key as the service exports it (x || y); zero for an unknown slot.
    std::array<uint8_t, kKeyLen> public_key(uint32_t slot) const;

    // The next `count` requests are answered with `fault`.
    void set_fault(Fault fault, uint32_t count = 1);
    // What follows the first 6,144 bytes of a kLongReply answer (default: status 0, L = 56 and 48
    // bytes of 0x5A, a well-formed command 7 answer).
    void set_long_reply_tail(std::vector<uint8_t> tail);
    std::vector<uint8_t> long_reply_tail() const;

    uint32_t requests_served() const;
    // Connections accepted so far (the server counts them through note_connection).
    uint32_t connections_accepted() const;
    void note_connection();
    std::vector<uint8_t> last_request() const;

    // The answer to one request, as it would be sent; *vanish tells that the connection is to be
    // closed instead. Used by the server threads, public for tests.
    std::vector<uint8_t> answer(const uint8_t* request, size_t len, bool* vanish);

    // Verifies r || s over data with the public key x || y (libgcrypt).
    static bool verify(const std::array<uint8_t, kKeyLen>& public_key, const uint8_t* data,
                       size_t len, const uint8_t* signature);

    struct Impl;

  private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace chipsim
