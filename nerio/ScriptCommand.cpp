#include <cstddef>
#include <fmt/format.h>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "agent/TextFile.h"
#include "nerio/Commands.h"
#include "nerio/Script.h"

namespace Nerio {

namespace {

using Agent::Json;

struct Options {
    std::string file = "-";
    std::string directory;
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

int runScript(Options const& options) {
    Script script(options.directory.empty() ? Switch::Directory() : Switch::Directory(options.directory));
    return options.file == "-" ? runLines(std::cin, script) : runFile(options.file, script);
}

}  // namespace

void addScript(CLI::App& app, int& status) {
    auto const options = std::make_shared<Options>();
    auto* command = app.add_subcommand("script", "Drive tables from a file of JSON lines, one answer a line");
    command->add_option("FILE", options->file, "The script; standard input if left out");
    command->add_option("--switch", options->directory, "Keep chip and shadow in this directory");
    command->callback([options, &status] { status = runScript(*options); });
}

}  // namespace Nerio
