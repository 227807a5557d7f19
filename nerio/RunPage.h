#pragma once

#include <string>
#include <vector>

#include "agent/Json.h"
#include "agent/StateFile.h"
#include "nerio/FillSampler.h"

namespace Nerio {

/**
 * The report of `nerio run` in pictures, one page that needs nothing else: what verification found, how
 * tables filled up, moves, register writes, and the rows of all families that the switch has.
 */
std::string runPage(Agent::StateFile const& file, Agent::Json const& coldStart, Agent::Json const& warmStart,
                    std::vector<FillSampler::Series> const& fill);

}  // namespace Nerio
