#include <algorithm>
#include <cstddef>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <rapidcheck/gtest.h>
#include <string>
#include <vector>

#include "Belmo/Exceptions.h"
#include "NerioSwitchApi/Shadow.h"

#include "FailureText.h"
#include "TemporaryDirectory.h"

namespace {

using namespace NerioSwitchApi;
using testing::HasSubstr;

using Words = std::vector<U32>;

std::string corruptionOf(ShadowTable const& table, HwIndex row) {
    return failureOf<Belmo::CorruptionDetectedException>([&] { table.read(row); });
}

void write(ShadowTable& table, HwIndex row, Words const& words) {
    table.intend(row, words);
    table.written(row);
}

/** Both kinds of store keep the same promises. */
class ShadowTest : public testing::TestWithParam<bool> {
protected:
    ShadowTest() : store_(GetParam() ? mappedShadowStore(directory_.path("shadow")) : memoryShadowStore()) {}

    Belmo::Ptr<ShadowTable> table(StartMode mode, HwIndex first = 10, HwIndex last = 19) {
        return store_->tableIs("lag", first, last, mode);
    }

    TemporaryDirectory directory_;
    Belmo::Ptr<ShadowStore> store_;
};

INSTANTIATE_TEST_SUITE_P(Stores, ShadowTest, testing::Bool(),
                         [](auto const& kind) { return kind.param ? "mapped" : "memory"; });

TEST_P(ShadowTest, HoldsNothingAtFirst) {
    for (auto const mode : {StartMode::cold, StartMode::warm}) {
        auto const lag = table(mode);
        EXPECT_EQ(lag->name(), "lag");
        EXPECT_EQ(lag->firstIndex(), 10u);
        EXPECT_EQ(lag->lastIndex(), 19u);
        for (HwIndex row = 10; row <= 19; ++row)
            EXPECT_EQ(lag->read(row), std::nullopt);
    }
}

TEST_P(ShadowTest, HoldsAWrittenRowOfEachLength) {
    auto const lag = table(StartMode::cold);
    Words words;
    for (HwIndex row = 10; words.size() <= maxEntryWords; ++row, words.push_back(0xFFFFFFF0 + row))
        write(*lag, row, words);
    words.clear();
    for (HwIndex row = 10; words.size() <= maxEntryWords; ++row, words.push_back(0xFFFFFFF0 + row))
        EXPECT_EQ(lag->read(row), HwEntryConfig(row, words));
    EXPECT_EQ(lag->read(19), std::nullopt);
}

TEST_P(ShadowTest, DoesNotHoldARowThatIsOnlyIntended) {
    auto const lag = table(StartMode::cold);
    write(*lag, 12, {1, 2, 3});
    lag->intend(12, Words{4, 5});
    EXPECT_EQ(lag->read(12), std::nullopt);
    lag->written(12);
    EXPECT_EQ(lag->read(12), HwEntryConfig(12, Words{4, 5}));
}

TEST_P(ShadowTest, KeepsItsRowsOverAWarmStartAndForgetsThemOverAColdOne) {
    write(*table(StartMode::cold), 10, {7});
    table(StartMode::warm)->intend(11, Words{8});
    EXPECT_EQ(table(StartMode::warm)->read(10), HwEntryConfig(10, Words{7}));
    EXPECT_EQ(table(StartMode::warm)->read(11), std::nullopt);
    EXPECT_EQ(table(StartMode::cold)->read(10), std::nullopt);
    EXPECT_EQ(table(StartMode::warm)->read(10), std::nullopt);
}

TEST_P(ShadowTest, IsOneObjectWhileItIsWarm) {
    auto const lag = table(StartMode::cold);
    EXPECT_EQ(table(StartMode::warm), lag);
    auto const next = table(StartMode::cold);
    EXPECT_NE(next, lag);
    write(*lag, 10, {7});  // a table from before a cold start is on its own
    EXPECT_EQ(next->read(10), std::nullopt);
    EXPECT_EQ(lag->read(10), HwEntryConfig(10, Words{7}));
    EXPECT_EQ(table(StartMode::warm), next);
}

TEST_P(ShadowTest, HasTheRowsItWasMadeWith) {
    auto const lag = table(StartMode::cold);
    auto const failure = [&](HwIndex first, HwIndex last) {
        return failureOf<ShadowException>([&] { table(StartMode::warm, first, last); });
    };
    EXPECT_THAT(failure(10, 18), HasSubstr(" has other rows: found 10 to 19, this is 10 to 18"));
    EXPECT_THAT(failure(9, 19), HasSubstr(" has other rows: found 10 to 19, this is 9 to 19"));
    EXPECT_THAT(failure(19, 10), HasSubstr(" has other rows: found 10 to 19, this is none"));
    EXPECT_EQ(table(StartMode::warm), lag);
    EXPECT_EQ(table(StartMode::cold, 10, 18)->lastIndex(), 18u);
}

TEST_P(ShadowTest, CanBeEmpty) {
    for (auto const mode : {StartMode::cold, StartMode::warm}) {
        auto const none = table(mode, 1, 0);
        EXPECT_EQ(none->read(0), std::nullopt);
        EXPECT_EQ(none->read(1), std::nullopt);
        EXPECT_THROW(none->intend(0, {}), Belmo::RangeException);
        EXPECT_THROW(none->intend(1, {}), Belmo::RangeException);
    }
}

TEST_P(ShadowTest, KnowsNoRowOutside) {
    auto const lag = table(StartMode::cold);
    std::string const text =
        "NerioSwitchApi::HwIndex::value < NerioSwitchApi::ShadowTable::firstIndex or > "
        "NerioSwitchApi::ShadowTable::lastIndex not allowed";
    for (HwIndex const row : {0u, 9u, 20u, 0xFFFFFFFFu}) {
        EXPECT_EQ(lag->read(row), std::nullopt);
        EXPECT_EQ(failureOf<Belmo::RangeException>([&] { lag->intend(row, {}); }), text);
        EXPECT_EQ(failureOf<Belmo::RangeException>([&] { lag->written(row); }), text);
        EXPECT_EQ(failureOf<Belmo::RangeException>([&] { lag->drop(row); }), text);
        EXPECT_EQ(failureOf<Belmo::RangeException>([&] { lag->store(row, {}); }), text);
        EXPECT_EQ(failureOf<Belmo::RangeException>([&] { lag->corrupt(row); }), text);
    }
}

TEST_P(ShadowTest, TakesNoMoreThanEightWords) {
    auto const lag = table(StartMode::cold);
    write(*lag, 12, {1});
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { lag->intend(12, Words(9)); }),
              "an array of 9 data words is longer than the limit of 8");
    EXPECT_EQ(lag->read(12), HwEntryConfig(12, Words{1}));
}

