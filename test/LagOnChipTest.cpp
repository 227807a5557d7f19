// Link aggregation in the chip: its memories, and the ports by which packets leave.
#include <algorithm>
#include <array>
#include <bit>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>

#include "NerioSwitchApi/TableFramework.h"

#include "FailureText.h"
#include "NerioSwitchTable/NerioTableLagGroup.h"
#include "NerioSwitchTable/NerioTableLagHashControl.h"
#include "NerioSwitchTable/NerioTableLagLookUp.h"
#include "NerioSwitchTable/NerioTableLagMembership.h"
#include "agent/Verify.h"
#include "chip/LagLookup.h"
#include "chip/SimulatedChip.h"

namespace {

using namespace NerioSwitchTable;
using Chip::LagLookup;
using Chip::LagPacket;
using NerioSwitch::ChipPortId;
using NerioSwitchApi::BusException;
using NerioSwitchApi::StartMode;
using testing::ElementsAre;

constexpr auto l2 = NerioSwitch::TableLayoutEnum::tableLayoutL2;

/** A packet of a flow by its number. */
LagPacket flow(U32 number) {
    return {.vlan = static_cast<U16>(1 + number % 7),
            .protocol = static_cast<U8>(number % 2 == 0 ? 6 : 17),
            .source = 0x0A000000 + number * 2654435761u,
            .destination = 0x14000000 + number,
            .sourcePort = static_cast<U16>(40000 + number * 37),
            .destinationPort = 443};
}

/** The four tables over one chip. */
class LagOnChipTest : public testing::Test {
protected:
    void start(StartMode mode = StartMode::cold) {
        if (!chip) chip = Chip::simulatedChip(*profile);
        groups.reset();
        members.reset();
        buckets.reset();
        hash.reset();
        framework = std::make_unique<NerioSwitchApi::TableFramework>(profile, chip, shadows);
        groups = lagGroupTableFactory("groups");
        members = lagMembershipTableFactory("members");
        buckets = lagLookUpTableFactory("buckets");
        hash = lagHashControlTableFactory("hash");
        for (auto const& table : tables())
            framework->tableIs(table, mode);
    }
    std::array<Belmo::Ptr<NerioSwitchApi::SwTable>, 4> tables() const {
        return {groups, members, buckets, hash};
    }
    LagLookup lookup() const { return {*chip, *profile}; }

