#pragma once

#include "Belmo/RangedIndex.h"

namespace NerioSwitch {

/** Number of a next hop that packets are flooded to, 0 to 159; 160 is none. */
BELMO_INDEX(NerioSwitch, L3FloodId, U8, min, 0, null, 160, null);

}  // namespace NerioSwitch
