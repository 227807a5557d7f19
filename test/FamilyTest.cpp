// What holds for every family: random operations against a model, restarts, and cuts at every register write.
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "NerioSwitchApi/TableFramework.h"

#include "BuildUnderTest.h"
#include "ChildProcess.h"
#include "FamilyCases.h"
#include "FamilyModel.h"
#include "TemporaryDirectory.h"
#include "agent/Verify.h"
#include "chip/FaultyBus.h"
#include "chip/SimulatedChip.h"

namespace {

using namespace NerioTest;
using Agent::Json;
using Agent::Place;
using NerioSwitchApi::StartMode;

/** A switch with one table of a family, over a chip and a shadow in memory or in a directory. */
class FamilySwitch {
public:
    explicit FamilySwitch(FamilyCase const& family) : FamilySwitch(family, std::nullopt) {}
    FamilySwitch(FamilyCase const& family, TemporaryDirectory const& directory)
        : FamilySwitch(family, std::optional(directory.path())) {}

    NerioSwitch::ProfileInfo const& profile() const { return *profile_; }
    Agent::JsonTable& table() { return *table_; }
    Chip::SimulatedChip& chip() { return *chip_; }
    Chip::FaultyBus& bus() { return *bus_; }

    void start(StartMode mode) {
        table_.reset();
        framework_ = std::make_unique<NerioSwitchApi::TableFramework>(profile_, bus_, shadows_);
        table_ = Agent::makeTable(family_.spec);
        framework_->tableIs(table_->table(), mode);
        if (mode == StartMode::warm && !family_.deletedComesBack.is_null()) forgetDeleted();
    }
    bool isHash() const { return table_->placement().has_value(); }

    /** Software, shadow and chip agree, and a hash table's entries stand where the chip looks for them. */
    void expectAgreement() const {
        auto const differences = Agent::verify(*table_->table(), [this](auto registers, auto words) {
                                     chip_->readRow(registers, words);
                                 }).differences;
        ASSERT_TRUE(differences.empty()) << differences.front().text;
        if (isHash()) expectRowsOfTheirHashes();
    }

    /**
     * The two switches' chips do the same. Which of its rows an entry of a hash table stands in, and which
     * entries find a place, is a matter of history; how many do, with every placement possible tried, is not.
     * So is whether a key without an entry was deleted, where its rows tell.
     */
    void expectSameAs(FamilySwitch const& other) const {
        if (isHash()) {
            EXPECT_EQ(table_->placement()->rowsInUse, other.table_->placement()->rowsInUse);
        } else if (family_.deletedComesBack.is_null()) {
            EXPECT_EQ(chip_->state(), other.chip_->state());
        }
    }

private:
    /** An agent does not want what it deleted; there is nothing to write for that. */
    void forgetDeleted() {
        auto const before = bus_->writes();
        for (auto const& [key, result] : table_->entries()) {
            if (result == family_.deletedComesBack) table_->entryDel(key, Place());
        }
        EXPECT_EQ(bus_->writes(), before);
    }
    void expectRowsOfTheirHashes() const {
        auto const placed = placedEntries(*table_);
        RowsTaken rows;
        takeRows(*table_, placed, rows);
        EXPECT_EQ(table_->placement()->rowsInUse, placed.size());
        for (auto const& counter : framework_->gauges().counters())
            EXPECT_EQ(counter->used(), placed.size());
    }

    FamilySwitch(FamilyCase const& family, std::optional<std::string> const& directory)
        : family_(family),
          chip_(directory ? Chip::simulatedChip(*profile_, *directory + "/chip")
                          : Chip::simulatedChip(*profile_)),
          bus_(Belmo::make<Chip::FaultyBus>(chip_)),
          shadows_(directory ? NerioSwitchApi::mappedShadowStore(*directory + "/shadow")
                             : NerioSwitchApi::memoryShadowStore()) {}

