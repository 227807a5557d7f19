#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NerioSwitchTable/NerioTablePortConfig.h"
#include "PackedWords.h"
#include "SwitchFixture.h"
#include "TraceCapture.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::ChipPortId;
using NerioTest::packed;
using NerioTest::StartMode;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

constexpr char const* portRange =
    "NerioSwitch::ChipPortId::value < NerioSwitch::ChipPortId::min or > NerioSwitch::ChipPortId::null not "
    "allowed";

PortConfigResult portConfig(PortConfigMode mode, bool txDisabled = false, bool l2ForwardingDisabled = false) {
    return PortConfigResult()
        .portModeIs(mode)
        .txDisabledIs(txDisabled)
        .l2ForwardingDisabledIs(l2ForwardingDisabled);
}

PortConfigKey port(U32 number) {
    return PortConfigKey(ChipPortId(number));
}

class PortConfigTest : public NerioTest::TableFixture<PortConfigTable> {
protected:
    PortConfigTest() : TableFixture([] { return portConfigTableFactory("ports"); }) {}

    /** Counts the changes of `entry` that the table publishes from here on. */
    std::vector<U16>& publishedPorts() {
        observation_ = table().publisher().observe("entry", [this](Belmo::Change const& change) {
            published_.push_back(change.key.as<PortConfigKey>()->portId().value());
        });
        return published_;
    }

private:
    std::vector<U16> published_;
    Belmo::Subscription observation_;
};

TEST_F(PortConfigTest, DefaultKeyHoldsTheNullPort) {
    EXPECT_EQ(PortConfigKey().portId().value(), 53);
    EXPECT_LT(port(5), port(6));
    EXPECT_EQ(port(5), port(5));
    EXPECT_NE(port(5).hash(0), port(6).hash(0));
}

TEST_F(PortConfigTest, DefaultResultIsAccessWithBothFlagsFalse) {
    PortConfigResult const result;
    EXPECT_EQ(result.portMode(), PortConfigMode::access);
    EXPECT_FALSE(result.txDisabled());
    EXPECT_FALSE(result.l2ForwardingDisabled());
}

TEST_F(PortConfigTest, ResultStringLinesUp) {
    EXPECT_EQ(portConfig(PortConfigMode::trunk).resultString(),
              "portMode:trunk  txDisabled:false l2ForwardingDisabled:false");
    EXPECT_EQ(portConfig(PortConfigMode::access, true).resultString(),
              "portMode:access txDisabled:true  l2ForwardingDisabled:false");
    EXPECT_EQ(portConfig(PortConfigMode::qinq, true, true).resultString(),
              "portMode:qinq   txDisabled:true  l2ForwardingDisabled:true ");
}

TEST_F(PortConfigTest, ModeThreeShowsItsNumber) {
    EXPECT_EQ(portConfig(static_cast<PortConfigMode>(3)).resultString(),
              "portMode:3      txDisabled:false l2ForwardingDisabled:false");
}

TEST_F(PortConfigTest, TextFormsReadBack) {
    auto const result = portConfig(PortConfigMode::qinq, true, false);
    auto const text = Sorn::text(result);
    EXPECT_EQ(text,
              "NerioSwitchTable::PortConfigResult(portMode=qinq,txDisabled=true,l2ForwardingDisabled=false)");
    Sorn::CharRange range(text);
    EXPECT_EQ(PortConfigResult(range), result);
    EXPECT_TRUE(range.empty());
    EXPECT_EQ(Sorn::text(port(7)), "NerioSwitchTable::PortConfigKey(portId=7)");
}

TEST_F(PortConfigTest, BadTextNamesTheAttribute) {
    auto const failureOf = [](auto parse) {
        try {
            parse();
        } catch (Belmo::DeserializationException const& failure) {
            return Belmo::String(failure.what());
        }
        return Belmo::String("no failure");
    };
    EXPECT_EQ(failureOf([] {
                  Sorn::CharRange range("NerioSwitchTable::PortConfigKey(portId=54)");
                  PortConfigKey const key(range);
              }),
              Belmo::String("NerioSwitchTable::PortConfigKey::portId: ") + portRange);
    EXPECT_THAT(failureOf([] {
                    Sorn::CharRange range(
                        "NerioSwitchTable::PortConfigResult(portMode=tunnel,txDisabled=true,"
                        "l2ForwardingDisabled=false)");
                    PortConfigResult const result(range);
                }),
                testing::StartsWith("NerioSwitchTable::PortConfigResult::portMode: "));
}

