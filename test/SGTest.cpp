#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>

#include "NerioSwitch/CrcHash.h"

#include "FailureText.h"
#include "NerioSwitchTable/NerioTableSG.h"
#include "PackedWords.h"
#include "SwitchFixture.h"
#include "TraceCapture.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::MrouteKey;
using NerioTest::packed;
using NerioTest::PackedBits;

constexpr char const* badVlan = "Bridging::VlanIdOrNone::value > 4094 not allowed";
constexpr char const* kinds =
    "\\( key.isMulticastKey\\(\\) && result.isMulticastResult\\(\\) \\) \\|\\| "
    "\\( key.isUnicastKey\\(\\) && result.isUnicastResult\\(\\) \\)";

Lanvo::IpAddr address(U32 host) {
    return Lanvo::IpAddr::fromHostOrder(host);
}

SGKey multicast(U32 source, U32 group, U16 vlan) {
    return SGKey::multicastKey(MrouteKey({address(source), 32}, {address(group), 32}, vlan));
}

SGResult toPorts(U64 ports, U16 vlanGroup = 3) {
    return SGResult().dataIs(SGResult::Multicast().portMaskIs(ports).vlanGroupIdIs(vlanGroup));
}

SGResult toLag(U16 lag, U8 rewrite) {
    return SGResult()
        .dataIs(SGResult::Unicast().l3LagIndexIs(lag).rewriteIndexIs(rewrite))
        .lookupTypeIs(SGLookupType::sgLookupTypeReserved)
        .natTypeIs(SGNatType::sgNatTypeTnat)
        .natSessionIdIs(0x1A5C3)
        .natEnabledIs(true);
}

class SGTableTest : public NerioTest::TableFixture<SGTable> {
protected:
    using Words = std::array<U32, 8>;

    SGTableTest() : TableFixture([] { return sGTableFactory("sg"); }) {}

    SGHelper& helper() { return static_cast<SGHelper&>(*table().helper()); }
    Words row(SGKey const& key, SGResult const& result, Dovra::Cuckoo::CuckooLocation location = {},
              bool valid = true, Words words = {}) {
        auto const item = table().createHashEntry(key, false);
        item->resultIs(result);
        item->validIs(valid);
        helper().setHwBuffer(item, location, reinterpret_cast<U8*>(words.data()));
        return words;
    }
    static std::vector<U32> vector(Words const& words) { return {words.begin(), words.end()}; }
    void store(NerioSwitchApi::HwIndex index, Words const& words) {
        for (auto const& [id, copy] : convertor().hwTables())
            shadow(id).store(index, std::span(words).first<7>());
    }
    Belmo::Ptr<SGTableCuckooEntry> decoded(NerioSwitchApi::HwIndex index) {
        return Belmo::ptrCast<SGTableCuckooEntry>(helper().decodeHwEntry(index));
    }
    /** The row that a key of this table stands in. */
    NerioSwitchApi::HwIndex rowOf(SGKey const& key) { return table().hashItem(key)->hwIndex(); }
};

SGKey const someRoute = multicast(0xC0A80164, 0xE1A5C3D7, 0xABC);
SGKey const someFlow = SGKey::unicastKey(address(0x0A010203), address(0xB6D3A7C5), 0x2D);

TEST_F(SGTableTest, HasItsConstants) {
    start();
    EXPECT_EQ(table().swTableId(), 43u);
    EXPECT_TRUE(table().statusSupported());
    EXPECT_TRUE(table().hitBitsSupported());
    EXPECT_TRUE(table().hwTablesDuplicate());
    EXPECT_EQ(SGHelper::compareWidth, 59u);
    EXPECT_EQ(SGHelper::hashTableId, 8u);
    EXPECT_EQ(helper().tableIdx(), 43);
    EXPECT_EQ(helper().name(), "(S,G)");
    auto const& hash = *table().hashConvertor();
    EXPECT_EQ(hash.properties().tableId(), 43u);
    EXPECT_EQ(hash.tableSize(), 8192u);
    EXPECT_EQ(hash.properties().hashBits(), 13u);
    EXPECT_EQ(hash.numHashTables(), 3u);
    EXPECT_EQ(hash.properties().rowSlots(), 1u);
    EXPECT_EQ(hash.entryWords(), 7);
    EXPECT_EQ(hash.properties().hitBitsSupported(), 1);
    EXPECT_EQ(hash.properties().placementFlag(), 1);
    EXPECT_EQ(hash.readStrobeBit(), 16);
    EXPECT_EQ(hash.writeStrobeBit(), 17);
    ASSERT_EQ(gauges().size(), 1u);
    EXPECT_EQ(gauges()[0]->capacity(), 24576u);
    EXPECT_EQ(gauges()[0]->key(), TableGauge::TableKey("(S,G)", "Pipe0", "sg"));
}

