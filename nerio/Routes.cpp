#include <algorithm>
#include <fmt/format.h>
#include <memory>
#include <string>
#include <vector>

#include "agent/RouteFile.h"
#include "nerio/Commands.h"
#include "nerio/Guarded.h"
#include "nerio/KeptSwitch.h"
#include "nerio/ProgressBar.h"
#include "nerio/RouteLadder.h"

/*
 * `nerio routes`: makes the routes of a file those of a kept switch. `nerio capacity`: the same on a chip in
 * memory, to see what would become of them.
 */
namespace Nerio {

namespace {

using Agent::Json;
using Agent::RouteFile;
using Agent::StateFile;
using NerioSwitchApi::StartMode;

struct Options {
    std::string file;
    std::string directory;
    std::string stateFile;
    bool skipBad = false;
    bool waiting = false;
    bool json = false;
};

RouteFile routesOf(Options const& options, NerioSwitch::ProfileInfo const& profile) {
    try {
        RouteLadder::checkProfile(profile);
        return Agent::readRouteFile(options.file, profile.numVrfs);
    } catch (Belmo::Exception const& failure) {
        throw BadInput(fmt::format("{}: {}", options.file, failure.what()));
    }
}

/** Says on standard error what is no route; the first ones of many. */
void printProblems(char const* command, Options const& options, RouteFile const& file) {
    constexpr std::size_t most = 20;
    auto const& problems = file.problems;
    for (std::size_t i = 0; i < std::min(problems.size(), most); ++i)
        fmt::print(stderr, "nerio {}: {}: {}\n", command, options.file, problems[i].text);
    if (problems.size() > most) {
        fmt::print(stderr, "nerio {}: {}: {} more are no routes\n", command, options.file,
                   problems.size() - most);
    }
}

/** The routes that have no room, in order. */
std::vector<NerioSwitch::LpmKey> waitingRoutes(Agent::RouteAgent const& agent) {
    std::vector<NerioSwitch::LpmKey> all;
    agent.forEachRoute([&](Agent::Route const& route, Agent::RouteState state) {
        if (state == Agent::RouteState::waiting) all.push_back(route.key);
    });
    std::ranges::sort(all);
    return all;
}

Json reportOf(Options const& options, RouteFile const& file, RouteLoad const& load,
              Agent::RouteAgent const& agent) {
    Json report{{"file", options.file}, {"passedOver", file.passedOver}};
    report["problems"] = Json::array();
    for (auto const& problem : file.problems)
        report["problems"].push_back(problem.text);
    report["nexthops"] = Json::array();
    for (auto const& [name, number] : file.nexthops)
        report["nexthops"].push_back({{"name", name}, {"number", number}});
    report.update(toJson(load));
    if (!options.waiting) return report;
    report["waitingRoutes"] = Json::array();
    for (auto const& key : waitingRoutes(agent))
        report["waitingRoutes"].push_back({{"vrf", key.vrf()}, {"prefix", key.prefix().text()}});
    return report;
}

void printLine(std::string const& stage, std::string const& lengths, StageLoad const& load) {
    fmt::print("  {:<6} {:<9} {:>9} {:>9} {:>9} {:>12} {:>8} {:>7.2f} %\n", stage, lengths, load.routes,
               load.placed(), load.waiting, load.rowsInUse, load.rows,
               100.0 * static_cast<double>(load.rowsInUse) / static_cast<double>(load.rows));
}

void printLoad(RouteLoad const& load) {
    fmt::print("  {:<6} {:<9} {:>9} {:>9} {:>9} {:>12} {:>8} {:>9}\n", "stage", "lengths", "routes", "placed",
               "waiting", "rows in use", "rows", "fill");
    for (auto const& stage : load.stages) {
        printLine(fmt::format("lpm{}", stage.longest), fmt::format("{} to {}", stage.shortest, stage.longest),
                  stage);
    }
    printLine("all", "", load.all());
}

void printReport(Options const& options, RouteFile const& file, RouteLoad const& load,
                 Agent::RouteAgent const& agent) {
    fmt::print("{}: {} routes", options.file, load.all().routes);
    if (file.passedOver != 0) fmt::print(", {} passed over", file.passedOver);
    if (!file.problems.empty()) fmt::print(", {} skipped", file.problems.size());
    fmt::print("\n\n");
    printLoad(load);
    if (auto const waiting = load.all().waiting; waiting != 0) {
        fmt::print("\n{} routes wait for room; packets to them take the next shorter route\n", waiting);
    }
    if (!options.waiting) return;
    for (auto const& key : waitingRoutes(agent))
        fmt::print("waiting: {} in VRF {}\n", key.prefix().text(), key.vrf());
}

void printWrites(RouteLoad const& load) {
    if (load.startWrites + load.registerWrites == 0) {
        fmt::print("\nnothing was written: the switch had these routes\n");
        return;
    }
    fmt::print("\n{} registers were written for routes, and {} to bring their stages up; {:.2f} ms\n",
               load.registerWrites, load.startWrites, load.milliseconds);
}

/** Gives a switch the routes of a file, and reports. */
int load(char const* command, Options const& options, Switch& target, RouteFile const& file) {
    RouteLadder ladder(target, StartMode::warm);
    RouteLoad result;
    {
        ProgressBar bar(file.routes.size());
        result = ladder.routesAre(file.routes, [&](std::size_t done) { bar.doneIs(done); });
    }
    auto const verification = ladder.verify();
    for (auto const& difference : verification.differences) {
        fmt::print(stderr, "nerio {}: hardware table {} row {}: {}\n", command, difference.hwTable,
                   difference.row, difference.text);
    }
    if (options.json) {
        auto report = reportOf(options, file, result, ladder.agent());
        report["differences"] = verification.differences.size();
        fmt::print("{}\n", report.dump(1, ' ', false, Json::error_handler_t::replace));
    } else {
        printReport(options, file, result, ladder.agent());
        if (!options.directory.empty()) printWrites(result);
    }
    return verification.differences.empty() ? done : jobFailed;
}

StateFile emptyState() {
    StateFile state;
    state.profile = NerioSwitch::profilePreset("default");
    return state;
}

int runRoutes(Options const& options) {
    auto const kept = keptState(options.directory);
    auto state = kept ? kept->wanted : emptyState();
    auto const file = routesOf(options, *state.profile);
    printProblems("routes", options, file);
    if (!file.problems.empty() && !options.skipBad) return badInput;
    Switch target(state.profile, options.directory);
    target.chip();
    state.routes.clear();
    for (auto const& route : file.routes)
        state.routes.push_back({route.key, route.nexthop});
    StateChange change(options.directory, state);
    int const status = load("routes", options, target, file);
    change.done();
    return status;
}

int runCapacity(Options const& options) {
    auto const state = options.stateFile.empty() ? emptyState() : Agent::readStateFile(options.stateFile);
    auto const file = routesOf(options, *state.profile);
    printProblems("capacity", options, file);
    if (!file.problems.empty() && !options.skipBad) return badInput;
    Switch target(state.profile);
    return load("capacity", options, target, file);
}

/** What both commands take. */
void addCommon(CLI::App& command, Options& options) {
    command
        .add_option(
            "FILE", options.file,
            "Routes: lines of \"prefix [next hop] [vrf]\", `ip -json route show`, or a routing daemon's "
            "`show ip route json`; may be packed by gzip")
        ->required();
    command.add_flag("--skip-bad", options.skipBad, "Leave out what is no route, instead of refusing it");
    command.add_flag("--waiting", options.waiting, "List the routes that have no room");
    command.add_flag("--json", options.json, "Report as JSON");
}

}  // namespace

void addRoutes(CLI::App& app, int& status) {
    auto const options = std::make_shared<Options>();
    auto* command = app.add_subcommand("routes", "Make the routes of a file those of a kept switch");
    addCommon(*command, *options);
    command->add_option("--switch", options->directory, "The switch's directory, made if it is missing")
        ->required();
    command->callback(
        [options, &status] { status = guarded("routes", [&] { return runRoutes(*options); }); });
}

void addCapacity(CLI::App& app, int& status) {
    auto const options = std::make_shared<Options>();
    auto* command = app.add_subcommand("capacity", "See which routes of a file a switch has room for");
    addCommon(*command, *options);
    command->add_option("--state", options->stateFile, "A state file whose switch it is");
    command->callback(
        [options, &status] { status = guarded("capacity", [&] { return runCapacity(*options); }); });
}

}  // namespace Nerio