    /** Makes a LAG whose ports take the buckets in turn. */
    void lagIs(U32 group, std::vector<U32> const& ports) {
        LagMembershipResult lag(group);
        for (U32 const port : ports)
            lag.portIs(port, true);
        for (std::size_t i = 0; i < ports.size(); ++i) {
            ChipPortId const port(ports[i]);
            groups->entryIs(LagGroupKey(port), LagGroupResult(group));
            members->entryIs(LagMembershipKey(port), lag);
            U32 taken = 0;
            for (std::size_t bucket = i; bucket < LagLookup::buckets; bucket += ports.size())
                taken |= U32{1} << bucket;
            buckets->entryIs(LagLookUpKey(port), LagLookUpResult(taken));
        }
    }
    void hashIs(U32 port, LagHashControlResult const& result) {
        hash->entryIs(LagHashControlKey(ChipPortId(port)), result);
    }
    void expectAgreement() const {
        for (auto const& table : tables()) {
            auto const differences = Agent::verify(*table, [this](auto registers, auto words) {
                                         chip->readRow(registers, words);
                                     }).differences;
            EXPECT_TRUE(differences.empty())
                << differences.front().hwTable << ": " << differences.front().text;
        }
    }
    void write(std::string const& path, U32 word) { chip->write(chip->address(path), word); }
    std::vector<U32> row(std::string const& memory, U32 number) const {
        auto const words = chip->indirectMemory(memory).row(number);
        return {words.begin(), words.end()};
    }

    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip;
    Belmo::Ptr<NerioSwitchApi::ShadowStore> shadows = NerioSwitchApi::memoryShadowStore();
    std::unique_ptr<NerioSwitchApi::TableFramework> framework;
    Belmo::Ptr<LagGroupTable> groups;
    Belmo::Ptr<LagMembershipTable> members;
    Belmo::Ptr<LagLookUpTable> buckets;
    Belmo::Ptr<LagHashControlTable> hash;
};

TEST_F(LagOnChipTest, ALayer2ControlWordSelectsAPortByABitAndItsHighestTellsTheMemory) {
    chip = Chip::simulatedChip(*profile);
    std::string const prefix = "ingress/processor_l2[1]/";
    write(prefix + "lag_group_data0", 9);
    write(prefix + "lag_mask_data0", 0x30);
    write(prefix + "lag_mask_data1", 0x40);
    write(prefix + "lag_ctl", 1u << 30);
    EXPECT_THAT(row(prefix + "lagPorts", 30), ElementsAre(0x30, 0x40));
    EXPECT_THAT(row(prefix + "lagGroups", 30), ElementsAre(0, 0));
    write(prefix + "lag_ctl", 1u << 31 | 1u << 5);
    EXPECT_THAT(row(prefix + "lagGroups", 5), ElementsAre(9, 1));
    EXPECT_THAT(row(prefix + "lagPorts", 5), ElementsAre(0, 0));
    auto const before = chip->state();
    write(prefix + "lag_ctl", 1u << 31);
    write(prefix + "lag_ctl", 0);
    EXPECT_EQ(chip->state(), before) << "no port is selected";
    EXPECT_EQ(failureOf<BusException>([&] { write(prefix + "lag_ctl", 3); }),
              "ingress/processor_l2[1]/lag_ctl = 0x00000003: selects 2 rows of "
              "ingress/processor_l2[1]/lagPorts");
}

TEST_F(LagOnChipTest, ALayer2TableWithoutAPipelineOfItsNumberHasNoMemoryInEarlierGenerations) {
    profile->layouts[l2].pipeToTable = {0, 7};
    profile->noMuxInRegName = false;
    chip = Chip::simulatedChip(*profile);
    EXPECT_NO_THROW(chip->indirectMemory("pipeline[1]/processor/lagGroups"));
    profile->noMuxInRegName = true;
    chip = Chip::simulatedChip(*profile);
    EXPECT_NO_THROW(chip->indirectMemory("ingress/processor_l2[7]/lagGroups"));
}

TEST_F(LagOnChipTest, TheCpuPipelineHasTheMasksOfGroupsAndKeepsNoneForTheLast) {
    chip = Chip::simulatedChip(*profile);
    std::string const prefix = "cpu_pipeline[0]/lag_cpu[0]/";
    write(prefix + "lag_mask_data0", 0x30);
    write(prefix + "lag_ctl", 1u << 31 | 5);
    EXPECT_THAT(row(prefix + "lagPorts", 5), ElementsAre(0x30, 0));
    auto const before = chip->state();
    write(prefix + "lag_ctl", 1u << 31 | 63);
    write(prefix + "lag_ctl", 6);
    EXPECT_EQ(chip->state(), before) << "no group, and no strobe";
}

TEST_F(LagOnChipTest, BucketsOfAGroupOfPortsAreSelectedByABitEach) {
    chip = Chip::simulatedChip(*profile);
    std::string const prefix = "pipeline[1]/lag_lut[12]/";
    write(prefix + "lag_lut_data0", 7);
    write(prefix + "lag_lut_ctl", 8);
    EXPECT_THAT(row(prefix + "lagBuckets", 3), ElementsAre(7));
    EXPECT_EQ(failureOf<BusException>([&] { write(prefix + "lag_lut_ctl", 9); }),
              "pipeline[1]/lag_lut[12]/lag_lut_ctl = 0x00000009: selects 2 rows of "
              "pipeline[1]/lag_lut[12]/lagBuckets");
    EXPECT_THROW(chip->indirectMemory("pipeline[1]/lagBuckets"), Belmo::RangeException);
    profile->hwApi = {8, 0};
    chip = Chip::simulatedChip(*profile);
    write("pipeline[1]/lag_lut_data0", 7);
    write("pipeline[1]/lag_lut_ctl", 51 * 2 + 1);
    write("pipeline[1]/lag_lut_ctl", 50 * 2);
    EXPECT_THAT(row("pipeline[1]/lagBuckets", 51), ElementsAre(7));
    EXPECT_THAT(row("pipeline[1]/lagBuckets", 50), ElementsAre(0)) << "without the strobe";
}

TEST_F(LagOnChipTest, APortsGroupAndMembersAreThoseOfItsLag) {
    start();
    lagIs(9, {3, 30, 51});
    U64 const mask = U64{1} << 3 | U64{1} << 30 | U64{1} << 51;
    for (U32 const port : {3u, 30u, 51u}) {
        EXPECT_EQ(lookup().group(port), 9u);
        EXPECT_EQ(lookup().members(port), mask);
    }
    EXPECT_EQ(lookup().group(4), std::nullopt) << "a port that never had one";
    EXPECT_EQ(lookup().members(4), 0u);
    EXPECT_EQ(lookup().cpuMembers(9), mask);
    EXPECT_EQ(lookup().cpuMembers(10), 0u);
    EXPECT_THROW(lookup().cpuMembers(63), Belmo::RangeException);
    groups->entryDel(LagGroupKey(3u));
    EXPECT_EQ(lookup().group(3), 0u) << "a deletion puts a port into group 0";
    groups->entryIs(LagGroupKey(3u), LagGroupResult(63));
    EXPECT_EQ(lookup().group(3), std::nullopt);
    groups->entryIs(LagGroupKey(4u), LagGroupResult(63));
    EXPECT_EQ(lookup().group(4), std::nullopt) << "its row, which selects no port, need not be written";
    expectAgreement();
}

TEST_F(LagOnChipTest, APortBeyondTheSelectBitsHasNoLag) {
    profile->ingressPipesAre({{0, 0, 51}});
    profile->layouts[l2] = {1, 1, 1, 0, {0}, {0}};
    start();
    lagIs(9, {30, 31, 51});
    EXPECT_EQ(lookup().group(30), 9u);
    EXPECT_EQ(lookup().group(31), std::nullopt);
    EXPECT_EQ(lookup().members(51), 0u);
    EXPECT_NE(lookup().cpuMembers(9), 0u);
    expectAgreement();
}

TEST_F(LagOnChipTest, EachFieldCountsOnlyWhereAPortsHashTakesIt) {
    using Result = LagHashControlResult;
    auto const bucketsOf = [&](Result const& control, std::function<void(LagPacket&, U32)> const& change) {
        hashIs(30, control);
        std::map<U32, U32> found;
        for (U32 number = 0; number < 64; ++number) {
            auto packet = flow(1);
            change(packet, number);
            ++found[lookup().bucket(30, packet)];
        }
        return found.size();
    };
    start();
    struct Field {
        Result control;
        std::function<void(LagPacket&, U32)> change;
    };
    Field const fields[] = {
        {Result().useVlanIdIs(true), [](auto& packet, U32 n) { packet.vlan = static_cast<U16>(n); }},
        {Result().useIpProtocolIs(true), [](auto& packet, U32 n) { packet.protocol = static_cast<U8>(n); }},
        {Result().useSipAndDipIs(true), [](auto& packet, U32 n) { packet.source = n; }},
        {Result().useSipAndDipIs(true), [](auto& packet, U32 n) { packet.destination = n; }},
        {Result().useSportAndDportIs(true),
         [](auto& packet, U32 n) { packet.sourcePort = static_cast<U16>(n); }},
        {Result().useSportAndDportIs(true),
         [](auto& packet, U32 n) { packet.destinationPort = static_cast<U16>(n); }},
    };
    for (auto const& field : fields) {
        for (auto const& other : fields) {
            auto const found = bucketsOf(other.control, field.change);
            if (other.control == field.control) {
                EXPECT_GE(found, 16u) << "of 32 buckets";
            } else {
                EXPECT_EQ(found, 1u) << "the field takes no part";
            }
        }
    }
}

TEST_F(LagOnChipTest, SeedsSpreadFlowsDifferently) {
    start();
    auto const bucketsOf = [&](U8 seed) {
        hashIs(30, LagHashControlResult().useSipAndDipIs(true).useSportAndDportIs(true).hashSeedIs(seed));
        std::array<U32, 256> found{};
        for (U32 number = 0; number < found.size(); ++number)
            found[number] = lookup().bucket(30, flow(number));
        return found;
    };
    auto const first = bucketsOf(0);
    auto const second = bucketsOf(1);
    EXPECT_NE(first, bucketsOf(4)) << "another seed of the same polynomial";
    std::map<U32, U32> ofOneBucket;
    for (std::size_t i = 0; i < first.size(); ++i) {
        if (first[i] % 4 == 0) ++ofOneBucket[second[i] % 4];
    }
    EXPECT_EQ(ofOneBucket.size(), 4u) << "what one switch sends one way, the next one spreads again";
}

TEST_F(LagOnChipTest, AFlowLeavesByOnePortOfALagAndFlowsSpreadOverAll) {
    start();
    lagIs(9, {3, 10, 30, 51});
    hashIs(20, LagHashControlResult().useSipAndDipIs(true).useIpProtocolIs(true).useSportAndDportIs(true));
    U64 const lag = lookup().cpuMembers(9);
    std::map<U64, U32> flows;
    constexpr U32 count = 1024;
    for (U32 number = 0; number < count; ++number) {
        auto const port = lookup().egressPorts(20, lag, flow(number));
        ASSERT_TRUE(std::has_single_bit(port));
        EXPECT_EQ(lookup().egressPorts(20, lag, flow(number)), port);
        ++flows[port];
    }
    ASSERT_EQ(flows.size(), 4u);
    for (auto const& [port, share] : flows) {
        EXPECT_GT(share, count / 8);
        EXPECT_LT(share, count * 3 / 8);
    }
}

TEST_F(LagOnChipTest, AFloodedPacketReachesEachLagOnceAndNotTheOneItCameFrom) {
    start();
    lagIs(9, {3, 10});
    lagIs(10, {30, 31, 51});
    U64 const cpu = U64{1} << 52;
    U64 const flooded = (U64{1} << 3 | U64{1} << 10 | U64{1} << 30 | U64{1} << 31 | U64{1} << 51) |
                        U64{1} << 5 | U64{1} << 40 | cpu;
    U64 const plain = U64{1} << 5 | U64{1} << 40 | cpu;
    for (U32 number = 0; number < 32; ++number) {
        auto const packet = flow(number);
        auto const fromPlain = lookup().egressPorts(5, flooded, packet);
        EXPECT_EQ(fromPlain & plain, plain & ~(U64{1} << 5));
        EXPECT_TRUE(std::has_single_bit(fromPlain & lookup().members(3)));
        EXPECT_TRUE(std::has_single_bit(fromPlain & lookup().members(30)));
        auto const fromLag = lookup().egressPorts(10, flooded, packet);
        EXPECT_EQ(fromLag & plain, plain);
        EXPECT_EQ(fromLag & lookup().members(3), 0u);
        EXPECT_TRUE(std::has_single_bit(fromLag & lookup().members(30)));
    }
}

TEST_F(LagOnChipTest, PacketsOfTheCpuLeaveByThePortOfTheirBucket) {
    for (NerioSwitch::ProfileHwApi const version : {NerioSwitch::ProfileHwApi(7, 9), {8, 0}}) {
        profile->hwApi = version;
        chip = nullptr;
        shadows = NerioSwitchApi::memoryShadowStore();
        start();
        lagIs(9, {3, 30, 51});
        for (U32 bucket = 0; bucket < LagLookup::buckets; ++bucket) {
            U32 const ports[] = {3, 30, 51};
            EXPECT_EQ(lookup().cpuEgressPorts(9, bucket), U64{1} << ports[bucket % 3]);
        }
        EXPECT_THROW(lookup().cpuEgressPorts(9, 32), Belmo::RangeException);
        EXPECT_THROW(lookup().egressPorts(52, 1, flow(1)), Belmo::RangeException);
        EXPECT_EQ(lookup().bucketsOf(3, 30), lookup().cpuBucketsOf(30));
        expectAgreement();
    }
}

TEST_F(LagOnChipTest, TheChipForwardsAsBeforeAcrossAWarmRestart) {
    profile->noMuxInRegName = false;
    start();
    lagIs(9, {3, 30, 51});
    hashIs(20, LagHashControlResult().useSipAndDipIs(true).hashSeedIs(5));
    auto const before = chip->state();
    start(StartMode::warm);
    EXPECT_EQ(chip->state(), before);
    EXPECT_EQ(lookup().cpuMembers(9), U64{1} << 3 | U64{1} << 30 | U64{1} << 51);
    expectAgreement();
}

TEST_F(LagOnChipTest, VerificationSeesWhatTheChipHoldsOfALag) {
    start();
    lagIs(9, {3, 30});
    auto const differencesOf = [&](auto const& table) {
        std::vector<std::string> found;
        for (auto const &difference : Agent::verify(*table, [this](auto registers, auto words) {
                                          chip->readRow(registers, words);
                                      }).differences)
            found.push_back(difference.hwTable + "/" + std::to_string(difference.row));
        return found;
    };
    write("ingress/processor_l2[0]/lag_group_data0", 8);
    write("ingress/processor_l2[0]/lag_ctl", 1u << 31 | 1u << 3);
    EXPECT_THAT(differencesOf(groups), ElementsAre("groups/demo/LagGroup/0/3"));
    write("ingress/processor_l2[1]/lag_mask_data0", 8);
    write("ingress/processor_l2[1]/lag_ctl", 1u << 4);
    EXPECT_THAT(differencesOf(members), ElementsAre("members/demo/LagMembership/1/30"));
    write("cpu_pipeline[0]/lag_cpu[0]/lag_mask_data1", 1);
    write("cpu_pipeline[0]/lag_cpu[0]/lag_ctl", 1u << 31 | 9);
    EXPECT_THAT(differencesOf(members),
                ElementsAre("members/demo/LagMembership/1/30", "members/demo/LagMembership/2/3",
                            "members/demo/LagMembership/2/30"));
    write("cpu_pipeline[0]/lag_lut[7]/lag_lut_data0", 1);
    write("cpu_pipeline[0]/lag_lut[7]/lag_lut_ctl", 4);
    EXPECT_THAT(differencesOf(buckets), ElementsAre("buckets/demo/LagLookUp/2/30"));
}

}  // namespace
