#pragma once

#include "Belmo/Types.h"
#include "NerioSwitch/ProfileInfo.h"

#include "NerioSwitchTable/Export.h"

/** Register prefixes that depend on the chip's generation and geometry; each ends in a slash. */
namespace NerioSwitchTable {

/** Prefix of copy `copy` of the VLAN family; the copy behind the last table is the CPU pipeline's. */
NERIO_SWITCH_TABLE_EXPORT Belmo::String vlanRegPrefix(NerioSwitch::ProfileInfo const& profile, U32 copy);

/** Prefix of a flood set copy, numbered in the same way. It moved with the register interface's version. */
NERIO_SWITCH_TABLE_EXPORT Belmo::String floodSetRegPrefix(NerioSwitch::ProfileInfo const& profile, U32 copy);

/** Prefix of copy `copy` of the layer-2 family on the ingress side. */
NERIO_SWITCH_TABLE_EXPORT Belmo::String l2RegPrefix(NerioSwitch::ProfileInfo const& profile, U32 copy);

/** The same of the MAC/VLAN table, whose copy behind the last table is the CPU pipeline's. */
NERIO_SWITCH_TABLE_EXPORT Belmo::String macVlanRegPrefix(NerioSwitch::ProfileInfo const& profile, U32 copy);

}  // namespace NerioSwitchTable
