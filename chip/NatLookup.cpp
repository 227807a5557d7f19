#include "chip/NatLookup.h"

#include <fmt/format.h>

#include "Belmo/Exceptions.h"
#include "NerioSwitch/CrcHash.h"

#include "chip/BitRow.h"

namespace Chip {

namespace {

constexpr U8 longestFilter = 32;

U32 cutTo(U32 address, U8 length) {
    return length == 0 ? 0 : address >> (32 - length) << (32 - length);
}

struct PackedKey {
    BitRow bits;
    U8 length = 0;
};

/** A side's key. A filter's length is folded into bits that it leaves free, where keys have masks. */
PackedKey keyOf(NatSide const& side, bool withMasks) {
    U32 const type = (side.destination ? 2u : 0u) | (side.port ? 1u : 0u) | (side.filter ? 4u : 0u);
    PackedKey key;
    key.bits.put({0, 32}, side.address);
    key.bits.put({32, 16}, side.port.value_or(0));
    key.bits.put({48, 3}, type);
    key.bits.put({51, 6}, side.profile);
    key.length = withMasks ? 91 : 89;
    if (!side.filter) return key;
    auto const [address, length] = *side.filter;
    if (length > longestFilter)
        throw Belmo::RangeException(fmt::format("NAT lookup: filter length {} is above 32", length));
    U32 const filter = cutTo(address, length);
    key.bits.put({57, 32}, filter);
    if (!withMasks) return key;
    U32 const maskType = length > 30 ? 32u - length : length > 26 ? 2 : 3;
    key.bits.put({89, 2}, maskType);
    if (maskType == 2) key.bits.put({57, 2}, length - 27u);
    if (maskType == 3) key.bits.put({57, 5}, length);
    return key;
}

BitRow keyOf(NatFlow const& flow) {
    BitRow key;
    key.put({0, 32}, flow.sourceAddress);
    key.put({32, 32}, flow.destinationAddress);
    key.put({64, 16}, flow.sourcePort);
    key.put({80, 16}, flow.destinationPort);
    key.put({96, 6}, flow.profile);
    return key;
}

BitRow keyOf(NatEgress const& egress) {
    BitRow key;
    key.put({0, 17}, egress.session);
    if (egress.copy) {
        key.put({17, 4}, egress.copy->vlanGroup);
        key.put({21, 3}, egress.copy->member);
    } else {
        key.put({17, 6}, egress.profile);
        key.put({23, 1}, egress.secondTnat);
    }
    key.put({24, 1}, egress.oddPort);
    return key;
}

std::span<U32 const> wordsAt(IndirectMemory const& memory, HashPlace place) {
    return memory.row(place.way * memory.description().rowsPerWay + place.row);
}

/** The first way whose row is valid, has even parity and stores those lowest bits. */
std::optional<HashPlace> placeOf(IndirectMemory const& memory, NerioSwitch::CrcHashes rows,
                                 BitRow const& stored, U8 storedBits, U8 validBit) {
    for (U8 way = 0; way < memory.description().ways; ++way) {
        HashPlace const place{way, rows.way(way)};
        auto const words = wordsAt(memory, place);
        BitRow const row(words);
        if (row.at({validBit, 1}) != 0 && row.lowest(storedBits) == stored && evenParity(words)) return place;
    }
    return std::nullopt;
}

}  // namespace

NatMatchLookup::NatMatchLookup(SimulatedChip& chip, NerioSwitch::ProfileInfo const& profile, U32 pipeline)
    : static_(&chip.indirectMemory(fmt::format("ingress/processor_l4[{}]/natMatch", pipeline / 2))),
      dynamic_(&chip.indirectMemory(
          fmt::format("ingress/processor_l4[{}]/natDynMatch/pipeline{}", pipeline / 2, pipeline))),
      withMasks_(profile.hwApi.majorVersion() >= 10) {}

std::optional<NatMatchHit> NatMatchLookup::find(NatSide const& side) const {
    constexpr U8 impliedBits = 12;
    auto const key = keyOf(side, withMasks_);
    auto const rows = NerioSwitch::crc12Hashes(key.bits.bytes().data(), key.length);
    auto const storedBits = static_cast<U8>(key.length - impliedBits);
    auto const place = placeOf(*static_, rows, key.bits.from(impliedBits), storedBits, storedBits);
    if (!place) return std::nullopt;
    auto const result = BitRow(wordsAt(*static_, *place)).from(storedBits);
    return NatMatchHit{.place = *place,
                       .dynamic = false,
                       .destination = side.destination,
                       .withPort = side.port.has_value(),
                       .filter = side.filter,
                       .protocols = static_cast<U8>(result.at({1, 2})),
                       .session = static_cast<U32>(result.at({3, 17})),
                       .useAcl = result.at({20, 1}) != 0,
                       .trapToCpu = result.at({22, 1}) != 0,
                       .rewriteIndex = static_cast<U8>(result.at({23, 6})),
                       .l3Lag = static_cast<U8>(result.at({29, 6}))};
}

std::optional<NatMatchHit> NatMatchLookup::find(NatFlow const& flow) const {
    auto const key = keyOf(flow);
    auto const place =
        placeOf(*dynamic_, NerioSwitch::crc10Hashes(key.bytes().data(), 102), key.from(10), 92, 92);
    if (!place) return std::nullopt;
    BitRow const row(wordsAt(*dynamic_, *place));
    return NatMatchHit{.place = *place,
                       .dynamic = true,
                       .destination = row.at({96, 1}) != 0,
                       .withPort = true,
                       .filter = {},
                       .protocols = static_cast<U8>(row.at({93, 2})),
                       .session = static_cast<U32>(row.at({97, 17})),
                       .useAcl = false,
                       .trapToCpu = row.at({115, 1}) != 0,
                       .rewriteIndex = static_cast<U8>(row.at({116, 6})),
                       .l3Lag = static_cast<U8>(row.at({122, 6}))};
}

std::optional<NatMatchHit> NatMatchLookup::findSide(NatSide side, U32 other, U8 protocol) const {
    auto const counts = [&](std::optional<NatMatchHit> const& hit) {
        return hit && (hit->protocols == 0 || (hit->protocols & protocol) != 0);
    };
    for (int length = longestFilter; length >= 0; --length) {
        side.filter = {cutTo(other, static_cast<U8>(length)), static_cast<U8>(length)};
        if (auto const hit = find(side); counts(hit)) return hit;
    }
    side.filter.reset();
    auto const hit = find(side);
    return counts(hit) ? hit : std::nullopt;
}

std::optional<NatMatchHit> NatMatchLookup::find(NatFlow const& packet, U8 protocol) const {
    auto const dynamic = find(packet);
    if (dynamic && (dynamic->protocols == 0 || (dynamic->protocols & protocol) != 0)) return dynamic;
    for (bool const destination : {false, true}) {
        U32 const address = destination ? packet.destinationAddress : packet.sourceAddress;
        U32 const other = destination ? packet.sourceAddress : packet.destinationAddress;
        U16 const port = destination ? packet.destinationPort : packet.sourcePort;
        NatSide side{.destination = destination, .address = address, .profile = packet.profile};
        if (protocol != 0) {
            side.port = port;
            if (auto const hit = findSide(side, other, protocol)) return hit;
            side.port.reset();
        }
        if (auto const hit = findSide(side, other, protocol)) return hit;
    }
    return std::nullopt;
}

void NatMatchLookup::hitIs(NatMatchHit const& hit) {
    auto& memory = hit.dynamic ? *dynamic_ : *static_;
    memory.hitIs(hit.place.way * memory.description().rowsPerWay + hit.place.row);
}

NatRewriteLookup::NatRewriteLookup(SimulatedChip& chip, U32 pipeline)
    : memory_(&chip.indirectMemory(fmt::format("egress/processor[{}]/natRewrite", pipeline))) {}

std::optional<NatRewriteHit> NatRewriteLookup::find(NatEgress const& egress) const {
    auto const key = keyOf(egress);
    auto const place =
        placeOf(*memory_, NerioSwitch::crc10Hashes(key.bytes().data(), 25), key.from(10), 15, 15);
    if (!place) return std::nullopt;
    BitRow const row(wordsAt(*memory_, *place));
    return NatRewriteHit{.place = *place,
                         .newAddress = static_cast<U32>(row.at({48, 32})),
                         .newPort = static_cast<U16>(row.at({16, 16})),
                         .checksumCorrection = static_cast<U16>(row.at({32, 16}))};
}

namespace {

/** A protocol's bit of `NatMatchHit::protocols`. */
U8 protocolBit(Ipv4Headers const& headers) {
    if (!headers.transport) return 0;
    return headers.protocol == IpProtocol::tcp ? 1 : 2;
}

}  // namespace

std::optional<NatMatchHit> NatMatchLookup::find(Ipv4Headers const& packet, U16 profile) const {
    auto const ports = packet.transport.value_or(Ipv4Headers::Transport());
    return find({.sourceAddress = packet.source,
                 .sourcePort = ports.sourcePort,
                 .destinationAddress = packet.destination,
                 .destinationPort = ports.destinationPort,
                 .profile = profile},
                protocolBit(packet));
}

void rewritePacket(std::span<U8> packet, bool destination, NatRewriteHit const& rewrite) {
    addressIs(packet, destination, rewrite.newAddress);
    auto const port = rewrite.newPort != 0 ? std::optional(rewrite.newPort) : std::nullopt;
    portIs(packet, destination, port, rewrite.checksumCorrection);
}

bool translatePacket(SimulatedChip& chip, NerioSwitch::ProfileInfo const& profile, NatPath const& path,
                     std::span<U8> packet) {
    NatMatchLookup matches(chip, profile, path.ingressPipeline);
    auto const match = matches.find(headersOf(packet), path.ingressProfile);
    if (!match || match->trapToCpu) return false;
    auto const rewrite = NatRewriteLookup(chip, path.egressPipeline)
                             .find({.session = match->session, .profile = path.egressProfile});
    if (!rewrite) return false;
    matches.hitIs(*match);
    rewritePacket(packet, match->destination, *rewrite);
    return true;
}

}  // namespace Chip
