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
    if (auto const* stored = convertor()->hwTable(0)->storedWords(index))
        std::copy_n(stored, words.size(), words.begin());
    return words;
}

bool NerioTableHashHelper::copiesDiffer(NerioSwitchApi::HwIndex index, Words const& first) const {
    auto const count = convertor()->entryWords();
    auto const& tables = convertor()->hwTables();
    return std::any_of(std::next(tables.begin()), tables.end(), [&](auto const& member) {
        auto const* copy = member.second->storedWords(index);
        return copy == nullptr || !std::equal(copy, copy + count, first.begin());
    });
}

}  // namespace NerioSwitchTable
