// The soft watchdog: the BMC's timer as a watchdog of the running OS, by the settings in the
// configuration space.

#include "agentClock.h"
#include "agentSignals.h"
#include "tavServerInfo.h"

#include <algorithm>
#include <limits>

using tavIpmi::TavIpmiWatchdog;

namespace {

constexpr std::uint32_t countsPerSecond = 10;

constexpr auto never = std::chrono::milliseconds::max();
/// Half a period after the timer's last restart. Only the thread that runs the cycle uses it.
std::chrono::milliseconds nextHeartbeat = never;
/// What the timer can hold, nearly two hours; a setting above it would wrap to a few seconds.
constexpr std::uint32_t maxCountdown = std::numeric_limits<std::uint16_t>::max();

} // namespace

bool TavServerInfo::updateWatchdog() {
    if (!pTavConfSpaceData) {
        return false;
    }
    TavConfSpaceData& settings = *pTavConfSpaceData;
    settings.updateWatchdogParameter();
    if (ending()) {
        return false;
    }
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
    if (!programTimer(timer, enabled, time)) {
        // Whoever's timer is there now, with whatever action, must not be restarted.
        soft_watchdog_enabled = false;
        soft_watchdog_time = 0;
    }
    if (!soft_watchdog_enabled) {
        stopHeartbeat();
    }
    return true;
}

/// Sets the timer up, stopped and without an action, unless it is so already. False if that failed.
bool TavServerInfo::programTimer(TavIpmiWatchdog& timer, bool enabled, std::uint32_t time) {
    if (timer.getTimeoutAct() == TavIpmiWatchdog::timeout_action_no_action &&
        time == timer.getInitCountdownValue() && timer.timerIsRunning() == enabled) {
        return true;
    }
    timer.setTimeoutAct(TavIpmiWatchdog::timeout_action_no_action);
    timer.setInitCountdownValue(static_cast<std::uint16_t>(time));
    return timer.set(false);
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
    const unsigned half = (seconds + 1) / 2;
    agentClock().alarm(half);
    nextHeartbeat = half == 0 ? never : agentClock().monotonic() + std::chrono::seconds(half);
    return (seconds + 2) / 3;
}

void TavServerInfo::stop_watchdog(TavIpmiWatchdog::TimerUse use) noexcept {
    stopHeartbeat();
    TavIpmiWatchdog(use).stopTimer();
}

/// For a thread that takes no signals.
bool TavServerInfo::heartbeatIsDue() noexcept {
    return agentClock().monotonic() >= nextHeartbeat;
}

/// A beat that is held back already would restart a timer that is stopped.
void TavServerInfo::stopHeartbeat() noexcept {
    agentClock().alarm(0);
    agentSignals::drop(SIGALRM);
    nextHeartbeat = never;
}
