#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include "NatFixture.h"
#include "TraceCapture.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::NatType;
using NerioTest::ip;
using NerioTest::packed;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::SizeIs;

class NatDynMatchTest : public NerioTest::NatFixture<NatDynMatchTable> {
protected:
    NatDynMatchTest() : NatFixture(natDynMatchTableFactory) {}

    static NatDynMatchResult result() {
        return NatDynMatchResult()
            .validIs(true)
            .protoIs(1)
            .natSessionIdIs(0x1ABCD)
            .trapToCpuIs(true)
            .l3LagIndexIs(0x25)
            .rewriteIndexIs(0x2A);
    }
    static NatMatchKey flow() {
        return NatMatchKey()
            .natTypeIs(NatType::dynamicDestination)
            .sipIs(ip(10, 1, 2, 131))
            .sportIs(0x1234)
            .dipIs(ip(192, 0, 2, 129))
            .dportIs(0xBEEF)
            .ingressProfileIdIs(0x15);
    }
    U64 fieldOf(std::vector<U32> const& words, U32 first, U32 width) {
        return bitStreamGet(words.data(), first, first + width - 1);
    }
};

TEST_F(NatDynMatchTest, HasAStatusHitBitsAndAGaugeOfItsPipeline) {
    startTable(1);
    EXPECT_TRUE(table().statusSupported());
    EXPECT_TRUE(table().hitBitsSupported());
    EXPECT_TRUE(table().hwTablesDuplicate());
    ASSERT_EQ(gauges().size(), 1u);
    EXPECT_EQ(gauges().front()->key(), TableGauge::TableKey("NAT dynamic match", "Pipe1", "nat"));
    EXPECT_EQ(gauges().front()->capacity(), 4096u);
    table().entryIs(flow(), result());
    EXPECT_EQ(gauges().front()->used(), 1u);
}

TEST_F(NatDynMatchTest, ItsGeometryIsFixed) {
    startTable(1);
    auto const properties =
        Belmo::ptrCast<NatDynMatchPhysicalHashProperties>(table().helper()->doGetPhysTableProperties());
    ASSERT_NE(properties, nullptr);
    EXPECT_EQ(properties->tableId(), 56u);
    EXPECT_EQ(table().swTableId(), 56u);
    EXPECT_EQ(NatDynMatchTableIs("other", 0)->swTableId(), 55u);
    EXPECT_EQ(properties->tableSize(), 1024u);
    EXPECT_EQ(properties->hashBits(), 10u);
    EXPECT_EQ(properties->numHashTables(), 4u);
    EXPECT_EQ(properties->rowSlots(), 1u);
    EXPECT_EQ(properties->entryWords(), 6);
    EXPECT_EQ(properties->hitBitsSupported(), 1);
    EXPECT_EQ(properties->placementFlag(), 1);
    auto const& helper = static_cast<NatDynMatchHelper const&>(*table().helper());
    EXPECT_EQ(helper.compareWidth(), 89u);
    EXPECT_EQ(helper.tableIdx(), 55);
}

TEST_F(NatDynMatchTest, EachPipelineHasATableBehindTheRegistersOfItsPair) {
    pipelinesAre(4);
    profile().layouts[NerioSwitch::TableLayoutEnum::tableLayoutL3].processors = 2;
    for (U8 const pipeline : {U8{0}, U8{1}, U8{3}}) {
        startTable(pipeline);
        EXPECT_THAT(convertor().descriptors(), SizeIs(1));
        EXPECT_EQ(convertor().descriptor(0)->name(), "nat/demo/NatDynMatch/" + std::to_string(pipeline));
        EXPECT_EQ(convertor().descriptor(0)->lastIndex(), 4095u);
        takeWrites();
        table().entryIs(flow(), result());
        auto const prefix = "ingress/processor_l4[" + std::to_string(pipeline / 2) + "]/";
        U32 const hash = table().cachedItem(flow())->getHash(0);
        auto const words = shadowWords(hash);
        EXPECT_THAT(takeWrites(),
                    ElementsAre(Pair(prefix + "hash_data0", words[0]), Pair(prefix + "hash_data1", words[1]),
                                Pair(prefix + "hash_data2", words[2]), Pair(prefix + "hash_data3", words[3]),
                                Pair(prefix + "hash_ctl", ((pipeline & 1u) + 1) << 18 | 1u << 17 | hash)));
        EXPECT_THAT(words, SizeIs(6));
    }
}

