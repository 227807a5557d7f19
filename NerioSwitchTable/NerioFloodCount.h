#pragma once

#include "NerioSwitch/ProfileInfo.h"

#include "NerioSwitchTable/Export.h"

namespace NerioSwitchTable {

/** How many next hops of flooded packets the chip supports; nothing that the profile does not say. */
NERIO_SWITCH_TABLE_EXPORT U32 const* numFloodNexthops(NerioSwitch::ProfileInfo const& profile);

}  // namespace NerioSwitchTable
