#pragma once

#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "NerioSwitchApi/TableFramework.h"

#include "LpmFixture.h"
#include "RandomRoutes.h"
#include "agent/RouteAgent.h"
#include "chip/FaultyBus.h"
#include "chip/RecordingBus.h"
#include "chip/SimulatedChip.h"

namespace NerioTest {

/** A route's next hop by its prefix: what an agent was told, as a plain list. */
using RouteList = std::map<NerioSwitch::LpmKey, U32>;

/** The stages of a chip and their owner, which can be restarted warm. */
class Ladder {
public:
    explicit Ladder(U32 numVrfs = 4) {
        profile_->numVrfs = numVrfs;
        chip_ = Chip::simulatedChip(*profile_);
        faulty_ = Belmo::make<Chip::FaultyBus>(chip_);
        recorder_ = Belmo::make<Chip::RecordingBus>(faulty_);
        restart(NerioSwitchApi::StartMode::cold);
    }

    /** The process ends and comes back: new tables, and a new agent over what they found. */
    void restart(NerioSwitchApi::StartMode mode = NerioSwitchApi::StartMode::warm) {
        agent_.reset();
        stages_ = Agent::RouteStages();
        framework_ = std::make_unique<NerioSwitchApi::TableFramework>(profile_, recorder_, shadows_);
        stages_ = Agent::RouteStages::made();
        for (auto const& table : stages_.tables())
            framework_->tableIs(table, mode);
        renewAgent();
        recorder_->take();
    }
    /** Another agent over the same tables. */
    void renewAgent() {
        agent_.reset();
        agent_ = std::make_unique<Agent::RouteAgent>(stages_);
    }

