#include "nerio/LookText.h"

namespace Nerio {

using Agent::Json;

namespace {

/** Rounded down; 0 of nothing. */
U32 percentOf(U64 used, U64 all) {
    return all == 0 ? 0 : static_cast<U32>(used * 100 / all);
}

std::string fillBar(U64 used, U64 all) {
    constexpr std::size_t width = 20;
    // What is not empty shows.
    auto filled = all == 0 ? 0 : used * width / all;
    if (used != 0 && filled == 0) filled = 1;
    return fmt::format("[{:#<{}}{:.<{}}]", "", filled, "", width - filled);
}

/** "0:120 1:30 16+:2": how many placements took how many moves. */
std::string movesText(NerioSwitchApi::MoveHistogram const& moves) {
    std::string text;
    for (std::size_t number = 0; number < moves.size(); ++number) {
        if (moves[number] == 0) continue;
        fmt::format_to(std::back_inserter(text), "{}{}{}:{}", text.empty() ? "" : " ", number,
                       number + 1 == moves.size() ? "+" : "", moves[number]);
    }
    return text.empty() ? "-" : text;
}

}  // namespace

std::string fillText(TableLook const& look) {
    if (look.rows == 0) return "no hardware";
    return fmt::format("{} {:3} %{}", fillBar(look.rowsInUse, look.rows),
                       percentOf(look.rowsInUse, look.rows), look.nearlyFull ? ", nearly full" : "");
}

std::string tablesText(std::vector<TableLook> const& tables) {
    Grid<8> grid;
    grid.add({"TABLE", "FAMILY", "ENTRIES", "ROWS", "FILL", "NO PLACE", "FAILED", "MOVES"});
    for (auto const& look : tables) {
        bool const hasHash = look.entriesWithoutPlace.has_value();
        auto const ofHash = [&](U64 number) { return hasHash ? fmt::format("{}", number) : "-"; };
        grid.add({look.spec.name, look.spec.family, fmt::format("{}", look.entries),
                  fmt::format("{}/{}", look.rowsInUse, look.rows), fillText(look),
                  ofHash(look.entriesWithoutPlace.value_or(0)), ofHash(look.moves.failedPlacements),
                  movesText(look.moves.moves)});
    }
    return grid.text();
}

Agent::Json toJson(TableLook const& look) {
    auto json = Agent::tableSpecToJson(look.spec);
    json["entries"] = look.entries;
    json["rowsInUse"] = look.rowsInUse;
    json["rows"] = look.rows;
    json["nearlyFull"] = look.nearlyFull;
    if (look.entriesWithoutPlace) {
        json["entriesWithoutPlace"] = *look.entriesWithoutPlace;
        json["failedPlacements"] = look.moves.failedPlacements;
        json["moves"] = look.moves.moves;
    }
    return json;
}

}  // namespace Nerio
