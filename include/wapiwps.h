/*
 * wapiwps: the enrollee half of a Simple Config registration exchange on WAPI networks.
 *
 * The library never touches the network. The host sends the EAPOL-Start frame that StartWPS
 * writes, hands every received EAPOL frame to ProcessReceivePacket, and sends whatever frame the
 * library writes into the host's output buffer. At the end of a successful run it collects the
 * credential with GetWPSResult_PSK or one of the GetWPSResult_Cert functions.
 *
 * All state lives in one process-wide context: one registration at a time, and the exports must be
 * called from one thread (or serialised by the host). No function keeps a pointer to a caller's
 * buffer after it returns.
 *
 * Booleans come back as int32_t 0 (false) or 1 (true).
 *
 * Security: by default the nonces, IVs and software keys come from the C library generator seeded
 * with the time, as registrars built for this protocol expect; see WapiWps_SetRandomSource for
 * the strong alternative, and SECURITY.md (next to the README) for the threat model, the measured
 * cost of the default's weaknesses and how to report a vulnerability.
 */
#ifndef WAPIWPS_H
#define WAPIWPS_H

#include <stddef.h>
#include <stdint.h>

#include "wapiwps_version.h" /* WAPIWPS_VERSION_MAJOR, _MINOR, _PATCH, _STRING */

#if defined(_WIN32)
#if defined(WAPIWPS_BUILDING)
#define WAPIWPS_API __declspec(dllexport)
#else
#define WAPIWPS_API __declspec(dllimport)
#endif
#else
#define WAPIWPS_API __attribute__((visibility("default")))
#endif

/*
 * Calling convention of every export: __cdecl on Windows (it matters on 32-bit Windows, where a
 * host built with /Gz or /Gr would otherwise call with the wrong convention; 64-bit Windows has
 * one convention and ignores it), nothing elsewhere. The DLL's export names stay undecorated.
 */
#if defined(_WIN32)
#define WAPIWPS_CALL __cdecl
#else
#define WAPIWPS_CALL
#endif

