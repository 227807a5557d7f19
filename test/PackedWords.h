#pragma once

#include <cstddef>
#include <initializer_list>
#include <span>
#include <vector>

#include "Belmo/Types.h"

namespace NerioTest {

/** A field of an expected row: its lowest bit, its width, its value. */
struct PackedBits {
    std::size_t bit;
    std::size_t width;
    U64 value;
};

/** Packs an expected row from literal positions, bit by bit and without the code under test. */
inline std::vector<U32> packed(std::size_t words, std::span<PackedBits const> fields) {
    std::vector<U32> row(words, 0);
    for (auto const& field : fields) {
        for (std::size_t i = 0; i < field.width; ++i) {
            auto const at = field.bit + i;
            if ((field.value >> i & 1) != 0) row.at(at / 32) |= U32{1} << (at % 32);
        }
    }
    return row;
}
inline std::vector<U32> packed(std::size_t words, std::initializer_list<PackedBits> fields) {
    return packed(words, std::span(fields.begin(), fields.size()));
}

}  // namespace NerioTest
