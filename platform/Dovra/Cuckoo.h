#pragma once

#include <array>
#include <cstddef>
#include <ostream>
#include <span>
#include <vector>

#include "Belmo/Duration.h"
#include "Belmo/Export.h"
#include "Belmo/Ptr.h"
#include "Belmo/Types.h"

/*
 * Cuckoo placement (R. Pagh and F. F. Rodler, "Cuckoo Hashing", Journal of Algorithms 51, 2004): a key may
 * live in one row of each of several hash tables, and where all of them are taken, an occupant moves to
 * another of its own rows. The planner only plans; whoever owns the rows carries the moves out.
 */
namespace Dovra::Cuckoo {

/** A row of one of the hash tables. */
struct CuckooLocation {
    /** The row within the hash table. */
    U32 row = 0;
    /** Which hash table, from 0. */
    U8 table = 0;

    friend bool operator==(CuckooLocation const&, CuckooLocation const&) = default;
};

BELMO_EXPORT std::ostream& operator<<(std::ostream& stream, CuckooLocation const& location);

/** What lives in a row: a key that knows its row in each hash table. */
class BELMO_EXPORT HashItem : public Belmo::Node {
public:
    ~HashItem() override;

    /** The item stands for an entry that its table holds; false means that it is on its way out. */
    bool valid() const { return valid_; }
    void validIs(bool valid) { valid_ = valid; }
    /** Time of the last hit. */
    Belmo::Duration lastHit() const { return lastHit_; }
    void lastHitIs(Belmo::Duration time) { lastHit_ = time; }

    /** The two items' keys are equal. */
    virtual bool isEqual(Belmo::Ptr<HashItem const> const& other) const = 0;
    /** The row of this key in hash table `hashNumber`. */
    virtual U32 getHash(U8 hashNumber) const = 0;
    /** The item as a text, for traces. */
    virtual Belmo::String toStrep() const = 0;

protected:
    HashItem() = default;

private:
    bool valid_ = false;
    Belmo::Duration lastHit_ = Belmo::Duration::never();
};

/** Hash tables that a key can have rows in, at most. */
inline constexpr U8 maxWays = 4;

/** A key's row in each hash table; a row behind the table's last one is none that the key can live in. */
using Rows = std::array<U16, maxWays>;

/** The rows of an occupant that cannot move. */
inline constexpr Rows immovable{0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF};

/** A row over all hash tables: table * rows per table + row. */
using Slot = U32;

/** Which slots are taken, and which rows their occupants could live in. */
class BELMO_EXPORT Occupancy {
public:
    /** At most 4 ways of at most 65535 rows. */
    Occupancy(U8 ways, U32 rowsPerWay);

    U8 ways() const { return ways_; }
    U32 rowsPerWay() const { return rowsPerWay_; }
    U32 slots() const { return static_cast<U32>(rows_.size()); }
    U32 used() const { return used_; }

    Slot slotOf(U8 way, U32 row) const { return way * rowsPerWay_ + row; }
    U8 wayOf(Slot slot) const;
    bool taken(Slot slot) const { return has(slot, takenMark); }
    Rows const& rowsOf(Slot slot) const { return rows_[slot]; }

    void take(Slot slot, Rows const& rows);
    void release(Slot slot);

    /**
     * Slots from whose occupants no chain of moves leads to a free slot. They lead only to one another, so
     * that this stays true until one of them is released.
     */
    bool deadEnd(Slot slot) const { return has(slot, deadEndMark); }
    void deadEndIs(Slot slot) { marks_[slot] |= deadEndMark; }

private:
    friend class Planner;

    /** All that a search asks of a slot is in one byte, so that the marks of a large table stay in cache. */
    static constexpr U8 takenMark = 1;
    static constexpr U8 deadEndMark = 2;
    /** The search under way has been there. */
    static constexpr U8 seenMark = 4;

    bool has(Slot slot, U8 mark) const { return (marks_[slot] & mark) != 0; }
    void unmark(Slot slot, U8 mark) { marks_[slot] &= static_cast<U8>(~mark); }

    U8 ways_;
    U32 rowsPerWay_;
    U32 used_ = 0;
    std::vector<Rows> rows_;
    std::vector<U8> marks_;
};

/** An occupant goes from one of its slots to another. */
struct Move {
    Slot from;
    Slot to;

    friend bool operator==(Move const&, Move const&) = default;
};

/** What a search for a slot came to. */
enum class Outcome : U8 {
    /** There is a slot for the key, behind the moves. */
    placed,
    /** Every slot is taken. */
    full,
    /** There are free slots, but no chain of moves leads from the key's rows to one. */
    noPath,
};

/** What has to be done to place one key. */
struct Plan {
    Outcome outcome = Outcome::noPath;
    /** Where the key goes once the moves are done. */
    Slot slot = 0;
    /** The moves in the order in which to carry them out: the first one goes to a free slot. */
    std::vector<Move> moves;
    /** Slots that the search looked at. */
    U32 visited = 0;
};

/**
 * Finds the shortest chain of moves that makes room for a key: breadth first over the occupants of its rows,
 * each slot at most once, so that a search never takes longer than one walk over the table. Slots that a
 * search in vain has been to are not walked again before one of them is released. The plan belongs to the
 * planner and holds until the next one; planning allocates nothing once the planner is warm.
 */
class BELMO_EXPORT Planner {
public:
    explicit Planner(Occupancy& occupancy);

    Plan const& plan(Rows const& rows);

private:
    /** A slot that was looked at, and the step from whose occupant it was reached. */
    struct Step {
        Slot slot;
        U32 from;
    };
    bool look(Rows const& rows, U32 from);
    void found();
    void foundNone();

    Occupancy& occupancy_;
    Plan plan_;
    /** As many as there are slots, of which the first `plan_.visited` are this search's. */
    std::vector<Step> steps_;
};

}  // namespace Dovra::Cuckoo
