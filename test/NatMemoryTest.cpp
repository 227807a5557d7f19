#include <algorithm>
#include <fmt/format.h>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "chip/MemoryMap.h"
#include "chip/SimulatedChip.h"

namespace {

using NerioSwitchApi::BusException;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

/** The memories behind the registers of address translation, of a chip of four pipelines. */
struct NatMemory : testing::Test {
    NatMemory() { profile->numPipelines = 4; }

    void make() { chip = Chip::simulatedChip(*profile); }
    void store(Belmo::String const& stem, U32 words, U32 control) {
        for (U32 i = 0; i < words; ++i)
            chip->write(chip->address(fmt::format("{}_data{}", stem, i)), i + 1);
        chip->write(chip->address(stem + "_ctl"), control);
    }
    std::vector<U32> row(Belmo::String const& memory, U32 number) const {
        auto const words = chip->indirectMemory(memory).row(number);
        return {words.begin(), words.end()};
    }
    U32 rowsInUse() const {
        U32 count = 0;
        for (auto const& memory : Chip::chipMemories(*profile)) {
            auto const& rows = chip->indirectMemory(memory.name);
            for (U32 number = 0; number < memory.rows(); ++number)
                count += std::ranges::any_of(rows.row(number), std::identity()) ? 1 : 0;
        }
        return count;
    }
    std::vector<U32> bitsOf(U32 processor, U32 read) {
        auto const prefix = fmt::format("ingress/processor_l3[{}]/hash_", processor);
        chip->write(chip->address(prefix + "ctl"), 0x2D0000 + read);
        std::vector<U32> bits;
        for (U32 bit = 0; bit < 96; ++bit) {
            auto const word = chip->read(chip->address(prefix + "data" + std::to_string(bit / 32)));
            if ((word >> bit % 32 & 1) != 0) bits.push_back(bit);
        }
        return bits;
    }

    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip;
};

TEST_F(NatMemory, OneControlRegisterSelectsTheMatchesOfAPairAndOfEitherPipeline) {
    make();
    Belmo::String const stem = "ingress/processor_l4[1]/hash";
    store(stem, 4, 1u << 17 | 2u << 14 | 4095);
    EXPECT_THAT(row("ingress/processor_l4[1]/natMatch", 3 * 4096 - 1), ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(rowsInUse(), 1u);
    store(stem, 4, 1u << 18 | 1u << 17 | 3u << 14 | 1023);
    EXPECT_THAT(row("ingress/processor_l4[1]/natDynMatch/pipeline2", 4095), ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(rowsInUse(), 2u);
    store(stem, 4, 2u << 18 | 1u << 17 | 1u << 14 | 7);
    EXPECT_THAT(row("ingress/processor_l4[1]/natDynMatch/pipeline3", 1031), ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(rowsInUse(), 3u);
}

TEST_F(NatMemory, MatchesAreStoredByBitSeventeenAndHaveNoRowsBeyondTheirEnd) {
    make();
    Belmo::String const stem = "ingress/processor_l4[0]/hash";
    store(stem, 4, 5);
    store(stem, 4, 1u << 16 | 5);
    store(stem, 4, 3u << 18 | 1u << 17 | 5);
    EXPECT_EQ(rowsInUse(), 0u) << "no strobe, the read strobe, and a table that is not there";
    EXPECT_THROW(store(stem, 4, 1u << 17 | 3u << 14), BusException) << "three ways";
    EXPECT_THROW(store(stem, 4, 1u << 18 | 1u << 17 | 1024), BusException);
}

TEST_F(NatMemory, RewritesHaveThreeWordsAndAreStoredByBitThirteen) {
    make();
    Belmo::String const stem = "egress/processor[3]/nat_lum_hash";
    store(stem, 3, 5);
    store(stem, 3, 1u << 12 | 5);
    EXPECT_EQ(rowsInUse(), 0u);
    store(stem, 3, 1u << 13 | 3u << 10 | 1023);
    EXPECT_THAT(row("egress/processor[3]/natRewrite", 4095), ElementsAre(1, 2, 3));
    EXPECT_EQ(rowsInUse(), 1u);
}

TEST_F(NatMemory, AnOddNumberOfPipelinesLeavesTheLastProcessorOne) {
    profile->numPipelines = 3;
    std::vector<Belmo::String> names;
    for (auto const& memory : Chip::chipMemories(*profile))
        names.push_back(memory.name);
    EXPECT_THAT(names, Contains("ingress/processor_l4[1]/natDynMatch/pipeline2"));
    EXPECT_THAT(names, Not(Contains("ingress/processor_l4[1]/natDynMatch/pipeline3")));
    EXPECT_THAT(names, Contains("egress/processor[2]/natRewrite"));
    EXPECT_THAT(names, Not(Contains("egress/processor[3]/natRewrite")));
}

TEST_F(NatMemory, AProfileWithoutEgressProcessorsHasNoRewrites) {
    profile->layouts[NerioSwitch::TableLayoutEnum::tableLayoutEgress] = {};
    for (auto const& memory : Chip::chipMemories(*profile))
        EXPECT_FALSE(memory.name.starts_with("egress/")) << memory.name;
    EXPECT_NO_THROW(make());
}

TEST_F(NatMemory, HitsOfMatchesStandInReadsOfTheirOwn) {
    make();
    Belmo::String const control = "ingress/processor_l4[1]/hash_ctl";
    for (U32 way = 0; way < 3; ++way) {
        chip->hitIs(control, 1u << 17 | way << 14 | 0);
        EXPECT_THAT(bitsOf(1, 2048), ElementsAre(9 * way));
        chip->hitIs(control, 1u << 17 | way << 14 | 4095);
        EXPECT_THAT(bitsOf(1, 4095), ElementsAre(36 + 9 * way));
    }
    for (U32 odd = 0; odd < 2; ++odd) {
        U32 const strobe = 1u << 17 | (odd + 1) << 18;
        for (U32 way = 0; way < 4; ++way) {
            U32 const bit = 3 + odd + (way < 2 ? 0 : 9);
            U32 const firstRead = way % 2 == 0 ? 1024 : 1536;
            chip->hitIs(control, strobe | way << 14 | 0);
            EXPECT_THAT(bitsOf(1, firstRead), ElementsAre(bit));
            chip->hitIs(control, strobe | way << 14 | 1023);
            EXPECT_THAT(bitsOf(1, firstRead + 511), ElementsAre(36 + bit));
        }
    }
    EXPECT_EQ(rowsInUse(), 0u) << "reads have cleared all bits";
}

TEST_F(NatMemory, MatchesOfAProcessorWithoutAnL3ProcessorHaveNoHits) {
    profile->layouts[NerioSwitch::TableLayoutEnum::tableLayoutL3].processors = 1;
    profile->layouts[NerioSwitch::TableLayoutEnum::tableLayoutL3].pipeToProcessor = {0, 0};
    make();
    EXPECT_NO_THROW(chip->hitIs("ingress/processor_l4[0]/hash_ctl", 1u << 17));
    EXPECT_THROW(chip->hitIs("ingress/processor_l4[1]/hash_ctl", 1u << 17), Belmo::RangeException);
}

}  // namespace
