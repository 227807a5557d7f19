// What packets meet in layer 2, found in nothing but what tables wrote to the chip.
#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <utility>

#include "NerioSwitchApi/TableFramework.h"

#include "NerioSwitchTable/NerioTableFloodSet.h"
#include "NerioSwitchTable/NerioTableL2Control.h"
#include "NerioSwitchTable/NerioTableMacVlan.h"
#include "NerioSwitchTable/NerioTableNativeVlan.h"
#include "NerioSwitchTable/NerioTableVlanMembership.h"
#include "RandomValue.h"
#include "agent/Verify.h"
#include "chip/Layer2Lookup.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitchApi::StartMode;
using NerioTest::below;
using NerioTest::Random;

constexpr U64 someAddress = 0x001C73A1B2C3;
Lanvo::EthAddr const someEthAddr({0x00, 0x1C, 0x73, 0xA1, 0xB2, 0xC3});

/** A chip of two pipes with the tables of layer 2, cold. */
struct Layer2Switch {
    explicit Layer2Switch(Belmo::Ptr<NerioSwitch::ProfileInfo> of)
        : profile(std::move(of)),
          chip(Chip::simulatedChip(*profile)),
          framework(profile, chip, NerioSwitchApi::memoryShadowStore()),
          lookup(*chip, *profile) {
        for (Belmo::Ptr<NerioSwitchApi::SwTable> const& table :
             std::initializer_list<Belmo::Ptr<NerioSwitchApi::SwTable>>{vlans, floods, macs, tags, controls})
            framework.tableIs(table, StartMode::cold);
    }
    /** Differences between software, shadow and chip. */
    std::size_t differences() const {
        std::size_t count = 0;
        for (auto const* table : std::initializer_list<NerioSwitchApi::SwTable const*>{
                 vlans.get(), floods.get(), macs.get(), tags.get(), controls.get()}) {
            auto const found = Agent::verify(
                *table, [this](auto registers, auto words) { chip->readRow(registers, words); });
            count += found.differences.size();
        }
        return count;
    }

    Belmo::Ptr<NerioSwitch::ProfileInfo> profile;
    Belmo::Ptr<Chip::SimulatedChip> chip;
    NerioSwitchApi::TableFramework framework;
    Belmo::Ptr<VlanMembershipTable> vlans = vlanMembershipTableFactory("vlans");
    Belmo::Ptr<FloodSetTable> floods = floodSetTableFactory("floods");
    Belmo::Ptr<MacVlanTable> macs = macVlanTableFactory("macs");
    Belmo::Ptr<NativeVlanTable> tags = nativeVlanTableFactory("tags");
    Belmo::Ptr<L2ControlTable> controls = l2ControlTableFactory("controls");
    Chip::Layer2Lookup lookup;
};

/** The default preset's chip in another generation. */
Belmo::Ptr<NerioSwitch::ProfileInfo> generation(U32 vlanRegVer, NerioSwitch::ProfileHwApi hwApi,
                                                bool single) {
    auto profile = NerioSwitch::profilePreset("default");
    profile->vlanRegVer = vlanRegVer;
    profile->hwApi = hwApi;
    profile->noMuxInRegName = hwApi >= NerioSwitch::ProfileHwApi(8, 0);
    profile->aclPipeModeCapable = single;
    return profile;
}

struct Generation {
    U32 vlanRegVer;
    NerioSwitch::ProfileHwApi hwApi;
    bool single;
};

class Layer2LookupTest : public ::testing::TestWithParam<Generation> {
protected:
    Layer2Switch made{generation(GetParam().vlanRegVer, GetParam().hwApi, GetParam().single)};

    /** The ACL of a pipe as the chip is to find it. */
    std::optional<Chip::VlanAcl> aclOf(VlanMembershipResult const& result, U32 pipe) const {
        U32 const version = GetParam().vlanRegVer;
        if (version < 4) return std::nullopt;
        auto const permit = result.aclDefaultPermit().find(pipe);
        auto const enable = static_cast<U8>(result.aclEnable(pipe) & (version < 6 ? 15 : 3));
        auto const id = static_cast<U8>(result.aclId(pipe).value() & 15);
        return Chip::VlanAcl{id, enable, permit == result.aclDefaultPermit().end() || permit->second};
    }
};

