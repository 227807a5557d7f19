#include <algorithm>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fmt/format.h>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "agent/StateFile.h"
#include "nerio/CampusExample.h"
#include "nerio/Commands.h"
#include "nerio/Guarded.h"
#include "nerio/KeptSwitch.h"
#include "nerio/RouteLadder.h"
#include "nerio/SecondProcess.h"
#include "nerio/Switch.h"
#include "nerio/TemporaryDirectory.h"

/*
 * `nerio run`: programs a whole switch cold from a state file, then restarts it warm in a second process over
 * the same shadow and chip, and reports both. The second process is this command again, told by a hidden
 * option to take the kept switch up and to answer in JSON.
 */
namespace Nerio {

namespace {

using Agent::Json;
using Agent::StateFile;
using NerioSwitchApi::StartMode;

struct Options {
    std::string stateFile;
    std::string directory;
    bool json = false;
    std::string warmRestartOf;
};

StateFile stateOf(Options const& options) {
    return options.stateFile.empty() ? Agent::parseState(campusExample, "examples/campus.json")
                                     : Agent::readStateFile(options.stateFile);
}

/** Makes the file's tables with their entries; nothing is programmed before the switch is started. */
void makeTables(StateFile const& file, Switch& target) {
    for (auto const& state : file.tables)
        Agent::applyEntries(file, state, *target.tableIs(state.spec));
}

/** What happened to one table of a start, and how its rows stood afterwards. */
struct TableReport {
    Agent::TableSpec spec;
    std::size_t entries = 0;
    /** Entries of the settled table that equal the default result. */
    std::size_t defaultEntries = 0;
    U64 rows = 0;
    std::size_t registerWrites = 0;
    double milliseconds = 0;
    std::vector<Agent::Difference> differences;
    /** Of the settled table; none without a hash. */
    std::optional<Agent::HashPlacement> placement;
};

using Clock = std::chrono::steady_clock;

/** Starts the switch and calls `settle` for each table that came up, all of it on the table's account. */
template <class Settle>
std::vector<TableReport> startTables(Switch& target, StartMode mode, Settle&& settle) {
    std::vector<TableReport> reports;
    auto begin = Clock::now();
    target.start(mode, [&](Agent::TableSpec const& spec, Agent::JsonTable& table) {
        TableReport report;
        report.spec = spec;
        report.entries = table.entryCount();
        settle(table);
        report.defaultEntries = table.defaultEntryCount();
        report.placement = table.placement();
        report.milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
        report.registerWrites = target.takeWriteCount();
        reports.push_back(std::move(report));
        begin = Clock::now();
    });
    for (auto& report : reports) {
        auto verification = target.verify(*target.table(report.spec.name)->table());
        report.rows = verification.rows;
        report.differences = std::move(verification.differences);
    }
    return reports;
}

/** What happened to the routes of a start, and how the rows of their stages stood afterwards. */
struct RouteReport {
    RouteLoad load;
    Agent::Verification verification;
};

/** What a start came to. */
struct StartReport {
    std::vector<TableReport> tables;
    /** None without routes. */
    std::optional<RouteReport> routes;
};

/** Brings the stages of the file's routes up, if it has any, and gives them the routes. */
std::optional<RouteReport> startRoutes(StateFile const& file, Switch& target, StartMode mode) {
    if (file.routes.empty()) return std::nullopt;
    RouteLadder ladder(target, mode);
    RouteReport report;
    report.load = ladder.routesAre(file.routes);
    report.verification = ladder.verify();
    return report;
}

Json toJson(std::vector<Agent::Difference> const& differences) {
    Json all = Json::array();
    for (auto const& difference : differences) {
        all.push_back({{"hwTable", difference.hwTable}, {"row", difference.row}, {"text", difference.text}});
    }
    return all;
}

Json toJson(Agent::HashPlacement const& placement) {
    return {{"rowsInUse", placement.rowsInUse},
            {"rows", placement.rows},
            {"moves", placement.moves},
            {"failedPlacements", placement.failedPlacements},
            {"entriesWithoutPlace", placement.entriesWithoutPlace}};
}

Json toJson(std::vector<TableReport> const& reports) {
    Json tables = Json::array();
    for (auto const& report : reports) {
        Json table{{"name", report.spec.name},
                   {"family", report.spec.family},
                   {"entries", report.entries},
                   {"defaultEntries", report.defaultEntries},
                   {"rows", report.rows},
                   {"registerWrites", report.registerWrites},
                   {"milliseconds", report.milliseconds},
                   {"differences", toJson(report.differences)}};
        if (report.placement) table["placement"] = toJson(*report.placement);
        tables.push_back(std::move(table));
    }
    return tables;
}

Json toJson(RouteReport const& report) {
    auto json = toJson(report.load);
    json["verifiedRows"] = report.verification.rows;
    json["differences"] = toJson(report.verification.differences);
    return json;
}

/** "tables", and "routes" where there are any. */
Json toJson(StartReport const& report) {
    Json json{{"tables", toJson(report.tables)}};
    if (report.routes) json["routes"] = toJson(*report.routes);
    return json;
}

/** The first columns of a line: the table's name and family, as wide as the widest ones ask for. */
struct TableColumns {
    std::size_t name = 16;
    std::size_t family = 14;

