#include "NerioSwitchTable/NerioTableHashHelper.h"

#include <algorithm>
#include <iterator>

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

NerioTableHashHelper::Words NerioTableHashHelper::storedWords(NerioSwitchApi::HwIndex index) const {
    Words words{};
    auto const stored = convertor()->hwTable(0)->storedEntry(index);
    if (stored) std::copy(stored->words().begin(), stored->words().end(), words.begin());
    return words;
}

bool NerioTableHashHelper::copiesDiffer(NerioSwitchApi::HwIndex index, Words const& first) const {
    auto const count = convertor()->entryWords();
    auto const& tables = convertor()->hwTables();
    return std::any_of(std::next(tables.begin()), tables.end(), [&](auto const& member) {
        auto const copy = member.second->storedEntry(index);
        for (U8 word = 0; word < count; ++word) {
            if (!copy || copy->data(word) != first[word]) return true;
        }
        return false;
    });
}

}  // namespace NerioSwitchTable
