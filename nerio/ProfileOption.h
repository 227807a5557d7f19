#pragma once

#include <functional>
#include <string>

#include "agent/TableShapes.h"

namespace Nerio {

/** The profile of that name, or that a JSON file describes; throws `BadInput`. */
Agent::NamedProfile profileNamed(std::string const& nameOrFile);

/**
 * Does something in a process of its own and returns what it says. A profile or a row that no chip could have
 * may end that process by an assertion: its text is then thrown as `BadInput` behind `subject`. What the work
 * throws is thrown as `BadInput` as well.
 */
std::string doneApart(std::string const& subject, std::function<std::string()> const& work);

}  // namespace Nerio
