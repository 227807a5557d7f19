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
void addMissed(PacketStage& stage, PacketOnItsWay const& way, AclLookup const& lookup) {
    constexpr std::array<U8, 3> firstOfTables{0, 7, 11};
    constexpr U8 firstOfVrfs = 15;
    NamedValue const source{"source", endText(way.headers, false)};
    NamedValue const destination{"destination", endText(way.headers, true)};
    for (U8 const combination : firstOfTables) {
        if (!way.packet.aclId) break;
        stage.lookups.push_back(missed(lookup.memory(combination, way.pipe),
                                       {named("ACL", *way.packet.aclId), source, destination,
                                        named("protocol", way.packet.aclProtocol)}));
    }
    stage.lookups.push_back(
        missed(lookup.memory(firstOfVrfs, way.pipe), {named("VRF", way.packet.vrf), source, destination}));
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

/** A rule that decides for its chain. */
struct Winner {
    bool secondChain = false;
    AclRule rule;
};

/**
 * Of each chain the rule that counts: the one of the lowest priority number, the first of equal ones. A rule
 * with a port range does not: its range stands in a table that lookups do not know.
 */
std::vector<Winner> winnersOf(std::vector<AclPacketHit> const& hits) {
    std::vector<Winner> winners;
    for (bool const second : {false, true}) {
        AclRule const* best = nullptr;
        for (auto const& [combination, fields, hit] : hits) {
            if (second && !hit.secondRule) continue;
            auto const& rule = second ? *hit.secondRule : hit.rule;
            if (rule.priority == 0 || rule.range) continue;
            if (best == nullptr || rule.priority < best->priority) best = &rule;
        }
        if (best != nullptr) winners.push_back({second, *best});
    }
    return winners;
}

Belmo::String textOf(Winner const& winner) {
    return fmt::format(
        "{} by a rule of priority {}{}", winner.rule.flag ? "permitted" : "denied", winner.rule.priority,
        winner.secondChain ? ", in the second chain" : fmt::format(", counter {}", winner.rule.counter));
}

Belmo::String decisionOf(std::vector<Winner> const& winners, std::vector<AclPacketHit> const& hits,
                         bool hasAcl) {
    std::vector<Belmo::String> parts;
    for (auto const& winner : winners)
        parts.push_back(textOf(winner));
    if (parts.empty()) parts.emplace_back("no rule applies");
    if (!hasAcl) parts.emplace_back("no ACL is named, so that only rules of the VRF were asked");
    if (std::ranges::any_of(hits, [](auto const& found) { return found.hit.rule.range.has_value(); }))
        parts.emplace_back("rules of port ranges are passed over");
    return fmt::format("{}", fmt::join(parts, "; "));
}

}  // namespace

bool aclStage(PacketOnItsWay& way, PacketStage& stage) {
    auto const& packet = way.packet;
    AclLookup const lookup(way.chip, way.profile);
    AclContext const context{packet.aclId, packet.aclProtocol, packet.vrf, packet.aclKeyFlag};
    auto const hits = rulesOf(lookup, way.headers, context, way.pipe);
    stage.lookups.reserve(hits.size());
    for (auto const& found : hits) {
        stage.lookups.push_back(answered(lookup.memory(found.combination, way.pipe), found.hit.place,
                                         keyOf(found), resultOf(found.hit)));
    }
    if (hits.empty()) addMissed(stage, way, lookup);
    auto const winners = winnersOf(hits);
    stage.decision = decisionOf(winners, hits, packet.aclId.has_value());
    if (std::ranges::any_of(winners, [](Winner const& winner) { return !winner.rule.flag; })) way.drop();
    return true;
}

}  // namespace Chip
