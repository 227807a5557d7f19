#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "NerioSwitchTable/NerioTableStormControl.h"
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
constexpr auto interval = StormControlClass::stormControlInterval;
constexpr auto broadcast = StormControlClass::stormControlBcast;
constexpr auto unicast = StormControlClass::stormControlAllUcast;
constexpr auto multicast = StormControlClass::stormControlMcast;

StormControlEntryKey key(U32 port, StormControlClass trafficClass) {
    return {ChipPortId(port), trafficClass};
}

StormControlEntry limit(U32 increment, U32 scaleFactor = 0) {
    return StormControlEntry().enabledIs(true).incrementIs(increment).scaleFactorIs(scaleFactor);
}

StormControlEntry ticks(U32 number) {
    return StormControlEntry().intervalIs(number);
}

TEST(StormControlValueTest, KeysGoByPortThenClass) {
    EXPECT_EQ(StormControlEntryKey().portId().value(), 53);
    EXPECT_EQ(StormControlEntryKey().trafficClass(), StormControlClass::stormControlInvalid);
    EXPECT_LT(key(1, multicast), key(2, interval));
    EXPECT_LT(key(1, interval), key(1, broadcast));
    EXPECT_NE(key(1, interval).hash(0), key(2, interval).hash(0));
    EXPECT_NE(key(1, interval).hash(0), key(1, broadcast).hash(0));
    EXPECT_NE(key(2, interval).hash(0), key(1, broadcast).hash(0));
}

TEST(StormControlValueTest, TextFormsReadBack) {
    auto const text = Sorn::text(key(7, unicast));
    EXPECT_EQ(text, "NerioSwitchTable::StormControlEntryKey(portId=7,trafficClass=stormControlAllUcast)");
    Sorn::CharRange range(text);
    EXPECT_EQ(StormControlEntryKey(range), key(7, unicast));
    auto const entry = limit(1000, 3).resultIs(9).intervalIs(31250);
    auto const entryText = Sorn::text(entry);
    EXPECT_EQ(entryText,
              "NerioSwitchTable::StormControlEntry(result=9,enabled=true,interval=31250,scaleFactor=3,"
              "increment=1000)");
    Sorn::CharRange entryRange(entryText);
    EXPECT_EQ(StormControlEntry(entryRange), entry);
    EXPECT_EQ(entry.resultString(), "0x00000009");
}

TEST(StormControlValueTest, APortAbove53IsARangeFailure) {
    Sorn::CharRange range("NerioSwitchTable::StormControlEntryKey(portId=54,trafficClass=1)");
    try {
        StormControlEntryKey const parsed(range);
        FAIL() << "port 54 was taken";
    } catch (Belmo::DeserializationException const& failure) {
        EXPECT_EQ(std::string(failure.what()),
                  std::string("NerioSwitchTable::StormControlEntryKey::portId: ") + portRange);
    }
}

TEST(StormControlValueTest, TheDefaultEntryIsTheSameForEveryClass) {
    for (auto const& each : enumerators(StormControlClass())) {
        auto const entry = StormControlEntry::defaultEntry(each.value);
        EXPECT_EQ(entry.result(), 0u);
        EXPECT_FALSE(entry.enabled());
        EXPECT_EQ(entry.interval(), 31250000u);
        EXPECT_EQ(entry.scaleFactor(), 8u);
        EXPECT_EQ(entry.increment(), 0x3FFFFu);
        EXPECT_EQ(entry, StormControlEntry());
        EXPECT_EQ(StormControlEntry::defaultValue(each.value), each.value == interval ? 31250000u : 0x3FFFFu);
    }
    EXPECT_EQ(StormControlEntry::ticksPerSecond, 31250000u);
    EXPECT_EQ(StormControlEntry::minIncrementVal, 1u);
    EXPECT_EQ(StormControlEntry::maxIncrementVal, 0x3FFFFu);
}

