#pragma once

#include <functional>
#include <span>
#include <vector>

#include "Belmo/Types.h"

#include "NerioSwitchTable/BitField.h"

namespace NerioSwitchApi {

/** A field of a row as tools show it. Other than a `BitField` it may have a name made up at run time, and any
 * width. */
struct RowField {
    Belmo::String name;
    /** The first bit, counted from the lowest one of word 0. */
    U32 first = 0;
    /** In bits. */
    U32 width = 0;

    RowField(Belmo::String fieldName, U32 firstBit, U32 widthInBits)
        : name(std::move(fieldName)), first(firstBit), width(widthInBits) {}
    // NOLINTNEXTLINE(google-explicit-constructor): a list of bit fields is a list of row fields
    RowField(NerioSwitchTable::BitField const& field)
        : name(field.name), first(field.first), width(field.width) {}

    /** The bit behind the field. */
    U32 end() const { return first + width; }
};

/** A form that rows of a hardware table can have: what encoder and decoder go by, told to tools as data. */
struct RowLayout {
    /** What rows of this form hold, such as "multicast"; empty where all rows have the one form. */
    Belmo::String name;
    /** Words of a row, those that stay in the shadow included. */
    U32 words = 0;
    /** In the order of their bits. None of width 0, and none twice. */
    std::vector<RowField> fields;
    /** Whether a row with these words has this form; empty for the one that all other rows have. */
    std::function<bool(std::span<U32 const> words)> holds;
};

}  // namespace NerioSwitchApi
