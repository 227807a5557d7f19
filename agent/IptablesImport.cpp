#include "agent/IptablesImport.h"

#include <algorithm>
#include <fmt/format.h>

#include "Belmo/Exceptions.h"

#include "agent/AclImport.h"
#include "agent/ImportText.h"
#include "agent/IptablesRule.h"
#include "agent/NatImport.h"

namespace Agent {

namespace {

constexpr U8 tcp = 6;
constexpr U8 udp = 17;

Belmo::String lineText(std::size_t number) {
    return fmt::format("line {}", number);
}

/** A chain of the table filter: packets come into those that have a policy. */
struct Chain {
    Belmo::String name;
    Belmo::String place;
    bool hasPolicy = false;
    bool permits = true;
    std::size_t ruleCount = 0;
    std::vector<AclImportRule> rules;
};

/** An address and perhaps a port, "10.0.0.1:8080". */
struct Endpoint {
    Lanvo::IpAddr address;
    U16 port = 0;
};

std::optional<Endpoint> endpointFromText(std::string_view text) {
    auto const colon = text.find(':');
    auto const address = addressFromText(text.substr(0, colon));
    if (!address) return std::nullopt;
    if (colon == std::string_view::npos) return Endpoint{*address, 0};
    auto const port = numberFromText(text.substr(colon + 1), 0xFFFF);
    if (!port || *port == 0) return std::nullopt;
    return Endpoint{*address, static_cast<U16>(*port)};
}

/** The rule's own sides of a translation: those of the packets that it changes. */
struct NatSides {
    Lanvo::Prefix changed;
    Lanvo::Prefix peers;
    std::vector<PortRange> const& changedPorts;
    std::vector<PortRange> const& peerPorts;
    bool isOutside;
};

/** Why a rule is no static translation; empty if it is one. */
Belmo::String natMisfitOf(IptablesRule const& rule, NatSides const& sides) {
    if (sides.changed.len() != 32)
        return fmt::format("{} of {}: a static translation is one of a single address", rule.target,
                           sides.changed.len() == 0 ? "any address" : sides.changed.text());
    if (!endpointFromText(rule.newAddress))
        return fmt::format("{}: a static translation has one address and at most one port", rule.newAddress);
    if (!sides.peerPorts.empty()) return "a translation does not look at the peer's port";
    for (auto const& ports : sides.changedPorts) {
        if (!ports.one() || ports.first == 0)
            return fmt::format("ports {}-{}: a translation is one of a single port", ports.first, ports.last);
    }
    if (rule.protocol && *rule.protocol != tcp && *rule.protocol != udp)
        return fmt::format("protocol {}: translations are those of TCP, UDP or all", U32{*rule.protocol});
    bool const toPort = endpointFromText(rule.newAddress)->port != 0;
    if (toPort && sides.changedPorts.empty()) return "a port for all ports: a translation is one to one";
    if (toPort && sides.changedPorts.size() > 1)
        return fmt::format("one port for {}: a translation is one to one", sides.changedPorts.size());
    if (!sides.changedPorts.empty() && !rule.protocol) return "ports without a protocol";
    return {};
}

/** A text of `iptables-save`, line by line. */
class Reader {
public:
    explicit Reader(Imported& imported)
        : report_(imported.report), state_(imported.state), translations_(*state_.profile, report_) {}

    void line(std::string_view text, std::size_t number) {
        place_ = lineText(number);
        while (!text.empty() && (text.back() == '\r' || text.back() == ' '))
            text.remove_suffix(1);
        if (text.starts_with('#') && text.find("ip6tables-save") != std::string_view::npos)
            refuse("rules of IPv6: those of the chip are of IPv4");
        if (text.empty() || text.front() == '#') return;
        if (text.front() == '*') {
            tableIs(Belmo::String(text.substr(1)));
        } else if (table_.empty()) {
            refuse("no line of iptables-save: it stands in no table");
        } else if (text == "COMMIT") {
            tableEnds();
        } else if (text.front() == ':') {
            chainIs(text.substr(1));
        } else if (text.front() == '-' || text.front() == '[') {
            ruleIs(text);
        } else {
            refuse("no line of iptables-save");
        }
    }

    void finish() {
        tableEnds();
        AclImport acls(*state_.profile, report_);
        for (auto& chain : chains_)
            aclIs(acls, chain);
        state_.tables = acls.tables();
        state_.translations = translations_.translations();
    }

private:
    [[noreturn]] void refuse(Belmo::String const& text) const {
        throw Belmo::RangeException(fmt::format("{}: {}", place_, text));
    }

    void tableIs(Belmo::String name) {
        tableEnds();
        table_ = std::move(name);
        tablePlace_ = place_;
        otherRules_ = 0;
    }
    void tableEnds() {
        if (otherRules_ != 0) {
            report_.lost(tablePlace_, fmt::format("table {} with its {} rules: not a matter of these tables",
                                                  table_, otherRules_));
        }
        otherRules_ = 0;
        table_.clear();
    }

    void chainIs(std::string_view text) {
        auto const words = splitText(text, ' ');
        if (words.size() < 2) refuse("no chain \":NAME POLICY\"");
        if (table_ != "filter") return;
        bool const hasPolicy = words[1] != "-";
        if (hasPolicy && words[1] != "ACCEPT" && words[1] != "DROP")
            refuse(fmt::format("{}: no policy", words[1]));
        chains_.push_back({words[0], place_, hasPolicy, words[1] == "ACCEPT", 0, {}});
    }

    IptablesRule read(std::string_view text) const {
        try {
            return iptablesRule(text);
        } catch (Belmo::RangeException const& failure) {
            refuse(failure.what());
        }
    }

