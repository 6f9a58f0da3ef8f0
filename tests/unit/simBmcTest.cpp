#include "rig.h"

namespace {

using sim::Bytes;

class SimBmc : public Rig {
  public:
    std::string ask(unsigned char netfn, unsigned char cmd, const Bytes& data) {
        return hex(bmc.answer(netfn, 0, cmd, data));
    }
};

TEST_F(SimBmc, refusesWhatIsMalformed) {
    struct {
        unsigned char netfn, cmd;
        Bytes data;
        const char* code;
    } cases[] = {
        {6, 0x77, {}, "c1"},
        {0x30, 0x18, {}, "c1"},
        {6, 0x01, {1}, "c7"},
        {6, 0x22, {}, "80"},
        {6, 0x24, {4, 0, 0, 0, 1}, "c7"},
        {0x2E, 0xE0, {0xD9, 0x7E, 0x00, 1, 0, 0x00}, "c7"},
        {0x2E, 0xE0, {0x01, 0x02, 0x03, 1, 0, 0x00, 0x02}, "cc"},
        {0x2E, 0xE0, {0xD9, 0x7E, 0x00, 2, 0, 0x0A, 0x02, 5, 1, 2, 3, 4}, "c7"},
        {0x2E, 0xE0, {0xD9, 0x7E, 0x00, 2, 0, 0x75, 0x00, 1, 3}, "cc"},
        {0x2E, 0xF5, {0xD9, 0x7E, 0x00, 18}, "c7"},
        {0x2E, 0xF5, {0xD9, 0x7E, 0x00, 18, 2}, "c9"},
        {0x34, 0x40, {0}, "c7"},
        {0x34, 0x40, {1, 0}, "c9"},
        {0x0A, 0x11, {5, 0, 0}, "c7"},
        {0x0A, 0x11, {4, 0, 0, 8}, "cb"},
        {0x0A, 0x11, {5, 0, 0, 241}, "ca"},
        {0x0A, 0x11, {5, 0x2A, 1, 8}, "00 02 00 00"}, // as many as there are
        {0x0A, 0x12, {5, 0x2B, 1, 7, 7}, "c9"},
    };
    EXPECT_EQ(ask(0x34, 0x40, {0, 0}), "c1") << "no adapter";
    bmc.fru.emplace().image.resize(300);
    for (const auto& one : cases) {
        EXPECT_THAT(ask(one.netfn, one.cmd, one.data), testing::StartsWith(one.code))
            << hex(one.data);
    }
}

TEST_F(SimBmc, watchdogCountsDownAndRecordsItsExpiry) {
    EXPECT_EQ(ask(6, 0x24, {4, 0, 0, 0, 100, 0}), "00");
    EXPECT_FALSE(bmc.watchdog.state().running);
    ask(6, 0x22, {});
    clock.now += std::chrono::milliseconds(9900);
    EXPECT_EQ(bmc.watchdog.state().presentCountdown, 1);
    clock.now += std::chrono::milliseconds(100);
    EXPECT_FALSE(bmc.watchdog.state().running);
    EXPECT_EQ(bmc.watchdog.state().expirationFlags, 0x10);
    EXPECT_EQ(ask(6, 0x25, {}), "00 04 00 00 10 64 00 00 00");
    ask(6, 0x24, {4, 0, 0, 0x10, 100, 0});
    EXPECT_EQ(bmc.watchdog.state().expirationFlags, 0);
    ask(6, 0x22, {});
    ask(6, 0x24, {0x44, 0, 0, 0, 50, 0}); // do not stop: counts on, from the new value
    EXPECT_TRUE(bmc.watchdog.state().running);
    ask(6, 0x24, {0x04, 0, 0, 0, 50, 0});
    EXPECT_FALSE(bmc.watchdog.state().running);
}

} // namespace
