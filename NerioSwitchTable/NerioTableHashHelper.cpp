#include "NerioSwitchTable/NerioTableHashHelper.h"

#include <algorithm>

#include "Belmo/Assert.h"

namespace NerioSwitchTable {

NerioTableHashHelper::~NerioTableHashHelper() = default;

Belmo::Ptr<NerioSwitch::ProfileInfo const> const& NerioTableHashHelper::profile() const {
    BELMO_ASSERT(swTable());
    return swTable()->profile();
}

void NerioTableHashHelper::doInit() {
    nameIs(TableConstants::cliName(tableIdx_));
}

std::array<U32, NerioSwitchApi::maxEntryWords> NerioTableHashHelper::storedWords(
    NerioSwitchApi::HwIndex index) const {
    std::array<U32, NerioSwitchApi::maxEntryWords> words{};
    auto const stored = convertor()->hwTable(0)->storedEntry(index);
    if (stored) std::copy(stored->words().begin(), stored->words().end(), words.begin());
    return words;
}

}  // namespace NerioSwitchTable
