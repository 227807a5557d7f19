#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <random>

#include "AclFixture.h"
#include "TraceCapture.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::AclHashKey;
using NerioSwitch::AclHashResult;
using NerioSwitchApi::HwIndex;
using NerioTest::AclChip;
using NerioTest::packed;
using NerioTest::prefixOf;
using NerioTest::resultOf;
using NerioTest::ruleOf;
using NerioTest::StartMode;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::SizeIs;

constexpr auto programmed = EntryProgrammedStatus::entryProgrammed;
constexpr auto failed = EntryProgrammedStatus::entryProgrammingFailed;

/** Keys of a physical table that differ in their addresses; all can be read back from a row. */
AclHashKey key(U8 physTableIdx, U32 number) {
    auto const host = Lanvo::Prefix(Lanvo::IpAddr::fromHostOrder(0x0A000001 + number), 32);
    AclHashKey const common = AclHashKey().aclIdIs(4).protocolIs(6).portIs(443);
    switch (physTableIdx) {
        case 0:
            return AclHashKey(common).combinationIs(1).secondPrefixIs(host);
        case 1:
            return AclHashKey(common).combinationIs(8).firstPrefixIs(host);
        case 2:
            return AclHashKey(common).combinationIs(13).firstPrefixIs(host).secondPrefixIs(
                prefixOf({192, 0, 2, 1}, 32));
        default:
            return AclHashKey().aclIdIs(0).combinationIs(16).vrfIdIs(3).firstPrefixIs(host).secondPrefixIs(
                prefixOf({192, 0, 2, 1}, 32));
    }
}

AclHashKey key(U32 number) {
    return key(0, number);
}

class AclHashTableTest : public NerioTest::AclTableFixture {
protected:
    EntryProgrammedStatus statusOf(AclHashKey const& of) {
        return table().tableStatus()->entryStatus(of).status();
    }
    TableGauge::Counter& gauge() { return *convertor().entryCounter(0); }
    HwIndex rowOf(AclHashKey const& of) { return table().cachedItem(of)->hwIndex(); }
    std::size_t rowsHeld() {
        std::size_t held = 0;
        for (HwIndex index = 0; index < 2 * table().hashConvertor()->tableSize(); ++index)
            held += shadowWords(index)[0] != 0 ? 1 : 0;
        return held;
    }

    /** The geometry that a table has on the profile as it stands. */
    Belmo::Ptr<AclPhysicalHashProperties> propertiesOf(U8 pipeline, U8 physTableIdx) {
        auto const lone = AclHashTableIs("lone", pipeline, physTableIdx);
        lone->profileIs(&profile());
        auto const helper = lone->hashBaseHelperFactory();
        helper->swTableIs(lone.get());
        return Belmo::ptrCast<AclPhysicalHashProperties>(helper->doGetPhysTableProperties());
    }
    NerioSwitch::TableLayout& layout() {
        return profile().layouts[NerioSwitch::TableLayoutEnum::tableLayoutAcl];
    }
};

TEST_F(AclHashTableTest, HasAStatusAndNeitherHitBitsNorCopies) {
    auto const rules = aclHashTableFactory("rules", 1, 5);
    EXPECT_TRUE(rules->statusSupported());
    EXPECT_FALSE(rules->hitBitsSupported());
    EXPECT_FALSE(rules->hwTablesDuplicate());
    EXPECT_EQ(rules->name(), "rules");
    EXPECT_EQ(rules->pipeline(), 1);
    EXPECT_EQ(rules->physTableIdx(), 5);
}

TEST_F(AclHashTableTest, ItsGeometryIsThatOfTheProfile) {
    auto const properties = propertiesOf(0, 0);
    EXPECT_EQ(properties->aclTableId(), 69u);
    EXPECT_EQ(properties->tableSize(), 4096u);
    EXPECT_EQ(properties->hashBits(), 12u);
    EXPECT_EQ(properties->numHashTables(), 2u);
    EXPECT_EQ(properties->rowSlots(), 1u);
    EXPECT_EQ(properties->entryWords(), 7);
    EXPECT_EQ(properties->hitBitsSupported(), 0);
    EXPECT_EQ(properties->placementFlag(), 1);
    EXPECT_EQ(propertiesOf(0, 5)->aclTableId(), 74u);
    EXPECT_EQ(propertiesOf(3, 2)->aclTableId(), 92u);
    EXPECT_EQ(AclHashTableIs("lone", 3, 2)->swTableId(), 92u);
}

