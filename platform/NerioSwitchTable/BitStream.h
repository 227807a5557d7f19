#pragma once

#include <algorithm>
#include <bit>
#include <cstring>

#include "Belmo/Assert.h"
#include "Belmo/Types.h"

/*
 * Bit order of every row and key: bit 0 is the lowest bit of byte 0, which is the lowest bit of word 0, and
 * bit 32 is the lowest bit of word 1. Both functions touch no byte that does not hold a bit of the field
 * (`bitStreamGet`: no such word), so a buffer may end with the field.
 */
static_assert(std::endian::native == std::endian::little, "rows are laid out in little-endian words");

// Where a short buffer meets a position that is no constant, gcc warns of the stores of longer fields, which
// such a call never reaches.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Warray-bounds"
#pragma GCC diagnostic ignored "-Wstringop-overflow"
#endif

/**
 * Puts the low `len` bits of `value`, 0 to 63 of them, at bit `firstBit` of the buffer. All other bits of the
 * buffer stay as they are; a length of 0 changes nothing.
 */
inline void bitStreamSet(U8* buffer, U16 firstBit, U8 len, U64 value) {
    BELMO_ASSERT(len < 64);
    if (len == 0) return;
    int const startSlice = firstBit / 8;
    int const endSlice = (firstBit + len - 1) / 8;
    BELMO_ASSERT(startSlice >= endSlice - 8);

    U8* const field = buffer + startSlice;
    int const last = endSlice - startSlice;
    int const shift = firstBit % 8;
    int const lastByteBits = shift + len - 8 * last;
    U64 const mask = (U64{1} << len) - 1;
    value &= mask;

    // Only the outer bytes are read. A byte is always forwarded from the store that set a field beside this
    // one; a wider read across two such stores would wait until both have reached the cache.
    if (last == 0) {
        field[0] = static_cast<U8>((field[0] & ~(mask << shift)) | value << shift);
        return;
    }
    U64 const below = field[0] & ((U64{1} << shift) - 1);
    U64 const above = field[last] & (~U64{0} << lastByteBits);
    U64 image = value << shift | below;
    if (last == 8) {
        std::memcpy(field, &image, 8);
        field[8] = static_cast<U8>(value >> (64 - shift) | above);
        return;
    }
    image |= above << (8 * last);
    if (last >= 3) {  // 4 to 8 bytes as two words, which may overlap
        U64 const upper = image >> (8 * (last - 3));
        std::memcpy(field, &image, 4);
        std::memcpy(field + last - 3, &upper, 4);
    } else {
        U64 const upper = image >> (8 * (last - 1));
        std::memcpy(field, &image, 2);
        std::memcpy(field + last - 1, &upper, 2);
    }
}

#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

/**
 * The bits from `firstBit` to `lastBit` inclusive, `firstBit` lowest; of more than 64 bits the low 64. The
 * range may touch three words at most. An empty range, with `lastBit` one below `firstBit`, is 0.
 */
inline U64 bitStreamGet(U32 const* words, U32 firstBit, U32 lastBit) {
    U32 const length = lastBit + 1 - firstBit;
    if (length == 0) return 0;
    U32 const firstWord = firstBit / 32;
    U32 const lastWord = lastBit / 32;
    BELMO_ASSERT_TEXT(firstBit <= lastBit && lastWord - firstWord <= 2, "0");

    // Always three words, without a branch. Where the range has fewer, its last word stands once more above
    // the bits asked for, which the mask takes away.
    U32 const shift = firstBit % 32;
    U64 const pair = words[firstWord] | U64{words[std::min(firstWord + 1, lastWord)]} << 32;
    U64 const bits = pair >> shift | U64{words[lastWord]} << 1 << (63 - shift);
    return length < 64 ? bits & ((U64{1} << length) - 1) : bits;
}
