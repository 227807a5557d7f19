#include "NerioSwitchApi/SwTable.h"

#include <fmt/format.h>

#include "Belmo/Assert.h"

namespace NerioSwitchApi {

namespace {

Belmo::String escaped(Belmo::String const& part) {
    Belmo::String result;
    for (char const c : part) {
        if (c == '/' || c == '%') {
            result += fmt::format("%{:02X}", c);
        } else {
            result += c;
        }
    }
    return result;
}

}  // namespace

SwTableProfileConvertor::~SwTableProfileConvertor() {
    for (auto const& [id, table] : hitBitTables_)
        table->convertorIs(nullptr, id);
}

void SwTableProfileConvertor::handleHitBitEntry(HwTableId, HwIndex) {}
void SwTableProfileConvertor::doInitTableStats() {}
void SwTableProfileConvertor::doInitHwReadInfo() {}
void SwTableProfileConvertor::handleInitialized() {}

std::optional<HwEntryConfig> SwTableProfileConvertor::wantedEntry(HwTableId, HwIndex) const {
    return std::nullopt;
}

std::vector<RowLayout> SwTableProfileConvertor::rowLayouts(HwTableId) const {
    return {};
}

void SwTableProfileConvertor::initEntryCounter(TableGauge::TableKey const& key, U32 capacity,
                                               CapacityTableIndex index) {
    counters_[index] = gauges_->counterIs(key, capacity, index);
}

Belmo::Ptr<TableGauge::Counter> SwTableProfileConvertor::entryCounter(CapacityTableIndex index) const {
    auto const found = counters_.find(index);
    return found == counters_.end() ? nullptr : found->second;
}

void SwTableProfileConvertor::typesAre(SwTableTypes const& types) {
    descriptorConfig_ = types.hwTableDescriptorConfig;
    collection_ = types.hwTableCollection;
}

void SwTableProfileConvertor::hitBitTableIs(HwTableId id, Belmo::Ptr<HitBitTableConfig> const& table) {
    table->convertorIs(this, id);
    hitBitTables_[id] = table;
}

void SwTableProfileConvertor::createHwTable(HwTableId id, TableState state, HwIndex firstIndex,
                                            HwIndex lastIndex,
                                            Belmo::Ptr<HwTableRegisterMapping> const& mapping) {
    auto const& name = mapping->name();
    auto const descriptor = descriptorConfig_->hwTableDescIs(name, id, profile_->profileName(), state,
                                                             firstIndex, lastIndex, mapping);
    auto const table = collection_->hwTable(name);
    BELMO_ASSERT(table);
    hwTableIs(id, table->config());
    descriptorIs(id, descriptor);
}

void SwTableProfileConvertor::createHitBitTable(HwTableId id, TableState state, HwIndex firstIndex,
                                                HwIndex lastIndex, Belmo::String const& name,
                                                Belmo::Ptr<HitBitReadInfoWrapper> const& readInfo) {
    auto const mode = SwTable::hitBitAccessModeMapping(state);
    auto const descriptor = descriptorConfig_->hitBitTableDescIs(name, id, profile_->profileName(), mode,
                                                                 firstIndex, lastIndex, readInfo);
    auto const hitTable = collection_->hitBitTable(name);
    BELMO_ASSERT(hitTable);
    hitBitTableIs(id, hitTable->config());
    hitDescriptorIs(id, descriptor);
}

SwTable::~SwTable() = default;

HitBitTableAccessMode SwTable::hitBitAccessModeMapping(TableState state) {
    return state == TableState::reset ? HitBitTableAccessMode::afterReset : HitBitTableAccessMode::live;
}

U32 SwTable::swTableId() const {
    return 0;
}

void SwTable::doCreateHwTable() {
    if (convertor_) convertor_->doCreateHwTables(tableState_);
}

void SwTable::initHwEntries(bool resetHw) {
    if (convertor_) convertor_->initHwEntries(resetHw, 0);
}

void SwTable::syncEntries() {
    if (convertor_) convertor_->syncEntries(0);
}

void SwTable::doInitComplete() {
    initialized_ = true;
}

void SwTable::doDetach() {
    convertor_ = nullptr;
}

Belmo::String SwTable::hwTableName(Belmo::String const& swTableName, Belmo::String const& profileName,
                                   Belmo::String const& tableName, HwTableId id) {
    return fmt::format("{}/{}/{}/{}", escaped(swTableName), escaped(profileName), escaped(tableName), id);
}

}  // namespace NerioSwitchApi
