#pragma once

#include "agent/ImportReport.h"
#include "agent/StateFile.h"

namespace Agent {

/** A switch as a state file, and what became of the text that it was made of. */
struct Imported {
    StateFile state;
    ImportReport report;
};

}  // namespace Agent
