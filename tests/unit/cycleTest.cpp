#include "agentSignals.h"
#include "portInformation.h"
#include "rig.h"
#include "sysLog.h"
#include "tavServerInfo.h"

#include <cerrno>
#include <csignal>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

/// The information cycle on a host with the interfaces tav1, tav2, ... of 10.0.N.1.
class Cycle : public Rig {
  public:
    ~Cycle() override { removeInterfaces(); }

    static void addInterface(int number, const std::string& extra = "") {
        const std::string name = "tav" + std::to_string(number);
        shell("ip tuntap add " + name + " mode tap; ip addr add 10.0." + std::to_string(number) +
              ".1/24 dev " + name + ";" + extra);
    }

    /// Runs the thread mode for that many waits; `between` runs in each.
    void runThread(std::size_t iterations, const std::function<void(std::size_t)>& between = {}) {
        clock.onWait = [this, iterations, between] {
            if (between) {
                between(clock.waits.size());
            }
            if (clock.waits.size() < iterations) {
                return ETIMEDOUT;
            }
            news.release();
            return 0;
        };
        const TavServerInfo server(TavServerInfo::run_mode_thread);
        EXPECT_TRUE(news.try_acquire_for(std::chrono::minutes(1))) << "the cycle ended early";
    }

    std::string slot(unsigned number) const {
        return hex(bmc.confSpace.values.at(static_cast<std::uint16_t>(521 + number)));
    }

    std::size_t count(const std::string& request) const {
        const auto all = requests();
        return static_cast<std::size_t>(std::count_if(
            all.begin(), all.end(), [&](const auto& one) { return one.starts_with(request); }));
    }
};

const std::string writeFirstSlot = "2e/e0: d9 7e 00 02 00 0a 02 04 0a";
const std::string resetTimer = "06/22: ";

TEST_F(Cycle, onceFillsFourSlotsInIndexOrder) {
    for (int number = 1; number <= 6; ++number) {
        addInterface(number);
    }
    const TavServerInfo server(TavServerInfo::run_mode_once);
    EXPECT_EQ(slot(1), "0a 00 01 01");
    EXPECT_EQ(slot(4), "0a 00 04 01");
    // Who the BMC is, twice, 14 reads, no port information, 4 slots cleared, 4 written; no
    // watchdog, no connection.
    EXPECT_EQ(exchanges.size(), 25U);
    EXPECT_EQ(exchanges.back().request[5], 0x0D);
    EXPECT_TRUE(clock.waits.empty());
}

TEST_F(Cycle, portInformationEndsUpWithTheLastInterface) {
    sim::namedMachine("nic-blade").setUp(bmc);
    sim::showSmbios(sim::namedMachine("nic-blade").smbios(), sim::SmbiosForm::sysfs3, paths);
    addInterface(1, "ip link set tav1 address 02:00:00:00:00:11");
    addInterface(2, "ip link set tav2 address 02:00:00:00:00:12; ip link set tav2 up;"
                    "ip addr add 2001:db8::2/64 dev tav2 nodad");
    const TavServerInfo server(TavServerInfo::run_mode_once);
    const std::string tree = sim::portInformationText(bmc.fru->image);
    EXPECT_THAT(tree, Not(HasSubstr("10.0.1.1"))) << tree;
    EXPECT_THAT(tree, HasSubstr("10.0.2.1"));
    EXPECT_THAT(tree, HasSubstr("2001:db8::2"));
    EXPECT_THAT(tree, Not(HasSubstr("wrong")));
    EXPECT_EQ(slot(1), "0a 00 01 01");
    EXPECT_THAT(bmc.blade->chassis.bladeAddresses, testing::IsEmpty());
}

TEST_F(Cycle, portInformationThatIsUnusableIsLeftAlone) {
    sim::namedMachine("nic").setUp(bmc);
    addInterface(1);
    bmc.fru->image[0] ^= 0xFFU;
    { const TavServerInfo server(TavServerInfo::run_mode_once); }
    bmc.fru->image[0] ^= 0xFFU;
    bmc.fru->id = 0;
    { const TavServerInfo server(TavServerInfo::run_mode_once); }
    bmc.fru.reset();
    { const TavServerInfo server(TavServerInfo::run_mode_once); }
    const auto line = [](const char* text) {
        return testing::AllOf(testing::Field(&LogLine::priority, LOG_ERR),
                              testing::Field(&LogLine::text, HasSubstr(text)));
    };
    EXPECT_THAT(log, ElementsAre(line("Error: Checksum error ("),
                                 line("TavServerInfo::TavServerInfo No access to PNI")));
}

