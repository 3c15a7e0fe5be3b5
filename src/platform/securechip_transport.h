// The OS side of the secure-chip client: a message-mode connection to the secure-chip service,
// the service's machine-wide "running" event, the client's stop event and its watcher thread.
//
// Windows: the named pipe "\\.\pipe\QMX470_pipe" and the event "Global\NamedPipeRuning".
// POSIX:   an AF_UNIX SOCK_SEQPACKET socket at $WAPIWPS_SECURECHIP_SOCKET (default
//          kChipDefaultSocketPath); "the service is running" means that the socket path exists.
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
inline constexpr const char kChipDefaultSocketPath[] = "/tmp/QMX470_pipe";
inline constexpr const char kChipSocketEnv[] = "WAPIWPS_SECURECHIP_SOCKET";
// Names used on Windows, exactly as the service publishes them.
inline constexpr const char kChipPipeNameA[] = "\\\\.\\pipe\\QMX470_pipe";
inline constexpr const char kChipRunningEventName[] = "Global\\NamedPipeRuning";

struct ChipPipe;    // one open connection to the service
struct ChipEvent;   // the stop event or the service's running event
struct ChipThread;  // the watcher thread (never joined)

enum class ChipOpen { kOk, kBusy, kError };
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

// ---- The connection ----------------------------------------------------------------------------
// CreateFileW(OPEN_EXISTING) on the pipe / connect() on the socket. kBusy stands for
// ERROR_PIPE_BUSY; chip_last_error() tells the error of kError.
ChipOpen chip_pipe_open(ChipPipe** out);
// WaitNamedPipeW on the pipe name; on POSIX waits up to timeout_ms for the socket path to exist.
bool chip_pipe_wait_busy(uint32_t timeout_ms);
// SetNamedPipeHandleState(PIPE_READMODE_MESSAGE). Nothing to do on POSIX.
bool chip_pipe_set_message_mode(ChipPipe* pipe);
// Sends one whole message, synchronously.
bool chip_pipe_write(ChipPipe* pipe, const uint8_t* data, size_t len);
// Receives up to cap bytes of the next message into buf and stores the count in *got. kMoreData
// means the message was longer than cap (ERROR_MORE_DATA): the rest is returned by the next read,
// as a message-mode pipe does. kError: no message (closed, broken, failed).
ChipRead chip_pipe_read(ChipPipe* pipe, uint8_t* buf, size_t cap, size_t* got);
// Makes a read or write blocked in another thread on this pipe return with an error, without
// releasing the pipe (the caller closes it afterwards).
void chip_pipe_interrupt(ChipPipe* pipe);
// Closes the connection and frees the object. Null is ignored.
void chip_pipe_close(ChipPipe* pipe);

// ---- The watcher thread ------------------------------------------------------------------------
using chip_thread_fn = int32_t (*)(void* arg);
// Starts fn(arg) on a new thread (_beginthreadex / a detached pthread) and stores its id. Null on
// failure.
ChipThread* chip_thread_start(chip_thread_fn fn, void* arg, uint32_t* thread_id);

}  // namespace platform
