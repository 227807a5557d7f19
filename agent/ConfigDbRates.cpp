#include <algorithm>
#include <fmt/format.h>

#include "Belmo/Exceptions.h"

#include "agent/ConfigDb.h"

/* Limits of the CPU's traffic of a configuration database. */
namespace Agent::Import {

using NerioSwitchTable::CoppClass;

namespace {

/** What the chip calls the traffic of a trap. */
struct TrapClass {
    std::string_view trap;
    CoppClass policed;
};
constexpr std::array<TrapClass, 25> classesOfTraps{{{"stp", CoppClass::reservedMac},
                                                    {"lacp", CoppClass::reservedMac},
                                                    {"lldp", CoppClass::reservedMac},
                                                    {"eapol", CoppClass::reservedMac},
                                                    {"igmp_query", CoppClass::igmp},
                                                    {"igmp_leave", CoppClass::igmp},
                                                    {"igmp_v1_report", CoppClass::igmp},
                                                    {"igmp_v2_report", CoppClass::igmp},
                                                    {"igmp_v3_report", CoppClass::igmp},
                                                    {"ospf", CoppClass::linkLocal},
                                                    {"pim", CoppClass::linkLocal},
                                                    {"vrrp", CoppClass::linkLocal},
                                                    {"arp_req", CoppClass::l2Packet},
                                                    {"arp_resp", CoppClass::l2Packet},
                                                    {"dhcp", CoppClass::l2Packet},
                                                    {"dhcp_l2", CoppClass::l2Packet},
                                                    {"src_nat_miss", CoppClass::natAclPacket},
                                                    {"dest_nat_miss", CoppClass::natAclPacket},
                                                    {"ptp", CoppClass::ptp},
                                                    {"bgp", CoppClass::l3HighPacket},
                                                    {"ip2me", CoppClass::l3LowPacket},
                                                    {"ssh", CoppClass::l3LowPacket},
                                                    {"snmp", CoppClass::l3LowPacket},
                                                    {"ttl_error", CoppClass::l3Exception},
                                                    {"l3_mtu_error", CoppClass::l3Exception}}};
constexpr std::array<std::string_view, 8> ipv6Traps{"bgpv6",  "dhcpv6", "dhcpv6_l2", "neigh_discovery",
                                                    "ospfv6", "vrrpv6", "mld_v1_v2", "icmpv6"};
constexpr char const* defaultGroup = "default";

/** The limits of groups by name, and where they stand. */
struct Group {
    Rate rate;
    Belmo::String place;
    bool isNamed = false;
};

/** The limit of a group; nothing for one that no limiter can tell. */
std::optional<Rate> rateOf(ConfigDb& db, ConfigEntry const& group) {
    constexpr U64 bitsPerByte = 8;
    if (group.text("trap_action") == "drop") return Rate(0);
    auto const cir = group.number("cir", 0, ~U32{0});
    if (!cir) {
        db.report.lost(group.at(), "it has no limit");
        return std::nullopt;
    }
    auto const red = group.text("red_action").value_or("drop");
    if (red != "drop") {
        db.report.lost(group.at("red_action"), fmt::format("{}: what is above a limit is dropped", red));
        return std::nullopt;
    }
    auto const type = group.text("meter_type").value_or("packets");
    if (type == "packets") return Rate(*cir);
    if (type == "bytes") return Rate(*cir * bitsPerByte, Rate::Unit::bits);
    group.refuse("meter_type", type, "packets or bytes");
}

/** The limits of classes: groups that share a class share its limiter, which lets through what all of them
 * do. */
class ClassLimits {
public:
    explicit ClassLimits(ConfigDb& db) : db_(db) {}

    void groupIs(ConfigEntry const& group) {
        if (auto const rate = rateOf(db_, group)) groups_[group.name()] = {*rate, group.at()};
    }
    void trapIs(ConfigEntry const& trap) {
        auto const name = trap.text("trap_group").value_or(defaultGroup);
        auto const group = groups_.find(name);
        if (group == groups_.end()) {
            db_.report.lost(trap.at(), fmt::format("there is no limit of a group {}", name));
            return;
        }
        group->second.isNamed = true;
        for (auto const& id : trap.list("trap_ids"))
            limitIs(id, *group, trap.at("trap_ids"));
    }
    void finish() {
        if (auto const rest = groups_.find(defaultGroup); rest != groups_.end()) {
            rest->second.isNamed = true;
            classes_[CoppClass::others].insert(rest->first);
        }
        for (auto const& [name, group] : groups_) {
            if (!group.isNamed) db_.report.lost(group.place, "no trap is of this group");
        }
        for (auto const& [policed, names] : classes_)
            classIs(policed, names);
    }

private:
    void limitIs(Belmo::String const& trap, std::pair<Belmo::String const, Group> const& group,
                 Belmo::String const& place) {
        auto const* const found = std::ranges::find(classesOfTraps, trap, &TrapClass::trap);
        if (found != classesOfTraps.end()) {
            classes_[found->policed].insert(group.first);
            db_.report.took("traps");
            return;
        }
        bool const isIpv6 = std::ranges::find(ipv6Traps, trap) != ipv6Traps.end();
        db_.report.lost(place, fmt::format("{}: {}", trap,
                                           isIpv6 ? "classes are those of IPv4"
                                                  : "the chip has no class for this traffic"));
    }

    void classIs(CoppClass policed, std::set<Belmo::String> const& names) {
        auto const first = groups_.find(*names.begin());
        U64 perSecond = 0;
        auto const unit = first->second.rate.unit();
        for (auto const& name : names) {
            auto const& group = groups_.find(name)->second;
            if (group.rate.unit() != unit) {
                db_.report.lost(group.place, fmt::format("{} has limits of packets and of bytes at once",
                                                         Sorn::text(policed)));
                return;
            }
            perSecond += group.rate.perSecond();
        }
        auto& limits = db_.file.switchState.cpuLimits;
        limits[policed] = Rate(perSecond, unit);
        try {
            coppEntries({limits.begin(), limits.end()}, db_.profile());
            db_.report.took("CPU limits");
        } catch (Belmo::RangeException const& failure) {
            limits.erase(policed);
            db_.report.lost(first->second.place, fmt::format("{}: {}", Sorn::text(policed), failure.what()));
        }
    }

    ConfigDb& db_;
    std::map<Belmo::String, Group> groups_;
    std::map<CoppClass, std::set<Belmo::String>> classes_;
};

}  // namespace

void importCopp(ConfigDb& db) {
    ClassLimits limits(db);
    db.forEachEntry("COPP_GROUP", {"trap_action", "cir", "red_action", "meter_type", "mode"},
                    [&](ConfigEntry const& group) { limits.groupIs(group); });
    db.forEachEntry("COPP_TRAP", {"trap_ids", "trap_group"},
                    [&](ConfigEntry const& trap) { limits.trapIs(trap); });
    limits.finish();
}

}  // namespace Agent::Import
