#include "rig.h"
#include "tavIpmiEEPROMVersionInfo.h"

using tavIpmi::TavIpmiEEPROMVersionInfo;
using testing::ElementsAre;

namespace {

using EepromVersions = Rig;

TEST_F(EepromVersions, bothRecordsAreFetchedAtMostEveryTwoMinutes) {
    TavIpmiEEPROMVersionInfo versions;
    EXPECT_THAT(requests(), ElementsAre("2e/f5: d9 7e 00 12 00", "2e/f5: d9 7e 00 12 01"));
    EXPECT_EQ(versions.record(0).MinorFWRevision, 0x40);
    EXPECT_EQ(versions.record(0).SDRR_ID_msb, 2);
    EXPECT_EQ(versions.record(1).MajorBooterRevision, 1);
    EXPECT_FALSE(versions.update()) << "the same again";
    EXPECT_EQ(exchanges.size(), 4U);
    bmc.eepromVersions.records[1][2] = 0x39;
    clock.now += std::chrono::seconds(120);
    EXPECT_FALSE(versions.isUpToDate()) << "not time yet";
    EXPECT_EQ(exchanges.size(), 4U);
    clock.now += std::chrono::seconds(1);
    const TavIpmiEEPROMVersionInfo before(versions);
    EXPECT_TRUE(versions.isUpToDate());
    EXPECT_EQ(versions.record(1).MinorFWRevision, 0x39);
    EXPECT_EQ(before.record(1).MinorFWRevision, 0x38);
    EXPECT_FALSE(versions.isUpToDate());
    EXPECT_EQ(exchanges.size(), 6U);
}

TEST_F(EepromVersions, whatIsNotAnsweredStaysAsItWas) {
    TavIpmiEEPROMVersionInfo versions;
    for (auto& record : bmc.eepromVersions.records) {
        record.fill(0x77);
    }
    device.misbehave("3:cc=0xC1");
    EXPECT_TRUE(versions.update());
    EXPECT_EQ(versions.record(0).status, 0x01);
    EXPECT_EQ(versions.record(1).status, 0x77);
    device.misbehave("5:silent");
    device.misbehave("6:length=6");
    EXPECT_TRUE(versions.update()) << "a short answer is another one";
    EXPECT_EQ(versions.record(0).status, 0x01);
    EXPECT_EQ(versions.record(1).MajorFWRevision, 0x77);
    EXPECT_EQ(versions.record(1).MinorFWRevision, 0) << "not received";
    device.setNodePresent(false);
    EXPECT_THROW(versions.update(), tavIpmi::TavIpmiError);
    EXPECT_THROW(TavIpmiEEPROMVersionInfo(), tavIpmi::TavIpmiError);
}

} // namespace
