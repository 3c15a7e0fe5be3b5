// The secure-chip service for --secure-chip: the simulator run in-process on its own thread, on a
// socket path in a fresh temporary directory handed to the library through
// WAPIWPS_SECURECHIP_SOCKET.
#pragma once

#include <memory>
#include <string>

namespace cli {

class ChipService {
  public:
    ChipService();
    ~ChipService();
    ChipService(const ChipService&) = delete;
    ChipService& operator=(const ChipService&) = delete;

    bool start(std::string& error);
    // Waits (bounded) until the library's secure-chip client has reached the service.
    void wait_for_client();

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace cli
