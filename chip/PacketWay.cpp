#include "chip/PacketWay.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <utility>

#include "Belmo/Exceptions.h"

#include "chip/PacketStages.h"

namespace Chip {

namespace {

constexpr std::array stages{
    NamedStage{"ingress port", ingressPortStage},
    NamedStage{"receive mirror", receiveMirrorStage},
    NamedStage{"storm control", stormControlStage},
    NamedStage{"native VLAN", nativeVlanStage},
    NamedStage{"VLAN", vlanStage},
    NamedStage{"ACL", aclStage},
    NamedStage{"MAC address", macAddressStage},
    NamedStage{"NAT match", natMatchStage},
    NamedStage{"flow", flowStage},
    NamedStage{"multicast route", multicastRouteStage},
    NamedStage{"flooding", floodingStage},
    NamedStage{"route", routeStage},
    NamedStage{"L3 LAG", l3LagStage},
    NamedStage{"LAG member", lagMemberStage},
    NamedStage{"VLAN group", vlanGroupStage},
    NamedStage{"egress port", egressPortStage},
    NamedStage{"NAT rewrite", natRewriteStage},
};

/** More have no place in one word with the CPU. */
constexpr U32 mostPorts = 62;

void check(NerioSwitch::ProfileInfo const& profile, ArrivingPacket const& packet) {
    auto const within = [](char const* what, U32 value, U32 end) {
        if (value >= end) throw Belmo::RangeException(fmt::format("packet: there is no {} {}", what, value));
    };
    if (profile.numPorts > mostPorts) {
        throw Belmo::RangeException(
            fmt::format("packet: a chip of {} ports has masks of unknown form", profile.numPorts));
    }
    within("port", packet.port, profile.numPorts);
    within("port", packet.egressPort.value_or(0), profile.numPorts);
    within("VLAN", packet.vlan.value_or(0), 4096);
    within("VRF", packet.vrf.value_or(0), profile.numVrfs);
    within("ACL", packet.aclId.value_or(0), 16);
    within("ACL protocol", packet.aclProtocol.value_or(0), 16);
    within("NAT profile", packet.natProfile.value_or(0), 64);
    within("NAT profile", packet.egressNatProfile.value_or(0), 64);
    within("flood next hop", packet.floodNexthop, 160);
}

/** What became of a packet that no stage ended. */
PacketFate fateOf(PacketOnItsWay const& way) {
    if (way.copies.empty()) return PacketFate::dropped;
    bool const onlyCpu =
        std::ranges::all_of(way.copies, [&](PacketCopy const& copy) { return way.isCpu(copy.port); });
    return onlyCpu ? PacketFate::toCpu : PacketFate::forwarded;
}

}  // namespace

std::span<NamedStage const> packetStages() {
    return stages;
}

PacketWay packetWay(SimulatedChip& chip, NerioSwitch::ProfileInfo const& profile,
                    ArrivingPacket const& packet) {
    check(profile, packet);
    PacketOnItsWay onItsWay{.chip = chip,
                            .profile = profile,
                            .packet = packet,
                            .headers = headersOf(packet.bytes),
                            .pipe = profile.portToIngressPipeId(packet.port),
                            .vlan = packet.vlan.value_or(1),
                            .vrf = packet.vrf.value_or(0),
                            .aclId = packet.aclId,
                            .natProfile = packet.natProfile.value_or(0)};
    PacketWay way;
    for (auto const& [name, run] : packetStages()) {
        PacketStage stage{.name = name, .decision = {}, .lookups = {}};
        try {
            if (!run(onItsWay, stage)) continue;
        } catch (Belmo::RangeException const& failure) {
            // The chip lacks what the stage looks at.
            stage.decision = fmt::format("passed over: {}", failure.what());
        }
        way.stages.push_back(std::move(stage));
        if (onItsWay.fate) break;
    }
    way.fate = onItsWay.fate ? *onItsWay.fate : fateOf(onItsWay);
    if (way.fate != PacketFate::dropped) way.copies = std::move(onItsWay.copies);
    way.vlan = onItsWay.vlan;
    way.vrf = onItsWay.vrf;
    way.mirrored = std::move(onItsWay.mirrored);
    way.route = onItsWay.route;
    return way;
}

U32 PacketOnItsWay::l3Processor() const {
    return profile.pipeToProcessorId(pipe, NerioSwitch::TableLayoutEnum::tableLayoutL3);
}

NerioSwitch::PipeInfo PacketOnItsWay::egressOf(U32 port) const {
    auto const found = profile.portIdToEgressPipe.find(port);
    return found == profile.portIdToEgressPipe.end() ? NerioSwitch::PipeInfo() : found->second;
}

void PacketOnItsWay::copiesAre(U64 ports) {
    copies.clear();
    for (U64 const port : portsOf(ports, profile.numPorts))
        copies.push_back({.port = static_cast<U32>(port), .bytes = packet.bytes});
}

ChipLookup missed(IndirectMemory const& memory, NamedValues key) {
    return {.memory = memory.description().name, .key = std::move(key)};
}

ChipLookup answered(IndirectMemory const& memory, HashPlace place, NamedValues key, NamedValues result) {
    ChipLookup lookup{.memory = memory.description().name,
                      .row = place.row,
                      .key = std::move(key),
                      .result = std::move(result)};
    if (memory.description().ways > 1) lookup.way = place.way;
    return lookup;
}

NamedValue named(char const* name, U64 value) {
    return {name, value};
}

NamedValue flagged(char const* name, bool value) {
    return {name, value};
}

NamedValue addressed(char const* name, U32 address) {
    return {name, addressText(address)};
}

Belmo::String addressText(U32 address) {
    return Lanvo::IpAddr::fromHostOrder(address).text();
}

Belmo::String prefixText(U32 address, U32 length) {
    return fmt::format("{}/{}", addressText(address), length);
}

Belmo::String endText(Ipv4Headers const& headers, bool destination) {
    auto address = addressText(destination ? headers.destination : headers.source);
    if (!headers.transport) return address;
    auto const& ports = *headers.transport;
    return fmt::format("{}:{}", address, destination ? ports.destinationPort : ports.sourcePort);
}

std::vector<U64> portsOf(U64 mask, U32 numPorts) {
    std::vector<U64> ports;
    for (U32 port = 0; port <= numPorts; ++port) {
        if ((mask >> port & 1) != 0) ports.push_back(port);
    }
    return ports;
}

NamedValue portsNamed(U64 mask, PacketOnItsWay const& way) {
    return {"ports", portsOf(mask, way.profile.numPorts)};
}

Belmo::String portsText(U64 mask, U32 numPorts) {
    auto ports = portsOf(mask, numPorts);
    if (ports.empty()) return "no port";
    bool const cpu = ports.back() == numPorts;
    if (cpu) ports.pop_back();
    if (ports.empty()) return "the CPU";
    return fmt::format("{} {}{}", ports.size() == 1 ? "port" : "ports", fmt::join(ports, ", "),
                       cpu ? " and the CPU" : "");
}

}  // namespace Chip