TEST(StormControlValueTest, TrueRateIsWhatIsCountedASecond) {
    EXPECT_EQ(StormControlEntry().trueRate(), 0) << "not enabled";
    EXPECT_EQ(limit(1000).trueRate(), 1000);
    EXPECT_EQ(limit(1000, 7).trueRate(), 1000) << "the scale factor has no part in it";
    EXPECT_EQ(limit(3).intervalIs(31250).trueRate(), 3000);
    EXPECT_EQ(limit(1).intervalIs(62500000).trueRate(), 1) << "a half goes away from zero";
    EXPECT_EQ(limit(1).intervalIs(62500001).trueRate(), 0);
    EXPECT_EQ(limit(0x3FFFF).intervalIs(1).trueRate(), 31250000ll * 0x3FFFF);
    EXPECT_EQ(limit(5).intervalIs(0).trueRate(), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(limit(0).intervalIs(0).trueRate(), 0);
    EXPECT_EQ(limit(0).trueRate(), 0);
}

TEST(StormControlValueTest, Words) {
    for (auto const trafficClass : {broadcast, unicast, multicast}) {
        EXPECT_EQ(limit(0x3FFFF).toHardwareValue(trafficClass), 0xBFFFFu);
        EXPECT_EQ(limit(1000, 5).toHardwareValue(trafficClass),
                  packed(1, {{0, 18, 1000}, {19, 1, 1}, {20, 3, 5}})[0]);
        EXPECT_EQ(limit(1000, 5).enabledIs(false).toHardwareValue(trafficClass),
                  packed(1, {{0, 18, 1000}, {20, 3, 5}})[0]);
        EXPECT_EQ(limit(0, 8).enabledIs(false).toHardwareValue(trafficClass), 0u);
        EXPECT_EQ(limit(0, 9).enabledIs(false).toHardwareValue(trafficClass), 1u << 20);
        EXPECT_EQ(limit(0xFFFFFFFF, 0xFFFFFFFF).toHardwareValue(trafficClass), 0x7BFFFFu)
            << "bit 18 and bits 23 and above stay 0";
        EXPECT_EQ(limit(1).resultIs(0xFFFFFFFF).toHardwareValue(trafficClass), 0x80001u)
            << "a result goes nowhere";
    }
}

TEST(StormControlValueTest, AnIntervalKeepsAllElseOutOfItsWord) {
    EXPECT_EQ(limit(0x3FFFF, 7).intervalIs(31250).toHardwareValue(interval), 31250u);
    EXPECT_EQ(ticks(0xFFFFFFFF).toHardwareValue(interval), 0xFFFFFFFFu);
}

TEST(StormControlValueTest, TheMaskOfAnIncrementReadBackFollowsFromTheWordItself) {
    auto const increment = [](U32 word) {
        return StormControlEntry::fromHardwareValue(key(5, broadcast), word).increment();
    };
    // Bit 0 is set: the low 18 bits, and of those above what the word shifted up has as well.
    EXPECT_EQ(increment(0x80001), 0x00001u);
    EXPECT_EQ(increment(0xBFFFF), 0xBFFFFu & 0xFFFBFFFFu);
    EXPECT_EQ(increment(0x800FF), 0x800FFu) << "bit 19 is in 0xFF shifted up by 18";
    // Zeros at the end: more bits stay.
    EXPECT_EQ(increment(0x803E8), 0x803E8u);
    EXPECT_EQ(increment(0x84000), 0x84000u) << "the mask is all ones";
    EXPECT_EQ(increment(0xFFFC0000), 0xFFFC0000u);
    EXPECT_EQ(increment(0), 0u);
}

TEST(StormControlValueTest, HighBitsOfAnIncrementReadBackDoNotGoOutAgain) {
    for (U32 const word : {0x803E8u, 0xBFFFFu, 0x7BFFFFu, 0x3FFFEu, 0x80000u, 0x784000u, 0x100001u}) {
        auto const entry = StormControlEntry::fromHardwareValue(key(5, multicast), word);
        EXPECT_EQ(entry.toHardwareValue(multicast), word);
        EXPECT_EQ(entry.enabled(), (word >> 19 & 1) != 0);
        EXPECT_EQ(entry.scaleFactor(), word >> 20 & 7);
        EXPECT_EQ(entry.interval(), 31250000u);
        EXPECT_EQ(entry.result(), 0u);
    }
    EXPECT_EQ(StormControlEntry::fromHardwareValue(key(5, interval), 77), ticks(77))
        << "all else is of the default entry";
}

TEST(StormControlMappingTest, RowsOneToFourHaveRegisters) {
    auto const mapping = stormControlHwTableMappingFactory("a table", "pipeline[1]/port[3]/");
    EXPECT_EQ(mapping->name(), "a table");
    std::vector<std::string> registers;
    for (U32 const index : {0u, 1u, 2u, 3u, 4u, 5u, 0xFFFFFFFFu}) {
        auto const row = mapping->getRegister(index);
        EXPECT_EQ(row->size(), 1);
        registers.push_back(row->address(0));
    }
    EXPECT_THAT(
        registers,
        ElementsAre("", "pipeline[1]/port[3]/interval_period", "pipeline[1]/port[3]/broadcast_limit",
                    "pipeline[1]/port[3]/unicast_limit", "pipeline[1]/port[3]/multicast_limit", "", ""));
}

class StormControlTest : public NerioTest::TableFixture<StormControlTable> {
protected:
    StormControlTest() : TableFixture([] { return stormControlTableFactory(); }) {}

    std::vector<U32> wordsOf(U32 port, StormControlClass trafficClass) {
        return shadowWords(static_cast<U32>(trafficClass), port);
    }
};

TEST_F(StormControlTest, AHardwareTableForEachPort) {
    for (U16 const ports : {U16{16}, U16{31}, U16{32}, U16{52}}) {
        auto const profileOfPorts = NerioSwitch::profilePreset("default");
        profileOfPorts->numPorts = ports;
        auto const chipOfPorts = Chip::simulatedChip(*profileOfPorts);
        NerioSwitchApi::TableFramework framework(profileOfPorts, chipOfPorts,
                                                 NerioSwitchApi::memoryShadowStore());
        auto const storm = StormControlTableIs();
        framework.tableIs(storm, StartMode::cold);
        EXPECT_EQ(storm->name(), "stormControlSwTable");
        auto const& descriptors = storm->profileConvertorPtr()->descriptors();
        ASSERT_THAT(descriptors, SizeIs(ports));
        for (auto const& [id, descriptor] : descriptors) {
            EXPECT_EQ(descriptor->name(), fmt::format("stormControlSwTable/demo/StormControl/{}", id));
            EXPECT_EQ(descriptor->firstIndex(), 1u);
            EXPECT_EQ(descriptor->lastIndex(), 4u);
        }
        U32 const last = ports - 1u;
        storm->entryIs(key(last, multicast), limit(9));
        auto const path = fmt::format("pipeline[{}]/port[{}]/multicast_limit", last < 26 ? 0 : 1,
                                      last < 26 ? last : last - 26);
        EXPECT_EQ(chipOfPorts->read(chipOfPorts->address(path)), 0x80009u);
        EXPECT_THROW(storm->entryIs(key(ports, multicast), limit(9)), Belmo::RangeException);
    }
}

TEST_F(StormControlTest, AColdStartWritesTheDefaultsPortByPort) {
    start();
    auto const writes = takeWrites();
    ASSERT_THAT(writes, SizeIs(208));
    EXPECT_THAT(writes[0], Pair("pipeline[0]/port[0]/interval_period", 31250000));
    EXPECT_THAT(writes[1], Pair("pipeline[0]/port[0]/broadcast_limit", 0x3FFFF));
    EXPECT_THAT(writes[2], Pair("pipeline[0]/port[0]/unicast_limit", 0x3FFFF));
    EXPECT_THAT(writes[3], Pair("pipeline[0]/port[0]/multicast_limit", 0x3FFFF));
    EXPECT_THAT(writes[4], Pair("pipeline[0]/port[1]/interval_period", 31250000));
    EXPECT_THAT(writes.back(), Pair("pipeline[1]/port[25]/multicast_limit", 0x3FFFF));
    EXPECT_THAT(table().entries(), IsEmpty());
}

TEST_F(StormControlTest, GoldenRows) {
    start();
    takeWrites();
    table().entryIs(key(27, interval), ticks(31250));
    table().entryIs(key(27, broadcast), limit(1000, 2));
    table().entryIs(key(27, unicast), limit(0x3FFFF));
    table().entryIs(key(27, multicast), limit(5).enabledIs(false));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("pipeline[1]/port[1]/interval_period", 31250),
                                          Pair("pipeline[1]/port[1]/broadcast_limit",
                                               packed(1, {{0, 18, 1000}, {19, 1, 1}, {20, 3, 2}})[0]),
                                          Pair("pipeline[1]/port[1]/unicast_limit", 0xBFFFF),
                                          Pair("pipeline[1]/port[1]/multicast_limit", 5)));
    EXPECT_THAT(wordsOf(27, unicast), ElementsAre(0xBFFFF));
}