TEST_F(SGTableTest, AFifthDataWordAndTheSessionComeWithVersion6) {
    for (U16 const version : {U16{6}, U16{5}, U16{7}}) {
        // A chip of version 6 has all of these registers.
        profile().hwApi = {6, 9};
        make();
        profile().hwApi = {version, 9};
        bringUp(NerioTest::StartMode::cold);
        bool const five = version >= 6;
        EXPECT_EQ(helper().natResultSupported(), five);
        EXPECT_EQ(helper().numHashData(), five ? 5 : 4);
        EXPECT_EQ(helper().gShadowIdx(), five ? 6 : 5);
        EXPECT_EQ(convertor().hwStaticWord(5), five ? 0xFFFFFFFFu : 0u);
        EXPECT_EQ(convertor().hwStaticWord(4), five ? 0u : 0xFFFFFFFFu);
        ASSERT_EQ(convertor().hwTables().size(), 2u);
        std::vector<std::string> paths;
        for (auto const handle : convertor().hwTable(1)->registersOf(0))
            paths.push_back(chip().path(handle));
        ASSERT_EQ(paths.size(), five ? 6u : 5u);
        for (std::size_t i = 0; i + 1 < paths.size(); ++i)
            EXPECT_EQ(paths[i], fmt::format("ingress/processor_l3[1]/hash_data{}", i));
        EXPECT_EQ(paths.back(), "ingress/processor_l3[1]/hash_ctl");
        EXPECT_EQ(convertor().descriptor(1)->lastIndex(), 24575u);
        EXPECT_EQ(convertor().descriptor(1)->name(), "sg/demo/SG/1");
        auto const& reads = convertor().hitBitTable(0)->reads();
        ASSERT_EQ(reads.size(), 1u);
        std::set<U32> bits;
        for (auto const& [bit, is] : reads.front().bits) {
            bits.insert(bit);
            EXPECT_EQ(is.lastRead(), 4095u);
        }
        EXPECT_EQ(bits, (std::set<U32>{8, 17, 26, 44, 53, 62}));
    }
}

TEST_F(SGTableTest, ARouteAndAFlowLieInARowOfVersion6) {
    start();
    std::vector<PackedBits> const control{{160, 13, 0x1234}, {174, 2, 2}, {177, 1, 1}, {178, 4, 8}};
    auto const expected = [&](std::vector<PackedBits> bits, U32 dip) {
        bits.insert(bits.end(), control.begin(), control.end());
        bits.push_back({192, 32, dip});
        auto words = packed(8, bits);
        U32 ones = 0;
        for (int i = 0; i < 5; ++i)
            ones += static_cast<U32>(__builtin_popcount(words[static_cast<std::size_t>(i)]));
        words[120 / 32] |= (ones & 1) << 120 % 32;
        return words;
    };
    EXPECT_EQ(vector(row(someRoute, toPorts(0x10000000000005, 11).natSessionIdIs(9).natEnabledIs(true),
                         {0x1234, 2})),
              expected({{0, 15, 0xE1A5C3D7 >> 13},
                        {15, 32, 0xC0A80164},
                        {47, 12, 0xABC},
                        {62, 1, 1},
                        {63, 4, 11},
                        {67, 53, 0x10000000000005},
                        {123, 17, 9},
                        {140, 1, 1}},
                       0xE1A5C3D7));
    EXPECT_EQ(vector(row(someFlow, toLag(0x2B, 0xF5), {0x1234, 2})), expected({{0, 15, 0xB6D3A7C5 >> 13},
                                                                               {15, 32, 0x0A010203},
                                                                               {47, 4, 0xB},
                                                                               {51, 6, 0x2D},
                                                                               {59, 1, 1},
                                                                               {60, 2, 1},
                                                                               {62, 1, 1},
                                                                               {63, 6, 0x35},
                                                                               {69, 6, 0x2B},
                                                                               {121, 2, 2},
                                                                               {123, 17, 0x1A5C3},
                                                                               {140, 1, 1}},
                                                                              0xB6D3A7C5));
}