#ifdef __cplusplus
extern "C" {
#endif

/*
 * One UTF-16 code unit: wchar_t on Windows, so that hosts pass L"..." directly; char16_t in C++
 * elsewhere, so that u"..." works without a cast; uint16_t in C elsewhere (C11's u"..." is an
 * array of char16_t, which is uint_least16_t, the same type on every platform we build for).
 */
#if defined(_WIN32)
typedef wchar_t wapiwps_utf16;
#elif defined(__cplusplus)
typedef char16_t wapiwps_utf16;
#else
typedef uint16_t wapiwps_utf16;
#endif

/* WPS modes (third argument of StartWPS). */
#define WAPIWPS_MODE_NO_WPS 0    /* no run: every frame is refused */
#define WAPIWPS_MODE_WIFI 1      /* Wi-Fi flavour: EAP type 254, settings not encrypted */
#define WAPIWPS_MODE_WAPI_PSK 2  /* WAPI pre-shared key (every non-zero value but 1 and 3) */
#define WAPIWPS_MODE_WAPI_CERT 3 /* WAPI certificate mode */

/* Address modes (second argument of StartWPS). */
#define WAPIWPS_ADDRESS_MAC 0  /* 6-byte addresses; every sent frame carries an 8-byte prefix */
#define WAPIWPS_ADDRESS_IPV4 1 /* 4-byte local address, peer given as text */
#define WAPIWPS_ADDRESS_TEXT 2 /* local address up to 16 bytes of text, peer given as text */

/* In MAC mode every sent frame starts with this prefix: the peer's 6 address bytes, 0x89, 0x1B. */
#define WAPIWPS_PREFIX_LEN 8

/* Protocol states, as the library's diagnostics name them. */
#define WAPIWPS_WAIT_START 1
#define WAPIWPS_WAIT_REQUEST_IDENTITY 2
#define WAPIWPS_WAIT_WPS_START 3
#define WAPIWPS_WAIT_M2 4
#define WAPIWPS_WAIT_M4 5
#define WAPIWPS_WAIT_M6 6
#define WAPIWPS_WAIT_M8 7
#define WAPIWPS_WAIT_REQUEST_FAILURE 8
#define WAPIWPS_SEND_NACK_WAIT_FAILURE 9
#define WAPIWPS_SEND_ACK_WAIT_FAILURE 10

/* Results of ProcessReceivePacket. */
#define WAPIWPS_RESULT_ACCEPTED 0  /* answer written: send it */
#define WAPIWPS_RESULT_M8_DONE 1   /* M8 accepted, Done written: read certificate results now */
#define WAPIWPS_RESULT_SUCCESS 2   /* closing EAP-Failure after Done: the run succeeded */
#define WAPIWPS_RESULT_ENDED 100   /* closing EAP-Failure after NACK or M2D: no result */
#define WAPIWPS_RESULT_DROPPED -100 /* frame refused; after an M8 fragment an ACK is written */
/* A frame refused by a header checker comes back as WAPIWPS_CHECKER_BASE + code (code < 0). */
#define WAPIWPS_CHECKER_BASE 65536

/*
 * Size of the output buffer that StartWPS and ProcessReceivePacket need: the largest message
 * the library builds (M7 with a 1024-byte identity) plus headers and the 8-byte prefix.
 */
#define WAPIWPS_MAX_FRAME_LEN 2048

/* Certificate identity entry of SetCertIdentityStruct2: 1042 bytes, packed, no padding. */
#define WAPIWPS_IDENTITY_ENTRY_LEN 1042
#define WAPIWPS_IDENTITY_DATA_MAX 1024

/*
 * Stores the device identity that M1 advertises: 16 UUID bytes and a NUL-terminated UTF-16 name
 * (converted to UTF-8 and cut at a character boundary to fit 32 bytes). Also forgets the
 * certificate identity list. Returns 0, or -1 when a pointer is null (nothing changed then).
 */
WAPIWPS_API int32_t WAPIWPS_CALL SetDeviceInfo(const uint8_t uuid[16],
                                               const wapiwps_utf16* deviceName);

/*
 * Begins a run: resets the context, records the modes, addresses and PIN, and writes the
 * EAPOL-Start frame (4 bytes, or 12 with the MAC prefix) into outFrame.
 *   localAddress  6 bytes (MAC), 4 bytes (IPv4) or 16 bytes of text (text mode)
 *   peer          MAC mode: 6 address bytes; other modes: NUL-terminated text (up to 16 kept)
 *   pPIN          NULL for the default "00000000"; MAC mode reads exactly 8 characters,
 *                 other modes a NUL-terminated text (up to 32 characters kept)
 *   outFrame      at least WAPIWPS_MAX_FRAME_LEN bytes; *outLen receives the frame length
 * Returns 1 when the run has begun, 0 for WPS mode 0 or a null pointer.
 */
WAPIWPS_API int32_t WAPIWPS_CALL StartWPS(const uint8_t* localAddress, int32_t addressMode,
                                          int32_t wpsMode, const void* peer, const char* pPIN,
                                          uint8_t* outFrame, uint32_t* outLen);

/*
 * StartWPS, then connects to the secure-chip service so that M7 is signed by the chip.
 * Returns 0 when the service client cannot be created (the run is still started, with software
 * signing).
 */
WAPIWPS_API int32_t WAPIWPS_CALL StartWPS_SecureChip(const uint8_t* localAddress,
                                                     int32_t addressMode, int32_t wpsMode,
                                                     const void* peer, const char* pPIN,
                                                     uint8_t* outFrame, uint32_t* outLen);

/* Abandons the run (state WAIT_START, mode NO_WPS) and forgets the identity list. Returns 1. */
WAPIWPS_API int32_t WAPIWPS_CALL StopWPS(void);

/*
 * Hands one received frame (starting at the EAPOL header) to the library. When an answer is
 * written, *outLen receives its length (prefix included in MAC mode); when the frame is examined
 * and no answer is written (a refused or dropped frame, results 2 and 100), *outLen is set to 0,
 * so the host sends exactly when *outLen > 0. In MAC mode the 8-byte prefix may be in outFrame
 * even then: only *outLen says what to send. Without a run (WPS mode 0) the call writes nothing
 * at all, *outLen included. outFrame must hold WAPIWPS_MAX_FRAME_LEN bytes. Returns one of
 * WAPIWPS_RESULT_*, or WAPIWPS_CHECKER_BASE + code; WapiWps_ResultText says what each means.
 */
WAPIWPS_API int32_t WAPIWPS_CALL ProcessReceivePacket(const uint8_t* frame, uint32_t frameLen,
                                                      uint8_t* outFrame, uint32_t* outLen);

/*
 * Registers certificate identities, keyed by registrar UUID, for M7 in certificate mode. entries
 * points at count packed entries of WAPIWPS_IDENTITY_ENTRY_LEN bytes: uuid[16], uint16 Length
 * (host byte order), data[1024]. A previous list is freed when the new one replaces it; count 0
 * clears the list and returns 1. Returns 0 and changes nothing (any previous list stays) when an
 * entry's Length exceeds 1024, entries is null with count > 0 or memory runs out. Call after the
 * last StopWPS.
 */
WAPIWPS_API int32_t WAPIWPS_CALL SetCertIdentityStruct2(uint8_t count, const void* entries);

/*
 * Stores the secure-chip parameters: the admin login key (len1 bytes of buf1), a second opaque
 * buffer, the key slot and 16 bytes passed with every signing request. The key index and sign
 * bytes are stored first; lengths outside 0..256 then give -1. Returns 0 on success.
 */
WAPIWPS_API int32_t WAPIWPS_CALL SetSecureChipParam(int32_t len1, const uint8_t* buf1, int32_t len2,
                                                    const uint8_t* buf2, uint32_t keyIndex,
                                                    const uint8_t signParam[16]);

/*
 * Copies the network key delivered in M8 (PSK modes). key must hold WAPIWPS_NETWORK_KEY_MAX
 * bytes.
 * Returns 0, or -1 in certificate mode.
 */
WAPIWPS_API int32_t WAPIWPS_CALL GetWPSResult_PSK(uint8_t* key, uint16_t* keyLen);

/*
 * Certificate-mode results, valid after ProcessReceivePacket returned 1 and before the closing
 * EAP-Failure. Returns 0 with everything written, 1 when M8 brought no certificate (nothing
 * written), -1 outside certificate mode. certList must hold WAPIWPS_CERT_LIST_MAX bytes,
 * extraCert WAPIWPS_EXTRA_CERT_MAX.
 */
WAPIWPS_API int32_t WAPIWPS_CALL GetWPSResult_Cert(uint8_t uuidR[16], uint8_t* certList,
                                                   uint16_t* certListLen, uint16_t* certCount,
                                                   uint8_t* extraCert, uint16_t* extraCertLen,
                                                   uint8_t privKey[24], uint8_t pubKey[48]);

/* As GetWPSResult_Cert, with the secure chip's key slot in place of the private key. */
WAPIWPS_API int32_t WAPIWPS_CALL GetWPSResult_Cert_SecureChip(
    uint8_t uuidR[16], uint8_t* certList, uint16_t* certListLen, uint16_t* certCount,
    uint8_t* extraCert, uint16_t* extraCertLen, uint32_t* keyIndex, uint8_t pubKey[48]);

/* As GetWPSResult_Cert_SecureChip, also returning the 16 sign-parameter bytes. */
WAPIWPS_API int32_t WAPIWPS_CALL
GetWPSResult_Cert_SecureChipEx(uint8_t uuidR[16], uint8_t* certList, uint16_t* certListLen,
                               uint16_t* certCount, uint8_t* extraCert, uint16_t* extraCertLen,
                               uint32_t* keyIndex, uint8_t pubKey[48], uint8_t signParam[16]);

/*
 * Extension: receive the library's diagnostic lines. fn is called on the calling thread with
 * each line (NUL-terminated, usually ending in "\r\n"); NULL restores the default sink (the
 * WAPIWPS_TRACE environment variable: "stderr", "debug" or a file path; unset discards).
 * Secrets (PIN, keys, the admin login key) appear only when includeSecrets is non-zero.
 * Returns 0.
 */
typedef void(WAPIWPS_CALL* wapiwps_trace_fn)(void* context, const char* line);
WAPIWPS_API int32_t WAPIWPS_CALL WapiWps_SetTraceCallback(wapiwps_trace_fn fn, void* context,
                                                          int32_t includeSecrets);

/* ---- Extension: buffer sizes, run status and result texts ---------------------------------- */

/*
 * A UTF-16 string literal of the type SetDeviceInfo takes: L"..." on Windows, u"..." elsewhere
 * (C11 or C++11; in C99 spell the array out). WAPIWPS_UTF16("Office laptop") works in C and C++
 * on every platform.
 */
#if defined(_WIN32)
#define WAPIWPS_UTF16(text) L##text
#else
#define WAPIWPS_UTF16(text) u##text
#endif

/* Buffers the host provides to the result getters. */
#define WAPIWPS_NETWORK_KEY_MAX 64   /* key of GetWPSResult_PSK */
#define WAPIWPS_CERT_LIST_MAX 4096   /* certList of the GetWPSResult_Cert family */
#define WAPIWPS_EXTRA_CERT_MAX 128   /* extraCert of the GetWPSResult_Cert family */
#define WAPIWPS_UUID_LEN 16          /* uuid of SetDeviceInfo, uuidR of the certificate getters */
#define WAPIWPS_PRIVATE_KEY_LEN 24   /* privKey of GetWPSResult_Cert */
#define WAPIWPS_PUBLIC_KEY_LEN 48    /* pubKey of the certificate getters */
#define WAPIWPS_SIGN_PARAM_LEN 16    /* signParam of SetSecureChipParam and the Ex getter */
#define WAPIWPS_CHIP_PARAM_MAX 256   /* len1 and len2 of SetSecureChipParam */

/* Outcome of the current or last run (WapiWpsStatus.outcome). */
#define WAPIWPS_OUTCOME_NONE 0         /* no run since the library was loaded */
#define WAPIWPS_OUTCOME_RUNNING 1      /* StartWPS began a run that has not ended */
#define WAPIWPS_OUTCOME_CREDENTIAL 2   /* M8 accepted: the credential was delivered */
#define WAPIWPS_OUTCOME_NACK 3         /* the registrar sent a NACK: it refused the run */
#define WAPIWPS_OUTCOME_M2D 4          /* the registrar sent M2D: it is not ready for us */
#define WAPIWPS_OUTCOME_REFUSED 5      /* we refused a registrar message (NACK 18 sent) */
#define WAPIWPS_OUTCOME_STOPPED 6      /* StopWPS abandoned the run before it ended (or
                                          StartWPS was refused, e.g. for WPS mode 0) */

