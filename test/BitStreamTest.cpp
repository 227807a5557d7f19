#include <algorithm>
#include <array>
#include <cstddef>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>
#include <vector>

#include "FencedMemory.h"
#include "NerioSwitchTable/BitStream.h"

namespace {

bool bitOf(U8 const* bytes, std::size_t bit) {
    return (bytes[bit / 8] >> (bit % 8) & 1) != 0;
}

/** What `bitStreamSet` is to do, one bit after the other. */
void modelSet(U8* bytes, std::size_t first, std::size_t length, U64 value) {  // NOLINT: it writes
    for (std::size_t i = 0; i < length; ++i) {
        U8 const one = static_cast<U8>(1 << ((first + i) % 8));
        U8& byte = bytes[(first + i) / 8];
        byte = static_cast<U8>((value >> i & 1) != 0 ? byte | one : byte & ~one);
    }
}

/** What `bitStreamGet` is to give, one bit after the other. */
U64 modelGet(U32 const* words, U32 first, U32 last) {
    U64 value = 0;
    for (U32 bit = first; bit <= last && bit - first < 64; ++bit)
        value |= U64{words[bit / 32] >> (bit % 32) & 1} << (bit - first);
    return value;
}

using Bytes = std::vector<U8>;

Bytes afterSet(Bytes bytes, U16 first, U8 length, U64 value) {
    bitStreamSet(bytes.data(), first, length, value);
    return bytes;
}

Bytes afterModelSet(Bytes bytes, U16 first, U8 length, U64 value) {
    modelSet(bytes.data(), first, length, value);
    return bytes;
}

TEST(BitStreamSet, PutsEveryLengthAtEveryOffsetAndLeavesAllOtherBits) {
    for (U16 first = 0; first < 24; ++first) {
        for (U8 length = 0; length < 64; ++length) {
            for (int background : {0x00, 0xFF, 0xA5}) {
                for (U64 value : {U64{0}, ~U64{0}, U64{0x9E3779B97F4A7C15}}) {
                    Bytes const before(24, static_cast<U8>(background));
                    EXPECT_EQ(afterSet(before, first, length, value),
                              afterModelSet(before, first, length, value))
                        << "bit " << first << " length " << int{length};
                }
            }
        }
    }
}

TEST(BitStreamSet, TouchesNoByteOutsideTheField) {
    FencedMemory const memory;
    for (U16 offset = 0; offset < 8; ++offset) {
        for (U8 length = 1; length < 64; ++length) {
            std::size_t const bytes = (offset + length + 7u) / 8;
            for (U8* field : {memory.begin(), memory.last(bytes)}) {
                bitStreamSet(field, offset, length, ~U64{0});
                EXPECT_TRUE(bitOf(field, offset));
                EXPECT_TRUE(bitOf(field, offset + length - 1u));
                bitStreamSet(field, offset, length, 0);
                EXPECT_FALSE(bitOf(field, offset));
                EXPECT_FALSE(bitOf(field, offset + length - 1u));
            }
        }
    }
}

RC_GTEST_PROP(BitStreamSet, AgreesWithTheModelAnywhereInALongBuffer, ()) {
    Bytes const before(8200, *rc::gen::arbitrary<U8>());
    auto const first = static_cast<U16>(*rc::gen::inRange(0, 0x10000));
    auto const length = static_cast<U8>(*rc::gen::inRange(0, 64));
    auto const value = *rc::gen::arbitrary<U64>();
    RC_ASSERT(afterSet(before, first, length, value) == afterModelSet(before, first, length, value));
}

RC_GTEST_PROP(BitStreamSet, OrderOfFieldsDoesNotMatter, ()) {
    struct Field {
        U16 first;
        U8 length;
        U64 value;
    };
    std::vector<Field> fields;
    int end = *rc::gen::inRange(0, 16);
    for (int i = 0; i < 12; ++i) {
        auto const length = *rc::gen::inRange(0, 64);
        fields.push_back({static_cast<U16>(end), static_cast<U8>(length), *rc::gen::arbitrary<U64>()});
        end += length + *rc::gen::inRange(0, 3);
    }
    Bytes rising(100, 0xC3);
    Bytes falling = rising;
    for (auto const& field : fields)
        bitStreamSet(rising.data(), field.first, field.length, field.value);
    std::reverse(fields.begin(), fields.end());
    for (auto const& field : fields)
        bitStreamSet(falling.data(), field.first, field.length, field.value);
    RC_ASSERT(rising == falling);
}

TEST(BitStreamSet, IgnoresBitsOfTheValueAboveTheLength) {
    EXPECT_EQ(afterSet(Bytes(4, 0), 10, 3, 0xFFFFFFFFFFFFFFFA), (Bytes{0x00, 0x08, 0x00, 0x00}));
}

TEST(BitStreamSet, LengthZeroChangesAndTouchesNothing) {
    bitStreamSet(nullptr, 0, 0, ~U64{0});
    for (U16 first = 0; first < 16; ++first)
        EXPECT_EQ(afterSet(Bytes(2, 0x5A), first, 0, ~U64{0}), Bytes(2, 0x5A));
}

TEST(BitStreamSet, SixBitsAtBit59LeaveTheirNeighbours) {
    EXPECT_EQ(afterSet(Bytes(9, 0x00), 59, 6, 0x3F), (Bytes{0, 0, 0, 0, 0, 0, 0, 0xF8, 0x01}));
    EXPECT_EQ(afterSet(Bytes(9, 0xFF), 59, 6, 0x00),
              (Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x07, 0xFE}));
}

