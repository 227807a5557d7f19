#include "chip/Layer2Lookup.h"

#include <algorithm>
#include <bit>
#include <fmt/format.h>

#include "chip/Geometry.h"

namespace Chip {

namespace {

using Layout = NerioSwitch::TableLayoutEnum;

constexpr BitRange bits(U32 first, U32 width) {
    return {static_cast<U8>(first), static_cast<U8>(width)};
}

/** Reads a row's fields one behind the other. */
class RowReader {
public:
    RowReader(BitRow const& row, U32 first) : row_(row), next_(first) {}
    U64 take(U32 width) {
        U64 const value = width == 0 ? 0 : row_.at(bits(next_, width));
        next_ += width;
        return value;
    }
    bool flag() { return take(1) != 0; }
    U32 next() const { return next_; }

private:
    BitRow const& row_;
    U32 next_;
};

/** Each pipe has an ACL processor of its own, and rows an ACL for a single pipe. */
bool oneAclPerRow(NerioSwitch::ProfileInfo const& profile) {
    auto const* layout = profile.getHardwareTableLayout(Layout::tableLayoutAcl);
    return profile.aclPipeModeCapable && (layout == nullptr || layout->processors == layout->pipelines);
}

}  // namespace

Layer2Lookup::Layer2Lookup(SimulatedChip& chip, NerioSwitch::ProfileInfo const& profile)
    : chip_(chip), profile_(profile) {}

U32 Layer2Lookup::portRegister(Belmo::String const& path) const {
    return chip_.read(chip_.address(path));
}

VlanTag Layer2Lookup::nativeTag(U32 port) const {
    auto const place = profile_.ingressPipeOfPort(port);
    U32 const tag = portRegister(profile_.vlanRegVer > 1 ? fmt::format("egress/port[{}]/vlan_tci", port)
                                                         : fmt::format("pipeline[{}]/port[{}]/default_vlan",
                                                                       place.pipeId, place.pipePort));
    return {static_cast<U16>(tag & 0xFFF), (tag >> 12 & 1) != 0, static_cast<U8>(tag >> 13 & 7)};
}

Learning Layer2Lookup::learning(U32 port) const {
    auto const place = profile_.ingressPipeOfPort(port);
    U32 const word =
        portRegister(fmt::format("pipeline[{}]/port[{}]/l2_control", place.pipeId, place.pipePort));
    return {(word & 1) != 0, (word & 2) != 0, (word & 4) != 0};
}

Layer2Lookup::Copy Layer2Lookup::copyOf(U32 port, Layout layout) const {
    if (profile_.hasCpuPipeline && port == profile_.cpuPortId())
        return {.number = profile_.numTables(layout), .firstPort = port, .isCpu = true};
    Copy copy{.number = profile_.pipeToTableId(profile_.portToIngressPipeId(port), layout)};
    U32 first = port;
    U32 last = port;
    for (auto const& [pipe, range] : profile_.ingressPipeRangeInfo) {
        if (profile_.pipeToTableId(pipe, layout) != copy.number) continue;
        first = std::min<U32>(first, range.firstPort);
        last = std::max<U32>(last, range.lastPort);
    }
    copy.firstPort = first;
    copy.ports = last - first + 1;
    return copy;
}

IndirectMemory const& Layer2Lookup::memory(Copy const& copy, bool ownBlock, char const* block,
                                           char const* name) const {
    if (copy.isCpu)
        return chip_.indirectMemory(
            fmt::format("cpu_pipeline[0]/{}/{}", ownBlock ? block : "processor", name));
    return chip_.indirectMemory(ownBlock ? fmt::format("ingress/{}[{}]/{}", block, copy.number, name)
                                         : fmt::format("pipeline[{}]/processor/{}", copy.number, name));
}

IndirectMemory const& Layer2Lookup::vlanRows(U32 port) const {
    return memory(copyOf(port, Layout::tableLayoutVlan), profile_.vlanRegVer > 2, "vlan", "vlans");
}

IndirectMemory const& Layer2Lookup::floodRows(U32 port) const {
    return memory(copyOf(port, Layout::tableLayoutVlan), profile_.hwApi.majorVersion() > 4, "vlan",
                  "floodSets");
}

IndirectMemory const& Layer2Lookup::addressRows(U32 port) const {
    return memory(copyOf(port, Layout::tableLayoutL2), profile_.noMuxInRegName, "processor_l2", "macVlans");
}

/** Rows have a bit of their own for it below version 3 of the VLAN registers. */
bool Layer2Lookup::isValid(BitRow const& row) const {
    return profile_.vlanRegVer > 2 || row.at(bits(0, 1)) != 0;
}

bool Layer2Lookup::hasVlans(U32 port) const {
    auto const& rows = vlanRows(port);
    auto const members = bits(profile_.vlanRegVer > 2 ? 0 : 1, copyOf(port, Layout::tableLayoutVlan).ports);
    for (U32 number = 0; number < rows.description().rows(); ++number) {
        BitRow const row(rows.row(number));
        if (isValid(row) && row.at(members) != 0) return true;
    }
    return false;
}

std::optional<VlanHit> Layer2Lookup::vlan(U32 port, U16 vlan) const {
    auto const copy = copyOf(port, Layout::tableLayoutVlan);
    U32 const version = profile_.vlanRegVer;
    auto const words = vlanRows(port).row(vlan & 0xFFFu);
    BitRow const row(words);
    if (!isValid(row) || !evenParity(words)) return std::nullopt;

    U32 const firstMember = version > 2 ? 0 : 1;
    RowReader reader(row, firstMember + copy.ports);
    VlanHit hit;
    hit.isMember = row.at(bits(firstMember + port - copy.firstPort, 1)) != 0;
    hit.learnToCpu = reader.flag();
    hit.unknownMulticastToCpu = reader.flag();
    hit.multicastJoinToCpu = reader.flag();
    hit.broadcastToCpu = reader.flag();
    hit.unknownDaToCpu = reader.flag();
    hit.multicastJoinToEgress = reader.flag();
    reader.take(1);  // parity
    U32 const vrfWidth =
        version > 3 ? static_cast<U32>(std::bit_width(std::max(profile_.numVrfs, 1u))) - 1 : 2;
    hit.vrf = static_cast<U8>(reader.take(vrfWidth));
    hit.unicastRoute = reader.flag();
    hit.multicastRoute = reader.flag();
    if (version > 3 && copy.ports > 1) readPipeFields(row, copy, port, reader.next(), hit);
    return hit;
}

/** Which of the pipes of its copy a port's is. */
U32 Layer2Lookup::pipeWithin(Copy const& copy, U32 port) const {
    U32 before = 0;
    for (U32 pipe = 0; pipe < profile_.portToIngressPipeId(port); ++pipe)
        before += profile_.pipeToTableId(pipe, Layout::tableLayoutVlan) == copy.number ? 1 : 0;
    return before;
}

/** A row has the ACL of one pipe, or of two, each field of both one behind the other. */
void Layer2Lookup::readPipeFields(BitRow const& row, Copy const& copy, U32 port, U32 first,
                                  VlanHit& hit) const {
    U32 const version = profile_.vlanRegVer;
    U32 const pipes = oneAclPerRow(profile_) ? 1 : 2;
    U32 const enableWidth = version > 5 ? 2 : 4;
    std::array<VlanAcl, 2> acl;
    RowReader reader(row, first);
    for (U32 i = 0; i < pipes; ++i)
        acl[i].id = static_cast<U8>(reader.take(4));
    for (U32 i = 0; i < pipes; ++i)
        acl[i].enable = static_cast<U8>(reader.take(enableWidth));
    for (U32 i = 0; i < pipes; ++i)
        acl[i].defaultPermit = reader.flag();
    hit.acl = acl[pipes == 1 ? 0 : pipeWithin(copy, port) & 1];
    auto const nat = static_cast<U8>(reader.take(version > 6 ? 6 : 3));
    if (reader.flag()) hit.nat = nat;
}

std::optional<FloodPorts> Layer2Lookup::flood(U32 port, U16 vlan) const {
    auto const words = floodRows(port).row(vlan & 0xFFFu);
    if (profile_.floodSetParity && !evenParity(words)) return std::nullopt;
    BitRow const row(words);
    RowReader reader(row, 0);
    U64 const unicast = reader.take(profile_.numPorts);
    return FloodPorts{unicast, reader.take(profile_.numPorts)};
}

std::optional<MacHit> Layer2Lookup::address(U32 port, U16 vlan, U64 address) const {
    auto const& rows = addressRows(port);
    U64 const key = address << 12 | vlan;
    for (U32 number = 0; number < rows.description().rows() && vlan > 0; ++number) {
        auto const words = rows.row(number);
        BitRow const row(words);
        if (row.at(bits(0, 60)) != key || !evenParity(words)) continue;
        RowReader reader(row, 60);
        MacHit hit{.row = number};
        hit.ports = reader.take(profile_.numPorts);
        hit.toCpu = reader.flag();
        hit.joinToEgress = reader.flag();
        hit.dataToCpu = reader.flag();
        hit.joinToCpus = reader.flag();
        hit.ipRoute = row.at(bits(profile_.numPorts + 74u, 1)) != 0;
        return hit;
    }
    return std::nullopt;
}

}  // namespace Chip
