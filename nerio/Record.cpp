#include <fmt/format.h>
#include <memory>
#include <sstream>
#include <string>

#include "agent/ProfileJson.h"
#include "agent/StateFile.h"
#include "nerio/CampusExample.h"
#include "nerio/Commands.h"
#include "nerio/FileToBe.h"
#include "nerio/Guarded.h"
#include "nerio/KeptSwitch.h"
#include "nerio/ProgrammedSwitch.h"
#include "nerio/ProgressBar.h"
#include "nerio/Recorder.h"
#include "nerio/Script.h"

/*
 * `nerio record`: programs a state cold on a chip in memory, and writes every call that its agents made to
 * its tables as a file that `nerio script` plays back.
 */
namespace Nerio {

namespace {

using Agent::Json;
using Agent::StateFile;
using NerioSwitchApi::StartMode;

struct Options {
    std::string stateFile;
    std::string output;
    bool check = false;
};

StateFile stateOf(Options const& options) {
    return options.stateFile.empty() ? Agent::parseState(campusExample, "examples/campus.json")
                                     : Agent::readStateFile(options.stateFile);
}

void record(StateFile const& file, Recorder& recorder) {
    ProgressBar bar(file.routes.size());
    ProgrammedSwitch programmed(
        {file, {}}, {}, StartMode::cold,
        {.progress = [&](std::size_t done) { bar.doneIs(done); }, .observer = &recorder});
    programmed.target().takeWrites();
}

/** Plays a script back; throws `Belmo::Exception` where it does not do what was recorded. */
void playBack(Recorder const& recorder) {
    Script script;
    std::istringstream stream(recorder.script());
    std::string text;
    ProgressBar bar(recorder.lines());
    for (std::size_t number = 1; std::getline(stream, text); ++number) {
        auto const answer = script.answer(Json::parse(text));
        if (!answer["ok"].get<bool>()) {
            throw Belmo::ResourceException(
                fmt::format("line {}: {}", number, answer["message"].get<std::string>()));
        }
        bar.doneIs(number);
    }
    if (script.answer({{"op", "registers"}})["writes"] != Json(recorder.writes()))
        throw Belmo::ResourceException("played back, it does not write the same registers");
}

int runRecord(Options const& options) {
    auto const file = stateOf(options);
    rehearse(file);
    Recorder recorder(*file.profile);
    record(file, recorder);
    if (options.check) playBack(recorder);
    bool const isPrinted = options.output == "-";
    if (isPrinted) {
        fmt::print("{}", recorder.script());
    } else {
        FileToBe(options.output).textIs(recorder.script());
    }
    fmt::print(isPrinted ? stderr : stdout, "{} lines, which write {} registers{}\n", recorder.lines(),
               recorder.writes().size(), options.check ? "; played back, they did" : "");
    return done;
}

}  // namespace

void addRecord(CLI::App& app, int& status) {
    auto const options = std::make_shared<Options>();
    auto* command =
        app.add_subcommand("record", "Write all calls that program a state as a script that plays them back");
    command->add_option("STATE", options->stateFile,
                        "The state file; - for standard input; the built-in campus switch if left out");
    command->add_option("-o,--output", options->output, "The script to write; - for standard output")
        ->required();
    command->add_flag("--check", options->check,
                      "Play the script back, and hold its register writes against"
                      " those of the run");
    command->callback(
        [options, &status] { status = guarded("record", [&] { return runRecord(*options); }); });
}

}  // namespace Nerio
