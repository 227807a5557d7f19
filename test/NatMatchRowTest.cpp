#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include "NatMatchFixture.h"
#include "TraceCapture.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitchApi::StartMode;
using NerioTest::ip;
using NerioTest::packed;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

using NatMatchRowTest = NerioTest::NatMatchFixture;

TEST_F(NatMatchRowTest, RowsByTheirBitsWithAFilterMask) {
    apiIs(10);
    start();
    EXPECT_EQ(row(filteredKey({ip(172, 16, 32, 0), 24}), result(), {0xABC, 2}),
              packed(8, {{0, 20, 0xC0000281 >> 12},
                         {20, 16, 0xBEEF},
                         {36, 3, 7},
                         {39, 6, 0x15},
                         {45, 32, 0xAC102000 | 24},
                         {77, 2, 3},
                         {79, 1, 1},
                         {80, 1, 0},
                         {81, 1, 1},
                         {82, 17, 0x1ABCD},
                         {99, 1, 1},
                         {100, 1, 0},
                         {101, 1, 1},
                         {102, 6, 0x2A},
                         {108, 6, 0x25},
                         {128, 12, 0xABC},
                         {142, 2, 2},
                         {145, 1, 1},
                         {160, 32, 0xC0000281}}));
    EXPECT_EQ(row(sourceKey(), result().protoIs(1).useAclIs(false), {1, 0}),
              packed(8, {{0, 20, 0x0A010203 >> 12},
                         {20, 16, 0x1234},
                         {36, 3, 1},
                         {79, 1, 1},
                         {80, 1, 1},
                         {82, 17, 0x1ABCD},
                         {100, 1, 1},
                         {101, 1, 1},
                         {102, 6, 0x2A},
                         {108, 6, 0x25},
                         {128, 12, 1},
                         {145, 1, 1},
                         {160, 32, 0x0A010203}}));
}

TEST_F(NatMatchRowTest, RowsByTheirBitsWithoutAFilterMask) {
    apiIs(9, 65535);
    start();
    EXPECT_EQ(row(filteredKey({ip(172, 16, 32, 0), 24}), result(), {0xABC, 2}),
              packed(8, {{0, 20, 0xC0000281 >> 12},
                         {20, 16, 0xBEEF},
                         {36, 3, 7},
                         {39, 6, 0x15},
                         {45, 32, 0xAC102000},
                         {77, 1, 1},
                         {78, 1, 0},
                         {79, 1, 1},
                         {80, 17, 0x1ABCD},
                         {97, 1, 1},
                         {98, 1, 0},
                         {99, 1, 1},
                         {100, 6, 0x2A},
                         {106, 6, 0x25},
                         {128, 12, 0xABC},
                         {142, 2, 2},
                         {145, 1, 1},
                         {160, 32, 0xC0000281}}));
}

TEST_F(NatMatchRowTest, TheParityOfTheDataIsEven) {
    for (U16 const api : {U16{9}, U16{10}}) {
        apiIs(api);
        start();
        std::mt19937_64 random(api);
        for (int i = 0; i < 200; ++i) {
            auto const words =
                row(sourceKey().sipIs(Lanvo::IpAddr::fromHostOrder(static_cast<U32>(random()))),
                    result().natSessionIdIs(random() % 0x20000));
            EXPECT_EQ(__builtin_parity(words[0] ^ words[1] ^ words[2] ^ words[3]), 0);
        }
    }
}

TEST_F(NatMatchRowTest, ANullEntryIsADefaultKeyWithoutAFilter) {
    for (U16 const api : {U16{9}, U16{10}}) {
        apiIs(api);
        restart(StartMode::cold);
        auto const null = Belmo::ptrCast<NatMatchTableCuckooEntry>(table().helper()->nullHashEntry());
        EXPECT_EQ(null->key(), NatMatchKey());
        EXPECT_EQ(null->result(), NatMatchResult());
        EXPECT_FALSE(null->valid());
        EXPECT_EQ(null->hasFilterMask(), api == 10);
        EXPECT_EQ(table().cachedItems(), 0u);
        U32 const lag = api == 10 ? 108 : 106;
        EXPECT_EQ(row({}, {}, {3, 1}), packed(8, {{lag, 6, 57}, {128, 12, 3}, {142, 2, 1}, {145, 1, 1}}))
            << "57 has an even number of ones";
    }
}

TEST_F(NatMatchRowTest, TheControlWordIsLaidOutOverWhatStoodThere) {
    start();
    Words ones{};
    ones.fill(0xFFFFFFFF);
    table().helper()->setStaticBuffer({5, 1}, reinterpret_cast<U8*>(ones.data()));
    EXPECT_EQ(ones[3], 0xFFFFFFFFu);
    EXPECT_EQ(ones[4], 0xFFF00000u | 1u << 17 | 1u << 14 | 5);
    EXPECT_EQ(ones[5], 0xFFFFFFFFu);
}

