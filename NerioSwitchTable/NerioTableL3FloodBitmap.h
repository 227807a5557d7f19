#pragma once

#include <array>
#include <optional>

#include "NerioSwitch/IngressPortMask.h"
#include "NerioSwitch/L3Flood.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/BitField.h"
#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioTableDirect.h"

namespace NerioSwitchTable {

/** The ports that a flooded packet goes out of. Rows have no room for the CPU. */
class NERIO_SWITCH_TABLE_EXPORT L3FloodBitmapResult {
    SORN_VALUE_TYPE(NerioSwitchTable, L3FloodBitmapResult, (NerioSwitch::IngressPortMask, portMask, {}));

    /** "portMask:0x000000000003" */
    Belmo::String resultString() const;
};

/** Words 0 and 1 of a row, for a chip of that many ports; word 2 is the control word. */
struct L3FloodBitmapRow {
    explicit constexpr L3FloodBitmapRow(U32 numPorts)
        : portMask{"portMask", 0, static_cast<U8>(numPorts)},
          parity{"parity", static_cast<U16>(numPorts), 1} {}

    constexpr std::array<BitField, 2> fields() const { return {portMask, parity}; }

    BitField portMask;
    BitField parity;

    /** Words that hold an entry's content, and those of a whole row. */
    static constexpr U8 dataWords = 2;
    static constexpr U8 words = 3;
    static constexpr U8 controlWord = 2;
    /** What the control word calls this table among those of the processor. */
    static constexpr U32 l3FloodBitmapTable = 10;
    static constexpr U16 control = 32 * controlWord;
    static constexpr BitField row{"row", control, 16};
    static constexpr BitField writeStrobe{"writeStrobe", control + 17, 1};
    static constexpr BitField table{"table", control + 18, 4};
    static constexpr std::array controlFields{row, writeStrobe, table};
};
static_assert(fieldsFit(L3FloodBitmapRow(52).fields(), L3FloodBitmapRow::dataWords) &&
              fieldsDisjoint(L3FloodBitmapRow(52).fields()));
static_assert(fieldsFit(L3FloodBitmapRow::controlFields, L3FloodBitmapRow::words) &&
              fieldsDisjoint(L3FloodBitmapRow::controlFields));

/** One next hop with its ports, on its way to hardware or back. */
class NERIO_SWITCH_TABLE_EXPORT L3FloodBitmapEntry final
    : public DirectEntry<NerioSwitch::L3FloodId, L3FloodBitmapResult> {
public:
    explicit L3FloodBitmapEntry(NerioSwitch::L3FloodId key) : DirectEntry(key) {}
    ~L3FloodBitmapEntry() override;

    Belmo::String toStrep() const override;
};

/**
 * Per next hop of flooded packets, their ports. The first `numFloodsForEcmp` next hops are those of paths of
 * equal cost, and are counted apart.
 *
 * Rows are made before the profile's count of "floodSet" is looked at, so there are always 128 of them. The
 * count decides the capacities alone: of a smaller one, next hops from the count on have rows that no counter
 * counts; of a larger one, those from 128 on have no row and are refused. With a count of 0, or equal to
 * `numFloodsForEcmp` or below it, see `L3FloodBitmapConvertor::doInitTableStats`.
 */
class NERIO_SWITCH_TABLE_EXPORT L3FloodBitmapTable final : public DirectTable<L3FloodBitmapEntry> {
public:
    L3FloodBitmapTable(Belmo::String const& name, U32 numFloodsForEcmp);
    ~L3FloodBitmapTable() override;

    U32 numFloodsForEcmp() const { return numFloodsForEcmp_; }
    Belmo::Ptr<DirectBaseConvertor> profileConvertorFactory() const override;
    Sorn::TraceHandle const& trace() const override;

protected:
    char const* className() const override { return "L3FloodBitmapTable"; }

private:
    U32 numFloodsForEcmp_;
};

/** Writes the rows of each L3 processor. A row without ports counts as empty. */
class NERIO_SWITCH_TABLE_EXPORT L3FloodBitmapConvertor final
    : public DirectConvertor<L3FloodBitmapConvertor, L3FloodBitmapTable> {
public:
    using CapacityTableIndex = NerioSwitchApi::CapacityTableIndex;

    /** The counters of next hops and of paths of equal cost, and what is counted in none. */
    static constexpr CapacityTableIndex floodNhIndex = 0;
    static constexpr CapacityTableIndex ecmpPathIndex = 1;
    static constexpr CapacityTableIndex uncountedIndex = 2;

    explicit L3FloodBitmapConvertor(U32 numFloodsForEcmp);
    ~L3FloodBitmapConvertor() override;

    /** Rows: 128, and after `doInitTableStats` the profile's count unless that is 0. */
    U32 tableSize() const { return tableSize_; }
    U32 numFloodsForEcmp() const { return numFloodsForEcmp_; }
    bool capacitySupported() const { return true; }
    /** What the counters are called; nothing before they are there. */
    std::optional<TableGauge::TableKey> const& capacityEntryForFloodNh() const { return floodNh_; }
    std::optional<TableGauge::TableKey> const& capacityEntryForEcmpPath() const { return ecmpPath_; }

    HwIndex hwIndexFromKey(NerioSwitch::L3FloodId key) const { return key.value(); }
    NerioSwitch::L3FloodId keyFromHwIndex(HwIndex index) const { return index; }
    /** Without a count in the profile, and where paths leave no row to next hops, it is a programming error.
     * A count of 0 means no counters. */
    void doInitTableStats() override;
    void doCreateHwTables(NerioSwitchApi::TableState state) override;
    CapacityTableIndex capacityIndexFromEntry(PtrConst const& item) const override;
    void setStaticBuffer(HwIndex index, Sorn::BytePtr buffer) const override;
    std::vector<NerioSwitchApi::RowLayout> rowLayouts(HwTableId id) const override;

protected:
    void encode(L3FloodBitmapEntry const& item, U32* words) const override;
    void decode(U32 const* words, L3FloodBitmapEntry& item) const override;

private:
    TableGauge::TableKey counter(char const* kind, U32 capacity, CapacityTableIndex index);

    U32 tableSize_ = 128;
    U32 numFloodsForEcmp_;
    std::optional<TableGauge::TableKey> floodNh_;
    std::optional<TableGauge::TableKey> ecmpPath_;
};

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<L3FloodBitmapEntry> L3FloodBitmapEntryIs(NerioSwitch::L3FloodId key);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<L3FloodBitmapTable> L3FloodBitmapTableIs(Belmo::String const& name,
                                                                              U32 numFloodsForEcmp);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<L3FloodBitmapTable> l3FloodBitmapTableFactory(Belmo::String const& name,
                                                                                   U32 numFloodsForEcmp);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<L3FloodBitmapConvertor> l3FloodBitmapConvertorFactory(
    U32 numFloodsForEcmp);

}  // namespace NerioSwitchTable