TEST_F(SGTableTest, BelowVersion6ARowHasTheLookupTypeButNoSession) {
    profile().hwApi = {5, 99};
    start();
    auto const words = row(someFlow, toLag(57, 4), {5, 1});
    auto expected = packed(8, {{0, 15, 0xB6D3A7C5 >> 13},
                               {15, 32, 0x0A010203},
                               {47, 4, 0xB},
                               {51, 6, 0x2D},
                               {59, 1, 1},
                               {60, 2, 1},
                               {62, 1, 1},
                               {63, 6, 4},
                               {69, 6, 57},
                               {128, 13, 5},
                               {142, 2, 1},
                               {145, 1, 1},
                               {146, 4, 8},
                               {160, 32, 0xB6D3A7C5}});
    U32 ones = 0;
    for (std::size_t i = 0; i < 4; ++i)
        ones += static_cast<U32>(__builtin_popcount(expected[i]));
    expected[3] |= (ones & 1) << 24;
    EXPECT_EQ(vector(words), expected);
}

TEST_F(SGTableTest, WithoutTranslationValidStandsWhereTheUnicastFlagIsOtherwise) {
    profile().natProfile = false;
    start();
    EXPECT_FALSE(helper().natProfile());
    auto const words = row(someRoute, toPorts(5, 11).natSessionIdIs(9).natEnabledIs(true));
    auto expected = packed(8, {{0, 15, 0xE1A5C3D7 >> 13},
                               {15, 32, 0xC0A80164},
                               {47, 12, 0xABC},
                               {59, 1, 1},
                               {60, 4, 11},
                               {64, 53, 5},
                               {177, 1, 1},
                               {178, 4, 8},
                               {192, 32, 0xE1A5C3D7}});
    U32 ones = 0;
    for (std::size_t i = 0; i < 5; ++i)
        ones += static_cast<U32>(__builtin_popcount(expected[i]));
    expected[117 / 32] |= (ones & 1) << 117 % 32;
    EXPECT_EQ(vector(words), expected);
    EXPECT_EQ(vector(row(someRoute, toPorts(5, 11), {}, false))[1] >> 27 & 1, 0u);
    table().entryIs(someRoute, toPorts(5, 11));
    holdsAcrossRestart([&] { EXPECT_EQ(table().entry(someRoute), toPorts(5, 11)); });
    EXPECT_DEATH(table().entryIs(someFlow, toLag(1, 1)), "natProfile\\(\\)");
}

TEST_F(SGTableTest, BelowVersion6WithoutTranslationARowIsShortest) {
    profile().hwApi = {5, 99};
    profile().natProfile = false;
    start();
    auto const words = row(someRoute, toPorts(0x10000000000007, 11).natEnabledIs(true), {5, 1});
    auto expected = packed(8, {{0, 15, 0xE1A5C3D7 >> 13},
                               {15, 32, 0xC0A80164},
                               {47, 12, 0xABC},
                               {59, 1, 1},
                               {60, 4, 11},
                               {64, 53, 0x10000000000007},
                               {128, 13, 5},
                               {142, 2, 1},
                               {145, 1, 1},
                               {146, 4, 8},
                               {160, 32, 0xE1A5C3D7}});
    U32 ones = 0;
    for (std::size_t i = 0; i < 4; ++i)
        ones += static_cast<U32>(__builtin_popcount(expected[i]));
    expected[117 / 32] |= (ones & 1) << 117 % 32;
    EXPECT_EQ(vector(words), expected);
    table().entryIs(someRoute, toPorts(7, 11));
    holdsAcrossRestart([&] { EXPECT_EQ(table().entry(someRoute), toPorts(7, 11)); });
}

