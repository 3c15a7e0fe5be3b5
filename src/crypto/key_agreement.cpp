// SM2 key agreement session (placeholder: no session yet, so M1 cannot be built).
#include "crypto/crypto.h"
void OpenZevSession() {}
bool InitSession() { return false; }
