#include "agent/ShortRoutes.h"

#include <bit>
#include <utility>

namespace Agent {

using Lanvo::IpAddr;
using Lanvo::Prefix;
using NerioSwitch::LpmKey;
using NerioSwitchTable::EntryCellResult;
using NerioSwitchTable::Lpm11Result;

namespace {

/** Nodes of the tree, those of 11 bits included. */
constexpr U32 nodes = 2u << ShortRoutes::keyBits;

}  // namespace

ShortRoutes::ShortRoutes(Belmo::Ptr<NerioSwitchTable::Lpm11Table> table, U32 numVrfs)
    : table_(std::move(table)), vrfs_(numVrfs) {}

U32 ShortRoutes::nodeOf(Prefix const& prefix) {
    U8 const length = prefix.len();
    return 1u << length | (length == 0 ? 0 : prefix.address().hostOrder() >> (32 - length));
}

Prefix ShortRoutes::prefixOf(U32 node) {
    auto const length = static_cast<U8>(std::bit_width(node) - 1);
    return {IpAddr::fromHostOrder(length == 0 ? 0 : node << (32 - length)), length};
}

/** The node itself or the nearest one above it that is a route; 0 for none. */
U32 ShortRoutes::ownerOf(Vrf const& vrf, U32 node) const {
    if (vrf.nexthops.empty()) return 0;
    while (node != 0 && vrf.nexthops[node] == noNexthop)
        node /= 2;
    return node;
}

void ShortRoutes::reconciled() {
    for (std::size_t vrf = 0; vrf < vrfs_.size(); ++vrf)
        program(static_cast<U8>(vrf), 1);
}

void ShortRoutes::routeIs(LpmKey const& route, U16 nexthop) {
    auto& vrf = vrfs_[route.vrf()];
    if (vrf.nexthops.empty()) vrf.nexthops.assign(nodes, noNexthop);
    change(route.vrf(), nodeOf(route.prefix()), nexthop);
}

bool ShortRoutes::routeDel(LpmKey const& route) {
    bool const was = this->route(route).has_value();
    if (was || vrfs_[route.vrf()].unsure) change(route.vrf(), nodeOf(route.prefix()), noNexthop);
    return was;
}

void ShortRoutes::routeDelAll() {
    std::vector<LpmKey> all;
    forEachRoute([&](LpmKey const& route, U16) { all.push_back(route); });
    for (auto const& route : all)
        routeDel(route);
}

void ShortRoutes::change(U8 number, U32 node, U16 nexthop) {
    auto& vrf = vrfs_[number];
    U16& stored = vrf.nexthops[node];
    if (stored == nexthop && !vrf.unsure) return;
    if (stored == noNexthop && nexthop != noNexthop) ++routes_;
    if (stored != noNexthop && nexthop == noNexthop) --routes_;
    stored = nexthop;
    if (reconciling_) return;
    // A failure may have left keys of other routes behind.
    program(number, std::exchange(vrf.unsure, true) ? 1 : node);
    vrf.unsure = false;
}

/** Brings all keys below a node in line. */
void ShortRoutes::program(U8 number, U32 node) {
    auto const& vrf = vrfs_[number];
    U32 const keys = nodes / 2 >> (std::bit_width(node) - 1);
    for (U32 key = node * keys; key < (node + 1) * keys; ++key) {
        LpmKey const stageKey(number, prefixOf(key));
        U32 const owner = ownerOf(vrf, key);
        if (owner == 0) {
            table_->entryDel(stageKey);
            continue;
        }
        auto const cell =
            EntryCellResult().nexthopIndexesIs(vrf.nexthops[owner]).realPrefixLenIs(prefixOf(owner).len());
        table_->entryIs(stageKey, Lpm11Result().cellResultIs(cell));
    }
}

std::optional<U16> ShortRoutes::route(LpmKey const& route) const {
    auto const& vrf = vrfs_[route.vrf()];
    if (vrf.nexthops.empty() || vrf.nexthops[nodeOf(route.prefix())] == noNexthop) return std::nullopt;
    return vrf.nexthops[nodeOf(route.prefix())];
}

Prefix ShortRoutes::match(U8 vrf, U32 address) const {
    U32 const owner = ownerOf(vrfs_[vrf], nodes / 2 | address >> (32 - keyBits));
    return owner == 0 ? Prefix::null() : prefixOf(owner);
}

}  // namespace Agent
