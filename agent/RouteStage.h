#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "NerioSwitchTable/NerioTableLpmBase.h"
#include "agent/RouteAgent.h"
#include "agent/RouteGroups.h"

namespace Agent {

/**
 * The routes of one hashing stage, and the table that holds those that find a row.
 *
 * A key joins its two rows as an edge joins two nodes. In each component of that graph there are at most as
 * many placed keys as rows (L. Devroye and P. Morin, "Cuckoo hashing: further analysis", Information
 * Processing Letters 86, 2003): either every row is taken, or the component is a tree with one free row, to
 * which moves lead from any other. So a key has to wait if both of its rows lie in components without a free
 * row; and a removal gives room to one waiting key at most, which has a row in the tree that hangs on the
 * row that became free. Finding it is a walk over that tree, and most often its first row is enough.
 */
class RouteStage {
public:
    using Observer = RouteAgent::Observer;

    /** The observer is the agent's, which may be replaced at any time. */
    RouteStage(Belmo::Ptr<NerioSwitchTable::LpmBaseTable> table, Observer const& observer);

    /** Takes the table's keys over, without routes. */
    void adopt();
    /** While this is on, the table is not touched. */
    void reconcilingIs(bool on) { reconciling_ = on; }
    /** Brings the table in line: keys that have a row first, then those without routes, then new ones. */
    void reconciled();

    void routeIs(NerioSwitch::LpmKey const& route, U16 nexthop);
    bool routeDel(NerioSwitch::LpmKey const& route);
    void routeDelAll();
    /** Tries every waiting key; how many were placed. */
    std::size_t retryWaiting();

    std::optional<U16> route(NerioSwitch::LpmKey const& route) const;
    RouteState routeState(NerioSwitch::LpmKey const& route) const;
    RouteCounts counts() const;
    /** The longest route that matches the address, which is in host order; a null prefix for none. */
    Lanvo::Prefix match(U8 vrf, U32 address, bool placedOnly) const;
    /** Calls `visit(key, nexthop, state)` for each route. */
    template <class Visit>
    void forEachRoute(Visit const& visit) const {
        for (Id id = 0; id < groups_.end(); ++id) {
            for (U8 number = 0; number < RouteGroup::maxRoutes; ++number) {
                if (groups_[id].has(number))
                    visit(groups_.routeOf(id, number), groups_[id].nexthops[number], stateOf(id));
            }
        }
    }

private:
    using Id = RouteGroups::Id;
    using Place = RouteGroup::Place;
    using Slot = Dovra::Cuckoo::Slot;
    using LpmKey = NerioSwitch::LpmKey;

    RouteState stateOf(Id id) const;
    NerioSwitchApi::PhysicalHashTableConvertor& convertor() const { return *table_->hashConvertor(); }
    Id add(U8 vrf, U32 address);
    bool hasRoom(Id id) const;
    bool hasRow(LpmKey const& key) const;
    void placeIs(Id id, Place place);
    bool tryPlace(Id id);
    void write(Id id);
    void program(Id id);
    void remove(Id id);
    void forgetUnplaced(Id id);
    void refill();
    bool refill(Slot freed);
    Id waitingNear(Slot freed);
    void tell(Id id) const;

    Belmo::Ptr<NerioSwitchTable::LpmBaseTable> table_;
    Observer const& observer_;
    RouteGroups groups_;
    RowLists placed_;
    RowLists waiting_;
    RouteCounts counts_;
    std::size_t placedKeys_ = 0;
    /** Rows that became free, and may have room for a waiting key. */
    std::vector<Slot> freed_;
    /** The rows of a walk. */
    std::vector<Slot> walk_;
    std::vector<bool> walked_;
    bool reconciling_ = false;
};

}  // namespace Agent