TEST_F(SGTableTest, AHelperWithoutAProfileKnowsNoRows) {
    auto const unattached = sGTableFactory("unattached");
    SGHelper lone;
    lone.swTableIs(&*unattached);
    EXPECT_DEATH(static_cast<void>(lone.natProfile()), "profile\\(\\)");
    EXPECT_DEATH(static_cast<void>(lone.natResultSupported()), "profile\\(\\)");
}

TEST_F(SGTableTest, OnAChipOf24PortsTheTailFollowsTheShorterPortMask) {
    profile().numPorts = 24;
    start();
    auto expected =
        packed(8, {{15, 32, 1}, {62, 1, 1}, {63, 4, 0}, {67, 25, 0x1000001}, {95, 17, 5}, {112, 1, 1}});
    auto const words =
        row(multicast(1, 0, 0), toPorts(U64{1} << 52 | 1, 0).natSessionIdIs(5).natEnabledIs(true));
    // An odd number of ones, and so the parity bit behind the ports.
    expected[2] |= 1u << 28;
    EXPECT_TRUE(std::equal(words.begin(), words.begin() + 5, expected.begin()))
        << words[2] << " " << words[3];
}

TEST_F(SGTableTest, ControlBits13And16StayAsTheyAre) {
    start();
    Words words{};
    words[5] = 1u << 13 | 1u << 16 | 1u << 22;
    EXPECT_EQ(row(someRoute, toPorts(1), {0x1FFF, 2}, true, words)[5],
              0x1FFFu | 1u << 13 | 2u << 14 | 1u << 16 | 1u << 17 | 8u << 18 | 1u << 22);
}

TEST_F(SGTableTest, TheNullItemHasNoVlanGroupAndIsNotRemembered) {
    start();
    auto const item = Belmo::ptrCast<SGTableCuckooEntry>(helper().nullHashEntry());
    EXPECT_FALSE(item->valid());
    EXPECT_EQ(item->key(), multicast(0, 0, 0));
    EXPECT_EQ(item->result(), toPorts(0, 17));
    EXPECT_EQ(table().cachedItems(), 0u);
    // Of 17 the low four bits are stored: 1, and with it the parity.
    EXPECT_THAT(chip().indirectMemory("ingress/processor_l3[0]/sg").row(0),
                testing::ElementsAre(0, 1u << 31, 0, 1u << 24, 0));
}

TEST_F(SGTableTest, HashesBothKindsInOneSpaceApartByABit) {
    auto const input = [](SGKey const& key) {
        auto const bytes = SGTableCuckooEntry(key).hashInput();
        EXPECT_EQ(bytes.bits, 75);
        std::vector<U32> words;
        for (std::size_t i = 0; i < 3; ++i)
            words.push_back(U32{bytes.bytes[4 * i]} | U32{bytes.bytes[4 * i + 1]} << 8 |
                            U32{bytes.bytes[4 * i + 2]} << 16 | U32{bytes.bytes[4 * i + 3]} << 24);
        return words;
    };
    auto const route = packed(3, {{0, 28, 0xE1A5C3D7}, {28, 32, 0xC0A80164}, {60, 12, 0xABC}});
    auto const flow =
        packed(3, {{0, 28, 0xB6D3A7C5}, {28, 32, 0x0A010203}, {60, 4, 0xB}, {64, 6, 0x2D}, {72, 1, 1}});
    EXPECT_EQ(input(someRoute), route);
    EXPECT_EQ(input(someFlow), flow);
    EXPECT_NE(input(multicast(1, 2, 0)), input(SGKey::unicastKey(address(1), address(2), 0)));
    for (U8 way = 0; way < 3; ++way) {
        EXPECT_EQ(SGTableCuckooEntry(someFlow).getHash(way),
                  NerioSwitch::crc13Hash(reinterpret_cast<U8 const*>(flow.data()), way, 75));
    }
    EXPECT_EQ(SGTableCuckooEntry(someRoute).hwCompareEncoding(),
              U64{0xABC} << 47 | U64{0xC0A80164} << 15 | 0x0D2E);
    EXPECT_EQ(SGTableCuckooEntry(someFlow).hwCompareEncoding(), U64{1} << 59 | U64{0x2D} << 51 |
                                                                    U64{0xB} << 47 | U64{0x0A010203} << 15 |
                                                                    (0xB6D3A7C5 >> 13 & 0x7FFF));
}

