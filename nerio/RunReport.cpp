#include "nerio/RunReport.h"

#include <algorithm>
#include <fmt/format.h>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "nerio/StartReport.h"

namespace Nerio {

using Agent::Json;
using Agent::StateFile;

namespace {

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

/** Register writes of what agents did, with those that brought their tables up. */
U64 writesOf(Json const& report) {
    return report["startWrites"].get<U64>() + report["registerWrites"].get<U64>();
}

void printAgent(char const* title, Json const& report, U64 wanted, char const* verb) {
    fmt::print("\n{}: {} of {} {} in {} rows, {} register writes, {:.2f} ms\n", title,
               report["placed"].get<U64>(), wanted, verb, report["rowsInUse"].get<U64>(), writesOf(report),
               report["milliseconds"].get<double>());
}

/** Prints how routes came to stand in their stages, and what has several parts in its tables. */
void printAgents(Json const& start, char const* verb) {
    if (start.contains("routes")) {
        auto const& routes = start["routes"];
        printAgent("routes", routes, routes["routes"].get<U64>(), verb);
    }
    for (auto const& [name, title] :
         {std::pair{"multicastRoutes", "multicast routes"}, {"translations", "translations"}}) {
        if (!start.contains(name)) continue;
        auto const& report = start[name];
        printAgent(title, report, report["wanted"].get<U64>(), verb);
        for (auto const& reason : report["refused"])
            fmt::print("  refused: {}\n", reason.get<std::string>());
    }
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

}  // namespace

std::size_t printAllDifferences(char const* when, Json const& start) {
    std::size_t count = 0;
    for (auto const* name : agentReports)
        count += start.contains(name) ? printDifferences(when, start[name]) : 0;
    for (auto const& table : start["tables"])
        count += printDifferences(when, table);
    return count;
}

namespace {

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

/** The tables that a start wrote. */
std::string writersText(Json const& tables) {
    std::vector<std::string> names;
    for (auto const& table : tables) {
        if (table["registerWrites"] != 0) names.push_back(table["name"].get<std::string>());
    }
    return names.empty() ? "" : fmt::format(", of {}", fmt::join(names, ", "));
}

U64 entriesWithoutPlace(Json const& tables) {
    U64 sum = 0;
    for (auto const& table : tables) {
        if (table.contains("placement")) sum += table["placement"]["entriesWithoutPlace"].get<U64>();
    }
    return sum;
}

}  // namespace

void printReport(StateFile const& file, Json const& coldStart, Json const& warmStart) {
    auto const& cold = coldStart["tables"];
    auto const& warm = warmStart["tables"];
    auto const& profile = *file.profile;
    fmt::print("{}: {} ports, {} pipelines, hardware API {}, on an embedded chip\n\n", profile.profileName(),
               profile.numPorts, profile.numPipelines, profile.hwApi.text());
    printTables("cold start", "entries", cold);
    printPlacements(cold);
    printAgents(coldStart, "placed");
    printTables("\nwarm restart, in a second process", "entries adopted", warm);
    printAgents(warmStart, "in place");
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

void printAgreement(Json const& warm) {
    auto rows = sumOf(warm["tables"], "rows");
    auto writes = sumOf(warm["tables"], "registerWrites");
    for (auto const* name : agentReports) {
        if (!warm.contains(name)) continue;
        rows += warm[name]["verifiedRows"].get<U64>();
        writes += writesOf(warm[name]);
    }
    fmt::print("\nsoftware, shadow and chip agree on all {} rows; the warm restart wrote {}\n", rows,
               writes == 0 ? "nothing" : fmt::format("{} registers{}", writes, writersText(warm["tables"])));
}

void printJson(Json const& cold, Json const& warm, std::size_t differences) {
    Json report{{"cold", cold["tables"]}, {"warm", warm["tables"]}};
    for (auto const* name : agentReports) {
        if (cold.contains(name)) report[name] = {{"cold", cold[name]}, {"warm", warm[name]}};
    }
    report["differences"] = differences;
    fmt::print("{}\n", report.dump(1));
}

}  // namespace Nerio
