// M3 builder and M4 parser (placeholder).
#include "messages/messages.h"
bool BuildMessageM3(uint8_t*, uint32_t* outLength) { *outLength = 0; return true; }
int32_t UnpackMessageM4(std::span<const uint8_t>, int32_t) { return -43; }
