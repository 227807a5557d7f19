#include <cstddef>
#include <fmt/format.h>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "NerioSwitchApi/MappedRegisterBus.h"

#include "agent/TextFile.h"
#include "nerio/Commands.h"
#include "nerio/Guarded.h"
#include "nerio/ProfileOption.h"
#include "nerio/Script.h"

namespace Nerio {

namespace {

using Agent::Json;

struct Options {
    std::string file = "-";
    std::string directory;
    std::string profile = "default";
    std::string bus;
    std::string registers;
    U64 base = 0;
};

bool isSkipped(std::string const& text) {
    auto const first = text.find_first_not_of(" \t\r");
    return first == std::string::npos || text[first] == '#';
}

/** Says on standard error what is wrong with the input. */
int refuse(std::string const& source, std::string const& text) {
    fmt::print(stderr, "nerio script: {}: {}\n", source, text);
    return badInput;
}

/** Prints the answer to a line, at once; whether the line was carried out. */
bool answerLine(Script& script, Json const& line) {
    auto const answer = script.answer(line);
    // A message may quote half a character.
    std::cout << answer.dump(-1, ' ', false, Json::error_handler_t::replace) << std::endl;
    return answer["ok"].get<bool>();
}

/** Answers each line as it comes; a line that is not JSON ends the script there. */
int runLines(std::istream& stream, Script& script) {
    int status = done;
    std::string text;
    for (std::size_t number = 1; std::cout && std::getline(stream, text); ++number) {
        if (isSkipped(text)) continue;
        Json line;
        try {
            line = Agent::parseJson(text, number);
        } catch (Agent::JsonException const& failure) {
            return refuse("standard input", failure.what());
        }
        if (!answerLine(script, line)) status = jobFailed;
    }
    return status;
}

/** The lines of a whole file; throws `JsonException` for one that is not JSON. */
std::vector<Json> linesOf(std::string const& text) {
    std::vector<Json> lines;
    std::istringstream stream(text);
    std::string line;
    for (std::size_t number = 1; std::getline(stream, line); ++number) {
        if (!isSkipped(line)) lines.push_back(Agent::parseJson(line, number));
    }
    return lines;
}

/** A file with a line that is not JSON is refused before anything is done. */
int runFile(std::string const& path, Script& script) {
    std::vector<Json> lines;
    try {
        lines = linesOf(Agent::textOfFile(path));
    } catch (Belmo::Exception const& failure) {
        return refuse(path, failure.what());
    }
    int status = done;
    for (auto const& line : lines) {
        if (!std::cout) break;
        if (!answerLine(script, line)) status = jobFailed;
    }
    return status;
}

/** The bus to the chip's registers where a file has them; null for the simulated chip. */
Belmo::Ptr<NerioSwitchApi::RegisterBus> busOf(Options const& options) {
    if (options.bus.empty()) return {};
    try {
        return Belmo::make<NerioSwitchApi::MappedRegisterBus>(
            options.bus, NerioSwitchApi::RegisterMapFile::read(options.registers), options.base);
    } catch (NerioSwitchApi::RegisterMapException const& failure) {
        throw BadInput(failure.what());
    }
}

int runScript(Options const& options) {
    return guarded("script", [&] {
        Switch::Directory directory;
        if (!options.directory.empty()) directory = options.directory;
        Script script(profileOption(options.profile), directory, busOf(options));
        return options.file == "-" ? runLines(std::cin, script) : runFile(options.file, script);
    });
}

}  // namespace

void addScript(CLI::App& app, int& status) {
    auto const options = std::make_shared<Options>();
    auto* command = app.add_subcommand("script", "Drive tables from a file of JSON lines, one answer a line");
    command->add_option("FILE", options->file, "The script; standard input if left out");
    command->add_option("--switch", options->directory, "Keep chip and shadow in this directory");
    command->add_option("--profile", options->profile, profileOptionHelp);
    auto* bus = command->add_option("--bus", options->bus,
                                    "Write to the registers in this file or device, not to a simulated chip");
    auto* registers = command->add_option("--registers", options->registers,
                                          "Where they are in it, as nerio registers prints it");
    auto* base = command->add_option("--base", options->base, "Offset in bytes at which the map begins");
    bus->needs(registers);
    registers->needs(bus);
    base->needs(bus);
    command->callback([options, &status] { status = runScript(*options); });
}

}  // namespace Nerio
