#pragma once

#include <optional>
#include <vector>

#include "Belmo/Export.h"
#include "Belmo/Types.h"
#include "NerioSwitch/ProfileInfo.h"

#include "chip/AclLookup.h"
#include "chip/Ipv4Packet.h"
#include "chip/SimulatedChip.h"

/*
 * What the ACL processors make of a packet: its protocol goes into keys by a number of its own, rules are
 * looked up for all that the packet is of, and a rule may hold for ports of a range alone.
 */
namespace Chip {

/** The numbers that ACL keys have for IP protocols. */
class BELMO_EXPORT ProtocolLookup {
public:
    /** Refers to the chip, which must be that of the profile. */
    ProtocolLookup(SimulatedChip const& chip, NerioSwitch::ProfileInfo const& profile);

    /**
     * The number, at most 15; 0 where there is none, or the row has wrong parity. Throws
     * `Belmo::RangeException` for a pipeline without ACLs.
     */
    U8 numberOf(U8 ipProtocol, U32 pipeline) const;
    /** Its rows, by IP protocol. Throws likewise. */
    IndirectMemory const& memory(U32 pipeline) const;

private:
    /** By pipeline. */
    std::vector<IndirectMemory const*> memories_;
};

/** Ranges of an ACL, a bit each by its number: 0, 1, 4 and 5 have two ends, the others one. */
struct PortRangeBits {
    /** Those that hold a port. */
    U8 holding = 0;
    /** Those that carry the flag of their row. */
    U8 flagged = 0;

    friend bool operator==(PortRangeBits, PortRangeBits) = default;
};

/**
 * The L4 port ranges of ACLs, two rows for each. A range with two ends of 0 is none, and so is all in a row
 * of wrong parity.
 */
class BELMO_EXPORT PortRangeLookup {
public:
    /** Refers to the chip, which must be that of the profile; below hardware API version 4 it has no ranges.
     */
    PortRangeLookup(SimulatedChip const& chip, NerioSwitch::ProfileInfo const& profile);

    /** Throws `Belmo::RangeException` for an ACL above 15 and for a pipeline without ACLs. */
    PortRangeBits rangesOf(U8 aclId, U16 port, U32 pipeline) const;
    /** Its rows; none where the chip has no ranges. Throws for a pipeline without ACLs. */
    IndirectMemory const* memory(U32 pipeline) const;
    /** The row of an ACL's range. */
    static U32 rowOf(U8 aclId, U8 range) { return 2u * aclId + range / 4u; }

private:
    /** By pipeline; null where the chip has no ranges. */
    std::vector<IndirectMemory const*> memories_;
};

/** What an ACL takes of a packet beside its headers. */
struct AclContext {
    /** Without one, rules of VRFs alone are asked. */
    std::optional<U8> aclId{};
    /** The protocol as keys have it, at most 15; without one, what the chip has for the packet's. */
    std::optional<U8> protocol{};
    U8 vrf = 0;
    bool keyFlag = false;
};

/** A rule that a packet hits, and the lookup that found it. */
struct AclPacketHit {
    U8 combination = 0;
    AclFields fields;
    AclHit hit;
    /** The port that the rule's range was held against, if it names one and the packet has ports. */
    std::optional<U16> rangePort{};
    /** False for a rule whose range does not hold the packet's port: it is passed over. */
    bool holds = true;
};

/** A rule that decides for its chain. */
struct DecidingRule {
    bool secondChain = false;
    AclRule rule;

    friend bool operator==(DecidingRule const&, DecidingRule const&) = default;
};

/** The rules that packets get. It knows nothing but what registers wrote. */
class BELMO_EXPORT AclPacketLookup {
public:
    /** Refers to the chip, which must be that of the profile. Throws as `AclLookup` does. */
    AclPacketLookup(SimulatedChip const& chip, NerioSwitch::ProfileInfo const& profile);

    /**
     * All rules that a packet hits in its pipeline. First addresses are sources, second ones destinations. Of
     * a combination below 15 the low two bits tell what takes part beside them: 0 the protocol, 1 and 2 the
     * destination's or the source's port as well, 3 none. A packet tells no lengths, so each is tried, the
     * longest first; keys that tell none are of whole addresses. A rule's range is held against the port that
     * the combination looks at, the destination's where it looks at none. Throws as `AclLookup::find` does.
     */
    std::vector<AclPacketHit> rulesOf(Ipv4Headers const& packet, AclContext const& context,
                                      U32 pipeline) const;
    /** The packet's protocol as keys have it. Throws for a pipeline without ACLs. */
    U8 protocolOf(Ipv4Headers const& packet, AclContext const& context, U32 pipeline) const;

    AclLookup const& rules() const { return rules_; }
    ProtocolLookup const& protocols() const { return protocols_; }
    PortRangeLookup const& ranges() const { return ranges_; }

private:
    void holdAgainstRange(AclPacketHit& found, Ipv4Headers const& packet, U32 pipeline) const;

    AclLookup rules_;
    ProtocolLookup protocols_;
    PortRangeLookup ranges_;
};

/** Of each chain the rule that counts: of those that hold the one of the lowest priority number, the first of
 * equal ones. */
BELMO_EXPORT std::vector<DecidingRule> decidingRules(std::vector<AclPacketHit> const& hits);

/** The fields that take part in a combination's key. */
struct AclCombination {
    bool vrf = false;
    bool first = false;
    bool second = false;
    bool protocol = false;
    bool sourcePort = false;
    bool destinationPort = false;
};
/** Those of combination 0 to 17. */
BELMO_EXPORT AclCombination fieldsOf(U8 combination);

}  // namespace Chip
