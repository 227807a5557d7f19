#pragma once

#include <map>

#include "NerioSwitch/Indexes.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/BitField.h"
#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioTablePlain.h"

namespace NerioSwitchTable {
class LagMembershipResult;
}  // namespace NerioSwitchTable

namespace Sorn {

/** Always fails: a result has a collection. */
template <>
NERIO_SWITCH_TABLE_EXPORT void parseAttributes(CharRange& range,
                                               NerioSwitchTable::LagMembershipResult& object);

}  // namespace Sorn

namespace NerioSwitchTable {

/** The chip port. A default key holds the null port. */
class NERIO_SWITCH_TABLE_EXPORT LagMembershipKey {
    SORN_VALUE_TYPE(NerioSwitchTable, LagMembershipKey, (NerioSwitch::ChipPortId, portId, {}));

    explicit LagMembershipKey(NerioSwitch::ChipPortId portId) : portId_(portId) {}
};

/** Ports of a LAG. One may be present with false, which is another value than an absent one. */
using LagPorts = std::map<NerioSwitch::ChipPortId, bool>;

/** The LAG of a port: its ports and its group. It cannot be read from text, since it has a collection. */
class NERIO_SWITCH_TABLE_EXPORT LagMembershipResult {
public:
    /** The group of a port without a LAG. */
    static constexpr U32 noGroup = 63;

    SORN_VALUE_TYPE(NerioSwitchTable, LagMembershipResult, (LagPorts, port, {}), (U32, lagGroupId, noGroup));

    explicit LagMembershipResult(U32 lagGroupId) : lagGroupId_(lagGroupId) {}

    /** Whether a port is in the LAG; false for an absent one. */
    bool port(NerioSwitch::ChipPortId port) const;
    LagMembershipResult& portIs(NerioSwitch::ChipPortId port, bool isMember);
    LagMembershipResult& portDel(NerioSwitch::ChipPortId port);
    LagMembershipResult& portDelAll();

    /** It says something: a group, or anything of a port. */
    explicit operator bool() const { return lagGroupId() != noGroup || !port().empty(); }

    /** The ports of the LAG, each in two columns with a blank behind it: " 3 12 ". */
    Belmo::String resultString() const;
};

/** The ports of a LAG and a control word, which in ingress copies selects the port and in the CPU pipeline's
 * table the group. */
struct LagMembershipRow {
    static constexpr BitField ports0To31{"ports0To31", 0, 32};
    static constexpr BitField ports32To63{"ports32To63", 32, 32};
    /** Of ingress copies: no bit of it is a strobe. */
    static constexpr BitField portSelect{"portSelect", 64, 32};
    /** Of the CPU pipeline's table: six bits count, and those above them go out as they are. */
    static constexpr BitField lagGroupId{"lagGroupId", 64, 6};
    static constexpr BitField lagGroupIdAbove{"lagGroupIdAbove", 70, 25};
    static constexpr BitField strobe{"strobe", 95, 1};
    static constexpr std::array ingressFields{ports0To31, ports32To63, portSelect};
    static constexpr std::array cpuFields{ports0To31, ports32To63, lagGroupId, lagGroupIdAbove, strobe};
    static constexpr std::size_t words = 3;
    static constexpr std::size_t controlWord = 2;
};
static_assert(fieldsFit(LagMembershipRow::ingressFields, LagMembershipRow::words) &&
              fieldsDisjoint(LagMembershipRow::ingressFields) &&
              fieldsFit(LagMembershipRow::cpuFields, LagMembershipRow::words) &&
              fieldsDisjoint(LagMembershipRow::cpuFields));

/** Per chip port, the ports that form its LAG together, and the group's number. */
class NERIO_SWITCH_TABLE_EXPORT LagMembershipTable final
    : public PlainTable<LagMembershipKey, LagMembershipResult> {
public:
    explicit LagMembershipTable(Belmo::String const& name)
        : PlainTable<LagMembershipKey, LagMembershipResult>(name) {}
    ~LagMembershipTable() override;

    void handleEntry(LagMembershipKey const& key) override;

protected:
    Belmo::Ptr<Convertor> profileConvertorFactory() const override;
};

using LagMembershipConvertor = LagMembershipTable::Convertor;

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<LagMembershipTable> LagMembershipTableIs(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<LagMembershipTable> lagMembershipTableFactory(Belmo::String const& name);

}  // namespace NerioSwitchTable
