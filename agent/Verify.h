#pragma once

#include <functional>
#include <span>
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

/** Replaces the words of a row, as written to these registers, by those that the chip holds in the row. */
using RowReader =
    std::function<void(std::span<NerioSwitchApi::RegisterHandle const> registers, std::span<U32> words)>;

/**
 * Holds every row of a table's hardware tables against what the software table wants there, and each word
 * that the shadow holds against the chip. The bus answers for rows with registers of their own. Rows that
 * share registers lie in a memory, which only `readRow` can look into; without one their words in the chip
 * are not looked at.
 */
Verification verify(NerioSwitchApi::SwTable const& table, RowReader const& readRow = {});

/**
 * The same of another shadow and chip than those that the table works on, such as copies from before its
 * start brought them in order. Rows of which software wants nothing are held against the table's own shadow.
 * `bus` and `readRow` take the handles of the table's own bus.
 */
Verification verifyCopy(NerioSwitchApi::SwTable const& table, NerioSwitchApi::ShadowStore& shadows,
                        NerioSwitchApi::RegisterBus& bus, RowReader const& readRow);

/**
 * Writes the rows that a verification of the table named: what software wants there, or else what the shadow
 * holds; no other row. Returns how many were written. Throws what the bus throws.
 */
std::size_t repair(NerioSwitchApi::SwTable const& table, Verification const& verification);

}  // namespace Agent
