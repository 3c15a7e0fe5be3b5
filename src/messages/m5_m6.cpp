// M5 builder and M6 parser (placeholder).
#include "messages/messages.h"
bool BuildMessageM5(uint8_t*, uint32_t* outLength) { *outLength = 0; return true; }
int32_t UnpackMessageM6(std::span<const uint8_t>, int32_t) { return -53; }
