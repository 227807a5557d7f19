#include "agent/SwitchEntries.h"

#include <algorithm>
#include <array>
#include <set>
#include <string_view>
#include <type_traits>

namespace Agent {

using namespace NerioSwitchTable;
using NerioSwitch::ChipPortId;
using NerioSwitch::HwAclId;
using NerioSwitch::IngressPortMask;
using NerioSwitch::ProfileInfo;

namespace {

/** The names that one thing has in the words of an operator and in rows, where they differ. */
struct Names {
    std::string_view state;
    std::string_view row;
};
constexpr std::array<Names, 14> twoNames{{{"ports", "permitMask"},
                                          {"floodUnicast", "uucPortMask"},
                                          {"floodMulticast", "umcPortMask"},
                                          {"learn", "learnToCpu"},
                                          {"vrf", "vrfBits"},
                                          {"unknownUnicastToCpu", "unknownDaToCpu"},
                                          {"joinsToCpu", "multicastJoinToCpu"},
                                          {"joinsToPorts", "multicastJoinToEgress"},
                                          {"mode", "portMode"},
                                          {"mlagPeer", "isMlagPeer"},
                                          {"hashVlan", "useVlanId"},
                                          {"hashProtocol", "useIpProtocol"},
                                          {"hashAddresses", "useSipAndDip"},
                                          {"hashPorts", "useSportAndDport"}}};

/** Whether attributes of a state and of a row, in either order, are the same thing. */
bool isSame(std::string_view one, std::string_view other) {
    auto const names = [&](Names const& each) {
        return (one == each.state && other == each.row) || (one == each.row && other == each.state);
    };
    return one == other || std::ranges::any_of(twoNames, names);
}

template <class Value>
void assign(Value& to, Value const& from) {
    to = from;
}
void assign(U64& to, Ports const& from) {
    to = from.mask();
}
void assign(Ports& to, U64 const& from) {
    to = Ports(from);
}

/** Copies what a value of a state and a row have in common, from either to the other. */
template <class From, class To>
void copyCommon(From const& from, To& to) {
    Sorn::forEachAttribute(from, [&](char const* fromName, auto const& source) {
        Sorn::forEachAttribute(to, [&](char const* toName, auto& target) {
            if constexpr (requires { assign(target, source); }) {
                if (isSame(fromName, toName)) assign(target, source);
            }
        });
    });
}

/** The row that has all of a value that it can have. */
template <class Row, class Value>
Row rowOf(Value const& value) {
    Row row;
    copyCommon(value, row);
    return row;
}

/** Sets an entry, unless it says what goes without saying. */
template <class Entries, class Key, class Row>
void entryIs(Entries& entries, Key const& key, Row const& row) {
    if (row != Row()) entries[key] = row;
}

IngressPortMask maskOf(Ports ports, bool cpu) {
    return IngressPortMask(ports.mask() | (cpu ? IngressPortMask::cpu : 0));
}

Ports portsOf(IngressPortMask mask) {
    return Ports(mask.value() & (IngressPortMask::cpu - 1));
}

/** The ACL of a VLAN is that of all pipes. */
void aclToRow(Vlan const& vlan, VlanAclPipes const& acl, VlanMembershipResult& row) {
    if (vlan.acl() == HwAclId()) return;
    for (auto const pipe : acl.pipes)
        row.aclIdIs(pipe, vlan.acl())
            .aclEnableIs(pipe, acl.enable)
            .aclDefaultPermitIs(pipe, vlan.aclDefaultPermit());
}

void aclFromRow(VlanMembershipResult const& row, Vlan& vlan) {
    if (row.aclEnable().empty()) return;
    auto const pipe = row.aclEnable().begin()->first;
    vlan.aclIs(row.aclId(pipe)).aclDefaultPermitIs(row.aclDefaultPermit(pipe));
}

void vlansToEntries(SwitchState const& state, SwitchEntries& entries, ProfileInfo const& profile) {
    auto const acl = vlanAclPipes(profile);
    for (auto const& [id, vlan] : state.vlans) {
        auto& row = entries.vlanMembership[VlanMembershipKey(id)];
        row = rowOf<VlanMembershipResult>(vlan);
        aclToRow(vlan, acl, row);
        vlan.untagged().forEach([&, vid = id](ChipPortId port) {
            entries.nativeVlan[NativeVlanKey(port)].nativeVlanIdIs(vid.value());
        });
        auto const flood = rowOf<FloodSetResult>(vlan);
        if (flood != FloodSetResult()) entries.floodSet[id] = FloodSetEntry(id, flood);
        for (auto const& [ethAddr, address] : vlan.addresses()) {
            entries.macVlan[MacVlanKey(address.row())] =
                rowOf<MacVlanResult>(address)
                    .macVlanIs(MacVlan(id.value(), ethAddr))
                    .ingressPortMaskIs(maskOf(address.ports(), address.toCpu()));
        }
    }
}

void vlansFromEntries(SwitchEntries const& entries, SwitchState& state) {
    for (auto const& [key, row] : entries.vlanMembership) {
        auto& vlan = state.vlans[key.vid()];
        copyCommon(row, vlan);
        aclFromRow(row, vlan);
    }
    for (auto const& [port, native] : entries.nativeVlan) {
        // VLAN 0 is none.
        if (native.nativeVlanId() == Bridging::VlanIdOrNone::none) continue;
        auto& vlan = state.vlans[native.nativeVlanId().value()];
        vlan.untaggedIs(Ports(vlan.untagged()).add(port.portId()));
    }
    for (auto const& [id, flood] : entries.floodSet)
        copyCommon(flood.result(), state.vlans[id]);
    for (auto const& [key, row] : entries.macVlan) {
        if (row.macVlan().vlanId() == Bridging::VlanIdOrNone::none) continue;
        auto& vlan = state.vlans[row.macVlan().vlanId().value()];
        VlanAddress address;
        copyCommon(row, address);
        address.rowIs(key.value())
            .portsIs(portsOf(row.ingressPortMask()))
            .toCpuIs(row.ingressPortMask().hasCpu());
        auto addresses = vlan.addresses();
        addresses[row.macVlan().ethAddr()] = address;
        vlan.addressesIs(std::move(addresses));
    }
}

void portsToEntries(SwitchState const& state, SwitchEntries& entries) {
    for (auto const& [port, settings] : state.ports) {
        entryIs(entries.portConfig, PortConfigKey(port), rowOf<PortConfigResult>(settings));
        entryIs(entries.l2Control, L2ControlKey(port), rowOf<L2ControlResult>(settings));
        entryIs(entries.lagHashControl, LagHashControlKey(port), rowOf<LagHashControlResult>(settings));
    }
}

void portsFromEntries(SwitchEntries const& entries, SwitchState& state) {
    auto const copy = [&](auto const& rows) {
        for (auto const& [key, row] : rows)
            copyCommon(row, state.ports[key.portId()]);
    };
    copy(entries.portConfig);
    copy(entries.l2Control);
    copy(entries.lagHashControl);
    std::erase_if(state.ports, [](auto const& each) { return each.second == PortSettings(); });
}

/** Members take buckets in turn. */
void portChannelsToEntries(SwitchState const& state, SwitchEntries& entries) {
    constexpr U32 buckets = 32;
    for (auto const& [number, members] : state.portChannels) {
        LagMembershipResult lag(number.value());
        U32 count = 0;
        members.forEach([&](ChipPortId port) {
            lag.portIs(port, true);
            ++count;
        });
        U32 turn = 0;
        members.forEach([&, group = number.value()](ChipPortId port) {
            U32 taken = 0;
            for (U32 bucket = turn++; bucket < buckets; bucket += count)
                taken |= U32{1} << bucket;
            entries.lagGroup[LagGroupKey(port)] = LagGroupResult(group);
            entries.lagMembership[LagMembershipKey(port)] = lag;
            entryIs(entries.lagLookUp, LagLookUpKey(port), LagLookUpResult(taken));
        });
    }
}

void portChannelsFromEntries(SwitchEntries const& entries, SwitchState& state) {
    for (auto const& [key, row] : entries.lagGroup) {
        U32 const group = row.lagGroupId();
        if (group < PortChannelNumber::first || group > PortChannelNumber::last) continue;
        state.portChannels[group].add(key.portId());
    }
}

void mirrorsToEntries(SwitchState const& state, SwitchEntries& entries) {
    for (auto const& [port, target] : state.mirrors)
        entryIs(entries.rxPortMirror, RxPortMirrorKey(port),
                RxPortMirrorResult(maskOf(target.ports(), target.cpu())));
}

void mirrorsFromEntries(SwitchEntries const& entries, SwitchState& state) {
    for (auto const& [key, row] : entries.rxPortMirror) {
        auto const mask = row.dstPortMask();
        auto const target = MirrorTarget().portsIs(portsOf(mask)).cpuIs(mask.hasCpu());
        if (target != MirrorTarget()) state.mirrors[key.chipPortId()] = target;
    }
}

void stormLimitsToEntries(SwitchState const& state, SwitchEntries& entries) {
    for (auto const& [port, limits] : state.stormLimits) {
        for (auto const& [trafficClass, entry] : stormEntries(limits))
            entries.stormControl[{port, trafficClass}] = entry;
    }
}

void stormLimitsFromEntries(SwitchEntries const& entries, SwitchState& state) {
    std::map<ChipPortId, StormEntries> byPort;
    for (auto const& [key, entry] : entries.stormControl)
        byPort[key.portId()][key.trafficClass()] = entry;
    for (auto const& [port, ofPort] : byPort) {
        auto const limits = stormLimits(ofPort);
        if (limits != StormLimits()) state.stormLimits[port] = limits;
    }
}

void cpuLimitsToEntries(SwitchState const& state, SwitchEntries& entries, ProfileInfo const& profile) {
    if (state.cpuLimits.empty()) return;
    for (auto const& [key, entry] : coppEntries({state.cpuLimits.begin(), state.cpuLimits.end()}, profile))
        entries.copp[key] = entry;
}

void cpuLimitsFromEntries(SwitchEntries const& entries, SwitchState& state, ProfileInfo const& profile) {
    if (entries.copp.empty()) return;
    for (auto const& [policed, rate] : cpuLimits(entries.copp, profile)) {
        if (rate) state.cpuLimits[policed] = *rate;
    }
}

template <class Table>
void become(Table& table, TableEntries<Table> const& wanted) {
    std::set<typename Table::Key> unwanted;
    for (auto const& [key, result] : table.entries()) {
        if (!wanted.contains(key)) unwanted.insert(key);
    }
    for (auto const& key : unwanted)
        table.entryDel(key);
    // An equal entry has no effect, unless hardware does not have it yet.
    for (auto const& [key, result] : wanted)
        table.entryIs(key, result);
    std::set<typename Table::Key> disorderly;
    for (auto const& [key, isMarked] : table.hwInconsistentEntries()) {
        if (isMarked) disorderly.insert(key);
    }
    for (auto const& key : disorderly) {
        table.handleEntry(key);
        table.hwInconsistentEntryDel(key);
    }
}

}  // namespace

SwitchEntries SwitchEntries::of(SwitchState const& state, ProfileInfo const& profile) {
    SwitchEntries entries;
    vlansToEntries(state, entries, profile);
    portsToEntries(state, entries);
    portChannelsToEntries(state, entries);
    mirrorsToEntries(state, entries);
    stormLimitsToEntries(state, entries);
    cpuLimitsToEntries(state, entries, profile);
    return entries;
}

SwitchState SwitchEntries::state(ProfileInfo const& profile) const {
    SwitchState state;
    vlansFromEntries(*this, state);
    portsFromEntries(*this, state);
    portChannelsFromEntries(*this, state);
    mirrorsFromEntries(*this, state);
    stormLimitsFromEntries(*this, state);
    cpuLimitsFromEntries(*this, state, profile);
    return state;
}

void SwitchEntries::applyTo(NerioSwitchApi::SwTable& table) const {
    forEachTable(*this, [&](char const*, char const*, auto const& entries) {
        using Table = typename std::remove_cvref_t<decltype(entries)>::Table;
        if (auto* typed = dynamic_cast<Table*>(&table)) become(*typed, entries);
    });
}

void SwitchEntries::readFrom(NerioSwitchApi::SwTable const& table) {
    forEachTable(*this, [&](char const*, char const*, auto& entries) {
        using Table = typename std::remove_cvref_t<decltype(entries)>::Table;
        auto const* typed = dynamic_cast<Table const*>(&table);
        if (typed == nullptr) return;
        entries.clear();
        for (auto const& [key, result] : typed->entries())
            entries.emplace(key, result);
    });
}

std::vector<SwitchTable> tablesOf(SwitchState const& state) {
    std::set<std::string_view> parts;
    SwitchState::forEachPart(state, [&](char const* name, auto const& part) {
        if (!part.empty()) parts.insert(name);
    });
    std::vector<SwitchTable> tables;
    SwitchEntries const entries;
    SwitchEntries::forEachTable(entries, [&](char const* part, char const* family, auto const&) {
        if (parts.contains(part)) tables.push_back({TableSpec{family, family, {}}, part});
    });
    return tables;
}

}  // namespace Agent
