// The soft watchdog: the BMC's timer as a watchdog of the running OS, by the settings in the
// configuration space.

#include "agentClock.h"
#include "tavServerInfo.h"

#include <algorithm>
#include <limits>

using tavIpmi::TavIpmiWatchdog;

namespace {

constexpr std::uint32_t countsPerSecond = 10;
/// What the timer can hold, nearly two hours; a setting above it would wrap to a few seconds.
constexpr std::uint32_t maxCountdown = std::numeric_limits<std::uint16_t>::max();

} // namespace

bool TavServerInfo::updateWatchdog() {
    if (!pTavConfSpaceData) {
        return false;
    }
    TavConfSpaceData& settings = *pTavConfSpaceData;
    settings.updateWatchdogParameter();
    const bool enabled = settings.getSoftWatchdogEnabled();
    std::uint32_t time = settings.getSoftWatchdogTime() * countsPerSecond;
    // Continuing is the only behaviour that the agent supports, and the BMC is told so.
    if (enabled &&
        settings.getSoftWatchdogBehaviour() != TavConfSpaceData::watchdog_behaviour_continue) {
        settings.setSoftWatchdogBehaviour(TavConfSpaceData::watchdog_behaviour_continue);
    }
    if (time < TavConfSpaceData::minimalSWTime) {
        time = TavConfSpaceData::minimalSWTime;
        settings.setSoftWatchdogTime(static_cast<std::uint16_t>(time / countsPerSecond));
    }
    time = std::min<std::uint32_t>(time, maxCountdown);
    TavIpmiWatchdog timer(TavIpmiWatchdog::timer_use_sms_os);
    if (soft_watchdog_enabled == enabled && soft_watchdog_time == time &&
        soft_watchdog_behaviour == TavConfSpaceData::watchdog_behaviour_continue &&
        time == timer.getInitCountdownValue()) {
        return false;
    }
    soft_watchdog_enabled = enabled;
    soft_watchdog_time = time;
    soft_watchdog_behaviour = TavConfSpaceData::watchdog_behaviour_continue;
    const bool setUp = timer.getTimeoutAct() == TavIpmiWatchdog::timeout_action_no_action &&
                       time == timer.getInitCountdownValue() && timer.timerIsRunning() == enabled;
    if (!setUp) {
        timer.setTimeoutAct(TavIpmiWatchdog::timeout_action_no_action);
        timer.setInitCountdownValue(static_cast<std::uint16_t>(time));
        timer.set(false);
    }
    return true;
}

unsigned TavServerInfo::reset_watchdog(TavIpmiWatchdog::TimerUse use, bool /*unused*/) noexcept {
    TavIpmiWatchdog timer(use);
    if (!timer.resetTimer()) {
        timer.stopTimer();
    }
    unsigned seconds = timer.getInitCountdownValue() / countsPerSecond;
    // Deliberately this way round: the interval counts when no pre-timeout interrupt announces it.
    if (!timer.preTimoutIsEnabled()) {
        seconds -= timer.getPreTimeoutInterval();
    }
    agentClock().alarm((seconds + 1) / 2);
    return (seconds + 2) / 3;
}

void TavServerInfo::stop_watchdog(TavIpmiWatchdog::TimerUse use) noexcept {
    agentClock().alarm(0);
    TavIpmiWatchdog(use).stopTimer();
}
