#include <gtest/gtest.h>

#include "NerioSwitch/Indexes.h"

#include "NerioSwitchTable/NerioPortGeometry.h"
#include "NerioSwitchTable/NerioRegPrefixUtil.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::ProfileInfo;
using NerioSwitch::TableLayoutEnum;

class PortGeometryTest : public ::testing::Test {
protected:
    /** The layouts that the geometry reads, with another number of tables and pipes. */
    void layoutIs(U16 tables, U16 pipelines, std::vector<U16> const& pipeToTable) {
        for (auto const layout : {TableLayoutEnum::tableLayoutVlan, TableLayoutEnum::tableLayoutL2}) {
            profile->layouts[layout].tables = tables;
            profile->layouts[layout].pipelines = pipelines;
            profile->layouts[layout].pipeToTable = pipeToTable;
        }
    }

    Belmo::Ptr<ProfileInfo> profile = NerioSwitch::profilePreset("default");
};

using PortGeometryDeathTest = PortGeometryTest;

TEST_F(PortGeometryTest, ACopyServesThePortsOfItsPipe) {
    EXPECT_EQ(portRangeOfVlanTable(profile.get(), 0), PortRange(0, 25));
    EXPECT_EQ(portRangeOfVlanTable(profile.get(), 1), PortRange(26, 51));
    EXPECT_EQ(portRangeOfL2Table(profile.get(), 1), PortRange(26, 51));
}

TEST_F(PortGeometryTest, TwoPipesOnOneCopyGiveItTheHullOfBothRanges) {
    layoutIs(1, 2, {0, 0});
    EXPECT_EQ(portRangeOfVlanTable(profile.get(), 0), PortRange(0, 51));
    EXPECT_EQ(portRangeOfL2Table(profile.get(), 0), PortRange(0, 51));
}

TEST_F(PortGeometryTest, PortsInAGapCountForTheCopy) {
    profile->ingressPipesAre({{0, 0, 9}, {1, 10, 19}, {2, 20, 29}});
    layoutIs(2, 3, {0, 1, 0});
    EXPECT_EQ(portRangeOfVlanTable(profile.get(), 0), PortRange(0, 29));
    EXPECT_EQ(portRangeOfVlanTable(profile.get(), 1), PortRange(10, 19));
}

TEST_F(PortGeometryTest, APipeMissingFromTheMapReadsAsPortZero) {
    profile->ingressPipesAre({{0, 4, 9}});
    EXPECT_EQ(portRangeOfVlanTable(profile.get(), 1), PortRange(0, 0));
}

TEST_F(PortGeometryTest, ACopyWithoutAPipeHasAnEmptyRange) {
    EXPECT_EQ(portRangeOfVlanTable(profile.get(), 2), PortRange(51, 0));
}

TEST_F(PortGeometryDeathTest, TheCountOfAnEmptyRangeWrapsAndEndsTheProcess) {
    TablePortRanges ranges;
    auto const [first, last] = portRangeOfVlanTable(profile.get(), 2);
    ranges.portRangeOfTableIs({2, first, last});
    EXPECT_DEATH(ranges.numPortsOfTable(2), "ports <= std::numeric_limits< U8 >::max\\(\\)");
}

TEST_F(PortGeometryTest, TheCountOfAnEmptyRangeOnATwoPortChipIsWrongAndZero) {
    profile->numPorts = 2;
    profile->ingressPipesAre({{0, 0, 1}});
    TablePortRanges ranges;
    auto const [first, last] = portRangeOfVlanTable(profile.get(), 2);
    ranges.portRangeOfTableIs({2, first, last});
    EXPECT_EQ(ranges.numPortsOfTable(2), 0);
}

TEST_F(PortGeometryDeathTest, AProfileWithoutIngressPipesIsAnAssertion) {
    profile->ingressPipesAre({});
    EXPECT_DEATH(portRangeOfVlanTable(profile.get(), 0), "profileInfo->ingressPipeRangeInfos\\(\\)");
    EXPECT_DEATH(portRangeOfL2Table(profile.get(), 0), "profileInfo->ingressPipeRangeInfos\\(\\)");
}