TEST_F(StormControlTest, RemovingAKeyWritesTheDefaultRow) {
    start();
    table().entryIs(key(5, broadcast), limit(1000));
    table().entryIs(key(5, interval), ticks(31250));
    takeWrites();
    EXPECT_EQ(table().entryDel(key(5, broadcast)), limit(1000));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("pipeline[0]/port[5]/broadcast_limit", 0x3FFFF)));
    EXPECT_EQ(table().entryDel(key(5, broadcast)), StormControlEntry()) << "the default entry";
    EXPECT_EQ(takeWriteCount(), 0u);
    table().entryDelAll();
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("pipeline[0]/port[5]/interval_period", 31250000)));
    EXPECT_EQ(table().entry(key(5, interval)), StormControlEntry());
}

TEST_F(StormControlTest, AnUnchangedEntryNeitherWritesNorPublishesAndAnyChangeWrites) {
    start();
    std::vector<StormControlEntryKey> published;
    auto const observation = table().publisher().observe("entry", [&](Belmo::Change const& change) {
        published.push_back(*change.key.as<StormControlEntryKey>());
    });
    table().entryIs(key(5, broadcast), limit(100));
    takeWrites();
    table().entryIs(key(5, broadcast), limit(100));
    EXPECT_EQ(takeWriteCount(), 0u);
    table().entryIs(key(5, broadcast), limit(100).resultIs(1));
    EXPECT_THAT(takeWrites(), SizeIs(1)) << "the same word, which is not held against the shadow";
    EXPECT_THAT(published, ElementsAre(key(5, broadcast), key(5, broadcast)));
}

