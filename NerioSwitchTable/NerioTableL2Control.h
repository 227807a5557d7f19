#pragma once

#include "NerioSwitch/Indexes.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/BitField.h"
#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioTablePlainPort.h"

namespace NerioSwitchTable {

/** The chip port. A default key holds the null port. */
class NERIO_SWITCH_TABLE_EXPORT L2ControlKey {
    SORN_VALUE_TYPE(NerioSwitchTable, L2ControlKey, (NerioSwitch::ChipPortId, portId, {}));

    explicit L2ControlKey(NerioSwitch::ChipPortId portId) : portId_(portId) {}
};

/** How addresses are learned at a port. The default is what hardware holds without an entry. */
class NERIO_SWITCH_TABLE_EXPORT L2ControlResult {
    SORN_VALUE_TYPE(NerioSwitchTable, L2ControlResult, (bool, isMlagPeer, false), (bool, learnOnly, false),
                    (bool, learnDisabled, false));

    /** "isMlagPeer:false learnOnly:true  learnDisabled:false", fields of one width. */
    Belmo::String resultString() const;
};

/** One word in the port's "l2_control" register; bits 31:3 are 0. */
struct L2ControlRow {
    static constexpr BitField isMlagPeer{"isMlagPeer", 0, 1};
    static constexpr BitField learnOnly{"learnOnly", 1, 1};
    static constexpr BitField learnDisabled{"learnDisabled", 2, 1};
    static constexpr std::array fields{isMlagPeer, learnOnly, learnDisabled};
    static constexpr std::size_t words = 1;
};
static_assert(fieldsFit(L2ControlRow::fields, 1) && fieldsDisjoint(L2ControlRow::fields));

/** Per chip port, three controls of learning. */
class NERIO_SWITCH_TABLE_EXPORT L2ControlTable final : public PlainTable<L2ControlKey, L2ControlResult> {
public:
    explicit L2ControlTable(Belmo::String const& name) : PlainTable<L2ControlKey, L2ControlResult>(name) {
        hwTablesDuplicateIs(true);
    }
    ~L2ControlTable() override;

protected:
    Belmo::Ptr<Convertor> profileConvertorFactory() const override;
};

using L2ControlConvertor = L2ControlTable::Convertor;

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<L2ControlTable> L2ControlTableIs(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<L2ControlTable> l2ControlTableFactory(Belmo::String const& name);

}  // namespace NerioSwitchTable
