#pragma once

#include <optional>
#include <span>
#include <vector>

#include "agent/Families.h"
#include "agent/TableShapes.h"

namespace Agent {

/** An entry that a row stands for, in the words of its types. */
struct DecodedEntry {
    Belmo::String key;
    Belmo::String result;
    Json keyJson;
    Json resultJson;
    bool isInconsistent = false;
};
Json toJson(std::vector<DecodedEntry> const& entries);
std::vector<DecodedEntry> decodedEntriesFromJson(Json const& json);

/** The number of a row as its own words tell it, where they have a control word; none for one out of range.
 */
std::optional<NerioSwitchApi::HwIndex> rowToldBy(HwTableShape const& shape, std::span<U32 const> words);

/**
 * The entries with which a table comes back from a warm start over a shadow that holds these words in a row:
 * of none or one key. Copies of a table hold them all. Words that no chip could hold may end the process by
 * an assertion, or throw what the types of the table throw.
 */
std::vector<DecodedEntry> entriesOfRow(TableSpec const& spec, ProfilePtr const& profile,
                                       NerioSwitchApi::HwTableId id, NerioSwitchApi::HwIndex row,
                                       std::span<U32 const> words);

}  // namespace Agent
