#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include "NatFixture.h"
#include "TraceCapture.h"

namespace {

using namespace NerioSwitchTable;
using NerioTest::ip;
using NerioTest::packed;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::SizeIs;

class NatRewriteTest : public NerioTest::NatFixture<NatRewriteTable> {
protected:
    NatRewriteTest() : NatFixture(natRewriteTableFactory) {}

    static NatRewriteResult result() {
        return NatRewriteResult()
            .validIs(true)
            .newIpIs(ip(192, 0, 2, 129))
            .newPortIs(0xBEEF)
            .checksumCorrectionIs(0x1234);
    }
    static NatRewriteKey unicastKey() {
        return NatRewriteKey().isUnicastIs(true).natSessionIdIs(0x1ABCD).natProfileIdIs(0x2B);
    }
    static NatRewriteKey multicastKey() {
        return NatRewriteKey().natSessionIdIs(0x1ABCD).vlanGroupIdIs(11).vlanGroupMemberIdxIs(5).oddPortIs(
            true);
    }
    static U32 encoding(NatRewriteKey const& key) {
        return NatRewriteTableCuckooEntry(key).hwCompareEncoding();
    }
    /** The 25 bits that the chip hashes. */
    static U32 inputWord(NatRewriteKey const& key) {
        auto const input = NatRewriteTableCuckooEntry(key).hashInput();
        EXPECT_EQ(input.bits, 25);
        U32 word = 0;
        std::memcpy(&word, input.bytes.data(), 4);
        return word;
    }
};

TEST_F(NatRewriteTest, HasAStatusAndAGaugeOfItsPipelineAndNoHitBits) {
    startTable(1);
    EXPECT_TRUE(table().statusSupported());
    EXPECT_FALSE(table().hitBitsSupported());
    EXPECT_TRUE(table().hwTablesDuplicate());
    EXPECT_TRUE(convertor().hitBitTables().empty());
    ASSERT_EQ(gauges().size(), 1u);
    EXPECT_EQ(gauges().front()->key(), TableGauge::TableKey("NAT rewrite", "EgressPipe1", "nat"));
    EXPECT_EQ(gauges().front()->capacity(), 4096u);
    table().entryIs(unicastKey(), result());
    EXPECT_EQ(gauges().front()->used(), 1u);
}

TEST_F(NatRewriteTest, ItsGeometryIsFixed) {
    startTable(1);
    auto const properties =
        Belmo::ptrCast<NatRewritePhysicalHashProperties>(table().helper()->doGetPhysTableProperties());
    ASSERT_NE(properties, nullptr);
    EXPECT_EQ(properties->tableId(), 10u);
    EXPECT_EQ(table().swTableId(), 10u);
    EXPECT_EQ(NatRewriteTableIs("other", 0)->swTableId(), 9u);
    EXPECT_EQ(properties->tableSize(), 1024u);
    EXPECT_EQ(properties->hashBits(), 10u);
    EXPECT_EQ(properties->numHashTables(), 4u);
    EXPECT_EQ(properties->rowSlots(), 1u);
    EXPECT_EQ(properties->entryWords(), 5);
    EXPECT_EQ(properties->hitBitsSupported(), 0);
    EXPECT_EQ(properties->placementFlag(), 1);
    auto const& helper = static_cast<NatRewriteHelper const&>(*table().helper());
    EXPECT_EQ(helper.compareWidth(), 15u);
    EXPECT_EQ(helper.tableIdx(), 9);
}

TEST_F(NatRewriteTest, EachPipelineHasATableAtItsEgressProcessor) {
    for (U8 const pipeline : {U8{0}, U8{1}}) {
        startTable(pipeline);
        EXPECT_THAT(convertor().descriptors(), SizeIs(1));
        EXPECT_EQ(convertor().descriptor(0)->name(), "nat/demo/NatRewrite/" + std::to_string(pipeline));
        EXPECT_EQ(convertor().descriptor(0)->lastIndex(), 4095u);
        takeWrites();
        table().entryIs(unicastKey(), result());
        auto const prefix = "egress/processor[" + std::to_string(pipeline) + "]/nat_lum_hash_";
        U32 const hash = table().cachedItem(unicastKey())->getHash(0);
        auto const words = shadowWords(hash);
        EXPECT_THAT(takeWrites(),
                    ElementsAre(Pair(prefix + "data0", words[0]), Pair(prefix + "data1", words[1]),
                                Pair(prefix + "data2", words[2]), Pair(prefix + "ctl", 1u << 13 | hash)));
        EXPECT_THAT(words, SizeIs(5));
    }
}

TEST_F(NatRewriteTest, TheControlWordIsNoContent) {
    start();
    for (U8 word = 0; word < 8; ++word)
        EXPECT_EQ(convertor().hwStaticWord(word), word == 3 ? 0xFFFFFFFFu : 0u);
    EXPECT_EQ(convertor().readStrobeBit(), 12);
    EXPECT_EQ(convertor().writeStrobeBit(), 13);
    convertor().hwStaticWordDel(3);
    convertor().handleInitialized();
    EXPECT_EQ(convertor().hwStaticWord(3), 0xFFFFFFFFu);
}

TEST_F(NatRewriteTest, RowsByTheirBits) {
    start();
    EXPECT_EQ(row(unicastKey().secondTnatIs(true), result(), {0x2BC, 3}), packed(8, {{0, 7, 0x1ABCD >> 10},
                                                                                     {7, 6, 0x2B},
                                                                                     {13, 1, 1},
                                                                                     {14, 1, 0},
                                                                                     {15, 1, 1},
                                                                                     {16, 16, 0xBEEF},
                                                                                     {32, 16, 0x1234},
                                                                                     {48, 32, 0xC0000281},
                                                                                     {80, 1, 1},
                                                                                     {96, 10, 0x2BC},
                                                                                     {106, 2, 3},
                                                                                     {109, 1, 1},
                                                                                     {128, 17, 0x1ABCD},
                                                                                     {145, 1, 1}}));
    EXPECT_EQ(row(multicastKey(), result(), {1, 0}), packed(8, {{0, 7, 0x1ABCD >> 10},
                                                                {7, 4, 11},
                                                                {11, 3, 5},
                                                                {14, 1, 1},
                                                                {15, 1, 1},
                                                                {16, 16, 0xBEEF},
                                                                {32, 16, 0x1234},
                                                                {48, 32, 0xC0000281},
                                                                {80, 1, 0},
                                                                {96, 10, 1},
                                                                {109, 1, 1},
                                                                {128, 17, 0x1ABCD}}));
}

TEST_F(NatRewriteTest, TheParityOfTheDataIsEven) {
    start();
    for (U32 i = 0; i < 300; ++i) {
        auto const words = row(unicastKey().natSessionIdIs(i * 431 % 0x20000),
                               result().newPortIs(static_cast<U16>(i * 7919)));
        EXPECT_EQ(__builtin_parity(words[0] ^ words[1] ^ words[2]), 0);
        EXPECT_EQ(words[2] >> 17, 0u);
    }
}

TEST_F(NatRewriteTest, TheControlWordClearsOneBitBehindIt) {
    start();
    Words ones{};
    ones.fill(0xFFFFFFFF);
    table().helper()->setStaticBuffer({5, 1}, reinterpret_cast<U8*>(ones.data()));
    EXPECT_EQ(ones[2], 0xFFFFFFFFu);
    EXPECT_EQ(ones[3], 1u << 13 | 1u << 10 | 5);
    EXPECT_EQ(ones[4], 0xFFFFFFFEu);
    EXPECT_EQ(row(unicastKey().natSessionIdIs(1), result())[4], 1u | 1u << 17) << "but no session loses it";
}

TEST_F(NatRewriteTest, AKeyIsHashedOver25BitsInBothForms) {
    EXPECT_EQ(inputWord(unicastKey().secondTnatIs(true)), 0x1ABCDu | 0x2Bu << 17 | 1u << 23);
    EXPECT_EQ(inputWord(unicastKey().oddPortIs(true)), 0x1ABCDu | 0x2Bu << 17 | 1u << 24);
    EXPECT_EQ(inputWord(multicastKey()), 0x1ABCDu | 11u << 17 | 5u << 21 | 1u << 24);
    U32 const word = inputWord(multicastKey());
    auto const* const bytes = reinterpret_cast<U8 const*>(&word);
    for (U8 way = 0; way < 4; ++way)
        EXPECT_EQ(NatRewriteTableCuckooEntry(multicastKey()).getHash(way),
                  NerioSwitch::crc10Hash(bytes, way, 25));
}

TEST_F(NatRewriteTest, TheOtherFormsAttributesTakeNoPart) {
    start();
    auto const unicast = unicastKey().vlanGroupIdIs(3).vlanGroupMemberIdxIs(2);
    EXPECT_EQ(inputWord(unicast), inputWord(unicastKey()));
    EXPECT_EQ(row(unicast, result()), row(unicastKey(), result()));
    EXPECT_NE(unicast, unicastKey());
    EXPECT_FALSE(itemOf(unicast)->isEqual(itemOf(unicastKey())));
    EXPECT_TRUE(itemOf(unicastKey())->isEqual(itemOf(unicastKey())));
    auto const multicast = multicastKey().natProfileIdIs(3).secondTnatIs(true);
    EXPECT_EQ(inputWord(multicast), inputWord(multicastKey()));
    EXPECT_EQ(row(multicast, result()), row(multicastKey(), result()));
}

TEST_F(NatRewriteTest, TheCompareEncodingLeavesTheLowBitsOfASessionOut) {
    EXPECT_EQ(encoding(unicastKey()), 0x1ABCDu >> 10 | 0x2Bu << 7);
    EXPECT_EQ(encoding(unicastKey().secondTnatIs(true).oddPortIs(true)),
              0x1ABCDu >> 10 | 0x2Bu << 7 | 1u << 13 | 1u << 14);
    EXPECT_EQ(encoding(multicastKey()), 0x1ABCDu >> 10 | 11u << 7 | 5u << 11 | 1u << 14);
    EXPECT_EQ(encoding(unicastKey().natSessionIdIs(0x3FF)), 0x2Bu << 7);
    EXPECT_EQ(encoding(unicastKey().natSessionIdIs(0x1FFFF)), 0x7Fu | 0x2Bu << 7);
}

TEST_F(NatRewriteTest, NumbersBeyondTheirPlacesSpillIntoTheCompareEncodingAndAreCutInTheHash) {
    auto const plain = NatRewriteKey().natSessionIdIs(0);
    auto const group = [&](U32 id, U32 member) {
        return NatRewriteKey(plain).vlanGroupIdIs(id).vlanGroupMemberIdxIs(member);
    };
    EXPECT_EQ(encoding(group(17, 0)), 17u << 7);
    EXPECT_EQ(encoding(group(16, 0)), encoding(group(0, 1))) << "the fifth bit is a member's first";
    EXPECT_EQ(inputWord(group(16, 0)), inputWord(group(0, 0)));
    EXPECT_EQ(inputWord(group(17, 0)), inputWord(group(1, 0)));
    EXPECT_EQ(encoding(group(0, 8)), 1u << 14) << "the odd port's bit";
    EXPECT_EQ(encoding(group(0, 255)), 15u << 11) << "and the rest is cut";
    EXPECT_EQ(inputWord(group(0, 8)), inputWord(group(0, 0)));
    auto const profile = NatRewriteKey(plain).isUnicastIs(true).natProfileIdIs(64);
    EXPECT_EQ(encoding(profile), 1u << 13) << "the second translation's bit";
    EXPECT_EQ(inputWord(profile), 0u);
}

TEST_F(NatRewriteTest, ANullEntryIsAUnicastKeyOfNoSession) {
    start();
    auto const null = Belmo::ptrCast<NatRewriteTableCuckooEntry>(table().helper()->nullHashEntry());
    EXPECT_EQ(null->key(), NatRewriteKey().isUnicastIs(true));
    EXPECT_FALSE(null->valid());
    EXPECT_EQ(row(null->key(), {}, {3, 1}), packed(8, {{96, 10, 3}, {106, 2, 1}, {109, 1, 1}, {145, 1, 1}}));
    EXPECT_EQ(shadowWords(0), packed(5, {{109, 1, 1}, {145, 1, 1}}));
}

TEST_F(NatRewriteTest, TheNullSessionIs0InTheShadowAndTheRow) {
    start();
    auto const words = row(unicastKey().natSessionIdIs(NerioSwitch::NatSessionId()), result());
    EXPECT_EQ(words[4], 1u << 17);
    EXPECT_EQ(words[0] & 0x7F, 0u);
    EXPECT_EQ(decoded(words)->key(), unicastKey().natSessionIdIs(0));
}

TEST_F(NatRewriteTest, EveryKeyReadsBackFromItsRow) {
    start();
    for (U32 i = 0; i < 3000; ++i) {
        NatRewriteKey key;
        key.natSessionIdIs(i * 43 % 0x20000).oddPortIs(i % 3 == 0).isUnicastIs(i % 2 == 0);
        if (key.isUnicast()) {
            key.natProfileIdIs(i % 64).secondTnatIs(i % 5 == 0);
        } else {
            key.vlanGroupIdIs(i % 16).vlanGroupMemberIdxIs(i % 8);
        }
        auto const item = decoded(row(key, result().newPortIs(static_cast<U16>(i * 31))));
        ASSERT_EQ(item->key(), key) << Sorn::text(key);
        ASSERT_EQ(item->result(), result().newPortIs(static_cast<U16>(i * 31)));
        ASSERT_TRUE(item->valid());
        table().cachedItemDelAll();
    }
    EXPECT_TRUE(table().hwInconsistentEntries().empty());
}

TEST_F(NatRewriteTest, ASessionMayStandThereAsUnicastAndAsMulticast) {
    start();
    auto const unicast = NatRewriteKey().isUnicastIs(true).natSessionIdIs(7).natProfileIdIs(3);
    auto const multicast = NatRewriteKey().natSessionIdIs(7).vlanGroupIdIs(3);
    EXPECT_EQ(inputWord(unicast), inputWord(multicast)) << "they share all their rows";
    table().entryIs(unicast, result());
    table().entryIs(multicast, result().newPortIs(1));
    holdsAcrossRestart([&] {
        EXPECT_EQ(table().entry(unicast), result());
        EXPECT_EQ(table().entry(multicast), result().newPortIs(1));
        EXPECT_EQ(table().entries().size(), 2u);
    });
}

TEST_F(NatRewriteTest, TheOtherFormsAttributesDoNotComeBack) {
    start();
    table().entryIs(unicastKey().vlanGroupIdIs(3).vlanGroupMemberIdxIs(2), result());
    table().entryIs(multicastKey().natProfileIdIs(3).secondTnatIs(true), result().newPortIs(1));
    takeWrites();
    restart();
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(table().entries().size(), 2u);
    EXPECT_EQ(table().entry(unicastKey()), result());
    EXPECT_EQ(table().entry(multicastKey()), result().newPortIs(1));
}

/** Their rows hold other keys than they are hashed by, so that the chip finds neither. */
TEST_F(NatRewriteTest, KeysThatSpillDoNotComeBack) {
    start();
    auto const noProfile = NatRewriteKey().isUnicastIs(true).natSessionIdIs(7).natProfileIdIs(64);
    auto const noGroup = NatRewriteKey().natSessionIdIs(9);
    table().entryIs(noProfile, result());
    table().entryIs(noGroup, result());
    EXPECT_TRUE(isProgrammed(noProfile));
    EXPECT_TRUE(isProgrammed(noGroup));
    EXPECT_EQ(decoded(row(noProfile, result()))->key(),
              NatRewriteKey().isUnicastIs(true).natSessionIdIs(7).secondTnatIs(true));
    EXPECT_EQ(decoded(row(noGroup, result()))->key(),
              NatRewriteKey().natSessionIdIs(9).vlanGroupIdIs(1).vlanGroupMemberIdxIs(1));
    shadow().drop(5);
    restart();
    EXPECT_TRUE(table().entries().empty());
    EXPECT_EQ(table().hashConvertor()->rowsInUse(), 0u);
    EXPECT_EQ(gauges().front()->used(), 0u);
}

TEST_F(NatRewriteTest, TheChecksumCorrectionIsStoredAsItIs) {
    start();
    for (U32 const correction : {0u, 1u, 0x8000u, 0xFFFFu}) {
        auto const words = row(unicastKey(), result().checksumCorrectionIs(static_cast<U16>(correction)));
        EXPECT_EQ(words[1] & 0xFFFF, correction);
        EXPECT_EQ(decoded(words)->result().checksumCorrection(), correction);
    }
}

TEST_F(NatRewriteTest, EntriesAndTheirRowsSurviveAWarmRestart) {
    startTable(1);
    std::mt19937_64 random(5);
    std::map<NatRewriteKey, NatRewriteResult> wanted;
    for (U32 i = 0; i < 1500; ++i) {
        auto const key = NatRewriteKey()
                             .isUnicastIs(true)
                             .natSessionIdIs(random() % 0x20000)
                             .natProfileIdIs(random() % 64)
                             .oddPortIs(random() % 2 != 0);
        wanted[key] = result().newIpIs(Lanvo::IpAddr::fromHostOrder(static_cast<U32>(random())));
        table().entryIs(key, wanted[key]);
    }
    holdsAcrossRestart([&] {
        EXPECT_EQ(table().entries().size(), wanted.size());
        for (auto const& [key, rewrite] : wanted)
            EXPECT_EQ(table().entry(key), rewrite) << key.stringValue();
    });
}

TEST_F(NatRewriteTest, ARowThatStoresAnotherSessionThanTheShadowKeepsIsInconsistent) {
    start();
    auto words = row(unicastKey(), result());
    EXPECT_FALSE(table().hwInconsistentEntry(decoded(words)->key()));
    words[0] ^= 1;
    EXPECT_EQ(decoded(words)->key(), unicastKey());
    EXPECT_TRUE(table().hwInconsistentEntry(unicastKey()));
}

TEST_F(NatRewriteTest, AHelperWithoutATableReadsRowsAllTheSame) {
    start();
    table().entryIs(unicastKey(), result());
    NatRewriteHelper lone;
    lone.convertorIs(table().hashConvertor());
    auto const item = Belmo::ptrCast<NatRewriteTableCuckooEntry>(
        lone.decodeHwEntry(table().cachedItem(unicastKey())->hwIndex()));
    EXPECT_EQ(item->key(), unicastKey());
    EXPECT_EQ(item->result(), result());
    EXPECT_TRUE(item->valid());
    EXPECT_NE(item, table().cachedItem(unicastKey()));
}

TEST_F(NatRewriteTest, AHitThatSomebodyReportsShowsInTheStatus) {
    start();
    table().entryIs(unicastKey(), result());
    table().lastHitByHashItemIs(table().cachedItem(unicastKey()), Belmo::Duration(4));
    EXPECT_EQ(table().tableStatus()->entryStatus(unicastKey()).lastHit(), Belmo::Duration(4));
    EXPECT_EQ(poll(5), 0u);
}

TEST_F(NatRewriteTest, TracesWhatItDoes) {
    startTable(1);
    NerioTest::TraceCapture const trace("NerioTableNatRewrite", 9);
    table().entryIs(unicastKey(), result());
    std::string const text =
        "NatRewriteTableCuckooEntry( " + unicastKey().stringValue() + ", " + result().stringValue() + " )";
    EXPECT_EQ(toStrep(table().hashItem(unicastKey())), text);
    EXPECT_EQ(toStrep(Belmo::Ptr<NatRewriteTableCuckooEntry const>()), "NULL");
    EXPECT_THAT(trace.lines(), Contains("NatRewriteTable: Programming Entry " + text));
    EXPECT_THAT(trace.lines(), Contains(HasSubstr(" egressPipe=1")));
    EXPECT_THAT(trace.lines(), Contains(HasSubstr("128:144=0x1abcd 145:145=1")));
    table().helper()->decodeHwEntry(table().cachedItem(unicastKey())->hwIndex());
    EXPECT_THAT(trace.lines(), Contains(HasSubstr(" decoded entry is " + text)));
    table().entryDel(unicastKey());
    EXPECT_THAT(trace.lines(), Contains(HasSubstr("NatRewriteTable: Removing Entry ")));
}

}  // namespace
