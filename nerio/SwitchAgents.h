#pragma once

#include "agent/StateFile.h"
#include "nerio/StartReport.h"

namespace Nerio {

/**
 * Brings up the tables of what a state has of routes, multicast routes and translations, gives their agents
 * all of it, and has what tables came back with and the state lacks removed. Throws `StateFileException`,
 * which names it, for what the chip cannot have.
 *
 * Multicast routes of any source share rows with routes. So that these have one name at every start, the
 * stages of routes are brought up for multicast routes as well.
 */
AgentsReport startAgents(Agent::StateFile const& file, Switch& target, NerioSwitchApi::StartMode mode);

}  // namespace Nerio
