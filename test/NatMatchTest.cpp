#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include "NatMatchFixture.h"
#include "NerioSwitchTable/Address.h"
#include "TraceCapture.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitchApi::StartMode;
using NerioTest::ip;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::SizeIs;

using NatMatchTest = NerioTest::NatMatchFixture;

TEST_F(NatMatchTest, HasAStatusHitBitsAndAGaugeOfItsPipeline) {
    startTable(1);
    EXPECT_TRUE(table().statusSupported());
    EXPECT_TRUE(table().hitBitsSupported());
    EXPECT_TRUE(table().hwTablesDuplicate());
    EXPECT_EQ(table().pipeline(), 1);
    ASSERT_EQ(gauges().size(), 1u);
    auto const& counter = *gauges().front();
    EXPECT_EQ(counter.key(), TableGauge::TableKey("NAT match", "Pipe1", "nat"));
    EXPECT_EQ(counter.capacity(), 3u * 4096);
    table().entryIs(sourceKey(), result());
    EXPECT_EQ(counter.used(), 1u);
    table().entryDel(sourceKey());
    EXPECT_EQ(counter.used(), 0u);
}

TEST_F(NatMatchTest, ItsGeometryIsFixed) {
    pipelinesAre(8);
    profile().layouts[NerioSwitch::TableLayoutEnum::tableLayoutL3].processors = 4;
    for (U8 const pipeline : {U8{0}, U8{1}, U8{2}, U8{7}}) {
        startTable(pipeline);
        auto const properties =
            Belmo::ptrCast<NatMatchPhysicalHashProperties>(table().helper()->doGetPhysTableProperties());
        ASSERT_NE(properties, nullptr);
        EXPECT_EQ(properties->tableId(), 47u + pipeline / 2);
        EXPECT_EQ(table().swTableId(), 47u + pipeline / 2);
        EXPECT_EQ(properties->tableSize(), 4096u);
        EXPECT_EQ(properties->hashBits(), 12u);
        EXPECT_EQ(properties->numHashTables(), 3u);
        EXPECT_EQ(properties->rowSlots(), 1u);
        EXPECT_EQ(properties->entryWords(), 7);
        EXPECT_EQ(properties->hitBitsSupported(), 1);
        EXPECT_EQ(properties->placementFlag(), 1);
    }
    EXPECT_EQ(natMatchPhysicalHashPropertiesFactory(99)->tableId(), 99u);
    auto const& helper = static_cast<NatMatchHelper const&>(*table().helper());
    EXPECT_EQ(helper.compareWidth(), 47u);
    EXPECT_EQ(helper.tableIdx(), 47);
    EXPECT_EQ(helper.name(), "NAT match");
}

TEST_F(NatMatchTest, OneHardwareTableServesAPairOfPipelines) {
    pipelinesAre(4);
    for (U8 const pipeline : {U8{0}, U8{3}}) {
        startTable(pipeline);
        U32 const pair = pipeline / 2;
        EXPECT_THAT(convertor().descriptors(), SizeIs(1));
        EXPECT_EQ(convertor().descriptor(0)->name(), "nat/demo/NatMatch/" + std::to_string(pair));
        EXPECT_EQ(convertor().descriptor(0)->lastIndex(), 3u * 4096 - 1);
        takeWrites();
        table().entryIs(sourceKey(), result());
        auto const prefix = "ingress/processor_l4[" + std::to_string(pair) + "]/";
        U32 const hash = table().cachedItem(sourceKey())->getHash(0);
        auto const words = shadowWords(hash);
        EXPECT_THAT(takeWrites(),
                    ElementsAre(Pair(prefix + "hash_data0", words[0]), Pair(prefix + "hash_data1", words[1]),
                                Pair(prefix + "hash_data2", words[2]), Pair(prefix + "hash_data3", words[3]),
                                Pair(prefix + "hash_ctl", 1u << 17 | hash)));
        EXPECT_THAT(words, SizeIs(7));
        EXPECT_EQ(words[6], 0u) << "nothing fills the seventh word";
    }
}

