#pragma once

#include <array>
#include <bit>
#include <limits>

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

struct NexthopIndexesTraits {
    using Representation = U32;
    static constexpr Representation null = 57;
    static constexpr Representation first = 0;
    static constexpr Representation last = std::numeric_limits<Representation>::max();
    static constexpr Representation initial = null;
    static constexpr char const* rangeText = "NerioSwitch::NexthopIndexes::value > 0xFFFFFFFF not allowed";
};

/**
 * A reference to a next hop; 57 is none. It may stand at any address in memory, as route tables hold millions
 * of them side by side with single bytes.
 */
class NexthopIndexes : public NexthopIndexesTraits {
public:
    constexpr NexthopIndexes() : NexthopIndexes(initial) {}
    template <std::integral Number>
    constexpr NexthopIndexes(Number number)  // NOLINT: an index is its number
        : bytes_(std::bit_cast<Bytes>(Belmo::RangedIndex<NexthopIndexesTraits>(number).value())) {}

    constexpr U32 value() const { return std::bit_cast<U32>(bytes_); }
    /** It names a next hop. */
    constexpr bool valid() const { return value() != null; }

    friend constexpr bool operator==(NexthopIndexes left, NexthopIndexes right) {
        return left.value() == right.value();
    }
    friend constexpr auto operator<=>(NexthopIndexes left, NexthopIndexes right) {
        return left.value() <=> right.value();
    }
    constexpr U32 hash(U32 seed) const { return Sorn::hashOf(value(), seed); }
    Belmo::String text() const { return std::to_string(value()); }
    static NexthopIndexes fromText(Sorn::CharRange& range) { return NexthopIndexes(range.takeNumber()); }

private:
    using Bytes = std::array<U8, sizeof(U32)>;

    Bytes bytes_;
};

}  // namespace NerioSwitch
