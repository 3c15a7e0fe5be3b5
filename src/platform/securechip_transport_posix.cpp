// POSIX secure-chip transport: an AF_UNIX SOCK_SEQPACKET socket stands in for the message-mode
// named pipe, the socket path's existence for the service's running event, and a
// mutex/condition pair for the manual-reset stop event. The peer is checked with SO_PEERCRED
// (getpeereid where that is missing) and every wait on it is a poll() with the caller's timeout.
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#include "platform/securechip_policy.h"
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

// The accounts allowed to serve, read by the watcher at every open.
ChipPeerPolicyStore<uid_t> g_policy;

}  // namespace

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
    // Touch this thread's error slot first: in a library loaded with dlopen the first use of a
    // thread-local may allocate under the loader's lock, and that must not happen late, while
    // dlclose (holding that lock) waits for this thread to end.
    t_last_error = 0;
    ChipThread* t = static_cast<ChipThread*>(raw);
    t->fn(t->arg);
    return nullptr;
}

bool parse_uid(const char* text, uid_t* out) {
    if (text[0] < '0' || text[0] > '9') return false;
    unsigned long long v = 0;
    for (const char* p = text; *p != '\0'; ++p) {
        if (*p < '0' || *p > '9') return false;
        v = v * 10 + static_cast<unsigned>(*p - '0');
        if (v > 0xFFFFFFFEull) return false;  // (uid_t)-1 is "no uid"
    }
    *out = static_cast<uid_t>(v);
    return true;
}

// The account that created the listening socket, as the kernel recorded it.
bool peer_uid(int fd, uid_t* uid) {
#if defined(SO_PEERCRED)
    ucred cred;
    socklen_t len = sizeof cred;
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0 || len != sizeof cred)
        return false;
    *uid = cred.uid;
    return true;
#else
    gid_t gid;
    return ::getpeereid(fd, uid, &gid) == 0;
#endif
}

// True when the peer may serve; otherwise false with the reason in why.
bool peer_allowed(int fd, char* why, size_t why_len) {
    const ChipPeerPolicy<uid_t> policy = g_policy.get();
    if (policy.classes & kChipPeerAny) return true;
    uid_t uid;
    if (!peer_uid(fd, &uid)) {
        std::snprintf(why, why_len, "the server's credentials cannot be read (errno %d)", errno);
        return false;
    }
    if ((policy.classes & kChipPeerSystem) && uid == 0) return true;
    if ((policy.classes & kChipPeerSelf) && uid == ::geteuid()) return true;
    for (uint32_t i = 0; i < policy.extra_count; ++i)
        if (uid == policy.extra[i]) return true;
    std::snprintf(why, why_len, "the server runs as uid %u, which is not allowed",
                  static_cast<unsigned>(uid));
    return false;
}

// Waits up to timeout_ms for fd to become ready for `events`; false with t_last_error set when it
// does not (ETIMEDOUT), or when the peer hung up or the socket was shut down.
bool wait_ready(int fd, short events, uint32_t timeout_ms) {
    pollfd p{fd, events, 0};
    for (;;) {
        int timeout = timeout_ms > 0x7FFFFFFFu ? -1 : static_cast<int>(timeout_ms);
        int n = ::poll(&p, 1, timeout);
        if (n > 0) return (p.revents & events) != 0 || fail_with(EPIPE);
        if (n == 0) return fail_with(ETIMEDOUT);
        if (errno != EINTR) return fail_with(errno);
    }
}

}  // namespace

uint32_t chip_last_error() {
    return t_last_error;
}

ChipEvent* chip_stop_event_create() {
    return new (std::nothrow) ChipEvent;
}

bool chip_set_peer_policy(uint32_t classes, const char* const* extra, uint32_t extra_count) {
    return g_policy.set(classes, extra, extra_count, parse_uid);
}

void chip_event_close(ChipEvent* event) {
    delete event;
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

ChipOpen chip_pipe_open(ChipPipe** out, uint32_t timeout_ms, char* why, size_t why_len) {
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
    // A listener whose queue is full makes connect() wait; the send timeout bounds that wait
    // (it then fails with EAGAIN, reported as ETIMEDOUT).
    timeval tv{static_cast<time_t>(timeout_ms / 1000),
               static_cast<suseconds_t>(timeout_ms % 1000 * 1000)};
    (void)::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
    int rc;
    do {
        rc = ::connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr);
    } while (rc != 0 && errno == EINTR);
    if (rc != 0) {
        int err = errno;
        ::close(fd);
        fail_with(err == EAGAIN ? ETIMEDOUT : err);
        return ChipOpen::kError;
    }
    if (!peer_allowed(fd, why, why_len)) {
        ::close(fd);
        return ChipOpen::kRefused;
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

bool chip_pipe_write(ChipPipe* pipe, const uint8_t* data, size_t len, uint32_t timeout_ms) {
    if (pipe == nullptr) return fail_with(EBADF);
    for (;;) {
        if (!wait_ready(pipe->fd, POLLOUT, timeout_ms)) return false;
        ssize_t n = ::send(pipe->fd, data, len, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n >= 0) return static_cast<size_t>(n) == len ? true : fail_with(EIO);
        if (errno != EINTR && errno != EAGAIN) return fail_with(errno);
    }
}

ChipRead chip_pipe_read(ChipPipe* pipe, uint8_t* buf, size_t cap, size_t* got,
                        uint32_t timeout_ms) {
    *got = 0;
    if (pipe == nullptr) {
        fail_with(EBADF);
        return ChipRead::kError;
    }
    if (pipe->pending != nullptr) return read_pending(pipe, buf, cap, got);

    // Learn the whole message's length without consuming it, then take it in one piece. A
    // shutdown (chip_pipe_interrupt) or a hang-up makes the socket readable with nothing to
    // read, which ends up below as "closed".
    if (!wait_ready(pipe->fd, POLLIN, timeout_ms) && chip_last_error() == ETIMEDOUT)
        return ChipRead::kError;
    ssize_t whole;
    do {
        whole = ::recv(pipe->fd, buf, 0, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
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
        ssize_t n = ::recv(pipe->fd, buf, cap, MSG_DONTWAIT);
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
    ssize_t n = ::recv(pipe->fd, message, len, MSG_DONTWAIT);
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
    *thread_id = next_id.fetch_add(1);
    return t;
}

void chip_thread_join(ChipThread* thread) {
    if (thread == nullptr) return;
    ::pthread_join(thread->thread, nullptr);
    delete thread;
}

}  // namespace platform