    Agent::RouteAgent& agent() { return *agent_; }
    Chip::SimulatedChip& chip() { return *chip_; }
    NerioSwitch::ProfileInfo const& profile() const { return *profile_; }
    NerioSwitchTable::Lpm11Table& direct() { return *stages_.direct; }
    /** The hashing stage of that number in `stageCases`. */
    NerioSwitchTable::LpmBaseTable& stage(std::size_t number) { return *stages_.hashed[number]; }
    Chip::FaultyBus& faulty() { return *faulty_; }
    std::size_t takeWriteCount() { return recorder_->take().size(); }

private:
    Belmo::Ptr<NerioSwitch::ProfileInfo> profile_ = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip_;
    Belmo::Ptr<Chip::FaultyBus> faulty_;
    Belmo::Ptr<Chip::RecordingBus> recorder_;
    Belmo::Ptr<NerioSwitchApi::ShadowStore> shadows_ = NerioSwitchApi::memoryShadowStore();
    std::unique_ptr<NerioSwitchApi::TableFramework> framework_;
    Agent::RouteStages stages_;
    std::unique_ptr<Agent::RouteAgent> agent_;
};

/** A route by its address in host order. */
inline NerioSwitch::LpmKey route(U32 address, U8 length, U8 vrf = 0) {
    return routeKey(vrf, address, length);
}

/** What a hashing stage's keys map to if all of them have a row, worked out route by route and cell by cell.
 */
inline std::map<NerioSwitch::LpmKey, NerioSwitchTable::LpmResult> wantedKeys(RouteList const& routes,
                                                                             StageCase const& stage) {
    std::map<NerioSwitch::LpmKey, NerioSwitchTable::LpmResult> wanted;
    for (auto const& [key, nexthop] : routes) {
        U8 const length = key.prefix().len();
        if (length < stage.baseLen || length > stage.mostRealLen()) continue;
        U32 const address = key.prefix().address().hostOrder();
        U32 const stageAddress = address & Lanvo::Prefix::mask(static_cast<U8>(stage.baseLen));
        auto& result = wanted[routeKey(key.vrf(), stageAddress, static_cast<U8>(stage.baseLen))];
        for (U8 cell = 0; cell < 4; ++cell) {
            U32 const cellAddress = stageAddress | U32{cell} << (30 - stage.baseLen);
            bool const covers = (cellAddress & Lanvo::Prefix::mask(length)) == address;
            bool const isFree = !result.cellResult(cell).nexthopIndexes().valid();
            if (covers && (isFree || result.cellResult(cell).realPrefixLen() < length))
                result.cellResultIs(cell, routeCell(nexthop, length));
        }
    }
    return wanted;
}

/** The same of the direct stage. */
inline std::map<NerioSwitch::LpmKey, NerioSwitchTable::Lpm11Result> wantedDirectKeys(
    RouteList const& routes) {
    std::map<NerioSwitch::LpmKey, NerioSwitchTable::Lpm11Result> wanted;
    for (auto const& [key, nexthop] : routes) {
        U8 const length = key.prefix().len();
        if (length > 11) continue;
        U32 const first = key.prefix().address().hostOrder() >> 21;
        for (U32 i = first; i < first + (1u << (11 - length)); ++i) {
            auto& result = wanted[routeKey(key.vrf(), i << 21, 11)];
            bool const isFree = !result.cellResult().nexthopIndexes().valid();
            if (isFree || result.cellResult().realPrefixLen() < length)
                result.cellResultIs(routeCell(nexthop, length));
        }
    }
    return wanted;
}

/** Routes of a key in a list: those of the stage's lengths that it covers. */
template <class Visit>
void forEachRouteOf(RouteList const& routes, NerioSwitch::LpmKey const& key, Visit const& visit) {
    U32 const address = key.prefix().address().hostOrder();
    for (U32 length = key.prefix().len(); length < key.prefix().len() + 3u; ++length) {
        U32 const count = 1u << (length - key.prefix().len());
        for (U32 i = 0; i < count; ++i) {
            auto const route = routeKey(key.vrf(), address | i << (32 - length), static_cast<U8>(length));
            if (routes.contains(route)) visit(route);
        }
    }
}

/** Whether a stage has no room for the key: it is tried there, and taken out again. */
inline bool findsNoRow(NerioSwitchTable::LpmBaseTable& stage, NerioSwitch::LpmKey const& key,
                       NerioSwitchTable::LpmResult const& result) {
    stage.entryIs(key, result);
    bool const hasFailed = stage.tableStatus()->entryStatus(key).status() ==
                           NerioSwitchApi::EntryProgrammedStatus::entryProgrammingFailed;
    stage.entryDel(key);
    stage.hashItemDel(key);
    return hasFailed;
}

/**
 * Holds a stage and what the agent says of its routes against the list: every key is either in the stage,
 * with the cells of its longest routes, or all of its routes wait; and none that waits would find a row.
 * The first thing that is wrong; empty if all is right.
 */
inline std::string stageFault(Ladder& ladder, std::size_t number, RouteList const& routes) {
    using Agent::RouteState;
    auto const& stageCase = stageCases[number];
    auto& stage = ladder.stage(number);
    auto const wanted = wantedKeys(routes, stageCase);
    Agent::RouteCounts counts;
    counts.keys = wanted.size();
    for (auto const& [key, result] : wanted) {
        bool const isPlaced = stage.entryHas(key);
        if (isPlaced && !(stage.entry(key) == result)) return Sorn::text(key) + " has other cells";
        if (isPlaced && !stage.cachedItem(key)->placed()) return Sorn::text(key) + " has no row";
        if (!isPlaced) ++counts.waitingKeys;
        std::string fault;
        forEachRouteOf(routes, key, [&](auto const& route) {
            ++counts.routes;
            if (!isPlaced) ++counts.waitingRoutes;
            auto const state = isPlaced ? RouteState::placed : RouteState::waiting;
            if (ladder.agent().routeState(route) != state) fault = Sorn::text(route) + " has another state";
            if (ladder.agent().route(route) != NerioSwitch::NexthopIndexes(routes.at(route)))
                fault = Sorn::text(route) + " has another next hop";
        });
        if (!fault.empty()) return fault;
        if (!isPlaced && !findsNoRow(stage, key, result)) return Sorn::text(key) + " would find a row";
    }
    std::size_t const placed = counts.keys - counts.waitingKeys;
    if (stage.entries().size() != placed) return "the stage has other entries";
    if (stage.cachedItems() != placed) return "the stage has other items";
    if (stage.tableStatus()->entryStatuses().size() != placed) return "the stage has other statuses";
    if (stage.hashConvertor()->rowsInUse() != placed) return "other rows are in use";
    if (ladder.agent().counts(number + 1) != counts) return "the agent counts otherwise";
    return {};
}

/** The same of the direct stage. */
inline std::string directFault(Ladder& ladder, RouteList const& routes) {
    auto const wanted = wantedDirectKeys(routes);
    for (auto const& [key, result] : wanted) {
        if (!ladder.direct().entryHas(key) || !(ladder.direct().entry(key) == result))
            return Sorn::text(key) + " has another cell";
    }
    Agent::RouteCounts counts;
    counts.keys = wanted.size();
    for (auto const& [route, nexthop] : routes) {
        if (route.prefix().len() > 11) continue;
        ++counts.routes;
        if (ladder.agent().routeState(route) != Agent::RouteState::placed)
            return Sorn::text(route) + " has another state";
        if (ladder.agent().route(route) != NerioSwitch::NexthopIndexes(nexthop))
            return Sorn::text(route) + " has another next hop";
    }
    if (ladder.direct().entries().size() != wanted.size()) return "the stage has other entries";
    if (ladder.direct().tableStatus()->entryStatuses().size() != wanted.size())
        return "the stage has other statuses";
    if (ladder.agent().counts(0) != counts) return "the agent counts otherwise";
    return {};
}

/** The same of all stages. */
inline std::string ladderFault(Ladder& ladder, RouteList const& routes) {
    auto const ofDirect = directFault(ladder, routes);
    if (!ofDirect.empty()) return "direct stage: " + ofDirect;
    for (std::size_t number = 0; number < std::size(stageCases); ++number) {
        auto const fault = stageFault(ladder, number, routes);
        if (!fault.empty()) return std::string(stageCases[number].family) + ": " + fault;
    }
    std::size_t visited = 0;
    bool isListed = true;
    ladder.agent().forEachRoute([&](Agent::Route const& route, Agent::RouteState state) {
        ++visited;
        auto const found = routes.find(route.key);
        isListed = isListed && found != routes.end() && route.nexthop == found->second &&
                   state == ladder.agent().routeState(route.key);
    });
    return isListed && visited == routes.size() && ladder.agent().routes() == visited
               ? ""
               : "other routes are known";
}

/** A ladder and the list of what its agent was told. */
struct ListedLadder : Ladder {
    using Ladder::Ladder;

