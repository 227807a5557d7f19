#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <string>
#include <vector>

#include "Sorn/Trace.h"

#include "nerio/Commands.h"
#include "nerio/FileToBe.h"
#include "nerio/Guarded.h"
#include "nerio/LayoutReport.h"
#include "nerio/Page.h"
#include "nerio/ProfileOption.h"
#include "nerio/TablePages.h"

/* `nerio layout`: rows of hardware tables as pictures with named fields. */
namespace Nerio {

namespace {

struct Options {
    std::string table;
    std::string profile;
    std::string docs;
    bool svg = false;
    bool html = false;
    bool json = false;
};

std::vector<Agent::Family const*> familiesOf(Options const& options) {
    std::vector<Agent::Family const*> all;
    if (!options.table.empty()) {
        all.push_back(Agent::family(options.table));
        if (all.front() == nullptr) throw BadInput(fmt::format("{}: unknown family", options.table));
        return all;
    }
    for (auto const& family : Agent::families())
        all.push_back(&family);
    return all;
}

std::vector<Agent::NamedProfile> profilesOf(Options const& options,
                                            std::vector<Agent::Family const*> const& families) {
    if (options.profile.empty()) return Agent::presetProfiles();
    auto const profile = profileNamed(options.profile);
    if (NerioSwitch::profilePreset(options.profile)) return {profile};
    for (auto const* family : families) {
        doneApart(fmt::format("{}: {}", options.profile, family->name), [&] {
            layoutsOf(*family, {profile});
            return std::string();
        });
    }
    return {profile};
}

void pagesAre(std::string const& directory, std::vector<FamilyLayouts> const& all) {
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) throw Belmo::ResourceException(fmt::format("{}: {}", directory, error.message()));
    for (auto const& [name, text] : tablePages(all))
        FileToBe((std::filesystem::path(directory) / name).string()).textIs(text);
}

void print(Options const& options, std::vector<FamilyLayouts> const& all) {
    if (options.svg) {
        fmt::print("{}", layoutSvg(all));
    } else if (options.html) {
        fmt::print("{}", layoutPage(all));
    } else if (options.json) {
        Agent::Json json = Agent::Json::array();
        for (auto const& layouts : all)
            json.push_back(layoutJson(layouts));
        fmt::print("{}\n", json.dump(1));
    } else {
        char const* between = "";
        for (auto const& layouts : all) {
            fmt::print("{}{}", between, layoutText(layouts));
            between = "\n";
        }
    }
}

int runLayout(Options const& options) {
    // A table that a chip lacks tells so in its trace; here it is told by what is drawn.
    Sorn::traceSinkIs([](Sorn::TraceRecord const&) {});
    auto const families = familiesOf(options);
    auto const profiles = profilesOf(options, families);
    std::vector<FamilyLayouts> all;
    all.reserve(families.size());
    for (auto const* family : families)
        all.push_back(layoutsOf(*family, profiles));
    if (options.docs.empty()) {
        print(options, all);
    } else {
        pagesAre(options.docs, all);
    }
    return done;
}

}  // namespace

void addLayout(CLI::App& app, int& status) {
    auto const options = std::make_shared<Options>();
    auto* command = app.add_subcommand("layout", "Draw the rows of hardware tables with their fields");
    auto* table =
        command->add_option("TABLE", options->table, "A table family, such as portConfig; all if left out");
    auto* profile = command->add_option(
        "--profile", options->profile,
        "A preset (default, api2 to api10) or a JSON file of a profile; all presets if left out");
    auto* svg = command->add_flag("--svg", options->svg, "Draw an SVG picture");
    auto* html = command->add_flag("--html", options->html, "Make a page of pictures");
    auto* json = command->add_flag("--json", options->json, "Print JSON");
    svg->excludes(html)->excludes(json);
    html->excludes(json);
    command
        ->add_option("--docs", options->docs,
                     "Make the pages of documentation, one for each family, in this directory")
        ->excludes(table)
        ->excludes(profile)
        ->excludes(svg)
        ->excludes(html)
        ->excludes(json);
    command->callback(
        [options, &status] { status = guarded("layout", [&] { return runLayout(*options); }); });
}

}  // namespace Nerio
