#include "nerio/CommandForms.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>

#include "NerioSwitch/ProfileInfo.h"

#include "agent/Families.h"

namespace Nerio {

namespace {

using Values = ArgumentForm::Values;

std::vector<std::string> familyNames() {
    std::vector<std::string> names;
    for (auto const& family : Agent::families())
        names.emplace_back(family.name);
    return names;
}

std::vector<std::string> presetNames() {
    std::vector<std::string> names{"default"};
    for (int generation = 0; generation < 100; ++generation) {
        auto const name = fmt::format("api{}", generation);
        if (NerioSwitch::profilePreset(name)) names.push_back(name);
    }
    return names;
}

std::vector<std::string> commandNames(CLI::App const& app) {
    std::vector<std::string> names;
    for (auto const* command :
         app.get_subcommands([](CLI::App const* each) { return !each->get_group().empty(); }))
        names.push_back(command->get_name());
    return names;
}

/** The choices that a type's text names: "TEXT:{tcp,udp}". */
std::vector<std::string> choicesIn(std::string const& type) {
    auto const begin = type.find('{');
    auto const end = type.find('}');
    if (begin == std::string::npos || end == std::string::npos) return {};
    return CLI::detail::split(type.substr(begin + 1, end - begin - 1), ',');
}

/** The same thing has the same name in all commands, so that its values go by it. */
void valuesAre(ArgumentForm& form, std::string const& name, std::string const& type, CLI::App const& root) {
    static std::map<std::string, Values> const kinds{{"switch", Values::directories},
                                                     {"directory", Values::directories},
                                                     {"STATE", Values::files},
                                                     {"FILE", Values::files},
                                                     {"A", Values::files},
                                                     {"B", Values::files},
                                                     {"state", Values::files},
                                                     {"output", Values::files},
                                                     {"html", Values::files},
                                                     {"svg", Values::files},
                                                     {"map", Values::files},
                                                     {"profile", Values::files}};
    if (auto const kind = kinds.find(name); kind != kinds.end()) form.values = kind->second;
    auto const wordsAre = [&](std::vector<std::string> words) {
        if (form.values == Values::other && !words.empty()) form.values = Values::words;
        form.words = std::move(words);
    };
    if (name == "TABLE" || name == "FAMILY" || name == "table" || name == "family") {
        wordsAre(familyNames());
    } else if (name == "profile" || name == "preset") {
        wordsAre(presetNames());
    } else if (name == "COMMAND") {
        wordsAre(commandNames(root));
    } else {
        wordsAre(choicesIn(type));
    }
}

ArgumentForm formOf(CLI::Option const& option, CLI::App const& root) {
    ArgumentForm form;
    for (auto const& name : option.get_snames())
        form.names.push_back("-" + name);
    for (auto const& name : option.get_lnames())
        form.names.push_back("--" + name);
    bool const isPositional = form.names.empty();
    bool const isFlag = option.get_type_size_max() == 0;
    if (isPositional) {
        form.value = option.get_name(true);
    } else if (!isFlag) {
        form.value = option.get_type_name();
    }
    form.description = option.get_description();
    form.required = option.get_required();
    form.repeated = option.get_items_expected_max() > 1;
    if (isFlag) return form;
    bool const hasLongName = !option.get_lnames().empty();
    auto const name = hasLongName ? option.get_lnames().front() : option.get_name(isPositional);
    valuesAre(form, name, option.get_type_name(), root);
    return form;
}

CommandForm formOf(CLI::App const& command, CLI::App const& root) {
    CommandForm form;
    if (&command != &root) form.name = command.get_name();
    form.description = command.get_description();
    for (auto const* option : command.get_options()) {
        if (!option->get_group().empty()) form.arguments.push_back(formOf(*option, root));
    }
    return form;
}

template <class Wanted>
std::vector<ArgumentForm> those(std::vector<ArgumentForm> const& all, Wanted const& wanted) {
    std::vector<ArgumentForm> some;
    std::ranges::copy_if(all, std::back_inserter(some), wanted);
    return some;
}

}  // namespace

std::vector<ArgumentForm> CommandForm::options() const {
    return those(arguments, [](ArgumentForm const& each) { return !each.isPositional(); });
}

std::vector<ArgumentForm> CommandForm::positionals() const {
    return those(arguments, [](ArgumentForm const& each) { return each.isPositional(); });
}

std::vector<CommandForm> commandForms(CLI::App const& app) {
    std::vector<CommandForm> all{formOf(app, app)};
    for (auto const& name : commandNames(app))
        all.push_back(formOf(*app.get_subcommand(name), app));
    return all;
}

}  // namespace Nerio