TEST_F(NatDynMatchTest, TheControlWordIsNoContent) {
    start();
    for (U8 word = 0; word < 8; ++word)
        EXPECT_EQ(convertor().hwStaticWord(word), word == 4 ? 0xFFFFFFFFu : 0u);
    EXPECT_EQ(convertor().readStrobeBit(), 16);
    EXPECT_EQ(convertor().writeStrobeBit(), 17);
    convertor().hwStaticWordDel(4);
    convertor().handleInitialized();
    EXPECT_EQ(convertor().hwStaticWord(4), 0xFFFFFFFFu);
}

TEST_F(NatDynMatchTest, RowsByTheirBits) {
    for (U8 const pipeline : {U8{0}, U8{1}}) {
        startTable(pipeline);
        EXPECT_EQ(row(flow(), result(), {0x2BC, 3}), packed(8, {{0, 22, 0x0A010283 >> 10},
                                                                {22, 32, 0xC0000281},
                                                                {54, 16, 0x1234},
                                                                {70, 16, 0xBEEF},
                                                                {86, 6, 0x15},
                                                                {92, 1, 1},
                                                                {93, 1, 1},
                                                                {94, 1, 0},
                                                                {95, 2, 2},
                                                                {97, 17, 0x1ABCD},
                                                                {114, 1, 0},
                                                                {115, 1, 1},
                                                                {116, 6, 0x2A},
                                                                {122, 6, 0x25},
                                                                {128, 10, 0x2BC},
                                                                {142, 2, 3},
                                                                {145, 1, 1},
                                                                {146, 2, pipeline + 1u},
                                                                {160, 32, 0x0A010283}}));
        Words ones{};
        ones.fill(0xFFFFFFFF);
        table().helper()->setStaticBuffer({5, 1}, reinterpret_cast<U8*>(ones.data()));
        EXPECT_EQ(ones[4], 0xFFF00000u | (pipeline + 1u) << 18 | 1u << 17 | 1u << 14 | 5);
    }
}

TEST_F(NatDynMatchTest, TheControlWordTellsItsTableFromThoseOfTheOthers) {
    startTable(1);
    EXPECT_EQ(fieldOf(row(flow(), result()), 146, 2), 2u);
    startTable(0);
    EXPECT_EQ(fieldOf(row(flow(), result()), 146, 2), 1u);
}

TEST_F(NatDynMatchTest, AKeyIsHashedOver102BitsWithoutItsType) {
    start();
    auto const expected = packed(
        4, {{0, 32, 0x0A010283}, {32, 32, 0xC0000281}, {64, 16, 0x1234}, {80, 16, 0xBEEF}, {96, 6, 0x15}});
    auto const input = itemOf(flow())->hashInput();
    EXPECT_EQ(input.bits, 102);
    EXPECT_EQ(std::memcmp(input.bytes.data(), expected.data(), 16), 0);
    auto const* const bytes = reinterpret_cast<U8 const*>(expected.data());
    for (U8 way = 0; way < 4; ++way) {
        U32 const hash = NerioSwitch::crc10Hash(bytes, way, 102);
        for (U8 const type : {U8{0}, U8{6}, U8{7}, U8{8}})
            EXPECT_EQ(itemOf(flow().natTypeIs(type))->getHash(way), hash);
    }
    auto const filtered = flow().filterPfxIs({ip(1, 0, 0, 0), 8});
    EXPECT_EQ(itemOf(filtered)->getHash(0), itemOf(flow())->getHash(0));
    EXPECT_EQ(row(filtered, result()), row(flow(), result()));
}

TEST_F(NatDynMatchTest, TypesAndTheirHardwareValues) {
    for (auto const& [type, value] : {std::pair{0, 0}, {6, 0}, {7, 1}, {8, 2}})
        EXPECT_EQ(natTypeToHwVal(NatType(type)), value);
    for (U8 value = 0; value < 3; ++value)
        EXPECT_EQ(hwValToNatType(value), NatType(value + 6));
}

