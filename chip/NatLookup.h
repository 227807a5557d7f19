#pragma once

#include <optional>
#include <span>

#include "Belmo/Export.h"
#include "Belmo/Types.h"
#include "NerioSwitch/ProfileInfo.h"

#include "chip/HashPlace.h"
#include "chip/Ipv4Packet.h"
#include "chip/SimulatedChip.h"

/* Address translation as the chip does it, in nothing but what registers wrote. Addresses and ports are in
 * host order. A row of wrong parity is passed over, and so is one that is not valid. */
namespace Chip {

/** What a static match asks for: one side of a packet. Of the profile the low 6 bits take part. */
struct NatSide {
    bool destination = false;
    U32 address = 0;
    /** Without one, translations of the whole address are meant. */
    std::optional<U16> port{};
    /** The other side's prefix that a translation is for; its address without the bits beyond its length. */
    struct Filter {
        U32 address = 0;
        U8 length = 0;

        friend bool operator==(Filter const&, Filter const&) = default;
    };
    std::optional<Filter> filter{};
    U16 profile = 0;
};

/** What a dynamic match asks for: both sides of a packet. */
struct NatFlow {
    U32 sourceAddress = 0;
    U16 sourcePort = 0;
    U32 destinationAddress = 0;
    U16 destinationPort = 0;
    U16 profile = 0;
};

struct NatMatchHit {
    HashPlace place;
    /** The row is one of the table of dynamic matches. */
    bool dynamic = false;
    /** The destination is to be translated, not the source. */
    bool destination = false;
    /** The translation is one of a port, not of the whole address. */
    bool withPort = false;
    /** The other side's prefix that it is for. */
    std::optional<NatSide::Filter> filter{};
    /** Transport protocols that the translation is for: bit 0 TCP, bit 1 UDP. */
    U8 protocols = 0;
    U32 session = 0;
    bool useAcl = false;
    bool trapToCpu = false;
    U8 rewriteIndex = 0;
    U8 l3Lag = 0;

    friend bool operator==(NatMatchHit const&, NatMatchHit const&) = default;
};

/** The matches of a pipeline's layer 4 processor. Of several ways that match, the first one is taken. */
class BELMO_EXPORT NatMatchLookup {
public:
    /** Refers to the chip, which must be that of the profile. Throws `Belmo::RangeException` for a pipeline
     * that the chip does not have. */
    NatMatchLookup(SimulatedChip& chip, NerioSwitch::ProfileInfo const& profile, U32 pipeline);

    /** What a side hits. Throws `Belmo::RangeException` for a filter longer than 32 bits. */
    std::optional<NatMatchHit> find(NatSide const& side) const;
    std::optional<NatMatchHit> find(NatFlow const& flow) const;
    /**
     * What a packet hits: a dynamic match before static ones, the source before the destination, one with a
     * port before one of the whole address, the longest filter before shorter ones and none. A packet tells
     * no filter's length, so each is tried. `protocol` is the packet's bit of `NatMatchHit::protocols`, or 0:
     * a match that names protocols and not this one does not count, nor does one with a port if it is 0.
     */
    std::optional<NatMatchHit> find(NatFlow const& packet, U8 protocol) const;
    /** The same of a packet's headers that came by an interface of that profile. */
    std::optional<NatMatchHit> find(Ipv4Headers const& packet, U16 profile) const;
    /** The row that was found gets its hit bit. */
    void hitIs(NatMatchHit const& hit);
    /** The rows of dynamic matches, or of the others. */
    IndirectMemory const& memory(bool dynamic) const { return dynamic ? *dynamic_ : *static_; }

private:
    std::optional<NatMatchHit> findSide(NatSide side, U32 other, U8 protocol) const;

    IndirectMemory* static_;
    IndirectMemory* dynamic_;
    bool withMasks_;
};

/** What the egress rewrite asks for: a session and who it leaves by. */
struct NatEgress {
    U32 session = 0;
    bool oddPort = false;
    /** For a unicast packet. */
    U8 profile = 0;
    bool secondTnat = false;
    /** For a copy of a multicast packet instead of the former two. */
    struct Copy {
        U8 vlanGroup = 0;
        U8 member = 0;
    };
    std::optional<Copy> copy{};
};

struct NatRewriteHit {
    HashPlace place;
    U32 newAddress = 0;
    U16 newPort = 0;
    U16 checksumCorrection = 0;

    friend bool operator==(NatRewriteHit const&, NatRewriteHit const&) = default;
};

/** The rewrites of an egress processor. Rows do not tell unicast from multicast where all bits are equal. */
class BELMO_EXPORT NatRewriteLookup {
public:
    /** Refers to the chip. Throws `Belmo::RangeException` for a pipeline without an egress processor. */
    NatRewriteLookup(SimulatedChip& chip, U32 pipeline);

    std::optional<NatRewriteHit> find(NatEgress const& egress) const;
    IndirectMemory const& memory() const { return *memory_; }

private:
    IndirectMemory const* memory_;
};

/**
 * Puts a rewrite into an IPv4 packet: the new address and, for TCP and UDP and unless it is 0, the new port.
 * The header's checksum is brought in line, and the one of TCP or UDP by the correction, as RFC 1624 tells; a
 * UDP packet without a checksum keeps none. Fragments behind the first have no ports.
 */
BELMO_EXPORT void rewritePacket(std::span<U8> packet, bool destination, NatRewriteHit const& rewrite);

/**
 * A packet's way: from an ingress pipeline and its profile to an egress pipeline and its profile. True if it
 * was translated, and the row that it matched has its hit bit then; false if it is as it was, for want of a
 * match or a rewrite, or as the match traps it to the CPU. Throws `Belmo::RangeException` for what is no IPv4
 * packet.
 */
struct NatPath {
    U32 ingressPipeline = 0;
    U16 ingressProfile = 0;
    U32 egressPipeline = 0;
    U8 egressProfile = 0;
};
BELMO_EXPORT bool translatePacket(SimulatedChip& chip, NerioSwitch::ProfileInfo const& profile,
                                  NatPath const& path, std::span<U8> packet);

}  // namespace Chip
