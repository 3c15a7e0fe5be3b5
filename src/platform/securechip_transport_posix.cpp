// POSIX secure-chip transport: an AF_UNIX SOCK_SEQPACKET socket stands in for the message-mode
// named pipe, the socket path's existence for the service's running event, and a
// mutex/condition pair for the manual-reset stop event.
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#include "platform/securechip_transport.h"

namespace platform {

// A manual-reset event. The running event carries no state of its own: it is "signalled" while
// the service's socket path exists.
struct ChipEvent {
    bool is_running_event = false;
    std::mutex lock;
    std::condition_variable changed;
    bool signalled = false;
};

// SOCK_SEQPACKET drops the unread tail of a message, whereas a message-mode pipe keeps it for the
// next read. Each message is therefore received whole and what the caller could not take is kept
// here and handed out first by the following reads.
struct ChipPipe {
    int fd = -1;
    uint8_t* pending = nullptr;  // heap copy of the unread rest of the last message
    size_t pending_len = 0;
    size_t pending_off = 0;
};

struct ChipThread {
    pthread_t thread;
    chip_thread_fn fn;
    void* arg;
};

namespace {

// Largest message kept whole; the tail of a larger one is dropped (no service sends more than a
// few kilobytes).
constexpr size_t kMaxMessageLen = size_t{1} << 20;
constexpr uint32_t kPathPollMs = 50;

thread_local uint32_t t_last_error = 0;

bool fail_with(int err) {
    t_last_error = static_cast<uint32_t>(err);
    return false;
}

const char* socket_path() {
    const char* env = std::getenv(kChipSocketEnv);
    return (env != nullptr && env[0] != '\0') ? env : kChipDefaultSocketPath;
}

bool socket_path_exists() {
    struct stat st;
    return ::stat(socket_path(), &st) == 0;
}

// Waits on the stop event; true when it is signalled.
bool wait_event(ChipEvent* ev, uint32_t timeout_ms) {
    std::unique_lock<std::mutex> guard(ev->lock);
    return ev->changed.wait_for(guard, std::chrono::milliseconds(timeout_ms),
                                [ev] { return ev->signalled; });
}

void drop_pending(ChipPipe* pipe) {
    std::free(pipe->pending);
    pipe->pending = nullptr;
    pipe->pending_len = 0;
    pipe->pending_off = 0;
}

// Hands out up to cap bytes of the kept rest of a message.
ChipRead read_pending(ChipPipe* pipe, uint8_t* buf, size_t cap, size_t* got) {
    size_t left = pipe->pending_len - pipe->pending_off;
    size_t n = left < cap ? left : cap;
    std::memcpy(buf, pipe->pending + pipe->pending_off, n);
    pipe->pending_off += n;
    *got = n;
    if (n < left) return ChipRead::kMoreData;
    drop_pending(pipe);
    return ChipRead::kOk;
}

void* thread_main(void* raw) {
    ChipThread* t = static_cast<ChipThread*>(raw);
    t->fn(t->arg);
    return nullptr;
}

}  // namespace

uint32_t chip_last_error() {
    return t_last_error;
}

ChipEvent* chip_stop_event_create() {
    return new (std::nothrow) ChipEvent;
}

void chip_stop_event_set(ChipEvent* event) {
    if (event == nullptr || event->is_running_event) return;
    {
        std::lock_guard<std::mutex> guard(event->lock);
        event->signalled = true;
    }
    event->changed.notify_all();
}

ChipEvent* chip_running_event_open() {
    ChipEvent* ev = new (std::nothrow) ChipEvent;
    if (ev == nullptr) {
        fail_with(ENOMEM);
        return nullptr;
    }
    ev->is_running_event = true;
    return ev;
}

// The path is polled: before the wait, and once more when the wait ends, so the service is seen
// within one timeout of creating its socket.
ChipWait chip_wait_stop_or_running(ChipEvent* stop, ChipEvent* running, uint32_t timeout_ms) {
    if (stop == nullptr || running == nullptr) {
        fail_with(EINVAL);
        return ChipWait::kFailed;
    }
    if (wait_event(stop, 0)) return ChipWait::kStop;
    if (socket_path_exists()) return ChipWait::kRunning;
    if (wait_event(stop, timeout_ms)) return ChipWait::kStop;
    return socket_path_exists() ? ChipWait::kRunning : ChipWait::kTimeout;
}

ChipPause chip_wait_stop(ChipEvent* stop, uint32_t timeout_ms) {
    if (stop == nullptr) {
        fail_with(EINVAL);
        return ChipPause::kFailed;
    }
    return wait_event(stop, timeout_ms) ? ChipPause::kSignalled : ChipPause::kTimeout;
}

ChipOpen chip_pipe_open(ChipPipe** out) {
    *out = nullptr;
    const char* path = socket_path();
    sockaddr_un addr;
    std::memset(&addr, 0, sizeof addr);
    addr.sun_family = AF_UNIX;
    size_t path_len = std::strlen(path);
    if (path_len >= sizeof addr.sun_path) {
        fail_with(ENAMETOOLONG);
        return ChipOpen::kError;
    }
    std::memcpy(addr.sun_path, path, path_len);

    int fd = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        fail_with(errno);
        return ChipOpen::kError;
    }
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) != 0) {
        int err = errno;
        ::close(fd);
        fail_with(err);
        return (err == EAGAIN) ? ChipOpen::kBusy : ChipOpen::kError;
    }
    ChipPipe* pipe = new (std::nothrow) ChipPipe;
    if (pipe == nullptr) {
        ::close(fd);
        fail_with(ENOMEM);
        return ChipOpen::kError;
    }
    pipe->fd = fd;
    *out = pipe;
    return ChipOpen::kOk;
}

