#include "NerioSwitchTable/NerioTableL3FloodBitmap.h"

#include "Belmo/Assert.h"
#include "NerioSwitch/Parity.h"
#include "Sorn/Format.h"

#include "NerioSwitchTable/NerioFloodCount.h"
#include "NerioSwitchTable/TableConstants.h"

namespace NerioSwitchTable {

using NerioSwitch::IngressPortMask;

namespace {

Sorn::TraceHandle handle("NerioTableL3FloodBitmap");

constexpr auto l3 = NerioSwitch::TableLayoutEnum::tableLayoutL3;
constexpr TableIndex tableIndex = 46;

}  // namespace

Belmo::String L3FloodBitmapResult::resultString() const {
    return Sorn::_fmt("portMask:0x%012lx", portMask().value());
}

L3FloodBitmapEntry::~L3FloodBitmapEntry() = default;

Belmo::String L3FloodBitmapEntry::toStrep() const {
    return namedText("L3FloodBitmapEntry");
}

L3FloodBitmapTable::L3FloodBitmapTable(Belmo::String const& name, U32 numFloodsForEcmp)
    : DirectTable<L3FloodBitmapEntry>(name), numFloodsForEcmp_(numFloodsForEcmp) {
    hwTablesDuplicateIs(true);
}

L3FloodBitmapTable::~L3FloodBitmapTable() = default;

Belmo::Ptr<DirectBaseConvertor> L3FloodBitmapTable::profileConvertorFactory() const {
    return l3FloodBitmapConvertorFactory(numFloodsForEcmp_);
}

Sorn::TraceHandle const& L3FloodBitmapTable::trace() const {
    return handle;
}

L3FloodBitmapConvertor::L3FloodBitmapConvertor(U32 numFloodsForEcmp)
    : DirectConvertor(
          {.words = L3FloodBitmapRow::words, .staticWords = {{L3FloodBitmapRow::controlWord, 0xFFFFFFFF}}}),
      numFloodsForEcmp_(numFloodsForEcmp) {}

L3FloodBitmapConvertor::~L3FloodBitmapConvertor() = default;

TableGauge::TableKey L3FloodBitmapConvertor::counter(char const* kind, U32 capacity,
                                                     CapacityTableIndex index) {
    TableGauge::TableKey key(TableConstants::cliName(tableIndex), kind, table().name());
    BELMO_ASSERT(key.verifyTableKey());
    initEntryCounter(key, capacity, index);
    return key;
}

void L3FloodBitmapConvertor::doInitTableStats() {
    auto const* const numSupportedEntriesFromProfile = numFloodNexthops(*profile());
    BELMO_ASSERT(numSupportedEntriesFromProfile);
    U32 const count = *numSupportedEntriesFromProfile;
    SORN_TRACE(handle, 3, "Num supported flood nexthops = {}", count);
    if (count == 0) return;
    tableSize_ = count;
    BELMO_ASSERT(capacitySupported());
    BELMO_ASSERT(tableSize() > numFloodsForEcmp());
    floodNh_ = counter("Nexthop", tableSize() - numFloodsForEcmp(), floodNhIndex);
    ecmpPath_ = counter("ECMP", numFloodsForEcmp(), ecmpPathIndex);
}

void L3FloodBitmapConvertor::doCreateHwTables(NerioSwitchApi::TableState state) {
    BELMO_ASSERT(fieldsFit(L3FloodBitmapRow(profile()->numPorts).fields(), L3FloodBitmapRow::dataWords));
    for (U32 processor = 0; processor < profile()->numProcessors(l3); ++processor) {
        auto const prefix = Sorn::_fmt("ingress/processor_l3[%u]/", processor);
        createDirectTable(processor, state, TableConstants::tableName(tableIndex), tableSize() - 1,
                          NerioSwitchApi::addressesOf(prefix, {"hash_data0", "hash_data1", "hash_ctl"}));
    }
}

NerioSwitchApi::CapacityTableIndex L3FloodBitmapConvertor::capacityIndexFromEntry(
    PtrConst const& item) const {
    U32 const number = static_cast<L3FloodBitmapEntry const&>(*item).key().value();
    if (number >= tableSize()) return uncountedIndex;
    return number < numFloodsForEcmp() ? ecmpPathIndex : floodNhIndex;
}

std::vector<NerioSwitchApi::RowLayout> L3FloodBitmapConvertor::rowLayouts(HwTableId /*id*/) const {
    return {NerioSwitchApi::rowLayout(
        L3FloodBitmapRow::words, NerioSwitchApi::rowFields(L3FloodBitmapRow(profile()->numPorts).fields(),
                                                           L3FloodBitmapRow::controlFields))};
}

void L3FloodBitmapConvertor::setStaticBuffer(HwIndex index, Sorn::BytePtr buffer) const {
    auto* const words = reinterpret_cast<U32*>(buffer);
    L3FloodBitmapRow::row.set(words, index);
    L3FloodBitmapRow::writeStrobe.set(words, 1);
    L3FloodBitmapRow::table.set(words, L3FloodBitmapRow::l3FloodBitmapTable);
}

void L3FloodBitmapConvertor::encode(L3FloodBitmapEntry const& item, U32* words) const {
    L3FloodBitmapRow const row(profile()->numPorts);
    row.portMask.set(words, item.result().portMask().hardwareBitmask(profile()->numPorts));
    row.parity.set(words, 0);
    row.parity.set(words, NerioSwitch::parityU32Array(words, L3FloodBitmapRow::dataWords));
}

void L3FloodBitmapConvertor::decode(U32 const* words, L3FloodBitmapEntry& item) const {
    auto const ports = L3FloodBitmapRow(profile()->numPorts).portMask.get(words);
    item.resultIs(
        L3FloodBitmapResult().portMaskIs(IngressPortMask::ingressPortMaskFromHw(ports, profile()->numPorts)));
    item.validIs(ports != 0);
}

Belmo::Ptr<L3FloodBitmapEntry> L3FloodBitmapEntryIs(NerioSwitch::L3FloodId key) {
    return Belmo::make<L3FloodBitmapEntry>(key);
}

Belmo::Ptr<L3FloodBitmapTable> L3FloodBitmapTableIs(Belmo::String const& name, U32 numFloodsForEcmp) {
    return Belmo::make<L3FloodBitmapTable>(name, numFloodsForEcmp);
}

Belmo::Ptr<L3FloodBitmapTable> l3FloodBitmapTableFactory(Belmo::String const& name, U32 numFloodsForEcmp) {
    return L3FloodBitmapTableIs(name, numFloodsForEcmp);
}

Belmo::Ptr<L3FloodBitmapConvertor> l3FloodBitmapConvertorFactory(U32 numFloodsForEcmp) {
    return Belmo::make<L3FloodBitmapConvertor>(numFloodsForEcmp);
}

}  // namespace NerioSwitchTable
