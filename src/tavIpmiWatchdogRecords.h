#pragma once

#include "wireBytes.h"

#include <cstddef>

// Frames of the watchdog timer commands (IPMI 2.0, 27.5 to 27.7). Bits from the least significant.

namespace tavIpmi {

/// Actions byte of Set and Get Watchdog Timer.
struct TimerActions {
    unsigned char timeout_action : 3;
    unsigned char reserved1 : 1;
    unsigned char pretimout_interrupt : 3;
    unsigned char reserved2 : 1;
};

/// One flag for each timer use that can expire.
struct TimerUseExpirationFlags {
    unsigned char reserved0 : 1;
    unsigned char bios_frb2 : 1;
    unsigned char bios_post : 1;
    unsigned char os_load : 1;
    unsigned char sms_os : 1;
    unsigned char oem : 1;
    unsigned char reserved1 : 2;
};
static_assert(sizeof(TimerUseExpirationFlags) == 1);

struct TavWatchdogTimerSetReqData {
    struct {
        unsigned char timer_use : 3;
        unsigned char reserved : 3;
        unsigned char dont_stop : 1;
        unsigned char no_log : 1;
    } timerUse;
    TimerActions timerActions;
    unsigned char preTimeoutInterval;                ///< seconds
    TimerUseExpirationFlags timerUseExpirationFlags; ///< flags to clear
    LittleEndian16 initialCountdownValue;            ///< 100 ms counts
};
static_assert(sizeof(TavWatchdogTimerSetReqData) == 6);
static_assert(offsetof(TavWatchdogTimerSetReqData, initialCountdownValue) == 4);

struct TavWatchdogTimerGetRespData {
    unsigned char completion_code;
    struct {
        unsigned char timer_use : 3;
        unsigned char reserved : 3;
        unsigned char timer_started : 1;
        unsigned char no_log : 1;
    } timerUse;
    TimerActions timerActions;
    unsigned char preTimeoutInterval;                ///< seconds
    TimerUseExpirationFlags timerUseExpirationFlags; ///< flags that are set
    LittleEndian16 initialCountdownValue;            ///< 100 ms counts
    LittleEndian16 currentCountdownValue;            ///< 100 ms counts
};
static_assert(sizeof(TavWatchdogTimerGetRespData) == 9);
static_assert(offsetof(TavWatchdogTimerGetRespData, initialCountdownValue) == 5);

/// Response of Set and of Reset Watchdog Timer.
struct TavWatchdogTimerSetResetRespData {
    unsigned char completion_code;
};
static_assert(sizeof(TavWatchdogTimerSetResetRespData) == 1);

} // namespace tavIpmi
