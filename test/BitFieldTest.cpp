#include <array>
#include <gtest/gtest.h>
#include <vector>

#include "NerioSwitchTable/BitField.h"

namespace {

using NerioSwitchTable::BitField;
using NerioSwitchTable::fieldsDisjoint;
using NerioSwitchTable::fieldsFit;

/** A row in which fields touch, cross a word's end, and fill the row to its last bit. */
struct SampleRow {
    static constexpr U32 words = 3;
    static constexpr BitField kind{"kind", 0, 3};
    static constexpr BitField vrf{"vrf", 3, 0};
    static constexpr BitField address{"address", 3, 32};
    static constexpr BitField counter{"counter", 36, 59};
    static constexpr BitField valid{"valid", 95, 1};
    static constexpr std::array fields{kind, vrf, address, counter, valid};
};
static_assert(fieldsFit(SampleRow::fields, SampleRow::words));
static_assert(fieldsDisjoint(SampleRow::fields));

static_assert(fieldsFit(std::array{BitField{"all", 0, 63}}, 2));
static_assert(!fieldsFit(std::array{BitField{"wide", 0, 64}}, 3));
static_assert(!fieldsFit(std::array{BitField{"inside", 0, 8}, BitField{"beyond", 60, 5}}, 2));
static_assert(fieldsFit(std::array{BitField{"behind", 64, 0}}, 2));

static_assert(fieldsDisjoint(std::array{BitField{"upper", 8, 8}, BitField{"lower", 0, 8}}));
static_assert(!fieldsDisjoint(std::array{BitField{"lower", 0, 9}, BitField{"upper", 8, 8}}));
static_assert(!fieldsDisjoint(std::array{BitField{"outer", 0, 9}, BitField{"inner", 4, 1}}));
static_assert(!fieldsDisjoint(std::array{BitField{"first", 0, 4}, BitField{"second", 4, 4},
                                         BitField{"again", 3, 1}}));
static_assert(fieldsDisjoint(std::array{BitField{"outer", 0, 9}, BitField{"absent", 4, 0}}));

using Words = std::array<U32, SampleRow::words>;

TEST(BitField, SetsItsOwnBitsOnly) {
    Words words{};
    SampleRow::kind.set(words.data(), 5);
    EXPECT_EQ(words, (Words{0x00000005, 0, 0}));
    SampleRow::address.set(words.data(), 0xC0A80001);
    EXPECT_EQ(words, (Words{0x0540000D, 0x00000006, 0}));
    SampleRow::counter.set(words.data(), 0x400000000000001);
    EXPECT_EQ(words, (Words{0x0540000D, 0x00000016, 0x40000000}));
    SampleRow::valid.set(words.data(), 1);
    EXPECT_EQ(words, (Words{0x0540000D, 0x00000016, 0xC0000000}));
    SampleRow::address.set(words.data(), 0);
    EXPECT_EQ(words, (Words{0x00000005, 0x00000010, 0xC0000000}));
}

TEST(BitField, GetsWhatItHolds) {
    Words const words{0x0540000D, 0x00000016, 0xC0000000};
    EXPECT_EQ(SampleRow::kind.get(words.data()), 5u);
    EXPECT_EQ(SampleRow::address.get(words.data()), 0xC0A80001u);
    EXPECT_EQ(SampleRow::counter.get(words.data()), 0x400000000000001u);
    EXPECT_EQ(SampleRow::valid.get(words.data()), 1u);
}

TEST(BitField, OfWidthZeroWritesNothingAndReadsZero) {
    Words words{0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF};
    SampleRow::vrf.set(words.data(), 0);
    EXPECT_EQ(words, (Words{0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF}));
    EXPECT_EQ(SampleRow::vrf.get(words.data()), 0u);
    EXPECT_EQ((BitField{"first", 0, 0}.get(words.data())), 0u);
}

TEST(BitField, LayoutsComputedAtRunTimeAreCheckedTheSameWay) {
    std::vector<BitField> fields{{"mask", 0, 52}, {"parity", 52, 1}};
    EXPECT_TRUE(fieldsFit(fields, 2));
    EXPECT_TRUE(fieldsDisjoint(fields));
    fields.push_back({"late", 52, 13});
    EXPECT_FALSE(fieldsFit(fields, 2));
    EXPECT_FALSE(fieldsDisjoint(fields));
}

}  // namespace