TEST_F(PortConfigTest, ColdStartWritesTheDefaultToEveryPort) {
    start();
    auto const writes = takeWrites();
    ASSERT_THAT(writes, SizeIs(52));
    EXPECT_THAT(writes.front(), Pair("egress/port[0]/vlan_cfg", 1));
    EXPECT_THAT(writes.back(), Pair("egress/port[51]/vlan_cfg", 1));
    EXPECT_EQ(shadowWords(17), packed(4, {{0, 2, 1}}));
    EXPECT_TRUE(table().entries().empty());
}

TEST_F(PortConfigTest, GoldenRows) {
    start();
    table().entryIs(port(0), portConfig(PortConfigMode::trunk, true, false));
    EXPECT_EQ(shadowWords(0), packed(4, {{0, 2, 0}, {2, 1, 1}, {3, 1, 0}}));
    table().entryIs(port(1), portConfig(PortConfigMode::access, false, true));
    EXPECT_EQ(shadowWords(1), packed(4, {{0, 2, 1}, {2, 1, 0}, {3, 1, 1}}));
    table().entryIs(port(51), portConfig(PortConfigMode::qinq, true, true));
    EXPECT_EQ(shadowWords(51), packed(4, {{0, 2, 2}, {2, 1, 1}, {3, 1, 1}}));
    EXPECT_EQ(chipRegister("egress/port[51]/vlan_cfg"), 0b1110u);
}

TEST_F(PortConfigTest, OnlyWordZeroReachesARegister) {
    start();
    takeWrites();
    table().entryIs(port(9), portConfig(PortConfigMode::trunk));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("egress/port[9]/vlan_cfg", 0)));
    EXPECT_THAT(shadowWords(9), ElementsAre(0, 0, 0, 0));
}

TEST_F(PortConfigTest, EntriesSurviveARestartWithoutAWrite) {
    start();
    table().entryIs(port(3), portConfig(PortConfigMode::trunk, false, true));
    table().entryIs(port(40), portConfig(PortConfigMode::qinq));
    holdsAcrossRestart([&] {
        EXPECT_THAT(table().entries(), SizeIs(2));
        EXPECT_EQ(table().entry(port(3)), portConfig(PortConfigMode::trunk, false, true));
        EXPECT_EQ(table().entry(port(40)), portConfig(PortConfigMode::qinq));
        EXPECT_EQ(chipRegister("egress/port[3]/vlan_cfg"), 0b1000u);
        EXPECT_TRUE(table().hwInconsistentEntries().empty());
    });
}

TEST_F(PortConfigTest, UnchangedResultNeitherWritesNorPublishes) {
    start();
    table().entryIs(port(5), portConfig(PortConfigMode::trunk));
    takeWrites();
    auto const& published = publishedPorts();
    table().entryIs(port(5), portConfig(PortConfigMode::trunk));
    table().entryIs(port(5), table().entries().find(port(5))->second);
    EXPECT_THAT(takeWrites(), IsEmpty());
    EXPECT_THAT(published, IsEmpty());
    table().entryIs(port(5), portConfig(PortConfigMode::qinq));
    EXPECT_THAT(takeWrites(), SizeIs(1));
    EXPECT_THAT(published, ElementsAre(5));
}

TEST_F(PortConfigTest, DeletingWritesTheDefaultResultAndPublishes) {
    start();
    table().entryIs(port(5), portConfig(PortConfigMode::trunk));
    takeWrites();
    auto const& published = publishedPorts();
    EXPECT_EQ(table().entryDel(port(5)), portConfig(PortConfigMode::trunk));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("egress/port[5]/vlan_cfg", 1)));
    EXPECT_THAT(published, ElementsAre(5));
    EXPECT_FALSE(table().entryHas(port(5)));
    EXPECT_EQ(table().entry(port(5)), PortConfigResult());
}

TEST_F(PortConfigTest, DeletingAnAbsentKeyIsSilent) {
    start();
    takeWrites();
    auto const& published = publishedPorts();
    EXPECT_EQ(table().entryDel(port(5)), PortConfigResult());
    EXPECT_THAT(takeWrites(), IsEmpty());
    EXPECT_THAT(published, IsEmpty());
}