TEST_F(PortGeometryTest, TheCpuCopyIsTheExtraAndLastOne) {
    EXPECT_EQ(numVlanTableCopies(*profile), 3u);
    EXPECT_FALSE(isCpuPipeline(*profile, 1, 3));
    EXPECT_TRUE(isCpuPipeline(*profile, 2, 3));
    EXPECT_FALSE(isCpuPipeline(*profile, 3, 3));
}

TEST_F(PortGeometryTest, WithoutACpuPipelineThereIsNoExtraCopy) {
    profile->hasCpuPipeline = false;
    EXPECT_EQ(numVlanTableCopies(*profile), 2u);
    for (U32 number = 0; number < 5; ++number)
        EXPECT_FALSE(isCpuPipeline(*profile, number, 2));
}

TEST_F(PortGeometryTest, MasksSplitAndJoinOverTheCopies) {
    TablePortRanges ranges;
    ranges.portRangeOfTableIs({0, 0, 25});
    ranges.portRangeOfTableIs({1, 26, 51});
    ranges.portRangeOfTableIs({2, 52, 52});
    U64 const mask = U64{1} << 0 | U64{1} << 25 | U64{1} << 26 | U64{1} << 51 | U64{1} << 52 | U64{1} << 60;
    EXPECT_EQ(ranges.maskOfTable(0, mask), U64{1} << 25 | 1);
    EXPECT_EQ(ranges.maskOfTable(1, mask), U64{1} << 25 | 1);
    EXPECT_EQ(ranges.maskOfTable(2, mask), 1u) << "the CPU copy's field is bit 52";
    U64 joined = 0;
    for (U32 table = 0; table < 3; ++table)
        joined |= ranges.chipMask(table, ranges.maskOfTable(table, mask));
    EXPECT_EQ(joined, mask & ~(U64{1} << 60)) << "a port outside all ranges reaches no copy";
}

TEST_F(PortGeometryTest, AnUnknownCopyHasOnePortAndNoShift) {
    TablePortRanges ranges;
    EXPECT_EQ(ranges.numPortsOfTable(7), 1);
    EXPECT_EQ(ranges.maskOfTable(7, 0b111), 1u);
    EXPECT_EQ(ranges.chipMask(7, 1), 1u);
}

TEST_F(PortGeometryTest, RangesCanBeTakenBack) {
    TablePortRanges ranges;
    ranges.portRangeOfTableIs({0, 0, 25});
    ranges.portRangeOfTableIs({1, 26, 51});
    ranges.portRangeOfTableDel(0);
    EXPECT_EQ(ranges.portRangeOfTable().size(), 1u);
    ranges.portRangeOfTableDelAll();
    EXPECT_TRUE(ranges.portRangeOfTable().empty());
    EXPECT_EQ(Sorn::text(VlanTablePortRange(1, 26, 51)),
              "NerioSwitchTable::VlanTablePortRange(tableId=1,min=26,max=51)");
}

TEST_F(PortGeometryTest, ACopyHolds48Ports) {
    TablePortRanges ranges;
    ranges.portRangeOfTableIs({0, 4, 51});
    EXPECT_EQ(ranges.maskOfTable(0, ~U64{0}), (U64{1} << 48) - 1);
    ranges.portRangeOfTableIs({1, 0, 254});
    EXPECT_EQ(ranges.numPortsOfTable(1), 255);
}

TEST_F(PortGeometryDeathTest, MorePortsThanAFieldOrACountHoldsAreAssertions) {
    TablePortRanges ranges;
    ranges.portRangeOfTableIs({0, 0, 48});
    EXPECT_EQ(ranges.numPortsOfTable(0), 49);
    EXPECT_DEATH(ranges.maskOfTable(0, 0), "ppp <= 48");
    ranges.portRangeOfTableIs({1, 0, 255});
    EXPECT_DEATH(ranges.numPortsOfTable(1), "ports <= std::numeric_limits< U8 >::max\\(\\)");
}

TEST_F(PortGeometryTest, SingleAclPipeModeNeedsACapableChipAndAProcessorForEachPipe) {
    auto& acl = profile->layouts[TableLayoutEnum::tableLayoutAcl];
    EXPECT_TRUE(singleAclPipeMode(*profile));
    acl.processors = 1;
    EXPECT_FALSE(singleAclPipeMode(*profile));
    acl.processors = 2;
    profile->aclPipeModeCapable = false;
    EXPECT_FALSE(singleAclPipeMode(*profile));
}

