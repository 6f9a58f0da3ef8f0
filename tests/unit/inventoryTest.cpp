#include "rig.h"
#include "tavIp.h"

#include <cstring>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

using tavIp::IfParameters;
using tavIp::TavIp;
using tavIp::TavIpv6AddressInfo;

namespace {

TavIpv6AddressInfo info(const char* text) {
    TavIpv6AddressInfo result;
    result.address = ipv6(text);
    return result;
}

IfParameters interfaces(unsigned count, unsigned firstKey = 1) {
    IfParameters result;
    for (unsigned index = 1; index <= count; ++index) {
        tavIp::TavIfParameter& one = result[firstKey + index - 1];
        one.ifName = "eth" + std::to_string(index);
        one.ipv4Address = ("10.0.0." + std::to_string(index)).c_str();
        one.macAddress[5] = static_cast<unsigned char>(index);
        one.ipv6AddressInfos = {info("fe80::1"), info("2001:db8::1")};
    }
    return result;
}

TEST(Inventory, classifiesAddresses) {
    const std::pair<const char*, int> cases[] = {
        {"::1", 1},       {"ff02::1", 2},       {"fe80::1", 5},
        {"febf::1", 5},   {"fec0::1", 8},       {"2001:db8::1", 6},
        {"::2", 11},      {"::10.0.0.1", 11},   {"::ffff:1.2.3.4", 10},
        {"::1:0:0:1", 6}, {"::fffe:1.2.3.4", 6}};
    for (const auto& [text, type] : cases) {
        EXPECT_EQ(tavIp::classify(ipv6(text)), type) << text;
    }
}

TEST(Inventory, reportsInterfacesThatAHostCanHave) {
    IfParameters all = interfaces(2);
    all[3].ifName = "no address";
    all[4] = all[2];
    all[4].ifFlags = tavIp::iff_loopback;
    all[0] = all[0x7FFFFFFF] = all[0x80000000] = all[2];
    EXPECT_THAT(tavIp::reportedInterfaces(all), testing::ElementsAre(1U, 2U, 0x7FFFFFFFU));
}

/// What the change detector makes of identical inventories, and of one change at each place.
TEST(Inventory, comparisonByNumberAndPlaceOfChange) {
    struct {
        unsigned count;
        bool identical;
        std::vector<bool> sameWithChangeAt;
    } cases[] = {{0, true, {}},
                 {1, false, {true}},
                 {2, true, {false, true}},
                 {3, true, {true, false, true}},
                 {4, true, {false, true, false, true}},
                 {5, true, {true, false, true, false, true}}};
    for (const auto& one : cases) {
        EXPECT_EQ(tavIp::sameInterfaces(interfaces(one.count), interfaces(one.count, 7)),
                  one.identical)
            << one.count;
        for (unsigned index = 1; index <= one.count; ++index) {
            IfParameters changed = interfaces(one.count);
            changed[index].ipv4Address = "192.0.2.1";
            EXPECT_EQ(tavIp::sameInterfaces(interfaces(one.count), changed),
                      one.sameWithChangeAt[index - 1])
                << one.count << " with a change at " << index;
        }
    }
}

/// With one interface on each side the detector shows what counts as different, with a change in
/// the middle of three what is still identical.
TEST(Inventory, whatCountsAsAChange) {
    struct {
        void (*change)(tavIp::TavIfParameter&);
        bool different, identical;
    } cases[] = {
        {[](auto& one) { one.ifName = "eth10"; }, true, false},
        {[](auto& one) { one.ipv4SubnetMask.setOne(); }, true, false},
        {[](auto& one) { one.ipv4BroadcastAddress.setOne(); }, true, false},
        {[](auto& one) { one.macAddress[5] = 99; }, true, false},
        {[](auto& one) { one.ipv6AddressInfos[1] = info("2001:db8::2"); }, true, false},
        {[](auto& one) { one.ipv6AddressInfos[1] = one.ipv6AddressInfos[0]; }, true, false},
        {[](auto& one) { one.ipv6AddressInfos.push_back(info("2001:db8::3")); }, true, false},
        {[](auto& one) { one.ipv6AddressInfos.pop_back(); }, false, false},
        {[](auto& one) { std::swap(one.ipv6AddressInfos[0], one.ipv6AddressInfos[1]); }, false,
         true},
        {[](auto& one) { one.ipv6AddressInfos[0].prefixLength = 9; }, false, true},
        {[](auto& one) { one.mtu = one.i = one.ifFlags = 9; }, false, true}};
    for (std::size_t number = 0; number < std::size(cases); ++number) {
        const auto same = [&one = cases[number]](unsigned count, unsigned index) {
            IfParameters changed = interfaces(count);
            one.change(changed[index]);
            return tavIp::sameInterfaces(interfaces(count), changed);
        };
        EXPECT_EQ(same(1, 1), cases[number].different) << number;
        EXPECT_EQ(same(3, 2), cases[number].identical) << number;
    }
}

/// Interfaces of the test's own network namespace.
class HostInterfaces : public Rig {
  public:
    ~HostInterfaces() override { removeInterfaces(); }

