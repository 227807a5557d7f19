#pragma once

#include <limits>

#include "Belmo/RangedIndex.h"

namespace NerioSwitch {

struct VlanGroupIdTraits {
    using Representation = U16;
    static constexpr Representation min = 0;
    static constexpr Representation null = 17;
    static constexpr Representation first = min;
    static constexpr Representation last = null;
    static constexpr Representation initial = null;
    static constexpr char const* rangeText =
        "NerioSwitch::VlanGroupId::value < NerioSwitch::VlanGroupId::min or > "
        "NerioSwitch::VlanGroupId::null not allowed";
};

/** Number of a group of VLANs that a multicast packet leaves a port in; 17 is none. */
using VlanGroupId = Belmo::RangedIndex<VlanGroupIdTraits>;

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
