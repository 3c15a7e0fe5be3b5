// Packet engine: frame headers, the small checkers and packers, the message wrappers and the
// receive dispatcher.
//
// Received frames start at the EAPOL header. Every reader is given the frame's real length and
// never looks past it: a byte that a rule would read beyond the frame counts as absent.
// Sent frames are written into the host's output buffer, which holds kMaxOutFrameLen bytes;
// the builders' worst-case sizes are held against it with static_asserts.
#pragma once

#include <cstddef>
#include <cstdint>

// ---- Ending a run (engine/run_reset.cpp) --------------------------------------------------------
// Wipes the secrets of a run (device password, secret fields of both key records, the HMAC
// scratch). Every reset below calls it.
void wipe_run_secrets();
// Frees the heap block of certificate identities and forgets its count.
void forget_identity_list();
// Back to WAIT_START with no mode, no reassembly, no peer address, no chip; keeps the identity
// list. StartWPS calls it before a new run.
void reset_run();
// Traces "Stop WPS.", resets the run and forgets the identity list: StopWPS and the dispatcher's
// closing EAP-Failure.
void stop_run();

// ---- Frame layout ------------------------------------------------------------------------------
constexpr uint8_t EAPOL_VERSION = 2;
constexpr uint8_t EAPOL_TYPE_EAP_PACKET = 0;
constexpr uint8_t EAPOL_TYPE_START = 1;
constexpr uint8_t EAP_CODE_REQUEST = 1;
constexpr uint8_t EAP_CODE_RESPONSE = 2;
constexpr uint8_t EAP_CODE_FAILURE = 4;
constexpr uint8_t EAP_TYPE_IDENTITY = 1;
constexpr uint8_t EAP_TYPE_WIFI = 254;  // expanded type
constexpr uint8_t EAP_TYPE_WAPI = 242;
constexpr uint8_t VENDOR_ID_WIFI[3] = {0x00, 0x37, 0x2A};
constexpr uint8_t VENDOR_ID_WAPI[3] = {0x00, 0x81, 0xDB};
constexpr uint32_t VENDOR_TYPE_SIMPLE_CONFIG = 1;

enum : uint8_t { WSC_OP_START = 1, WSC_OP_ACK = 2, WSC_OP_NACK = 3, WSC_OP_MSG = 4, WSC_OP_DONE = 5 };
enum : uint8_t { WSC_FLAG_MF = 0x01, WSC_FLAG_LF = 0x02 };

constexpr size_t kEapolHeaderLen = 4;
constexpr size_t kEapHeaderLen = 5;
constexpr size_t kWpsHeaderLen = 9;
constexpr size_t kFrameHeaderLen = 18;  // EAPOL + EAP + WPS headers, up to the message

// Frame offsets, counted from the EAPOL header.
enum : size_t {
    OFF_EAPOL_TYPE = 1,
    OFF_EAPOL_LENGTH = 2,
    OFF_EAP_CODE = 4,
    OFF_EAP_ID = 5,
    OFF_EAP_LENGTH = 6,
    OFF_EAP_TYPE = 8,
    OFF_VENDOR_ID = 9,
    OFF_VENDOR_TYPE = 12,
    OFF_OPCODE = 16,
    OFF_FLAGS = 17,
    OFF_MESSAGE = 18,
};

constexpr char IDENTITY_WIFI[] = "WFA-SimpleConfig-Enrollee-1-0";     // 29 bytes
constexpr char IDENTITY_WAPI[] = "BWIPS-SimpleConfig-Enrollee-1-0";   // 31 bytes

// ---- Header writers: return the number of bytes written -------------------------------------
size_t AddEapolHeader(uint8_t* buffer, uint8_t packetType, uint16_t bodyLength);
size_t AddTeapHeader(uint8_t* buffer, uint8_t code, uint8_t identifier, uint16_t dataLength,
                     uint8_t eapType);
size_t AddWpsHeader(uint8_t* buffer, uint8_t opcode);

// ---- Checkers: 0 or the first failing code -------------------------------------------------------
// UnpackHeader checks a message frame and advances *frame to offset 18 on success (-101..-108).
int32_t UnpackHeader(const uint8_t** frame, uint32_t frameLength);
int32_t UnpackRequestIdentity(const uint8_t* frame, uint32_t frameLength);  // -1..-6
int32_t UnpackRequestStart(const uint8_t* frame, uint32_t frameLength);     // -7..-17
int32_t UnpackFailure(const uint8_t* frame, uint32_t frameLength);          // -106..-109

// ---- Packers without a message ---------------------------------------------------------------
int32_t PackEapolStart(uint8_t* buffer, uint32_t* outLength);
int32_t PackResponseIdentity(uint8_t* buffer, uint32_t* outLength);

// ---- Message wrappers, sent side: headers around a builder; 0 on success ---------------------
// PackM1 packs the session that InitSession started; the caller traces "Start Pack M1." first.
int32_t PackM1(uint8_t* buffer, uint32_t* outLength);  // -1 when M1 outgrows its frame
int32_t PackM3(uint8_t* buffer, uint32_t* outLength);
int32_t PackM5(uint8_t* buffer, uint32_t* outLength);
int32_t PackM7(uint8_t* buffer, uint32_t* outLength);  // -1 when signing fails
int32_t PackDone(uint8_t* buffer, uint32_t* outLength);
int32_t PackAck(uint8_t* buffer, uint32_t* outLength);
int32_t PackNack(uint8_t* buffer, uint32_t* outLength, uint16_t configError);

// ---- Message wrappers, received side: header check, then the parser ------------------------
int32_t UnpackM2(const uint8_t* frame, uint32_t frameLength);
int32_t UnpackM4(const uint8_t* frame, uint32_t frameLength);
int32_t UnpackM6(const uint8_t* frame, uint32_t frameLength);
int32_t UnpackM8(const uint8_t* frame, uint32_t frameLength);
// Over the reassembly buffer; passes the parser length - 18 on purpose (no headers there).
int32_t UnpackM8Entire(const uint8_t* buffer, uint32_t length);
