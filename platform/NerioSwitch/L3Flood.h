#pragma once

#include "Belmo/RangedIndex.h"

namespace NerioSwitch {

struct L3FloodIdTraits {
    using Representation = U8;
    static constexpr Representation min = 0;
    static constexpr Representation null = 160;
    static constexpr Representation first = min;
    static constexpr Representation last = null;
    static constexpr Representation initial = null;
    static constexpr char const* rangeText =
        "NerioSwitch::L3FloodId::value < NerioSwitch::L3FloodId::min or > NerioSwitch::L3FloodId::null "
        "not allowed";
};

/** Number of a next hop that packets are flooded to, 0 to 159; 160 is none. */
using L3FloodId = Belmo::RangedIndex<L3FloodIdTraits>;

}  // namespace NerioSwitch
