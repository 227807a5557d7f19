#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <vector>

#include "Dovra/Cuckoo.h"
#include "NerioSwitch/CrcHash.h"

namespace {

using namespace Dovra::Cuckoo;
using testing::ElementsAre;
using testing::IsEmpty;

Rows rows(U16 first, U16 second, U16 third = 0, U16 fourth = 0) {
    return {first, second, third, fourth};
}

TEST(CuckooPlanner, TakesTheFirstFreeRow) {
    Occupancy occupancy(2, 8);
    Planner planner(occupancy);
    auto const& plan = planner.plan(rows(3, 5));
    EXPECT_EQ(plan.outcome, Outcome::placed);
    EXPECT_EQ(plan.slot, occupancy.slotOf(0, 3));
    EXPECT_THAT(plan.moves, IsEmpty());
    occupancy.take(plan.slot, rows(3, 5));
    EXPECT_EQ(planner.plan(rows(3, 6)).slot, occupancy.slotOf(1, 6));
}

TEST(CuckooPlanner, MovesTheOccupantWithTheShortestWay) {
    Occupancy occupancy(2, 8);
    Planner planner(occupancy);
    occupancy.take(occupancy.slotOf(0, 1), rows(1, 1));
    occupancy.take(occupancy.slotOf(1, 2), rows(4, 2));
    auto const& plan = planner.plan(rows(1, 2));
    EXPECT_EQ(plan.outcome, Outcome::placed);
    EXPECT_EQ(plan.slot, occupancy.slotOf(0, 1));
    EXPECT_THAT(plan.moves, ElementsAre(Move{occupancy.slotOf(0, 1), occupancy.slotOf(1, 1)}));
}

TEST(CuckooPlanner, ListsMovesFromTheFreeRowBackwards) {
    Occupancy occupancy(2, 8);
    Planner planner(occupancy);
    // The new key's rows are 0/1 and 1/1; both lead over occupants to the one free row, 1/3.
    occupancy.take(occupancy.slotOf(0, 1), rows(1, 2));
    occupancy.take(occupancy.slotOf(1, 1), rows(1, 1));
    occupancy.take(occupancy.slotOf(1, 2), rows(3, 2));
    occupancy.take(occupancy.slotOf(0, 3), rows(3, 3));
    auto const& plan = planner.plan(rows(1, 1));
    EXPECT_EQ(plan.outcome, Outcome::placed);
    EXPECT_THAT(plan.moves, ElementsAre(Move{occupancy.slotOf(0, 3), occupancy.slotOf(1, 3)},
                                        Move{occupancy.slotOf(1, 2), occupancy.slotOf(0, 3)},
                                        Move{occupancy.slotOf(0, 1), occupancy.slotOf(1, 2)}));
    EXPECT_EQ(plan.slot, occupancy.slotOf(0, 1));
}

TEST(CuckooPlanner, TellsAFullTableFromOneWithoutAPath) {
    Occupancy occupancy(2, 2);
    Planner planner(occupancy);
    occupancy.take(occupancy.slotOf(0, 0), rows(0, 0));
    occupancy.take(occupancy.slotOf(1, 0), rows(0, 0));
    EXPECT_EQ(planner.plan(rows(0, 0)).outcome, Outcome::noPath);
    occupancy.take(occupancy.slotOf(0, 1), rows(1, 1));
    occupancy.take(occupancy.slotOf(1, 1), rows(1, 1));
    EXPECT_EQ(planner.plan(rows(0, 0)).outcome, Outcome::full);
    occupancy.release(occupancy.slotOf(0, 1));
    EXPECT_EQ(occupancy.used(), 3u);
    EXPECT_EQ(planner.plan(rows(1, 1)).slot, occupancy.slotOf(0, 1));
}

TEST(CuckooPlanner, WalksDeadEndsOnceUntilOneOfThemIsReleased) {
    Occupancy occupancy(2, 8);
    Planner planner(occupancy);
    occupancy.take(occupancy.slotOf(0, 0), rows(0, 0));
    occupancy.take(occupancy.slotOf(1, 0), rows(0, 0));
    occupancy.take(occupancy.slotOf(0, 1), rows(1, 1));
    EXPECT_EQ(planner.plan(rows(0, 0)).visited, 2u);
    EXPECT_EQ(planner.plan(rows(0, 0)).visited, 0u);
    EXPECT_EQ(planner.plan(rows(0, 0)).outcome, Outcome::noPath);
    occupancy.release(occupancy.slotOf(0, 1));
    EXPECT_EQ(planner.plan(rows(0, 0)).visited, 0u) << "that slot leads nowhere near";
    occupancy.release(occupancy.slotOf(1, 0));
    EXPECT_EQ(planner.plan(rows(0, 0)).slot, occupancy.slotOf(1, 0));
}

/** A planner that has never searched, over the same slots. */
Plan freshPlan(Occupancy const& occupancy, Rows const& wanted) {
    Occupancy copy(occupancy.ways(), occupancy.rowsPerWay());
    for (Slot slot = 0; slot < occupancy.slots(); ++slot) {
        if (occupancy.taken(slot)) copy.take(slot, occupancy.rowsOf(slot));
    }
    return Planner(copy).plan(wanted);
}

TEST(CuckooPlanner, WhatItRemembersChangesNoPlan) {
    std::mt19937 random(3);
    Occupancy occupancy(3, 16);
    Planner planner(occupancy);
    auto const anyRows = [&] {
        return rows(static_cast<U16>(random() % 16), static_cast<U16>(random() % 16),
                    static_cast<U16>(random() % 16));
    };
    std::map<Outcome, int> outcomes;
    for (int step = 0; step < 20000; ++step) {
        if (random() % 5 == 0) {
            occupancy.release(static_cast<Slot>(random() % occupancy.slots()));
            continue;
        }
        auto const wanted = anyRows();
        auto const fresh = freshPlan(occupancy, wanted);
        auto const& plan = planner.plan(wanted);
        ++outcomes[plan.outcome];
        ASSERT_EQ(plan.outcome, fresh.outcome);
        ASSERT_EQ(plan.moves, fresh.moves);
        if (plan.outcome != Outcome::placed) continue;
        for (auto const& move : plan.moves) {
            occupancy.take(move.to, occupancy.rowsOf(move.from));
            occupancy.release(move.from);
        }
        occupancy.take(plan.slot, wanted);
    }
    EXPECT_GT(outcomes[Outcome::placed], 1000);
    EXPECT_GT(outcomes[Outcome::noPath], 1000);
    EXPECT_GT(outcomes[Outcome::full], 10);
}

TEST(CuckooPlanner, ARowBehindTheTableIsNone) {
    Occupancy occupancy(2, 8);
    Planner planner(occupancy);
    EXPECT_EQ(planner.plan(rows(8, 5)).slot, occupancy.slotOf(1, 5));
    EXPECT_EQ(planner.plan(rows(8, 9)).outcome, Outcome::noPath);
    occupancy.take(occupancy.slotOf(1, 5), rows(20, 5));
    EXPECT_EQ(planner.plan(rows(8, 5)).outcome, Outcome::noPath) << "the occupant has no other row";
}

TEST(CuckooPlanner, AnImmovableOccupantStays) {
    Occupancy occupancy(2, 8);
    Planner planner(occupancy);
    occupancy.take(occupancy.slotOf(0, 1), immovable);
    EXPECT_EQ(planner.plan(rows(1, 2)).slot, occupancy.slotOf(1, 2));
    occupancy.take(occupancy.slotOf(1, 2), immovable);
    EXPECT_EQ(planner.plan(rows(1, 2)).outcome, Outcome::noPath);
}

/** Hash tables of keys by number, placed as a table would place them. */
class Filler {
public:
    using Hashes = NerioSwitch::CrcHashes (*)(U8 const*, U8);

