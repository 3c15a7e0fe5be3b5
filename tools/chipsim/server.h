// The simulator's transport: a server that hands each received request message to the simulator
// and sends back its answer. One implementation per OS (server_posix.cpp, server_win32.cpp).
#pragma once

#include <memory>
#include <string>

namespace chipsim {

class Simulator;

class Server {
  public:
    virtual ~Server() = default;
    virtual bool start() = 0;
    virtual void stop() = 0;
    virtual void withdraw() = 0;
    // Called when the service stalls or resumes (POSIX: the listen queue shrinks to one
    // connection while stalled, so that further connects wait).
    virtual void on_stall(bool) {}
};

std::unique_ptr<Server> make_server(Simulator& sim, const std::string& socket_path);
// Default socket path (POSIX): $WAPIWPS_SECURECHIP_SOCKET, else /run/wapiwps/securechip.sock.
std::string default_socket_path();

}  // namespace chipsim
