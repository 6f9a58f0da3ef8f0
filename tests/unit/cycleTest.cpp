#include "agentSignals.h"
#include "portInformation.h"
#include "portRecordText.h"
#include "rig.h"
#include "sysLog.h"
#include "tavServerInfo.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <memory>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

/// The information cycle on a host with interfaces.
class Cycle : public Rig {
  public:
    ~Cycle() override { removeInterfaces(); }

    /// One that the management blade hears of.
    static void addBladesInterface() {
        addInterfaces(1);
        shell("ip link set tav1 address 02:00:00:00:00:01 up;"
              "ip addr add 2001:db8::1/64 dev tav1 nodad");
    }

    void runOnce() {
        exchanges.clear();
        const TavServerInfo server(TavServerInfo::run_mode_once);
    }

    /// Runs the thread mode for that many waits; `between` runs in each.
    void runThread(std::size_t iterations, const std::function<void(std::size_t)>& between = {}) {
        exchanges.clear();
        clock.waits.clear();
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
        TavServerInfo server(TavServerInfo::run_mode_thread);
        EXPECT_TRUE(news.try_acquire_for(std::chrono::minutes(1))) << "the cycle ended early";
    }

    /// The addresses in the configuration space that are set.
    std::string slots() const {
        std::string text;
        for (std::uint16_t id = 522; id <= 525; ++id) {
            const sim::Bytes& value = bmc.confSpace.values.at(id);
            text += value == sim::Bytes(4) ? "" : hex(value) + "; ";
        }
        return text;
    }

    std::ptrdiff_t count(const std::string& request) const {
        return std::ranges::count_if(requests(),
                                     [&](const auto& one) { return one.starts_with(request); });
    }
};

const std::string writeFirstSlot = "2e/e0: d9 7e 00 02 00 0a 02 04 0a";
const std::string resetTimer = "06/22: ";

TEST_F(Cycle, onceFillsFourSlotsInIndexOrderUpToTheFirstFailure) {
    addInterfaces(6);
    runOnce();
    EXPECT_EQ(slots(), "0a 00 01 01; 0a 00 02 01; 0a 00 03 01; 0a 00 04 01; ");
    // Who the BMC is, twice, 14 reads, no port information, 4 slots cleared, 4 written; no
    // watchdog, no connection.
    EXPECT_EQ(exchanges.size(), 25U);
    EXPECT_TRUE(clock.waits.empty());
    goWrong("23:cc=0xC0");
    runOnce();
    EXPECT_EQ(slots(), "0a 00 01 01; ");
    EXPECT_EQ(exchanges.size(), 23U);
}

TEST_F(Cycle, portInformationEndsUpWithTheLastInterface) {
    become("nic-blade");
    addInterfaces(2);
    shell("ip link set tav1 address 02:00:00:00:00:11;"
          "ip link set tav2 address 02:00:00:00:00:12; ip link set tav2 up;"
          "ip addr add 2001:db8::2/64 dev tav2 nodad");
    // As long as another agent has the record it is left for the next inventory.
    auto other = std::make_unique<tavIpmi::TavIpmi>(0, 0, tavIpmi::TavIpmi::ipmiSystemInterface);
    EXPECT_TRUE(other->tryLock());
    runThread(7, [&](std::size_t) { other.reset(); });
    const std::string tree = sim::portInformationText(bmc.fru->image);
    EXPECT_THAT(tree, Not(HasSubstr("10.0.1.1"))) << tree;
    EXPECT_THAT(tree, HasSubstr("10.0.2.1"));
    EXPECT_THAT(tree, HasSubstr("2001:db8::2"));
    EXPECT_THAT(tree, Not(HasSubstr("wrong")));
    EXPECT_EQ(slots(), "0a 00 01 01; 0a 00 02 01; ");
    EXPECT_THAT(bmc.blade->chassis.bladeAddresses, testing::IsEmpty());
}

TEST_F(Cycle, theManagementBladeHearsOfTheAddressesThatItKnows) {
    addBladesInterface();
    for (const auto& [machine, addresses] : {std::pair{"kestrelbox", 2U}, {"old-blade", 1U}}) {
        become(machine);
        runOnce();
        EXPECT_EQ(bmc.blade->chassis.bladeAddresses.size(), addresses) << machine;
    }
}

