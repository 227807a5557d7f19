#include <algorithm>
#include <fmt/format.h>
#include <iterator>
#include <memory>
#include <string>

#include "nerio/CommandForms.h"
#include "nerio/Commands.h"

/*
 * `nerio completion`: a script that completes this command line in a shell. It is made of the definitions of
 * the commands, so that it knows what the help knows.
 */
namespace Nerio {

namespace {

using Values = ArgumentForm::Values;

std::string joined(std::vector<std::string> const& words) {
    return fmt::format("{}", fmt::join(words, " "));
}

std::string optionNames(CommandForm const& command) {
    std::vector<std::string> names;
    for (auto const& option : command.options())
        names.insert(names.end(), option.names.begin(), option.names.end());
    return joined(names);
}

std::string commandNames(std::vector<CommandForm> const& forms) {
    std::vector<std::string> names;
    for (auto const& form : forms) {
        if (!form.name.empty()) names.push_back(form.name);
    }
    return joined(names);
}

std::string replaced(std::string const& text, std::string_view special, std::string_view before) {
    std::string all;
    for (char const letter : text) {
        if (special.find(letter) != std::string_view::npos) all += before;
        all += letter;
    }
    return all;
}

/** A text within single quotes. */
std::string quoted(std::string const& text) {
    std::string all = "'";
    for (char const letter : text)
        all += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
    return all + "'";
}

// ---------------------------------------------------------------------------------------------- bash

std::string bashValues(ArgumentForm const& form) {
    switch (form.values) {
        case Values::words:
            return fmt::format("_nerio_words '{}'", joined(form.words));
        case Values::files:
            return fmt::format("_nerio_files '{}'", joined(form.words));
        case Values::directories:
            return "_nerio_directories";
        case Values::other:
            break;
    }
    return ":";
}

/** What completes the values of options, and then arguments by position. */
std::string bashCommand(CommandForm const& command) {
    std::string text = fmt::format("    {})\n        case $previous in\n", command.name);
    auto end = std::back_inserter(text);
    for (auto const& option : command.options()) {
        if (option.takesValue())
            fmt::format_to(end, "        {}) {}; return ;;\n", fmt::join(option.names, "|"),
                           bashValues(option));
    }
    fmt::format_to(end, "        esac\n        options='{}'\n", optionNames(command));
    auto const positionals = command.positionals();
    if (!positionals.empty()) text += "        case $position in\n";
    for (std::size_t i = 0; i < positionals.size(); ++i) {
        auto const isLast = i + 1 == positionals.size() && positionals[i].repeated;
        fmt::format_to(end, "        {}) values=({}) ;;\n", isLast ? "*" : fmt::format("{}", i),
                       bashValues(positionals[i]));
    }
    if (!positionals.empty()) text += "        esac\n";
    return text + "        ;;\n";
}

std::string bashScript(std::vector<CommandForm> const& forms) {
    std::string text = R"(# Completion of nerio in bash.
_nerio_words() {
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "$current")
}
_nerio_files() {
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "$current"; compgen -f -- "$current")
    compopt -o filenames 2>/dev/null
}
_nerio_directories() {
    mapfile -t COMPREPLY < <(compgen -d -- "$current")
    compopt -o filenames 2>/dev/null
}
_nerio() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local command='' position=0 options='' values=(:) valued=' )";
    std::vector<std::string> valued;
    for (auto const& form : forms) {
        for (auto const& option : form.options()) {
            if (option.takesValue()) std::ranges::copy(option.names, std::back_inserter(valued));
        }
    }
    std::ranges::sort(valued);
    valued.erase(std::unique(valued.begin(), valued.end()), valued.end());
    text += joined(valued);
    text += R"( ' i
    COMPREPLY=()
    for ((i = 1; i < COMP_CWORD; ++i)); do
        if [[ ${COMP_WORDS[i]} == -?* ]]; then
            [[ $valued == *" ${COMP_WORDS[i]} "* ]] && ((++i))
        elif [[ -z $command ]]; then
            command=${COMP_WORDS[i]}
        else
            ((++position))
        fi
    done
    case $command in
)";
    for (auto const& form : forms) {
        if (form.name.empty()) {
            text += fmt::format("    '') options='{}'; values=(_nerio_words '{}') ;;\n", optionNames(form),
                                commandNames(forms));
        } else {
            text += bashCommand(form);
        }
    }
    text += R"(    esac
    if [[ $current == -* ]]; then
        _nerio_words "$options"
    else
        "${values[@]}"
    fi
}
complete -F _nerio nerio
)";
    return text;
}

