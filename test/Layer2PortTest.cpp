// Per-port tables of layer 2: native VLANs and controls of learning.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FailureText.h"
#include "NerioSwitchTable/NerioTableL2Control.h"
#include "NerioSwitchTable/NerioTableNativeVlan.h"
#include "PackedWords.h"
#include "SwitchFixture.h"
#include "TraceCapture.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::ChipPortId;
using NerioTest::packed;
using NerioTest::StartMode;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

constexpr char const* portRange =
    "NerioSwitch::ChipPortId::value < NerioSwitch::ChipPortId::min or > NerioSwitch::ChipPortId::null not "
    "allowed";
constexpr char const* vlanOrNoneRange = "Bridging::VlanIdOrNone::value > 4094 not allowed";

NativeVlanKey taggedPort(U32 number) {
    return NativeVlanKey(ChipPortId(number));
}

NativeVlanResult tag(U32 vlan, U8 dei = 0, U8 pcp = 0) {
    return NativeVlanResult().nativeVlanIdIs(vlan).deiIs(dei).pcpIs(pcp);
}

class NativeVlanTest : public NerioTest::TableFixture<NativeVlanTable> {
protected:
    NativeVlanTest() : TableFixture([] { return nativeVlanTableFactory("native"); }) {}
};

TEST_F(NativeVlanTest, DefaultsAreTheNullPortAndVlanOneWithoutPriority) {
    EXPECT_EQ(NativeVlanKey().portId().value(), 53);
    EXPECT_EQ(NativeVlanResult(), tag(1, 0, 0));
    EXPECT_EQ(failureOf<Belmo::RangeException>([] { taggedPort(54); }), portRange);
    EXPECT_EQ(failureOf<Belmo::RangeException>([] { tag(4095); }), vlanOrNoneRange);
}

TEST_F(NativeVlanTest, TextFormsTellAllThree) {
    EXPECT_EQ(tag(1).resultString(), "vlan:   1 dei:0x0 pcp:0x0");
    EXPECT_EQ(tag(4094, 1, 15).resultString(), "vlan:4094 dei:0x1 pcp:0xF");
    auto const text = Sorn::text(tag(7, 1, 5));
    EXPECT_EQ(text, "NerioSwitchTable::NativeVlanResult(nativeVlanId=7,dei=1,pcp=5)");
    Sorn::CharRange range(text);
    EXPECT_EQ(NativeVlanResult(range), tag(7, 1, 5));
}

TEST_F(NativeVlanTest, GoldenRowsAreTagControlInformation) {
    start();
    EXPECT_EQ(takeWriteCount(), 52u);
    EXPECT_EQ(shadowWords(17), packed(4, {{0, 12, 1}}));
    table().entryIs(taggedPort(0), tag(0xABC, 1, 5));
    EXPECT_EQ(shadowWords(0), packed(4, {{0, 12, 0xABC}, {12, 1, 1}, {13, 3, 5}}));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("egress/port[0]/vlan_tci", 0xBABC)));
    table().entryIs(taggedPort(51), tag(0, 0, 7));
    EXPECT_EQ(shadowWords(51), packed(4, {{13, 3, 7}}));
    EXPECT_EQ(chipRegister("egress/port[51]/vlan_tci"), 0xE000u);
    table().entryDel(taggedPort(51));
    EXPECT_EQ(chipRegister("egress/port[51]/vlan_tci"), 1u) << "a deletion writes the default";
}

TEST_F(NativeVlanTest, HighBitsOfPriorityAndEligibilityAreLost) {
    start();
    table().entryIs(taggedPort(3), tag(2, 2, 9));
    EXPECT_EQ(shadowWords(3), packed(4, {{0, 12, 2}, {12, 1, 0}, {13, 3, 1}}));
    restart();
    EXPECT_EQ(table().entry(taggedPort(3)), tag(2, 0, 1));
}

TEST_F(NativeVlanTest, RegistersAreOfThePipeBeforeVersionTwo) {
    for (U32 const version : {0u, 1u, 2u, 3u, 7u}) {
        SCOPED_TRACE(version);
        auto const profileOfVersion = NerioSwitch::profilePreset("default");
        profileOfVersion->vlanRegVer = version;
        auto const chipOfVersion = Chip::simulatedChip(*profileOfVersion);
        NerioSwitchApi::TableFramework framework(profileOfVersion, chipOfVersion,
                                                 NerioSwitchApi::memoryShadowStore());
        auto const ports = nativeVlanTableFactory("native");
        framework.tableIs(ports, StartMode::cold);
        ports->entryIs(taggedPort(30), tag(9, 1, 2));
        auto const* const name =
            version < 2 ? "pipeline[1]/port[4]/default_vlan" : "egress/port[30]/vlan_tci";
        EXPECT_EQ(chipOfVersion->read(chipOfVersion->address(name)), 0x5009u);
    }
}

TEST_F(NativeVlanTest, APortWithoutAPipeCountsAsPortZeroOfPipeZero) {
    profile().vlanRegVer = 1;
    profile().portIdToIngressPipe.erase(30);
    start();
    takeWrites();
    table().entryIs(taggedPort(30), tag(9));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("pipeline[0]/port[0]/default_vlan", 9)));
}

TEST_F(NativeVlanTest, SurvivesARestartButForTheDefault) {
    start();
    table().entryIs(taggedPort(3), tag(0));
    table().entryIs(taggedPort(4), tag(4094, 1, 7));
    holdsAcrossRestart([&] {
        EXPECT_THAT(table().entries(), SizeIs(2));
        EXPECT_EQ(table().entry(taggedPort(3)), tag(0)) << "VLAN 0 is not the default";
        EXPECT_EQ(table().entry(taggedPort(4)), tag(4094, 1, 7));
    });
    table().entryIs(taggedPort(5), tag(1));
    EXPECT_TRUE(table().entryHas(taggedPort(5)));
    restart();
    EXPECT_FALSE(table().entryHas(taggedPort(5)));
}

