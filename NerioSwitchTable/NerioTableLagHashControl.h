#pragma once

#include "NerioSwitch/Indexes.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/BitField.h"
#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioTablePlainPort.h"

namespace NerioSwitchTable {

/** The chip port on which packets come in. A default key holds the null port. */
class NERIO_SWITCH_TABLE_EXPORT LagHashControlKey {
    SORN_VALUE_TYPE(NerioSwitchTable, LagHashControlKey, (NerioSwitch::ChipPortId, portId, {}));

    explicit LagHashControlKey(NerioSwitch::ChipPortId portId) : portId_(portId) {}
};

/** The fields of a packet that its LAG hash is made of, and the seed of the hash, of which 6 bits count. */
class NERIO_SWITCH_TABLE_EXPORT LagHashControlResult {
    SORN_VALUE_TYPE(NerioSwitchTable, LagHashControlResult, (bool, useVlanId, false),
                    (bool, useIpProtocol, false), (bool, useSipAndDip, false), (U8, hashSeed, 0),
                    (bool, useSportAndDport, false));

    /** "useVlanId:true  useSipAndDip:false hasSeed:5": not all of the attributes. */
    Belmo::String resultString() const;
};

/** One word in the port's "lhash_ctl" register. */
struct LagHashControlRow {
    static constexpr BitField useVlanId{"useVlanId", 0, 1};
    static constexpr BitField useIpProtocol{"useIpProtocol", 1, 1};
    static constexpr BitField useSipAndDip{"useSipAndDip", 2, 1};
    static constexpr BitField hashSeed{"hashSeed", 3, 6};
    static constexpr BitField useSportAndDport{"useSportAndDport", 9, 1};
    static constexpr std::array fields{useVlanId, useIpProtocol, useSipAndDip, hashSeed, useSportAndDport};
};
static_assert(fieldsFit(LagHashControlRow::fields, 1) && fieldsDisjoint(LagHashControlRow::fields));

/** Per chip port, what goes into the hash that picks a member of a LAG. */
class NERIO_SWITCH_TABLE_EXPORT LagHashControlTable final
    : public PlainTable<LagHashControlKey, LagHashControlResult> {
public:
    explicit LagHashControlTable(Belmo::String const& name)
        : PlainTable<LagHashControlKey, LagHashControlResult>(name) {}
    ~LagHashControlTable() override;

protected:
    Belmo::Ptr<Convertor> profileConvertorFactory() const override;
};

using LagHashControlConvertor = LagHashControlTable::Convertor;

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<LagHashControlTable> LagHashControlTableIs(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<LagHashControlTable> lagHashControlTableFactory(
    Belmo::String const& name);

}  // namespace NerioSwitchTable