VlanMembershipResult randomMembership(Random& random) {
    auto const flag = [&] { return below(random, 2) != 0; };
    VlanMembershipResult result;
    for (U8 pipe = 0; pipe < 4; ++pipe) {
        if (flag()) result.aclIdIs(pipe, below(random, 17)).aclEnableIs(pipe, static_cast<U8>(random()));
        if (flag()) result.aclDefaultPermitIs(pipe, flag());
        if (flag()) result.natEnableIs(pipe, static_cast<U8>(below(random, 2)));
        result.natIdIs(pipe, static_cast<U8>(below(random, 8)))
            .natIngressProfileIdIs(pipe, below(random, 64));
    }
    return result.permitMaskIs(random())
        .learnToCpuIs(flag())
        .unknownMulticastToCpuIs(flag())
        .multicastJoinToCpuIs(flag())
        .broadcastToCpuIs(flag())
        .unknownDaToCpuIs(flag())
        .multicastJoinToEgressIs(flag())
        .vrfBitsIs(static_cast<U8>(below(random, 4)))
        .unicastRouteIs(flag())
        .multicastRouteIs(flag());
}

TEST_P(Layer2LookupTest, APacketMeetsItsVlan) {
    Random random(1);
    U32 const version = GetParam().vlanRegVer;
    for (U32 vid = 1; vid <= 40; ++vid) {
        auto const result = randomMembership(random);
        made.vlans->entryIs(VlanMembershipKey(vid), result);
        for (U32 const port : {0u, 25u, 26u, 51u, 52u}) {
            SCOPED_TRACE(port);
            auto const hit = made.lookup.vlan(port, static_cast<U16>(vid));
            ASSERT_TRUE(hit);
            bool const isCpu = port == 52;
            U32 const pipe = port / 26;
            // A copy has the NAT fields of the pipe of twice its number, in which it differs from its ACL.
            bool const hasNat = version > 3 && !isCpu && result.natEnable(2 * pipe) != 0;
            auto const nat = version > 6 ? static_cast<U8>(result.natIngressProfileId(2 * pipe).value())
                                         : result.natId(2 * pipe);
            EXPECT_EQ(*hit, (Chip::VlanHit{.isMember = (result.permitMask() >> port & 1) != 0,
                                           .learnToCpu = result.learnToCpu(),
                                           .unknownMulticastToCpu = result.unknownMulticastToCpu(),
                                           .multicastJoinToCpu = result.multicastJoinToCpu(),
                                           .broadcastToCpu = result.broadcastToCpu(),
                                           .unknownDaToCpu = result.unknownDaToCpu(),
                                           .multicastJoinToEgress = result.multicastJoinToEgress(),
                                           .vrf = result.vrfBits(),
                                           .unicastRoute = result.unicastRoute(),
                                           .multicastRoute = result.multicastRoute(),
                                           .acl = isCpu ? std::nullopt
                                                        : aclOf(result, GetParam().single ? pipe : 2 * pipe),
                                           .nat = hasNat ? std::optional(nat) : std::nullopt}));
        }
    }
    auto const other = made.lookup.vlan(3, 100);
    ASSERT_TRUE(other);
    EXPECT_FALSE(other->isMember);
    EXPECT_TRUE(other->learnToCpu);
    EXPECT_EQ(made.differences(), 0u);
}

TEST_P(Layer2LookupTest, VlansAreToldOfOnceAPortOfTheCopyIsAMember) {
    made.vlans->entryIs(VlanMembershipKey(9), VlanMembershipResult().unicastRouteIs(true).vrfBitsIs(1));
    EXPECT_FALSE(made.lookup.hasVlans(0)) << "a row without members";
    made.vlans->entryIs(VlanMembershipKey(4094), VlanMembershipResult().permitMaskIs(1u << 25));
    EXPECT_TRUE(made.lookup.hasVlans(0));
    EXPECT_TRUE(made.lookup.hasVlans(25));
    EXPECT_FALSE(made.lookup.hasVlans(26)) << "the other pipeline's copy";
    made.vlans->entryDel(VlanMembershipKey(4094));
    EXPECT_FALSE(made.lookup.hasVlans(0));
}

