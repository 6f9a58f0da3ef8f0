#include "rig.h"
#include "tavBladeInfo.h"
#include "tavIpmiDeviceId.h"

using tavIpmi::TavIpmiDeviceIdData;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* version = "1.40.0a0b0c41";

class Blade : public Rig {
  public:
    static MacAddress portMac(unsigned char port) {
        const unsigned char bytes[] = {2, 0, 0, 0, 0, port};
        return MacAddress(bytes);
    }
};

TEST_F(Blade, identityTextsComeFromTheBmc) {
    goWrong("1:bytes=0203@10");
    TavIpmiDeviceIdData identity;
    EXPECT_EQ(identity.getManufacturerId(), "007ed9");
    EXPECT_EQ(identity.getProductId(), "0302");
    EXPECT_EQ(identity.getVersionInfo(), "IPMIv2 - fw v1.40.0a.0b.0c.41");
    EXPECT_EQ(identity.getVersion(), version);
    EXPECT_EQ(identity.getRevisionNumber(), 0x0140);
    EXPECT_EQ(identity.getDeviceId(), 0x20);
    EXPECT_TRUE(identity.hasBmc());
    EXPECT_FALSE(identity.getGuidInfo()) << "never asked for";
}

TEST_F(Blade, aFailedExchangeIsNotRepeatedForFiveMinutes) {
    device.misbehave(sim::parseFault("1:silent"));
    EXPECT_THROW(TavIpmiDeviceIdData(), tavIpmi::TavIpmiError);
    EXPECT_EQ(TavIpmiDeviceIdData().getVersion(), "0.0.0000");
    EXPECT_EQ(TavIpmiDeviceIdData().getDeviceId(), 0);
    EXPECT_EQ(exchanges.size(), 1U);
    clock.now += std::chrono::seconds(301);
    EXPECT_EQ(TavIpmiDeviceIdData().getVersion(), version);
}

TEST_F(Blade, identityIsFetchedOnceInFiveMinutes) {
    {
        TavIpmiDeviceIdData first;
        EXPECT_EQ(TavIpmiDeviceIdData().getVersion(), "0.0.0000") << "it fetched nothing itself";
        EXPECT_EQ(exchanges.size(), 1U);
        clock.now += std::chrono::seconds(300);
        EXPECT_FALSE(first.update());
        clock.now += std::chrono::seconds(1);
        EXPECT_FALSE(first.update()) << "fetched, but nothing new";
        EXPECT_EQ(exchanges.size(), 2U);
        const TavIpmiDeviceIdData copy(first);
        bmc.mark = 'G';
        clock.now += std::chrono::seconds(301);
        EXPECT_TRUE(first.update());
        TavIpmiDeviceIdData assigned;
        assigned = first;
        EXPECT_TRUE(assigned.isBlade());
        EXPECT_EQ(assigned.getRevisionNumber(), 0x0140);
        EXPECT_EQ(assigned.getManufacturerId() + assigned.getProductId(), "007ed90001");
        EXPECT_EQ(assigned.getVersionInfo(), "IPMIv2 - fw v1.40.0a.0b.0c.47");
        EXPECT_FALSE(copy.isBlade());
        EXPECT_EQ(copy.getVersion(), version);
    }
    const TavIpmiDeviceIdData afterAll;
    EXPECT_EQ(exchanges.size(), 4U) << "the last one took the shared response with it";
}

TEST_F(Blade, onlyAWholeIdentityIsOne) {
    for (unsigned length = 0; length <= 272; ++length) {
        goWrong("1+:length=" + std::to_string(length));
        if (length == 16) {
            EXPECT_NO_THROW(TavIpmiDeviceIdData());
        } else {
            EXPECT_THROW(TavIpmiDeviceIdData(), tavIpmi::TavIpmiError) << length;
        }
        clock.now += std::chrono::seconds(301);
    }
}