/* Reason classes (WapiWpsStatus.reason for the outcome, lastReason for the last frame). */
#define WAPIWPS_REASON_NONE 0
#define WAPIWPS_REASON_MALFORMED_FRAME 1 /* a header or frame length is wrong */
#define WAPIWPS_REASON_OUT_OF_ORDER 2    /* right kind of frame, wrong moment of the exchange */
#define WAPIWPS_REASON_NOT_OURS 3        /* another flavour, EAP type or message type */
#define WAPIWPS_REASON_AUTHENTICATOR 4   /* the Authenticator does not match */
#define WAPIWPS_REASON_WRONG_PASSWORD 5  /* R-Hash1/R-Hash2 mismatch, or a NACK after M3 or M5 */
#define WAPIWPS_REASON_SETTINGS 6        /* Encrypted Settings do not decrypt, unpad or verify */
#define WAPIWPS_REASON_ATTRIBUTE 7       /* an attribute is missing or malformed */
#define WAPIWPS_REASON_KEY_AGREEMENT 8   /* the SM2 key agreement failed */
#define WAPIWPS_REASON_SECURE_CHIP 9     /* the secure chip did not sign M7 */
#define WAPIWPS_REASON_CREDENTIAL 10     /* the credential was refused (MAC address, key, list) */
#define WAPIWPS_REASON_NO_RUN 11         /* a frame arrived while no run was started */

