#pragma once

#include "Belmo/RangedIndex.h"

/** Small range-checked index types that several tables share. */
namespace NerioSwitch {

struct ChipPortIdTraits {
    using Representation = U16;
    static constexpr Representation min = 0;
    static constexpr Representation null = 53;
    static constexpr Representation first = min;
    static constexpr Representation last = null;
    static constexpr Representation initial = null;
    static constexpr char const* rangeText =
        "NerioSwitch::ChipPortId::value < NerioSwitch::ChipPortId::min or > NerioSwitch::ChipPortId::null "
        "not allowed";
};

/** Chip-wide port number, 0 to 52; 53 is no port. */
using ChipPortId = Belmo::RangedIndex<ChipPortIdTraits>;

struct PipeIdTraits {
    using Representation = U8;
    static constexpr Representation min = 0;
    static constexpr Representation null = 17;
    static constexpr Representation first = min;
    static constexpr Representation last = null;
    static constexpr Representation initial = null;
    static constexpr char const* rangeText =
        "NerioSwitch::PipeId::value < NerioSwitch::PipeId::min or > NerioSwitch::PipeId::null not allowed";
};

/** Number of a forwarding pipeline, 0 to 16; 17 is none. */
using PipeId = Belmo::RangedIndex<PipeIdTraits>;

struct L3LagIndexTraits {
    using Representation = U16;
    static constexpr Representation min = 0;
    static constexpr Representation mcastSnat = 63;
    static constexpr Representation first = min;
    static constexpr Representation last = mcastSnat;
    static constexpr Representation initial = min;
    static constexpr char const* rangeText =
        "NerioSwitch::L3LagIndex::value < NerioSwitch::L3LagIndex::min or > "
        "NerioSwitch::L3LagIndex::mcastSnat not allowed";
};

/** Number of a set of ports that routes send packets to, 0 to 63. */
using L3LagIndex = Belmo::RangedIndex<L3LagIndexTraits>;

}  // namespace NerioSwitch