TEST_F(Blade, whoIsABladeAndReports) {
    struct {
        const char* machine;
        bool blade, kestrelbox;
        std::size_t identityExchanges;
    } cases[] = {{"plain", false, false, 1},
                 {"blade", true, false, 1},
                 {"old-blade", true, false, 2}, // no marker: the slot number decides
                 {"kestrelbox", true, true, 0}};
    for (const auto& one : cases) {
        become(one.machine);
        exchanges.clear();
        { const TavIpmiDeviceIdData identity; }
        EXPECT_EQ(exchanges.size(), one.identityExchanges) << one.machine;
        const TavBladeInfo info(TavBladeInfo::unknownSlotNumber, true);
        EXPECT_EQ(info.isblade(), one.blade) << one.machine;
        EXPECT_EQ(info.iskestrelbox(), one.kestrelbox) << one.machine;
        EXPECT_EQ(static_cast<bool>(info), one.blade);
        exchanges.clear();
        EXPECT_EQ(info.setOSStatus(kb_system_status_os_running), one.kestrelbox);
        EXPECT_EQ(info.setOSPlatformInfo("a", "b"), one.blade);
        EXPECT_EQ(info.sendIpAddressInfo(IPv4Address(), portMac(1)), one.blade);
        EXPECT_EQ(exchanges.empty(), !one.blade);
    }
    bmc.blade->slotNumber = 8;
    const TavBladeInfo given(8, false);
    EXPECT_TRUE(given.isblade());
    EXPECT_THAT(requests(), testing::Not(testing::Contains("30/18: "))) << "the slot is known";
    EXPECT_TRUE(given.setOSPlatformInfo("a", "b"));
}

/// The release follows a type that was taken, by the older command if need be.
TEST_F(Blade, platformReportsEndWithTheFirstThatFails) {
    const std::tuple<const char*, bool, std::vector<std::string>> cases[] = {
        {"2:slow=0", true, {"30/a8: 02 61 00", "30/b1: 02 62 00"}},
        {"1:cc=0xC0", false, {"30/a8: 02 61 00"}},
        {"1:silent", false, {"30/a8: 02 61 00"}},
        {"1:cc=0xC1", true, {"30/a8: 02 61 00", "30/b0: 00 61 00", "30/b1: 00 62 00"}},
        {"1-2:cc=0xC1", false, {"30/a8: 02 61 00", "30/b0: 00 61 00"}},
        {"2:cc=0xC0", false, {"30/a8: 02 61 00", "30/b1: 02 62 00"}},
        {"1:errno=EIO@send", false, {"30/a8: 02 61 00"}}};
    become("blade");
    for (const auto& [fault, taken, expected] : cases) {
        device.behave();
        const TavBladeInfo info(TavBladeInfo::unknownSlotNumber, true);
        exchanges.clear();
        goWrong(fault);
        EXPECT_EQ(info.setOSPlatformInfo("a", "b"), taken) << fault;
        EXPECT_EQ(requests(), expected) << fault;
    }
}

TEST_F(Blade, serialNumbersTellABladeFromAServer) {
    const std::tuple<const char*, const char*, bool> cases[] = {
        {"A1", "B1", true},   {"A1", "A1 ", false},   {"A", "B1", false},    {"A1", "B", false},
        {"A1", "   ", false}, {nullptr, "B1", false}, {"A1", nullptr, false}};
    for (const auto& [system, enclosure, blade] : cases) {
        sim::SmbiosTable table;
        if (system != nullptr) {
            table.addSystem({.product = "server", .serialNumber = system, .family = {}});
        }
        if (enclosure != nullptr) {
            table.addEnclosure(enclosure);
        }
        table.addEnd();
        sim::showSmbios(table, sim::SmbiosForm::sysfs2, paths);
        EXPECT_EQ(TavBladeInfo(TavBladeInfo::unknownSlotNumber, true).isblade(), blade);
    }
}

TEST_F(Blade, readsTheManagementBladesAddresses) {
    become("blade");
    const TavBladeInfo info(TavBladeInfo::unknownSlotNumber, true);
    const auto& chassis = bmc.blade->chassis;
    EXPECT_EQ(hex({info.getFirstMMBIpV4Address().v, 4}), hex(chassis.addresses[0].address));
    EXPECT_EQ(hex({info.getSecondMMBIpV4Netmask().v, 4}), hex(chassis.addresses[1].netmask));
    EXPECT_EQ(hex(info.getLinkLocalMMBIpV6Address().inv), hex(chassis.addresses[2].address));
    EXPECT_EQ(hex(info.getLinkGlobalMMBIpV6Address().inv), hex(chassis.addresses[3].address));
    EXPECT_EQ(info.getLinkLocalMMBIpV6AddressPrefixLength(), 64U);
    EXPECT_EQ(info.getLinkGlobalMMBIpV6AddressPrefixLength(), 48U);
    EXPECT_TRUE(info.getSecondMMBMacAddress());
    // Identity; capability, 4 + 1 + 4 addresses and masks, second MAC; slot, four ports.
    EXPECT_EQ(exchanges.size(), 1U + 11U + 1U + 4U);
    bmc.blade->ports.resize(40);
    exchanges.clear();
    { const TavBladeInfo many(TavBladeInfo::unknownSlotNumber, true); }
    EXPECT_EQ(exchanges.size(), 1U + 11U + 1U + 31U) << "more are no blade's";
}

