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

#ifdef __cplusplus
extern "C" {
#endif

/* One UTF-16 code unit. wchar_t on Windows so that hosts pass L"..." directly. */
#if defined(_WIN32)
typedef wchar_t wapiwps_utf16;
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
WAPIWPS_API int32_t SetDeviceInfo(const uint8_t uuid[16], const wapiwps_utf16* deviceName);

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
WAPIWPS_API int32_t StartWPS(const uint8_t* localAddress, int32_t addressMode, int32_t wpsMode,
                             const void* peer, const char* pPIN, uint8_t* outFrame,
                             uint32_t* outLen);

/*
 * StartWPS, then connects to the secure-chip service so that M7 is signed by the chip.
 * Returns 0 when the service client cannot be created (the run is still started, with software
 * signing).
 */
WAPIWPS_API int32_t StartWPS_SecureChip(const uint8_t* localAddress, int32_t addressMode,
                                        int32_t wpsMode, const void* peer, const char* pPIN,
                                        uint8_t* outFrame, uint32_t* outLen);

/* Abandons the run (state WAIT_START, mode NO_WPS) and forgets the identity list. Returns 1. */
WAPIWPS_API int32_t StopWPS(void);

/*
 * Hands one received frame (starting at the EAPOL header) to the library. When an answer is
 * written, *outLen receives its length (prefix included in MAC mode). outFrame must hold
 * WAPIWPS_MAX_FRAME_LEN bytes. Returns one of WAPIWPS_RESULT_*, or WAPIWPS_CHECKER_BASE + code.
 */
WAPIWPS_API int32_t ProcessReceivePacket(const uint8_t* frame, uint32_t frameLen,
                                         uint8_t* outFrame, uint32_t* outLen);

/*
 * Registers certificate identities, keyed by registrar UUID, for M7 in certificate mode. entries
 * points at count packed entries of WAPIWPS_IDENTITY_ENTRY_LEN bytes: uuid[16], uint16 Length
 * (host byte order), data[1024]. A previous list is freed when the new one replaces it; count 0
 * clears the list and returns 1. Returns 0 and changes nothing (any previous list stays) when an
 * entry's Length exceeds 1024, entries is null with count > 0 or memory runs out. Call after the
 * last StopWPS.
 */
WAPIWPS_API int32_t SetCertIdentityStruct2(uint8_t count, const void* entries);

/*
 * Stores the secure-chip parameters: the admin login key (len1 bytes of buf1), a second opaque
 * buffer, the key slot and 16 bytes passed with every signing request. The key index and sign
 * bytes are stored first; lengths outside 0..256 then give -1. Returns 0 on success.
 */
WAPIWPS_API int32_t SetSecureChipParam(int32_t len1, const uint8_t* buf1, int32_t len2,
                                       const uint8_t* buf2, uint32_t keyIndex,
                                       const uint8_t signParam[16]);

/*
 * Copies the network key delivered in M8 (PSK modes). key must hold 64 bytes.
 * Returns 0, or -1 in certificate mode.
 */
WAPIWPS_API int32_t GetWPSResult_PSK(uint8_t* key, uint16_t* keyLen);

/*
 * Certificate-mode results, valid after ProcessReceivePacket returned 1 and before the closing
 * EAP-Failure. Returns 0 with everything written, 1 when M8 brought no certificate (nothing
 * written), -1 outside certificate mode. certList must hold 4096 bytes, extraCert 128.
 */
WAPIWPS_API int32_t GetWPSResult_Cert(uint8_t uuidR[16], uint8_t* certList,
                                      uint16_t* certListLen, uint16_t* certCount,
                                      uint8_t* extraCert, uint16_t* extraCertLen,
                                      uint8_t privKey[24], uint8_t pubKey[48]);

/* As GetWPSResult_Cert, with the secure chip's key slot in place of the private key. */
WAPIWPS_API int32_t GetWPSResult_Cert_SecureChip(uint8_t uuidR[16], uint8_t* certList,
                                                 uint16_t* certListLen, uint16_t* certCount,
                                                 uint8_t* extraCert, uint16_t* extraCertLen,
                                                 uint32_t* keyIndex, uint8_t pubKey[48]);

/* As GetWPSResult_Cert_SecureChip, also returning the 16 sign-parameter bytes. */
WAPIWPS_API int32_t GetWPSResult_Cert_SecureChipEx(uint8_t uuidR[16], uint8_t* certList,
                                                   uint16_t* certListLen, uint16_t* certCount,
                                                   uint8_t* extraCert, uint16_t* extraCertLen,
                                                   uint32_t* keyIndex, uint8_t pubKey[48],
                                                   uint8_t signParam[16]);

/*
 * Extension: receive the library's diagnostic lines. fn is called on the calling thread with
 * each line (NUL-terminated, usually ending in "\r\n"); NULL restores the default sink (the
 * WAPIWPS_TRACE environment variable: "stderr", "debug" or a file path; unset discards).
 * Secrets (PIN, keys, the admin login key) appear only when includeSecrets is non-zero.
 * Returns 0.
 */
typedef void (*wapiwps_trace_fn)(void* context, const char* line);
WAPIWPS_API int32_t WapiWps_SetTraceCallback(wapiwps_trace_fn fn, void* context,
                                             int32_t includeSecrets);

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
