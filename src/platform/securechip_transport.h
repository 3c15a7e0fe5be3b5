// The OS side of the secure-chip client: a message-mode connection to the secure-chip service,
// the service's machine-wide "running" event, the client's stop event and its watcher thread.
//
// Windows: the named pipe "\\.\pipe\QMX470_pipe" and the event "Global\NamedPipeRuning".
// POSIX:   an AF_UNIX SOCK_SEQPACKET socket at $WAPIWPS_SECURECHIP_SOCKET (default
//          kChipDefaultSocketPath); "the service is running" means that the socket path exists.
//
// Every connection is checked before a byte is sent: the account serving it must be one the peer
// policy allows (chip_set_peer_policy), otherwise the open is refused. Every wait on the service
// (connect, busy pipe, write, read) is bounded by the caller's timeout. docs/secure-chip.md
// describes both for service authors.
//
// The functions mirror the Win32 calls the client is written against, so that the client logic
// (signing/securechip_client.cpp) is the same on both systems. None of them prints anything.
#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

// Default socket path on POSIX when WAPIWPS_SECURECHIP_SOCKET is unset or empty. The variable is
// read at every open and every poll, so a test may point a process at its own simulator; set it
// before the first client is created (setenv is not safe against a watcher's getenv).
// The directory is the service's to create and only root (or the service's account) may write to
// it, so no other local account can put a socket there first.
inline constexpr const char kChipDefaultSocketPath[] = "/run/wapiwps/securechip.sock";
inline constexpr const char kChipSocketEnv[] = "WAPIWPS_SECURECHIP_SOCKET";
// Names used on Windows, exactly as the service publishes them.
inline constexpr const char kChipPipeNameA[] = "\\\\.\\pipe\\QMX470_pipe";
inline constexpr const char kChipRunningEventName[] = "Global\\NamedPipeRuning";

struct ChipPipe;    // one open connection to the service
struct ChipEvent;   // the stop event or the service's running event
struct ChipThread;  // the watcher thread

// kRefused: the connection was made but its server is not an allowed account; it is closed
// before anything is sent, and the reason is written for the trace.
enum class ChipOpen { kOk, kBusy, kError, kRefused };
enum class ChipRead { kOk, kMoreData, kError };
// Results of the two-object wait, in the order of WaitForMultipleObjectsEx's answers.
enum class ChipWait { kStop, kRunning, kTimeout, kFailed, kOther };
enum class ChipPause { kSignalled, kTimeout, kFailed };

// GetLastError() / errno of the last failing call on this thread, for diagnostics.
uint32_t chip_last_error();

// ---- Events ------------------------------------------------------------------------------------
// Unnamed manual-reset event, created non-signalled (CreateEventW). Null on failure.
ChipEvent* chip_stop_event_create();
// Signals a stop event. The library never calls it (the watcher runs until the process ends);
// tools and tests may.
void chip_stop_event_set(ChipEvent* event);
// The service's running event: OpenEventA, else CreateEventA with a null DACL so that any account
// may use it. Null on failure. On POSIX it stands for the socket path and cannot fail.
ChipEvent* chip_running_event_open();
// Waits up to timeout_ms for the stop event or the running event (stop event first, as in
// WaitForMultipleObjectsEx with the stop event at index 0). A null running event fails.
ChipWait chip_wait_stop_or_running(ChipEvent* stop, ChipEvent* running, uint32_t timeout_ms);
// Waits up to timeout_ms on the stop event alone.
ChipPause chip_wait_stop(ChipEvent* stop, uint32_t timeout_ms);

// ---- Who may serve -----------------------------------------------------------------------------
// Account classes of the peer policy (the same bits as WAPIWPS_CHIP_PEER_* of wapiwps.h).
inline constexpr uint32_t kChipPeerSystem = 0x1;  // uid 0 / the three service accounts
inline constexpr uint32_t kChipPeerSelf = 0x2;    // the host's own (effective) account
inline constexpr uint32_t kChipPeerAny = 0x4;     // no check at all
inline constexpr uint32_t kChipPeerDefault = kChipPeerSystem | kChipPeerSelf;
inline constexpr uint32_t kChipPeerMaxExtra = 8;
// Replaces the policy: the account classes plus up to kChipPeerMaxExtra further accounts, given
// as text (POSIX: a decimal uid; Windows: a SID string such as "S-1-5-21-...-1001"). False, with
// the policy unchanged, for unknown class bits, too many accounts or one that does not parse.
// Applies to connections opened afterwards.
bool chip_set_peer_policy(uint32_t classes, const char* const* extra, uint32_t extra_count);

// ---- The connection ----------------------------------------------------------------------------
// CreateFileW(OPEN_EXISTING, SECURITY_IDENTIFICATION) on the pipe / connect() on the socket, at
// most timeout_ms, then the peer check. kBusy stands for ERROR_PIPE_BUSY (Windows only; a POSIX
// connect that cannot complete in time is kError with ETIMEDOUT); chip_last_error() tells the
// error of kError; kRefused writes its reason, NUL-terminated, into why (why_len bytes).
ChipOpen chip_pipe_open(ChipPipe** out, uint32_t timeout_ms, char* why, size_t why_len);
// WaitNamedPipeW on the pipe name; on POSIX waits up to timeout_ms for the socket path to exist.
bool chip_pipe_wait_busy(uint32_t timeout_ms);
// SetNamedPipeHandleState(PIPE_READMODE_MESSAGE). Nothing to do on POSIX.
bool chip_pipe_set_message_mode(ChipPipe* pipe);
// Sends one whole message; false when it could not be handed over within timeout_ms.
bool chip_pipe_write(ChipPipe* pipe, const uint8_t* data, size_t len, uint32_t timeout_ms);
// Receives up to cap bytes of the next message into buf and stores the count in *got. kMoreData
// means the message was longer than cap (ERROR_MORE_DATA): the rest is returned by the next read,
// as a message-mode pipe does. kError: no message (closed, broken, failed, or none within
// timeout_ms; a late answer is never read, because the caller then drops the connection).
ChipRead chip_pipe_read(ChipPipe* pipe, uint8_t* buf, size_t cap, size_t* got, uint32_t timeout_ms);
// Makes a read or write blocked in another thread on this pipe return with an error, and every
// later one fail at once, without releasing the pipe (the caller closes it afterwards).
void chip_pipe_interrupt(ChipPipe* pipe);
// Closes the connection and frees the object. Null is ignored.
void chip_pipe_close(ChipPipe* pipe);

// Closes the event (stop or running). Null is ignored.
void chip_event_close(ChipEvent* event);

// ---- The watcher thread ------------------------------------------------------------------------
using chip_thread_fn = int32_t (*)(void* arg);
// Starts fn(arg) on a new thread (_beginthreadex / pthread_create) and stores its id. Null on
// failure. On Windows the first start pins the library in memory: see the comment there.
ChipThread* chip_thread_start(chip_thread_fn fn, void* arg, uint32_t* thread_id);
// Waits for the thread to end and frees it. The caller must have told it to end. Null is ignored.
void chip_thread_join(ChipThread* thread);

}  // namespace platform
