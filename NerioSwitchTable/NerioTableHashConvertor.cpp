#include "NerioSwitchTable/NerioTableHashConvertor.h"

#include "Belmo/Assert.h"

#include "NerioSwitchTable/NerioHitBitUtil.h"

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

void NerioTableHashConvertor::createHashCopy(NerioSwitchApi::HwTableId copy, NerioSwitchApi::TableState state,
                                             TableIndex tableIndex, Belmo::String const& prefix,
                                             std::initializer_list<char const*> registers, U32 hitBitOffset) {
    auto const name = NerioSwitchApi::SwTable::hwTableName(swTable(0)->name(), profile()->profileName(),
                                                           TableConstants::tableName(tableIndex), copy);
    U32 const lastRow = tableSize() * numHashTables() - 1;
    createHwTable(copy, state, 0, lastRow,
                  Belmo::make<NerioSwitchApi::HwTableRegisterMappingConst>(
                      name, NerioSwitchApi::addressesOf(prefix, registers)));
    createHitBitTable(copy, state, 0, lastRow, name,
                      getHitBitMapping(prefix, tableSize(), numHashTables(), hitBitOffset));
}

}  // namespace NerioSwitchTable
