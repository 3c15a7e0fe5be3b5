// M1 builder and M2 parser (placeholder: the parser refuses until the key agreement lands).
#include "messages/messages.h"
bool BuildMessageM1(uint8_t*, uint32_t* outLength) { *outLength = 0; return true; }
int32_t UnpackMessageM2(std::span<const uint8_t>, int32_t) { return -18; }
