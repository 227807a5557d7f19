#include <array>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

#include "Belmo/Exceptions.h"
#include "NerioSwitch/ProfileInfo.h"
#include "Sorn/Text.h"

#include "FailureText.h"

namespace {

using NerioSwitch::PipeInfo;
using NerioSwitch::PipeRangeInfo;
using NerioSwitch::ProfileHwApi;
using NerioSwitch::TableLayout;
using NerioSwitch::TableLayoutEnum;

TEST(ProfileHwApi, IsOrderedByMajorThenMinor) {
    EXPECT_LT(ProfileHwApi(2, 9), ProfileHwApi(3, 0));
    EXPECT_LT(ProfileHwApi(6, 2), ProfileHwApi(6, 10));
    EXPECT_EQ(ProfileHwApi(6, 2), ProfileHwApi(6, 2));
    EXPECT_GE(ProfileHwApi(6, 2), ProfileHwApi(6, 1));
    EXPECT_EQ(ProfileHwApi(), ProfileHwApi(0, 0));
}

TEST(ProfileHwApi, HashesBothNumbers) {
    EXPECT_NE(ProfileHwApi(6, 2).hash(0), ProfileHwApi(2, 6).hash(0));
    EXPECT_NE(ProfileHwApi(6, 2).hash(0), ProfileHwApi(6, 3).hash(0));
}

TEST(ProfileHwApi, WritesAndReadsItsText) {
    EXPECT_EQ(ProfileHwApi(6, 2).text(), "6.2");
    EXPECT_EQ(ProfileHwApi(65535, 65535).text(), "65535.65535");
    Sorn::CharRange range("6.12,");
    auto const version = Sorn::parse<ProfileHwApi>(range);
    EXPECT_EQ(version.majorVersion(), 6);
    EXPECT_EQ(version.minorVersion(), 12);
    EXPECT_EQ(range.rest(), ",");
}

TEST(ProfileHwApi, RefusesOtherTexts) {
    for (char const* text : {"", "6", "6.", ".2", "6,2", "-6.2"}) {
        Sorn::CharRange range(text);
        EXPECT_THROW(ProfileHwApi::fromText(range), Belmo::DeserializationException) << text;
    }
    Sorn::CharRange range("6.65536");
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { ProfileHwApi::fromText(range); }),
              "65536 > 65535 not allowed");
}

TEST(PipeRangeInfo, CountsItsPorts) {
    EXPECT_EQ((PipeRangeInfo{0, 0, 25}.numPorts()), 26);
    EXPECT_EQ((PipeRangeInfo{1, 52, 52}.numPorts()), 1);
}

TEST(ProfileInfo, KnowsNothingAtFirst) {
    auto const profile = Belmo::make<NerioSwitch::ProfileInfo>();
    EXPECT_EQ(profile->ingressPipeRangeInfos(), 0u);
    EXPECT_EQ(profile->getHardwareTableLayout(TableLayoutEnum::tableLayoutL2), nullptr);
    EXPECT_EQ(profile->numTables(TableLayoutEnum::tableLayoutL2), 0);
    EXPECT_EQ(profile->numPipelinesOfTable(TableLayoutEnum::tableLayoutL2), 0);
    EXPECT_EQ(profile->numProcessors(TableLayoutEnum::tableLayoutL2), 0);
    EXPECT_EQ(profile->pipeToTableId(1, TableLayoutEnum::tableLayoutL2), 0);
    EXPECT_EQ(profile->pipeToProcessorId(1, TableLayoutEnum::tableLayoutL2), 0);
    EXPECT_EQ(profile->ingressPipeOfPort(3), PipeInfo());
}

TEST(ProfileInfo, AnswersFromTheLayoutThatIsAskedFor) {
    auto const profile = Belmo::make<NerioSwitch::ProfileInfo>();
    profile->layouts[TableLayoutEnum::tableLayoutAcl] = {1, 4, 2, 4096, {0, 0, 0, 0}, {0, 0, 1, 1}};
    profile->layouts[TableLayoutEnum::tableLayoutVlan] = {2, 4, 3, 0, {0, 0, 1, 1}, {2, 1, 0, 2}};
    auto const acl = TableLayoutEnum::tableLayoutAcl;
    auto const vlan = TableLayoutEnum::tableLayoutVlan;
    EXPECT_EQ(profile->numTables(acl), 1);
    EXPECT_EQ(profile->numTables(vlan), 2);
    EXPECT_EQ(profile->numPipelinesOfTable(vlan), 4);
    EXPECT_EQ(profile->numProcessors(acl), 2);
    EXPECT_EQ(profile->numProcessors(vlan), 3);
    EXPECT_EQ(profile->pipeToTableId(2, vlan), 1);
    EXPECT_EQ(profile->pipeToTableId(2, acl), 0);
    EXPECT_EQ(profile->pipeToTableId(4, vlan), 0) << "no such pipe";
    EXPECT_EQ(profile->pipeToProcessorId(2, acl), 1);
    EXPECT_EQ(profile->pipeToProcessorId(0, vlan), 2);
    EXPECT_EQ(profile->getHardwareTableLayout(acl)->size, 4096u);
}

