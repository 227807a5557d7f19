// VLAN membership: values, and rows of every version.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FailureText.h"
#include "TraceCapture.h"
#include "VlanMembershipFixture.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::PipeId;
using NerioTest::packed;
using NerioTest::StartMode;
using testing::ElementsAre;
using testing::Pair;
using testing::SizeIs;

constexpr char const* badPipe =
    "NerioSwitch::PipeId::value < NerioSwitch::PipeId::min or > NerioSwitch::PipeId::null not allowed";

TEST(VlanMembershipValueTest, DefaultsLearnAndForwardJoins) {
    VlanMembershipResult const result;
    EXPECT_EQ(VlanMembershipKey().vid().value(), 1);
    EXPECT_TRUE(result.learnToCpu());
    EXPECT_TRUE(result.multicastJoinToEgress());
    EXPECT_FALSE(result.unknownMulticastToCpu() || result.multicastJoinToCpu() || result.broadcastToCpu() ||
                 result.unknownDaToCpu() || result.unicastRoute() || result.multicastRoute());
    EXPECT_EQ(result.permitMask(), 0u);
    EXPECT_EQ(result.vrfBits(), 0);
    EXPECT_FALSE(result);
    EXPECT_TRUE(VlanMembershipResult().learnToCpuIs(false));
    EXPECT_TRUE(VlanMembershipResult().natEnableIs(0, 0)) << "a pipe with a value of 0 is not one without";
}

TEST(VlanMembershipValueTest, MapsAreSetDroppedAndReadByPipe) {
    VlanMembershipResult result;
    result.aclIdIs(3, 7).aclIdIs(4, 8).natEnableIs(2, 1).aclDefaultPermitIs(1, true);
    EXPECT_EQ(result.aclId(3).value(), 7);
    EXPECT_EQ(result.aclId(5), NerioSwitch::HwAclId());
    EXPECT_EQ(result.natEnable(2), 1);
    EXPECT_TRUE(result.aclDefaultPermit(1));
    EXPECT_FALSE(result.aclDefaultPermit(2));
    EXPECT_THAT(result.aclIdDel(3).aclId(), SizeIs(1));
    EXPECT_THAT(result.aclIdDelAll().aclId(), SizeIs(0));
    result.natIdIs(0, 3).natIngressProfileIdIs(0, 64).aclEnableIs(0, 1);
    result.natEnableDelAll().natIdDel(0).natIngressProfileIdDelAll().aclEnableDel(0).aclDefaultPermitDel(1);
    EXPECT_EQ(result, VlanMembershipResult());
}

TEST(VlanMembershipValueTest, IndexesHaveTheirRanges) {
    EXPECT_EQ(
        failureOf<Belmo::RangeException>([] { NerioSwitch::HwAclId{17}; }),
        "NerioSwitch::HwAclId::value < NerioSwitch::HwAclId::min or > NerioSwitch::HwAclId::invalid not "
        "allowed");
    EXPECT_EQ(failureOf<Belmo::RangeException>([] { NerioSwitch::NatProfileId{65}; }),
              "NerioSwitch::NatProfileId::value < NerioSwitch::NatProfileId::reserved or > "
              "NerioSwitch::NatProfileId::null not allowed");
    EXPECT_EQ(failureOf<Belmo::RangeException>([] { PipeId{18}; }), badPipe);
    EXPECT_EQ(failureOf<Belmo::RangeException>([] { Bridging::VlanId{0}; }),
              "Bridging::VlanId::value < 1 or > 4094 not allowed");
}

TEST(VlanMembershipValueTest, TextHasTheMapsThatHoldAny) {
    EXPECT_EQ(VlanMembershipResult().resultString(),
              "permitMask:0x000000000000 learnToCpu:true unknownMcastToCpu:false mcastJoinToCpu:false "
              "bcastToCpu:false unknownDaToCpu:false mcastJoinToEgress:true vrfBits:0x0 unicastRoute:false "
              "multicastRoute:false ");
    VlanMembershipResult result;
    result.permitMaskIs(0x10000000000003).vrfBitsIs(10).natEnableIs(2, 1).natIdIs(2, 4);
    result.aclIdIs(0, 3).aclIdIs(11, 15).aclEnableIs(0, 2).aclEnableIs(1, 0).aclDefaultPermitIs(0, true);
    result.natIngressProfileIdIs(3, 63);
    EXPECT_EQ(
        result.resultString(),
        "permitMask:0x10000000000003 learnToCpu:true unknownMcastToCpu:false mcastJoinToCpu:false "
        "bcastToCpu:false unknownDaToCpu:false mcastJoinToEgress:true vrfBits:0xa unicastRoute:false "
        "multicastRoute:false  AclId:  ( 0,  3) (11, 15) AclEnable:  ( 0, true) ( 1, false) "
        "AclDefaultPermit:  ( 0, true) NatId:  ( 2,  4) NatIngressProfileId:  ( 3, 63) NatEnable:  ( 2, "
        "true)");
}

