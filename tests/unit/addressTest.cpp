#include "IPv4Address.h"
#include "IPv6Address.h"
#include "MacAddress.h"

#include <sstream>

#include <gtest/gtest.h>

#include <arpa/inet.h>

namespace {

IPv6Address ipv6(const char* text) {
    in6_addr address{};
    EXPECT_EQ(inet_pton(AF_INET6, text, &address), 1) << text;
    return IPv6Address(address);
}

TEST(IPv4Address, readsTextLeniently) {
    const std::pair<const char*, const char*> cases[] = {{"192.168.1.20", "192.168.1.20"},
                                                         {"300.1.2.3", "44.1.2.3"},
                                                         {"10.1", "10.1.0.0"},
                                                         {"", "0.0.0.0"},
                                                         {"1/2/3/4", "1.2.3.4"},
                                                         {"1. 2 .3.4 tail", "1.2.3.4"},
                                                         {"-1.2.3.4", "255.2.3.4"},
                                                         {"x.2.3.4", "0.0.0.0"},
                                                         {"1..3.4", "1.0.0.0"},
                                                         {"1.2.", "1.2.0.0"}};
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(std::string(IPv4Address(text)), expected) << text;
    }
}

/// The reader stands in for a stream: both must agree on whatever comes along.
TEST(IPv4Address, readsAsAStreamDoes) {
    for (const char* text :
         {"1.2.3.4", "99999999999.1.2.3", "1.-99999999999.2.3", "1.2147483648.5.6", " +7.\t8.9.10",
          "- 1.2.3.4", "1.2.3.", "1 2 3 4", "0x10.1.1.1", "1.2.3.4.5", "256.257.258.259", "1",
          "1.99999999999999999999999.2.3", "+-1.2.3.4", "1.2 .  3.4"}) {
        int number[4] = {};
        char separator = 0;
        std::istringstream(text) >> number[0] >> separator >> number[1] >> separator >> number[2] >>
            separator >> number[3];
        const IPv4Address address{std::string(text)};
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(address.v[i], number[i] & 0xFF) << text << " at " << i;
        }
    }
}

TEST(IPv4Address, viewsAndComparisons) {
    IPv4Address address;
    EXPECT_FALSE(address);
    address = "192.168.1.20";
    EXPECT_TRUE(address);
    EXPECT_EQ(ntohl(address.l), 0xC0A80114U);
    const unsigned char bytes[] = {10, 0, 0, 1};
    IPv4Address other;
    other = bytes;
    EXPECT_NE(address, other);
    EXPECT_EQ(other, IPv4Address("10.0.0.1"));
    other.setOne();
    EXPECT_EQ(std::string(other), "255.255.255.255");
}

TEST(IPv6Address, countsMaskBits) {
    const std::pair<const char*, unsigned> cases[] = {
        {"ffff:ffff:ffff:ffff::", 64},
        {"ffff:ffff:ffff:ffff:8000::", 65},
        {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", 128},
        {"::", 0},
        {"fe00::", 7},
        {"ff00:ff00::", 8},
        {"ff12::", 8}};
    for (const auto& [mask, ones] : cases) {
        EXPECT_EQ(ipv6(mask).getNumberOfLeadingOnes(), ones) << mask;
    }
}

TEST(IPv6Address, keepsBothOrdersInStep) {
    const IPv6Address address = ipv6("2001:db8::1");
    const IPv6Address copy(address); // NOLINT(performance-unnecessary-copy-initialization)
    IPv6Address assigned;
    assigned = copy;
    for (const IPv6Address& one : {address, copy, assigned}) {
        EXPECT_EQ(one.inv[0], 0x20);
        EXPECT_EQ(one.inv[15], 0x01);
        EXPECT_EQ(one.v8[0], 0x01);
        EXPECT_EQ(one.v8[15], 0x20);
        EXPECT_EQ(one, address);
    }
    EXPECT_FALSE(IPv6Address());
    EXPECT_TRUE(address);
}

TEST(IPv6Address, textFollowsTheRecommendation) {
    for (const char* text : {"::", "::1", "2001:db8::1", "2001:db8:0:1:1:1:1:1", "fe80::a",
                             "2001:db8::1:0:0:1", "::ffff:10.0.0.1"}) {
        EXPECT_EQ(std::string(ipv6(text)), text);
    }
}

TEST(MacAddress, textAndComparison) {
    const unsigned char bytes[] = {0x02, 0xAB, 0x00, 0x10, 0xFF, 0x01};
    const MacAddress address(bytes);
    EXPECT_EQ(std::string(address), "02:ab:00:10:ff:01");
    MacAddress other(address);
    EXPECT_EQ(other, address);
    other[5] = 2;
    EXPECT_NE(other, address);
    other = static_cast<unsigned char>(0);
    EXPECT_FALSE(other);
    other[5] = 1;
    EXPECT_TRUE(other);
}

} // namespace