bool chip_pipe_wait_busy(uint32_t timeout_ms) {
    for (uint32_t waited = 0;; waited += kPathPollMs) {
        if (socket_path_exists()) return true;
        if (waited >= timeout_ms) return fail_with(ETIMEDOUT);
        ::usleep(kPathPollMs * 1000);
    }
}

bool chip_pipe_set_message_mode(ChipPipe* pipe) {
    if (pipe == nullptr) return fail_with(EBADF);
    return true;
}

bool chip_pipe_write(ChipPipe* pipe, const uint8_t* data, size_t len) {
    if (pipe == nullptr) return fail_with(EBADF);
    for (;;) {
        ssize_t n = ::send(pipe->fd, data, len, MSG_NOSIGNAL);
        if (n >= 0) return static_cast<size_t>(n) == len ? true : fail_with(EIO);
        if (errno != EINTR) return fail_with(errno);
    }
}

ChipRead chip_pipe_read(ChipPipe* pipe, uint8_t* buf, size_t cap, size_t* got) {
    *got = 0;
    if (pipe == nullptr) {
        fail_with(EBADF);
        return ChipRead::kError;
    }
    if (pipe->pending != nullptr) return read_pending(pipe, buf, cap, got);

    // Learn the whole message's length without consuming it, then take it in one piece.
    ssize_t whole;
    do {
        whole = ::recv(pipe->fd, buf, 0, MSG_PEEK | MSG_TRUNC);
    } while (whole < 0 && errno == EINTR);
    if (whole < 0) {
        fail_with(errno);
        return ChipRead::kError;
    }
    if (whole == 0) {
        // The service closed its end (an empty message is never sent by a service and is taken
        // for the same thing).
        fail_with(EPIPE);
        return ChipRead::kError;
    }
    size_t len =
        static_cast<size_t>(whole) < kMaxMessageLen ? static_cast<size_t>(whole) : kMaxMessageLen;
    if (len <= cap) {
        ssize_t n = ::recv(pipe->fd, buf, cap, 0);
        if (n < 0) {
            fail_with(errno);
            return ChipRead::kError;
        }
        *got = static_cast<size_t>(n);
        return ChipRead::kOk;
    }
    uint8_t* message = static_cast<uint8_t*>(std::malloc(len));
    if (message == nullptr) {
        fail_with(ENOMEM);
        return ChipRead::kError;
    }
    ssize_t n = ::recv(pipe->fd, message, len, 0);
    if (n < 0) {
        std::free(message);
        fail_with(errno);
        return ChipRead::kError;
    }
    pipe->pending = message;
    pipe->pending_len = static_cast<size_t>(n) < len ? static_cast<size_t>(n) : len;
    pipe->pending_off = 0;
    return read_pending(pipe, buf, cap, got);
}

void chip_pipe_interrupt(ChipPipe* pipe) {
    if (pipe != nullptr) ::shutdown(pipe->fd, SHUT_RDWR);
}

void chip_pipe_close(ChipPipe* pipe) {
    if (pipe == nullptr) return;
    ::close(pipe->fd);
    drop_pending(pipe);
    delete pipe;
}

ChipThread* chip_thread_start(chip_thread_fn fn, void* arg, uint32_t* thread_id) {
    static std::atomic<uint32_t> next_id{1};
    ChipThread* t = new (std::nothrow) ChipThread;
    if (t == nullptr) return nullptr;
    t->fn = fn;
    t->arg = arg;
    if (::pthread_create(&t->thread, nullptr, thread_main, t) != 0) {
        delete t;
        return nullptr;
    }
    ::pthread_detach(t->thread);
    *thread_id = next_id.fetch_add(1);
    return t;
}

}  // namespace platform