TEST_F(Cycle, theFirstFailureStopsTheFilling) {
    for (int number = 1; number <= 3; ++number) {
        addInterface(number);
    }
    device.misbehave("23:cc=0xC0"); // the second slot written
    const TavServerInfo server(TavServerInfo::run_mode_once);
    EXPECT_EQ(slot(1), "0a 00 01 01");
    EXPECT_EQ(slot(2), "00 00 00 00");
    EXPECT_EQ(slot(3), "00 00 00 00");
    EXPECT_EQ(exchanges.size(), 23U);
}

TEST_F(Cycle, terminateOnlyStopsTheTimer) {
    const TavServerInfo server(TavServerInfo::run_mode_terminate);
    EXPECT_THAT(requests(), ElementsAre("06/25: ", "06/24: 04 00 00 10 00 00"));
}

TEST_F(Cycle, withoutABmcThereIsNoAgent) {
    device.setNodePresent(false);
    EXPECT_THROW(const TavServerInfo server(TavServerInfo::run_mode_once), tavIpmi::TavIpmiError);
}

TEST_F(Cycle, whenTheDeviceVanishesTheCycleGoesOn) {
    runThread(20, [this](std::size_t wait) {
        if (wait == 1) {
            device.setNodePresent(false);
        }
    });
    const auto failedOpens = std::count_if(exchanges.begin(), exchanges.end(), [](const auto& one) {
        return one.failedCall == sim::DeviceCall::open;
    });
    // Each iteration asks for the settings, corrects the period and looks at the timer in vain.
    EXPECT_GE(failedOpens, 19 * 3);
    EXPECT_TRUE(log.empty());
}

TEST_F(Cycle, anUnchangedHostIsPushedOnce) {
    addInterface(1); // with lo that makes two: identical inventories match
    runThread(13);
    EXPECT_THAT(clock.waits, testing::Each(20U));
    EXPECT_EQ(count(writeFirstSlot), 1U);
}

TEST_F(Cycle, anotherInterfaceIsPushedAtTheNextInventory) {
    addInterface(1);
    runThread(13, [](std::size_t wait) {
        if (wait == 2) {
            addInterface(2);
        }
    });
    EXPECT_EQ(slot(1), "0a 00 01 01");
    EXPECT_EQ(slot(2), "0a 00 02 01");
    EXPECT_EQ(count(writeFirstSlot), 2U);
}

/// Loopback is the first: the detector's matching takes a change of the second of two interfaces,
/// or of the third of three, for none.
TEST_F(Cycle, aChangedAddressIsSeenOrNotByItsPlace) {
    struct {
        int interfaces, changed;
        bool seen;
    } cases[] = {{1, 1, false}, {2, 1, true}, {2, 2, false}};
    for (const auto& one : cases) {
        for (int number = 1; number <= one.interfaces; ++number) {
            addInterface(number);
        }
        clock.waits.clear();
        exchanges.clear();
        runThread(19, [name = "tav" + std::to_string(one.changed)](std::size_t wait) {
            if (wait == 2) {
                shell("i=" + name + "; ip addr flush dev $i; ip addr add 10.0.9.9/24 dev $i");
            }
        });
        EXPECT_EQ(slot(static_cast<unsigned>(one.changed)) == "0a 00 09 09", one.seen);
        EXPECT_EQ(count(writeFirstSlot), one.seen ? 2U : 1U);
        removeInterfaces();
    }
}

TEST_F(Cycle, aHostWithNothingToShowIsTriedAgain) {
    runThread(13, [](std::size_t wait) {
        if (wait == 7) {
            addInterface(1);
        }
    });
    EXPECT_EQ(slot(1), "0a 00 01 01");
}

