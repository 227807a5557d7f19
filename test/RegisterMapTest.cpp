#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <rapidcheck/gtest.h>
#include <set>
#include <sstream>

#include "Sorn/Format.h"

#include "chip/RegisterMap.h"

namespace {

using Chip::RegisterMap;
using NerioSwitch::ProfileInfo;
using NerioSwitch::TableLayoutEnum;
using NerioSwitchApi::UnknownRegisterException;

bool has(RegisterMap const& registers, Belmo::String const& path) {
    return std::find(registers.paths().begin(), registers.paths().end(), path) != registers.paths().end();
}

/** A profile of that many ports in no pipe, and nothing else. */
Belmo::Ptr<ProfileInfo> bareProfile(U16 ports) {
    auto profile = Belmo::make<ProfileInfo>();
    profile->numPorts = ports;
    return profile;
}

/** The registers of the default profile, bracketed numbers left out. */
std::map<Belmo::String, Belmo::String> const defaultRegisters{
    {"egress/port[]/", "vlan_cfg vlan_tci"},
    {"pipeline[]/port[]/",
     "l2_control lhash_ctl interval_period broadcast_limit unicast_limit multicast_limit"},
    {"ingress/vlan[]/",
     "vlan_data0 vlan_data1 vlan_data2 vlan_ctl "
     "floodset_data0 floodset_data1 floodset_data2 floodset_data3 floodset_ctl"},
    {"cpu_pipeline[]/vlan/",
     "vlan_data0 vlan_data1 vlan_data2 vlan_ctl "
     "floodset_data0 floodset_data1 floodset_data2 floodset_data3 floodset_ctl"},
    {"pipeline[]/processor/",
     "vlan_data0 vlan_data1 vlan_ctl "
     "floodset_data0 floodset_data1 floodset_data2 floodset_data3 floodset_ctl "
     "hash_data0 hash_data1 hash_data2 hash_data3 hash_ctl "
     "lag_group_data0 lag_mask_data0 lag_mask_data1 lag_ctl"},
    {"cpu_pipeline[]/processor/",
     "vlan_data0 vlan_data1 vlan_ctl "
     "floodset_data0 floodset_data1 floodset_data2 floodset_data3 floodset_ctl "
     "hash_data0 hash_data1 hash_data2 hash_data3 hash_ctl"},
    {"ingress/processor_l2[]/",
     "hash_data0 hash_data1 hash_data2 hash_data3 hash_ctl "
     "lag_group_data0 lag_mask_data0 lag_mask_data1 lag_ctl"},
    {"cpu_pipeline[]/processor_l2/", "hash_data0 hash_data1 hash_data2 hash_data3 hash_ctl"},
    {"ingress/processor_l2_mirror_reg[]/", "reg[]"},
    {"ingress/processor_l3[]/", "hash_data0 hash_data1 hash_data2 hash_data3 hash_data4 hash_ctl"},
    {"ingress/processor_l4[]/", "hash_data0 hash_data1 hash_data2 hash_data3 hash_ctl"},
    {"ingress/processor_acl[]/", "hash_data0 hash_data1 hash_data2 hash_data3 hash_data4 hash_ctl"},
    {"egress/processor[]/",
     "lum_data lum_ctl_addr_data nat_lum_hash_data0 nat_lum_hash_data1 nat_lum_hash_data2 nat_lum_hash_ctl"},
    {"pipeline[]/lag_lut[]/", "lag_lut_data0 lag_lut_ctl"},
    {"pipeline[]/", "lag_lut_data0 lag_lut_ctl"},
    {"cpu_pipeline[]/lag_lut[]/", "lag_lut_data0 lag_lut_ctl"},
    {"cpu_pipeline[]/", "lag_lut_data0 lag_lut_ctl"},
    {"cpu_pipeline[]/lag_cpu[]/", "lag_mask_data0 lag_mask_data1 lag_ctl"},
    {"header/", "copp_interval"},
};

Belmo::String const rateLimiterPrefixes[] = {"ingress/rate_limiter[]/", "pipeline[]/rate_limiter/",
                                             "cpu_tx_pipeline[]/rate_limiter/"};
Belmo::String const rateLimiterRegisters =
    "interval_period reserved_mac_limit igmp_limit link_local_limit packet_forwarding_limit l2_packet_limit "
    "cpu_critical_limit nat_acl_packet_limit ptp_limit l3_high_packet_limit l3_low_packet_limit "
    "multicast_packet_limit l3_exception_limit mac_learn_limit mirror_limit default_limit";

void addNames(std::set<Belmo::String>& paths, Belmo::String const& prefix, Belmo::String const& names) {
    std::istringstream words(names);
    for (Belmo::String name; words >> name;)
        paths.insert(prefix + name);
}

Belmo::String withoutNumbers(Belmo::String path) {
    for (auto open = path.find('['); open != std::string::npos; open = path.find('[', open + 1))
        path.erase(open + 1, path.find(']', open) - open - 1);
    return path;
}

TEST(RegisterMap, DefaultProfileHasEveryNameAndNoOther) {
    std::set<Belmo::String> expected;
    for (auto const& [prefix, names] : defaultRegisters)
        addNames(expected, prefix, names);
    for (auto const& prefix : rateLimiterPrefixes)
        addNames(expected, prefix, rateLimiterRegisters);

    RegisterMap const registers(*NerioSwitch::profilePreset("default"));
    std::set<Belmo::String> names;
    for (auto const& path : registers.paths())
        names.insert(withoutNumbers(path));
    EXPECT_THAT(names, testing::ContainerEq(expected));
}

TEST(RegisterMap, DefaultProfileHasTheFirstAndTheLastOfEveryFamily) {
    RegisterMap const registers(*NerioSwitch::profilePreset("default"));
    for (auto const* path : {
             "egress/port[0]/vlan_cfg",
             "egress/port[51]/vlan_tci",
             "pipeline[0]/port[0]/l2_control",
             "pipeline[1]/port[25]/multicast_limit",
             "ingress/vlan[0]/vlan_data0",
             "ingress/vlan[1]/floodset_ctl",
             "ingress/processor_l2[0]/hash_data0",
             "ingress/processor_l2[1]/lag_ctl",
             "ingress/processor_l2_mirror_reg[0]/reg[0]",
             "ingress/processor_l2_mirror_reg[1]/reg[103]",
             "pipeline[0]/processor/hash_data0",
             "pipeline[1]/processor/hash_ctl",
             "pipeline[0]/lag_lut[0]/lag_lut_data0",
             "pipeline[1]/lag_lut[12]/lag_lut_ctl",
             "pipeline[0]/lag_lut_data0",
             "pipeline[1]/lag_lut_ctl",
             "ingress/processor_l3[0]/hash_data0",
             "ingress/processor_l3[1]/hash_ctl",
             "ingress/processor_l4[0]/hash_data0",
             "ingress/processor_l4[1]/hash_ctl",
             "ingress/processor_acl[0]/hash_data4",
             "ingress/processor_acl[1]/hash_ctl",
             "egress/processor[0]/lum_data",
             "egress/processor[1]/nat_lum_hash_ctl",
             "cpu_pipeline[0]/lag_lut[12]/lag_lut_ctl",
             "cpu_pipeline[0]/lag_cpu[0]/lag_mask_data1",
             "ingress/rate_limiter[0]/interval_period",
             "ingress/rate_limiter[1]/default_limit",
             "pipeline[1]/rate_limiter/l2_packet_limit",
             "cpu_tx_pipeline[0]/rate_limiter/mirror_limit",
             "header/copp_interval",
         }) {
        EXPECT_TRUE(has(registers, path)) << path;
        EXPECT_EQ(registers.paths()[registers.address(path).number], path);
    }
}

TEST(RegisterMap, RefusesAPathItDoesNotHave) {
    RegisterMap const registers(*NerioSwitch::profilePreset("default"));
    for (auto const* path :
         {"", "egress/port[52]/vlan_cfg", "egress/port[0]/cfg", "egress/port[00]/vlan_cfg",
          "egress/port[%d]/vlan_cfg", "pipeline[0]/port[26]/l2_control", "pipeline[0]/port[0]/default_vlan",
          "ingress/vlan[2]/vlan_ctl", "ingress/processor_l3[2]/hash_ctl", "ingress/processor_l3[0]/",
          "ingress/processor_l3[0]/hash_data5", "ingress/processor_l2_mirror_reg[0]/reg[104]",
          "pipeline[0]/lag_lut[13]/lag_lut_ctl", "cpu_pipeline[1]/lag_lut_ctl", "copp_interval"}) {
        EXPECT_THROW(registers.address(path), UnknownRegisterException) << path;
    }
}

TEST(RegisterMap, RefusalNamesThePath) {
    RegisterMap const registers(*bareProfile(1));
    try {
        registers.address("egress/port[1]/cfg");
        FAIL();
    } catch (UnknownRegisterException const& failure) {
        EXPECT_STREQ(failure.what(), "the chip has no register \"egress/port[1]/cfg\"");
    }
}

TEST(RegisterMap, OnlyTheGenerationsOwnVlanRegistersOfPortsExist) {
    auto const profile = NerioSwitch::profilePreset("default");
    for (U32 const version : {0u, 1u, 2u, 7u}) {
        profile->vlanRegVer = version;
        RegisterMap const registers(*profile);
        bool const older = version < 2;
        EXPECT_EQ(has(registers, "egress/port[5]/cfg"), older) << version;
        EXPECT_EQ(has(registers, "pipeline[0]/port[5]/default_vlan"), older) << version;
        EXPECT_EQ(has(registers, "egress/port[5]/vlan_cfg"), !older) << version;
        EXPECT_EQ(has(registers, "egress/port[5]/vlan_tci"), !older) << version;
    }
}

TEST(RegisterMap, CpuCopiesOfLayer2TablesNeedACpuPipeline) {
    auto const profile = NerioSwitch::profilePreset("default");
    profile->hasCpuPipeline = false;
    RegisterMap const registers(*profile);
    EXPECT_FALSE(has(registers, "cpu_pipeline[0]/vlan/vlan_ctl"));
    EXPECT_FALSE(has(registers, "cpu_pipeline[0]/processor/hash_ctl"));
    EXPECT_FALSE(has(registers, "cpu_pipeline[0]/processor_l2/hash_ctl"));
    EXPECT_TRUE(has(registers, "cpu_pipeline[0]/lag_cpu[0]/lag_ctl"));
    EXPECT_TRUE(has(registers, "cpu_pipeline[0]/lag_lut[0]/lag_lut_ctl"));
    EXPECT_TRUE(has(registers, "cpu_pipeline[0]/lag_lut_ctl"));
}

TEST(RegisterMap, PortsWithoutAPipeAreAtPipe0Port0) {
    RegisterMap const registers(*bareProfile(16));
    EXPECT_TRUE(has(registers, "pipeline[0]/port[0]/lhash_ctl"));
    EXPECT_FALSE(has(registers, "pipeline[0]/port[1]/lhash_ctl"));
}

TEST(RegisterMap, MirrorMasksHaveABitForEveryPortAndTheCpu) {
    for (auto const& [ports, words] :
         std::map<U16, U32>{{16, 1}, {31, 1}, {32, 2}, {52, 2}, {60, 2}, {64, 3}}) {
        auto const profile = bareProfile(ports);
        profile->layouts[TableLayoutEnum::tableLayoutL2] = {1, 1, 1, 0, {0}, {0}};
        RegisterMap const registers(*profile);
        auto const reg = [&](U32 number) {
            return has(registers, Sorn::_fmt("ingress/processor_l2_mirror_reg[0]/reg[%u]", number));
        };
        EXPECT_TRUE(reg(words * ports - 1)) << ports;
        EXPECT_FALSE(reg(words * ports)) << ports;
    }
}

TEST(RegisterMap, AProfileWithoutCopiesHasNoRegistersOfThem) {
    RegisterMap const registers(*bareProfile(52));
    for (auto const* path : {"ingress/vlan[0]/vlan_ctl", "ingress/processor_l2[0]/hash_ctl",
                             "ingress/processor_l3[0]/hash_ctl", "ingress/processor_l4[0]/hash_ctl",
                             "ingress/processor_acl[0]/hash_ctl", "egress/processor[0]/lum_data",
                             "pipeline[0]/processor/hash_ctl", "ingress/rate_limiter[0]/igmp_limit"}) {
        EXPECT_FALSE(has(registers, path)) << path;
    }
    EXPECT_TRUE(has(registers, "cpu_tx_pipeline[0]/rate_limiter/igmp_limit"));
    EXPECT_EQ(RegisterMap(*Belmo::make<ProfileInfo>()).size(), 5u + 16u + 1u);
}

TEST(RegisterMap, ACopyThatAPipeIsMappedToExists) {
    auto const profile = bareProfile(4);
    profile->layouts[TableLayoutEnum::tableLayoutAcl] = {1, 4, 2, 0, {0, 0, 0, 0}, {0, 0, 1, 3}};
    RegisterMap const registers(*profile);
    EXPECT_TRUE(has(registers, "ingress/processor_acl[3]/hash_ctl"));
    EXPECT_FALSE(has(registers, "ingress/processor_acl[4]/hash_ctl"));
}

RC_GTEST_PROP(RegisterMap, EveryGeometryHasItsRegistersOnceEach, ()) {
    auto const profile = bareProfile(*rc::gen::inRange<U16>(0, 65));
    profile->vlanRegVer = *rc::gen::inRange(0u, 8u);
    std::vector<NerioSwitch::PipeRangeInfo> pipes;
    for (U16 first = 0; first < profile->numPorts;) {
        auto const last = *rc::gen::inRange<U16>(first, profile->numPorts);
        pipes.push_back({static_cast<U16>(pipes.size()), first, last});
        first = static_cast<U16>(last + *rc::gen::inRange<U16>(1, 4));
    }
    profile->ingressPipesAre(pipes);
    for (auto const& layout : enumerators(TableLayoutEnum{})) {
        auto const count = [] { return *rc::gen::inRange<U16>(0, 5); };
        profile->layouts[layout.value] = {count(), count(), count(), 0, {}, {}};
    }

    RegisterMap const registers(*profile);
    for (U32 number = 0; number < registers.size(); ++number)
        RC_ASSERT(registers.address(registers.paths()[number]).number == number);
    for (U32 port = 0; port < profile->numPorts; ++port) {
        auto const place = profile->ingressPipeOfPort(port);
        registers.address(
            Sorn::_fmt("egress/port[%u]/%s", port, profile->vlanRegVer > 1 ? "vlan_cfg" : "cfg"));
        registers.address(Sorn::_fmt("pipeline[%u]/port[%u]/l2_control", place.pipeId, place.pipePort));
        registers.address(Sorn::_fmt("cpu_pipeline[0]/lag_lut[%u]/lag_lut_ctl", port >> 2));
    }
    for (U32 t = 0; t < profile->numTables(TableLayoutEnum::tableLayoutVlan); ++t) {
        registers.address(Sorn::_fmt("ingress/vlan[%u]/vlan_ctl", t));
        registers.address(Sorn::_fmt("pipeline[%u]/processor/vlan_ctl", t));
    }
    for (U32 t = 0; t < profile->numTables(TableLayoutEnum::tableLayoutL2); ++t) {
        registers.address(Sorn::_fmt("ingress/processor_l2[%u]/lag_ctl", t));
        registers.address(Sorn::_fmt("pipeline[%u]/processor/lag_ctl", t));
        registers.address(Sorn::_fmt("pipeline[%u]/rate_limiter/igmp_limit", t));
    }
    for (U32 t = 0; t < profile->numPipelinesOfTable(TableLayoutEnum::tableLayoutL2); ++t)
        registers.address(Sorn::_fmt("pipeline[%u]/lag_lut_ctl", t));
    for (U32 n = 0; n < profile->numProcessors(TableLayoutEnum::tableLayoutL3); ++n)
        registers.address(Sorn::_fmt("ingress/processor_l3[%u]/hash_data4", n));
    for (U32 n = 0; n < profile->numProcessors(TableLayoutEnum::tableLayoutEgress); ++n)
        registers.address(Sorn::_fmt("egress/processor[%u]/lum_ctl_addr_data", n));
}

}  // namespace
