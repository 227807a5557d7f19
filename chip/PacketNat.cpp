#include <array>
#include <fmt/format.h>

#include "chip/NatLookup.h"
#include "chip/PacketStages.h"

/* The stages of address translation, at both sides. */
namespace Chip {

namespace {

NamedValues keyOf(NatMatchHit const& hit, PacketOnItsWay const& way) {
    auto const& headers = way.headers;
    auto const ports = headers.transport.value_or(Ipv4Headers::Transport());
    NamedValues key;
    if (hit.dynamic || !hit.destination) key.push_back(addressed("source", headers.source));
    if (hit.dynamic || (hit.withPort && !hit.destination))
        key.push_back(named("source port", ports.sourcePort));
    if (hit.dynamic || hit.destination) key.push_back(addressed("destination", headers.destination));
    if (hit.dynamic || (hit.withPort && hit.destination))
        key.push_back(named("destination port", ports.destinationPort));
    if (hit.filter) key.push_back({"filter", prefixText(hit.filter->address, hit.filter->length)});
    key.push_back(named("profile", way.natProfile));
    return key;
}

NamedValues resultOf(NatMatchHit const& hit) {
    constexpr std::array protocols{"any", "TCP", "UDP", "TCP and UDP"};
    return {named("session", hit.session),       {"protocols", Belmo::String(protocols[hit.protocols & 3])},
            flagged("asks the ACL", hit.useAcl), flagged("trap to CPU", hit.trapToCpu),
            named("rewrite", hit.rewriteIndex),  named("L3 LAG", hit.l3Lag)};
}

NatEgress egressOf(PacketOnItsWay const& way, PacketCopy const& copy, bool second) {
    NatEgress egress{.session = way.translation->session};
    if (way.vlanGroup) {
        egress.copy = NatEgress::Copy{*way.vlanGroup, copy.member};
    } else {
        egress.profile = way.egressNatProfile();
        egress.secondTnat = second;
    }
    return egress;
}

NamedValues keyOf(NatEgress const& egress) {
    NamedValues key{named("session", egress.session)};
    if (egress.copy) {
        key.push_back(named("VLAN group", egress.copy->vlanGroup));
        key.push_back(named("member", egress.copy->member));
    } else {
        key.push_back(named("profile", egress.profile));
        key.push_back(flagged("second translation", egress.secondTnat));
    }
    return key;
}

/** Rewrites one side of a copy; says what became of it. */
Belmo::String rewriteSide(PacketOnItsWay const& way, PacketStage& stage, PacketCopy& copy, bool destination,
                          bool second) {
    NatRewriteLookup const lookup(way.chip, way.egressOf(copy.port).pipeId);
    auto const egress = egressOf(way, copy, second);
    auto const hit = lookup.find(egress);
    auto const* side = destination ? "destination" : "source";
    if (!hit) {
        stage.lookups.push_back(missed(lookup.memory(), keyOf(egress)));
        return fmt::format("port {}: no rewrite of session {}, the {} stays", copy.port, egress.session,
                           side);
    }
    stage.lookups.push_back(
        answered(lookup.memory(), hit->place, keyOf(egress),
                 {addressed("address", hit->newAddress),
                  named("port", hit->newPort),
                  {"checksum correction", fmt::format("0x{:04x}", hit->checksumCorrection)}}));
    rewritePacket(copy.bytes, destination, *hit);
    return fmt::format("port {}: the {} becomes {}", copy.port, side,
                       endText(headersOf(copy.bytes), destination));
}

}  // namespace

bool natMatchStage(PacketOnItsWay& way, PacketStage& stage) {
    if (!way.profile.natProfile || way.bridged) return false;
    NatMatchLookup const lookup(way.chip, way.profile, way.pipe);
    auto const hit = lookup.find(way.headers, way.natProfile);
    if (!hit) {
        NamedValues const key{{"source", endText(way.headers, false)},
                              {"destination", endText(way.headers, true)},
                              named("profile", way.natProfile)};
        stage.lookups = {missed(lookup.memory(true), key), missed(lookup.memory(false), key)};
        stage.decision = "no translation matches";
        return true;
    }
    stage.lookups = {answered(lookup.memory(hit->dynamic), hit->place, keyOf(*hit, way), resultOf(*hit))};
    auto const* side = hit->destination ? "destination" : "source";
    if (hit->trapToCpu) {
        stage.decision = fmt::format("the translation of the {} goes to the CPU", side);
        way.fate = PacketFate::toCpu;
        way.copiesAre(U64{1} << way.profile.numPorts);
        return true;
    }
    way.translation = Translation{hit->session, {hit->destination}};
    stage.decision = fmt::format("the {} {} is translated, by session {}", side,
                                 endText(way.headers, hit->destination), hit->session);
    if (hit->l3Lag != noL3Lag && !way.multicast()) {
        way.l3Lag = hit->l3Lag;
        stage.decision += fmt::format(", and leaves by L3 LAG {}", hit->l3Lag);
    }
    return true;
}

bool natRewriteStage(PacketOnItsWay& way, PacketStage& stage) {
    if (!way.translation) return false;
    std::vector<Belmo::String> texts;
    for (auto& copy : way.copies) {
        if (way.isCpu(copy.port)) continue;
        auto const& sides = way.translation->sides;
        // Rows tell no second translation of a multicast packet.
        std::size_t const count = way.vlanGroup ? 1 : sides.size();
        for (std::size_t i = 0; i < count; ++i)
            texts.push_back(rewriteSide(way, stage, copy, sides[i], i != 0));
    }
    if (texts.empty()) return false;
    stage.decision = fmt::format("{}", fmt::join(texts, "; "));
    return true;
}

}  // namespace Chip
