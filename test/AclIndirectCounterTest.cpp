#include <array>
#include <bit>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include "NerioSwitch/CrcHash.h"

#include "NerioSwitchTable/NerioTableAclIndirectCounter.h"
#include "PackedWords.h"
#include "SwitchFixture.h"
#include "TraceCapture.h"

namespace {

using namespace NerioSwitchTable;
using NerioTest::packed;
using testing::Contains;
using testing::ElementsAre;
using testing::Pair;
using testing::SizeIs;

using Key = NerioSwitch::AclIndirectCounterHashKey;
using Result = NerioSwitch::AclIndirectCounterHashResult;
using Words = std::array<U32, 8>;

class AclIndirectCounterTest : public NerioTest::TableFixture<AclIndirectCounterHashTable> {
protected:
    AclIndirectCounterTest()
        : TableFixture([] { return aclIndirectCounterHashTableFactory("counters", 1); }) {}

    std::vector<U32> row(Key key, Result result, Dovra::Cuckoo::CuckooLocation location, Words words = {}) {
        auto const item = table().createHashEntry(key, false);
        item->resultIs(result);
        table().helper()->setHwBuffer(item, location, reinterpret_cast<U8*>(words.data()));
        return {words.begin(), words.end()};
    }
    NerioSwitchApi::HashBaseHelper::Ptr decoded(std::vector<U32> const& words) {
        shadow().store(5, std::span(words).first(7));
        return table().helper()->decodeHwEntry(5);
    }
};

TEST_F(AclIndirectCounterTest, HasAStatusAndNeitherHitBitsNorCopiesNorAGauge) {
    start();
    EXPECT_TRUE(table().statusSupported());
    EXPECT_FALSE(table().hitBitsSupported());
    EXPECT_FALSE(table().hwTablesDuplicate());
    EXPECT_EQ(table().pipelinePair(), 1);
    EXPECT_EQ(convertor().entryCounter(0), nullptr);
    EXPECT_FALSE(table().hashConvertor()->capacitySupported());
}

TEST_F(AclIndirectCounterTest, ItsGeometryIsFixed) {
    start();
    auto const properties =
        Belmo::ptrCast<AclCounterPhysicalHashProperties>(table().helper()->doGetPhysTableProperties());
    ASSERT_NE(properties, nullptr);
    EXPECT_EQ(properties->tableId(), 84u);
    EXPECT_EQ(table().swTableId(), 84u);
    EXPECT_EQ(properties->tableSize(), 2048u);
    EXPECT_EQ(properties->hashBits(), 11u);
    EXPECT_EQ(properties->numHashTables(), 2u);
    EXPECT_EQ(properties->rowSlots(), 1u);
    EXPECT_EQ(properties->entryWords(), 7);
    EXPECT_EQ(properties->hitBitsSupported(), 0);
    EXPECT_EQ(properties->placementFlag(), 0);
    EXPECT_EQ(AclIndirectCounterHashTableIs("first", 0)->swTableId(), 72u);
    EXPECT_EQ(table().helper()->name(), "ACL indirect counter");
}

TEST_F(AclIndirectCounterTest, TheHardwareTableIsNamedByItsPair) {
    start();
    EXPECT_THAT(convertor().descriptors(), SizeIs(1));
    EXPECT_EQ(convertor().descriptor(0)->name(), "counters/demo/AclIndirectCounter/1");
    EXPECT_EQ(convertor().descriptor(0)->lastIndex(), 4095u);
}

TEST_F(AclIndirectCounterTest, TheControlWordIsNoContent) {
    start();
    for (U8 word = 0; word < 8; ++word)
        EXPECT_EQ(convertor().hwStaticWord(word), word == 5 ? 0xFFFFFFFFu : 0u);
    EXPECT_EQ(convertor().readStrobeBit(), 17);
    EXPECT_EQ(convertor().writeStrobeBit(), 18);
    auto const lone = aclIndirectCounterHashConvertorFactory();
    EXPECT_EQ(lone->hwStaticWord(5), 0xFFFFFFFFu);
    lone->hwStaticWordDel(5);
    lone->handleInitialized();
    EXPECT_EQ(lone->hwStaticWord(5), 0xFFFFFFFFu);
}

TEST_F(AclIndirectCounterTest, AKeyIsHashedByItsTwoBytes) {
    start();
    for (U32 const number : {0u, 1u, 0x8001u, 0xFFFFu, 0x1234u}) {
        auto const item = table().createHashEntry(number, false);
        std::array<U8, 20> buffer{};
        buffer.fill(0xFF);
        EXPECT_EQ(item->copyKeyToBuffer(buffer.data(), 4), 16);
        EXPECT_EQ(buffer[0], number & 0xFF);
        EXPECT_EQ(buffer[1], number >> 8);
        EXPECT_EQ(buffer[2], 0);
        EXPECT_EQ(buffer[4], 0xFF);
        for (U8 way = 0; way < 2; ++way)
            EXPECT_EQ(item->getHash(way), NerioSwitch::crc11Hash(buffer.data(), way, 16));
    }
}

TEST_F(AclIndirectCounterTest, RowsByTheirBits) {
    start();
    EXPECT_EQ(row(0x8001, 0x5A3, {1365, 1}), packed(8, {{0, 5, 16},
                                                        {5, 12, 0x5A3},
                                                        {17, 1, 1},
                                                        {160, 11, 1365},
                                                        {171, 1, 1},
                                                        {175, 1, 1},
                                                        {178, 1, 1},
                                                        {192, 11, 1}}));
    EXPECT_EQ(row(0x0800, 1, {0, 0}),
              packed(8, {{0, 5, 1}, {5, 12, 1}, {17, 1, 0}, {175, 1, 1}, {178, 1, 1}}));
    EXPECT_EQ(row(0xFFFF, 0xFFF, {2047, 2}), packed(8, {{0, 5, 31},
                                                        {5, 12, 0xFFF},
                                                        {17, 1, 1},
                                                        {160, 11, 2047},
                                                        {175, 1, 1},
                                                        {178, 1, 1},
                                                        {192, 11, 2047}}));
}

TEST_F(AclIndirectCounterTest, TheKey8001IsSixteenInTheRowAndOneInTheShadow) {
    start();
    auto const words = row(0x8001, 0, {0, 0});
    EXPECT_EQ(words[0] & 0x1F, 16u);
    EXPECT_EQ(words[6], 1u);
}

TEST_F(AclIndirectCounterTest, AResultAbove4095LosesItsTopBits) {
    start();
    EXPECT_EQ(row(1, 0xF123, {0, 0}), row(1, 0x123, {0, 0}));
    table().entryIs(7, 0x1002);
    EXPECT_EQ(table().entry(7), Result(0x1002)) << "the table keeps what is wanted";
    restart();
    EXPECT_EQ(table().entry(7), Result(0x002));
}

TEST_F(AclIndirectCounterTest, BitsThatAreNotWrittenStayAndCountForParity) {
    start();
    Words ones{};
    ones.fill(0xFFFFFFFF);
    auto const words = row(0, 0, {0, 0}, ones);
    EXPECT_EQ(words, (std::vector<U32>{0xFFFC0000, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFF9000,
                                       0xFFFFF800, 0xFFFFFFFF}));
    Words high{0x80000000};
    EXPECT_EQ(row(0, 0, {0, 0}, high)[0], 0x80020000u);
}

TEST_F(AclIndirectCounterTest, ARowGoesToSixRegistersOfThePairsProcessor) {
    start();
    takeWrites();
    table().entryIs(0x8001, 0x5A3);
    U32 const hash = table().cachedItem(0x8001)->getHash(0);
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("ingress/processor_acl[1]/hash_data0", 0x2B470u),
                                          Pair("ingress/processor_acl[1]/hash_data1", 0),
                                          Pair("ingress/processor_acl[1]/hash_data2", 0),
                                          Pair("ingress/processor_acl[1]/hash_data3", 0),
                                          Pair("ingress/processor_acl[1]/hash_data4", 0),
                                          Pair("ingress/processor_acl[1]/hash_ctl", 0x48000u | hash)));
    EXPECT_THAT(shadowWords(hash), SizeIs(7));
}

