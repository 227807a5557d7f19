#include "chip/RegisterMap.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>

#include "chip/Geometry.h"

namespace Chip {

namespace {

using NerioSwitch::ProfileInfo;
using Layout = NerioSwitch::TableLayoutEnum;

/** The numbers that stand in a path's brackets, the first one first. */
using Place = std::array<U32, 2>;
using Places = std::vector<Place>;

Places grid(U32 count, U32 countWithin = 1) {
    Places places;
    places.reserve(std::size_t{count} * countWithin);
    for (U32 i = 0; i < count; ++i) {
        for (U32 j = 0; j < countWithin; ++j)
            places.push_back({i, j});
    }
    return places;
}

Places once(ProfileInfo const&) {
    return grid(1);
}

Places ports(ProfileInfo const& profile) {
    return grid(profile.numPorts);
}

Places pipelines(ProfileInfo const& profile) {
    return grid(pipelineCount(profile));
}

template <Layout layout>
Places tables(ProfileInfo const& profile) {
    return grid(tableCount(profile, layout));
}

template <Layout layout>
Places processors(ProfileInfo const& profile) {
    return grid(processorCount(profile, layout));
}

/** NAT rewriting is a matter of the pipeline, so none is without an egress processor of its own. */
Places egressProcessors(ProfileInfo const& profile) {
    auto const count = processorCount(profile, Layout::tableLayoutEgress);
    return count == 0 ? Places() : grid(std::max(count, pipelineCount(profile)));
}

/** Ingress pipe and port inside the pipe of every port. */
Places ingressPorts(ProfileInfo const& profile) {
    Places places;
    for (U32 port = 0; port < profile.numPorts; ++port) {
        auto const place = profile.ingressPipeOfPort(port);
        places.push_back({place.pipeId, place.pipePort});
    }
    return places;
}

/** LAG look-up memory is reached through groups of four ports. */
U32 lookUpGroupCount(ProfileInfo const& profile) {
    return (U32{profile.numPorts} + 3) / 4;
}

Places lookUpGroups(ProfileInfo const& profile) {
    return grid(pipelineCount(profile), lookUpGroupCount(profile));
}

Places cpuLookUpGroups(ProfileInfo const& profile) {
    return grid(lookUpGroupCount(profile));
}

/** A mask of all ports and the CPU for each port that a layer 2 table serves. */
Places mirrorWords(ProfileInfo const& profile) {
    U32 portsOfTable = profile.numPorts;
    for (auto const& [pipe, range] : profile.ingressPipeRangeInfo)
        portsOfTable = std::max(portsOfTable, U32{range.lastPort} + 1);
    U32 const wordsPerPort = (U32{profile.numPorts} + 32) / 32;
    return grid(tableCount(profile, Layout::tableLayoutL2), wordsPerPort * portsOfTable);
}

bool always(ProfileInfo const&) {
    return true;
}

bool cpuPipeline(ProfileInfo const& profile) {
    return profile.hasCpuPipeline;
}

/** The generation that moved the VLAN registers of a port to its egress side. */
bool vlanAtEgress(ProfileInfo const& profile) {
    return profile.vlanRegVer > 1;
}

bool vlanAtIngress(ProfileInfo const& profile) {
    return !vlanAtEgress(profile);
}

/** Registers under one prefix: at which places they are, their names, and which chips have them. */
struct RegisterFamily {
    std::string_view prefix;
    Places (*places)(ProfileInfo const&);
    std::vector<std::string_view> names;
    bool (*present)(ProfileInfo const&) = always;
};

using Names = std::vector<std::string_view>;

std::vector<RegisterFamily> registerFamilies() {
    Names const egressVlan{"vlan_cfg", "vlan_tci"};
    Names const vlan{"vlan_data0", "vlan_data1", "vlan_data2", "vlan_ctl"};
    Names const vlanTwoWords{"vlan_data0", "vlan_data1", "vlan_ctl"};
    Names const floodSet{"floodset_data0", "floodset_data1", "floodset_data2", "floodset_data3",
                         "floodset_ctl"};
    Names const hash4{"hash_data0", "hash_data1", "hash_data2", "hash_data3", "hash_ctl"};
    Names const hash5{"hash_data0", "hash_data1", "hash_data2", "hash_data3", "hash_data4", "hash_ctl"};
    Names const lag{"lag_group_data0", "lag_mask_data0", "lag_mask_data1", "lag_ctl"};
    Names const cpuLag{"lag_mask_data0", "lag_mask_data1", "lag_ctl"};
    Names const lagLookUp{"lag_lut_data0", "lag_lut_ctl"};
    Names const lum{"lum_data", "lum_ctl_addr_data"};
    Names const natRewrite{"nat_lum_hash_data0", "nat_lum_hash_data1", "nat_lum_hash_data2",
                           "nat_lum_hash_ctl"};
    Names const perPort{"l2_control",      "lhash_ctl",     "interval_period",
                        "broadcast_limit", "unicast_limit", "multicast_limit"};
    Names const copp{
        "interval_period",    "reserved_mac_limit",      "igmp_limit",          "link_local_limit",
        "l2_packet_limit",    "packet_forwarding_limit", "cpu_critical_limit",  "nat_acl_packet_limit",
        "ptp_limit",          "l3_high_packet_limit",    "l3_low_packet_limit", "multicast_packet_limit",
        "l3_exception_limit", "mac_learn_limit",         "mirror_limit",        "default_limit"};
    constexpr auto l2 = Layout::tableLayoutL2;
    constexpr auto l3 = Layout::tableLayoutL3;
    constexpr auto acl = Layout::tableLayoutAcl;
    constexpr auto vlans = Layout::tableLayoutVlan;
    // clang-format off
    return {
        {"egress/port[{}]/",                     ports,            {"cfg"},          vlanAtIngress},
        {"egress/port[{}]/",                     ports,            egressVlan,       vlanAtEgress},
        {"pipeline[{}]/port[{}]/",               ingressPorts,     {"default_vlan"}, vlanAtIngress},
        {"pipeline[{}]/port[{}]/",               ingressPorts,     perPort},
        {"ingress/vlan[{}]/",                    tables<vlans>,    vlan},
        {"ingress/vlan[{}]/",                    tables<vlans>,    floodSet},
        {"ingress/processor_l2[{}]/",            tables<l2>,       hash4},
        {"ingress/processor_l2[{}]/",            tables<l2>,       lag},
        {"ingress/processor_l2_mirror_reg[{}]/", mirrorWords,      {"reg[{}]"}},
        {"pipeline[{}]/processor/",              pipelines,        vlanTwoWords},
        {"pipeline[{}]/processor/",              pipelines,        floodSet},
        {"pipeline[{}]/processor/",              pipelines,        hash4},
        {"pipeline[{}]/processor/",              pipelines,        lag},
        {"pipeline[{}]/lag_lut[{}]/",            lookUpGroups,     lagLookUp},
        {"pipeline[{}]/",                        pipelines,        lagLookUp},
        {"ingress/processor_l3[{}]/",            processors<l3>,   hash5},
        {"ingress/processor_l4[{}]/",            pipelines,        hash4},
        {"ingress/processor_acl[{}]/",           processors<acl>,  hash5},
        {"egress/processor[{}]/",                egressProcessors, lum},
        {"egress/processor[{}]/",                egressProcessors, natRewrite},
        {"cpu_pipeline[0]/vlan/",                once,             vlan,             cpuPipeline},
        {"cpu_pipeline[0]/vlan/",                once,             floodSet,         cpuPipeline},
        {"cpu_pipeline[0]/processor_l2/",        once,             hash4,            cpuPipeline},
        {"cpu_pipeline[0]/processor/",           once,             vlanTwoWords,     cpuPipeline},
        {"cpu_pipeline[0]/processor/",           once,             floodSet,         cpuPipeline},
        {"cpu_pipeline[0]/processor/",           once,             hash4,            cpuPipeline},
        {"cpu_pipeline[0]/lag_cpu[0]/",          once,             cpuLag},
        {"cpu_pipeline[0]/lag_lut[{}]/",         cpuLookUpGroups,  lagLookUp},
        {"cpu_pipeline[0]/",                     once,             lagLookUp},
        {"ingress/rate_limiter[{}]/",            tables<l2>,       copp},
        {"pipeline[{}]/rate_limiter/",           tables<l2>,       copp},
        {"cpu_tx_pipeline[0]/rate_limiter/",     once,             copp},
        {"header/",                              once,             {"copp_interval"}},
    };
    // clang-format on
}

}  // namespace

RegisterMap::RegisterMap(ProfileInfo const& profile) {
    for (auto const& family : registerFamilies()) {
        if (!family.present(profile)) continue;
        for (auto const& place : family.places(profile)) {
            for (auto const name : family.names) {
                auto const pattern = fmt::format("{}{}", family.prefix, name);
                add(fmt::format(fmt::runtime(pattern), place[0], place[1]));
            }
        }
    }
}

/** Ports that the profile puts at one place share its registers. */
void RegisterMap::add(Belmo::String path) {
    paths_.push_back(std::move(path));
    if (!numbers_.emplace(paths_.back(), size() - 1).second) paths_.pop_back();
}

NerioSwitchApi::RegisterHandle RegisterMap::address(std::string_view path) const {
    auto const found = numbers_.find(path);
    if (found == numbers_.end()) throw NerioSwitchApi::UnknownRegisterException(path);
    return {found->second};
}

}  // namespace Chip