TEST_F(AclHashTableTest, ASizeIsTakenDownToAPowerOfTwoAndIs2048WithoutALayout) {
    for (auto const& [size, bits] : {std::pair{1u, 0u}, {2u, 1u}, {2047u, 10u}, {2048u, 11u}, {4095u, 11u}}) {
        layout().size = size;
        EXPECT_EQ(propertiesOf(0, 0)->hashBits(), bits);
        EXPECT_EQ(propertiesOf(0, 0)->tableSize(), 1u << bits);
    }
    profile().layouts.erase(NerioSwitch::TableLayoutEnum::tableLayoutAcl);
    EXPECT_EQ(propertiesOf(0, 0)->hashBits(), 11u);
    EXPECT_EQ(propertiesOf(0, 0)->tableSize(), 2048u);
}

TEST_F(AclHashTableTest, TheHelperIsNamedAsPeopleKnowItsTable) {
    startTable(0);
    EXPECT_EQ(helper().tableIdx(), 69);
    EXPECT_EQ(helper().name(), "ACL 0");
    startTable(5);
    EXPECT_EQ(helper().tableIdx(), 74);
    EXPECT_EQ(helper().name(), "ACL 5");
}

TEST_F(AclHashTableTest, AnItemTakesItsModesFromTheProfile) {
    profile().aclPipeModeCapable = false;  // not asked here: the two counts alone decide
    startTable(0);
    auto const item = table().createHashEntry(key(1), false);
    EXPECT_TRUE(item->singleAclPipeMode());
    EXPECT_TRUE(item->hasFilterMask());
}

TEST_F(AclHashTableTest, AnItemOfASharedProcessorIsHashedTo11Bits) {
    chipIs({2, false});
    startTable(0);
    auto const item = table().createHashEntry(key(1), false);
    EXPECT_FALSE(item->singleAclPipeMode());
    EXPECT_FALSE(item->hasFilterMask());
    EXPECT_EQ(table().hashConvertor()->tableSize(), 2048u);
}

TEST_F(AclHashTableTest, OneHardwareTableIsNamedByTableAndPipeline) {
    startTable(2, 1);
    EXPECT_THAT(convertor().descriptors(), SizeIs(1));
    EXPECT_EQ(convertor().descriptor(0)->name(), "rules/demo/Acl2/1");
    EXPECT_EQ(convertor().descriptor(0)->firstIndex(), 0u);
    EXPECT_EQ(convertor().descriptor(0)->lastIndex(), 8191u);
    startTable(5, 0);
    EXPECT_EQ(convertor().descriptor(0)->name(), "rules/demo/Acl5/0");
}

TEST_F(AclHashTableTest, AColdStartClearsEveryRow) {
    startTable(1, 1);
    EXPECT_EQ(takeWriteCount(), 8192u * 5);
    EXPECT_EQ(shadowWords(5), packed(7, {{128, 12, 5}, {141, 3, 1}, {146, 1, 1}}));
    EXPECT_EQ(shadowWords(4096 + 9), packed(7, {{128, 12, 9}, {140, 1, 1}, {141, 3, 1}, {146, 1, 1}}));
    EXPECT_EQ(table().cachedItems(), 0u);
}