    void add(NerioSwitch::LpmKey const& route, U32 nexthop) {
        routes[route] = nexthop;
        agent().routeIs(route, nexthop);
    }
    bool del(NerioSwitch::LpmKey const& route) {
        routes.erase(route);
        return agent().routeDel(route);
    }
    std::string fault() { return ladderFault(*this, routes); }

    RouteList routes;
};

/** Keys of a stage, with its longest lengths left open, whose rows are all among the first few of a way. */
inline std::vector<NerioSwitch::LpmKey> crowdedKeys(Ladder& ladder, std::size_t number, std::size_t count,
                                                    U32 rows, U8 vrfs, U64 seed = 1) {
    auto const& helper = static_cast<NerioSwitchTable::LpmBaseHelper const&>(*ladder.stage(number).helper());
    auto const length = static_cast<U8>(stageCases[number].baseLen);
    std::mt19937_64 random(seed);
    std::map<NerioSwitch::LpmKey, bool> keys;
    while (keys.size() < count) {
        U32 const address = static_cast<U32>(random()) & Lanvo::Prefix::mask(length);
        auto const key = routeKey(static_cast<U8>(random() % vrfs), address, length);
        auto const at = helper.rowsOf(key);
        if (at[0] < rows && at[1] < rows) keys[key] = true;
    }
    std::vector<NerioSwitch::LpmKey> all;
    for (auto const& [key, one] : keys)
        all.push_back(key);
    std::shuffle(all.begin(), all.end(), random);
    return all;
}

/** One of the seven routes of a stage key, by its number. */
inline NerioSwitch::LpmKey routeUnder(NerioSwitch::LpmKey const& key, U32 number) {
    U32 const longer = number == 0 ? 0 : number < 3 ? 1 : 2;
    U32 const bits = number == 0 ? 0 : number < 3 ? number - 1 : number - 3;
    U32 const length = key.prefix().len() + longer;
    U32 const address = key.prefix().address().hostOrder() | bits << (32 - length);
    return routeKey(key.vrf(), address, static_cast<U8>(length));
}

}  // namespace NerioTest