TEST(VlanMembershipValueDeathTest, AResultIsNotReadFromAText) {
    EXPECT_DEATH(
        {
            Sorn::CharRange range("NerioSwitchTable::VlanMembershipResult()");
            VlanMembershipResult const result(range);
        },
        "\"No String constructor for VlanMembershipResult - has collection\" == nullptr");
}

class VlanRowTest : public NerioTest::VlanFixture {};

TEST_F(VlanRowTest, VersionsUpToTwoHaveAValidBitAndTwoDataWords) {
    for (U32 const version : {0u, 1u, 2u}) {
        SCOPED_TRACE(version);
        chipIs(version, false);
        start(StartMode::cold);
        EXPECT_EQ(shadowWords(7), row(7, 3, 15, {{0, 1, 1}, {9, 1, 1}, {14, 1, 1}}));
        table().entryIs(vlan(4094), full());
        EXPECT_EQ(
            shadowWords(4094),
            row(4094, 3, 15, {{0, 1, 1}, {1, 8, 0xC3}, {10, 4, 15}, {16, 2, 2}, {18, 1, 1}, {19, 1, 1}}));
        EXPECT_EQ(
            shadowWords(4094, 1),
            row(4094, 3, 15, {{0, 1, 1}, {1, 8, 0xA5}, {10, 4, 15}, {16, 2, 2}, {18, 1, 1}, {19, 1, 1}}));
        EXPECT_EQ(shadowWords(4094, 2),
                  row(4094, 3, 8, {{0, 1, 1}, {1, 1, 1}, {3, 4, 15}, {9, 2, 2}, {11, 1, 1}, {12, 1, 1}}));
    }
}

/** The CPU's copy and rows of a single port have none. */
TEST_F(VlanRowTest, AclsAreThoseOfThePipesThatRowsHaveFieldsFor) {
    auto const pipesOf = [&](U32 version, bool singleAclPipe) {
        chipIs(version, singleAclPipe);
        std::vector<int> pipes;
        for (auto const pipe : vlanAclPipes(profile()).pipes)
            pipes.push_back(pipe.value());
        return pipes;
    };
    for (U32 const version : {0u, 2u, 3u})
        EXPECT_THAT(pipesOf(version, false), SizeIs(0)) << version;
    for (U32 const version : {4u, 5u, 6u, 7u}) {
        EXPECT_THAT(pipesOf(version, false), ElementsAre(0, 1, 2, 3)) << version;
        EXPECT_EQ(vlanAclPipes(profile()).enable, version < 6 ? 15 : 3) << version;
        EXPECT_THAT(pipesOf(version, true), ElementsAre(0, 1)) << version;
    }
    profile().ingressPipesAre({{0, 0, 14}, {1, 15, 15}});
    EXPECT_THAT(pipesOf(7, true), ElementsAre(0));
}

TEST_F(VlanRowTest, Version3HasAConstantWhereOthersHaveAnAcl) {
    chipIs(3, false);
    start();
    EXPECT_EQ(shadowWords(7), row(7, 4, 14, {{8, 1, 1}, {13, 1, 1}, {27, 1, 1}}));
    EXPECT_EQ(shadowWords(7, 2), row(7, 4, 7, {{1, 1, 1}, {6, 1, 1}, {20, 1, 1}}));
    table().entryIs(vlan(7), full());
    auto const expected =
        row(7, 4, 14, {{0, 8, 0xC3}, {9, 4, 15}, {15, 2, 2}, {17, 1, 1}, {18, 1, 1}, {27, 1, 1}});
    EXPECT_EQ(shadowWords(7), expected);
    auto const withoutMaps =
        full().aclIdDelAll().aclEnableDelAll().aclDefaultPermitDelAll().natEnableDelAll();
    takeWrites();
    table().entryIs(vlan(7), withoutMaps);
    EXPECT_EQ(takeWriteCount(), 0u) << "maps have no effect on the row";
    EXPECT_EQ(shadowWords(7), expected);
}

