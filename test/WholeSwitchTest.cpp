// All families at once on one switch: on the chip of each generation, and under random operations.
#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "NerioSwitchApi/TableFramework.h"

#include "BuildUnderTest.h"
#include "CasesOfProfile.h"
#include "FamilyModel.h"
#include "TraceCapture.h"
#include "agent/Verify.h"
#include "chip/FaultyBus.h"
#include "chip/SimulatedChip.h"

namespace {

using namespace NerioTest;
using Agent::Place;
using NerioSwitchApi::StartMode;

/** One table of the switch, and what its agent wants of it. */
struct Member {
    FamilyCase family;
    std::unique_ptr<Agent::JsonTable> table;
    Model model;
};

/** Tables that stand in the same rows have one number of rows in use between them. */
std::string rowsOwner(Member const& member) {
    return member.family.spec.family == "starG" ? "lpm29" : member.family.spec.name;
}

/** A switch with every table that the chip of a preset has. */
class WholeSwitch {
public:
    explicit WholeSwitch(char const* preset) : profile_(NerioSwitch::profilePreset(preset)) {
        for (auto& family : casesOfProfile(*profile_))
            members_.push_back({std::move(family), nullptr, {}});
    }

    NerioSwitch::ProfileInfo const& profile() const { return *profile_; }
    std::vector<Member>& members() { return members_; }

    void start(StartMode mode) {
        for (auto& member : members_)
            member.table.reset();
        framework_ = std::make_unique<NerioSwitchApi::TableFramework>(profile_, bus_, shadows_);
        for (auto& member : members_) {
            member.table = Agent::makeTable(member.family.spec);
            framework_->tableIs(member.table->table(), mode);
        }
    }

    void operate(Member& member, Random& random, std::size_t count) {
        SCOPED_TRACE(member.family.spec.name);
        for (auto const& operation : randomOperations(member.family, *profile_, random, count)) {
            carryOut(operation, *member.table);
            carryOut(operation, member.model);
        }
    }

    /** Each table has what its agent wants, and the entries of hash tables stand in rows of their own. */
    void expectModels() const {
        std::map<std::string, RowsTaken> rows;
        for (auto const& member : members_) {
            SCOPED_TRACE(member.family.spec.name);
            ASSERT_EQ(entriesOf(*member.table), member.model);
            if (member.table->placement())
                takeRows(*member.table, placedEntries(*member.table), rows[rowsOwner(member)]);
        }
        for (auto const& member : members_) {
            auto const placement = member.table->placement();
            if (!placement) continue;
            EXPECT_EQ(placement->rowsInUse, rows[rowsOwner(member)].size()) << member.family.spec.name;
        }
    }

    /** Software, shadow and chip agree on every row of all tables. */
    void expectAgreement() const {
        for (auto const& member : members_) {
            auto const found = Agent::verify(*member.table->table(), [this](auto registers, auto words) {
                                   chip_->readRow(registers, words);
                               }).differences;
            ASSERT_TRUE(found.empty())
                << found.front().hwTable << " row " << found.front().row << ": " << found.front().text;
        }
    }

    /** A warm restart writes what it owes and nothing else, and entries come back as hardware tells them. */
    void restartWarm() {
        auto const chipBefore = chip_->state();
        auto const writesBefore = bus_->writes();
        U64 owed = 0;
        for (auto& member : members_) {
            auto const placed = placedEntries(*member.table);
            owed += restartWrites(member.family, placed);
            member.model = afterRestart(member.family, placed);
        }
        start(StartMode::warm);
        owed += writesOwedToDeleted();
        EXPECT_EQ(bus_->writes(), writesBefore + owed) << "what a warm restart owes";
        forgetDeleted();
        EXPECT_TRUE(chip_->state() == chipBefore) << "a warm restart changed what the chip does";
    }

    /** A row of a hardware table. */
    using Row = std::pair<std::string, NerioSwitchApi::HwIndex>;

    /** Flips a bit in each row that the chip has, another one in each and in every round. */
    std::set<Row> flipInChip(U32 round) {
        std::set<Row> flipped;
        forEachStoredRow(
            [&](Member const& member, auto const& descriptor, auto const& table, auto const& stored) {
                if (isLookedAt(descriptor, stored.index(), round) &&
                    flipBit(*member.table->table()->profileConvertorPtr(), table, stored, round))
                    flipped.emplace(descriptor.name(), stored.index());
            });
        return flipped;
    }

