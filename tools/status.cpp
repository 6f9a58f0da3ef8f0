#include "status.h"

#include "tavConfSpaceData.h"
#include "tavIpmiWatchdog.h"

#include <algorithm>
#include <array>

namespace tavStatus {

namespace {

constexpr std::array<std::uint16_t, 4> slotVariables = {
    TavConfSpaceData::conf_server_IPAddress1, TavConfSpaceData::conf_server_IPAddress2,
    TavConfSpaceData::conf_server_IPAddress3, TavConfSpaceData::conf_server_IPAddress4};

SlotState stateOf(const IPv4Address& shown, const IPv4Address& expected) {
    if (shown == expected) {
        return shown ? SlotState::right : SlotState::unused;
    }
    return shown ? SlotState::stale : SlotState::missing;
}

Slot compareSlot(const BmcStatus& bmc, std::size_t position, Interface expected) {
    Slot slot{static_cast<unsigned>(position + 1), SlotState::unreadable, {}, std::move(expected)};
    const auto value = bmc.confSpace.find(slotVariables[position]);
    if (value != bmc.confSpace.end() && value->second.size() == sizeof slot.shown.v) {
        slot.shown = value->second.data();
        slot.state = stateOf(slot.shown, slot.expected.ipv4);
    }
    return slot;
}

/// Slots that were not asked for, because the asking ended early, are not compared.
bool slotsAsked(const BmcStatus& bmc) {
    return !bmc.confSpace.empty() &&
           (bmc.reach == Reach::answering || bmc.confSpace.contains(slotVariables.back()));
}

/// The host's first interfaces have the slots, in their order.
void compareSlots(Status& status) {
    const std::vector<Interface>& interfaces = status.host.interfaces;
    for (std::size_t position = 0; position < slotVariables.size(); ++position) {
        status.slots.push_back(
            compareSlot(status.bmc, position,
                        position < interfaces.size() ? interfaces[position] : Interface{}));
    }
    if (interfaces.size() > slotVariables.size()) {
        status.withoutSlot.assign(interfaces.begin() + slotVariables.size(), interfaces.end());
    }
}

} // namespace

Status collectStatus(const HostPlaces& places) {
    Status status{askBmc(), lookAtHost(places), {}, {}};
    if (slotsAsked(status.bmc) && status.host.interfaceTrouble.empty()) {
        compareSlots(status);
    }
    return status;
}

bool agentsTimer(const tavIpmi::TavWatchdogTimerGetRespData& timer) noexcept {
    return timer.timerUse.timer_use == tavIpmi::TavIpmiWatchdog::timer_use_sms_os &&
           timer.timerActions.timeout_action == tavIpmi::TavIpmiWatchdog::timeout_action_no_action;
}

bool threatens(const tavIpmi::TavWatchdogTimerGetRespData& timer) noexcept {
    return timer.timerUse.timer_started != 0 &&
           timer.timerActions.timeout_action != tavIpmi::TavIpmiWatchdog::timeout_action_no_action;
}

bool timerHasOtherOwner(const HostStatus& host) noexcept {
    return host.watchdogModule || !host.watchdogPrograms.empty();
}

bool watchdogWanted(const BmcStatus& bmc) {
    const auto enabled = bmc.confSpace.find(TavConfSpaceData::conf_soft_watchdog_enable);
    return enabled != bmc.confSpace.end() && enabled->second == sim::Bytes{1};
}

} // namespace tavStatus
