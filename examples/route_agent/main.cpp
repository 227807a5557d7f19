// Routes of any length, given to the route agent: it spreads them over the stages of the chip's look-up, and
// the chip sends packets where the longest one leads.
#include <cstdio>

#include "NerioSwitchApi/TableFramework.h"

#include "agent/RouteAgent.h"
#include "chip/LpmLookup.h"
#include "chip/SimulatedChip.h"

namespace {

constexpr Lanvo::IpAddr ip(U32 a, U32 b, U32 c, U32 d) {
    return Lanvo::IpAddr::fromHostOrder(a << 24 | b << 16 | c << 8 | d);
}

NerioSwitch::LpmKey route(Lanvo::IpAddr address, U8 length) {
    return {0, Lanvo::Prefix(address, length)};
}

}  // namespace

int main() {
    auto const profile = NerioSwitch::profilePreset("default");
    auto const chip = Chip::simulatedChip(*profile);
    NerioSwitchApi::TableFramework framework(profile, chip, NerioSwitchApi::memoryShadowStore());

    auto const stages = Agent::RouteStages::made();
    for (auto const& table : stages.tables())
        framework.tableIs(table, NerioSwitchApi::StartMode::cold);
    Agent::RouteAgent routes(stages);
    routes.observerIs([](NerioSwitch::LpmKey const& key, Agent::RouteState state) {
        std::printf("%s %s\n", key.prefix().text().c_str(),
                    state == Agent::RouteState::waiting ? "waits for a row" : "has its row");
    });

    // After a warm start the agent is reconciling: it claims what it is given and writes the rest at the end.
    routes.routeIs(route(ip(0, 0, 0, 0), 0), 1);
    routes.routeIs(route(ip(10, 0, 0, 0), 8), 2);
    routes.routeIs(route(ip(10, 20, 0, 0), 16), 3);
    routes.routeIs(route(ip(10, 20, 30, 40), 32), 4);
    if (routes.reconciling()) routes.reconciled();

    Chip::LpmLookup const lookup(*chip, *profile);
    bool allRight = true;
    auto const leadsTo = [&](Lanvo::IpAddr address, U32 expected) {
        auto const hit = lookup.find(0, address.hostOrder());
        auto const match = routes.match(0, address);
        if (!hit || !match) {
            std::printf("%-12s leads nowhere\n", address.text().c_str());
            allRight = false;
            return;
        }
        std::printf("%-12s next hop %u, by %s in stage %u\n", address.text().c_str(), unsigned{hit->nexthop},
                    match->key.prefix().text().c_str(), unsigned{hit->stage});
        allRight = allRight && hit->nexthop == expected && match->nexthop.value() == expected;
    };
    leadsTo(ip(10, 20, 30, 40), 4);
    leadsTo(ip(10, 20, 30, 41), 3);
    leadsTo(ip(10, 99, 0, 1), 2);
    leadsTo(ip(192, 0, 2, 1), 1);

    std::puts("without 10.20.0.0/16:");
    routes.routeDel(route(ip(10, 20, 0, 0), 16));
    leadsTo(ip(10, 20, 30, 41), 2);
    leadsTo(ip(10, 20, 30, 40), 4);
    return allRight && routes.routes() == 3 && routes.counts().waitingRoutes == 0 ? 0 : 1;
}