    /** The same in the shadow of rows of which software wants something. */
    std::set<Row> flipInShadow(U32 round) {
        std::set<Row> flipped;
        forEachStoredRow(
            [&](Member const& member, auto const& descriptor, auto const& table, auto const& stored) {
                auto const& convertor = *member.table->table()->profileConvertorPtr();
                if (!convertor.wantedEntry(descriptor.id(), stored.index())) return;
                std::vector<U32> words(stored.words().begin(), stored.words().end());
                // Of rows of LAGs, software looks at the first word alone.
                bool const isLag = member.family.spec.family.starts_with("lag");
                auto const bit = bitOf(stored.index(), round, isLag ? 1 : words.size());
                words[bit / 32] ^= U32{1} << bit % 32;
                table.shadow().store(stored.index(), words);
                flipped.emplace(descriptor.name(), stored.index());
            });
        return flipped;
    }

    /** The rows that a verification names. */
    std::set<Row> differingRows() const {
        std::set<Row> rows;
        for (auto const& member : members_) {
            for (auto const& each : verify(member).differences)
                rows.emplace(each.hwTable, each.row);
        }
        return rows;
    }

    void repair() {
        for (auto const& member : members_)
            Agent::repair(*member.table->table(), verify(member));
    }

    std::vector<U32> chipState() const { return chip_->state(); }

    /** How many entries found no place. */
    std::size_t withoutPlace() const {
        std::size_t count = 0;
        for (auto const& member : members_)
            count += member.model.size() - placedEntries(*member.table).size();
        return count;
    }

    /** How many rows that hold an entry of `holder` are rows of a hash of an entry of `other`. */
    std::size_t meetings(std::string_view holder, std::string_view other) const {
        auto const& held = member(holder);
        RowsTaken rows;
        takeRows(*held.table, placedEntries(*held.table), rows);
        std::size_t count = 0;
        auto const& asking = *member(other).table;
        for (auto const& [key, result] : asking.entries()) {
            auto const hash = *asking.hash(key, Place());
            for (std::size_t way = 0; way < hash["hashes"].size(); ++way)
                count += rows.count(Agent::Json{{"table", way}, {"row", hash["hashes"][way]}}.dump());
        }
        return count;
    }

private:
    Agent::Verification verify(Member const& member) const {
        return Agent::verify(*member.table->table(),
                             [this](auto registers, auto words) { chip_->readRow(registers, words); });
    }

    /** Visits each row that the shadow holds, once if tables share it. */
    template <class Visit>
    void forEachStoredRow(Visit const& visit) {
        std::set<std::string> seen;
        for (auto const& member : members_) {
            auto const convertor = member.table->table()->profileConvertorPtr();
            if (!convertor) continue;
            for (auto const& [id, descriptor] : convertor->descriptors()) {
                if (!seen.insert(descriptor->name()).second) continue;
                auto const& table = *convertor->hwTable(id);
                for (U64 row = descriptor->firstIndex(); row <= descriptor->lastIndex(); ++row) {
                    if (auto const stored = table.storedEntry(static_cast<NerioSwitchApi::HwIndex>(row)))
                        visit(member, *descriptor, table, *stored);
                }
            }
        }
    }

    /** All rows take long: some of each table, others in each round. */
    static bool isLookedAt(NerioSwitchApi::HwTableDescriptor const& descriptor, NerioSwitchApi::HwIndex row,
                           U32 round) {
        U32 const every = descriptor.lastIndex() - descriptor.firstIndex() < 256 ? 1 : 61;
        return (row + round) % every == 0 || row == descriptor.lastIndex();
    }

    static std::size_t bitOf(NerioSwitchApi::HwIndex row, U32 round, std::size_t words) {
        return (std::size_t{row} + 37 * std::size_t{round}) % (32 * words);
    }

