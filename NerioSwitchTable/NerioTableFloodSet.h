#pragma once

#include <array>

#include "Belmo/Duration.h"
#include "Bridging/VlanId.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/BitField.h"
#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioTablePlainCopies.h"

namespace NerioSwitchTable {

/** The ports that a packet of unknown destination is flooded to; bit `p` is chip port `p`. */
class NERIO_SWITCH_TABLE_EXPORT FloodSetResult {
    SORN_VALUE_TYPE(NerioSwitchTable, FloodSetResult, (U64, uucPortMask, 0), (U64, umcPortMask, 0));

    /** "uucPortMask:0x000000000000 umcPortMask:0x000000000000" */
    Belmo::String resultString() const;
};

/** The flood set of a VLAN, and when it changed last. */
class NERIO_SWITCH_TABLE_EXPORT FloodSetEntry {
    SORN_VALUE_TYPE(NerioSwitchTable, FloodSetEntry, (Bridging::VlanId, key, {}),
                    (FloodSetResult, result, {}), (Belmo::Duration, lastUpdate, {}));

    FloodSetEntry(Bridging::VlanId key, FloodSetResult const& result) : key_(key), result_(result) {}
    /** The text of the result. */
    Belmo::String resultString() const { return result_.resultString(); }
};

/** Five words: both masks as wide as the chip has ports, parity behind them, and the control word. */
struct FloodSetRow {
    static constexpr std::size_t words = 5;
    static constexpr U8 dataWords = 4;
    static constexpr U8 controlWord = 4;

    BitField uucPortMask;
    BitField umcPortMask;
    BitField parity;

    std::array<BitField, 3> fields() const { return {uucPortMask, umcPortMask, parity}; }
    /** The layout for a chip of that many ports, below 64. A chip without parity has a field of no bits. */
    static FloodSetRow of(U16 numPorts, bool hasParity);

    static constexpr BitField vlan{"vlan", 128, 12};
    static constexpr BitField strobe{"strobe", 143, 1};
    static constexpr std::array controlFields{vlan, strobe};
};
static_assert(fieldsFit(FloodSetRow::controlFields, FloodSetRow::words) &&
              fieldsDisjoint(FloodSetRow::controlFields));

/** Per VLAN, the ports that packets of unknown unicast and multicast destinations are flooded to. */
class NERIO_SWITCH_TABLE_EXPORT FloodSetTable final : public PlainTable<Bridging::VlanId, FloodSetEntry> {
public:
    explicit FloodSetTable(Belmo::String const& name);
    ~FloodSetTable() override;

    /** Wants the entry at its key. */
    void entryIs(FloodSetEntry const& entry) { Keyed::entryIs(entry.key(), entry); }
    /** Wants the entry at that key, which becomes its own. */
    void entryIs(Bridging::VlanId key, FloodSetEntry entry) { entryIs(entry.keyIs(key)); }

protected:
    Belmo::Ptr<Convertor> profileConvertorFactory() const override;
};

using FloodSetConvertor = FloodSetTable::Convertor;

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<FloodSetTable> FloodSetTableIs(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<FloodSetTable> floodSetTableFactory(Belmo::String const& name);

}  // namespace NerioSwitchTable
