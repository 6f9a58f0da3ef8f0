#pragma once

#include "bmcStatus.h"
#include "hostStatus.h"

#include <string>
#include <vector>

namespace tavStatus {

/// How one of the BMC's address slots agrees with the host.
enum class SlotState {
    unused,     // nothing shown, and nothing to show
    right,      // shows the address that the host has for it
    stale,      // shows one that the host does not have for it
    missing,    // shows none, but the host has one for it
    unreadable, // the BMC does not tell
};

struct Slot {
    unsigned number; ///< from 1
    SlotState state;
    IPv4Address shown;
    Interface expected; ///< without a name if the host has none for this slot
};

/// All that tav_status knows.
struct Status {
    BmcStatus bmc;
    HostStatus host;
    std::vector<Slot> slots;            ///< empty when nothing can be compared
    std::vector<Interface> withoutSlot; ///< more than fit
};

/// One look at both sides. Never throws for what is wrong with them.
Status collectStatus(const HostPlaces& places = {});

/// The timer is set up for the running system and does nothing on expiry: the agent's way.
bool agentsTimer(const tavIpmi::TavWatchdogTimerGetRespData& timer) noexcept;
/// It counts down to an action that the agent would not have chosen.
bool threatens(const tavIpmi::TavWatchdogTimerGetRespData& timer) noexcept;
/// Something besides the agent is there that may own the timer.
bool timerHasOtherOwner(const HostStatus& host) noexcept;
/// The BMC's settings ask for a watchdog that the agent keeps.
bool watchdogWanted(const BmcStatus& bmc);

} // namespace tavStatus
