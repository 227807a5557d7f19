#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FailureText.h"
#include "NerioSwitchTable/NerioTablePortMirror.h"
#include "PackedWords.h"
#include "SwitchFixture.h"
#include "TraceCapture.h"
#include "agent/Verify.h"
#include "chip/MirrorLookup.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::ChipPortId;
using NerioTest::packed;
using NerioTest::StartMode;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

constexpr auto l2 = NerioSwitch::TableLayoutEnum::tableLayoutL2;
constexpr U64 cpu = U64{1} << 52;
constexpr char const* badPort =
    "NerioSwitch::ChipPortId::value < NerioSwitch::ChipPortId::min or > NerioSwitch::ChipPortId::null not "
    "allowed";

RxPortMirrorKey port(U32 number) {
    return RxPortMirrorKey(ChipPortId(number));
}

RxPortMirrorResult to(U64 mask) {
    return RxPortMirrorResult(mask);
}

class PortMirrorTest : public NerioTest::TableFixture<RxPortMirrorTable> {
protected:
    PortMirrorTest() : TableFixture([] { return rxPortMirrorTableFactory("mirrors"); }) {}

    /** A chip of that many ports in two pipes with a table each, the second one of the smaller half. */
    void portsAre(U16 count) {
        profile().numPorts = count;
        auto const half = static_cast<U16>((count + 1) / 2);
        std::vector<NerioSwitch::PipeRangeInfo> const pipes{{0, 0, static_cast<U16>(half - 1)},
                                                            {1, half, static_cast<U16>(count - 1)}};
        profile().ingressPipesAre(pipes);
        profile().egressPipesAre(pipes);
    }
    std::vector<Belmo::String> registersOf(U32 table, U32 row) {
        std::vector<Belmo::String> paths;
        for (auto const handle : convertor().hwTable(table)->registersOf(row))
            paths.push_back(chip().path(handle));
        return paths;
    }
    Chip::MirrorCopies copiesOf(U16 from) { return Chip::MirrorLookup(chip(), profile()).copiesOf(from); }
};

TEST_F(PortMirrorTest, AChipOfFiftyTwoPortsHasTwoRegistersForEach) {
    start();
    EXPECT_EQ(convertor().hwTables().size(), 2u);
    EXPECT_EQ(convertor().descriptor(0)->name(), "mirrors/demo/RxPortMirror/0");
    EXPECT_EQ(convertor().descriptor(0)->firstIndex(), 0u);
    EXPECT_EQ(convertor().descriptor(0)->lastIndex(), 25u);
    EXPECT_EQ(convertor().descriptor(1)->firstIndex(), 26u);
    EXPECT_EQ(convertor().descriptor(1)->lastIndex(), 51u);
    EXPECT_THAT(registersOf(0, 0), ElementsAre("ingress/processor_l2_mirror_reg[0]/reg[0]",
                                               "ingress/processor_l2_mirror_reg[0]/reg[1]"));
    EXPECT_THAT(registersOf(1, 26), ElementsAre("ingress/processor_l2_mirror_reg[1]/reg[0]",
                                                "ingress/processor_l2_mirror_reg[1]/reg[1]"));
    EXPECT_THAT(registersOf(1, 51), ElementsAre("ingress/processor_l2_mirror_reg[1]/reg[50]",
                                                "ingress/processor_l2_mirror_reg[1]/reg[51]"));
    EXPECT_FALSE(table().hwTablesDuplicate());
}

TEST_F(PortMirrorTest, TheCpuBitStandsBehindThePorts) {
    for (U16 const count : {U16{16}, U16{31}, U16{32}, U16{51}, U16{52}}) {
        SCOPED_TRACE(count);
        auto const ofPorts = NerioSwitch::profilePreset("default");
        ofPorts->numPorts = count;
        ofPorts->ingressPipesAre({{0, 0, 7}, {1, 8, static_cast<U16>(count - 1)}});
        auto const chipOfPorts = Chip::simulatedChip(*ofPorts);
        NerioSwitchApi::TableFramework framework(ofPorts, chipOfPorts, NerioSwitchApi::memoryShadowStore());
        auto const mirrors = rxPortMirrorTableFactory("mirrors");
        framework.tableIs(mirrors, StartMode::cold);
        mirrors->entryIs(port(9), to(cpu | 0x5));
        auto const& config = *mirrors->profileConvertorPtr()->hwTable(1);
        EXPECT_THAT(config.registersOf(9), SizeIs(count < 32 ? 1 : 2));
        auto const stored = config.storedEntry(9);
        EXPECT_EQ(std::vector<U32>(stored->words().begin(), stored->words().end()),
                  packed(3, {{0, 3, 5}, {count, 1, 1}}));
        EXPECT_EQ(Chip::MirrorLookup(*chipOfPorts, *ofPorts).copiesOf(9), (Chip::MirrorCopies{{0, 2}, true}));
    }
}