TEST_F(NatMatchRowTest, AKeyIsHashedOver91BitsWithAFilterMask) {
    apiIs(10);
    start();
    auto const key = filteredKey({ip(172, 16, 32, 0), 24});
    auto const expected = packed(3, {{0, 32, 0xC0000281},
                                     {32, 16, 0xBEEF},
                                     {48, 3, 7},
                                     {51, 6, 0x15},
                                     {57, 32, 0xAC102000 | 24},
                                     {89, 2, 3}});
    EXPECT_EQ(inputWords(key), expected);
    EXPECT_EQ(itemOf(key)->hashInput().bits, 91);
    auto const* const bytes = reinterpret_cast<U8 const*>(expected.data());
    for (U8 way = 0; way < 3; ++way)
        EXPECT_EQ(itemOf(key)->getHash(way), NerioSwitch::crc12Hash(bytes, way, 91));
}

TEST_F(NatMatchRowTest, AKeyIsHashedOver89BitsWithout) {
    apiIs(9, 9);
    start();
    auto const key = filteredKey({ip(172, 16, 32, 0), 24});
    auto const expected =
        packed(3, {{0, 32, 0xC0000281}, {32, 16, 0xBEEF}, {48, 3, 7}, {51, 6, 0x15}, {57, 32, 0xAC102000}});
    EXPECT_EQ(inputWords(key), expected);
    EXPECT_EQ(itemOf(key)->hashInput().bits, 89);
    auto const* const bytes = reinterpret_cast<U8 const*>(expected.data());
    for (U8 way = 0; way < 3; ++way)
        EXPECT_EQ(itemOf(key)->getHash(way), NerioSwitch::crc12Hash(bytes, way, 89));
}

TEST_F(NatMatchRowTest, TheSideThatTheTypeNamesIsHashedAlone) {
    start();
    auto const key = NatMatchKey().sipIs(ip(1, 2, 3, 4)).dipIs(ip(5, 6, 7, 8));
    for (U8 const type : {U8{0}, U8{1}, U8{2}, U8{3}}) {
        auto typed = NatMatchKey(key).natTypeIs(type);
        if (type % 2 != 0) typed.sportIs(0x1111).dportIs(0x2222);
        bool const source = type < 2;
        EXPECT_EQ(keyAddress(typed), source ? 0x01020304u : 0x05060708u);
        EXPECT_EQ(keyPort(typed), type == 1 ? 0x1111 : type == 3 ? 0x2222 : 0);
        EXPECT_EQ(inputWords(typed)[0], keyAddress(typed));
        EXPECT_EQ(inputWords(typed)[1] & 0xFFFF, keyPort(typed));
    }
}

TEST_F(NatMatchRowTest, AnAddressOfZeroStaysZero) {
    start();
    EXPECT_EQ(keyAddress(NatMatchKey()), 0u);
    EXPECT_EQ(inputWords(NatMatchKey().sipIs(ip(255, 255, 255, 255)))[0], 0xFFFFFFFFu);
    EXPECT_EQ(row(NatMatchKey(), result())[5], 0u);
}

TEST_F(NatMatchRowTest, TheTypeSaysWhetherThereIsAFilter) {
    for (U8 type = 0; type < 4; ++type) {
        EXPECT_EQ(natTypeToHwVal(type, false), type);
        EXPECT_EQ(natTypeToHwVal(type, true), type | 4);
    }
}

TEST_F(NatMatchRowTest, FiltersAndTheirMaskTypes) {
    apiIs(10);
    start();
    struct Case {
        Lanvo::Prefix filter;
        U32 value;
        U32 maskType;
        bool present;
    };
    Case const cases[] = {{Lanvo::Prefix::null(), 0, 0, false},
                          {{ip(0, 0, 0, 0), 32}, 0, 0, true},
                          {{ip(0, 0, 0, 0), 0}, 0, 3, true},
                          {{ip(10, 1, 2, 192), 26}, 0x0A0102C0 | 26, 3, true},
                          {{ip(10, 1, 2, 224), 27}, 0x0A0102E0, 2, true},
                          {{ip(10, 1, 2, 252), 30}, 0x0A0102FC | 3, 2, true},
                          {{ip(10, 1, 2, 254), 31}, 0x0A0102FE, 1, true},
                          {{ip(10, 1, 2, 255), 32}, 0x0A0102FF, 0, true}};
    for (auto const& each : cases) {
        SCOPED_TRACE(each.filter.text());
        auto const words = row(filteredKey(each.filter), result());
        EXPECT_EQ(fieldOf(words, 45, 32), each.value);
        EXPECT_EQ(fieldOf(words, 77, 2), each.maskType);
        EXPECT_EQ(fieldOf(words, 38, 1), each.present ? 1u : 0u);
        EXPECT_EQ(keyBack(filteredKey(each.filter)), filteredKey(each.filter));
    }
}

