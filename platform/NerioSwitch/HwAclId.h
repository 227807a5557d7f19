#pragma once

#include "Belmo/RangedIndex.h"

namespace NerioSwitch {

/** Number of an ACL in hardware, 0 to 15; 16 is none. */
BELMO_INDEX(NerioSwitch, HwAclId, U8, min, 0, invalid, 16, invalid);

}  // namespace NerioSwitch