TEST_F(Cycle, portInformationThatIsUnusableIsLeftAlone) {
    become("nic");
    bmc.fru->image[0] ^= 0xFFU;
    runOnce();
    bmc.fru->image[0] ^= 0xFFU;
    bmc.fru->id = 0;
    runOnce();
    bmc.fru.reset();
    runOnce();
    EXPECT_THAT(log, ElementsAre(errorWith("Error: Checksum error ("),
                                 errorWith("TavServerInfo::TavServerInfo No access to PNI")));
}

TEST_F(Cycle, withoutABmcThereIsNoAgentButOneThatVanishesIsWaitedFor) {
    runThread(20, [this](std::size_t wait) {
        if (wait == 1) {
            device.setNodePresent(false);
        }
    });
    // Each iteration asks for the settings, corrects the period and looks at the timer in vain.
    EXPECT_GE(std::ranges::count(exchanges, sim::DeviceCall::open, &sim::Exchange::failedCall),
              19 * 3);
    EXPECT_TRUE(log.empty());
    EXPECT_THROW(runOnce(), tavIpmi::TavIpmiError);
}

/// What is pushed of a host that changes. Loopback is the first interface: the detector's matching
/// takes a change of the second of two, or of the third of three, for none.
TEST_F(Cycle, aChangedHostIsPushedByWhatAndWhere) {
    struct {
        int interfaces;
        std::size_t wait; // in which something happens
        std::string change;
        const char* slots;
        int pushes;
    } cases[] = {
        {1, 2, "true", "0a 00 01 01; ", 1},
        {1, 2, "ip tuntap add tav2 mode tap; ip addr add 10.0.2.1/24 dev tav2",
         "0a 00 01 01; 0a 00 02 01; ", 2},
        {1, 2, "ip addr flush dev tav1; ip addr add 10.0.9.9/24 dev tav1", "0a 00 01 01; ", 1},
        {2, 2, "ip addr flush dev tav1; ip addr add 10.0.9.9/24 dev tav1",
         "0a 00 09 09; 0a 00 02 01; ", 2},
        {2, 2, "ip addr flush dev tav2; ip addr add 10.0.9.9/24 dev tav2",
         "0a 00 01 01; 0a 00 02 01; ", 1},
        // Nothing to show: tried again.
        {0, 7, "ip tuntap add tav1 mode tap; ip addr add 10.0.1.1/24 dev tav1", "0a 00 01 01; ", 1},
    };
    for (const auto& one : cases) {
        addInterfaces(one.interfaces);
        runThread(19, [&](std::size_t wait) {
            if (wait == one.wait) {
                shell(one.change);
            }
        });
        EXPECT_EQ(slots(), one.slots) << one.change;
        EXPECT_EQ(count(writeFirstSlot), one.pushes) << one.change;
        EXPECT_THAT(clock.waits, testing::Each(20U));
        removeInterfaces();
    }
}

TEST_F(Cycle, theWatchdogSetsThePace) {
    setVariable(66, "enabled");
    setVariable(67, "300");
    runThread(24);
    // 300 seconds: a reset is due every 100, so after every 5 waits of 20 seconds.
    EXPECT_EQ(count(resetTimer), 5U);
    EXPECT_EQ(clock.alarms.front(), 150U);
    EXPECT_FALSE(bmc.watchdog.state().running) << "stopped on the way out";
    EXPECT_FALSE(bmc.watchdog.state().expirationFlags) << "never ran out";
    EXPECT_FALSE(bmc.agentConnection.connected);
    // One whose outcome is not known is made again in the next pass.
    const auto all = requests();
    const auto look = std::ranges::find(all, resetTimer) - all.begin(); // the one before, from 1
    goWrong(std::to_string(look) + ":silent");
    runThread(2);
    EXPECT_EQ(count(resetTimer), 2U);
    // A pre-timeout interval, which the start takes away, leaves 45 seconds.
    runThread(7, [this](std::size_t wait) {
        if (wait == 1) {
            bmc.answer(6, 0, 0x24, sim::Bytes{4, 0, 255, 0, 0xB8, 0x0B});
        }
    });
    EXPECT_THAT(clock.waits, ElementsAre(20, 20, 20, 20, 20, 15, 15));
}

