#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <random>

#include "FailureText.h"
#include "NerioSwitchTable/NerioTableVlanGroup.h"
#include "SwitchFixture.h"
#include "TraceCapture.h"
#include "chip/MulticastLookup.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::VlanGroupId;
using NerioSwitch::VlanGroupKey;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

constexpr char const* badGroup =
    "NerioSwitch::VlanGroupId::value < NerioSwitch::VlanGroupId::min or > NerioSwitch::VlanGroupId::null not "
    "allowed";
constexpr U32 strobe = 1u << 14;

/** The first `count` of the VLANs 0x101 to 0x109. */
VlanGroupResult vlans(U8 count) {
    VlanGroupResult result;
    for (U8 i = 0; i < 9 && i < count; ++i)
        result.groupIs(i, 0x101 + i);
    return result.numVlansIs(count);
}

class VlanGroupTest : public NerioTest::TableFixture<VlanGroupTable> {
protected:
    VlanGroupTest() : TableFixture([] { return vlanGroupTableFactory("groups"); }) {}

    /** Each egress processor serves two ports, as many as a line's address has room for. */
    void twoPortsPerProcessor() {
        std::vector<NerioSwitch::PipeRangeInfo> pipes;
        for (U16 pipe = 0; pipe < 26; ++pipe)
            pipes.push_back({pipe, static_cast<U16>(2 * pipe), static_cast<U16>(2 * pipe + 1)});
        profile().egressPipesAre(pipes);
        profile().layouts[NerioSwitch::TableLayoutEnum::tableLayoutEgress].processors = 26;
    }
    VlanGroupConvertor& groups() { return static_cast<VlanGroupConvertor&>(convertor()); }
    std::array<U32, 8> row(VlanGroupKey const& key, VlanGroupResult const& result) {
        std::array<U32, 8> words{};
        auto const item = VlanGroupEntryIs(key);
        item->resultIs(result);
        groups().setHwBuffer(item, reinterpret_cast<U8*>(words.data()));
        return words;
    }
    Belmo::Ptr<VlanGroupEntry> decoded(NerioSwitchApi::HwIndex index, std::array<U32, 8> const& words) {
        shadow().store(index, words);
        return Belmo::ptrCast<VlanGroupEntry>(groups().decodeHwEntry(index));
    }
};

TEST_F(VlanGroupTest, ARowIsFourLinesWithTheFirstVlanOfEachInTheHighHalf) {
    start();
    takeWrites();
    table().entryIs({27, 5}, vlans(3));
    auto const writes = takeWrites();
    // Port 27 is number 1 of pipe 1: its lines begin 512 above those of number 0.
    U32 const line = 5 * 4 + 448 + 512;
    std::vector<U32> const words{
        0x01010102, line << 4 | strobe | 7,   0x01030000, (line + 1) << 4 | strobe | 1,
        0,          (line + 2) << 4 | strobe, 0,          (line + 3) << 4 | strobe};
    ASSERT_EQ(writes.size(), 8u);
    for (U32 i = 0; i < 8; ++i) {
        EXPECT_EQ(writes[i].first,
                  fmt::format("egress/processor[1]/{}", i % 2 == 0 ? "lum_data" : "lum_ctl_addr_data"));
        EXPECT_EQ(writes[i].second, words[i]) << i;
    }
}

TEST_F(VlanGroupTest, FlagsFollowTheNumberOfVlans) {
    start();
    auto const flags = [&](U8 count) {
        auto const words = row({0, 0}, vlans(count));
        std::vector<U32> found;
        for (std::size_t pair = 0; pair < 4; ++pair) {
            EXPECT_EQ(words[2 * pair + 1] >> 4, (448u + pair) | 1u << 10) << "address and strobe stay";
            EXPECT_EQ(words[2 * pair + 1] & 8, 0u);
            found.push_back(words[2 * pair + 1] & 7);
        }
        return found;
    };
    EXPECT_THAT(flags(0), ElementsAre(0, 0, 0, 0));
    EXPECT_THAT(flags(1), ElementsAre(1, 0, 0, 0));
    EXPECT_THAT(flags(2), ElementsAre(3, 0, 0, 0));
    EXPECT_THAT(flags(3), ElementsAre(7, 1, 0, 0));
    EXPECT_THAT(flags(7), ElementsAre(7, 7, 7, 1));
    EXPECT_THAT(flags(8), ElementsAre(7, 7, 7, 3)) << "the list does not go on behind the eighth";
    EXPECT_THAT(flags(9), ElementsAre(7, 7, 7, 7)) << "although the ninth has no field";
    EXPECT_EQ(row({0, 0}, vlans(5))[4], 0x01050000u) << "the low field of an odd one is 0";
}

