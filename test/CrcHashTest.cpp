#include <algorithm>
#include <array>
#include <cstddef>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>
#include <utility>
#include <vector>

#include "NerioSwitch/CrcHash.h"

#include "FencedMemory.h"

namespace {

using Key = std::array<U8, 32>;

/** One width of hash, and the key lengths that tables hash with it. */
struct Crc {
    char const* name;
    U32 width;
    std::array<U32, 4> polynomials;
    U32 (*hash)(U8 const*, U8, U8);
    NerioSwitch::CrcHashes (*hashes)(U8 const*, U8);
    std::vector<U8> keyBits;
};

void PrintTo(Crc const& crc, std::ostream* out) {
    *out << crc.name;
}

Crc const crcs[]{
    {"Crc10",
     10,
     {0x58F, 0x643, 0x531, 0x427},
     NerioSwitch::crc10Hash,
     NerioSwitch::crc10Hashes,
     {17, 20, 23, 25, 26, 102}},
    {"Crc11",
     11,
     {0x8E1, 0xF9B, 0xB41, 0xFAD},
     NerioSwitch::crc11Hash,
     NerioSwitch::crc11Hashes,
     {16, 58, 59, 60, 61, 70, 74, 90, 94}},
    {"Crc12",
     12,
     {0x1107, 0x1609, 0x1C11, 0x1069},
     NerioSwitch::crc12Hash,
     NerioSwitch::crc12Hashes,
     {29, 35, 41, 58, 59, 60, 61, 70, 74, 89, 90, 91, 94}},
    {"Crc13", 13, {0x2C8B, 0x2297, 0x344D, 0x20A5}, NerioSwitch::crc13Hash, NerioSwitch::crc13Hashes, {75}},
};

class CrcHash : public testing::TestWithParam<Crc> {
protected:
    Crc const& crc = GetParam();

    /** One step of a shift register with feedback: times x, modulo the polynomial. */
    U32 shifted(U32 state, U8 way) const {
        state <<= 1;
        return state >> crc.width != 0 ? state ^ crc.polynomials[way] : state;
    }

    /** The textbook form: the key shifted in bit by bit, its highest bit first. */
    U32 reference(Key const& key, U8 way, U8 bits) const {
        U32 state = 0;
        for (int bit = bits - 1; bit >= 0; --bit) {
            U32 const in = key[static_cast<std::size_t>(bit) / 8] >> (bit % 8) & 1u;
            state = shifted(state ^ in << (crc.width - 1), way);
        }
        return state;
    }

