#include "nerio/KeptSwitch.h"

#include <fstream>

#include "Belmo/Exceptions.h"

namespace Nerio {

namespace {

std::filesystem::path stateFileIn(std::filesystem::path const& directory) {
    return directory / "state.json";
}

}  // namespace

std::optional<Agent::StateFile> keptState(std::filesystem::path const& directory) {
    auto const path = stateFileIn(directory);
    std::error_code ignored;
    if (!std::filesystem::exists(path, ignored)) return std::nullopt;
    return Agent::readStateFile(path.string());
}

void keptStateIs(std::filesystem::path const& directory, Agent::StateFile const& state) {
    auto const path = stateFileIn(directory);
    std::ofstream stream(path);
    stream << Agent::stateToJson(state).dump(1) << '\n';
    if (!stream.flush()) throw Belmo::ResourceException(path.string() + ": cannot be written");
}

}  // namespace Nerio
