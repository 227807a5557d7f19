#include "NerioSwitchTable/NerioTableHashConvertor.h"

#include "Belmo/Assert.h"

namespace NerioSwitchTable {

NerioTableHashConvertor::~NerioTableHashConvertor() = default;

void NerioTableHashConvertor::createHwTable(
    NerioSwitchApi::TableState state, TableIndex tableIndex, U32 number,
    Belmo::Ptr<NerioSwitchApi::HwAddressColl const> const& registers) {
    BELMO_ASSERT(swTables() == 1);
    auto const name = NerioSwitchApi::SwTable::hwTableName(swTable(0)->name(), profile()->profileName(),
                                                           TableConstants::tableName(tableIndex), number);
    auto const mapping = Belmo::make<NerioSwitchApi::HwTableRegisterMappingConst>(name, registers);
    U32 const rows = tableSize() * numHashTables();
    BELMO_ASSERT_TEXT(rows != 0, "tableSize != 0");
    auto const descriptor =
        descriptorConfig().hwTableDescIs(name, 0, profile()->profileName(), state, 0, rows - 1, mapping);
    auto const table = collection().hwTable(name);
    BELMO_ASSERT(table);
    hwTableIs(0, table->config());
    descriptorIs(0, descriptor);
}

}  // namespace NerioSwitchTable
