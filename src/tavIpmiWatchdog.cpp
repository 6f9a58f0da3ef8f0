#include "tavIpmiWatchdog.h"

#include "tavIpmi.h"
#include "tavIpmiWatchdogRecords.h"

#include <bit>

namespace tavIpmi {
TavIpmiWatchdog::TavIpmiWatchdog(TimerUse tu) noexcept : timer_use(tu) {
    update();
}

void TavIpmiWatchdog::update() noexcept {
    try {
        readTimer();
    } catch (const std::exception&) {
        // The snapshot stays as it is: callers see a timer that is not set up.
    }
}

void TavIpmiWatchdog::readTimer() {
    const TavIpmi ipmi(0, 0, TavIpmi::ipmiSystemInterface);
    TavIpmi_request_msg msg(ipmi_netfn_req_app, ipmi_cmd_get_watchdog_timer);
    TavWatchdogTimerGetRespData timer;
    if (!exchange(ipmi, msg, timer)) {
        throw TavIpmiWatchdogError("GetWatchdogTimer Command failed.", __FILE__, __LINE__);
    }
    timer_running = timer.timerUse.timer_started != 0;
    no_log = timer.timerUse.no_log != 0;
    preTimeoutInt = static_cast<PreTimeoutInterrupt>(timer.timerActions.pretimout_interrupt);
    timeoutAct = static_cast<TimeoutAction>(timer.timerActions.timeout_action);
    // A timer that is set up for another use has no interval and no countdown for this one.
    const bool mine = timer.timerUse.timer_use == static_cast<unsigned>(timer_use);
    const TavWatchdogTimerGetRespData own = mine ? timer : TavWatchdogTimerGetRespData{};
    pre_timeout_interval = own.preTimeoutInterval;
    initCountdownValue = own.initialCountdownValue;
    currCountdownValue = own.currentCountdownValue;
    expired = (std::bit_cast<unsigned char>(timer.timerUseExpirationFlags) & expirationFlag()) != 0;
}

bool TavIpmiWatchdog::set(bool dp) noexcept {
    TavWatchdogTimerSetReqData request{};
    request.timerUse.timer_use = static_cast<unsigned char>(timer_use) & 7U;
    request.timerUse.dont_stop = dp ? 1 : 0;
    request.timerUse.no_log = no_log ? 1 : 0;
    request.timerActions.timeout_action = static_cast<unsigned char>(timeoutAct) & 7U;
    request.timerActions.pretimout_interrupt = static_cast<unsigned char>(preTimeoutInt) & 7U;
    request.preTimeoutInterval = pre_timeout_interval;
    request.timerUseExpirationFlags = std::bit_cast<TimerUseExpirationFlags>(expirationFlag());
    request.initialCountdownValue = initCountdownValue;
    try {
        const TavIpmi ipmi(0, 0, TavIpmi::ipmiSystemInterface);
        TavIpmi_request_msg msg(ipmi_netfn_req_app, ipmi_cmd_set_watchdog_timer,
                                recordBytes(request));
        TavWatchdogTimerSetResetRespData response;
        return exchange(ipmi, msg, response);
    } catch (const std::exception&) {
        return false;
    }
}

bool TavIpmiWatchdog::resetTimer() noexcept {
    try {
        const TavIpmi ipmi(0, 0, TavIpmi::ipmiSystemInterface);
        TavIpmi_request_msg msg(ipmi_netfn_req_app, ipmi_cmd_reset_watchdog_timer);
        TavWatchdogTimerSetResetRespData response;
        return exchange(ipmi, msg, response);
    } catch (const std::exception&) {
        return false;
    }
}

/// Uses 1 to 5 have a flag, in the bit of their number.
unsigned char TavIpmiWatchdog::expirationFlag() const noexcept {
    const bool flagged = timer_use >= timer_use_bios_frb && timer_use <= timer_use_oem;
    return flagged ? static_cast<unsigned char>(1U << static_cast<unsigned>(timer_use))
                   : std::uint8_t{0};
}

} // namespace tavIpmi
