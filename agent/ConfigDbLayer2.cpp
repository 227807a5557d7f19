#include <algorithm>
#include <fmt/format.h>

#include "Belmo/Exceptions.h"
#include "NerioSwitch/Indexes.h"

#include "agent/ConfigDb.h"
#include "agent/ImportText.h"

/* Ports, port channels, VLANs, mirrors and storm control of a configuration database. */
namespace Agent::Import {

using Bridging::VlanId;
using NerioSwitch::ChipPortId;
using NerioSwitchTable::PortConfigMode;

namespace {

/** Numbers for names: those that names ask for where they are free, and the lowest free ones for the rest. */
class Numbering {
public:
    Numbering(U32 first, U32 last) : first_(first), last_(last) {}

    bool take(U32 number) { return number >= first_ && number <= last_ && taken_.insert(number).second; }
    std::optional<U32> next() {
        for (U32 number = first_; number <= last_; ++number) {
            if (take(number)) return number;
        }
        return std::nullopt;
    }

private:
    U32 first_;
    U32 last_;
    std::set<U32> taken_;
};

void nameIsPort(ConfigDb& db, Belmo::String const& name, U32 number) {
    db.ports.emplace(name, ChipPortId(number));
    db.report.named("port", name, number);
    db.report.took("ports");
}

void portNumbers(ConfigDb& db) {
    auto const count = std::min<U32>(db.profile().numPorts, db.profile().cpuPort);
    if (count == 0) return;
    Numbering numbers(0, count - 1);
    std::vector<std::pair<Belmo::String, Belmo::String>> others;
    db.forEachEntry("PORT", {"index", "admin_status", "mode", "tpid"}, [&](ConfigEntry const& port) {
        auto const index = port.number("index", 0, 0xFFFF);
        if (index && numbers.take(*index)) {
            nameIsPort(db, port.name(), *index);
        } else {
            others.emplace_back(port.name(), port.at());
        }
    });
    for (auto const& [name, place] : others) {
        if (auto const number = numbers.next()) {
            nameIsPort(db, name, *number);
        } else {
            db.report.lost(place, fmt::format("the chip has {} ports", count));
        }
    }
}

void portSettings(ConfigDb& db, ConfigEntry const& port) {
    auto const found = db.ports.find(port.name());
    if (found == db.ports.end()) return;
    PortSettings settings;
    if (port.text("admin_status") == "down") settings.txDisabledIs(true).l2ForwardingDisabledIs(true);
    auto const mode = port.text("mode");
    if (mode == "trunk") {
        settings.modeIs(PortConfigMode::trunk);
    } else if (mode == "routed") {
        db.passOver("PORT", "mode", "a port is routed by its VLAN");
    } else if (mode && *mode != "access") {
        db.report.lost(port.at("mode"), fmt::format("{}: ports have no such mode", *mode));
    }
    if (auto const tpid = port.text("tpid"); tpid && *tpid != "0x8100")
        db.report.lost(port.at("tpid"), fmt::format("{}: tags of 0x8100 alone are known", *tpid));
    if (settings != PortSettings()) db.file.switchState.ports[found->second] = settings;
}

/** The number at the end of a port channel's name. */
std::optional<U32> numberInName(std::string_view name) {
    auto const letters = name.find_last_not_of("0123456789");
    return numberFromText(letters == std::string_view::npos ? name : name.substr(letters + 1), 0xFFFF);
}

void portChannelNumbers(ConfigDb& db) {
    Numbering numbers(PortChannelNumber::first, PortChannelNumber::last);
    std::vector<std::pair<Belmo::String, Belmo::String>> others;
    auto const isNumber = [&](Belmo::String const& name, U32 number) {
        db.portChannelNumbers.emplace(name, PortChannelNumber(number));
        db.portChannels.emplace(name, Ports());
        db.report.named("port channel", name, number);
    };
    db.forEachEntry("PORTCHANNEL", {"members"}, [&](ConfigEntry const& channel) {
        auto const wanted = numberInName(channel.name());
        if (wanted && numbers.take(*wanted)) {
            isNumber(channel.name(), *wanted);
        } else {
            others.emplace_back(channel.name(), channel.at());
        }
    });
    for (auto const& [name, place] : others) {
        if (auto const number = numbers.next()) {
            isNumber(name, *number);
        } else {
            db.report.lost(place, fmt::format("the chip has {} port channels", U32{PortChannelNumber::last}));
        }
    }
}

void memberIs(ConfigDb& db, Belmo::String const& channel, Belmo::String const& port,
              Belmo::String const& place) {
    auto const found = db.portChannels.find(channel);
    if (found == db.portChannels.end()) {
        db.report.lost(place, fmt::format("{}: the chip has no such port channel", channel));
        return;
    }
    auto const number = db.ports.find(port);
    if (number == db.ports.end()) {
        db.report.lost(place, fmt::format("{}: the chip has no such port", port));
        return;
    }
    for (auto const& [name, members] : db.portChannels) {
        if (name == channel || !members.has(number->second)) continue;
        db.report.lost(place, fmt::format("{} is in {} already", port, name));
        return;
    }
    if (!found->second.has(number->second)) db.report.took("port channel members");
    found->second.add(number->second);
}

VlanId vlanIdOf(ConfigEntry const& vlan) {
    auto const told = vlan.number("vlanid", VlanId::first, VlanId::last);
    constexpr std::string_view stem = "Vlan";
    auto const& name = vlan.name();
    auto const named = name.starts_with(stem)
                           ? numberFromText(std::string_view(name).substr(stem.size()), VlanId::last)
                           : std::nullopt;
    if (!told && (!named || *named < VlanId::first))
        throw JsonException(vlan.place(), fmt::format("{}: no VLAN number from 1 to 4094", name));
    if (told && named && *told != *named)
        throw JsonException(vlan.place().member("vlanid"),
                            fmt::format("vlanid: {} is that of {}", *told, name));
    return VlanId(told ? *told : *named);
}

/** Members of VLANs, of which a port is untagged in one alone. */
class VlanMembers {
public:
    explicit VlanMembers(ConfigDb& db) : db_(db) {}

