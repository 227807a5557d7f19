#include "chip/AclPacketLookup.h"

#include <algorithm>
#include <fmt/format.h>

#include "Belmo/Exceptions.h"

#include "chip/BitRow.h"

namespace Chip {

namespace {

using NerioSwitch::ProfileInfo;
constexpr auto acl = NerioSwitch::TableLayoutEnum::tableLayoutAcl;

/** The memories of that name, one of each pipeline. */
std::vector<IndirectMemory const*> memoriesOf(SimulatedChip const& chip, ProfileInfo const& profile,
                                              char const* name) {
    std::vector<IndirectMemory const*> memories;
    for (U32 pipeline = 0; pipeline < profile.numPipelinesOfTable(acl); ++pipeline) {
        memories.push_back(
            &chip.indirectMemory(fmt::format("ingress/processor_acl[{}]/{}/pipeline{}",
                                             profile.pipeToProcessorId(pipeline, acl), name, pipeline)));
    }
    return memories;
}

void checkPipeline(std::vector<IndirectMemory const*> const& memories, U32 pipeline) {
    if (pipeline >= memories.size())
        throw Belmo::RangeException(fmt::format("ACL lookup: there is no pipeline {}", pipeline));
}

/** Where a range with two ends is; its flag stands behind it. */
struct WindowPlace {
    BitRange least;
    BitRange most;
    BitRange flag;
};
constexpr WindowPlace windows[] = {{{0, 16}, {16, 16}, {32, 1}}, {{33, 16}, {49, 16}, {65, 1}}};

/** Where a range with one end is: the first port of a range up, or the first one above a range down. */
struct AnchorPlace {
    BitRange end;
    BitRange upward;
    BitRange flag;
};
constexpr AnchorPlace anchors[] = {{{66, 17}, {83, 1}, {84, 1}}, {{85, 17}, {102, 1}, {103, 1}}};

bool holds(WindowPlace const& place, BitRow const& row, U16 port) {
    U64 const least = row.at(place.least);
    U64 const most = row.at(place.most);
    return (least != 0 || most != 0) && least <= port && port <= most;
}

bool holds(AnchorPlace const& place, BitRow const& row, U16 port) {
    U64 const end = row.at(place.end);
    return row.at(place.upward) != 0 ? port >= end : port < end;
}

/** The four ranges of a row, by bits 0 to 3. */
PortRangeBits rangesIn(IndirectMemory const& memory, U32 number, U16 port) {
    auto const words = memory.row(number);
    PortRangeBits bits;
    if (!evenParity(words)) return bits;
    BitRow const row(words);
    U32 range = 0;
    auto const add = [&](auto const& place) {
        if (holds(place, row, port)) bits.holding = static_cast<U8>(bits.holding | 1u << range);
        if (row.at(place.flag) != 0) bits.flagged = static_cast<U8>(bits.flagged | 1u << range);
        ++range;
    };
    std::ranges::for_each(windows, add);
    std::ranges::for_each(anchors, add);
    return bits;
}

constexpr U8 combinations = 18;
constexpr U8 firstOfSources = 7;
constexpr U8 firstOfPairs = 11;
constexpr U8 firstOfVrfs = 15;
/** Of a length above this one a key tells more than that it is absent, whatever its address. */
constexpr U8 longestFolded = 26;

/** The lengths to look an address up with, the longest first. */
std::vector<U8> lengthsOf(U32 address, bool takesPart, bool keysTell) {
    if (!takesPart) return {0};
    if (!keysTell) return {32, 0};
    std::vector<U8> lengths;
    for (U8 length = 32; length > 0; --length) {
        // Bits that are all zero are absent: one key for all such lengths.
        if (length > longestFolded || address >> (32 - length) != 0) lengths.push_back(length);
    }
    lengths.push_back(0);
    return lengths;
}

/** Ports to look up: the packet's own, and then any. */
std::vector<std::optional<U16>> portsOf(AclCombination const& combination, Ipv4Headers const& packet) {
    std::vector<std::optional<U16>> ports;
    if (packet.transport && combination.destinationPort)
        ports.emplace_back(packet.transport->destinationPort);
    if (packet.transport && combination.sourcePort) ports.emplace_back(packet.transport->sourcePort);
    ports.emplace_back();
    return ports;
}

/** Two keys of one packet may be the same to the chip. */
bool isNew(std::vector<AclPacketHit> const& hits, AclLookup const& lookup, U32 pipeline,
           AclPacketHit const& hit) {
    return std::ranges::none_of(hits, [&](AclPacketHit const& other) {
        return other.hit.place == hit.hit.place &&
               &lookup.memory(other.combination, pipeline) == &lookup.memory(hit.combination, pipeline);
    });
}

}  // namespace

ProtocolLookup::ProtocolLookup(SimulatedChip const& chip, ProfileInfo const& profile)
    : memories_(memoriesOf(chip, profile, "protocols")) {}

U8 ProtocolLookup::numberOf(U8 ipProtocol, U32 pipeline) const {
    auto const words = memory(pipeline).row(ipProtocol);
    return evenParity(words.first(1)) ? static_cast<U8>(BitRow(words).at({0, 4})) : U8{0};
}

IndirectMemory const& ProtocolLookup::memory(U32 pipeline) const {
    checkPipeline(memories_, pipeline);
    return *memories_[pipeline];
}

PortRangeLookup::PortRangeLookup(SimulatedChip const& chip, ProfileInfo const& profile) {
    if (profile.hwApi.majorVersion() < 4) {
        memories_.resize(profile.numPipelinesOfTable(acl));
    } else {
        memories_ = memoriesOf(chip, profile, "portRanges");
    }
}

IndirectMemory const* PortRangeLookup::memory(U32 pipeline) const {
    checkPipeline(memories_, pipeline);
    return memories_[pipeline];
}

PortRangeBits PortRangeLookup::rangesOf(U8 aclId, U16 port, U32 pipeline) const {
    auto const* rows = memory(pipeline);
    if (aclId > 15) throw Belmo::RangeException(fmt::format("ACL lookup: ACL number {} is above 15", aclId));
    if (rows == nullptr) return {};
    auto const low = rangesIn(*rows, rowOf(aclId, 0), port);
    auto const high = rangesIn(*rows, rowOf(aclId, 4), port);
    return {static_cast<U8>(low.holding | high.holding << 4),
            static_cast<U8>(low.flagged | high.flagged << 4)};
}

AclCombination fieldsOf(U8 combination) {
    if (combination >= firstOfVrfs) return {.vrf = true, .first = true, .second = true};
    U8 const low = combination & 3;
    return {.vrf = false,
            .first = combination >= firstOfSources,
            .second = combination < firstOfSources || combination >= firstOfPairs,
            .protocol = low != 3,
            .sourcePort = low == 2,
            .destinationPort = low == 1};
}

AclPacketLookup::AclPacketLookup(SimulatedChip const& chip, ProfileInfo const& profile)
    : rules_(chip, profile), protocols_(chip, profile), ranges_(chip, profile) {}

U8 AclPacketLookup::protocolOf(Ipv4Headers const& packet, AclContext const& context, U32 pipeline) const {
    return context.protocol ? *context.protocol : protocols_.numberOf(packet.protocol, pipeline);
}

void AclPacketLookup::holdAgainstRange(AclPacketHit& found, Ipv4Headers const& packet, U32 pipeline) const {
    auto const range = found.hit.rule.range;
    if (!range) return;
    found.holds = false;
    if (!packet.transport) return;
    found.rangePort = fieldsOf(found.combination).sourcePort ? packet.transport->sourcePort
                                                             : packet.transport->destinationPort;
    auto const bits = ranges_.rangesOf(found.fields.aclId, *found.rangePort, pipeline);
    found.holds = (bits.holding >> *range & 1) != 0;
}

std::vector<AclPacketHit> AclPacketLookup::rulesOf(Ipv4Headers const& packet, AclContext const& context,
                                                   U32 pipeline) const {
    std::vector<AclPacketHit> hits;
    AclFields fields{.aclId = context.aclId.value_or(0),
                     .firstAddress = packet.source,
                     .secondAddress = packet.destination,
                     .protocol = protocolOf(packet, context, pipeline),
                     .vrf = context.vrf,
                     .keyFlag = context.keyFlag};
    for (U8 combination = context.aclId ? 0 : firstOfVrfs; combination < combinations; ++combination) {
        auto const takesPart = fieldsOf(combination);
        auto const firstLengths = lengthsOf(packet.source, takesPart.first, rules_.tellsLengths());
        auto const secondLengths = lengthsOf(packet.destination, takesPart.second, rules_.tellsLengths());
        for (auto const port : portsOf(takesPart, packet)) {
            fields.port = port;
            for (U8 const first : firstLengths) {
                fields.firstLength = first;
                for (U8 const second : secondLengths) {
                    fields.secondLength = second;
                    auto const hit = rules_.find(fields, combination, pipeline);
                    if (!hit) continue;
                    AclPacketHit found{.combination = combination, .fields = fields, .hit = *hit};
                    if (!isNew(hits, rules_, pipeline, found)) continue;
                    holdAgainstRange(found, packet, pipeline);
                    hits.push_back(found);
                }
            }
        }
    }
    return hits;
}

std::vector<DecidingRule> decidingRules(std::vector<AclPacketHit> const& hits) {
    std::vector<DecidingRule> deciding;
    for (bool const second : {false, true}) {
        AclRule const* best = nullptr;
        for (auto const& found : hits) {
            if (!found.holds || (second && !found.hit.secondRule)) continue;
            auto const& rule = second ? *found.hit.secondRule : found.hit.rule;
            if (rule.priority == 0) continue;
            if (best == nullptr || rule.priority < best->priority) best = &rule;
        }
        if (best != nullptr) deciding.push_back({second, *best});
    }
    return deciding;
}

}  // namespace Chip
