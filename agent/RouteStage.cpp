#include "agent/RouteStage.h"

#include <bit>
#include <utility>

#include "Belmo/Assert.h"

namespace Agent {

using Lanvo::Prefix;
using NerioSwitch::LpmKey;
using NerioSwitchTable::LpmBaseHelper;
using NerioSwitchTable::LpmBaseTable;

namespace {

std::size_t routesIn(RouteGroup const& group) {
    return static_cast<std::size_t>(std::popcount(group.routes));
}

}  // namespace

RouteStage::RouteStage(Belmo::Ptr<LpmBaseTable> table, Observer const& observer)
    : table_(std::move(table)),
      observer_(observer),
      groups_(table_->prefixBaseLen()),
      placed_(convertor().tableSize()),
      waiting_(convertor().tableSize()),
      walked_(waiting_.slots()) {
    BELMO_ASSERT(convertor().numHashTables() == RowLists::ways);
}

void RouteStage::adopt() {
    std::vector<LpmKey> keys;
    for (auto const& [key, result] : table_->entries())
        keys.push_back(key);
    for (auto const& key : keys) {
        if (hasRow(key)) {
            placeIs(add(key.vrf(), key.prefix().address().hostOrder()), Place::placed);
        } else {
            // An entry without a row is in nobody's way but ours.
            table_->entryDel(key);
            table_->hashItemDel(key);
        }
    }
}

void RouteStage::reconciled() {
    for (Id id = 0; id < groups_.end(); ++id) {
        if (groups_[id].place == Place::placed && groups_[id].routes != 0) write(id);
    }
    for (Id id = 0; id < groups_.end(); ++id) {
        if (groups_[id].place != Place::free && groups_[id].routes == 0) remove(id);
    }
    freed_.clear();
    for (Id id = 0; id < groups_.end(); ++id) {
        bool const isToBePlaced = groups_[id].place == Place::none || groups_[id].place == Place::waiting;
        if (isToBePlaced) tryPlace(id);
    }
}

RouteState RouteStage::stateOf(Id id) const {
    return groups_[id].place == Place::placed && !reconciling_ ? RouteState::placed : RouteState::waiting;
}

/** A new group, which knows the rows of its key. */
RouteStage::Id RouteStage::add(U8 vrf, U32 address) {
    Id const id = groups_.add(vrf, address);
    auto const rows = static_cast<LpmBaseHelper const&>(*table_->helper()).rowsOf(groups_.keyOf(id));
    groups_[id].rows = {rows[0], rows[1]};
    return id;
}

/** Whether the group's key would find a row. */
bool RouteStage::hasRoom(Id id) const {
    auto const& rows = groups_[id].rows;
    return convertor().hasRoom({rows[0], rows[1]});
}

bool RouteStage::hasRow(LpmKey const& key) const {
    auto const item = table_->cachedItem(key);
    return item && item->placed();
}

/** Moves a group to the lists of its new place, counts it there, and tells the observer. */
void RouteStage::placeIs(Id id, Place place) {
    Place const before = std::exchange(groups_[id].place, place);
    if (before == Place::placed) {
        placed_.unlink(groups_, id);
        --placedKeys_;
    }
    if (before == Place::waiting) {
        waiting_.unlink(groups_, id);
        --counts_.waitingKeys;
        counts_.waitingRoutes -= routesIn(groups_[id]);
    }
    if (place == Place::placed) {
        placed_.link(groups_, id);
        ++placedKeys_;
    }
    if (place == Place::waiting) {
        waiting_.link(groups_, id);
        ++counts_.waitingKeys;
        counts_.waitingRoutes += routesIn(groups_[id]);
    }
    bool const hasWaited = before == Place::waiting && place == Place::placed;
    if (hasWaited || (before != Place::waiting && place == Place::waiting)) tell(id);
}

/** Hands the group to the table. */
void RouteStage::write(Id id) {
    groups_[id].unsure = true;
    table_->entryIs(groups_.keyOf(id), groups_.resultOf(id));
    groups_[id].unsure = false;
}

/** Places a group without a row, or lets it wait; the table sees no key that it has no room for. */
bool RouteStage::tryPlace(Id id) {
    auto const key = groups_.keyOf(id);
    bool const hasRowYet = groups_[id].unsure && hasRow(key);
    if (!hasRowYet && !hasRoom(id)) {
        if (groups_[id].unsure) table_->entryDel(key);
        groups_[id].unsure = false;
        if (groups_[id].place != Place::waiting) placeIs(id, Place::waiting);
        return false;
    }
    try {
        write(id);
    } catch (...) {
        placeIs(id, hasRow(key) ? Place::placed : Place::waiting);
        throw;
    }
    BELMO_ASSERT(hasRow(key));
    placeIs(id, Place::placed);
    return true;
}

/** Brings the table in line with a group that has routes. */
void RouteStage::program(Id id) {
    if (groups_[id].place == Place::placed) {
        write(id);
    } else if (groups_[id].place == Place::none || groups_[id].unsure) {
        tryPlace(id);
    }
}

/** Ends a group whose last route is gone. */
void RouteStage::remove(Id id) {
    if (groups_[id].place == Place::placed || groups_[id].unsure) {
        auto const key = groups_.keyOf(id);
        auto const item = table_->cachedItem(key);
        if (item && item->placed()) freed_.push_back(item->hwIndex());
        placeIs(id, Place::none);
        groups_[id].unsure = true;
        table_->entryDel(key);
    }
    placeIs(id, Place::none);
    groups_.del(id);
}

void RouteStage::routeIs(LpmKey const& route, U16 nexthop) {
    refill();
    U32 const address = route.prefix().address().hostOrder();
    Id id = groups_.find(route.vrf(), address);
    if (id == RouteGroups::none) id = add(route.vrf(), address);
    auto& group = groups_[id];
    U8 const number = groups_.numberOf(route.prefix());
    bool const isNew = !group.has(number);
    if (!isNew && group.nexthops[number] == nexthop && !group.unsure) return;
    group.nexthops[number] = nexthop;
    if (isNew) {
        group.routes = static_cast<U8>(group.routes | 1u << number);
        ++counts_.routes;
    }
    if (isNew && group.place == Place::waiting) {
        ++counts_.waitingRoutes;
        if (observer_) observer_(route, RouteState::waiting);
    }
    if (!reconciling_) program(id);
}

bool RouteStage::routeDel(LpmKey const& route) {
    refill();
    Id const id = groups_.find(route.vrf(), route.prefix().address().hostOrder());
    if (id == RouteGroups::none) return false;
    auto& group = groups_[id];
    U8 const number = groups_.numberOf(route.prefix());
    bool const was = group.has(number);
    if (!was && !group.unsure) return false;
    if (was) {
        group.routes = static_cast<U8>(group.routes & ~(1u << number));
        --counts_.routes;
        if (group.place == Place::waiting) --counts_.waitingRoutes;
    }
    if (reconciling_) {
        if (group.routes == 0) forgetUnplaced(id);
        return was;
    }
    if (group.routes != 0) {
        program(id);
    } else {
        remove(id);
    }
    refill();
    return was;
}

/** Ends a group without routes of which the table knows nothing. */
void RouteStage::forgetUnplaced(Id id) {
    if (groups_[id].place == Place::none && !groups_[id].unsure) groups_.del(id);
}

void RouteStage::routeDelAll() {
    for (bool const ofWaiting : {true, false}) {
        for (Id id = 0; id < groups_.end(); ++id) {
            auto& group = groups_[id];
            if (group.place == Place::free || (ofWaiting && group.place != Place::waiting)) continue;
            counts_.routes -= routesIn(group);
            if (group.place == Place::waiting) counts_.waitingRoutes -= routesIn(group);
            group.routes = 0;
            if (reconciling_) {
                forgetUnplaced(id);
            } else {
                remove(id);
            }
        }
    }
    freed_.clear();
}

std::size_t RouteStage::retryWaiting() {
    std::size_t placed = 0;
    if (counts_.waitingKeys == 0) return placed;
    for (Slot slot = 0; slot < waiting_.rowsPerWay(); ++slot) {
        for (Id next = waiting_.first(slot); next != RouteGroups::none;) {
            Id const id = std::exchange(next, waiting_.next(groups_, slot, next));
            if (tryPlace(id)) ++placed;
        }
    }
    return placed;
}

/** Gives rows that became free to waiting keys: at the end of a call, or of the next one if that failed. */
void RouteStage::refill() {
    while (!freed_.empty() && !reconciling_) {
        // Keys that are not ours tie rows together as well: then only trying tells.
        bool const isAlone = convertor().rowsInUse() <= placedKeys_;
        if (!refill(freed_.back()) && !isAlone) retryWaiting();
        freed_.pop_back();
    }
}

/** Gives a row that became free to a waiting key; whether there was one. */
bool RouteStage::refill(Slot freed) {
    if (counts_.waitingKeys == 0) return false;
    Id const id = waitingNear(freed);
    return id != RouteGroups::none && tryPlace(id);
}

/** A waiting key with a row from which placed keys lead to the one that became free. */
RouteStage::Id RouteStage::waitingNear(Slot freed) {
    Id found = RouteGroups::none;
    walk_.assign(1, freed);
    walked_[freed] = true;
    for (std::size_t at = 0; at < walk_.size(); ++at) {
        Slot const slot = walk_[at];
        found = waiting_.first(slot);
        if (found != RouteGroups::none) break;
        auto const otherWay = static_cast<U8>(1 - placed_.wayOf(slot));
        for (Id id = placed_.first(slot); id != RouteGroups::none; id = placed_.next(groups_, slot, id)) {
            Slot const other = placed_.slotOf(otherWay, groups_[id]);
            if (walked_[other]) continue;
            walked_[other] = true;
            walk_.push_back(other);
        }
    }
    for (Slot const slot : walk_)
        walked_[slot] = false;
    return found;
}

/** Tells the observer what became of all routes of a group. */
void RouteStage::tell(Id id) const {
    if (!observer_) return;
    for (U8 number = 0; number < RouteGroup::maxRoutes; ++number) {
        if (groups_[id].has(number)) observer_(groups_.routeOf(id, number), stateOf(id));
    }
}

std::optional<U16> RouteStage::route(LpmKey const& route) const {
    Id const id = groups_.find(route.vrf(), route.prefix().address().hostOrder());
    if (id == RouteGroups::none) return std::nullopt;
    U8 const number = groups_.numberOf(route.prefix());
    if (!groups_[id].has(number)) return std::nullopt;
    return groups_[id].nexthops[number];
}

RouteState RouteStage::routeState(LpmKey const& route) const {
    Id const id = groups_.find(route.vrf(), route.prefix().address().hostOrder());
    if (id == RouteGroups::none || !groups_[id].has(groups_.numberOf(route.prefix())))
        return RouteState::absent;
    return stateOf(id);
}

RouteCounts RouteStage::counts() const {
    auto counts = counts_;
    counts.keys = groups_.size();
    if (reconciling_) {
        counts.waitingRoutes = counts.routes;
        counts.waitingKeys = counts.keys;
    }
    return counts;
}

Prefix RouteStage::match(U8 vrf, U32 address, bool placedOnly) const {
    Id const id = groups_.find(vrf, address);
    if (id == RouteGroups::none || (placedOnly && stateOf(id) != RouteState::placed)) return Prefix::null();
    auto const owner = groups_.ownerOf(id, groups_.cellOf(address));
    return owner ? groups_.routeOf(id, *owner).prefix() : Prefix::null();
}

}  // namespace Agent
