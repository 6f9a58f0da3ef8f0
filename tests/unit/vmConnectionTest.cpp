#include "vmConnection.h"

#include "bladeLink.h"
#include "rig.h"

#include <numeric>

using testing::StartsWith;

namespace {

using sim::Bytes;

/// One end of the connection to a virtual machine; the test is the machine.
class VmConnection : public Rig {
  public:
    static unsigned char checksum(const Bytes& bytes) {
        return static_cast<unsigned char>(-std::accumulate(bytes.begin(), bytes.end(), 0));
    }

    std::string ask(Bytes body) {
        body.push_back(checksum(body));
        Bytes bytes;
        for (const unsigned char byte : body) {
            const bool framing = byte == 0xA0 || byte == 0xA1 || byte == 0xAA;
            bytes.insert(bytes.end(), framing ? 1 : 0, 0xAA);
            bytes.push_back(framing ? byte | 0x10U : byte);
        }
        bytes.push_back(0xA0);
        return hex(connection.receive(bytes));
    }

    /// An OS status event to the chassis: Send Message with a message to 0x24 in it.
    std::string sendEvent(unsigned char responder = sim::managementBladeAddress) {
        Bytes body = {0x20, 0x16, 0x02, 0x04, 0xC0, 0x31, 0x6F, 0x42, 0xFF, 0xFF};
        body.push_back(checksum(body));
        Bytes request = {9, 0x18, 0x34, 0x00, responder, 0x10, checksum({responder, 0x10})};
        request.insert(request.end(), body.begin(), body.end());
        return ask(request);
    }