    explicit TableColumns(Json const& tables) {
        for (auto const& table : tables) {
            name = std::max(name, table["name"].get_ref<std::string const&>().size());
            family = std::max(family, table["family"].get_ref<std::string const&>().size());
        }
    }
    std::string text(std::string const& nameText, std::string const& familyText) const {
        return fmt::format("  {:<{}} {:<{}}", nameText, name, familyText, family);
    }
    std::string text(Json const& table) const {
        return text(table["name"].get<std::string>(), table["family"].get<std::string>());
    }
};

void printTables(char const* title, char const* entriesTitle, Json const& tables) {
    TableColumns const columns(tables);
    fmt::print("{}\n{} {:>16} {:>8} {:>16} {:>10}\n", title, columns.text("table", "family"), entriesTitle,
               "rows", "register writes", "time");
    for (auto const& table : tables) {
        fmt::print("{} {:>16} {:>8} {:>16} {:>7.2f} ms\n", columns.text(table), table["entries"].get<U64>(),
                   table["rows"].get<U64>(), table["registerWrites"].get<U64>(),
                   table["milliseconds"].get<double>());
    }
}

/** The moves of all placements. Chains longer than the histogram tells apart count as its longest. */
U64 movesOf(Json const& placement) {
    U64 moves = 0;
    U64 length = 0;
    for (auto const& count : placement["moves"])
        moves += length++ * count.get<U64>();
    return moves;
}

/** Prints how full the hash tables are, if there are any. */
void printPlacements(Json const& tables) {
    TableColumns const columns(tables);
    bool isFirst = true;
    for (auto const& table : tables) {
        if (!table.contains("placement")) continue;
        if (std::exchange(isFirst, false)) {
            fmt::print("\nhash tables\n{} {:>16} {:>8} {:>8} {:>7} {:>10}\n", columns.text("table", "family"),
                       "rows in use", "rows", "fill", "moves", "no place");
        }
        auto const& placement = table["placement"];
        auto const inUse = placement["rowsInUse"].get<U64>();
        auto const rows = placement["rows"].get<U64>();
        fmt::print("{} {:>16} {:>8} {:>6.2f} % {:>7} {:>10}\n", columns.text(table), inUse, rows,
                   100.0 * static_cast<double>(inUse) / static_cast<double>(rows), movesOf(placement),
                   placement["entriesWithoutPlace"].get<U64>());
    }
}

/** Register writes of routes, with those that brought their stages up. */
U64 writesOf(Json const& routes) {
    return routes["startWrites"].get<U64>() + routes["registerWrites"].get<U64>();
}

/** Prints how routes came to stand in their stages, if there are any. */
void printRoutes(Json const& start, char const* verb) {
    if (!start.contains("routes")) return;
    auto const& routes = start["routes"];
    fmt::print("\nroutes: {} of {} {} in {} rows, {} register writes, {:.2f} ms\n",
               routes["placed"].get<U64>(), routes["routes"].get<U64>(), verb, routes["rowsInUse"].get<U64>(),
               writesOf(routes), routes["milliseconds"].get<double>());
}

/** Prints what does not agree in a table or in the routes' stages; the number of rows. */
std::size_t printDifferences(char const* when, Json const& holder) {
    for (auto const& difference : holder["differences"]) {
        fmt::print(stderr, "nerio run: {}: hardware table {} row {}: {}\n", when,
                   difference["hwTable"].get<std::string>(), difference["row"].get<U64>(),
                   difference["text"].get<std::string>());
    }
    return holder["differences"].size();
}

/** The same of all that was started. */
std::size_t printAllDifferences(char const* when, Json const& start) {
    std::size_t count = start.contains("routes") ? printDifferences(when, start["routes"]) : 0;
    for (auto const& table : start["tables"])
        count += printDifferences(when, table);
    return count;
}

template <class Member>
U64 sumOf(Json const& tables, Member const& member) {
    U64 sum = 0;
    for (auto const& table : tables)
        sum += table[member].template get<U64>();
    return sum;
}

/** The tables in which an entry that equals the default leaves no trace. */
Json plain(Json const& tables) {
    Json all = Json::array();
    std::copy_if(tables.begin(), tables.end(), std::back_inserter(all),
                 [](Json const& table) { return !table.contains("placement"); });
    return all;
}

U64 entriesWithoutPlace(Json const& tables) {
    U64 sum = 0;
    for (auto const& table : tables) {
        if (table.contains("placement")) sum += table["placement"]["entriesWithoutPlace"].get<U64>();
    }
    return sum;
}

void printReport(StateFile const& file, Json const& coldStart, Json const& warmStart) {
    auto const& cold = coldStart["tables"];
    auto const& warm = warmStart["tables"];
    auto const& profile = *file.profile;
    fmt::print("{}: {} ports, {} pipelines, hardware API {}, on an embedded chip\n\n", profile.profileName(),
               profile.numPorts, profile.numPipelines, profile.hwApi.text());
    printTables("cold start", "entries", cold);
    printPlacements(cold);
    printRoutes(coldStart, "placed");
    printTables("\nwarm restart, in a second process", "entries adopted", warm);
    printRoutes(warmStart, "in place");
    auto const missing = sumOf(plain(cold), "entries") - sumOf(plain(warm), "entries");
    if (missing != 0 && missing == sumOf(plain(warm), "defaultEntries")) {
        fmt::print(
            "\n{} entries equal the default, leave no trace in hardware, and were set again, not adopted\n",
            missing);
    }
    auto const withoutPlace = entriesWithoutPlace(cold);
    auto const stillWithout = entriesWithoutPlace(warm);
    if (withoutPlace + stillWithout != 0) {
        fmt::print("\nentries without a place: {} after the cold start, {} after the warm restart\n",
                   withoutPlace, stillWithout);
    }
}

/** The last words of a report without differences. */
void printAgreement(Json const& warm) {
    auto rows = sumOf(warm["tables"], "rows");
    auto writes = sumOf(warm["tables"], "registerWrites");
    if (warm.contains("routes")) {
        rows += warm["routes"]["verifiedRows"].get<U64>();
        writes += writesOf(warm["routes"]);
    }
    fmt::print("\nsoftware, shadow and chip agree on all {} rows; the warm restart wrote {}\n", rows,
               writes == 0 ? "nothing" : fmt::format("{} registers", writes));
}

/** The first process's part: the switch, programmed cold, and kept in the directory. */
Json programCold(StateFile const& file, std::filesystem::path const& directory) {
    Switch target(file.profile, directory);
    makeTables(file, target);
    auto tables = startTables(target, StartMode::cold, [](Agent::JsonTable&) {});
    StartReport const report{std::move(tables), startRoutes(file, target, StartMode::cold)};
    keptStateIs(directory, file);
    return toJson(report);
}

/** The second process's part: adopts what the shadow holds, then wants every entry of the state again. */
int restartWarm(std::filesystem::path const& directory) {
    auto const file = keptState(directory).value();
    Switch target(file.profile, directory);
    for (auto const& state : file.tables)
        target.tableIs(state.spec);
    auto tables = startTables(target, StartMode::warm, [&](Agent::JsonTable& table) {
        for (auto const& state : file.tables) {
            if (state.spec.name == table.table()->name()) Agent::applyEntries(file, state, table);
        }
    });
    StartReport const report{std::move(tables), startRoutes(file, target, StartMode::warm)};
    fmt::print("{}\n", toJson(report).dump());
    return done;
}

/** Programs the routes, if there are any, on a chip in memory that has the tables already. */
void rehearseRoutes(StateFile const& file, Switch& scratch) {
    if (file.routes.empty()) return;
    Agent::Place const root;
    auto const routes = root.member("routes");
    std::size_t number = 0;
    try {
        RouteLadder ladder(scratch, StartMode::cold);
        for (auto const& route : file.routes) {
            ladder.agent().routeIs(route.key, route.nexthop);
            ++number;
        }
    } catch (Belmo::RangeException const& failure) {
        throw Agent::StateFileException(file.path, routes.element(number).text(), failure.what());
    }
}

/** Brings the state up on a chip in memory: what cannot be programmed is found before anything is. */
void rehearse(StateFile const& file) {
    Switch scratch(file.profile);
    for (auto const& state : file.tables) {
        auto& table = *scratch.tableIs(state.spec);
        try {
            scratch.start(StartMode::cold);
        } catch (Belmo::Exception const& failure) {
            throw Agent::StateFileException(file.path, state.place, failure.what());
        }
        Agent::applyEntries(file, state, table);
    }
    rehearseRoutes(file, scratch);
}

void printJson(Json const& cold, Json const& warm, std::size_t differences) {
    Json report{{"cold", cold["tables"]}, {"warm", warm["tables"]}};
    if (cold.contains("routes")) report["routes"] = {{"cold", cold["routes"]}, {"warm", warm["routes"]}};
    report["differences"] = differences;
    fmt::print("{}\n", report.dump(1));
}

int runSwitch(Options const& options) {
    auto const file = stateOf(options);
    rehearse(file);
    std::optional<TemporaryDirectory> temporary;
    std::filesystem::path directory = options.directory;
    if (directory.empty()) directory = temporary.emplace("nerio-run").path();

    auto const cold = programCold(file, directory);
    auto const second = runSelf({"run", "--warm-restart-of", directory.string()});
    if (second.status != done) {
        fmt::print(stderr, "nerio run: the second process failed with status {}\n", second.status);
        return jobFailed;
    }
    auto const warm = Json::parse(second.output);

    auto const differences = printAllDifferences("after the cold start", cold) +
                             printAllDifferences("after the warm restart", warm);
    if (options.json) {
        printJson(cold, warm, differences);
        return differences == 0 ? done : jobFailed;
    }
    printReport(file, cold, warm);
    if (differences != 0) {
        fmt::print("\n{} differences between software, shadow and chip\n", differences);
        return jobFailed;
    }
    printAgreement(warm);
    if (!temporary) fmt::print("the switch is kept in {}\n", directory.string());
    return done;
}

}  // namespace

void addRun(CLI::App& app, int& status) {
    auto const options = std::make_shared<Options>();
    auto* command = app.add_subcommand("run", "Program a whole switch, restart it warm, and report");
    command->add_option("STATE", options->stateFile, "State file; the built-in campus switch if left out");
    command->add_option("--switch", options->directory, "Keep the switch in this directory");
    command->add_flag("--json", options->json, "Report as JSON");
    command->add_option("--warm-restart-of", options->warmRestartOf)->group("");
    command->callback([options, &status] {
        status = guarded("run", [&] {
            return options->warmRestartOf.empty() ? runSwitch(*options) : restartWarm(options->warmRestartOf);
        });
    });
}

}  // namespace Nerio
