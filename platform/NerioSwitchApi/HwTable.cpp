#include "NerioSwitchApi/HwTable.h"

#include <algorithm>
#include <fmt/format.h>

#include "Belmo/Assert.h"

namespace NerioSwitchApi {

RowRegisters::RowRegisters(HwTableRegisterMapping const& mapping, HwIndex firstIndex, HwIndex lastIndex,
                           RegisterBus& bus)
    : firstIndex_(firstIndex) {
    // Rows that share one collection share one set of handles, so that a table behind a control word
    // keeps a single set however many rows it has.
    std::map<HwAddressColl const*, U32> known;
    std::vector<Belmo::Ptr<HwAddressColl const>> held;
    HwAddressColl const* before = nullptr;
    for (U64 row = firstIndex; row <= lastIndex && firstIndex <= lastIndex; ++row) {
        auto addresses = mapping.getRegister(static_cast<HwIndex>(row));
        if (!addresses) addresses = Belmo::make<HwAddressColl>();
        if (addresses.get() == before) {
            setOfRow_.push_back(setOfRow_.back());
            continue;
        }
        before = addresses.get();
        auto const [set, isNew] = known.try_emplace(addresses.get(), static_cast<U32>(sets_.size()));
        if (isNew) {
            held.push_back(addresses);
            try {
                addSet(*addresses, bus);
            } catch (UnknownRegisterException const& failure) {
                throw UnknownRegisterException(
                    failure.path(), fmt::format("row {} of hardware table \"{}\"", row, mapping.name()));
            }
        }
        setOfRow_.push_back(set->second);
    }
    shared_ = sets_.size() < setOfRow_.size();
    if (sets_.size() == 1) setOfRow_.clear();
}

U32 RowRegisters::addSet(HwAddressColl const& addresses, RegisterBus& bus) {
    auto const begin = static_cast<U32>(handles_.size());
    for (U8 i = 0; i < addresses.size(); ++i) {
        auto const& path = addresses.address(i);
        handles_.push_back(path.empty() ? RegisterHandle{} : bus.address(path));
    }
    sets_.push_back({begin, addresses.size()});
    return static_cast<U32>(sets_.size() - 1);
}

HwTableConfig::HwTableConfig(Belmo::Ptr<RegisterBus> bus, Belmo::Ptr<ShadowTable> shadow,
                             RowRegisters registers)
    : bus_(std::move(bus)), shadow_(std::move(shadow)), registers_(std::move(registers)) {}

HwTableConfig::~HwTableConfig() = default;

void HwTableConfig::entryIs(HwEntryConfig const& entry) {
    auto const words = entry.words();
    shadow_->intend(entry.index(), words);
    auto const row = registers_.ofRow(entry.index());
    auto const handles = row.first(std::min(row.size(), words.size()));
    bus_->writeRow(handles, words.data());
    shadow_->written(entry.index());
}

std::optional<HwEntryConfig> HwTableConfig::storedEntry(HwIndex index) const {
    try {
        return shadow_->read(index);
    } catch (Belmo::CorruptionDetectedException const& corruption) {
        shadow_->doCorruptionDetected(corruption.what());
        return std::nullopt;
    }
}

U32 const* HwTableConfig::storedWords(HwIndex index) const {
    try {
        auto const* row = shadow_->held(index);
        return row == nullptr ? nullptr : row->words;
    } catch (Belmo::CorruptionDetectedException const& corruption) {
        shadow_->doCorruptionDetected(corruption.what());
        return nullptr;
    }
}

void HwTableDescriptor::checkRow(HwIndex index) const {
    if (hasRow(index)) return;
    throw Belmo::RangeException(
        "NerioSwitchApi::HwIndex::value < NerioSwitchApi::HwTableDescriptor::firstIndex or > "
        "NerioSwitchApi::HwTableDescriptor::lastIndex not allowed");
}

Belmo::Ptr<HwTable> HwTableCollection::hwTable(Belmo::String const& name) const {
    auto const found = tables_.find(name);
    return found == tables_.end() ? nullptr : found->second;
}

Belmo::Ptr<HitBitTable> HwTableCollection::hitBitTable(Belmo::String const& name) const {
    auto const found = hitBitTables_.find(name);
    return found == hitBitTables_.end() ? nullptr : found->second;
}

std::vector<Belmo::Ptr<HitBitTableConfig>> HwTableCollection::hitBitTablesInUse() const {
    std::vector<Belmo::Ptr<HitBitTableConfig>> all;
    for (auto const& [name, table] : hitBitTables_) {
        if (table->config()->hasConvertor()) all.push_back(table->config());
    }
    return all;
}

HwTableDescriptorConfig::HwTableDescriptorConfig(Belmo::Ptr<RegisterBus> bus, Belmo::Ptr<ShadowStore> shadows,
                                                 Belmo::Ptr<HwTableCollection> collection)
    : bus_(std::move(bus)), shadows_(std::move(shadows)), collection_(std::move(collection)) {}

HwTableDescriptorConfig::~HwTableDescriptorConfig() = default;

Belmo::Ptr<HwTableDescriptor> HwTableDescriptorConfig::hwTableDesc(Belmo::String const& name) const {
    auto const found = descriptors_.find(name);
    // A descriptor that only this map still holds belongs to a convertor that is gone.
    return found != descriptors_.end() && found->second->references() > 1 ? found->second : nullptr;
}

Belmo::Ptr<HwTableDescriptor> HwTableDescriptorConfig::hwTableDescIs(
    Belmo::String const& name, HwTableId id, Belmo::String const& /*profileName*/, TableState state,
    HwIndex firstIndex, HwIndex lastIndex, Belmo::Ptr<HwTableRegisterMapping> const& mapping) {
    if (hwTableDesc(name)) {
        throw Belmo::ResourceException(fmt::format("hardware table \"{}\" is in use by another table", name));
    }
    collection_->hwTableDel(name);
    descriptors_.erase(name);
    RowRegisters registers(*mapping, firstIndex, lastIndex, *bus_);
    auto const mode = state == TableState::reset ? StartMode::cold : StartMode::warm;
    auto shadow = shadows_->tableIs(name, firstIndex, lastIndex, mode);
    auto config = Belmo::make<HwTableConfig>(bus_, std::move(shadow), std::move(registers));
    collection_->hwTableIs(name, Belmo::make<HwTable>(std::move(config)));
    auto descriptor = Belmo::make<HwTableDescriptor>(name, id, firstIndex, lastIndex);
    descriptors_[name] = descriptor;
    return descriptor;
}

Belmo::Ptr<HitBitTableDescriptor> HwTableDescriptorConfig::hitBitTableDescIs(
    Belmo::String const& name, HwTableId id, Belmo::String const& /*profileName*/, HitBitTableAccessMode mode,
    HwIndex firstIndex, HwIndex lastIndex, Belmo::Ptr<HitBitReadInfoWrapper> const& readInfo) {
    auto config = Belmo::make<HitBitTableConfig>(readInfo, firstIndex, lastIndex, *bus_);
    collection_->hitBitTableIs(name, Belmo::make<HitBitTable>(std::move(config)));
    return Belmo::make<HitBitTableDescriptor>(name, id, mode, firstIndex, lastIndex);
}

}  // namespace NerioSwitchApi
