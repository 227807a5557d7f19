#pragma once

#include "Bridging/VlanId.h"
#include "NerioSwitch/Indexes.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/BitField.h"
#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioTablePlainPort.h"

namespace NerioSwitchTable {

/** The chip port. A default key holds the null port. */
class NERIO_SWITCH_TABLE_EXPORT NativeVlanKey {
    SORN_VALUE_TYPE(NerioSwitchTable, NativeVlanKey, (NerioSwitch::ChipPortId, portId, {}));

    explicit NativeVlanKey(NerioSwitch::ChipPortId portId) : portId_(portId) {}
};

/** The tag that an untagged packet takes. The default is what hardware holds without an entry. */
class NERIO_SWITCH_TABLE_EXPORT NativeVlanResult {
    SORN_VALUE_TYPE(NerioSwitchTable, NativeVlanResult, (Bridging::VlanIdOrNone, nativeVlanId, 1),
                    (U8, dei, 0), (U8, pcp, 0));

    /** "vlan:   1 dei:0x0 pcp:0x0" */
    Belmo::String resultString() const;
};

/** One word, laid out as the tag control information of IEEE 802.1Q. */
struct NativeVlanRow {
    static constexpr BitField nativeVlanId{"nativeVlanId", 0, 12};
    static constexpr BitField dei{"dei", 12, 1};
    static constexpr BitField pcp{"pcp", 13, 3};
    static constexpr std::array fields{nativeVlanId, dei, pcp};
    /** Words of an entry; those behind the first stay in the shadow, as 0. */
    static constexpr std::size_t words = 4;
};
static_assert(fieldsFit(NativeVlanRow::fields, 1) && fieldsDisjoint(NativeVlanRow::fields));

/** Per chip port, the VLAN, drop eligibility and priority of untagged packets. */
class NERIO_SWITCH_TABLE_EXPORT NativeVlanTable final : public PlainTable<NativeVlanKey, NativeVlanResult> {
public:
    explicit NativeVlanTable(Belmo::String const& name) : PlainTable<NativeVlanKey, NativeVlanResult>(name) {}
    ~NativeVlanTable() override;

protected:
    Belmo::Ptr<Convertor> profileConvertorFactory() const override;
};

using NativeVlanConvertor = NativeVlanTable::Convertor;

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<NativeVlanTable> NativeVlanTableIs(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<NativeVlanTable> nativeVlanTableFactory(Belmo::String const& name);

}  // namespace NerioSwitchTable
