#pragma once

#include "Belmo/RangedIndex.h"

namespace Bridging {

struct VlanIdTraits {
    using Representation = U16;
    static constexpr Representation first = 1;
    static constexpr Representation last = 4094;
    static constexpr Representation initial = 1;
    static constexpr char const* rangeText = "Bridging::VlanId::value < 1 or > 4094 not allowed";
};

/** VLAN number of IEEE 802.1Q, 1 to 4094. */
using VlanId = Belmo::RangedIndex<VlanIdTraits>;

struct VlanIdOrNoneTraits {
    using Representation = U16;
    static constexpr Representation none = 0;
    static constexpr Representation first = 0;
    static constexpr Representation last = 4094;
    static constexpr Representation initial = 1;
    static constexpr char const* rangeText = "Bridging::VlanIdOrNone::value > 4094 not allowed";
};

/** VLAN number, or 0 for none. */
using VlanIdOrNone = Belmo::RangedIndex<VlanIdOrNoneTraits>;

}  // namespace Bridging
