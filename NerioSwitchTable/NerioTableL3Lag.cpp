#include "NerioSwitchTable/NerioTableL3Lag.h"

#include "NerioSwitch/Parity.h"
#include "Sorn/Format.h"

namespace NerioSwitchTable {

using NerioSwitch::IngressPortMask;

namespace {

Sorn::TraceHandle handle("NerioTableL3Lag");

constexpr auto l3 = NerioSwitch::TableLayoutEnum::tableLayoutL3;

}  // namespace

Belmo::String L3LagResult::resultString() const {
    return Sorn::_fmt("portMask:0x%012lx%s%s", portMask().value(), cpuPriority() ? ", cpuPriority" : "",
                      natEnabled() ? ", natEnabled" : "");
}

L3LagEntry::~L3LagEntry() = default;

Belmo::String L3LagEntry::toStrep() const {
    return namedText("L3LagEntry");
}

L3LagTable::L3LagTable(Belmo::String const& name) : DirectTable<L3LagEntry>(name) {
    hwTablesDuplicateIs(true);
}

L3LagTable::~L3LagTable() = default;

Belmo::Ptr<DirectBaseConvertor> L3LagTable::profileConvertorFactory() const {
    return l3LagConvertorFactory();
}

Sorn::TraceHandle const& L3LagTable::trace() const {
    return handle;
}

L3LagConvertor::L3LagConvertor()
    : DirectConvertor({.words = L3LagRow::words, .staticWords = {{L3LagRow::controlWord, 0xFFFFFFFF}}}) {}

L3LagConvertor::~L3LagConvertor() = default;

void L3LagConvertor::doCreateHwTables(NerioSwitchApi::TableState state) {
    BELMO_ASSERT(fieldsFit(L3LagRow(profile()->numPorts).fields(), L3LagRow::dataWords));
    for (U32 processor = 0; processor < profile()->numProcessors(l3); ++processor) {
        auto const prefix = Sorn::_fmt("ingress/processor_l3[%u]/", processor);
        createDirectTable(processor, state, "L3Lag", L3LagRow::lastRow,
                          NerioSwitchApi::addressesOf(prefix, {"hash_data0", "hash_data1", "hash_ctl"}));
    }
}

std::vector<NerioSwitchApi::RowLayout> L3LagConvertor::rowLayouts(HwTableId /*id*/) const {
    return {NerioSwitchApi::rowLayout(
        L3LagRow::words,
        NerioSwitchApi::rowFields(L3LagRow(profile()->numPorts).fields(), L3LagRow::controlFields))};
}

void L3LagConvertor::setStaticBuffer(HwIndex index, Sorn::BytePtr buffer) const {
    auto* const words = reinterpret_cast<U32*>(buffer);
    L3LagRow::row.set(words, index);
    L3LagRow::writeStrobe.set(words, 1);
    L3LagRow::table.set(words, L3LagRow::l3LagTable);
}

void L3LagConvertor::encode(L3LagEntry const& item, U32* words) const {
    L3LagRow const row(profile()->numPorts);
    auto const& result = item.result();
    row.portMask.set(words, result.portMask().hardwareBitmask(profile()->numPorts));
    row.cpuPriority.set(words, result.cpuPriority());
    row.natEnabled.set(words, result.natEnabled());
    row.parity.set(words, 0);
    row.parity.set(words, NerioSwitch::parityU32Array(words, L3LagRow::dataWords));
}

void L3LagConvertor::decode(U32 const* words, L3LagEntry& item) const {
    L3LagRow const row(profile()->numPorts);
    auto const ports = row.portMask.get(words);
    L3LagResult const result =
        L3LagResult()
            .portMaskIs(IngressPortMask::ingressPortMaskFromHw(ports, profile()->numPorts))
            .cpuPriorityIs(row.cpuPriority.get(words) != 0)
            .natEnabledIs(row.natEnabled.get(words) != 0);
    item.resultIs(result);
    item.validIs(result != L3LagResult());
}

Belmo::Ptr<L3LagEntry> L3LagEntryIs(NerioSwitch::L3LagIndex key) {
    return Belmo::make<L3LagEntry>(key);
}

Belmo::Ptr<L3LagTable> L3LagTableIs(Belmo::String const& name) {
    return Belmo::make<L3LagTable>(name);
}

Belmo::Ptr<L3LagTable> l3LagTableFactory(Belmo::String const& name) {
    return L3LagTableIs(name);
}

Belmo::Ptr<L3LagConvertor> l3LagConvertorFactory() {
    return Belmo::make<L3LagConvertor>();
}

}  // namespace NerioSwitchTable
