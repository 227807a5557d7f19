#include <fmt/format.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/ProfileJson.h"
#include "agent/StateDiff.h"
#include "nerio/Commands.h"
#include "nerio/Guarded.h"
#include "nerio/KeptSwitch.h"
#include "nerio/ProgrammedSwitch.h"
#include "nerio/ProgressBar.h"
#include "nerio/Snapshot.h"

/*
 * `nerio apply`: brings a kept switch to a state and writes only what differs. `nerio diff`: what differs
 * between two states. `nerio dump`: the state of a kept switch as a file that `apply` takes.
 */
namespace Nerio {

namespace {

using Agent::Json;
using Agent::StateDifference;
using Agent::StateFile;
using NerioSwitchApi::StartMode;

struct Options {
    std::string file;
    std::string other;
    std::string directory;
    bool dryRun = false;
    bool json = false;
};

StateFile emptyState(StateFile const& alike) {
    StateFile state;
    state.profile = alike.profile;
    return state;
}

/** What applying a state came to. */
struct Applied {
    std::vector<StateDifference> changes;
    std::size_t registerWrites = 0;
    U64 rows = 0;
    std::vector<Agent::Difference> differences;
};

void checkProfile(StateFile const& file, KeptState const& kept, std::string const& directory) {
    if (Agent::profileToJson(*file.profile) != Agent::profileToJson(*kept.wanted.profile))
        throw BadInput(fmt::format("{}: /profile: it is not that of the switch in {}", file.path, directory));
}

/** Programs the state in a directory that holds the switch, or will. */
Applied applyIn(std::filesystem::path const& directory, KeptState state, bool isThere,
                ProgrammedSwitch::Keeping keeping) {
    Applied applied;
    ProgressBar bar(state.wanted.routes.size());
    ProgrammedSwitch programmed(
        std::move(state), directory, isThere ? StartMode::warm : StartMode::cold,
        {.keeping = keeping, .progress = [&](std::size_t done) { bar.doneIs(done); }});
    programmed.verify();
    applied.registerWrites = programmed.registerWrites();
    applied.rows = programmed.rowsVerified();
    applied.differences = programmed.differences();
    return applied;
}

Applied apply(Options const& options, StateFile const& file) {
    auto const kept = keptState(options.directory);
    if (kept) checkProfile(file, *kept, options.directory);
    auto const changes = Agent::differences(kept ? kept->wanted : emptyState(file), file);
    auto applied = [&] {
        if (!options.dryRun) {
            return applyIn(options.directory, changedState(options.directory, file), kept.has_value(),
                           ProgrammedSwitch::Keeping::change);
        }
        if (kept) {
            Snapshot const snapshot(options.directory);
            return applyIn(snapshot.path(), changedState(options.directory, file), true,
                           ProgrammedSwitch::Keeping::no);
        }
        TemporaryDirectory const scratch("nerio-apply");
        return applyIn(scratch.path(), {file, {}}, false, ProgrammedSwitch::Keeping::no);
    }();
    applied.changes = changes;
    return applied;
}

void printText(Options const& options, Applied const& applied) {
    if (options.dryRun) {
        for (auto const& change : applied.changes)
            fmt::print("{}\n", change.text());
    }
    auto const changes = applied.changes.size();
    fmt::print("{} {}{}, {} registers {}written\n", changes, changes == 1 ? "change" : "changes",
               options.dryRun ? " to make" : "", applied.registerWrites, options.dryRun ? "to be " : "");
    if (!options.dryRun && applied.differences.empty())
        fmt::print("software, shadow and chip agree on all {} rows\n", applied.rows);
}

int runApply(Options const& options) {
    auto const file = Agent::readStateFile(options.file);
    rehearse(file);
    auto const applied = apply(options, file);
    for (auto const& difference : applied.differences) {
        fmt::print(stderr, "nerio apply: hardware table {} row {}: {}\n", difference.hwTable, difference.row,
                   difference.text);
    }
    if (options.json) {
        fmt::print("{}\n", Json{{"changes", Agent::toJson(applied.changes)},
                                {"registerWrites", applied.registerWrites},
                                {"rows", applied.rows},
                                {"differences", applied.differences.size()}}
                               .dump(1));
    } else {
        printText(options, applied);
    }
    return applied.differences.empty() ? done : jobFailed;
}

/** The state of a switch directory, or of a file. */
StateFile stateOf(std::string const& place) {
    std::error_code ignored;
    if (std::filesystem::is_directory(place, ignored)) return requiredState(place).wanted;
    return Agent::readStateFile(place);
}

int runDiff(Options const& options) {
    auto const differences = Agent::differences(stateOf(options.file), stateOf(options.other));
    if (options.json) {
        fmt::print("{}\n", Agent::toJson(differences).dump(1));
    } else {
        for (auto const& difference : differences)
            fmt::print("{}\n", difference.text());
    }
    return differences.empty() ? done : jobFailed;
}

int runDump(Options const& options) {
    fmt::print("{}\n", Agent::stateToJson(requiredState(options.directory).wanted).dump(1));
    return done;
}

}  // namespace

void addApply(CLI::App& app, int& status) {
    auto const options = std::make_shared<Options>();
    auto* command = app.add_subcommand("apply", "Bring a kept switch to a state, writing only what differs");
    command->add_option("STATE", options->file, "The state file; - for standard input")->required();
    command->add_option("--switch", options->directory, "The switch's directory, made if it is missing")
        ->required();
    command->add_flag("--dry-run", options->dryRun, "Say what would change, and change nothing");
    command->add_flag("--json", options->json, "Report as JSON");
    command->callback([options, &status] { status = guarded("apply", [&] { return runApply(*options); }); });
}

void addDiff(CLI::App& app, int& status) {
    auto const options = std::make_shared<Options>();
    auto* command = app.add_subcommand(
        "diff", "Show what differs between two states; exit status 1 says that something does");
    command->add_option("A", options->file, "A state file, or the directory of a kept switch")->required();
    command->add_option("B", options->other, "Another one")->required();
    command->add_flag("--json", options->json, "Answer as JSON");
    command->callback([options, &status] { status = guarded("diff", [&] { return runDiff(*options); }); });
}

void addDump(CLI::App& app, int& status) {
    auto const options = std::make_shared<Options>();
    auto* command = app.add_subcommand("dump", "Print the state of a kept switch, as apply takes it");
    command->add_option("--switch", options->directory, "The directory of a kept switch")->required();
    command->callback([options, &status] { status = guarded("dump", [&] { return runDump(*options); }); });
}

}  // namespace Nerio
