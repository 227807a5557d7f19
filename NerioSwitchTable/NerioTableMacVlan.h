#pragma once

#include <array>

#include "Bridging/VlanId.h"
#include "Lanvo/Address.h"
#include "NerioSwitch/IngressPortMask.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/BitField.h"
#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioTablePlainCopies.h"

namespace NerioSwitch {

struct L2McastFlagsTraits {
    using Representation = U8;
    static constexpr Representation mcastJoinToEgress = 1;
    static constexpr Representation mcastDataToCpu = 2;
    static constexpr Representation mcastJoinToCpus = 4;
    static constexpr Representation first = 0;
    static constexpr Representation last = 7;
    static constexpr Representation initial = 0;
    static constexpr char const* rangeText = "NerioSwitch::L2McastFlags::value > 7 not allowed";
};

/** What becomes of the multicast packets of a layer 2 row: a set of its three named flags. */
using L2McastFlags = Belmo::RangedIndex<L2McastFlagsTraits>;

}  // namespace NerioSwitch

namespace NerioSwitchTable {

/** A row number: the caller picks the row of an address. */
class NERIO_SWITCH_TABLE_EXPORT MacVlanKey {
    SORN_VALUE_TYPE(NerioSwitchTable, MacVlanKey, (U32, value, 0));

    explicit MacVlanKey(U32 value) : value_(value) {}
};

/** A MAC address in a VLAN. */
class NERIO_SWITCH_TABLE_EXPORT MacVlan {
    SORN_VALUE_TYPE(NerioSwitchTable, MacVlan, (Bridging::VlanIdOrNone, vlanId, 0),
                    (Lanvo::EthAddr, ethAddr, {}));

    MacVlan(Bridging::VlanIdOrNone vlanId, Lanvo::EthAddr ethAddr) : vlanId_(vlanId), ethAddr_(ethAddr) {}
};

/** The address that a row matches, and what becomes of packets to it. The default is an empty row. */
class NERIO_SWITCH_TABLE_EXPORT MacVlanResult {
    SORN_VALUE_TYPE(NerioSwitchTable, MacVlanResult, (MacVlan, macVlan, {}),
                    (NerioSwitch::IngressPortMask, ingressPortMask, {}),
                    (NerioSwitch::L2McastFlags, mcastFlags, {}), (bool, ipRoute, false));

    /** "vlan:   5 mac:00:1c:73:00:00:01 portMask:0x000000000003 mcastJoinToEgress:true  ..." */
    Belmo::String resultString() const;
};

/** Four data words, whose fields behind the address lie as far up as the chip has ports, and the control
 * word. */
struct MacVlanRow {
    static constexpr std::size_t words = 5;
    static constexpr U8 dataWords = 4;
    static constexpr U8 controlWord = 4;
    static constexpr U16 control = 32 * controlWord;

    static constexpr BitField vlanId{"vlanId", 0, 12};
    static constexpr BitField ethAddr{"ethAddr", 12, 48};
    static constexpr BitField row{"row", control, 14};
    /** The write strobe, and the bit that tells this memory from others behind the register. */
    static constexpr BitField strobe{"strobe", control + 15, 1};
    static constexpr BitField select{"select", control + 16, 1};
    static constexpr std::array fields{vlanId, ethAddr, row, strobe, select};

    BitField ports;
    BitField cpu;
    BitField mcastFlags;
    BitField parity;
    BitField ipRoute;

    /** The fields whose place depends on the ports. */
    std::array<BitField, 5> fieldsOfPorts() const { return {ports, cpu, mcastFlags, parity, ipRoute}; }
    /** The layout for a chip of that many ports, below 64. */
    static MacVlanRow of(U32 numPorts);
};
static_assert(fieldsFit(MacVlanRow::fields, MacVlanRow::words) && fieldsDisjoint(MacVlanRow::fields));

/** Lays a row's data words out in zeroed words, but for the parity. */
NERIO_SWITCH_TABLE_EXPORT void setBaseHwBuffer(U32 numPorts, MacVlanResult const& result,
                                               NerioSwitchApi::HwIndex row, U8* buffer);

/** Layer 2 forwarding by row number: the address that the row matches, its ports, and its flags. */
class NERIO_SWITCH_TABLE_EXPORT MacVlanTable final : public PlainTable<MacVlanKey, MacVlanResult> {
public:
    explicit MacVlanTable(Belmo::String const& name) : PlainTable<MacVlanKey, MacVlanResult>(name) {
        hwTablesDuplicateIs(true);
    }
    ~MacVlanTable() override;

protected:
    Belmo::Ptr<Convertor> profileConvertorFactory() const override;
};

using MacVlanConvertor = MacVlanTable::Convertor;

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<MacVlanTable> MacVlanTableIs(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<MacVlanTable> macVlanTableFactory(Belmo::String const& name);

}  // namespace NerioSwitchTable
