#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FailureText.h"
#include "NerioSwitchTable/NerioTableLagHashControl.h"
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

LagHashControlKey port(U32 number) {
    return LagHashControlKey(ChipPortId(number));
}

class LagHashControlTest : public NerioTest::TableFixture<LagHashControlTable> {
protected:
    LagHashControlTest() : TableFixture([] { return lagHashControlTableFactory("hash"); }) {}
};

TEST_F(LagHashControlTest, TheTextOfAResultLeavesTwoAttributesOut) {
    EXPECT_EQ(LagHashControlKey().portId().value(), 53);
    LagHashControlResult result;
    EXPECT_EQ(result.resultString(), "useVlanId:false useSipAndDip:false hasSeed:0");
    result.useVlanIdIs(true).hashSeedIs(200);
    EXPECT_EQ(result.resultString(), "useVlanId:true  useSipAndDip:false hasSeed:200");
    result.useSipAndDipIs(true).useIpProtocolIs(true).useSportAndDportIs(true);
    EXPECT_EQ(result.resultString(), "useVlanId:true  useSipAndDip:true  hasSeed:200");
    EXPECT_EQ(Sorn::text(result),
              "NerioSwitchTable::LagHashControlResult(useVlanId=true,useIpProtocol=true,useSipAndDip=true,"
              "hashSeed=200,useSportAndDport=true)");
}

TEST_F(LagHashControlTest, EachPortHasARegisterInItsIngressPipe) {
    start();
    auto const& descriptor = *convertor().descriptor(0);
    EXPECT_EQ(descriptor.name(), "hash/demo/LagHashControl/0");
    EXPECT_EQ(descriptor.lastIndex(), 51u);
    EXPECT_THAT(convertor().hwTables(), SizeIs(1));
    auto const writes = takeWrites();
    ASSERT_THAT(writes, SizeIs(52));
    EXPECT_THAT(writes[25], Pair("pipeline[0]/port[25]/lhash_ctl", 0));
    EXPECT_THAT(writes[26], Pair("pipeline[1]/port[0]/lhash_ctl", 0));
}

TEST_F(LagHashControlTest, APortWithoutAPipeHasTheRegisterOfPort0OfPipe0) {
    profile().portIdToIngressPipe.erase(7);
    start();
    takeWrites();
    table().entryIs(port(7), LagHashControlResult().useVlanIdIs(true));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("pipeline[0]/port[0]/lhash_ctl", 1)));
}

TEST_F(LagHashControlTest, GoldenRows) {
    start();
    auto const row = [&](LagHashControlResult const& result) {
        table().entryIs(port(30), result);
        EXPECT_EQ(chipRegister("pipeline[1]/port[4]/lhash_ctl"), shadowWords(30)[0]);
        return shadowWords(30);
    };
    EXPECT_EQ(row(LagHashControlResult().useVlanIdIs(true)), packed(1, {{0, 1, 1}}));
    EXPECT_EQ(row(LagHashControlResult().useIpProtocolIs(true)), packed(1, {{1, 1, 1}}));
    EXPECT_EQ(row(LagHashControlResult().useSipAndDipIs(true)), packed(1, {{2, 1, 1}}));
    EXPECT_EQ(row(LagHashControlResult().useSportAndDportIs(true)), packed(1, {{9, 1, 1}}));
    EXPECT_EQ(row(LagHashControlResult().useVlanIdIs(true).hashSeedIs(0x15).useSportAndDportIs(true)),
              packed(1, {{0, 1, 1}, {3, 6, 0x15}, {9, 1, 1}}));
}

TEST_F(LagHashControlTest, ASeedHasSixBitsOverTwoBytesAndLosesHigherOnes) {
    start();
    auto const wordOf = [&](U8 seed) {
        table().entryIs(port(3), LagHashControlResult().hashSeedIs(seed));
        return shadowWords(3)[0];
    };
    EXPECT_EQ(wordOf(63), 0x1F8u);
    EXPECT_EQ(wordOf(31), 0xF8u) << "five bits in the first byte";
    EXPECT_EQ(wordOf(32), 0x100u) << "and one in the second";
    EXPECT_EQ(wordOf(64), 0u);
    EXPECT_EQ(wordOf(255), 0x1F8u);
    restart();
    EXPECT_EQ(table().entry(port(3)).hashSeed(), 63);
}