TEST_F(VlanGroupTest, PortsOfEqualParityInAPipeHaveTheirLinesInOnePlace) {
    start();
    EXPECT_EQ(row({0, 3}, vlans(1))[1], (448u + 12) << 4 | strobe | 1);
    EXPECT_EQ(row({2, 3}, vlans(1)), row({0, 3}, vlans(1)));
    EXPECT_EQ(row({3, 3}, vlans(1))[1], (960u + 12) << 4 | strobe | 1);
    profile().portIdToEgressPipe.erase(3);
    EXPECT_EQ(row({3, 3}, vlans(1))[1], (448u + 12) << 4 | strobe | 1)
        << "a port without a pipe adds nothing";
}

TEST_F(VlanGroupTest, AddressAndStrobeAreSetAloneAndTheRestStays) {
    start();
    U32 const line = 5 * 4 + 448 + 512;
    U32 const index = 27 * 16 + 5;
    for (U32 const before : {0u, ~0u}) {
        std::array<U32, 8> words{};
        words.fill(before);
        groups().setStaticBuffer(index, reinterpret_cast<U8*>(words.data()));
        for (std::size_t pair = 0; pair < 4; ++pair) {
            auto const address = static_cast<U32>(line + pair) << 4;
            EXPECT_EQ(words[2 * pair], before);
            EXPECT_EQ(words[2 * pair + 1], (before & ~0x3FF0u) | address | strobe);
        }
    }
    auto const none = Belmo::ptrCast<VlanGroupEntry>(groups().nullDirectEntry(index));
    EXPECT_EQ(none->key(), VlanGroupKey(27, 5));
    EXPECT_EQ(none->result(), VlanGroupResult());
    EXPECT_FALSE(none->valid());
}

TEST_F(VlanGroupTest, TracesWhatItCreatesProgramsAndDecodes) {
    auto const textOf = [](VlanGroupKey const& key, VlanGroupResult const& result) {
        auto const item = VlanGroupEntryIs(key);
        item->resultIs(result);
        return item->toStrep();
    };
    VlanGroupKey const key(27, 5);
    auto const programmed = "VlanGroupTable: Programming Entry " + textOf(key, vlans(3));
    auto const encoded = "key is " + Sorn::text(key);
    auto const linesAt = [&](int level) {
        start();
        NerioTest::TraceCapture const trace("NerioTableVlanGroup", level);
        table().entryIs(key, vlans(3));
        restart();
        return trace.lines();
    };
    auto const few = linesAt(7);
    EXPECT_THAT(few, Contains(programmed));
    EXPECT_THAT(few, Not(Contains(encoded)));
    EXPECT_THAT(few, Not(Contains("doCreateHwTables tableState: 1")));
    EXPECT_THAT(few, Not(Contains("Decoded entry is " + textOf({0, 0}, {})))) << "a row of no entry";
    auto const more = linesAt(8);
    EXPECT_THAT(more, Contains("doCreateHwTables tableState: 1"));
    EXPECT_THAT(more, Contains("Decoded entry is " + textOf(key, vlans(3))));
    EXPECT_THAT(more, Contains("Decoded entry is " + textOf({0, 0}, {})));
    EXPECT_THAT(more, Not(Contains(encoded)));
    EXPECT_THAT(linesAt(9), Contains(encoded));
}

TEST_F(VlanGroupTest, GroupNumbersThatWouldReachTheNextPortAreRefused) {
    make();
    for (bool const started : {false, true}) {
        if (started) bringUp(NerioTest::StartMode::cold);
        takeWrites();
        for (U16 const number : {U16{16}, U16{17}}) {
            EXPECT_EQ(failureOf<Belmo::RangeException>([&] {
                          table().entryIs({3, number}, vlans(1));
                      }),
                      badGroup);
            EXPECT_FALSE(table().entryHas({3, number}));
            EXPECT_EQ(table().entryDel({3, number}), VlanGroupResult());
        }
        EXPECT_EQ(takeWriteCount(), 0u);
    }
    EXPECT_THROW(table().entryIs({52, 0}, vlans(1)), Belmo::RangeException);
    EXPECT_EQ(failureOf<Belmo::RangeException>([] { VlanGroupId{18}; }), badGroup);
    EXPECT_TRUE(table().entries().empty());
}

