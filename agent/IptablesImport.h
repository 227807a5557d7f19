#pragma once

#include <string_view>

#include "Belmo/Ptr.h"
#include "NerioSwitch/ProfileInfo.h"

#include "agent/Imported.h"

namespace Agent {

/**
 * Imports what `iptables-save` prints. Each of the chains that packets come into by themselves becomes an
 * ACL, whose last rule is the chain's policy; rules of the table nat that change one address for another
 * become static translations. What cannot be said goes to the report. Throws `Belmo::RangeException`, which
 * names the line, for what makes no sense.
 */
Imported importIptables(std::string_view text, Belmo::Ptr<NerioSwitch::ProfileInfo> profile);

}  // namespace Agent