/** Entries of both kinds on chips of either version. */
class SGRestartTest : public SGTableTest, public ::testing::WithParamInterface<U16> {};

TEST_P(SGRestartTest, EntriesOfBothKindsSurviveWithoutAWrite) {
    profile().hwApi = {GetParam(), 0};
    start();
    auto const lastVlan = multicast(0x01020304, 0xEFFFFFFF, 4094);
    auto flowBack = toLag(63, 0x3F);
    if (GetParam() < 6) flowBack.natTypeIs(SGNatType::sgNatTypeSnat).natSessionIdIs(0).natEnabledIs(false);
    table().entryIs(someRoute, toPorts((U64{1} << 53) - 1, 15));
    table().entryIs(lastVlan, toPorts(1, 0));
    table().entryIs(someFlow, toLag(63, 0x3F));
    for (int i = 0; i < 2; ++i) {
        takeWrites();
        restart();
        EXPECT_EQ(takeWriteCount(), 0u);
        EXPECT_EQ(table().entries().size(), 3u);
        EXPECT_EQ(table().entry(someRoute), toPorts((U64{1} << 53) - 1, 15));
        EXPECT_EQ(table().entry(lastVlan), toPorts(1, 0));
        EXPECT_EQ(table().entry(someFlow), flowBack);
        EXPECT_TRUE(table().hwInconsistentEntries().empty());
    }
}

INSTANTIATE_TEST_SUITE_P(Versions, SGRestartTest, ::testing::Values(U16{5}, U16{6}),
                         [](auto const& version) { return "Version" + std::to_string(version.param); });

TEST_F(SGTableTest, WhatRowsHaveNoRoomForComesBackCut) {
    start();
    auto const flow = SGKey::unicastKey(address(1), address(2), 0x7F);
    table().entryIs(flow, toLag(1, 0xFF).natSessionIdIs(0x3FFFF).natTypeIs(static_cast<SGNatType>(7)));
    table().entryIs(someRoute, toPorts(1, 17));
    table().entryIs(multicast(1, 2, 3), toPorts(1, 16));
    restart();
    EXPECT_EQ(table().entry(SGKey::unicastKey(address(1), address(2), 0x3F)),
              toLag(1, 0x3F).natSessionIdIs(0x1FFFF).natTypeIs(SGNatType::sgNatTypeReserved));
    EXPECT_FALSE(table().entryHas(flow));
    EXPECT_EQ(table().entry(someRoute), toPorts(1, 1)) << "17 keeps its low 4 bits";
    EXPECT_EQ(table().entry(multicast(1, 2, 3)), toPorts(1, 0));
}

TEST_F(SGTableTest, AKeyAndAResultOfDifferentKindsAreAProgrammingError) {
    start();
    EXPECT_DEATH(table().entryIs(someRoute, toLag(1, 1)), kinds);
    EXPECT_DEATH(table().entryIs(someFlow, toPorts(1)), kinds);
    auto const early = sGTableFactory("early");
    early->entryIs(someRoute, toLag(1, 1));
    EXPECT_TRUE(early->entryHas(someRoute)) << "it is looked at when it is programmed";
    make().entryIs(someRoute, toLag(1, 1));
    EXPECT_DEATH(bringUp(NerioTest::StartMode::cold), kinds);
}

TEST_F(SGTableTest, ARowWithVlan4095Throws) {
    start();
    auto words = row(someRoute, toPorts(1));
    words[1] |= 0xFFFu << 15;
    store(7, words);
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { decoded(7); }), badVlan);
}