    void ruleIs(std::string_view text) {
        auto const rule = read(text);
        if (table_ == "filter") {
            filterRuleIs(rule);
        } else if (table_ == "nat") {
            natRuleIs(rule);
        } else {
            ++otherRules_;
        }
    }

    void filterRuleIs(IptablesRule const& rule) {
        auto const chain = std::ranges::find(chains_, rule.chain, &Chain::name);
        if (chain == chains_.end()) refuse(fmt::format("there is no chain {}", rule.chain));
        ++chain->ruleCount;
        if (!chain->hasPolicy) return;
        auto misfits = rule.misfits;
        auto const permits = decisionOf(rule, *chain, misfits);
        if (!misfits.empty()) {
            report_.lost(place_, fmt::format("{}", fmt::join(misfits, "; ")));
            return;
        }
        if (rule.target == "REJECT")
            report_.lost(place_, "REJECT is taken as DROP: the chip answers nothing");
        chain->rules.push_back({matchesOf(rule), permits, place_});
    }

    /** Whether a rule permits; what is no decision is a misfit. */
    bool decisionOf(IptablesRule const& rule, Chain const& chain, std::vector<Belmo::String>& misfits) const {
        if (rule.target == "ACCEPT") return true;
        if (rule.target == "DROP" || rule.target == "REJECT") return false;
        if (rule.target == "RETURN") return chain.permits;
        if (rule.target.empty()) {
            if (misfits.empty()) misfits.emplace_back("it decides nothing");
        } else if (std::ranges::find(chains_, rule.target, &Chain::name) != chains_.end()) {
            misfits.push_back(
                fmt::format("-j {}: a rule permits or denies, and leads to no chain", rule.target));
        } else {
            misfits.push_back(fmt::format("-j {}: a rule permits or denies", rule.target));
        }
        return false;
    }

    /** A match for each choice of the rule's ports. */
    static std::vector<FilterRule> matchesOf(IptablesRule const& rule) {
        std::vector<PortRange> const any(1);
        std::vector<FilterRule> matches;
        for (auto const& from : rule.sourcePorts.empty() ? any : rule.sourcePorts) {
            for (auto const& to : rule.destinationPorts.empty() ? any : rule.destinationPorts)
                matches.push_back({rule.source, rule.destination, from, to, rule.protocol});
        }
        return matches;
    }

    void aclIs(AclImport& acls, Chain& chain) {
        if (!chain.hasPolicy) {
            if (chain.ruleCount == 0) return;
            report_.lost(chain.place, fmt::format("chain {} with its {} rules: a rule leads to no chain",
                                                  chain.name, chain.ruleCount));
            return;
        }
        // A chain that permits everything says nothing.
        if (chain.rules.empty() && chain.permits) return;
        chain.rules.push_back({{FilterRule()}, chain.permits, chain.place});
        acls.aclIs(chain.name, chain.place, chain.rules);
    }

    void natRuleIs(IptablesRule const& rule) {
        if (!rule.misfits.empty()) {
            report_.lost(place_, fmt::format("{}", fmt::join(rule.misfits, "; ")));
            return;
        }
        bool const isOutside = rule.chain == "PREROUTING" && rule.target == "DNAT";
        if (!isOutside && (rule.chain != "POSTROUTING" || rule.target != "SNAT")) {
            report_.lost(place_,
                         fmt::format("{} of {}: static translations are DNAT of PREROUTING and SNAT of "
                                     "POSTROUTING",
                                     rule.target.empty() ? "no target" : rule.target, rule.chain));
            return;
        }
        NatSides const sides =
            isOutside
                ? NatSides{rule.destination, rule.source, rule.destinationPorts, rule.sourcePorts, true}
                : NatSides{rule.source, rule.destination, rule.sourcePorts, rule.destinationPorts, false};
        if (auto const misfit = natMisfitOf(rule, sides); !misfit.empty()) {
            report_.lost(place_, misfit);
            return;
        }
        translate(rule, sides);
    }

    void translate(IptablesRule const& rule, NatSides const& sides) {
        auto const to = *endpointFromText(rule.newAddress);
        std::vector<PortRange> const all{{0, 0}};
        for (auto const& ports : sides.changedPorts.empty() ? all : sides.changedPorts) {
            U16 const newPort = to.port != 0 ? to.port : ports.first;
            NatTranslation translation;
            translation.insideIs(sides.isOutside ? to.address : sides.changed.address())
                .insidePortIs(sides.isOutside ? newPort : ports.first)
                .outsideIs(sides.isOutside ? sides.changed.address() : to.address)
                .outsidePortIs(sides.isOutside ? ports.first : newPort);
            if (rule.protocol) {
                translation.protoIs(*rule.protocol == tcp ? NerioSwitch::NatL4Proto::tcp
                                                          : NerioSwitch::NatL4Proto::udp);
            }
            if (sides.peers.len() != 0) translation.filterPfxIs(sides.peers);
            translations_.translationIs(translation, place_);
        }
    }

    ImportReport& report_;
    StateFile& state_;
    NatImport translations_;
    std::vector<Chain> chains_;
    Belmo::String table_;
    Belmo::String tablePlace_;
    std::size_t otherRules_ = 0;
    Belmo::String place_;
};

}  // namespace

Imported importIptables(std::string_view text, Belmo::Ptr<NerioSwitch::ProfileInfo> profile) {
    Imported imported;
    imported.state.profile = std::move(profile);
    Reader reader(imported);
    for (std::size_t number = 1; !text.empty(); ++number) {
        auto const end = std::min(text.find('\n'), text.size());
        reader.line(text.substr(0, end), number);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    reader.finish();
    return imported;
}

}  // namespace Agent
