#include <algorithm>
#include <fmt/format.h>

#include "agent/ConfigDb.h"
#include "agent/ImportText.h"
#include "agent/NatImport.h"

/* Static translations and static routes of a configuration database. */
namespace Agent::Import {

namespace {

/** A word of an entry's name; throws `JsonException` for one that is none. */
template <class Read>
auto wordOf(ConfigEntry const& entry, Belmo::String const& word, char const* what, Read const& read) {
    auto const value = read(word);
    if (!value) {
        throw JsonException(entry.place(),
                            fmt::format("{}: expected {}, found {}", entry.name(), what, shown(Json(word))));
    }
    return *value;
}

std::optional<U32> portFromText(std::string_view text) {
    auto const port = numberFromText(text, 0xFFFF);
    return port && *port != 0 ? port : std::nullopt;
}

/** Whether a translation is of a kind that sessions can have; if not, that goes to the report. */
bool isPlain(ConfigDb& db, ConfigEntry const& entry) {
    if (entry.text("twice_nat_id")) {
        db.report.lost(entry.at(), "twice_nat_id: static translations change one side of a packet");
        return false;
    }
    if (auto const type = entry.text("nat_type"); type && *type != "dnat") {
        db.report.lost(entry.at(), fmt::format("nat_type {}: a translation is told by its outside", *type));
        return false;
    }
    return true;
}

Lanvo::IpAddr insideOf(ConfigEntry const& entry) {
    auto const inside = entry.value("local_ip", "an IPv4 address", addressFromText);
    if (!inside) throw JsonException(entry.place(), "\"local_ip\" is missing");
    return *inside;
}

NatTranslation portTranslationOf(ConfigEntry const& entry) {
    auto const names = entry.nameParts(3);
    auto const protocol = [](std::string_view text) -> std::optional<U8> {
        if (text == "TCP" || text == "tcp") return NerioSwitch::NatL4Proto::tcp;
        if (text == "UDP" || text == "udp") return NerioSwitch::NatL4Proto::udp;
        return std::nullopt;
    };
    auto const insidePort = entry.number("local_port", 1, 0xFFFF);
    if (!insidePort) throw JsonException(entry.place(), "\"local_port\" is missing");
    return NatTranslation()
        .insideIs(insideOf(entry))
        .insidePortIs(static_cast<U16>(*insidePort))
        .outsideIs(wordOf(entry, names[0], "an IPv4 address", addressFromText))
        .outsidePortIs(static_cast<U16>(wordOf(entry, names[2], "a port", portFromText)))
        .protoIs(wordOf(entry, names[1], "TCP or UDP", protocol));
}

/** The numbers of next hops by name: 57 is none. */
class NexthopNumbers {
public:
    std::optional<U32> of(ConfigDb& db, Belmo::String const& name) {
        constexpr U32 last = 4095;
        constexpr U32 none = 57;
        if (auto const known = known_.find(name); known != known_.end()) return known->second;
        if (next_ > last) return std::nullopt;
        db.report.named("next hop", name, next_);
        known_[name] = next_;
        auto const number = next_++;
        if (next_ == none) ++next_;
        return number;
    }
    std::size_t count() const { return known_.size(); }

private:
    std::map<Belmo::String, U32> known_;
    U32 next_ = 1;
};

/** "10.0.0.1 port1, 10.0.0.5 port2": all next hops of a route are one, in alphabetical order. */
Belmo::String nexthopName(ConfigEntry const& route) {
    auto const addresses = route.list("nexthop");
    auto const interfaces = route.list("ifname");
    std::vector<Belmo::String> names;
    for (std::size_t i = 0; i < std::max(addresses.size(), interfaces.size()); ++i) {
        auto const address = i < addresses.size() ? addresses[i] : Belmo::String();
        auto const interface = i < interfaces.size() ? interfaces[i] : Belmo::String();
        auto const* blank = address.empty() || interface.empty() ? "" : " ";
        if (!address.empty() || !interface.empty())
            names.push_back(fmt::format("{}{}{}", address, blank, interface));
    }
    std::ranges::sort(names);
    return fmt::format("{}", fmt::join(names, ", "));
}

void routeIs(ConfigDb& db, ConfigEntry const& entry, NexthopNumbers& nexthops) {
    auto names = splitText(entry.name(), '|');
    if (names.size() == 1) names.insert(names.begin(), "default");
    if (names.size() != 2) entry.nameParts(2);
    auto const lost = [&](Belmo::String const& reason) { db.report.lost(entry.at(), reason); };
    if (names[1].find(':') != names[1].npos) return lost("routes are those of IPv4");
    auto const prefix = wordOf(entry, names[1], "an IPv4 prefix", prefixFromText);
    auto const vrf = db.vrfs.find(names[0]);
    if (vrf == db.vrfs.end()) return lost(fmt::format("the chip has no VRF {}", names[0]));
    if (std::ranges::count(entry.list("blackhole"), "true") != 0)
        return lost("blackhole: a route leads to a next hop");
    auto const otherVrfs = entry.list("nexthop-vrf");
    bool const isOwn = std::ranges::all_of(
        otherVrfs, [&](Belmo::String const& other) { return other.empty() || other == names[0]; });
    if (!isOwn) return lost("nexthop-vrf: a next hop is in the VRF of its route");
    auto const name = nexthopName(entry);
    if (name.empty()) return lost("it has no next hop");
    auto const number = nexthops.of(db, name);
    if (!number) return lost("no number of a next hop is left");
    db.file.routes.push_back({{vrf->second, prefix}, *number});
    db.report.took("routes");
}

}  // namespace

void importTranslations(ConfigDb& db) {
    NatImport translations(db.profile(), db.report);
    db.forEachEntry("STATIC_NAT", {"local_ip", "nat_type", "twice_nat_id"}, [&](ConfigEntry const& entry) {
        auto const outside = wordOf(entry, entry.name(), "an IPv4 address", addressFromText);
        auto const translation = NatTranslation().insideIs(insideOf(entry)).outsideIs(outside);
        if (isPlain(db, entry)) translations.translationIs(translation, entry.at());
    });
    db.forEachEntry("STATIC_NAPT", {"local_ip", "local_port", "nat_type", "twice_nat_id"},
                    [&](ConfigEntry const& entry) {
                        auto const translation = portTranslationOf(entry);
                        if (isPlain(db, entry)) translations.translationIs(translation, entry.at());
                    });
    db.file.translations = translations.translations();
}

void importVrfs(ConfigDb& db) {
    db.vrfs["default"] = 0;
    U32 next = 1;
    db.forEachEntry("VRF", {}, [&](ConfigEntry const& vrf) {
        if (db.vrfs.contains(vrf.name())) return;
        if (next >= db.profile().numVrfs) {
            db.report.lost(vrf.at(), fmt::format("the chip has {} VRFs", db.profile().numVrfs));
            return;
        }
        db.report.named("VRF", vrf.name(), next);
        db.report.took("VRFs");
        db.vrfs[vrf.name()] = static_cast<U8>(next++);
    });
}

/** A VLAN that has an interface is routed, in the VRF of the interface. */
void importVlanInterfaces(ConfigDb& db) {
    std::size_t addresses = 0;
    db.forEachEntry("VLAN_INTERFACE", {"vrf_name", "scope", "family"}, [&](ConfigEntry const& interface) {
        if (splitText(interface.name(), '|').size() > 1) {
            ++addresses;
            return;
        }
        auto const vlan = db.vlans.find(interface.name());
        if (vlan == db.vlans.end()) {
            db.report.lost(interface.at(), fmt::format("there is no VLAN {}", interface.name()));
            return;
        }
        auto const name = interface.text("vrf_name").value_or("default");
        auto const vrf = db.vrfs.find(name);
        if (vrf == db.vrfs.end()) {
            db.report.lost(interface.at("vrf_name"), fmt::format("the chip has no VRF {}", name));
            return;
        }
        db.file.switchState.vlans[vlan->second].unicastRouteIs(true).vrfIs(vrf->second);
        db.report.took("routed VLANs");
    });
    if (addresses != 0) {
        db.report.lost(db.at("VLAN_INTERFACE"),
                       fmt::format("{}: addresses of the switch are its CPU's", entriesText(addresses)));
    }
}

void importStaticRoutes(ConfigDb& db) {
    NexthopNumbers nexthops;
    db.forEachEntry("STATIC_ROUTE", {"nexthop", "ifname", "blackhole", "nexthop-vrf"},
                    [&](ConfigEntry const& route) { routeIs(db, route, nexthops); });
    if (nexthops.count() != 0) {
        db.report.lost(
            db.at("STATIC_ROUTE"),
            fmt::format("ports and rewrites of next hops ({}): an agent resolves them", nexthops.count()));
    }
}

}  // namespace Agent::Import
