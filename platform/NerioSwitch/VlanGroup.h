#pragma once

#include <limits>

#include "Belmo/RangedIndex.h"

namespace NerioSwitch {

/** Number of a group of VLANs that a multicast packet leaves a port in; 17 is none. */
BELMO_INDEX(NerioSwitch, VlanGroupId, U16, min, 0, null, 17, null);

struct GroupVlanIndexTraits {
    using Representation = U8;
    static constexpr Representation first = 0;
    static constexpr Representation last = std::numeric_limits<Representation>::max();
    static constexpr Representation initial = 0;
    static constexpr char const* rangeText = "NerioSwitch::GroupVlanIndex::value > 255 not allowed";
};

/** Which VLAN of a group. */
using GroupVlanIndex = Belmo::RangedIndex<GroupVlanIndexTraits>;

}  // namespace NerioSwitch