/*
 * What the library knows about the current or last run. The first field is the structure's own
 * size: set it to sizeof(WapiWpsStatus) before the call, so that a later, larger version of the
 * structure never writes past an older host's copy. Texts are NUL-terminated UTF-8.
 */
typedef struct WapiWpsStatus {
    uint32_t size;         /* in: sizeof(WapiWpsStatus) */
    uint32_t state;        /* the protocol state, WAPIWPS_WAIT_START ... */
    int32_t wpsMode;       /* the run's WPS mode; 0 (NO_WPS) when no run is active */
    int32_t lastResult;    /* result of the last ProcessReceivePacket call (0 before any) */
    int32_t lastCode;      /* negative code that refused the last frame; 0 when it was taken */
    uint32_t lastReason;   /* WAPIWPS_REASON_* of that refusal */
    uint32_t outcome;      /* WAPIWPS_OUTCOME_* */
    uint32_t reason;       /* WAPIWPS_REASON_* of the outcome (REFUSED, NACK) */
    uint32_t message;      /* REFUSED: Message Type we refused (0x05 M2 ... 0x0C M8; 0x0B when
                              M7 could not be signed); NACK: the last message we sent (0x04 M1,
                              0x07 M3, 0x09 M5, 0x0B M7, 0x0F Done); M2D: 0x06 */
    int32_t code;          /* REFUSED: negative code of the first failing check (-100 for the
                              dispatcher's own refusals); 0 otherwise */
    int32_t configError;   /* NACK, M2D: the registrar's Configuration Error, read big-endian
                              for display only; -1 when the message carried none */
    char detail[128];      /* REFUSED: the failing check's trace line, without its line end */
    char manufacturer[33]; /* M2D: the registrar's Manufacturer, when present */
    char modelName[33];    /* M2D: its Model Name */
    char deviceName[33];   /* M2D: its Device Name */
} WapiWpsStatus;