    /** What each bit of a key of that length adds to the hash of one way. */
    std::vector<U64> columns(U8 way, U8 bits) const {
        std::vector<U64> result;
        for (U32 bit = 0; bit < bits; ++bit) {
            Key key{};
            key[bit / 8] = static_cast<U8>(1 << (bit % 8));
            result.push_back(crc.hash(key.data(), way, bits));
        }
        return result;
    }
};

INSTANTIATE_TEST_SUITE_P(, CrcHash, testing::ValuesIn(crcs),
                         [](auto const& test) { return test.param.name; });

/** Rank over GF(2) of the matrix that has these columns. */
std::size_t rank(std::vector<U64> columns) {
    std::size_t found = 0;
    for (U64 bit = 1; bit != 0; bit <<= 1) {
        auto const first = columns.begin() + static_cast<std::ptrdiff_t>(found);
        auto const pivot =
            std::find_if(first, columns.end(), [&](U64 column) { return (column & bit) != 0; });
        if (pivot == columns.end()) continue;
        std::iter_swap(first, pivot);
        std::for_each(first + 1, columns.end(), [&](U64& column) {
            if ((column & bit) != 0) column ^= *first;
        });
        ++found;
    }
    return found;
}

/** Whether every run of `length` neighbouring key bits alone tells apart all values of those bits. */
testing::AssertionResult everyWindowIsOneToOne(std::vector<U64> const& columns, std::size_t length) {
    for (std::size_t first = 0; first + length <= columns.size(); ++first) {
        auto const begin = columns.begin() + static_cast<std::ptrdiff_t>(first);
        auto const found = rank({begin, begin + static_cast<std::ptrdiff_t>(length)});
        if (found != length) {
            return testing::AssertionFailure() << "rank " << found << " from bit " << first;
        }
    }
    return testing::AssertionSuccess();
}

TEST_P(CrcHash, AgreesWithAShiftRegisterForEveryLength) {
    EXPECT_TRUE(rc::check([&](Key const& key) {
        for (U32 bits = 0; bits < 256; ++bits) {
            auto const length = static_cast<U8>(bits);
            for (U8 way = 0; way < 4; ++way)
                RC_ASSERT(crc.hash(key.data(), way, length) == reference(key, way, length));
        }
    }));
}

TEST_P(CrcHash, AgreesWithAShiftRegisterForEveryByteAtEveryPosition) {
    for (std::size_t position = 0; position < 32; ++position) {
        for (U32 value = 0; value < 256; ++value) {
            Key key{};
            key[position] = static_cast<U8>(value);
            for (U8 way = 0; way < 4; ++way)
                ASSERT_EQ(crc.hash(key.data(), way, 255), reference(key, way, 255));
        }
    }
}

TEST_P(CrcHash, OfTheFirstBitAloneIsThePolynomialWithoutItsTop) {
    U8 const key = 1;
    for (U8 way = 0; way < 4; ++way)
        EXPECT_EQ(crc.hash(&key, way, 1), crc.polynomials[way] - (1u << crc.width));
}

TEST_P(CrcHash, GivesAllWaysAtOnceWhatItGivesOneByOne) {
    EXPECT_TRUE(rc::check([&](Key const& key, U8 bits) {
        auto const all = crc.hashes(key.data(), bits);
        for (U8 way = 0; way < 4; ++way) {
            RC_ASSERT(all.way(way) == crc.hash(key.data(), way, bits));
            RC_ASSERT((all.way(way) >> crc.width) == 0u);
        }
    }));
}

TEST_P(CrcHash, IsLinear) {
    EXPECT_TRUE(rc::check([&](Key const& left, Key const& right, U8 bits) {
        Key both{};
        std::transform(left.begin(), left.end(), right.begin(), both.begin(),
                       [](U8 a, U8 b) { return static_cast<U8>(a ^ b); });
        for (U8 way = 0; way < 4; ++way) {
            RC_ASSERT(crc.hash(both.data(), way, bits) ==
                      (crc.hash(left.data(), way, bits) ^ crc.hash(right.data(), way, bits)));
        }
    }));
}

TEST_P(CrcHash, DoesNotDependOnBitsBeyondTheLength) {
    EXPECT_TRUE(rc::check([&](Key const& key, Key const& other, U8 bits) {
        Key mixed = other;
        for (U32 bit = 0; bit < bits; ++bit) {
            U8 const one = static_cast<U8>(1 << (bit % 8));
            mixed[bit / 8] = static_cast<U8>((mixed[bit / 8] & ~one) | (key[bit / 8] & one));
        }
        RC_ASSERT(crc.hashes(mixed.data(), bits) == crc.hashes(key.data(), bits));
    }));
}

TEST_P(CrcHash, IsNotChangedByZeroBitsOnTop) {
    EXPECT_TRUE(rc::check([&](Key key) {
        U8 const bits = 91;
        std::fill(key.begin() + 12, key.end(), U8{0});
        key[11] &= 0x07;
        for (U32 longer = bits; longer < 256; ++longer)
            RC_ASSERT(crc.hashes(key.data(), static_cast<U8>(longer)) == crc.hashes(key.data(), bits));
    }));
}

TEST_P(CrcHash, IsAFunctionOfTheKeyAndNothingElse) {
    EXPECT_TRUE(rc::check([&](Key const& key, Key const& between, U8 bits) {
        auto const before = crc.hashes(key.data(), bits);
        crc.hashes(between.data(), bits);
        std::array<U8, 33> elsewhere{};
        std::copy(key.begin(), key.end(), elsewhere.begin() + 1);
        RC_ASSERT(crc.hashes(elsewhere.data() + 1, bits) == before);
    }));
}

TEST_P(CrcHash, ReadsNoByteOutsideTheKey) {
    FencedMemory const memory;
    for (U32 bits = 1; bits < 256; ++bits) {
        for (U8* key : {memory.begin(), memory.last((bits + 7) / 8)})
            EXPECT_EQ(crc.hashes(key, static_cast<U8>(bits)), NerioSwitch::CrcHashes(0));
    }
}

TEST_P(CrcHash, OfAnEmptyKeyIsZero) {
    EXPECT_EQ(crc.hashes(nullptr, 0), NerioSwitch::CrcHashes(0));
}

TEST_P(CrcHash, HasAPrimitivePolynomialOfItsOwnInEachWay) {
    for (U8 way = 0; way < 4; ++way) {
        U32 period = 1;
        for (U32 state = shifted(1, way); state != 1 && period >> crc.width == 0; state = shifted(state, way))
            ++period;
        EXPECT_EQ(period, (1u << crc.width) - 1) << "way " << int{way};
        for (U8 other = 0; other < way; ++other)
            EXPECT_NE(crc.polynomials[way], crc.polynomials[other]);
    }
}

TEST_P(CrcHash, MapsNeighbouringBitsOneToOneToRows) {
    for (U8 const bits : crc.keyBits) {
        for (U8 way = 0; way < 4; ++way) {
            EXPECT_TRUE(everyWindowIsOneToOne(columns(way, bits), crc.width))
                << int{bits} << " bits, way " << int{way};
        }
    }
}

TEST_P(CrcHash, MapsTwiceAsManyNeighbouringBitsOneToOneToPairsOfRows) {
    for (U8 const bits : crc.keyBits) {
        for (auto const& [left, right] : {std::pair<U8, U8>{0, 1}, {0, 2}, {0, 3}, {1, 2}, {1, 3}, {2, 3}}) {
            auto pairs = columns(left, bits);
            auto const others = columns(right, bits);
            for (std::size_t i = 0; i < pairs.size(); ++i)
                pairs[i] |= others[i] << crc.width;
            // Two ways tell all keys apart that are shorter than their rows together.
            EXPECT_TRUE(everyWindowIsOneToOne(pairs, std::min<std::size_t>(2 * std::size_t{crc.width}, bits)))
                << int{bits} << " bits, ways " << int{left} << " and " << int{right};
        }
    }
}

TEST(CrcHashDeathTest, RefusesAWayThatThereIsNot) {
    Key const key{};
    EXPECT_DEATH(NerioSwitch::crc12Hash(key.data(), 4, 91), "Assertion failed: hashNumber < ways \\(");
    EXPECT_DEATH(NerioSwitch::crc10Hashes(key.data(), 20).way(255),
                 "Assertion failed: hashNumber < ways \\(");
}

}  // namespace