TEST_F(StormControlTest, BeforeTheStartEntriesAreKeptAndTraced) {
    make();
    NerioTest::TraceCapture const trace("NerioTableStormControl", 8);
    table().entryIs(key(5, broadcast), limit(100));
    EXPECT_THAT(trace.lines(), ElementsAre(" Skipped as not yet initialized - portId: 5"));
    bringUp(StartMode::cold);
    EXPECT_THAT(takeWrites(), SizeIs(208));
    EXPECT_THAT(wordsOf(5, broadcast), ElementsAre(0x80064));
    EXPECT_THAT(trace.lines(), SizeIs(1));
}

TEST_F(StormControlTest, EntriesSurviveAWarmRestartThatWritesThemAnew) {
    start();
    table().entryIs(key(5, interval), ticks(31250));
    table().entryIs(key(5, broadcast), limit(1));
    table().entryIs(key(51, multicast), limit(3, 7).enabledIs(false));
    holdsAcrossRestart(
        [&] {
            EXPECT_THAT(table().entries(), SizeIs(3));
            EXPECT_EQ(table().entry(key(5, interval)), ticks(31250));
            EXPECT_EQ(table().entry(key(5, broadcast)), limit(1));
            EXPECT_EQ(table().entry(key(51, multicast)), limit(3, 7).enabledIs(false));
            EXPECT_EQ(chipRegister("pipeline[1]/port[25]/multicast_limit"), 0x700003u);
            EXPECT_THAT(table().hwInconsistentEntries(), IsEmpty());
        },
        3);
}

TEST_F(StormControlTest, ANondefaultRowComesBackAsItDecodesAndADefaultRowDoesNot) {
    start();
    table().entryIs(key(5, broadcast), limit(1000).resultIs(7).intervalIs(9));
    table().entryIs(key(6, interval), ticks(31250000));
    table().entryIs(key(6, unicast), StormControlEntry());
    takeWrites();
    NerioTest::TraceCapture const trace("NerioTableStormControl", 8);
    restart();
    EXPECT_THAT(table().entries(), SizeIs(1));
    EXPECT_EQ(table().entry(key(5, broadcast)), limit(0x803E8, 0)) << "with the bits that its mask lets in";
    EXPECT_THAT(trace.lines(),
                ElementsAre(fmt::format(" Adding sw table entry: hwValue {} defaultHwValue {} class 2",
                                        0x803E8, 0x3FFFF),
                            " Skipped as not yet initialized - portId: 5"));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("pipeline[0]/port[5]/broadcast_limit", 0x803E8)));
}

