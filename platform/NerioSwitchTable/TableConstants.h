#pragma once

#include "Belmo/Export.h"
#include "Belmo/Types.h"

namespace NerioSwitchTable {

/** Number of a logical table in the system. */
using TableIndex = U8;

/** Turns a number into a table index; one that fits no byte throws `Belmo::RangeException`. */
BELMO_EXPORT TableIndex TableIndexInstance(U32 number);

/** Names of the logical tables. A number without a name of its own is "table" and the number. */
class BELMO_EXPORT TableConstants {
public:
    /** The name in hardware table names. */
    static Belmo::String tableName(TableIndex index);
    /** The name for people, as commands and gauges show it. */
    static Belmo::String cliName(TableIndex index);
};

}  // namespace NerioSwitchTable