TEST_F(NatDynMatchTest, AKeyOfType0ReadsBackAs6) {
    start();
    EXPECT_EQ(decoded(row(flow().natTypeIs(0), result()))->key(), flow().natTypeIs(6));
    table().cachedItemDelAll();
    table().entryIs(flow().natTypeIs(0), result());
    restart();
    EXPECT_FALSE(table().entryHas(flow().natTypeIs(0)));
    EXPECT_EQ(table().entry(flow().natTypeIs(6)), result());
}

TEST_F(NatDynMatchTest, KeysOfTypes0And6ComeBackAsOneEntryThatItsRowHolds) {
    start();
    table().entryIs(flow().natTypeIs(0), result().natSessionIdIs(1));
    table().entryIs(flow().natTypeIs(6), result().natSessionIdIs(2));
    EXPECT_EQ(table().hashConvertor()->rowsInUse(), 2u);
    restart();
    EXPECT_EQ(table().entries().size(), 1u);
    EXPECT_EQ(table().hashConvertor()->rowsInUse(), 1u);
    EXPECT_EQ(gauges().front()->used(), 1u);
    auto const back = table().entry(flow().natTypeIs(6));
    auto const item = table().cachedItem(flow().natTypeIs(6));
    EXPECT_EQ(item->result(), back);
    EXPECT_EQ(fieldOf(shadowWords(item->hwIndex()), 97, 17), back.natSessionId().value());
    holdsAcrossRestart([&] { EXPECT_EQ(table().entry(flow().natTypeIs(6)), back); });
    table().entryDel(flow().natTypeIs(6));
    restart();
    EXPECT_TRUE(table().entries().empty());
}

TEST_F(NatDynMatchTest, AKeyWithAFilterComesBackWithoutIt) {
    start();
    table().entryIs(flow().filterPfxIs({ip(1, 0, 0, 0), 8}), result());
    restart();
    EXPECT_EQ(table().entries().size(), 1u);
    EXPECT_EQ(table().entry(flow()), result());
}

TEST_F(NatDynMatchTest, KeysThatDifferInTheirTypeStandInRowsOfTheSameHashes) {
    start();
    for (U8 const type : {U8{6}, U8{7}, U8{8}})
        table().entryIs(flow().natTypeIs(type), result().natSessionIdIs(type));
    holdsAcrossRestart([&] {
        for (U8 const type : {U8{6}, U8{7}, U8{8}})
            EXPECT_EQ(table().entry(flow().natTypeIs(type)), result().natSessionIdIs(type));
    });
}

TEST_F(NatDynMatchTest, EntriesAndTheirRowsSurviveAWarmRestart) {
    startTable(1);
    std::mt19937_64 random(5);
    std::map<NatMatchKey, NatDynMatchResult> wanted;
    for (int i = 0; i < 900; ++i) {
        auto const key = NatMatchKey()
                             .natTypeIs(6 + random() % 3)
                             .sipIs(Lanvo::IpAddr::fromHostOrder(static_cast<U32>(random())))
                             .sportIs(static_cast<U16>(random()))
                             .dipIs(Lanvo::IpAddr::fromHostOrder(static_cast<U32>(random())))
                             .dportIs(static_cast<U16>(random()))
                             .ingressProfileIdIs(random() % 64);
        wanted[key] = result().natSessionIdIs(random() % 0x20000).protoIs(random() % 4);
        table().entryIs(key, wanted[key]);
    }
    holdsAcrossRestart([&] {
        EXPECT_EQ(table().entries().size(), wanted.size());
        for (auto const& [key, session] : wanted)
            EXPECT_EQ(table().entry(key), session) << key.stringValue();
    });
}

TEST_F(NatDynMatchTest, AProtocolThatIsNoSetIsTracedOnceAndWrittenAsNone) {
    start();
    NerioTest::TraceCapture const trace("NerioTableNatDynMatch", 0);
    EXPECT_EQ(fieldOf(row(flow(), result().protoIs(4)), 93, 2), 0u);
    EXPECT_THAT(trace.lines(), ElementsAre(HasSubstr(" unexpected proto=4")));
    EXPECT_EQ(fieldOf(row(flow(), result().protoIs(3)), 93, 2), 3u);
    EXPECT_THAT(trace.lines(), SizeIs(1));
}