TEST_F(LagHashControlTest, EntriesSurviveARestartWithoutAWrite) {
    start();
    auto const all = LagHashControlResult()
                         .useVlanIdIs(true)
                         .useIpProtocolIs(true)
                         .useSipAndDipIs(true)
                         .hashSeedIs(42)
                         .useSportAndDportIs(true);
    table().entryIs(port(3), all);
    table().entryIs(port(51), LagHashControlResult().useIpProtocolIs(true));
    holdsAcrossRestart([&] {
        EXPECT_THAT(table().entries(), SizeIs(2));
        EXPECT_EQ(table().entry(port(3)), all);
        EXPECT_EQ(table().entry(port(51)), LagHashControlResult().useIpProtocolIs(true));
    });
}

TEST_F(LagHashControlTest, BitsAboveTheFieldsAreNotReadBack) {
    start();
    shadow().store(3, std::vector<U32>{0xFFFFFC00});
    restart();
    EXPECT_THAT(table().entries(), IsEmpty());
}

TEST_F(LagHashControlTest, WhatTheShadowHoldsIsNotWrittenAgain) {
    start();
    shadow().store(3, std::vector<U32>{4});
    takeWrites();
    table().entryIs(port(3), LagHashControlResult().useSipAndDipIs(true));
    EXPECT_EQ(takeWriteCount(), 0u);
    table().entryDel(port(3));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("pipeline[0]/port[3]/lhash_ctl", 0)));
}

TEST_F(LagHashControlTest, TheReadBackTracesEachPort) {
    profile().numPorts = 3;
    start();
    table().entryIs(port(1), LagHashControlResult().useVlanIdIs(true).hashSeedIs(5));
    shadow().drop(2);
    NerioTest::TraceCapture const trace("NerioTableLagHashControl", 9);
    restart();
    EXPECT_THAT(trace.lines(),
                ElementsAre("pipe 0 index 0 default 1: result useVlanId:false useSipAndDip:false hasSeed:0",
                            "pipe 0 index 1 default 0: result useVlanId:true  useSipAndDip:false hasSeed:5",
                            "pipe 0 index 2 does not exist."));
}

TEST_F(LagHashControlTest, NothingIsWrittenBeforeTheStartOrWhileTheDescriptorIsNotInitialized) {
    make();
    table().entryIs(port(3), LagHashControlResult().useVlanIdIs(true));
    EXPECT_EQ(takeWriteCount(), 0u);
    bringUp(StartMode::cold);
    EXPECT_THAT(takeWrites(), testing::Contains(Pair("pipeline[0]/port[3]/lhash_ctl", 1)));
    convertor().descriptor(0)->initializedIs(false);
    table().entryIs(port(3), LagHashControlResult().useIpProtocolIs(true));
    EXPECT_EQ(takeWriteCount(), 0u);
    convertor().descriptor(0)->initializedIs(true);
    table().handleEntry(port(3));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("pipeline[0]/port[3]/lhash_ctl", 2)));
}

TEST_F(LagHashControlTest, AMissingRowGetsTheDefaultAndAHeldOneStaysUnlessReset) {
    start();
    shadow().store(3, std::vector<U32>{0x400});
    shadow().drop(4);
    takeWrites();
    restart();
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("pipeline[0]/port[4]/lhash_ctl", 0)));
    EXPECT_THAT(shadowWords(3), ElementsAre(0x400));
    restart(StartMode::cold);
    EXPECT_EQ(takeWriteCount(), 52u);
    EXPECT_THAT(shadowWords(3), ElementsAre(0));
}

TEST_F(LagHashControlTest, ARowAbovePort53EndsTheStart) {
    profile().numPorts = 60;
    for (auto const mode : {StartMode::cold, StartMode::warm}) {
        EXPECT_EQ(failureOf<Belmo::RangeException>([&] { start(mode); }),
                  "NerioSwitch::ChipPortId::value < NerioSwitch::ChipPortId::min or > "
                  "NerioSwitch::ChipPortId::null not allowed");
    }
}

}  // namespace
