#include <algorithm>
#include <fmt/format.h>
#include <set>

#include "NerioSwitchTable/NerioTableVlanMembership.h"
#include "agent/AclImport.h"
#include "agent/ConfigDb.h"
#include "agent/ImportText.h"

/* ACL tables and their rules of a configuration database. */
namespace Agent::Import {

namespace {

/** Attributes of a rule that are matches, of which the rest is what no key looks at. */
constexpr std::array<std::string_view, 10> understood{
    "PRIORITY",          "PACKET_ACTION",     "SRC_IP", "DST_IP", "IP_PROTOCOL", "L4_SRC_PORT", "L4_DST_PORT",
    "L4_SRC_PORT_RANGE", "L4_DST_PORT_RANGE", "IP_TYPE"};
constexpr char const* etherType = "ETHER_TYPE";

/** A rule with the order that its priority gives it, the highest first. */
struct OrderedRule {
    U32 priority;
    AclImportRule rule;
};

std::optional<Lanvo::Prefix> prefixOf(ConfigEntry const& rule, char const* attribute) {
    return rule.value(attribute, "an IPv4 prefix", prefixFromText);
}

std::optional<PortRange> portsOf(ConfigEntry const& rule, char const* one, char const* range) {
    auto const port = rule.value(one, "a port", [](std::string_view text) -> std::optional<PortRange> {
        auto const number = numberFromText(text, 0xFFFF);
        return number ? std::optional(PortRange{static_cast<U16>(*number), static_cast<U16>(*number)})
                      : std::nullopt;
    });
    if (port) return port;
    return rule.value(range, "a range of ports",
                      [](std::string_view text) { return portRangeFromText(text, '-'); });
}

FilterRule matchOf(ConfigEntry const& rule) {
    FilterRule match;
    match.source = prefixOf(rule, "SRC_IP").value_or(Lanvo::Prefix());
    match.destination = prefixOf(rule, "DST_IP").value_or(Lanvo::Prefix());
    match.sourcePorts = portsOf(rule, "L4_SRC_PORT", "L4_SRC_PORT_RANGE").value_or(PortRange());
    match.destinationPorts = portsOf(rule, "L4_DST_PORT", "L4_DST_PORT_RANGE").value_or(PortRange());
    if (auto const protocol = rule.number("IP_PROTOCOL", 0, 255)) match.protocol = static_cast<U8>(*protocol);
    return match;
}

/** Why no entry says what the rule says; empty if one may. */
Belmo::String misfitOf(ConfigEntry const& rule) {
    for (auto const& [attribute, value] : rule.values().items()) {
        if (attribute.ends_with("IPV6") || attribute == "ICMPV6_TYPE" || attribute == "ICMPV6_CODE" ||
            attribute == "NEXT_HEADER")
            return fmt::format("{}: rules are those of IPv4", attribute);
        if (std::ranges::find(understood, attribute) == understood.end() && attribute != etherType)
            return fmt::format("{}: no key looks at it, and no rule does it", attribute);
    }
    for (auto const* attribute : {"SRC_IP", "DST_IP"}) {
        if (auto const text = rule.text(attribute); text && text->find(':') != text->npos)
            return fmt::format("{} {}: rules are those of IPv4", attribute, *text);
    }
    if (auto const type = rule.text(etherType);
        type && *type != "2048" && *type != "0x0800" && *type != "0x800")
        return fmt::format("{} {}: rules are those of IPv4", etherType, *type);
    auto const type = rule.text("IP_TYPE").value_or("ANY");
    if (type != "ANY" && type != "IP" && type != "IPV4" && type != "IPv4" && type != "IPV4ANY" &&
        type != "IPv4ANY")
        return fmt::format("IP_TYPE {}: rules are those of IPv4", type);
    return {};
}

/** Whether a rule permits; nothing for another action, which goes to the report. */
std::optional<bool> decisionOf(ConfigDb& db, ConfigEntry const& rule) {
    auto const action = rule.text("PACKET_ACTION");
    if (action == "FORWARD" || action == "ACCEPT") return true;
    if (action == "DROP" || action == "DENY") return false;
    db.report.lost(rule.at(), action ? fmt::format("PACKET_ACTION {}: rules permit or deny", *action)
                                     : Belmo::String("PACKET_ACTION is missing: rules permit or deny"));
    return std::nullopt;
}

using RulesByTable = std::map<Belmo::String, std::vector<OrderedRule>>;

void ruleIs(ConfigDb& db, ConfigEntry const& rule, RulesByTable& rules) {
    auto const names = rule.nameParts(2);
    if (auto const misfit = misfitOf(rule); !misfit.empty()) {
        db.report.lost(rule.at(), misfit);
        return;
    }
    auto const permits = decisionOf(db, rule);
    auto match = matchOf(rule);
    auto const priority = rule.number("PRIORITY", 0, ~U32{0}).value_or(0);
    if (permits) rules[names[0]].push_back({priority, {{match}, *permits, rule.at()}});
}

std::vector<AclImportRule> inOrder(std::vector<OrderedRule> rules) {
    std::ranges::stable_sort(rules, std::greater(), &OrderedRule::priority);
    std::vector<AclImportRule> ordered;
    ordered.reserve(rules.size());
    for (auto& rule : rules)
        ordered.push_back(std::move(rule.rule));
    return ordered;
}

/** Whether its rules may be those of an ACL; if not, that goes to the report with their number. */
bool isAcl(ConfigDb& db, ConfigEntry const& table, std::size_t rules) {
    auto const stage = table.text("stage").value_or("ingress");
    auto const type = table.text("type").value_or("L3");
    Belmo::String reason;
    if (stage == "egress" || stage == "EGRESS") {
        reason = "ACLs are asked where packets come in";
    } else if (type == "L3V6" || type == "MIRRORV6") {
        reason = fmt::format("type {}: rules are those of IPv4", type);
    } else if (type == "CTRLPLANE") {
        reason = "what the CPU's services take is its own matter";
    } else {
        return true;
    }
    db.report.lost(table.at(), rules == 0 ? reason : fmt::format("with {} rules of it: {}", rules, reason));
    return false;
}

/**
 * Where packets come in, an ACL is asked for by their VLAN. One that is bound to ports is that of the VLANs
 * that it is bound to by name, and of those that have no other ports. Packets of these ports that come in
 * otherwise meet no ACL, which goes to the report.
 */
class AclBinding {
public:
    AclBinding(ConfigDb& db, ConfigEntry const& table) : db_(db), at_(table.at("ports")) {
        for (auto const& name : table.list("ports")) {
            if (auto const vlan = db.vlans.find(name); vlan != db.vlans.end()) {
                named_.insert(vlan->second);
            } else if (auto const ports = db.portsNamed(name, at_)) {
                ports_ = Ports(ports_.mask() | ports->mask());
            }
        }
    }

