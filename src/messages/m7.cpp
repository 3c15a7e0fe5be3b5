// M7 builder (placeholder: fails like a failed signature).
#include "messages/messages.h"
bool BuildMessageM7(uint8_t*, uint32_t* outLength) { *outLength = 0; return false; }
