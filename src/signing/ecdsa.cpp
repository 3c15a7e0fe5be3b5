// Software signature (placeholder).
#include "signing/signing.h"
void CurveSetup() {}
int32_t GenPrivateKeyAndPublicKey(uint8_t*, uint8_t*, uint8_t*) { return 0; }
int32_t Sign_With_Private_Key(uint8_t*, const uint8_t*, uint32_t, const uint32_t*, int32_t) { return 48; }
int32_t bytes_to_limbs(const uint8_t*, size_t, uint32_t*, size_t) { return 0; }
