#include "agent/SwitchState.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "NerioSwitchTable/NerioTableVlanMembership.h"
#include "agent/SparseJson.h"

namespace Agent {

/** The form of a value whose attributes are left out where they are at their default. */
template <class Value>
struct SparseForm {
    static Json toJson(Value const& value) { return sparseToJson(value); }
    static Value fromJson(Json const& json, Place const& place) { return objectFromJson<Value>(json, place); }
};

template <>
struct JsonForm<VlanAddress> : SparseForm<VlanAddress> {};
template <>
struct JsonForm<PortSettings> : SparseForm<PortSettings> {};
template <>
struct JsonForm<MirrorTarget> : SparseForm<MirrorTarget> {};

/** Flooding to all ports goes without saying, and not flooding is an empty list. */
template <>
struct JsonForm<Vlan> {
    static Json toJson(Vlan const& vlan) {
        auto json = SparseForm<Vlan>::toJson(vlan);
        for (auto const& [name, flooded] :
             {std::pair{"floodUnicast", vlan.floodUnicast()}, {"floodMulticast", vlan.floodMulticast()}}) {
            json.erase(name);
            if (flooded != vlan.ports()) json[name] = flooded.text();
        }
        return json;
    }
    static Vlan fromJson(Json const& json, Place const& place) {
        auto vlan = SparseForm<Vlan>::fromJson(json, place);
        if (!json.contains("floodUnicast")) vlan.floodUnicastIs(vlan.ports());
        if (!json.contains("floodMulticast")) vlan.floodMulticastIs(vlan.ports());
        return vlan;
    }
};

template <>
struct JsonForm<StormLimits> {
    using Member = std::pair<char const*, std::optional<Rate> StormLimits::*>;
    static constexpr std::array<Member, 3> members{{{"broadcast", &StormLimits::broadcast},
                                                    {"unicast", &StormLimits::unicast},
                                                    {"multicast", &StormLimits::multicast}}};

    static Json toJson(StormLimits const& limits) {
        Json json = Json::object();
        for (auto const& [name, member] : members) {
            if (limits.*member) json[name] = (limits.*member)->text();
        }
        return json;
    }
    static StormLimits fromJson(Json const& json, Place const& place) {
        membersAre(json, {"broadcast", "unicast", "multicast"}, place);
        StormLimits limits;
        for (auto const& [name, member] : members) {
            if (auto const* rate = optionalMember(json, name))
                limits.*member = Agent::fromJson<Rate>(*rate, place.member(name));
        }
        Detail::placed(place, [&] { return stormEntries(limits); });
        return limits;
    }
};

namespace {

using NerioSwitch::ChipPortId;
using NerioSwitch::HwAclId;
using NerioSwitch::ProfileInfo;

/** A list of ports as the name of a member. */
Ports portsNamed(Belmo::String const& name, Place const& place) {
    return textFromJson<Ports>(Json(name), place);
}

[[noreturn]] void refuse(Place const& place, Belmo::String const& text) {
    throw JsonException(place, fmt::format("{}: {}", place.name(), text));
}

template <class Key, class Value>
void partFromJson(std::map<Key, Value>& part, Json const& json, Place const& place) {
    part = fromJson<std::map<Key, Value>>(json, place);
}

template <class Settings>
void partFromJson(ByPort<Settings>& part, Json const& json, Place const& place) {
    if (!json.is_object()) refuseKind(json, "an object", place);
    std::set<ChipPortId> told;
    for (auto const& [name, member] : json.items()) {
        auto const at = place.member(name);
        auto const settings = fromJson<Settings>(member, at);
        portsNamed(name, at).forEach([&](ChipPortId port) {
            if (!told.insert(port).second)
                refuse(at, fmt::format("port {} is in another list", port.value()));
            if (settings != Settings()) part.emplace(port, settings);
        });
    }
}

void partFromJson(std::map<NerioSwitchTable::CoppClass, Rate>& part, Json const& json, Place const& place) {
    if (!json.is_object()) refuseKind(json, "an object", place);
    for (auto const& [name, member] : json.items()) {
        auto const at = place.member(name);
        part[fromJson<NerioSwitchTable::CoppClass>(Json(name), at)] = fromJson<Rate>(member, at);
    }
}

template <class Key, class Value>
Json partToJson(std::map<Key, Value> const& part) {
    return toJson(part);
}

template <class Settings>
Json partToJson(ByPort<Settings> const& part) {
    std::vector<std::pair<Settings, Ports>> lists;
    for (auto const& [port, settings] : part) {
        auto const same = std::ranges::find(lists, settings, &std::pair<Settings, Ports>::first);
        if (same == lists.end()) {
            lists.emplace_back(settings, Ports().add(port));
        } else {
            same->second.add(port);
        }
    }
    Json json = Json::object();
    for (auto const& [settings, ports] : lists)
        json[ports.text()] = toJson(settings);
    return json;
}

/** What the chip at hand has, and what does not go together. */
class Check {
public:
    Check(SwitchState const& state, Place const& root, ProfileInfo const& profile)
        : state_(state), root_(root), profile_(profile) {}

