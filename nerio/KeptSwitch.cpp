#include "nerio/KeptSwitch.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fmt/format.h>
#include <iterator>
#include <system_error>

#include "agent/ProfileJson.h"
#include "agent/RouteFile.h"
#include "nerio/FileToBe.h"
#include "nerio/Guarded.h"
#include "nerio/Interrupt.h"

namespace Nerio {

namespace {

namespace fs = std::filesystem;
using Agent::StateFile;

constexpr char const* stateName = "state.json";
constexpr char const* routesName = "routes.txt";

[[noreturn]] void cannotWrite(fs::path const& path) {
    throw Belmo::ResourceException(
        fmt::format("{}: cannot be written: {}", path.string(), std::generic_category().message(errno)));
}

bool isThere(fs::path const& path) {
    std::error_code ignored;
    return fs::exists(path, ignored);
}

/** Renaming is what makes a file count, so it is done in the end and never undone. */
void renameTo(fs::path const& from, fs::path const& to) {
    if (std::rename(from.c_str(), to.c_str()) != 0) cannotWrite(to);
}

void readRoutes(StateFile& state, fs::path const& path) {
    auto const file = Agent::readRouteFile(path.string(), state.profile->numVrfs);
    if (!file.problems.empty())
        throw Agent::StateFileException(path.string(), "", file.problems.front().text);
    for (auto const& route : file.routes)
        state.routes.push_back({route.key, route.nexthop});
}

StateFile stateAt(fs::path const& statePath, fs::path const& routesPath) {
    auto state = Agent::readStateFile(statePath.string());
    if (isThere(routesPath)) readRoutes(state, routesPath);
    return state;
}

fs::path nextOf(fs::path const& directory, unsigned number) {
    return directory / fmt::format("next{}", number);
}

/** The routes of a change. While it is being done, its list stands where that of the one before it did. */
fs::path routesOf(fs::path const& directory, unsigned number) {
    for (; number > 0; --number) {
        if (auto routes = nextOf(directory, number) / routesName; isThere(routes)) return routes;
    }
    return directory / routesName;
}

/** How many changes have been begun and not done. */
unsigned changesIn(fs::path const& directory) {
    unsigned number = 0;
    while (isThere(nextOf(directory, number + 1) / stateName))
        ++number;
    return number;
}

std::string listOf(std::vector<Agent::Route> const& routes) {
    std::string text;
    auto end = std::back_inserter(text);
    for (auto const& route : routes) {
        end = fmt::format_to(end, "{} {} {}\n", route.key.prefix().text(), route.nexthop.value(),
                             route.key.vrf());
    }
    return text;
}

}  // namespace

std::optional<KeptState> keptState(fs::path const& directory) {
    std::vector<StateFile> states;
    if (isThere(directory / stateName))
        states.push_back(stateAt(directory / stateName, directory / routesName));
    for (unsigned number = 1; number <= changesIn(directory); ++number)
        states.push_back(stateAt(nextOf(directory, number) / stateName, routesOf(directory, number)));
    if (states.empty()) return std::nullopt;
    KeptState kept{std::move(states.back()), {}};
    states.pop_back();
    kept.earlier = std::move(states);
    return kept;
}

KeptState requiredState(fs::path const& directory) {
    auto state = keptState(directory);
    if (!state || !isThere(directory / "chip"))
        throw BadInput(fmt::format("{}: no switch is kept there", directory.string()));
    return *std::move(state);
}

KeptState changedState(fs::path const& directory, StateFile wanted) {
    KeptState state{std::move(wanted), {}};
    auto const kept = keptState(directory);
    if (!kept) return state;
    // Tables of another chip cannot be brought up; the chip's file refuses those of another kind.
    auto const isOfThisChip = [&](StateFile const& each) {
        return Agent::profileToJson(*each.profile) == Agent::profileToJson(*state.wanted.profile);
    };
    std::ranges::copy_if(kept->earlier, std::back_inserter(state.earlier), isOfThisChip);
    if (isOfThisChip(kept->wanted)) state.earlier.push_back(kept->wanted);
    return state;
}

StateChange::StateChange(fs::path directory, StateFile const& state)
    : directory_(std::move(directory)), number_(changesIn(directory_) + 1) {
    auto const next = nextOf(directory_, number_);
    std::error_code error;
    fs::create_directory(next, error);
    if (error)
        throw Belmo::ResourceException(fmt::format("cannot make {}: {}", next.string(), error.message()));
    auto withoutRoutes = state;
    withoutRoutes.routes.clear();
    FileToBe((next / routesName).string()).textIs(listOf(state.routes));
    FileToBe((next / stateName).string()).textIs(Agent::stateToJson(withoutRoutes).dump(1) + "\n");
    onInterruptSay(fmt::format("; {} has a part of the change, and starts warm", directory_.string()));
}

void StateChange::done() {
    // At each step the last change that there is is this one.
    for (unsigned number = number_; number > 0; --number) {
        auto const from = nextOf(directory_, number);
        auto const to = number == 1 ? directory_ : nextOf(directory_, number - 1);
        renameTo(from / routesName, to / routesName);
        renameTo(from / stateName, to / stateName);
        std::error_code ignored;
        fs::remove_all(from, ignored);  // with what a process that was stopped had not finished
    }
    onInterruptSay({});
}

}  // namespace Nerio
