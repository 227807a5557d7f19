#include "nerio/KeptMoves.h"

#include <algorithm>
#include <fstream>
#include <functional>

#include "nerio/FileToBe.h"

namespace Nerio {

using Agent::Json;

namespace {

constexpr char const* fileName = "moves.json";

bool isCount(Json const& json) {
    return json.is_number_unsigned();
}

bool isMoves(Json const& json) {
    if (!json.is_object() || !json.contains("moves") || !json.contains("failedPlacements")) return false;
    auto const& moves = json["moves"];
    return moves.is_array() && moves.size() == NerioSwitchApi::MoveHistogram().size() &&
           std::ranges::all_of(moves, isCount) && isCount(json["failedPlacements"]);
}

}  // namespace

std::map<Belmo::String, PlacementMoves> keptMoves(std::filesystem::path const& directory) {
    std::map<Belmo::String, PlacementMoves> all;
    std::ifstream file(directory / fileName);
    auto const json = Json::parse(file, nullptr, false);
    if (!json.is_object()) return all;
    for (auto const& [name, one] : json.items()) {
        if (!isMoves(one)) continue;
        auto& moves = all[name];
        moves.failedPlacements = one["failedPlacements"].get<U64>();
        std::ranges::transform(one["moves"], moves.moves.begin(),
                               [](Json const& count) { return count.get<U64>(); });
    }
    return all;
}

void keepMoves(std::filesystem::path const& directory, Switch const& target, NerioSwitchApi::StartMode mode) {
    auto all = mode == NerioSwitchApi::StartMode::warm ? keptMoves(directory)
                                                       : std::map<Belmo::String, PlacementMoves>();
    Json json = Json::object();
    target.forEachTable([&](Agent::TableSpec const& spec, Agent::JsonTable& table) {
        auto const placement = table.placement();
        if (!placement) return;
        auto& moves = all[spec.name];
        std::ranges::transform(moves.moves, placement->moves, moves.moves.begin(), std::plus());
        moves.failedPlacements += placement->failedPlacements;
        json[spec.name] = {{"moves", moves.moves}, {"failedPlacements", moves.failedPlacements}};
    });
    FileToBe((directory / fileName).string()).textIs(json.dump() + "\n");
}

}  // namespace Nerio
