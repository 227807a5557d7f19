#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <random>

#include "NerioSwitchTable/NerioTableHashTest.h"
#include "PackedWords.h"
#include "SwitchFixture.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitchApi::HwIndex;
using NerioTest::packed;
using NerioTest::StartMode;
using testing::ElementsAre;
using testing::Pair;
using testing::SizeIs;

constexpr auto programmed = EntryProgrammedStatus::entryProgrammed;
constexpr auto failed = EntryProgrammedStatus::entryProgrammingFailed;

/** A key by its rows: `first` in hash table 0, `second` in hash table 1, and a number to tell keys apart. */
HashTestKey key(U32 first, U32 second, U32 number = 0) {
    return number << 6 | second << 3 | first;
}

class HashTestTableTest : public NerioTest::TableFixture<HashTestTable> {
protected:
    HashTestTableTest() : TableFixture([] { return hashTestTableFactory("test"); }) {}

    /** What the chip finds for a key in a pipeline, by its memory alone. */
    std::optional<U32> lookUp(HashTestKey wanted, U32 pipeline = 0) {
        auto const& memory =
            chip().indirectMemory("pipeline[" + std::to_string(pipeline) + "]/processor/hashTest");
        for (U32 table = 0; table < 2; ++table) {
            auto const row = memory.row(table * 8 + (wanted.value() >> (3 * table) & 7));
            if (row[0] == wanted.value() && row[1] != 0) return row[1];
        }
        return std::nullopt;
    }
    EntryProgrammedStatus statusOf(HashTestKey of) { return table().tableStatus()->entryStatus(of).status(); }
    bool hasStatus(HashTestKey of) { return table().tableStatus()->entryStatusHas(of); }
    U32 rowsInUse() { return table().hashConvertor()->rowsInUse(); }
};

TEST_F(HashTestTableTest, ColdStartClearsEveryRowOfEveryCopy) {
    start();
    EXPECT_EQ(takeWriteCount(), 2u * 16 * 3);
    EXPECT_EQ(shadowWords(3), packed(3, {{64, 12, 3}, {64 + 14, 1, 0}, {64 + 15, 1, 1}}));
    EXPECT_EQ(shadowWords(11, 1), packed(3, {{64, 12, 3}, {64 + 14, 1, 1}, {64 + 15, 1, 1}}));
    EXPECT_EQ(convertor().descriptor(1)->name(), "test/demo/HashTest/1");
    EXPECT_EQ(table().cachedItems(), 0u) << "clearing a row leaves no item behind";
}

TEST_F(HashTestTableTest, AKeyIsPlacedWrittenToEachCopyAndGetsAStatus) {
    start();
    takeWrites();
    table().entryIs(key(5, 2, 3), 77);
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("pipeline[0]/processor/hash_data0", 0xD5),
                                          Pair("pipeline[0]/processor/hash_data1", 77),
                                          Pair("pipeline[0]/processor/hash_ctl", 0x8005),
                                          Pair("pipeline[1]/processor/hash_data0", 0xD5),
                                          Pair("pipeline[1]/processor/hash_data1", 77),
                                          Pair("pipeline[1]/processor/hash_ctl", 0x8005)));
    EXPECT_EQ(shadowWords(5), packed(3, {{0, 32, 0xD5}, {32, 32, 77}, {64, 12, 5}, {79, 1, 1}}));
    EXPECT_TRUE(hasStatus(key(5, 2, 3)));
    EXPECT_EQ(statusOf(key(5, 2, 3)), programmed);
    EXPECT_EQ(rowsInUse(), 1u);
}

TEST_F(HashTestTableTest, KeysNineAndSeventeenShareTheFirstRowAndDifferInTheSecond) {
    start();
    table().entryIs(0x09, 1);
    table().entryIs(0x11, 2);
    EXPECT_EQ(table().cachedItem(0x09)->hwIndex(), 1u);
    EXPECT_EQ(table().cachedItem(0x11)->hwIndex(), 8u + 2)
        << "row 1 was taken, so the key went to its other row";
    EXPECT_EQ(table().cachedItem(0x09)->getHash(1), 1u);
    EXPECT_EQ(lookUp(0x09), 1u);
    EXPECT_EQ(lookUp(0x11), 2u);
}