TEST_F(NatMatchRowTest, EveryFilterReadsBackWithAMask) {
    apiIs(10);
    start();
    for (U8 length = 0; length <= 32; ++length) {
        for (U32 const address : {0u, 0xFFFFFFFFu, 0x0A0B0C0Du}) {
            auto const cut = Lanvo::IpAddr::fromHostOrder(address & Lanvo::Prefix::mask(length));
            EXPECT_EQ(keyBack(filteredKey({cut, length})), filteredKey({cut, length}));
        }
    }
}

TEST_F(NatMatchRowTest, AFilterOfALengthThatIsNeverWrittenThatWayIsReadAllTheSame) {
    apiIs(10);
    start();
    auto words = row(filteredKey({ip(10, 1, 2, 192), 26}), result());
    // Mask type 3, and of the five low bits of the filter, 26, all: a length of 31.
    words[45 / 32] |= 5u << 45 % 32;
    auto const item = decoded(words);
    EXPECT_EQ(item->key(), filteredKey({ip(10, 1, 2, 222), 31}));
    EXPECT_EQ(item->result(), result());
}

TEST_F(NatMatchRowTest, BeforeVersion10AFilterReadsBackWithoutTheZerosAtTheEndOfItsAddress) {
    apiIs(9, 9);
    start();
    struct Case {
        Lanvo::Prefix filter;
        Lanvo::Prefix back;
    };
    Case const cases[] = {
        {{ip(10, 1, 2, 0), 24}, {ip(10, 1, 2, 0), 23}}, {{ip(10, 1, 3, 0), 24}, {ip(10, 1, 3, 0), 24}},
        {{ip(10, 0, 0, 0), 24}, {ip(10, 0, 0, 0), 7}},  {{ip(10, 0, 0, 1), 32}, {ip(10, 0, 0, 1), 32}},
        {{ip(0, 0, 0, 0), 32}, {ip(0, 0, 0, 0), 0}},    {{ip(128, 0, 0, 0), 32}, {ip(128, 0, 0, 0), 1}},
        {{ip(0, 0, 0, 0), 0}, {ip(0, 0, 0, 0), 0}},     {Lanvo::Prefix::null(), Lanvo::Prefix::null()}};
    for (auto const& each : cases) {
        SCOPED_TRACE(each.filter.text());
        EXPECT_EQ(fieldOf(row(filteredKey(each.filter), result()), 45, 32),
                  each.filter.address().hostOrder());
        EXPECT_EQ(keyBack(filteredKey(each.filter)), filteredKey(each.back));
    }
}

TEST_F(NatMatchRowTest, AProtocolThatIsNoSetIsTracedOnceAndWrittenAsNone) {
    start();
    NerioTest::TraceCapture const trace("NerioTableNatMatch", 0);
    auto const words = row(sourceKey(), result().protoIs(4));
    EXPECT_EQ(fieldOf(words, 78, 2), 0u);
    EXPECT_EQ(fieldOf(words, 77, 1), 1u) << "the entry is written all the same";
    EXPECT_THAT(trace.lines(), ElementsAre(HasSubstr(" unexpected proto=4")));
    for (U32 const proto : {0u, 1u, 2u, 3u})
        EXPECT_EQ(fieldOf(row(sourceKey(), result().protoIs(proto)), 78, 2), proto);
    EXPECT_THAT(trace.lines(), SizeIs(1));
}

TEST_F(NatMatchRowTest, TheOtherSideOfAKeyIsLost) {
    start();
    EXPECT_EQ(keyBack(sourceKey().dipIs(ip(9, 9, 9, 9)).dportIs(99)), sourceKey());
    auto const destination = filteredKey(Lanvo::Prefix::null());
    EXPECT_EQ(keyBack(NatMatchKey(destination).sipIs(ip(9, 9, 9, 9)).sportIs(99)), destination);
}

TEST_F(NatMatchRowTest, ARowThatStoresAnotherKeyThanTheShadowKeepsIsInconsistent) {
    start();
    auto words = row(sourceKey(), result());
    EXPECT_FALSE(table().hwInconsistentEntry(decoded(words)->key()));
    words[0] ^= 1;
    auto const item = decoded(words);
    EXPECT_EQ(item->key(), sourceKey()) << "the shadow's word counts";
    EXPECT_TRUE(table().hwInconsistentEntry(sourceKey()));
    EXPECT_TRUE(table().hwInconsistentEntryFromHashItem(item));
    EXPECT_TRUE(table().hwInconsistentEntryDelFromHashItem(item));
    EXPECT_FALSE(table().hwInconsistentEntry(sourceKey()));
}

TEST_F(NatMatchRowTest, EmptyRowsTakeNobodysItem) {
    start();
    table().entryIs(NatMatchKey(), result());
    shadow().drop(5);
    auto const item = table().helper()->decodeHwEntry(5);
    EXPECT_FALSE(item->valid());
    EXPECT_TRUE(table().cachedItem(NatMatchKey())->valid());
    EXPECT_EQ(table().cachedItem(NatMatchKey())->result(), result());
}

}  // namespace
