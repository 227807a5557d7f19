#pragma once

#include <memory>
#include <optional>

#include "agent/StateFile.h"
#include "nerio/StartReport.h"

namespace Nerio {

/** Which tables of agents there are to be, whether the state that is wanted needs them or not. */
struct AgentParts {
    bool routes = false;
    bool multicastRoutes = false;
    bool translations = false;

    static AgentParts of(Agent::StateFile const& state);
    AgentParts operator|(AgentParts const& other) const;
};

/**
 * The agents of a switch, with the tables of what a state has of routes, multicast routes and translations.
 * They are given all of it, and what tables came back with and the state lacks is removed.
 *
 * Multicast routes of any source share rows with routes. So that these have one name at every start, the
 * stages of routes are brought up for multicast routes as well.
 */
class SwitchAgents {
public:
    /** Told, while routes are programmed, of how many there are. */
    using Progress = std::function<void(std::size_t done)>;

    /**
     * Brings up the tables of all `parts` and those that the state needs, which become tables of the switch,
     * and gives agents their part. Throws `StateFileException`, which names it, for what the chip cannot
     * have.
     */
    SwitchAgents(Agent::StateFile const& file, Switch& target, NerioSwitchApi::StartMode mode,
                 AgentParts const& parts = {}, Progress const& progress = {});
    ~SwitchAgents();

    AgentsReport const& report() const { return report_; }
    /** Holds software, shadow and chip of all their tables against each other, for the report. */
    void verify();
    /** The owner of routes; null without routes. */
    RouteLadder* routes() { return ladder_ ? &*ladder_ : nullptr; }
    Agent::MulticastAgent* multicastRoutes() { return multicastAgent_.get(); }
    Agent::NatAgent* translations() { return natAgent_.get(); }

private:
    void programRoutes(Progress const& progress);
    void programMulticastRoutes(NerioSwitchApi::StartMode mode);
    void programTranslations(NerioSwitchApi::StartMode mode);

    Agent::StateFile const& file_;
    Switch& target_;
    AgentsReport report_;
    std::optional<RouteLadder> ladder_;
    Agent::MulticastTables multicastTables_;
    std::unique_ptr<Agent::MulticastAgent> multicastAgent_;
    Agent::NatTables natTables_;
    std::unique_ptr<Agent::NatAgent> natAgent_;
};

}  // namespace Nerio
