// Next hops of flooded packets: what is written into packets, and their ports.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FailureText.h"
#include "NerioSwitchTable/NerioTableL3FloodArp.h"
#include "NerioSwitchTable/NerioTableL3FloodBitmap.h"
#include "SwitchFixture.h"
#include "TraceCapture.h"
#include "chip/MulticastLookup.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::IngressPortMask;
using NerioSwitch::L3FloodId;

constexpr char const* badFloodId =
    "NerioSwitch::L3FloodId::value < NerioSwitch::L3FloodId::min or > NerioSwitch::L3FloodId::null not "
    "allowed";

L3FloodArpResult rewriteTo(std::array<U8, 6> const& bytes, U16 vlan) {
    return L3FloodArpResult().ethAddrIs(Lanvo::EthAddr(bytes)).vlanIdIs(vlan);
}

TEST(L3FloodIdTest, RangesTo160) {
    EXPECT_EQ(L3FloodId(160).value(), 160);
    EXPECT_EQ(L3FloodId().value(), 160);
    EXPECT_EQ(failureOf<Belmo::RangeException>([] { L3FloodId{161}; }), badFloodId);
}

class L3FloodArpTest : public NerioTest::TableFixture<L3FloodArpTable> {
protected:
    L3FloodArpTest() : TableFixture([] { return l3FloodArpTableFactory("arp"); }) {}

    L3FloodArpConvertor& arp() { return static_cast<L3FloodArpConvertor&>(convertor()); }
};

L3FloodArpResult const someRewrite = rewriteTo({0x00, 0x1C, 0x73, 0xA1, 0xB2, 0xC3}, 0xABD);

TEST_F(L3FloodArpTest, ARowIsTwoLinesInTwoBanks) {
    start();
    takeWrites();
    table().entryIs(0, someRewrite);
    auto const writes = takeWrites();
    ASSERT_EQ(writes.size(), 16u);
    U32 const even = 0x001C73A1;
    U32 const odd = 0xB2C30ABD;
    U32 const evenParity = static_cast<U32>(__builtin_parity(even)) << 3;
    U32 const oddParity = static_cast<U32>(__builtin_parity(odd)) << 3;
    EXPECT_NE(evenParity, oddParity) << "both kinds are looked at";
    U32 const strobe = 1u << 14;
    std::vector<U32> const words{even, 128u << 4 | strobe | evenParity, even, 640u << 4 | strobe | evenParity,
                                 odd,  129u << 4 | strobe | oddParity,  odd,  641u << 4 | strobe | oddParity};
    for (U32 i = 0; i < 16; ++i) {
        EXPECT_EQ(writes[i].first, fmt::format("egress/processor[{}]/{}", i / 8,
                                               i % 2 == 0 ? "lum_data" : "lum_ctl_addr_data"));
        EXPECT_EQ(writes[i].second, words[i % 8]) << i;
    }
    std::array<U32, 8> buffer{};
    arp().setStaticBuffer(5, reinterpret_cast<U8*>(buffer.data()));
    EXPECT_THAT(buffer, testing::ElementsAre(0, 138u << 4 | strobe, 0, 650u << 4 | strobe, 0,
                                             139u << 4 | strobe, 0, 651u << 4 | strobe));
    buffer = {0, 1u << 15, 0, 0, 0, 0, 0, 0};
    arp().setStaticBuffer(5, reinterpret_cast<U8*>(buffer.data()));
    EXPECT_EQ(buffer[1] >> 15, 1u) << "bit 15 stays as it is";
}

TEST_F(L3FloodArpTest, HasItsConstants) {
    start();
    EXPECT_EQ(arp().entriesPerPort(), 0u);
    EXPECT_EQ(arp().dataWords(), 8);
    EXPECT_EQ(arp().readStrobeBit(), 14);
    EXPECT_EQ(arp().writeStrobeBit(), 15);
    for (U8 word = 0; word < 8; ++word)
        EXPECT_EQ(arp().hwStaticWord(word), word % 2 == 0 ? 0u : 0xFFFFFFF0u);
    ASSERT_EQ(convertor().hwTables().size(), 2u);
    EXPECT_EQ(convertor().descriptor(1)->name(), "arp/demo/L3FloodArp/1");
    EXPECT_EQ(convertor().descriptor(1)->lastIndex(), 127u);
    EXPECT_EQ(arp().keyFromHwIndex(160).value(), 160);
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { static_cast<void>(arp().keyFromHwIndex(161)); }),
              badFloodId);
    EXPECT_EQ(L3FloodArpResult().vlanId().value(), 0);
    EXPECT_EQ(L3FloodArpEntryIs(3)->toStrep(),
              "L3FloodArpEntry( 3 " + L3FloodArpResult().resultString() + " )");
    EXPECT_EQ(L3FloodArpResult().resultString(), Sorn::text(L3FloodArpResult()));
}