TEST_F(HashTestTableTest, AMovedEntryIsFoundAfterEverySingleWrite) {
    start();
    table().entryIs(key(1, 2), 10);
    table().entryIs(key(1, 3), 11);  // to its second row
    table().entryIs(key(4, 3), 12);  // 1/3 is taken by then: to its first row
    auto const watched = {std::pair{key(1, 2), 10u}, std::pair{key(1, 3), 11u}, std::pair{key(4, 3), 12u}};
    afterEveryWriteIs([&] {
        for (auto const& [present, result] : watched)
            EXPECT_EQ(lookUp(present), result) << present.value();
    });
    table().entryIs(key(1, 3, 1), 13);  // both its rows are taken: an occupant has to move
    afterEveryWriteIs({});
    EXPECT_EQ(statusOf(key(1, 3, 1)), programmed);
    EXPECT_EQ(lookUp(key(1, 3, 1)), 13u);
    EXPECT_EQ(lookUp(key(1, 3, 1), 1), 13u);
    EXPECT_EQ(rowsInUse(), 4u);
}

TEST_F(HashTestTableTest, AChangedResultIsRewrittenInPlace) {
    start();
    table().entryIs(key(5, 2), 77);
    takeWrites();
    table().entryIs(key(5, 2), 78);
    EXPECT_EQ(takeWriteCount(), 6u);
    EXPECT_EQ(lookUp(key(5, 2)), 78u);
    EXPECT_EQ(rowsInUse(), 1u);
    table().entryIs(key(5, 2), 78);
    EXPECT_EQ(takeWriteCount(), 0u);
}

TEST_F(HashTestTableTest, DeletingClearsTheRowAndForgetsItemAndStatus) {
    start();
    table().entryIs(key(5, 2), 77);
    takeWrites();
    EXPECT_EQ(table().entryDel(key(5, 2)), HashTestResult(77));
    EXPECT_EQ(takeWriteCount(), 6u);
    EXPECT_EQ(lookUp(key(5, 2)), std::nullopt);
    EXPECT_FALSE(hasStatus(key(5, 2)));
    EXPECT_EQ(table().cachedItems(), 0u);
    EXPECT_EQ(rowsInUse(), 0u);
    EXPECT_EQ(table().entryDel(key(5, 2)), HashTestResult(0));
    EXPECT_EQ(takeWriteCount(), 0u);
}

TEST_F(HashTestTableTest, AKeyWithoutAPlaceStaysWantedAndOnlyItsStatusTells) {
    start();
    for (U32 number = 0; number < 2; ++number)
        table().entryIs(key(1, 2, number), number + 1);
    takeWrites();
    table().entryIs(key(1, 2, 2), 3);
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_TRUE(table().entryHas(key(1, 2, 2)));
    EXPECT_EQ(statusOf(key(1, 2, 2)), failed);
    EXPECT_EQ(rowsInUse(), 2u);
    EXPECT_EQ(table().hashConvertor()->failedPlacements(), 1u);

    table().entryIs(key(1, 2, 2), 4);
    EXPECT_EQ(statusOf(key(1, 2, 2)), failed) << "tried anew, and there still is no place";
    table().entryDel(key(1, 2, 0));
    table().entryIs(key(1, 2, 2), 5);
    EXPECT_EQ(statusOf(key(1, 2, 2)), programmed);
    EXPECT_EQ(lookUp(key(1, 2, 2)), 5u);
    EXPECT_EQ(rowsInUse(), 2u);
}

TEST_F(HashTestTableTest, DeletingAKeyThatFoundNoPlaceTouchesNoHardwareAndLeavesItsItem) {
    start();
    for (U32 number = 0; number < 3; ++number)
        table().entryIs(key(1, 2, number), number + 1);
    takeWrites();
    table().entryDel(key(1, 2, 2));
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_FALSE(hasStatus(key(1, 2, 2)));
    EXPECT_NE(table().cachedItem(key(1, 2, 2)), nullptr);
    table().entryIs(key(1, 3, 2), 1);
    EXPECT_EQ(statusOf(key(1, 3, 2)), programmed);
}

