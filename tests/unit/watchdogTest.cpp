#include "agentSignals.h"
#include "rig.h"
#include "tavIpmiWatchdog.h"
#include "tavServerInfo.h"

#include <csignal>

using tavIpmi::TavIpmiWatchdog;
using testing::ElementsAre;

namespace {

class Watchdog : public Rig {
  public:
    /// Sets the BMC's timer up as another program would; `bytes` are those of the command.
    void setUp(std::vector<unsigned char> bytes) { bmc.answer(6, 0, 0x24, bytes); }
    void start() { bmc.answer(6, 0, 0x22, {}); }
    void enable(const char* seconds) {
        setVariable(66, "enabled");
        setVariable(67, seconds);
    }
    /// Get Watchdog Timer: use, actions, interval, expired uses, initial and present countdown.
    std::string timer() { return hex(bmc.answer(6, 0, 0x25, {})).substr(3); }
};

using Values = std::array<unsigned, 6>;

/// Action, pre-timeout interrupt, running; interval, initial and present countdown.
Values valuesOf(const TavIpmiWatchdog& timer) {
    return {static_cast<unsigned>(timer.getTimeoutAct()),
            timer.preTimoutIsEnabled() ? 1U : 0U,
            timer.timerIsRunning() ? 1U : 0U,
            timer.getPreTimeoutInterval(),
            timer.getInitCountdownValue(),
            timer.getCurrentCountdownValue()};
}

TEST_F(Watchdog, readsTheTimerOfItsUse) {
    setUp({0x84, 0x21, 10, 0x10, 0xB8, 0x0B});
    start();
    clock.now += std::chrono::seconds(30);
    EXPECT_EQ(valuesOf(TavIpmiWatchdog(TavIpmiWatchdog::timer_use_sms_os)),
              (Values{1, 1, 1, 10, 3000, 2700}));
    EXPECT_EQ(valuesOf(TavIpmiWatchdog(TavIpmiWatchdog::timer_use_os_load)),
              (Values{1, 1, 1, 0, 0, 0}));
}

TEST_F(Watchdog, sendsWhatTheSnapshotHolds) {
    setUp({0x84, 0x00, 0, 0, 0xB8, 0x0B}); // with the do-not-log bit
    exchanges.clear();
    TavIpmiWatchdog timer(TavIpmiWatchdog::timer_use_sms_os);
    timer.setPreTimeoutInt(TavIpmiWatchdog::pre_timeout_interrupt_nmi);
    timer.setTimeoutAct(TavIpmiWatchdog::timeout_action_Power_Cycle);
    timer.setPreTimeoutInterval(7);
    EXPECT_TRUE(timer.set(true));
    EXPECT_TRUE(timer.resetTimer());
    EXPECT_TRUE(timer.stopTimer());
    EXPECT_THAT(requests(), ElementsAre("06/25: ", "06/24: c4 23 07 10 b8 0b",
                                        "06/22: ", "06/24: 84 23 07 10 b8 0b"));
}

TEST_F(Watchdog, tellsExpiryByTimerUse) {
    for (unsigned char use = 1; use <= 5; ++use) {
        setUp({use, 0, 0, 0x3E, 1, 0});
        start();
        clock.now += std::chrono::seconds(1);
        for (unsigned char asked = 0; asked <= 7; ++asked) {
            const TavIpmiWatchdog timer(static_cast<TavIpmiWatchdog::TimerUse>(asked));
            EXPECT_EQ(timer.hasExpired(), asked == use) << int(use) << " asked as " << int(asked);
        }
        setUp({use, 0, 0, 0x3E, 1, 0});
    }
}

TEST_F(Watchdog, letsNothingOutWhateverTheBmcDoes) {
    setUp({0x04, 0x01, 10, 0, 0xB8, 0x0B});
    for (const std::string fault : {"1+:errno=ENODEV@open", "1+:silent", "1+:cc=0xC3",
                                    "1+:length=0", "1+:errno=EIO@receive", "1+:length=8"}) {
        goWrong(fault);
        TavIpmiWatchdog timer(TavIpmiWatchdog::timer_use_sms_os);
        EXPECT_EQ(valuesOf(timer), Values{}) << fault;
        EXPECT_EQ(timer.set(false), fault == "1+:length=8") << fault;
        EXPECT_EQ(timer.resetTimer(), fault == "1+:length=8") << fault;
    }
}

TEST_F(Watchdog, resetTellsWhenTheNextOneIsDue) {
    struct {
        unsigned char interrupt;
        unsigned char interval;
        unsigned char countLow, countHigh;
        unsigned alarm, due;
    } cases[] = {{0x00, 10, 0x60, 0x09, 115, 77}, // no interrupt: the interval counts
                 {0x20, 10, 0x6A, 0x09, 121, 81}, // NMI: it does not
                 {0x00, 0, 0x32, 0x00, 3, 2}};
    for (const auto& one : cases) {
        setUp({4, one.interrupt, one.interval, 0, one.countLow, one.countHigh});
        EXPECT_EQ(TavServerInfo::reset_watchdog(TavIpmiWatchdog::timer_use_sms_os, true), one.due);
        EXPECT_EQ(clock.alarms.back(), one.alarm);
        EXPECT_TRUE(bmc.watchdog.state().running);
    }
    device.misbehave(sim::parseFault("1+:silent"));
    EXPECT_EQ(TavServerInfo::reset_watchdog(TavIpmiWatchdog::timer_use_sms_os, true), 0U);
    EXPECT_EQ(clock.alarms.back(), 0U) << "nothing to be woken for";
}

TEST_F(Watchdog, settingsAreBroughtIntoLine) {
    TavServerInfo server(TavServerInfo::run_mode_none);
    struct {
        const char *time, *behaviour;
        const char* settings; // time and behaviour afterwards
        const char* timer;
    } cases[] = {{"100", "2", "f0 00; 00", "04 00 00 00 60 09 60 09"}, // 240 seconds at the least
                 {"600", "0", "58 02; 00", "04 00 00 00 70 17 70 17"},
                 {"7000", "0", "58 1b; 00", "04 00 00 00 ff ff ff ff"}}; // more than it can hold
    for (const auto& one : cases) {
        enable(one.time);
        setVariable(117, one.behaviour);
        EXPECT_TRUE(server.updateWatchdog());
        EXPECT_TRUE(server.softWatchdogEnabled());
        EXPECT_EQ(hex(bmc.confSpace.values.at(67)) + "; " + hex(bmc.confSpace.values.at(117)),
                  one.settings);
        EXPECT_EQ(timer(), one.timer) << "the reset starts it";
        exchanges.clear();
        EXPECT_FALSE(server.updateWatchdog());
        EXPECT_EQ(exchanges.size(), 7U) << "six variables and the timer are read";
    }
    TavServerInfo other(TavServerInfo::run_mode_none);
    start(); // it fits already
    exchanges.clear();
    EXPECT_TRUE(other.updateWatchdog());
    EXPECT_EQ(exchanges.size(), 7U);
}

/// Neither at once nor by a heartbeat that is due: it may be another program's, and reset the host.
TEST_F(Watchdog, aTimerThatIsOffOrCannotBeSetUpIsNotRestarted) {
    const agentSignals::Hold held;
    for (const std::string fault : {"8:slow=0", "8:cc=0xC0", "8:silent", "8:errno=EIO@send"}) {
        SCOPED_TRACE(fault);
        const bool switchedOff = fault == "8:slow=0";
        device.behave();
        TavServerInfo server(TavServerInfo::run_mode_none);
        enable("300");
        server.updateWatchdog();
        TavServerInfo::reset_watchdog(TavIpmiWatchdog::timer_use_sms_os, true);
        EXPECT_EQ(clock.alarms.back(), 150U);
        EXPECT_EQ(::raise(SIGALRM), 0);
        setUp({3, 1, 0, 0, 0, 0});
        setVariable(66, switchedOff ? "disabled" : "enabled");
        goWrong(fault);
        EXPECT_TRUE(server.updateWatchdog());
        EXPECT_FALSE(server.softWatchdogEnabled());
        EXPECT_EQ(clock.alarms.back(), 0U);
        sigset_t pending;
        ::sigpending(&pending);
        EXPECT_EQ(sigismember(&pending, SIGALRM), 0);
        device.behave();
        EXPECT_EQ(server.updateWatchdog(), !switchedOff) << "the next time it is set up";
        EXPECT_EQ(timer().substr(0, 2), "04");
    }
}

} // namespace
