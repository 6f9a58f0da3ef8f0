#include "rig.h"
#include "tavIpmiEEPROMVersionInfo.h"

using tavIpmi::TavIpmiEEPROMVersionInfo;

namespace {

using EepromVersions = Rig;

std::string shown(const TavIpmiEEPROMVersionInfo& versions, unsigned number) {
    return hex(recordBytes(versions.record(number))).substr(3); // behind the completion code
}

TEST_F(EepromVersions, bothRecordsAreFetchedAtMostEveryTwoMinutes) {
    TavIpmiEEPROMVersionInfo versions;
    EXPECT_THAT(requests(), testing::ElementsAre("2e/f5: d9 7e 00 12 00", "2e/f5: d9 7e 00 12 01"));
    const std::string first = "d9 7e 00 01 01 40 00 00 07 41 03 12 43 34 02 01 05 00 00";
    EXPECT_EQ(shown(versions, 0), first);
    EXPECT_FALSE(versions.update()) << "the same again";
    bmc.eepromVersions.records[1].fill(0x77);
    clock.now += std::chrono::seconds(120);
    EXPECT_FALSE(versions.isUpToDate()) << "not time yet";
    EXPECT_EQ(exchanges.size(), 4U);
    clock.now += std::chrono::seconds(1);
    const TavIpmiEEPROMVersionInfo before(versions);
    EXPECT_TRUE(versions.isUpToDate());
    EXPECT_EQ(shown(versions, 1), "d9 7e 00 77 77 77 77 77 77 77 77 77 77 77 77 77 77 77 77");
    EXPECT_THAT(shown(before, 1), testing::StartsWith("d9 7e 00 00 01 38 "));
    EXPECT_FALSE(versions.isUpToDate());
    EXPECT_EQ(exchanges.size(), 6U);
    // What is not answered stays as it was; a short answer is another one.
    bmc.eepromVersions.records[0].fill(0x77);
    goWrong("1-2:cc=0xC1");
    EXPECT_FALSE(versions.update());
    goWrong("1:silent");
    device.misbehave(sim::parseFault("10:length=6"));
    EXPECT_TRUE(versions.update());
    EXPECT_EQ(shown(versions, 0), first);
    EXPECT_EQ(shown(versions, 1), "d9 7e 00 77 77 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    device.setNodePresent(false);
    EXPECT_THROW(versions.update(), tavIpmi::TavIpmiError);
    EXPECT_THROW(TavIpmiEEPROMVersionInfo(), tavIpmi::TavIpmiError);
}

} // namespace
