#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "agent/FilterSet.h"

/* Single rules in the words of `iptables-save`. */
namespace Agent {

/** A rule: what it matches, and where packets go that do. */
struct IptablesRule {
    Belmo::String chain;
    Lanvo::Prefix source;
    Lanvo::Prefix destination;
    std::optional<U8> protocol;
    /** Alternatives; none stands for any port. */
    std::vector<PortRange> sourcePorts;
    std::vector<PortRange> destinationPorts;
    /** Empty for a rule that but counts. */
    Belmo::String target;
    /** What "--to-destination" and "--to-source" say. */
    Belmo::String newAddress;
    /** What of it nothing here can say, as people read it; empty if there is none. */
    std::vector<Belmo::String> misfits;
};

/**
 * Reads a line "-A CHAIN ...", perhaps with counters "[packets:bytes]" before it. Matches that are not known
 * are misfits. Throws `Belmo::RangeException` for an address, a port or a line that is none.
 */
IptablesRule iptablesRule(std::string_view line);

}  // namespace Agent
