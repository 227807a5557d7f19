#pragma once

#include "NerioSwitchApi/HwRegisters.h"

#include "NerioSwitchTable/Export.h"

namespace NerioSwitchTable {

/**
 * The registers of a row of an egress processor's memory: four lines, each of a data word and the control
 * word that stores it.
 */
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<NerioSwitchApi::HwAddressColl const> egressMemoryRegisters(
    U32 processor);

}  // namespace NerioSwitchTable
