#pragma once

#include <compare>
#include <concepts>
#include <limits>
#include <string>

#include "Belmo/RangedIndex.h"

/** The numbers that network address translation is made of. */
namespace NerioSwitch {

struct NatTypeTraits {
    using Representation = U8;
    static constexpr Representation sourceAddress = 0;
    static constexpr Representation sourcePort = 1;
    static constexpr Representation destinationAddress = 2;
    static constexpr Representation destinationPort = 3;
    static constexpr Representation dynamicSource = 6;
    static constexpr Representation dynamicSourcePort = 7;
    static constexpr Representation dynamicDestination = 8;
    static constexpr Representation first = 0;
    static constexpr Representation last = std::numeric_limits<Representation>::max();
    static constexpr Representation initial = sourceAddress;
    static constexpr char const* rangeText = "NerioSwitch::NatType::value > 255 not allowed";
};

/**
 * What a match looks at. Static ones look at the source, 0 and 1, or at the destination, 2 and 3; at the
 * address alone, 0 and 2, or at the port as well, 1 and 3. The dynamic ones, 6 to 8, look at all four.
 */
using NatType = Belmo::RangedIndex<NatTypeTraits>;

struct NatL4ProtoTraits {
    using Representation = U8;
    static constexpr Representation none = 0;
    static constexpr Representation tcp = 1;
    static constexpr Representation udp = 2;
    static constexpr Representation tcpAndUdp = 3;
    static constexpr Representation first = none;
    static constexpr Representation last = std::numeric_limits<Representation>::max();
    static constexpr Representation initial = none;
    static constexpr char const* rangeText = "NerioSwitch::NatL4Proto::value > 255 not allowed";
};

/** A set of transport protocols, a bit each. There are two; rows hold none for a number above 3. */
using NatL4Proto = Belmo::RangedIndex<NatL4ProtoTraits>;

/** What a match tells the rewrite of a packet, 17 bits; 0x20000 is none, and 0 to hardware. */
BELMO_INDEX(NerioSwitch, NatSessionId, U32, min, 0, null, 0x20000, null);

/** Number of the set of interfaces that a translation belongs to, 6 bits; 64 is none. */
BELMO_INDEX(NerioSwitch, NatProfileId, U16, reserved, 0, null, 64, reserved);

struct RewriteIndexTraits {
    using Representation = U8;
    static constexpr Representation first = 0;
    static constexpr Representation last = std::numeric_limits<Representation>::max();
    static constexpr Representation initial = 0;
    static constexpr char const* rangeText = "NerioSwitch::RewriteIndex::value > 255 not allowed";
};

/**
 * Which rewrite of the next hop a result asks for: a kind, of which NAT rows hold nothing, and a number, of
 * which they hold 6 bits. The text form is the number, behind its kind and a colon for a kind other than 0.
 */
class RewriteIndex : public RewriteIndexTraits {
public:
    constexpr RewriteIndex() = default;
    template <std::integral Number>
    constexpr RewriteIndex(Number number)  // NOLINT: an index is its number
        : value_(Belmo::RangedIndex<RewriteIndexTraits>(number).value()) {}

    constexpr U8 kind() const { return kind_; }
    constexpr RewriteIndex& kindIs(U8 kind) {
        kind_ = kind;
        return *this;
    }
    constexpr U8 value() const { return value_; }

    friend constexpr bool operator==(RewriteIndex left, RewriteIndex right) {
        return left.number() == right.number();
    }
    friend constexpr auto operator<=>(RewriteIndex left, RewriteIndex right) {
        return left.number() <=> right.number();
    }
    constexpr U32 hash(U32 seed) const { return Sorn::hashOf(number(), seed); }
    Belmo::String text() const {
        return (kind_ == 0 ? Belmo::String() : std::to_string(kind_) + ":") + std::to_string(value_);
    }
    static RewriteIndex fromText(Sorn::CharRange& range) {
        RewriteIndex const index(range.takeNumber());
        if (!range.take(":")) return index;
        return RewriteIndex(range.takeNumber()).kindIs(index.value());
    }

private:
    constexpr U32 number() const { return U32{kind_} << 8 | value_; }

    U8 kind_ = 0;
    U8 value_ = 0;
};

}  // namespace NerioSwitch
