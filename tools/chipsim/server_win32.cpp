// The simulator's Windows server: message-mode instances of "\\.\pipe\QMX470_pipe", one thread
// per connected instance plus one that keeps an instance listening, all with overlapped I/O so
// that stop() can end them. The event "Global\NamedPipeRuning" is set while serving.
#include <windows.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "chipsim/chipsim.h"
#include "chipsim/server.h"

namespace chipsim {
namespace {

constexpr char kPipeName[] = "\\\\.\\pipe\\QMX470_pipe";
constexpr char kRunningEventName[] = "Global\\NamedPipeRuning";
constexpr DWORD kPipeBufferLen = 64 * 1024;
constexpr DWORD kMaxRequestLen = 64 * 1024;

// Waits for an overlapped operation or the stop event; true when the operation completed.
bool wait_io(HANDLE pipe, OVERLAPPED* ov, HANDLE stop, DWORD* n) {
    HANDLE handles[2] = {ov->hEvent, stop};
    DWORD r = WaitForMultipleObjects(2, handles, FALSE, INFINITE);
    if (r != WAIT_OBJECT_0) {
        CancelIoEx(pipe, ov);
        GetOverlappedResult(pipe, ov, n, TRUE);
        return false;
    }
    return GetOverlappedResult(pipe, ov, n, FALSE) != 0;
}

class WinServer : public Server {
  public:
    explicit WinServer(Simulator& sim) : sim_(sim) {}
    ~WinServer() override {
        stop();
        if (running_event_ != nullptr) CloseHandle(running_event_);
    }

    bool start() override {
        SECURITY_DESCRIPTOR sd;
        InitializeSecurityDescriptor(&sd, SECURITY_DESCRIPTOR_REVISION);
        SetSecurityDescriptorDacl(&sd, TRUE, nullptr, FALSE);
        SECURITY_ATTRIBUTES sa{sizeof sa, &sd, FALSE};
        if (running_event_ == nullptr) {
            running_event_ = CreateEventA(&sa, TRUE, FALSE, kRunningEventName);
            if (running_event_ == nullptr) return false;
        }
        stop_event_ = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        if (stop_event_ == nullptr) return false;
        // The first instance exists before the event is set, so a client that sees the service
        // running finds the pipe too.
        HANDLE first = create_instance();
        if (first == INVALID_HANDLE_VALUE) {
            CloseHandle(stop_event_);
            stop_event_ = nullptr;
            return false;
        }
        started_ = true;
        listener_ = std::thread([this, first] { listen(first); });
        SetEvent(running_event_);
        return true;
    }

    void stop() override {
        if (!started_) return;
        ResetEvent(running_event_);
        SetEvent(stop_event_);
        listener_.join();
        std::vector<std::thread> conns;
        {
            std::lock_guard<std::mutex> guard(lock_);
            conns.swap(conns_);
        }
        for (auto& t : conns) t.join();
        CloseHandle(stop_event_);
        stop_event_ = nullptr;
        started_ = false;
    }

    void withdraw() override {
        if (started_) ResetEvent(running_event_);
    }

  private:
    // Keeps one instance listening; each connected instance is served by a thread of its own.
    static HANDLE create_instance() {
        return CreateNamedPipeA(kPipeName, PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED,
                                PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT,
                                PIPE_UNLIMITED_INSTANCES, kPipeBufferLen, kPipeBufferLen, 0,
                                nullptr);
    }

    void listen(HANDLE first) {
        for (HANDLE next = first;; next = INVALID_HANDLE_VALUE) {
            HANDLE pipe = next != INVALID_HANDLE_VALUE ? next : create_instance();
            if (pipe == INVALID_HANDLE_VALUE) {
                if (WaitForSingleObject(stop_event_, 100) == WAIT_OBJECT_0) return;
                continue;
            }
            OVERLAPPED ov{};
            ov.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
            bool connected = ConnectNamedPipe(pipe, &ov) != 0;
            if (!connected) {
                DWORD err = GetLastError();
                DWORD n = 0;
                if (err == ERROR_PIPE_CONNECTED)
                    connected = true;
                else if (err == ERROR_IO_PENDING)
                    connected = wait_io(pipe, &ov, stop_event_, &n);
            }
            CloseHandle(ov.hEvent);
            if (!connected) {
                CloseHandle(pipe);
                if (WaitForSingleObject(stop_event_, 0) == WAIT_OBJECT_0) return;
                continue;
            }
            sim_.note_connection();
            std::lock_guard<std::mutex> guard(lock_);
            conns_.emplace_back([this, pipe] { serve(pipe); });
        }
    }

    void serve(HANDLE pipe) {
        std::vector<uint8_t> buf(kMaxRequestLen);
        OVERLAPPED ov{};
        ov.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        for (;;) {
            bool stopping = false;
            while (sim_.stalled() && !stopping)
                stopping = WaitForSingleObject(stop_event_, 20) == WAIT_OBJECT_0;
            if (stopping) break;
            ResetEvent(ov.hEvent);
            DWORD n = 0;
            if (!ReadFile(pipe, buf.data(), kMaxRequestLen, &n, &ov)) {
                DWORD err = GetLastError();
                if (err != ERROR_IO_PENDING || !wait_io(pipe, &ov, stop_event_, &n)) break;
            }
            // A request read just as the service stalled waits, unanswered, for the stall to end.
            while (sim_.stalled() && !stopping)
                stopping = WaitForSingleObject(stop_event_, 20) == WAIT_OBJECT_0;
            if (stopping) break;
            bool vanish = false;
            std::vector<uint8_t> out = sim_.answer(buf.data(), n, &vanish);
            if (vanish) break;
            if (out.empty()) continue;  // silent: wait for the next request or the stop
            ResetEvent(ov.hEvent);
            DWORD written = 0;
            if (!WriteFile(pipe, out.data(), static_cast<DWORD>(out.size()), &written, &ov)) {
                DWORD err = GetLastError();
                if (err != ERROR_IO_PENDING || !wait_io(pipe, &ov, stop_event_, &written)) break;
            }
        }
        CloseHandle(ov.hEvent);
        DisconnectNamedPipe(pipe);
        CloseHandle(pipe);
    }

    Simulator& sim_;
    HANDLE running_event_ = nullptr;
    HANDLE stop_event_ = nullptr;
    bool started_ = false;
    std::thread listener_;
    std::mutex lock_;
    std::vector<std::thread> conns_;
};

}  // namespace

std::unique_ptr<Server> make_server(Simulator& sim, const std::string&) {
    return std::make_unique<WinServer>(sim);
}

}  // namespace chipsim
