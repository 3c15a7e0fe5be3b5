// Secure-chip service client: the watcher that follows the service's running event, one
// request/response transaction over the message-mode pipe, the two service commands and the two
// wrappers M7 calls.
#include <cstring>
#include <new>
#include <span>

#include "api/context.h"
#include "common/bytes.h"
#include "platform/platform.h"
#include "signing/securechip.h"

using platform::ChipOpen;
using platform::ChipPause;
using platform::ChipRead;
using platform::ChipWait;

SecureChipClient* g_SecureChipClient = nullptr;

namespace {

// Bound of every wait on the service; the host may change it at any time.
std::atomic<uint32_t> g_chip_timeout_ms{kChipDefaultTimeoutMs};

// ---- Connection state, always under client->lock -----------------------------------------------

void report_locked(SecureChipClient* client, int32_t status) {
    if (client->statusCallback != nullptr) client->statusCallback(&status, client->callbackContext);
}

// Lets go of hPipe. A transaction in progress on it is interrupted and closes it itself, so the
// handle is never closed under a thread that is using it.
void drop_pipe_locked(SecureChipClient* client) {
    if (client->hPipe == nullptr) return;
    if (client->hPipe == client->transaction_pipe) {
        platform::chip_pipe_interrupt(client->hPipe);
        client->pipe_orphaned = true;
    } else {
        platform::chip_pipe_close(client->hPipe);
    }
    client->hPipe = nullptr;
}

// The service went away or a transaction failed. Status 2 is reported once, when a connected
// pipe is dropped; a further failure while disconnected reports nothing.
void lose_connection_locked(SecureChipClient* client) {
    if (client->connected) report_locked(client, kChipStatusLost);
    client->connected = 0;
    drop_pipe_locked(client);
}

bool is_connected(SecureChipClient* client) {
    std::lock_guard<std::mutex> guard(client->lock);
    return client->connected != 0;
}

// ---- Watcher helpers ----------------------------------------------------------------------------

enum class Pass { kContinue, kEndOk, kEndFailed };

// The pause between passes while connected or after a failed open: 1 s on the stop event.
Pass pause_on_stop_event(SecureChipClient* client) {
    switch (platform::chip_wait_stop(client->hStopEvent, kChipPauseMs)) {
        case ChipPause::kSignalled:
            return Pass::kEndOk;
        case ChipPause::kFailed:
            return Pass::kEndFailed;
        case ChipPause::kTimeout:
            break;
    }
    return Pass::kContinue;
}

// The service is running: open the pipe unless it is open already.
Pass on_service_running(SecureChipClient* client) {
    if (is_connected(client)) return pause_on_stop_event(client);
    if (client->running.load() == 0) return Pass::kEndOk;
    {
        std::lock_guard<std::mutex> guard(client->lock);
        drop_pipe_locked(client);
    }
    if (OpenSecureChipPipe(client) == 0) {
        std::lock_guard<std::mutex> guard(client->lock);
        report_locked(client, kChipStatusOpened);
        client->connected = 1;
        return Pass::kContinue;
    }
    return pause_on_stop_event(client);
}

// The running event stayed unsignalled for a whole poll: the service has stopped.
void on_service_stopped(SecureChipClient* client) {
    std::lock_guard<std::mutex> guard(client->lock);
    if (client->connected) lose_connection_locked(client);
}

int32_t watch_thread_entry(void* arg) {
    return SecureChipWatchThread(static_cast<SecureChipClient*>(arg));
}

// ---- Requests -----------------------------------------------------------------------------------

void put_request_header(uint8_t* request, uint32_t command, uint32_t bodyLength) {
    put_be32(request, command);
    put_be32(request + 4, bodyLength);
}

// Hex text of a short public value for the trace (not key material: a public key).
void trace_public_bytes(const char* label, const uint8_t* data, size_t len) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    char text[2 * kChipPublicKeyLen + 1];
    size_t n = len < kChipPublicKeyLen ? len : kChipPublicKeyLen;
    for (size_t i = 0; i < n; ++i) {
        text[2 * i] = kHex[data[i] >> 4];
        text[2 * i + 1] = kHex[data[i] & 0x0F];
    }
    text[2 * n] = '\0';
    trace("%s: %s\n", label, text);
}

}  // namespace

// ---- Opening -----------------------------------------------------------------------------------

