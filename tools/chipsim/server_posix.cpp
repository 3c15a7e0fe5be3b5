// The simulator's POSIX server: an AF_UNIX SOCK_SEQPACKET listener and its connections, served by
// one thread with poll(). The socket path exists exactly while serving, which is what the
// client takes for "the service is running".
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "chipsim/chipsim.h"
#include "chipsim/server.h"

namespace chipsim {
namespace {

constexpr size_t kMaxRequestLen = 64 * 1024;
constexpr int kBacklog = 64;

class PosixServer : public Server {
  public:
    PosixServer(Simulator& sim, std::string path) : sim_(sim), path_(std::move(path)) {}
    ~PosixServer() override { stop(); }

    bool start() override {
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        if (path_.size() >= sizeof addr.sun_path) return false;
        std::memcpy(addr.sun_path, path_.data(), path_.size());
        ::unlink(path_.c_str());  // a stale socket of an earlier run
        // The default directory is the service's to create, writable by its account alone.
        if (size_t slash = path_.rfind('/'); slash != std::string::npos && slash > 0)
            (void)::mkdir(path_.substr(0, slash).c_str(), 0755);
        listen_fd_ = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        if (listen_fd_ < 0) return false;
        if (::bind(listen_fd_, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) != 0 ||
            ::listen(listen_fd_, kBacklog) != 0 || ::pipe(wake_) != 0) {
            ::close(listen_fd_);
            listen_fd_ = -1;
            ::unlink(path_.c_str());
            return false;
        }
        stopping_ = false;
        thread_ = std::thread([this] { serve(); });
        return true;
    }

    // The path goes first, so that a client polling it sees the service stop before its
    // connection closes.
    void stop() override {
        if (listen_fd_ < 0) return;
        ::unlink(path_.c_str());
        stopping_ = true;
        char b = 1;
        (void)!::write(wake_[1], &b, 1);
        thread_.join();
        for (int fd : conns_) ::close(fd);
        conns_.clear();
        ::close(listen_fd_);
        ::close(wake_[0]);
        ::close(wake_[1]);
        listen_fd_ = -1;
    }

    void withdraw() override { ::unlink(path_.c_str()); }
    void on_stall(bool stalled) override {
        if (listen_fd_ >= 0) ::listen(listen_fd_, stalled ? 0 : kBacklog);
    }

  private:
    void serve() {
        std::vector<uint8_t> buf(kMaxRequestLen);
        while (!stopping_) {
            std::vector<pollfd> fds;
            fds.push_back({wake_[0], POLLIN, 0});
            if (sim_.stalled()) {
                // Only the wake pipe is watched, and the stall checked again now and then.
                (void)::poll(fds.data(), fds.size(), 20);
                continue;
            }
            fds.push_back({listen_fd_, POLLIN, 0});
            for (int fd : conns_) fds.push_back({fd, POLLIN, 0});
            if (::poll(fds.data(), fds.size(), -1) < 0) continue;
            if (stopping_) break;
            if (sim_.stalled()) continue;  // stalled while waiting: what arrived stays unread
            if (fds[1].revents & POLLIN) {
                int fd = ::accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
                if (fd >= 0) {
                    conns_.push_back(fd);
                    sim_.note_connection();
                }
            }
            std::vector<int> closed;
            for (size_t i = 2; i < fds.size(); ++i) {
                if (fds[i].revents == 0) continue;
                ssize_t n = ::recv(fds[i].fd, buf.data(), buf.size(), 0);
                if (n <= 0) {
                    closed.push_back(fds[i].fd);
                    continue;
                }
                bool vanish = false;
                std::vector<uint8_t> out = sim_.answer(buf.data(), static_cast<size_t>(n), &vanish);
                if (vanish) {
                    closed.push_back(fds[i].fd);
                } else if (!out.empty() &&
                           ::send(fds[i].fd, out.data(), out.size(), MSG_NOSIGNAL) < 0) {
                    closed.push_back(fds[i].fd);
                }
            }
            for (int fd : closed) {
                ::close(fd);
                std::erase(conns_, fd);
            }
        }
    }

    Simulator& sim_;
    std::string path_;
    int listen_fd_ = -1;
    int wake_[2] = {-1, -1};
    std::atomic<bool> stopping_{false};
    std::thread thread_;
    std::vector<int> conns_;  // the serving thread's, until it is joined
};

}  // namespace

std::unique_ptr<Server> make_server(Simulator& sim, const std::string& socket_path) {
    return std::make_unique<PosixServer>(sim, socket_path);
}

}  // namespace chipsim