    /** Flips a bit of a row in the chip; whether the chip has that bit. */
    bool flipBit(NerioSwitchApi::SwTableProfileConvertor const& convertor,
                 NerioSwitchApi::HwTableConfig const& table, NerioSwitchApi::HwEntryConfig const& stored,
                 U32 round) {
        auto const registers = table.registersOf(stored.index());
        std::vector<std::size_t> places;
        for (std::size_t word = 0; word < std::min(registers.size(), stored.words().size()); ++word) {
            if (!registers[word].exists()) continue;
            bool const isControl = chip_->path(registers[word]).ends_with("_ctl");
            bool const isContent = !table.rowsShareRegisters() ||
                                   (!isControl && convertor.hwStaticWord(static_cast<U8>(word)) == 0);
            if (isContent) places.push_back(word);
        }
        if (places.empty()) return false;
        auto const bit = bitOf(stored.index(), round, places.size());
        auto const word = places[bit / 32];
        U32 const mask = U32{1} << bit % 32;
        if (!table.rowsShareRegisters()) {
            chip_->write(registers[word], chip_->read(registers[word]) ^ mask);
            return true;
        }
        std::vector<U32> words(stored.words().begin(), stored.words().end());
        auto const readRow = [&](std::vector<U32> row) {
            chip_->readRow(registers.first(std::min(registers.size(), row.size())), row);
            return row;
        };
        auto const before = readRow(words);
        auto flipped = before;
        flipped[word] ^= mask;
        chip_->writeRow(registers.first(std::min(registers.size(), flipped.size())), flipped.data());
        return readRow(words) != before;
    }

    Member const& member(std::string_view name) const {
        return *std::ranges::find(members_, name, [](auto const& each) { return each.family.spec.name; });
    }
    /** Entries that came back although they had been deleted. */
    static std::vector<Agent::Json> deletedKeys(Member const& member) {
        std::vector<Agent::Json> keys;
        if (member.family.deletedComesBack.is_null()) return keys;
        for (auto const& [key, result] : member.table->entries()) {
            if (result == member.family.deletedComesBack) keys.push_back(key);
        }
        return keys;
    }
    U64 writesOwedToDeleted() const {
        U64 owed = 0;
        for (auto const& member : members_) {
            if (!member.family.restartWrites) continue;
            for (auto const& key : deletedKeys(member))
                owed += member.family.restartWrites(key, member.family.deletedComesBack);
        }
        return owed;
    }
    /** An agent does not want what it deleted. */
    void forgetDeleted() {
        for (auto& member : members_) {
            for (auto const& key : deletedKeys(member))
                member.table->entryDel(key, Place());
        }
    }

