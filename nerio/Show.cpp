#include <algorithm>
#include <fmt/format.h>
#include <memory>
#include <numeric>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "nerio/Commands.h"
#include "nerio/Guarded.h"
#include "nerio/LookText.h"
#include "nerio/SwitchLook.h"

/*
 * `nerio show`: how full the tables of a kept switch are, or the entries of one of them. It looks at a copy,
 * so it may be asked while another process has the switch.
 */
namespace Nerio {

namespace {

using Agent::Json;

struct Options {
    std::string table;
    std::string directory;
    std::optional<U32> fullAt;
    bool json = false;
};

/** "placed", "no place", "no trace". */
char const* statusName(EntryLook::Status status) {
    switch (status) {
        case EntryLook::Status::placed:
            return "placed";
        case EntryLook::Status::noPlace:
            return "no place";
        case EntryLook::Status::noTrace:
            return "no trace";
    }
    return "";
}

Json toJson(EntryLook const& entry) {
    Json json{{"key", entry.key}, {"result", entry.result}, {"location", nullptr}};
    if (entry.location) json["location"] = {{"table", entry.location->table}, {"row", entry.location->row}};
    json["status"] = statusName(entry.status);
    json["hit"] = entry.hit ? Json(*entry.hit) : Json();
    json["inconsistent"] = entry.inconsistent;
    return json;
}

void printEntries(TableLook const& look, Agent::JsonTable const& table,
                  std::vector<EntryLook> const& entries) {
    fmt::print("{}: {}, {} entries in {} of {} rows, {}\n", look.spec.name, look.spec.family, look.entries,
               look.rowsInUse, look.rows, fillText(look));
    Grid<6> grid;
    grid.add({"TABLE", "ROW", "STATUS", "HIT", "KEY", "RESULT"});
    for (auto const& entry : entries) {
        auto const numberOf = [&](U32 EntryLook::Location::*member) {
            return entry.location ? fmt::format("{}", *entry.location.*member) : "-";
        };
        grid.add({numberOf(&EntryLook::Location::table), numberOf(&EntryLook::Location::row),
                  fmt::format("{}{}", statusName(entry.status), entry.inconsistent ? ", inconsistent" : ""),
                  entry.hit.value_or(false) ? "hit" : "-", table.keyText(entry.key, {}),
                  table.resultText(entry.result, {})});
    }
    fmt::print("{}", grid.text());
}

/** How many letters have to be changed, put in or left out to make one word of the other (Levenshtein). */
std::size_t distance(std::string_view from, std::string_view to) {
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= from.size(); ++i) {
        auto diagonal = std::exchange(row[0], i);
        for (std::size_t j = 1; j <= to.size(); ++j) {
            auto const changed = diagonal + (from[i - 1] == to[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, changed});
        }
    }
    return row.back();
}

/** The names that may have been meant: with few letters changed, or with more in front or behind. */
std::vector<std::string> namesNear(std::string const& wanted, std::vector<TableLook> const& tables) {
    std::vector<std::string> names;
    for (auto const& look : tables) {
        auto const& name = look.spec.name;
        bool const isPart = name.find(wanted) != name.npos || look.spec.family == wanted;
        if (isPart || distance(wanted, name) <= 1 + wanted.size() / 4) names.push_back(name);
    }
    return names;
}

int showTable(Options const& options, SwitchLook& look) {
    auto const number = look.find(options.table);
    if (!number) {
        auto const near = namesNear(options.table, look.tables());
        throw BadInput(fmt::format("{}: there is no table {}; {}", options.directory,
                                   Agent::shown(options.table),
                                   near.empty() ? "without a name, all are shown"
                                                : fmt::format("near is {}", fmt::join(near, ", "))));
    }
    auto const table = look.table(*number);
    auto entries = look.entries(*number);
    look.locate(*number, entries);
    if (!options.json) {
        printEntries(table, look.json(*number), entries);
        return done;
    }
    auto json = toJson(table);
    json["entries"] = Json::array();
    for (auto const& entry : entries)
        json["entries"].push_back(toJson(entry));
    fmt::print("{}\n", json.dump(1));
    return done;
}

int runShow(Options const& options) {
    SwitchLook look(options.directory, options.fullAt);
    if (!options.table.empty()) return showTable(options, look);
    auto const tables = look.tables();
    if (!options.json) {
        fmt::print("{}", tablesText(tables));
        return done;
    }
    Json all = Json::array();
    for (auto const& table : tables)
        all.push_back(toJson(table));
    fmt::print("{}\n", all.dump(1));
    return done;
}

}  // namespace

void addShow(CLI::App& app, int& status) {
    auto const options = std::make_shared<Options>();
    auto* command =
        app.add_subcommand("show", "Show how full the tables of a kept switch are, or the entries of one");
    command->add_option("TABLE", options->table, "The table whose entries to show; all tables if left out");
    command->add_option("--switch", options->directory, "The directory of a kept switch")->required();
    command
        ->add_option("--full-at", options->fullAt,
                     "The use in percent from which a table is nearly full; 95 if left out")
        ->type_name("PERCENT")
        ->check(CLI::Range(1u, 100u));
    command->add_flag("--json", options->json, "Answer as JSON");
    command->callback([options, &status] { status = guarded("show", [&] { return runShow(*options); }); });
}

}  // namespace Nerio
