#pragma once

#include <vector>

#include "chip/AclLookup.h"
#include "chip/Ipv4Packet.h"

namespace Chip {

/** What an ACL takes of a packet beside its headers. */
struct AclContext {
    /** Without one, rules of VRFs alone are asked. */
    std::optional<U8> aclId{};
    /** The protocol as keys have it. */
    U8 protocol = 0;
    U8 vrf = 0;
    bool keyFlag = false;
};

/** A rule that a packet hits, and the lookup that found it. */
struct AclPacketHit {
    U8 combination = 0;
    AclFields fields;
    AclHit hit;
};

/**
 * All rules that a packet hits in its pipeline. First addresses are sources, second ones destinations. Of a
 * combination below 15 the low two bits tell what takes part beside them: 0 the protocol, 1 and 2 the
 * destination's or the source's port as well, 3 none. A packet tells no lengths, so each is tried, the
 * longest first; keys that tell none are of whole addresses.
 */
BELMO_EXPORT std::vector<AclPacketHit> rulesOf(AclLookup const& lookup, Ipv4Headers const& packet,
                                               AclContext const& context, U32 pipeline);

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
