#include "agent/Verify.h"

#include <cstddef>
#include <fmt/format.h>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "nerio/Commands.h"
#include "nerio/Guarded.h"
#include "nerio/ProgrammedSwitch.h"
#include "nerio/ProgressBar.h"
#include "nerio/Snapshot.h"

/*
 * `nerio verify`: holds what software wants, the shadow and the chip of a kept switch against each other, row
 * by row. It looks at a copy, so it may be asked while another process has the switch. What software wants is
 * found by starting a second copy warm, which brings that one in order. `--repair` does so with the switch
 * itself, and writes the rows that the chip lost.
 */
namespace Nerio {

namespace {

using Agent::Json;
using Agent::Verification;
using NerioSwitchApi::StartMode;

struct Options {
    std::string directory;
    bool repair = false;
    bool json = false;
};

/** Calls `visit` for each table whose rows no earlier one shares. */
template <class Visit>
void forEachOwner(Switch& target, Visit const& visit) {
    std::set<Belmo::String> seen;
    target.forEachTable([&](Agent::TableSpec const&, Agent::JsonTable& table) {
        auto const software = table.table();
        auto const& descriptors = software->profileConvertorPtr()->descriptors();
        bool isNew = descriptors.empty();
        for (auto const& [id, descriptor] : descriptors)
            isNew = seen.insert(descriptor->name()).second || isNew;
        if (isNew) visit(*software);
    });
}

void add(Verification& all, Verification const& part) {
    all.rows += part.rows;
    all.differences.insert(all.differences.end(), part.differences.begin(), part.differences.end());
}

Verification look(Snapshot const& held) {
    auto const copy = held.again();
    ProgrammedSwitch programmed(copy.state(), copy.path(), StartMode::warm);
    auto const chip = Chip::simulatedChip(programmed.target().profile(), (held.path() / "chip").string());
    auto const shadows = NerioSwitchApi::mappedShadowStore((held.path() / "shadow").string());
    Verification all;
    ProgressBar bar(programmed.target().tableCount());
    std::size_t number = 0;
    forEachOwner(programmed.target(), [&](NerioSwitchApi::SwTable const& table) {
        add(all, Agent::verifyCopy(table, *shadows, *chip, [&](auto const registers, auto const words) {
                chip->readRow(registers, words);
            }));
        bar.doneIs(++number);
    });
    return all;
}

/** Rows that are on their way while another process writes them are no differences: two looks have to see
 * one. */
Verification lookTwice(std::string const& directory) {
    auto first = look(Snapshot(directory));
    if (first.differences.empty()) return first;
    auto second = look(Snapshot(directory));
    std::erase_if(second.differences, [&](Agent::Difference const& each) {
        return std::ranges::none_of(first.differences, [&](Agent::Difference const& other) {
            return each.hwTable == other.hwTable && each.row == other.row;
        });
    });
    return second;
}

/** What a repair did. */
struct Repair {
    std::size_t registerWrites = 0;
    Verification left;
};

Repair repairSwitch(std::string const& directory) {
    ProgrammedSwitch programmed(requiredState(directory), directory, StartMode::warm);
    auto& target = programmed.target();
    Repair repair{programmed.registerWrites(), {}};
    forEachOwner(target, [&](NerioSwitchApi::SwTable const& table) {
        Agent::repair(table, target.verify(table));
        repair.registerWrites += target.takeWriteCount();
        add(repair.left, target.verify(table));
    });
    return repair;
}

Json toJson(std::vector<Agent::Difference> const& differences) {
    Json all = Json::array();
    for (auto const& difference : differences)
        all.push_back({{"hwTable", difference.hwTable}, {"row", difference.row}, {"text", difference.text}});
    return all;
}

void printText(Verification const& found, std::optional<Repair> const& repair) {
    for (auto const& difference : found.differences)
        fmt::print("{} row {}: {}\n", difference.hwTable, difference.row, difference.text);
    if (found.differences.empty()) {
        fmt::print("software, shadow and chip agree on all {} rows\n", found.rows);
    } else {
        fmt::print("{} of {} rows differ\n", found.differences.size(), found.rows);
    }
    if (!repair) return;
    if (repair->left.differences.empty()) {
        fmt::print("repaired: {} registers were written, and all rows agree\n", repair->registerWrites);
    } else {
        fmt::print("{} registers were written, and {} rows still differ\n", repair->registerWrites,
                   repair->left.differences.size());
    }
}

int runVerify(Options const& options) {
    auto const found = lookTwice(options.directory);
    std::optional<Repair> repair;
    if (options.repair && !found.differences.empty()) repair = repairSwitch(options.directory);
    if (options.json) {
        Json json{{"rows", found.rows}, {"differences", toJson(found.differences)}};
        if (repair) {
            json["registerWrites"] = repair->registerWrites;
            json["left"] = toJson(repair->left.differences);
        }
        fmt::print("{}\n", json.dump(1));
    } else {
        printText(found, repair);
    }
    return (repair ? repair->left : found).differences.empty() ? done : jobFailed;
}

}  // namespace

void addVerify(CLI::App& app, int& status) {
    auto const options = std::make_shared<Options>();
    auto* command = app.add_subcommand(
        "verify", "Hold software, shadow and chip of a kept switch against each other, row by row");
    command->add_option("--switch", options->directory, "The directory of a kept switch")->required();
    command->add_flag("--repair", options->repair, "Write the rows that differ");
    command->add_flag("--json", options->json, "Answer as JSON");
    command->callback(
        [options, &status] { status = guarded("verify", [&] { return runVerify(*options); }); });
}

}  // namespace Nerio