    void boundTo(U8 acl) {
        if (named_.empty() && ports_.empty()) return;
        if (NerioSwitchTable::vlanAclPipes(db_.profile()).pipes.empty()) {
            db_.report.lost(at_, "the rows of this chip's VLANs have no ACL");
            return;
        }
        Ports outside = ports_;
        for (auto& [id, vlan] : db_.file.switchState.vlans) {
            vlanMayHave(id, vlan, acl);
            outside = Ports(outside.mask() & ~vlan.ports().mask());
        }
        if (!outside.empty()) {
            db_.report.lost(at_,
                            fmt::format("ports {}: a packet's ACL is that of its VLAN, and they are in none",
                                        outside.text()));
        }
    }

private:
    void vlanMayHave(Bridging::VlanId id, Vlan& vlan, U8 acl) {
        bool const isNamed = named_.contains(id);
        bool const hasSome = (vlan.ports().mask() & ports_.mask()) != 0;
        bool const hasOthers = (vlan.ports().mask() & ~ports_.mask()) != 0;
        if (!isNamed && !hasSome) return;
        if (!isNamed && hasOthers) {
            db_.report.lost(
                at_, fmt::format("VLAN {} has other ports as well, and a packet's ACL is that of its VLAN",
                                 id.value()));
            return;
        }
        if (vlan.acl() != NerioSwitch::HwAclId()) {
            db_.report.lost(at_, fmt::format("VLAN {} has ACL {} already", id.value(), vlan.acl().value()));
            return;
        }
        vlan.aclIs(acl);
        db_.report.took("ACLs of VLANs");
    }

    ConfigDb& db_;
    Belmo::String at_;
    std::set<Bridging::VlanId> named_;
    Ports ports_;
};

}  // namespace

void importAcls(ConfigDb& db) {
    RulesByTable rules;
    db.forEachEntry("ACL_RULE", [&](ConfigEntry const& rule) { ruleIs(db, rule, rules); });
    AclImport acls(db.profile(), db.report);
    db.forEachEntry("ACL_TABLE", {"type", "stage", "ports"}, [&](ConfigEntry const& table) {
        auto const found = rules.extract(table.name());
        auto const ordered = found ? inOrder(std::move(found.mapped())) : std::vector<AclImportRule>();
        if (!isAcl(db, table, ordered.size())) return;
        if (auto const number = acls.aclIs(table.name(), table.at(), ordered))
            AclBinding(db, table).boundTo(*number);
    });
    for (auto const& [name, left] : rules) {
        for (auto const& rule : left)
            db.report.lost(rule.rule.place, fmt::format("there is no ACL table {}", name));
    }
    for (auto& table : acls.tables())
        db.file.tables.push_back(std::move(table));
}

}  // namespace Agent::Import