TEST_F(AclHashTableTest, ARowGoesToTheDataRegistersThenToTheControlRegister) {
    startTable(0, 1);
    takeWrites();
    table().entryIs(key(1), resultOf(ruleOf(5, true, 0x123)));
    auto const index = rowOf(key(1));
    auto const words = shadowWords(index);
    ASSERT_THAT(words, SizeIs(7));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("ingress/processor_acl[1]/hash_data0", words[0]),
                                          Pair("ingress/processor_acl[1]/hash_data1", words[1]),
                                          Pair("ingress/processor_acl[1]/hash_data2", words[2]),
                                          Pair("ingress/processor_acl[1]/hash_data3", words[3]),
                                          Pair("ingress/processor_acl[1]/hash_ctl", words[4])));
    U32 const hash = table().cachedItem(key(1))->getHash(0);
    EXPECT_EQ(index, hash) << "the first of its rows";
    EXPECT_EQ(words[4], 0x00040000 | hash);
    EXPECT_EQ(words[5], 0u);
    EXPECT_EQ(words[6], 0x14u | (0x0A000002u << 7 & 0xFFF)) << "the key's lowest bits, in the shadow only";
}

TEST_F(AclHashTableTest, TheProcessorIsThatOfThePipeline) {
    chipIs({6, false});
    startTable(0, 3);
    takeWrites();
    table().entryIs(key(1), resultOf(ruleOf(5)));
    EXPECT_THAT(takeWrites(), Contains(Pair("ingress/processor_acl[1]/hash_ctl",
                                            0x00050000u | table().cachedItem(key(1))->getHash(0))));
    startTable(0, 1);
    takeWrites();
    table().entryIs(key(1), resultOf(ruleOf(5)));
    EXPECT_THAT(takeWrites(), Contains(Pair("ingress/processor_acl[0]/hash_ctl",
                                            0x00050000u | table().cachedItem(key(1))->getHash(0))));
}

TEST_F(AclHashTableTest, ControlWordAndUnusedWordAreNoContent) {
    startTable(0);
    for (U8 const word : std::initializer_list<U8>{4, 5})
        EXPECT_EQ(convertor().hwStaticWord(word), 0xFFFFFFFFu);
    for (U8 const word : std::initializer_list<U8>{0, 1, 2, 3, 6, 7})
        EXPECT_EQ(convertor().hwStaticWord(word), 0u);
    EXPECT_EQ(convertor().readStrobeBit(), 17);
    EXPECT_EQ(convertor().writeStrobeBit(), 18);
}

TEST_F(AclHashTableTest, TheUnusedWordIsDeclaredByTheConvertorAndAgainWhenItsTableIsUp) {
    auto const lone = aclHashConvertorFactory();
    EXPECT_EQ(lone->hwStaticWord(5), 0xFFFFFFFFu);
    EXPECT_EQ(lone->hwStaticWord(4), 0u);
    lone->hwStaticWordDel(5);
    lone->handleInitialized();
    EXPECT_EQ(lone->hwStaticWord(5), 0xFFFFFFFFu);
    EXPECT_EQ(lone->readStrobeBit(), 17);
    EXPECT_EQ(lone->writeStrobeBit(), 18);
}

TEST_F(AclHashTableTest, TheGaugeHoldsTheRowsInUse) {
    startTable(0, 1);
    EXPECT_EQ(gauge().key().table(), "ACL 0");
    EXPECT_EQ(gauge().key().pipe(), "Pipe1");
    EXPECT_EQ(gauge().key().swTable(), "rules");
    EXPECT_EQ(gauge().index(), 0u);
    EXPECT_EQ(gauge().capacity(), 8192u);
    EXPECT_EQ(gauge().used(), 0u);
    table().entryIs(key(1), resultOf(ruleOf(5)));
    table().entryIs(key(2), resultOf(ruleOf(5)));
    table().entryIs(key(1), resultOf(ruleOf(6)));
    EXPECT_EQ(gauge().used(), 2u);
    table().entryDel(key(1));
    EXPECT_EQ(gauge().used(), 1u);
    restart();
    EXPECT_EQ(gauge().used(), 1u);
}

TEST_F(AclHashTableTest, APlacedKeyHasAStatusAndADeletedOneLeavesAClearRow) {
    startTable(0);
    table().entryIs(key(1), resultOf(ruleOf(5)));
    EXPECT_TRUE(table().tableStatus()->entryStatusHas(key(1)));
    EXPECT_EQ(statusOf(key(1)), programmed);
    EXPECT_TRUE(table().tableStatus()->entryStatus(key(1)).lastHit().isNever());
    auto const index = rowOf(key(1));
    EXPECT_EQ(table().entryDel(key(1)), resultOf(ruleOf(5)));
    EXPECT_FALSE(table().tableStatus()->entryStatusHas(key(1)));
    EXPECT_EQ(table().cachedItems(), 0u);
    EXPECT_EQ(shadowWords(index), packed(7, {{128, 12, index}, {146, 1, 1}}));
    EXPECT_EQ(table().entryDel(key(1)), AclHashResult());
}

