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

RouteReport programRoutes(StateFile const& file, Agent::Place const& place, RouteLadder& ladder) {
    std::size_t number = 0;
    for (auto const& route : file.routes)
        atPlace(file, place.element(number++), [&] { ladder.agent().routeIs(route.key, route.nexthop); });
    RouteReport report;
    report.load = ladder.reconciled();
    return report;
}

/** Measures what bringing up and programming the tables of an agent takes. */
class Measured {
public:
    explicit Measured(Switch& target) : target_(target) { target_.takeWriteCount(); }

    template <class Tables>
    void attach(Tables const& tables, StartMode mode) {
        for (auto const& table : tables)
            target_.attach(table, mode);
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
    template <class Tables>
    void verify(Tables const& tables) {
        for (auto const& table : tables) {
            auto verification = target_.verify(*table);
            report.verification.rows += verification.rows;
            std::ranges::move(verification.differences, std::back_inserter(report.verification.differences));
        }
    }

    WholeReport report;

private:
    using Clock = std::chrono::steady_clock;

    Switch& target_;
    Clock::time_point begin_ = Clock::now();
};

/** Rows of (*,G) routes are verified with those of the ladder. */
WholeReport programMulticastRoutes(StateFile const& file, Agent::Place const& place, Switch& target,
                                   StartMode mode, RouteLadder& ladder, MulticastTables const& tables) {
    atPlace(file, place, [&] { MulticastAgent::checkProfile(target.profile()); });
    Measured measured(target);
    measured.attach(tables.tables(), mode);
    MulticastAgent agent(tables);
    agent.rowsFreedIs([&ladder] { ladder.agent().retryWaiting(); });
    measured.tell(file, place, file.multicastRoutes, [&](auto const& route) { return agent.routeIs(route); });
    agent.othersDel();
    measured.done();
    measured.report.rowsInUse = agent.routes() + agent.vlanRowsInUse();
    measured.verify(std::array<Belmo::Ptr<NerioSwitchApi::SwTable>, 2>{tables.sources, tables.vlanGroups});
    return std::move(measured.report);
}

WholeReport programTranslations(StateFile const& file, Agent::Place const& place, Switch& target,
                                StartMode mode) {
    auto const tables = NatTables::made(target.profile());
    Measured measured(target);
    measured.attach(tables.tables(), mode);
    NatAgent agent(tables.matches, tables.rewrites);
    measured.tell(file, place, file.translations,
                  [&](auto const& translation) { return agent.translationIs(translation); });
    agent.othersDel();
    measured.done();
    for (auto const& table : tables.matches)
        measured.report.rowsInUse += table->hashConvertor()->rowsInUse();
    for (auto const& table : tables.rewrites)
        measured.report.rowsInUse += table->hashConvertor()->rowsInUse();
    measured.verify(tables.tables());
    return std::move(measured.report);
}

}  // namespace

AgentsReport startAgents(StateFile const& file, Switch& target, StartMode mode) {
    Agent::Place const root;
    auto const routes = root.member("routes");
    auto const multicastRoutes = root.member("multicastRoutes");
    auto const translations = root.member("translations");
    AgentsReport report;
    std::optional<RouteLadder> ladder;
    if (!file.routes.empty() || !file.multicastRoutes.empty()) {
        atPlace(file, file.routes.empty() ? multicastRoutes : routes.element(0),
                [&] { ladder.emplace(target, mode); });
        report.routes = programRoutes(file, routes, *ladder);
    }
    auto const multicastTables = MulticastTables::made();
    if (!file.multicastRoutes.empty()) {
        report.multicastRoutes =
            programMulticastRoutes(file, multicastRoutes, target, mode, *ladder, multicastTables);
    }
    if (!file.translations.empty())
        report.translations = programTranslations(file, translations, target, mode);
    if (ladder) report.routes->verification = ladder->verify();
    return report;
}

}  // namespace Nerio
