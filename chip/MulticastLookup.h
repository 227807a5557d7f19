#pragma once

#include <array>
#include <optional>
#include <vector>

#include "Belmo/Export.h"
#include "Belmo/Types.h"
#include "NerioSwitch/ProfileInfo.h"

#include "chip/HashPlace.h"
#include "chip/SimulatedChip.h"

namespace Chip {

/** The translation that a row of source and destination asks for; none on chips whose rows have no room. */
struct PairTranslation {
    /** 0 of the source, 1 of the destination, 2 of both. */
    U8 natType = 0;
    U32 natSession = 0;
    bool natEnabled = false;

    friend bool operator==(PairTranslation const&, PairTranslation const&) = default;
};

/** Where a multicast packet goes. */
struct MulticastHit {
    HashPlace place;
    /** A route of the packet's source, and not of any. */
    bool ofSource = false;
    /** Bit p is port p; the bit above the last port is the CPU. */
    U64 ports = 0;
    /** The group of VLANs in which it leaves each port, 0 to 15. */
    U8 vlanGroup = 0;
    PairTranslation translation{};

    friend bool operator==(MulticastHit const&, MulticastHit const&) = default;
};

/** What is done with a unicast flow's packets. */
struct FlowHit {
    HashPlace place;
    U8 lookupType = 0;
    U8 rewriteIndex = 0;
    U8 l3Lag = 0;
    PairTranslation translation{};

    friend bool operator==(FlowHit const&, FlowHit const&) = default;
};

/**
 * The lookup of an L3 processor by pairs of addresses, in host order: of multicast packets, by source and
 * group first, and else by the group alone, and of unicast flows. It knows nothing but what registers wrote.
 *
 * A row of wrong parity is passed over. Of several ways that match, as they do while an entry is being moved,
 * the first one is taken. What rows do not store of a key, the low bits of the destination, is told by the
 * row's number; the top four bits of a group are looked at nowhere.
 */
class BELMO_EXPORT MulticastLookup {
public:
    /** Refers to the chip, which must be that of the profile. Throws `Belmo::RangeException` for a processor
     * that it does not have. */
    MulticastLookup(SimulatedChip& chip, NerioSwitch::ProfileInfo const& profile, U32 processor = 0);

    /** Where a packet to that group would go that came in the VLAN, 0 to 4095. */
    std::optional<MulticastHit> find(U32 source, U32 group, U16 vlan) const;
    std::optional<MulticastHit> findSourceRoute(U32 source, U32 group, U16 vlan) const;
    std::optional<MulticastHit> findGroupRoute(U32 group, U16 vlan) const;
    /** What a flow's packet would meet that came by an interface of that profile, 0 to 63. Nothing on chips
     * without translation. */
    std::optional<FlowHit> findFlow(U32 source, U32 destination, U8 ingressProfile) const;
    /** The same as `find` for a packet that comes: the row that answers gets its hit bit. */
    std::optional<MulticastHit> packetIs(U32 source, U32 group, U16 vlan);
    /** And as `findFlow`. */
    std::optional<FlowHit> flowIs(U32 source, U32 destination, U8 ingressProfile);
    /** The rows of pairs, or those of groups alone. */
    IndirectMemory const& memory(bool ofSource) const { return ofSource ? *pairs_ : *groups_; }

private:
    struct RowFound {
        HashPlace place;
        std::array<U32, 5> words;
    };
    std::optional<RowFound> findPair(U32 source, U32 destination, U16 kind) const;
    PairTranslation translationOf(RowFound const& found) const;

    U32 ports_;
    bool translates_;
    bool hasSessions_;
    IndirectMemory* pairs_;
    IndirectMemory* groups_;
};

/** What an egress processor writes into a packet that is flooded to a next hop. */
struct FloodRewrite {
    /** Destination address, its first byte the highest of 48 bits. */
    U64 ethAddr = 0;
    U16 vlan = 0;

    friend bool operator==(FloodRewrite const&, FloodRewrite const&) = default;
};

/** What becomes of packets that are flooded to next hops. It knows nothing but what registers wrote. */
class BELMO_EXPORT FloodLookup {
public:
    /** Refers to the chip, which must be that of the profile. */
    FloodLookup(SimulatedChip const& chip, NerioSwitch::ProfileInfo const& profile);

    /** The ports of a next hop, 0 to 159; nothing if the row's parity is wrong. */
    std::optional<U64> ports(U32 nexthop, U32 processor = 0) const;
    /** The row of `egress/processor[]/lines` in which a port's rewrite begins. */
    static U32 rewriteRow(U32 nexthop, U32 pipePort);
    /** What is written for it at one of two ports of an egress processor; nothing if a line's parity is
     * wrong. */
    std::optional<FloodRewrite> rewrite(U32 nexthop, U32 egressProcessor, U32 pipePort) const;

private:
    SimulatedChip const& chip_;
    U32 ports_;
};

/** The walk over the VLANs of a group at an egress port. It knows nothing but what registers wrote. */
class BELMO_EXPORT VlanGroupWalk {
public:
    /**
     * Refers to the chip, which must be that of the profile. Throws `Belmo::RangeException` for a chip with
     * more than two ports in an egress pipe, of which it is not known where their groups are.
     */
    VlanGroupWalk(SimulatedChip const& chip, NerioSwitch::ProfileInfo const& profile);
    /** Whether it is known where the chip of that profile has its groups. */
    static bool knows(NerioSwitch::ProfileInfo const& profile);
    /** The row of `egress/processor[]/lines` in which a port's group begins. */
    static U32 groupRow(U32 pipePort, U8 group);

    /** The VLANs in which a packet for the group, 0 to 15, leaves the port. */
    std::vector<U16> vlans(U32 port, U8 group) const;

private:
    SimulatedChip const& chip_;
    NerioSwitch::PipeInfoMap ports_;
};

}  // namespace Chip
