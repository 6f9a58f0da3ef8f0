#include "rig.h"

namespace {

using sim::Bytes;
using SimBmc = Rig;

TEST_F(SimBmc, refusesWhatIsMalformed) {
    EXPECT_EQ(hex(bmc.answer(0x34, 0, 0x40, Bytes{0, 0})), "c1") << "no adapter";
    bmc.fru.emplace().image.resize(300);
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
    for (const auto& one : cases) {
        EXPECT_THAT(hex(bmc.answer(one.netfn, 0, one.cmd, one.data)), testing::StartsWith(one.code))
            << hex(one.data);
    }
}

/// Each step's request to the timer and what the timer says of itself after that much more time.
TEST_F(SimBmc, watchdogCountsDownAndRecordsItsExpiry) {
    struct {
        unsigned char cmd;
        Bytes data;
        int milliseconds;
        const char* state; // of Get Watchdog Timer
    } steps[] = {
        {0x24, {4, 0, 0, 0, 100, 0}, 0, "00 04 00 00 00 64 00 64 00"},
        {0x22, {}, 9900, "00 44 00 00 00 64 00 01 00"},
        {0x25, {}, 100, "00 04 00 00 10 64 00 00 00"},
        {0x24, {4, 0, 0, 0x10, 100, 0}, 0, "00 04 00 00 00 64 00 64 00"},
        {0x22, {}, 0, "00 44 00 00 00 64 00 64 00"},
        {0x24, {0x44, 0, 0, 0, 50, 0}, 0, "00 44 00 00 00 32 00 32 00"}, // counts on
        {0x24, {0x04, 0, 0, 0, 50, 0}, 0, "00 04 00 00 00 32 00 32 00"},
    };
    for (const auto& one : steps) {
        EXPECT_THAT(hex(bmc.answer(6, 0, one.cmd, one.data)), testing::StartsWith("00"));
        clock.now += std::chrono::milliseconds(one.milliseconds);
        EXPECT_EQ(hex(bmc.answer(6, 0, 0x25, {})), one.state);
    }
}

} // namespace