TEST_F(VlanGroupTest, HasItsConstants) {
    start();
    EXPECT_EQ(groups().dataWords(), 8);
    for (U8 word = 0; word < 8; ++word)
        EXPECT_EQ(groups().hwStaticWord(word), word % 2 == 0 ? 0u : 0xFFFFFFF0u);
    EXPECT_EQ(convertor().descriptor(0)->name(), "groups/demo/VlanGroup/0");
    EXPECT_EQ(convertor().hwTables().size(), 1u);
    EXPECT_EQ(convertor().descriptor(0)->lastIndex(), 52u * 16 - 1);
    for (U32 const index : {0u, 831u, 400u})
        EXPECT_EQ(groups().hwIndexFromKey(groups().keyFromHwIndex(index)), index);
    EXPECT_EQ(groups().hwIndexFromKey({3, 5}), 53u);
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { static_cast<void>(groups().keyFromHwIndex(54 * 16)); }),
              "NerioSwitch::ChipPortId::value < NerioSwitch::ChipPortId::min or > "
              "NerioSwitch::ChipPortId::null not allowed");
    EXPECT_EQ(groups().capacityIndexFromEntry(vlanGroupEntryFactory({7, 2})), 7u);
    ASSERT_EQ(gauges().size(), 52u);
    EXPECT_EQ(gauges()[7]->key(), TableGauge::TableKey("VLAN group", "Port7", "groups"));
    EXPECT_EQ(gauges()[7]->capacity(), 16u);
    table().entryIs({7, 2}, vlans(1));
    EXPECT_EQ(gauges()[7]->used(), 1u);
}

TEST_F(VlanGroupTest, PortsOfAllPipesMustBeThere) {
    profile().egressPipeRangeInfo.erase(1);
    make();
    EXPECT_DEATH(bringUp(NerioTest::StartMode::cold), "lastPort == numPorts");
    profile().egressPipeRangeInfo[0].lastPort = 50;
    make();
    bringUp(NerioTest::StartMode::cold);
    auto const lastRow = convertor().hwTable(0)->registersOf(51 * 16);
    EXPECT_EQ(chip().path(lastRow[0]), "egress/processor[1]/lum_data") << "a missing pipe counts as one port";
}

TEST_F(VlanGroupTest, SurvivesARestartAndNineVlansComeBackAsEight) {
    start();
    auto unused = vlans(2);
    unused.groupIs(8, 99);
    table().entryIs({0, 0}, vlans(8));
    table().entryIs({51, 15}, vlans(1));
    table().entryIs({4, 4}, unused);
    table().entryIs({5, 5}, vlans(9).numVlansIs(0));
    takeWrites();
    restart();
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(table().entries().size(), 3u);
    EXPECT_EQ(table().entry({0, 0}), vlans(8));
    EXPECT_EQ(table().entry({51, 15}), vlans(1));
    EXPECT_EQ(table().entry({4, 4}), vlans(2)) << "places that are not in use have no field";
    EXPECT_FALSE(table().entryHas({5, 5}));
    table().entryIs({6, 6}, vlans(9));
    takeWrites();
    restart();
    EXPECT_EQ(table().entry({6, 6}), vlans(8));
    EXPECT_EQ(takeWriteCount(), 8u) << "the list of eight does not go on";
    EXPECT_TRUE(table().hwInconsistentEntries().empty());
}