    static unsigned indexOf(const std::string& name) { return ::if_nametoindex(name.c_str()); }
};

TEST_F(HostInterfaces, areReadFromTheKernel) {
    shell("ip tuntap add tav0 mode tap; ip link set tav0 address 02:00:00:00:00:07 mtu 1400 up;"
          "ip addr add 192.0.2.10/24 broadcast 192.0.2.255 dev tav0;"
          "ip addr add 2001:db8::10/48 nodad dev tav0; ip tuntap add tav1 mode tap;"
          "ip addr add 2001:db8:1::1/64 nodad dev tav1");
    const TavIp inventory;
    const unsigned index = indexOf("tav0");
    EXPECT_EQ(inventory.getIfNumber(), 2) << "lo and tav0; tav1 has no IPv4 address";
    EXPECT_EQ(inventory.getName(index), "tav0");
    EXPECT_EQ(std::string(inventory.getIpv4Address(index)), "192.0.2.10");
    EXPECT_EQ(std::string(inventory.getIpv4SubnetMask(index)), "255.255.255.0");
    EXPECT_EQ(std::string(inventory.getIpv4BroadcastAddress(index)), "192.0.2.255");
    EXPECT_EQ(std::string(inventory.getMacAddress(index)), "02:00:00:00:00:07");
    EXPECT_EQ(inventory.getMtu(index), 1400);
    EXPECT_TRUE(inventory.isUp(index));
    EXPECT_FALSE(inventory.isLoopback(index));
    EXPECT_TRUE(inventory.isLoopback(1));
    EXPECT_TRUE(inventory.supportsIpv6(index));
    ASSERT_GE(inventory.getNumberOfIpv6Addresses(index), 1U);
    const TavIpv6AddressInfo global = inventory.getIpv6AddressInfo(index, 0);
    EXPECT_EQ(std::string(global.address), "2001:db8::10");
    EXPECT_EQ(global.prefixLength, 48U);
    EXPECT_EQ(global.type, TavIpv6AddressInfo::ipv6_addresstype_global_unicast);
    EXPECT_FALSE(inventory.getIpv6AddressInfo(index, 99));
    for (const unsigned unknown : {0U, indexOf("tav1")}) {
        EXPECT_EQ(inventory.getName(unknown), "");
        EXPECT_FALSE(inventory.getIpv4Address(unknown));
        EXPECT_FALSE(inventory.isUp(unknown));
    }
}

TEST_F(HostInterfaces, aSecondAddressOfOneInterfaceIsAnError) {
    shell("ip tuntap add tav0 mode tap; ip addr add 192.0.2.10/24 dev tav0;"
          "ip addr add 192.0.2.11/24 dev tav0");
    try {
        const TavIp inventory;
        FAIL() << "no error";
    } catch (const tavIp::TavIpError& error) {
        EXPECT_THAT(error.what(), testing::HasSubstr("if entry for tav0 is already existing."));
    }
}

TEST_F(HostInterfaces, aLongListIsReadWhole) {
    shell("for i in $(seq 40); do ip tuntap add tav$i mode tap;"
          "ip addr add 10.1.$i.1/24 dev tav$i; done");
    EXPECT_EQ(TavIp().getIfNumber(), 41);
}

TEST_F(HostInterfaces, routingSocketAddsAddressesAndFlagsAreReadAgain) {
    shell("ip tuntap add tav0 mode tap; ip addr add 192.0.2.10/24 dev tav0; ip link set tav0 up;"
          "ip addr add 2001:db8::10/48 nodad dev tav0");
    TavIp inventory;
    const std::size_t before = inventory.getNumberOfIpv6Addresses(indexOf("tav0"));
    inventory.getIPv6AddrData();
    EXPECT_GT(inventory.getNumberOfIpv6Addresses(indexOf("tav0")), before);
    shell("ip link set tav0 down");
    IfParameters entries = inventory.getIfParameters();
    const auto entry = entries.find(indexOf("tav0"));
    EXPECT_TRUE((entry->second.ifFlags & tavIp::iff_up) != 0);
    inventory.updateFlags(entry);
    EXPECT_FALSE((entry->second.ifFlags & tavIp::iff_up) != 0);
}

template <typename Part>
void append(sim::Bytes& bytes, const Part& part) {
    const auto* const raw = reinterpret_cast<const unsigned char*>(&part);
    bytes.insert(bytes.end(), raw, raw + sizeof part);
}

/// An RTM_NEWADDR message with one attribute of each kind.
sim::Bytes routingMessage(unsigned index) {
    sim::Bytes attributes;
    for (const unsigned short type : {IFA_ADDRESS, IFA_LOCAL, IFA_BROADCAST, IFA_ANYCAST}) {
        append(attributes, rtattr{sizeof(rtattr) + 16, type});
        append(attributes, ipv6("2001:db8::5").inv);
    }
    append(attributes, rtattr{sizeof(rtattr) + 4, IFA_LABEL});
    append(attributes, std::array{'n', 'a', 'm', '\0'});
    sim::Bytes message;
    append(message,
           nlmsghdr{static_cast<std::uint32_t>(24 + attributes.size()), RTM_NEWADDR, 0, 0, 0});
    append(message, ifaddrmsg{AF_INET6, 64, 0, 0, index});
    message.insert(message.end(), attributes.begin(), attributes.end());
    return message;
}

TEST(RoutingAnswer, everyAttributeBecomesAnEntry) {
    IfParameters entries;
    int count = 0;
    tavIp::addRoutingAddresses(routingMessage(7), entries, count);
    EXPECT_EQ(count, 1);
    ASSERT_EQ(entries.count(7), 1U);
    EXPECT_EQ(entries[7].i, -1);
    EXPECT_EQ(entries[7].ifName, "noname");
    std::vector<int> types;
    for (const TavIpv6AddressInfo& one : entries[7].ipv6AddressInfos) {
        types.push_back(one.type);
        EXPECT_EQ(static_cast<bool>(one), one.type != 0);
    }
    EXPECT_THAT(types, testing::ElementsAre(6, 5, 3, 4, 0));
    entries[8].ifName = "";
    tavIp::addRoutingAddresses(routingMessage(8), entries, count);
    EXPECT_EQ(entries[8].ifName, "nam");
}

/// Cut anywhere, or with any byte changed, a message may be refused but is never read past.
TEST(RoutingAnswer, survivesEveryCutAndEveryFlip) {
    const sim::Bytes whole = routingMessage(7);
    const auto parse = [](const sim::Bytes& bytes) {
        IfParameters entries;
        int count = 0;
        try {
            tavIp::addRoutingAddresses(bytes, entries, count);
        } catch (const tavIp::TavIpError& error) {
            EXPECT_THAT(error.what(), testing::HasSubstr("buffer length error: "));
            return false;
        }
        EXPECT_LE(entries.size(), 2U);
        return true;
    };
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_EQ(parse({whole.begin(), whole.begin() + static_cast<long>(length)}), length <= 16)
            << length;
        for (const unsigned char value : sim::Bytes{0x00, 0x01, 0x7F, 0xFF}) {
            sim::Bytes flipped = whole;
            flipped[length] = value;
            parse(flipped);
        }
    }
}

} // namespace