TEST_P(ShadowTest, ThatWasStoredTooLongIsARangeFailure) {
    auto const lag = table(StartMode::cold);
    for (auto const& [words, text] :
         {std::pair{9, "an array of 9 data words is longer than the limit of 8"},
          std::pair{255, "an array of 255 data words is longer than the limit of 8"},
          std::pair{300, "an array of 255 data words is longer than the limit of 8"}}) {
        lag->store(10, Words(static_cast<std::size_t>(words), 5));
        EXPECT_EQ(failureOf<Belmo::RangeException>([&] { lag->read(10); }), text);
    }
    write(*lag, 10, {6});
    EXPECT_EQ(lag->read(10), HwEntryConfig(10, Words{6}));
}

TEST_P(ShadowTest, TakesRowsBehindTheDriversBack) {
    auto const lag = table(StartMode::cold);
    lag->store(10, Words{1, 2});
    EXPECT_EQ(lag->read(10), HwEntryConfig(10, Words{1, 2}));
    lag->drop(10);
    EXPECT_EQ(lag->read(10), std::nullopt);
    lag->drop(11);
    EXPECT_EQ(lag->read(11), std::nullopt);
}

TEST_P(ShadowTest, ReportsADamagedRowUntilItIsWritten) {
    auto const lag = table(StartMode::cold);
    write(*lag, 11, {1});
    lag->intend(12, Words{1});
    for (HwIndex const row : {10u, 11u, 12u}) {
        lag->corrupt(row);
        auto const text =
            "row " + std::to_string(row) + " of the shadow of \"lag\" is corrupt: unknown state";
        EXPECT_EQ(corruptionOf(*lag, row), text);
        EXPECT_EQ(corruptionOf(*table(StartMode::warm), row), text);
        write(*lag, row, {2});
        EXPECT_EQ(lag->read(row), HwEntryConfig(row, Words{2}));
    }
}

