#pragma once

#include <cstdint>

#include "NerioSwitch/Indexes.h"
#include "Sorn/Enum.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioTableRateLimiter.h"

namespace NerioSwitchTable {

/** What of a port's traffic a row limits, or in the first row the interval of the port's limits. */
SORN_ENUM(StormControlClass, U8, (stormControlInvalid, 0), (stormControlInterval, 1), (stormControlBcast, 2),
          (stormControlAllUcast, 3), (stormControlMcast, 4));

/** A class of traffic at a chip port. A default key holds the null port. */
class NERIO_SWITCH_TABLE_EXPORT StormControlEntryKey {
    SORN_VALUE_TYPE(NerioSwitchTable, StormControlEntryKey, (NerioSwitch::ChipPortId, portId, {}),
                    (StormControlClass, trafficClass, StormControlClass::stormControlInvalid));

    StormControlEntryKey(NerioSwitch::ChipPortId portId, StormControlClass trafficClass)
        : portId_(portId), trafficClass_(trafficClass) {}
};

/**
 * A limit, or the interval that a port's limits share: a limit's credit grows by `increment` every `interval`
 * ticks. A default entry, which is what hardware holds without one, limits nothing.
 */
class NERIO_SWITCH_TABLE_EXPORT StormControlEntry {
public:
    static constexpr U32 ticksPerSecond = 31250000;
    /** The smallest and the largest `increment` that the hardware handles. */
    static constexpr U32 minIncrementVal = 1;
    static constexpr U32 maxIncrementVal = 0x3FFFF;

    /** The default `scaleFactor` does not fit its three bits, and goes out as 0. */
    SORN_VALUE_TYPE(NerioSwitchTable, StormControlEntry, (U32, result, 0), (bool, enabled, false),
                    (U32, interval, ticksPerSecond), (U32, scaleFactor, 8),
                    (U32, increment, maxIncrementVal));

    /** `result`, which no row carries: "0x000003E8". */
    Belmo::String resultString() const;
    /** What is counted, a second; 0 for a limit that is not enabled, and without bound for no interval. */
    std::int64_t trueRate() const;

    /** The default entry, of whatever class. */
    static StormControlEntry defaultEntry(StormControlClass trafficClass);
    /** The word that it has in a row. */
    static U32 defaultValue(StormControlClass trafficClass);

    U32 toHardwareValue(StormControlClass trafficClass) const;
    /**
     * The entry that a word stands for. The mask of `increment` follows from the word itself, so that bits
     * above the 18 of the row come along; they do not go out again.
     */
    static StormControlEntry fromHardwareValue(StormControlEntryKey const& key, U32 value);
};

/**
 * Limits per chip port the rate of broadcast, unicast and multicast traffic. There is a hardware table for
 * each port, with a row for the interval and one for each class. A deletion writes the default row. Each
 * start writes all entries anew.
 */
class NERIO_SWITCH_TABLE_EXPORT StormControlTable final
    : public PlainTable<StormControlEntryKey, StormControlEntry> {
public:
    /** There is one such table, and its name is fixed. */
    StormControlTable();
    ~StormControlTable() override;

    void handleEntry(StormControlEntryKey const& key) override;

protected:
    Belmo::Ptr<Convertor> profileConvertorFactory() const override;
};

/** The registers of a port: rows 1 to 4 by class. */
class NERIO_SWITCH_TABLE_EXPORT StormControlHwTableMapping final : public RateLimiterRegisterMapping {
public:
    StormControlHwTableMapping(Belmo::String name, Belmo::String prefix);
    ~StormControlHwTableMapping() override;

    Belmo::Ptr<NerioSwitchApi::HwAddressColl const> getRegister(NerioSwitchApi::HwIndex index) const override;
};

/** Writes a port's rows, in the hardware table with the port's number. */
class NERIO_SWITCH_TABLE_EXPORT StormControlConvertor final
    : public RateLimiterConvertor<StormControlEntryKey, StormControlEntry> {
public:
    using RateLimiterConvertor::hwTableEntryIs;

    StormControlConvertor();
    ~StormControlConvertor() override;

    void checkKey(StormControlEntryKey const& key) const override;
    void doCreateHwTables(NerioSwitchApi::TableState state) override;
    void syncEntries(U32 id) override;
    void hwTableEntryIs(StormControlEntryKey const& key, StormControlEntry const& entry, bool force) override;

protected:
    void forEachKey(Visit const& visit) const override;
    StormControlEntryKey keyOf(HwTableId id, HwIndex row) const override;
    StormControlEntry defaultEntry(StormControlEntryKey const& key) const override;
    U32 encode(HwTableId id, StormControlEntryKey const& key, StormControlEntry const& entry) const override;

private:
    bool hasRow(StormControlEntryKey const& key) const;
};

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<StormControlTable> StormControlTableIs();
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<StormControlTable> stormControlTableFactory();
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<StormControlConvertor> stormControlConvertorFactory();
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<StormControlHwTableMapping> stormControlHwTableMappingFactory(
    Belmo::String const& name, Belmo::String const& prefix);

}  // namespace NerioSwitchTable