TEST_F(PortMirrorTest, ThirtyOnePortsFillOneWordAndThirtyTwoNeedASecond) {
    EXPECT_EQ(RxPortMirrorRow(16).numRegsPerPort(), 1u);
    EXPECT_EQ(RxPortMirrorRow(31).numRegsPerPort(), 1u);
    EXPECT_EQ(RxPortMirrorRow(32).numRegsPerPort(), 2u);
    EXPECT_EQ(RxPortMirrorRow(52).numRegsPerPort(), 2u);
    EXPECT_EQ(RxPortMirrorRow(63).numRegsPerPort(), 2u);
    EXPECT_EQ(RxPortMirrorRow(64).numRegsPerPort(), 3u);
}

TEST_F(PortMirrorTest, BitsBeyondThePortsOfTheChipAreDropped) {
    portsAre(32);
    start();
    table().entryIs(port(3), to((U64{1} << 32) | (U64{1} << 51) | 0x80000001));
    EXPECT_THAT(shadowWords(3), ElementsAre(0x80000001, 0, 0));
    EXPECT_EQ(copiesOf(3), (Chip::MirrorCopies{{0, 31}, false}));
    restart();
    EXPECT_EQ(table().entry(port(3)), to(0x80000001));
}

TEST_F(PortMirrorTest, AMaskOfNoPortsAtAllIsAnEmptyOne) {
    start();
    takeWrites();
    table().entryIs(port(3), to(NerioSwitch::IngressPortMask::invalid));
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(table().entry(port(3)).resultString(), "appPortMask:0x000000000000, cpu: false");
}

TEST_F(PortMirrorTest, AStartWritesTheWordsThatHaveRegistersAndAnEntryThree) {
    portsAre(31);
    start();
    EXPECT_EQ(takeWriteCount(), 31u);
    EXPECT_THAT(shadowWords(5), ElementsAre(0));
    table().entryIs(port(5), to(cpu));
    EXPECT_THAT(shadowWords(5), ElementsAre(0x80000000, 0, 0));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("ingress/processor_l2_mirror_reg[0]/reg[5]", 0x80000000)));
    table().entryDel(port(5));
    EXPECT_THAT(shadowWords(5), ElementsAre(0, 0, 0));
}

TEST_F(PortMirrorTest, AnEntryStandsInTheTableOfItsPipelineAlone) {
    start();
    takeWrites();
    table().entryIs(port(26), to(cpu | 0xF00000001));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("ingress/processor_l2_mirror_reg[1]/reg[0]", 1),
                                          Pair("ingress/processor_l2_mirror_reg[1]/reg[1]", 0x10000F)));
    EXPECT_EQ(shadowWords(26, 1), packed(3, {{0, 1, 1}, {32, 4, 15}, {52, 1, 1}}));
    EXPECT_THAT(shadowWords(26, 0), IsEmpty());
    EXPECT_EQ(copiesOf(26), (Chip::MirrorCopies{{0, 32, 33, 34, 35}, true}));
    EXPECT_EQ(copiesOf(0), Chip::MirrorCopies());
    EXPECT_EQ(copiesOf(25), Chip::MirrorCopies());
}

/** Pipes 0 and 2 share a table, so that pipe 1 lies within its ports. */
TEST_F(PortMirrorTest, ARowWithinTheHullOfAnotherTableIsWrittenInItsOwn) {
    profile().ingressPipesAre({{0, 0, 9}, {1, 10, 19}, {2, 20, 51}});
    profile().layouts[l2] = {2, 3, 2, 0, {0, 1, 0}, {0, 1, 0}};
    make();
    table().entryIs(port(12), to(3));
    table().entryIs(port(22), to(4));
    bringUp(StartMode::cold);
    EXPECT_EQ(convertor().descriptor(0)->lastIndex(), 51u);
    EXPECT_EQ(convertor().descriptor(1)->firstIndex(), 10u);
    EXPECT_THAT(shadowWords(12, 1), ElementsAre(3, 0, 0));
    EXPECT_THAT(shadowWords(12, 0), IsEmpty()) << "the row of the other table is left alone";
    EXPECT_EQ(registersOf(0, 22).front(), "ingress/processor_l2_mirror_reg[0]/reg[44]");
    EXPECT_EQ(copiesOf(12), (Chip::MirrorCopies{{0, 1}, false}));
    EXPECT_EQ(copiesOf(22), (Chip::MirrorCopies{{2}, false}));
    auto const before = table().entries().size();
    restart();
    EXPECT_EQ(table().entries().size(), before);
    EXPECT_EQ(table().entry(port(12)), to(3));
}

