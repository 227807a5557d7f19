#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <iterator>
#include <memory>
#include <string>

#include "nerio/CommandForms.h"
#include "nerio/Commands.h"
#include "nerio/FileToBe.h"
#include "nerio/Guarded.h"
#include "nerio/Switch.h"

/*
 * `nerio manual`: pages of the manual in the language of man(7), made of the definitions of the commands.
 */
namespace Nerio {

namespace {

struct Options {
    std::string command;
    std::string directory;
};

/** A text as roff takes it within a line. */
std::string roff(std::string const& text) {
    std::string all;
    for (char const letter : text) {
        if (letter == '\\') {
            all += "\\e";
        } else if (letter == '-') {
            all += "\\-";
        } else {
            all += letter;
        }
    }
    return all;
}

/** The same as a line of its own, which is no request whatever it begins with. */
std::string roffLine(std::string const& text) {
    return (text.starts_with('.') || text.starts_with('\'') ? "\\&" : "") + roff(text) + "\n";
}

std::string sentence(std::string text) {
    if (!text.empty() && !text.ends_with('.')) text += '.';
    return text;
}

std::string synopsis(CommandForm const& form) {
    std::string text = fmt::format(".B nerio{}\n", form.name.empty() ? "" : " " + roff(form.name));
    if (!form.options().empty()) text += "[\\fIOPTIONS\\fR]\n";
    for (auto const& option : form.options()) {
        if (option.required)
            text += fmt::format("\\fB{}\\fR \\fI{}\\fR\n", roff(option.names.back()), roff(option.value));
    }
    if (form.name.empty()) text += "\\fICOMMAND\\fR\n";
    for (auto const& positional : form.positionals()) {
        text += fmt::format("{}\\fI{}\\fR{}{}\n", positional.required ? "" : "[", roff(positional.value),
                            positional.repeated ? " ..." : "", positional.required ? "" : "]");
    }
    return text;
}

std::string argument(ArgumentForm const& form) {
    std::string text = ".TP\n";
    if (form.isPositional()) {
        text += fmt::format("\\fI{}\\fR\n", roff(form.value));
    } else {
        std::string names;
        for (auto const& name : form.names)
            names += fmt::format("{}\\fB{}\\fR", names.empty() ? "" : ", ", roff(name));
        text += names + (form.takesValue() ? fmt::format(" \\fI{}\\fR\n", roff(form.value)) : "\n");
    }
    return text + roffLine(sentence(form.description));
}

std::string exitStatus() {
    return ".SH EXIT STATUS\n"
           ".TP\n0\nThe job is done, and what was asked for is so.\n"
           ".TP\n1\nIt is not: something differs, is not there, or could not be done.\n"
           ".TP\n2\nThe command line or the input cannot be taken; a line on standard error says what and "
           "where.\n";
}

std::string page(CommandForm const& form, std::vector<CommandForm> const& all, std::string const& version) {
    bool const isProgram = form.name.empty();
    auto const name = isProgram ? std::string("nerio") : "nerio-" + form.name;
    std::string title = name;
    std::ranges::transform(title, title.begin(),
                           [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    auto text = fmt::format(".TH {} 1 \"\" \"nerio {}\" \"User Commands\"\n", roff(title), roff(version));
    auto brief = form.description;
    if (brief.ends_with('.')) brief.pop_back();
    text += fmt::format(".SH NAME\n{} \\- {}\n", roff(name), roff(brief));
    text += ".SH SYNOPSIS\n" + synopsis(form);
    text += ".SH DESCRIPTION\n" + roffLine(sentence(form.description));
    if (isProgram) {
        text += ".SH COMMANDS\n";
        for (auto const& command : all) {
            if (!command.name.empty())
                text += fmt::format(".TP\n\\fB{}\\fR\n{}", roff(command.name),
                                    roffLine(sentence(command.description)));
        }
    }
    if (!form.positionals().empty()) text += ".SH ARGUMENTS\n";
    for (auto const& positional : form.positionals())
        text += argument(positional);
    text += ".SH OPTIONS\n";
    for (auto const& option : form.options())
        text += argument(option);
    text += exitStatus() + ".SH SEE ALSO\n";
    std::vector<std::string> others;
    for (auto const& other : all) {
        auto const otherName = other.name.empty() ? std::string("nerio") : "nerio-" + other.name;
        if (otherName != name && (isProgram || other.name.empty()))
            others.push_back(fmt::format("\\fB{}\\fR(1)", roff(otherName)));
    }
    return text + fmt::format("{}\n", fmt::join(others, ",\n"));
}

int runManual(CLI::App const& app, Options const& options) {
    auto const forms = commandForms(app);
    auto const pageOf = [&](CommandForm const& form) { return page(form, forms, app.version()); };
    if (!options.directory.empty()) {
        directoryIs(options.directory);
        for (auto const& form : forms) {
            FileToBe((std::filesystem::path(options.directory) /
                      (form.name.empty() ? "nerio.1" : fmt::format("nerio-{}.1", form.name)))
                         .string())
                .textIs(pageOf(form));
        }
        return done;
    }
    auto const form = std::ranges::find(forms, options.command, &CommandForm::name);
    if (form == forms.end()) throw BadInput(fmt::format("there is no command {}", options.command));
    fmt::print("{}", pageOf(*form));
    return done;
}

}  // namespace

void addManual(CLI::App& app, int& status) {
    auto const options = std::make_shared<Options>();
    auto* command = app.add_subcommand("manual", "Print a page of the manual, for man -l -");
    auto* name = command->add_option("COMMAND", options->command,
                                     "The command that it is of; nerio itself if left out");
    command->add_option("--directory", options->directory, "Write all pages into this directory instead")
        ->excludes(name);
    command->callback(
        [&app, options, &status] { status = guarded("manual", [&] { return runManual(app, *options); }); });
}

}  // namespace Nerio