// ----------------------------------------------------------------------------------------------- zsh

std::string zshValues(ArgumentForm const& form) {
    auto const name = replaced(form.value.substr(0, form.value.find(':')), "[]:", "\\");
    switch (form.values) {
        case Values::words:
            return fmt::format(":{}:({})", name, joined(form.words));
        case Values::files:
            return fmt::format(":{}:_files", name);
        case Values::directories:
            return fmt::format(":{}:_files -/", name);
        case Values::other:
            break;
    }
    return fmt::format(":{}: ", name);
}

std::string zshArguments(CommandForm const& command) {
    std::string text;
    for (auto const& option : command.options()) {
        for (auto const& name : option.names) {
            text +=
                fmt::format(" \\\n                {}",
                            quoted(fmt::format("{}[{}]{}", name, replaced(option.description, "[]:\\", "\\"),
                                               option.takesValue() ? zshValues(option) : "")));
        }
    }
    for (auto const& positional : command.positionals())
        text += fmt::format(" \\\n                {}",
                            quoted((positional.repeated ? "*" : "") + zshValues(positional)));
    return text;
}

std::string zshScript(std::vector<CommandForm> const& forms) {
    std::string text =
        "#compdef nerio\n# Completion of nerio in zsh.\n_nerio() {\n    local state\n    local -a "
        "commands=(\n";
    for (auto const& form : forms) {
        if (form.name.empty()) continue;
        text +=
            fmt::format("        {}\n", quoted(form.name + ":" + replaced(form.description, ":\\", "\\")));
    }
    text += "    )\n    _arguments -C" + zshArguments(forms.front()) +
            " \\\n                '1:command:->command' '*::argument:->argument'\n"
            "    case $state in\n"
            "    command) _describe command commands ;;\n"
            "    argument)\n"
            "        case $words[1] in\n";
    for (auto const& form : forms) {
        if (!form.name.empty())
            text += fmt::format("        {}) _arguments{} ;;\n", form.name, zshArguments(form));
    }
    return text +
           "        esac\n        ;;\n    esac\n}\n"
           "if [[ $funcstack[1] == _nerio ]]; then _nerio \"$@\"; else compdef _nerio nerio; fi\n";
}

// ---------------------------------------------------------------------------------------------- fish

std::string fishValues(ArgumentForm const& form) {
    switch (form.values) {
        case Values::words:
            return fmt::format(" -x -a {}", quoted(joined(form.words)));
        case Values::files:
            return form.words.empty() ? " -r -F" : fmt::format(" -r -F -a {}", quoted(joined(form.words)));
        case Values::directories:
            return " -x -a '(__fish_complete_directories)'";
        case Values::other:
            break;
    }
    return " -x";
}

std::string fishNames(ArgumentForm const& option) {
    std::string text;
    for (auto const& name : option.names)
        text += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
    return text;
}

std::string fishScript(std::vector<CommandForm> const& forms) {
    std::string text = "# Completion of nerio in fish.\ncomplete -c nerio -f\n";
    auto end = std::back_inserter(text);
    for (auto const& form : forms) {
        bool const isProgram = form.name.empty();
        auto const when = isProgram ? "-n __fish_use_subcommand"
                                    : fmt::format("-n '__fish_seen_subcommand_from {}'", form.name);
        if (!isProgram) {
            fmt::format_to(end, "complete -c nerio -n __fish_use_subcommand -a {} -d {}\n", form.name,
                           quoted(form.description));
        }
        for (auto const& option : form.options()) {
            fmt::format_to(end, "complete -c nerio {}{}{} -d {}\n", when, fishNames(option),
                           option.takesValue() ? fishValues(option) : "", quoted(option.description));
        }
        for (auto const& positional : form.positionals()) {
            if (positional.values != Values::other)
                fmt::format_to(end, "complete -c nerio {}{}\n", when, fishValues(positional));
        }
    }
    return text;
}

}  // namespace

void addCompletion(CLI::App& app, int& status) {
    auto const shell = std::make_shared<std::string>();
    auto* command =
        app.add_subcommand("completion", "Print a script that completes this command line in a shell");
    command->add_option("SHELL", *shell, "bash, zsh or fish")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh", "fish"}));
    command->callback([&app, shell, &status] {
        auto const forms = commandForms(app);
        fmt::print("{}", *shell == "bash"  ? bashScript(forms)
                         : *shell == "zsh" ? zshScript(forms)
                                           : fishScript(forms));
        status = done;
    });
}

}  // namespace Nerio
