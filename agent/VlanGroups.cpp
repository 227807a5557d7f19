#include "agent/VlanGroups.h"

#include <algorithm>
#include <utility>

#include "Belmo/Assert.h"

namespace Agent {

using NerioSwitch::ChipPortId;
using NerioSwitch::VlanGroupKey;
using NerioSwitchTable::VlanGroupResult;

namespace {

VlanGroupResult resultOf(std::vector<Bridging::VlanId> const& vlans) {
    VlanGroupResult result;
    U8 count = 0;
    for (auto const& vlan : vlans)
        result.groupIs(count++, vlan);
    return result.numVlansIs(count);
}

}  // namespace

VlanGroups::VlanGroups(Belmo::Ptr<NerioSwitchTable::VlanGroupTable> table) : table_(std::move(table)) {}

PortVlans VlanGroups::vlansOf(U8 group, U64 ports) const {
    PortVlans all;
    for (U16 port = 0; port <= ChipPortId::last; ++port) {
        VlanGroupKey const key(port, group);
        if ((ports >> port & 1) == 0 || !table_->entryHas(key)) continue;
        auto const result = table_->entry(key);
        auto const count = std::min<std::size_t>(result.numVlans(), vlansPerPort);
        std::set<Bridging::VlanId> const vlans(result.group().begin(), result.group().begin() + count);
        if (!vlans.empty()) all[port].assign(vlans.begin(), vlans.end());
    }
    return all;
}

std::optional<U8> VlanGroups::groupFor(PortVlans const& vlans) const {
    std::optional<U8> best;
    std::size_t mostShared = 0;
    for (U8 group = 0; group < groups; ++group) {
        std::size_t shared = 0;
        bool const fits = std::all_of(vlans.begin(), vlans.end(), [&](auto const& wanted) {
            auto const row = rows_.find({wanted.first, group});
            if (row == rows_.end()) return true;
            ++shared;
            return row->second.vlans == wanted.second;
        });
        if (!fits || (best && shared <= mostShared)) continue;
        best = group;
        mostShared = shared;
    }
    return best;
}

void VlanGroups::use(U8 group, PortVlans const& vlans) {
    for (auto const& [port, list] : vlans) {
        VlanGroupKey const key(port, group);
        auto& row = rows_[key];
        BELMO_ASSERT(row.users == 0 || row.vlans == list);
        row.vlans = list;
        if (++row.users == 1) changed_.insert(key);
    }
}

void VlanGroups::release(U8 group, PortVlans const& vlans) {
    for (auto const& [port, list] : vlans) {
        auto const row = rows_.find({port, group});
        BELMO_ASSERT(row != rows_.end());
        if (--row->second.users != 0) continue;
        changed_.insert(row->first);
        rows_.erase(row);
    }
}

void VlanGroups::othersDel() {
    for (auto const& [key, result] : table_->entries()) {
        if (!rows_.contains(key)) changed_.insert(key);
    }
}

void VlanGroups::program() {
    for (auto next = changed_.begin(); next != changed_.end();) {
        auto const row = rows_.find(*next);
        if (row == rows_.end()) {
            ++next;
            continue;
        }
        table_->entryIs(*next, resultOf(row->second.vlans));
        next = changed_.erase(next);
    }
}

void VlanGroups::clear() {
    for (auto next = changed_.begin(); next != changed_.end();) {
        if (rows_.contains(*next)) {
            ++next;
            continue;
        }
        table_->entryDel(*next);
        next = changed_.erase(next);
    }
}

}  // namespace Agent
