// What holds for every family: random operations against a model, restarts, and cuts at every register write.
#include <csignal>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "NerioSwitchApi/TableFramework.h"

#include "ChildProcess.h"
#include "FamilyCases.h"
#include "TemporaryDirectory.h"
#include "agent/Verify.h"
#include "chip/FaultyBus.h"
#include "chip/SimulatedChip.h"

namespace {

using namespace NerioTest;
using Agent::Json;
using Agent::Place;
using NerioSwitchApi::StartMode;

/** The entries that an agent wants: key to result, both as text, since JSON has no order of its own. */
using Model = std::map<std::string, std::string>;

/** One call of an agent. Without a result it is a deletion. */
struct Operation {
    Json key;
    std::optional<Json> result;
};

std::vector<Operation> randomOperations(FamilyCase const& family, NerioSwitch::ProfileInfo const& profile,
                                        Random& random, std::size_t count) {
    std::vector<Operation> operations;
    for (std::size_t i = 0; i < count; ++i) {
        Operation operation{family.randomKey(random, profile), std::nullopt};
        if (below(random, 4) != 0) operation.result = family.randomResult(random);
        operations.push_back(std::move(operation));
    }
    return operations;
}

void carryOut(Operation const& operation, Agent::JsonTable& table) {
    if (operation.result) {
        table.entryIs(operation.key, *operation.result, Place());
    } else {
        table.entryDel(operation.key, Place());
    }
}

void carryOut(Operation const& operation, Model& model) {
    if (operation.result) {
        model[operation.key.dump()] = operation.result->dump();
    } else {
        model.erase(operation.key.dump());
    }
}

Model entriesOf(Agent::JsonTable const& table) {
    Model model;
    for (auto const& [key, result] : table.entries())
        model[key.dump()] = result.dump();
    return model;
}

/** The model behind a warm restart: without what hardware does not tell. */
Model afterRestart(FamilyCase const& family, Model const& model) {
    Model back;
    for (auto const& [key, result] : model) {
        auto const returned = family.comesBack(Json::parse(key), Json::parse(result));
        if (!returned.is_null()) back[key] = returned.dump();
    }
    return back;
}

/** An agent that comes back: wants what it wanted, and wants nothing else. */
void reconcile(Model const& wanted, Agent::JsonTable& table) {
    for (auto const& [key, result] : wanted)
        table.entryIs(Json::parse(key), Json::parse(result), Place());
    for (auto const& [key, result] : table.entries()) {
        if (!wanted.contains(key.dump())) table.entryDel(key, Place());
    }
}

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
    }
    std::vector<Agent::Difference> differences() const { return Agent::verify(*table_->table()).differences; }

private:
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

TEST_P(FamilyTest, RandomOperationsAndRestartsAgreeWithAModel) {
    Random random(20261);
    FamilySwitch target(family());
    target.start(StartMode::cold);
    Model model;
    for (int round = 0; round < 60; ++round) {
        for (auto const& operation : randomOperations(family(), target.profile(), random, 40)) {
            carryOut(operation, target.table());
            carryOut(operation, model);
        }
        ASSERT_EQ(entriesOf(target.table()), model) << "round " << round;
        ASSERT_TRUE(target.differences().empty()) << target.differences().front().text;

        auto const chipBefore = target.chip().state();
        auto const writesBefore = target.bus().writes();
        target.start(StartMode::warm);
        ASSERT_EQ(target.bus().writes(), writesBefore) << "a warm restart owes no write";
        ASSERT_EQ(target.chip().state(), chipBefore);
        model = afterRestart(family(), model);
        ASSERT_EQ(entriesOf(target.table()), model) << "after the restart of round " << round;
    }
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
    EXPECT_EQ(warm.chip().state(), cold.chip().state());
    EXPECT_EQ(entriesOf(warm.table()), entriesOf(cold.table()));
    EXPECT_EQ(entriesOf(warm.table()), wanted);
}

/** The agent's life in the crash test: a cold start, some operations, a warm restart, some more. */
class AgentLife {
public:
    AgentLife(FamilyCase const& family, NerioSwitch::ProfileInfo const& profile) {
        Random random(20263);
        early_ = randomOperations(family, profile, random, 12);
        late_ = randomOperations(family, profile, random, 6);
        for (auto const* operations : {&early_, &late_}) {
            for (auto const& operation : *operations)
                carryOut(operation, wanted_);
        }
    }

    void live(FamilySwitch& target) const {
        target.start(StartMode::cold);
        for (auto const& operation : early_)
            carryOut(operation, target.table());
        target.start(StartMode::warm);
        for (auto const& operation : late_)
            carryOut(operation, target.table());
    }
    Model const& wanted() const { return wanted_; }

private:
    std::vector<Operation> early_;
    std::vector<Operation> late_;
    Model wanted_;
};

TEST_P(FamilyTest, AProcessKilledAtAnyRegisterWriteLeavesASwitchThatRecovers) {
    FamilySwitch uncut(family());
    AgentLife const life(family(), uncut.profile());
    life.live(uncut);
    auto const totalWrites = uncut.bus().writes();
    ASSERT_GT(totalWrites, 0u);
    reconcile(life.wanted(), uncut.table());
    auto const wantedState = uncut.chip().state();

    for (auto const fault : {Chip::Fault::killBefore, Chip::Fault::killAfter}) {
        for (U64 cut = 1; cut <= totalWrites; ++cut) {
            SCOPED_TRACE((fault == Chip::Fault::killBefore ? "cut before write " : "cut after write ") +
                         std::to_string(cut));
            TemporaryDirectory const directory;
            ChildProcess victim([&] {
                FamilySwitch target(family(), directory);
                target.bus().faultIs(fault, cut);
                life.live(target);
                return 0;
            });
            ASSERT_EQ(victim.ended(), -SIGKILL);

            FamilySwitch recovered(family(), directory);
            recovered.start(StartMode::warm);
            reconcile(life.wanted(), recovered.table());
            ASSERT_EQ(recovered.chip().state(), wantedState);
            ASSERT_EQ(entriesOf(recovered.table()), life.wanted());
            ASSERT_TRUE(recovered.differences().empty()) << recovered.differences().front().text;
        }
    }
}

TEST_P(FamilyTest, EveryFamilyIsHere) {
    EXPECT_EQ(familyCases().size(), Agent::families().size())
        << "a family without a case, or a case too many";
    EXPECT_NE(Agent::family(family().spec.family), nullptr);
}

INSTANTIATE_TEST_SUITE_P(All, FamilyTest, ::testing::ValuesIn(familyCases()),
                         [](auto const& family) { return family.param.spec.family; });

}  // namespace