int32_t OpenSecureChipPipe(SecureChipClient* client) {
    // A busy pipe is waited for once, within the timeout, and then given up on, so that the
    // watcher never hangs on a service that stopped accepting. A server of another account is
    // refused like an absent one: the watcher tries again on its next pass.
    platform::ChipPipe* pipe = nullptr;
    for (bool waited = false; client->running.load() != 0; waited = true) {
        char why[160] = "";
        ChipOpen opened = platform::chip_pipe_open(&pipe, secure_chip_timeout(), why, sizeof why);
        if (opened == ChipOpen::kOk) break;
        if (opened == ChipOpen::kRefused) {
            trace("Secure-chip service refused: %s.\r\n", why);
            return -1;
        }
        if (opened != ChipOpen::kBusy) {
            console_print("Could not open pipe. GLE=%d\n",
                          static_cast<int>(platform::chip_last_error()));
            return -1;
        }
        if (waited || !platform::chip_pipe_wait_busy(secure_chip_timeout())) {
            console_print("Could not open pipe: 20 second wait timed out.");
            return -1;
        }
    }
    if (pipe == nullptr) return -1;

    // A pipe whose read mode cannot be set is kept in hPipe (the next open attempt closes it) but
    // is not reported as connected.
    bool message_mode = platform::chip_pipe_set_message_mode(pipe);
    uint32_t error = platform::chip_last_error();
    std::lock_guard<std::mutex> guard(client->lock);
    client->hPipe = pipe;
    if (!message_mode) {
        console_print("SetNamedPipeHandleState failed. GLE=%d\n", static_cast<int>(error));
        return -1;
    }
    client->pipeOpenedFlag = 0;
    return 0;
}

int32_t OpenSecureChipRunningEvent(SecureChipClient* client) {
    client->hRunningEvent = platform::chip_running_event_open();
    if (client->hRunningEvent == nullptr) {
        console_print("CreateEvent failed with %d.\n",
                      static_cast<int>(platform::chip_last_error()));
        return -1;
    }
    return 0;
}

int32_t CreateSecureChipClient(SecureChipClient** out, SecureChipStatusFn statusCallback,
                               void* callbackContext) {
    // The client *out held is stopped first: a host that runs WPS a thousand times holds one
    // watcher thread and one connection, not a thousand.
    DestroySecureChipClient(*out);
    *out = nullptr;
    SecureChipClient* client = new (std::nothrow) SecureChipClient;
    if (client == nullptr) return -1;
    client->running.store(1);
    client->statusCallback = statusCallback;
    client->callbackContext = callbackContext;

    client->hStopEvent = platform::chip_stop_event_create();
    if (client->hStopEvent == nullptr) {
        console_print("CreateEvent failed with %d.\n",
                      static_cast<int>(platform::chip_last_error()));
        delete client;
        return -1;
    }
    // Without the running event the watcher's first wait fails and the pipe is never opened; the
    // client is still handed out.
    (void)OpenSecureChipRunningEvent(client);
    client->hThread = platform::chip_thread_start(watch_thread_entry, client, &client->threadId);
    *out = client;
    return 0;
}

// The protocol thread is not inside a transaction (the exports are serialised), so only the
// watcher can be using the client: it is told to stop, and it ends within one timeout (an open
// in progress) since every other wait it makes is on the stop event.
void DestroySecureChipClient(SecureChipClient* client) {
    if (client == nullptr) return;
    client->running.store(0);
    platform::chip_stop_event_set(client->hStopEvent);
    platform::chip_thread_join(client->hThread);
    platform::chip_pipe_close(client->hPipe);
    platform::chip_event_close(client->hRunningEvent);
    platform::chip_event_close(client->hStopEvent);
    delete client;
}

void release_secure_chip_client() {
    DestroySecureChipClient(g_SecureChipClient);
    g_SecureChipClient = nullptr;
}

void secure_chip_set_timeout(uint32_t milliseconds) {
    g_chip_timeout_ms.store(milliseconds != 0 ? milliseconds : kChipDefaultTimeoutMs);
}

uint32_t secure_chip_timeout() {
    return g_chip_timeout_ms.load();
}

// ---- The watcher --------------------------------------------------------------------------------

int32_t SecureChipWatchThread(SecureChipClient* client) {
    if (client == nullptr || client->running.load() == 0) return 0;
    for (;;) {
        Pass pass = Pass::kContinue;
        switch (platform::chip_wait_stop_or_running(client->hStopEvent, client->hRunningEvent,
                                                    kChipPollMs)) {
            case ChipWait::kStop:
                return 0;
            case ChipWait::kRunning:
                pass = on_service_running(client);
                break;
            case ChipWait::kTimeout:
                on_service_stopped(client);
                break;
            case ChipWait::kFailed:
                return -1;
            case ChipWait::kOther:
                console_print("WaitForSingleObjectEx (%d)\n",
                              static_cast<int>(platform::chip_last_error()));
                return -2;
        }
        if (pass == Pass::kEndOk) return 0;
        if (pass == Pass::kEndFailed) return -1;
        if (client->running.load() == 0) return 0;
    }
}

