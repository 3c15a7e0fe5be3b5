// Placeholder until the key agreement session lands.
#include "crypto/crypto.h"
void OpenZevSession() {}
