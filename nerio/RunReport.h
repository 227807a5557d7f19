#pragma once

#include <cstddef>

#include "agent/Json.h"
#include "agent/StateFile.h"

/* The report of `nerio run`, of the JSON forms of its cold start and its warm restart. */
namespace Nerio {

/** Prints on standard error each row that does not agree after a start; their number. */
std::size_t printAllDifferences(char const* when, Agent::Json const& start);
void printReport(Agent::StateFile const& file, Agent::Json const& coldStart, Agent::Json const& warmStart);
/** The last words of a report without differences. */
void printAgreement(Agent::Json const& warm);
void printJson(Agent::Json const& cold, Agent::Json const& warm, std::size_t differences);

}  // namespace Nerio
