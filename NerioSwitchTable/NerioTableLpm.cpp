#include "NerioSwitchTable/NerioTableLpm.h"

namespace NerioSwitchTable {

using NerioSwitch::LpmKey;

LpmStatus::~LpmStatus() = default;

LpmTable::LpmTable(Belmo::String const& name) : KeyedTable(name) {}

LpmTable::~LpmTable() = default;

Belmo::Ptr<LpmStatus> LpmTable::entryStatusIs(LpmKey const& key) {
    auto const [member, isNew] = entryStatus_.try_emplace(key);
    if (!isNew) return member->second;
    auto status = Belmo::make<LpmStatus>(key);
    member.value() = status;
    publisher().publishChangeRecursive("entryStatus", key);
    return status;
}

void LpmTable::entryStatusDel(LpmKey key) {
    if (entryStatus_.erase(key) != 0) publisher().publishChangeRecursive("entryStatus", key);
}

void LpmTable::entryStatusDelAll() {
    while (!entryStatus_.empty())
        entryStatusDel(entryStatus_.begin()->first);
}

Belmo::Ptr<LpmStatus> LpmTable::entryStatus(LpmKey const& key) const {
    auto const found = entryStatus_.find(key);
    return found == entryStatus_.end() ? Belmo::Ptr<LpmStatus>() : found->second;
}

void LpmTable::doSetProfileConvertor(Belmo::Ptr<NerioSwitchApi::SwTableTypes> const& /*types*/) {}

void LpmTable::handleEntry(LpmKey const& /*key*/) {}

Belmo::Ptr<LpmTable> LpmTableIs(Belmo::String const& name) {
    return Belmo::make<LpmTable>(name);
}

Belmo::Ptr<LpmTable> lpmTableFactory(Belmo::String const& name) {
    return LpmTableIs(name);
}

}  // namespace NerioSwitchTable
