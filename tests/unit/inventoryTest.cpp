#include "rig.h"
#include "tavIp.h"

#include <cstring>
#include <sstream>

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
        {"::1", 1},       {"ff02::1", 2},        {"fe80::1", 5},
        {"febf::1", 5},   {"fec0::1", 8},        {"2001:db8::1", 6},
        {"::2", 11},      {"::10.0.0.1", 11},    {"::ffff:1.2.3.4", 10},
        {"::1:0:0:1", 6}, {"::fffe:1.2.3.4", 6}, {"::ff:1.2.3.4", 6}};
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
    HostInterfaces() {
        shell("ip tuntap add tav0 mode tap; ip link set tav0 address 02:00:00:00:00:07 mtu 1400 up;"
              "ip addr add 192.0.2.10/24 broadcast 192.0.2.255 dev tav0;"
              "ip addr add 2001:db8::10/48 nodad dev tav0; ip tuntap add tav1 mode tap;"
              "ip addr add 2001:db8:1::1/64 nodad dev tav1");
        index = ::if_nametoindex("tav0");
    }
    ~HostInterfaces() override { removeInterfaces(); }

    unsigned index = 0; // of tav0
};

/// All that an inventory says of one interface.
std::string described(const TavIp& inventory, unsigned index) {
    std::ostringstream text;
    text << inventory.getName(index) << ' ' << std::string(inventory.getIpv4Address(index)) << ' '
         << std::string(inventory.getIpv4SubnetMask(index)) << ' '
         << std::string(inventory.getIpv4BroadcastAddress(index)) << ' '
         << std::string(inventory.getMacAddress(index)) << ' ' << inventory.getMtu(index)
         << (inventory.isUp(index) ? " up" : "") << (inventory.isRunning(index) ? " running" : "")
         << (inventory.isLoopback(index) ? " loopback" : "")
         << (inventory.supportsIpv6(index) ? " IPv6 #" : " #") << inventory.getIndex(index);
    for (unsigned n = 0; n < inventory.getNumberOfIpv6Addresses(index) + 1; ++n) {
        const TavIpv6AddressInfo info = inventory.getIpv6AddressInfo(index, n);
        text << ' ' << std::string(info.address) << '/' << info.prefixLength << '/' << info.type;
    }
    return text.str();
}

TEST_F(HostInterfaces, areReadFromTheKernel) {
    const TavIp inventory;
    const std::string unknown = " 0.0.0.0 0.0.0.0 0.0.0.0 00:00:00:00:00:00 0 #-1 ::/0/0";
    EXPECT_EQ(inventory.getIfNumber(), 2) << "lo and tav0; tav1 has no IPv4 address";
    EXPECT_EQ(described(inventory, 1), "lo 127.0.0.1 255.0.0.0 0.0.0.0 00:00:00:00:00:00 65536 up "
                                       "running loopback IPv6 #0 ::1/128/1 ::/0/0");
    EXPECT_EQ(described(inventory, index),
              "tav0 192.0.2.10 255.255.255.0 192.0.2.255 02:00:00:00:00:07 1400 up IPv6 #1 "
              "2001:db8::10/48/6 ::/0/0");
    EXPECT_EQ(described(inventory, 0), unknown);
    EXPECT_EQ(described(inventory, ::if_nametoindex("tav1")), unknown);
    shell("ip addr add 2001:db8::11/48 nodad dev lo");
    EXPECT_FALSE(inventory == TavIp()) << "one address more";
    EXPECT_TRUE(TavIp() == inventory) << "one less goes unnoticed";
    shell("ip addr del 2001:db8::11/48 dev lo");
}

TEST_F(HostInterfaces, aLongListIsReadWhole) {
    addInterfaces(40, 2);
    EXPECT_EQ(TavIp().getIfNumber(), 41);
}

TEST_F(HostInterfaces, routingSocketAddsAddressesAndFlagsAreReadAgain) {
    TavIp inventory;
    const std::size_t before = inventory.getNumberOfIpv6Addresses(index);
    inventory.getIPv6AddrData();
    EXPECT_GT(inventory.getNumberOfIpv6Addresses(index), before);
    shell("ip link set tav0 down");
    IfParameters entries = inventory.getIfParameters();
    const auto entry = entries.find(index);
    const std::int32_t place = entry->second.i;
    for (const auto& [listed, up] : {std::pair{-1, true}, {2, true}, {place, false}}) {
        entry->second.i = listed;
        inventory.updateFlags(entry);
        EXPECT_EQ((entry->second.ifFlags & tavIp::iff_up) != 0, up) << listed;
    }
}

template <typename Part>
void append(sim::Bytes& bytes, const Part& part) {
    const auto* const raw = reinterpret_cast<const unsigned char*>(&part);
    bytes.insert(bytes.end(), raw, raw + sizeof part);
}

/// An RTM_NEWADDR message with one attribute of each kind.
sim::Bytes routingMessage(unsigned index) {
    sim::Bytes message;
    append(message, nlmsghdr{24 + 4 * 20 + 8 + 4, RTM_NEWADDR, 0, 0, 0});
    append(message, ifaddrmsg{AF_INET6, 64, 0, 0, index});
    for (const unsigned short type : {IFA_ADDRESS, IFA_LOCAL, IFA_BROADCAST, IFA_ANYCAST}) {
        append(message, rtattr{sizeof(rtattr) + 16, type});
        append(message, ipv6("2001:db8::5").inv);
    }
    append(message, rtattr{sizeof(rtattr) + 4, IFA_LABEL});
    append(message, std::array{'n', 'a', 'm', '\0'});
    append(message, rtattr{sizeof(rtattr), IFA_UNSPEC}); // the smallest there is
    return message;
}

TEST(RoutingAnswer, everyAttributeBecomesAnEntry) {
    sim::Bytes messages = routingMessage(7);
    const sim::Bytes second = routingMessage(8);
    messages.insert(messages.end(), second.begin(), second.end());
    IfParameters entries;
    entries[8].ifName = "";
    int count = 0;
    tavIp::addRoutingAddresses(messages, entries, count);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(entries[7].i, -1);
    EXPECT_EQ(entries[7].ifName + entries[8].ifName, "nonamenam");
    std::vector<int> types;
    for (const TavIpv6AddressInfo& one : entries[7].ipv6AddressInfos) {
        types.push_back(one.type);
        EXPECT_EQ(one.address, one.type == 0 ? IPv6Address() : ipv6("2001:db8::5"));
    }
    EXPECT_THAT(types, testing::ElementsAre(6, 5, 3, 4, 0, 0));
    for (std::size_t length = 17; length < second.size(); ++length) {
        EXPECT_THROW(tavIp::addRoutingAddresses(sim::Data(second).first(length), entries, count),
                     tavIp::TavIpError)
            << length;
    }
}

} // namespace
