#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FailureText.h"
#include "NerioSwitchTable/NerioTableMacVlan.h"
#include "PackedWords.h"
#include "SwitchFixture.h"
#include "TraceCapture.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::IngressPortMask;
using NerioSwitch::L2McastFlags;
using NerioTest::packed;
using NerioTest::PackedBits;
using NerioTest::StartMode;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

MacVlan const someAddress(0xABC, Lanvo::EthAddr({0x00, 0x1C, 0x73, 0xA1, 0xB2, 0xC3}));

MacVlanResult to(U64 ports, U8 flags = 0, bool ipRoute = false) {
    return MacVlanResult()
        .macVlanIs(someAddress)
        .ingressPortMaskIs(IngressPortMask(ports))
        .mcastFlagsIs(flags)
        .ipRouteIs(ipRoute);
}

/** A row of these data fields with its parity and its control word. */
std::vector<U32> macRow(U32 number, U32 ports, std::vector<PackedBits> fields) {
    U32 ones = 0;
    for (U32 const word : packed(4, fields))
        ones += static_cast<U32>(__builtin_popcount(word));
    fields.push_back({ports + 64, 1, ones & 1});
    fields.push_back({128, 14, number});
    fields.push_back({143, 2, 3});
    return packed(5, fields);
}

class MacVlanTest : public NerioTest::TableFixture<MacVlanTable> {
protected:
    MacVlanTest() : TableFixture([] { return macVlanTableFactory("macs"); }) {}
};

TEST_F(MacVlanTest, ADefaultResultIsAnEmptyRow) {
    MacVlanResult const result;
    EXPECT_EQ(result.macVlan().vlanId().value(), 0);
    EXPECT_EQ(result.macVlan().ethAddr(), Lanvo::EthAddr());
    EXPECT_EQ(result.ingressPortMask().value(), 0u);
    EXPECT_EQ(result.mcastFlags().value(), 0);
    EXPECT_FALSE(result.ipRoute());
    EXPECT_EQ(MacVlanKey().value(), 0u);
}

TEST_F(MacVlanTest, TextTellsAllFlags) {
    EXPECT_EQ(
        to(0x10000000000003, L2McastFlags::mcastJoinToEgress | L2McastFlags::mcastJoinToCpus).resultString(),
        "vlan:2748 mac:00:1c:73:a1:b2:c3 portMask:0x10000000000003 mcastJoinToEgress:true  "
        "mcastDataToCpu:false mcastJoinToCpus:true  ipRoute:false");
    EXPECT_EQ(MacVlanResult().mcastFlagsIs(2).ipRouteIs(true).resultString(),
              "vlan:   0 mac:00:00:00:00:00:00 portMask:0x000000000000 mcastJoinToEgress:false "
              "mcastDataToCpu:true  mcastJoinToCpus:false ipRoute:true ");
    EXPECT_EQ(failureOf<Belmo::RangeException>([] { L2McastFlags{8}; }),
              "NerioSwitch::L2McastFlags::value > 7 not allowed");
    EXPECT_EQ(
        failureOf<Belmo::RangeException>([] { to((U64{1} << 53) + 1); }),
        "NerioSwitch::IngressPortMask::value < 0 or > NerioSwitch::IngressPortMask::invalid not allowed");
}

TEST_F(MacVlanTest, GoldenRowIsTheSameInEveryCopy) {
    start();
    EXPECT_EQ(takeWriteCount(), 3u * 1024 * 5);
    table().entryIs(MacVlanKey(1023), to(IngressPortMask::cpu | 0x8000000000001, 5, true));
    auto const expected = macRow(1023, 52,
                                 {{0, 12, 0xABC},
                                  {12, 48, 0x001C73A1B2C3},
                                  {60, 52, 0x8000000000001},
                                  {112, 1, 1},
                                  {113, 3, 5},
                                  {126, 1, 1}});
    auto const writes = takeWrites();
    ASSERT_THAT(writes, SizeIs(15));
    std::vector<Belmo::String> const prefixes{"ingress/processor_l2[0]/", "ingress/processor_l2[1]/",
                                              "cpu_pipeline[0]/processor_l2/"};
    std::vector<Belmo::String> const names{"hash_data0", "hash_data1", "hash_data2", "hash_data3",
                                           "hash_ctl"};
    for (std::size_t i = 0; i < writes.size(); ++i)
        EXPECT_THAT(writes[i], Pair(prefixes[i / 5] + names[i % 5], expected[i % 5]));
    EXPECT_EQ(shadowWords(1023, 2), expected);
    EXPECT_EQ(expected[4], 0x183FFu);
    EXPECT_TRUE(table().hwTablesDuplicate());
    EXPECT_EQ(convertor().descriptor(2)->name(), "macs/demo/MacVlan/2");
    EXPECT_EQ(convertor().descriptor(2)->lastIndex(), 1023u);
    EXPECT_EQ(convertor().hwStaticWord(4), 0xFFFFFFFFu);
}

