#include "NerioSwitchTable/NerioTableVlanGroup.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

#include "Belmo/Assert.h"
#include "Sorn/Format.h"

#include "NerioSwitchTable/NerioEgressMemory.h"
#include "NerioSwitchTable/TableConstants.h"

namespace Sorn {

template <>
void parseAttributes(CharRange& /*range*/, NerioSwitchTable::VlanGroupResult& /*object*/) {
    BELMO_ASSERT_TEXT(false, "\"No String constructor for VlanGroupResult - has collection\" == nullptr");
}

}  // namespace Sorn

namespace NerioSwitchTable {

using NerioSwitch::VlanGroupId;
using NerioSwitch::VlanGroupKey;

namespace {

Sorn::TraceHandle handle("NerioTableVlanGroup");

constexpr auto egress = NerioSwitch::TableLayoutEnum::tableLayoutEgress;
constexpr TableIndex tableIndex = 8;
constexpr U32 staticBits = 0xFFFFFFF0;

/** The VLANs of a row; nothing if its flags and VLANs do not make a list. */
std::optional<VlanGroupResult> vlansIn(U32 const* words) {
    VlanGroupResult result;
    U32 vlans = 0;
    bool ended = false;
    bool broken = false;
    auto const take = [&](bool isThere) {
        broken |= isThere && ended;
        ended |= !isThere;
        return isThere && !broken;
    };
    auto const read = [&](BitField const& flag, BitField const& field) {
        if (!take(flag.get(words) != 0)) return;
        auto const vlan = field.get(words);
        broken |= vlan == 0;
        if (!broken) result.groupIs(vlans++, vlan);
    };
    for (U8 pair = 0; pair < VlanGroupRow::pairs && !broken; ++pair) {
        read(VlanGroupRow::hasFirst(pair), VlanGroupRow::first(pair));
        read(VlanGroupRow::hasSecond(pair), VlanGroupRow::second(pair));
        take(VlanGroupRow::goesOn(pair).get(words) != 0);
    }
    if (broken) return std::nullopt;
    return result.numVlansIs(static_cast<U8>(vlans));
}

}  // namespace

VlanGroupResult& VlanGroupResult::groupIs(NerioSwitch::GroupVlanIndex index, Bridging::VlanId vid) {
    if (index.value() >= places)
        throw Belmo::RangeException(
            Sorn::_fmt("cannot access index %d of an array with size %d", index.value(), places));
    group_[index.value()] = vid;
    return *this;
}

VlanGroupResult& VlanGroupResult::groupDel(NerioSwitch::GroupVlanIndex index) {
    return groupIs(index, {});
}

VlanGroupResult& VlanGroupResult::groupDelAll() {
    group_ = {};
    return *this;
}

Belmo::String VlanGroupResult::resultString() const {
    auto text = Sorn::_fmt("numVlans: %d {", numVlans_);
    for (U32 i = 0; i < std::min<U32>(numVlans_, places); ++i)
        text.append(" ").append(group_[i].text());
    return text + " }";
}

VlanGroupEntry::~VlanGroupEntry() = default;

Belmo::String VlanGroupEntry::toStrep() const {
    return fmt::format("VlanGroupEntry(  {} {} )", Sorn::text(key()), result().resultString());
}

VlanGroupTable::VlanGroupTable(Belmo::String const& name) : DirectTable<VlanGroupEntry>(name) {}

VlanGroupTable::~VlanGroupTable() = default;

Belmo::Ptr<DirectBaseConvertor> VlanGroupTable::profileConvertorFactory() const {
    return vlanGroupConvertorFactory();
}

Sorn::TraceHandle const& VlanGroupTable::trace() const {
    return handle;
}

void VlanGroupTable::checkEntry(VlanGroupKey const& key, VlanGroupResult const& /*result*/) const {
    if (key.vlanGroupId().value() >= VlanGroupRow::rowsPerPort)
        throw Belmo::RangeException(VlanGroupId::rangeText);
}

VlanGroupConvertor::VlanGroupConvertor()
    : DirectConvertor({.words = VlanGroupRow::words,
                       .staticWords = {{1, staticBits}, {3, staticBits}, {5, staticBits}, {7, staticBits}},
                       .readStrobeBit = 14,
                       .writeStrobeBit = 15}) {}

VlanGroupConvertor::~VlanGroupConvertor() = default;

VlanGroupConvertor::HwIndex VlanGroupConvertor::hwIndexFromKey(VlanGroupKey const& key) const {
    return key.portId().value() * VlanGroupRow::rowsPerPort + key.vlanGroupId().value();
}

VlanGroupKey VlanGroupConvertor::keyFromHwIndex(HwIndex index) const {
    return {index / VlanGroupRow::rowsPerPort, index % VlanGroupRow::rowsPerPort};
}

void VlanGroupConvertor::doInitTableStats() {
    BELMO_ASSERT(capacitySupported());
    BELMO_ASSERT(profile());
    for (U32 port = 0; port < profile()->numPorts; ++port) {
        TableGauge::TableKey const key(TableConstants::cliName(tableIndex), Sorn::_fmt("Port%u", port),
                                       table().name());
        BELMO_ASSERT(key.verifyTableKey());
        initEntryCounter(key, VlanGroupRow::rowsPerPort, port);
    }
}

void VlanGroupConvertor::doCreateHwTables(NerioSwitchApi::TableState state) {
    SORN_TRACE(handle, 8, "doCreateHwTables tableState: {}", static_cast<U32>(state));
    auto const name = NerioSwitchApi::SwTable::hwTableName(table().name(), profile()->profileName(),
                                                           TableConstants::tableName(tableIndex), 0);
    auto const mapping = Belmo::make<NerioSwitchApi::HwTableRegisterMappingRange>(name);
    U32 lastPort = 0;
    for (U32 processor = 0; processor < profile()->numProcessors(egress); ++processor) {
        auto const pipe = profile()->egressPipeRangeInfo.find(static_cast<U16>(processor));
        lastPort += pipe == profile()->egressPipeRangeInfo.end() ? 1u : pipe->second.numPorts();
        mapping->regsIs(lastPort * VlanGroupRow::rowsPerPort - 1, egressMemoryRegisters(processor));
    }
    U32 const numPorts = profile()->numPorts;
    BELMO_ASSERT(lastPort == numPorts);
    createDirectTable(0, state, numPorts * VlanGroupRow::rowsPerPort - 1, mapping);
}

NerioSwitchApi::CapacityTableIndex VlanGroupConvertor::capacityIndexFromEntry(PtrConst const& item) const {
    return static_cast<VlanGroupEntry const&>(*item).key().portId().value();
}

/** Cut to the bits of a line's number, which has room for two ports. A port without a pipe adds nothing. */
U32 VlanGroupConvertor::lineAddress(HwIndex index, U8 pair) const {
    auto const port = profile()->portIdToEgressPipe.find(index / VlanGroupRow::rowsPerPort);
    U32 const pipePort = port == profile()->portIdToEgressPipe.end() ? 0u : port->second.pipePort;
    return index % VlanGroupRow::rowsPerPort * VlanGroupRow::pairs + VlanGroupRow::firstLine + pair +
           pipePort * VlanGroupRow::linesPerPort;
}

std::vector<NerioSwitchApi::RowLayout> VlanGroupConvertor::rowLayouts(HwTableId /*id*/) const {
    std::vector<NerioSwitchApi::RowField> fields;
    for (U8 pair = 0; pair < VlanGroupRow::pairs; ++pair)
        std::ranges::copy(VlanGroupRow::fields(pair), std::back_inserter(fields));
    return {NerioSwitchApi::rowLayout(VlanGroupRow::words, std::move(fields))};
}

void VlanGroupConvertor::setStaticBuffer(HwIndex index, Sorn::BytePtr buffer) const {
    auto* const words = reinterpret_cast<U32*>(buffer);
    for (U8 pair = 0; pair < VlanGroupRow::pairs; ++pair) {
        VlanGroupRow::address(pair).set(words, lineAddress(index, pair));
        VlanGroupRow::strobe(pair).set(words, 1);
    }
}

void VlanGroupConvertor::encode(VlanGroupEntry const& item, U32* words) const {
    SORN_TRACE(handle, 9, "key is {}", Sorn::text(item.key()));
    U32 const numVlans = item.result().numVlans();
    auto const& group = item.result().group();
    for (U8 pair = 0; pair < VlanGroupRow::pairs; ++pair) {
        U32 const before = 2u * pair;
        VlanGroupRow::first(pair).set(words, numVlans > before ? group[before].value() : 0);
        VlanGroupRow::second(pair).set(words, numVlans > before + 1 ? group[before + 1].value() : 0);
        VlanGroupRow::hasFirst(pair).set(words, numVlans > before);
        VlanGroupRow::hasSecond(pair).set(words, numVlans > before + 1);
        VlanGroupRow::goesOn(pair).set(words, numVlans > before + 2);
    }
}

void VlanGroupConvertor::decode(U32 const* words, VlanGroupEntry& item) const {
    auto const result = vlansIn(words);
    if (!result) table().hwInconsistentEntryIs(item.key(), true);
    item.resultIs(result.value_or(VlanGroupResult()));
    item.validIs(item.result() != VlanGroupResult());
    SORN_TRACE(handle, 8, "Decoded entry is {}", item.toStrep());
}

Belmo::Ptr<VlanGroupEntry> VlanGroupEntryIs(VlanGroupKey const& key) {
    return Belmo::make<VlanGroupEntry>(key);
}

Belmo::Ptr<VlanGroupEntry> vlanGroupEntryFactory(VlanGroupKey const& key) {
    return VlanGroupEntryIs(key);
}

Belmo::Ptr<VlanGroupTable> VlanGroupTableIs(Belmo::String const& name) {
    return Belmo::make<VlanGroupTable>(name);
}

Belmo::Ptr<VlanGroupTable> vlanGroupTableFactory(Belmo::String const& name) {
    return VlanGroupTableIs(name);
}

Belmo::Ptr<VlanGroupConvertor> vlanGroupConvertorFactory() {
    return Belmo::make<VlanGroupConvertor>();
}

}  // namespace NerioSwitchTable