TEST_F(StormControlTest, ARowMissingFromTheShadowIsTracedAndGetsTheDefault) {
    start();
    table().entryIs(key(8, unicast), limit(1));
    table().entryIs(key(9, unicast), limit(1));
    shadow(8).drop(3);
    shadow(9).corrupt(3);
    takeWrites();
    NerioTest::TraceCapture const trace("NerioTableStormControl", 9);
    restart();
    EXPECT_THAT(trace.lines(), ElementsAre(" No HwTable entry found for portId: 8 class: 3",
                                           " No HwTable entry found for portId: 9 class: 3"));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("pipeline[0]/port[8]/unicast_limit", 0x3FFFF),
                                          Pair("pipeline[0]/port[9]/unicast_limit", 0x3FFFF)));
    EXPECT_THAT(table().entries(), IsEmpty());
    EXPECT_GE(shadow(9).corruptionsDetected(), 1u);
}

TEST_F(StormControlTest, AWarmStartKeepsRowsThatNobodyWantsAndAColdOneWritesThemAnew) {
    start();
    takeWrites();
    restart(StartMode::warm);
    EXPECT_EQ(takeWriteCount(), 0u);
    restart(StartMode::cold);
    EXPECT_EQ(takeWriteCount(), 208u);
}

TEST_F(StormControlTest, APortWithoutAPlaceCountsAsPortZeroOfPipeZero) {
    profile().portIdToIngressPipe.erase(30);
    start();
    takeWrites();
    table().entryIs(key(30, broadcast), limit(1));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("pipeline[0]/port[0]/broadcast_limit", 0x80001)));
}

TEST_F(StormControlTest, AKeyWithoutARowIsRefusedBeforeAnythingIsStored) {
    profile().numPorts = 16;
    start();
    takeWrites();
    for (auto const& wrong :
         {key(16, broadcast), key(53, interval), StormControlEntryKey(),
          key(5, StormControlClass::stormControlInvalid), key(5, static_cast<StormControlClass>(5))})
        EXPECT_THROW(table().entryIs(wrong, limit(1)), Belmo::RangeException) << Sorn::text(wrong);
    EXPECT_THAT(table().entries(), IsEmpty());
    EXPECT_EQ(takeWriteCount(), 0u);
}

TEST_F(StormControlTest, AKeyWithoutARowFromBeforeTheStartCanBeDeleted) {
    make();
    table().entryIs(key(53, broadcast), limit(1));
    table().entryIs(key(5, StormControlClass::stormControlInvalid), limit(1));
    bringUp(StartMode::cold);
    takeWrites();
    table().entryDelAll();
    EXPECT_THAT(table().entries(), IsEmpty());
    EXPECT_EQ(takeWriteCount(), 0u);
}

TEST_F(StormControlTest, APortAbove53EndsTheStartWithThePortsRangeFailure) {
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
    auto const writes = takeWrites();
    ASSERT_THAT(writes, SizeIs(54 * 4)) << "ports up to 53 were reached by the cold start";
}

TEST_F(StormControlTest, AWriteThatFailsIsTriedAgainByTheSameCall) {
    start();
    faulty().faultIs(Chip::Fault::fail, faulty().writes() + 1);
    EXPECT_THROW(table().entryIs(key(5, broadcast), limit(1)), NerioSwitchApi::BusException);
    EXPECT_TRUE(table().entryHas(key(5, broadcast)));
    EXPECT_THAT(wordsOf(5, broadcast), IsEmpty());
    takeWrites();
    table().entryIs(key(5, broadcast), limit(1));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("pipeline[0]/port[5]/broadcast_limit", 0x80001)));
}

TEST_F(StormControlTest, DestructionWritesNothing) {
    start();
    table().entryIs(key(5, broadcast), limit(1));
    takeWrites();
    make();
    EXPECT_EQ(takeWriteCount(), 0u);
}

using StormControlDeathTest = StormControlTest;

TEST_F(StormControlDeathTest, AHardwareTableMissingFromTheCollectionIsAnAssertion) {
    make();
    auto const descriptors = Belmo::make<NerioSwitchApi::HwTableDescriptorConfig>(
        Belmo::Ptr<Chip::SimulatedChip>(&chip()), NerioSwitchApi::memoryShadowStore(),
        Belmo::make<NerioSwitchApi::HwTableCollection>());
    auto const types = Belmo::make<NerioSwitchApi::SwTableTypes>(
        descriptors, Belmo::make<NerioSwitchApi::HwTableCollection>());
    table().profileIs(Belmo::Ptr<NerioSwitch::ProfileInfo const>(&profile()));
    table().doSetProfileConvertor(types);
    EXPECT_DEATH(table().doCreateHwTable(), "Assertion failed: table ");
}

}  // namespace
