#pragma once

#include <cstddef>
#include <span>

#include "Belmo/Types.h"

#include "NerioSwitchTable/BitStream.h"

namespace NerioSwitchTable {

/**
 * A field of a row: its name, its first bit and its width in bits, 0 to 63. A row layout is a list of them.
 * A field of width 0 is one that the chip at hand does not have: it reads as 0 and writing it does nothing.
 */
struct BitField {
    static constexpr U8 maxWidth = 63;

    char const* name;
    U16 first;
    U8 width;

    /** The bit behind the field. */
    constexpr U32 end() const { return U32{first} + width; }

    /** Puts the low `width` bits of `value` into the row; all other bits of the row stay. */
    void set(U32* words, U64 value) const { bitStreamSet(reinterpret_cast<U8*>(words), first, width, value); }
    U64 get(U32 const* words) const { return bitStreamGet(words, first, end() - 1); }
};

/** Each field has a legal width and lies within a row of that many words. */
constexpr bool fieldsFit(std::span<BitField const> fields, U32 words) {
    for (auto const& field : fields) {
        if (field.width > BitField::maxWidth || field.end() > 32 * words) return false;
    }
    return true;
}

/** No two fields share a bit. */
constexpr bool fieldsDisjoint(std::span<BitField const> fields) {
    for (std::size_t i = 0; i < fields.size(); ++i) {
        for (auto const& other : fields.subspan(i + 1)) {
            bool const apart = other.end() <= fields[i].first || fields[i].end() <= other.first;
            if (!apart && fields[i].width != 0 && other.width != 0) return false;
        }
    }
    return true;
}

}  // namespace NerioSwitchTable
