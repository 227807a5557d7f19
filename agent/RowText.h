#pragma once

#include <span>
#include <vector>

#include "NerioSwitchApi/RowLayout.h"

/* Rows of hardware tables in the words of their layouts. */
namespace Agent {

using NerioSwitchApi::RowField;
using NerioSwitchApi::RowLayout;

/** A row whose number nobody said: forms that only some rows have are not looked at. */
inline constexpr NerioSwitchApi::HwIndex anyRow = NerioSwitchApi::HwEntryConfig::noIndex;

/** The layout of a row with these words, by its number where that decides; null if none holds it. */
RowLayout const* layoutOf(std::vector<RowLayout> const& layouts, std::span<U32 const> words,
                          NerioSwitchApi::HwIndex row = anyRow);

/** What a field holds; words that the row does not have read as 0. */
U64 valueIn(RowField const& field, std::span<U32 const> words);
/** A value as people read it: numbers of up to 16 bits in decimal, all others in hexadecimal. */
Belmo::String valueText(RowField const& field, U64 value);

/** "word 2, bits 19:4", "words 1 and 2, bits 59:35" of a row of 32-bit words. */
Belmo::String bitsText(U32 first, U32 width);

/**
 * In what a row differs from the one that was expected, field by field: "portMode: 0 instead of 1, strobe: 1
 * instead of 0". Bits of no field, and words where no layout holds the expected row, are told by their
 * numbers. Empty for equal rows.
 */
Belmo::String differenceText(std::vector<RowLayout> const& layouts, std::span<U32 const> expected,
                             std::span<U32 const> held, NerioSwitchApi::HwIndex row = anyRow);

}  // namespace Agent
