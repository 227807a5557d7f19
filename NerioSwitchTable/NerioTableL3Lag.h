#pragma once

#include <array>

#include "NerioSwitch/Indexes.h"
#include "NerioSwitch/IngressPortMask.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/BitField.h"
#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioTableDirect.h"

namespace NerioSwitchTable {

/** The ports that a route's or flow's packets go out of. */
class NERIO_SWITCH_TABLE_EXPORT L3LagResult {
    SORN_VALUE_TYPE(NerioSwitchTable, L3LagResult, (NerioSwitch::IngressPortMask, portMask, {}),
                    (bool, cpuPriority, false), (bool, natEnabled, false));

    /** "portMask:0x000000000003, cpuPriority, natEnabled", each flag only where it is set. */
    Belmo::String resultString() const;
};

/** Words 0 and 1 of a row, for a chip of that many ports; word 2 is the control word. */
struct L3LagRow {
    explicit constexpr L3LagRow(U32 numPorts)
        : portMask{"portMask", 0, static_cast<U8>(numPorts + 1)},
          cpuPriority{"cpuPriority", static_cast<U16>(numPorts + 1), 1},
          parity{"parity", static_cast<U16>(numPorts + 2), 1},
          natEnabled{"natEnabled", static_cast<U16>(numPorts + 3), 1} {}

    constexpr std::array<BitField, 4> fields() const { return {portMask, cpuPriority, parity, natEnabled}; }

    BitField portMask;
    BitField cpuPriority;
    BitField parity;
    BitField natEnabled;

    /** Words that hold an entry's content, and those of a whole row. */
    static constexpr U8 dataWords = 2;
    static constexpr U8 words = 3;
    static constexpr U32 lastRow = 55;
    /** What the control word calls this table among those of the processor. */
    static constexpr U32 l3LagTable = 9;
    static constexpr U8 controlWord = 2;
    static constexpr U16 control = 32 * controlWord;
    static constexpr BitField row{"row", control, 6};
    static constexpr BitField writeStrobe{"writeStrobe", control + 17, 1};
    static constexpr BitField table{"table", control + 18, 4};
    static constexpr std::array controlFields{row, writeStrobe, table};
};
static_assert(fieldsFit(L3LagRow(52).fields(), L3LagRow::dataWords) && fieldsDisjoint(L3LagRow(52).fields()));
static_assert(fieldsFit(L3LagRow::controlFields, L3LagRow::words) && fieldsDisjoint(L3LagRow::controlFields));

/** One index with its ports, on its way to hardware or back. */
class NERIO_SWITCH_TABLE_EXPORT L3LagEntry final : public DirectEntry<NerioSwitch::L3LagIndex, L3LagResult> {
public:
    explicit L3LagEntry(NerioSwitch::L3LagIndex key) : DirectEntry(key) {}
    ~L3LagEntry() override;

    Belmo::String toStrep() const override;
};

/** Per L3 LAG index, a set of ports. Rows are there for indices 0 to 55. */
class NERIO_SWITCH_TABLE_EXPORT L3LagTable final : public DirectTable<L3LagEntry> {
public:
    explicit L3LagTable(Belmo::String const& name);
    ~L3LagTable() override;

    Belmo::Ptr<DirectBaseConvertor> profileConvertorFactory() const override;
    Sorn::TraceHandle const& trace() const override;

protected:
    char const* className() const override { return "L3LagTable"; }
};

/** Writes the rows of each L3 processor. A row whose ports and flags are all zero counts as empty. */
class NERIO_SWITCH_TABLE_EXPORT L3LagConvertor final : public DirectConvertor<L3LagConvertor, L3LagTable> {
public:
    L3LagConvertor();
    ~L3LagConvertor() override;

    HwIndex hwIndexFromKey(NerioSwitch::L3LagIndex key) const { return key.value(); }
    NerioSwitch::L3LagIndex keyFromHwIndex(HwIndex index) const { return index; }
    void doCreateHwTables(NerioSwitchApi::TableState state) override;
    void setStaticBuffer(HwIndex index, Sorn::BytePtr buffer) const override;
    std::vector<NerioSwitchApi::RowLayout> rowLayouts(HwTableId id) const override;

protected:
    void encode(L3LagEntry const& item, U32* words) const override;
    void decode(U32 const* words, L3LagEntry& item) const override;
};

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<L3LagEntry> L3LagEntryIs(NerioSwitch::L3LagIndex key);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<L3LagTable> L3LagTableIs(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<L3LagTable> l3LagTableFactory(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<L3LagConvertor> l3LagConvertorFactory();

}  // namespace NerioSwitchTable
