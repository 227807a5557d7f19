// Placement seen from the chip: whatever is being written, it finds every rule that has a place, and no
// other.
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <vector>

#include "AclFixture.h"
#include "BuildUnderTest.h"
#include "RandomAcl.h"

namespace {

using namespace NerioTest;
using NerioSwitch::AclHashKey;
using NerioSwitch::AclHashResult;

constexpr auto programmed = NerioSwitchApi::EntryProgrammedStatus::entryProgrammed;
constexpr auto failed = NerioSwitchApi::EntryProgrammedStatus::entryProgrammingFailed;

/** Every rule is looked up after every write, which takes the sanitizers' build long. */
int const steps = sanitized ? 10 : 100;

struct Place {
    AclChip chip;
    U8 physTableIdx;
};

class AclPlacementTest : public AclTableFixture, public ::testing::WithParamInterface<Place> {
protected:
    AclPlacementTest() { chipIs(GetParam().chip); }

    void startAndLook() {
        startTable(GetParam().physTableIdx);
        lookup_.emplace(chip(), profile());
    }
    AclHashKey randomKey() {
        return randomAclKey(random_, GetParam().physTableIdx, GetParam().chip.verMajor);
    }
    AclHashResult randomResult() {
        return randomAclResult(random_, GetParam().physTableIdx, GetParam().chip.verMajor);
    }
    Random& random() { return random_; }

    std::optional<Chip::AclHit> find(AclHashKey const& key) const {
        return lookup_->find(packetOf(key), key.combination().value(), 0);
    }
    bool isProgrammed(AclHashKey const& key) {
        return table().tableStatus()->entryStatus(key).status() == programmed;
    }

    /** Sets an entry, here and in the table. */
    void put(AclHashKey const& key, AclHashResult const& result) {
        underway_ = key;
        table().entryIs(key, result);
        underway_.reset();
        if (isProgrammed(key)) {
            inHardware_[key] = result;
        } else {
            inHardware_.erase(key);
        }
    }
    void remove(AclHashKey const& key) {
        underway_ = key;
        table().entryDel(key);
        underway_.reset();
        inHardware_.erase(key);
    }
    /** Fills the table until a key finds no place, and returns that key. */
    AclHashKey fill() {
        for (;;) {
            auto const key = randomKey();
            put(key, randomResult());
            if (!isProgrammed(key)) return key;
        }
    }
    AclHashKey anyInHardware() {
        auto found = inHardware_.lower_bound(randomKey());
        return found == inHardware_.end() ? inHardware_.begin()->first : found->first;
    }

    /** Every rule that has a place is found with what it says; the one underway may be either way. */
    void everyRuleIsFound() const {
        for (auto const& [key, result] : inHardware_) {
            bool const isFound = key == underway_ || yields(find(key), result);
            ASSERT_TRUE(isFound) << Sorn::text(key);
        }
    }

