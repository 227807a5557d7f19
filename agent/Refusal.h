#pragma once

#include <fmt/format.h>
#include <optional>

#include "NerioSwitchApi/EntryProgrammedStatus.h"
#include "NerioSwitchApi/HashTable.h"

/* What agents say when they cannot bring all parts of something into hardware. */
namespace Agent {

/** Why something is not in hardware, and no part of it is. */
struct Refusal {
    enum class Reason : U8 {
        /** Something else matches the same packets. */
        taken,
        noSession,
        /** No group of VLANs is left. */
        noGroup,
        /** A key finds no row. */
        noPlace,
    };

    Reason reason;
    /** Which part it is about, as people read it. */
    Belmo::String text;
};

/** Whether the key has a row in hardware. */
template <class Table>
bool isProgrammed(Table const& table, typename Table::Key const& key) {
    auto const& status = *table.tableStatus();
    return status.entryStatusHas(key) &&
           status.entryStatus(key).status() == NerioSwitchApi::EntryProgrammedStatus::entryProgrammed;
}

/** Whether the key has a row, or would find one now. */
template <class Table>
bool hasRoom(Table& table, typename Table::Key const& key) {
    auto const cached = table.cachedItem(key);
    if (cached && cached->placed()) return true;
    auto const item = table.createHashEntry(key, false);
    auto& convertor = *table.hashConvertor();
    Dovra::Cuckoo::Rows rows{};
    for (U32 way = 0; way < convertor.numHashTables(); ++way)
        rows[way] = static_cast<U16>(item->getHash(static_cast<U8>(way)));
    return convertor.hasRoom(rows);
}

template <class Table>
Refusal noPlace(Table const& table, Belmo::String const& what) {
    return {Refusal::Reason::noPlace, fmt::format("no place in {} for {}", table.name(), what)};
}

}  // namespace Agent
