#include "Dovra/Cuckoo.h"

#include <algorithm>
#include <limits>

#include "Belmo/Assert.h"

namespace Dovra::Cuckoo {

namespace {

constexpr Slot noParent = std::numeric_limits<Slot>::max();

}  // namespace

std::ostream& operator<<(std::ostream& stream, CuckooLocation const& location) {
    return stream << "table " << U32{location.table} << " row " << location.row;
}

HashItem::~HashItem() = default;

Occupancy::Occupancy(U8 ways, U32 rowsPerWay)
    : ways_(ways), rowsPerWay_(rowsPerWay), occupants_(std::size_t{ways} * rowsPerWay) {
    BELMO_ASSERT(ways <= maxWays);
    BELMO_ASSERT(rowsPerWay <= 65535);
}

U8 Occupancy::wayOf(Slot slot) const {
    U8 way = 0;
    while (slot >= rowsPerWay_) {
        slot -= rowsPerWay_;
        ++way;
    }
    return way;
}

void Occupancy::take(Slot slot, Rows const& rows) {
    if (!occupants_[slot].taken) ++used_;
    occupants_[slot] = {rows, true};
}

void Occupancy::release(Slot slot) {
    if (occupants_[slot].taken) --used_;
    occupants_[slot].taken = false;
}

Planner::Planner(Occupancy const& occupancy)
    : occupancy_(occupancy), search_(occupancy.slots(), 0), parent_(occupancy.slots(), noParent) {
    queue_.reserve(occupancy.slots());
}

/** Looks at a slot for the first time in this search; true if it is free. */
bool Planner::look(Slot slot, Slot parent) {
    search_[slot] = currentSearch_;
    parent_[slot] = parent;
    queue_.push_back(slot);
    return !occupancy_.taken(slot);
}

void Planner::found(Slot slot) {
    plan_.outcome = Outcome::placed;
    for (; parent_[slot] != noParent; slot = parent_[slot])
        plan_.moves.push_back({parent_[slot], slot});
    plan_.slot = slot;
}

Plan const& Planner::plan(Rows const& rows) {
    plan_.moves.clear();
    plan_.outcome = occupancy_.used() == occupancy_.slots() ? Outcome::full : Outcome::noPath;
    plan_.visited = 0;
    if (plan_.outcome == Outcome::full) return plan_;

    if (++currentSearch_ == 0) {  // the count of searches has wrapped: marks of old ones would look new
        std::fill(search_.begin(), search_.end(), 0);
        currentSearch_ = 1;
    }
    queue_.clear();
    bool isFound = false;
    for (U8 way = 0; way < occupancy_.ways() && !isFound; ++way) {
        if (rows[way] < occupancy_.rowsPerWay()) isFound = look(occupancy_.slotOf(way, rows[way]), noParent);
    }
    for (std::size_t next = 0; next < queue_.size() && !isFound; ++next) {
        Slot const from = queue_[next];
        auto const& occupantRows = occupancy_.rowsOf(from);
        for (U8 way = 0; way < occupancy_.ways() && !isFound; ++way) {
            if (occupantRows[way] >= occupancy_.rowsPerWay()) continue;
            Slot const to = occupancy_.slotOf(way, occupantRows[way]);
            if (search_[to] != currentSearch_) isFound = look(to, from);
        }
    }
    plan_.visited = static_cast<U32>(queue_.size());
    if (isFound) found(queue_.back());
    return plan_;
}

}  // namespace Dovra::Cuckoo
