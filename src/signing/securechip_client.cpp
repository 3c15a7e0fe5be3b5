// Secure-chip client (placeholder: the client cannot be created yet).
#include "signing/signing.h"
SecureChipClient* g_SecureChipClient = nullptr;
int32_t CreateSecureChipClient(SecureChipClient** out, SecureChipStatusFn, void*) { *out = nullptr; return -1; }
int32_t SPI_GenPrivateKeyAndPublicKey(uint8_t*, uint8_t*) { return -1; }
int32_t SecureChip_Sign_With_Private_Key(uint8_t*, const uint8_t*, uint32_t) { return -1; }