/*
 * Fills *status (up to status->size bytes; the size field is left as the host set it). Changes
 * nothing and takes no lock: call it from the thread that drives the run, e.g. after every
 * ProcessReceivePacket. StartWPS clears the outcome. Returns 0, or -1 when status is NULL or
 * status->size is smaller than this first version of the structure.
 */
WAPIWPS_API int32_t WAPIWPS_CALL WapiWps_GetStatus(WapiWpsStatus* status);

/*
 * A static English sentence for a result of ProcessReceivePacket (0, 1, 2, 100, -100, or
 * WAPIWPS_CHECKER_BASE + code) or for a check code (-1 ... -109, as returned or as its
 * WAPIWPS_CHECKER_BASE + code form). Where two checks share a code, the sentence names both.
 * Never NULL: an unknown value gives "Unknown result code.". docs/errors.md lists every code.
 */
WAPIWPS_API const char* WAPIWPS_CALL WapiWps_ResultText(int32_t code);

/*
 * Extension: where the Enrollee Nonce, the secret nonces E-S1 and E-S2, every Encrypted Settings
 * IV, the software signing key and the ECDSA nonce come from.
 *   WAPIWPS_RANDOM_COMPATIBLE (default)  the C library generator seeded with the time in whole
 *       seconds before every draw, exactly as registrars of this protocol expect: values drawn
 *       in the same second are equal (E-S1 = E-S2 = the Enrollee Nonce sent in clear in M1, and
 *       IVs repeat), which lets a rogue registrar recover the PIN offline and anyone who knows
 *       the time recover the signing key. The library keeps its own copy of the generator; the
 *       host's srand/rand sequence is never disturbed.
 *   WAPIWPS_RANDOM_SYSTEM  the operating system's generator (BCryptGenRandom on Windows,
 *       getrandom elsewhere); every value is drawn independently. Messages, key schedule and
 *       results are otherwise identical.
 * The environment variable WAPIWPS_RANDOM=system or WAPIWPS_RANDOM=compatible sets the value at
 * load. Returns 0; -1 for an unknown value and -2 when the system generator cannot be read
 * (nothing changed in either case). Takes effect at the next draw.
 */
#define WAPIWPS_RANDOM_COMPATIBLE 0
#define WAPIWPS_RANDOM_SYSTEM 1
WAPIWPS_API int32_t WAPIWPS_CALL WapiWps_SetRandomSource(int32_t source);

/*
 * Extension: wipes every secret the library still holds, including what a run keeps on purpose:
 * the software key pair (GetWPSResult_Cert, and certificate mode 2 of a later run signs with it),
 * the secure-chip admin login key and the delivered credential (the getters then return nothing
 * or zeros). For hosts that have stored these elsewhere. Run secrets (PIN, session keys, secret
 * nonces) are already wiped by StartWPS, StopWPS and the run's closing EAP-Failure. Returns 0.
 */
