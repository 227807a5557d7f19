#pragma once

#include <optional>
#include <vector>

#include "agent/StateFile.h"

namespace Agent {

/** One thing that two states do not have alike: an entry of a table, a route, a VLAN, a port, ... */
struct StateDifference {
    /** "table ports", "routes", "vlans", ... */
    Belmo::String part;
    /** What tells it from others of its part, in JSON: a key, a prefix with its VRF, a number. */
    Json key;
    /** Nothing where a state does not have it. */
    std::optional<Json> before;
    std::optional<Json> after;

    /** "+ vlans 30: {...}", "- ...", or "~ vlans 20: ports \"1-4\" -> \"1-5\"" with the members that differ.
     */
    Belmo::String text() const;
};

/**
 * What differs between two states, part by part, each in the order of its keys. Values are held against each
 * other, not the ways in which files write them. Throws `StateFileException` for an entry that its table does
 * not take.
 */
std::vector<StateDifference> differences(StateFile const& before, StateFile const& after);

/** [{"part":..., "key":..., "before":..., "after":...}, ...], with null for what a state does not have. */
Json toJson(std::vector<StateDifference> const& differences);

}  // namespace Agent
