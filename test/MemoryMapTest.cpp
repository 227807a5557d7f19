#include <algorithm>
#include <fmt/format.h>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>

#include "chip/MemoryMap.h"
#include "chip/SimulatedChip.h"

namespace {

using NerioSwitchApi::BusException;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

constexpr auto acl = NerioSwitch::TableLayoutEnum::tableLayoutAcl;

struct MemoryMap : testing::Test {
    /** One ACL processor for two pipelines each, and four pipelines. */
    void shareAclProcessors() {
        profile->numPipelines = 4;
        profile->layouts[acl] = {2, 4, 2, 2048, {0, 0, 1, 1}, {0, 0, 1, 1}};
    }
    void make() { chip = Chip::simulatedChip(*profile); }
    std::set<Belmo::String> names() const {
        std::set<Belmo::String> names;
        for (auto const& memory : Chip::chipMemories(*profile))
            names.insert(memory.name);
        return names;
    }
    /** Writes the data registers 1, 2, 3 and so on, and then the control word. */
    void store(Belmo::String const& prefix, U32 dataRegisters, U32 control) {
        for (U32 i = 0; i < dataRegisters; ++i)
            chip->write(chip->address(prefix + "hash_data" + std::to_string(i)), i + 1);
        chip->write(chip->address(prefix + "hash_ctl"), control);
    }
    std::vector<U32> row(Belmo::String const& memory, U32 number) {
        auto const row = chip->indirectMemory(memory).row(number);
        return {row.begin(), row.end()};
    }
    /** How many rows of all memories hold anything. */
    U32 rowsInUse() const {
        U32 count = 0;
        for (auto const& memory : Chip::chipMemories(*profile)) {
            auto const& rows = chip->indirectMemory(memory.name);
            for (U32 number = 0; number < memory.rows(); ++number)
                count += std::ranges::any_of(rows.row(number), std::identity()) ? 1 : 0;
        }
        return count;
    }

    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip;
};

TEST_F(MemoryMap, AChipHasTheMemoriesOfItsProfile) {
    std::set<Belmo::String> expected;
    for (U32 i = 0; i < 2; ++i) {
        for (auto const* name : {"hashTest", "hits"})
            expected.insert(fmt::format("pipeline[{}]/processor/{}", i, name));
        expected.insert(fmt::format("ingress/processor_acl[{}]/counters", i));
        for (auto const* table : {"table0", "table1", "table2", "table5", "protocols", "portRanges"})
            expected.insert(fmt::format("ingress/processor_acl[{0}]/{1}/pipeline{0}", i, table));
        for (auto const* name :
             {"l3Lag", "lpm11", "lpm14", "lpm17", "lpm20", "lpm23", "lpm26", "lpm29", "lpm32", "hits"})
            expected.insert(fmt::format("ingress/processor_l3[{}]/{}", i, name));
        expected.insert(fmt::format("ingress/processor_l4[0]/natDynMatch/pipeline{}", i));
        expected.insert(fmt::format("egress/processor[{}]/natRewrite", i));
        for (auto const* name : {"sg", "l3Floods"})
            expected.insert(fmt::format("ingress/processor_l3[{}]/{}", i, name));
        expected.insert(fmt::format("egress/processor[{}]/lines", i));
    }
    expected.insert("ingress/processor_l4[0]/natMatch");
    for (auto const* name : {"ingress/processor_l2[0]/lagGroups", "ingress/processor_l2[0]/lagPorts",
                             "ingress/processor_l2[1]/lagGroups", "ingress/processor_l2[1]/lagPorts",
                             "cpu_pipeline[0]/lag_cpu[0]/lagPorts"})
        expected.insert(name);
    for (auto const* pipeline : {"pipeline[0]/", "pipeline[1]/", "cpu_pipeline[0]/"}) {
        for (U32 group = 0; group < 13; ++group)
            expected.insert(fmt::format("{}lag_lut[{}]/lagBuckets", pipeline, group));
    }
    for (auto const* block : {"ingress/vlan[0]", "ingress/vlan[1]", "cpu_pipeline[0]/vlan"}) {
        expected.insert(fmt::format("{}/vlans", block));
        expected.insert(fmt::format("{}/floodSets", block));
    }
    for (auto const* block :
         {"ingress/processor_l2[0]", "ingress/processor_l2[1]", "cpu_pipeline[0]/processor_l2"})
        expected.insert(fmt::format("{}/macVlans", block));
    EXPECT_EQ(names(), expected);
    make();
    for (auto const& name : expected)
        EXPECT_NO_THROW(chip->indirectMemory(name));
}

TEST_F(MemoryMap, AHashTestRowIsStoredByBitFifteenInTheWayOfBitFourteen) {
    make();
    store("pipeline[1]/processor/", 2, 0x8005);
    EXPECT_THAT(row("pipeline[1]/processor/hashTest", 5), ElementsAre(1, 2));
    store("pipeline[1]/processor/", 2, 0xC007);
    EXPECT_THAT(row("pipeline[1]/processor/hashTest", 15), ElementsAre(1, 2));
    EXPECT_EQ(rowsInUse(), 2u);
    EXPECT_THROW(store("pipeline[1]/processor/", 2, 0x8008), BusException);
    store("pipeline[1]/processor/", 2, 0x4004);
    EXPECT_EQ(rowsInUse(), 2u) << "without a strobe nothing is stored";
}

TEST_F(MemoryMap, OlderChipsHaveTheirLayer2RowsInPipelines) {
    profile->vlanRegVer = 2;
    profile->hwApi = {4, 1};
    profile->noMuxInRegName = false;
    make();
    for (auto const* block :
         {"pipeline[0]/processor", "pipeline[1]/processor", "cpu_pipeline[0]/processor"}) {
        EXPECT_EQ(row(fmt::format("{}/vlans", block), 4095).size(), 2u);
        EXPECT_EQ(row(fmt::format("{}/floodSets", block), 4095).size(), 4u);
        EXPECT_EQ(row(fmt::format("{}/macVlans", block), 1023).size(), 4u);
    }
    store("pipeline[1]/processor/", 4, 0x18005);
    EXPECT_THAT(row("pipeline[1]/processor/macVlans", 5), ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(rowsInUse(), 1u) << "bit 16 tells addresses from the hash test behind the same registers";
    store("pipeline[1]/processor/", 2, 0x8005);
    EXPECT_THAT(row("pipeline[1]/processor/hashTest", 5), ElementsAre(1, 2));
    EXPECT_EQ(rowsInUse(), 2u);
    EXPECT_THROW(store("pipeline[1]/processor/", 4, 0x18400), BusException);
}

TEST_F(MemoryMap, AChipWithoutACpuPipelineOrRowsOfAddressesHasNoMemoryForThem) {
    profile->hasCpuPipeline = false;
    profile->macVlanRows = {0, 16};
    EXPECT_THAT(names(), Contains("ingress/vlan[1]/vlans"));
    for (auto const& name : names())
        EXPECT_TRUE(name.find("macVlans") == name.npos && name.find("cpu_pipeline[0]/vlan") == name.npos)
            << name;
}

TEST_F(MemoryMap, RowsOfPairsHave13BitsInThreeWaysAndAFifthWordFromVersion6On) {
    for (U16 const version : {U16{5}, U16{6}}) {
        profile->hwApi = {version, 0};
        make();
        U32 const words = version == 6 ? 5 : 4;
        store("ingress/processor_l3[1]/", words, 0x1FFFu | 2u << 14 | 1u << 17 | 8u << 18);
        auto const stored = row("ingress/processor_l3[1]/sg", 24575);
        EXPECT_EQ(stored.size(), words);
        EXPECT_EQ(stored.back(), words);
        EXPECT_EQ(rowsInUse(), 1u);
        EXPECT_THROW(store("ingress/processor_l3[1]/", words, 3u << 14 | 1u << 17 | 8u << 18), BusException);
    }
    store("ingress/processor_l3[1]/", 2, 159u | 1u << 17 | 10u << 18);
    EXPECT_THAT(row("ingress/processor_l3[1]/l3Floods", 159), ElementsAre(1, 2));
}

TEST_F(MemoryMap, ALineOfAnEgressProcessorHoldsTheControlWordsLow4Bits) {
    profile->egressPipesAre({{0, 0, 1}, {1, 2, 3}});
    make();
    auto const line = [&](U32 data, U32 control) {
        chip->write(chip->address("egress/processor[1]/lum_data"), data);
        chip->write(chip->address("egress/processor[1]/lum_ctl_addr_data"), control);
    };
    line(7, 1023u << 4 | 1u << 14 | 0xB);
    EXPECT_THAT(row("egress/processor[1]/lines", 1023), ElementsAre(7, 0xB));
    line(9, 5u << 4 | 0xF);
    EXPECT_EQ(rowsInUse(), 1u) << "without a strobe nothing is stored";
    line(7, 1023u << 4 | 1u << 15);
    EXPECT_EQ(chip->read(chip->address("egress/processor[1]/lum_data")), 7u);
    std::vector<NerioSwitchApi::RegisterHandle> handles;
    for (int i = 0; i < 2; ++i) {
        handles.push_back(chip->address("egress/processor[1]/lum_data"));
        handles.push_back(chip->address("egress/processor[1]/lum_ctl_addr_data"));
    }
    std::vector<U32> words{1, 1023u << 4 | 1u << 14, 2, 1022u << 4 | 1u << 14 | 5};
    chip->readRow(handles, words);
    EXPECT_THAT(words, ElementsAre(7, 1023u << 4 | 1u << 14 | 0xB, 0, 1022u << 4 | 1u << 14));
}

TEST_F(MemoryMap, AnAclRowOfAProcessorPerPipelineHasTwelveBitsAndTheWayInBitTwelve) {
    make();
    U32 rows = 0;
    for (U32 const table : {0u, 1u, 2u, 5u}) {
        auto const memory = "ingress/processor_acl[1]/table" + std::to_string(table) + "/pipeline1";
        store("ingress/processor_acl[1]/", 4, 1u << 18 | table << 13 | 1u << 12 | 4095);
        EXPECT_THAT(row(memory, 4096 + 4095), ElementsAre(1, 2, 3, 4));
        store("ingress/processor_acl[1]/", 4, 1u << 18 | table << 13 | 1u << 11);
        EXPECT_THAT(row(memory, 2048), ElementsAre(1, 2, 3, 4));
        rows += 2;
        EXPECT_EQ(rowsInUse(), rows);
    }
    store("ingress/processor_acl[1]/", 4, 1u << 18 | 1u << 16);
    store("ingress/processor_acl[1]/", 4, 1u << 18 | 7u << 13);
    EXPECT_EQ(rowsInUse(), rows) << "a pipeline bit, and a table that is not there";
}

TEST_F(MemoryMap, ProtocolsAndPortRangesOfAPipelineHaveRowsOfTheirNumbers) {
    for (bool const shared : {false, true}) {
        if (shared) shareAclProcessors();
        make();
        U32 const bit = shared ? 1u << 16 : 0;
        Belmo::String const behind = shared ? "/pipeline3" : "/pipeline1";
        store("ingress/processor_acl[1]/", 4, 1u << 18 | bit | 3u << 13 | 255);
        EXPECT_THAT(row("ingress/processor_acl[1]/protocols" + behind, 255), ElementsAre(1, 2, 3, 4));
        store("ingress/processor_acl[1]/", 4, 1u << 18 | bit | 6u << 13 | 31);
        EXPECT_THAT(row("ingress/processor_acl[1]/portRanges" + behind, 31), ElementsAre(1, 2, 3, 4));
        EXPECT_EQ(rowsInUse(), 2u);
        store("ingress/processor_acl[1]/", 4, bit | 3u << 13 | 254);
        EXPECT_EQ(rowsInUse(), 2u) << "without a strobe nothing is stored";
    }
}

TEST_F(MemoryMap, ProtocolsHaveAFifthDataWordBelowAclRegisterVersionTwoAndRangesComeWithApiFour) {
    Belmo::String const protocols = "ingress/processor_acl[0]/protocols/pipeline0";
    Belmo::String const ranges = "ingress/processor_acl[0]/portRanges/pipeline0";
    profile->aclRegVer = 1;
    profile->hwApi = {3, 9};
    make();
    store("ingress/processor_acl[0]/", 5, 1u << 18 | 3u << 13 | 6);
    EXPECT_THAT(row(protocols, 6), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_THAT(names(), Not(Contains(ranges)));
    profile->aclRegVer = 2;
    profile->hwApi = {4, 0};
    make();
    store("ingress/processor_acl[0]/", 4, 1u << 18 | 3u << 13 | 6);
    EXPECT_THAT(row(protocols, 6), ElementsAre(1, 2, 3, 4));
    EXPECT_THAT(names(), Contains(ranges));
}

TEST_F(MemoryMap, ProtocolsAreThereWhereTheChipHasNoRowsForRules) {
    profile->layouts[acl].size = 0;
    EXPECT_THAT(names(), Not(Contains("ingress/processor_acl[0]/table0/pipeline0")));
    EXPECT_THAT(names(), Contains("ingress/processor_acl[0]/protocols/pipeline0"));
}

TEST_F(MemoryMap, AnAclRowOfASharedProcessorHasElevenBitsAndThePipelinesLowBit) {
    shareAclProcessors();
    make();
    EXPECT_THAT(names(), Contains("ingress/processor_acl[1]/table5/pipeline3"));
    EXPECT_THAT(names(), Not(Contains("ingress/processor_acl[1]/table5/pipeline1")));
    U32 rows = 0;
    for (U32 const table : {0u, 1u, 2u, 5u}) {
        for (U32 const pipeline : {2u, 3u}) {
            auto const memory = "ingress/processor_acl[1]/table" + std::to_string(table) + "/pipeline" +
                                std::to_string(pipeline);
            store("ingress/processor_acl[1]/", 4,
                  1u << 18 | (pipeline & 1) << 16 | table << 13 | 1u << 11 | 2047);
            EXPECT_THAT(row(memory, 2048 + 2047), ElementsAre(1, 2, 3, 4));
            EXPECT_EQ(rowsInUse(), ++rows);
        }
    }
}

TEST_F(MemoryMap, OnlyTheTwoCountsTellWhetherAclProcessorsAreShared) {
    profile->aclPipeModeCapable = false;
    EXPECT_TRUE(Chip::aclProcessorPerPipeline(*profile));
    profile->aclPipeModeCapable = true;
    profile->layouts[acl].processors = 1;
    EXPECT_FALSE(Chip::aclProcessorPerPipeline(*profile));
}

TEST_F(MemoryMap, AclWaysAreAsLongAsTheLayoutSaysAndTheControlWordReaches) {
    auto const rowsPerWay = [&](U32 size) {
        profile->layouts[acl].size = size;
        make();
        return chip->indirectMemory("ingress/processor_acl[0]/table0/pipeline0").description().rowsPerWay;
    };
    EXPECT_EQ(rowsPerWay(1), 1u);
    EXPECT_EQ(rowsPerWay(2047), 1024u);
    EXPECT_EQ(rowsPerWay(2048), 2048u);
    EXPECT_EQ(rowsPerWay(4096), 4096u);
    EXPECT_EQ(rowsPerWay(8192), 4096u);
    shareAclProcessors();
    EXPECT_EQ(rowsPerWay(1024), 1024u);
    EXPECT_EQ(rowsPerWay(4096), 2048u);
    profile->layouts[acl].size = 0;
    EXPECT_THAT(names(), Not(Contains("ingress/processor_acl[0]/table0/pipeline0")));
    profile->layouts.erase(acl);
    EXPECT_THAT(names(), Not(Contains("ingress/processor_acl[0]/counters")));
}

TEST_F(MemoryMap, CountersAreTheFourthTableOfAnAclProcessor) {
    for (bool const shared : {false, true}) {
        if (shared) shareAclProcessors();
        make();
        store("ingress/processor_acl[0]/", 5, 1u << 18 | 1u << 15 | 1u << 11 | 2047);
        EXPECT_THAT(row("ingress/processor_acl[0]/counters", 2048 + 2047), ElementsAre(1, 2, 3, 4, 5));
        EXPECT_EQ(rowsInUse(), 1u);
    }
}

TEST_F(MemoryMap, AclRowsAreReadByBitSeventeen) {
    make();
    store("ingress/processor_acl[0]/", 4, 1u << 18 | 2u << 13 | 7);
    chip->write(chip->address("ingress/processor_acl[0]/hash_data2"), 0);
    chip->write(chip->address("ingress/processor_acl[0]/hash_ctl"), 1u << 17 | 2u << 13 | 7);
    EXPECT_EQ(chip->read(chip->address("ingress/processor_acl[0]/hash_data2")), 3u);
    EXPECT_EQ(rowsInUse(), 1u);
}

/** A stage of the route look-up: what selects it, and its rows per way. */
struct LpmStageMemory {
    char const* name;
    U32 number;
    U32 rowsPerWay;
};
constexpr LpmStageMemory lpmStageMemories[] = {{"lpm32", 0, 4096}, {"lpm29", 1, 4096}, {"lpm26", 2, 4096},
                                               {"lpm23", 3, 1024}, {"lpm20", 4, 1024}, {"lpm17", 5, 1024},
                                               {"lpm14", 6, 1024}};

TEST_F(MemoryMap, RouteStagesAreSelectedByBitsEighteenAndUpAndWrittenByBitSeventeen) {
    make();
    Belmo::String const prefix = "ingress/processor_l3[1]/";
    U32 rows = 0;
    for (auto const& stage : lpmStageMemories) {
        SCOPED_TRACE(stage.name);
        U32 const last = stage.rowsPerWay - 1;
        store(prefix, 4, 1u << 17 | stage.number << 18 | 1u << 14 | last);
        EXPECT_THAT(row(prefix + stage.name, 2 * stage.rowsPerWay - 1), ElementsAre(1, 2, 3, 4));
        EXPECT_EQ(rowsInUse(), ++rows);
        store(prefix, 4, 1u << 16 | stage.number << 18 | 5);
        store(prefix, 4, stage.number << 18 | 5);
        EXPECT_EQ(rowsInUse(), rows) << "only bit 17 stores";
        EXPECT_THROW(store(prefix, 4, 1u << 17 | stage.number << 18 | 2u << 14), BusException) << "two ways";
        if (last < 0xFFF) {
            EXPECT_THROW(store(prefix, 4, 1u << 17 | stage.number << 18 | (last + 1)), BusException);
        }
    }
}

TEST_F(MemoryMap, HitsOfRouteStagesStandInOneMemoryByTheStagesNumber) {
    make();
    Belmo::String const prefix = "ingress/processor_l3[0]/";
    auto const bitsOf = [&](U32 read) {
        chip->write(chip->address(prefix + "hash_ctl"), 0x2D0000 + read);
        std::vector<U32> bits;
        for (U32 bit = 0; bit < 96; ++bit) {
            auto const word = chip->read(chip->address(prefix + "hash_data" + std::to_string(bit / 32)));
            if ((word >> bit % 32 & 1) != 0) bits.push_back(bit);
        }
        return bits;
    };
    for (auto const& stage : lpmStageMemories) {
        SCOPED_TRACE(stage.name);
        U32 const last = stage.rowsPerWay - 1;
        U32 const strobe = 1u << 17 | stage.number << 18;
        chip->hitIs(prefix + "hash_ctl", strobe | last);
        EXPECT_THAT(bitsOf(last / 2), ElementsAre(stage.number + 36));
        chip->hitIs(prefix + "hash_ctl", strobe | 1u << 14 | 6);
        EXPECT_THAT(bitsOf(3), ElementsAre(stage.number + 9));
    }
    EXPECT_THAT(bitsOf(4095), ElementsAre()) << "the longest of all tables has 4096 pairs of rows";
    EXPECT_EQ(rowsInUse(), 0u);
}

TEST_F(MemoryMap, ThePortSetsOfL3LagsHave56RowsOfTwoWords) {
    make();
    Belmo::String const prefix = "ingress/processor_l3[1]/";
    store(prefix, 2, 1u << 17 | 9u << 18 | 55);
    EXPECT_THAT(row(prefix + "l3Lag", 55), ElementsAre(1, 2));
    store(prefix, 2, 1u << 16 | 9u << 18 | 5);
    EXPECT_EQ(rowsInUse(), 1u);
    EXPECT_THROW(store(prefix, 2, 1u << 17 | 9u << 18 | 56), BusException);
}

TEST_F(MemoryMap, TheDirectStageHas2048RowsOfOneWordForEachVrf) {
    Belmo::String const prefix = "ingress/processor_l3[1]/";
    for (U32 const vrfs : {1u, 4u, 8u, 32u}) {
        SCOPED_TRACE(vrfs);
        profile->numVrfs = vrfs;
        make();
        U32 const last = vrfs * 2048 - 1;
        store(prefix, 1, 1u << 17 | 7u << 18 | last);
        EXPECT_THAT(row(prefix + "lpm11", last), ElementsAre(1));
        EXPECT_EQ(rowsInUse(), 1u);
        if (vrfs < 32) {
            EXPECT_THROW(store(prefix, 1, 1u << 17 | 7u << 18 | (last + 1)), BusException);
        }
    }
    profile->numVrfs = 0;
    EXPECT_THAT(names(), Not(Contains(prefix + "lpm11")));
}

}  // namespace