TEST_F(NativeVlanTest, AStoredVlan4095EndsTheReadBack) {
    start();
    U32 const word = 0xFFF;
    shadow().store(8, std::span(&word, 1));
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { restart(); }), vlanOrNoneRange);
    EXPECT_FALSE(table().initialized());
}

TEST_F(NativeVlanTest, AMissingRowIsTracedAndGetsTheDefault) {
    profile().numPorts = 16;
    start();
    EXPECT_EQ(convertor().descriptor(0)->name(), "native/demo/NativeVlan/0");
    EXPECT_EQ(convertor().descriptor(0)->lastIndex(), 15u);
    EXPECT_FALSE(table().hwTablesDuplicate());
    shadow().drop(8);
    takeWrites();
    NerioTest::TraceCapture const trace("NerioTableNativeVlan", 9);
    restart();
    EXPECT_THAT(trace.lines(), ElementsAre("pipe 1 index 8 does not exist."));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("egress/port[8]/vlan_tci", 1)));
}

TEST_F(NativeVlanTest, RepeatsWriteNothing) {
    start();
    table().entryIs(taggedPort(3), tag(7));
    takeWrites();
    table().entryIs(taggedPort(3), tag(7));
    table().handleEntry(taggedPort(3));
    EXPECT_THAT(takeWrites(), IsEmpty());
}

L2ControlKey learningPort(U32 number) {
    return L2ControlKey(ChipPortId(number));
}

L2ControlResult control(bool isMlagPeer, bool learnOnly, bool learnDisabled) {
    return L2ControlResult().isMlagPeerIs(isMlagPeer).learnOnlyIs(learnOnly).learnDisabledIs(learnDisabled);
}

class L2ControlTest : public NerioTest::TableFixture<L2ControlTable> {
protected:
    L2ControlTest() : TableFixture([] { return l2ControlTableFactory("control"); }) {}
};

TEST_F(L2ControlTest, TextLinesUp) {
    EXPECT_EQ(L2ControlResult().resultString(), "isMlagPeer:false learnOnly:false learnDisabled:false");
    EXPECT_EQ(control(true, false, true).resultString(),
              "isMlagPeer:true  learnOnly:false learnDisabled:true ");
    EXPECT_EQ(Sorn::text(control(false, true, false)),
              "NerioSwitchTable::L2ControlResult(isMlagPeer=false,learnOnly=true,learnDisabled=false)");
    EXPECT_EQ(L2ControlKey().portId().value(), 53);
}

TEST_F(L2ControlTest, GoldenRowsAreAWordInTheRegisterOfThePortsPipe) {
    start();
    EXPECT_EQ(takeWriteCount(), 52u);
    EXPECT_THAT(shadowWords(9), ElementsAre(0));
    table().entryIs(learningPort(0), control(true, false, false));
    table().entryIs(learningPort(26), control(false, true, false));
    table().entryIs(learningPort(51), control(false, false, true));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("pipeline[0]/port[0]/l2_control", 1),
                                          Pair("pipeline[1]/port[0]/l2_control", 2),
                                          Pair("pipeline[1]/port[25]/l2_control", 4)));
    EXPECT_EQ(shadowWords(51), packed(1, {{2, 1, 1}}));
    EXPECT_EQ(convertor().descriptor(0)->name(), "control/demo/L2Control/0");
    EXPECT_TRUE(table().hwTablesDuplicate());
}

TEST_F(L2ControlTest, RegistersDoNotDependOnTheVersionOfVlanRegisters) {
    profile().vlanRegVer = 1;
    start();
    takeWrites();
    table().entryIs(learningPort(26), control(true, true, true));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("pipeline[1]/port[0]/l2_control", 7)));
    table().entryIs(learningPort(26), control(true, true, true));
    EXPECT_THAT(takeWrites(), IsEmpty()) << "nor is a repeat written";
    table().entryDel(learningPort(26));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("pipeline[1]/port[0]/l2_control", 0)));
}

TEST_F(L2ControlTest, AnAllFalseResultIsKeptButDoesNotComeBack) {
    start();
    table().entryIs(learningPort(5), L2ControlResult());
    table().entryIs(learningPort(6), control(true, false, true));
    EXPECT_TRUE(table().entryHas(learningPort(5)));
    EXPECT_EQ(chipRegister("pipeline[0]/port[5]/l2_control"), 0u);
    takeWrites();
    restart();
    EXPECT_FALSE(table().entryHas(learningPort(5)));
    EXPECT_EQ(table().entry(learningPort(6)), control(true, false, true));
    EXPECT_EQ(takeWriteCount(), 0u);
}

TEST_F(L2ControlTest, BitsAboveTheThirdAreNotReadBack) {
    start();
    U32 const words[] = {0xFFFFFFF8, 0xFFFFFFFA};
    shadow().store(5, std::span(words, 1));
    shadow().store(6, std::span(words + 1, 1));
    restart();
    EXPECT_FALSE(table().entryHas(learningPort(5)));
    EXPECT_EQ(table().entry(learningPort(6)), control(false, true, false));
}

TEST_F(L2ControlTest, AMissingRowIsTracedBehindABlank) {
    start();
    shadow().drop(8);
    takeWrites();
    NerioTest::TraceCapture const trace("NerioTableL2Control", 9);
    restart();
    EXPECT_THAT(trace.lines(), ElementsAre(" index 8 does not exist."));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("pipeline[0]/port[8]/l2_control", 0)));
}

}  // namespace