TEST_F(VlanRowTest, Versions4And5HaveFourEnableBitsAndANatId) {
    for (U32 const version : {4u, 5u}) {
        SCOPED_TRACE(version);
        chipIs(version, true);
        start(StartMode::cold);
        table().entryIs(vlan(7), full());
        EXPECT_EQ(shadowWords(7), row(7, 4, 14,
                                      {{0, 8, 0xC3},
                                       {9, 4, 15},
                                       {15, 2, 2},
                                       {17, 2, 3},
                                       {19, 4, 9},
                                       {23, 4, 5},
                                       {27, 1, 0},
                                       {28, 3, 5},
                                       {31, 1, 1}}));
        chipIs(version, false);
        start(StartMode::cold);
        table().entryIs(vlan(7), full());
        EXPECT_EQ(shadowWords(7, 1), row(7, 4, 14,
                                         {{0, 8, 0xA5},
                                          {9, 4, 15},
                                          {15, 2, 2},
                                          {17, 2, 3},
                                          {19, 4, 11},
                                          {23, 4, 12},
                                          {27, 4, 7},
                                          {31, 4, 8},
                                          {35, 1, 0},
                                          {36, 1, 1},
                                          {37, 3, 7},
                                          {40, 1, 1}}));
    }
}

TEST_F(VlanRowTest, Version6HasTwoEnableBitsAndANatId) {
    chipIs(6, true);
    start();
    table().entryIs(vlan(7), full());
    EXPECT_EQ(shadowWords(7), row(7, 4, 14,
                                  {{0, 8, 0xC3},
                                   {9, 4, 15},
                                   {15, 2, 2},
                                   {17, 2, 3},
                                   {19, 4, 9},
                                   {23, 2, 1},
                                   {25, 1, 0},
                                   {26, 3, 5},
                                   {29, 1, 1}}));
    auto const other = full().natIngressProfileIdDelAll();
    takeWrites();
    table().entryIs(vlan(7), other);
    EXPECT_EQ(takeWriteCount(), 0u) << "a NAT profile has no effect below version 7";
}

TEST_F(VlanRowTest, VersionsFrom7OnHaveANatProfile) {
    for (U32 const version : {7u, 8u}) {
        SCOPED_TRACE(version);
        chipIs(version, false);
        start(StartMode::cold);
        table().entryIs(vlan(7), full());
        EXPECT_EQ(shadowWords(7), row(7, 4, 14,
                                      {{0, 8, 0xC3},
                                       {9, 4, 15},
                                       {15, 2, 2},
                                       {17, 2, 3},
                                       {19, 4, 9},
                                       {23, 4, 10},
                                       {27, 2, 1},
                                       {29, 2, 2},
                                       {31, 1, 0},
                                       {32, 1, 1},
                                       {33, 6, 33},
                                       {39, 1, 1}}));
        auto const other = full().natIdDelAll();
        takeWrites();
        table().entryIs(vlan(7), other);
        EXPECT_EQ(takeWriteCount(), 0u) << "a NAT id has no effect from version 7 on";
    }
}

TEST_F(VlanRowTest, ADefaultRowOfSharedProcessorsPermitsByDefaultAtBothPipes) {
    chipIs(7, false);
    start();
    EXPECT_EQ(shadowWords(7), row(7, 4, 14, {{8, 1, 1}, {13, 1, 1}, {31, 2, 3}}));
    EXPECT_EQ(shadowWords(7)[0] >> 14 & 1, 0u) << "four other bits are set, one of them in word 1";
    chipIs(7, true);
    start(StartMode::cold);
    EXPECT_EQ(shadowWords(7), row(7, 4, 14, {{8, 1, 1}, {13, 1, 1}, {25, 1, 1}}));
    EXPECT_EQ(shadowWords(7)[0] >> 14 & 1, 1u) << "and here three";
}

