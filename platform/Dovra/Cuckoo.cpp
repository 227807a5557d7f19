#include "Dovra/Cuckoo.h"

#include <limits>

#include "Belmo/Assert.h"

namespace Dovra::Cuckoo {

namespace {

/** Where a chain begins: the step is one of the key's own rows. */
constexpr U32 noStep = std::numeric_limits<U32>::max();

}  // namespace

std::ostream& operator<<(std::ostream& stream, CuckooLocation const& location) {
    return stream << "table " << U32{location.table} << " row " << location.row;
}

HashItem::~HashItem() = default;

Occupancy::Occupancy(U8 ways, U32 rowsPerWay)
    : ways_(ways),
      rowsPerWay_(rowsPerWay),
      rows_(std::size_t{ways} * rowsPerWay),
      taken_(rows_.size()),
      deadEnds_(rows_.size()) {
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
    release(slot);
    ++used_;
    taken_.add(slot);
    rows_[slot] = rows;
}

void Occupancy::release(Slot slot) {
    if (!taken(slot)) return;
    --used_;
    taken_.remove(slot);
    if (deadEnd(slot)) deadEnds_.clear();
}

Planner::Planner(Occupancy& occupancy) : occupancy_(occupancy), seen_(occupancy.slots()) {
    steps_.reserve(occupancy.slots());
}

/** Looks at the rows of a key for the first time in this search; true once one of them is free. */
bool Planner::look(Rows const& rows, U32 from) {
    for (U8 way = 0; way < occupancy_.ways(); ++way) {
        if (rows[way] >= occupancy_.rowsPerWay()) continue;
        Slot const slot = occupancy_.slotOf(way, rows[way]);
        if (seen_.has(slot) || occupancy_.deadEnd(slot)) continue;
        seen_.add(slot);
        steps_.push_back({slot, from});
        if (!occupancy_.taken(slot)) return true;
    }
    return false;
}

/** The last step is a free slot: follows the steps back to one of the key's own rows. */
void Planner::found() {
    plan_.outcome = Outcome::placed;
    Step step = steps_.back();
    for (; step.from != noStep; step = steps_[step.from])
        plan_.moves.push_back({steps_[step.from].slot, step.slot});
    plan_.slot = step.slot;
}

void Planner::foundNone() {
    for (auto const& step : steps_)
        occupancy_.deadEndIs(step.slot);
}

Plan const& Planner::plan(Rows const& rows) {
    plan_.moves.clear();
    plan_.outcome = occupancy_.used() == occupancy_.slots() ? Outcome::full : Outcome::noPath;
    plan_.visited = 0;
    if (plan_.outcome == Outcome::full) return plan_;

    steps_.clear();
    bool isFound = look(rows, noStep);
    for (U32 next = 0; next < steps_.size() && !isFound; ++next)
        isFound = look(occupancy_.rowsOf(steps_[next].slot), next);
    plan_.visited = static_cast<U32>(steps_.size());
    if (isFound) {
        found();
    } else {
        foundNone();
    }
    for (auto const& step : steps_)
        seen_.remove(step.slot);
    return plan_;
}

}  // namespace Dovra::Cuckoo
