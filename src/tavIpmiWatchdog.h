#pragma once

#include "tavIpmiCmd.h"

namespace tavIpmi {

/// Errors of the watchdog timer exchanges.
class TavIpmiWatchdogError : public TavError {
  public:
    using TavError::TavError;
};

/// A snapshot of the BMC's watchdog timer for one timer use (IPMI 2.0, 27). The setters change the
/// snapshot only; `set` sends it. No operation lets an exception out: a failed read leaves the
/// snapshot zero, the others return false.
class TavIpmiWatchdog {
  public:
    enum TimerUse {
        timer_use_reserved0 = 0,
        timer_use_bios_frb = 1,
        timer_use_bios_post = 2,
        timer_use_os_load = 3,
        timer_use_sms_os = 4,
        timer_use_oem = 5,
        timer_use_reserved1 = 6,
        timer_use_reserved2 = 7
    };
    enum PreTimeoutInterrupt {
        pre_timeout_interrupt_none = 0,
        pre_timeout_interrupt_smi = 1,
        pre_timeout_interrupt_nmi = 2,
        pre_timeout_interrupt_messaging_interrupt = 3,
        pre_timeout_interrupt_reserved1 = 4,
        pre_timeout_interrupt_reserved2 = 5,
        pre_timeout_interrupt_reserved3 = 6,
        pre_timeout_interrupt_reserved4 = 7
    };
    enum TimeoutAction {
        timeout_action_no_action = 0,
        timeout_action_Hard_Reset = 1,
        timeout_action_Power_Down = 2,
        timeout_action_Power_Cycle = 3,
        timeout_action_reserved1 = 4,
        timeout_action_reserved2 = 5,
        timeout_action_reserved3 = 6,
        timeout_action_reserved4 = 7
    };

    /// Reads the timer (Get Watchdog Timer). Interval and countdowns are taken only when the BMC's
    /// timer is set up for `tu`.
    explicit TavIpmiWatchdog(TimerUse tu) noexcept;
    TavIpmiWatchdog(const TavIpmiWatchdog&) = delete;
    TavIpmiWatchdog& operator=(const TavIpmiWatchdog&) = delete;
    virtual ~TavIpmiWatchdog() = default;

    /// Set Watchdog Timer with the snapshot's values; `dp` is the do-not-stop bit: without it a
    /// running timer is stopped. Clears the expiration flag of this timer use.
    bool set(bool dp) noexcept;
    /// Reset Watchdog Timer: (re)starts the countdown from its initial value.
    bool resetTimer() noexcept;
    bool stopTimer() noexcept { return set(false); }

    PreTimeoutInterrupt getPreTimeoutInt() const noexcept { return preTimeoutInt; }
    TimeoutAction getTimeoutAct() const noexcept { return timeoutAct; }
    /// In 100 ms counts.
    std::uint32_t getInitCountdownValue() const noexcept { return initCountdownValue; }
    /// In seconds.
    std::uint32_t getPreTimeoutInterval() const noexcept { return pre_timeout_interval; }
    /// In 100 ms counts.
    std::uint32_t getCurrentCountdownValue() const noexcept { return currCountdownValue; }
    /// The BMC's expiration flag for this timer use.
    bool hasExpired() const noexcept { return expired; }
    bool preTimoutIsEnabled() const noexcept { return preTimeoutInt != pre_timeout_interrupt_none; }
    bool timerIsRunning() const noexcept { return timer_running; }

    void setPreTimeoutInt(PreTimeoutInterrupt kind) noexcept { preTimeoutInt = kind; }
    void setTimeoutAct(TimeoutAction action) noexcept { timeoutAct = action; }
    /// In seconds.
    void setPreTimeoutInterval(std::uint8_t seconds) noexcept { pre_timeout_interval = seconds; }
    /// In 100 ms counts.
    void setInitCountdownValue(std::uint16_t counts) noexcept { initCountdownValue = counts; }

  private:
    void update() noexcept;
    void readTimer();
    unsigned char expirationFlag() const noexcept;

    bool no_log{false};
    TimerUse timer_use;
    bool expired{false};
    bool timer_running{false};
    PreTimeoutInterrupt preTimeoutInt{pre_timeout_interrupt_none};
    TimeoutAction timeoutAct{timeout_action_no_action};
    std::uint8_t pre_timeout_interval{0};
    std::uint16_t initCountdownValue{0};
    std::uint16_t currCountdownValue{0};
};

} // namespace tavIpmi