TEST_F(VlanRowTest, NatFieldsAreReadAtTwiceTheCopysNumberWhateverTheAclFieldsAreReadAt) {
    chipIs(7, true);
    start();
    table().entryIs(vlan(7), full());
    EXPECT_EQ(shadowWords(7, 1), row(7, 4, 14,
                                     {{0, 8, 0xA5},
                                      {9, 4, 15},
                                      {15, 2, 2},
                                      {17, 2, 3},
                                      {19, 4, 10},
                                      {23, 2, 2},
                                      {25, 1, 1},
                                      {26, 6, 35},
                                      {32, 1, 1}}))
        << "the ACL of pipe 1, and the NAT profile of pipe 2";
}

TEST_F(VlanRowTest, TheCpuCopyTakesTheCpuPortsBitAndEndsBeforeTheAcl) {
    chipIs(7, false);
    start();
    table().entryIs(vlan(7), full());
    EXPECT_EQ(shadowWords(7, 2), row(7, 4, 7, {{0, 1, 1}, {2, 4, 15}, {8, 2, 2}, {10, 2, 3}}));
    table().entryIs(vlan(7), full().permitMaskIs(~(U64{1} << 52)));
    EXPECT_EQ(shadowWords(7, 2), row(7, 4, 7, {{2, 4, 15}, {8, 2, 2}, {10, 2, 3}}));
}

TEST_F(VlanRowTest, APortOutsideACopysRangeDoesNotReachIt) {
    chipIs(7, false);
    profile().numPorts = 24;  // ports 16 to 23 are in no pipe
    start();
    table().entryIs(vlan(7), VlanMembershipResult().permitMaskIs(0x100));
    EXPECT_EQ(shadowWords(7)[0] & 0xFF, 0u);
    EXPECT_EQ(shadowWords(7, 1)[0] & 0xFF, 1u);
    takeWrites();
    table().entryIs(vlan(7), VlanMembershipResult().permitMaskIs(0xFF0100));
    EXPECT_EQ(takeWriteCount(), 0u);
}

TEST_F(VlanRowTest, TheVrfFieldIsAsWideAsTheVrfCountNeedsFromVersion4On) {
    for (auto const& [vrfs, bits] : {std::pair(1u, 0u), {3u, 1u}, {4u, 2u}, {32u, 5u}, {0u, 0u}}) {
        SCOPED_TRACE(vrfs);
        profile().numVrfs = vrfs;
        chipIs(6, true);
        start(StartMode::cold);
        table().entryIs(vlan(7), VlanMembershipResult().vrfBitsIs(0xFF).unicastRouteIs(true));
        EXPECT_EQ(shadowWords(7),
                  row(7, 4, 14,
                      {{8, 1, 1}, {13, 1, 1}, {15, bits, ~U64{0}}, {15 + bits, 1, 1}, {23 + bits, 1, 1}}));
        chipIs(2, true);
        start(StartMode::cold);
        table().entryIs(vlan(7), VlanMembershipResult().vrfBitsIs(0xFF));
        EXPECT_EQ(shadowWords(7)[0] >> 16, 3u) << "two bits before";
    }
}

TEST_F(VlanRowTest, TheVrfFieldOfVersion3HasTwoBitsWhateverTheVrfCount) {
    profile().numVrfs = 32;
    auto const rowOfVersion = [this](U32 version) {
        chipIs(version, true);
        start(StartMode::cold);
        table().entryIs(vlan(7), VlanMembershipResult().vrfBitsIs(0xFF));
        return shadowWords(7);
    };
    EXPECT_EQ(rowOfVersion(3), row(7, 4, 14, {{8, 1, 1}, {13, 1, 1}, {15, 2, 3}, {27, 1, 1}}));
    EXPECT_EQ(rowOfVersion(4), row(7, 4, 14, {{8, 1, 1}, {13, 1, 1}, {15, 5, 31}, {30, 1, 1}}));
}

TEST_F(VlanRowTest, MasksOfChipsOfManyPorts) {
    for (U16 const ports : {U16{16}, U16{31}, U16{32}, U16{52}}) {
        SCOPED_TRACE(ports);
        auto const middle = static_cast<U16>(ports / 2);
        profile().numPorts = ports;
        profile().ingressPipesAre(
            {{0, 0, static_cast<U16>(middle - 1)}, {1, middle, static_cast<U16>(ports - 1)}});
        chipIs(3, true);
        start(StartMode::cold);
        table().entryIs(vlan(5), VlanMembershipResult().permitMaskIs(~U64{0}));
        U32 const ppp = ports - middle;
        EXPECT_EQ(shadowWords(5, 1),
                  row(5, 4, ppp + 6, {{0, ppp, ~U64{0}}, {ppp, 1, 1}, {ppp + 5, 1, 1}, {ppp + 19, 1, 1}}));
    }
}