    FamilyCase const& family_;
    Belmo::Ptr<NerioSwitch::ProfileInfo> profile_ = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip_;
    Belmo::Ptr<Chip::FaultyBus> bus_;
    Belmo::Ptr<NerioSwitchApi::ShadowStore> shadows_;
    std::unique_ptr<NerioSwitchApi::TableFramework> framework_;
    std::unique_ptr<Agent::JsonTable> table_;
};

class FamilyTest : public ::testing::TestWithParam<FamilyCase> {
protected:
    FamilyCase const& family() const { return GetParam(); }
};

int const rounds = sanitized ? 10 : 60;

TEST_P(FamilyTest, RandomOperationsAndRestartsAgreeWithAModel) {
    Random random(20261);
    FamilySwitch target(family());
    target.start(StartMode::cold);
    Model model;
    U64 moves = 0;
    std::size_t withoutPlace = 0;
    for (int round = 0; round < rounds; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        for (auto const& operation : randomOperations(family(), target.profile(), random, 40)) {
            carryOut(operation, target.table());
            carryOut(operation, model);
        }
        ASSERT_EQ(entriesOf(target.table()), model);
        target.expectAgreement();
        auto const placed = placedEntries(target.table());
        moves += movesSoFar(target.table());
        withoutPlace += model.size() - placed.size();

        auto const chipBefore = target.chip().state();
        auto const writesBefore = target.bus().writes();
        target.start(StartMode::warm);
        ASSERT_EQ(target.bus().writes(), writesBefore + restartWrites(family(), placed))
            << "what a warm restart owes";
        ASSERT_EQ(target.chip().state(), chipBefore);
        model = afterRestart(family(), placed);
        ASSERT_EQ(entriesOf(target.table()), model) << "after the restart";
        target.expectAgreement();
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_EQ(moves > 0, target.isHash()) << "keys do not crowd";
    EXPECT_EQ(withoutPlace > 0, target.isHash()) << "keys do not crowd";
}

TEST_P(FamilyTest, WarmEqualsCold) {
    Random random(20262);
    FamilySwitch warm(family());
    warm.start(StartMode::cold);
    Model wanted;
    for (auto const& operation : randomOperations(family(), warm.profile(), random, 300)) {
        carryOut(operation, warm.table());
        carryOut(operation, wanted);
    }
    warm.start(StartMode::warm);
    reconcile(wanted, warm.table());

    FamilySwitch cold(family());
    cold.start(StartMode::cold);
    reconcile(wanted, cold.table());
    EXPECT_EQ(entriesOf(warm.table()), entriesOf(cold.table()));
    EXPECT_EQ(entriesOf(warm.table()), wanted);
    warm.expectSameAs(cold);
    warm.expectAgreement();
    cold.expectAgreement();
}

/** The agent's life in the crash test: a cold start, some operations, a warm restart, some more. */
class AgentLife {
public:
    AgentLife(FamilyCase const& family, NerioSwitch::ProfileInfo const& profile) {
        Random random(20263);
        early_ = randomOperations(family, profile, random, 24);
        late_ = randomOperations(family, profile, random, 12);
        for (auto const* operations : {&early_, &late_}) {
            for (auto const& operation : *operations)
                carryOut(operation, wanted_);
        }
    }

    /** What follows the cold start; `done` is told the key of each operation, and none for the restart. */
    void live(FamilySwitch& target, std::function<void(std::string const& key)> const& done = {}) const {
        auto const carryOutAll = [&](std::vector<Operation> const& operations) {
            for (auto const& operation : operations) {
                carryOut(operation, target.table());
                if (done) done(operation.key.dump());
            }
        };
        carryOutAll(early_);
        target.start(StartMode::warm);
        if (done) done("");
        carryOutAll(late_);
    }
    Model const& wanted() const { return wanted_; }

private:
    std::vector<Operation> early_;
    std::vector<Operation> late_;
    Model wanted_;
};

/** A register write of an agent's life behind which an operation was done, or its restart, which has no key.
 */
struct Milestone {
    U64 writes = 0;
    std::string key;
    /** The entries that stood in hardware then. */
    Model placed;
};

/** An agent's life without a cut, for others to be held against. */
class UncutLife {
public:
    explicit UncutLife(FamilyCase const& family) : target_(family), life_(family, target_.profile()) {
        target_.start(StartMode::cold);
        milestoneIs("");
        life_.live(target_, [&](std::string const& key) {
            moves_ = std::max(moves_, movesSoFar(target_.table()));
            bool const isFreeRestart = key.empty() && milestones_.back().writes == target_.bus().writes();
            if (!isFreeRestart) milestoneIs(key);
        });
        target_.start(StartMode::warm);
        reconcile(life_.wanted(), target_.table());
    }

    AgentLife const& life() const { return life_; }
    FamilySwitch const& end() const { return target_; }
    U64 moves() const { return moves_; }
    U64 coldWrites() const { return milestones_.front().writes; }
    U64 totalWrites() const { return milestones_.back().writes; }
    /** How many writes lie between two cuts: where an operation takes many, of all its copies, only some are
     * cut, and in the long run each word of a row. With NERIO_EVERY_CUT in the environment, all are. */
    U64 sampling() const {
        bool const every = std::getenv("NERIO_EVERY_CUT") != nullptr;
        return !every && totalWrites() - coldWrites() > 300 ? 7 : 1;
    }

    /**
     * A table that adopted what a cut left has all that stood in hardware before, save for the key of the
     * operation that was cut off, and nothing else. Of a restart that owes writes that is any key.
     */
    void expectAdopted(FamilyCase const& family, Model adopted, U64 cut) const {
        auto const cutOff = std::find_if(milestones_.begin(), milestones_.end(),
                                         [&](auto const& milestone) { return milestone.writes >= cut; });
        ASSERT_NE(cutOff, milestones_.end());
        auto before =
            cutOff == milestones_.begin() ? Model() : afterRestart(family, std::prev(cutOff)->placed);
        auto const key = cutOff->key.empty() ? lackedKey(before, adopted) : cutOff->key;
        before.erase(key);
        adopted.erase(key);
        EXPECT_EQ(adopted, before);
    }

private:
    /** The first key that the latter lacks; none if it has all of them. */
    static std::string lackedKey(Model const& all, Model const& some) {
        auto const lacked = std::find_if(all.begin(), all.end(),
                                         [&](auto const& each) { return !some.contains(each.first); });
        return lacked == all.end() ? std::string() : lacked->first;
    }

    void milestoneIs(std::string const& key) {
        milestones_.push_back({target_.bus().writes(), key, placedEntries(target_.table())});
    }

    FamilySwitch target_;
    AgentLife life_;
    std::vector<Milestone> milestones_;
    U64 moves_ = 0;
};

/** What is behind a cut: a switch that adopts what stands there, and comes to be as if there had been none.
 */
void expectRecovery(FamilyCase const& family, UncutLife const& uncut, TemporaryDirectory const& directory,
                    U64 cut) {
    FamilySwitch recovered(family, directory);
    recovered.start(StartMode::warm);
    uncut.expectAdopted(family, entriesOf(recovered.table()), cut);
    Random random(cut);
    for (auto const& key : family.setAfterCut) {
        recovered.table().entryIs(key, family.randomResult(random, key), Place());
        recovered.table().entryDel(key, Place());
    }
    reconcile(uncut.life().wanted(), recovered.table());
    recovered.expectSameAs(uncut.end());
    EXPECT_EQ(entriesOf(recovered.table()), uncut.life().wanted());
    recovered.expectAgreement();
}

/** Runs `live` over the directory in a process that dies at that of its writes, and looks at what is left. */
class CrashTest {
public:
    CrashTest(FamilyCase const& family, UncutLife const& uncut) : family_(family), uncut_(uncut) {}

    void cutAt(Chip::Fault fault, U64 cut) const {
        SCOPED_TRACE((fault == Chip::Fault::killBefore ? "cut before write " : "cut after write ") +
                     std::to_string(cut));
        bool const isCold = cut <= uncut_.coldWrites();
        TemporaryDirectory const directory;
        if (!isCold) {
            std::filesystem::copy(started_.path(), directory.path(),
                                  std::filesystem::copy_options::recursive);
        }
        ChildProcess victim([&] {
            FamilySwitch target(family_, directory);
            target.bus().faultIs(fault, isCold ? cut : cut - uncut_.coldWrites());
            target.start(isCold ? StartMode::cold : StartMode::warm);
            uncut_.life().live(target);
            return 0;
        });
        ASSERT_EQ(victim.ended(), -SIGKILL);
        expectRecovery(family_, uncut_, directory, cut);
    }

    /** Keeps a switch that has come up cold, where the lives that are cut later on begin. */
    void startCold() const { FamilySwitch(family_, started_).start(StartMode::cold); }

private:
    FamilyCase const& family_;
    UncutLife const& uncut_;
    TemporaryDirectory started_;
};

/** The processes of each cut start slowly in the sanitizers' build. */
U64 const cutsApart = sanitized ? 29 : 1;

/** Every write of the agent's operations, or where they are many a seventh, and those of the cold start: all,
 * or some 32 evenly spread. */
TEST_P(FamilyTest, AProcessKilledAtAnyRegisterWriteLeavesASwitchThatRecovers) {
    UncutLife const uncut(family());
    EXPECT_EQ(uncut.moves() > 0, uncut.end().isHash()) << "no cut falls into a chain of moves";
    CrashTest const crash(family(), uncut);
    crash.startCold();
    for (auto const fault : {Chip::Fault::killBefore, Chip::Fault::killAfter}) {
        U64 const stride = std::max<U64>(1, uncut.coldWrites() * cutsApart / 32);
        for (U64 cut = 1; cut <= uncut.coldWrites() && !HasFailure(); cut += stride)
            crash.cutAt(fault, cut);
        for (U64 cut = uncut.coldWrites() + 1; cut <= uncut.totalWrites() && !HasFailure();
             cut += cutsApart * uncut.sampling())
            crash.cutAt(fault, cut);
    }
}

TEST(FamilyCasesTest, EveryFamilyIsHere) {
    std::set<std::string> tested;
    for (auto const& each : familyCases())
        tested.insert(each.spec.family);
    std::set<std::string> known;
    for (auto const& each : Agent::families())
        known.emplace(each.name);
    EXPECT_EQ(tested, known) << "a family without a case, or a case without a family";
}

INSTANTIATE_TEST_SUITE_P(All, FamilyTest, ::testing::ValuesIn(familyCases()),
                         [](auto const& family) { return family.param.spec.name; });

}  // namespace