TEST_F(SGTableTest, ARowThatContradictsItsShadowIsMarkedAndReturned) {
    start();
    auto words = row(someRoute, toPorts(1));
    words[0] ^= 1;
    store(7, words);
    EXPECT_EQ(decoded(7)->key(), someRoute);
    EXPECT_TRUE(table().hwInconsistentEntry(someRoute));
    table().hwInconsistentEntryDelAll();
    words[0] ^= 1;
    store(7, words);
    decoded(7);
    EXPECT_FALSE(table().hwInconsistentEntry(someRoute));
    words[2] ^= 2;
    shadow(1).store(7, std::span(words).first<7>());
    decoded(7);
    EXPECT_TRUE(table().hwInconsistentEntry(someRoute)) << "the copies differ";
}

TEST_F(SGTableTest, HitsOfAllWaysReachTheirKeys) {
    start();
    std::map<NerioSwitchApi::HwIndex, SGKey> keys;
    for (U32 i = 0; i < 20000; ++i)
        table().entryIs(multicast(i * 0x10001, 0xE1000000 + i, 5), toPorts(i));
    for (U32 i = 0; i < 20000; i += 499) {
        auto const key = multicast(i * 0x10001, 0xE1000000 + i, 5);
        keys.emplace(rowOf(key), key);
    }
    std::set<NerioSwitchApi::HwIndex> ways;
    for (auto const& [index, key] : keys) {
        chip().indirectMemory("ingress/processor_l3[1]/sg").hitIs(index);
        ways.insert(index / 8192);
    }
    EXPECT_EQ(ways.size(), 3u);
    EXPECT_EQ(poll(4.5), keys.size());
    std::size_t hit = 0;
    for (auto const& status : table().tableStatus()->entryStatuses())
        hit += status.lastHit().isNever() ? 0 : 1;
    EXPECT_EQ(hit, keys.size());
    for (auto const& [index, key] : keys)
        EXPECT_EQ(table().tableStatus()->entryStatus(key).lastHit(), Belmo::Duration(4.5));
}

TEST_F(SGTableTest, TracesWhatItIsAskedFor) {
    start();
    NerioTest::TraceCapture const trace("NerioTableSG", 8);
    table().entryIs(someRoute, toPorts(5));
    EXPECT_THAT(trace.lines(),
                testing::Contains(testing::AllOf(testing::HasSubstr(someRoute.stringValue()),
                                                 testing::HasSubstr(toPorts(5).resultString()))));
    EXPECT_THAT(trace.lines(), testing::Contains(testing::StartsWith("SGTable: Programming Entry ")));
    auto const item = decoded(rowOf(someRoute));
    EXPECT_EQ(trace.lines().back(), "Decoded valid entry is " + item->toStrep());
}

TEST_F(SGTableTest, PublishesItsItemsOnce) {
    start();
    EXPECT_EQ(table().hashItem(someRoute), nullptr);
    auto const item = table().createHashItem(someRoute);
    EXPECT_EQ(table().hashItemIs(someRoute), item);
    EXPECT_EQ(table().hashItem(someRoute), item);
    table().hashItemDel(someRoute);
    EXPECT_EQ(table().hashItem(someRoute), nullptr);
    table().createHashItem(someFlow);
    table().hashItemDelAll();
    EXPECT_EQ(table().cachedItems(), 0u);
}

TEST(SGValueTest, TextsAreAsTheyAlwaysWere) {
    EXPECT_EQ(someRoute.stringValue(), "MC: s = 192.168.1.100, g = 225.165.195.215, vlanId = 2748");
    EXPECT_EQ(someFlow.stringValue(), "UC: sip = 10.1.2.3, dip = 182.211.167.197, ingressProfileId = 45");
    EXPECT_EQ(toPorts(0xABC, 11).natTypeIs(SGNatType::sgNatTypeDnat).resultString(),
              "MC: vlanGroupId: 11 portMask: 0xABC natType: 1 natSessionId: 0 natEnabled: 0");
    EXPECT_EQ(toLag(43, 5).resultString(),
              "UC: l3LagIndex: 43 rewriteIndex: 5 natType: 2 natSessionId: 107971 natEnabled: 1");
    auto const item = SGTableCuckooEntryIs(someFlow);
    EXPECT_TRUE(item->toStrep().starts_with("SGTableCuckooEntry( ")) << item->toStrep();
}

