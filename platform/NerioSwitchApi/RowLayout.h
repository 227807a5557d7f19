#pragma once

#include <functional>
#include <limits>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

#include "Belmo/Export.h"
#include "Belmo/Types.h"
#include "NerioSwitchApi/HwTypes.h"

#include "NerioSwitchTable/BitField.h"

namespace NerioSwitchApi {

/** A field of a row as tools show it. Other than a `BitField` it may have a name made up at run time. */
struct RowField {
    Belmo::String name;
    /** The first bit, counted from the lowest one of word 0. */
    U32 first = 0;
    /** In bits, at most 64. */
    U32 width = 0;

    RowField(Belmo::String fieldName, U32 firstBit, U32 widthInBits)
        : name(std::move(fieldName)), first(firstBit), width(widthInBits) {}
    // NOLINTNEXTLINE(google-explicit-constructor): a list of bit fields is a list of row fields
    RowField(NerioSwitchTable::BitField const& field)
        : name(field.name), first(field.first), width(field.width) {}

    /** The bit behind the field. */
    U32 end() const { return first + width; }

    friend bool operator==(RowField const&, RowField const&) = default;
};

/** A form that rows of a hardware table can have: what encoder and decoder go by, told to tools as data. */
struct RowLayout {
    /** Whether a row with these words has a form. There are `maxEntryWords` of them. */
    using Holds = std::function<bool(std::span<U32 const> words)>;

    /** What rows of this form hold, such as "multicast"; empty where all rows have the one form. */
    Belmo::String name{};
    /** Words of a row, those that stay in the shadow included. */
    U32 words = 0;
    /** In the order of their bits. None of width 0, none twice, and no two of one name. */
    std::vector<RowField> fields{};
    /** Empty for the form that all other rows have. */
    Holds holds{};
    /** The rows that can have this form, both inclusive, where a row's number decides it. */
    HwIndex firstRow = 0;
    HwIndex lastRow = std::numeric_limits<HwIndex>::max();
};

/** Lists fields: each part is one, or a range of them. */
template <class... Parts>
std::vector<RowField> rowFields(Parts const&... parts) {
    std::vector<RowField> fields;
    auto const add = [&fields](auto const& part) {
        if constexpr (std::is_convertible_v<decltype(part), RowField>) {
            fields.emplace_back(part);
        } else {
            fields.insert(fields.end(), std::begin(part), std::end(part));
        }
    };
    (add(parts), ...);
    return fields;
}

/**
 * The layout of rows of that many words with these fields: in the order of their bits, without those of width
 * 0, and with fields that share a name numbered from 0 on.
 */
BELMO_EXPORT RowLayout rowLayout(U32 words, std::vector<RowField> fields, Belmo::String name = {},
                                 RowLayout::Holds holds = {});

}  // namespace NerioSwitchApi