TEST_F(L3FloodArpTest, RowsAreAsManyAsTheProfileSupports) {
    profile().supportedEntries["floodSet"] = 0;
    make();
    EXPECT_DEATH(bringUp(NerioTest::StartMode::cold), "numSupportedEntriesFromProfile");
    profile().supportedEntries.clear();
    make();
    EXPECT_DEATH(bringUp(NerioTest::StartMode::cold), "numSupportedEntriesFromProfile");
    profile().supportedEntries["floodSet"] = 40;
    make();
    bringUp(NerioTest::StartMode::cold);
    EXPECT_EQ(convertor().descriptor(0)->lastIndex(), 39u);
    table().entryIs(39, someRewrite);
    EXPECT_THROW(table().entryIs(40, someRewrite), Belmo::RangeException);
    EXPECT_FALSE(table().entryHas(40));
}

TEST_F(L3FloodArpTest, TracesTheSupportedCountAndWhatItDecodes) {
    NerioTest::TraceCapture const trace("NerioTableL3FloodArp", 7);
    start();
    EXPECT_THAT(trace.lines(), testing::ElementsAre("Num supported flood nexthops = 128"));
    table().entryIs(7, someRewrite);
    auto const item = arp().decodeHwEntry(7);
    EXPECT_EQ(trace.lines().back(), "Decoded entry is " + item->toStrep());
}

TEST_F(L3FloodArpTest, SurvivesARestartButForARowOfZeros) {
    start();
    table().entryIs(0, someRewrite);
    table().entryIs(127, rewriteTo({0, 0, 0, 0, 0, 0}, 4094));
    table().entryIs(5, rewriteTo({0, 0, 0, 0, 0, 1}, 0));
    table().entryIs(6, L3FloodArpResult());
    takeWrites();
    restart();
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(table().entries().size(), 3u);
    EXPECT_EQ(table().entry(0), someRewrite);
    EXPECT_EQ(table().entry(127), rewriteTo({0, 0, 0, 0, 0, 0}, 4094));
    EXPECT_EQ(table().entry(5), rewriteTo({0, 0, 0, 0, 0, 1}, 0));
    EXPECT_FALSE(table().entryHas(6));
}

TEST_F(L3FloodArpTest, ARowWithVlan4095ThrowsAndCopiesThatDifferMarkEvenAnEmptyOne) {
    start();
    std::array<U32, 8> words{};
    words[4] = 0x0FFF;
    shadow(0).store(9, words);
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { arp().decodeHwEntry(9); }),
              "Bridging::VlanIdOrNone::value > 4094 not allowed");
    words[4] = 0;
    words[6] = 1;
    shadow(0).store(9, words);
    EXPECT_FALSE(arp().decodeHwEntry(9)->valid());
    EXPECT_TRUE(table().hwInconsistentEntry(9));
}

TEST_F(L3FloodArpTest, TheChipWritesItIntoPacketsOfEitherPort) {
    start();
    table().entryIs(127, someRewrite);
    Chip::FloodLookup const lookup(chip(), profile());
    for (U32 const port : {0u, 1u}) {
        EXPECT_EQ(lookup.rewrite(127, 1, port), (Chip::FloodRewrite{0x001C73A1B2C3, 0xABD}));
        EXPECT_EQ(lookup.rewrite(126, 1, port), Chip::FloodRewrite());
    }
    chip().write(chip().address("egress/processor[1]/lum_data"), 0xB2C30ABC);
    chip().write(chip().address("egress/processor[1]/lum_ctl_addr_data"), (129u + 2 * 127) << 4 | 1u << 14);
    EXPECT_TRUE(lookup.rewrite(127, 1, 1).has_value());
    EXPECT_EQ(lookup.rewrite(127, 1, 0).has_value(), __builtin_parity(0xB2C30ABC) == 0) << "wrong parity";
}

class L3FloodBitmapTest : public NerioTest::TableFixture<L3FloodBitmapTable> {
protected:
    L3FloodBitmapTest() : TableFixture([this] { return l3FloodBitmapTableFactory("floods", ecmp); }) {}