/// With a second for each answer a pass takes longer than the period, over many interfaces, over
/// one of many addresses, or when a port far behind in a long record grows.
TEST_F(Cycle, noRestartIsMissedOnASlowBmc) {
    const struct {
        const char *machine, *mac; // of the last interface
        int interfaces, addresses; // of that one: IPv6
        unsigned char ports;       // none: as many as the machine has
        std::size_t length;        // of each
    } cases[] = {{"blade", "02:00:00:00:00:01", 100, 0, 0, 0},
                 {"nic", "02:00:00:00:00:12", 100, 0, 0, 0},
                 {"blade", "02:00:00:00:00:01", 1, 250, 0, 0},
                 {"nic", "02:00:00:00:00:10", 40, 4, 16, 53},
                 {"nic", "02:00:00:00:00:12", 5, 4, 16, 345}}; // nobody's
    for (const auto& [machine, mac, interfaces, addresses, ports, length] : cases) {
        SCOPED_TRACE(std::string(machine) + ", interfaces: " + std::to_string(interfaces));
        addInterfaces(interfaces);
        shell("d=tav" + std::to_string(interfaces) + "; ip link set $d address " + mac +
              " up; for i in $(seq " + std::to_string(addresses) +
              "); do ip addr add 2001:db8::$i/64 nodad dev $d; done");
        become(machine);
        if (ports != 0) {
            sim::PortInformation record{.modules = {{}}};
            for (unsigned char port = 1; port <= ports; ++port) {
                record.modules[0].ports.push_back(
                    {{{.activeMac = {2, 0, 0, 0, 0, port}, .specificLength = length}}});
            }
            bmc.fru->image = sim::fruImage(record, 8192);
        }
        setVariable(66, "enabled");
        setVariable(67, "240");
        device.misbehave(sim::parseFault("1+:slow=1000"));
        runThread(8);
        std::chrono::milliseconds reset{std::chrono::milliseconds::max()};
        std::chrono::milliseconds longest{0};
        for (const sim::Exchange& exchange : exchanges) {
            if (exchange.netfn == 6 && exchange.cmd == 0x22) {
                longest = std::max(longest, exchange.sentAt - reset);
                reset = exchange.sentAt;
            }
        }
        EXPECT_GT(longest, std::chrono::seconds(100));
        EXPECT_LE(longest, std::chrono::seconds(160));
        removeInterfaces();
    }
}

/// How long the foreground's thread takes to end after the signal, at worst, and whether the BMC
/// learns of it.
TEST_F(Cycle, aSlowBmcIsToldOfTheEnd) {
    struct {
        const char *machine, *fault;
        int seconds;
        bool told;
    } cases[] = {{"nic", "50+:slow=100", 2, true},     {"nic", "50+:slow=500", 5, true},
                 {"nic", "50+:slow=1000", 10, true},   {"nic", "50+:slow=1200", 10, true},
                 {"plain", "30+:slow=1200", 10, true}, {"nic", "50+:slow=4900", 10, false},
                 {"nic", "47+:silent", 10, false},     {"blade", "66+:slow=500", 5, true}};
    setVariable(66, "enabled");
    addInterfaces(20);
    shell("for i in $(seq 20); do ip link set tav$i address 02:00:00:00:00:01; done");
    for (const auto& one : cases) {
        become(one.machine);
        for (const unsigned long call : {230UL, 300UL, 372UL, 500UL}) {
            inOwnProcess([&] {
                SCOPED_TRACE(std::string(one.machine) + " " + one.fault + " " +
                             std::to_string(call));
                sim::Misbehaviour misbehaviour;
                misbehaviour.faults = {sim::parseFault(one.fault)};
                misbehaviour.raisedSignals = {{call, SIGTERM}};
                device.misbehave(misbehaviour);
                std::chrono::milliseconds signalled{0};
                int reports = 0; // of addresses, behind the signal
                device.observe([&](const sim::Exchange& exchange) {
                    if (signalled.count() == 0 && agentSignals::endRequested()) {
                        signalled = exchange.sentAt;
                    } else if (signalled.count() != 0 && exchange.netfn == sim::netfn::blade) {
                        ++reports;
                    }
                });
                std::binary_semaphore noticed{0};
                clock.onWait = [&] {
                    if (!agentSignals::endRequested()) {
                        return ETIMEDOUT;
                    }
                    clock.pass(-std::chrono::seconds(clock.waits.back())); // it is woken at once
                    noticed.release();
                    return 0;
                };
                {
                    TavServerInfo server(TavServerInfo::run_mode_thread);
                    EXPECT_TRUE(noticed.try_acquire_for(std::chrono::minutes(1)));
                }
                EXPECT_GT(signalled.count(), 0);
                EXPECT_LT(clock.now - signalled, std::chrono::seconds(one.seconds));
                EXPECT_LE(reports, 1);
                EXPECT_EQ(bmc.agentConnection.connected, !one.told);
                EXPECT_EQ(bmc.watchdog.state().running, one.fault == std::string("47+:silent"));
            });
        }
    }
}

