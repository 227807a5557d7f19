#pragma once

#include <vector>

#include "NerioSwitchApi/SwTable.h"

namespace Agent {

/** One row on which software, shadow and chip do not agree. */
struct Difference {
    Belmo::String hwTable;
    NerioSwitchApi::HwIndex row;
    Belmo::String text;
};

/** What a verification looked at and found. */
struct Verification {
    U64 rows = 0;
    std::vector<Difference> differences;
};

/**
 * Holds every row of a table's hardware tables against what the software table wants there, and each word
 * that the shadow holds against the row's register, where rows have registers of their own.
 */
Verification verify(NerioSwitchApi::SwTable const& table);

}  // namespace Agent