TEST_F(AclHashTableTest, AnEqualResultWritesNothingAndAChangedOneItsRow) {
    startTable(0);
    table().entryIs(key(1), resultOf(ruleOf(5)));
    takeWrites();
    table().entryIs(key(1), resultOf(ruleOf(5)));
    EXPECT_EQ(takeWriteCount(), 0u);
    table().entryIs(key(1), resultOf(ruleOf(6)));
    EXPECT_EQ(takeWriteCount(), 5u);
}

TEST_F(AclHashTableTest, AResultThatLooksTheSameInHardwareWritesNothing) {
    startTable(0);
    table().entryIs(key(1), resultOf(ruleOf(5)));
    takeWrites();
    table().entryIs(key(1), resultOf(ruleOf(5), ruleOf(9)));  // this version has no second chain
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(table().entry(key(1)), resultOf(ruleOf(5), ruleOf(9)));
}

TEST_F(AclHashTableTest, TheNullEntryIsOfTheDefaultKeyAndNobodyRemembersIt) {
    startTable(0);
    auto const null = helper().nullHashEntry();
    EXPECT_FALSE(null->valid());
    EXPECT_EQ(static_cast<AclHashTableCuckooEntry const&>(*null).key(), AclHashKey());
    EXPECT_EQ(table().cachedItems(), 0u);
}

TEST_F(AclHashTableTest, AnEmptyKeyTakesAPlaceWithAnEmptyRow) {
    startTable(0);
    auto const nobody = key(1).aclIdIs(16);
    table().entryIs(nobody, resultOf(ruleOf(5)));
    EXPECT_EQ(statusOf(nobody), programmed);
    EXPECT_EQ(gauge().used(), 1u);
    EXPECT_EQ(rowsHeld(), 0u);
    restart();
    EXPECT_FALSE(table().entryHas(nobody)) << "nothing in hardware tells of it";
    EXPECT_EQ(gauge().used(), 0u);
}

TEST_F(AclHashTableTest, EntriesBeforeTheStartAreWrittenByIt) {
    make().entryIs(key(1), resultOf(ruleOf(5)));
    EXPECT_EQ(table().cachedItems(), 0u);
    bringUp(StartMode::cold);
    EXPECT_EQ(statusOf(key(1)), programmed);
    EXPECT_EQ(rowsHeld(), 1u);
}

TEST_F(AclHashTableTest, KeysAreNeverMarkedInconsistent) {
    startTable(0);
    table().entryIs(key(1), resultOf(ruleOf(5)));
    auto const item = table().cachedItem(key(1));
    table().hwInconsistentEntryIs(key(1), true);
    EXPECT_FALSE(table().hwInconsistentEntryFromHashItem(item));
    EXPECT_TRUE(table().hwInconsistentEntryDelFromHashItem(item));
    EXPECT_TRUE(table().hwInconsistentEntry(key(1))) << "there is nothing that the framework would unmark";
}

TEST_F(AclHashTableTest, KeysWhoseRowsLieBehindTheTableFindNoPlace) {
    layout().size = 2048;  // the hash has 12 bits all the same
    startTable(0);
    std::optional<AclHashKey> outside;
    std::optional<AclHashKey> secondOnly;
    for (U32 number = 0; !outside || !secondOnly; ++number) {
        auto const item = table().createHashEntry(key(number), false);
        bool const first = item->getHash(0) < 2048;
        bool const second = item->getHash(1) < 2048;
        if (!first && !second) outside = key(number);
        if (!first && second) secondOnly = key(number);
    }
    takeWrites();
    table().entryIs(*outside, resultOf(ruleOf(5)));
    EXPECT_EQ(statusOf(*outside), failed);
    EXPECT_EQ(takeWriteCount(), 0u);
    table().entryIs(*secondOnly, resultOf(ruleOf(5)));
    EXPECT_EQ(statusOf(*secondOnly), programmed);
    EXPECT_EQ(rowOf(*secondOnly), 2048 + table().cachedItem(*secondOnly)->getHash(1));
    EXPECT_EQ(gauge().used(), 1u);
}