TEST_F(Cycle, aTimerThatAnotherTookIsTakenBack) {
    setVariable(66, "enabled");
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
    addInterfaces(1);
    shell("ip addr add 10.0.1.2/24 dev tav1");
    setVariable(66, "enabled");
    runThread(1);
    EXPECT_THAT(log, ElementsAre(errorWith("Error: if entry for tav1 is already existing.(src/"),
                                 errorWith("until tav_init is restarted: Error: if entry")));
    EXPECT_TRUE(clock.waits.empty());
    EXPECT_FALSE(bmc.watchdog.state().running);
    EXPECT_FALSE(bmc.agentConnection.connected);
}

TEST_F(Cycle, aRefusedWaitEndsTheCycleInOrder) {
    clock.onWait = [this] {
        news.release();
        return EINVAL;
    };
    {
        TavServerInfo server(TavServerInfo::run_mode_thread);
        EXPECT_TRUE(news.try_acquire_for(std::chrono::minutes(1)));
    }
    EXPECT_THAT(log, ElementsAre(errorWith("unable to wait for the next pass: Invalid argument"),
                                 errorWith("until tav_init is restarted: unable to wait")));
    EXPECT_EQ(clock.waits.size(), 1U);
}

/// Whatever single exchange goes wrong in whatever way, the cycle ends where it should.
TEST_F(Cycle, survivesEveryFaultAtEveryExchange) {
    addBladesInterface();
    unsigned points = 0;
    for (const auto& [machine, adapters] : {std::pair{"plain", 17U}, {"old-blade", 35U}}) {
        become(machine);
        for (const char* fault :
             {"cc=0xC1", "cc=0xFF", "silent", "length=0", "length=1", "length=2", "length=272",
              "length=273", "foreign-id", "events=5", "type=9", "errno=EIO@open",
              "errno=ENODEV@send", "errno=EIO@wait", "errno=EIO@receive"}) {
            for (const std::string lasting : {":", "+:"}) {
                for (std::size_t number = 1; number == 1 || number <= exchanges.size() + 1;
                     ++number) {
                    SCOPED_TRACE(std::to_string(number) + lasting + fault);
                    bmc.confSpace = {};
                    setVariable(66, "enabled");
                    goWrong(std::to_string(number) + lasting + fault);
                    try {
                        runThread(2);
                        ASSERT_EQ(clock.waits.size(), 2U);
                    } catch (const tavIpmi::TavIpmiError&) {
                        ASSERT_LE(number, 2U) << "only the identity must be known";
                    }
                    // Only a search for adapters that ends in doubt is worth a line.
                    EXPECT_TRUE(log.empty() || number <= adapters) << log[0].text;
                    log.clear();
                    ++points;
                }
            }
        }
    }
    RecordProperty("points", static_cast<int>(points));
}

} // namespace
