#include "chip/MulticastLookup.h"

#include <algorithm>
#include <fmt/format.h>

#include "Belmo/Exceptions.h"
#include "NerioSwitch/CrcHash.h"

#include "chip/BitRow.h"

namespace Chip {

namespace {

using Words = std::span<U32 const>;

/** Of a source and a destination, and above them what kind of key it is. */
constexpr U8 pairBits = 75;
constexpr BitRange hashedDestination{0, 28};
constexpr BitRange hashedSource{28, 32};
constexpr BitRange hashedKind{60, 13};
/** What a row stores of it: the kind's highest bit, of unicast, only on chips that have such keys. */
constexpr BitRange storedDestination{0, 15};
constexpr BitRange storedSource{15, 32};
constexpr BitRange storedKind{47, 12};
constexpr U8 unicastBit = 59;
constexpr U16 unicastKind = 1u << 12;
constexpr U8 droppedBits = 13;

/** Of a group and a VLAN. */
constexpr U8 groupBits = 41;
constexpr BitRange hashedVlan{28, 12};
constexpr BitRange hashedMulticast{40, 1};
constexpr BitRange storedGroup{0, 16};
constexpr BitRange storedVlan{16, 12};
constexpr BitRange multicastAndValid{28, 2};
constexpr U32 groupKeyWidth = 30;

constexpr U8 nexthopLine = 128;
constexpr U32 linesPerBank = 512;
constexpr U32 firstGroupLine = 448;
constexpr U32 linesPerGroup = 4;

IndirectMemory& memoryOf(SimulatedChip& chip, U32 processor, char const* name) {
    return chip.indirectMemory(fmt::format("ingress/processor_l3[{}]/{}", processor, name));
}

BitRange bits(U32 first, U32 width) {
    return {static_cast<U8>(first), static_cast<U8>(width)};
}

/** A multicast result: the group of VLANs and the ports behind it, from that bit on. */
void readPorts(Words words, U32 first, U32 ports, MulticastHit& hit) {
    BitRow const row(words);
    hit.vlanGroup = static_cast<U8>(row.at(bits(first, 4)));
    hit.ports = row.at(bits(first + 4, ports + 1));
}

/** A line's data, with what stands beside it in the same line. */
struct Line {
    U32 data;
    U32 flags;
};

Line lineOf(SimulatedChip const& chip, U32 processor, U32 row) {
    auto const& memory = chip.indirectMemory(fmt::format("egress/processor[{}]/lines", processor));
    auto const words = memory.row(row);
    return {words[0], words[1]};
}

}  // namespace

MulticastLookup::MulticastLookup(SimulatedChip& chip, NerioSwitch::ProfileInfo const& profile, U32 processor)
    : ports_(profile.numPorts),
      translates_(profile.natProfile),
      hasSessions_(profile.natProfile && profile.hwApi.majorVersion() >= 6),
      pairs_(&memoryOf(chip, processor, "sg")),
      groups_(&memoryOf(chip, processor, "lpm29")) {}

std::optional<MulticastLookup::RowFound> MulticastLookup::findPair(U32 source, U32 destination,
                                                                   U16 kind) const {
    BitRow key;
    key.put(hashedDestination, destination);
    key.put(hashedSource, source);
    key.put(hashedKind, kind);
    BitRow stored;
    stored.put(storedDestination, destination >> droppedBits);
    stored.put(storedSource, source);
    stored.put(storedKind, kind);
    U32 const validBit = translates_ ? unicastBit + 3u : unicastBit;
    if (translates_) stored.put({unicastBit, 1}, (kind & unicastKind) != 0 ? 1 : 0);
    U32 const compared = translates_ ? unicastBit + 1u : unicastBit;
    auto const bytes = key.bytes();
    auto const rows = NerioSwitch::crc13Hashes(bytes.data(), pairBits);
    for (U8 way = 0; way < pairs_->description().ways; ++way) {
        HashPlace const place{way, rows.way(way)};
        auto const words = pairs_->row(way * pairs_->description().rowsPerWay + place.row);
        BitRow const row(words);
        bool const matches = row.lowest(compared) == stored && row.at(bits(validBit, 1)) != 0;
        if (!matches || !evenParity(words)) continue;
        RowFound found{place, {}};
        std::copy(words.begin(), words.end(), found.words.begin());
        return found;
    }
    return std::nullopt;
}

PairTranslation MulticastLookup::translationOf(RowFound const& found) const {
    if (!hasSessions_) return {};
    // Behind the ports' place and the parity bit; the words from the second one on hold all of it.
    BitRow const tail(Words(found.words).subspan(1));
    U32 const first = 62 + ports_ + 7 - 32;
    return {.natType = static_cast<U8>(tail.at(bits(first, 2))),
            .natSession = static_cast<U32>(tail.at(bits(first + 2, 17))),
            .natEnabled = tail.at(bits(first + 19, 1)) != 0};
}

std::optional<MulticastHit> MulticastLookup::findSourceRoute(U32 source, U32 group, U16 vlan) const {
    auto const found = findPair(source, group, vlan & 0xFFF);
    if (!found) return std::nullopt;
    MulticastHit hit{.place = found->place, .ofSource = true, .translation = translationOf(*found)};
    readPorts(found->words, translates_ ? unicastBit + 4u : unicastBit + 1u, ports_, hit);
    return hit;
}

std::optional<MulticastHit> MulticastLookup::findGroupRoute(U32 group, U16 vlan) const {
    BitRow key;
    key.put(hashedDestination, group);
    key.put(hashedVlan, vlan);
    key.put(hashedMulticast, 1);
    BitRow stored;
    stored.put(storedGroup, group >> 12);
    stored.put(storedVlan, vlan);
    stored.put(multicastAndValid, 3);
    auto const bytes = key.bytes();
    auto const rows = NerioSwitch::crc12Hashes(bytes.data(), groupBits);
    for (U8 way = 0; way < groups_->description().ways; ++way) {
        HashPlace const place{way, rows.way(way)};
        auto const words = groups_->row(way * groups_->description().rowsPerWay + place.row);
        if (BitRow(words).lowest(groupKeyWidth) != stored || !evenParity(words)) continue;
        MulticastHit hit{.place = place};
        readPorts(words, groupKeyWidth, ports_, hit);
        return hit;
    }
    return std::nullopt;
}

std::optional<MulticastHit> MulticastLookup::find(U32 source, U32 group, U16 vlan) const {
    auto const hit = findSourceRoute(source, group, vlan);
    return hit ? hit : findGroupRoute(group, vlan);
}

std::optional<FlowHit> MulticastLookup::findFlow(U32 source, U32 destination, U8 ingressProfile) const {
    if (!translates_) return std::nullopt;
    auto const kind = static_cast<U16>(destination >> 28 | (ingressProfile & 63u) << 4 | unicastKind);
    auto const found = findPair(source, destination, kind);
    if (!found) return std::nullopt;
    BitRow const row(Words(found->words));
    FlowHit hit{.place = found->place};
    hit.lookupType = static_cast<U8>(row.at({60, 2}));
    hit.rewriteIndex = static_cast<U8>(row.at({63, 6}));
    hit.l3Lag = static_cast<U8>(row.at({69, 6}));
    hit.translation = translationOf(*found);
    return hit;
}

std::optional<MulticastHit> MulticastLookup::packetIs(U32 source, U32 group, U16 vlan) {
    auto const hit = find(source, group, vlan);
    if (!hit) return hit;
    auto& memory = hit->ofSource ? *pairs_ : *groups_;
    memory.hitIs(hit->place.way * memory.description().rowsPerWay + hit->place.row);
    return hit;
}

std::optional<FlowHit> MulticastLookup::flowIs(U32 source, U32 destination, U8 ingressProfile) {
    auto const hit = findFlow(source, destination, ingressProfile);
    if (hit) pairs_->hitIs(hit->place.way * pairs_->description().rowsPerWay + hit->place.row);
    return hit;
}

FloodLookup::FloodLookup(SimulatedChip const& chip, NerioSwitch::ProfileInfo const& profile)
    : chip_(chip), ports_(profile.numPorts) {}

std::optional<U64> FloodLookup::ports(U32 nexthop, U32 processor) const {
    auto const& memory = chip_.indirectMemory(fmt::format("ingress/processor_l3[{}]/l3Floods", processor));
    auto const words = memory.row(nexthop);
    if (!evenParity(words)) return std::nullopt;
    return BitRow(words).at(bits(0, ports_));
}

std::optional<FloodRewrite> FloodLookup::rewrite(U32 nexthop, U32 egressProcessor, U32 pipePort) const {
    U32 const row = rewriteRow(nexthop, pipePort);
    auto const even = lineOf(chip_, egressProcessor, row);
    auto const odd = lineOf(chip_, egressProcessor, row + 1);
    for (auto const& line : {even, odd}) {
        if (!evenParity(std::array{line.data, line.flags})) return std::nullopt;
    }
    return FloodRewrite{.ethAddr = U64{even.data} << 16 | odd.data >> 16, .vlan = static_cast<U16>(odd.data)};
}

U32 FloodLookup::rewriteRow(U32 nexthop, U32 pipePort) {
    return (pipePort & 1) * linesPerBank + nexthopLine + 2 * nexthop;
}

VlanGroupWalk::VlanGroupWalk(SimulatedChip const& chip, NerioSwitch::ProfileInfo const& profile)
    : chip_(chip), ports_(profile.portIdToEgressPipe) {
    for (auto const& [port, info] : ports_) {
        if (info.pipePort > 1) {
            throw Belmo::RangeException(
                fmt::format("VLAN groups: port {} is number {} of its egress pipe, and it is not known where "
                            "those above 1 have theirs",
                            port, info.pipePort));
        }
    }
}

bool VlanGroupWalk::knows(NerioSwitch::ProfileInfo const& profile) {
    return std::ranges::all_of(profile.portIdToEgressPipe,
                               [](auto const& port) { return port.second.pipePort <= 1; });
}

U32 VlanGroupWalk::groupRow(U32 pipePort, U8 group) {
    return pipePort * linesPerBank + firstGroupLine + group * linesPerGroup;
}

std::vector<U16> VlanGroupWalk::vlans(U32 port, U8 group) const {
    auto const found = ports_.find(port);
    if (found == ports_.end() || group > 15)
        throw Belmo::RangeException(fmt::format("VLAN groups: there is no group {} at port {}", group, port));
    std::vector<U16> vlans;
    for (U32 number = 0; number < linesPerGroup; ++number) {
        auto const line =
            lineOf(chip_, found->second.pipeId, groupRow(found->second.pipePort, group) + number);
        if ((line.flags & 1) != 0) vlans.push_back(static_cast<U16>(line.data >> 16));
        if ((line.flags & 2) != 0) vlans.push_back(static_cast<U16>(line.data));
        if ((line.flags & 4) == 0) break;
    }
    return vlans;
}

}  // namespace Chip