TEST_P(Layer2LookupTest, AnUnknownPacketFloodsToThePortsOfItsVlan) {
    Random random(2);
    U64 const ports = (U64{1} << 52) - 1;
    for (U32 vid = 1; vid <= 40; ++vid) {
        auto const unicast = random();
        auto const multicast = random();
        made.floods->entryIs(
            FloodSetEntry(vid, FloodSetResult().uucPortMaskIs(unicast).umcPortMaskIs(multicast)));
        for (U32 const port : {0u, 51u, 52u})
            EXPECT_EQ(made.lookup.flood(port, static_cast<U16>(vid)),
                      (Chip::FloodPorts{unicast & ports, multicast & ports}));
    }
    EXPECT_EQ(made.lookup.flood(0, 41), Chip::FloodPorts());
    EXPECT_EQ(made.differences(), 0u);
}

TEST_P(Layer2LookupTest, AnAddressIsFoundInItsVlanAlone) {
    made.macs->entryIs(MacVlanKey(700),
                       MacVlanResult()
                           .macVlanIs({5, someEthAddr})
                           .ingressPortMaskIs(NerioSwitch::IngressPortMask::cpu | 0x8000000000001)
                           .mcastFlagsIs(5)
                           .ipRouteIs(true));
    made.macs->entryIs(MacVlanKey(3),
                       MacVlanResult().macVlanIs({6, someEthAddr}).ingressPortMaskIs(2).mcastFlagsIs(2));
    for (U32 const port : {0u, 51u, 52u}) {
        EXPECT_EQ(made.lookup.address(port, 5, someAddress), (Chip::MacHit{.row = 700,
                                                                           .ports = 0x8000000000001,
                                                                           .toCpu = true,
                                                                           .joinToEgress = true,
                                                                           .dataToCpu = false,
                                                                           .joinToCpus = true,
                                                                           .ipRoute = true}));
        EXPECT_EQ(made.lookup.address(port, 6, someAddress),
                  (Chip::MacHit{.row = 3, .ports = 2, .dataToCpu = true}));
        EXPECT_FALSE(made.lookup.address(port, 7, someAddress));
        EXPECT_FALSE(made.lookup.address(port, 5, someAddress + 1));
        EXPECT_FALSE(made.lookup.address(port, 0, 0)) << "empty rows match no packet";
    }
    EXPECT_EQ(made.differences(), 0u);
    made.macs->entryDel(MacVlanKey(700));
    EXPECT_FALSE(made.lookup.address(0, 5, someAddress));
}

TEST_P(Layer2LookupTest, APortHasItsTagAndItsLearning) {
    made.tags->entryIs(NativeVlanKey(NerioSwitch::ChipPortId(30)),
                       NativeVlanResult().nativeVlanIdIs(4094).deiIs(1).pcpIs(5));
    made.controls->entryIs(L2ControlKey(NerioSwitch::ChipPortId(30)), L2ControlResult().learnOnlyIs(true));
    EXPECT_EQ(made.lookup.nativeTag(30), (Chip::VlanTag{4094, true, 5}));
    EXPECT_EQ(made.lookup.nativeTag(4), (Chip::VlanTag{1, false, 0}));
    EXPECT_EQ(made.lookup.learning(30), (Chip::Learning{.learnOnly = true}));
    EXPECT_EQ(made.lookup.learning(29), Chip::Learning());
    made.controls->entryIs(L2ControlKey(NerioSwitch::ChipPortId(29)),
                           L2ControlResult().isMlagPeerIs(true).learnDisabledIs(true));
    EXPECT_EQ(made.lookup.learning(29), (Chip::Learning{.isMlagPeer = true, .learnDisabled = true}));
}

