#pragma once

#include <filesystem>
#include <optional>

#include "agent/StateFile.h"

/* What a switch directory holds beside chip and shadow: the state that was programmed, in `state.json`. */
namespace Nerio {

/** The state of the switch in the directory; nothing if none is kept there. Throws `StateFileException`. */
std::optional<Agent::StateFile> keptState(std::filesystem::path const& directory);
/** Keeps a state there; throws `Belmo::ResourceException`. */
void keptStateIs(std::filesystem::path const& directory, Agent::StateFile const& state);

}  // namespace Nerio
