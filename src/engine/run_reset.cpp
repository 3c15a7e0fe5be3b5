// Ending and resetting a run: the reset shared by StartWPS, StopWPS and the dispatcher's closing
// EAP-Failure, and the wipe of what a run leaves behind.
#include <cstdlib>
#include <cstring>

#include "api/context.h"
#include "common/bytes.h"
#include "crypto/crypto.h"
#include "engine/engine.h"
#include "platform/platform.h"

namespace {

void wipe_key_record(PartyKeyInfo& r) {
    wipe_all(r.PrivateKey, r.TempPrivateKey, r.SecretNonce1, r.SecretNonce2, r.Psk1, r.Psk2,
             r.SharedSecret, r.AuthKey, r.KeyWrapKey, r.Emsk, r.Kdk, r.DhKey);
}

}  // namespace

// Nonces, hashes, Authenticators and IVs have been on the air and stay; the key pair of
// GeneratePrivateKey, the admin login key and the results outlive the run on purpose.
void wipe_run_secrets() {
    wipe_all(g_MyMsgInfo.DevicePassword, g_HmacScratch);
    wipe_key_record(g_EnrolleeKeys);
    wipe_key_record(g_RegistrarKeys);
}

void forget_identity_list() {
    g_IdentityCount = 0;
    std::free(g_IdentityList);
    g_IdentityList = nullptr;
}

void reset_run() {
    wipe_run_secrets();
    g_State_Machine = WAIT_START;
    g_WPS_mode = NO_WPS;
    g_FragState = NO_FRAG;
    std::memset(PeerAddress, 0, sizeof PeerAddress);
    g_PeerCertFlag = 0;
    g_IsDoSecureChip = 0;
}

void stop_run() {
    trace("Stop WPS.\r\n");
    reset_run();
    forget_identity_list();
}
