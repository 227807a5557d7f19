// The hashing stages as tables: constants, bring-up, entries, hits, failures; and the table of whole routes.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>

#include "NerioSwitch/CrcHash.h"

#include "FailureText.h"
#include "LpmFixture.h"
#include "NerioSwitchTable/NerioTableLpm.h"
#include "TraceCapture.h"

namespace {

using namespace NerioSwitchTable;
using Belmo::RangeException;
using NerioSwitch::LpmKey;
using NerioTest::routeCell;
using NerioTest::routeKey;
using NerioTest::StartMode;
using NerioTest::TraceCapture;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

constexpr auto programmed = EntryProgrammedStatus::entryProgrammed;
constexpr auto failed = EntryProgrammedStatus::entryProgrammingFailed;
constexpr auto l3 = NerioSwitch::TableLayoutEnum::tableLayoutL3;

class LpmTableTest : public NerioTest::LpmStageTest {
protected:
    using Change = std::pair<std::string, LpmKey>;

    /**
     * More keys than rows: hashes are linear, so sums of keys that share their row in one way with keys that
     * share theirs in the other have few rows between them.
     */
    std::vector<LpmKey> crowd() {
        std::array<std::vector<std::pair<U8, U32>>, 2> sharing;
        for (U32 number = 0; number < 1u << 14; ++number) {
            auto const vrf = static_cast<U8>(number % 4);
            U32 const address = number / 4 << 20;
            auto const item = table().createHashEntry(key(vrf, address), false);
            for (U8 way = 0; way < 2; ++way) {
                if (item->getHash(way) == 0 && sharing[way].size() < 6)
                    sharing[way].emplace_back(vrf, address);
            }
        }
        std::set<LpmKey> keys;
        for (auto const& [vrf, address] : sharing[0]) {
            for (auto const& [otherVrf, otherAddress] : sharing[1])
                keys.insert(key(vrf ^ otherVrf, address ^ otherAddress));
        }
        return {keys.begin(), keys.end()};
    }
    std::string memoryName(U32 processor = 0) const {
        return "ingress/processor_l3[" + std::to_string(processor) + "]/" + stage().family;
    }
    /** The row of an item in the chip. */
    std::vector<U32> chipRow(LpmKey const& of, U32 processor = 0) {
        auto const row = chip().indirectMemory(memoryName(processor)).row(table().cachedItem(of)->hwIndex());
        return {row.begin(), row.end()};
    }
    std::vector<Change> changesOf(std::function<void()> const& work) {
        std::vector<Change> changes;
        auto const subscription = table().publisher().observeAll([&](Belmo::Change const& change) {
            auto const* of = change.key.as<LpmKey>();
            changes.emplace_back(change.attribute, of == nullptr ? LpmKey() : *of);
        });
        work();
        return changes;
    }
};

INSTANTIATE_TEST_SUITE_P(, LpmTableTest, testing::ValuesIn(NerioTest::stageCases), NerioTest::stageName);

TEST_P(LpmTableTest, HasTheConstantsOfItsStage) {
    for (U32 const numVrfs : {4u, 8u, 32u}) {
        profile().numVrfs = numVrfs;
        start(StartMode::cold);
        U32 const position = numVrfs == 4 ? 0 : numVrfs == 8 ? 1 : 2;
        EXPECT_EQ(helper().compareWidth(), stage().compareWidths[position]);
        EXPECT_EQ(helper().numVrfBits(), position == 2 ? 5 : 2 + position);
        EXPECT_EQ(helper().compareWidth() + helper().resultShift(),
                  stage().number == 1 ? 29 : stage().compareWidths[position]);
    }
    EXPECT_EQ(table().swTableId(), stage().tableIndex);
    EXPECT_EQ(table().prefixBaseLen(), stage().baseLen);
    EXPECT_EQ(LpmBaseTable::prefixRange, 2u);
    EXPECT_TRUE(table().statusSupported());
    EXPECT_TRUE(table().hitBitsSupported());
    EXPECT_TRUE(table().hwTablesDuplicate());
    EXPECT_EQ(helper().tableIdx(), stage().tableIndex);
    EXPECT_EQ(helper().hashTableId(), stage().number);
    EXPECT_EQ(LpmBaseHelper::cellResultWidth, 14u);
    EXPECT_EQ(LpmBaseHelper::cellNatResultWidth, 2u);
    auto const& hash = *table().hashConvertor();
    EXPECT_EQ(hash.properties().tableId(), stage().tableIndex);
    EXPECT_EQ(hash.tableSize(), stage().rowsPerWay);
    EXPECT_EQ(hash.properties().hashBits(), stage().crcLength);
    EXPECT_EQ(hash.numHashTables(), 2u);
    EXPECT_EQ(hash.properties().rowSlots(), 1u);
    EXPECT_EQ(hash.entryWords(), 7);
    EXPECT_EQ(hash.properties().hitBitsSupported(), 1);
    EXPECT_EQ(hash.properties().placementFlag(), 1);
    EXPECT_EQ(hash.readStrobeBit(), 16);
    EXPECT_EQ(hash.writeStrobeBit(), 17);
    EXPECT_EQ(hash.hwStaticWord(4), 0xFFFFFFFFu);
    EXPECT_EQ(static_cast<LpmBaseConvertor const&>(hash).hitBitOffset(), stage().number);
    auto const item = table().createHashEntry(key(0, 0), false);
    EXPECT_EQ(item->ipv4DipShift(), stage().dipShift);
    EXPECT_EQ(item->keyWidth(), stage().keyWidth);
    EXPECT_EQ(item->crcLength(), stage().crcLength);
    EXPECT_EQ(item->swTableId(), stage().tableIndex);
}

TEST_P(LpmTableTest, HashesTheVrfAboveTheKeysAddressBits) {
    start();
    auto const wanted = key(0xE5, 0xB6D3A7C5);
    U64 const number = U64{0xE5} << stage().baseLen | (0xB6D3A7C5u >> stage().dipShift);
    auto const item = table().createHashEntry(wanted, false);
    auto const* const bytes = reinterpret_cast<U8 const*>(&number);
    auto const width = static_cast<U8>(stage().keyWidth);
    for (U8 way = 0; way < 2; ++way) {
        EXPECT_EQ(item->getHash(way), stage().crcLength == 12 ? NerioSwitch::crc12Hash(bytes, way, width)
                                                              : NerioSwitch::crc10Hash(bytes, way, width));
        EXPECT_LT(item->getHash(way), stage().rowsPerWay);
    }
    auto const input = item->hashInput();
    EXPECT_EQ(input.bits, stage().keyWidth);
    for (std::size_t i = 0; i < 8; ++i)
        EXPECT_EQ(input.bytes[i], static_cast<U8>(number >> 8 * i));
    EXPECT_EQ(input.bytes[5] >> 0 & 1, 0) << "bit 40 tells multicast";
}

TEST_P(LpmTableTest, EachL3ProcessorHasACopyAndAHitBitTable) {
    profile().layouts[l3].processors = 3;
    start();
    ASSERT_EQ(convertor().hwTables().size(), 3u);
    for (U32 id = 0; id < 3; ++id) {
        auto const& descriptor = convertor().descriptor(id);
        EXPECT_EQ(descriptor->name(), fmt::format("routes/demo/Lpm{}/{}", stage().mostRealLen(), id));
        EXPECT_EQ(descriptor->firstIndex(), 0u);
        EXPECT_EQ(descriptor->lastIndex(), 2 * stage().rowsPerWay - 1);
        EXPECT_EQ(convertor().hitDescriptor(id)->lastIndex(), 2 * stage().rowsPerWay - 1);
        auto const& reads = convertor().hitBitTable(id)->reads();
        ASSERT_EQ(reads.size(), 1u);
        EXPECT_EQ(reads.front().value, 0x2D0000u);
        std::set<U32> bits;
        for (auto const& [bit, is] : reads.front().bits) {
            bits.insert(bit);
            EXPECT_EQ(is.lastRead(), stage().rowsPerWay / 2 - 1);
        }
        U32 const n = stage().number;
        EXPECT_EQ(bits, (std::set<U32>{n, n + 9, n + 36, n + 45}));
    }
    auto const* const prefix = "ingress/processor_l3[2]/";
    std::vector<std::string> paths;
    for (auto const handle : convertor().hwTable(2)->registersOf(0))
        paths.push_back(chip().path(handle));
    EXPECT_THAT(paths, ElementsAre(std::string(prefix) + "hash_data0", std::string(prefix) + "hash_data1",
                                   std::string(prefix) + "hash_data2", std::string(prefix) + "hash_data3",
                                   std::string(prefix) + "hash_ctl"));
}

TEST_P(LpmTableTest, AnEntryReachesTheMemoryOfEachProcessorAndItsDeletionClearsIt) {
    start();
    auto const wanted = key(1, 0x8A51C3E7);
    takeWrites();
    table().entryIs(wanted, fourCells());
    EXPECT_EQ(takeWriteCount(), 2u * 5);
    EXPECT_EQ(statusOf(wanted).status(), programmed);
    EXPECT_TRUE(statusOf(wanted).lastHit().isNever());
    auto const laidOut = row(wanted, fourCells());
    EXPECT_EQ(chipRow(wanted), std::vector<U32>(laidOut.begin(), laidOut.begin() + 4));
    EXPECT_EQ(chipRow(wanted, 1), chipRow(wanted));
    EXPECT_EQ(chipRow(wanted)[3], 0u);
    auto const index = table().cachedItem(wanted)->hwIndex();
    EXPECT_EQ(table().entryDel(wanted), fourCells());
    EXPECT_FALSE(hasStatus(wanted));
    EXPECT_EQ(table().cachedItems(), 0u);
    EXPECT_THAT(chip().indirectMemory(memoryName()).row(index), ElementsAre(0, 0, 0, 0));
}

TEST_P(LpmTableTest, EntriesSurviveARestartWithoutAWriteTheZeroKeyAmongThem) {
    std::mt19937_64 random(99);
    start();
    std::map<LpmKey, LpmResult> model{{key(0, 0), fourCells()}};
    // Few enough for all of them to find a row.
    for (int i = 0; i < 400; ++i) {
        auto const vrf = static_cast<U8>(random() % 4);
        model[key(vrf, static_cast<U32>(random()))] = randomResult(random);
    }
    for (auto const& [each, result] : model)
        table().entryIs(each, result);
    holdsAcrossRestart([&] {
        EXPECT_EQ(table().entries().size(), model.size());
        EXPECT_EQ(rowsInUse(), model.size());
        EXPECT_EQ(table().cachedItems(), model.size());
        for (auto const& [each, result] : model) {
            ASSERT_EQ(table().entry(each), result);
            ASSERT_EQ(statusOf(each).status(), programmed);
            ASSERT_TRUE(table().cachedItem(each)->valid());
            ASSERT_EQ(table().cachedItem(each)->result(), result);
        }
        EXPECT_TRUE(table().hwInconsistentEntries().empty());
    });
}

TEST_P(LpmTableTest, TheZeroKeyKeepsItsItemWhereverItsRowIs) {
    auto const zero = key(0, 0);
    for (U32 const way : {0u, 1u}) {
        start(StartMode::cold);
        auto const own = table().createHashEntry(zero, false)->getHash(static_cast<U8>(way));
        auto const words = row(zero, fourCells(), true, {own, static_cast<U8>(way)});
        store(way * stage().rowsPerWay + own, words);
        restart();
        EXPECT_EQ(table().entry(zero), fourCells());
        ASSERT_NE(table().cachedItem(zero), nullptr);
        EXPECT_TRUE(table().cachedItem(zero)->placed());
        EXPECT_TRUE(table().cachedItem(zero)->valid());
        EXPECT_EQ(table().cachedItem(zero)->hwIndex(), way * stage().rowsPerWay + own);
        EXPECT_EQ(rowsInUse(), 1u);
    }
}

TEST_P(LpmTableTest, CopiesThatDifferAreMarkedAndMadeAlikeByTheStart) {
    start();
    auto const wanted = key(2, 0x4B000000);
    table().entryIs(wanted, fourCells());
    table().entryIs(key(0, 0xCB000000), fourCells());
    auto const index = table().cachedItem(wanted)->hwIndex();
    auto words = row(wanted, fourCells(), true, table().hashConvertor()->location(index));
    words[2] ^= 1;
    shadow(1).store(index, std::span(words).first<7>());
    takeWrites();
    restart();
    EXPECT_TRUE(table().hwInconsistentEntry(wanted));
    EXPECT_FALSE(table().hwInconsistentEntry(key(0, 0xCB000000)));
    EXPECT_EQ(table().entry(wanted), fourCells()) << "the first copy is taken";
    EXPECT_EQ(takeWriteCount(), 5u) << "the second is written again";
}

TEST_P(LpmTableTest, AFullPlaceIsToldByTheStatusAloneAndIsNotRemovedFromHardware) {
    start();
    auto const keys = crowd();
    for (auto const& each : keys)
        table().entryIs(each, fourCells());
    std::vector<LpmKey> without;
    for (auto const& each : keys) {
        if (statusOf(each).status() == failed) without.push_back(each);
    }
    ASSERT_FALSE(without.empty());
    U32 const used = rowsInUse();
    EXPECT_EQ(used, keys.size() - without.size());
    takeWrites();
    auto const each = without.front();
    EXPECT_TRUE(table().entryHas(each));
    table().entryDel(each);
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_FALSE(hasStatus(each));
    EXPECT_EQ(rowsInUse(), used);
}

TEST_P(LpmTableTest, WhatTheRowsCannotCarryIsRefusedBeforeAnythingIsStored) {
    auto const base = static_cast<U8>(stage().baseLen);
    auto const refusal = [&](LpmKey const& of, EntryCellResult const& cell) {
        return failureOf<RangeException>([&] { table().entryIs(of, LpmResult().cellResultIs(2, cell)); });
    };
    for (bool const isUp : {false, true}) {
        make();
        if (isUp) bringUp(StartMode::cold);
        auto const good = key(1, 0x0A000000);
        table().entryIs(good, fourCells());
        takeWrites();
        auto const changes = changesOf([&] {
            EXPECT_EQ(refusal(good, routeCell(0x1000, base)),
                      "NerioSwitchTable::EntryCellResult::nexthopIndexes > "
                      "NerioSwitchTable::EntryCellResult::maxNexthop not allowed");
            EXPECT_EQ(
                refusal(key(0, 0), routeCell(5, base, base - 1u)),
                "NerioSwitchTable::EntryCellResult::maskLength < prefixLen - 2 or > prefixLen not allowed");
            EXPECT_EQ(
                refusal(key(0, 0), routeCell(5, base, 33, base - 2u)),
                "NerioSwitchTable::EntryCellResult::maskLength < prefixLen - 2 or > prefixLen not allowed");
            EXPECT_EQ(refusal(routeKey(0, 0, static_cast<U8>(base - 1)), routeCell(5, base)),
                      "NerioSwitchTable::LpmBaseTable::prefixBaseLen != key.prefix().len() not allowed");
        });
        EXPECT_TRUE(changes.empty());
        EXPECT_EQ(takeWriteCount(), 0u);
        EXPECT_EQ(table().entries().size(), 1u);
        EXPECT_EQ(table().entry(good), fourCells());
    }
}

TEST_P(LpmTableTest, PublishesTheNewItemItsStatusAndTheEntry) {
    start();
    auto const wanted = key(1, 0x0A000000);
    EXPECT_THAT(changesOf([&] { table().entryIs(wanted, fourCells()); }),
                ElementsAre(Pair("hashItem", wanted), Pair("entryStatus", wanted), Pair("entry", wanted)));
    EXPECT_THAT(changesOf([&] { table().entryIs(wanted, fourCells()); }), ElementsAre());
    EXPECT_THAT(changesOf([&] { table().entryIs(wanted, LpmResult()); }), ElementsAre(Pair("entry", wanted)));
    EXPECT_THAT(changesOf([&] { table().entryDel(wanted); }),
                ElementsAre(Pair("entryStatus", wanted), Pair("entry", wanted)));
    EXPECT_THAT(changesOf([&] { table().createHashItem(wanted, false); }), ElementsAre());
    EXPECT_EQ(table().cachedItems(), 0u);
    auto const item = table().createHashItem(wanted, true);
    EXPECT_EQ(table().createHashItem(wanted, true), item);
    table().hashItemDel(wanted);
    EXPECT_EQ(table().cachedItem(wanted), nullptr);
    table().createHashItem(wanted, true);
    table().hashItemDelAll();
    EXPECT_EQ(table().cachedItems(), 0u);
}

TEST_P(LpmTableTest, AHitInAnyProcessorReachesTheLastHitOfItsKey) {
    start();
    std::vector<LpmKey> keys;
    for (U32 i = 0; i < 6; ++i) {
        keys.push_back(key(static_cast<U8>(i % 4), 0x0A000000 + (i << 29)));
        table().entryIs(keys.back(), fourCells());
    }
    double time = 1;
    for (auto const& each : keys) {
        for (U32 const processor : {0u, 1u}) {
            auto const index = table().cachedItem(each)->hwIndex();
            auto const place = table().hashConvertor()->location(index);
            chip().hitIs("ingress/processor_l3[" + std::to_string(processor) + "]/hash_ctl",
                         1u << 17 | stage().number << 18 | U32{place.table} << 14 | place.row);
            poll(++time);
            EXPECT_EQ(statusOf(each).lastHit(), Belmo::Duration(time));
            EXPECT_EQ(table().cachedItem(each)->lastHit(), Belmo::Duration(time));
        }
    }
    for (auto const& each : keys)
        EXPECT_FALSE(statusOf(each).lastHit().isNever());
    Belmo::Ptr<Dovra::Cuckoo::HashItem const> const item = table().cachedItem(keys[0]);
    auto const last = statusOf(keys[0]).lastHit();
    table().lastHitByHashItemIs(item, Belmo::Duration(1));
    EXPECT_EQ(statusOf(keys[0]).lastHit(), last) << "an older hit leaves the newer";
}

TEST_P(LpmTableTest, CountsItsRows) {
    start();
    ASSERT_EQ(gauges().size(), 1u);
    auto const& counter = *gauges().front();
    EXPECT_EQ(counter.capacity(), 2 * stage().rowsPerWay);
    table().entryIs(key(1, 0x0A000000), fourCells());
    table().entryIs(key(2, 0x0A000000), fourCells());
    EXPECT_EQ(counter.used(), 2u);
    table().entryDelAll();
    EXPECT_EQ(counter.used(), 0u);
}

TEST_P(LpmTableTest, TracesWhatIsProgrammedAndRemoved) {
    start();
    auto const wanted = key(0, 0x0A000000);
    TraceCapture const trace("NerioTableLpmBase", 6);
    table().entryIs(wanted, fourCells());
    table().entryDel(wanted);
    ASSERT_EQ(trace.lines().size(), 2u);
    auto const name = fmt::format("Lpm{}Table", stage().mostRealLen());
    EXPECT_EQ(trace.lines()[0], name + ": Programming Entry LpmBaseTableCuckooEntry( " + Sorn::text(wanted) +
                                    ", " + Sorn::text(fourCells()) + " )");
    EXPECT_THAT(trace.lines()[1], HasSubstr("Removing Entry LpmBaseTableCuckooEntry( "));
    EXPECT_EQ(toStrep(nullptr), "NULL");
    TraceCapture const calls("NerioTableLpm", 8);
    table().createHashItem(wanted, false);
    EXPECT_THAT(calls.lines(), Contains(HasSubstr("createHashItem")));
}

using LpmTableDeathTest = LpmTableTest;

INSTANTIATE_TEST_SUITE_P(, LpmTableDeathTest, testing::ValuesIn(NerioTest::stageCases), NerioTest::stageName);

TEST_P(LpmTableDeathTest, AnotherNumberOfVrfsIsAProgrammingError) {
    for (U32 const numVrfs : {0u, 1u, 2u, 16u, 33u, 64u}) {
        profile().numVrfs = numVrfs;
        EXPECT_DEATH(start(), "Unsupported number of VRFs ");
    }
}

/** An item whose hash has a width that no stage has. */
struct OddItem final : LpmBaseTableCuckooEntry {
    static constexpr LpmStage stage{.number = 0,
                                    .tableName = "none",
                                    .tableIndex = 0,
                                    .prefixBaseLen = 12,
                                    .keyWidth = 17,
                                    .crcLength = 11,
                                    .hashTableId = 0};
    OddItem() : LpmBaseTableCuckooEntry(stage, {}) {}
};

TEST(LpmDeathTest, AHashOfElevenBitsIsAProgrammingError) {
    EXPECT_DEATH(OddItem().getHash(0), "Unsupported crc length 11(.|\n)*false");
}

TEST(LpmDeathTest, AHelperWithoutAStageHasNoEmptyRow) {
    EXPECT_DEATH(Lpm29HelperIs(2)->nullHashEntry(), "swTableCasted");
}

TEST(LpmDeathTest, ItemsAreMadeFoundAndDecodedForValidRowsAlone) {
    auto const table = lpm29TableFactory("routes");
    EXPECT_DEATH(table->entryIsByHashItem(table->createHashItem({}, false)), "hashItem->valid\\(\\)");
}

TEST(LpmDeathTest, AConvertorOfNoStageHasNoPlaceForHits) {
    LpmBaseConvertor const convertor;
    EXPECT_EQ(convertor.hitBitOffset(), 0xFFFFFFFFu);
    EXPECT_DEATH(LpmBaseConvertor().doCreateHwTables(NerioSwitchApi::TableState::reset),
                 "tableHitBitOffset != 0xffffffff");
}

TEST(LpmRouteTableTest, KeepsRoutesAndPublishesWhatChanges) {
    auto const table = lpmTableFactory("routes");
    std::vector<std::string> changes;
    auto const subscription = table->publisher().observeAll(
        [&](Belmo::Change const& change) { changes.emplace_back(change.attribute); });
    auto const route = routeKey(1, 0x0A000000, 8);
    auto const result = LpmResult().cellResultIs(0, routeCell(0xFFFFFF, 8, 1, 2));
    table->entryIs(route, result);
    table->entryIs(route, result);
    EXPECT_THAT(changes, ElementsAre("entry"));
    EXPECT_EQ(table->entry(route), result);
    EXPECT_EQ(table->entryDel(routeKey(2, 0, 0)), LpmResult());
    EXPECT_EQ(table->entryDel(route), result);
    EXPECT_THAT(changes, ElementsAre("entry", "entry"));
    table->entryIs(route, result);
    table->entryIs(routeKey(0, 0, 0), LpmResult());
    table->entryDelAll();
    EXPECT_TRUE(table->entries().empty());
}

TEST(LpmRouteTableTest, HasOneStatusNodeForEachRouteAskedFor) {
    auto const table = LpmTableIs("routes");
    std::vector<std::string> changes;
    auto const subscription = table->publisher().observeAll(
        [&](Belmo::Change const& change) { changes.emplace_back(change.attribute); });
    auto const route = routeKey(1, 0x0A000000, 8);
    table->entryStatusDelAll();
    EXPECT_TRUE(changes.empty());
    auto const status = table->entryStatusIs(route);
    EXPECT_EQ(status->key(), route);
    EXPECT_EQ(status->result(), LpmResult());
    EXPECT_EQ(status->lastHit(), Belmo::Duration(0));
    EXPECT_EQ(status->lastPolled(), Belmo::Duration(0));
    EXPECT_EQ(status->state(), programmed);
    EXPECT_THAT(changes, ElementsAre("entryStatus"));
    EXPECT_EQ(table->entryStatusIs(route), status);
    EXPECT_EQ(table->entryStatus(route), status);
    EXPECT_THAT(changes, ElementsAre("entryStatus")) << "a known route's node is no change";
    table->entryStatusDel(routeKey(2, 0, 0));
    table->entryStatusDel(route);
    EXPECT_EQ(table->entryStatus(route), nullptr);
    EXPECT_THAT(changes, ElementsAre("entryStatus", "entryStatus"));
    table->entryStatusIs(route);
    table->entryStatusIs(routeKey(2, 0, 0));
    table->entryStatusDelAll();
    EXPECT_TRUE(table->entryStatuses().empty());
    EXPECT_EQ(changes.size(), 6u);
}

class LpmRouteTableStartTest : public NerioTest::TableFixture<LpmTable> {
protected:
    LpmRouteTableStartTest() : TableFixture([] { return lpmTableFactory("routes"); }) {}
};

TEST_F(LpmRouteTableStartTest, TouchesNoHardwareBeforeNorAfterItIsUp) {
    make();
    table().entryIs(routeKey(1, 0x0A000000, 8), LpmResult());
    bringUp(StartMode::cold);
    EXPECT_TRUE(table().initialized());
    EXPECT_EQ(table().profileConvertorPtr(), nullptr);
    table().entryIs(routeKey(2, 0x0A000000, 8), LpmResult());
    EXPECT_EQ(table().entries().size(), 2u);
    EXPECT_EQ(takeWriteCount(), 0u);
}

}  // namespace