TEST(BitStreamSet, TakesAFieldOf64BitsInTwoCalls) {
    U64 const value = 0xFEDCBA9876543210;
    Bytes bytes(10, 0);
    bitStreamSet(bytes.data(), 4, 63, value);
    bitStreamSet(bytes.data(), 67, 1, value >> 63);
    EXPECT_EQ(bytes, (Bytes{0x00, 0x21, 0x43, 0x65, 0x87, 0xA9, 0xCB, 0xED, 0x0F, 0x00}));
}

TEST(BitStreamSet, TakesTheLongestFieldAtEveryOffset) {
    // 63 bits from the last bit of a byte reach eight bytes further, which is as far as a field may.
    for (U16 first = 0; first < 8; ++first) {
        std::array<U32, 3> words{};
        bitStreamSet(reinterpret_cast<U8*>(words.data()), first, 63, ~U64{0});
        EXPECT_EQ(bitStreamGet(words.data(), first, first + 62u), ~U64{0} >> 1);
        EXPECT_EQ(bitStreamGet(words.data(), first + 63u, 95), 0u);
    }
}

TEST(BitStreamSetDeathTest, Refuses64BitsAndMore) {
    Bytes bytes(64);
    EXPECT_DEATH(bitStreamSet(bytes.data(), 0, 64, 0), "Assertion failed: len < 64 \\(");
    EXPECT_DEATH(bitStreamSet(bytes.data(), 0, 255, 0), "Assertion failed: len < 64 \\(");
}

constexpr std::array<U32, 5> somePattern{0x89ABCDEF, 0x01234567, 0x9E3779B9, 0x7F4A7C15, 0xFFFF0001};

TEST(BitStreamGet, GivesEveryRangeOfUpToThreeWords) {
    for (U32 first = 0; first < 160; ++first) {
        for (U32 last = first; last < 160 && last / 32 - first / 32 <= 2; ++last) {
            EXPECT_EQ(bitStreamGet(somePattern.data(), first, last),
                      modelGet(somePattern.data(), first, last))
                << first << " to " << last;
        }
    }
}

TEST(BitStreamGet, Bits30To70AreThreeReadsJoined) {
    auto const* words = somePattern.data();
    U64 const joined =
        bitStreamGet(words, 30, 31) | bitStreamGet(words, 32, 63) << 2 | bitStreamGet(words, 64, 70) << 34;
    EXPECT_EQ(bitStreamGet(words, 30, 70), joined);
    EXPECT_EQ(joined, 0xE4048D159Eu);
}

TEST(BitStreamGet, ReadsNoWordOutsideTheRange) {
    FencedMemory const memory;
    for (U32 words = 1; words <= 3; ++words) {
        for (U32 first = 0; first < 32; ++first) {
            for (U32 last = std::max(first, 32 * (words - 1)); last < 32 * words; ++last) {
                for (U8* row : {memory.begin(), memory.last(words * sizeof(U32))}) {
                    EXPECT_EQ(bitStreamGet(reinterpret_cast<U32*>(row), first, last), 0u);
                }
            }
        }
    }
}

TEST(BitStreamGet, EmptyRangeIsZeroAndReadsNothing) {
    for (U32 first : {0u, 1u, 31u, 32u, 63u, 64u, 100u})
        EXPECT_EQ(bitStreamGet(nullptr, first, first - 1), 0u);
}

RC_GTEST_PROP(BitStreamGet, GivesBackWhatWasSet, ()) {
    auto words = *rc::gen::arbitrary<std::array<U32, 8>>();
    auto const first = static_cast<U16>(*rc::gen::inRange(0, 193));
    auto const length = static_cast<U8>(*rc::gen::inRange(0, 64));
    auto const value = *rc::gen::arbitrary<U64>();
    bitStreamSet(reinterpret_cast<U8*>(words.data()), first, length, value);
    RC_ASSERT(bitStreamGet(words.data(), first, first + length - 1u) == (value & ((U64{1} << length) - 1)));
}

TEST(BitStreamGetDeathTest, RefusesRangesOfMoreThanThreeWords) {
    auto const* words = somePattern.data();
    EXPECT_DEATH(bitStreamGet(words, 0, 96), "Assertion failed: 0 \\(");
    EXPECT_DEATH(bitStreamGet(words, 31, 127), "Assertion failed: 0 \\(");
}

TEST(BitStreamGetDeathTest, RefusesARangeThatRunsBackwards) {
    auto const* words = somePattern.data();
    EXPECT_DEATH(bitStreamGet(words, 10, 5), "Assertion failed: 0 \\(");
    EXPECT_DEATH(bitStreamGet(words, 64, 5), "Assertion failed: 0 \\(");
}

}  // namespace
