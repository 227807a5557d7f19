#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

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

/** The JSON value of a line; nothing, with the line named on standard error, if it is none. */
std::optional<Json> parsedLine(std::string const& text, std::string const& source, std::size_t number) {
    try {
        return Json::parse(text);
    } catch (Json::exception const&) {
        fmt::print(stderr, "nerio script: {}: line {}: not JSON: {}\n", source, number, text);
        return std::nullopt;
    }
}

/** Answers each line as it comes; a line that is not JSON ends the script there. */
int runLines(std::istream& stream, std::string const& source, Script& script) {
    int status = done;
    std::string text;
    for (std::size_t number = 1; std::getline(stream, text); ++number) {
        if (isSkipped(text)) continue;
        auto const line = parsedLine(text, source, number);
        if (!line) return badInput;
        auto const answer = script.answer(*line);
        if (!answer["ok"].get<bool>()) status = jobFailed;
        std::cout << answer.dump() << std::endl;
    }
    return status;
}

/** Reads a whole file for lines that are not JSON, so that such a file is refused before anything is done. */
bool allLinesAreJson(std::istream& stream, std::string const& source) {
    std::string text;
    for (std::size_t number = 1; std::getline(stream, text); ++number) {
        if (!isSkipped(text) && !parsedLine(text, source, number)) return false;
    }
    return true;
}

int runScript(Options const& options) {
    Script script(options.directory.empty() ? Switch::Directory() : Switch::Directory(options.directory));
    if (options.file == "-") return runLines(std::cin, "standard input", script);
    std::ifstream stream(options.file);
    if (!stream) {
        fmt::print(stderr, "nerio script: {}: {}\n", options.file, std::strerror(errno));
        return badInput;
    }
    if (!allLinesAreJson(stream, options.file)) return badInput;
    stream.clear();
    stream.seekg(0);
    return runLines(stream, options.file, script);
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
