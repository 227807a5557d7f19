#include "chip/AclProcessor.h"

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

/** The priority of a hit; the lower the number, the higher it is. */
U8 priorityOf(AclHit const& hit) {
    U8 const second = hit.secondRule ? hit.secondRule->priority : U8{0};
    if (hit.rule.priority == 0 || second == 0) return std::max(hit.rule.priority, second);
    return std::min(hit.rule.priority, second);
}

}  // namespace

ProtocolLookup::ProtocolLookup(SimulatedChip const& chip, ProfileInfo const& profile)
    : memories_(memoriesOf(chip, profile, "protocols")) {}

U8 ProtocolLookup::numberOf(U8 ipProtocol, U32 pipeline) const {
    checkPipeline(memories_, pipeline);
    auto const words = memories_[pipeline]->row(ipProtocol);
    return evenParity(words.first(1)) ? static_cast<U8>(BitRow(words).at({0, 4})) : U8{0};
}

PortRangeLookup::PortRangeLookup(SimulatedChip const& chip, ProfileInfo const& profile) {
    if (profile.hwApi.majorVersion() < 4) {
        memories_.resize(profile.numPipelinesOfTable(acl));
    } else {
        memories_ = memoriesOf(chip, profile, "portRanges");
    }
}

PortRangeBits PortRangeLookup::rangesOf(U8 aclId, U16 port, U32 pipeline) const {
    checkPipeline(memories_, pipeline);
    if (aclId > 15) throw Belmo::RangeException(fmt::format("ACL lookup: ACL number {} is above 15", aclId));
    auto const* memory = memories_[pipeline];
    if (memory == nullptr) return {};
    auto const low = rangesIn(*memory, 2u * aclId, port);
    auto const high = rangesIn(*memory, 2u * aclId + 1, port);
    return {static_cast<U8>(low.holding | high.holding << 4),
            static_cast<U8>(low.flagged | high.flagged << 4)};
}

AclProcessor::AclProcessor(SimulatedChip const& chip, ProfileInfo const& profile)
    : rules_(chip, profile), protocols_(chip, profile), ranges_(chip, profile) {}

std::optional<AclHit> AclProcessor::find(AclPacket const& packet, U8 combination, U32 pipeline) const {
    auto fields = packet.fields;
    fields.protocol = protocols_.numberOf(packet.ipProtocol, pipeline);
    std::optional<AclHit> best;
    for (auto const& port : {std::optional(packet.port), std::optional<U16>()}) {
        fields.port = port;
        auto const hit = rules_.find(fields, combination, pipeline);
        if (!hit || priorityOf(*hit) == 0) continue;
        auto const range = hit->rule.range;
        if (range && (ranges_.rangesOf(fields.aclId, packet.port, pipeline).holding >> *range & 1) == 0)
            continue;
        if (!best || priorityOf(*hit) < priorityOf(*best)) best = hit;
    }
    return best;
}

}  // namespace Chip