// ---- One transaction ----------------------------------------------------------------------------

int32_t secure_chip_transact_counted(SecureChipClient* client, const uint8_t* request,
                                     uint32_t requestLength, uint32_t copySize,
                                     uint8_t* destination, size_t* received) {
    *received = 0;
    platform::ChipPipe* pipe;
    {
        std::lock_guard<std::mutex> guard(client->lock);
        pipe = client->hPipe;
        client->transaction_pipe = pipe;
    }

    // A missing pipe fails like a write on a null handle. Requests come one at a time from the
    // protocol thread, so the pipe is this thread's until the lock is taken again below. A
    // service that takes longer than the timeout fails the transaction like a broken pipe: the
    // pipe is dropped, so its late answer can never be taken for the next request's.
    const uint32_t timeout = secure_chip_timeout();
    int32_t result = kChipTransactOk;
    uint8_t buffer[kChipReceiveBufLen];
    size_t got = 0;
    if (pipe == nullptr || !platform::chip_pipe_write(pipe, request, requestLength, timeout)) {
        result = kChipTransactWriteFailed;
    } else {
        std::memset(buffer, 0, sizeof buffer);
        ChipRead read = platform::chip_pipe_read(pipe, buffer, sizeof buffer, &got, timeout);
        if (read == ChipRead::kError) result = kChipTransactReadFailed;
    }

    {
        std::lock_guard<std::mutex> guard(client->lock);
        client->transaction_pipe = nullptr;
        if (client->pipe_orphaned) {
            // The watcher dropped the pipe (and reported it) while we were using it.
            platform::chip_pipe_close(pipe);
            client->pipe_orphaned = false;
        } else if (result != kChipTransactOk && client->running.load() == 1) {
            lose_connection_locked(client);
        }
    }
    if (result != kChipTransactOk) return result;

    // The copy size is the caller's fixed view of the answer: bytes not received read as zero.
    if (copySize > kChipReceiveBufLen) return kChipTransactCopyTooLarge;
    std::memcpy(destination, buffer, copySize);
    *received = got;
    return kChipTransactOk;
}

int32_t SecureChipTransact(SecureChipClient* client, const uint8_t* request, uint32_t requestLength,
                           uint32_t copySize, uint8_t* destination) {
    size_t received;
    return secure_chip_transact_counted(client, request, requestLength, copySize, destination,
                                        &received);
}

// ---- The two commands ---------------------------------------------------------------------------

// L of a command 7 answer counts the whole answer, header included; L of a command 4 answer
// counts the payload alone. Both readings are intended and kept. What the service says is bounded
// here: the payload must fit the caller's 48-byte buffer and must have arrived in full, so an
// oversized L, an L below the header size or a cut-short answer fails with -1 and writes nothing.
// A shorter payload is copied as it is (the rest of the output is left untouched).
int32_t chip_parse_export_answer(const uint8_t* response, size_t response_len, size_t received,
                                 uint8_t* publicKey) {
    size_t kept = received < response_len ? received : response_len;
    if (kept < kChipHeaderLen || get_be32(response) != 0) return -1;
    uint32_t whole_len = get_be32(response + 4);
    if (whole_len < kChipHeaderLen || whole_len > kept) return -1;
    return copy_bounded(std::span<uint8_t>(publicKey, kChipPublicKeyLen),
                        std::span<const uint8_t>(response + kChipHeaderLen, kept - kChipHeaderLen),
                        whole_len - kChipHeaderLen)
               ? 0
               : -1;
}

int32_t chip_parse_sign_answer(const uint8_t* response, size_t response_len, size_t received,
                               uint8_t* signature) {
    size_t kept = received < response_len ? received : response_len;
    if (kept < kChipHeaderLen || get_be32(response) != 0) return -1;
    uint32_t payload_len = get_be32(response + 4);
    return copy_bounded(std::span<uint8_t>(signature, kChipSignatureLen),
                        std::span<const uint8_t>(response + kChipHeaderLen, kept - kChipHeaderLen),
                        payload_len)
               ? 0
               : -1;
}

