#pragma once

#include <optional>

#include "Belmo/Export.h"
#include "Belmo/Types.h"
#include "NerioSwitch/ProfileInfo.h"

#include "chip/SimulatedChip.h"

namespace Chip {

/** The fields of a packet that can choose among the ports of a LAG, in host order; 0 where it lacks one. */
struct LagPacket {
    U16 vlan = 0;
    U8 protocol = 0;
    U32 source = 0;
    U32 destination = 0;
    U16 sourcePort = 0;
    U16 destinationPort = 0;
};

/**
 * Link aggregation as the chip does it, in nothing but what registers wrote: which ports are one LAG, and by
 * which of them a packet leaves. Masks of ports have port p at bit p.
 */
class BELMO_EXPORT LagLookup {
public:
    static constexpr U32 buckets = 32;

    /** Refers to both; the chip must be that of the profile. */
    LagLookup(SimulatedChip const& chip, NerioSwitch::ProfileInfo const& profile);

    /**
     * The LAG on which packets of a port are taken to come in. None where the port was said to have none, was
     * never said to have one, or has no select bit in the registers of its layer 2 table.
     */
    std::optional<U32> group(U32 port) const;
    /** The ports that form one LAG with a port: what comes in by one of them leaves by none of them. */
    U64 members(U32 port) const;
    /** The ports of a LAG, 0 to 62, for packets that the CPU sends. */
    U64 cpuMembers(U32 group) const;

    /**
     * A packet's hash bucket, of those fields that the port on which it comes in says, and of its seed. Each
     * seed spreads packets in its own way, so that switches behind one another do not choose alike. Throws
     * `Belmo::RangeException` for a port that the chip does not have.
     */
    U32 bucket(U32 ingressPort, LagPacket const& packet) const;
    /** The buckets whose packets a port takes that come in on another one, bit b for bucket b. */
    U32 bucketsOf(U32 ingressPort, U32 port) const;
    /** A row of a memory. */
    struct Row {
        IndirectMemory const& memory;
        U32 number;
    };
    /** Where these buckets stand. */
    Row bucketRow(U32 ingressPort, U32 port) const;
    /** The same for packets that the CPU sends. */
    U32 cpuBucketsOf(U32 port) const;

    /**
     * Of the ports that a packet is meant for, those by which it leaves: not the one it came in on nor others
     * of that one's LAG, and of ports with buckets those that have its bucket. A port without any bucket is
     * in no LAG and takes every packet.
     */
    U64 egressPorts(U32 ingressPort, U64 ports, LagPacket const& packet) const;
    /** The ports of a LAG by which the CPU's packets of a bucket, 0 to 31, leave. */
    U64 cpuEgressPorts(U32 group, U32 bucket) const;

private:
    /** Where a port has its rows in the layer 2 tables. */
    struct Place {
        Belmo::String prefix;
        U32 row;
    };
    std::optional<Place> placeOf(U32 port) const;
    Row bucketRowIn(Belmo::String const& pipeline, U32 port) const;

    SimulatedChip const& chip_;
    NerioSwitch::ProfileInfo const& profile_;
};

}  // namespace Chip
