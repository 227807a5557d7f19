#include <fmt/format.h>
#include <utility>

#include "chip/Layer2Lookup.h"
#include "chip/PacketStages.h"

/* The stages of layer 2: a packet's VLAN, and the ports of its destination there. */
namespace Chip {

namespace {

U64 numberOf(Lanvo::EthAddr const& address) {
    U64 number = 0;
    for (U8 const byte : address.bytes())
        number = number << 8 | byte;
    return number;
}

constexpr U64 broadcastAddress = 0xFFFFFFFFFFFF;
bool isGroup(U64 address) {
    return (address >> 40 & 1) != 0;
}

ChipLookup rowLookup(IndirectMemory const& rows, U32 number, NamedValues key, NamedValues result) {
    U32 const perWay = rows.description().rowsPerWay;
    return answered(rows, {static_cast<U8>(number / perWay), number % perWay}, std::move(key),
                    std::move(result));
}

NamedValues resultOf(VlanHit const& hit) {
    NamedValues result{flagged("member", hit.isMember), named("VRF", hit.vrf),
                       flagged("unicast route", hit.unicastRoute),
                       flagged("multicast route", hit.multicastRoute)};
    if (hit.acl) {
        result.push_back(named("ACL", hit.acl->id));
        result.push_back(named("ACL enable", hit.acl->enable));
        result.push_back(flagged("default permit", hit.acl->defaultPermit));
    }
    if (hit.nat) result.push_back(named("NAT", *hit.nat));
    return result;
}

/** Takes what the packet came without from its VLAN; says what that is. */
Belmo::String takeFrom(VlanHit const& hit, PacketOnItsWay& way) {
    std::vector<Belmo::String> taken;
    if (!way.packet.vrf) {
        way.vrf = hit.vrf;
        taken.push_back(fmt::format("VRF {}", hit.vrf));
    }
    if (!way.packet.aclId && hit.acl && hit.acl->enable != 0) {
        way.aclId = hit.acl->id;
        way.aclDeniesRest = !hit.acl->defaultPermit;
        taken.push_back(fmt::format("ACL {}", hit.acl->id));
    }
    // Before version 7 of the VLAN registers rows have an id, which is no profile.
    if (!way.packet.natProfile && hit.nat && way.profile.vlanRegVer > 6) {
        way.natProfile = *hit.nat;
        taken.push_back(fmt::format("NAT profile {}", *hit.nat));
    }
    if (taken.empty()) return {};
    return fmt::format(", which gives it {}", fmt::join(taken, ", "));
}

/** Whether the VLAN sends packets to an unknown address of that kind to the CPU as well. */
bool unknownToCpu(PacketOnItsWay const& way, U64 address) {
    if (!way.vlanHit) return false;
    if (address == broadcastAddress) return way.vlanHit->broadcastToCpu;
    return isGroup(address) ? way.vlanHit->unknownMulticastToCpu : way.vlanHit->unknownDaToCpu;
}

/** The ports for an address that no row knows. */
U64 flood(PacketOnItsWay const& way, PacketStage& stage, Layer2Lookup const& lookup, U64 address) {
    auto const sets = lookup.flood(way.packet.port, way.vlan);
    auto const& rows = lookup.floodRows(way.packet.port);
    NamedValues key{named("VLAN", way.vlan),
                    {"traffic", Belmo::String(isGroup(address) ? "multicast" : "unicast")}};
    U64 ports = 0;
    if (sets) {
        ports = isGroup(address) ? sets->multicast : sets->unicast;
        stage.lookups.push_back(rowLookup(rows, way.vlan, std::move(key), {portsNamed(ports, way)}));
    } else {
        stage.lookups.push_back(missed(rows, std::move(key)));
    }
    if (unknownToCpu(way, address)) ports |= U64{1} << way.profile.numPorts;
    return ports;
}

NamedValues resultOf(MacHit const& hit, PacketOnItsWay const& way) {
    return {portsNamed(hit.ports, way), flagged("to CPU", hit.toCpu), flagged("IP route", hit.ipRoute)};
}

}  // namespace

bool nativeVlanStage(PacketOnItsWay& way, PacketStage& stage) {
    if (way.packet.vlan) return false;
    U32 const port = way.packet.port;
    auto const tag = Layer2Lookup(way.chip, way.profile).nativeTag(port);
    if (tag.vlan == 0) {
        stage.decision =
            fmt::format("passed over: port {} has no native VLAN; VLAN {} is taken", port, way.vlan);
        return true;
    }
    way.vlan = tag.vlan;
    auto const place = way.profile.ingressPipeOfPort(port);
    auto const path = way.profile.vlanRegVer > 1
                          ? fmt::format("egress/port[{}]/vlan_tci", port)
                          : fmt::format("pipeline[{}]/port[{}]/default_vlan", place.pipeId, place.pipePort);
    stage.lookups = {{.memory = path,
                      .key = {named("port", port)},
                      .result = NamedValues{named("VLAN", tag.vlan), named("priority", tag.priority),
                                            flagged("drop eligible", tag.dropEligible)}}};
    stage.decision = fmt::format("untagged, in VLAN {} of port {}", tag.vlan, port);
    return true;
}

bool vlanStage(PacketOnItsWay& way, PacketStage& stage) {
    U32 const port = way.packet.port;
    Layer2Lookup const lookup(way.chip, way.profile);
    if (!lookup.hasVlans(port)) {
        stage.decision = "passed over: no VLAN has a member";
        return true;
    }
    auto const hit = lookup.vlan(port, way.vlan);
    auto const& rows = lookup.vlanRows(port);
    NamedValues key{named("VLAN", way.vlan), named("port", port)};
    stage.lookups = {hit ? rowLookup(rows, way.vlan, std::move(key), resultOf(*hit))
                         : missed(rows, std::move(key))};
    if (!hit || !hit->isMember) {
        stage.decision = fmt::format("port {} is no member of VLAN {}", port, way.vlan);
        way.drop();
        return true;
    }
    way.vlanHit = hit;
    stage.decision = fmt::format("port {} is a member of VLAN {}{}", port, way.vlan, takeFrom(*hit, way));
    return true;
}

bool macAddressStage(PacketOnItsWay& way, PacketStage& stage) {
    if (!way.packet.ethAddr) return false;
    Layer2Lookup const lookup(way.chip, way.profile);
    U32 const port = way.packet.port;
    U64 const address = numberOf(*way.packet.ethAddr);
    auto const hit = lookup.address(port, way.vlan, address);
    NamedValues key{named("VLAN", way.vlan), {"address", way.packet.ethAddr->text()}};
    auto const& rows = lookup.addressRows(port);
    if (hit) {
        stage.lookups = {rowLookup(rows, hit->row, std::move(key), resultOf(*hit, way))};
        if (hit->ipRoute) {
            stage.decision = "the router's address";
            return true;
        }
    } else {
        stage.lookups = {missed(rows, std::move(key))};
    }
    way.bridged = true;
    U64 ports =
        hit ? hit->ports | U64{hit->toCpu} << way.profile.numPorts : flood(way, stage, lookup, address);
    // Nothing goes back to where it came from.
    ports &= ~(U64{1} << port);
    way.copiesAre(ports);
    stage.decision = fmt::format("{} leads to {}", hit ? "the address" : "unknown; flooding",
                                 portsText(ports, way.profile.numPorts));
    if (way.copies.empty()) way.drop();
    return true;
}

}  // namespace Chip
