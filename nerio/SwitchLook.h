#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "nerio/KeptMoves.h"
#include "nerio/ProgrammedSwitch.h"
#include "nerio/Snapshot.h"

/* A kept switch as people look at it, whether another process has it or not. */
namespace Nerio {

/** What a table holds, in numbers. */
struct TableLook {
    Agent::TableSpec spec;
    std::size_t entries = 0;
    /** Of one copy, where rows have copies. Tables that touch no hardware have none. */
    U64 rowsInUse = 0;
    U64 rows = 0;
    bool nearlyFull = false;
    /** Of tables with a hash: entries that have no place, and what placing took since the cold start. */
    std::optional<std::size_t> entriesWithoutPlace;
    PlacementMoves moves;
};

/** One entry, and what is known of it. */
struct EntryLook {  // NOLINT(bugprone-exception-escape): a Json is moved without any
    enum class Status {
        placed,
        /** It found no row. */
        noPlace,
        /** It says what goes without saying, and has no row of its own. */
        noTrace,
    };

    Agent::Json key;
    Agent::Json result;
    /** The hash table, or the number of the hardware table, and the row in it; none without a row. */
    struct Location {
        U32 table;
        U32 row;
    };
    std::optional<Location> location;
    Status status = Status::placed;
    /** A packet hit it since someone read the hit bits; nothing for tables without. */
    std::optional<bool> hit;
    /** Its copies in hardware did not agree when they were read. */
    bool inconsistent = false;
};

/** One look at a kept switch: a copy, brought up warm. */
class SwitchLook {
public:
    /**
     * `fullAt` is the use in percent from which a table is nearly full; if left out, that of its capacity
     * counters. Throws what `Snapshot` and `ProgrammedSwitch` throw.
     */
    explicit SwitchLook(std::filesystem::path const& directory, std::optional<U32> fullAt = {});

    /** All tables, in the order in which they are brought up. */
    std::vector<TableLook> tables() const;
    /** The number of the table of that name; nothing if there is none. */
    std::optional<std::size_t> find(std::string_view name) const;
    TableLook table(std::size_t number) const;
    Agent::JsonTable const& json(std::size_t number) const { return *tables_[number].table; }
    /** The entries of a table in key order, without their locations. */
    std::vector<EntryLook> entries(std::size_t number) const;
    /**
     * Adds where entries stand, those of all. For tables without a hash it empties the table, which is that
     * of a copy: the row that changes with an entry is its row.
     */
    void locate(std::size_t number, std::vector<EntryLook>& entries);

private:
    struct Held {
        Agent::TableSpec spec;
        Agent::JsonTable* table;
    };
    /** Remembers what was in disorder before the start brought it in order. */
    struct Disorder : SwitchObserver {
        void cameUp(Agent::TableSpec const& spec, Agent::JsonTable& table) override;
        std::map<Belmo::String, std::vector<Agent::Json>> keys;
    };

    bool nearlyFull(TableLook const& look) const;

    std::optional<U32> fullAt_;
    std::map<Belmo::String, PlacementMoves> moves_;
    Disorder disorder_;
    Snapshot snapshot_;
    ProgrammedSwitch programmed_;
    std::vector<Held> tables_;
};

}  // namespace Nerio
