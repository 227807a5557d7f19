#pragma once

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Sorn/HashMap.h"

#include "RandomRoutes.h"
#include "agent/RouteAgent.h"
#include "chip/LpmLookup.h"

/* What holds the chip's route lookup against a plain list of routes; tests and benchmarks share it. */
namespace NerioTest {

/** A binary trie of routes, with a root for each VRF: the plainest longest-prefix match there is. */
class RouteTrie {
public:
    RouteTrie() : nodes_(256) {}

    void add(NerioSwitch::LpmKey const& key, U32 nexthop) {
        U32 at = key.vrf();
        U32 address = key.prefix().address().hostOrder();
        for (U32 i = 0; i < key.prefix().len(); ++i, address <<= 1) {
            U32 const bit = address >> 31;
            if (nodes_[at].next[bit] == 0) {
                nodes_[at].next[bit] = static_cast<U32>(nodes_.size());
                nodes_.emplace_back();
            }
            at = nodes_[at].next[bit];
        }
        nodes_[at].route = {key.prefix().len(), nexthop};
    }

    struct Match {
        U32 length;
        U32 nexthop;
    };
    std::optional<Match> match(U8 vrf, U32 address) const {
        auto found = nodes_[vrf].route;
        for (U32 at = vrf; (at = nodes_[at].next[address >> 31]) != 0; address <<= 1) {
            if (nodes_[at].route) found = nodes_[at].route;
        }
        return found;
    }

private:
    struct Node {
        /** 0 for none: no route leads back to a root. */
        std::array<U32, 2> next{};
        std::optional<Match> route;
    };

    std::vector<Node> nodes_;
};

/** Gives an agent random routes and takes them away again, and keeps the plain list of them. */
class RouteChurn {
public:
    RouteChurn(Agent::RouteAgent& agent, U64 seed, U8 vrfs, RouteLengths const& lengths)
        : agent_(agent), vrfs_(vrfs), source_(seed, vrfs, lengths) {}

    /** Adds a route, or gives one that is there another next hop. */
    void add() {
        auto const key = source_.next();
        U32 const nexthop = source_.nexthop();
        agent_.routeIs(key, nexthop);
        auto const [known, isNew] = positions_.try_emplace(key, routes_.size());
        if (isNew) {
            routes_.push_back({key, nexthop});
        } else {
            routes_[known->second].nexthop = nexthop;
        }
    }
    void withdraw() {
        if (routes_.empty()) return;
        auto const position = source_.random()() % routes_.size();
        agent_.routeDel(routes_[position].key);
        positions_.erase(routes_[position].key);
        if (position + 1 != routes_.size()) {
            routes_[position] = routes_.back();
            positions_[routes_[position].key] = position;
        }
        routes_.pop_back();
    }
    void addMany(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i)
            add();
    }
    /** As many adds as withdrawals, in no order. */
    void change(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            if (source_.random()() % 2 == 0) {
                add();
            } else {
                withdraw();
            }
        }
    }
    void withdrawAll() {
        while (!routes_.empty())
            withdraw();
    }

    std::vector<Agent::Route> const& routes() const { return routes_; }
    U8 randomVrf() { return static_cast<U8>(source_.random()() % vrfs_); }
    U32 randomAddress() { return static_cast<U32>(source_.random()()); }

private:
    Agent::RouteAgent& agent_;
    U8 vrfs_;
    RandomRoutes source_;
    std::vector<Agent::Route> routes_;
    Sorn::HashMap<NerioSwitch::LpmKey, std::size_t> positions_;
};

/** How many lookups were made, how many found a route, and how many were not as the list says. */
struct Agreement {
    U64 lookups = 0;
    U64 found = 0;
    U64 differences = 0;
    /** The first one. */
    std::string difference{};
};

/** An address that is looked up. */
struct Target {
    U8 vrf;
    U32 address;
};

/** The first, the last and a random address of each route, and as many random addresses in all VRFs. */
inline std::vector<Target> targetsOf(RouteChurn& churn) {
    std::vector<Target> targets;
    targets.reserve(4 * churn.routes().size());
    for (auto const& route : churn.routes()) {
        U8 const vrf = route.key.vrf();
        U32 const first = route.key.prefix().address().hostOrder();
        U32 const host = ~Lanvo::Prefix::mask(route.key.prefix().len());
        for (U32 const bits : {U32{0}, host, churn.randomAddress() & host})
            targets.push_back({vrf, first | bits});
        targets.push_back({churn.randomVrf(), churn.randomAddress()});
    }
    return targets;
}

/** Holds what the chip answered to each target against the longest match among the routes that are placed. */
inline void compare(RouteChurn const& churn, Agent::RouteAgent const& agent,
                    std::vector<Target> const& targets, std::vector<std::optional<Chip::LpmHit>> const& hits,
                    Agreement& agreement) {
    RouteTrie trie;
    for (auto const& route : churn.routes()) {
        if (agent.routeState(route.key) == Agent::RouteState::placed)
            trie.add(route.key, route.nexthop.value());
    }
    for (std::size_t i = 0; i < targets.size(); ++i) {
        auto const expected = trie.match(targets[i].vrf, targets[i].address);
        auto const& hit = hits[i];
        ++agreement.lookups;
        if (hit) ++agreement.found;
        // The stage of a length serves that one and up to two shorter ones; the direct one all up to 11.
        bool const agrees = hit.has_value() == expected.has_value() &&
                            (!hit || (hit->nexthop == expected->nexthop && hit->stage >= expected->length &&
                                      (hit->stage == 11 || hit->stage < expected->length + 3)));
        if (agrees) continue;
        if (agreement.differences++ == 0) {
            agreement.difference = "VRF " + std::to_string(targets[i].vrf) + ", " +
                                   Lanvo::IpAddr::fromHostOrder(targets[i].address).text() + ": stage " +
                                   (hit ? std::to_string(hit->stage) : "none") + ", length " +
                                   (expected ? std::to_string(expected->length) : "none");
        }
    }
}

}  // namespace NerioTest
