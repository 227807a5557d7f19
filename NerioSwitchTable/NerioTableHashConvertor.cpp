#include "NerioSwitchTable/NerioTableHashConvertor.h"

#include "Belmo/Assert.h"

namespace NerioSwitchTable {

NerioTableHashConvertor::~NerioTableHashConvertor() = default;

void NerioTableHashConvertor::createHashHwTable(
    NerioSwitchApi::TableState state, TableIndex tableIndex, U32 number,
    Belmo::Ptr<NerioSwitchApi::HwAddressColl const> const& registers) {
    BELMO_ASSERT(swTables() == 1);
    auto const name = NerioSwitchApi::SwTable::hwTableName(swTable(0)->name(), profile()->profileName(),
                                                           TableConstants::tableName(tableIndex), number);
    U32 const rows = tableSize() * numHashTables();
    BELMO_ASSERT_TEXT(rows != 0, "tableSize != 0");
    createHwTable(0, state, 0, rows - 1,
                  Belmo::make<NerioSwitchApi::HwTableRegisterMappingConst>(name, registers));
}

}  // namespace NerioSwitchTable
