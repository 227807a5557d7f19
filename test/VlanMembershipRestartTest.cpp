// VLAN membership: what a warm start makes of the rows of all copies.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FailureText.h"
#include "TraceCapture.h"
#include "VlanMembershipFixture.h"

namespace {

using namespace NerioSwitchTable;
using NerioTest::StartMode;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class VlanRestartTest : public NerioTest::VlanFixture {
protected:
    /** A result that versions 4 and above bring back as it was where a processor serves two pipes. */
    static Result whole() {
        return Result()
            .permitMaskIs(U64{1} << 52 | 0xA5C3)
            .learnToCpuIs(false)
            .broadcastToCpuIs(true)
            .vrfBitsIs(2)
            .multicastRouteIs(true)
            .aclEnableIs(0, 3)
            .aclIdIs(0, 15)
            .aclDefaultPermitIs(0, false)
            .aclEnableIs(3, 1)
            .aclIdIs(3, 0)
            .aclDefaultPermitIs(3, true)
            .natEnableIs(2, 1);
    }
    /** Changes a bit of a copy's row behind the driver's back. */
    void flip(U32 vid, U32 copy, U32 bit) {
        auto words = shadowWords(vid, copy);
        words[bit / 32] ^= 1u << bit % 32;
        shadow(copy).store(vid, words);
    }
};

TEST_F(VlanRestartTest, EntriesComeBackWithTheMapsOfEveryVersion) {
    struct {
        U32 version;
        Result result;
    } const cases[] = {
        {4, whole().natIdIs(2, 7)}, {6, whole().natIdIs(2, 7)}, {7, whole().natIngressProfileIdIs(2, 63)}};
    for (auto const& each : cases) {
        SCOPED_TRACE(each.version);
        chipIs(each.version, false);
        start(StartMode::cold);
        table().entryIs(vlan(1), each.result);
        table().entryIs(vlan(4094), Result().permitMaskIs(1));
        takeWrites();
        restart();
        EXPECT_EQ(takeWriteCount(), 0u);
        EXPECT_THAT(table().entries(), SizeIs(2));
        EXPECT_EQ(table().entry(vlan(1)), each.result);
        EXPECT_EQ(table().entry(vlan(4094)), Result().permitMaskIs(1));
        EXPECT_THAT(table().hwInconsistentEntries(), IsEmpty());
    }
}

TEST_F(VlanRestartTest, VersionsBelow4BringNoMapsBack) {
    for (U32 const version : {1u, 2u, 3u}) {
        SCOPED_TRACE(version);
        chipIs(version, false);
        start(StartMode::cold);
        table().entryIs(vlan(9), whole());
        table().entryIs(vlan(10), Result().aclEnableIs(0, 1));
        takeWrites();
        restart();
        EXPECT_EQ(takeWriteCount(), 0u);
        auto expected = whole();
        expected.aclIdDelAll().aclEnableDelAll().aclDefaultPermitDelAll().natEnableDelAll();
        EXPECT_EQ(table().entry(vlan(9)), expected);
        EXPECT_THAT(table().entries(), SizeIs(1)) << "VLAN 10 reads as the default";
        EXPECT_THAT(table().hwInconsistentEntries(), IsEmpty());
    }
}

TEST_F(VlanRestartTest, ADefaultEntryDoesNotComeBack) {
    start();
    table().entryIs(vlan(9), Result());
    EXPECT_TRUE(table().entryHas(vlan(9)));
    restart();
    EXPECT_FALSE(table().entryHas(vlan(9)));
}

TEST_F(VlanRestartTest, FieldsThatAreNotEnabledAreDropped) {
    chipIs(7, false);
    start();
    table().entryIs(vlan(9), Result()
                                 .unicastRouteIs(true)
                                 .aclIdIs(0, 5)
                                 .aclDefaultPermitIs(0, false)
                                 .aclEnableIs(0, 0)
                                 .natIngressProfileIdIs(0, 5)
                                 .natEnableIs(0, 2));
    takeWrites();
    restart();
    EXPECT_EQ(table().entry(vlan(9)), Result().unicastRouteIs(true));
    EXPECT_EQ(takeWriteCount(), 4u) << "and with them they go from the copy that had them";
}

TEST_F(VlanRestartTest, AnAclOfAPipeWithoutOtherFieldsComesBackWithAllThree) {
    chipIs(7, false);
    start();
    table().entryIs(vlan(9), Result().aclEnableIs(1, 2));
    restart();
    EXPECT_EQ(table().entry(vlan(9)), Result().aclEnableIs(1, 2).aclIdIs(1, 0).aclDefaultPermitIs(1, true));
}

TEST_F(VlanRestartTest, WithAProcessorPerPipeNatComesBackAtTheCopysNumberWhereItIsNotWritten) {
    chipIs(7, true);
    start();
    table().entryIs(vlan(9), Result().natEnableIs(2, 1).natIngressProfileIdIs(2, 33).aclEnableIs(1, 3));
    takeWrites();
    restart();
    EXPECT_EQ(table().entry(vlan(9)), Result()
                                          .natEnableIs(1, 1)
                                          .natIngressProfileIdIs(1, 33)
                                          .aclEnableIs(1, 3)
                                          .aclIdIs(1, 0)
                                          .aclDefaultPermitIs(1, true));
    EXPECT_EQ(takeWriteCount(), 4u) << "the start writes copy 1 without NAT";
}

TEST_F(VlanRestartTest, TheFirstCopysMaskIsTakenWithoutAShift) {
    profile().ingressPipesAre({{0, 8, 15}, {1, 0, 7}});
    chipIs(7, false);
    start();
    table().entryIs(vlan(9), Result().permitMaskIs(0xA5C3));
    EXPECT_EQ(shadowWords(9)[0] & 0xFF, 0xA5u);
    EXPECT_EQ(shadowWords(9, 1)[0] & 0xFF, 0xC3u);
    restart();
    EXPECT_EQ(table().entry(vlan(9)).permitMask(), 0xA5u | 0xC3u) << "ports 8 to 15 come back as 0 to 7";
}

TEST_F(VlanRestartTest, AMissingRowInTheSecondCopyMarksTheKeyAndStillYieldsTheFirstCopysMask) {
    profile().hasCpuPipeline = false;
    chipIs(7, false);
    start();
    table().entryIs(vlan(9), Result().permitMaskIs(0xA5C3).unicastRouteIs(true));
    shadow(1).drop(9);
    NerioTest::TraceCapture const trace("NerioTableVlanMembership", 8);
    Sorn::traceLevelIs("NerioTableVlanMembership", 9);
    restart();
    std::vector<std::string> missing;
    std::copy_if(trace.lines().begin(), trace.lines().end(), std::back_inserter(missing),
                 [](auto const& line) { return line.starts_with("table"); });
    EXPECT_THAT(missing, ElementsAre("table 1 index 9 does not exist."));
    EXPECT_EQ(table().entry(vlan(9)), Result().permitMaskIs(0xC3).unicastRouteIs(true));
    EXPECT_TRUE(table().hwInconsistentEntry(vlan(9)));
    EXPECT_THAT(table().hwInconsistentEntries(), SizeIs(1));
    EXPECT_EQ(shadowWords(9, 1)[0] & 0xFF, 0u) << "the start has written what came back";
}

TEST_F(VlanRestartTest, CopiesBehindAMissingRowAreNotRead) {
    chipIs(7, false);
    start();
    table().entryIs(vlan(9), Result().permitMaskIs(U64{1} << 52 | 0xA5C3));
    shadow(1).drop(9);
    restart();
    EXPECT_EQ(table().entry(vlan(9)), Result().permitMaskIs(0xC3)) << "nor is the CPU's";
    EXPECT_TRUE(table().hwInconsistentEntry(vlan(9)));
}

TEST_F(VlanRestartTest, ASingleCopyHasNothingToCompareWith) {
    profile().hasCpuPipeline = false;
    profile().ingressPipesAre({{0, 0, 15}});
    profile().layouts[NerioSwitch::TableLayoutEnum::tableLayoutVlan] = {1, 1, 1, 0, {0}, {0}};
    chipIs(2, false);
    start();
    table().entryIs(vlan(9), Result().permitMaskIs(0xA5C3).unicastRouteIs(true));
    flip(9, 0, 0);  // its valid bit
    restart();
    EXPECT_EQ(table().entry(vlan(9)), Result().permitMaskIs(0xA5C3).unicastRouteIs(true));
    EXPECT_THAT(table().hwInconsistentEntries(), IsEmpty());
}

TEST_F(VlanRestartTest, AMissingRowInTheFirstCopyComesBackWithEveryFlagFalse) {
    chipIs(7, false);
    start();
    table().entryIs(vlan(9), Result().permitMaskIs(0xA5C3));
    shadow(0).drop(9);
    restart();
    EXPECT_EQ(table().entry(vlan(9)), Result().learnToCpuIs(false).multicastJoinToEgressIs(false))
        << "what further copies hold is not read";
    EXPECT_TRUE(table().hwInconsistentEntry(vlan(9)));
}

TEST_F(VlanRestartTest, AVlanOfWhichNoCopyHoldsARowIsNothingToAdopt) {
    chipIs(7, false);
    start();
    table().entryIs(vlan(9), Result().permitMaskIs(0xA5C3));
    table().entryIs(vlan(10), Result().permitMaskIs(0xA5C3));
    for (U32 const copy : {0u, 1u, 2u})
        shadow(copy).drop(9);
    takeWrites();
    restart();
    EXPECT_FALSE(table().entryHas(vlan(9)));
    EXPECT_TRUE(table().hwInconsistentEntry(vlan(9))) << "copies that were not reached count as different";
    EXPECT_EQ(table().entry(vlan(10)), Result().permitMaskIs(0xA5C3));
    EXPECT_EQ(takeWriteCount(), 12u) << "default rows";
}

TEST_F(VlanRestartTest, AFlagThatDiffersMarksTheKeyAndTheFirstCopyHolds) {
    chipIs(7, false);
    start();
    for (U32 vid = 1; vid <= 20; ++vid)
        table().entryIs(vlan(vid), Result().permitMaskIs(0x101));
    for (U32 const bit : {8u, 9u, 10u, 11u, 12u, 13u, 15u, 16u, 17u, 18u})
        flip(bit, 1, bit);
    flip(1, 1, 0);   // a port, which is each copy's own
    flip(2, 1, 27);  // an ACL's enable bit
    flip(3, 2, 1);   // learning of the CPU's copy
    takeWrites();
    restart();
    EXPECT_THAT(table().hwInconsistentEntries(), SizeIs(11));
    for (U32 const vid : {3u, 8u, 13u, 15u, 18u})
        EXPECT_TRUE(table().hwInconsistentEntry(vlan(vid))) << vid;
    EXPECT_EQ(table().entry(vlan(8)), Result().permitMaskIs(0x101));
    EXPECT_EQ(table().entry(vlan(1)), Result().permitMaskIs(1)) << "port 8 was dropped";
    EXPECT_EQ(table().entry(vlan(2)),
              Result().permitMaskIs(0x101).aclEnableIs(2, 1).aclIdIs(2, 0).aclDefaultPermitIs(2, true));
    EXPECT_EQ(takeWriteCount() % 4, 0u);
    EXPECT_TRUE((shadowWords(8, 1)[0] >> 8 & 1) != 0) << "the start has put the copy in line";
}

TEST_F(VlanRestartTest, AnInvalidRowOfAFurtherCopyMarksTheKey) {
    chipIs(2, false);
    start();
    table().entryIs(vlan(9), Result().permitMaskIs(0x101));
    table().entryIs(vlan(10), Result().permitMaskIs(0x101));
    flip(9, 1, 0);
    flip(10, 0, 0);
    restart();
    EXPECT_TRUE(table().hwInconsistentEntry(vlan(9)));
    EXPECT_EQ(table().entry(vlan(9)), Result().permitMaskIs(0x101));
    EXPECT_FALSE(table().hwInconsistentEntry(vlan(10))) << "the first copy's is not looked at";
    EXPECT_EQ(table().entry(vlan(10)), Result().permitMaskIs(0x101));
}

TEST_F(VlanRestartTest, AOnePortCopyIsWrittenShortAndReadInFullWithoutACpuPipeline) {
    profile().hasCpuPipeline = false;
    profile().ingressPipesAre({{0, 0, 7}, {1, 8, 8}});
    chipIs(7, false);
    start();
    table().entryIs(vlan(9), Result().unicastRouteIs(true).aclEnableIs(2, 3).aclIdIs(2, 5));
    EXPECT_EQ(shadowWords(9, 1), row(9, 4, 7, {{1, 1, 1}, {6, 1, 1}, {10, 1, 1}}));
    // Where rows of more ports have an ACL: b is 3, so its enable bits begin at bit 20.
    shadow(1).store(9, row(9, 4, 7, {{1, 1, 1}, {6, 1, 1}, {10, 1, 1}, {12, 4, 6}, {20, 2, 2}, {24, 1, 1}}));
    restart();
    EXPECT_EQ(table().entry(vlan(9)),
              Result().unicastRouteIs(true).aclEnableIs(2, 2).aclIdIs(2, 6).aclDefaultPermitIs(2, true));
}

TEST_F(VlanRestartTest, TheCpusCopyHasNoAclEvenIfItsRowHasBitsThere) {
    chipIs(7, false);
    start();
    table().entryIs(vlan(9), Result().unicastRouteIs(true));
    flip(9, 2, 20);
    restart();
    EXPECT_EQ(table().entry(vlan(9)), Result().unicastRouteIs(true));
    EXPECT_THAT(table().hwInconsistentEntries(), IsEmpty());
}

TEST_F(VlanRestartTest, SoftwareWinsOverARowReadLater) {
    chipIs(7, false);
    start();
    table().entryIs(vlan(9), Result().permitMaskIs(3));
    flip(9, 0, 0);
    takeWrites();
    convertor().syncEntries(0);
    EXPECT_EQ(table().entry(vlan(9)), Result().permitMaskIs(3));
    EXPECT_EQ(takeWriteCount(), 4u);
    EXPECT_THAT(table().hwInconsistentEntries(), IsEmpty());
}

TEST_F(VlanRestartTest, AResetForcesDefaultRowsAndAWarmStartKeepsThemPerCopy) {
    chipIs(7, false);
    start();
    auto const before = shadowWords(9, 1);
    flip(9, 1, 90);  // above all fields
    shadow(0).drop(9);
    auto const kept = shadowWords(9, 1);
    flip(10, 1, 90);
    takeWrites();
    restart();
    EXPECT_EQ(shadowWords(10, 1)[2], 1u << 26) << "a row of no entry stays as it is";
    EXPECT_NE(kept, before);
    restart(StartMode::cold);
    EXPECT_EQ(shadowWords(9, 1), before);
    EXPECT_EQ(shadowWords(10, 1)[2], 0u);
}

TEST_F(VlanRestartTest, ACorruptRowCountsAsMissing) {
    chipIs(7, false);
    start();
    table().entryIs(vlan(9), Result().permitMaskIs(0x101));
    shadow(1).corrupt(9);
    restart();
    EXPECT_TRUE(table().hwInconsistentEntry(vlan(9)));
    EXPECT_EQ(table().entry(vlan(9)), Result().permitMaskIs(1));
}

}  // namespace
