#include "nerio/ProgrammedSwitch.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <utility>

#include "nerio/KeptMoves.h"

namespace Nerio {

using Agent::StateFile;
using NerioSwitchApi::StartMode;

namespace {

using Clock = std::chrono::steady_clock;

AgentParts partsOf(std::vector<StateFile> const& states) {
    AgentParts parts;
    for (auto const& state : states)
        parts = parts | AgentParts::of(state);
    return parts;
}

template <class Report>
void addTo(Agent::Verification& all, std::optional<Report> const& report) {
    if (!report) return;
    all.rows += report->verification.rows;
    std::ranges::copy(report->verification.differences, std::back_inserter(all.differences));
}

Agent::Verification verificationOf(std::vector<TableReport> const& tables, AgentsReport const& agents) {
    Agent::Verification all;
    for (auto const& table : tables) {
        all.rows += table.rows;
        std::ranges::copy(table.differences, std::back_inserter(all.differences));
    }
    addTo(all, agents.routes);
    addTo(all, agents.multicastRoutes);
    addTo(all, agents.translations);
    return all;
}

}  // namespace

WantedTables::WantedTables(StateFile const& wanted, std::vector<StateFile> const& earlier)
    : file_(wanted), entries_(Agent::SwitchEntries::of(wanted.switchState, *wanted.profile)) {
    // Tables that share rows find them by the name of the one that came first, so these keep their order.
    auto const addAll = [&](StateFile const& state) {
        for (auto const& table : state.tables)
            add(table.spec, table.place);
    };
    auto const addParts = [&](StateFile const& state) {
        for (auto const& [spec, part] : Agent::tablesOf(state.switchState))
            add(spec, "/" + part);
    };
    std::ranges::for_each(earlier, addAll);
    addAll(wanted);
    std::ranges::for_each(earlier, addParts);
    addParts(wanted);
    for (auto& [spec, place] : all_) {
        auto const own = std::ranges::find(
            file_.tables, spec.name, [](auto const& each) -> auto const& { return each.spec.name; });
        if (own != file_.tables.end()) place = own->place;
    }
}

void WantedTables::add(Agent::TableSpec const& spec, Belmo::String const& place) {
    auto const isIt = [&](Placed const& each) { return each.spec.name == spec.name; };
    if (std::ranges::none_of(all_, isIt)) all_.push_back({spec, place});
}

void WantedTables::applyTo(Agent::TableSpec const& spec, Agent::JsonTable& table) const {
    for (auto const& state : file_.tables) {
        if (state.spec.name == spec.name) return Agent::entriesAre(file_, state, table);
    }
    auto const parts = Agent::tablesOf(file_.switchState);
    auto const isOfPart = [&](auto const& each) { return each.spec.name == spec.name; };
    if (std::ranges::any_of(parts, isOfPart)) return entries_.applyTo(*table.table());
    table.entryDelAll();
}

ProgrammedSwitch::ProgrammedSwitch(KeptState state, Switch::Directory directory, StartMode mode,
                                   Options const& options)
    : state_(std::move(state)),
      target_(state_.wanted.profile, directory),
      wanted_(state_.wanted, state_.earlier) {
    if (options.sampler != nullptr) target_.samplerIs(*options.sampler);
    target_.observerIs(options.observer);
    target_.chip();  // nobody else has the directory from here on
    if (options.keeping == Keeping::change) change_.emplace(directory.value(), state_.wanted);
    start(mode);
    agents_ = std::make_unique<SwitchAgents>(state_.wanted, target_, mode, partsOf(state_.earlier),
                                             options.progress);
    if (change_) {
        keepMoves(*directory, target_, mode);
        change_->done();
    }
}

void ProgrammedSwitch::start(StartMode mode) {
    bool const isCold = mode == StartMode::cold;
    wanted_.forEach([&](Agent::TableSpec const& spec, auto const&) {
        auto& table = *target_.tableIs(spec);
        if (isCold) wanted_.applyTo(spec, table);
    });
    auto begin = Clock::now();
    target_.start(mode, [&](Agent::TableSpec const& spec, Agent::JsonTable& table) {
        TableReport report;
        report.spec = spec;
        report.entries = table.entryCount();
        if (!isCold) wanted_.applyTo(spec, table);
        report.defaultEntries = table.defaultEntryCount();
        report.placement = table.placement();
        report.milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
        report.registerWrites = target_.takeWriteCount();
        tables_.push_back(std::move(report));
        begin = Clock::now();
    });
}

void ProgrammedSwitch::verify() {
    for (auto& report : tables_) {
        auto verification = target_.verify(*target_.table(report.spec.name)->table());
        report.rows = verification.rows;
        report.differences = std::move(verification.differences);
    }
    agents_->verify();
}

std::vector<Agent::Difference> ProgrammedSwitch::differences() const {
    return verificationOf(tables_, agents_->report()).differences;
}

U64 ProgrammedSwitch::rowsVerified() const {
    return verificationOf(tables_, agents_->report()).rows;
}

std::size_t ProgrammedSwitch::registerWrites() const {
    std::size_t writes = 0;
    for (auto const& table : tables_)
        writes += table.registerWrites;
    auto const& agents = agents_->report();
    if (agents.routes) writes += agents.routes->load.startWrites + agents.routes->load.registerWrites;
    for (auto const* whole : {&agents.multicastRoutes, &agents.translations}) {
        if (*whole) writes += (*whole)->startWrites + (*whole)->registerWrites;
    }
    return writes;
}

void rehearse(StateFile const& state) {
    Switch scratch(state.profile);
    WantedTables const wanted(state);
    wanted.forEach([&](Agent::TableSpec const& spec, Belmo::String const& place) {
        auto& table = *scratch.tableIs(spec);
        try {
            scratch.start(StartMode::cold);
            wanted.applyTo(spec, table);
        } catch (Agent::StateFileException const&) {
            throw;
        } catch (Belmo::Exception const& failure) {
            throw Agent::StateFileException(state.path, place, failure.what());
        }
    });
    SwitchAgents const agents(state, scratch, StartMode::cold);
}

}  // namespace Nerio
