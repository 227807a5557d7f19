#pragma once

#include <array>

#include "NerioSwitchApi/HashTable.h"

#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/TableConstants.h"

namespace NerioSwitchTable {

/** Common base of the helpers of hash tables: adds the table's number in the system. */
class NERIO_SWITCH_TABLE_EXPORT NerioTableHashHelper : public NerioSwitchApi::HashBaseHelper {
public:
    ~NerioTableHashHelper() override;

    TableIndex tableIdx() const { return tableIdx_; }
    U32 physTableIndex() const override { return tableIdx_; }
    /** The software table's profile. */
    Belmo::Ptr<NerioSwitch::ProfileInfo const> const& profile() const;
    /** Names the helper as people know its table. */
    void doInit() override;

protected:
    explicit NerioTableHashHelper(TableIndex tableIdx) : tableIdx_(tableIdx) {}

    using Words = std::array<U32, NerioSwitchApi::maxEntryWords>;

    /** The words of a row as the shadow of hardware table 0 holds it; zeros where it does not. */
    Words storedWords(NerioSwitchApi::HwIndex index) const;

    /** Whether the shadow of a copy holds other words in the row than hardware table 0, or lacks it. */
    bool copiesDiffer(NerioSwitchApi::HwIndex index, Words const& first) const;

private:
    TableIndex tableIdx_;
};

}  // namespace NerioSwitchTable