TEST_F(AclIndirectCounterTest, ADeletedKeyLeavesTheNullRow) {
    start();
    table().entryIs(0x8001, 0x5A3);
    U32 const hash = table().cachedItem(0x8001)->getHash(0);
    EXPECT_EQ(table().entryDel(0x8001), Result(0x5A3));
    EXPECT_EQ(shadowWords(hash), packed(7, {{160, 11, hash}, {175, 1, 1}, {178, 1, 1}}));
    EXPECT_FALSE(table().tableStatus()->entryStatusHas(0x8001));
    EXPECT_EQ(table().entryDel(0x8001), Result(0));
}

TEST_F(AclIndirectCounterTest, AnEqualResultDoesNothing) {
    start();
    table().entryIs(0x8001, 0x5A3);
    takeWrites();
    table().entryIs(0x8001, 0x5A3);
    EXPECT_EQ(takeWriteCount(), 0u);
    table().entryIs(0x8001, 0x5A4);
    EXPECT_EQ(takeWriteCount(), 6u);
}

TEST_F(AclIndirectCounterTest, TheKey0IsWrittenLikeAnyOtherAndDecodesAsEmpty) {
    start();
    table().entryIs(0, 0x5A3);
    EXPECT_EQ(table().tableStatus()->entryStatus(0).status(), EntryProgrammedStatus::entryProgrammed);
    EXPECT_EQ(shadowWords(0), packed(7, {{5, 12, 0x5A3}, {17, 1, 0}, {175, 1, 1}, {178, 1, 1}}));
    EXPECT_FALSE(table().helper()->decodeHwEntry(0)->valid());
    restart();
    EXPECT_FALSE(table().entryHas(0));
    EXPECT_EQ(shadowWords(0), packed(7, {{175, 1, 1}, {178, 1, 1}})) << "nobody owns the row any more";
}

