// M8 parser (placeholder).
#include "messages/messages.h"
int32_t UnpackMessageM8(std::span<const uint8_t>, int32_t) { return -61; }
int32_t HexToBytes(const char*, uint8_t*, int32_t) { return -1; }
