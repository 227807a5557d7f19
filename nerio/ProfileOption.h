#pragma once

#include <string>

#include "Belmo/Ptr.h"
#include "NerioSwitch/ProfileInfo.h"

namespace Nerio {

/** How the help of `--profile` speaks of it. */
constexpr char const* profileOptionHelp = "A preset's name, or a JSON file with a profile or a whole state";

/**
 * The profile that an option names: a preset, or else a file with a profile's JSON object, which may be the
 * `profile` of a state file or a line of a script. Throws `BadInput`.
 */
Belmo::Ptr<NerioSwitch::ProfileInfo> profileOption(std::string const& text);

}  // namespace Nerio