TEST_F(NatDynMatchTest, ARowThatStoresAnotherKeyThanTheShadowKeepsIsInconsistent) {
    start();
    auto words = row(flow(), result());
    EXPECT_FALSE(table().hwInconsistentEntry(decoded(words)->key()));
    words[0] ^= 1;
    NerioTest::TraceCapture const trace("NerioTableNatDynMatch", 9);
    EXPECT_EQ(decoded(words)->key(), flow());
    EXPECT_TRUE(table().hwInconsistentEntry(flow()));
    EXPECT_THAT(trace.lines(), Contains(HasSubstr(fmt::format(" stashedIp= {} cmpSipMsb={}", 0x0A010283u,
                                                              (0x0A010283u >> 10) ^ 1))));
    EXPECT_THAT(trace.lines(), testing::Not(Contains(HasSubstr("decoded entry is"))));
}

TEST_F(NatDynMatchTest, HitsAreReadInTheReadsFrom1024On) {
    for (U8 const b : {U8{0}, U8{1}}) {
        startTable(b);
        auto const& reads = convertor().hitBitTable(0)->reads();
        ASSERT_THAT(reads, SizeIs(1));
        EXPECT_EQ(reads[0].value, 0x2D0000u);
        EXPECT_EQ(chip().path(reads[0].trigger), "ingress/processor_l3[0]/hash_ctl");
        auto const bit = [b](U32 number, U32 firstIndex) {
            return std::pair(static_cast<U8>(number + b), NerioSwitchApi::HitBitRegistration()
                                                              .firstReadIs(1024)
                                                              .lastReadIs(2047)
                                                              .strideIs(2)
                                                              .firstIndexIs(firstIndex));
        };
        EXPECT_THAT(reads[0].bits, ElementsAre(bit(3, 0), bit(12, 0x800), bit(39, 1), bit(48, 0x801)));
    }
}

TEST_F(NatDynMatchTest, AHitShowsInTheStatusOfItsEntry) {
    startTable(1);
    std::mt19937_64 random(3);
    double seconds = 0;
    for (U32 i = 0; i < 60; ++i) {
        auto const key = flow().sipIs(Lanvo::IpAddr::fromHostOrder(static_cast<U32>(random())));
        table().entryIs(key, result());
        U32 const index = table().cachedItem(key)->hwIndex();
        chip().hitIs("ingress/processor_l4[0]/hash_ctl", shadowWords(index)[4]);
        EXPECT_EQ(poll(++seconds), 1u);
        EXPECT_EQ(table().tableStatus()->entryStatus(key).lastHit(), Belmo::Duration(seconds));
    }
}

TEST_F(NatDynMatchTest, TracesWhatItDoes) {
    startTable(1);
    NerioTest::TraceCapture const trace("NerioTableNatDynMatch", 9);
    table().entryIs(flow(), result());
    std::string const text =
        "NatDynMatchTableCuckooEntry( " + flow().stringValue() + ", " + result().stringValue() + " )";
    EXPECT_EQ(toStrep(table().hashItem(flow())), text);
    EXPECT_EQ(toStrep(Belmo::Ptr<NatDynMatchTableCuckooEntry const>()), "NULL");
    EXPECT_THAT(trace.lines(), Contains("NatDynMatchTable: Programming Entry " + text));
    EXPECT_THAT(trace.lines(), Contains(HasSubstr(" pipeline=1")));
    table().helper()->decodeHwEntry(table().cachedItem(flow())->hwIndex());
    EXPECT_THAT(trace.lines(), Contains(HasSubstr(" decoded entry is " + text)));
    table().entryDel(flow());
    EXPECT_THAT(trace.lines(), Contains(HasSubstr("NatDynMatchTable: Removing Entry ")));
}

using NatDynMatchDeathTest = NatDynMatchTest;

TEST_F(NatDynMatchDeathTest, OtherTypesAreProgrammingErrors) {
    start();
    for (U8 const type : {U8{1}, U8{2}, U8{3}, U8{4}, U8{5}, U8{9}})
        EXPECT_DEATH(row(flow().natTypeIs(type), result()), "false");
    EXPECT_DEATH(hwValToNatType(3), "false");
}

TEST_F(NatDynMatchDeathTest, AHelperWithoutATableWritesNothing) {
    NatDynMatchHelper lone;
    Words words{};
    EXPECT_DEATH(lone.setStaticBuffer({}, reinterpret_cast<U8*>(words.data())), "swTbl");
}

}  // namespace