TEST_F(PortMirrorTest, EntriesSurviveARestartWithoutAWriteButEmptyMasksDoNotComeBack) {
    start();
    table().entryIs(port(0), to(cpu));
    table().entryIs(port(25), to((U64{1} << 52) - 1));
    table().entryIs(port(51), to(cpu | U64{1} << 31 | U64{1} << 32));
    table().entryIs(port(7), to(0));
    EXPECT_TRUE(table().entryHas(port(7)));
    takeWrites();
    restart();
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_THAT(table().entries(), SizeIs(3));
    EXPECT_EQ(table().entry(port(0)), to(cpu));
    EXPECT_EQ(table().entry(port(25)), to((U64{1} << 52) - 1));
    EXPECT_EQ(table().entry(port(51)), to(cpu | U64{1} << 31 | U64{1} << 32));
}

TEST_F(PortMirrorTest, SoftwareShadowAndChipAgreeWhicheverCallWroteARow) {
    start();
    table().entryIs(port(0), to(0));
    table().entryIs(port(30), to(cpu | 1));
    auto const verification = Agent::verify(table());
    EXPECT_EQ(verification.rows, 52u);
    EXPECT_THAT(verification.differences, IsEmpty());
}

TEST_F(PortMirrorTest, OnlyWordsThatHaveRegistersAreCompared) {
    portsAre(31);
    start();
    shadow().store(5, std::vector<U32>{1, 2, 3});
    takeWrites();
    table().entryIs(port(5), to(1));
    EXPECT_EQ(takeWriteCount(), 0u);
    table().entryIs(port(5), to(2));
    EXPECT_EQ(takeWriteCount(), 1u);
    EXPECT_THAT(shadowWords(5), ElementsAre(2, 0, 0));
}

TEST_F(PortMirrorTest, UnchangedEntriesNeitherWriteNorPublish) {
    start();
    table().entryIs(port(5), to(1));
    takeWrites();
    U32 published = 0;
    auto const observation = table().publisher().observe("entry", [&](auto const&) { ++published; });
    table().entryIs(port(5), to(1));
    table().handleEntry(port(5));
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(published, 0u);
    EXPECT_EQ(table().entryDel(port(5)), to(1));
    EXPECT_EQ(table().entryDel(port(5)), to(0));
    EXPECT_EQ(takeWriteCount(), 2u);
    EXPECT_EQ(published, 1u);
}

TEST_F(PortMirrorTest, AWarmStartKeepsRowsThatAResetClears) {
    portsAre(31);
    start();
    shadow().store(5, std::vector<U32>{0, 7});
    shadow(1).drop(20);
    takeWrites();
    restart();
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("ingress/processor_l2_mirror_reg[1]/reg[4]", 0)));
    EXPECT_THAT(shadowWords(5), ElementsAre(0, 7));
    restart(StartMode::cold);
    EXPECT_EQ(takeWriteCount(), 31u);
    EXPECT_THAT(shadowWords(5), ElementsAre(0));
}

TEST_F(PortMirrorTest, NothingIsWrittenBeforeTheStartOrWhileTheDescriptorIsNotInitialized) {
    make();
    table().entryIs(port(5), to(1));
    EXPECT_EQ(takeWriteCount(), 0u);
    bringUp(StartMode::cold);
    EXPECT_EQ(chipRegister("ingress/processor_l2_mirror_reg[0]/reg[10]"), 1u);
    takeWrites();
    convertor().descriptor(0)->initializedIs(false);
    table().entryIs(port(5), to(2));
    EXPECT_EQ(takeWriteCount(), 0u);
    table().entryIs(port(30), to(2));
    EXPECT_EQ(takeWriteCount(), 2u) << "the other table's descriptor speaks for its own rows";
    convertor().descriptor(0)->initializedIs(true);
    convertor().descriptor(1)->initializedIs(false);
    table().entryIs(port(30), to(4));
    EXPECT_EQ(takeWriteCount(), 0u);
    table().handleEntry(port(5));
    EXPECT_EQ(takeWriteCount(), 2u);
}

