#include <algorithm>
#include <array>
#include <fmt/format.h>

#include "chip/LagLookup.h"
#include "chip/MirrorLookup.h"
#include "chip/PacketStages.h"
#include "chip/RateLimit.h"

/* The stages of the ports that a packet comes by and leaves by. */
namespace Chip {

namespace {

struct PortConfig {
    Belmo::String path;
    U32 word = 0;

    Belmo::String mode() const {
        constexpr std::array modes{"trunk", "access", "qinq", "3"};
        return modes[word & 3];
    }
    bool txDisabled() const { return (word >> 2 & 1) != 0; }
    bool l2ForwardingDisabled() const { return (word >> 3 & 1) != 0; }
};

PortConfig configOf(PacketOnItsWay const& way, U32 port) {
    char const* name = way.profile.vlanRegVer > 1 ? "vlan_cfg" : "cfg";
    PortConfig config{.path = fmt::format("egress/port[{}]/{}", port, name)};
    config.word = way.chip.read(way.chip.address(config.path));
    return config;
}

ChipLookup lookupOf(PortConfig const& config, U32 port) {
    return {.memory = config.path,
            .key = {named("port", port)},
            .result = NamedValues{{"mode", config.mode()},
                                  flagged("tx disabled", config.txDisabled()),
                                  flagged("L2 forwarding disabled", config.l2ForwardingDisabled())}};
}

U64 bitOf(U32 port) {
    return U64{1} << port;
}

/** The register of a port at its ingress pipe. */
Belmo::String ingressRegister(PacketOnItsWay const& way, char const* name) {
    auto const place = way.profile.ingressPipeOfPort(way.packet.port);
    return fmt::format("pipeline[{}]/port[{}]/{}", place.pipeId, place.pipePort, name);
}

struct StormKind {
    StormTraffic traffic;
    char const* name;
    char const* limit;
};
constexpr StormKind broadcastStorm{StormTraffic::broadcast, "broadcast", "broadcast_limit"};
constexpr StormKind unicastStorm{StormTraffic::unicast, "unicast", "unicast_limit"};
constexpr StormKind multicastStorm{StormTraffic::multicast, "multicast", "multicast_limit"};

/** Of the frame's address, or else of the packet's. */
StormKind stormKindOf(PacketOnItsWay const& way) {
    auto const& address = way.packet.ethAddr;
    if (!address) return way.multicast() ? multicastStorm : unicastStorm;
    if (std::ranges::all_of(address->bytes(), [](U8 byte) { return byte == 0xFF; })) return broadcastStorm;
    return (address->bytes()[0] & 1) != 0 ? multicastStorm : unicastStorm;
}

LagPacket lagPacketOf(PacketOnItsWay const& way) {
    auto const ports = way.headers.transport.value_or(Ipv4Headers::Transport());
    return {.vlan = way.vlan,
            .protocol = way.headers.protocol,
            .source = way.headers.source,
            .destination = way.headers.destination,
            .sourcePort = ports.sourcePort,
            .destinationPort = ports.destinationPort};
}

/** Shows the buckets of those ports that have any; false if none has. */
bool addBuckets(PacketOnItsWay const& way, PacketStage& stage, LagLookup const& lookup, U64 ports) {
    bool any = false;
    for (U64 const number : portsOf(ports, way.profile.numPorts)) {
        auto const port = static_cast<U32>(number);
        if (way.isCpu(port)) continue;
        U32 const buckets = lookup.bucketsOf(way.packet.port, port);
        if (buckets == 0) continue;
        auto const row = lookup.bucketRow(way.packet.port, port);
        stage.lookups.push_back(answered(row.memory, {0, row.number}, {named("port", port)},
                                         {{"buckets", portsOf(buckets, LagLookup::buckets - 1)}}));
        any = true;
    }
    return any;
}

}  // namespace

bool ingressPortStage(PacketOnItsWay& way, PacketStage& stage) {
    auto const config = configOf(way, way.packet.port);
    stage.lookups = {lookupOf(config, way.packet.port)};
    stage.decision = fmt::format("port {} is in mode {}", way.packet.port, config.mode());
    return true;
}

bool receiveMirrorStage(PacketOnItsWay& way, PacketStage& stage) {
    U32 const port = way.packet.port;
    auto const copies = MirrorLookup(way.chip, way.profile).copiesOf(static_cast<U16>(port));
    U64 ports = copies.cpu ? bitOf(way.profile.numPorts) : 0;
    for (U16 const to : copies.ports)
        ports |= bitOf(to);
    if (ports == 0) return false;
    for (U64 const to : portsOf(ports, way.profile.numPorts))
        way.mirrored.push_back({.port = static_cast<U32>(to), .bytes = way.packet.bytes});
    U32 const table = way.profile.pipeToTableId(way.pipe, NerioSwitch::TableLayoutEnum::tableLayoutL2);
    stage.lookups = {{.memory = fmt::format("ingress/processor_l2_mirror_reg[{}]", table),
                      .key = {named("port", port)},
                      .result = NamedValues{portsNamed(ports, way)}}};
    stage.decision = fmt::format("copied to {}", portsText(ports, way.profile.numPorts));
    return true;
}

bool stormControlStage(PacketOnItsWay& way, PacketStage& stage) {
    auto const kind = stormKindOf(way);
    auto const limit = stormLimit(way.chip, way.profile, way.packet.port, kind.traffic);
    if (!limit.perSecond) return false;
    char const* unit = limit.unit == RateLimit::Unit::bits ? "bits" : "packets";
    stage.lookups = {{.memory = ingressRegister(way, kind.limit),
                      .key = {named("port", way.packet.port)},
                      .result = NamedValues{{fmt::format("{} a second", unit), *limit.perSecond}}}};
    stage.decision = fmt::format("port {} lets {} {} of {} in a second", way.packet.port, *limit.perSecond,
                                 unit, kind.name);
    return true;
}

bool lagMemberStage(PacketOnItsWay& way, PacketStage& stage) {
    bool const byOnePort = !way.bridged && !way.multicast();
    if (way.copies.empty() || (byOnePort && way.packet.egressPort)) return false;
    U64 meant = 0;
    for (auto const& copy : way.copies)
        meant |= bitOf(copy.port);
    auto const firstOf = [&](U64 ports) { return byOnePort ? ports & (~ports + 1) : ports; };
    bool const choice = firstOf(meant) != meant;
    // That stays so where the chip has no LAGs.
    if (choice) way.copiesAre(firstOf(meant));
    U32 const ingressPort = way.packet.port;
    LagLookup const lookup(way.chip, way.profile);
    bool const fromLag = (lookup.members(ingressPort) & ~bitOf(ingressPort)) != 0;
    if (!addBuckets(way, stage, lookup, meant) && !fromLag) {
        stage.decision = "passed over: no LAG is met; the first port is taken";
        return choice;
    }
    auto const packet = lagPacketOf(way);
    U32 const bucket = lookup.bucket(ingressPort, packet);
    stage.lookups.insert(stage.lookups.begin(), {.memory = ingressRegister(way, "lhash_ctl"),
                                                 .key = {named("port", ingressPort)},
                                                 .result = NamedValues{named("bucket", bucket)}});
    U64 const taken = firstOf(lookup.egressPorts(ingressPort, meant, packet));
    if (byOnePort) {
        way.copiesAre(taken);
    } else {
        std::erase_if(way.copies, [&](PacketCopy const& copy) { return (taken & bitOf(copy.port)) == 0; });
    }
    stage.decision = fmt::format("bucket {} leaves by {}", bucket, portsText(taken, way.profile.numPorts));
    if (way.copies.empty()) way.drop();
    return true;
}

bool egressPortStage(PacketOnItsWay& way, PacketStage& stage) {
    if (way.copies.empty()) return false;
    U64 open = 0;
    U64 closed = 0;
    for (auto const& copy : way.copies) {
        U64 const bit = U64{1} << copy.port;
        if (((open | closed) & bit) != 0) continue;
        if (way.isCpu(copy.port)) {
            open |= bit;
            continue;
        }
        auto const config = configOf(way, copy.port);
        stage.lookups.push_back(lookupOf(config, copy.port));
        (config.txDisabled() ? closed : open) |= bit;
    }
    std::erase_if(way.copies, [&](PacketCopy const& copy) { return (closed >> copy.port & 1) != 0; });
    std::vector<Belmo::String> parts;
    if (open != 0) parts.push_back(fmt::format("leaves by {}", portsText(open, way.profile.numPorts)));
    if (closed != 0)
        parts.push_back(fmt::format("{} may not transmit", portsText(closed, way.profile.numPorts)));
    stage.decision = fmt::format("{}", fmt::join(parts, "; "));
    if (way.copies.empty()) way.drop();
    return true;
}

}  // namespace Chip