TEST_F(AclIndirectCounterTest, EveryKeyReadsBackFromItsRow) {
    start();
    U32 wrong = 0;
    for (U32 number = 1; number <= 0xFFFF; ++number) {
        Result const result = number * 7 & 0xFFF;
        auto const item =
            Belmo::ptrCast<AclIndirectCounterHashTableCuckooEntry>(decoded(row(number, result, {5, 0})));
        bool const same = item->valid() && item->key() == Key(number) && item->result() == result;
        wrong += same ? 0 : 1;
        table().cachedItemDel(number);
    }
    EXPECT_EQ(wrong, 0u);
}

TEST_F(AclIndirectCounterTest, EmptyAndCorruptRowsDecodeAsTheNullEntry) {
    start();
    EXPECT_FALSE(table().helper()->decodeHwEntry(5)->valid());
    shadow().drop(5);
    EXPECT_FALSE(table().helper()->decodeHwEntry(5)->valid());
    shadow().corrupt(6);
    EXPECT_FALSE(table().helper()->decodeHwEntry(6)->valid());
    EXPECT_EQ(shadow().corruptionsDetected(), 1u);
    EXPECT_EQ(table().cachedItems(), 0u);
    auto const null = table().helper()->nullHashEntry();
    EXPECT_EQ(static_cast<AclIndirectCounterHashTableCuckooEntry const&>(*null).key(), Key(0));
    EXPECT_FALSE(null->valid());
}

TEST_F(AclIndirectCounterTest, EntriesAndTheirRowsSurviveAWarmRestart) {
    start();
    std::mt19937 random(5);
    std::map<U32, U32> wanted;
    for (int i = 0; i < 600; ++i) {
        auto const number = static_cast<U32>(1 + random() % 0xFFFF);
        wanted[number] = static_cast<U32>(random() % 0x1000);
        table().entryIs(number, wanted[number]);
    }
    holdsAcrossRestart([&] {
        EXPECT_EQ(table().entries().size(), wanted.size());
        EXPECT_EQ(table().hashConvertor()->rowsInUse(), wanted.size());
        for (auto const& [number, result] : wanted)
            EXPECT_EQ(table().entry(number), Result(result)) << number;
    });
}

TEST_F(AclIndirectCounterTest, TracesWhatItDoes) {
    start();
    NerioTest::TraceCapture const trace("NerioTableAclIndirectCounter", 9);
    table().entryIs(0x8001, 0x5A3);
    U32 const hash = table().cachedItem(0x8001)->getHash(0);
    table().helper()->decodeHwEntry(hash);
    table().helper()->decodeHwEntry(hash ^ 1);
    EXPECT_THAT(trace.lines(), Contains("AclIndirectCounterHashTable: Programming Entry "
                                        "AclIndirectCounterHashTableCuckooEntry( 32769, 1443 )"));
    EXPECT_THAT(trace.lines(), Contains("getHash 0: " + std::to_string(hash)));
    EXPECT_THAT(trace.lines(),
                Contains("Decoded Entry: AclIndirectCounterHashTableCuckooEntry( 32769, 1443 )"));
    EXPECT_THAT(trace.lines(), Contains("not decoding entry: " + std::to_string(hash ^ 1)));
}

using AclIndirectCounterDeathTest = AclIndirectCounterTest;

TEST_F(AclIndirectCounterDeathTest, AHelperWithoutATableWritesAndReadsNothing) {
    auto const lone = aclIndirectCounterHashHelperFactory();
    Words words{};
    EXPECT_DEATH(lone->setStaticBuffer({}, reinterpret_cast<U8*>(words.data())), "swTable\\(\\)");
    EXPECT_DEATH(lone->decodeHwEntry(0), "swTable\\(\\)");
}

}  // namespace