TEST_F(VlanRowTest, CopiesOfTwoPipesServeTheHullOfTheirPorts) {
    profile().numPorts = 32;
    profile().ingressPipesAre({{0, 0, 7}, {1, 8, 15}, {2, 16, 23}, {3, 24, 31}});
    profile().layouts[NerioSwitch::TableLayoutEnum::tableLayoutVlan] = {2,           4, 2, 0, {0, 0, 1, 1},
                                                                        {0, 0, 1, 1}};
    chipIs(3, true);
    start();
    table().entryIs(vlan(5), VlanMembershipResult().permitMaskIs(0x80010002));
    EXPECT_EQ(shadowWords(5)[0] & 0xFFFF, 2u);
    EXPECT_EQ(shadowWords(5, 1)[0] & 0xFFFF, 0x8001u);
}

TEST_F(VlanRowTest, RegistersAndStaticWordsFollowTheVersion) {
    struct {
        U32 version;
        std::vector<Belmo::String> first;
        Belmo::String cpu;
    } const cases[] = {{2,
                        {"pipeline[0]/processor/vlan_data0", "pipeline[0]/processor/vlan_data1",
                         "pipeline[0]/processor/vlan_ctl"},
                        "cpu_pipeline[0]/processor/vlan_ctl"},
                       {3,
                        {"ingress/vlan[0]/vlan_data0", "ingress/vlan[0]/vlan_data1",
                         "ingress/vlan[0]/vlan_data2", "ingress/vlan[0]/vlan_ctl"},
                        "cpu_pipeline[0]/vlan/vlan_ctl"}};
    for (auto const& each : cases) {
        chipIs(each.version, true);
        Belmo::Ptr<NerioSwitch::ProfileInfo const> const profileOfVersion(&profile());
        auto const chipOfVersion = Chip::simulatedChip(*profileOfVersion);
        NerioSwitchApi::TableFramework framework(profileOfVersion, chipOfVersion,
                                                 NerioSwitchApi::memoryShadowStore());
        auto const vlans = vlanMembershipTableFactory("vlans");
        framework.tableIs(vlans, StartMode::cold);
        auto& made = static_cast<VlanMembershipConvertor&>(*vlans->profileConvertorPtr());
        std::vector<Belmo::String> paths;
        for (auto const handle : made.hwTable(0)->registersOf(1))
            paths.push_back(chipOfVersion->path(handle));
        EXPECT_EQ(paths, each.first);
        EXPECT_EQ(chipOfVersion->path(made.hwTable(2)->registersOf(1).back()), each.cpu);
        EXPECT_EQ(made.sizeWords(), each.first.size());
        EXPECT_EQ(made.hwStaticWord(2), each.version == 2 ? 0xFFFFFFFFu : 0u);
        EXPECT_EQ(made.hwStaticWord(3), 0xFFFFFFFFu) << "declared again when hardware came up";
        EXPECT_EQ(made.readStrobeBit(), 14);
        EXPECT_EQ(made.writeStrobeBit(), 15);
        EXPECT_TRUE(vlans->hwTablesDuplicate());
        EXPECT_EQ(made.descriptor(1)->name(), "vlans/demo/VlanMembership/1");
        EXPECT_EQ(made.descriptor(1)->firstIndex(), 1u);
        EXPECT_EQ(made.descriptor(1)->lastIndex(), 4094u);
    }
}

