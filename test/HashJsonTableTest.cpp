#include <functional>
#include <gtest/gtest.h>
#include <numeric>

#include "NerioSwitchTable/NerioTableHashTest.h"
#include "NerioSwitchTable/NerioTablePortConfig.h"
#include "SwitchFixture.h"
#include "agent/HashJsonTable.h"

namespace {

using Agent::Json;
using Agent::Place;
using NerioSwitchTable::HashTestTable;
using NerioTest::StartMode;

/** A key by its rows, and a number to tell keys apart. */
U32 key(U32 first, U32 second, U32 number = 0) {
    return number << 6 | second << 3 | first;
}

Json parsed(char const* text) {
    return Json::parse(text);
}

class HashJsonTableTest : public NerioTest::TableFixture<HashTestTable> {
protected:
    HashJsonTableTest() : TableFixture([] { return NerioSwitchTable::hashTestTableFactory("t"); }) {}

    Agent::HashJsonTable<HashTestTable> json() { return Agent::HashJsonTable<HashTestTable>(&table()); }
    void entryIs(U32 of, U32 result) { json().entryIs(of, result, Place()); }
    Json location(U32 of) { return json().location(of, Place()).value(); }
    Json hash(U32 of) { return json().hash(of, Place()).value(); }
    Agent::HashPlacement placement() { return json().placement().value(); }
};

TEST_F(HashJsonTableTest, StatusStandsInKeyOrder) {
    start();
    EXPECT_EQ(json().status(), Json::array());
    for (U32 const each : {key(1, 2, 2), key(1, 2, 0), key(1, 2, 1)})
        entryIs(each, 7);
    table().lastHitByHashItemIs(table().cachedItem(key(1, 2, 2)), Belmo::Duration(2.5));
    EXPECT_EQ(json().status(), parsed(R"([{"key":17,"status":0,"lastHit":null},
                                          {"key":81,"status":1,"lastHit":null},
                                          {"key":145,"status":0,"lastHit":2.5}])"));
}

TEST_F(HashJsonTableTest, LocationIsTheRowThatTheKeyStandsIn) {
    start();
    entryIs(key(5, 2), 1);
    entryIs(key(5, 3), 2);
    entryIs(key(5, 3, 1), 3);  // the first two make room
    entryIs(key(5, 3, 2), 4);
    entryIs(key(5, 3, 3), 5);
    Json rows = Json::array();
    std::size_t without = 0;
    for (U32 const each : {key(5, 2), key(5, 3), key(5, 3, 1), key(5, 3, 2), key(5, 3, 3)}) {
        auto const at = location(each);
        if (at.is_null()) {
            ++without;
            continue;
        }
        U32 const row = at["table"].get<U32>() == 0 ? each & 7 : each >> 3 & 7;
        EXPECT_EQ(at["row"], row) << each;
        EXPECT_EQ(table().cachedItem(each)->hwIndex(), at["table"].get<U32>() * 8 + row);
        rows.push_back(at);
    }
    EXPECT_EQ(rows.size(), 3u) << "rows 5 of table 0 and 2 and 3 of table 1";
    EXPECT_EQ(without, 2u) << "a key that found no place is in no row";
    EXPECT_TRUE(location(key(0, 0, 9)).is_null());
}

TEST_F(HashJsonTableTest, HashTellsTheRowOfEachWayAndWhatIsHashed) {
    start();
    EXPECT_EQ(hash(0xD5), parsed(R"({"hashes":[5,2],"bits":32,"input":"d5000000"})"));
    EXPECT_EQ(hash(0x89ABCDEF), parsed(R"({"hashes":[7,5],"bits":32,"input":"efcdab89"})"));
    EXPECT_EQ(table().cachedItems(), 0u) << "asking leaves no item behind";
    EXPECT_EQ(json().status(), Json::array());
}

TEST_F(HashJsonTableTest, BeforeTheStartOnlyTheHashIsUnknown) {
    make();
    entryIs(5, 1);
    EXPECT_EQ(json().status(), Json::array());
    EXPECT_TRUE(location(5).is_null());
    EXPECT_FALSE(json().placement());
    try {
        hash(5);
        FAIL() << "the profile decides on the hash";
    } catch (Agent::JsonException const& failure) {
        EXPECT_STREQ(failure.what(), "table: \"t\" is not started");
        EXPECT_STREQ(failure.typeName(), "ScriptError");
    }
}

TEST_F(HashJsonTableTest, KeysThatTheFamilyDoesNotTakeAreRefused) {
    start();
    constexpr char const* text = "key: expected an integer of at most 64 bits, found an object";
    for (auto const& ask : {std::function([&] { json().location(Json::object(), Place()); }),
                            std::function([&] { json().hash(Json::object(), Place()); })}) {
        try {
            ask();
            FAIL();
        } catch (Agent::JsonException const& failure) {
            EXPECT_STREQ(failure.what(), text);
            EXPECT_EQ(failure.place(), "/key");
        }
    }
    EXPECT_THROW(hash(0) = json().hash(U64{1} << 32, Place()).value(), Agent::JsonException);
}

TEST_F(HashJsonTableTest, PlacementCountsRowsMovesAndEntriesWithoutAPlace) {
    start();
    entryIs(key(1, 2), 10);
    entryIs(key(1, 3), 11);
    entryIs(key(4, 3), 12);
    entryIs(key(1, 3, 1), 13);  // both its rows are taken: an occupant moves
    EXPECT_EQ(placement().rowsInUse, 4u);
    EXPECT_EQ(placement().rows, 16u);
    auto const moves = placement().moves;
    EXPECT_EQ(moves[0], 3u);
    EXPECT_EQ(std::accumulate(moves.begin() + 1, moves.end(), U64{0}), 1u);
    EXPECT_EQ(placement().entriesWithoutPlace, 0u);

    for (U32 number = 2; number < 6; ++number)
        entryIs(key(1, 2, number), number);
    auto const full = placement();
    EXPECT_EQ(full.rowsInUse + full.entriesWithoutPlace, 8u);
    EXPECT_GT(full.entriesWithoutPlace, 0u);
    EXPECT_EQ(full.failedPlacements, full.entriesWithoutPlace);
    entryIs(key(1, 2, 5), 99);
    EXPECT_EQ(placement().failedPlacements, full.failedPlacements + 1) << "an attempt more";
    EXPECT_EQ(placement().entriesWithoutPlace, full.entriesWithoutPlace) << "the same entries";
}

TEST(PlainJsonTableTest, PlainTablesHaveNothingOfTheKind) {
    Agent::PlainJsonTable<NerioSwitchTable::PortConfigTable> const ports(
        NerioSwitchTable::portConfigTableFactory("ports"));
    auto const port = parsed(R"({"portId":5})");
    EXPECT_FALSE(ports.status());
    EXPECT_FALSE(ports.location(port, Place()));
    EXPECT_FALSE(ports.hash(port, Place()));
    EXPECT_FALSE(ports.placement());
}

}  // namespace