TEST_F(AclHashTableTest, TracesWhatItPrograms) {
    startTable(0);
    NerioTest::TraceCapture const trace("NerioTableAclHashes", 6);
    table().entryIs(key(1), resultOf(ruleOf(5)));
    table().entryDel(key(1));
    ASSERT_THAT(trace.lines(), SizeIs(2));
    EXPECT_THAT(trace.lines()[0], testing::StartsWith("AclHashTable: Programming Entry "));
    EXPECT_THAT(trace.lines()[0], HasSubstr("secondPrefix=10.0.0.2/32"));
    EXPECT_THAT(trace.lines()[1], testing::StartsWith("AclHashTable: Removing Entry "));
}

TEST_F(AclHashTableTest, TracesTheStateInWhichHardwareTablesAreMade) {
    NerioTest::TraceCapture const trace("NerioTableAclHashes", 8);
    startTable(0);
    EXPECT_THAT(trace.lines(), Contains("doCreateHwTables tableState: 0"));
    restart();
    EXPECT_THAT(trace.lines(), Contains("doCreateHwTables tableState: 1"));
}

TEST_F(AclHashTableTest, TracesTheRowThatItWrites) {
    startTable(0);
    NerioTest::TraceCapture const trace("NerioTableAclHashes", 8);
    table().entryIs(key(1), resultOf(ruleOf(5)));
    U32 const hash = table().cachedItem(key(1))->getHash(0);
    EXPECT_THAT(trace.lines(),
                Contains(testing::StartsWith("setHwBuffer table 0 row " + std::to_string(hash) + ": ")));
}

TEST_F(AclHashTableTest, TwoKeysThatHardwareCannotTellApartAreOneAfterARestart) {
    startTable(0);
    table().entryIs(key(1), resultOf(ruleOf(5)));
    table().entryIs(key(1).vrfIdIs(7), resultOf(ruleOf(6)));  // table 0 does not look at the VRF
    EXPECT_EQ(rowsHeld(), 2u);
    restart();
    EXPECT_THAT(table().entries(), SizeIs(1));
    EXPECT_EQ(table().entry(key(1)), resultOf(ruleOf(5))) << "the first row that the chip looks at";
    EXPECT_EQ(rowsHeld(), 1u);
}

TEST_F(AclHashTableTest, ARowThatTheChipCouldNotFindIsClearedByTheStart) {
    startTable(0);
    table().entryIs(key(1), resultOf(ruleOf(5)));
    auto const index = rowOf(key(1));
    auto const words = shadowWords(index);
    shadow().store(index ^ 1, words);
    restart();
    EXPECT_THAT(table().entries(), SizeIs(1));
    EXPECT_EQ(shadowWords(index ^ 1), packed(7, {{128, 12, index ^ 1}, {146, 1, 1}}));
    EXPECT_EQ(shadowWords(index), words);
}

class AclHashRestartTest : public NerioTest::AclChipTest {};

INSTANTIATE_TEST_SUITE_P(, AclHashRestartTest, testing::ValuesIn(NerioTest::aclChips()),
                         NerioTest::aclChipName);