TEST_F(PortMirrorTest, AChipWithoutLayer2TablesKeepsEntriesInSoftware) {
    profile().layouts.erase(l2);
    start();
    table().entryIs(port(5), to(1));
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(table().entryDel(port(5)), to(1));
    EXPECT_THAT(convertor().descriptors(), IsEmpty());
}

TEST_F(PortMirrorTest, APortWithoutARowIsRefusedBeforeAnythingIsStored) {
    profile().ingressPipesAre({{0, 0, 7}, {1, 8, 15}});
    profile().numPorts = 16;
    start();
    takeWrites();
    for (auto const& key : {port(16), port(52), RxPortMirrorKey()})
        EXPECT_THROW(table().entryIs(key, to(1)), Belmo::RangeException);
    EXPECT_TRUE(table().entries().empty());
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_THROW(copiesOf(16), Belmo::RangeException);
}

TEST_F(PortMirrorTest, APortOfATableThatTheChipLacksIsRefused) {
    profile().layouts[l2].pipeToTable = {0, 2};
    make();
    table().entryIs(port(5), to(1));
    bringUp(StartMode::cold);
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { table().entryIs(port(30), to(1)); }),
              "chip port 30 is served by no layer 2 table");
    EXPECT_EQ(convertor().descriptor(1)->firstIndex(), 51u);
    EXPECT_EQ(convertor().descriptor(1)->lastIndex(), 0u) << "no pipe has the second table";
}

TEST_F(PortMirrorTest, ARowBeyondPort53EndsTheStartWithThePortsRangeFailure) {
    portsAre(60);
    for (auto const mode : {StartMode::cold, StartMode::warm}) {
        EXPECT_EQ(failureOf<Belmo::RangeException>([&] { start(mode); }), badPort);
        EXPECT_FALSE(table().initialized());
    }
}

TEST_F(PortMirrorTest, ANinthRegisterOfARowIsARangeFailure) {
    profile().numPorts = 255;
    start();
    EXPECT_THAT(registersOf(0, 0), SizeIs(8));
    profile().numPorts = 256;
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { start(); }),
              "NerioSwitchApi::DataArrayIndex::value < NerioSwitchApi::DataArrayIndex::min or > "
              "NerioSwitchApi::DataArrayIndex::max not allowed");
}

/** An entry writes three words, so that its CPU bit stands there or is lost. */
TEST_F(PortMirrorTest, ACpuBitBehindTheThirdWordIsLost) {
    profile().numPorts = 95;
    start();
    table().entryIs(port(5), to(cpu | 1));
    EXPECT_THAT(shadowWords(5), ElementsAre(1, 0, 0x80000000));
    profile().numPorts = 96;
    start();
    table().entryIs(port(5), to(cpu | 1));
    EXPECT_THAT(shadowWords(5), ElementsAre(1, 0, 0));
}

TEST_F(PortMirrorTest, AChipWithoutPipesEndsTheProcess) {
    profile().ingressPipesAre({});
    make();
    EXPECT_DEATH(bringUp(StartMode::cold), "profileInfo->ingressPipeRangeInfos\\(\\)");
}

TEST_F(PortMirrorTest, ARowMissingFromTheShadowIsTraced) {
    start();
    shadow(1).drop(40);
    NerioTest::TraceCapture const trace("NerioTablePortMirror", 9);
    restart();
    EXPECT_THAT(trace.lines(), ElementsAre("table 1 index 40 does not exist."));
}

TEST(PortMirrorValueTest, HasItsTexts) {
    EXPECT_EQ(port(5).keyString(), "chipPortId 5");
    EXPECT_EQ(RxPortMirrorKey().keyString(), "chipPortId 53");
    EXPECT_EQ(to(0x30).resultString(), "appPortMask:0x000000000030, cpu: false");
    EXPECT_EQ(to((cpu - 1) | cpu).resultString(), "appPortMask:0xfffffffffffff, cpu: true");
    EXPECT_EQ(Sorn::text(port(5)), "NerioSwitchTable::RxPortMirrorKey(chipPortId=5)");
    EXPECT_EQ(
        failureOf<Belmo::RangeException>([] { to((U64{1} << 53) + 1); }),
        "NerioSwitch::IngressPortMask::value < 0 or > NerioSwitch::IngressPortMask::invalid not allowed");
}

}  // namespace
