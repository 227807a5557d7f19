#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "agent/StateFile.h"
#include "agent/SwitchEntries.h"
#include "nerio/KeptSwitch.h"
#include "nerio/StartReport.h"
#include "nerio/Switch.h"
#include "nerio/SwitchAgents.h"

namespace Nerio {

/** The tables of a state, but for those of agents, and what they are to hold. */
class WantedTables {
public:
    /** Of the earlier states come the tables that the wanted one has not; they are to hold nothing. */
    explicit WantedTables(Agent::StateFile const& wanted, std::vector<Agent::StateFile> const& earlier = {});

    /** Calls `visit(spec, place)` for each, with its place in the file. */
    template <class Visit>
    void forEach(Visit const& visit) const {
        for (auto const& [spec, place] : all_)
            visit(spec, place);
    }
    /** Brings a table to its entries: sets those that differ, deletes all others. */
    void applyTo(Agent::TableSpec const& spec, Agent::JsonTable& table) const;

private:
    struct Placed {
        Agent::TableSpec spec;
        Belmo::String place;
    };
    bool has(Agent::TableSpec const& spec) const;
    void add(Agent::TableSpec const& spec, Belmo::String const& place);

    Agent::StateFile const& file_;
    std::vector<Placed> all_;
    Agent::SwitchEntries entries_;
};

/**
 * A switch with all its tables up and a state in them. Started cold, it has that state alone; started warm,
 * it keeps what is there and right, and loses what the state does not have.
 */
class ProgrammedSwitch {
public:
    /** Whether the state is a new one that the directory is to keep. */
    enum class Keeping { no, change };

    /** Who is told of what while the switch is programmed, and what becomes of the state. */
    struct Options {
        Keeping keeping = Keeping::no;
        SwitchAgents::Progress progress{};
        FillSampler* sampler = nullptr;
        /** Told from the first table on, for as long as the switch is there. */
        SwitchObserver* observer = nullptr;
    };

    /** Throws what tables and agents throw, with the place in the state where there is one. */
    ProgrammedSwitch(KeptState state, Switch::Directory directory, NerioSwitchApi::StartMode mode,
                     Options const& options);
    ProgrammedSwitch(KeptState state, Switch::Directory directory, NerioSwitchApi::StartMode mode)
        : ProgrammedSwitch(std::move(state), std::move(directory), mode, Options{}) {}

    Agent::StateFile const& state() const { return state_.wanted; }
    Switch& target() { return target_; }
    Switch const& target() const { return target_; }
    SwitchAgents& agents() { return *agents_; }
    /** Holds software, shadow and chip of all tables against each other. */
    void verify();
    /** What the start came to, and the verification. */
    StartReport report() const { return {tables_, agents_->report()}; }
    /** Rows that do not agree, of the last verification. */
    std::vector<Agent::Difference> differences() const;
    U64 rowsVerified() const;
    /** Registers that were written to bring the tables up and to what they hold. */
    std::size_t registerWrites() const;

private:
    void start(NerioSwitchApi::StartMode mode);

    KeptState state_;
    Switch target_;
    std::optional<StateChange> change_;
    WantedTables wanted_;
    std::vector<TableReport> tables_;
    std::unique_ptr<SwitchAgents> agents_;
};

/** Brings a state up on a chip in memory: throws `StateFileException` for what cannot be programmed. */
void rehearse(Agent::StateFile const& state);

}  // namespace Nerio
