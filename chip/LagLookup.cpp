#include "chip/LagLookup.h"

#include <algorithm>
#include <bit>
#include <fmt/format.h>
#include <span>

#include "Belmo/Exceptions.h"
#include "NerioSwitch/CrcHash.h"

#include "chip/BitRow.h"
#include "chip/LagMemories.h"

namespace Chip {

namespace {

constexpr auto l2 = NerioSwitch::TableLayoutEnum::tableLayoutL2;
constexpr U32 noGroup = 63;
/** Ports that a mask has room for. */
constexpr U32 maskPorts = 64;

/** What a port's hash control word says. */
constexpr U32 vlanBit = 1u << 0;
constexpr U32 protocolBit = 1u << 1;
constexpr U32 addressesBit = 1u << 2;
constexpr U32 portsBit = 1u << 9;
constexpr BitRange seedBits{3, 6};

/** The key of the hash: the seed, and the fields that take part, others as 0. */
constexpr U8 hashedBits = 122;
BitRow hashKey(U32 control, U32 seed, LagPacket const& packet) {
    BitRow key;
    key.put({0, 6}, seed);
    if ((control & vlanBit) != 0) key.put({6, 12}, packet.vlan);
    if ((control & protocolBit) != 0) key.put({18, 8}, packet.protocol);
    if ((control & addressesBit) != 0) {
        key.put({26, 32}, packet.source);
        key.put({58, 32}, packet.destination);
    }
    if ((control & portsBit) != 0) {
        key.put({90, 16}, packet.sourcePort);
        key.put({106, 16}, packet.destinationPort);
    }
    return key;
}

U64 maskOf(std::span<U32 const> row) {
    return U64{row[1]} << 32 | row[0];
}

/** The ports of a mask that take a packet. */
template <class Take>
U64 portsThat(U64 mask, Take const& take) {
    U64 ports = 0;
    for (; mask != 0; mask &= mask - 1) {
        if (take(static_cast<U32>(std::countr_zero(mask)))) ports |= mask & ~(mask - 1);
    }
    return ports;
}

}  // namespace

LagLookup::LagLookup(SimulatedChip const& chip, NerioSwitch::ProfileInfo const& profile)
    : chip_(chip), profile_(profile) {}

/** A layer 2 table selects its ports by their distance from the lowest one of its pipes. */
std::optional<LagLookup::Place> LagLookup::placeOf(U32 port) const {
    U32 const table = profile_.pipeToTableId(profile_.portToIngressPipeId(port), l2);
    U32 first = port;
    for (auto const& [pipe, range] : profile_.ingressPipeRangeInfo) {
        bool const isOfTable =
            pipe < profile_.numPipelinesOfTable(l2) && profile_.pipeToTableId(pipe, l2) == table;
        if (isOfTable) first = std::min(first, U32{range.firstPort});
    }
    if (port - first >= lagPortsPerTable) return std::nullopt;
    return Place{lagTablePrefix(profile_, table), port - first};
}

std::optional<U32> LagLookup::group(U32 port) const {
    auto const place = placeOf(port);
    if (!place) return std::nullopt;
    auto const row = chip_.indirectMemory(place->prefix + "lagGroups").row(place->row);
    U32 const group = row[0] & 0x3F;
    bool const wasStored = row[1] != 0;
    return wasStored && group != noGroup ? std::optional(group) : std::nullopt;
}

U64 LagLookup::members(U32 port) const {
    auto const place = placeOf(port);
    return place ? maskOf(chip_.indirectMemory(place->prefix + "lagPorts").row(place->row)) : 0;
}

U64 LagLookup::cpuMembers(U32 group) const {
    if (group >= noGroup) throw Belmo::RangeException(fmt::format("LAG look-up: there is no LAG {}", group));
    return maskOf(chip_.indirectMemory("cpu_pipeline[0]/lag_cpu[0]/lagPorts").row(group));
}

U32 LagLookup::bucket(U32 ingressPort, LagPacket const& packet) const {
    if (ingressPort >= std::min<U32>(profile_.numPorts, maskPorts))
        throw Belmo::RangeException(fmt::format("LAG look-up: there is no port {}", ingressPort));
    auto const place = profile_.ingressPipeOfPort(ingressPort);
    auto const handle = chip_.registers().address(
        fmt::format("pipeline[{}]/port[{}]/lhash_ctl", place.pipeId, place.pipePort));
    U32 const control = chip_.memory()[handle.number];
    auto const seed = static_cast<U32>(BitRow(std::span(&control, 1)).at(seedBits));
    auto const key = hashKey(control, seed, packet).bytes();
    // A seed within the key alone would only shift all packets: it chooses the polynomial as well.
    auto const way = static_cast<U8>(seed % NerioSwitch::CrcHashes::ways);
    return NerioSwitch::crc10Hashes(key.data(), hashedBits).way(way) % buckets;
}

LagLookup::Row LagLookup::bucketRowIn(Belmo::String const& pipeline, U32 port) const {
    bool const inOne = lagBucketsInOneMemory(profile_);
    auto const prefix = inOne ? pipeline : fmt::format("{}lag_lut[{}]/", pipeline, port / 4);
    return {chip_.indirectMemory(prefix + "lagBuckets"), inOne ? port : port % 4};
}

LagLookup::Row LagLookup::bucketRow(U32 ingressPort, U32 port) const {
    return bucketRowIn(fmt::format("pipeline[{}]/", profile_.portToIngressPipeId(ingressPort)), port);
}

U32 LagLookup::bucketsOf(U32 ingressPort, U32 port) const {
    auto const [memory, number] = bucketRow(ingressPort, port);
    return memory.row(number)[0];
}

U32 LagLookup::cpuBucketsOf(U32 port) const {
    auto const [memory, number] = bucketRowIn("cpu_pipeline[0]/", port);
    return memory.row(number)[0];
}

U64 LagLookup::egressPorts(U32 ingressPort, U64 ports, LagPacket const& packet) const {
    U32 const wanted = bucket(ingressPort, packet);
    U64 const meant = ports & ~(members(ingressPort) | U64{1} << ingressPort);
    return portsThat(meant, [&](U32 port) {
        if (port >= profile_.numPorts) return true;  // the CPU
        U32 const taken = bucketsOf(ingressPort, port);
        return taken == 0 || (taken >> wanted & 1) != 0;
    });
}

U64 LagLookup::cpuEgressPorts(U32 group, U32 bucket) const {
    if (bucket >= buckets)
        throw Belmo::RangeException(fmt::format("LAG look-up: there is no bucket {}", bucket));
    return portsThat(cpuMembers(group), [&](U32 port) {
        return port < profile_.numPorts && (cpuBucketsOf(port) >> bucket & 1) != 0;
    });
}

}  // namespace Chip
