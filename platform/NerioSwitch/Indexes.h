#pragma once

#include <array>
#include <bit>
#include <limits>

#include "Belmo/RangedIndex.h"

/** Small range-checked index types that several tables share. */
namespace NerioSwitch {

/** Chip-wide port number, 0 to 52; 53 is no port. */
BELMO_INDEX(NerioSwitch, ChipPortId, U16, min, 0, null, 53, null);

/** Number of a forwarding pipeline, 0 to 16; 17 is none. */
BELMO_INDEX(NerioSwitch, PipeId, U8, min, 0, null, 17, null);

/** Number of a set of ports that routes send packets to, 0 to 63. */
BELMO_INDEX(NerioSwitch, L3LagIndex, U16, min, 0, mcastSnat, 63, min);

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
