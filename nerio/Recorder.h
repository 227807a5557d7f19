#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Belmo/Publisher.h"

#include "nerio/Switch.h"

namespace Nerio {

/**
 * Writes what is done with a switch as a script (docs/script.md) that does it again: its profile, each table
 * that is made, each start, and each change of an entry, in order. Changes are heard from the tables, so it
 * does not matter who makes them. A call that changes no entry writes no register on a bus that works, and is
 * not in the script.
 *
 * It is made for a switch that starts cold: what a warm start finds in hardware would look like calls.
 */
class Recorder : public SwitchObserver {
public:
    explicit Recorder(NerioSwitch::ProfileInfo const& profile);

    /** The lines so far. */
    std::string const& script() const { return script_; }
    std::size_t lines() const { return lines_; }
    /** The register writes that the switch was asked for so far. */
    RegisterWrites const& writes() const { return writes_; }

    void made(Agent::TableSpec const& spec, Agent::JsonTable& table) override;
    void starting(NerioSwitchApi::StartMode mode) override;
    void written(RegisterWrites const& writes) override;

private:
    void line(std::string const& text);
    void change(Agent::TableSpec const& spec, Agent::JsonTable const& table, Agent::Json const& key);

    std::string script_;
    std::size_t lines_ = 0;
    RegisterWrites writes_;
    std::vector<Belmo::Subscription> subscriptions_;
};

}  // namespace Nerio
