#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "agent/StateFile.h"
#include "nerio/CampusExample.h"
#include "nerio/Commands.h"
#include "nerio/FileToBe.h"
#include "nerio/FillSampler.h"
#include "nerio/Guarded.h"
#include "nerio/Interrupt.h"
#include "nerio/KeptSwitch.h"
#include "nerio/Page.h"
#include "nerio/ProgrammedSwitch.h"
#include "nerio/RunPage.h"
#include "nerio/RunReport.h"
#include "nerio/SecondProcess.h"
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

/** The first process's part: the switch, programmed cold, and kept in the directory. */
Json programCold(StateFile const& file, std::filesystem::path const& directory,
                 std::vector<FillSampler::Series>* fill) {
    FillSampler sampler;
    ProgrammedSwitch programmed(
        changedState(directory, file), directory, StartMode::cold,
        {.keeping = ProgrammedSwitch::Keeping::change, .sampler = fill != nullptr ? &sampler : nullptr});
    if (fill != nullptr) *fill = sampler.series();
    programmed.verify();
    return toJson(programmed.report());
}

/** The second process's part: adopts what the shadow holds, then wants every entry of the state again. */
int restartWarm(std::filesystem::path const& directory) {
    ProgrammedSwitch programmed(requiredState(directory), directory, StartMode::warm);
    programmed.verify();
    fmt::print("{}\n", toJson(programmed.report()).dump());
    return done;
}

/** Prints what became of a run; whether all rows agree is what its status says. */
int tell(Options const& options, Agent::StateFile const& file, Json const& cold, Json const& warm) {
    auto const differences = printAllDifferences("after the cold start", cold) +
                             printAllDifferences("after the warm restart", warm);
    int const status = differences == 0 ? done : jobFailed;
    if (options.json) {
        printJson(cold, warm, differences);
        return status;
    }
    printReport(file, cold, warm);
    if (differences != 0) {
        fmt::print("\n{} differences between software, shadow and chip\n", differences);
        return status;
    }
    printAgreement(warm);
    if (!options.directory.empty()) fmt::print("the switch is kept in {}\n", options.directory);
    return status;
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

    int const status = tell(options, file, cold, warm);
    if (page) page->textIs(runPage(file, cold, warm, fill));
    return status;
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
            if (options->warmRestartOf.empty()) return runSwitch(*options);
            interruptsAreSilent();
            return restartWarm(options->warmRestartOf);
        });
    });
}

}  // namespace Nerio
