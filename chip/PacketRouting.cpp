#include <array>
#include <fmt/format.h>
#include <utility>

#include "chip/L3LagLookup.h"
#include "chip/PacketStages.h"

/* The stages that find a unicast packet's destination. */
namespace Chip {

namespace {

/** A next hop has its L3 LAG in the low bits, and above them its rewrite. */
constexpr U16 l3LagBits = 6;
constexpr std::array<U8, 8> lpmStages{32, 29, 26, 23, 20, 17, 14, 11};

}  // namespace

bool routeStage(PacketOnItsWay& way, PacketStage& stage) {
    if (way.multicast() || way.bridged || way.l3Lag) return false;
    LpmLookup const lookup(way.chip, way.profile, way.l3Processor());
    auto const hit = lookup.find(way.vrf, way.headers.destination);
    NamedValues key{named("VRF", way.vrf), addressed("destination", way.headers.destination)};
    if (!hit) {
        for (U8 const number : lpmStages)
            stage.lookups.push_back(missed(lookup.memory(number), key));
        stage.decision = fmt::format("no route in VRF {}", way.vrf);
        return true;
    }
    way.route = hit;
    U32 const lag = hit->nexthop & ((1u << l3LagBits) - 1);
    stage.lookups = {
        answered(lookup.memory(hit->stage), hit->place, std::move(key),
                 {named("cell", hit->cell), named("next hop", hit->nexthop), named("L3 LAG", lag),
                  named("rewrite", hit->nexthop >> l3LagBits), flagged("trap to CPU", hit->cpuTrap)})};
    if (hit->cpuTrap) {
        stage.decision = fmt::format("next hop {}, to the CPU", hit->nexthop);
        way.fate = PacketFate::toCpu;
        way.copiesAre(U64{1} << way.profile.numPorts);
        return true;
    }
    way.l3Lag = lag;
    stage.decision = fmt::format("next hop {}, by L3 LAG {}", hit->nexthop, lag);
    return true;
}

bool l3LagStage(PacketOnItsWay& way, PacketStage& stage) {
    if (way.multicast() || way.bridged) return false;
    U32 const numPorts = way.profile.numPorts;
    U64 ports = 0;
    if (way.l3Lag) {
        L3LagLookup const lookup(way.chip, way.profile, way.l3Processor());
        auto const hit = lookup.find(*way.l3Lag);
        NamedValues key{named("L3 LAG", *way.l3Lag)};
        if (hit) ports = hit->ports;
        stage.lookups = {hit ? answered(lookup.memory(), {0, *way.l3Lag}, std::move(key),
                                        {portsNamed(ports, way), flagged("CPU priority", hit->cpuPriority),
                                         flagged("NAT enabled", hit->natEnabled)})
                             : missed(lookup.memory(), std::move(key))};
        stage.decision = fmt::format("L3 LAG {} has {}", *way.l3Lag, portsText(ports, numPorts));
    } else {
        stage.decision = "no L3 LAG is named";
    }
    if (way.packet.egressPort) {
        ports = U64{1} << *way.packet.egressPort;
        stage.decision += fmt::format("; port {} is taken, as told", *way.packet.egressPort);
    }
    way.copiesAre(ports);
    if (way.copies.empty()) way.drop();
    return true;
}

}  // namespace Chip