TEST_F(Cycle, theWatchdogSetsThePace) {
    bmc.confSpace.setText(66, "enabled");
    bmc.confSpace.setText(67, "300");
    runThread(24);
    // 300 seconds: a reset is due every 100, so after every 5 waits of 20 seconds.
    EXPECT_EQ(count(resetTimer), 5U);
    EXPECT_EQ(clock.alarms.front(), 150U);
    EXPECT_FALSE(bmc.watchdog.state().running) << "stopped on the way out";
    EXPECT_FALSE(bmc.watchdog.state().expirationFlags) << "never ran out";
    EXPECT_FALSE(bmc.agentConnection.connected);
}

/// With a hundred interfaces and a second for each answer a pass takes longer than the period.
TEST_F(Cycle, noRestartIsMissedOnASlowBmc) {
    shell("for i in $(seq 100); do ip tuntap add tav$i mode tap;"
          "ip addr add 10.1.$i.1/24 dev tav$i; done; ip link set tav100 address 02:00:00:00:00:12");
    for (const char* machine : {"blade", "nic"}) {
        bmc.blade.reset();
        sim::namedMachine(machine).setUp(bmc);
        sim::showSmbios(sim::namedMachine(machine).smbios(), sim::SmbiosForm::sysfs3, paths);
        bmc.confSpace.setText(66, "enabled");
        bmc.confSpace.setText(67, "240");
        device.misbehave("1+:slow=1000");
        exchanges.clear();
        clock.waits.clear();
        runThread(8);
        std::chrono::milliseconds last{0};
        std::chrono::milliseconds longest{0};
        for (const sim::Exchange& exchange : exchanges) {
            if (exchange.netfn == 6 && exchange.cmd == 0x22) {
                longest = last.count() == 0 ? longest : std::max(longest, exchange.sentAt - last);
                last = exchange.sentAt;
            }
        }
        EXPECT_GT(longest, std::chrono::seconds(100)) << machine;
        EXPECT_LE(longest, std::chrono::seconds(160)) << machine;
    }
}

/// How long the foreground's thread takes to end after the signal, at worst, and whether the BMC
/// learns of it.
TEST_F(Cycle, aSlowBmcIsToldOfTheEnd) {
    struct {
        const char* fault;
        int seconds;
        bool told;
    } cases[] = {{"50+:slow=100", 2, true},    {"50+:slow=500", 5, true},
                 {"50+:slow=1000", 10, true},  {"50+:slow=1400", 10, true},
                 {"50+:slow=4900", 10, false}, {"50+:silent", 10, false}};
    sim::namedMachine("nic").setUp(bmc);
    bmc.confSpace.setText(66, "enabled");
    shell("for i in $(seq 20); do ip tuntap add tav$i mode tap;"
          "ip addr add 10.1.$i.1/24 dev tav$i; done");
    for (const auto& one : cases) {
        for (const unsigned long call : {230UL, 300UL, 372UL, 500UL}) {
            inOwnProcess([&] {
                SCOPED_TRACE(std::string(one.fault) + " " + std::to_string(call));
                sim::Misbehaviour misbehaviour;
                misbehaviour.faults = {sim::parseFault(one.fault)};
                misbehaviour.raisedSignals = {{call, SIGTERM}};
                device.misbehave(misbehaviour);
                std::chrono::milliseconds signalled{0};
                device.observe([&](const sim::Exchange& exchange) {
                    if (signalled.count() == 0 && agentSignals::endRequested()) {
                        signalled = exchange.sentAt;
                    }
                });
                clock.onWait = [this] {
                    if (!agentSignals::endRequested()) {
                        return ETIMEDOUT;
                    }
                    clock.pass(-std::chrono::seconds(clock.waits.back())); // it is woken at once
                    news.release();
                    return 0;
                };
                { const TavServerInfo server(TavServerInfo::run_mode_thread); }
                EXPECT_GT(signalled.count(), 0);
                EXPECT_LT(clock.now - signalled, std::chrono::seconds(one.seconds));
                EXPECT_EQ(bmc.agentConnection.connected, !one.told);
                EXPECT_EQ(bmc.watchdog.state().running, one.fault == std::string("50+:silent"));
            });
        }
    }
}