    void memberIs(ConfigEntry const& member) {
        auto const names = member.nameParts(2);
        auto const vlan = db_.vlans.find(names[0]);
        if (vlan == db_.vlans.end()) {
            db_.report.lost(member.at(), fmt::format("there is no VLAN {}", names[0]));
            return;
        }
        auto const mode = member.text("tagging_mode");
        if (mode && *mode != "tagged" && *mode != "untagged") {
            db_.report.lost(member.at("tagging_mode"), fmt::format("{}: members have no such mode", *mode));
            return;
        }
        auto const ports = db_.portsNamed(names[1], member.at());
        if (!ports) return;
        bool const isUntagged = mode == "untagged";
        auto const& here = db_.file.switchState.vlans[vlan->second].untagged();
        if (isUntagged && (untagged_.mask() & ~here.mask() & ports->mask()) != 0) {
            db_.report.lost(member.at(), fmt::format("{} is untagged in another VLAN already", names[1]));
            return;
        }
        add(db_.file.switchState.vlans[vlan->second], *ports, isUntagged);
        db_.report.took("VLAN members");
    }

private:
    void add(Vlan& vlan, Ports ports, bool isUntagged) {
        Ports const all(vlan.ports().mask() | ports.mask());
        vlan.portsIs(all).floodUnicastIs(all).floodMulticastIs(all);
        if (isUntagged) {
            vlan.untaggedIs(Ports(vlan.untagged().mask() | ports.mask()));
            untagged_ = Ports(untagged_.mask() | ports.mask());
            return;
        }
        ports.forEach(
            [&](ChipPortId port) { db_.file.switchState.ports[port].modeIs(PortConfigMode::trunk); });
    }

