#include "Guid.h"
#include "IPv4Address.h"
#include "MacAddress.h"
#include "rig.h"

#include <numeric>
#include <sstream>

#include <arpa/inet.h>

namespace {

/// The reader stands in for a stream: both must agree on whatever comes along.
TEST(IPv4Address, readsAsAStreamDoes) {
    for (const char* text : {"192.168.1.20",
                             "300.1.2.3",
                             "10.1",
                             "",
                             "1/2/3/4",
                             "1. 2 .3.4 tail",
                             "-1.2.3.4",
                             "x.2.3.4",
                             "1..3.4",
                             "1.2.",
                             "99999999999.1.2.3",
                             "1.-99999999999.2.3",
                             "1.2147483648.5.6",
                             " +7.\t8.9.10",
                             "- 1.2.3.4",
                             "1.2.3.",
                             "1 2 3 4",
                             "0x10.1.1.1",
                             "1.2.3.4.5",
                             "256.257.258.259",
                             "1",
                             "1.99999999999999999999999.2.3",
                             "+-1.2.3.4",
                             "1.2 .  3.4"}) {
        int number[4] = {};
        char separator = 0;
        std::istringstream(text) >> number[0] >> separator >> number[1] >> separator >> number[2] >>
            separator >> number[3];
        std::ostringstream expected;
        for (const int one : number) {
            expected << (expected.str().empty() ? "" : ".") << (one & 0xFF);
        }
        EXPECT_EQ(std::string(IPv4Address(text)), expected.str()) << text;
    }
}

TEST(IPv4Address, viewsAndComparisons) {
    IPv4Address address;
    EXPECT_FALSE(address);
    address = "192.168.1.20";
    EXPECT_TRUE(address);
    EXPECT_EQ(ntohl(address.l), 0xC0A80114U);
    IPv4Address other;
    other = htonl(0xC0A80114U);
    EXPECT_EQ(address, other);
    other.setOne();
    EXPECT_NE(address, other);
    EXPECT_EQ(std::string(other), "255.255.255.255");
}

TEST(IPv6Address, countsMaskBits) {
    const std::pair<const char*, unsigned> cases[] = {
        {"ffff:ffff:ffff:ffff::", 64},
        {"ffff:ffff:ffff:ffff:8000::", 65},
        {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", 128},
        {"::", 0},
        {"8000::", 1},
        {"c000::", 2},
        {"e000::", 3},
        {"f000::", 4},
        {"f800::", 5},
        {"fc00::", 6},
        {"fe00::", 7},
        {"ff00:ff00::", 8},
        {"ff12::", 8}};
    for (const auto& [mask, ones] : cases) {
        EXPECT_EQ(ipv6(mask).getNumberOfLeadingOnes(), ones) << mask;
    }
}

TEST(IPv6Address, keepsBothOrdersInStepAndHasTheRecommendedText) {
    for (const char* text : {"::1", "2001:db8::1", "2001:db8:0:1:1:1:1:1", "fe80::a",
                             "2001:db8::1:0:0:1", "::ffff:10.0.0.1"}) {
        const IPv6Address address = ipv6(text);
        IPv6Address assigned;
        EXPECT_EQ(std::string(assigned), "::");
        EXPECT_FALSE(assigned);
        assigned = IPv6Address(address);
        EXPECT_TRUE(assigned);
        EXPECT_EQ(assigned, address);
        EXPECT_EQ(std::string(assigned), text);
        EXPECT_TRUE(
            std::equal(std::begin(assigned.v8), std::end(assigned.v8), std::rbegin(assigned.inv)));
    }
}

TEST(MacAddress, textAndComparison) {
    const unsigned char bytes[] = {0x02, 0xAB, 0x00, 0x10, 0xFF, 0x01};
    const MacAddress address(bytes);
    EXPECT_EQ(std::string(address), "02:ab:00:10:ff:01");
    for (std::size_t place = 0; place < sizeof bytes; ++place) {
        MacAddress other(address);
        EXPECT_EQ(other, address);
        ++other[place];
        EXPECT_NE(other, address);
        other = static_cast<unsigned char>(0);
        EXPECT_FALSE(other);
        ++other[place];
        EXPECT_TRUE(other);
    }
}

TEST(Guid, textKeepsTheOrderOfTheBytes) {
    EXPECT_EQ(std::string(Guid()), "00000000-0000-0000-0000-000000000000");
    unsigned char bytes[16];
    std::iota(std::begin(bytes), std::end(bytes), 0xF8);
    Guid guid;
    guid = Guid(bytes);
    EXPECT_EQ(std::string(guid), "F8F9FAFB-FCFD-FEFF-0001-020304050607");
    EXPECT_TRUE(guid);
    EXPECT_NE(Guid(), guid);
    guid = static_cast<unsigned char>(0);
    EXPECT_EQ(Guid(), guid);
    EXPECT_FALSE(guid);
}

} // namespace
