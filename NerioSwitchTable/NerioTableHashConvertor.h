#pragma once

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
};

}  // namespace NerioSwitchTable