TEST_F(MacVlanTest, TheMaskBeginsInWord1AtBit28AndParityOf52PortsIsBit116) {
    start();
    table().entryIs(MacVlanKey(3), MacVlanResult().ingressPortMaskIs(1));
    EXPECT_THAT(shadowWords(3), ElementsAre(0, 1u << 28, 0, 1u << 20, 0x18003));
    table().entryIs(MacVlanKey(3), MacVlanResult().macVlanIs({0, Lanvo::EthAddr({1, 0, 0, 0, 0, 1})}));
    EXPECT_THAT(shadowWords(3), ElementsAre(1u << 12, 1u << 20, 0, 0, 0x18003));
    table().entryDel(MacVlanKey(3));
    EXPECT_EQ(shadowWords(3), macRow(3, 52, {})) << "a deletion writes the empty row";
}

TEST_F(MacVlanTest, FieldsBehindTheMaskMoveWithTheNumberOfPorts) {
    for (U16 const ports : {U16{16}, U16{31}, U16{32}, U16{52}}) {
        SCOPED_TRACE(ports);
        profile().numPorts = ports;
        start(StartMode::cold);
        table().entryIs(MacVlanKey(7), to((U64{1} << 53) - 1, 6, true));
        EXPECT_EQ(shadowWords(7), macRow(7, ports,
                                         {{0, 12, 0xABC},
                                          {12, 48, 0x001C73A1B2C3},
                                          {60, ports, ~U64{0}},
                                          {ports + 60u, 1, 1},
                                          {ports + 61u, 3, 6},
                                          {ports + 74u, 1, 1}}))
            << "ports that the chip lacks have no place, but the CPU has";
        restart();
        EXPECT_EQ(table().entry(MacVlanKey(7)), to(((U64{1} << ports) - 1) | IngressPortMask::cpu, 6, true));
    }
}

TEST_F(MacVlanTest, TheBaseOfARowHasNeitherParityNorStrobes) {
    std::array<U32, 5> buffer{};
    setBaseHwBuffer(52, to(1, 4, true), 9, reinterpret_cast<U8*>(buffer.data()));
    EXPECT_THAT(
        buffer,
        testing::ElementsAreArray(packed(
            5,
            {{0, 12, 0xABC}, {12, 48, 0x001C73A1B2C3}, {60, 1, 1}, {115, 1, 1}, {126, 1, 1}, {128, 14, 9}})));
}

TEST_F(MacVlanTest, RegistersOfOlderChipsAreThePipelines) {
    profile().noMuxInRegName = false;
    start();
    takeWrites();
    table().entryIs(MacVlanKey(3), to(1));
    auto const writes = takeWrites();
    ASSERT_THAT(writes, SizeIs(15));
    EXPECT_EQ(writes[0].first, "pipeline[0]/processor/hash_data0");
    EXPECT_EQ(writes[9].first, "pipeline[1]/processor/hash_ctl");
    EXPECT_EQ(writes[14].first, "cpu_pipeline[0]/processor/hash_ctl");
    profile().hasCpuPipeline = false;
    start(StartMode::cold);
    EXPECT_EQ(convertor().hwTables().size(), 2u);
}

TEST_F(MacVlanTest, RowsAreTheProductOfTwoNumbersOfTheProfile) {
    profile().macVlanRows = {8, 3};
    start();
    EXPECT_EQ(convertor().descriptor(0)->lastIndex(), 23u);
    table().entryIs(MacVlanKey(23), to(1));
    EXPECT_THROW(table().entryIs(MacVlanKey(24), to(1)), Belmo::RangeException);
    EXPECT_FALSE(table().entryHas(MacVlanKey(24)));
    profile().macVlanRows = {};
    start(StartMode::cold);
    EXPECT_THAT(convertor().hwTables(), IsEmpty()) << "a chip without rows";
    table().entryIs(MacVlanKey(24), to(1));
    EXPECT_EQ(table().entry(MacVlanKey(24)), to(1));
}

TEST_F(MacVlanTest, SurvivesARestartButForEmptyRows) {
    start();
    table().entryIs(MacVlanKey(0), to(3));
    table().entryIs(MacVlanKey(1023), MacVlanResult().ipRouteIs(true));
    takeWrites();
    holdsAcrossRestart([&] {
        EXPECT_THAT(table().entries(), SizeIs(2));
        EXPECT_EQ(table().entry(MacVlanKey(0)), to(3));
        EXPECT_EQ(table().entry(MacVlanKey(1023)), MacVlanResult().ipRouteIs(true));
        EXPECT_THAT(table().hwInconsistentEntries(), IsEmpty());
    });
    table().entryIs(MacVlanKey(5), MacVlanResult());
    restart();
    EXPECT_FALSE(table().entryHas(MacVlanKey(5)));
}

