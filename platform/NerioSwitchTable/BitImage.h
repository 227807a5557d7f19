#pragma once

#include <array>
#include <cstddef>

#include "NerioSwitchTable/BitField.h"

namespace NerioSwitchTable {

/**
 * Fields that are put side by side and then laid over a row in one go: the row has the same bits as if each
 * field had been set. Where the compiler knows the fields' positions, little more than shifts and ors is left
 * of it. A field must not be put twice.
 */
template <std::size_t rowWords>
class BitImage {
public:
    /** The low bits of `value`, as many as the field is wide. */
    [[gnu::always_inline]] constexpr void put(BitField const& field, U64 value) {
        U64 const mask = (U64{1} << field.width) - 1;
        std::size_t const at = field.first / 64;
        U32 const shift = field.first % 64;
        value &= mask;
        bits_[at] |= value << shift;
        fields_[at] |= mask << shift;
        bits_[at + 1] |= value >> 1 >> (63 - shift);
        fields_[at + 1] |= mask >> 1 >> (63 - shift);
    }

    /** Bits of the row that no field holds stay. */
    [[gnu::always_inline]] constexpr void layOver(U32* row) const {
        for (std::size_t i = 0; i < rowWords; ++i) {
            auto const fields = static_cast<U32>(fields_[i / 2] >> (32 * (i % 2)));
            auto const bits = static_cast<U32>(bits_[i / 2] >> (32 * (i % 2)));
            row[i] = (row[i] & ~fields) | bits;
        }
    }

private:
    static constexpr std::size_t pairs = (rowWords + 1) / 2 + 1;
    std::array<U64, pairs> bits_{};
    std::array<U64, pairs> fields_{};
};

}  // namespace NerioSwitchTable