TEST_F(VlanRowTest, TheStaticWordOfLongRowsIsWithdrawnFromShortOnesUntilHardwareIsUp) {
    chipIs(2, true);
    make();
    auto const collection = Belmo::make<NerioSwitchApi::HwTableCollection>();
    auto const descriptors = Belmo::make<NerioSwitchApi::HwTableDescriptorConfig>(
        Belmo::Ptr<Chip::SimulatedChip>(&chip()), NerioSwitchApi::memoryShadowStore(), collection);
    table().profileIs(Belmo::Ptr<NerioSwitch::ProfileInfo const>(&profile()));
    table().doSetProfileConvertor(Belmo::make<NerioSwitchApi::SwTableTypes>(descriptors, collection));
    EXPECT_EQ(convertor().hwStaticWord(3), 0xFFFFFFFFu);
    EXPECT_EQ(static_cast<VlanMembershipConvertor&>(convertor()).sizeWords(), 0u);
    table().doCreateHwTable();
    EXPECT_EQ(convertor().hwStaticWord(2), 0xFFFFFFFFu);
    EXPECT_EQ(convertor().hwStaticWord(3), 0u);
    convertor().handleInitialized();
    EXPECT_EQ(convertor().hwStaticWord(3), 0xFFFFFFFFu);
}

TEST_F(VlanRowTest, TheFirstCopysDescriptorSpeaksForAll) {
    chipIs(7, true);
    start();
    takeWrites();
    convertor().descriptor(0)->initializedIs(false);
    table().entryIs(vlan(7), full());
    EXPECT_EQ(takeWriteCount(), 0u);
    convertor().descriptor(0)->initializedIs(true);
    convertor().descriptor(1)->initializedIs(false);
    table().handleEntry(vlan(7));
    EXPECT_EQ(takeWriteCount(), 12u);
}

TEST_F(VlanRowTest, EntriesBeforeTheStartAreWrittenOncePerCopy) {
    chipIs(7, true);
    make();
    table().entryIs(vlan(7), full());
    bringUp(StartMode::cold);
    EXPECT_EQ(takeWriteCount(), 3u * 4094 * 4);
}

TEST_F(VlanRowTest, EachCopyIsComparedAndWrittenByItself) {
    chipIs(7, true);
    start();
    EXPECT_EQ(takeWriteCount(), 3u * 4094 * 4);
    table().entryIs(vlan(7), VlanMembershipResult().permitMaskIs(0x100));
    auto const writes = takeWrites();
    ASSERT_THAT(writes, SizeIs(4));
    EXPECT_THAT(writes.front(), Pair("ingress/vlan[1]/vlan_data0", testing::_));
    EXPECT_THAT(writes.back(), Pair("ingress/vlan[1]/vlan_ctl", 0x8007));
    table().entryDel(vlan(7));
    EXPECT_EQ(takeWriteCount(), 4u);
    EXPECT_EQ(table().entryDel(vlan(7)), VlanMembershipResult());
    EXPECT_EQ(takeWriteCount(), 0u);
}

TEST_F(VlanRowTest, TheBaseOfARowIsAllButMaskAndParity) {
    NerioTest::TraceCapture const trace("NerioTableVlanMembership", 8);
    std::array<U32, 4> buffer{};
    setBaseHwBuffer(1, 8, 2, full(), 7, buffer.data(), 7, true);
    auto expected = packed(4, {{9, 4, 15},
                               {15, 2, 2},
                               {17, 2, 3},
                               {19, 4, 10},
                               {23, 2, 2},
                               {25, 1, 1},
                               {26, 6, 35},
                               {32, 1, 1},
                               {96, 12, 7},
                               {111, 1, 1}});
    EXPECT_THAT(buffer, testing::ElementsAreArray(expected));
    buffer = {};
    setBaseHwBuffer(0, 1, 2, full(), 7, buffer.data(), 2, true);
    EXPECT_THAT(buffer, testing::ElementsAreArray(packed(
                            4, {{0, 1, 1}, {3, 4, 15}, {9, 2, 2}, {11, 2, 3}, {64, 12, 7}, {79, 1, 1}})));
    EXPECT_THAT(trace.lines(), ElementsAre("vlanRegVer 7 num vrf bits = 2", "vlanRegVer 2 num vrf bits = 2"));
}

/** A chip of as many copies, of a port each but the first one. */
void copiesAre(NerioSwitch::ProfileInfo& profile, U16 copies) {
    std::vector<NerioSwitch::PipeRangeInfo> pipes;
    std::vector<U16> own;
    for (U16 pipe = 0; pipe < copies; ++pipe) {
        auto const first = static_cast<U16>(2 * pipe);
        pipes.push_back({pipe, first, static_cast<U16>(first + 1)});
        own.push_back(pipe);
    }
    profile.numPorts = static_cast<U16>(2 * copies);
    profile.ingressPipesAre(pipes);
    profile.layouts[NerioSwitch::TableLayoutEnum::tableLayoutVlan] = {copies, copies, copies, 0, own, own};
}

