// Placeholder until the signing curve lands.
#include "signing/signing.h"
void CurveSetup() {}
