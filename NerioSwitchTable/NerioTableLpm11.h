#pragma once

#include <array>

#include "NerioSwitch/LpmKey.h"
#include "NerioSwitch/ProfileHwApi.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/BitField.h"
#include "NerioSwitchTable/EntryCellResult.h"
#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioTableDirectStatus.h"

/*
 * The lowest stage of route look-up: a row for each VRF and each value of the first 11 address bits, so that
 * a look-up that found nothing longer always finds a row here.
 */
namespace NerioSwitchTable {

/** Where packets go that the row answers. */
class NERIO_SWITCH_TABLE_EXPORT Lpm11Result {
    SORN_VALUE_TYPE(NerioSwitchTable, Lpm11Result, (EntryCellResult, cellResult, {}), (bool, cpuTrap, false));

    /** The cell's text, behind "CpuTrap " where that is set. */
    Belmo::String resultString() const;
};

/** What is known of one key: when its row was hit last. */
class NERIO_SWITCH_TABLE_EXPORT Lpm11EntryStatus {
    SORN_VALUE_TYPE(NerioSwitchTable, Lpm11EntryStatus, (NerioSwitch::LpmKey, key, {}),
                    (Belmo::Duration, lastHit, Belmo::Duration::never()));
};

using Lpm11TableStatus = DirectTableStatus<Lpm11EntryStatus>;

/**
 * A row: word 0 as chips of that version hold it, word 1 the control word, and word 2, which stays in the
 * shadow. The cell's encoding has 13 bits, of which the highest is not its own: `valid` stands there.
 */
struct Lpm11Row {
    explicit constexpr Lpm11Row(NerioSwitch::ProfileHwApi api)
        : cpuTrap{"cpuTrap", static_cast<U16>(hasMask0(api) ? 13 : 15), 1},
          parity{"parity", static_cast<U16>(hasMask0(api) ? 14 : 16), 1},
          maskLength0{"maskLength0", 15, static_cast<U8>(hasMask0(api) ? 4 : 0)},
          maskLength1{"maskLength1", 19, static_cast<U8>(hasMask1(api) ? 4 : 0)} {}

    static constexpr BitField encoding{"encoding", 0, 12};
    static constexpr BitField valid{"valid", 12, 1};
    BitField cpuTrap;
    BitField parity;
    /** How far the mask lengths lie below 12; 0 is none, as is a length of 12. */
    BitField maskLength0;
    BitField maskLength1;
    static constexpr U32 maskLengthBase = 12;
    static constexpr char const* maskRangeText =
        "NerioSwitchTable::Lpm11Result::maskLength of 13 to 15 or 29 to 31 not allowed";
    static constexpr U8 words = 3;
    static constexpr U8 controlWord = 1;
    static constexpr U16 control = 32 * controlWord;
    static constexpr BitField row{"row", control, 16};
    static constexpr BitField writeStrobe{"writeStrobe", control + 17, 1};
    static constexpr BitField table{"table", control + 18, 4};
    static constexpr BitField realPrefixLen{"realPrefixLen", 64, 6};
    /** What the control word calls this stage among the tables of the processor. */
    static constexpr U32 lpm11Table = 7;

    /** Reading takes more bits than writing puts there. */
    static constexpr BitField readEncoding{"readEncoding", 0, 15};
    static constexpr BitField readPrefixLen{"readPrefixLen", 64, 7};

    constexpr std::array<BitField, 10> fields() const {
        return {encoding,    valid, cpuTrap,     parity, maskLength0,
                maskLength1, row,   writeStrobe, table,  realPrefixLen};
    }

private:
    static constexpr bool hasMask0(NerioSwitch::ProfileHwApi api) {
        return api >= NerioSwitch::ProfileHwApi(5, 1);
    }
    static constexpr bool hasMask1(NerioSwitch::ProfileHwApi api) {
        return api >= NerioSwitch::ProfileHwApi(9, 0);
    }
};
/** Each field has its place, and shares it with no other. */
constexpr bool fieldsMatch(Lpm11Row const& row) {
    return fieldsFit(row.fields(), Lpm11Row::words) && fieldsDisjoint(row.fields());
}
static_assert(fieldsMatch(Lpm11Row(NerioSwitch::ProfileHwApi(5, 0))) &&
              fieldsMatch(Lpm11Row(NerioSwitch::ProfileHwApi(9, 0))));

/** One key with its result, on its way to hardware or back. */
class NERIO_SWITCH_TABLE_EXPORT Lpm11Entry final : public DirectEntry<NerioSwitch::LpmKey, Lpm11Result> {
public:
    explicit Lpm11Entry(NerioSwitch::LpmKey const& key) : DirectEntry(key) {}
    ~Lpm11Entry() override;

    Belmo::String toStrep() const override;
};

/**
 * Routes of at most 11 bits. Keys are of exactly 11: a shorter route stands under every key that it covers.
 * A next hop that a row cannot carry is refused with `Belmo::RangeException` before anything is stored, and
 * so is a mask length whose code, where the chip's rows have one, could not be read back: the start of a
 * table refuses what was told before the chip was known. Other mask lengths of 12 and more come back as what
 * their code stands for, 12 as null.
 */
class NERIO_SWITCH_TABLE_EXPORT Lpm11Table final : public DirectStatusTable<Lpm11Entry, Lpm11EntryStatus> {
public:
    static constexpr bool defaultIsEmpty = false;

    explicit Lpm11Table(Belmo::String const& name);
    ~Lpm11Table() override;

    U32 swTableId() const override;
    void handleEntry(NerioSwitch::LpmKey const& key) override;
    void doInitDirectTable() override;
    Belmo::Ptr<DirectBaseConvertor> profileConvertorFactory() const override;
    Sorn::TraceHandle const& trace() const override;

protected:
    char const* className() const override { return "Lpm11Table"; }
    void checkEntry(NerioSwitch::LpmKey const& key, Lpm11Result const& result) const override;
};

/** Writes the rows of each L3 processor, and takes their hits. */
class NERIO_SWITCH_TABLE_EXPORT Lpm11Convertor final : public DirectConvertor<Lpm11Convertor, Lpm11Table> {
public:
    Lpm11Convertor();
    ~Lpm11Convertor() override;

    HwIndex hwIndexFromKey(NerioSwitch::LpmKey const& key) const;
    NerioSwitch::LpmKey keyFromHwIndex(HwIndex index) const;
    void doCreateHwTables(NerioSwitchApi::TableState state) override;
    void handleHitBitEntry(HwTableId id, HwIndex index) override;
    void setStaticBuffer(HwIndex index, Sorn::BytePtr buffer) const override;
    std::vector<NerioSwitchApi::RowLayout> rowLayouts(HwTableId id) const override;

protected:
    void encode(Lpm11Entry const& item, U32* words) const override;
    void decode(U32 const* words, Lpm11Entry& item) const override;
    bool comparesEmptyRows() const override { return false; }
};

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<Lpm11Entry> Lpm11EntryIs(NerioSwitch::LpmKey const& key);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<Lpm11Table> Lpm11TableIs(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<Lpm11Table> lpm11TableFactory(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<Lpm11Convertor> lpm11ConvertorFactory();

}  // namespace NerioSwitchTable
