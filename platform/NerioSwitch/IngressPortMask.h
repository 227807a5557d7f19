#pragma once

#include <compare>

#include "Belmo/Assert.h"
#include "Belmo/Exceptions.h"
#include "Belmo/Types.h"
#include "Sorn/CharRange.h"
#include "Sorn/Hash.h"

namespace NerioSwitch {

/**
 * Chip-wide port mask: bit `p` is chip port `p`, bit 52 is the CPU. In hardware the mask of a chip with `n`
 * ports has `n + 1` bits: the ports, and the CPU at bit `n`.
 */
class IngressPortMask {
public:
    static constexpr U64 cpu = U64{1} << 52;
    static constexpr U64 invalid = U64{1} << 53;
    static constexpr char const* rangeText =
        "NerioSwitch::IngressPortMask::value < 0 or > NerioSwitch::IngressPortMask::invalid not allowed";

    constexpr IngressPortMask() = default;
    constexpr IngressPortMask(U64 mask) : mask_(mask) {  // NOLINT: a mask is its bits
        if (mask > invalid) throw Belmo::RangeException(rangeText);
    }

    constexpr U64 value() const { return mask_; }
    constexpr bool hasCpu() const { return (mask_ & cpu) != 0; }

    /** The `numPorts + 1` bits that a chip of `numPorts` ports holds; ports beyond have no place there. */
    constexpr U64 hardwareBitmask(U32 numPorts) const {
        return (mask_ & portBits(numPorts)) | (hasCpu() ? U64{1} << numPorts : 0);
    }
    /** The mask that `numPorts + 1` hardware bits stand for. */
    static constexpr IngressPortMask ingressPortMaskFromHw(U64 bits, U32 numPorts) {
        return IngressPortMask((bits & portBits(numPorts)) | ((bits >> numPorts & 1) != 0 ? cpu : 0));
    }

    friend constexpr bool operator==(IngressPortMask, IngressPortMask) = default;
    friend constexpr auto operator<=>(IngressPortMask, IngressPortMask) = default;  // NOLINT
    constexpr U32 hash(U32 seed) const { return Sorn::hashOf(mask_, seed); }
    Belmo::String text() const { return std::to_string(mask_); }
    static IngressPortMask fromText(Sorn::CharRange& range) { return IngressPortMask(range.takeNumber()); }

private:
    static constexpr U64 portBits(U32 numPorts) {
        BELMO_ASSERT(numPorts < 64);
        return ((U64{1} << numPorts) - 1) & (cpu - 1);
    }

    U64 mask_ = 0;
};

}  // namespace NerioSwitch