TEST_P(AclHashRestartTest, EntriesAndTheirRowsSurviveAWarmRestart) {
    for (U8 const physTableIdx : std::initializer_list<U8>{0, 1, 2, 5}) {
        SCOPED_TRACE(static_cast<U32>(physTableIdx));
        startTable(physTableIdx, 1);
        std::map<AclHashKey, AclHashResult> wanted;
        for (U32 number = 0; number < 1000; ++number) {
            bool const range = version() > 3 && physTableIdx != 5 && number % 3 == 0;
            auto rule = ruleOf(1 + number % 63, true, physTableIdx == 5 ? 0 : number);
            auto each = key(physTableIdx, number);
            if (range) {
                rule.rangeIdIs(number % 8);
                each.rangeIdIs(number % 8);
            }
            wanted[each] = resultOf(rule);
            table().entryIs(each, wanted[each]);
        }
        holdsAcrossRestart([&] {
            EXPECT_EQ(table().entries().size(), wanted.size());
            EXPECT_EQ(table().hashConvertor()->rowsInUse(), wanted.size());
            std::size_t wrong = 0;
            for (auto const& [each, result] : wanted) {
                bool const there = table().entryHas(each) && table().entry(each) == result;
                bool const placed = table().cachedItem(each) && table().cachedItem(each)->placed();
                wrong += there && placed ? 0 : 1;
            }
            EXPECT_EQ(wrong, 0u);
        });
    }
}

TEST_P(AclHashRestartTest, ARuleWithoutPriorityIsAnotherKeyAfterARestartSinceVersion4) {
    startTable(0);
    auto const rule = ruleOf(0, false, 0);
    table().entryIs(key(1), resultOf(rule));
    restart();
    auto const back = version() < 4 ? key(1) : key(1).rangeIdIs(0);
    ASSERT_THAT(table().entries(), SizeIs(1));
    EXPECT_EQ(table().entry(back), version() < 4 ? resultOf(rule) : resultOf(ruleOf(0, false, 0, 0)));
    EXPECT_TRUE(table().entryHas(back));
}

using AclHashTableDeathTest = AclHashTableTest;

TEST_F(AclHashTableDeathTest, AnOldChipHasNoAclProcessor) {
    profile().hwApi = {1, 9};
    EXPECT_DEATH(startTable(0), "verMajor >= 2");
}

TEST_F(AclHashTableDeathTest, ATableNeedsRows) {
    layout().size = 0;
    EXPECT_DEATH(startTable(0), "tableSize != 0");
}

TEST_F(AclHashTableDeathTest, ATableWithoutANameCannotBeCounted) {
    EXPECT_DEATH(
        {
            auto const unnamed = aclHashTableFactory("", 0, 0);
            auto const chip = Chip::simulatedChip(profile());
            NerioSwitchApi::TableFramework(&profile(), chip, NerioSwitchApi::memoryShadowStore())
                .tableIs(unnamed, StartMode::cold);
        },
        "key.verifyTableKey\\(\\)");
}

TEST_F(AclHashTableTest, RowsThatNoHashLeadsToAreLeftAlone) {
    chipIs({6, false});
    profile().layouts[NerioSwitch::TableLayoutEnum::tableLayoutAcl].size = 4096;
    make();
    for (U32 number = 0; number < 1500; ++number)
        table().entryIs(key(number), resultOf(ruleOf(1)));
    bringUp(StartMode::cold);
    EXPECT_EQ(convertor().descriptor(0)->lastIndex(), 2u * 4096 - 1);
    EXPECT_EQ(takeWriteCount(), 2u * 2048 * 5);
    for (U32 number = 0; number < 1500; ++number) {
        ASSERT_EQ(statusOf(key(number)), programmed);
        ASSERT_LT(rowOf(key(number)) % 4096, 2048u);
    }
    holdsAcrossRestart([&] { EXPECT_EQ(table().entries().size(), 1500u); });
}

TEST_F(AclHashTableTest, AHashWiderThanTheTableUsesOnlyTheRowsThatAreThere) {
    chipIs({6, true});
    profile().layouts[NerioSwitch::TableLayoutEnum::tableLayoutAcl].size = 2048;
    startTable(0);
    U32 homeless = 0;
    for (U32 number = 0; number < 64; ++number) {
        table().entryIs(key(number), resultOf(ruleOf(1)));
        auto const item = table().cachedItem(key(number));
        bool const hasRow = item->getHash(0) < 2048 || item->getHash(1) < 2048;
        ASSERT_EQ(statusOf(key(number)), hasRow ? programmed : failed);
        homeless += hasRow ? 0 : 1;
    }
    EXPECT_GT(homeless, 0u);
    EXPECT_LT(homeless, 64u);
}

}  // namespace