    ConfigDb& db_;
    Ports untagged_;
};

void mirrorIs(ConfigDb& db, ConfigEntry const& session) {
    auto const type = session.text("type");
    if (type == "ERSPAN" || (!type && session.text("dst_ip"))) {
        db.report.lost(session.at(), "copies leave as they came: the chip wraps them in no tunnel");
        return;
    }
    auto const destination = session.text("dst_port");
    auto const sources = session.list("src_port");
    if (!destination || sources.empty()) {
        db.report.lost(session.at(), "mirrors are those of ports: dst_port and src_port name them");
        return;
    }
    auto const direction = session.text("direction").value_or("BOTH");
    if (direction != "RX") db.report.lost(session.at("direction"), "copies are made of what ports receive");
    if (direction == "TX") return;
    bool const toCpu = *destination == "CPU";
    auto const copies = toCpu ? Ports() : db.portsNamed(*destination, session.at("dst_port"));
    if (!copies) return;
    for (auto const& source : sources) {
        auto const ports = db.portsNamed(source, session.at("src_port"));
        if (!ports) continue;
        ports->forEach([&](ChipPortId port) {
            auto& mirror = db.file.switchState.mirrors[port];
            mirror.portsIs(Ports(mirror.ports().mask() | copies->mask())).cpuIs(mirror.cpu() || toCpu);
        });
        db.report.took("mirrored ports");
    }
}

/** Sets a port's limit, unless it cannot be told beside those that the port has. */
void stormLimitIs(ConfigDb& db, Ports ports, std::optional<Rate> StormLimits::*member, Rate const& rate,
                  Belmo::String const& place) {
    ports.forEach([&](ChipPortId port) {
        auto limits = db.file.switchState.stormLimits[port];
        limits.*member = rate;
        try {
            stormEntries(limits);
            db.file.switchState.stormLimits[port] = limits;
            db.report.took("storm limits");
        } catch (Belmo::RangeException const& failure) {
            db.report.lost(place, failure.what());
        }
        if (db.file.switchState.stormLimits[port] == StormLimits())
            db.file.switchState.stormLimits.erase(port);
    });
}

}  // namespace

void importPorts(ConfigDb& db) {
    portNumbers(db);
    db.forEachEntry("PORT", [&](ConfigEntry const& port) { portSettings(db, port); });
}

void importPortChannels(ConfigDb& db) {
    portChannelNumbers(db);
    db.forEachEntry("PORTCHANNEL_MEMBER", {}, [&](ConfigEntry const& member) {
        auto const names = member.nameParts(2);
        memberIs(db, names[0], names[1], member.at());
    });
    db.forEachEntry("PORTCHANNEL", [&](ConfigEntry const& channel) {
        for (auto const& port : channel.list("members"))
            memberIs(db, channel.name(), port, channel.at("members"));
        auto const number = db.portChannelNumbers.find(channel.name());
        if (number == db.portChannelNumbers.end()) return;
        auto const members = db.portChannels[channel.name()];
        if (members.empty()) {
            db.report.lost(channel.at(), "it has no member that the chip has");
            return;
        }
        db.file.switchState.portChannels[number->second] = members;
        db.report.took("port channels");
    });
}

void importVlans(ConfigDb& db) {
    std::set<VlanId> told;
    db.forEachEntry("VLAN", {"vlanid", "admin_status"}, [&](ConfigEntry const& vlan) {
        auto const id = vlanIdOf(vlan);
        if (!told.insert(id).second)
            throw JsonException(vlan.place(),
                                fmt::format("{}: another VLAN has number {}", vlan.name(), id.value()));
        if (vlan.text("admin_status") == "down") {
            db.report.lost(vlan.at("admin_status"), "a VLAN is there or not; it is taken as one that is up");
        }
        db.vlans.emplace(vlan.name(), id);
        db.file.switchState.vlans[id];
        db.report.took("VLANs");
    });
    VlanMembers members(db);
    db.forEachEntry("VLAN_MEMBER", {"tagging_mode"},
                    [&](ConfigEntry const& member) { members.memberIs(member); });
}

void importMirrors(ConfigDb& db) {
    db.forEachEntry(
        "MIRROR_SESSION",
        {"type", "dst_port", "src_port", "direction", "dst_ip", "src_ip", "gre_type", "dscp", "ttl"},
        [&](ConfigEntry const& session) { mirrorIs(db, session); });
}

void importStormControl(ConfigDb& db) {
    constexpr U64 bitsPerKilobit = 1000;
    db.forEachEntry("PORT_STORM_CONTROL", {"kbps"}, [&](ConfigEntry const& limit) {
        auto const names = limit.nameParts(2);
        auto const kbps = limit.number("kbps", 0, ~U32{0});
        if (!kbps) throw JsonException(limit.place(), fmt::format("\"kbps\" is missing"));
        if (names[1] != "broadcast") {
            db.report.lost(
                limit.at(),
                fmt::format("{}: limits are those of broadcast, all unicast and all multicast", names[1]));
            return;
        }
        auto const ports = db.portsNamed(names[0], limit.at());
        if (!ports) return;
        Rate const rate(*kbps * bitsPerKilobit, Rate::Unit::bits);
        stormLimitIs(db, *ports, &StormLimits::broadcast, rate, limit.at("kbps"));
    });
}

}  // namespace Agent::Import
