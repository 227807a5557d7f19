#pragma once

#include <optional>
#include <vector>

#include "Belmo/Export.h"
#include "Belmo/Types.h"
#include "NerioSwitch/ProfileInfo.h"

#include "chip/AclLookup.h"
#include "chip/SimulatedChip.h"

/*
 * What the ACL processors make of a packet before and behind their lookup of rules: the protocol goes into
 * the key by a number of its own, and a rule may hold for ports of a range alone.
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

private:
    /** By pipeline; null where the chip has no ranges. */
    std::vector<IndirectMemory const*> memories_;
};

/** What ACL rules look at in a packet: `fields` as they are, but for the protocol and the port. */
struct AclPacket {
    AclFields fields;
    U8 ipProtocol = 0;
    U16 port = 0;
};

/** The rules that packets get. It knows nothing but what registers wrote. */
class BELMO_EXPORT AclProcessor {
public:
    /** Refers to the chip, which must be that of the profile. Throws as `AclLookup` does. */
    AclProcessor(SimulatedChip const& chip, NerioSwitch::ProfileInfo const& profile);

    /**
     * What a packet hits under a combination of fields: of the rules for its port and for any port the one of
     * higher priority, a rule with a range only if the range holds the packet's port. Throws as
     * `AclLookup::find` does.
     */
    std::optional<AclHit> find(AclPacket const& packet, U8 combination, U32 pipeline) const;

private:
    AclLookup rules_;
    ProtocolLookup protocols_;
    PortRangeLookup ranges_;
};

}  // namespace Chip