TEST_F(MacVlanTest, EachFieldThatDiffersMarksTheKeyAndTheFirstCopyHolds) {
    start();
    // VLAN, address, port, CPU, flags, route; and a bit that holds nothing.
    std::vector<U32> const bits{3, 20, 70, 112, 114, 126, 120};
    for (U32 i = 0; i < bits.size(); ++i) {
        table().entryIs(MacVlanKey(i), to(3));
        auto words = shadowWords(i, 1);
        words[bits[i] / 32] ^= 1u << bits[i] % 32;
        shadow(1).store(i, words);
    }
    restart();
    for (U32 i = 0; i < bits.size(); ++i) {
        EXPECT_EQ(table().hwInconsistentEntry(MacVlanKey(i)), bits[i] != 120) << bits[i];
        EXPECT_EQ(table().entry(MacVlanKey(i)), to(3));
        EXPECT_EQ(shadowWords(i, 1), shadowWords(i, 0));
    }
}

TEST_F(MacVlanTest, AMissingRowIsTracedAndCountsAsADifference) {
    start();
    table().entryIs(MacVlanKey(5), to(3));
    shadow(1).drop(5);
    takeWrites();
    NerioTest::TraceCapture const trace("NerioTableMacVlan", 9);
    restart();
    EXPECT_THAT(trace.lines(), ElementsAre("table 1 index 5 does not exist."));
    EXPECT_TRUE(table().hwInconsistentEntry(MacVlanKey(5)));
    EXPECT_EQ(table().entry(MacVlanKey(5)), to(3));
    EXPECT_EQ(takeWriteCount(), 5u);
}

TEST_F(MacVlanTest, AVlanNumberOf4095InARowEndsTheReadBack) {
    start();
    shadow(0).store(5, macRow(5, 52, {{0, 12, 0xFFF}}));
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { restart(); }),
              "Bridging::VlanIdOrNone::value > 4094 not allowed");
}

TEST_F(MacVlanTest, AMaskBeyondItsRangeInARowEndsTheReadBack) {
    profile().numPorts = 54;
    start();
    shadow(0).store(6, macRow(6, 54, {{60 + 53, 1, 1}}));
    restart();
    EXPECT_EQ(table().entry(MacVlanKey(6)), MacVlanResult().ingressPortMaskIs(U64{1} << 53))
        << "the last one of the range";
    shadow(0).store(8, macRow(8, 54, {{60, 1, 1}, {60 + 53, 1, 1}}));
    EXPECT_EQ(
        failureOf<Belmo::RangeException>([&] { restart(); }),
        "NerioSwitch::IngressPortMask::value < 0 or > NerioSwitch::IngressPortMask::invalid not allowed");
}

TEST_F(MacVlanTest, CopiesBehindAMissingRowAreNotRead) {
    start();
    table().entryIs(MacVlanKey(5), to(3));
    shadow(0).drop(5);
    restart();
    EXPECT_FALSE(table().entryHas(MacVlanKey(5)));
    EXPECT_TRUE(table().hwInconsistentEntry(MacVlanKey(5)));
    EXPECT_EQ(shadowWords(5, 0), macRow(5, 52, {})) << "a row that is missing gets the default";
    EXPECT_NE(shadowWords(5, 1), macRow(5, 52, {})) << "one that is there stays";
    restart(StartMode::cold);
    EXPECT_EQ(shadowWords(5, 1), macRow(5, 52, {}));
}

TEST_F(MacVlanTest, SoftwareWinsOverARowReadLater) {
    start();
    table().entryIs(MacVlanKey(5), to(3));
    shadow(1).store(5, macRow(5, 52, {{60, 2, 2}}));
    takeWrites();
    convertor().syncEntries(0);
    EXPECT_EQ(table().entry(MacVlanKey(5)), to(3));
    EXPECT_EQ(takeWriteCount(), 5u);
    EXPECT_THAT(table().hwInconsistentEntries(), IsEmpty());
}

TEST_F(MacVlanTest, CopiesAreThoseOfTheLayer2Layout) {
    profile().layouts[NerioSwitch::TableLayoutEnum::tableLayoutL2] = {1, 2, 1, 0, {0, 0}, {0, 0}};
    start();
    EXPECT_EQ(convertor().hwTables().size(), 2u);
    takeWrites();
    table().entryIs(MacVlanKey(3), to(1));
    auto const writes = takeWrites();
    ASSERT_THAT(writes, SizeIs(10));
    EXPECT_EQ(writes[4].first, "ingress/processor_l2[0]/hash_ctl");
    EXPECT_EQ(writes[9].first, "cpu_pipeline[0]/processor_l2/hash_ctl");
}

using MacVlanDeathTest = MacVlanTest;

TEST_F(MacVlanDeathTest, AChipOf64PortsHasNoLayout) {
    profile().numPorts = 64;
    make();
    EXPECT_DEATH(bringUp(StartMode::cold), "Assertion failed: len < 64 ");
}

}  // namespace
