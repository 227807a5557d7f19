#include <array>
#include <fmt/format.h>
#include <utility>

#include "chip/MulticastLookup.h"
#include "chip/PacketStages.h"

/* The stages that look at pairs of addresses, and those that make copies of multicast packets. */
namespace Chip {

namespace {

/** What a row of source and destination asks to translate; nothing for a type that is none. */
std::optional<Translation> translationOf(PairTranslation const& pair) {
    if (!pair.natEnabled) return std::nullopt;
    constexpr U8 ofBoth = 2;
    if (pair.natType < ofBoth) return Translation{pair.natSession, {pair.natType == 1}};
    if (pair.natType == ofBoth) return Translation{pair.natSession, {false, true}};
    return std::nullopt;
}

void add(NamedValues& values, PairTranslation const& pair) {
    constexpr std::array types{"source", "destination", "both", "reserved"};
    if (!pair.natEnabled) return;
    values.push_back({"NAT type", Belmo::String(types[pair.natType & 3])});
    values.push_back(named("session", pair.natSession));
}

/** Of a match and a row of addresses, the match tells what is translated. */
void translate(PacketOnItsWay& way, PairTranslation const& pair, Belmo::String& decision) {
    auto const translation = translationOf(pair);
    if (!translation || way.translation) return;
    way.translation = translation;
    decision += fmt::format(", translated by session {}", translation->session);
}

NamedValues pairKey(PacketOnItsWay const& way, char const* destination) {
    return {addressed("source", way.headers.source), addressed(destination, way.headers.destination)};
}

NamedValues resultOf(MulticastHit const& hit, PacketOnItsWay const& way) {
    NamedValues result{portsNamed(hit.ports, way), named("VLAN group", hit.vlanGroup)};
    add(result, hit.translation);
    return result;
}

Lanvo::EthAddr ethAddrOf(FloodRewrite const& rewrite) {
    std::array<U8, 6> bytes{};
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<U8>(rewrite.ethAddr >> (40 - 8 * i));
    return Lanvo::EthAddr(bytes);
}

/** The row that tells what a next hop's copy gets at a port. */
ChipLookup rewriteLookup(PacketOnItsWay const& way, NerioSwitch::PipeInfo const& egress,
                         std::optional<FloodRewrite> const& rewrite) {
    auto const& lines = way.chip.indirectMemory(fmt::format("egress/processor[{}]/lines", egress.pipeId));
    NamedValues key{named("next hop", way.packet.floodNexthop), named("port", egress.portId)};
    if (!rewrite) return missed(lines, std::move(key));
    U32 const row = FloodLookup::rewriteRow(way.packet.floodNexthop, egress.pipePort);
    U32 const perWay = lines.description().rowsPerWay;
    return answered(lines, {static_cast<U8>(row / perWay), row % perWay}, std::move(key),
                    {{"address", ethAddrOf(*rewrite).text()}, named("VLAN", rewrite->vlan)});
}

void rewriteCopies(PacketOnItsWay& way, PacketStage& stage, FloodLookup const& lookup) {
    for (auto& copy : way.copies) {
        if (way.isCpu(copy.port)) continue;
        auto const egress = way.egressOf(copy.port);
        auto const rewrite = lookup.rewrite(way.packet.floodNexthop, egress.pipeId, egress.pipePort);
        stage.lookups.push_back(rewriteLookup(way, egress, rewrite));
        if (!rewrite) continue;
        copy.ethAddr = ethAddrOf(*rewrite);
        copy.vlan = rewrite->vlan;
    }
}

ChipLookup vlansLookup(PacketOnItsWay const& way, NerioSwitch::PipeInfo const& egress,
                       std::vector<U16> const& vlans) {
    auto const& lines = way.chip.indirectMemory(fmt::format("egress/processor[{}]/lines", egress.pipeId));
    U32 const row = VlanGroupWalk::groupRow(egress.pipePort, *way.vlanGroup);
    U32 const perWay = lines.description().rowsPerWay;
    return answered(lines, {static_cast<U8>(row / perWay), row % perWay},
                    {named("VLAN group", *way.vlanGroup), named("port", egress.portId)},
                    {{"VLANs", std::vector<U64>(vlans.begin(), vlans.end())}});
}

}  // namespace

bool flowStage(PacketOnItsWay& way, PacketStage& stage) {
    if (!way.profile.natProfile || way.multicast() || way.bridged) return false;
    MulticastLookup const lookup(way.chip, way.profile, way.l3Processor());
    auto const hit = lookup.findFlow(way.headers.source, way.headers.destination, way.natProfile);
    auto key = pairKey(way, "destination");
    key.push_back(named("profile", way.natProfile));
    if (!hit) {
        stage.lookups = {missed(lookup.memory(true), std::move(key))};
        stage.decision = "no flow of these addresses";
        return true;
    }
    NamedValues result{named("rewrite", hit->rewriteIndex), named("L3 LAG", hit->l3Lag)};
    add(result, hit->translation);
    stage.lookups = {answered(lookup.memory(true), hit->place, std::move(key), std::move(result))};
    stage.decision = "a flow of these addresses";
    if (hit->l3Lag != noL3Lag && !way.l3Lag) {
        way.l3Lag = hit->l3Lag;
        stage.decision += fmt::format(" leaves by L3 LAG {}", hit->l3Lag);
    }
    translate(way, hit->translation, stage.decision);
    return true;
}

bool multicastRouteStage(PacketOnItsWay& way, PacketStage& stage) {
    if (!way.multicast() || way.bridged) return false;
    MulticastLookup const lookup(way.chip, way.profile, way.l3Processor());
    auto const& headers = way.headers;
    auto const vlan = named("VLAN", way.vlan);
    auto const add = [&](std::optional<MulticastHit> const& hit, bool ofSource, NamedValues key) {
        key.push_back(vlan);
        auto const& memory = lookup.memory(ofSource);
        stage.lookups.push_back(hit ? answered(memory, hit->place, std::move(key), resultOf(*hit, way))
                                    : missed(memory, std::move(key)));
    };
    auto hit = lookup.findSourceRoute(headers.source, headers.destination, way.vlan);
    add(hit, true, pairKey(way, "group"));
    if (!hit) {
        hit = lookup.findGroupRoute(headers.destination, way.vlan);
        add(hit, false, {addressed("group", headers.destination)});
    }
    if (!hit) {
        stage.decision = "no route of the group";
        return true;
    }
    stage.decision = fmt::format(
        "({}, {}) leads to {} in VLAN group {}", hit->ofSource ? addressText(headers.source) : "*",
        addressText(headers.destination), portsText(hit->ports, way.profile.numPorts), hit->vlanGroup);
    way.vlanGroup = hit->vlanGroup;
    translate(way, hit->translation, stage.decision);
    way.copiesAre(hit->ports);
    if (way.copies.empty()) way.drop();
    return true;
}

bool floodingStage(PacketOnItsWay& way, PacketStage& stage) {
    if (!way.multicast() || way.bridged || !way.copies.empty()) return false;
    FloodLookup const lookup(way.chip, way.profile);
    U32 const nexthop = way.packet.floodNexthop;
    auto const ports = lookup.ports(nexthop, way.l3Processor());
    auto const& memory =
        way.chip.indirectMemory(fmt::format("ingress/processor_l3[{}]/l3Floods", way.l3Processor()));
    NamedValues key{named("next hop", nexthop)};
    stage.lookups = {ports ? answered(memory, {0, nexthop}, std::move(key), {portsNamed(*ports, way)})
                           : missed(memory, std::move(key))};
    way.copiesAre(ports.value_or(0));
    rewriteCopies(way, stage, lookup);
    stage.decision =
        fmt::format("next hop {} floods {}", nexthop, portsText(ports.value_or(0), way.profile.numPorts));
    if (way.copies.empty()) way.drop();
    return true;
}

bool vlanGroupStage(PacketOnItsWay& way, PacketStage& stage) {
    if (!way.vlanGroup || way.copies.empty()) return false;
    if (!VlanGroupWalk::knows(way.profile)) {
        stage.decision = "passed over: it is not known where pipes of more than two ports have their groups";
        return true;
    }
    VlanGroupWalk const walk(way.chip, way.profile);
    std::vector<PacketCopy> copies;
    for (auto& copy : way.copies) {
        if (way.isCpu(copy.port)) {
            copies.push_back(std::move(copy));
            continue;
        }
        auto const vlans = walk.vlans(copy.port, *way.vlanGroup);
        stage.lookups.push_back(vlansLookup(way, way.egressOf(copy.port), vlans));
        U8 member = 0;
        for (U16 const vlan : vlans) {
            copies.push_back(copy);
            copies.back().vlan = vlan;
            copies.back().member = member++;
        }
    }
    way.copies = std::move(copies);
    if (way.copies.empty()) {
        stage.decision = "the group has no VLAN at these ports";
        way.drop();
    } else {
        stage.decision = way.copies.size() == 1 ? "1 copy" : fmt::format("{} copies", way.copies.size());
    }
    return true;
}

}  // namespace Chip
