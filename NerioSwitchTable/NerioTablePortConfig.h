#pragma once

#include "NerioSwitch/Indexes.h"
#include "Sorn/Enum.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/BitField.h"
#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioTablePlainPort.h"

namespace NerioSwitchTable {

/** VLAN mode of a port; the values are the hardware encoding. */
SORN_ENUM(PortConfigMode, U32, (trunk, 0), (access, 1), (qinq, 2));

/** The chip port. A default key holds the null port. */
class NERIO_SWITCH_TABLE_EXPORT PortConfigKey {
    SORN_VALUE_TYPE(NerioSwitchTable, PortConfigKey, (NerioSwitch::ChipPortId, portId, {}));

    explicit PortConfigKey(NerioSwitch::ChipPortId portId) : portId_(portId) {}
};

/** How a port treats VLAN tags, and what it must not do. The default is what hardware holds without an entry.
 */
class NERIO_SWITCH_TABLE_EXPORT PortConfigResult {
    SORN_VALUE_TYPE(NerioSwitchTable, PortConfigResult, (PortConfigMode, portMode, PortConfigMode::access),
                    (bool, txDisabled, false), (bool, l2ForwardingDisabled, false));

    /** "portMode:access txDisabled:false l2ForwardingDisabled:false", fields of one width. */
    Belmo::String resultString() const;
};

/** One word in the port's "cfg" register; bits 31:4 are 0. */
struct PortConfigRow {
    static constexpr BitField portMode{"portMode", 0, 2};
    static constexpr BitField txDisabled{"txDisabled", 2, 1};
    static constexpr BitField l2ForwardingDisabled{"l2ForwardingDisabled", 3, 1};
    static constexpr std::array fields{portMode, txDisabled, l2ForwardingDisabled};
    /** Words of an entry; those behind the first stay in the shadow, as 0. */
    static constexpr std::size_t words = 4;
};
static_assert(fieldsFit(PortConfigRow::fields, 1) && fieldsDisjoint(PortConfigRow::fields));

/** Per chip port, the VLAN mode and two disable flags. */
class NERIO_SWITCH_TABLE_EXPORT PortConfigTable final : public PlainTable<PortConfigKey, PortConfigResult> {
public:
    explicit PortConfigTable(Belmo::String const& name) : PlainTable<PortConfigKey, PortConfigResult>(name) {}
    ~PortConfigTable() override;

protected:
    Belmo::Ptr<Convertor> profileConvertorFactory() const override;
};

using PortConfigConvertor = PortConfigTable::Convertor;

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<PortConfigTable> PortConfigTableIs(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<PortConfigTable> portConfigTableFactory(Belmo::String const& name);

}  // namespace NerioSwitchTable
