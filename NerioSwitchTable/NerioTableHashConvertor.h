#pragma once

#include <initializer_list>

#include "NerioSwitchApi/HashTable.h"

#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/TableConstants.h"

namespace NerioSwitchTable {

/** Common base of the convertors of hash tables that are written through one set of registers. */
class NERIO_SWITCH_TABLE_EXPORT NerioTableHashConvertor : public NerioSwitchApi::PhysicalHashTableConvertor {
public:
    ~NerioTableHashConvertor() override;

protected:
    /**
     * Makes hardware table 0, of all rows of all hash tables, which are written through `registers`. Its name
     * says `tableIndex` and, to tell tables of several pipelines apart, `number`. There must be exactly one
     * software table, and there must be rows.
     */
    void createHashHwTable(NerioSwitchApi::TableState state, TableIndex tableIndex, U32 number,
                           Belmo::Ptr<NerioSwitchApi::HwAddressColl const> const& registers);

    /**
     * Makes hardware table `copy`, one of several copies that have registers of these names behind a prefix
     * of their own, and the table of its hit bits, whose first bit is `hitBitOffset`. The names of both say
     * the first software table and `tableIndex`.
     */
    void createHashCopy(NerioSwitchApi::HwTableId copy, NerioSwitchApi::TableState state,
                        TableIndex tableIndex, Belmo::String const& prefix,
                        std::initializer_list<char const*> registers, U32 hitBitOffset);
};

}  // namespace NerioSwitchTable
