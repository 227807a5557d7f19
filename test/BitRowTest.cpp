#include <gtest/gtest.h>
#include <vector>

#include "chip/BitRow.h"

namespace {

using Chip::BitRow;

BitRow ofWords(std::vector<U32> const& words) {
    return BitRow(words);
}

TEST(BitRow, BitZeroIsTheLowestOfWordZeroAndOfByteZero) {
    auto const row = ofWords({0x04030201, 0x08070605, 0x0C0B0A09, 0x100F0E0D, 0xFFFFFFFF});
    for (U32 byte = 0; byte < 16; ++byte) {
        EXPECT_EQ(row.bytes()[byte], byte + 1);
        EXPECT_EQ(row.at({static_cast<U8>(8 * byte), 8}), byte + 1);
    }
}

TEST(BitRow, FieldsCrossItsHalves) {
    BitRow row;
    row.put({60, 8}, 0xFA5);
    EXPECT_EQ(row, ofWords({0, 0x50000000, 0xA}));
    EXPECT_EQ(row.at({60, 8}), 0xA5u);
    row.put({1, 64}, 0x8000000000000001);
    EXPECT_EQ(row, ofWords({2, 0x50000000, 0xB}));
    EXPECT_EQ(row.at({62, 3}), 5u);
    EXPECT_EQ(row.at({127, 1}), 0u);
    EXPECT_EQ(row.at({5, 0}), 0u);
    BitRow top;
    top.put({64, 32}, 0x87654321);
    top.put({96, 32}, 0x12345678);
    EXPECT_EQ(top, ofWords({0, 0, 0x87654321, 0x12345678}));
}

TEST(BitRow, GivesItsLowestBitsAndThoseAbove) {
    auto const row = ofWords({0x11111111, 0x22222222, 0x33333333, 0x44444444});
    EXPECT_EQ(row.from(0), row);
    EXPECT_EQ(row.from(32), ofWords({0x22222222, 0x33333333, 0x44444444}));
    EXPECT_EQ(row.from(64), ofWords({0x33333333, 0x44444444}));
    EXPECT_EQ(row.from(100), ofWords({0x4444444}));
    EXPECT_EQ(row.lowest(0), BitRow());
    EXPECT_EQ(row.lowest(36), ofWords({0x11111111, 2}));
    EXPECT_EQ(row.lowest(64), ofWords({0x11111111, 0x22222222}));
    EXPECT_EQ(row.lowest(66), ofWords({0x11111111, 0x22222222, 3}));
}

TEST(BitRow, EvenParityIsThatOfAllWordsTogether) {
    EXPECT_TRUE(Chip::evenParity({}));
    for (U32 bit = 0; bit < 32; ++bit) {
        U32 const one[] = {0, 1u << bit};
        U32 const two[] = {1u << (31 - bit), 1u << bit};
        EXPECT_FALSE(Chip::evenParity(one));
        EXPECT_TRUE(Chip::evenParity(two));
    }
}

}  // namespace