TEST(SGValueTest, KeysAndResultsHaveTheirDefaults) {
    EXPECT_TRUE(SGKey().isMulticastKey());
    EXPECT_FALSE(SGKey().isUnicastKey());
    EXPECT_TRUE(SGResult().isMulticastResult());
    EXPECT_FALSE(SGResult().isUnicastResult());
    EXPECT_EQ(SGResult().data().multicast().vlanGroupId().value(), 17);
    EXPECT_EQ(SGResult::Unicast().l3LagIndex().value(), 57);
    EXPECT_TRUE(SGEntryStatus().lastHit().isNever());
    EXPECT_LT(SGKey(multicast(1, 2, 3)), SGKey::unicastKey(address(1), address(2), 0));
    EXPECT_NE(SGKey(multicast(1, 2, 0)).hash(0), SGKey::unicastKey(address(1), address(2), 0).hash(0));
}

TEST(SGValueTest, AMulticastKeyIsARouteAndAUnicastOneIsNot) {
    MrouteKey const route({address(0x0A000000), 8}, {address(0xE1000001), 32}, 7);
    EXPECT_EQ(SGKey::multicastKey(route).mrouteKey(),
              MrouteKey({address(0x0A000000), 32}, {address(0xE1000001), 32}, 7));
    auto const text = failureOf<Belmo::RangeException>([] { static_cast<void>(someFlow.mrouteKey()); });
    EXPECT_TRUE(text.starts_with("bad union")) << text;
    EXPECT_NE(failureOf<Belmo::RangeException>([] { static_cast<void>(someRoute.data().unicast()); }), "");
    EXPECT_NE(failureOf<Belmo::RangeException>([] { static_cast<void>(SGResult().data().unicast()); }), "");
}

TEST(SGValueTest, KindsReadBackFromTheirTextAndUnknownOnesAreRefused) {
    for (auto const& key : {someRoute, someFlow}) {
        auto const text = Sorn::text(key);
        Sorn::CharRange range(text);
        EXPECT_EQ(Sorn::parse<SGKey>(range), key) << text;
    }
    EXPECT_TRUE(Sorn::text(someRoute.data()).starts_with("multicast"));
    EXPECT_TRUE(Sorn::text(someFlow.data()).starts_with("unicast"));
    EXPECT_EQ(failureOf<Belmo::RangeException>([] {
                  Sorn::CharRange range("anycast:7");
                  SGKey::Data::fromText(range);
              }),
              "Invalid string rep for Data: unknown alternative anycast");
}

TEST(SGValueTest, EnumeratorsHaveNumbersAndNames) {
    EXPECT_EQ(SGEntryTypeInstance(1u), SGEntryType::sgEntryTypeFilteredSnat);
    EXPECT_EQ(SGEntryTypeInstance("sgEntryTypeFilteredDnat"), static_cast<SGEntryType>(2));
    EXPECT_EQ(SGNatTypeInstance(3u), SGNatType::sgNatTypeReserved);
    EXPECT_EQ(SGNatTypeInstance("sgNatTypeTnat"), static_cast<SGNatType>(2));
    EXPECT_EQ(SGLookupTypeInstance(1u), SGLookupType::sgLookupTypeReserved);
    EXPECT_EQ(SGLookupTypeInstance("sgLookupTypeL3OrDynNat"), static_cast<SGLookupType>(0));
    EXPECT_EQ(stringValue(SGEntryType::sgEntryTypeNatOrSg), "sgEntryTypeNatOrSg");
    EXPECT_EQ(stringValue(SGNatType::sgNatTypeDnat), "sgNatTypeDnat");
    EXPECT_EQ(stringValue(SGLookupType::sgLookupTypeReserved), "sgLookupTypeReserved");
    EXPECT_THROW(SGNatTypeInstance(4u), Belmo::RangeException);
    EXPECT_THROW(SGEntryTypeInstance("no"), Belmo::RangeException);
    SGNatType type{};
    Sorn::CharRange range("sgNatTypeDnat,");
    sequenceToValue(range, type);
    EXPECT_EQ(type, SGNatType::sgNatTypeDnat);
    EXPECT_EQ(range.rest(), ",");
}

}  // namespace
