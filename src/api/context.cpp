// Storage of the enrollee context (see context.h for the meaning of each field).
#include "api/context.h"

uint32_t g_State_Machine = WAIT_START;
uint32_t g_WPS_mode = NO_WPS;
uint32_t g_AddressMode = MAC_ADDRESS;
uint8_t g_IsDoSecureChip = 0;
uint8_t g_EapIdentifier = 0;
uint8_t g_PeerCertFlag = 0;
uint8_t PeerAddress[kAddressLen] = {};
const uint8_t PrefixType[2] = {0x89, 0x1B};
MyMsgInfo g_MyMsgInfo = {};

uint32_t g_FragState = NO_FRAG;
uint8_t g_FragBuffer[kMsgBufLen] = {};
uint16_t g_FragOffset = 0;
uint16_t g_FragTotalLength = 0;

uint8_t g_PrevMsgBuf[kMsgBufLen] = {};
uint16_t g_PrevMsgLen = 0;

uint8_t g_IdentityCount = 0;
uint8_t* g_IdentityList = nullptr;

PartyKeyInfo g_EnrolleeKeys = {};
PartyKeyInfo g_RegistrarKeys = {};
void* g_phSessionHandle = nullptr;

uint8_t UUID_R[kUuidLen] = {};
uint8_t CertificateMode = 0;
uint8_t CertificateModeOffer = 0;
uint8_t CertificateNeeded = 0;
uint8_t GeneratePrivateKey[kEccPrivateKeyLen] = {};

const uint8_t* g_ResultData = nullptr;
uint16_t g_ResultLength = 0;
uint16_t g_CertCount = 0;
uint8_t NewCertificateFlag = 0;
uint8_t g_ExtraCert[kExtraCertLen] = {};
uint16_t g_ExtraCertLength = 0;

uint8_t g_SecureChipAdminLoginKey[256] = {};
int32_t g_SecureChipAdminLoginKeyLen = 0;
uint8_t g_SecureChipParam2[256] = {};
int32_t g_SecureChipParam2Len = 0;
uint32_t SecureChipPrivateKeyIndex = 0;
uint8_t g_SecureChipSignParam[16] = {};