TEST_F(VlanGroupTest, ABrokenChainIsMarkedAndHasNoVlans) {
    start();
    auto const good = row({1, 1}, vlans(6));
    U32 const index = 17;
    EXPECT_EQ(decoded(index, good)->result(), vlans(6));
    EXPECT_TRUE(table().hwInconsistentEntries().empty());
    auto const breaks = [&](std::size_t word, U32 bits) {
        auto words = good;
        words[word] ^= bits;
        table().hwInconsistentEntryDelAll();
        auto const item = decoded(index, words);
        EXPECT_EQ(item->key(), VlanGroupKey(1, 1));
        EXPECT_EQ(item->result().numVlans() == 0, table().hwInconsistentEntry({1, 1}));
        EXPECT_EQ(item->valid(), item->result().numVlans() != 0);
        return table().hwInconsistentEntry({1, 1});
    };
    EXPECT_TRUE(breaks(0, 0x01010000)) << "a VLAN of zero under a flag";
    EXPECT_TRUE(breaks(2, 0x00000104)) << "and in the low half";
    EXPECT_TRUE(breaks(1, 1)) << "a set flag behind a cleared one";
    EXPECT_TRUE(breaks(1, 2));
    EXPECT_TRUE(breaks(1, 4)) << "flags after the end";
    EXPECT_TRUE(breaks(7, 1)) << "flags after the end";
    EXPECT_FALSE(breaks(5, 2)) << "the list ends a VLAN earlier";
    EXPECT_FALSE(breaks(5, 4)) << "a list that goes on with nothing";
    auto words = good;
    words[0] |= 0xFFFF0000;
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { decoded(index, words); }),
              "Bridging::VlanId::value < 1 or > 4094 not allowed");
}

TEST_F(VlanGroupTest, TheChipWalksTheVlansOfEachGroupThroughRandomChangesAndRestarts) {
    twoPortsPerProcessor();
    start();
    Chip::VlanGroupWalk const walk(chip(), profile());
    std::map<VlanGroupKey, VlanGroupResult> wanted;
    std::mt19937 random(27);
    for (int step = 0; step < 3000; ++step) {
        VlanGroupKey const key(random() % 52, random() % 16);
        if (random() % 3 == 0) {
            table().entryDel(key);
            wanted.erase(key);
        } else {
            VlanGroupResult result;
            for (U8 i = 0; i < 9; ++i)
                result.groupIs(i, 1 + random() % 4094);
            table().entryIs(key, wanted[key] = result.numVlansIs(static_cast<U8>(random() % 9)));
        }
        if (step % 500 != 499) continue;
        restart();
        for (U16 port = 0; port < 52; ++port) {
            for (U8 group = 0; group < 16; ++group) {
                std::vector<U16> expected;
                if (auto const found = wanted.find({port, group}); found != wanted.end()) {
                    for (U8 i = 0; i < found->second.numVlans(); ++i)
                        expected.push_back(found->second.group()[i].value());
                }
                ASSERT_EQ(walk.vlans(port, group), expected) << port << " " << int{group};
            }
        }
    }
}

TEST_F(VlanGroupTest, TheChipKeepsNoGroupsOfMorePortsThanItsLinesCanTellApart) {
    start();
    EXPECT_THROW(Chip::VlanGroupWalk(chip(), profile()), Belmo::RangeException);
    table().entryIs({0, 3}, vlans(2));
    auto const& lines = chip().indirectMemory("egress/processor[0]/lines");
    EXPECT_THAT(lines.row(448 + 12), ElementsAre(0, 0));
    EXPECT_FALSE(lines.keeps(512 + 448));
    EXPECT_TRUE(lines.keeps(512 + 447));
}

TEST(VlanGroupValueTest, AGroupHasNinePlaces) {
    VlanGroupResult result;
    EXPECT_EQ(result.group()[8].value(), 1);
    EXPECT_EQ(result.numVlans(), 0);
    result.groupIs(8, 4094).groupIs(0, 7).numVlansIs(2);
    EXPECT_EQ(result.group()[8].value(), 4094);
    EXPECT_EQ(result.resultString(), "numVlans: 2 { 7 1 }");
    EXPECT_EQ(VlanGroupResult().resultString(), "numVlans: 0 { }");
    EXPECT_EQ(result.groupDel(8).group()[8].value(), 1);
    EXPECT_EQ(result.groupDelAll().group(), VlanGroupResult().group());
    EXPECT_EQ(result.numVlans(), 2);
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { result.groupIs(9, 5); }),
              "cannot access index 9 of an array with size 9");
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { result.groupDel(9); }),
              "cannot access index 9 of an array with size 9");
    auto const text = VlanGroupEntryIs({3, 5})->toStrep();
    EXPECT_TRUE(text.starts_with("VlanGroupEntry(  ") && text.ends_with(" )")) << text;
}

TEST(VlanGroupValueTest, AResultIsNotReadFromAText) {
    Sorn::CharRange range("anything");
    EXPECT_DEATH(VlanGroupResult{range}, "No String constructor for VlanGroupResult - has collection");
}

}  // namespace