TEST(ProfileInfo, KnowsFromItsPipesWherePortsSit) {
    auto const profile = Belmo::make<NerioSwitch::ProfileInfo>();
    profile->ingressPipesAre({{0, 0, 3}, {5, 8, 9}});
    EXPECT_EQ(profile->ingressPipeRangeInfos(), 2u);
    EXPECT_EQ(profile->ingressPipeRangeInfo.at(5), (PipeRangeInfo{5, 8, 9}));
    EXPECT_EQ(profile->portIdToIngressPipe.size(), 6u);
    EXPECT_EQ(profile->ingressPipeOfPort(3), (PipeInfo{3, 0, 3}));
    EXPECT_EQ(profile->ingressPipeOfPort(9), (PipeInfo{9, 5, 1}));
    EXPECT_EQ(profile->portToIngressPipeId(8), 5);
    EXPECT_EQ(profile->portToIngressPipeId(4), 0) << "no such port";
    EXPECT_TRUE(profile->portIdToEgressPipe.empty());
    profile->egressPipesAre({{2, 0, 1}});
    EXPECT_EQ(profile->portIdToEgressPipe.at(1), (PipeInfo{1, 2, 1}));
    profile->ingressPipesAre({{1, 0, 0}});
    EXPECT_EQ(profile->portIdToIngressPipe.size(), 1u) << "what was set before is gone";
    EXPECT_EQ(profile->ingressPipeRangeInfos(), 1u);
}

TEST(ProfilePreset, OfAnUnknownNameIsNull) {
    EXPECT_FALSE(NerioSwitch::profilePreset("none"));
    EXPECT_FALSE(NerioSwitch::profilePreset(""));
}

TEST(ProfilePreset, OfEachCallIsItsOwn) {
    auto const first = NerioSwitch::profilePreset("default");
    first->numPorts = 1;
    EXPECT_EQ(NerioSwitch::profilePreset("default")->numPorts, 52);
}

TEST(ProfilePreset, DefaultHas52PortsOnTwoPipesAndACpu) {
    auto const profile = NerioSwitch::profilePreset("default");
    ASSERT_TRUE(profile);
    EXPECT_EQ(profile->profileName(), "demo");
    EXPECT_EQ(profile->name[1], "demo");
    EXPECT_EQ(profile->numPorts, 52);
    EXPECT_EQ(profile->hwApi, ProfileHwApi(6, 2));
    EXPECT_EQ(profile->vlanRegVer, 7u);
    EXPECT_EQ(profile->aclRegVer, 2u);
    EXPECT_EQ(profile->numVrfs, 4u);
    EXPECT_EQ(profile->numPipelines, 2);
    EXPECT_TRUE(profile->hasCpuPipeline);
    EXPECT_EQ(profile->cpuPortId(), 52);
    EXPECT_TRUE(profile->noMuxInRegName);
    EXPECT_TRUE(profile->floodSetParity);
    EXPECT_TRUE(profile->natProfile);
    EXPECT_TRUE(profile->aclPipeModeCapable);
    EXPECT_EQ(profile->macVlanRows, (std::array<U32, 2>{64, 16}));
    EXPECT_EQ(profile->supportedEntries, (std::map<Belmo::String, U32>{{"floodSet", 128}}));
}

TEST(ProfilePreset, DefaultDividesItsPortsInHalves) {
    auto const profile = NerioSwitch::profilePreset("default");
    NerioSwitch::PipeRangeInfoMap const pipes{{0, {0, 0, 25}}, {1, {1, 26, 51}}};
    EXPECT_EQ(profile->ingressPipeRangeInfo, pipes);
    EXPECT_EQ(profile->egressPipeRangeInfo, pipes);
    NerioSwitch::PipeInfoMap ports;
    for (U16 port = 0; port < 26; ++port) {
        ports[port] = {port, 0, port};
        ports[port + 26u] = {port + 26u, 1, port};
    }
    EXPECT_EQ(profile->portIdToIngressPipe, ports);
    EXPECT_EQ(profile->portIdToEgressPipe, ports);
}

