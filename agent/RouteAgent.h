#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "NerioSwitch/Indexes.h"
#include "NerioSwitch/LpmKey.h"

#include "NerioSwitchTable/NerioTableLpm11.h"
#include "NerioSwitchTable/NerioTableLpmTables.h"

namespace Agent {

class RouteStage;
class ShortRoutes;

/** The stage tables of one chip. */
struct RouteStages {
    /** Hashing stages, in the order of `NerioSwitchTable::lpmStages`. */
    static constexpr std::size_t hashing = NerioSwitchTable::lpmStages.size();
    /** All stages: number 0 is the direct one, number i + 1 is `hashed[i]`. */
    static constexpr std::size_t count = hashing + 1;

    Belmo::Ptr<NerioSwitchTable::Lpm11Table> direct;
    std::array<Belmo::Ptr<NerioSwitchTable::LpmBaseTable>, hashing> hashed;

    /** New tables, "lpm11", "lpm14" to "lpm32", which are yet to be brought up. */
    static RouteStages made();
    /** All tables, by number. */
    std::array<Belmo::Ptr<NerioSwitchApi::SwTable>, count> tables() const;
    /** The number of the stage that serves routes of that length, 0 to 32. */
    static constexpr std::size_t numberOf(U32 length) { return length < 12 ? 0 : (length - 12) / 3 + 1; }
};

/** A route: packets of its VRF whose longest matching prefix is this go to the next hop. */
struct Route {
    NerioSwitch::LpmKey key;
    NerioSwitch::NexthopIndexes nexthop;

    friend bool operator==(Route const&, Route const&) = default;
};

/** What became of a route. */
enum class RouteState : U8 {
    /** There is no such route. */
    absent,
    /** The chip has it. A route of which longer ones hide every address counts as placed. */
    placed,
    /** Its key has no row: packets fall to the longest shorter route that is placed. */
    waiting,
};

/** What a stage has been given, and what of it waits. */
struct RouteCounts {
    std::size_t routes = 0;
    std::size_t waitingRoutes = 0;
    /** Keys with a row or waiting for one. A route of up to 11 bits has as many keys as it covers. */
    std::size_t keys = 0;
    std::size_t waitingKeys = 0;

    friend bool operator==(RouteCounts const&, RouteCounts const&) = default;
};

/**
 * Owns the stages of the route look-up. It takes whole routes of any length, keeps all of them, and brings
 * the stages in line in the same call: a key's cell i, for the value i of the two address bits behind the
 * key, belongs to the longest route of the stage that covers it, and where that is withdrawn, to the next
 * shorter one. In the direct stage a route stands under each 11-bit key that it covers, unless a longer one
 * does.
 *
 * A route whose key finds no row waits here, and is in no stage table. All routes of a key wait together, so
 * no route is ever placed in part. Whenever a call has returned, no waiting key could have been placed:
 * a row that becomes free goes to a key that waits for it, whichever came last. This takes a withdrawal
 * through this agent; rows that others free in shared tables are noticed by `retryWaiting`.
 *
 * Routes refused with `Belmo::RangeException` leave everything as it was. When the bus fails, the agent keeps
 * what is wanted and lets the failure through; the same call, or the next one about routes of that key, tries
 * again.
 *
 * Nothing else may change the stage tables while the agent is there, and they outlive it. They must be up.
 */
class RouteAgent {
public:
    using Observer = std::function<void(NerioSwitch::LpmKey const& route, RouteState state)>;

    /**
     * Takes over stages. If they hold entries, as after a warm restart, the agent is `reconciling`.
     */
    explicit RouteAgent(RouteStages stages);
    ~RouteAgent();
    RouteAgent(RouteAgent const&) = delete;
    RouteAgent& operator=(RouteAgent const&) = delete;

    /**
     * Adds a route or changes its next hop; an equal one has no effect. Refused are VRFs beyond the profile's
     * `numVrfs`, the null prefix, the null next hop, and those above `EntryCellResult::maxNexthop`. Prefixes
     * with host bits cannot be made in the first place.
     */
    void routeIs(NerioSwitch::LpmKey const& route, NerioSwitch::NexthopIndexes nexthop);
    /** Withdraws a route; whether there was one. */
    bool routeDel(NerioSwitch::LpmKey const& route);
    /** Withdraws all routes, those that wait first, so that none of them takes a row in between. */
    void routeDelAll();

    /** The next hop of a route; nothing for an absent one. */
    std::optional<NerioSwitch::NexthopIndexes> route(NerioSwitch::LpmKey const& route) const;
    RouteState routeState(NerioSwitch::LpmKey const& route) const;
    /** Number of routes. */
    std::size_t routes() const;
    /** Calls for each route, in no order; `visit` must not change routes. */
    void forEachRoute(std::function<void(Route const&, RouteState)> const& visit) const;
    /** The longest route that matches an address, placed or not; nothing if none does. */
    std::optional<Route> match(U8 vrf, Lanvo::IpAddr address) const;
    /** The same among placed routes: where the chip sends packets. */
    std::optional<Route> placedMatch(U8 vrf, Lanvo::IpAddr address) const;

    /** Of a stage by its number, 0 to `RouteStages::count` - 1. */
    RouteCounts counts(std::size_t stage) const;
    RouteCounts counts() const;

    /**
     * Told of each route that has to wait, and of each that waited and is placed now. It must not change
     * routes.
     */
    void observerIs(Observer observer);

    /**
     * While the agent is reconciling, it only takes notes: routes are claimed by `routeIs`, all of them count
     * as waiting, and nothing is written.
     */
    bool reconciling() const { return reconciling_; }
    /**
     * All that is wanted has been claimed: rewrites rows that differ, clears those that nobody claimed, and
     * places new keys. Rows that are right already are not written.
     */
    void reconciled();

    /** Tries all waiting keys, for rows that others freed in a shared table; how many keys were placed. */
    std::size_t retryWaiting();

    RouteStages const& stages() const { return stages_; }

private:
    void check(NerioSwitch::LpmKey const& route, NerioSwitch::NexthopIndexes nexthop) const;
    bool canBe(NerioSwitch::LpmKey const& route) const;
    std::optional<Route> match(U8 vrf, Lanvo::IpAddr address, bool placedOnly) const;

    RouteStages stages_;
    U32 numVrfs_;
    Observer observer_;
    std::unique_ptr<ShortRoutes> shortRoutes_;
    std::array<std::unique_ptr<RouteStage>, RouteStages::hashing> hashed_;
    bool reconciling_ = false;
};

}  // namespace Agent
