// The library's one source of random bytes for nonces and IVs.
#include "crypto/crypto.h"
#include "platform/platform.h"

void RandomBytes16(uint8_t* out) {
    if (out == nullptr) return;
    // System source (opt-in): every draw independent, so E-S1, E-S2, the Enrollee Nonce and each
    // IV are unrelated even within one second.
    if (platform::random_source() == platform::RandomSource::System) {
        platform::system_random(out, 16);
        return;
    }
    // Re-seeded from the calendar second before every draw: the protocol's peers expect two
    // draws within one second to be equal, so this must not become an independent generator.
    platform::c_srand(static_cast<uint32_t>(platform::time_seconds()));
    for (int i = 0; i < 16; ++i) out[i] = static_cast<uint8_t>(platform::c_rand() & 0xFF);
}
