#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "Belmo/Types.h"

namespace Chip {

/** A run of bits in a key or a row; one of no bits is not there. */
struct BitRange {
    U8 first = 0;
    U8 width = 0;
};

/** Up to 128 bits of a key or a row. Bit 0 is the lowest bit of word 0, bit 32 that of word 1. */
class BitRow {
public:
    constexpr BitRow() = default;
    constexpr explicit BitRow(std::span<U32 const> words) {
        for (std::size_t i = 0; i < words.size() && i < 4; ++i)
            put({static_cast<U8>(32 * i), 32}, words[i]);
    }

    /** Sets bits that are still clear, up to 64 of them; bits of the value beyond the width do not count. */
    constexpr void put(BitRange range, U64 value) {
        if (range.width == 0) return;
        value &= ones(range.width);
        if (range.first >= 64) {
            high_ |= value << (range.first - 64);
        } else {
            low_ |= value << range.first;
            if (range.first > 0) high_ |= value >> (64 - range.first);
        }
    }
    /** The value of up to 64 bits. */
    constexpr U64 at(BitRange range) const { return from(range.first).low_ & ones(range.width); }
    /** The bits from that one on, below 128, moved down to bit 0. */
    constexpr BitRow from(U32 first) const {
        if (first == 0) return *this;
        if (first >= 64) return {high_ >> (first - 64), 0};
        return {low_ >> first | high_ << (64 - first), high_ >> first};
    }
    /** The lowest bits, fewer than 128, with all others clear. */
    constexpr BitRow lowest(U32 count) const {
        if (count >= 64) return {low_, high_ & ones(count - 64)};
        return {low_ & ones(count), 0};
    }
    /** As bytes, bits 0 to 7 in the first one. */
    constexpr std::array<U8, 16> bytes() const {
        std::array<U8, 16> bytes{};
        for (std::size_t i = 0; i < 8; ++i) {
            bytes[i] = static_cast<U8>(low_ >> (8 * i));
            bytes[8 + i] = static_cast<U8>(high_ >> (8 * i));
        }
        return bytes;
    }

    friend constexpr bool operator==(BitRow const&, BitRow const&) = default;

private:
    constexpr BitRow(U64 low, U64 high) : low_(low), high_(high) {}

    static constexpr U64 ones(U32 count) { return count < 64 ? (U64{1} << count) - 1 : ~U64{0}; }

    U64 low_ = 0;
    U64 high_ = 0;
};

/** Whether the words hold an even number of ones, as those of a row with its parity bit do. */
constexpr bool evenParity(std::span<U32 const> words) {
    U32 folded = 0;
    for (U32 const word : words)
        folded ^= word;
    return __builtin_parity(folded) == 0;
}

}  // namespace Chip