TEST_F(HashTestTableTest, EntriesBeforeTheStartMakeNoItemAndAreWrittenByTheStart) {
    make();
    table().entryIs(key(5, 2), 77);
    EXPECT_EQ(table().cachedItems(), 0u);
    EXPECT_EQ(table().tableStatus(), nullptr);
    bringUp(StartMode::cold);
    EXPECT_EQ(lookUp(key(5, 2)), 77u);
    EXPECT_EQ(statusOf(key(5, 2)), programmed);
}

TEST_F(HashTestTableTest, EntriesAndTheirRowsSurviveARestartWithoutAWrite) {
    start();
    std::map<U32, U32> wanted;
    for (U32 number = 0; number < 9; ++number) {
        auto const each = key(number % 8, (number * 3) % 8, number);
        table().entryIs(each, number + 1);
        wanted[each.value()] = number + 1;
    }
    holdsAcrossRestart([&] {
        EXPECT_EQ(table().entries().size(), wanted.size());
        EXPECT_EQ(rowsInUse(), wanted.size());
        for (auto const& [each, result] : wanted) {
            EXPECT_EQ(table().entry(each), HashTestResult(result));
            EXPECT_EQ(statusOf(each), programmed);
            EXPECT_EQ(lookUp(each), result);
            EXPECT_TRUE(table().cachedItem(each)->valid());
        }
        EXPECT_TRUE(table().hwInconsistentEntries().empty());
    });
}

TEST_F(HashTestTableTest, TheKeyZeroIsNotDisturbedByEmptyRows) {
    start();
    table().entryIs(0, 42);
    table().entryIs(key(0, 0, 1), 43);  // so that one of them stands behind empty rows and one before
    holdsAcrossRestart([&] {
        for (auto const& [each, result] : {std::pair{HashTestKey(0), 42u}, std::pair{key(0, 0, 1), 43u}}) {
            EXPECT_EQ(table().entry(each), HashTestResult(result));
            EXPECT_TRUE(table().cachedItem(each)->valid());
            EXPECT_EQ(table().cachedItem(each)->result(), HashTestResult(result));
            EXPECT_EQ(lookUp(each), result);
        }
        EXPECT_EQ(table().cachedItems(), 2u);
    });
}

TEST_F(HashTestTableTest, AResultOfZeroInHardwareDecodesAsNotValid) {
    start();
    table().entryIs(key(5, 2), 0);
    EXPECT_EQ(statusOf(key(5, 2)), programmed);
    restart();
    EXPECT_FALSE(table().entryHas(key(5, 2)));
    EXPECT_EQ(shadowWords(5), packed(3, {{64, 12, 5}, {79, 1, 1}})) << "nobody owns the row any more";
}

TEST_F(HashTestTableTest, CopiesThatDifferMarkTheKeyAndAreMadeAlikeByTheStart) {
    start();
    table().entryIs(key(5, 2), 77);
    table().entryIs(key(6, 2), 78);
    U32 const other[] = {key(5, 2).value(), 99, 0x8005};
    shadow(1).store(5, other);
    takeWrites();
    restart();
    EXPECT_TRUE(table().hwInconsistentEntry(key(5, 2)));
    EXPECT_FALSE(table().hwInconsistentEntry(key(6, 2)));
    EXPECT_EQ(table().entry(key(5, 2)), HashTestResult(77)) << "the first copy is taken";
    EXPECT_THAT(takeWrites(), SizeIs(3)) << "the second copy is written again";
    EXPECT_EQ(lookUp(key(5, 2), 1), 77u);
}

TEST_F(HashTestTableTest, AKeyThatStandsTwiceIsAdoptedOnceAndTheOtherRowCleared) {
    start();
    table().entryIs(key(5, 2), 77);
    U32 const again[] = {key(5, 2).value(), 77, 0x8000u | 1u << 14 | 2u};
    for (U32 const copy : {0u, 1u})
        shadow(copy).store(8 + 2, again);
    takeWrites();
    restart();
    EXPECT_EQ(table().entries().size(), 1u);
    EXPECT_EQ(rowsInUse(), 1u);
    EXPECT_EQ(table().cachedItem(key(5, 2))->hwIndex(), 5u);
    EXPECT_THAT(takeWrites(), SizeIs(6));
    EXPECT_EQ(shadowWords(8 + 2), packed(3, {{64, 12, 2}, {78, 1, 1}, {79, 1, 1}}));
}

