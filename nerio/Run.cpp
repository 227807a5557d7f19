#include <chrono>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "agent/StateFile.h"
#include "agent/SwitchEntries.h"
#include "nerio/CampusExample.h"
#include "nerio/Commands.h"
#include "nerio/FillSampler.h"
#include "nerio/Guarded.h"
#include "nerio/KeptSwitch.h"
#include "nerio/Page.h"
#include "nerio/RunPage.h"
#include "nerio/RunReport.h"
#include "nerio/SecondProcess.h"
#include "nerio/SwitchAgents.h"
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
    std::string html;
    std::string stateFile;
    std::string directory;
    bool json = false;
    std::string warmRestartOf;
};

StateFile stateOf(Options const& options) {
    return options.stateFile.empty() ? Agent::parseState(campusExample, "examples/campus.json")
                                     : Agent::readStateFile(options.stateFile);
}

/** The tables of a state, but for those of agents, and what they are to hold. */
class WantedTables {
public:
    explicit WantedTables(StateFile const& file)
        : file_(file),
          ofSwitchState_(Agent::tablesOf(file.switchState)),
          entries_(Agent::SwitchEntries::of(file.switchState, *file.profile)) {}

    /** Calls `visit(spec, place)` for each, with its place in the file. */
    template <class Visit>
    void forEach(Visit const& visit) const {
        for (auto const& state : file_.tables)
            visit(state.spec, state.place);
        for (auto const& [spec, part] : ofSwitchState_)
            visit(spec, "/" + part);
    }

    /** Gives a table its entries. */
    void applyTo(Agent::TableSpec const& spec, Agent::JsonTable& table) const {
        for (auto const& state : file_.tables) {
            if (state.spec.name == spec.name) Agent::applyEntries(file_, state, table);
        }
        for (auto const& wanted : ofSwitchState_) {
            if (wanted.spec.name == spec.name) entries_.applyTo(*table.table());
        }
    }

private:
    StateFile const& file_;
    std::vector<Agent::SwitchTable> ofSwitchState_;
    Agent::SwitchEntries entries_;
};

using Clock = std::chrono::steady_clock;

/** Starts the switch and calls `settle(spec, table)` for each that came up, all of it on the table's account.
 */
template <class Settle>
std::vector<TableReport> startTables(Switch& target, StartMode mode, Settle&& settle) {
    std::vector<TableReport> reports;
    auto begin = Clock::now();
    target.start(mode, [&](Agent::TableSpec const& spec, Agent::JsonTable& table) {
        TableReport report;
        report.spec = spec;
        report.entries = table.entryCount();
        settle(spec, table);
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

/** The first process's part: the switch, programmed cold, and kept in the directory. */
Json programCold(StateFile const& file, std::filesystem::path const& directory,
                 std::vector<FillSampler::Series>* fill) {
    FillSampler sampler;
    Switch target(file.profile, directory);
    if (fill != nullptr) target.samplerIs(sampler);
    WantedTables const wanted(file);
    wanted.forEach([&](auto const& spec, auto const&) { wanted.applyTo(spec, *target.tableIs(spec)); });
    auto tables = startTables(target, StartMode::cold, [](auto const&, auto const&) {});
    StartReport const report{std::move(tables), startAgents(file, target, StartMode::cold)};
    if (fill != nullptr) *fill = sampler.series();
    keptStateIs(directory, file);
    return toJson(report);
}

/** The second process's part: adopts what the shadow holds, then wants every entry of the state again. */
int restartWarm(std::filesystem::path const& directory) {
    auto const file = keptState(directory).value();
    Switch target(file.profile, directory);
    WantedTables const wanted(file);
    wanted.forEach([&](auto const& spec, auto const&) { target.tableIs(spec); });
    auto tables = startTables(target, StartMode::warm, [&](auto const& spec, Agent::JsonTable& table) {
        wanted.applyTo(spec, table);
    });
    StartReport const report{std::move(tables), startAgents(file, target, StartMode::warm)};
    fmt::print("{}\n", toJson(report).dump());
    return done;
}

/** Brings the state up on a chip in memory: what cannot be programmed is found before anything is. */
void rehearse(StateFile const& file) {
    Switch scratch(file.profile);
    WantedTables const wanted(file);
    wanted.forEach([&](Agent::TableSpec const& spec, Belmo::String const& place) {
        auto& table = *scratch.tableIs(spec);
        try {
            scratch.start(StartMode::cold);
            wanted.applyTo(spec, table);
        } catch (Agent::StateFileException const&) {
            throw;
        } catch (Belmo::Exception const& failure) {
            throw Agent::StateFileException(file.path, place, failure.what());
        }
    });
    startAgents(file, scratch, StartMode::cold);
}

int runSwitch(Options const& options) {
    auto const file = stateOf(options);
    std::optional<FileToBe> page;
    if (!options.html.empty()) page.emplace(options.html);
    rehearse(file);
    std::optional<TemporaryDirectory> temporary;
    std::filesystem::path directory = options.directory;
    if (directory.empty()) directory = temporary.emplace("nerio-run").path();

    std::vector<FillSampler::Series> fill;
    auto const cold = programCold(file, directory, page ? &fill : nullptr);
    auto const second = runSelf({"run", "--warm-restart-of", directory.string()});
    if (second.status != done) {
        fmt::print(stderr, "nerio run: the second process failed with status {}\n", second.status);
        return jobFailed;
    }
    auto const warm = Json::parse(second.output);

    auto const differences = printAllDifferences("after the cold start", cold) +
                             printAllDifferences("after the warm restart", warm);
    if (page) page->textIs(runPage(file, cold, warm, fill));
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
    command->add_option("--html", options->html, "Write a page of pictures of the run to this file");
    command->add_option("--warm-restart-of", options->warmRestartOf)->group("");
    command->callback([options, &status] {
        status = guarded("run", [&] {
            return options->warmRestartOf.empty() ? runSwitch(*options) : restartWarm(options->warmRestartOf);
        });
    });
}

}  // namespace Nerio