int32_t svr_ExportSignPublicKey_ECC(SecureChipClient* client, uint32_t keyIndex,
                                    uint32_t /*expectedLength*/, uint8_t* publicKey) {
    uint8_t request[kChipHeaderLen + 4];
    put_request_header(request, kChipCmdExportPublicKey, 4);
    put_be32(request + 8, keyIndex);
    if (client == nullptr) return -1;

    uint8_t response[kChipExportCopyLen];
    size_t received = 0;
    if (secure_chip_transact_counted(client, request, sizeof request, sizeof response, response,
                                     &received) != kChipTransactOk)
        return -1;
    return chip_parse_export_answer(response, sizeof response, received, publicKey);
}

// The request is bounded against its 10,240-byte buffer: data longer than 10,208 bytes fails
// with -1 before anything is sent.
int32_t svr_sign_ECC_ECDSA(SecureChipClient* client, uint32_t keyIndex, const uint8_t* signParam,
                           uint32_t dataLength, const uint8_t* data, uint8_t* signature) {
    if (dataLength > kChipRequestBufLen - kChipSignHeaderLen) return -1;
    uint8_t request[kChipRequestBufLen];
    std::memset(request, 0, sizeof request);
    put_request_header(request, kChipCmdSign, dataLength + (kChipSignHeaderLen - kChipHeaderLen));
    put_be32(request + 8, keyIndex);
    std::memcpy(request + 12, signParam, kChipSignParamLen);
    put_be32(request + 28, dataLength);
    if (dataLength != 0) std::memcpy(request + kChipSignHeaderLen, data, dataLength);
    if (client == nullptr) return -1;

    uint8_t response[kChipSignCopyLen];
    size_t received = 0;
    if (secure_chip_transact_counted(client, request,
                                     static_cast<uint32_t>(kChipSignHeaderLen + dataLength),
                                     sizeof response, response, &received) != kChipTransactOk)
        return -1;
    return chip_parse_sign_answer(response, sizeof response, received, signature);
}

// ---- The wrappers M7 uses -----------------------------------------------------------------------

// No key is generated: the chip is asked for the public key of the slot it already holds.
int32_t SPI_GenPrivateKeyAndPublicKey(uint8_t* /*privateKeyIgnored*/, uint8_t* publicKey) {
    trace("SPI_GenPrivateKeyAndPublicKey : SecureChipPrivateKeyIndex %d\n",
          static_cast<int>(SecureChipPrivateKeyIndex));
    trace("SPI_GenPrivateKeyAndPublicKey : g_SecureChipAdminLoginKeyLen %d\n",
          static_cast<int>(g_SecureChipAdminLoginKeyLen));
    if (trace_secrets_allowed()) {
        // The key is treated as text; a key that fills all 256 bytes has no terminator of its own.
        char text[sizeof g_SecureChipAdminLoginKey + 1];
        size_t len = field_strlen(g_SecureChipAdminLoginKey, sizeof g_SecureChipAdminLoginKey);
        std::memcpy(text, g_SecureChipAdminLoginKey, len);
        text[len] = '\0';
        trace("SPI_GenPrivateKeyAndPublicKey : g_SecureChipAdminLoginKey %s\n", text);
        secure_wipe(text, sizeof text);
    } else {
        trace("SPI_GenPrivateKeyAndPublicKey : g_SecureChipAdminLoginKey %s\n", "<hidden>");
    }

    uint8_t key[kChipPublicKeyLen];
    std::memset(key, 0, sizeof key);
    int32_t result = svr_ExportSignPublicKey_ECC(g_SecureChipClient, SecureChipPrivateKeyIndex,
                                                 kChipPublicKeyLen, key);
    if (result != 0) {
        trace("svr_ExportSignPublicKey_ECC %d\n", static_cast<int>(result));
        return result;
    }
    trace_public_bytes("pub_key_b", key, sizeof key);
    std::memcpy(publicKey, key, sizeof key);
    return 0;
}

int32_t SecureChip_Sign_With_Private_Key(uint8_t* signature, const uint8_t* data,
                                         uint32_t dataLength) {
    uint8_t buffer[256];
    std::memset(buffer, 0, sizeof buffer);
    int32_t result = svr_sign_ECC_ECDSA(g_SecureChipClient, SecureChipPrivateKeyIndex,
                                        g_SecureChipSignParam, dataLength, data, buffer);
    if (result != 0) {
        trace("svr_sign_ECC_ECDSA %d\n", static_cast<int>(result));
        return result;
    }
    std::memcpy(signature, buffer, kChipSignatureLen);
    return 0;
}