    L3FloodBitmapConvertor& bitmap() { return static_cast<L3FloodBitmapConvertor&>(convertor()); }
    U32 used(std::size_t counter) { return gauges()[counter]->used(); }
    static L3FloodBitmapResult ports(U64 mask) { return L3FloodBitmapResult().portMaskIs(mask); }

    U32 ecmp = 8;
};

TEST_F(L3FloodBitmapTest, ARowHasThePortsAndTheirParity) {
    start();
    for (U64 const mask : {U64{0x8000000000005}, U64{1}, (U64{1} << 52) - 1}) {
        takeWrites();
        table().entryIs(0x51, ports(mask));
        auto const writes = takeWrites();
        ASSERT_EQ(writes.size(), 6u);
        U64 const expected = mask | U64{static_cast<U32>(__builtin_parityll(mask))} << 52;
        for (U32 copy = 0; copy < 2; ++copy) {
            auto const prefix = fmt::format("ingress/processor_l3[{}]/", copy);
            EXPECT_EQ(writes[std::size_t{3} * copy],
                      std::pair(prefix + "hash_data0", static_cast<U32>(expected)));
            EXPECT_EQ(writes[3 * copy + 1],
                      std::pair(prefix + "hash_data1", static_cast<U32>(expected >> 32)));
            EXPECT_EQ(writes[3 * copy + 2], std::pair(prefix + "hash_ctl", 0x51u | 1u << 17 | 10u << 18));
        }
    }
    std::array<U32, 8> buffer{0, 0, 1u << 16 | 1u << 22, 0, 0, 0, 0, 0};
    bitmap().setStaticBuffer(0x51, reinterpret_cast<U8*>(buffer.data()));
    EXPECT_EQ(buffer[2], 0x51u | 1u << 16 | 1u << 17 | 10u << 18 | 1u << 22);
    Chip::FloodLookup const lookup(chip(), profile());
    EXPECT_EQ(lookup.ports(0x51, 1), (U64{1} << 52) - 1);
    EXPECT_EQ(lookup.ports(0x50), 0u);
}

TEST_F(L3FloodBitmapTest, OnAChipOf24PortsTheParityStandsAtBit24) {
    profile().numPorts = 24;
    start();
    table().entryIs(3, ports(IngressPortMask::cpu | U64{1} << 30 | 1));
    EXPECT_EQ(shadowWords(3).at(0), 1u << 24 | 1);
    EXPECT_EQ(shadowWords(3).at(1), 0u);
    EXPECT_EQ(Chip::FloodLookup(chip(), profile()).ports(3), 1u);
}

TEST_F(L3FloodBitmapTest, HasItsConstants) {
    start();
    EXPECT_TRUE(table().hwTablesDuplicate());
    EXPECT_EQ(table().numFloodsForEcmp(), 8u);
    EXPECT_EQ(bitmap().numFloodsForEcmp(), 8u);
    EXPECT_EQ(bitmap().dataWords(), 3);
    EXPECT_EQ(bitmap().readStrobeBit(), 16);
    EXPECT_EQ(bitmap().writeStrobeBit(), 17);
    EXPECT_EQ(bitmap().hwStaticWord(2), 0xFFFFFFFFu);
    EXPECT_EQ(convertor().descriptor(1)->name(), "floods/demo/L3FloodBitmap/1");
    EXPECT_EQ(bitmap().keyFromHwIndex(160).value(), 160);
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { static_cast<void>(bitmap().keyFromHwIndex(161)); }),
              badFloodId);
    EXPECT_EQ(ports(0x10000000000003).resultString(), "portMask:0x10000000000003");
    EXPECT_EQ(ports(3).resultString(), "portMask:0x000000000003");
    EXPECT_EQ(L3FloodBitmapEntryIs(3)->toStrep(), "L3FloodBitmapEntry( 3 portMask:0x000000000000 )");
}

