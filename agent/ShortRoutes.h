#pragma once

#include <optional>
#include <vector>

#include "NerioSwitchTable/NerioTableLpm11.h"

namespace Agent {

/**
 * Routes of 0 to 11 bits, and the direct stage that holds them: under each 11-bit key stands the longest
 * route that covers it. There is a row for each key, so that no route ever waits.
 */
class ShortRoutes {
public:
    static constexpr U8 keyBits = 11;

    ShortRoutes(Belmo::Ptr<NerioSwitchTable::Lpm11Table> table, U32 numVrfs);

    bool holdsEntries() const { return table_->entries().size() != 0; }
    /** While this is on, the table is not touched. */
    void reconcilingIs(bool on) { reconciling_ = on; }
    /** Brings the table in line, of which any content may be left over. */
    void reconciled();

    void routeIs(NerioSwitch::LpmKey const& route, U16 nexthop);
    bool routeDel(NerioSwitch::LpmKey const& route);
    void routeDelAll();

    std::optional<U16> route(NerioSwitch::LpmKey const& route) const;
    std::size_t routes() const { return routes_; }
    std::size_t keys() const { return table_->entries().size(); }
    /** The longest route that matches the address, which is in host order; a null prefix for none. */
    Lanvo::Prefix match(U8 vrf, U32 address) const;
    /** Calls `visit(key, nexthop)` for each route. */
    template <class Visit>
    void forEachRoute(Visit const& visit) const {
        for (U32 vrf = 0; vrf < vrfs_.size(); ++vrf) {
            for (U32 node = 1; node < vrfs_[vrf].nexthops.size(); ++node) {
                if (vrfs_[vrf].nexthops[node] != noNexthop)
                    visit(NerioSwitch::LpmKey(static_cast<U8>(vrf), prefixOf(node)),
                          vrfs_[vrf].nexthops[node]);
            }
        }
    }

private:
    static constexpr U16 noNexthop = 0xFFFF;

    /** A complete binary tree: node 1 is the route of no bits, and 2n and 2n + 1 are one bit longer than n.
     */
    struct Vrf {
        std::vector<U16> nexthops;
        /** A write failed: the keys may not all be in line. */
        bool unsure = false;
    };

    static U32 nodeOf(Lanvo::Prefix const& prefix);
    static Lanvo::Prefix prefixOf(U32 node);
    U32 ownerOf(Vrf const& vrf, U32 node) const;
    void change(U8 vrf, U32 node, U16 nexthop);
    void program(U8 vrf, U32 node);

    Belmo::Ptr<NerioSwitchTable::Lpm11Table> table_;
    std::vector<Vrf> vrfs_;
    std::size_t routes_ = 0;
    bool reconciling_ = false;
};

}  // namespace Agent
