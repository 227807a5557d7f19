#pragma once

#include "NerioSwitch/ProfileHwApi.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioCoppRegisterMapping.h"
#include "NerioSwitchTable/NerioTableRateLimiter.h"

namespace NerioSwitchTable {

/**
 * What a policer of the CPU is told: the interval in ticks of the hardware at key 0, at any other key what a
 * class's credit grows by in every interval. Hardware APIs below 6.2 read `result` alone, later ones all
 * else.
 */
class NERIO_SWITCH_TABLE_EXPORT CoppEntry {
    SORN_VALUE_TYPE(NerioSwitchTable, CoppEntry, (U32, result, 0), (float, interval, 0), (U32, increment, 0),
                    (U32, scaleFactor, 0));

    /** A limit that lets nothing through, and one that lets everything through. */
    static constexpr U32 filterAll = 0;
    static constexpr U32 filterNone = 0x3FFFF;
    static constexpr U32 ticksPerSecond = 31250000;
    /** The smallest `increment` that the hardware handles, and the largest one. */
    static constexpr U32 minIncrementVal = 12;
    static constexpr U32 maxIncrementVal = 0x3FFFF;

    bool isEq(CoppEntry const& other) const { return *this == other; }
    /** The raw value: "0x000003E8". */
    Belmo::String resultString() const;

    /** The `result` of a key that nobody set: a second, or no limit. */
    static U32 defaultValue(CoppEntryKey key);
    /** A pipeline's share of a limit, in percent. */
    static U32 pipelineScalingPercent(U32 numPipelines);

    /**
     * The word of a key's row: of the limiter behind the CPU's transmit pipeline the whole limit, of one in
     * an ingress pipeline its share, which is at least 1. Without scale factors a limit that lets everything
     * or nothing through is no matter of shares. An interval has no share, and its fraction is cut off; one
     * that 32 bits do not hold becomes the nearest that they do.
     */
    U32 toHardwareValue(CoppEntryKey key, bool forCpuTx, U16 numPipelines, bool scaleFactorSupported) const;
    /** The entry that a word of the CPU's transmit pipeline stands for. */
    static CoppEntry fromCpuHardwareValue(CoppEntryKey key, U32 value, bool scaleFactorSupported);
};

/**
 * Polices the traffic to the CPU: key 0 is the interval that all limits share, keys 1 to 14 are the limits of
 * classes of traffic. An entry goes to a limiter in each ingress pipeline, as its share, and to the one of
 * the CPU's transmit pipeline, as it is.
 *
 * A deletion writes zeros, which let nothing through. Only a start writes defaults: without scale factors
 * intervals of a second and no limits, with them zeros again, so that an agent has to set all keys then. Each
 * start writes all entries anew.
 *
 * A write that is cut off leaves limiters that differ. The next start marks the key, unless the transmit
 * pipeline's own row was cut off; so an agent that comes back sets all its keys, the unwanted ones as well
 * before it deletes them.
 */
class NERIO_SWITCH_TABLE_EXPORT CoppTable final : public PlainTable<CoppEntryKey, CoppEntry> {
public:
    explicit CoppTable(Belmo::String const& name);
    ~CoppTable() override;

    /** The hardware API from which limits have scale factors, for agents to ask; the table goes by 6.2. */
    NerioSwitch::ProfileHwApi const& scaleFactorVersion() const { return scaleFactorVersion_; }
    void scaleFactorVersionIs(NerioSwitch::ProfileHwApi const& version);

    void handleEntry(CoppEntryKey const& key) override;

protected:
    Belmo::Ptr<Convertor> profileConvertorFactory() const override;

private:
    NerioSwitch::ProfileHwApi scaleFactorVersion_{6, 2};
};

/** Writes each entry to the limiters of all pipelines, and reads back what the CPU's transmit pipeline has.
 */
class NERIO_SWITCH_TABLE_EXPORT CoppConvertor final : public RateLimiterConvertor<CoppEntryKey, CoppEntry> {
public:
    using RateLimiterConvertor::hwTableEntryIs;

    CoppConvertor();
    ~CoppConvertor() override;

    /** Tables of ingress pipelines; they come first. */
    U16 numCoppTables() const;
    /** The table of the CPU's transmit pipeline. */
    HwTableId cpuTxTableId() const { return numCoppTables(); }
    bool scaleFactorSupported() const { return scaleFactorSupported_; }

    void checkKey(CoppEntryKey const& /*key*/) const override {}
    void doCreateHwTables(NerioSwitchApi::TableState state) override;
    void syncEntries(U32 id) override;
    void hwTableEntryIs(CoppEntryKey const& key, CoppEntry const& entry, bool force) override;

protected:
    void forEachKey(Visit const& visit) const override;
    CoppEntryKey keyOf(HwTableId /*id*/, HwIndex row) const override { return row; }
    CoppEntry defaultEntry(CoppEntryKey const& key) const override;
    std::vector<NerioSwitchApi::RowField> limitFields() const override;
    U32 encode(HwTableId id, CoppEntryKey const& key, CoppEntry const& entry) const override;

private:
    void createTable(HwTableId id, NerioSwitchApi::TableState state, Belmo::String const& prefix);
    void syncEntry(CoppEntryKey const& key, U32 value);

    bool scaleFactorSupported_ = false;
};

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<CoppTable> CoppTableIs(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<CoppTable> coppTableFactory(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<CoppConvertor> coppConvertorFactory();

}  // namespace NerioSwitchTable
