#pragma once

#include "NerioSwitch/Indexes.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/BitField.h"
#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioTablePlain.h"

namespace NerioSwitchTable {
class LagGroupResult;
}  // namespace NerioSwitchTable

namespace Sorn {

/** Reads the bare number too. */
template <>
NERIO_SWITCH_TABLE_EXPORT void parseAttributes(CharRange& range, NerioSwitchTable::LagGroupResult& object);

}  // namespace Sorn

namespace NerioSwitchTable {

/** The chip port. A default key holds the null port. */
class NERIO_SWITCH_TABLE_EXPORT LagGroupKey {
    SORN_VALUE_TYPE(NerioSwitchTable, LagGroupKey, (NerioSwitch::ChipPortId, portId, {}));

    explicit LagGroupKey(NerioSwitch::ChipPortId portId) : portId_(portId) {}
};

/** The link aggregation group that a port belongs to. Its text may be the bare number as well. */
class NERIO_SWITCH_TABLE_EXPORT LagGroupResult {
    SORN_VALUE_TYPE(NerioSwitchTable, LagGroupResult, (U32, lagGroupId, 0));

    explicit LagGroupResult(U32 lagGroupId) : lagGroupId_(lagGroupId) {}

    /** The group in hexadecimal, two digits or more: "0x05". */
    Belmo::String resultString() const;
};

/** A group and, in the ingress copies, a control word. The row of the CPU pipeline is the group alone. */
struct LagGroupRow {
    static constexpr BitField lagGroupId{"lagGroupId", 0, 32};
    /** The bits of it that are read back: fewer than are written. */
    static constexpr BitField lagGroupIdRead{"lagGroupId", 0, 6};
    static constexpr BitField portSelect{"portSelect", 32, 31};
    static constexpr BitField strobe{"strobe", 63, 1};
    static constexpr std::array fields{lagGroupId, portSelect, strobe};
    static constexpr std::size_t words = 2;
    /** What a row holds before its port had a group. A deletion leaves 0 instead. */
    static constexpr U32 noGroup = 63;
};
static_assert(fieldsFit(LagGroupRow::fields, LagGroupRow::words) && fieldsDisjoint(LagGroupRow::fields));

/** Per chip port, the link aggregation group it belongs to. */
class NERIO_SWITCH_TABLE_EXPORT LagGroupTable final : public PlainTable<LagGroupKey, LagGroupResult> {
public:
    explicit LagGroupTable(Belmo::String const& name) : PlainTable<LagGroupKey, LagGroupResult>(name) {}
    ~LagGroupTable() override;

protected:
    Belmo::Ptr<Convertor> profileConvertorFactory() const override;
};

using LagGroupConvertor = LagGroupTable::Convertor;

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<LagGroupTable> LagGroupTableIs(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<LagGroupTable> lagGroupTableFactory(Belmo::String const& name);

}  // namespace NerioSwitchTable
