#pragma once

#include "NerioSwitch/Indexes.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/BitField.h"
#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioTablePlain.h"

namespace NerioSwitchTable {

/** The chip port by which packets leave. A default key holds the null port. */
class NERIO_SWITCH_TABLE_EXPORT LagLookUpKey {
    SORN_VALUE_TYPE(NerioSwitchTable, LagLookUpKey, (NerioSwitch::ChipPortId, portId, {}));

    explicit LagLookUpKey(NerioSwitch::ChipPortId portId) : portId_(portId) {}
};

/** The LAG hash buckets whose packets a port takes: bit b is bucket b. */
class NERIO_SWITCH_TABLE_EXPORT LagLookUpResult {
    SORN_VALUE_TYPE(NerioSwitchTable, LagLookUpResult, (U32, buckets, 0));

    explicit LagLookUpResult(U32 buckets) : buckets_(buckets) {}

    /** The buckets in hexadecimal, two digits or more: "0xFF". */
    Belmo::String resultString() const;
};

/** A port's buckets and its control word, by which alone rows of shared registers differ. */
struct LagLookUpRow {
    static constexpr BitField buckets{"buckets", 0, 32};
    /** In groups of four ports: a bit each. */
    static constexpr BitField portInGroup{"portInGroup", 32, 4};
    /** Where all ports are behind one register. */
    static constexpr BitField strobe{"strobe", 32, 1};
    static constexpr BitField port{"port", 33, 8};
    static constexpr std::array groupFields{buckets, portInGroup};
    static constexpr std::array fields{buckets, strobe, port};
    static constexpr std::size_t words = 2;
    static constexpr U8 controlWord = 1;
    static constexpr U32 portsPerGroup = 4;
};
static_assert(fieldsFit(LagLookUpRow::groupFields, LagLookUpRow::words) &&
              fieldsDisjoint(LagLookUpRow::groupFields) &&
              fieldsFit(LagLookUpRow::fields, LagLookUpRow::words) && fieldsDisjoint(LagLookUpRow::fields));

/** Per chip port, its LAG hash buckets, in a copy for each pipeline and one for the CPU pipeline. */
class NERIO_SWITCH_TABLE_EXPORT LagLookUpTable final : public PlainTable<LagLookUpKey, LagLookUpResult> {
public:
    explicit LagLookUpTable(Belmo::String const& name) : PlainTable<LagLookUpKey, LagLookUpResult>(name) {}
    ~LagLookUpTable() override;

protected:
    Belmo::Ptr<Convertor> profileConvertorFactory() const override;
};

using LagLookUpConvertor = LagLookUpTable::Convertor;

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<LagLookUpTable> LagLookUpTableIs(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<LagLookUpTable> lagLookUpTableFactory(Belmo::String const& name);

}  // namespace NerioSwitchTable
