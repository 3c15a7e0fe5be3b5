// The peer policy of the secure-chip transport, shared by both systems: the allowed account
// classes and up to kChipPeerMaxExtra further accounts, each in the system's own form (a uid, a
// SID), replaced whole and read whole under one lock.
#pragma once

#include <cstdint>
#include <mutex>

#include "platform/securechip_transport.h"

namespace platform {

template <typename Account>
struct ChipPeerPolicy {
    uint32_t classes = kChipPeerDefault;
    uint32_t extra_count = 0;
    Account extra[kChipPeerMaxExtra] = {};
};

template <typename Account>
class ChipPeerPolicyStore {
  public:
    // parse(text, Account*) -> bool turns one extra account's text into its system form. False,
    // with the policy unchanged, under the rules of chip_set_peer_policy.
    template <typename Parse>
    bool set(uint32_t classes, const char* const* extra, uint32_t extra_count, Parse parse) {
        if ((classes & ~(kChipPeerSystem | kChipPeerSelf | kChipPeerAny)) != 0 ||
            extra_count > kChipPeerMaxExtra || (extra_count != 0 && extra == nullptr))
            return false;
        ChipPeerPolicy<Account> policy;
        policy.classes = classes;
        for (uint32_t i = 0; i < extra_count; ++i)
            if (extra[i] == nullptr || extra[i][0] == '\0' || !parse(extra[i], &policy.extra[i]))
                return false;
        policy.extra_count = extra_count;
        std::lock_guard<std::mutex> guard(lock_);
        policy_ = policy;
        return true;
    }

    ChipPeerPolicy<Account> get() {
        std::lock_guard<std::mutex> guard(lock_);
        return policy_;
    }

  private:
    std::mutex lock_;
    ChipPeerPolicy<Account> policy_;
};

}  // namespace platform
