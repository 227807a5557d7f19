#pragma once

#include "NerioSwitchApi/HitBits.h"

#include "NerioSwitchTable/Export.h"

namespace NerioSwitchTable {

/**
 * The read of a processor's hit memory, which all its tables share, with no bit registered yet. `prefix` is
 * the register prefix of the processor, with its slash.
 */
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<NerioSwitchApi::HitBitReadInfo> hitBitReadInfoIs(
    NerioSwitchApi::HitBitReadInfoWrapper& wrapper, Belmo::String const& prefix);

/**
 * Registers the bits of `rows` rows from `firstIndex` on, which stand in the reads from `firstRead` on. One
 * read covers two neighbouring rows: `bit` is the even row's, and the odd row's stands 36 bits above it.
 */
NERIO_SWITCH_TABLE_EXPORT void hitBitRowsAre(NerioSwitchApi::HitBitReadInfo& info, U32 bit,
                                             NerioSwitchApi::HwIndex firstIndex, U32 rows, U32 firstRead = 0);

/**
 * Says how the hit bits of a processor's hash tables are read. `prefix` is the table's register prefix, with
 * its slash; `tableSize` the rows per hash table; `hitBitOffset` the bit position of the table in the data.
 * One read covers two neighbouring rows of every hash table. The hash tables stand 9 bits apart.
 */
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<NerioSwitchApi::HitBitReadInfoWrapper> getHitBitMapping(
    Belmo::String const& prefix, U32 tableSize, U32 numHashTables, U32 hitBitOffset);

}  // namespace NerioSwitchTable