INSTANTIATE_TEST_SUITE_P(Generations, Layer2LookupTest,
                         ::testing::Values(Generation{1, {2, 0}, false}, Generation{2, {4, 1}, true},
                                           Generation{3, {5, 0}, false}, Generation{4, {5, 1}, true},
                                           Generation{5, {6, 0}, true}, Generation{6, {7, 9}, true},
                                           Generation{7, {8, 0}, true}, Generation{7, {10, 0}, true}),
                         [](auto const& each) {
                             return "Vlan" + std::to_string(each.param.vlanRegVer) + "Api" +
                                    std::to_string(each.param.hwApi.majorVersion()) +
                                    (each.param.single ? "Single" : "");
                         });

TEST(Layer2LookupSharedAclTest, APacketOfAnOddPipeMeetsTheRowsSecondAcl) {
    auto const profile = generation(7, {8, 0}, false);
    profile->ingressPipesAre({{0, 0, 12}, {1, 13, 25}, {2, 26, 38}, {3, 39, 51}});
    profile->layouts[NerioSwitch::TableLayoutEnum::tableLayoutVlan] = {2,           4, 2, 0, {0, 0, 1, 1},
                                                                       {0, 0, 1, 1}};
    Layer2Switch made(profile);
    VlanMembershipResult result;
    for (U8 pipe = 0; pipe < 4; ++pipe)
        result.aclIdIs(pipe, pipe + 3).aclEnableIs(pipe, pipe).aclDefaultPermitIs(pipe, pipe == 2);
    result.permitMaskIs(U64{1} << 39);
    made.vlans->entryIs(VlanMembershipKey(9), result);
    for (U8 pipe = 0; pipe < 4; ++pipe) {
        auto const hit = made.lookup.vlan(13u * pipe, 9);
        ASSERT_TRUE(hit);
        EXPECT_EQ(hit->acl, (Chip::VlanAcl{static_cast<U8>(pipe + 3), pipe, pipe == 2}));
        EXPECT_EQ(hit->isMember, pipe == 3);
    }
}

TEST(Layer2LookupParityTest, RowsOfWrongParityOrWithoutAValidBitArePassedOver) {
    auto const profile = generation(2, {4, 0}, false);
    Layer2Switch made(profile);
    auto const write = [&](Belmo::String const& path, U32 word) {
        made.chip->write(made.chip->address(path), word);
    };
    EXPECT_TRUE(made.lookup.vlan(0, 9));
    write("pipeline[0]/processor/vlan_data0", 0);
    write("pipeline[0]/processor/vlan_data1", 0);
    write("pipeline[0]/processor/vlan_ctl", 0x8009);
    EXPECT_FALSE(made.lookup.vlan(0, 9)) << "not valid";
    EXPECT_TRUE(made.lookup.vlan(30, 9)) << "the other pipeline's copy is";
    write("pipeline[0]/processor/vlan_data0", 1);
    write("pipeline[0]/processor/vlan_ctl", 0x8009);
    EXPECT_FALSE(made.lookup.vlan(0, 9)) << "wrong parity";
    write("pipeline[0]/processor/floodset_data0", 1);
    write("pipeline[0]/processor/floodset_ctl", 0x8009);
    EXPECT_FALSE(made.lookup.flood(0, 9));
    made.profile->floodSetParity = false;
    EXPECT_EQ(made.lookup.flood(0, 9), (Chip::FloodPorts{.unicast = 1}));
    made.macs->entryIs(MacVlanKey(3), MacVlanResult().macVlanIs({5, someEthAddr}));
    ASSERT_TRUE(made.lookup.address(0, 5, someAddress));
    auto const row = made.chip->indirectMemory("pipeline[0]/processor/macVlans").row(3);
    std::vector<U32> words(row.begin(), row.end());
    words[1] ^= 1u << 28;  // port 0
    for (std::size_t i = 0; i < words.size(); ++i)
        write("pipeline[0]/processor/hash_data" + std::to_string(i), words[i]);
    write("pipeline[0]/processor/hash_ctl", 0x18003);
    EXPECT_FALSE(made.lookup.address(0, 5, someAddress));
    EXPECT_TRUE(made.lookup.address(30, 5, someAddress));
}

}  // namespace
