// The secure-chip service client: its record, the watcher thread, one request/response
// transaction and the two service commands. signing.h holds the part M7 and the API use.
//
// Wire format (every integer a big-endian u32):
//   request:  command, body length, body
//   command 7 body: key index                                   -> status, L = whole length, key
//   command 4 body: key index, 16-byte sign parameter, N, data  -> status, L = payload length, r||s
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "platform/securechip_transport.h"
#include "signing/signing.h"

// One per successful CreateSecureChipClient, allocated on the heap. The next
// CreateSecureChipClient on the same pointer, and the library's unload (POSIX), stop its watcher
// and free it (DestroySecureChipClient).
//
// Two threads use the record: the protocol thread (transactions) and the watcher. `lock` guards
// hPipe, connected, pipeOpenedFlag and the in-transaction bookkeeping, and every status callback
// is made while holding it, so status 1 and 2 are reported in the order the connection changed
// and a drop is reported exactly once. The callback must therefore not call back into the client.
// The pipe I/O itself runs without the lock; a watcher that drops the pipe in the middle of a
// transaction interrupts it and leaves the close to the transaction (see transaction_pipe).
struct SecureChipClient {
    platform::ChipPipe* hPipe = nullptr;
    std::atomic<int32_t> running{0};
    platform::ChipEvent* hStopEvent = nullptr;
    platform::ChipEvent* hRunningEvent = nullptr;
    uint8_t connected = 0;
    uint8_t pipeOpenedFlag = 0;
    SecureChipStatusFn statusCallback = nullptr;
    void* callbackContext = nullptr;
    uint32_t threadId = 0;
    platform::ChipThread* hThread = nullptr;

    std::mutex lock;
    platform::ChipPipe* transaction_pipe = nullptr;  // the pipe the protocol thread is using
    bool pipe_orphaned = false;  // that pipe was dropped meanwhile; the transaction closes it
};

// Status codes handed to statusCallback.
inline constexpr int32_t kChipStatusOpened = 1;
inline constexpr int32_t kChipStatusLost = 2;

// Service command codes.
inline constexpr uint32_t kChipCmdSign = 4;
inline constexpr uint32_t kChipCmdExportPublicKey = 7;

// Sizes of the exchange.
inline constexpr size_t kChipHeaderLen = 8;          // command/status + length
inline constexpr size_t kChipRequestBufLen = 10240;  // request assembly buffer
inline constexpr size_t kChipReceiveBufLen = 6144;   // one read from the pipe
inline constexpr size_t kChipExportCopyLen = 1024;   // bytes of a command 7 answer kept
inline constexpr size_t kChipSignCopyLen = 56;       // bytes of a command 4 answer kept
inline constexpr size_t kChipSignParamLen = 16;
inline constexpr size_t kChipSignHeaderLen = 32;  // command 4 request before the data
inline constexpr size_t kChipPublicKeyLen = 48;   // x || y
inline constexpr size_t kChipSignatureLen = 48;   // r || s

// Timings of the watcher and the pipe open.
inline constexpr uint32_t kChipPollMs = 500;
inline constexpr uint32_t kChipPauseMs = 1000;
// Bound of every wait on the service: connect and busy pipe (once 20 s), each write, each read
// (once unbounded). A host may set another (WapiWps_SetSecureChipTimeout).
inline constexpr uint32_t kChipDefaultTimeoutMs = 5000;

// Results of SecureChipTransact.
inline constexpr int32_t kChipTransactOk = 0;
inline constexpr int32_t kChipTransactCopyTooLarge = 1;
inline constexpr int32_t kChipTransactWriteFailed = -1;
inline constexpr int32_t kChipTransactReadFailed = -2;

// Stops the watcher (waits for it, at most about one timeout), closes the connection and the
// events and frees the client. Null is ignored. Not to be called while a transaction runs.
void DestroySecureChipClient(SecureChipClient* client);

// Destroys g_SecureChipClient and nulls it: the library's unload.
void release_secure_chip_client();

// The timeout of every wait on the service, in milliseconds; 0 restores kChipDefaultTimeoutMs.
void secure_chip_set_timeout(uint32_t milliseconds);
uint32_t secure_chip_timeout();

int32_t OpenSecureChipPipe(SecureChipClient* client);          // 0 or -1 (refused, busy, error)
int32_t OpenSecureChipRunningEvent(SecureChipClient* client);  // 0 or -1
int32_t SecureChipWatchThread(SecureChipClient* client);       // 0, -1 or -2

// Sends the request and reads one answer (at most 6,144 bytes; a longer message leaves its rest
// for the next read), then copies copySize bytes of the zeroed receive buffer to destination.
// 0, 1 (copySize over 6,144: nothing copied), -1 (write failed) or -2 (read failed); -1 and -2
// drop the pipe and report status 2 when it was connected.
int32_t SecureChipTransact(SecureChipClient* client, const uint8_t* request, uint32_t requestLength,
                           uint32_t copySize, uint8_t* destination);
// The same, also telling how many bytes of the answer were received (0 on failure).
int32_t secure_chip_transact_counted(SecureChipClient* client, const uint8_t* request,
                                     uint32_t requestLength, uint32_t copySize,
                                     uint8_t* destination, size_t* received);

// Command 7: the slot's public key into publicKey (48 bytes). 0 or -1.
int32_t svr_ExportSignPublicKey_ECC(SecureChipClient* client, uint32_t keyIndex,
                                    uint32_t expectedLength, uint8_t* publicKey);
// Command 4: signs N bytes of data; r || s into signature (48 bytes). 0 or -1.
int32_t svr_sign_ECC_ECDSA(SecureChipClient* client, uint32_t keyIndex, const uint8_t* signParam,
                           uint32_t dataLength, const uint8_t* data, uint8_t* signature);

// The answer checks of the two commands, over the copied answer (response_len bytes) of which
// `received` bytes came from the service. 0 with the payload in the 48-byte output, or -1 with
// the output untouched.
int32_t chip_parse_export_answer(const uint8_t* response, size_t response_len, size_t received,
                                 uint8_t* publicKey);
int32_t chip_parse_sign_answer(const uint8_t* response, size_t response_len, size_t received,
                               uint8_t* signature);