TEST_F(Cycle, aTimerThatAnotherTookIsTakenBack) {
    bmc.confSpace.setText(66, "enabled");
    runThread(6, [this](std::size_t wait) {
        if (wait == 1) {
            bmc.answer(6, 0, 0x24, sim::Bytes{3, 0, 0, 0, 0, 0}); // another program takes the timer
        }
        if (wait == 2) {
            EXPECT_TRUE(bmc.watchdog.state().running);
            EXPECT_EQ(bmc.watchdog.state().use, 4) << "taken back";
        }
    });
    EXPECT_EQ(count(resetTimer), 2U) << "at the start, and when taken back";
}

TEST_F(Cycle, anErrorOfTheInventoryEndsTheCycleInOrder) {
    addInterface(1, "ip addr add 10.0.1.2/24 dev tav1");
    bmc.confSpace.setText(66, "enabled");
    runThread(1);
    const auto error = [](const char* text) {
        return testing::AllOf(testing::Field(&LogLine::priority, LOG_ERR),
                              testing::Field(&LogLine::text, HasSubstr(text)));
    };
    const char* const why = "if entry for tav1 is already existing.";
    EXPECT_THAT(log,
                ElementsAre(error(why), error("until tav_init is restarted: Error: if entry")));
    EXPECT_TRUE(clock.waits.empty());
    EXPECT_FALSE(bmc.watchdog.state().running);
    EXPECT_FALSE(bmc.agentConnection.connected);
}

/// Answers of any length to every command of a whole run, but for the first variable: without it
/// the configuration space is not used at all.
TEST_F(Cycle, survivesAnswersOfEveryLength) {
    const sim::Machine& machine = sim::namedMachine("kestrelbox");
    sim::showSmbios(machine.smbios(), sim::SmbiosForm::sysfs2, paths);
    machine.setUp(bmc);
    for (unsigned length = 0; length <= 272; ++length) {
        bmc.confSpace.setText(66, "enabled");
        device.behave();
        device.misbehave(std::to_string(device.exchangeCount() + 2) +
                         "+:length=" + std::to_string(length));
        clock.waits.clear();
        exchanges.clear();
        runThread(1);
        EXPECT_EQ(clock.waits.size(), 1U) << length;
        EXPECT_GT(exchanges.size(), 36U) << length; // nothing gives up before the end
    }
    ASSERT_EQ(log.size(), 1U) << "an empty answer does not say that there is no adapter";
    EXPECT_THAT(log[0].text, HasSubstr("IPMI access has failed."));
}

/// Whatever single exchange goes wrong in whatever way, the cycle ends where it should.
TEST_F(Cycle, survivesEveryFaultAtEveryExchange) {
    addInterface(1);
    unsigned points = 0;
    for (const char* fault : {"cc=0xFF", "silent", "length=0", "length=1", "length=2", "length=272",
                              "length=273", "foreign-id", "events=5", "type=9", "errno=EIO@open",
                              "errno=ENODEV@send", "errno=EIO@wait", "errno=EIO@receive"}) {
        for (const char* lasting : {"", "+"}) {
            for (unsigned number = 1;; ++number) {
                bmc.confSpace = {};
                bmc.confSpace.setText(66, "enabled");
                device.behave();
                exchanges.clear();
                clock.waits.clear();
                const unsigned at = device.exchangeCount() + number;
                device.misbehave(std::to_string(at) + lasting + ":" + fault);
                try {
                    runThread(2);
                    ASSERT_EQ(clock.waits.size(), 2U) << fault << " at " << number;
                } catch (const tavIpmi::TavIpmiError&) {
                    ASSERT_TRUE(*lasting != 0 || number == 1 || number == 16)
                        << fault << " at " << number << ": only the identity must be known";
                }
                // Only a search for adapters that ends in doubt is worth a line.
                EXPECT_TRUE(log.empty() || number <= 17) << fault << " at " << number;
                log.clear();
                ++points;
                if (device.exchangeCount() < at) {
                    break;
                }
            }
        }
    }
    RecordProperty("points", static_cast<int>(points));
}

} // namespace