TEST_F(NatMatchTest, TheControlWordIsNoContent) {
    start();
    for (U8 word = 0; word < 8; ++word)
        EXPECT_EQ(convertor().hwStaticWord(word), word == 4 ? 0xFFFFFFFFu : 0u);
    EXPECT_EQ(convertor().readStrobeBit(), 16);
    EXPECT_EQ(convertor().writeStrobeBit(), 17);
    auto const lone = Belmo::make<NatMatchConvertor>(U8{0});
    lone->hwStaticWordDel(4);
    lone->handleInitialized();
    EXPECT_EQ(lone->hwStaticWord(4), 0xFFFFFFFFu);
}

TEST_F(NatMatchTest, BeforeVersion10AnEntryComesBackUnderTheFilterOfItsRow) {
    apiIs(9, 9);
    start();
    auto const written = filteredKey({ip(10, 1, 2, 0), 24});
    table().entryIs(written, result());
    restart();
    EXPECT_FALSE(table().entryHas(written));
    EXPECT_EQ(table().entry(filteredKey({ip(10, 1, 2, 0), 23})), result());
    EXPECT_EQ(takeWriteCount(), 3u * 4096 * 5 + 5) << "the cold start and the entry";
}

TEST_F(NatMatchTest, BeforeVersion10FiltersOfOneAddressComeBackAsOneEntry) {
    apiIs(9, 9);
    start();
    table().entryIs(filteredKey({ip(10, 1, 2, 0), 24}), result());
    table().entryIs(filteredKey({ip(10, 1, 2, 0), 23}), result().l3LagIndexIs(1));
    restart();
    EXPECT_EQ(table().entries().size(), 1u);
    EXPECT_EQ(table().hashConvertor()->rowsInUse(), 1u);
    auto const key = filteredKey({ip(10, 1, 2, 0), 23});
    auto const back = table().entry(key);
    EXPECT_EQ(fieldOf(shadowWords(table().cachedItem(key)->hwIndex()), 106, 6), back.l3LagIndex().value());
    holdsAcrossRestart([&] { EXPECT_EQ(table().entry(key), back); });
}

TEST_F(NatMatchTest, FromVersion10OnAFilterComesBackAsItWas) {
    apiIs(10, 0);
    start();
    auto const written = filteredKey({ip(10, 1, 2, 0), 24});
    table().entryIs(written, result());
    holdsAcrossRestart([&] {
        EXPECT_EQ(table().entry(written), result());
        EXPECT_EQ(table().entries().size(), 1u);
    });
}

TEST_F(NatMatchTest, WhatRowsDoNotHoldComesBackChanged) {
    start();
    table().entryIs(sourceKey(), result().natSessionIdIs(NerioSwitch::NatSessionId()).protoIs(9));
    U32 const hash = table().cachedItem(sourceKey())->getHash(0);
    EXPECT_EQ(fieldOf(shadowWords(hash), 80, 17), 0u) << "null is one more than the field can hold";
    auto const profiled = sourceKey().ingressProfileIdIs(0x7F);
    table().entryIs(profiled, result().rewriteIndexIs(NerioSwitch::RewriteIndex(0xFF).kindIs(3)));
    restart();
    EXPECT_EQ(table().entry(sourceKey()), result().natSessionIdIs(0).protoIs(0));
    EXPECT_EQ(table().entry(sourceKey().ingressProfileIdIs(0x3F)), result().rewriteIndexIs(0x3F));
    EXPECT_EQ(table().entries().size(), 2u);
}

TEST_F(NatMatchTest, AResultThatIsNotValidIsAnEmptyRowToARestart) {
    start();
    table().entryIs(sourceKey(), result().validIs(false));
    EXPECT_TRUE(isProgrammed(sourceKey()));
    restart();
    EXPECT_EQ(table().entries().size(), 0u);
    EXPECT_EQ(table().hashConvertor()->rowsInUse(), 0u);
    EXPECT_EQ(table().cachedItems(), 0u);
}