    Belmo::Ptr<NerioSwitch::ProfileInfo> profile_;
    Belmo::Ptr<Chip::SimulatedChip> chip_ = Chip::simulatedChip(*profile_);
    Belmo::Ptr<Chip::FaultyBus> bus_ = Belmo::make<Chip::FaultyBus>(chip_);
    Belmo::Ptr<NerioSwitchApi::ShadowStore> shadows_ = NerioSwitchApi::memoryShadowStore();
    std::unique_ptr<NerioSwitchApi::TableFramework> framework_;
    std::vector<Member> members_;
};

class WholeSwitchTest : public ::testing::TestWithParam<char const*> {};

TEST_P(WholeSwitchTest, HasEveryFamilyAtOnceAndComesBack) {
    Random random(20264);
    WholeSwitch target(GetParam());
    target.start(StartMode::cold);
    for (auto& member : target.members())
        target.operate(member, random, 12);
    target.expectModels();
    target.expectAgreement();
    ASSERT_FALSE(HasFailure());
    target.restartWarm();
    target.expectModels();
    target.expectAgreement();
    for (auto const& member : target.members()) {
        bool const isSoftwareOnly = member.family.spec.family == "lpm";
        EXPECT_EQ(member.model.empty(), isSoftwareOnly) << member.family.spec.name;
    }
}

INSTANTIATE_TEST_SUITE_P(Generations, WholeSwitchTest,
                         ::testing::Values("api2", "api3", "api4", "api5", "api6", "api7", "api8", "api9",
                                           "api10", "default"),
                         [](auto const& preset) { return std::string(preset.param); });

/** Names the first row that is in one of them alone. */
void expectRows(std::set<WholeSwitch::Row> const& found, std::set<WholeSwitch::Row> const& wanted) {
    std::vector<WholeSwitch::Row> only;
    std::ranges::set_symmetric_difference(found, wanted, std::back_inserter(only));
    ASSERT_TRUE(only.empty()) << only.size() << " rows, " << only.front().first << " row "
                              << only.front().second
                              << (found.contains(only.front()) ? " is found" : " is not found");
}

void expectFlipsFound(char const* preset) {
    SCOPED_TRACE(preset);
    Random random(20266);
    WholeSwitch target(preset);
    target.start(StartMode::cold);
    for (auto& member : target.members())
        target.operate(member, random, 12);
    auto const before = target.chipState();
    U32 const rounds = std::getenv("NERIO_EVERY_CUT") != nullptr ? 256 : 1;
    for (U32 round = 0; round < rounds; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        auto const inChip = target.flipInChip(round);
        EXPECT_GT(inChip.size(), 1000u);
        expectRows(target.differingRows(), inChip);
        target.repair();
        ASSERT_TRUE(target.chipState() == before);

        auto const inShadow = target.flipInShadow(round);
        EXPECT_GT(inShadow.size(), 100u);
        expectRows(target.differingRows(), inShadow);
        target.repair();
        target.expectAgreement();
        ASSERT_TRUE(target.chipState() == before);
        ASSERT_FALSE(::testing::Test::HasFailure());
    }
}

/** Bits are flipped in many rows at a time, another one in each, since a look takes as long for one. */
TEST(WholeSwitchFlipTest, EachFlippedBitIsFoundAndRepaired) {
    expectFlipsFound("default");
    if (sanitized) return;
    expectFlipsFound("api2");
}

TEST(WholeSwitchFamiliesTest, AreAllOfThemOnEachChipButForRangesBeforeApi4) {
    std::set<std::string> known;
    for (auto const& each : Agent::families())
        known.emplace(each.name);
    for (auto const* preset : {"api2", "api3", "api4", "api10"}) {
        auto const profile = NerioSwitch::profilePreset(preset);
        std::set<std::string> tested;
        for (auto const& each : casesOfProfile(*profile))
            tested.insert(each.spec.family);
        if (profile->hwApi.majorVersion() < 4) tested.insert("aclPortRange");
        EXPECT_EQ(tested, known) << preset;
    }
}

TEST(WholeSwitchFamiliesTest, WithoutRangesTheChipHasNoneAndTheTableSaysSo) {
    for (auto const* preset : {"api2", "api3"}) {
        TraceCapture const trace("NerioTableAclPortRange", 0);
        auto const profile = NerioSwitch::profilePreset(preset);
        NerioSwitchApi::TableFramework framework(profile, Chip::simulatedChip(*profile),
                                                 NerioSwitchApi::memoryShadowStore());
        auto const table = Agent::makeTable({"aclPortRange", "ranges", {{"pipeline", 0}}});
        framework.tableIs(table->table(), StartMode::cold);
        EXPECT_EQ(trace.lines(),
                  std::vector<std::string>{"No ACL range support in hwApi " + profile->hwApi.text()});
        EXPECT_EQ(Agent::verify(*table->table()).rows, 0u);
    }
}

int const rounds = sanitized ? 1 : 4;

TEST(WholeSwitchWalkTest, TablesThatShareHardwareLeaveEachOtherAlone) {
    Random random(20265);
    WholeSwitch target("default");
    target.start(StartMode::cold);
    std::size_t withoutPlace = 0;
    std::size_t meetings = 0;
    for (int round = 0; round < rounds; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        for (int i = 0; i < 400; ++i) {
            auto& member = target.members()[below(random, target.members().size())];
            target.operate(member, random, 1 + below(random, 4));
        }
        target.expectModels();
        withoutPlace += target.withoutPlace();
        meetings += target.meetings("lpm29", "starG");
        ASSERT_FALSE(::testing::Test::HasFailure());
        target.restartWarm();
        target.expectModels();
        target.expectAgreement();
        ASSERT_FALSE(::testing::Test::HasFailure());
    }
    EXPECT_GT(withoutPlace, 0u) << "keys do not crowd";
    EXPECT_GT(meetings, 0u) << "no row is wanted by both tables that have it";
}

}  // namespace
