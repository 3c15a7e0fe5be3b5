// Windows secure-chip transport: the service's message-mode named pipe (overlapped, so that every
// wait has a deadline), its machine-wide running event, an unnamed manual-reset stop event and
// the watcher thread. The pipe's server is checked through its process token (or, when that
// cannot be read, the pipe's owner) before anything is written.
#include <process.h>
#include <windows.h>
// After windows.h:
#include <aclapi.h>
#include <sddl.h>

#include <cstdio>
#include <mutex>
#include <new>

#include "platform/securechip_policy.h"
#include "platform/securechip_transport.h"

namespace platform {

// Thin owners of one handle each; the client holds them by pointer so that "no pipe" is null.
struct ChipPipe {
    HANDLE handle;
    HANDLE io_done;    // manual-reset event of the one overlapped operation in progress
    HANDLE interrupt;  // manual-reset, set by chip_pipe_interrupt and never reset
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

bool fail_with(DWORD error) {
    t_last_error = error;
    return false;
}

// ---- The peer policy ----------------------------------------------------------------------------

struct Sid {
    BYTE bytes[SECURITY_MAX_SID_SIZE];
};

ChipPeerPolicyStore<Sid> g_policy;

bool well_known(WELL_KNOWN_SID_TYPE type, Sid* out) {
    DWORD len = sizeof out->bytes;
    return CreateWellKnownSid(type, nullptr, out->bytes, &len) != 0;
}

bool sid_is(PSID sid, WELL_KNOWN_SID_TYPE type) {
    Sid known;
    return well_known(type, &known) && EqualSid(sid, known.bytes);
}

// The user of a token (TokenUser), copied into out.
bool token_user(HANDLE token, Sid* out) {
    alignas(TOKEN_USER) BYTE buf[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    DWORD len = 0;
    if (!GetTokenInformation(token, TokenUser, buf, sizeof buf, &len)) return false;
    PSID sid = reinterpret_cast<TOKEN_USER*>(buf)->User.Sid;
    return CopySid(sizeof out->bytes, out->bytes, sid) != 0;
}

bool own_user(Sid* out) {
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return false;
    bool ok = token_user(token, out);
    CloseHandle(token);
    return ok;
}

// The account serving the pipe: the user of the server process's token; when the host may not
// read that token (a service of a more privileged account, as a rule), the pipe's owner, which
// is the account that created the pipe (an administrator's pipe is owned by
// BUILTIN\Administrators).
bool server_account(HANDLE pipe, Sid* out, bool* from_owner, DWORD* pid) {
    ULONG server_pid = 0;
    if (!GetNamedPipeServerProcessId(pipe, &server_pid)) return false;
    *pid = server_pid;
    *from_owner = false;
    HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, server_pid);
    if (process != nullptr) {
        HANDLE token = nullptr;
        bool ok = OpenProcessToken(process, TOKEN_QUERY, &token) && token_user(token, out);
        if (token != nullptr) CloseHandle(token);
        CloseHandle(process);
        if (ok) return true;
    }
    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (GetSecurityInfo(pipe, SE_KERNEL_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr,
                        nullptr, nullptr, &descriptor) != ERROR_SUCCESS)
        return false;
    bool ok = owner != nullptr && CopySid(sizeof out->bytes, out->bytes, owner) != 0;
    LocalFree(descriptor);
    *from_owner = true;
    return ok;
}

bool account_allowed(const ChipPeerPolicy<Sid>& policy, PSID sid, bool from_owner) {
    if ((policy.classes & kChipPeerSystem) &&
        (sid_is(sid, WinLocalSystemSid) || sid_is(sid, WinLocalServiceSid) ||
         sid_is(sid, WinNetworkServiceSid) ||
         (from_owner && sid_is(sid, WinBuiltinAdministratorsSid))))
        return true;
    Sid self;
    if ((policy.classes & kChipPeerSelf) && own_user(&self) && EqualSid(sid, self.bytes))
        return true;
    for (uint32_t i = 0; i < policy.extra_count; ++i)
        if (EqualSid(sid, const_cast<BYTE*>(policy.extra[i].bytes))) return true;
    return false;
}

// True when the pipe's server may serve; otherwise false with the reason in why.
bool peer_allowed(HANDLE pipe, char* why, size_t why_len) {
    const ChipPeerPolicy<Sid> policy = g_policy.get();
    if (policy.classes & kChipPeerAny) return true;
    Sid account;
    bool from_owner = false;
    DWORD pid = 0;
    if (!server_account(pipe, &account, &from_owner, &pid)) {
        std::snprintf(why, why_len, "the server's account cannot be read (error %lu)",
                      GetLastError());
        return false;
    }
    if (account_allowed(policy, account.bytes, from_owner)) return true;
    char* text = nullptr;
    ConvertSidToStringSidA(account.bytes, &text);
    std::snprintf(why, why_len, "the server (process %lu) runs as %s, which is not allowed", pid,
                  text != nullptr ? text : "?");
    LocalFree(text);
    return false;
}

// Waits for the overlapped operation, at most timeout_ms, or until the pipe is interrupted; an
// operation that has not completed by then is cancelled. True when it completed successfully;
// otherwise the error (ERROR_TIMEOUT, ERROR_OPERATION_ABORTED, ERROR_MORE_DATA, ...) is kept.
bool finish_io(ChipPipe* pipe, OVERLAPPED* ov, BOOL started, DWORD* n, uint32_t timeout_ms) {
    // A message longer than the buffer completes at once with ERROR_MORE_DATA; GetOverlappedResult
    // below then tells how much of it was read.
    if (!started && GetLastError() != ERROR_IO_PENDING && GetLastError() != ERROR_MORE_DATA) {
        remember_error();
        return false;
    }
    HANDLE handles[2] = {pipe->io_done, pipe->interrupt};
    DWORD r = WaitForMultipleObjects(2, handles, FALSE, timeout_ms);
    if (r != WAIT_OBJECT_0) CancelIoEx(pipe->handle, ov);
    BOOL ok = GetOverlappedResult(pipe->handle, ov, n, TRUE);
    if (ok && r == WAIT_OBJECT_0) return true;
    if (ok) return fail_with(r == WAIT_TIMEOUT ? ERROR_TIMEOUT : ERROR_OPERATION_ABORTED);
    DWORD error = GetLastError();
    if (error == ERROR_OPERATION_ABORTED && r == WAIT_TIMEOUT) error = ERROR_TIMEOUT;
    return fail_with(error);
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

bool chip_set_peer_policy(uint32_t classes, const char* const* extra, uint32_t extra_count) {
    return g_policy.set(classes, extra, extra_count, [](const char* text, Sid* out) {
        PSID sid = nullptr;
        if (!ConvertStringSidToSidA(text, &sid)) return false;
        bool ok = CopySid(sizeof out->bytes, out->bytes, sid) != 0;
        LocalFree(sid);
        return ok;
    });
}

void chip_event_close(ChipEvent* event) {
    if (event == nullptr) return;
    CloseHandle(event->handle);
    delete event;
}

void chip_stop_event_set(ChipEvent* event) {
    if (event != nullptr) SetEvent(event->handle);
}

// An existing event is opened for waiting only (SYNCHRONIZE): the library never sets it, and the
// handle must not let anyone who gets hold of it change its security. If the library has to
// create it first, it does so with a null DACL, so that the service (another account, as a rule)
// can open and set it. Anyone may set it; that is harmless, because a signalled event only makes
// the watcher try the pipe, whose server is checked.
ChipEvent* chip_running_event_open() {
    SECURITY_DESCRIPTOR descriptor;
    InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE);
    SECURITY_ATTRIBUTES attributes;
    attributes.nLength = sizeof attributes;
    attributes.lpSecurityDescriptor = &descriptor;
    attributes.bInheritHandle = TRUE;

    HANDLE h = OpenEventA(SYNCHRONIZE, FALSE, kChipRunningEventName);
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

// SECURITY_IDENTIFICATION: the server may learn who the host is but cannot act as the host.
ChipOpen chip_pipe_open(ChipPipe** out, uint32_t /*timeout_ms: CreateFileW does not wait*/,
                        char* why, size_t why_len) {
    *out = nullptr;
    HANDLE h = CreateFileW(kPipeNameW, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                           FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION,
                           nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        remember_error();
        return t_last_error == ERROR_PIPE_BUSY ? ChipOpen::kBusy : ChipOpen::kError;
    }
    if (!peer_allowed(h, why, why_len)) {
        CloseHandle(h);
        return ChipOpen::kRefused;
    }
    ChipPipe* pipe = new (std::nothrow) ChipPipe{h, nullptr, nullptr};
    if (pipe != nullptr) {
        pipe->io_done = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        pipe->interrupt = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    }
    if (pipe == nullptr || pipe->io_done == nullptr || pipe->interrupt == nullptr) {
        chip_pipe_close(pipe);
        if (pipe == nullptr) CloseHandle(h);
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

bool chip_pipe_write(ChipPipe* pipe, const uint8_t* data, size_t len, uint32_t timeout_ms) {
    if (pipe == nullptr || len > MAXDWORD) return fail_with(ERROR_INVALID_HANDLE);
    OVERLAPPED ov{};
    ov.hEvent = pipe->io_done;
    ResetEvent(pipe->io_done);
    DWORD written = 0;
    BOOL started = WriteFile(pipe->handle, data, static_cast<DWORD>(len), nullptr, &ov);
    if (!finish_io(pipe, &ov, started, &written, timeout_ms)) return false;
    return written == len || fail_with(ERROR_WRITE_FAULT);
}

ChipRead chip_pipe_read(ChipPipe* pipe, uint8_t* buf, size_t cap, size_t* got,
                        uint32_t timeout_ms) {
    *got = 0;
    if (pipe == nullptr) {
        t_last_error = ERROR_INVALID_HANDLE;
        return ChipRead::kError;
    }
    OVERLAPPED ov{};
    ov.hEvent = pipe->io_done;
    ResetEvent(pipe->io_done);
    DWORD n = 0;
    DWORD want = cap <= MAXDWORD ? static_cast<DWORD>(cap) : MAXDWORD;
    BOOL started = ReadFile(pipe->handle, buf, want, nullptr, &ov);
    if (finish_io(pipe, &ov, started, &n, timeout_ms)) {
        *got = n;
        return ChipRead::kOk;
    }
    if (t_last_error == ERROR_MORE_DATA) {
        *got = n;
        return ChipRead::kMoreData;
    }
    return ChipRead::kError;
}

void chip_pipe_interrupt(ChipPipe* pipe) {
    if (pipe != nullptr) SetEvent(pipe->interrupt);
}

void chip_pipe_close(ChipPipe* pipe) {
    if (pipe == nullptr) return;
    if (pipe->handle != nullptr) CloseHandle(pipe->handle);
    if (pipe->io_done != nullptr) CloseHandle(pipe->io_done);
    if (pipe->interrupt != nullptr) CloseHandle(pipe->interrupt);
    delete pipe;
}

// The library is pinned before its first watcher starts: a pinned module is never unmapped, so a
// host's FreeLibrary cannot pull the code from under a running watcher. Stopping the watcher at
// DLL_PROCESS_DETACH instead is not possible (see DllMain in attach.cpp). The pin is taken once;
// every later StartWPS_SecureChip replaces the previous watcher, so at most one runs.
ChipThread* chip_thread_start(chip_thread_fn fn, void* arg, uint32_t* thread_id) {
    static std::once_flag pinned;
    std::call_once(pinned, [] {
        HMODULE self = nullptr;
        GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                           reinterpret_cast<LPCWSTR>(&thread_main), &self);
    });
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

void chip_thread_join(ChipThread* thread) {
    if (thread == nullptr) return;
    WaitForSingleObject(thread->handle, INFINITE);
    CloseHandle(thread->handle);
    delete thread;
}

}  // namespace platform