TEST_F(HashTestTableTest, ARowThatTheChipCouldNotFindIsClearedAndNotAdopted) {
    start();
    U32 const stray[] = {key(5, 2).value(), 77, 0x8003};
    for (U32 const copy : {0u, 1u})
        shadow(copy).store(3, stray);
    restart();
    EXPECT_TRUE(table().entries().empty());
    EXPECT_EQ(table().cachedItems(), 0u);
    EXPECT_EQ(shadowWords(3), packed(3, {{64, 12, 3}, {79, 1, 1}}));
}

TEST_F(HashTestTableTest, AWriteThatFailsInTheMiddleOfMovesLosesNoEntryAndIsMadeGood) {
    for (U64 fault = 1; fault <= 12; ++fault) {
        SCOPED_TRACE(fault);
        start(StartMode::cold);
        table().entryIs(key(1, 2), 10);
        table().entryIs(key(1, 3), 11);
        table().entryIs(key(4, 3), 12);
        faulty().faultIs(Chip::Fault::fail, faulty().writes() + fault);
        EXPECT_THROW(table().entryIs(key(1, 3, 1), 13), NerioSwitchApi::BusException);
        for (auto const& [present, result] :
             {std::pair{key(1, 2), 10u}, std::pair{key(1, 3), 11u}, std::pair{key(4, 3), 12u}}) {
            EXPECT_EQ(lookUp(present), result);
        }
        table().entryIs(key(1, 3, 1), 13);
        EXPECT_EQ(lookUp(key(1, 3, 1)), 13u);
        EXPECT_EQ(rowsInUse(), 4u);
        holdsAcrossRestart([&] { EXPECT_EQ(table().entries().size(), 4u); });
    }
}

TEST_F(HashTestTableTest, ABringUpThatFailsAtAnyWriteIsMadeGoodByTheNext) {
    constexpr U64 writesOfAStart = U64{2} * 16 * 3;
    for (U64 fault = 1; fault <= writesOfAStart; ++fault) {
        SCOPED_TRACE(fault);
        make();
        for (U32 number = 0; number < 5; ++number)
            table().entryIs(key(number, 2, number), number + 1);
        faulty().faultIs(Chip::Fault::fail, faulty().writes() + fault);
        ASSERT_THROW(bringUp(StartMode::cold), NerioSwitchApi::BusException);
        ASSERT_EQ(table().hashConvertor(), nullptr);
        bringUp(StartMode::cold);
        EXPECT_EQ(table().entries().size(), 5u);
        EXPECT_EQ(rowsInUse(), 5u);
        for (U32 number = 0; number < 5; ++number)
            EXPECT_EQ(lookUp(key(number, 2, number)), number + 1);
    }
}

TEST_F(HashTestTableTest, TheStatusNodeIsMadeOnceAndOutlivesItsTable) {
    make();
    EXPECT_EQ(table().tableStatus(), nullptr);
    bringUp(StartMode::cold);
    table().entryIs(key(5, 2), 77);
    auto const status = table().tableStatus();
    table().tableStatusIs();
    EXPECT_EQ(table().tableStatus(), status);
    restart();
    EXPECT_TRUE(status->entryStatusHas(key(5, 2)));
    status->entryStatusIs(TestEntryStatus().keyIs(key(6, 2)));
    EXPECT_THAT(status->entryStatuses(), SizeIs(2));
    status->entryStatusDelAll();
    EXPECT_THAT(status->entryStatuses(), SizeIs(0));
    EXPECT_TRUE(hasStatus(key(5, 2))) << "the table that came after has a node of its own";
}

TEST_F(HashTestTableTest, DeletingTheStatusNodeDeletesItsRecordsAndIsPublished) {
    start();
    table().entryIs(key(5, 2), 77);
    std::vector<std::string> changes;
    auto const subscription = table().publisher().observeAll(
        [&](Belmo::Change const& change) { changes.emplace_back(change.attribute); });
    table().tableStatusDel();
    EXPECT_EQ(table().tableStatus(), nullptr);
    table().tableStatusIs();
    EXPECT_FALSE(hasStatus(key(5, 2)));
    EXPECT_THAT(changes, ElementsAre("entryStatus", "tableStatus", "tableStatus"));
}

