#include "NerioSwitchApi/TableFramework.h"

#include <utility>

#include "Belmo/Assert.h"

namespace NerioSwitchApi {

TableFramework::TableFramework(Belmo::Ptr<NerioSwitch::ProfileInfo const> profile,
                               Belmo::Ptr<RegisterBus> bus, Belmo::Ptr<ShadowStore> shadows)
    : profile_(std::move(profile)), gauges_(Belmo::make<TableGauge::Gauges>()) {
    auto collection = Belmo::make<HwTableCollection>();
    auto descriptors = Belmo::make<HwTableDescriptorConfig>(std::move(bus), std::move(shadows), collection);
    types_ = Belmo::make<SwTableTypes>(std::move(descriptors), std::move(collection));
}

TableFramework::~TableFramework() = default;

void TableFramework::tableIs(Belmo::Ptr<SwTable> const& table, StartMode mode) {
    BELMO_ASSERT(!table->initialized());
    table->profileIs(profile_);
    table->tableStateIs(mode == StartMode::cold ? TableState::reset : TableState::live);
    try {
        bringUp(*table, mode);
    } catch (...) {
        table->doDetach();
        throw;
    }
}

U32 TableFramework::pollHitBits(Belmo::Duration now) {
    auto const tables = types_->hwTableCollection->hitBitTablesInUse();
    return NerioSwitchApi::pollHitBits(types_->hwTableDescriptorConfig->bus(), tables, now);
}

void TableFramework::bringUp(SwTable& table, StartMode mode) {
    table.doSetProfileConvertor(types_);
    auto const convertor = table.profileConvertorPtr();
    if (convertor) convertor->gaugesAre(gauges_);
    table.doCreateHwTable();
    if (convertor) {
        convertor->doInitHwReadInfo();
        convertor->doInitTableStats();
    }
    if (mode == StartMode::warm) table.syncEntries();
    if (convertor) {
        for (auto const& [id, descriptor] : convertor->descriptors())
            descriptor->initializedIs(true);
        convertor->handleInitialized();
    }
    table.initHwEntries(mode == StartMode::cold);
    table.doInitComplete();
}

}  // namespace NerioSwitchApi