TEST_F(NatMatchTest, EntriesAndTheirRowsSurviveAWarmRestart) {
    for (U16 const api : {U16{9}, U16{10}}) {
        apiIs(api);
        restart(StartMode::cold);
        std::mt19937_64 random(api);
        std::map<NatMatchKey, NatMatchResult> wanted;
        for (int i = 0; i < 800; ++i) {
            auto const type = static_cast<U8>(random() % 4);
            auto const address = Lanvo::IpAddr::fromHostOrder(static_cast<U32>(random()));
            auto const port = static_cast<U16>(type % 2 == 0 ? 0 : random());
            NatMatchKey key;
            key.natTypeIs(type).ingressProfileIdIs(random() % 64);
            type < 2 ? key.sipIs(address).sportIs(port) : key.dipIs(address).dportIs(port);
            if (random() % 2 == 0) key.filterPfxIs({ip(10, 1, static_cast<U32>(random() % 128), 128), 25});
            wanted[key] = result().natSessionIdIs(random() % 0x20000).protoIs(random() % 4);
            table().entryIs(key, wanted[key]);
        }
        holdsAcrossRestart([&] {
            EXPECT_EQ(table().entries().size(), wanted.size());
            for (auto const& [key, session] : wanted)
                EXPECT_EQ(table().entry(key), session) << key.stringValue();
        });
    }
}

TEST_F(NatMatchTest, AnEqualResultDoesNothing) {
    start();
    table().entryIs(sourceKey(), result());
    takeWrites();
    table().entryIs(sourceKey(), result());
    EXPECT_EQ(takeWriteCount(), 0u);
    table().entryIs(sourceKey(), result().l3LagIndexIs(1));
    EXPECT_EQ(takeWriteCount(), 5u);
    EXPECT_EQ(table().entryDel(sourceKey()), result().l3LagIndexIs(1));
    EXPECT_EQ(table().entryDel(sourceKey()), NatMatchResult());
    EXPECT_EQ(takeWriteCount(), 5u);
}

TEST_F(NatMatchTest, ItemsAreMadeForTheProfileAndFoundAgain) {
    apiIs(10);
    start();
    EXPECT_EQ(table().hashItem(sourceKey()), nullptr);
    auto const item = table().createHashItem(sourceKey());
    EXPECT_TRUE(item->hasFilterMask());
    EXPECT_EQ(table().createHashItem(sourceKey()), item);
    EXPECT_EQ(table().hashItemIs(sourceKey(), true), item);
    EXPECT_EQ(table().hashItem(sourceKey()), item);
    table().hashItemDel(sourceKey());
    EXPECT_EQ(table().hashItem(sourceKey()), nullptr);
    EXPECT_FALSE(table().hashItemIs(sourceKey(), false)->hasFilterMask());
    table().hashItemDelAll();
    EXPECT_EQ(table().cachedItems(), 0u);
}

TEST_F(NatMatchTest, HitsAreReadInTheReadsFrom2048On) {
    start();
    auto const& reads = convertor().hitBitTable(0)->reads();
    ASSERT_THAT(reads, SizeIs(1));
    EXPECT_EQ(reads[0].value, 0x2D0000u);
    EXPECT_EQ(chip().path(reads[0].trigger), "ingress/processor_l3[0]/hash_ctl");
    std::vector<Belmo::String> data;
    for (auto const& handle : reads[0].data)
        data.push_back(chip().path(handle));
    EXPECT_THAT(data, ElementsAre("ingress/processor_l3[0]/hash_data0", "ingress/processor_l3[0]/hash_data1",
                                  "ingress/processor_l3[0]/hash_data2"));
    auto const bit = [](U8 number, U32 firstIndex) {
        return std::pair(
            number,
            NerioSwitchApi::HitBitRegistration().firstReadIs(2048).lastReadIs(4095).strideIs(2).firstIndexIs(
                firstIndex));
    };
    EXPECT_THAT(reads[0].bits, ElementsAre(bit(0, 0), bit(9, 0x1000), bit(18, 0x2000), bit(36, 1),
                                           bit(45, 0x1001), bit(54, 0x2001)));
    EXPECT_EQ(convertor().hitDescriptor(0)->lastIndex(), 3u * 4096 - 1);
    EXPECT_EQ(convertor().hitDescriptor(0)->name(), convertor().descriptor(0)->name());
}