    void all() const {
        vlans();
        portChannels();
        byPort("ports", state_.ports);
        byPort("mirrors", state_.mirrors);
        byPort("stormLimits", state_.stormLimits);
        cpuLimits();
        auto const mirrors = root_.member("mirrors");
        for (auto const& [port, target] : state_.mirrors)
            portsAreThere(target.ports(), mirrors);
    }

private:
    void portsAreThere(Ports ports, Place const& place) const {
        ports.forEach([&](ChipPortId port) {
            if (port.value() >= profile_.numPorts) {
                refuse(place,
                       fmt::format("port {} is not among the chip's {}", port.value(), profile_.numPorts));
            }
        });
    }

    template <class Settings>
    void byPort(char const* name, ByPort<Settings> const& part) const {
        Ports ports;
        for (auto const& [port, settings] : part)
            ports.add(port);
        portsAreThere(ports, root_.member(name));
    }

    /** Refuses ports that stand in an earlier list too. */
    static void onlyOnce(Ports& earlier, Ports ports, Place const& place, char const* what) {
        ports.forEach([&](ChipPortId port) {
            if (earlier.has(port)) refuse(place, fmt::format("port {} is {} already", port.value(), what));
        });
        earlier = Ports(earlier.mask() | ports.mask());
    }

    void vlans() const {
        auto const place = root_.member("vlans");
        Ports untagged;
        std::set<U32> rows;
        for (auto const& [id, vlan] : state_.vlans) {
            auto const name = id.text();
            auto const at = place.member(name);
            portsAreThere(vlan.ports(), at.member("ports"));
            for (auto const& [member, ports] : {std::pair{"untagged", vlan.untagged()},
                                                {"floodUnicast", vlan.floodUnicast()},
                                                {"floodMulticast", vlan.floodMulticast()}}) {
                auto const here = at.member(member);
                Ports const others(ports.mask() & ~vlan.ports().mask());
                if (!others.empty())
                    refuse(here, fmt::format("{} not among the VLAN's ports", others.text()));
            }
            auto const here = at.member("untagged");
            onlyOnce(untagged, vlan.untagged(), here, "untagged in another VLAN");
            if (vlan.acl() != HwAclId() && NerioSwitchTable::vlanAclPipes(profile_).pipes.empty())
                refuse(at.member("acl"), "the rows of this chip's VLANs have no ACL");
            if (vlan.acl() == HwAclId() && !vlan.aclDefaultPermit())
                refuse(at.member("aclDefaultPermit"), "the VLAN has no ACL");
            auto const addresses = at.member("addresses");
            for (auto const& [ethAddr, address] : vlan.addresses()) {
                auto const text = ethAddr.text();
                auto const ofAddress = addresses.member(text);
                portsAreThere(address.ports(), ofAddress.member("ports"));
                if (!rows.insert(address.row()).second)
                    refuse(ofAddress.member("row"), fmt::format("row {} is taken", address.row()));
            }
        }
    }

    void portChannels() const {
        auto const place = root_.member("portChannels");
        Ports members;
        for (auto const& [number, ports] : state_.portChannels) {
            auto const at = place.member(number.text());
            portsAreThere(ports, at);
            onlyOnce(members, ports, at, "in another port channel");
        }
    }

    void cpuLimits() const {
        auto const place = root_.member("cpuLimits");
        if (!state_.cpuLimits.empty())
            Detail::placed(place, [&] {
                return coppEntries({state_.cpuLimits.begin(), state_.cpuLimits.end()}, profile_);
            });
    }

    SwitchState const& state_;
    Place const& root_;
    ProfileInfo const& profile_;
};

}  // namespace

SwitchState switchStateFromJson(Json const& json, Place const& place, ProfileInfo const& profile) {
    SwitchState state;
    SwitchState::forEachPart(state, [&](char const* name, auto& part) {
        if (auto const* member = optionalMember(json, name)) partFromJson(part, *member, place.member(name));
    });
    Check(state, place, profile).all();
    return state;
}

void switchStateToJson(SwitchState const& state, Json& json) {
    SwitchState::forEachPart(state, [&](char const* name, auto const& part) {
        if (!part.empty()) json[name] = partToJson(part);
    });
}

}  // namespace Agent