    std::map<AclHashKey, AclHashResult> const& inHardware() const { return inHardware_; }

private:
    Random random_{20263};
    std::optional<Chip::AclLookup> lookup_;
    std::map<AclHashKey, AclHashResult> inHardware_;
    std::optional<AclHashKey> underway_;
};

TEST_P(AclPlacementTest, NoRuleVanishesWhileAnotherIsPlacedNearTheLimit) {
    startAndLook();
    fill();
    everyRuleIsFound();
    // Only a write with a strobe changes rows, and it stands behind the data words of its row.
    U32 writes = 0;
    afterEveryWriteIs([&] {
        ++writes;
        everyRuleIsFound();
    });
    for (int step = 0; step < steps && !HasFatalFailure(); ++step) {
        switch (below(random(), 4)) {
            case 0:
                remove(anyInHardware());
                break;
            case 1:
                put(anyInHardware(), randomResult());
                break;
            default:
                put(randomKey(), randomResult());
        }
    }
    afterEveryWriteIs({});
    EXPECT_GT(writes, 3 * static_cast<U64>(steps));
    auto const& histogram = table().hashConvertor()->moveHistogram();
    U64 chains = 0;
    for (std::size_t length = 3; length < histogram.size(); ++length)
        chains += histogram[length];
    EXPECT_GT(chains, 0u) << "no chain of three moves was seen";
}

TEST_P(AclPlacementTest, NothingIsFoundThatWasNotPutThere) {
    startAndLook();
    fill();
    everyRuleIsFound();
    std::size_t strangers = 0;
    while (strangers < 100000) {
        auto const key = randomKey();
        if (inHardware().contains(key)) continue;
        ++strangers;
        ASSERT_FALSE(find(key)) << Sorn::text(key);
    }
    // Neighbours of rules: one bit of the address apart, they share much of what rows store.
    for (auto const& [key, result] : inHardware()) {
        auto neighbour = key;
        auto const& prefix = GetParam().physTableIdx == 1 ? key.firstPrefix() : key.secondPrefix();
        U32 const bit = 1u << (32 - prefix.len());
        U32 const address = prefix.address().hostOrder() ^ bit;
        if (address == 0) continue;
        Lanvo::Prefix const other(Lanvo::IpAddr::fromHostOrder(address), prefix.len());
        if (GetParam().physTableIdx == 1) {
            neighbour.firstPrefixIs(other);
        } else {
            neighbour.secondPrefixIs(other);
        }
        bool const isStranger = !inHardware().contains(neighbour);
        ASSERT_FALSE(isStranger && find(neighbour)) << Sorn::text(neighbour);
    }
}

TEST_P(AclPlacementTest, ATableAtItsLimitKeepsWhatItHasAndWorksOn) {
    startAndLook();
    auto const homeless = fill();
    EXPECT_EQ(table().tableStatus()->entryStatus(homeless).status(), failed);
    EXPECT_TRUE(table().entryHas(homeless));
    EXPECT_FALSE(find(homeless));
    auto const before = inHardware();
    EXPECT_EQ(table().hashConvertor()->rowsInUse(), before.size());
    EXPECT_EQ(convertor().entryCounter(0)->used(), before.size());
    for (int more = 0; more < 200; ++more)
        put(randomKey(), randomResult());
    everyRuleIsFound();
    for (auto const& [key, result] : before)
        ASSERT_TRUE(inHardware().contains(key));

    // Deleting whoever stands in its rows makes room.
    auto const item = table().cachedItem(homeless);
    auto const inItsRow = table().hashConvertor()->itemAt(item->getHash(0));
    ASSERT_NE(inItsRow, nullptr);
    remove(static_cast<NerioSwitchTable::AclHashTableCuckooEntry const&>(*inItsRow).key());
    put(homeless, randomResult());
    EXPECT_TRUE(isProgrammed(homeless));
    everyRuleIsFound();
    EXPECT_EQ(table().hashConvertor()->rowsInUse(), inHardware().size());
    EXPECT_EQ(convertor().entryCounter(0)->used(), inHardware().size());
}

TEST_P(AclPlacementTest, ARestartFindsEveryRuleInItsRowAndWritesNothing) {
    startAndLook();
    fill();
    auto const rules = inHardware();
    holdsAcrossRestart([&] {
        EXPECT_EQ(table().hashConvertor()->rowsInUse(), rules.size());
        for (auto const& [key, result] : rules) {
            ASSERT_TRUE(table().entryHas(key)) << Sorn::text(key);
            ASSERT_EQ(table().entry(key), result);
            ASSERT_TRUE(isProgrammed(key));
        }
    });
    everyRuleIsFound();
}

std::vector<Place> places() {
    std::vector<Place> all;
    for (U8 const table : std::initializer_list<U8>{0, 1, 2, 5}) {
        for (auto const& chip : {AclChip{2, false}, AclChip{3, true}, AclChip{6, false}, AclChip{6, true}})
            all.push_back({chip, table});
    }
    return all;
}

std::string placeName(::testing::TestParamInfo<Place> const& info) {
    auto const& [chip, table] = info.param;
    return "Table" + std::to_string(table) + "Version" + std::to_string(chip.verMajor) +
           (chip.single ? "Single" : "Shared");
}

INSTANTIATE_TEST_SUITE_P(Tables, AclPlacementTest, ::testing::ValuesIn(places()), placeName);

}  // namespace
