#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "agent/Families.h"
#include "agent/Verify.h"
#include "nerio/RouteLadder.h"

/* What a start of a switch came to, as `nerio run` hands it from its second process to the first one. */
namespace Nerio {

/** What happened to one table of a start, and how its rows stood afterwards. */
struct TableReport {
    Agent::TableSpec spec;
    std::size_t entries = 0;
    /** Entries of the settled table that equal the default result. */
    std::size_t defaultEntries = 0;
    U64 rows = 0;
    std::size_t registerWrites = 0;
    double milliseconds = 0;
    std::vector<Agent::Difference> differences;
    /** Of the settled table; none without a hash. */
    std::optional<Agent::HashPlacement> placement;
};

/** What happened to the routes of a start, and how the rows of their stages stood afterwards. */
struct RouteReport {
    RouteLoad load;
    Agent::Verification verification;
};

/** The same of what has several parts: it is in hardware with all of them, or it was refused. */
struct WholeReport {
    std::size_t wanted = 0;
    /** Why each that was refused is not in hardware, behind its place in the state file. */
    std::vector<Belmo::String> refused;
    U64 rowsInUse = 0;
    /** For bringing the tables up, and for what they hold. */
    std::size_t startWrites = 0;
    std::size_t registerWrites = 0;
    /** For both. */
    double milliseconds = 0;
    Agent::Verification verification;
};

/** What agents did; none of what the state has nothing of. */
struct AgentsReport {
    std::optional<RouteReport> routes;
    std::optional<WholeReport> multicastRoutes;
    std::optional<WholeReport> translations;
};

/** What a start came to. */
struct StartReport {
    std::vector<TableReport> tables;
    AgentsReport agents;
};

/** The names that agents' reports have in JSON: "routes", ... */
inline constexpr char const* agentReports[] = {"routes", "multicastRoutes", "translations"};

/** "tables", and of `agentReports` those that there are. */
Agent::Json toJson(StartReport const& report);

}  // namespace Nerio
