#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "TableGauge/TableGauge.h"

namespace {

using TableGauge::Counter;
using TableGauge::Gauges;
using TableGauge::TableKey;

TableKey const aclKey("ACL", "Pipe0", "aclHash0");

/** A counter of a key that does not matter, and what its observer hears. */
class Watched {
public:
    explicit Watched(U32 capacity) : counter_(Belmo::make<Counter>(aclKey, U32{0}, capacity)) {
        counter_->nearlyFullObserverIs([this](Counter const& counter) {
            heard_.push_back({counter.used(), counter.nearlyFull()});
        });
    }
    Counter* operator->() { return counter_.get(); }

    struct Mark {
        U32 used;
        bool nearlyFull;
        friend bool operator==(Mark const&, Mark const&) = default;
    };
    /** What was heard since this was last asked. */
    std::vector<Mark> heard() { return std::exchange(heard_, {}); }

private:
    Belmo::Ptr<Counter> counter_;
    std::vector<Mark> heard_;
};

using Marks = std::vector<Watched::Mark>;

TEST(TableKey, IsVerifiedOnceEachNameSaysSomething) {
    EXPECT_TRUE(aclKey.verifyTableKey());
    EXPECT_FALSE(TableKey().verifyTableKey());
    EXPECT_FALSE(TableKey("", "Pipe0", "aclHash0").verifyTableKey());
    EXPECT_FALSE(TableKey("ACL", "", "aclHash0").verifyTableKey());
    EXPECT_FALSE(TableKey("ACL", "Pipe0", "").verifyTableKey());
}

TEST(TableKey, KeepsItsNamesApart) {
    EXPECT_EQ(aclKey.table(), "ACL");
    EXPECT_EQ(aclKey.pipe(), "Pipe0");
    EXPECT_EQ(aclKey.swTable(), "aclHash0");
    EXPECT_NE(TableKey("ab", "c", "d").hash(0), TableKey("a", "bc", "d").hash(0));
}

TEST(Counter, StartsEmpty) {
    Watched counter(100);
    EXPECT_EQ(counter->key(), aclKey);
    EXPECT_EQ(counter->index(), 0u);
    EXPECT_EQ(counter->capacity(), 100u);
    EXPECT_EQ(counter->used(), 0u);
    EXPECT_FALSE(counter->nearlyFull());
}

TEST(Counter, IsNearlyFullFrom95PercentDownTo90) {
    Watched counter(100);
    for (U32 used = 0; used <= 94; ++used)
        counter->usedIs(used);
    EXPECT_EQ(counter.heard(), Marks{});
    counter->usedIs(95);
    EXPECT_EQ(counter.heard(), (Marks{{95, true}}));
    for (U32 const used : {96u, 100u, 95u, 94u, 91u, 95u})
        counter->usedIs(used);
    EXPECT_EQ(counter.heard(), Marks{}) << "not told twice, nor between the thresholds";
    EXPECT_TRUE(counter->nearlyFull());
    counter->usedIs(90);
    EXPECT_EQ(counter.heard(), (Marks{{90, false}}));
    for (U32 const used : {94u, 90u, 0u})
        counter->usedIs(used);
    EXPECT_EQ(counter.heard(), Marks{});
}

TEST(Counter, MovesItsMarkWithItsThresholds) {
    Watched counter(100);
    counter->usedIs(50);
    counter->thresholdsAre(50, 40);
    EXPECT_EQ(counter.heard(), (Marks{{50, true}}));
    counter->thresholdsAre(80, 50);
    EXPECT_EQ(counter.heard(), (Marks{{50, false}}));
    counter->thresholdsAre(51, 49);
    EXPECT_EQ(counter.heard(), Marks{});
    counter->usedIs(51);
    counter->usedIs(49);
    EXPECT_EQ(counter.heard(), (Marks{{51, true}, {49, false}}));
}

TEST(Counter, OfAnyCapacityMarksAFullTableAndClearsAnEmptyOneOnce) {
    for (U32 capacity = 1; capacity <= 300; ++capacity) {
        Watched counter(capacity);
        counter->usedIs(0);
        EXPECT_EQ(counter.heard(), Marks{}) << capacity;
        counter->usedIs(capacity);
        counter->usedIs(capacity);
        EXPECT_EQ(counter.heard(), (Marks{{capacity, true}})) << capacity;
        counter->usedIs(0);
        counter->usedIs(0);
        EXPECT_EQ(counter.heard(), (Marks{{0, false}})) << capacity;
    }
}

TEST(Counter, OfASmallTableDoesNotReportAtEverySetting) {
    Watched counter(10);
    for (int i = 0; i < 3; ++i)
        counter->usedIs(9);
    EXPECT_EQ(counter.heard(), (Marks{{9, true}}));
    counter->usedIs(8);
    EXPECT_EQ(counter.heard(), (Marks{{8, false}}));
}

TEST(Counter, OfNoCapacityIsNeverNearlyFull) {
    Watched counter(0);
    counter->usedIs(0);
    EXPECT_FALSE(counter->nearlyFull());
}

TEST(Counter, CountsLargeTablesWithoutOverflow) {
    Watched counter(4000000000u);
    counter->usedIs(3799999999u);
    EXPECT_FALSE(counter->nearlyFull());
    counter->usedIs(3800000000u);
    EXPECT_TRUE(counter->nearlyFull());
    counter->usedIs(3600000001u);
    EXPECT_TRUE(counter->nearlyFull());
    counter->usedIs(3600000000u);
    EXPECT_FALSE(counter->nearlyFull());
}

TEST(CounterDeathTest, RefusesMoreThanItsCapacityAndThresholdsThatMeet) {
    Watched counter(10);
    EXPECT_DEATH(counter->usedIs(11), "Assertion failed: used <= capacity_ \\(");
    EXPECT_DEATH(counter->thresholdsAre(5, 5), "Assertion failed: low < high \\(");
}

std::vector<std::string> swTablesOf(Gauges const& gauges) {
    std::vector<std::string> names;
    for (auto const& counter : gauges.counters())
        names.push_back(counter->key().swTable() + "/" + std::to_string(counter->index()));
    return names;
}

TEST(Gauges, KeepCountersInTheOrderOfTheirMaking) {
    auto const gauges = Belmo::make<Gauges>();
    auto const first = gauges->counterIs(TableKey("NAT", "Pipe1", "nat"), 8, 0);
    auto const second = gauges->counterIs(aclKey, 16, 1);
    auto const third = gauges->counterIs(aclKey, 32, 0);
    EXPECT_EQ(swTablesOf(*gauges), (std::vector<std::string>{"nat/0", "aclHash0/1", "aclHash0/0"}));
    EXPECT_EQ(gauges->counters()[1], second);
    EXPECT_EQ(second->capacity(), 16u);
    EXPECT_EQ(third->index(), 0u);
}

TEST(Gauges, PutANewCounterInThePlaceOfAnOlderOneOfTheSameName) {
    auto const gauges = Belmo::make<Gauges>();
    auto const older = gauges->counterIs(aclKey, 16, 0);
    gauges->counterIs(aclKey, 16, 1);
    older->usedIs(5);
    auto const newer = gauges->counterIs(aclKey, 64, 0);
    EXPECT_NE(newer, older);
    EXPECT_EQ(newer->used(), 0u);
    EXPECT_EQ(newer->capacity(), 64u);
    EXPECT_EQ(swTablesOf(*gauges), (std::vector<std::string>{"aclHash0/1", "aclHash0/0"}));
    EXPECT_EQ(older->references(), 1u) << "held by none but this test";
    older->usedIs(6);
    EXPECT_EQ(newer->used(), 0u);
}

TEST(Gauges, DropTheCountersOfOneSoftwareTable) {
    auto const gauges = Belmo::make<Gauges>();
    gauges->counterIs(aclKey, 16, 0);
    gauges->counterIs(TableKey("ACL", "Pipe0", "aclHash1"), 16, 0);
    gauges->counterIs(TableKey("ACL", "Pipe1", "aclHash0"), 16, 0);
    gauges->counterDelAll("aclHash");
    EXPECT_EQ(gauges->counters().size(), 3u) << "no table of that name";
    gauges->counterDelAll("aclHash0");
    EXPECT_EQ(swTablesOf(*gauges), std::vector<std::string>{"aclHash1/0"});
    gauges->counterDelAll("aclHash1");
    EXPECT_TRUE(gauges->counters().empty());
}

TEST(GaugesDeathTest, RefuseAKeyThatIsNotVerified) {
    auto const gauges = Belmo::make<Gauges>();
    EXPECT_DEATH(gauges->counterIs(TableKey("ACL", "", "aclHash0"), 16, 0),
                 "Assertion failed: key\\.verifyTableKey\\(\\) \\(");
}

}  // namespace
