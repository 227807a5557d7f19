#pragma once

#include <functional>
#include <string>

#include "agent/TableShapes.h"

namespace Nerio {

/** How the help of `--profile` speaks of it. */
constexpr char const* profileOptionHelp = "A preset's name, or a JSON file with a profile or a whole state";

/**
 * The profile that an option names: a preset, or else a file with a profile's JSON object, which may be the
 * `profile` of a state file or a line of a script. Throws `BadInput`.
 */
Belmo::Ptr<NerioSwitch::ProfileInfo> profileOption(std::string const& text);
/** The same with its name. */
Agent::NamedProfile profileNamed(std::string const& text);

/**
 * Does something in a process of its own and returns what it says. A profile or a row that no chip could have
 * may end that process by an assertion: its text is then thrown as `BadInput` behind `subject`. What the work
 * throws is thrown as `BadInput` as well.
 */
std::string doneApart(std::string const& subject, std::function<std::string()> const& work);

}  // namespace Nerio
