#include "nerio/SwitchAgents.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <fmt/format.h>
#include <iterator>

namespace Nerio {

using Agent::MulticastAgent;
using Agent::MulticastTables;
using Agent::NatAgent;
using Agent::NatTables;
using Agent::StateFile;
using NerioSwitchApi::StartMode;

namespace {

/** Does the work, and gives a failure its place in the state file. */
template <class Work>
void atPlace(StateFile const& file, Agent::Place const& place, Work const& work) {
    try {
        work();
    } catch (Belmo::RangeException const& failure) {
        throw Agent::StateFileException(file.path, place.text(), failure.what());
    }
}

/** Measures what bringing up and programming the tables of an agent takes. */
class Measured {
public:
    explicit Measured(Switch& target) : target_(target) { target_.takeWriteCount(); }

    template <class BringUp>
    void attach(BringUp const& bringUp) {
        bringUp();
        report.startWrites = target_.takeWriteCount();
    }
    /** Gives an agent each of what is wanted. */
    template <class Values, class Tell>
    void tell(StateFile const& file, Agent::Place const& place, Values const& values, Tell const& tell) {
        for (auto const& value : values) {
            auto const at = place.element(report.wanted++);
            atPlace(file, at, [&] {
                if (auto const refusal = tell(value))
                    report.refused.push_back(fmt::format("{}: {}", at.text(), refusal->text));
            });
        }
    }
    void done() {
        report.registerWrites = target_.takeWriteCount();
        report.milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - begin_).count();
    }
    WholeReport report;

private:
    using Clock = std::chrono::steady_clock;

    Switch& target_;
    Clock::time_point begin_ = Clock::now();
};

Agent::TableSpec specOf(char const* family, NerioSwitchApi::SwTable const& table,
                        Agent::FamilyNumbers numbers = {}) {
    return {family, table.name(), std::move(numbers)};
}

template <class Tables>
void verifyInto(Agent::Verification& all, Switch const& target, Tables const& tables) {
    for (auto const& table : tables) {
        auto verification = target.verify(*table);
        all.rows += verification.rows;
        std::ranges::move(verification.differences, std::back_inserter(all.differences));
    }
}

}  // namespace

AgentParts AgentParts::of(StateFile const& state) {
    return {!state.routes.empty(), !state.multicastRoutes.empty(), !state.translations.empty()};
}

AgentParts AgentParts::operator|(AgentParts const& other) const {
    return {routes || other.routes, multicastRoutes || other.multicastRoutes,
            translations || other.translations};
}

SwitchAgents::SwitchAgents(StateFile const& file, Switch& target, StartMode mode, AgentParts const& parts,
                           Progress const& progress)
    : file_(file), target_(target), multicastTables_(MulticastTables::made()) {
    auto const needed = parts | AgentParts::of(file);
    Agent::Place const root;
    if (needed.routes || needed.multicastRoutes) {
        auto const routes = root.member("routes");
        atPlace(file, file.routes.empty() ? root.member("multicastRoutes") : routes.element(0),
                [&] { ladder_.emplace(target, mode); });
        programRoutes(progress);
    }
    if (needed.multicastRoutes) programMulticastRoutes(mode);
    if (needed.translations) programTranslations(mode);
}

SwitchAgents::~SwitchAgents() = default;

void SwitchAgents::programRoutes(Progress const& progress) {
    Agent::Place const root;
    auto const place = root.member("routes");
    std::size_t number = 0;
    for (auto const& route : file_.routes) {
        atPlace(file_, place.element(number), [&] { ladder_->agent().routeIs(route.key, route.nexthop); });
        ++number;
        if (progress) progress(number);
    }
    report_.routes.emplace().load = ladder_->reconciled();
}

void SwitchAgents::programMulticastRoutes(StartMode mode) {
    Agent::Place const root;
    auto const place = root.member("multicastRoutes");
    atPlace(file_, place, [&] { MulticastAgent::checkProfile(target_.profile()); });
    Measured measured(target_);
    measured.attach([&] {
        target_.adopt(specOf("sG", *multicastTables_.sources), multicastTables_.sources, mode);
        target_.adopt(specOf("starG", *multicastTables_.groups), multicastTables_.groups, mode);
        target_.adopt(specOf("vlanGroup", *multicastTables_.vlanGroups), multicastTables_.vlanGroups, mode);
    });
    multicastAgent_ = std::make_unique<MulticastAgent>(multicastTables_);
    auto& agent = *multicastAgent_;
    agent.rowsFreedIs([this] { ladder_->agent().retryWaiting(); });
    measured.tell(file_, place, file_.multicastRoutes,
                  [&](auto const& route) { return agent.routeIs(route); });
    agent.othersDel();
    measured.done();
    measured.report.rowsInUse = agent.routes() + agent.vlanRowsInUse();
    report_.multicastRoutes = std::move(measured.report);
}

void SwitchAgents::programTranslations(StartMode mode) {
    Agent::Place const root;
    auto const place = root.member("translations");
    natTables_ = NatTables::made(target_.profile());
    Measured measured(target_);
    measured.attach([&] {
        U64 pipeline = 0;
        for (auto const& table : natTables_.matches) {
            target_.adopt(specOf("natMatch", *table, {{"pipeline", pipeline}}), table, mode);
            pipeline += 2;
        }
        U64 processor = 0;
        for (auto const& table : natTables_.rewrites)
            target_.adopt(specOf("natRewrite", *table, {{"pipeline", processor++}}), table, mode);
    });
    natAgent_ = std::make_unique<NatAgent>(natTables_.matches, natTables_.rewrites);
    auto& agent = *natAgent_;
    measured.tell(file_, place, file_.translations,
                  [&](auto const& translation) { return agent.translationIs(translation); });
    agent.othersDel();
    measured.done();
    for (auto const& table : natTables_.matches)
        measured.report.rowsInUse += table->hashConvertor()->rowsInUse();
    for (auto const& table : natTables_.rewrites)
        measured.report.rowsInUse += table->hashConvertor()->rowsInUse();
    report_.translations = std::move(measured.report);
}

void SwitchAgents::verify() {
    if (report_.multicastRoutes) {
        // Rows of (*,G) routes are verified with those of the ladder.
        verifyInto(report_.multicastRoutes->verification, target_,
                   std::array<Belmo::Ptr<NerioSwitchApi::SwTable>, 2>{multicastTables_.sources,
                                                                      multicastTables_.vlanGroups});
    }
    if (report_.translations) verifyInto(report_.translations->verification, target_, natTables_.tables());
    if (ladder_) report_.routes->verification = ladder_->verify();
}

}  // namespace Nerio