TEST_F(PortConfigTest, DeletingAllCostsOneWriteAndOneNotificationPerKey) {
    start();
    for (U32 const number : {1u, 7u, 30u})
        table().entryIs(port(number), portConfig(PortConfigMode::trunk));
    takeWrites();
    auto const& published = publishedPorts();
    table().entryDelAll();
    EXPECT_THAT(takeWrites(), SizeIs(3));
    EXPECT_THAT(published, testing::UnorderedElementsAre(1, 7, 30));
    EXPECT_TRUE(table().entries().empty());
}

TEST_F(PortConfigTest, AnEntryEqualToTheDefaultIsKeptButDoesNotComeBack) {
    start();
    takeWrites();
    auto const& published = publishedPorts();
    table().entryIs(port(5), PortConfigResult());
    EXPECT_THAT(takeWrites(), IsEmpty()) << "the row holds the default already";
    EXPECT_THAT(published, ElementsAre(5));
    EXPECT_TRUE(table().entryHas(port(5)));
    restart();
    EXPECT_FALSE(table().entryHas(port(5)));
    EXPECT_EQ(takeWriteCount(), 0u);
}

TEST_F(PortConfigTest, EntriesBeforeTheStartAreWrittenByTheStart) {
    make();
    auto const& published = publishedPorts();
    table().entryIs(port(5), portConfig(PortConfigMode::trunk));
    table().entryIs(port(6), portConfig(PortConfigMode::qinq));
    table().entryDel(port(6));
    EXPECT_THAT(published, ElementsAre(5, 6, 6));
    EXPECT_EQ(takeWriteCount(), 0u);
    bringUp(StartMode::cold);
    EXPECT_EQ(chipRegister("egress/port[5]/vlan_cfg"), 0u);
    EXPECT_EQ(chipRegister("egress/port[6]/vlan_cfg"), 1u);
}

TEST_F(PortConfigTest, AResetForcesTheDefaultAndAWarmStartKeepsTheWord) {
    start();
    U32 const strayWord = 0x11;  // decodes as the default, with a reserved bit beside it
    shadow().store(8, std::span(&strayWord, 1));
    restart(StartMode::warm);
    EXPECT_EQ(takeWriteCount(), 52u) << "the writes of the first start";
    EXPECT_THAT(shadowWords(8), ElementsAre(0x11));
    EXPECT_FALSE(table().entryHas(port(8)));
    restart(StartMode::cold);
    EXPECT_EQ(takeWriteCount(), 52u);
    EXPECT_EQ(shadowWords(8), packed(4, {{0, 2, 1}}));
}

TEST_F(PortConfigTest, AWordOfZeroComesBackAsTrunkAndAWordOfOneDoesNot) {
    start();
    U32 const zero = 0;
    shadow().store(8, std::span(&zero, 1));
    restart();
    EXPECT_TRUE(table().entryHas(port(8)));
    EXPECT_EQ(table().entry(port(8)), portConfig(PortConfigMode::trunk));
    EXPECT_FALSE(table().entryHas(port(9)));
}

TEST_F(PortConfigTest, AModeOfThreePassesTheReadBack) {
    start();
    U32 const word = 0b0111;
    shadow().store(8, std::span(&word, 1));
    restart();
    EXPECT_EQ(table().entry(port(8)), portConfig(static_cast<PortConfigMode>(3), true, false));
}

TEST_F(PortConfigTest, ARowMissingFromTheShadowIsTracedAndGetsTheDefault) {
    start();
    table().entryIs(port(8), portConfig(PortConfigMode::trunk));
    shadow().drop(8);
    takeWrites();
    NerioTest::TraceCapture const trace("NerioTablePortConfig", 9);
    restart();
    EXPECT_THAT(trace.lines(), ElementsAre("pipe 1 index 8 does not exist."));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("egress/port[8]/vlan_cfg", 1)));
    EXPECT_FALSE(table().entryHas(port(8)));
}

TEST_F(PortConfigTest, ACorruptRowCountsAsNoRowAlsoRowZero) {
    start();
    for (U32 const number : {0u, 8u}) {
        table().entryIs(port(number), portConfig(PortConfigMode::trunk));
        shadow().corrupt(number);
    }
    takeWrites();
    table().entryIs(port(0), portConfig(PortConfigMode::qinq));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("egress/port[0]/vlan_cfg", 2)));
    EXPECT_EQ(shadow().corruptionsDetected(), 1u);
    EXPECT_FALSE(shadow().lastCorruption().empty());
    restart();
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("egress/port[8]/vlan_cfg", 1)));
    EXPECT_FALSE(table().entryHas(port(8)));
    EXPECT_EQ(table().entry(port(0)), portConfig(PortConfigMode::qinq));
}

