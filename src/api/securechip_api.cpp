// The secure-chip extension exports: the timeout of every wait on the service and the accounts
// allowed to serve it.
#include "platform/securechip_transport.h"
#include "signing/securechip.h"
#include "wapiwps.h"

static_assert(WAPIWPS_CHIP_PEER_SYSTEM == platform::kChipPeerSystem);
static_assert(WAPIWPS_CHIP_PEER_SELF == platform::kChipPeerSelf);
static_assert(WAPIWPS_CHIP_PEER_ANY == platform::kChipPeerAny);
static_assert(WAPIWPS_CHIP_PEER_DEFAULT == platform::kChipPeerDefault);
static_assert(WAPIWPS_CHIP_PEER_MAX_EXTRA == platform::kChipPeerMaxExtra);
static_assert(WAPIWPS_CHIP_DEFAULT_TIMEOUT_MS == kChipDefaultTimeoutMs);

extern "C" int32_t WapiWps_SetSecureChipTimeout(uint32_t milliseconds) {
    secure_chip_set_timeout(milliseconds);
    return 0;
}

extern "C" int32_t WapiWps_SetSecureChipPeerPolicy(uint32_t accounts,
                                                   const char* const* extraAccounts,
                                                   uint32_t extraCount) {
    return platform::chip_set_peer_policy(accounts, extraAccounts, extraCount) ? 0 : -1;
}