TEST(ProfilePreset, DefaultHasACopyAndAProcessorOfEachTableOnEachPipe) {
    auto const profile = NerioSwitch::profilePreset("default");
    TableLayout const perPipe{2, 2, 2, 0, {0, 1}, {0, 1}};
    TableLayout const acl{2, 2, 2, 4096, {0, 1}, {0, 1}};
    std::map<TableLayoutEnum, TableLayout> const layouts{{TableLayoutEnum{0}, acl},
                                                         {TableLayoutEnum{5}, perPipe},
                                                         {TableLayoutEnum{8}, perPipe},
                                                         {TableLayoutEnum{10}, perPipe},
                                                         {TableLayoutEnum{21}, perPipe}};
    EXPECT_EQ(profile->layouts, layouts);
}

TEST(ProfilePreset, IsThereForEachHardwareGeneration) {
    struct Expected {
        char const* preset;
        ProfileHwApi hwApi;
        U32 vlanRegVer;
        U32 aclRegVer;
        U32 numVrfs;
        bool isOld;
    };
    for (Expected const& expected : {Expected{"api2", {2, 0}, 1, 1, 4, true},
                                     {"api3", {3, 0}, 2, 1, 4, true},
                                     {"api4", {4, 1}, 3, 1, 4, true},
                                     {"api5", {5, 1}, 4, 2, 4, false},
                                     {"api6", {6, 1}, 6, 2, 4, false},
                                     {"api7", {7, 9}, 7, 2, 8, false},
                                     {"api8", {8, 0}, 7, 2, 8, false},
                                     {"api9", {9, 0}, 7, 2, 8, false},
                                     {"api10", {10, 0}, 7, 2, 32, false}}) {
        SCOPED_TRACE(expected.preset);
        auto const profile = NerioSwitch::profilePreset(expected.preset);
        ASSERT_TRUE(profile);
        EXPECT_EQ(profile->hwApi, expected.hwApi);
        EXPECT_EQ(profile->vlanRegVer, expected.vlanRegVer);
        EXPECT_EQ(profile->aclRegVer, expected.aclRegVer);
        EXPECT_EQ(profile->numVrfs, expected.numVrfs);
        EXPECT_EQ(profile->noMuxInRegName, !expected.isOld);
        EXPECT_EQ(profile->floodSetParity, !expected.isOld);
        EXPECT_EQ(profile->natProfile, !expected.isOld);
        EXPECT_EQ(profile->numPorts, 52);
    }
    EXPECT_FALSE(NerioSwitch::profilePreset("api1"));
    EXPECT_FALSE(NerioSwitch::profilePreset("api11"));
}

TEST(ProfilePreset, HasPipesInPairsUpToTheFifthGeneration) {
    auto const paired = NerioSwitch::profilePreset("api5");
    NerioSwitch::PipeRangeInfoMap const pipes{
        {0, {0, 0, 12}}, {1, {1, 13, 25}}, {2, {2, 26, 38}}, {3, {3, 39, 51}}};
    EXPECT_EQ(paired->ingressPipeRangeInfo, pipes);
    EXPECT_EQ(paired->egressPipeRangeInfo, pipes);
    EXPECT_EQ(paired->numPipelines, 4);
    EXPECT_FALSE(paired->aclPipeModeCapable);
    TableLayout const acl{2, 4, 2, 2048, {0, 0, 1, 1}, {0, 0, 1, 1}};
    TableLayout const other{2, 4, 2, 0, {0, 0, 1, 1}, {0, 0, 1, 1}};
    TableLayout const egress{4, 4, 4, 0, {0, 1, 2, 3}, {0, 1, 2, 3}};
    std::map<TableLayoutEnum, TableLayout> const layouts{{TableLayoutEnum::tableLayoutAcl, acl},
                                                         {TableLayoutEnum::tableLayoutL2, other},
                                                         {TableLayoutEnum::tableLayoutEgress, egress},
                                                         {TableLayoutEnum::tableLayoutL3, other},
                                                         {TableLayoutEnum::tableLayoutVlan, other}};
    EXPECT_EQ(paired->layouts, layouts);
    auto const behind = NerioSwitch::profilePreset("api6");
    EXPECT_EQ(behind->layouts, NerioSwitch::profilePreset("default")->layouts);
    EXPECT_TRUE(behind->aclPipeModeCapable);
}

TEST(TableLayoutEnum, HasTheChipsNumbers) {
    EXPECT_EQ(TableLayoutEnum::tableLayoutAcl, TableLayoutEnum{0});
    EXPECT_EQ(TableLayoutEnum::tableLayoutL2, TableLayoutEnum{5});
    EXPECT_EQ(TableLayoutEnum::tableLayoutEgress, TableLayoutEnum{8});
    EXPECT_EQ(TableLayoutEnum::tableLayoutL3, TableLayoutEnum{10});
    EXPECT_EQ(TableLayoutEnum::tableLayoutVlan, TableLayoutEnum{21});
}

}  // namespace
