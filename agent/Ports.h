#pragma once

#include <bit>
#include <compare>

#include "NerioSwitch/Indexes.h"
#include "Sorn/CharRange.h"
#include "Sorn/Hash.h"

namespace Agent {

/** A set of chip ports, 0 to 52, in the words of an operator: "0-15,40". */
class Ports {
public:
    constexpr Ports() = default;
    /** Bit `p` of the mask is port `p`; bits that are no port's are left out. */
    constexpr explicit Ports(U64 mask) : mask_(mask & all) {}

    constexpr U64 mask() const { return mask_; }
    constexpr bool empty() const { return mask_ == 0; }
    constexpr bool has(NerioSwitch::ChipPortId port) const { return (mask_ & bit(port)) != 0; }
    /** In rising order. */
    template <class Visit>
    void forEach(Visit const& visit) const {
        for (U64 rest = mask_; rest != 0; rest &= rest - 1)
            visit(NerioSwitch::ChipPortId(std::countr_zero(rest)));
    }

    Ports& add(NerioSwitch::ChipPortId port) {
        mask_ |= bit(port);
        return *this;
    }

    friend constexpr bool operator==(Ports, Ports) = default;
    friend constexpr auto operator<=>(Ports, Ports) = default;  // NOLINT
    constexpr U32 hash(U32 seed) const { return Sorn::hashOf(mask_, seed); }

    /** "0-15,40"; nothing for no port. */
    Belmo::String text() const;
    /** The same with or without blanks behind the commas, in any order. */
    static Ports fromText(Sorn::CharRange& range);

private:
    static constexpr U64 all = (U64{1} << NerioSwitch::ChipPortId::null) - 1;
    static constexpr U64 bit(NerioSwitch::ChipPortId port) { return (U64{1} << port.value()) & all; }

    U64 mask_ = 0;
};

}  // namespace Agent
