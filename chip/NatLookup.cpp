#include "chip/NatLookup.h"

#include <fmt/format.h>

#include "Belmo/Exceptions.h"
#include "NerioSwitch/CrcHash.h"

#include "chip/BitRow.h"
#include "chip/Geometry.h"

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
        side.filter = {other, static_cast<U8>(length)};
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

constexpr U8 tcp = 6;
constexpr U8 udp = 17;

U16 numberAt(std::span<U8 const> packet, std::size_t at) {
    return static_cast<U16>(packet[at] << 8 | packet[at + 1]);
}

void numberIs(std::span<U8> packet, std::size_t at, U16 number) {
    packet[at] = static_cast<U8>(number >> 8);
    packet[at + 1] = static_cast<U8>(number);
}

U32 addressAt(std::span<U8 const> packet, std::size_t at) {
    return U32{numberAt(packet, at)} << 16 | numberAt(packet, at + 2);
}

/** Adds to the sum that a checksum stands for (RFC 1624, equation 3). */
U16 corrected(U16 checksum, U32 correction) {
    U32 sum = (~U32{checksum} & 0xFFFF) + correction;
    while (sum > 0xFFFF)
        sum = (sum & 0xFFFF) + (sum >> 16);
    return static_cast<U16>(~sum);
}

std::size_t headerLength(std::span<U8 const> packet) {
    return std::size_t{4} * (packet[0] & 0xF);
}

/** The transport header's protocol if the packet has the ports and the checksum of TCP or UDP, or 0. */
U8 transportOf(std::span<U8 const> packet) {
    bool const firstFragment = (numberAt(packet, 6) & 0x1FFF) == 0;
    U8 const protocol = packet[9];
    std::size_t const size = protocol == tcp ? 20 : 8;
    bool const known = protocol == tcp || protocol == udp;
    return known && firstFragment && packet.size() >= headerLength(packet) + size ? protocol : U8{0};
}

NatFlow flowOf(std::span<U8 const> packet) {
    NatFlow flow{.sourceAddress = addressAt(packet, 12), .destinationAddress = addressAt(packet, 16)};
    if (transportOf(packet) == 0) return flow;
    flow.sourcePort = numberAt(packet, headerLength(packet));
    flow.destinationPort = numberAt(packet, headerLength(packet) + 2);
    return flow;
}

void check(std::span<U8 const> packet) {
    bool const isIp = packet.size() >= 20 && packet[0] >> 4 == 4 && headerLength(packet) >= 20 &&
                      packet.size() >= headerLength(packet);
    if (!isIp) throw Belmo::RangeException("NAT lookup: no IPv4 packet");
}

}  // namespace

void rewritePacket(std::span<U8> packet, bool destination, NatRewriteHit const& rewrite) {
    check(packet);
    std::size_t const addressField = destination ? 16 : 12;
    U32 const old = addressAt(packet, addressField);
    U32 const change =
        (~old >> 16) + (~old & 0xFFFF) + (rewrite.newAddress >> 16) + (rewrite.newAddress & 0xFFFF);
    numberIs(packet, addressField, static_cast<U16>(rewrite.newAddress >> 16));
    numberIs(packet, addressField + 2, static_cast<U16>(rewrite.newAddress));
    numberIs(packet, 10, corrected(numberAt(packet, 10), change));

    U8 const transport = transportOf(packet);
    if (transport == 0) return;
    auto const header = packet.subspan(headerLength(packet));
    if (rewrite.newPort != 0) numberIs(header, destination ? 2 : 0, rewrite.newPort);
    std::size_t const checksumField = transport == tcp ? 16 : 6;
    U16 const checksum = numberAt(header, checksumField);
    if (transport == udp && checksum == 0) return;
    U16 const right = corrected(checksum, rewrite.checksumCorrection);
    numberIs(header, checksumField, transport == udp && right == 0 ? U16{0xFFFF} : right);
}

bool translatePacket(SimulatedChip& chip, NerioSwitch::ProfileInfo const& profile, NatPath const& path,
                     std::span<U8> packet) {
    check(packet);
    NatMatchLookup matches(chip, profile, path.ingressPipeline);
    auto flow = flowOf(packet);
    flow.profile = path.ingressProfile;
    U8 const transport = transportOf(packet);
    auto const match = matches.find(flow, transport == tcp ? U8{1} : transport == udp ? U8{2} : U8{0});
    if (!match || match->trapToCpu) return false;
    auto const rewrite = NatRewriteLookup(chip, path.egressPipeline)
                             .find({.session = match->session, .profile = path.egressProfile});
    if (!rewrite) return false;
    matches.hitIs(*match);
    rewritePacket(packet, match->destination, *rewrite);
    return true;
}

}  // namespace Chip