/// What a single short answer changes in the start-up's requests: all of its own step, nothing
/// else. Only a command that failed has a second choice, not one that answered "none".
TEST_F(Blade, oneShortAnswerCostsOneStep) {
    become("kestrelbox");
    constexpr std::array<std::size_t, 4> asking = {2, 3, 7, 8}; // for the addresses
    std::array<bool, 4> known{};
    const auto startUp = [&] {
        exchanges.clear();
        const TavBladeInfo info(TavBladeInfo::unknownSlotNumber, true);
        known = {static_cast<bool>(info.getFirstMMBIpV4Address()),
                 static_cast<bool>(info.getSecondMMBIpV4Address()),
                 static_cast<bool>(info.getLinkLocalMMBIpV6Address()),
                 static_cast<bool>(info.getLinkGlobalMMBIpV6Address())};
        return requests();
    };
    const std::vector<std::string> all = startUp();
    ASSERT_EQ(all.size(), 16U);
    struct {
        std::size_t number; // of the exchange
        const char* request;
        std::size_t wholeLength;
        std::vector<std::string> leftOut, added;
    } cases[] = {
        {1, "30/e8: ", 2, {"30/e1: 02 02", "30/e1: 02 03", "30/e3: 02 02", "30/e3: 02 03"}, {}},
        {2, "30/e1: 01 00", 7, {}, {}},
        {3, "30/e1: 01 01", 7, {}, {}},
        {4, "30/e3: 01 00", 7, {}, {}},
        {5, "30/e3: 01 01", 7, {}, {}},
        {6, "30/e3: 02 02", 19, {}, {}},
        {7, "30/e1: 02 02", 19, {}, {}},
        {8, "30/e1: 02 03", 19, {}, {}},
        {9, "30/e3: 02 02", 19, {}, {}},
        {10, "30/e3: 02 03", 19, {}, {}},
        {11, "30/f0: 00", 7, {}, {"30/f0: 01"}},
        {12, "30/18: ", 2, {}, {}},
        {13, "30/75: 01", 9, {"30/75: 02", "30/75: 03", "30/75: 04"}, {}},
        {15, "30/75: 03", 9, {"30/75: 04"}, {}},
    };
    for (const auto& one : cases) {
        std::vector<std::string> expected = all;
        for (const std::string& request : one.leftOut) {
            expected.erase(std::find(expected.rbegin(), expected.rend(), request).base() - 1);
        }
        const auto place = expected.begin() + static_cast<std::ptrdiff_t>(one.number);
        EXPECT_EQ(*(place - 1), one.request);
        expected.insert(place, one.added.begin(), one.added.end());
        for (const std::size_t length : {std::size_t{1}, one.wholeLength - 1, one.wholeLength}) {
            const bool enough = length == one.wholeLength;
            goWrong(std::to_string(one.number) + ":length=" + std::to_string(length));
            EXPECT_EQ(startUp(), enough ? all : expected) << one.request << ", " << length;
            for (std::size_t n = 0; n < asking.size(); ++n) {
                const bool asked = one.number != 1 || n < 2; // IPv6, if there is any
                EXPECT_EQ(known[n], enough || (asked && one.number != asking[n])) << n;
            }
        }
    }
}

