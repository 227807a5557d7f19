#include "chip/AclPacketLookup.h"

#include <algorithm>

namespace Chip {

namespace {

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

std::vector<AclPacketHit> rulesOf(AclLookup const& lookup, Ipv4Headers const& packet,
                                  AclContext const& context, U32 pipeline) {
    std::vector<AclPacketHit> hits;
    AclFields fields{.aclId = context.aclId.value_or(0),
                     .firstAddress = packet.source,
                     .secondAddress = packet.destination,
                     .protocol = context.protocol,
                     .vrf = context.vrf,
                     .keyFlag = context.keyFlag};
    for (U8 combination = context.aclId ? 0 : firstOfVrfs; combination < combinations; ++combination) {
        auto const takesPart = fieldsOf(combination);
        auto const firstLengths = lengthsOf(packet.source, takesPart.first, lookup.tellsLengths());
        auto const secondLengths = lengthsOf(packet.destination, takesPart.second, lookup.tellsLengths());
        for (auto const port : portsOf(takesPart, packet)) {
            fields.port = port;
            for (U8 const first : firstLengths) {
                fields.firstLength = first;
                for (U8 const second : secondLengths) {
                    fields.secondLength = second;
                    auto const hit = lookup.find(fields, combination, pipeline);
                    if (!hit) continue;
                    AclPacketHit const found{combination, fields, *hit};
                    if (isNew(hits, lookup, pipeline, found)) hits.push_back(found);
                }
            }
        }
    }
    return hits;
}

}  // namespace Chip
