#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

#include "agent/Json.h"
#include "agent/RouteAgent.h"
#include "agent/Verify.h"
#include "nerio/Switch.h"

namespace Nerio {

/** What one stage of the route look-up holds. */
struct StageLoad {
    /** The longest route that it serves, 11 to 32, and the shortest. */
    U32 longest = 0;
    U32 shortest = 0;
    std::size_t routes = 0;
    /** Those that have no room. */
    std::size_t waiting = 0;
    U64 rowsInUse = 0;
    U64 rows = 0;

    std::size_t placed() const { return routes - waiting; }
};

/** What programming routes came to: each stage, the shortest first, and what it took. */
struct RouteLoad {
    std::vector<StageLoad> stages;
    /** For bringing the stages up. */
    std::size_t startWrites = 0;
    /** For the routes. */
    std::size_t registerWrites = 0;
    /** For both. */
    double milliseconds = 0;

    /** The sum of all stages. */
    StageLoad all() const;
};

/** The report in JSON: "routes", "placed", ..., and the same of each of "stages". */
Agent::Json toJson(RouteLoad const& load);

/** The route stages of a switch, brought up, and their owner. */
class RouteLadder {
public:
    /** Told of how many routes have been programmed. */
    using Progress = std::function<void(std::size_t done)>;

    /** Throws `Belmo::RangeException` for a chip that has no route stages. */
    RouteLadder(Switch& target, NerioSwitchApi::StartMode mode);
    /** Throws `Belmo::RangeException` for a profile whose chip has none: it takes 4, 8 or 32 VRFs. */
    static void checkProfile(NerioSwitch::ProfileInfo const& profile);

    /**
     * Makes these all the routes that there are: what the stages held before and nobody wants any more goes.
     * `routes` is a range of what has a `key` and a `nexthop`. Called once; throws what the agent throws.
     */
    template <class Routes>
    RouteLoad routesAre(Routes const& routes, Progress const& progress = {}) {
        std::size_t done = 0;
        for (auto const& route : routes) {
            agent_->routeIs(route.key, route.nexthop);
            if (progress) progress(++done);
        }
        return reconciled();
    }
    /** The same for routes that the agent was told: they are all that there are. */
    RouteLoad reconciled();

    Agent::RouteAgent& agent() { return *agent_; }
    /** Holds software, shadow and chip of all stages against each other. */
    Agent::Verification verify() const;

private:
    using Clock = std::chrono::steady_clock;

    RouteLoad load() const;

    Switch& target_;
    Agent::RouteStages stages_;
    Clock::time_point begin_ = Clock::now();
    std::size_t startWrites_;
    std::unique_ptr<Agent::RouteAgent> agent_;
};

}  // namespace Nerio
