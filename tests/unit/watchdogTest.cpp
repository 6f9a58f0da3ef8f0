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
};

TEST_F(Watchdog, readsTheTimerOfItsUse) {
    setUp({0x84, 0x21, 10, 0x10, 0xB8, 0x0B});
    start();
    clock.now += std::chrono::seconds(30);
    const TavIpmiWatchdog mine(TavIpmiWatchdog::timer_use_sms_os);
    EXPECT_TRUE(mine.timerIsRunning());
    EXPECT_EQ(mine.getInitCountdownValue(), 3000U);
    EXPECT_EQ(mine.getCurrentCountdownValue(), 2700U);
    EXPECT_EQ(mine.getPreTimeoutInterval(), 10U);
    EXPECT_TRUE(mine.preTimoutIsEnabled());

    const TavIpmiWatchdog other(TavIpmiWatchdog::timer_use_os_load);
    EXPECT_TRUE(other.timerIsRunning());
    EXPECT_EQ(other.getTimeoutAct(), TavIpmiWatchdog::timeout_action_Hard_Reset);
    EXPECT_EQ(other.getInitCountdownValue() + other.getCurrentCountdownValue() +
                  other.getPreTimeoutInterval(),
              0U);
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
    for (const char* fault : {"1+:errno=ENODEV@open", "1+:silent", "1+:cc=0xC3", "1+:length=8",
                              "1+:length=0", "1+:errno=EIO@receive"}) {
        device.behave();
        setUp({0x04, 0x01, 10, 0, 0xB8, 0x0B});
        device.misbehave(fault);
        TavIpmiWatchdog timer(TavIpmiWatchdog::timer_use_sms_os);
        EXPECT_EQ(timer.getTimeoutAct(), TavIpmiWatchdog::timeout_action_no_action) << fault;
        EXPECT_EQ(timer.getInitCountdownValue(), 0U) << fault;
        if (std::string(fault) != "1+:length=8") {
            EXPECT_FALSE(timer.set(false)) << fault;
            EXPECT_FALSE(timer.resetTimer()) << fault;
        }
    }
}

TEST_F(Watchdog, resetTellsWhenTheNextOneIsDue) {
    struct {
        unsigned char interrupt;
        unsigned char interval;
        unsigned char countLow, countHigh;
        unsigned alarm, due;
    } cases[] = {{0x00, 10, 0x60, 0x09, 115, 77}, // no interrupt: the interval counts
                 {0x20, 10, 0x60, 0x09, 120, 80}, // NMI: it does not
                 {0x00, 0, 0x32, 0x00, 3, 2}};
    for (const auto& one : cases) {
        setUp({4, one.interrupt, one.interval, 0, one.countLow, one.countHigh});
        EXPECT_EQ(TavServerInfo::reset_watchdog(TavIpmiWatchdog::timer_use_sms_os, true), one.due);
        EXPECT_EQ(clock.alarms.back(), one.alarm);
        EXPECT_TRUE(bmc.watchdog.state().running);
    }
    device.misbehave("1+:silent");
    EXPECT_EQ(TavServerInfo::reset_watchdog(TavIpmiWatchdog::timer_use_sms_os, true), 0U);
    EXPECT_EQ(clock.alarms.back(), 0U) << "nothing to be woken for";
}

TEST_F(Watchdog, settingsAreBroughtIntoLine) {
    TavServerInfo server(TavServerInfo::run_mode_none);
    bmc.confSpace.setText(66, "enabled");
    bmc.confSpace.setText(67, "100");
    bmc.confSpace.setText(117, "2");
    EXPECT_TRUE(server.updateWatchdog());
    EXPECT_TRUE(server.softWatchdogEnabled());
    EXPECT_EQ(hex(bmc.confSpace.values.at(67)), "f0 00") << "raised to 240 seconds";
    EXPECT_EQ(hex(bmc.confSpace.values.at(117)), "00");
    EXPECT_EQ(bmc.watchdog.state().initialCountdown, 2400);
    EXPECT_EQ(bmc.watchdog.state().action, 0);
    EXPECT_FALSE(bmc.watchdog.state().running) << "the reset starts it";

    exchanges.clear();
    EXPECT_FALSE(server.updateWatchdog());
    EXPECT_EQ(exchanges.size(), 7U) << "six variables and the timer are read, nothing is written";

    bmc.confSpace.setText(67, "600");
    EXPECT_TRUE(server.updateWatchdog());
    EXPECT_EQ(bmc.watchdog.state().initialCountdown, 6000);

    bmc.confSpace.setText(67, "7000"); // more than the timer can hold
    EXPECT_TRUE(server.updateWatchdog());
    EXPECT_EQ(bmc.watchdog.state().initialCountdown, 0xFFFF);
    EXPECT_FALSE(server.updateWatchdog());
}

/// Neither at once nor by a heartbeat that is due: it may be another program's, and reset the host.
TEST_F(Watchdog, aTimerThatIsOffOrCannotBeSetUpIsNotRestarted) {
    const agentSignals::Hold held;
    for (const char* fault : {"", "8:cc=0xC0", "8:silent", "8:errno=EIO@send"}) {
        TavServerInfo server(TavServerInfo::run_mode_none);
        bmc.confSpace.setText(66, "enabled");
        bmc.confSpace.setText(67, "300");
        server.updateWatchdog();
        TavServerInfo::reset_watchdog(TavIpmiWatchdog::timer_use_sms_os, true);
        EXPECT_EQ(clock.alarms.back(), 150U);
        ::raise(SIGALRM);
        setUp({3, 1, 0, 0, 0, 0});
        bmc.confSpace.setText(66, *fault == '\0' ? "disabled" : "enabled");
        device.behave();
        if (*fault != '\0') {
            device.misbehave(std::to_string(device.exchangeCount() + 8) + (fault + 1));
        }
        EXPECT_TRUE(server.updateWatchdog()) << fault;
        EXPECT_FALSE(server.softWatchdogEnabled()) << fault;
        EXPECT_EQ(clock.alarms.back(), 0U) << fault;
        sigset_t pending;
        ::sigpending(&pending);
        EXPECT_EQ(sigismember(&pending, SIGALRM), 0) << fault;
        device.behave();
        EXPECT_EQ(server.updateWatchdog(), *fault != '\0') << "the next time it is set up";
        EXPECT_EQ(bmc.watchdog.state().use, 4);
    }
}

TEST_F(Watchdog, aTimerThatFitsAlreadyIsLeftAlone) {
    TavServerInfo server(TavServerInfo::run_mode_none);
    bmc.confSpace.setText(66, "enabled");
    bmc.confSpace.setText(67, "300");
    setUp({4, 0, 0, 0, 0xB8, 0x0B});
    start();
    exchanges.clear();
    EXPECT_TRUE(server.updateWatchdog());
    EXPECT_EQ(exchanges.size(), 7U);
}

} // namespace