TEST_P(ShadowTest, KeepsWhatReadersReport) {
    auto const lag = table(StartMode::cold);
    EXPECT_EQ(lag->corruptionsDetected(), 0u);
    EXPECT_EQ(lag->lastCorruption(), "");
    lag->doCorruptionDetected("one");
    lag->doCorruptionDetected("two");
    EXPECT_EQ(lag->corruptionsDetected(), 2u);
    EXPECT_EQ(lag->lastCorruption(), "two");
}

TEST_P(ShadowTest, KeepsTablesApartByName) {
    // Names that could meet in a file system.
    std::vector<std::string> names = {"a/b", "a%2Fb", "a%b",    "a b",  "a",           "A",
                                      "",    ".",     "..",     "../a", "/",           "a.shadow",
                                      "a\n", "\xC3",  "shadow", "a~",   "a.shadow.new"};
    names.emplace_back("a\0b", 3);
    names.emplace_back(200, 'n');
    names.emplace_back(201, 'n');
    names.push_back(std::string(201, 'n') + "/");
    names.emplace_back(5000, 'n');
    for (HwIndex i = 0; i < names.size(); ++i)
        write(*store_->tableIs(names[i], 0, 0, StartMode::cold), 0, {i});
    if (GetParam()) {
        store_.reset();
        store_ = mappedShadowStore(directory_.path("shadow"));
    }
    for (HwIndex i = 0; i < names.size(); ++i) {
        auto const table = store_->tableIs(names[i], 0, 0, StartMode::warm);
        EXPECT_EQ(table->name(), names[i]);
        EXPECT_EQ(table->read(0), HwEntryConfig(0, Words{i})) << names[i];
    }
}

/** Random operations leave what a plain map of them would hold. */
TEST_P(ShadowTest, AgreesWithAMap) {
    EXPECT_TRUE(rc::check([this] {
        auto lag = table(StartMode::cold);
        std::map<HwIndex, Words> model;
        for (auto const& step : *rc::gen::arbitrary<std::vector<std::pair<U8, U32>>>()) {
            HwIndex const row = 10 + step.first % 10;
            auto words = *rc::gen::arbitrary<Words>();
            words.resize(std::min(words.size(), maxEntryWords));
            switch (step.second % 5) {
                case 0:
                    lag->drop(row);
                    model.erase(row);
                    break;
                case 1:
                    lag->intend(row, words);
                    model.erase(row);
                    break;
                case 2:
                    lag.reset();
                    lag = table(StartMode::warm);
                    break;
                default:
                    write(*lag, row, words);
                    model[row] = words;
            }
        }
        for (HwIndex row = 10; row <= 19; ++row) {
            auto const held = lag->read(row);
            RC_ASSERT(held.has_value() == model.contains(row));
            if (held) RC_ASSERT(*held == HwEntryConfig(row, model[row]));
        }
    }));
}

using ShadowDeathTest = ShadowTest;

INSTANTIATE_TEST_SUITE_P(Stores, ShadowDeathTest, testing::Bool(),
                         [](auto const& kind) { return kind.param ? "mapped" : "memory"; });

