// Windows secure-chip transport: the service's message-mode named pipe, its machine-wide running
// event, an unnamed manual-reset stop event and the watcher thread, all synchronous Win32 calls.
#include <process.h>
#include <windows.h>

#include <new>

#include "platform/securechip_transport.h"

namespace platform {

// Thin owners of one handle each; the client holds them by pointer so that "no pipe" is null.
struct ChipPipe {
    HANDLE handle;
};
struct ChipEvent {
    HANDLE handle;
};
struct ChipThread {
    HANDLE handle;
    chip_thread_fn fn;
    void* arg;
};

namespace {

constexpr wchar_t kPipeNameW[] = L"\\\\.\\pipe\\QMX470_pipe";

// The error of the last failing call, kept per thread because the client takes a lock (which
// may change GetLastError) before it prints the error.
thread_local uint32_t t_last_error = 0;

void remember_error() {
    t_last_error = static_cast<uint32_t>(GetLastError());
}

unsigned __stdcall thread_main(void* raw) {
    ChipThread* t = static_cast<ChipThread*>(raw);
    return static_cast<unsigned>(t->fn(t->arg));
}

}  // namespace

uint32_t chip_last_error() {
    return t_last_error;
}

ChipEvent* chip_stop_event_create() {
    HANDLE h = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (h == nullptr) {
        remember_error();
        return nullptr;
    }
    ChipEvent* ev = new (std::nothrow) ChipEvent{h};
    if (ev == nullptr) CloseHandle(h);
    return ev;
}

void chip_stop_event_set(ChipEvent* event) {
    if (event != nullptr) SetEvent(event->handle);
}

// A null DACL lets every account (the service may run as another user) open the event.
ChipEvent* chip_running_event_open() {
    SECURITY_DESCRIPTOR descriptor;
    InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE);
    SECURITY_ATTRIBUTES attributes;
    attributes.nLength = sizeof attributes;
    attributes.lpSecurityDescriptor = &descriptor;
    attributes.bInheritHandle = TRUE;

    HANDLE h = OpenEventA(EVENT_ALL_ACCESS, FALSE, kChipRunningEventName);
    if (h == nullptr) h = CreateEventA(&attributes, TRUE, FALSE, kChipRunningEventName);
    if (h == nullptr) {
        remember_error();
        return nullptr;
    }
    ChipEvent* ev = new (std::nothrow) ChipEvent{h};
    if (ev == nullptr) CloseHandle(h);
    return ev;
}

ChipWait chip_wait_stop_or_running(ChipEvent* stop, ChipEvent* running, uint32_t timeout_ms) {
    HANDLE handles[2] = {stop != nullptr ? stop->handle : nullptr,
                         running != nullptr ? running->handle : nullptr};
    DWORD r = WaitForMultipleObjectsEx(2, handles, FALSE, timeout_ms, TRUE);
    if (r == WAIT_OBJECT_0) return ChipWait::kStop;
    if (r == WAIT_OBJECT_0 + 1) return ChipWait::kRunning;
    if (r == WAIT_TIMEOUT) return ChipWait::kTimeout;
    remember_error();
    return r == WAIT_FAILED ? ChipWait::kFailed : ChipWait::kOther;
}

ChipPause chip_wait_stop(ChipEvent* stop, uint32_t timeout_ms) {
    DWORD r = WaitForSingleObjectEx(stop != nullptr ? stop->handle : nullptr, timeout_ms, TRUE);
    if (r == WAIT_OBJECT_0) return ChipPause::kSignalled;
    if (r == WAIT_FAILED) {
        remember_error();
        return ChipPause::kFailed;
    }
    return ChipPause::kTimeout;
}

ChipOpen chip_pipe_open(ChipPipe** out) {
    *out = nullptr;
    HANDLE h = CreateFileW(kPipeNameW, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0,
                           nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        remember_error();
        return t_last_error == ERROR_PIPE_BUSY ? ChipOpen::kBusy : ChipOpen::kError;
    }
    ChipPipe* pipe = new (std::nothrow) ChipPipe{h};
    if (pipe == nullptr) {
        CloseHandle(h);
        t_last_error = ERROR_NOT_ENOUGH_MEMORY;
        return ChipOpen::kError;
    }
    *out = pipe;
    return ChipOpen::kOk;
}

bool chip_pipe_wait_busy(uint32_t timeout_ms) {
    if (WaitNamedPipeW(kPipeNameW, timeout_ms)) return true;
    remember_error();
    return false;
}

bool chip_pipe_set_message_mode(ChipPipe* pipe) {
    DWORD mode = PIPE_READMODE_MESSAGE;
    if (pipe != nullptr && SetNamedPipeHandleState(pipe->handle, &mode, nullptr, nullptr))
        return true;
    remember_error();
    return false;
}

bool chip_pipe_write(ChipPipe* pipe, const uint8_t* data, size_t len) {
    DWORD written = 0;
    if (pipe != nullptr && len <= MAXDWORD &&
        WriteFile(pipe->handle, data, static_cast<DWORD>(len), &written, nullptr) && written == len)
        return true;
    remember_error();
    return false;
}

ChipRead chip_pipe_read(ChipPipe* pipe, uint8_t* buf, size_t cap, size_t* got) {
    *got = 0;
    if (pipe == nullptr) {
        t_last_error = ERROR_INVALID_HANDLE;
        return ChipRead::kError;
    }
    DWORD n = 0;
    DWORD want = cap <= MAXDWORD ? static_cast<DWORD>(cap) : MAXDWORD;
    BOOL ok = ReadFile(pipe->handle, buf, want, &n, nullptr);
    if (ok) {
        *got = n;
        return ChipRead::kOk;
    }
    remember_error();
    if (t_last_error == ERROR_MORE_DATA) {
        *got = n;
        return ChipRead::kMoreData;
    }
    return ChipRead::kError;
}

void chip_pipe_interrupt(ChipPipe* pipe) {
    if (pipe != nullptr) CancelIoEx(pipe->handle, nullptr);
}

void chip_pipe_close(ChipPipe* pipe) {
    if (pipe == nullptr) return;
    CloseHandle(pipe->handle);
    delete pipe;
}

ChipThread* chip_thread_start(chip_thread_fn fn, void* arg, uint32_t* thread_id) {
    ChipThread* t = new (std::nothrow) ChipThread{nullptr, fn, arg};
    if (t == nullptr) return nullptr;
    unsigned id = 0;
    uintptr_t h = _beginthreadex(nullptr, 0, thread_main, t, 0, &id);
    if (h == 0) {
        delete t;
        return nullptr;
    }
    t->handle = reinterpret_cast<HANDLE>(h);
    *thread_id = id;
    return t;
}

}  // namespace platform