TEST_F(PortGeometryTest, TheVrfFieldIsTheLogarithmTakenDown) {
    for (auto const& [vrfs, bits] :
         std::vector<std::pair<U32, int>>{{1, 0}, {2, 1}, {3, 1}, {4, 2}, {8, 3}, {31, 4}, {32, 5}}) {
        profile->numVrfs = vrfs;
        EXPECT_EQ(numVrfBits(*profile), bits) << vrfs << " VRFs";
    }
}

TEST_F(PortGeometryTest, VlanRegistersMovedToABlockOfTheirOwnWithVersionThree) {
    for (auto const version : {0u, 2u}) {
        profile->vlanRegVer = version;
        EXPECT_EQ(vlanRegPrefix(*profile, 1), "pipeline[1]/processor/");
        EXPECT_EQ(vlanRegPrefix(*profile, 2), "cpu_pipeline[0]/processor/");
    }
    profile->vlanRegVer = 3;
    EXPECT_EQ(vlanRegPrefix(*profile, 1), "ingress/vlan[1]/");
    EXPECT_EQ(vlanRegPrefix(*profile, 2), "cpu_pipeline[0]/vlan/");
    profile->hasCpuPipeline = false;
    EXPECT_EQ(vlanRegPrefix(*profile, 2), "ingress/vlan[2]/");
}

TEST_F(PortGeometryTest, LayerTwoRegistersFollowNoMuxInRegName) {
    EXPECT_EQ(l2RegPrefix(*profile, 1), "ingress/processor_l2[1]/");
    profile->noMuxInRegName = false;
    EXPECT_EQ(l2RegPrefix(*profile, 1), "pipeline[1]/processor/");
}

TEST(ProfileInfoTest, PortsMissingFromThePipesSitAtPipeZeroPortZero) {
    auto const profile = NerioSwitch::profilePreset("default");
    EXPECT_EQ(profile->portToIngressPipeId(30), 1);
    EXPECT_EQ(profile->ingressPipeOfPort(30).pipePort, 4);
    EXPECT_EQ(profile->ingressPipeOfPort(52), NerioSwitch::PipeInfo{});
    EXPECT_EQ(profile->ingressPipeRangeInfo.at(1).numPorts(), 26);
}

TEST(ProfileInfoTest, AnUnknownLayoutCountsNothing) {
    auto const profile = NerioSwitch::profilePreset("default");
    profile->layouts.erase(TableLayoutEnum::tableLayoutL3);
    EXPECT_EQ(profile->numTables(TableLayoutEnum::tableLayoutL3), 0);
    EXPECT_EQ(profile->numPipelinesOfTable(TableLayoutEnum::tableLayoutL3), 0);
    EXPECT_EQ(profile->numProcessors(TableLayoutEnum::tableLayoutL3), 0);
    EXPECT_EQ(profile->pipeToTableId(1, TableLayoutEnum::tableLayoutL3), 0);
    EXPECT_EQ(profile->pipeToProcessorId(1, TableLayoutEnum::tableLayoutL3), 0);
    EXPECT_EQ(profile->getHardwareTableLayout(TableLayoutEnum::tableLayoutL3), nullptr);
    EXPECT_EQ(profile->pipeToTableId(1, TableLayoutEnum::tableLayoutL2), 1);
    EXPECT_EQ(profile->pipeToTableId(9, TableLayoutEnum::tableLayoutL2), 0) << "a pipe without a record";
    EXPECT_EQ(profile->pipeToProcessorId(1, TableLayoutEnum::tableLayoutL2), 1);
}

TEST(ProfileInfoTest, LayoutsHaveTheirNumbers) {
    EXPECT_EQ(static_cast<U32>(TableLayoutEnum::tableLayoutAcl), 0u);
    EXPECT_EQ(static_cast<U32>(TableLayoutEnum::tableLayoutL2), 5u);
    EXPECT_EQ(static_cast<U32>(TableLayoutEnum::tableLayoutEgress), 8u);
    EXPECT_EQ(static_cast<U32>(TableLayoutEnum::tableLayoutL3), 10u);
    EXPECT_EQ(static_cast<U32>(TableLayoutEnum::tableLayoutVlan), 21u);
}

TEST(ProfileInfoTest, AnUnknownPresetIsNoProfile) {
    EXPECT_FALSE(NerioSwitch::profilePreset("nonesuch"));
}

}  // namespace
