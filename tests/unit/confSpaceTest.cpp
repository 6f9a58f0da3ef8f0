#include "rig.h"
#include "tavConfSpaceData.h"

namespace {

using Getter = std::string (TavConfSpaceData::*)() const;
using Setter = bool (TavConfSpaceData::*)(const std::string&);

struct StringVariable {
    std::uint16_t id;
    Getter get;
    Setter set;
};

const StringVariable strings[] = {
    {512, &TavConfSpaceData::getCabinetLocation, &TavConfSpaceData::setCabinetLocation},
    {513, &TavConfSpaceData::getSystemName, &TavConfSpaceData::setSystemName},
    {514, &TavConfSpaceData::getBiosVersion, &TavConfSpaceData::setBiosVersion},
    {515, &TavConfSpaceData::getSystemDescription, &TavConfSpaceData::setSystemDescription},
    {516, &TavConfSpaceData::getSystemContact, &TavConfSpaceData::setSystemContact},
    {517, &TavConfSpaceData::getServerCabinetModel, &TavConfSpaceData::setServerCabinetModel},
    {518, &TavConfSpaceData::getServerChassisModel, &TavConfSpaceData::setServerChassisModel},
    {519, &TavConfSpaceData::getServerSerialNumber, &TavConfSpaceData::setServerSerialNumber},
    {527, &TavConfSpaceData::getServerOperatingSystem, &TavConfSpaceData::setServerOperatingSystem},
    {520, &TavConfSpaceData::getServerVendorName, &TavConfSpaceData::setServerVendorName}};

sim::Bytes bytesOf(const std::string& text) {
    return {text.begin(), text.end()};
}

class ConfSpace : public Rig {
  public:
    ConfSpace() {
        for (const StringVariable& variable : strings) {
            bmc.confSpace.values[variable.id] = bytesOf("value " + std::to_string(variable.id));
        }
    }
};

TEST_F(ConfSpace, readsEveryVariableOnceAndInOrder) {
    bmc.confSpace.values[516] = {};
    bmc.confSpace.values[517] = {'a', 0, 'b'};
    setVariable(522, "192.0.2.7");
    bmc.confSpace.values[523] = sim::Bytes(16, 9);
    bmc.confSpace.values[8960] = {11};
    std::vector<int> expected{512, 513, 514, 515, 516, 517, 518, 519, 527, 520, 522, 523, 524, 525};
    for (const bool blade : {false, true}) {
        exchanges.clear();
        const TavConfSpaceData data(blade);
        EXPECT_TRUE(data.isAvailable());
        EXPECT_EQ(data.getServerVendorName(), "value 520");
        EXPECT_EQ(data.getSystemContact(), "");
        EXPECT_EQ(data.getServerCabinetModel(), std::string("a\0b", 3));
        EXPECT_EQ(std::string(data.getIpAddr_1()), "192.0.2.7");
        EXPECT_FALSE(data.getIpAddr_2()) << "no IPv4 address has 16 bytes";
        EXPECT_EQ(data.getBladeNumber(), blade ? 11U : 0U);
        std::vector<int> order;
        for (const sim::Exchange& one : exchanges) {
            ASSERT_EQ(one.request.size(), 7U);
            order.push_back(one.request[5] + 256 * one.request[6]);
        }
        EXPECT_EQ(order, expected);
        expected.push_back(8960);
    }
    EXPECT_EQ(requests()[0], "2e/e0: d9 7e 00 01 00 00 02");
}

/// A refusal costs its variable, the first one everything; an error of the device costs the rest.
TEST_F(ConfSpace, whatCannotBeReadStaysUnknown) {
    for (const bool refused : {true, false}) {
        for (std::size_t failing = 0; failing < std::size(strings); ++failing) {
            exchanges.clear();
            goWrong(std::to_string(failing + 1) + (refused ? ":cc=0xC1" : ":errno=EIO@send"));
            const TavConfSpaceData data(false);
            const bool goesOn = refused && failing > 0;
            EXPECT_EQ(data.isAvailable(), !refused || failing > 0);
            EXPECT_EQ(exchanges.size(), goesOn ? 14U : failing + 1);
            for (std::size_t i = 0; i < std::size(strings); ++i) {
                const bool known = i < failing || (goesOn && i > failing);
                EXPECT_EQ((data.*strings[i].get)(),
                          known ? "value " + std::to_string(strings[i].id) : "- unknown -");
            }
        }
    }
}

/// Every promise of a length field against every number of bytes received.
TEST_F(ConfSpace, believesALengthOnlyIfTheBytesAreThere) {
    for (std::size_t promised = 0; promised <= 255; ++promised) {
        for (const std::size_t received : {std::size_t{0}, std::size_t{4}, std::size_t{5},
                                           promised + 4, promised + 5, promised + 6}) {
            bmc.confSpace.values[512] = sim::Bytes(promised, 'x');
            goWrong("1+:length=" + std::to_string(received));
            const TavConfSpaceData data(false);
            const bool whole = received >= promised + 5;
            EXPECT_EQ(data.isAvailable(), whole) << promised << " in " << received;
            EXPECT_EQ(data.getCabinetLocation(),
                      whole ? std::string(promised, 'x') : "- unknown -");
        }
    }
}

TEST_F(ConfSpace, stringSettersWriteTheirVariable) {
    TavConfSpaceData data(false);
    // An empty text unnames the system, at first in the mirror only, and writes what is there.
    EXPECT_TRUE(data.setSystemContact(""));
    EXPECT_EQ(data.getSystemContact(), "value 516");
    EXPECT_EQ(bmc.confSpace.values[516], bytesOf("value 516"));
    EXPECT_EQ(data.getSystemName(), "- unknown -");
    EXPECT_EQ(bmc.confSpace.values[513], bytesOf("value 513"));
    EXPECT_TRUE(data.setSystemName(""));
    EXPECT_EQ(bmc.confSpace.values[513], bytesOf("- unknown -"));
    for (const StringVariable& variable : strings) {
        EXPECT_FALSE((data.*variable.set)(std::string(256, 'n')));
        const std::string text(255, 'n');
        EXPECT_TRUE((data.*variable.set)(text));
        EXPECT_EQ((data.*variable.get)(), text);
        EXPECT_EQ(bmc.confSpace.values[variable.id],
                  bytesOf(variable.id == 519 ? "value 520" : text));
    }
}

TEST_F(ConfSpace, numbersGoOutLittleEndian) {
    TavConfSpaceData data(false);
    exchanges.clear();
    EXPECT_TRUE(data.setIpAddr_4(IPv4Address("10.1.2.3")));
    EXPECT_TRUE(data.setSoftWatchdogEnabled(true));
    EXPECT_TRUE(data.setBootWatchdogEnabled(true));
    EXPECT_TRUE(data.setSoftWatchdogTime(300));
    EXPECT_TRUE(data.setBootWatchdogTime(0x0102));
    EXPECT_TRUE(data.setSoftWatchdogBehaviour(TavConfSpaceData::watchdog_behaviour_powercycle));
    EXPECT_TRUE(data.setBootWatchdogBehaviour(TavConfSpaceData::watchdog_behaviour_reset));
    std::string sent;
    for (const std::string& request : requests()) {
        EXPECT_TRUE(request.starts_with("2e/e0: d9 7e 00 02 00 "));
        sent += request.substr(22) + "; ";
    }
    EXPECT_EQ(sent, "0d 02 04 0a 01 02 03; 42 00 01 01; 40 00 01 01; 43 00 02 2c 01; "
                    "41 00 02 02 01; 75 00 01 04; 74 00 01 02; ");
}

TEST_F(ConfSpace, aFailedWriteLeavesTheMirrorAsItWas) {
    TavConfSpaceData data(false);
    for (const char* fault :
         {"1+:cc=0xC9", "1+:silent", "1+:length=0", "1+:errno=EIO@open", "1+:foreign-id"}) {
        goWrong(fault);
        for (const StringVariable& variable : strings) {
            EXPECT_FALSE((data.*variable.set)("other")) << fault;
            EXPECT_EQ((data.*variable.get)(), "value " + std::to_string(variable.id));
        }
        EXPECT_FALSE(data.setIpAddr_1(IPv4Address("10.1.2.3"))) << fault;
        EXPECT_FALSE(data.getIpAddr_1());
        EXPECT_FALSE(data.setSoftWatchdogTime(777)) << fault;
        EXPECT_EQ(data.getSoftWatchdogTime(), 0U);
    }
}

TEST_F(ConfSpace, watchdogVariablesAreReadUpToTheFirstThatFails) {
    const std::pair<std::uint16_t, const char*> variables[] = {
        {64, "enabled"}, {66, "enabled"}, {65, "301"}, {67, "302"}, {116, "2"}, {117, "4"}};
    for (const auto& [id, text] : variables) {
        setVariable(id, text);
    }
    for (unsigned failing = 0; failing <= std::size(variables); ++failing) {
        device.behave();
        TavConfSpaceData data(false);
        goWrong(std::to_string(failing + 1) + ":length=5");
        data.updateWatchdogParameter();
        EXPECT_EQ(data.getBootWatchdogEnabled(), failing > 0);
        EXPECT_EQ(data.getSoftWatchdogEnabled(), failing > 1);
        EXPECT_EQ(data.getBootWatchdogTime(), failing > 2 ? 301 : 0);
        EXPECT_EQ(data.getSoftWatchdogTime(), failing > 3 ? 302 : 0);
        EXPECT_EQ(data.getBootWatchdogBehaviour(), failing > 4 ? 2 : 0);
        EXPECT_EQ(data.getSoftWatchdogBehaviour(), failing > 5 ? 4 : 0);
    }
}

TEST_F(ConfSpace, oddWatchdogValues) {
    TavConfSpaceData data(false);
    bmc.confSpace.values[66] = {2};  // only 1 means enabled
    bmc.confSpace.values[116] = {3}; // no such behaviour: kept, and the reading goes on
    for (const auto& [behaviour, time] : {std::pair<const char*, sim::Bytes>{"2", {9, 0}},
                                          {"4", {9}}}) { // one byte short: the reading ends
        setVariable(117, behaviour);
        bmc.confSpace.values[65] = time;
        data.updateWatchdogParameter();
        EXPECT_FALSE(data.getSoftWatchdogEnabled());
        EXPECT_EQ(data.getBootWatchdogBehaviour(), TavConfSpaceData::watchdog_behaviour_continue);
        EXPECT_EQ(data.getSoftWatchdogBehaviour(), TavConfSpaceData::watchdog_behaviour_reset);
    }
}

TEST_F(ConfSpace, agentConnectionIsChangedOnlyIfTheBmcSaysSo) {
    struct {
        bool connected, wanted;
        const char* statusFault;
        std::vector<std::string> asked; // status, connect, disconnect
    } cases[] = {{true, false, "1:length=5", {"08"}},
                 {false, false, "1:slow=1", {"08"}},
                 {true, false, "1:slow=1", {"08", "02"}},
                 {true, true, "1:slow=1", {"08"}},
                 {false, true, "1:slow=1", {"08", "01"}},
                 // When it cannot be read the last known state counts, which is now: connected.
                 {true, false, "1:length=5", {"08", "02"}}};
    TavConfSpaceData data(false);
    for (const auto& one : cases) {
        bmc.agentConnection.connected = one.connected;
        exchanges.clear();
        goWrong(one.statusFault);
        EXPECT_TRUE(one.wanted ? data.sendAgentConnect() : data.sendAgentDisconnect());
        std::vector<std::string> expected;
        for (const std::string& specifier : one.asked) {
            expected.push_back("2e/02: d9 7e 00 " + specifier);
        }
        EXPECT_EQ(requests(), expected);
        EXPECT_EQ(bmc.agentConnection.connected,
                  one.asked.size() == 1 ? one.connected : one.wanted);
    }
    goWrong("1:errno=EIO@send");
    EXPECT_FALSE(data.sendAgentDisconnect());
}

} // namespace