    sim::MessageChannel channel{
        bmc, [this](const sim::Exchange& exchange) { exchanges.push_back(exchange); }};
    sim::VmConnection connection{channel};
};

TEST_F(VmConnection, dropsWhatIsNoSoundFrame) {
    EXPECT_EQ(hex(sim::VmConnection::greeting()), "ff 01 a1 00 a1 06 a1");
    const Bytes cases[] = {
        {0xA0},
        {0xA1},
        {1, 0x18, 0xA0},
        {1, 0x18, 0x2F, 0xB9, 0xA0},             // checksum
        {1, 0x18, 0x2F, 0xB8, 0xAA, 0xA0},       // ends within an escape
        {1, 0x18, 0xAA, 0xAA, 0x2F, 0xB8, 0xA0}, // escaped escape
        {0xFF, 0x01, 0xA1},
        {0x08, 0x3F, 0xA1},
        Bytes(100'000, 0),
        {1, 0x18, 0x2F, 0xB8, 0xA0}, // the rest of a frame that was too long
    };
    for (const Bytes& bytes : cases) {
        EXPECT_EQ(hex(connection.receive(bytes)), "");
    }
    EXPECT_TRUE(exchanges.empty());
    EXPECT_EQ(ask({1, 0x18, 0x2F}), "01 1c 2f 00 08 ac a0");
}

TEST_F(VmConnection, takesBytesAsTheyComeAndEscapesTheFramingOnes) {
    const std::pair<Bytes, const char*> cases[] = {
        {{0xAA, 0xB0, 0x18, 0x77, 0xD1, 0xA0}, "aa b0 1c 77 c1 0c a0"}, // sequence number 0xA0
        {{0xAA, 0xB1, 0x18, 0x77, 0xD0, 0xA0}, "aa b1 1c 77 c1 0b a0"},
        {{0xAA, 0xBA, 0x18, 0x77, 0xC7, 0xA0}, "aa ba 1c 77 c1 02 a0"},
    };
    for (const auto& [request, expected] : cases) {
        Bytes answer;
        for (const unsigned char byte : request) {
            const Bytes output = connection.receive({&byte, 1});
            answer.insert(answer.end(), output.begin(), output.end());
        }
        EXPECT_EQ(hex(answer), expected);
    }
}

TEST_F(VmConnection, fetchesAnswersFromTheBus) {
    bmc.blade.emplace();
    // Sent; then attention, without interrupts.
    EXPECT_EQ(sendEvent(), "09 1c 34 00 a7 a0 01 a1");
    ASSERT_EQ(exchanges.size(), 2U);
    EXPECT_EQ(exchanges[0].slaveAddress, 0x24);
    EXPECT_EQ(hex(exchanges[0].request), "04 c0 31 6f 42 ff ff");
    EXPECT_EQ(bmc.blade->chassis.statusEvents, 1U);

    EXPECT_EQ(ask({1, 0x18, 0x31}), "01 1c 31 00 01 b1 a0");
    // The last one: attention goes first.
    EXPECT_EQ(ask({2, 0x18, 0x33}), "00 a1 02 1c 33 00 00 16 ca 24 14 02 00 c6 cf a0");
    EXPECT_EQ(ask({3, 0x18, 0x33}), "03 1c 33 80 2e a0");
    EXPECT_EQ(ask({4, 0x18, 0x31}), "04 1c 31 00 00 af a0");

    EXPECT_EQ(ask({5, 0x18, 0x2E, 0x09}), "05 1c 2e 00 b1 a0 05 a1");
    EXPECT_EQ(sendEvent(), "09 1c 34 00 a7 a0 02 a1");
    EXPECT_EQ(ask({6, 0x18, 0x30, 0x01}), "00 a1 06 1c 30 00 ae a0");
    EXPECT_EQ(ask({7, 0x18, 0x31}), "07 1c 31 00 00 ac a0");

    sendEvent();
    EXPECT_EQ(hex(connection.receive(Bytes{0x04, 0xA1})), "00 a1 06 a1") << "reset";
    EXPECT_EQ(ask({8, 0x18, 0x31}), "08 1c 31 00 00 ab a0");
    EXPECT_EQ(ask({9, 0x18, 0x2F}), "09 1c 2f 00 08 a4 a0");
}

TEST_F(VmConnection, refusesWhatIsMalformed) {
    bmc.blade.emplace();
    EXPECT_THAT(sendEvent(0x72), StartsWith("09 1c 34 83 ")) << "nobody";
    const std::pair<Bytes, const char*> cases[] = {
        {{9, 0x18, 0x34, 0, 0x24, 0x10, 0xCC, 0x20, 0x16, 0x02}, "09 1c 34 c7 "},
        // Checksums of head and rest; channel; tracking; a response; LUN 0.
        {{9, 0x18, 0x34, 0, 0x24, 0x10, 0xCD, 0x20, 0x16, 0x02, 0xC8}, "09 1c 34 cc "},
        {{9, 0x18, 0x34, 0, 0x24, 0x10, 0xCC, 0x20, 0x16, 0x02, 0xC9}, "09 1c 34 cc "},
        {{9, 0x18, 0x34, 7, 0x24, 0x10, 0xCC, 0x20, 0x16, 0x02, 0xC8}, "09 1c 34 cc "},
        {{9, 0x18, 0x34, 0x40, 0x24, 0x10, 0xCC, 0x20, 0x16, 0x02, 0xC8}, "09 1c 34 cc "},
        {{9, 0x18, 0x34, 0, 0x24, 0x14, 0xC8, 0x20, 0x16, 0x02, 0xC8}, "09 1c 34 cc "},
        {{9, 0x18, 0x34, 0, 0x24, 0x10, 0xCC, 0x20, 0x14, 0x02, 0xCA}, "09 1c 34 00 "},
        {{9, 0x18, 0x2E}, "09 1c 2e c7 "},
        {{9, 0x18, 0x2E, 0x0D}, "09 1c 2e cc "}, // there is no event message buffer
        {{9, 0x19, 0x2F}, "09 1d 2f c2 "},
        {{9, 0x18, 0x42, 0x05}, "09 1c 42 cc "},
        {{9, 0x18, 0x42}, "09 1c 42 c7 "},
    };
    for (const auto& [request, answer] : cases) {
        EXPECT_THAT(ask(request), StartsWith(answer)) << hex(request);
    }
    EXPECT_FALSE(channel.attention());
}

} // namespace
