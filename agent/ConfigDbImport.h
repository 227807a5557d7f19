#pragma once

#include <string_view>

#include "Belmo/Ptr.h"
#include "NerioSwitch/ProfileInfo.h"

#include "agent/Imported.h"

namespace Agent {

/**
 * Imports a configuration database: JSON with an object for each table, in it one for each entry, whose
 * attributes are texts. The tables stand at the top or one level below it, under any name.
 *
 * Ports get the number of their index, and others the lowest free one in the order of their names. Taken are
 * ports, port channels, VLANs, mirrors, storm control, limits of the CPU's traffic, ACLs, static translations
 * and static routes; what cannot be said goes to the report. Throws `JsonException` with the place of what
 * makes no sense.
 */
Imported importConfigDb(std::string_view text, Belmo::Ptr<NerioSwitch::ProfileInfo> profile);

}  // namespace Agent
