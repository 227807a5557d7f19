#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "NerioSwitch/IngressPortMask.h"
#include "NerioSwitch/MrouteKey.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/NerioTableSG.h"
#include "NerioSwitchTable/NerioTableStarG.h"
#include "agent/Refusal.h"
#include "agent/VlanGroups.h"

/* Whole multicast routes over the tables that hold their parts. */
namespace Agent {

/** The ports that packets leave in each VLAN. */
using VlanPorts = std::map<Bridging::VlanId, NerioSwitch::IngressPortMask>;

/**
 * Where packets to a group go that come in a VLAN: an (S,G) route if the source is an address, that is a
 * prefix of 32 bits, and a (*,G) route if it is 0.0.0.0/0 (RFC 7761). A packet that comes in another VLAN
 * than the one that leads back to its source does not match at all: that is the check of the reverse path,
 * and the VLAN stands for its VRF as well.
 */
class MulticastRoute {
    SORN_VALUE_TYPE(Agent, MulticastRoute, (Lanvo::Prefix, source, {}), (Lanvo::IpAddr, group, {}),
                    (Bridging::VlanIdOrNone, vlanId, {}), (VlanPorts, out, {}), (bool, toCpu, false));

    /** What tells routes apart: source, group and VLAN. */
    NerioSwitch::MrouteKey key() const { return {source_, {group_, 32}, vlanId_}; }
};

/** The tables that multicast routes live in. */
struct MulticastTables {
    Belmo::Ptr<NerioSwitchTable::SGTable> sources;
    Belmo::Ptr<NerioSwitchTable::StarGTable> groups;
    Belmo::Ptr<NerioSwitchTable::VlanGroupTable> vlanGroups;

    /** New tables, "sg", "starG" and "vlanGroups", which are yet to be brought up. */
    static MulticastTables made();
    /** All of them, in the order in which they are to be brought up. */
    std::vector<Belmo::Ptr<NerioSwitchApi::SwTable>> tables() const { return {sources, groups, vlanGroups}; }
};

/**
 * Programs multicast routes. A route takes a row among those of its kind, and for each port that it leaves by
 * a row with the VLANs there, in one of 16 groups that routes share where their VLANs do not differ. Either
 * all of a route is in hardware, or none: VLANs go in before it and out behind it, so a packet that matches
 * leaves as it should.
 *
 * A route that changes is changed in place: packets meet the old or the new one. Only where all groups are
 * taken, and the route's own would do, packets that match it are dropped for as long as its VLANs are
 * rewritten.
 *
 * What tables came back with after a restart goes on forwarding, and keeps its group, until `othersDel`; a
 * route that is told again is taken over, and nothing is written for it.
 *
 * A failure of the bus is let through. A route that was to be added or changed then is as it was, and one
 * that was to be removed is gone; hardware follows before anything else is done. Where only the clearing of
 * what is no longer wanted failed, the change has been made.
 *
 * Nothing else may change multicast entries of these tables, which outlive the agent. Unicast flows are left
 * alone.
 */
class MulticastAgent {
public:
    /** The tables are up. Throws what `checkProfile` does. */
    explicit MulticastAgent(MulticastTables tables);
    /** Throws `Belmo::RangeException` for a chip that has no groups of VLANs for each of its ports. */
    static void checkProfile(NerioSwitch::ProfileInfo const& profile);

    /**
     * Adds a route or changes where it leads. Says why if it cannot be in hardware: then it is not there, or
     * leads where it led before. Throws `Belmo::RangeException` for a route that no row can carry: of a
     * source that is neither an address nor any, a group outside of 224.0.0.0/4, ports that the chip does not
     * have, or more than 8 VLANs at a port.
     */
    std::optional<Refusal> routeIs(MulticastRoute const& route);
    /** Removes all parts of a route; false if there is none. */
    bool routeDel(NerioSwitch::MrouteKey const& key);
    /** Removes what tables hold and nobody told. */
    void othersDel();

    /** Nothing for a route that nobody told. */
    std::optional<MulticastRoute> route(NerioSwitch::MrouteKey const& key) const;
    /** Routes that were told. */
    std::size_t routes() const { return told_; }
    /** Lists of VLANs in use. */
    std::size_t vlanRowsInUse() const { return vlanGroups_.rowsInUse(); }

    /**
     * Told at the end of each call that freed rows which (*,G) routes share with unicast ones:
     * `RouteAgent::retryWaiting` places routes there that wait for room. It must not change multicast routes.
     */
    void rowsFreedIs(std::function<void()> observer) { rowsFreed_ = std::move(observer); }

private:
    using MrouteKey = NerioSwitch::MrouteKey;

    /** Where a route leads. */
    struct Way {
        PortVlans vlans;
        /** Ports and CPU; of a route from an earlier life there may be ports without VLANs. */
        NerioSwitch::IngressPortMask ports;
        U8 group = 0;
        bool told = true;
    };
    using Ways = std::map<MrouteKey, Way>;

    void adopt(MrouteKey const& key, NerioSwitchTable::SGMulticastResult const& result);
    void check(MulticastRoute const& route) const;
    Way wayOf(MulticastRoute const& route) const;
    bool hasRoomFor(MrouteKey const& key) const;
    std::optional<U8> groupWithout(Way const& from, PortVlans const& vlans);
    void change(MrouteKey const& key, Way const* from, Way const& to, bool oldFirst);
    Ways::iterator forget(Ways::iterator way);
    void rowIs(MrouteKey const& key, Way const& way) const;
    void rowDel(MrouteKey const& key);
    void settle();
    void settleIfPossible();

    MulticastTables tables_;
    VlanGroups vlanGroups_;
    Ways ways_;
    std::size_t told_ = 0;
    /** Routes whose rows may differ from what is wanted. */
    std::set<MrouteKey> changed_;
    bool freed_ = false;
    std::function<void()> rowsFreed_;
};

}  // namespace Agent
