#include "agent/MulticastAgent.h"

#include <algorithm>
#include <bit>
#include <fmt/format.h>
#include <iterator>
#include <utility>

#include "Belmo/Assert.h"
#include "Belmo/Exceptions.h"

namespace Agent {

using NerioSwitch::IngressPortMask;
using NerioSwitch::MrouteKey;
using NerioSwitchTable::SGKey;
using NerioSwitchTable::SGMulticastResult;
using NerioSwitchTable::SGResult;
using NerioSwitchTable::StarGResult;

namespace {

bool ofSource(MrouteKey const& key) {
    return key.source().len() != 0;
}

/** A (*,G) route as its table has it after a restart, too: rows say nothing of a source. */
MrouteKey starGKey(MrouteKey const& key) {
    return {{Lanvo::IpAddr(), 32}, key.group(), key.vlanId()};
}

/** "(10.0.0.1, 239.1.1.1) in VLAN 5", "(*, 239.1.1.1) in VLAN 5" */
Belmo::String textOf(MrouteKey const& key) {
    return fmt::format("({}, {}) in VLAN {}", ofSource(key) ? key.source().address().text() : "*",
                       key.group().address().text(), key.vlanId().value());
}

}  // namespace

MulticastTables MulticastTables::made() {
    return {NerioSwitchTable::sGTableFactory("sg"), NerioSwitchTable::starGTableFactory("starG"),
            NerioSwitchTable::vlanGroupTableFactory("vlanGroups")};
}

void MulticastAgent::checkProfile(NerioSwitch::ProfileInfo const& profile) {
    for (U32 port = 0; port < profile.numPorts; ++port) {
        auto const place = profile.portIdToEgressPipe.find(port);
        if (place == profile.portIdToEgressPipe.end())
            throw Belmo::RangeException(
                fmt::format("multicast routes take an egress pipe for each port; port {} has none", port));
        if (place->second.pipePort > 1) {
            throw Belmo::RangeException(
                fmt::format("multicast routes take egress pipes of at most two ports; port {} is the third "
                            "one of pipe {}",
                            port, place->second.pipeId));
        }
    }
    U32 const processors = profile.numProcessors(NerioSwitch::TableLayoutEnum::tableLayoutEgress);
    if (processors != profile.egressPipeRangeInfo.size()) {
        throw Belmo::RangeException(
            fmt::format("multicast routes take an egress processor for each egress pipe; there are {} for {}",
                        processors, profile.egressPipeRangeInfo.size()));
    }
}

MulticastAgent::MulticastAgent(MulticastTables tables)
    : tables_(std::move(tables)), vlanGroups_(tables_.vlanGroups) {
    BELMO_ASSERT(tables_.sources->initialized() && tables_.groups->initialized() &&
                 tables_.vlanGroups->initialized());
    checkProfile(*tables_.vlanGroups->profile());
    for (auto const& [key, result] : tables_.sources->entries()) {
        if (key.isMulticastKey()) adopt(key.mrouteKey(), result.data().multicast());
    }
    for (auto const& [key, result] : tables_.groups->entries()) {
        adopt({{}, key.group(), key.vlanId()},
              SGMulticastResult().vlanGroupIdIs(result.vlanGroupId()).portMaskIs(result.portMask()));
    }
}

/** Takes over a route that hardware has, until somebody tells it or `othersDel`. */
void MulticastAgent::adopt(MrouteKey const& key, SGMulticastResult const& result) {
    Way way;
    way.group = static_cast<U8>(result.vlanGroupId().value() % VlanGroups::groups);
    way.ports = result.portMask();
    way.vlans = vlanGroups_.vlansOf(way.group, way.ports.value());
    way.told = false;
    if (ways_.emplace(key, way).second) vlanGroups_.use(way.group, way.vlans);
}

void MulticastAgent::check(MulticastRoute const& route) const {
    auto const length = route.source().len();
    if (length != 0 && length != 32)
        throw Belmo::RangeException("Agent::MulticastRoute::source::len != 0 and != 32 not allowed");
    if (route.group().hostOrder() >> 28 != 14) {
        throw Belmo::RangeException(
            "Agent::MulticastRoute::group < 224.0.0.0 or > 239.255.255.255 not allowed");
    }
    auto const ports =
        std::min<int>(tables_.vlanGroups->profile()->numPorts, std::countr_zero(IngressPortMask::cpu));
    for (auto const& [vlan, mask] : route.out()) {
        if (mask.value() >> ports != 0)
            throw Belmo::RangeException("Agent::MulticastRoute::out >= ProfileInfo::numPorts not allowed");
    }
    for (auto const& [port, vlans] : wayOf(route).vlans) {
        if (vlans.size() > VlanGroups::vlansPerPort) {
            throw Belmo::RangeException(
                fmt::format("Agent::MulticastRoute::out: more than {} VLANs at port "
                            "{} not allowed",
                            VlanGroups::vlansPerPort, port.value()));
        }
    }
}

MulticastAgent::Way MulticastAgent::wayOf(MulticastRoute const& route) const {
    Way way;
    U64 ports = route.toCpu() ? IngressPortMask::cpu : 0;
    for (auto const& [vlan, mask] : route.out()) {
        ports |= mask.value();
        for (U16 port = 0; mask.value() >> port != 0; ++port) {
            if ((mask.value() >> port & 1) != 0) way.vlans[port].push_back(vlan);
        }
    }
    way.ports = ports;
    return way;
}

bool MulticastAgent::hasRoomFor(MrouteKey const& key) const {
    return ofSource(key) ? hasRoom(*tables_.sources, SGKey::multicastKey(key))
                         : hasRoom(*tables_.groups, starGKey(key));
}

/** The group that would have these lists if the route did not use its own. */
std::optional<U8> MulticastAgent::groupWithout(Way const& from, PortVlans const& vlans) {
    vlanGroups_.release(from.group, from.vlans);
    auto const group = vlanGroups_.groupFor(vlans);
    vlanGroups_.use(from.group, from.vlans);
    return group;
}

void MulticastAgent::rowIs(MrouteKey const& key, Way const& way) const {
    if (ofSource(key)) {
        auto const sgKey = SGKey::multicastKey(key);
        tables_.sources->entryIs(
            sgKey, SGResult().dataIs(SGResult::Multicast().vlanGroupIdIs(way.group).portMaskIs(way.ports)));
        BELMO_ASSERT(isProgrammed(*tables_.sources, sgKey));
    } else {
        tables_.groups->entryIs(starGKey(key), StarGResult().vlanGroupIdIs(way.group).portMaskIs(way.ports));
        BELMO_ASSERT(isProgrammed(*tables_.groups, starGKey(key)));
    }
}

void MulticastAgent::rowDel(MrouteKey const& key) {
    if (ofSource(key)) {
        tables_.sources->entryDel(SGKey::multicastKey(key));
        return;
    }
    freed_ = freed_ || isProgrammed(*tables_.groups, starGKey(key));
    tables_.groups->entryDel(starGKey(key));
}

/** Does what an earlier call could not, and tells of rows that became free. */
void MulticastAgent::settle() {
    vlanGroups_.program();
    while (!changed_.empty()) {
        auto const key = *changed_.begin();
        auto const way = ways_.find(key);
        if (way == ways_.end()) {
            rowDel(key);
        } else {
            rowIs(key, way->second);
        }
        changed_.erase(key);
    }
    vlanGroups_.clear();
    if (freed_ && rowsFreed_) rowsFreed_();
    freed_ = false;
}

void MulticastAgent::settleIfPossible() {
    try {
        settle();
    } catch (Belmo::Exception const&) {
        // What is left is done before anything else.
    }
}

/** Leads a route another way; a failure leaves it as it was. With `oldFirst` it drops packets meanwhile. */
void MulticastAgent::change(MrouteKey const& key, Way const* from, Way const& to, bool oldFirst) {
    if (oldFirst) vlanGroups_.release(from->group, from->vlans);
    vlanGroups_.use(to.group, to.vlans);
    try {
        if (oldFirst) rowIs(key, Way());
        vlanGroups_.program();
        rowIs(key, to);
    } catch (Belmo::Exception const&) {
        vlanGroups_.release(to.group, to.vlans);
        if (oldFirst) vlanGroups_.use(from->group, from->vlans);
        changed_.insert(key);
        settleIfPossible();
        throw;
    }
    if (from != nullptr && !oldFirst) vlanGroups_.release(from->group, from->vlans);
    told_ += from != nullptr && from->told ? 0 : 1;
    ways_.insert_or_assign(key, to);
    settle();
}

std::optional<Refusal> MulticastAgent::routeIs(MulticastRoute const& route) {
    check(route);
    settle();
    auto const key = route.key();
    auto const found = ways_.find(key);
    auto const* from = found == ways_.end() ? nullptr : &found->second;
    auto to = wayOf(route);
    if (from != nullptr && from->vlans == to.vlans && from->ports == to.ports) {
        if (!from->told) {
            found->second.told = true;
            ++told_;
            changed_.insert(key);
            settle();
        }
        return std::nullopt;
    }
    if (from == nullptr && !hasRoomFor(key)) {
        return ofSource(key) ? noPlace(*tables_.sources, textOf(key)) : noPlace(*tables_.groups, textOf(key));
    }
    auto group = vlanGroups_.groupFor(to.vlans);
    bool const oldFirst = !group && from != nullptr;
    if (oldFirst) group = groupWithout(*from, to.vlans);
    if (!group) {
        return Refusal{Refusal::Reason::noGroup,
                       fmt::format("no group of VLANs is left for {}", textOf(key))};
    }
    to.group = *group;
    change(key, from, to, oldFirst);
    return std::nullopt;
}

/** Wants a route no longer; the next one. */
MulticastAgent::Ways::iterator MulticastAgent::forget(Ways::iterator way) {
    vlanGroups_.release(way->second.group, way->second.vlans);
    told_ -= way->second.told ? 1 : 0;
    changed_.insert(way->first);
    return ways_.erase(way);
}

bool MulticastAgent::routeDel(MrouteKey const& key) {
    settle();
    auto const found = ways_.find(key);
    if (found == ways_.end() || !found->second.told) return false;
    forget(found);
    settle();
    return true;
}

void MulticastAgent::othersDel() {
    for (auto way = ways_.begin(); way != ways_.end();)
        way = way->second.told ? std::next(way) : forget(way);
    vlanGroups_.othersDel();
    settle();
}

std::optional<MulticastRoute> MulticastAgent::route(MrouteKey const& key) const {
    auto const found = ways_.find(key);
    if (found == ways_.end() || !found->second.told) return std::nullopt;
    std::map<Bridging::VlanId, U64> ports;
    for (auto const& [port, vlans] : found->second.vlans) {
        for (auto const& vlan : vlans)
            ports[vlan] |= U64{1} << port.value();
    }
    return MulticastRoute()
        .sourceIs(key.source())
        .groupIs(key.group().address())
        .vlanIdIs(key.vlanId())
        .outIs({ports.begin(), ports.end()})
        .toCpuIs(found->second.ports.hasCpu());
}

}  // namespace Agent
