#include "agent/Import.h"

#include <fmt/format.h>
#include <map>
#include <memory>
#include <string>

#include "agent/TextFile.h"
#include "nerio/Commands.h"
#include "nerio/FileToBe.h"
#include "nerio/Guarded.h"
#include "nerio/ProfileOption.h"

/* `nerio import`: makes a state file of other people's configuration, and says what it could not take. */
namespace Nerio {

namespace {

using Agent::Imported;
using Agent::ImportForm;
using Agent::ImportReport;
using Agent::Json;

std::map<std::string, ImportForm> const forms{{"config_db", ImportForm::configDb},
                                              {"iptables", ImportForm::iptables},
                                              {"filters", ImportForm::filters}};

struct Options {
    std::string file;
    std::string form;
    std::string output;
    std::string profile = "default";
    bool json = false;
};

/** Reads the file; what makes no sense is bad input, with its place. */
Imported imported(Options const& options) {
    auto profile = profileOption(options.profile);
    Belmo::String text;
    try {
        text = Agent::textOfFile(options.file);
        auto const form =
            options.form.empty() ? Agent::importFormOf(text) : std::optional(forms.at(options.form));
        if (!form) throw BadInput(fmt::format("{}: of no form that is known; --from tells it", options.file));
        return Agent::importText(text, *form, std::move(profile));
    } catch (Agent::JsonException const& failure) {
        throw Agent::StateFileException(options.file, failure.place(), failure.what());
    } catch (Belmo::RangeException const& failure) {
        throw Agent::StateFileException(options.file, "", failure.what());
    } catch (Belmo::ResourceException const& failure) {
        throw Agent::StateFileException(options.file, "", failure.what());
    }
}

Json stateOf(Imported const& made, Options const& options) {
    auto state = Agent::stateToJson(made.state);
    if (NerioSwitch::profilePreset(options.profile)) state["profile"] = Json{{"preset", options.profile}};
    return state;
}

Json toJson(ImportReport const& report) {
    Json json{{"taken", Json::object()}, {"names", Json::array()}, {"notTaken", Json::array()}};
    for (auto const& [part, count] : report.parts())
        json["taken"][part] = count;
    for (auto const& [kind, name, number] : report.names())
        json["names"].push_back({{"kind", kind}, {"name", name}, {"number", number}});
    for (auto const& [place, reason] : report.losses())
        json["notTaken"].push_back({{"place", place}, {"reason", reason}});
    return json;
}

void printReport(ImportReport const& report) {
    for (auto const& [part, count] : report.parts())
        fmt::print(stderr, "{}: {}\n", part, count);
    for (auto const& [kind, name, number] : report.names())
        fmt::print(stderr, "{} {}: {}\n", kind, Agent::oneLine(name), number);
    fmt::print(stderr, "not taken: {}\n", report.losses().size());
    for (auto const& [place, reason] : report.losses())
        fmt::print(stderr, "  {}: {}\n", Agent::oneLine(place), Agent::oneLine(reason));
}

std::string textOf(Json const& json) {
    return json.dump(1, ' ', false, Json::error_handler_t::replace) + '\n';
}

int runImport(Options const& options) {
    auto const made = imported(options);
    auto const state = stateOf(made, options);
    if (!options.output.empty()) FileToBe(options.output).textIs(textOf(state));
    if (options.json) {
        Json report{{"report", toJson(made.report)}};
        report["state"] = state;
        fmt::print("{}", textOf(report));
        return done;
    }
    if (options.output.empty()) fmt::print("{}", textOf(state));
    std::fflush(stdout);
    printReport(made.report);
    return done;
}

}  // namespace

void addImport(CLI::App& app, int& status) {
    auto const options = std::make_shared<Options>();
    auto* command = app.add_subcommand(
        "import", "Make a state file of a switch configuration, iptables-save rules or a filter set");
    command->add_option("FILE", options->file, "What to import; may be packed by gzip")->required();
    command
        ->add_option(
            "--from", options->form,
            "Form of the file, config_db, iptables or filters; guessed from its beginning if left out")
        ->check(CLI::IsMember(forms));
    command->add_option("-o,--output", options->output, "Write the state to this file");
    command->add_option("--profile", options->profile, profileOptionHelp);
    command->add_flag("--json", options->json, "Print state and report as one JSON object");
    command->callback(
        [options, &status] { status = guarded("import", [&] { return runImport(*options); }); });
}

}  // namespace Nerio
