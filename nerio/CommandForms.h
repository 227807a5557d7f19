#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

/* The command line as it is defined, in the form that completion and manual are made of. */
namespace Nerio {

/** An option, a flag, or an argument that goes by its position. */
struct ArgumentForm {
    /** What completes its value. */
    enum class Values { other, words, files, directories };

    /** "-o", "--output"; none for an argument by position. */
    std::vector<std::string> names;
    /** What the help calls its value: "STATE", "UINT"; empty for a flag. */
    std::string value;
    std::string description;
    bool required = false;
    bool repeated = false;
    Values values = Values::other;
    /** Values that it may have; with `files` these are some of them. */
    std::vector<std::string> words;

    bool isPositional() const { return names.empty(); }
    bool takesValue() const { return !value.empty(); }
};

/** A command: the program itself has no name. */
struct CommandForm {
    std::string name;
    std::string description;
    std::vector<ArgumentForm> arguments;

    /** Those with names, or those by position, in order. */
    std::vector<ArgumentForm> options() const;
    std::vector<ArgumentForm> positionals() const;
};

/** The program first, and then each of its commands; what the help hides is left out. */
std::vector<CommandForm> commandForms(CLI::App const& app);

}  // namespace Nerio