TEST_F(VlanRowTest, PipesBeyondTheirRangeEndAStartThatWritesTheirFields) {
    for (bool const single : {false, true}) {
        chipIs(7, single);
        copiesAre(profile(), 9);
        start(StartMode::cold);
        EXPECT_TRUE(table().initialized()) << "pipe 17 is in its range";
    }
}

TEST_F(VlanRowTest, TheTenthCopyHasNoPipeForItsNatNorForItsAclWhereAProcessorServesTwo) {
    for (bool const single : {true, false}) {
        SCOPED_TRACE(single);
        chipIs(7, single);
        copiesAre(profile(), 10);
        make();
        EXPECT_EQ(failureOf<Belmo::RangeException>([&] { bringUp(StartMode::cold); }), badPipe);
        EXPECT_FALSE(table().initialized());
    }
}

TEST_F(VlanRowTest, Version3NeedsNoPipes) {
    chipIs(3, true);
    copiesAre(profile(), 10);
    start();
    EXPECT_TRUE(table().initialized());
}

TEST_F(VlanRowTest, AChipWithoutCopiesHasNoTables) {
    profile().hasCpuPipeline = false;
    profile().layouts.erase(NerioSwitch::TableLayoutEnum::tableLayoutVlan);
    start();
    table().entryIs(vlan(5), full());
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(table().entry(vlan(5)), full());
}

using VlanRowDeathTest = VlanRowTest;

TEST_F(VlanRowDeathTest, AMaskOfMoreThan48PortsHasNoRoomThoughDefaultRowsHaveThem) {
    profile().numPorts = 52;
    profile().ingressPipesAre({{0, 0, 51}});
    profile().layouts[NerioSwitch::TableLayoutEnum::tableLayoutVlan] = {1, 1, 1, 0, {0}, {0}};
    start();
    EXPECT_EQ(shadowWords(5), row(5, 4, 58, {{52, 1, 1}, {57, 1, 1}, {69, 1, 1}}));
    EXPECT_DEATH(table().entryIs(vlan(5), full()), "Assertion failed: ppp <= 48 ");
}

TEST_F(VlanRowDeathTest, ACopyWithoutAPipeHasTooManyPorts) {
    profile().layouts[NerioSwitch::TableLayoutEnum::tableLayoutVlan] = {2, 2, 2, 0, {0, 0}, {0, 0}};
    make();
    EXPECT_DEATH(bringUp(StartMode::cold), "ports <= std::numeric_limits< U8 >::max\\(\\)");
}

TEST_F(VlanRowDeathTest, CopiesNeedPipes) {
    profile().ingressPipesAre({});
    make();
    EXPECT_DEATH(bringUp(StartMode::cold), "profileInfo->ingressPipeRangeInfos\\(\\)");
}

/** The base alone, with what makes it a class that can be made. */
class BareConvertor final : public VlanMembershipConvertor {
public:
    void doCreateHwTables(NerioSwitchApi::TableState) override {}

protected:
    HwIndex rowOf(VlanMembershipKey const&) const override { return 1; }
    VlanMembershipKey keyOf(HwIndex) const override { return {}; }
    RowWords encode(Copy, VlanMembershipKey const&, VlanMembershipResult const&) const override { return {}; }
    VlanMembershipResult decode(Copy, VlanMembershipKey const&, U32 const*) const override { return {}; }
    Sorn::TraceHandle const& trace() const override { return *Sorn::traceHandles().front(); }
};

TEST_F(VlanRowDeathTest, TheBaseConvertorWritesNoRows) {
    auto const bare = Belmo::make<BareConvertor>();
    EXPECT_EQ(bare->sizeWords(), 0u);
    EXPECT_EQ(bare->hwStaticWord(3), 0xFFFFFFFFu);
    EXPECT_DEATH(
        {
            Sorn::traceLevelIs("NerioTableVlanMembership", 8);
            bare->hwTableEntryIs(vlan(5), full());
        },
        "VlanMembershipKey\\(vid=5\\) permitMask:0x1000000000a5c3 .*Assertion failed: false ");
}

}  // namespace
