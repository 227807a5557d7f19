#pragma once

#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "NerioSwitchApi/TableFramework.h"

#include "BrittleBus.h"
#include "WatchedBus.h"
#include "agent/MulticastAgent.h"
#include "agent/RouteAgent.h"
#include "chip/MulticastLookup.h"
#include "chip/SimulatedChip.h"

namespace NerioTest {

/** A chip with an egress pipe for every two ports. */
inline Belmo::Ptr<NerioSwitch::ProfileInfo> profileOfPortPairs(U16 ports, U16 processors = 1) {
    using NerioSwitch::TableLayoutEnum;
    auto profile = NerioSwitch::profilePreset("default");
    profile->numPorts = ports;
    profile->ingressPipesAre({{0, 0, static_cast<U16>(ports - 1)}});
    std::vector<NerioSwitch::PipeRangeInfo> pipes;
    for (U16 pipe = 0; pipe < ports / 2; ++pipe)
        pipes.push_back({pipe, static_cast<U16>(2 * pipe), static_cast<U16>(2 * pipe + 1)});
    profile->egressPipesAre(pipes);
    profile->layouts[TableLayoutEnum::tableLayoutEgress].processors = static_cast<U16>(pipes.size());
    profile->layouts[TableLayoutEnum::tableLayoutL3].processors = processors;
    return profile;
}

/** A packet's copies: port and VLAN of each; that for the CPU has no VLAN. */
using Copies = std::set<std::pair<U32, U16>>;
inline constexpr U32 cpuPort = 52;

struct MulticastPacket {
    U32 source = 0;
    U32 group = 0;
    U16 vlan = 0;
};

inline Agent::MulticastRoute fromAny(U32 group, U16 vlan) {
    return Agent::MulticastRoute().groupIs(Lanvo::IpAddr::fromHostOrder(group)).vlanIdIs(vlan);
}

inline Agent::MulticastRoute fromSource(U32 source, U32 group, U16 vlan) {
    return fromAny(group, vlan).sourceIs({Lanvo::IpAddr::fromHostOrder(source), 32});
}

/** What a route makes of a packet. */
inline Copies copiesOf(Agent::MulticastRoute const& route) {
    Copies copies;
    for (auto const& [vlan, ports] : route.out()) {
        for (U32 port = 0; port < cpuPort; ++port) {
            if ((ports.value() >> port & 1) != 0) copies.emplace(port, vlan.value());
        }
    }
    if (route.toCpu()) copies.emplace(cpuPort, 0);
    return copies;
}

/** A switch with the tables of multicast routes, with those of unicast routes if asked, and their agents. */
class MulticastSwitch {
public:
    enum class Kind { multicast, both };

    explicit MulticastSwitch(Kind kind = Kind::multicast, U16 ports = 8) : kind_(kind) {
        profile = profileOfPortPairs(ports);
        chip = Chip::simulatedChip(*profile);
        watched = Belmo::make<WatchedBus>(chip);
        bus = Belmo::make<BrittleBus>(watched);
        start(NerioSwitchApi::StartMode::cold);
    }

    /** The process ends and comes back, with agents that have been told nothing. */
    void start(NerioSwitchApi::StartMode mode) {
        agent.reset();
        routes.reset();
        tables = {};
        stages = {};
        framework = std::make_unique<NerioSwitchApi::TableFramework>(profile, bus, shadows);
        if (kind_ == Kind::both) {
            stages = Agent::RouteStages::made();
            for (auto const& table : stages.tables())
                framework->tableIs(table, mode);
            routes = std::make_unique<Agent::RouteAgent>(stages);
        }
        tables = Agent::MulticastTables::made();
        framework->tableIs(tables.sources, mode);
        framework->tableIs(tables.groups, mode);
        framework->tableIs(tables.vlanGroups, mode);
        agent = std::make_unique<Agent::MulticastAgent>(tables);
        if (routes) agent->rowsFreedIs([this] { routes->retryWaiting(); });
    }

    /** Where the chip sends a packet. */
    Copies copies(MulticastPacket const& packet) const {
        Chip::MulticastLookup const lookup(*chip, *profile);
        Chip::VlanGroupWalk const walk(*chip, *profile);
        Copies found;
        auto const hit = lookup.find(packet.source, packet.group, packet.vlan);
        if (!hit) return found;
        for (U32 port = 0; port < profile->numPorts; ++port) {
            if ((hit->ports >> port & 1) == 0) continue;
            auto const vlans = walk.vlans(port, hit->vlanGroup);
            if (vlans.empty()) ADD_FAILURE() << "port " << port << " has no VLAN";
            for (U16 const vlan : vlans)
                found.emplace(port, vlan);
        }
        if ((hit->ports >> profile->numPorts & 1) != 0) found.emplace(cpuPort, 0);
        return found;
    }
    /** Entries in software, in each table. */
    std::vector<std::size_t> entries() const {
        return {tables.sources->entries().size(), tables.groups->entries().size(),
                tables.vlanGroups->entries().size()};
    }

    Belmo::Ptr<NerioSwitch::ProfileInfo> profile;
    Belmo::Ptr<Chip::SimulatedChip> chip;
    Belmo::Ptr<WatchedBus> watched;
    Belmo::Ptr<BrittleBus> bus;
    Belmo::Ptr<NerioSwitchApi::ShadowStore> shadows = NerioSwitchApi::memoryShadowStore();
    std::unique_ptr<NerioSwitchApi::TableFramework> framework;
    Agent::RouteStages stages;
    Agent::MulticastTables tables;
    std::unique_ptr<Agent::RouteAgent> routes;
    std::unique_ptr<Agent::MulticastAgent> agent;

private:
    Kind kind_;
};

}  // namespace NerioTest