TEST_F(L3FloodBitmapTest, Of128RowsWith8ForPathsKey7CountsAsAPathAndKey8AsANextHop) {
    start();
    ASSERT_EQ(gauges().size(), 2u);
    EXPECT_EQ(gauges()[0]->key(), TableGauge::TableKey("L3 flood bitmap", "Nexthop", "floods"));
    EXPECT_EQ(gauges()[0]->capacity(), 120u);
    EXPECT_EQ(gauges()[0]->index(), 0u);
    EXPECT_EQ(gauges()[1]->key(), TableGauge::TableKey("L3 flood bitmap", "ECMP", "floods"));
    EXPECT_EQ(gauges()[1]->capacity(), 8u);
    EXPECT_EQ(gauges()[1]->index(), 1u);
    EXPECT_EQ(bitmap().capacityEntryForFloodNh(), gauges()[0]->key());
    EXPECT_EQ(bitmap().capacityEntryForEcmpPath(), gauges()[1]->key());
    EXPECT_EQ(bitmap().capacityIndexFromEntry(L3FloodBitmapEntryIs(7)), 1u);
    EXPECT_EQ(bitmap().capacityIndexFromEntry(L3FloodBitmapEntryIs(8)), 0u);
    table().entryIs(7, ports(1));
    EXPECT_EQ(used(0), 0u);
    EXPECT_EQ(used(1), 1u);
    table().entryIs(8, ports(1));
    EXPECT_EQ(used(0), 1u);
    restart();
    EXPECT_EQ(used(0), 1u);
    EXPECT_EQ(used(1), 1u);
    table().entryDel(7);
    EXPECT_EQ(used(1), 0u);
}

TEST_F(L3FloodBitmapTest, TracesTheSupportedCount) {
    NerioTest::TraceCapture const trace("NerioTableL3FloodBitmap", 3);
    start();
    EXPECT_THAT(trace.lines(), testing::ElementsAre("Num supported flood nexthops = 128"));
}

TEST_F(L3FloodBitmapTest, ACountOf0LeavesTheSizeAndMakesNoCounter) {
    profile().supportedEntries["floodSet"] = 0;
    start();
    EXPECT_EQ(bitmap().tableSize(), 128u);
    EXPECT_TRUE(gauges().empty());
    EXPECT_EQ(bitmap().capacityEntryForFloodNh(), std::nullopt);
    EXPECT_EQ(bitmap().capacityEntryForEcmpPath(), std::nullopt);
    table().entryIs(127, ports(1));
}

TEST_F(L3FloodBitmapTest, PathsMayTakeAllRowsButOneOrNone) {
    ecmp = 127;
    start();
    EXPECT_EQ(gauges()[0]->capacity(), 1u);
    EXPECT_EQ(gauges()[1]->capacity(), 127u);
    EXPECT_EQ(bitmap().capacityIndexFromEntry(L3FloodBitmapEntryIs(126)), 1u);
    EXPECT_EQ(bitmap().capacityIndexFromEntry(L3FloodBitmapEntryIs(127)), 0u);
    ecmp = 0;
    restart();
    EXPECT_EQ(gauges()[0]->capacity(), 128u);
    EXPECT_EQ(bitmap().capacityIndexFromEntry(L3FloodBitmapEntryIs(0)), 0u);
    ecmp = 129;
    make();
    EXPECT_DEATH(bringUp(NerioTest::StartMode::warm), "tableSize\\(\\) > numFloodsForEcmp\\(\\)");
}

TEST_F(L3FloodBitmapTest, ACountThatIsMissingOrLeavesNoRowToNextHopsIsAProgrammingError) {
    ecmp = 128;
    make();
    EXPECT_DEATH(bringUp(NerioTest::StartMode::cold), "tableSize\\(\\) > numFloodsForEcmp\\(\\)");
    profile().supportedEntries.clear();
    make();
    EXPECT_DEATH(bringUp(NerioTest::StartMode::cold), "numSupportedEntriesFromProfile");
}

TEST_F(L3FloodBitmapTest, TheCountComesAfterTheRowsWhichAreAlways128) {
    profile().supportedEntries["floodSet"] = 160;
    start();
    EXPECT_EQ(bitmap().tableSize(), 160u);
    EXPECT_EQ(convertor().descriptor(0)->lastIndex(), 127u);
    EXPECT_EQ(gauges()[0]->capacity(), 152u);
    EXPECT_THROW(table().entryIs(128, ports(1)), Belmo::RangeException);
    EXPECT_FALSE(table().entryHas(128));
    profile().supportedEntries["floodSet"] = 10;
    restart();
    EXPECT_EQ(gauges()[0]->capacity(), 2u);
    for (U32 key = 8; key < 128; ++key)
        table().entryIs(key, ports(1));
    EXPECT_EQ(used(0), 2u) << "rows beyond the count are there, and are not counted";
}

TEST_F(L3FloodBitmapTest, TheCpuAndAMaskOfNoPortsDoNotComeBack) {
    start();
    table().entryIs(3, ports(IngressPortMask::cpu | 5));
    table().entryIs(4, ports(IngressPortMask::cpu));
    table().entryIs(5, ports(0));
    takeWrites();
    restart();
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(table().entries().size(), 1u);
    EXPECT_EQ(table().entry(3), ports(5));
}

}  // namespace
