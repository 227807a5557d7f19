#pragma once

#include "Belmo/Types.h"

/**
 * Parity of rows: the exclusive or of all bits, so that a row together with its parity bit holds an even
 * number of ones. It is taken while the parity bit itself is clear.
 */
namespace NerioSwitch {

/** 1 if the number of ones in the word is odd, else 0. */
constexpr U32 parity32Bit(U32 const& word) {
    return static_cast<U32>(__builtin_parity(word));
}

/** 1 if the number of ones in all the words together is odd, else 0; of no words it is 0. */
constexpr U32 parityU32Array(U32 const* words, U8 count) {
    U32 folded = 0;
    for (U8 i = 0; i < count; ++i)
        folded ^= words[i];
    return parity32Bit(folded);
}

}  // namespace NerioSwitch
