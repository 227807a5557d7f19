#pragma once

#include <array>
#include <optional>

#include "Belmo/Export.h"
#include "Belmo/Types.h"
#include "NerioSwitch/ProfileInfo.h"

#include "chip/BitRow.h"
#include "chip/SimulatedChip.h"

namespace Chip {

/** The tag that an untagged packet takes. */
struct VlanTag {
    U16 vlan = 0;
    bool dropEligible = false;
    U8 priority = 0;

    friend bool operator==(VlanTag const&, VlanTag const&) = default;
};

/** How addresses are learned at a port. */
struct Learning {
    bool isMlagPeer = false;
    bool learnOnly = false;
    bool learnDisabled = false;

    friend bool operator==(Learning const&, Learning const&) = default;
};

/** The ACL that a VLAN's packets meet. */
struct VlanAcl {
    U8 id = 0;
    U8 enable = 0;
    bool defaultPermit = false;

    friend bool operator==(VlanAcl const&, VlanAcl const&) = default;
};

/** What a packet meets that comes by a port in a VLAN. */
struct VlanHit {
    bool isMember = false;
    bool learnToCpu = false;
    bool unknownMulticastToCpu = false;
    bool multicastJoinToCpu = false;
    bool broadcastToCpu = false;
    bool unknownDaToCpu = false;
    bool multicastJoinToEgress = false;
    U8 vrf = 0;
    bool unicastRoute = false;
    bool multicastRoute = false;
    /** Of the packet's pipe; none in rows that have no ACL. */
    std::optional<VlanAcl> acl{};
    /** The NAT id or, on chips that have them, the NAT profile; none where NAT is not enabled. */
    std::optional<U8> nat{};

    friend bool operator==(VlanHit const&, VlanHit const&) = default;
};

/** The ports that a packet of unknown destination goes to; bit p is port p. */
struct FloodPorts {
    U64 unicast = 0;
    U64 multicast = 0;

    friend bool operator==(FloodPorts const&, FloodPorts const&) = default;
};

/** What is known of an address in a VLAN. */
struct MacHit {
    U32 row = 0;
    /** Bit p is port p. */
    U64 ports = 0;
    bool toCpu = false;
    bool joinToEgress = false;
    bool dataToCpu = false;
    bool joinToCpus = false;
    bool ipRoute = false;

    friend bool operator==(MacHit const&, MacHit const&) = default;
};

/**
 * What a packet meets in layer 2, by the port that it came by: its tag, its VLAN, the ports that it floods
 * to, and what is known of its destination. Each copy of a table serves its own ports, the last one the CPU's
 * port. It knows nothing but what registers wrote; a row of wrong parity is passed over.
 */
class BELMO_EXPORT Layer2Lookup {
public:
    /** Refers to chip and profile, which must be the chip's. */
    Layer2Lookup(SimulatedChip& chip, NerioSwitch::ProfileInfo const& profile);

    VlanTag nativeTag(U32 port) const;
    Learning learning(U32 port) const;
    /** Whether any port is a member of any VLAN in the copy of the VLAN table that serves a port. */
    bool hasVlans(U32 port) const;
    /** Nothing for a VLAN whose row is not valid; of 12 bits. */
    std::optional<VlanHit> vlan(U32 port, U16 vlan) const;
    std::optional<FloodPorts> flood(U32 port, U16 vlan) const;
    /** The first row that matches, of VLANs from 1 on; the address as one number, its last byte lowest. */
    std::optional<MacHit> address(U32 port, U16 vlan, U64 address) const;

    /** The rows that packets of a port meet: those of VLANs and flood sets by VLAN, and those of addresses.
     */
    IndirectMemory const& vlanRows(U32 port) const;
    IndirectMemory const& floodRows(U32 port) const;
    IndirectMemory const& addressRows(U32 port) const;

private:
    /** The ports of a copy of the VLAN tables, those of the ports between its pipes included. */
    struct Copy {
        U32 number = 0;
        U32 firstPort = 0;
        U32 ports = 1;
        bool isCpu = false;
    };
    Copy copyOf(U32 port, NerioSwitch::TableLayoutEnum layout) const;
    IndirectMemory const& memory(Copy const& copy, bool ownBlock, char const* block, char const* name) const;
    void readPipeFields(BitRow const& row, Copy const& copy, U32 port, U32 first, VlanHit& hit) const;
    bool isValid(BitRow const& row) const;
    U32 pipeWithin(Copy const& copy, U32 port) const;
    U32 portRegister(Belmo::String const& path) const;

    SimulatedChip& chip_;
    NerioSwitch::ProfileInfo const& profile_;
};

}  // namespace Chip
