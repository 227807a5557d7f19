#pragma once

#include <filesystem>
#include <map>

#include "NerioSwitchApi/HashTable.h"

#include "nerio/Switch.h"

/*
 * How many moves the placements of a kept switch took. A process counts its own; what those before it came to
 * lies beside the state, in `moves.json`, so that it can be shown of a switch that nobody runs. It is
 * statistics: a file that is missing or makes no sense counts as none.
 */
namespace Nerio {

/** Of one hash table since its cold start. */
struct PlacementMoves {
    /** Placements by the moves that each needed. */
    NerioSwitchApi::MoveHistogram moves{};
    /** Attempts that found no place. */
    U64 failedPlacements = 0;
};

/** By the names of tables. */
std::map<Belmo::String, PlacementMoves> keptMoves(std::filesystem::path const& directory);

/** Adds what the tables of this process counted; a cold start begins anew. Throws as `FileToBe` does. */
void keepMoves(std::filesystem::path const& directory, Switch const& target, NerioSwitchApi::StartMode mode);

}  // namespace Nerio
