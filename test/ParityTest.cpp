#include <bit>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>
#include <vector>

#include "NerioSwitch/Parity.h"

namespace {

using NerioSwitch::parity32Bit;
using NerioSwitch::parityU32Array;

TEST(Parity, OfAWordIsOneForAnOddNumberOfOnes) {
    EXPECT_EQ(parity32Bit(0), 0u);
    EXPECT_EQ(parity32Bit(0xFFFFFFFF), 0u);
    EXPECT_EQ(parity32Bit(0xFFFF7FFF), 1u);
    for (U32 bit = 0; bit < 32; ++bit) {
        EXPECT_EQ(parity32Bit(U32{1} << bit), 1u);
        EXPECT_EQ(parity32Bit(~(U32{1} << bit)), 1u);
    }
}

RC_GTEST_PROP(Parity, OfWordsCountsTheOnesOfAllOfThem, (std::vector<U32> words)) {
    words.resize(words.size() % 256);
    int ones = 0;
    for (U32 const word : words)
        ones += std::popcount(word);
    RC_ASSERT(parityU32Array(words.data(), static_cast<U8>(words.size())) == static_cast<U32>(ones % 2));
}

TEST(Parity, CoversOnlyTheWordsThatAreCounted) {
    U32 const words[]{0x1, 0x3, 0x1, 0x80000000};
    EXPECT_EQ(parityU32Array(words, 0), 0u);
    EXPECT_EQ(parityU32Array(words, 1), 1u);
    EXPECT_EQ(parityU32Array(words, 2), 1u);
    EXPECT_EQ(parityU32Array(words, 3), 0u);
    EXPECT_EQ(parityU32Array(words, 4), 1u);
}

RC_GTEST_PROP(Parity, OfARowWithItsParityBitIsZero, (U32 first, U32 second)) {
    U32 words[]{first, second & ~(U32{1} << 20)};
    words[1] |= parityU32Array(words, 2) << 20;
    RC_ASSERT(parityU32Array(words, 2) == 0u);
}

}  // namespace
