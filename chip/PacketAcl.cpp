#include <algorithm>
#include <array>
#include <fmt/format.h>

#include "chip/AclPacketLookup.h"
#include "chip/PacketStages.h"

/* The stage of the ACL processors. */
namespace Chip {

namespace {

/** "10.0.0.0/8", or "any" for an address that a key holds as absent. */
Belmo::String keyPrefixText(U32 address, U8 length) {
    U32 const masked = length == 0 ? 0 : address >> (32 - length) << (32 - length);
    return masked == 0 ? "any" : prefixText(masked, length);
}

NamedValues keyOf(AclPacketHit const& found) {
    auto const& fields = found.fields;
    auto const takesPart = fieldsOf(found.combination);
    NamedValues key{named("combination", found.combination)};
    if (takesPart.vrf) {
        key.push_back(named("VRF", fields.vrf & 7u));
        key.push_back(flagged("key flag", fields.keyFlag));
    } else {
        key.push_back(named("ACL", fields.aclId));
    }
    if (takesPart.first) key.push_back({"source", keyPrefixText(fields.firstAddress, fields.firstLength)});
    if (takesPart.second)
        key.push_back({"destination", keyPrefixText(fields.secondAddress, fields.secondLength)});
    if (takesPart.protocol) key.push_back(named("protocol", fields.protocol));
    if (fields.port)
        key.push_back(named(takesPart.sourcePort ? "source port" : "destination port", *fields.port));
    return key;
}

/** What was looked up in vain, memory by memory. */
void addMissed(PacketStage& stage, PacketOnItsWay const& way, AclLookup const& lookup, U8 protocol) {
    constexpr std::array<U8, 3> firstOfTables{0, 7, 11};
    constexpr U8 firstOfVrfs = 15;
    NamedValue const source{"source", endText(way.headers, false)};
    NamedValue const destination{"destination", endText(way.headers, true)};
    for (U8 const combination : firstOfTables) {
        if (!way.aclId) break;
        stage.lookups.push_back(
            missed(lookup.memory(combination, way.pipe),
                   {named("ACL", *way.aclId), source, destination, named("protocol", protocol)}));
    }
    stage.lookups.push_back(
        missed(lookup.memory(firstOfVrfs, way.pipe), {named("VRF", way.vrf), source, destination}));
}

/** The number of the packet's protocol, unless it came with one or no key has it. */
void addProtocol(PacketStage& stage, PacketOnItsWay const& way, ProtocolLookup const& protocols, U8 number) {
    if (!way.aclId || way.packet.aclProtocol) return;
    U8 const protocol = way.headers.protocol;
    stage.lookups.push_back(answered(protocols.memory(way.pipe), {0, protocol},
                                     {named("IP protocol", protocol)}, {named("protocol", number)}));
}

/** The range that a rule names. */
void addRange(PacketStage& stage, PacketOnItsWay const& way, PortRangeLookup const& ranges,
              AclPacketHit const& found) {
    if (!found.rangePort) return;
    U8 const range = *found.hit.rule.range;
    stage.lookups.push_back(answered(
        *ranges.memory(way.pipe), {0, PortRangeLookup::rowOf(found.fields.aclId, range)},
        {named("ACL", found.fields.aclId), named("port range", range), named("port", *found.rangePort)},
        {{"port is", Belmo::String(found.holds ? "within" : "outside")}}));
}

void add(NamedValues& values, Belmo::String const& prefix, AclRule const& rule) {
    values.push_back({prefix + "priority", U64{rule.priority}});
    values.push_back({prefix + "action", Belmo::String(rule.flag ? "permit" : "deny")});
}

NamedValues resultOf(AclHit const& hit) {
    NamedValues result;
    add(result, "", hit.rule);
    result.push_back(named("counter", hit.rule.counter));
    if (hit.rule.range) result.push_back(named("port range", *hit.rule.range));
    if (hit.secondRule) add(result, "second ", *hit.secondRule);
    return result;
}

Belmo::String textOf(DecidingRule const& winner) {
    return fmt::format(
        "{} by a rule of priority {}{}", winner.rule.flag ? "permitted" : "denied", winner.rule.priority,
        winner.secondChain ? ", in the second chain" : fmt::format(", counter {}", winner.rule.counter));
}

Belmo::String decisionOf(std::vector<DecidingRule> const& winners, std::vector<AclPacketHit> const& hits,
                         bool hasAcl) {
    std::vector<Belmo::String> parts;
    parts.reserve(winners.size() + 3);
    for (auto const& winner : winners)
        parts.push_back(textOf(winner));
    if (parts.empty()) parts.emplace_back("no rule applies");
    if (!hasAcl) parts.emplace_back("no ACL is named, so that only rules of the VRF were asked");
    if (std::ranges::any_of(hits, [](auto const& found) { return !found.holds; }))
        parts.emplace_back("rules whose port range does not hold the port are passed over");
    return fmt::format("{}", fmt::join(parts, "; "));
}

}  // namespace

bool aclStage(PacketOnItsWay& way, PacketStage& stage) {
    auto const& packet = way.packet;
    AclPacketLookup const lookup(way.chip, way.profile);
    AclContext const context{way.aclId, packet.aclProtocol, way.vrf, packet.aclKeyFlag};
    U8 const protocol = lookup.protocolOf(way.headers, context, way.pipe);
    auto const hits = lookup.rulesOf(way.headers, context, way.pipe);
    addProtocol(stage, way, lookup.protocols(), protocol);
    for (auto const& found : hits) {
        stage.lookups.push_back(answered(lookup.rules().memory(found.combination, way.pipe), found.hit.place,
                                         keyOf(found), resultOf(found.hit)));
        addRange(stage, way, lookup.ranges(), found);
    }
    if (hits.empty()) addMissed(stage, way, lookup.rules(), protocol);
    auto const winners = decidingRules(hits);
    stage.decision = decisionOf(winners, hits, way.aclId.has_value());
    if (std::ranges::any_of(winners, [](DecidingRule const& winner) { return !winner.rule.flag; }))
        way.drop();
    if (winners.empty() && way.aclDeniesRest) {
        stage.decision += "; the VLAN's ACL denies all else";
        way.drop();
    }
    return true;
}

}  // namespace Chip