TEST_F(PortConfigTest, AStoredRowOfMoreThanEightWordsIsARangeFailure) {
    start();
    std::vector<U32> const words(9, 0);
    shadow().store(8, words);
    EXPECT_THROW(table().entryIs(port(8), portConfig(PortConfigMode::trunk)), Belmo::RangeException);
    EXPECT_THROW(restart(), Belmo::RangeException);
}

TEST_F(PortConfigTest, TheCompareCoversAllFourWords) {
    start();
    U32 const words[] = {1, 0, 0, 1};
    shadow().store(8, words);
    takeWrites();
    table().entryIs(port(8), PortConfigResult());
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("egress/port[8]/vlan_cfg", 1)));
    EXPECT_THAT(shadowWords(8), ElementsAre(1, 0, 0, 0));
}

TEST_F(PortConfigTest, RegisterNamesFollowTheRegisterVersion) {
    for (U32 const version : {0u, 1u, 2u, 7u}) {
        SCOPED_TRACE(version);
        auto const profileOfVersion = NerioSwitch::profilePreset("default");
        profileOfVersion->vlanRegVer = version;
        auto const chipOfVersion = Chip::simulatedChip(*profileOfVersion);
        NerioSwitchApi::TableFramework framework(profileOfVersion, chipOfVersion,
                                                 NerioSwitchApi::memoryShadowStore());
        auto const ports = portConfigTableFactory("ports");
        framework.tableIs(ports, StartMode::cold);
        ports->entryIs(port(7), portConfig(PortConfigMode::qinq, true));
        auto const* const name = version > 1 ? "egress/port[7]/vlan_cfg" : "egress/port[7]/cfg";
        EXPECT_EQ(chipOfVersion->read(chipOfVersion->address(name)), 0b110u) << "one layout for all versions";
    }
}

TEST_F(PortConfigTest, HardwareTableIsNamedAndCoversThePorts) {
    profile().numPorts = 16;
    start();
    auto const& descriptor = *convertor().descriptor(0);
    EXPECT_EQ(descriptor.name(), "ports/demo/PortConfig/0");
    EXPECT_EQ(descriptor.firstIndex(), 0u);
    EXPECT_EQ(descriptor.lastIndex(), 15u);
    EXPECT_EQ(convertor().hwTables().size(), 1u);
    EXPECT_EQ(takeWriteCount(), 16u);
}

TEST_F(PortConfigTest, APortWithoutARowIsRefusedBeforeAnythingIsStored) {
    profile().numPorts = 16;
    start();
    takeWrites();
    auto const& published = publishedPorts();
    EXPECT_THROW(table().entryIs(port(16), portConfig(PortConfigMode::trunk)), Belmo::RangeException);
    EXPECT_THROW(table().entryIs(PortConfigKey(), portConfig(PortConfigMode::trunk)), Belmo::RangeException);
    EXPECT_TRUE(table().entries().empty());
    EXPECT_THAT(published, IsEmpty());
    EXPECT_EQ(takeWriteCount(), 0u);
}

TEST_F(PortConfigTest, ARowBeyondPort53EndsTheStartWithThePortsRangeFailure) {
    profile().numPorts = 60;
    for (auto const mode : {StartMode::cold, StartMode::warm}) {
        try {
            start(mode);
            FAIL() << "the start went through";
        } catch (Belmo::RangeException const& failure) {
            EXPECT_STREQ(failure.what(), portRange);
        }
        EXPECT_FALSE(table().initialized());
    }
    EXPECT_EQ(chipRegister("egress/port[53]/vlan_cfg"), 1u) << "rows up to 53 were reached";
    EXPECT_EQ(chipRegister("egress/port[54]/vlan_cfg"), 0u);
}

TEST_F(PortConfigTest, NothingIsWrittenWhileTheDescriptorIsNotInitialized) {
    start();
    takeWrites();
    convertor().descriptor(0)->initializedIs(false);
    table().entryIs(port(5), portConfig(PortConfigMode::trunk));
    EXPECT_EQ(takeWriteCount(), 0u);
    convertor().descriptor(0)->initializedIs(true);
    table().handleEntry(port(5));
    EXPECT_EQ(takeWriteCount(), 1u);
    table().handleEntry(port(5));
    EXPECT_EQ(takeWriteCount(), 0u) << "repeating an unchanged entry costs no write";
}