    Filler(U8 ways, U32 rowsPerWay, Hashes hashes)
        : occupancy_(ways, rowsPerWay), planner_(occupancy_), hashes_(hashes), keys_(occupancy_.slots()) {}

    /** Places a key; false if it finds no place. After every single move each key stands in one of its rows.
     */
    bool insert(U64 key) {
        Rows keyRows{};
        U8 bytes[8];
        for (int i = 0; i < 8; ++i)
            bytes[i] = static_cast<U8>(key >> (8 * i));
        auto const hashes = hashes_(bytes, 64);
        for (U8 way = 0; way < occupancy_.ways(); ++way)
            keyRows[way] = static_cast<U16>(hashes.way(way));
        auto const& plan = planner_.plan(keyRows);
        moves_ += plan.moves.size();
        if (plan.outcome != Outcome::placed) return false;
        for (auto const& move : plan.moves) {
            EXPECT_FALSE(occupancy_.taken(move.to)) << "a move overwrites an occupant";
            EXPECT_EQ(occupancy_.slotOf(occupancy_.wayOf(move.to),
                                        occupancy_.rowsOf(move.from)[occupancy_.wayOf(move.to)]),
                      move.to)
                << "a move leads to a row that is not the occupant's";
            occupancy_.take(move.to, occupancy_.rowsOf(move.from));
            keys_[move.to] = keys_[move.from];
            occupancy_.release(move.from);
        }
        EXPECT_FALSE(occupancy_.taken(plan.slot));
        occupancy_.take(plan.slot, keyRows);
        keys_[plan.slot] = key;
        return true;
    }
    double fill() const { return static_cast<double>(occupancy_.used()) / occupancy_.slots(); }
    std::size_t moves() const { return moves_; }
    std::vector<U64> keys() const {
        std::vector<U64> all;
        for (Slot slot = 0; slot < occupancy_.slots(); ++slot) {
            if (occupancy_.taken(slot)) all.push_back(keys_[slot]);
        }
        std::sort(all.begin(), all.end());
        return all;
    }

private:
    Occupancy occupancy_;
    Planner planner_;
    Hashes hashes_;
    std::vector<U64> keys_;
    std::size_t moves_ = 0;
};

struct Geometry {
    char const* name;
    U8 ways;
    U32 rowsPerWay;
    Filler::Hashes hashes;
    double meanFill;
};

class CuckooFill : public ::testing::TestWithParam<Geometry> {};

TEST_P(CuckooFill, RandomKeysReachTheMeanFillUntilTheFirstFindsNoPlace) {
    auto const& geometry = GetParam();
    double sum = 0;
    constexpr int seeds = 50;
    for (int seed = 0; seed < seeds; ++seed) {
        std::mt19937_64 random(static_cast<U64>(seed));
        Filler filler(geometry.ways, geometry.rowsPerWay, geometry.hashes);
        std::vector<U64> inserted;
        for (U64 key = random(); filler.insert(key); key = random())
            inserted.push_back(key);
        std::sort(inserted.begin(), inserted.end());
        ASSERT_EQ(filler.keys(), inserted) << "every key that was placed is still there";
        sum += filler.fill();
    }
    RecordProperty("meanFill", std::to_string(sum / seeds));
    EXPECT_GE(sum / seeds, geometry.meanFill);
}

INSTANTIATE_TEST_SUITE_P(Geometries, CuckooFill,
                         ::testing::Values(Geometry{"2x1024", 2, 1024, NerioSwitch::crc10Hashes, 0.535},
                                           Geometry{"2x4096", 2, 4096, NerioSwitch::crc12Hashes, 0.52},
                                           Geometry{"3x8192", 3, 8192, NerioSwitch::crc13Hashes, 0.914},
                                           Geometry{"3x4096", 3, 4096, NerioSwitch::crc12Hashes, 0.915},
                                           Geometry{"4x1024", 4, 1024, NerioSwitch::crc10Hashes, 0.975}),
                         [](auto const& geometry) { return Belmo::String("rows") + geometry.param.name; });

}  // namespace
