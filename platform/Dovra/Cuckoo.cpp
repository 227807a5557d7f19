#include "Dovra/Cuckoo.h"

#include <algorithm>
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
    : ways_(ways), rowsPerWay_(rowsPerWay), rows_(std::size_t{ways} * rowsPerWay), marks_(rows_.size()) {
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
    marks_[slot] |= takenMark;
    rows_[slot] = rows;
}

void Occupancy::release(Slot slot) {
    if (!taken(slot)) return;
    --used_;
    unmark(slot, takenMark);
    if (!deadEnd(slot)) return;
    for (Slot each = 0; each < slots(); ++each)
        unmark(each, deadEndMark);
}

Planner::Planner(Occupancy& occupancy) : occupancy_(occupancy), steps_(occupancy.slots()) {}

/** Looks at the rows of a key for the first time in this search; true once one of them is free. */
bool Planner::look(Rows const& rows, U32 from) {
    for (U8 way = 0; way < occupancy_.ways(); ++way) {
        if (rows[way] >= occupancy_.rowsPerWay()) continue;
        Slot const slot = occupancy_.slotOf(way, rows[way]);
        U8& marks = occupancy_.marks_[slot];
        if ((marks & (Occupancy::seenMark | Occupancy::deadEndMark)) != 0) continue;
        marks |= Occupancy::seenMark;
        steps_[plan_.visited++] = {slot, from};
        if ((marks & Occupancy::takenMark) == 0) return true;
    }
    return false;
}

/** The last step is a free slot: follows the steps back to one of the key's own rows. */
void Planner::found() {
    plan_.outcome = Outcome::placed;
    Step step = steps_[plan_.visited - 1];
    for (; step.from != noStep; step = steps_[step.from])
        plan_.moves.push_back({steps_[step.from].slot, step.slot});
    plan_.slot = step.slot;
}

void Planner::foundNone() {
    for (U32 step = 0; step < plan_.visited; ++step)
        occupancy_.deadEndIs(steps_[step].slot);
}

Plan const& Planner::plan(Rows const& rows) {
    plan_.moves.clear();
    plan_.outcome = occupancy_.used() == occupancy_.slots() ? Outcome::full : Outcome::noPath;
    plan_.visited = 0;
    if (plan_.outcome == Outcome::full) return plan_;

    bool isFound = look(rows, noStep);
    for (U32 next = 0; next < plan_.visited && !isFound; ++next)
        isFound = look(occupancy_.rowsOf(steps_[next].slot), next);
    if (isFound) {
        found();
    } else {
        foundNone();
    }
    for (U32 step = 0; step < plan_.visited; ++step)
        occupancy_.unmark(steps_[step].slot, Occupancy::seenMark);
    return plan_;
}

}  // namespace Dovra::Cuckoo