TEST_F(PortConfigTest, AWriteThatFailsKeepsTheEntryAndTheSameCallTriesAgain) {
    start();
    auto const& published = publishedPorts();
    faulty().faultIs(Chip::Fault::fail, faulty().writes() + 1);
    EXPECT_THROW(table().entryIs(port(5), portConfig(PortConfigMode::trunk)), NerioSwitchApi::BusException);
    EXPECT_TRUE(table().entryHas(port(5)));
    EXPECT_THAT(published, ElementsAre(5));
    EXPECT_THAT(shadowWords(5), IsEmpty()) << "a row that is only intended is not held";
    takeWrites();
    table().entryIs(port(5), portConfig(PortConfigMode::trunk));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("egress/port[5]/vlan_cfg", 0)));

    faulty().faultIs(Chip::Fault::fail, faulty().writes() + 1);
    EXPECT_THROW(table().entryDel(port(5)), NerioSwitchApi::BusException);
    EXPECT_FALSE(table().entryHas(port(5)));
    takeWrites();
    table().entryDel(port(5));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("egress/port[5]/vlan_cfg", 1)));
    table().entryDel(port(5));
    EXPECT_EQ(takeWriteCount(), 0u);
}

TEST_F(PortConfigTest, InconsistentMarksPublishOnChangeOnly) {
    start();
    int published = 0;
    auto const observation =
        table().publisher().observe("hwInconsistentEntry", [&](Belmo::Change const&) { ++published; });
    table().hwInconsistentEntryIs(port(1), true);
    table().hwInconsistentEntryIs(port(1), true);
    EXPECT_TRUE(table().hwInconsistentEntry(port(1)));
    EXPECT_FALSE(table().hwInconsistentEntry(port(2)));
    EXPECT_EQ(published, 1);
    table().hwInconsistentEntryDel(port(1));
    table().hwInconsistentEntryDel(port(1));
    EXPECT_EQ(published, 2);
    table().hwInconsistentEntryIs(port(1), true);
    table().hwInconsistentEntryIs(port(2), false);
    table().hwInconsistentEntryDelAll();
    EXPECT_TRUE(table().hwInconsistentEntries().empty());
    EXPECT_EQ(published, 6);
}

TEST_F(PortConfigTest, AnObserverMayChangeTheTableItObserves) {
    start();
    auto const observation = table().publisher().observe("entry", [&](Belmo::Change const& change) {
        auto const key = *change.key.as<PortConfigKey>();
        if (key == port(1)) table().entryIs(port(2), portConfig(PortConfigMode::qinq));
        if (key == port(2)) table().entryDel(port(1));
    });
    table().entryIs(port(1), portConfig(PortConfigMode::trunk));
    EXPECT_FALSE(table().entryHas(port(1)));
    EXPECT_EQ(chipRegister("egress/port[1]/vlan_cfg"), 1u);
    EXPECT_EQ(chipRegister("egress/port[2]/vlan_cfg"), 2u);
}

TEST_F(PortConfigTest, DestructionWritesNothing) {
    start();
    table().entryIs(port(5), portConfig(PortConfigMode::trunk));
    takeWrites();
    make();  // drops the table that was up
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(chipRegister("egress/port[5]/vlan_cfg"), 0u);
}

using PortConfigDeathTest = PortConfigTest;

TEST_F(PortConfigDeathTest, AHardwareTableMissingFromTheCollectionIsAnAssertion) {
    make();
    auto const elsewhere = Belmo::make<NerioSwitchApi::HwTableCollection>();
    auto const descriptors = Belmo::make<NerioSwitchApi::HwTableDescriptorConfig>(
        Belmo::Ptr<Chip::SimulatedChip>(&chip()), NerioSwitchApi::memoryShadowStore(), elsewhere);
    auto const types = Belmo::make<NerioSwitchApi::SwTableTypes>(
        descriptors, Belmo::make<NerioSwitchApi::HwTableCollection>());
    table().profileIs(Belmo::Ptr<NerioSwitch::ProfileInfo const>(&profile()));
    table().doSetProfileConvertor(types);
    EXPECT_DEATH(table().doCreateHwTable(), "Assertion failed: table ");
}

}  // namespace