TEST_F(HashTestTableTest, ItemsMayBePutAndTakenAwayByKey) {
    start();
    auto const item = table().createHashEntry(key(1, 1), false);
    table().cachedItemIs(item);
    EXPECT_EQ(table().cachedItem(key(1, 1)), item);
    EXPECT_EQ(table().createHashEntry(key(1, 1), true), item) << "the older one stays";
    auto const other = table().createHashEntry(key(1, 1), false);
    table().cachedItemIs(other);
    EXPECT_EQ(table().cachedItem(key(1, 1)), other);
    EXPECT_EQ(table().cachedItems(), 1u);
    table().cachedItemDel(key(1, 1));
    EXPECT_EQ(table().cachedItem(key(1, 1)), nullptr);
    table().createHashEntry(key(2, 2), true);
    table().cachedItemDelAll();
    EXPECT_EQ(table().cachedItems(), 0u);
}

TEST_F(HashTestTableTest, LastHitTakesTheFirstHitThenTheLater) {
    start();
    table().entryIs(key(5, 2), 77);
    auto const lastHit = [&] { return table().tableStatus()->entryStatus(key(5, 2)).lastHit(); };
    Belmo::Ptr<Dovra::Cuckoo::HashItem const> const item = table().cachedItem(key(5, 2));
    EXPECT_TRUE(lastHit().isNever());
    table().lastHitByHashItemIs(item, Belmo::Duration(5));
    EXPECT_EQ(lastHit(), Belmo::Duration(5));
    table().lastHitByHashItemIs(item, Belmo::Duration(3));
    EXPECT_EQ(lastHit(), Belmo::Duration(5));
    table().lastHitByHashItemIs(item, Belmo::Duration(8));
    EXPECT_EQ(lastHit(), Belmo::Duration(8));
    table().entryIs(key(5, 2), 78);
    EXPECT_EQ(lastHit(), Belmo::Duration(8)) << "a new result keeps the time";
    table().entryDel(key(5, 2));
    table().lastHitByHashItemIs(item, Belmo::Duration(9));
    EXPECT_FALSE(hasStatus(key(5, 2)));
}

TEST_F(HashTestTableTest, RandomOperationsAgreeWithAModelAndWithTheChip) {
    std::mt19937_64 random(7);
    start();
    std::map<U32, U32> model;
    for (int step = 0; step < 20000; ++step) {
        HashTestKey const each = random() % 256;
        if (random() % 3 == 0) {
            table().entryDel(each);
            model.erase(each.value());
        } else {
            auto const result = static_cast<U32>(1 + random() % 1000);
            table().entryIs(each, result);
            model[each.value()] = result;
        }
        U32 placed = 0;
        for (U32 any = 0; any < 256; ++any) {
            bool const inHardware = model.contains(any) && statusOf(any) == programmed;
            placed += inHardware ? 1 : 0;
            ASSERT_EQ(lookUp(any), inHardware ? std::optional(model[any]) : std::nullopt) << any;
        }
        ASSERT_EQ(rowsInUse(), placed);
        if (step % 500 == 499) {
            std::erase_if(model, [&](auto const& entry) { return statusOf(entry.first) != programmed; });
            takeWrites();
            restart();
            ASSERT_EQ(takeWriteCount(), 0u);
            ASSERT_EQ(table().entries().size(), model.size());
        }
    }
}

using HashTestTableDeathTest = HashTestTableTest;

TEST_F(HashTestTableDeathTest, AnItemThatIsNotValidCannotBecomeAnEntry) {
    start();
    auto const item = table().createHashEntry(key(5, 2), false);
    EXPECT_DEATH(table().entryIsByHashItem(item), "hashItem->valid\\(\\)");
}

TEST_F(HashTestTableDeathTest, ItemAndStatusMustAgreeOnTheLastHit) {
    start();
    table().entryIs(key(5, 2), 77);
    auto const item = table().cachedItem(key(5, 2));
    item->lastHitIs(Belmo::Duration(1));
    EXPECT_DEATH(table().lastHitByHashItemIs(item, Belmo::Duration(2)),
                 "item->lastHit\\(\\) == status.lastHit\\(\\)");
}

}  // namespace