TEST_F(Blade, anOldManagementBladeIsAskedInItsOwnWay) {
    become("old-blade");
    const TavBladeInfo info(TavBladeInfo::unknownSlotNumber, true);
    const auto& first = bmc.blade->chassis.addresses[0].address;
    EXPECT_EQ(hex({info.getFirstMMBIpV4Address().v, 4}), hex(first));
    EXPECT_EQ(hex({info.getSecondMMBIpV4Address().v, 4}), hex(first)) << "it knows but one";
    EXPECT_FALSE(info.getLinkGlobalMMBIpV6Address());
    IPv4Address address;
    address = "10.1.2.3";
    EXPECT_TRUE(info.sendIpAddressInfo(address, portMac(4))) << "the MAC list was reversed";
    EXPECT_EQ(hex(bmc.blade->chassis.bladeAddresses.at({4, 0})), "0a 01 02 03");
    EXPECT_TRUE(info.setOSPlatformInfo("Linux", "6.1"));
    EXPECT_EQ(bmc.blade->chassis.platformType, "Linux");
    EXPECT_EQ(bmc.blade->chassis.platformRelease, "6.1");
}

TEST_F(Blade, reportsGoOutAsTheChassisExpectsThem) {
    become("kestrelbox");
    const TavBladeInfo info(TavBladeInfo::unknownSlotNumber, true);
    IPv4Address ipv4;
    ipv4 = "10.1.2.3";
    const unsigned char global[16] = {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    const unsigned char local[16] = {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    exchanges.clear();
    EXPECT_TRUE(info.sendIpAddressInfo(ipv4, portMac(2)));
    EXPECT_TRUE(info.sendIpAddressInfo(IPv6Address(global), portMac(2)));
    EXPECT_TRUE(info.sendIpAddressInfo(IPv6Address(local), portMac(1)));
    EXPECT_TRUE(info.setOSStatus(kb_system_status_os_running));
    EXPECT_THAT(requests(),
                ElementsAre("30/a3: 02 01 0a 01 02 03",
                            "30/e7: 02 01 03 02 20 01 0d b8 00 00 00 00 00 00 00 00 00 00 00 01",
                            "30/e7: 02 00 02 02 fe 80 00 00 00 00 00 00 00 00 00 00 00 00 00 01",
                            "04/02: 04 c0 09 6f 45 8f ff"));
    for (const sim::Exchange& one : exchanges) {
        EXPECT_EQ(one.lun, one.netfn == 0x30 ? 1 : 0);
        EXPECT_EQ(one.slaveAddress, one.netfn == 0x30 ? 0 : 0x24);
    }
    EXPECT_EQ(bmc.blade->chassis.osStatus, 5U);
    goWrong("1-2:errno=EIO@send");
    EXPECT_FALSE(info.sendIpAddressInfo(ipv4, portMac(2)));
    EXPECT_FALSE(info.sendIpAddressInfo(IPv6Address(global), portMac(2)));
    exchanges.clear();
    EXPECT_FALSE(info.sendIpAddressInfo(ipv4, portMac(9)));
    EXPECT_THAT(exchanges, IsEmpty());
    bmc.blade->missingCommands.insert(0xA3);
    EXPECT_TRUE(info.sendIpAddressInfo(ipv4, portMac(2)));
    EXPECT_EQ(requests().back(), "30/e7: 02 01 00 01 0a 01 02 03");
}

TEST_F(Blade, platformNamesAreSentInPieces) {
    become("blade");
    const TavBladeInfo info(TavBladeInfo::unknownSlotNumber, true);
    const std::pair<std::size_t, std::vector<std::size_t>> cases[] = {{0, {2}},
                                                                      {31, {33}},
                                                                      {32, {33, 2}},
                                                                      {40, {33, 10}},
                                                                      {127, {33, 33, 33, 33}},
                                                                      {128, {33, 33, 33, 33}},
                                                                      {200, {33, 33, 33, 33}}};
    for (const auto& [length, pieces] : cases) {
        exchanges.clear();
        EXPECT_TRUE(info.setOSPlatformInfo(std::string(length, 't'), std::string(40, 'r')));
        std::vector<std::size_t> sent;
        for (const sim::Exchange& one : exchanges) {
            sent.push_back(one.request.size());
        }
        EXPECT_EQ(sent.back(), 33U);
        EXPECT_EQ(exchanges.back().request[32], 0);
        sent.pop_back();
        EXPECT_EQ(sent, pieces) << length;
        EXPECT_EQ(bmc.blade->chassis.platformType.size(), std::min<std::size_t>(length, 127));
        EXPECT_EQ(bmc.blade->chassis.platformRelease.size(), 31U);
    }
}

} // namespace