TEST_F(NatMatchTest, AHitShowsInTheStatusOfTheEntryAndStaysWhenItsResultChanges) {
    start();
    std::mt19937_64 random(3);
    std::vector<NatMatchKey> keys;
    for (int i = 0; i < 60; ++i) {
        keys.push_back(sourceKey().sipIs(Lanvo::IpAddr::fromHostOrder(static_cast<U32>(random()))));
        table().entryIs(keys.back(), result());
    }
    double seconds = 0;
    for (auto const& key : keys) {
        EXPECT_TRUE(table().tableStatus()->entryStatus(key).lastHit().isNever());
        U32 const index = table().cachedItem(key)->hwIndex();
        chip().hitIs("ingress/processor_l4[0]/hash_ctl", shadowWords(index)[4]);
        EXPECT_EQ(poll(++seconds), 1u);
        EXPECT_EQ(table().tableStatus()->entryStatus(key).lastHit(), Belmo::Duration(seconds));
    }
    EXPECT_EQ(poll(100), 0u);
    table().entryIs(keys[0], result().l3LagIndexIs(1));
    EXPECT_EQ(table().tableStatus()->entryStatus(keys[0]).lastHit(), Belmo::Duration(1));
    table().entryDel(keys[0]);
    EXPECT_FALSE(table().tableStatus()->entryStatusHas(keys[0]));
}

TEST_F(NatMatchTest, TracesWhatItDoes) {
    start();
    NerioTest::TraceCapture const trace("NerioTableNatMatch", 9);
    table().entryIs(sourceKey(), result());
    auto const item = table().cachedItem(sourceKey());
    std::string const text =
        "NatMatchTableCuckooEntry( " + sourceKey().stringValue() + ", " + result().stringValue() + " )";
    EXPECT_EQ(item->toStrep(), text);
    EXPECT_EQ(toStrep(item), text);
    EXPECT_EQ(toStrep(Belmo::Ptr<NatMatchTableCuckooEntry const>()), "NULL");
    EXPECT_THAT(trace.lines(), Contains("NatMatchTable: Programming Entry " + text));
    EXPECT_THAT(trace.lines(),
                Contains(fmt::format("calculated hash for tableId 0: 0x{:x}", item->getHash(0))));
    table().helper()->decodeHwEntry(item->hwIndex());
    EXPECT_THAT(trace.lines(), Contains(HasSubstr(" decoded entry is " + text)));
    table().entryDel(sourceKey());
    EXPECT_THAT(trace.lines(), Contains(HasSubstr("NatMatchTable: Removing Entry ")));
}

using NatMatchDeathTest = NatMatchTest;

TEST_F(NatMatchDeathTest, AnAddressOnlyKeyWithAPortIsAProgrammingError) {
    start();
    NatMatchKey const address = NatMatchKey().sipIs(ip(10, 0, 0, 1));
    EXPECT_EQ(keyPort(address), 0);
    for (U8 const type : {U8{0}, U8{2}}) {
        auto const typed = NatMatchKey(address).natTypeIs(type);
        EXPECT_DEATH(keyPort(NatMatchKey(typed).sportIs(1)),
                     "key.sport\\(\\) == 0 && \"srcPort should be unset for address-only NAT\"");
        EXPECT_DEATH(keyPort(NatMatchKey(typed).dportIs(1)),
                     "key.dport\\(\\) == 0 && \"dstPort should be unset for address-only NAT\"");
        EXPECT_DEATH(table().entryIs(NatMatchKey(typed).sportIs(1), result()), "srcPort should be unset");
    }
}

TEST_F(NatMatchDeathTest, ADynamicTypeIsAProgrammingError) {
    start();
    EXPECT_DEATH(natTypeToHwVal(4, false), "false");
    EXPECT_DEATH(natTypeToHwVal(6, true), "false");
    EXPECT_DEATH(table().entryIs(NatMatchKey().natTypeIs(4), result()), "false");
}

TEST_F(NatMatchDeathTest, AnItemKeepsItsKindOfFilter) {
    apiIs(10);
    start();
    table().createHashItem(sourceKey());
    EXPECT_DEATH(table().hashItemIs(sourceKey(), false), "item->hasFilterMask\\(\\) == hasFilterMask");
}

TEST_F(NatMatchDeathTest, AConvertorWithoutATableCountsNothing) {
    auto const lone = Belmo::make<NatMatchConvertor>(U8{0});
    EXPECT_DEATH(lone->doInitTableStats(), "swTbl");
}

TEST_F(NatMatchDeathTest, AMaskTypeAbove3IsAProgrammingError) {
    EXPECT_DEATH(decodeFilterPfx(0, 4), "false && \"Unsupported maskType\"");
}

}  // namespace
