// What runs when the process attaches the library.
#include "api/context.h"
#include "crypto/crypto.h"
#include "platform/platform.h"
#include "signing/signing.h"

void on_process_attach() {
    // The signing curve first: the ZEV session opening logs through code that may sign later.
    CurveSetup();
    OpenZevSession();
    platform::random_source_from_environment();
}
