#include "NerioSwitchTable/NerioTableStormControl.h"

#include <cmath>
#include <limits>
#include <utility>

#include "Belmo/Exceptions.h"
#include "Sorn/Format.h"
#include "Sorn/Trace.h"

namespace NerioSwitchTable {

namespace {

Sorn::TraceHandle handle("NerioTableStormControl");

constexpr auto intervalClass = StormControlClass::stormControlInterval;
constexpr U32 firstRow = 1;
constexpr std::array<char const*, 5> registerNames{nullptr, "interval_period", "broadcast_limit",
                                                   "unicast_limit", "multicast_limit"};
constexpr U32 lastRow = registerNames.size() - 1;

U32 rowOf(StormControlClass trafficClass) {
    return static_cast<U32>(trafficClass);
}

}  // namespace

Belmo::String StormControlEntry::resultString() const {
    return Sorn::_fmt("0x%08X", result());
}

std::int64_t StormControlEntry::trueRate() const {
    if (!enabled()) return 0;
    double const rate = std::round(double{ticksPerSecond} / interval() * increment());
    if (std::isnan(rate)) return 0;  // neither an interval nor an increment
    return std::isinf(rate) ? std::numeric_limits<std::int64_t>::max() : static_cast<std::int64_t>(rate);
}

StormControlEntry StormControlEntry::defaultEntry(StormControlClass /*trafficClass*/) {
    return {};
}

U32 StormControlEntry::defaultValue(StormControlClass trafficClass) {
    return defaultEntry(trafficClass).toHardwareValue(trafficClass);
}

U32 StormControlEntry::toHardwareValue(StormControlClass trafficClass) const {
    if (trafficClass == intervalClass) return interval();
    U32 word = 0;
    RateLimiterRow::increment.set(&word, increment());
    RateLimiterRow::enabled.set(&word, enabled());
    RateLimiterRow::scaleFactor.set(&word, scaleFactor());
    return word;
}

StormControlEntry StormControlEntry::fromHardwareValue(StormControlEntryKey const& key, U32 value) {
    auto entry = defaultEntry(key.trafficClass());
    if (key.trafficClass() == intervalClass) return entry.intervalIs(value);
    return entry.enabledIs(RateLimiterRow::enabled.get(&value) != 0)
        .scaleFactorIs(static_cast<U32>(RateLimiterRow::scaleFactor.get(&value)))
        .incrementIs(value & ((value << RateLimiterRow::increment.width) - 1));
}

StormControlTable::StormControlTable()
    : PlainTable<StormControlEntryKey, StormControlEntry>("stormControlSwTable") {}

StormControlTable::~StormControlTable() = default;

void StormControlTable::handleEntry(StormControlEntryKey const& key) {
    if (!initialized())
        SORN_TRACE(handle, 8, " Skipped as not yet initialized - portId: {}", key.portId().value());
    PlainTable::handleEntry(key);
}

Belmo::Ptr<StormControlTable::Convertor> StormControlTable::profileConvertorFactory() const {
    return stormControlConvertorFactory();
}

StormControlHwTableMapping::StormControlHwTableMapping(Belmo::String name, Belmo::String prefix)
    : RateLimiterRegisterMapping(std::move(name), std::move(prefix)) {}
StormControlHwTableMapping::~StormControlHwTableMapping() = default;

Belmo::Ptr<NerioSwitchApi::HwAddressColl const> StormControlHwTableMapping::getRegister(
    NerioSwitchApi::HwIndex index) const {
    return addressOfLimiter(index < registerNames.size() ? registerNames[index] : nullptr);
}

StormControlConvertor::StormControlConvertor() = default;
StormControlConvertor::~StormControlConvertor() = default;

bool StormControlConvertor::hasRow(StormControlEntryKey const& key) const {
    auto const descriptor = descriptors().find(key.portId().value());
    return descriptor != descriptors().end() && descriptor->second->hasRow(rowOf(key.trafficClass()));
}

void StormControlConvertor::checkKey(StormControlEntryKey const& key) const {
    auto const descriptor = descriptors().find(key.portId().value());
    if (descriptor == descriptors().end()) throw Belmo::RangeException(NerioSwitch::ChipPortId::rangeText);
    descriptor->second->checkRow(rowOf(key.trafficClass()));
}

void StormControlConvertor::doCreateHwTables(NerioSwitchApi::TableState state) {
    for (HwTableId port = 0; port < profile()->numPorts; ++port) {
        auto const place = profile()->ingressPipeOfPort(port);
        createHwTable(port, state, firstRow, lastRow,
                      stormControlHwTableMappingFactory(
                          hwTableName("StormControl", port),
                          Sorn::_fmt("pipeline[%u]/port[%u]/", place.pipeId, place.pipePort)));
    }
}

void StormControlConvertor::forEachKey(Visit const& visit) const {
    for (U32 port = 0; port < profile()->numPorts; ++port) {
        for (U32 row = firstRow; row <= lastRow; ++row)
            visit(keyOf(port, row));
    }
}

StormControlEntryKey StormControlConvertor::keyOf(HwTableId id, HwIndex row) const {
    return {NerioSwitch::ChipPortId(id), static_cast<StormControlClass>(row)};
}

StormControlEntry StormControlConvertor::defaultEntry(StormControlEntryKey const& key) const {
    return StormControlEntry::defaultEntry(key.trafficClass());
}

U32 StormControlConvertor::encode(HwTableId /*id*/, StormControlEntryKey const& key,
                                  StormControlEntry const& entry) const {
    return entry.toHardwareValue(key.trafficClass());
}

void StormControlConvertor::hwTableEntryIs(StormControlEntryKey const& key, StormControlEntry const& entry,
                                           bool force) {
    HwTableId const port = key.portId().value();
    // A key that was set before the start may be one that this chip has no row for.
    if (hasRow(key)) wordIs(port, rowOf(key.trafficClass()), encode(port, key, entry), force);
}

void StormControlConvertor::syncEntries(U32 /*id*/) {
    forEachKey([this](StormControlEntryKey const& key) {
        auto const port = key.portId().value();
        auto const row = rowOf(key.trafficClass());
        auto const stored = storedWord(port, row);
        if (!stored) {
            SORN_TRACE(handle, 9, " No HwTable entry found for portId: {} class: {}", port, row);
            return;
        }
        auto const defaultWord = StormControlEntry::defaultValue(key.trafficClass());
        if (*stored == defaultWord) return;
        SORN_TRACE(handle, 8, " Adding sw table entry: hwValue {} defaultHwValue {} class {}", *stored,
                   defaultWord, row);
        swTable().entryIs(key, StormControlEntry::fromHardwareValue(key, *stored));
    });
}

Belmo::Ptr<StormControlTable> StormControlTableIs() {
    return Belmo::make<StormControlTable>();
}

Belmo::Ptr<StormControlTable> stormControlTableFactory() {
    return StormControlTableIs();
}

Belmo::Ptr<StormControlConvertor> stormControlConvertorFactory() {
    return Belmo::make<StormControlConvertor>();
}

Belmo::Ptr<StormControlHwTableMapping> stormControlHwTableMappingFactory(Belmo::String const& name,
                                                                         Belmo::String const& prefix) {
    return Belmo::make<StormControlHwTableMapping>(name, prefix);
}

}  // namespace NerioSwitchTable
