#pragma once

#include "NerioSwitchApi/HitBits.h"

#include "NerioSwitchTable/Export.h"

namespace NerioSwitchTable {

/**
 * Says how the hit bits of a processor's hash tables are read. `prefix` is the table's register prefix, with
 * its slash; `tableSize` the rows per hash table; `hitBitOffset` the bit position of the table in the data.
 * One read covers two neighbouring rows of every hash table: the even row's bit, and 36 bits above it the odd
 * row's. The hash tables stand 9 bits apart.
 */
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<NerioSwitchApi::HitBitReadInfoWrapper> getHitBitMapping(
    Belmo::String const& prefix, U32 tableSize, U32 numHashTables, U32 hitBitOffset);

}  // namespace NerioSwitchTable
