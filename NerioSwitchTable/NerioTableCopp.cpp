#include "NerioSwitchTable/NerioTableCopp.h"

#include <cmath>
#include <limits>

#include "Belmo/Assert.h"
#include "Sorn/Format.h"
#include "Sorn/Trace.h"

namespace NerioSwitchTable {

namespace {

Sorn::TraceHandle handle("NerioTableCopp");

constexpr auto l2 = NerioSwitch::TableLayoutEnum::tableLayoutL2;
constexpr NerioSwitch::ProfileHwApi firstWithScaleFactor(6, 2);
constexpr CoppEntryKey intervalKey = CoppEntryKey::min;

/** A pipeline's share of a limit: in hundredths of it, and never nothing. */
U32 pipelineShare(U32 limit, U32 percent) {
    U64 const hundredths = U64{limit} * percent;
    return hundredths < 100 ? 1 : static_cast<U32>(hundredths / 100);
}

/** The interval without its fraction. */
U32 wholeTicks(float interval) {
    constexpr U32 most = std::numeric_limits<U32>::max();
    if (!(interval > 0)) return 0;  // nor is there a number that is none
    if (interval >= static_cast<float>(most)) return most;
    return static_cast<U32>(interval);
}

}  // namespace

Belmo::String CoppEntry::resultString() const {
    return Sorn::_fmt("0x%08X", result());
}

U32 CoppEntry::defaultValue(CoppEntryKey key) {
    return key == intervalKey ? ticksPerSecond : filterNone;
}

U32 CoppEntry::pipelineScalingPercent(U32 numPipelines) {
    if (numPipelines < 2) return 100;
    return numPipelines == 2 ? 66 : 50;
}

U32 CoppEntry::toHardwareValue(CoppEntryKey key, bool forCpuTx, U16 numPipelines,
                               bool scaleFactorSupported) const {
    BELMO_ASSERT(numPipelines);
    U32 const percent = pipelineScalingPercent(numPipelines);
    if (key == intervalKey) return scaleFactorSupported ? wholeTicks(interval()) : result();
    if (!scaleFactorSupported) {
        bool const shared = result() != filterNone && result() != filterAll && numPipelines > 1;
        return shared && !forCpuTx ? pipelineShare(result(), percent) : result();
    }
    // An increment of 0 has a share as well, and it is 1.
    U32 word = 0;
    RateLimiterRow::increment.set(&word, forCpuTx ? increment() : pipelineShare(increment(), percent));
    RateLimiterRow::scaleFactor.set(&word, scaleFactor());
    return word;
}

CoppEntry CoppEntry::fromCpuHardwareValue(CoppEntryKey key, U32 value, bool scaleFactorSupported) {
    if (!scaleFactorSupported) return CoppEntry().resultIs(value);
    if (key == intervalKey) return CoppEntry().intervalIs(static_cast<float>(value));
    return CoppEntry()
        .incrementIs(static_cast<U32>(RateLimiterRow::increment.get(&value)))
        .scaleFactorIs(static_cast<U32>(RateLimiterRow::scaleFactor.get(&value)));
}

CoppTable::CoppTable(Belmo::String const& name) : PlainTable<CoppEntryKey, CoppEntry>(name) {
    hwTablesDuplicateIs(true);
}

CoppTable::~CoppTable() = default;

void CoppTable::scaleFactorVersionIs(NerioSwitch::ProfileHwApi const& version) {
    if (scaleFactorVersion_ == version) return;
    scaleFactorVersion_ = version;
    publisher().publishChangeRecursive("scaleFactorVersion");
}

void CoppTable::handleEntry(CoppEntryKey const& key) {
    if (!initialized()) SORN_TRACE(handle, 8, "Skipped as not yet initialized - key: {}", key.value());
    PlainTable::handleEntry(key);
}

Belmo::Ptr<CoppTable::Convertor> CoppTable::profileConvertorFactory() const {
    return coppConvertorFactory();
}

CoppConvertor::CoppConvertor() = default;
CoppConvertor::~CoppConvertor() = default;

U16 CoppConvertor::numCoppTables() const {
    return profile()->numTables(l2);
}

void CoppConvertor::doCreateHwTables(NerioSwitchApi::TableState state) {
    scaleFactorSupported_ = profile()->hwApi >= firstWithScaleFactor;
    auto const* const prefix =
        profile()->noMuxInRegName ? "ingress/rate_limiter[%u]/" : "pipeline[%u]/rate_limiter/";
    for (HwTableId id = 0; id < numCoppTables(); ++id)
        createTable(id, state, Sorn::_fmt(prefix, id));
    createTable(cpuTxTableId(), state, "cpu_tx_pipeline[0]/rate_limiter/");
}

void CoppConvertor::createTable(HwTableId id, NerioSwitchApi::TableState state, Belmo::String const& prefix) {
    createHwTable(id, state, CoppEntryKey::min, CoppEntryKey::max,
                  coppRegisterMapping(profile()->hwApi, hwTableName("Copp", id), prefix));
}

void CoppConvertor::forEachKey(Visit const& visit) const {
    for (U32 key = CoppEntryKey::min; key <= CoppEntryKey::max; ++key)
        visit(key);
}

/** It says no more than `result`, which hardware with scale factors does not read. */
CoppEntry CoppConvertor::defaultEntry(CoppEntryKey const& key) const {
    return CoppEntry().resultIs(CoppEntry::defaultValue(key));
}

std::vector<NerioSwitchApi::RowField> CoppConvertor::limitFields() const {
    if (scaleFactorSupported_) return RateLimiterConvertor::limitFields();
    return NerioSwitchApi::rowFields(RateLimiterRow::limit);
}

U32 CoppConvertor::encode(HwTableId id, CoppEntryKey const& key, CoppEntry const& entry) const {
    return entry.toHardwareValue(key, id == cpuTxTableId(), profile()->numPipelines, scaleFactorSupported_);
}

void CoppConvertor::hwTableEntryIs(CoppEntryKey const& key, CoppEntry const& entry, bool force) {
    if (!descriptor(0)->initialized()) return;
    HwIndex const row = key.value();
    wordIs(cpuTxTableId(), row, encode(cpuTxTableId(), key, entry), force);
    for (HwTableId id = 0; id < numCoppTables(); ++id)
        wordIs(id, row, encode(id, key, entry), force);
}

void CoppConvertor::syncEntries(U32 /*id*/) {
    BELMO_ASSERT_TEXT(hwTables().contains(cpuTxTableId()), "cpuTxHwTable");
    forEachKey([this](CoppEntryKey const& key) {
        auto const stored = storedWord(cpuTxTableId(), key.value());
        if (stored) syncEntry(key, *stored);
    });
}

void CoppConvertor::syncEntry(CoppEntryKey const& key, U32 value) {
    SORN_TRACE(handle, 8, "Found cpu tx table hw entry for key: {}", key.value());
    SORN_TRACE(handle, 8, "Set sw table entry for key: {} value: {}", key.value(), value);
    auto const decoded = CoppEntry::fromCpuHardwareValue(key, value, scaleFactorSupported_);
    if (value != encode(cpuTxTableId(), key, defaultEntry(key))) swTable().entryIs(key, decoded);
    for (HwTableId id = 0; id < numCoppTables(); ++id) {
        BELMO_ASSERT_TEXT(hwTables().contains(id), "table");
        auto const stored = storedWord(id, key.value());
        if (stored == encode(id, key, decoded)) continue;
        SORN_TRACE(handle, 8, "{} hw table entry for key: {}, table {}", stored ? "Inconsistent" : "Missing",
                   key.value(), id);
        swTable().hwInconsistentEntryIs(key, true);
    }
}

Belmo::Ptr<CoppTable> CoppTableIs(Belmo::String const& name) {
    return Belmo::make<CoppTable>(name);
}

Belmo::Ptr<CoppTable> coppTableFactory(Belmo::String const& name) {
    return CoppTableIs(name);
}

Belmo::Ptr<CoppConvertor> coppConvertorFactory() {
    return Belmo::make<CoppConvertor>();
}

}  // namespace NerioSwitchTable