TEST_P(ShadowDeathTest, WritesOnlyWhatWasIntended) {
    auto const lag = table(StartMode::cold);
    write(*lag, 11, {1});
    std::string const text = "target.state == static_cast<U8>\\(ShadowRowState::intended\\)";
    EXPECT_DEATH(lag->written(10), text);
    EXPECT_DEATH(lag->written(11), text);
}

/** A table whose rows a test can damage. */
class OpenTable : public ShadowTable {
public:
    explicit OpenTable(std::span<ShadowRow> rows)
        : ShadowTable("open", 0, static_cast<HwIndex>(rows.size() - 1), rows.data()) {}
};

class ShadowRowTest : public testing::Test {
protected:
    static constexpr int bits = sizeof(ShadowRow) * 8;

    void flip(HwIndex row, int bit) {
        auto* const bytes = reinterpret_cast<U8*>(&rows_[row]);
        bytes[bit / 8] = static_cast<U8>(bytes[bit / 8] ^ 1 << bit % 8);
    }

    std::vector<ShadowRow> rows_{4};
    Belmo::Ptr<ShadowTable> table_ = Belmo::make<OpenTable>(rows_);
};

TEST_F(ShadowRowTest, TellsEveryFlippedBitOfAWrittenRow) {
    for (Words const& words : {Words{}, Words{0}, Words{1, 2, 3}, Words(8, 0xFFFFFFFF), Words(8)}) {
        write(*table_, 1, words);
        auto const whole = rows_;
        for (int bit = 0; bit < bits; ++bit) {
            flip(1, bit);
            EXPECT_THAT(corruptionOf(*table_, 1), HasSubstr("row 1 of the shadow of \"open\" is corrupt: "))
                << "bit " << bit;
            rows_ = whole;
        }
        EXPECT_EQ(table_->read(1), HwEntryConfig(1, words));
    }
}

TEST_F(ShadowRowTest, TellsEveryFlippedBitOfAnAbsentRow) {
    for (int bit = 0; bit < bits; ++bit) {
        flip(2, bit);
        EXPECT_NE(corruptionOf(*table_, 2), "") << "bit " << bit;
        flip(2, bit);
    }
    EXPECT_EQ(table_->read(2), std::nullopt);
}

TEST_F(ShadowRowTest, NeverTakesAnIntendedRowWithAFlippedBitForAWrittenOne) {
    write(*table_, 1, {1, 2, 3});
    table_->intend(1, Words{1, 2, 3});  // the checksum from before fits the words
    for (int bit = 0; bit < bits; ++bit) {
        flip(1, bit);
        bool const inState = bit / 8 == offsetof(ShadowRow, state);
        EXPECT_EQ(!corruptionOf(*table_, 1).empty(), inState) << "bit " << bit;
        if (!inState) {
            EXPECT_EQ(table_->read(1), std::nullopt);
        }
        flip(1, bit);
    }
}

TEST_F(ShadowRowTest, TellsARowThatStandsInAnotherPlace) {
    write(*table_, 1, {1, 2, 3});
    rows_[2] = rows_[1];
    EXPECT_EQ(table_->read(1), HwEntryConfig(1, Words{1, 2, 3}));
    EXPECT_EQ(corruptionOf(*table_, 2), "row 2 of the shadow of \"open\" is corrupt: wrong checksum");
}

TEST_F(ShadowRowTest, WritesAndDropsOverWhateverWasThere) {
    std::memset(rows_.data(), 0xEE, rows_.size() * sizeof(ShadowRow));
    write(*table_, 1, {1});
    table_->store(2, Words{2});
    table_->drop(3);
    EXPECT_NE(corruptionOf(*table_, 0), "");
    EXPECT_EQ(table_->read(1), HwEntryConfig(1, Words{1}));
    EXPECT_EQ(table_->read(2), HwEntryConfig(2, Words{2}));
    EXPECT_EQ(table_->read(3), std::nullopt);
}

}  // namespace
