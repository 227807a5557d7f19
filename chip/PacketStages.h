#pragma once

#include <span>
#include <vector>

#include "chip/HashPlace.h"
#include "chip/Ipv4Packet.h"
#include "chip/Layer2Lookup.h"
#include "chip/PacketWay.h"

/* The stages that a packet comes through, a function each. Inner to the chip. */
namespace Chip {

/** The L3 LAG of results that name none. */
constexpr U8 noL3Lag = 57;

/** What is to be rewritten at the egress side. */
struct Translation {
    U32 session = 0;
    /** The sides that change: false the source, true the destination. */
    std::vector<bool> sides;
};

/** A packet on its way: what stages have found out for those behind them. */
struct PacketOnItsWay {
    SimulatedChip& chip;
    NerioSwitch::ProfileInfo const& profile;
    ArrivingPacket const& packet;
    Ipv4Headers headers;
    U32 pipe = 0;
    U16 vlan = 1;
    U8 vrf = 0;
    std::optional<U8> aclId{};
    U8 natProfile = 0;

    /** What its VLAN says, where VLANs are told of. */
    std::optional<VlanHit> vlanHit{};
    /** The VLAN's ACL denies what hits no rule. */
    bool aclDeniesRest = false;
    /** It stays in its VLAN: it is not routed. */
    bool bridged = false;
    std::vector<PacketCopy> mirrored{};
    std::optional<Translation> translation{};
    /** Where a unicast packet goes. */
    std::optional<U32> l3Lag{};
    /** In which VLANs a multicast packet leaves. */
    std::optional<U8> vlanGroup{};
    std::vector<PacketCopy> copies{};
    std::optional<LpmHit> route{};
    /** Set by the stage that ends the way. */
    std::optional<PacketFate> fate{};

    bool multicast() const { return headers.destination >> 28 == 14; }
    U8 egressNatProfile() const { return packet.egressNatProfile.value_or(natProfile); }
    U32 l3Processor() const;
    /** The egress pipe of a port, and its number there. */
    NerioSwitch::PipeInfo egressOf(U32 port) const;
    bool isCpu(U32 port) const { return port == profile.numPorts; }
    /** Makes a copy for each port of a mask in which the CPU stands behind the last port. */
    void copiesAre(U64 ports);
    void drop() { fate = PacketFate::dropped; }
};

/** Fills in what it looked up and decided; false if it has nothing to do with the packet. */
using StageFunction = bool (*)(PacketOnItsWay&, PacketStage&);

struct NamedStage {
    char const* name;
    StageFunction run;
};

/** All stages, in the order of the packet's way. A new one joins by a line there. */
std::span<NamedStage const> packetStages();

bool ingressPortStage(PacketOnItsWay& way, PacketStage& stage);
bool receiveMirrorStage(PacketOnItsWay& way, PacketStage& stage);
bool stormControlStage(PacketOnItsWay& way, PacketStage& stage);
bool nativeVlanStage(PacketOnItsWay& way, PacketStage& stage);
bool vlanStage(PacketOnItsWay& way, PacketStage& stage);
bool aclStage(PacketOnItsWay& way, PacketStage& stage);
bool macAddressStage(PacketOnItsWay& way, PacketStage& stage);
bool natMatchStage(PacketOnItsWay& way, PacketStage& stage);
bool flowStage(PacketOnItsWay& way, PacketStage& stage);
bool multicastRouteStage(PacketOnItsWay& way, PacketStage& stage);
bool floodingStage(PacketOnItsWay& way, PacketStage& stage);
bool routeStage(PacketOnItsWay& way, PacketStage& stage);
bool l3LagStage(PacketOnItsWay& way, PacketStage& stage);
bool lagMemberStage(PacketOnItsWay& way, PacketStage& stage);
bool vlanGroupStage(PacketOnItsWay& way, PacketStage& stage);
bool egressPortStage(PacketOnItsWay& way, PacketStage& stage);
bool natRewriteStage(PacketOnItsWay& way, PacketStage& stage);

/** A lookup in whose memory no row answered. */
ChipLookup missed(IndirectMemory const& memory, NamedValues key);
/** One that a row answered. */
ChipLookup answered(IndirectMemory const& memory, HashPlace place, NamedValues key, NamedValues result);

NamedValue named(char const* name, U64 value);
NamedValue flagged(char const* name, bool value);
NamedValue addressed(char const* name, U32 address);

Belmo::String addressText(U32 address);
Belmo::String prefixText(U32 address, U32 length);
/** An address, and its port behind a colon for a protocol with ports. */
Belmo::String endText(Ipv4Headers const& headers, bool destination);
/** The numbers of the ports in a mask, the CPU's behind the last port's. */
std::vector<U64> portsOf(U64 mask, U32 numPorts);
/** Those ports as a value of that name. */
NamedValue portsNamed(U64 mask, PacketOnItsWay const& way);
/** "port 4", "ports 4, 5 and the CPU", "no port". */
Belmo::String portsText(U64 mask, U32 numPorts);

}  // namespace Chip