WAPIWPS_API int32_t WAPIWPS_CALL WapiWps_ClearSecrets(void);

/*
 * Extension: restores a software signing key for certificate mode 2, as a mode-1 run would have
 * left it: privateKey is the 24 bytes GetWPSResult_Cert returned (a big-endian integer, signed
 * with exactly as given); the public key is derived and kept for the getters. Returns 0, or -1
 * (nothing changed) for a null pointer, a key of 0 or a key not below the curve order n.
 * Without a key from this call or an earlier mode-1 run, a software-signed M7 in mode 2 is not
 * sent: the run ends with NACK (Configuration Error 18), as when the secure chip fails to sign.
 */
WAPIWPS_API int32_t WAPIWPS_CALL WapiWps_SetSigningKey(const uint8_t privateKey[24]);

/*
 * Extension: secure-chip service hardening (docs/secure-chip.md).
 *
 * Before anything is sent to the secure-chip service the library checks who serves it. POSIX: the
 * socket's peer uid (SO_PEERCRED) at $WAPIWPS_SECURECHIP_SOCKET, by default
 * /run/wapiwps/securechip.sock. Windows: the server process of "\\.\pipe\QMX470_pipe"
 * (GetNamedPipeServerProcessId and its token's user; the pipe's owner when that token cannot be
 * read), opened with SECURITY_IDENTIFICATION so that the server cannot act as the host. A server of
 * another account is never sent a byte: to the library the service is then not running, and a
 * trace line says why. By default root / LocalSystem, LocalService and NetworkService (and, for
 * the pipe-owner fallback, BUILTIN\Administrators) and the host's own account may serve.
 *
 * WapiWps_SetSecureChipPeerPolicy replaces that set: accounts is a combination of the
 * WAPIWPS_CHIP_PEER_* classes, and extraAccounts lists up to WAPIWPS_CHIP_PEER_MAX_EXTRA further
 * accounts as text (POSIX: a decimal uid such as "998"; Windows: a SID string such as
 * "S-1-5-21-1-2-3-1001"). WAPIWPS_CHIP_PEER_ANY switches the check off. Returns 0, or -1 with the
 * policy unchanged for unknown bits, extraCount over the maximum, a null list with extraCount > 0
 * or an entry that does not parse. Applies to connections opened afterwards: call it before
 * StartWPS_SecureChip.
 *
 * WapiWps_SetSecureChipTimeout bounds every wait on the service: the connect (and a busy pipe),
 * each request sent and each answer awaited. 0 restores the default of 5000 ms. An answer that
 * does not come in time fails the request (M7 is then answered by a NACK) and drops the
 * connection; the watcher reconnects while the service runs. Returns 0.
 */
#define WAPIWPS_CHIP_PEER_SYSTEM 0x1u /* uid 0; LocalSystem, LocalService, NetworkService */
#define WAPIWPS_CHIP_PEER_SELF 0x2u   /* the host's own account (effective uid / token user) */
#define WAPIWPS_CHIP_PEER_ANY 0x4u    /* no check: any account may serve */
#define WAPIWPS_CHIP_PEER_DEFAULT (WAPIWPS_CHIP_PEER_SYSTEM | WAPIWPS_CHIP_PEER_SELF)
#define WAPIWPS_CHIP_PEER_MAX_EXTRA 8
#define WAPIWPS_CHIP_DEFAULT_TIMEOUT_MS 5000
WAPIWPS_API int32_t WAPIWPS_CALL WapiWps_SetSecureChipPeerPolicy(uint32_t accounts,
                                                                 const char* const* extraAccounts,
                                                                 uint32_t extraCount);
WAPIWPS_API int32_t WAPIWPS_CALL WapiWps_SetSecureChipTimeout(uint32_t milliseconds);

/*
 * Extension: the library's version as "MAJOR.MINOR.PATCH", a static NUL-terminated string.
 * Compare it with WAPIWPS_VERSION_STRING (wapiwps_version.h) to see whether the library loaded at
 * run time is the one the host was built against; hosts built for 1.x work with every 1.y.
 */
WAPIWPS_API const char* WapiWps_Version(void);

#ifdef __cplusplus
}
#endif

#endif /* WAPIWPS_H */
