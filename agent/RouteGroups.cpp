#include "agent/RouteGroups.h"

namespace Agent {

using Lanvo::IpAddr;
using Lanvo::Prefix;
using NerioSwitch::LpmKey;
using NerioSwitchTable::EntryCellResult;
using NerioSwitchTable::LpmResult;

RouteGroups::Id RouteGroups::find(U8 vrf, U32 address) const {
    auto const found = index_.find(keyOf(vrf, address));
    return found == index_.end() ? none : *found;
}

RouteGroups::Id RouteGroups::add(U8 vrf, U32 address) {
    Id id = free_;
    if (id == none) {
        id = end();
        groups_.emplace_back();
    } else {
        free_ = groups_[id].links[0].next;
        groups_[id] = {};
    }
    auto const key = keyOf(vrf, address);
    groups_[id].vrf = key.vrf;
    groups_[id].address = key.address;
    index_.insert(id);
    return id;
}

void RouteGroups::del(Id id) {
    index_.erase(id);
    groups_[id] = {};
    groups_[id].place = RouteGroup::Place::free;
    groups_[id].links[0].next = free_;
    free_ = id;
}

LpmKey RouteGroups::keyOf(Id id) const {
    return {groups_[id].vrf, Prefix(IpAddr::fromHostOrder(groups_[id].address), baseLen_)};
}

U8 RouteGroups::numberOf(Prefix const& route) const {
    U32 const longer = U32{route.len()} - baseLen_;
    U32 const behindKey = longer == 0 ? 0 : route.address().hostOrder() >> (32 - route.len());
    U32 const count = 1u << longer;
    return static_cast<U8>(count - 1 + (behindKey & (count - 1)));
}

LpmKey RouteGroups::routeOf(Id id, U8 number) const {
    U32 const longer = number == 0 ? 0 : number < 3 ? 1 : 2;
    auto const length = static_cast<U8>(baseLen_ + longer);
    U64 const behindKey = number + 1u - (1u << longer);
    return {groups_[id].vrf,
            Prefix(IpAddr::fromHostOrder(groups_[id].address | static_cast<U32>(behindKey << (32 - length))),
                   length)};
}

std::optional<U8> RouteGroups::ownerOf(Id id, U8 cell) const {
    U8 const routes = groups_[id].routes;
    for (int const number : {3 + cell, 1 + cell / 2, 0}) {
        if ((routes >> number & 1) != 0) return static_cast<U8>(number);
    }
    return std::nullopt;
}

LpmResult RouteGroups::resultOf(Id id) const {
    LpmResult result;
    for (U8 cell = 0; cell <= NerioSwitchTable::EntryCellIndex::max; ++cell) {
        auto const owner = ownerOf(id, cell);
        if (!owner) continue;
        result.cellResultIs(cell, EntryCellResult()
                                      .nexthopIndexesIs(groups_[id].nexthops[*owner])
                                      .realPrefixLenIs(routeOf(id, *owner).prefix().len()));
    }
    return result;
}

void RowLists::link(RouteGroups& groups, Id id) {
    for (U8 way = 0; way < ways; ++way) {
        Id& head = heads_[slotOf(way, groups[id])];
        groups[id].links[way] = {head, RouteGroups::none};
        if (head != RouteGroups::none) groups[head].links[way].previous = id;
        head = id;
    }
}

void RowLists::unlink(RouteGroups& groups, Id id) {
    for (U8 way = 0; way < ways; ++way) {
        auto const [next, previous] = groups[id].links[way];
        if (previous == RouteGroups::none) {
            heads_[slotOf(way, groups[id])] = next;
        } else {
            groups[previous].links[way].next = next;
        }
        if (next != RouteGroups::none) groups[next].links[way].previous = previous;
    }
}

}  // namespace Agent
