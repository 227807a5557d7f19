// What becomes of iptables-save rules and of filter sets, and whether the chip decides as the rules do.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include "Belmo/Exceptions.h"

#include "FailureText.h"
#include "agent/AclImport.h"
#include "agent/Import.h"
#include "agent/ImportText.h"
#include "agent/IptablesImport.h"
#include "chip/AclPacketLookup.h"
#include "nerio/Switch.h"

namespace {

using namespace Agent;
using testing::ElementsAre;
using testing::IsEmpty;

Imported importOf(Belmo::String const& text, char const* profile = "default") {
    auto imported = importIptables(text, NerioSwitch::profilePreset(profile));
    EXPECT_NO_THROW(parseState(stateToJson(imported.state).dump(), "imported"));
    return imported;
}

/** Rules of the chain FORWARD, from line 3 on, of which the policy is to accept. */
Imported forwardOf(Belmo::String const& rules, char const* profile = "default") {
    return importOf("*filter\n:FORWARD ACCEPT [0:0]\n" + rules + "COMMIT\n", profile);
}

Imported natOf(Belmo::String const& rules) {
    return importOf("*nat\n:PREROUTING ACCEPT [0:0]\n" + rules + "COMMIT\n");
}

std::vector<Belmo::String> lossesOf(Imported const& imported) {
    std::vector<Belmo::String> lines;
    for (auto const& [place, reason] : imported.report.losses())
        lines.push_back(fmt::format("{}: {}", place, reason));
    return lines;
}

/** The keys and rules of a table's entries, a text each; the chain's policy, which comes last, left out. */
std::vector<Belmo::String> entriesOf(Imported const& imported, Belmo::String const& table) {
    std::vector<Belmo::String> entries;
    for (auto const& state : imported.state.tables) {
        if (state.spec.name != table) continue;
        for (auto const& entry : state.entries)
            entries.push_back(entry["key"].dump() + " " + entry["result"]["rules"][0].dump());
    }
    return entries;
}

TEST(IptablesImportTest, ARuleIsAnEntryAndThePolicyTheLast) {
    auto const imported = importOf(
        "# a comment\n*filter\n:INPUT ACCEPT [0:0]\n:FORWARD DROP [3:120]\n:OUTPUT ACCEPT [0:0]\n"
        "[7:99] -A FORWARD -s 10.1.0.0/16 -d 10.2.0.0/255.255.0.0 -p tcp -m tcp --dport 80 -m comment "
        "--comment \"the \\\"web\\\" -j\" -j ACCEPT\n"
        "-A FORWARD -d 10.2.0.1 -j RETURN\n\nCOMMIT\n# done\r\n");
    EXPECT_THAT(lossesOf(imported), IsEmpty());
    EXPECT_THAT(
        entriesOf(imported, "acl pairs 1"),
        ElementsAre(R"({"port":80,"firstPrefix":"10.1.0.0/16","secondPrefix":"10.2.0.0/16","aclId":1,)"
                    R"("combination":13,"protocol":1} {"priority":1,"ruleFlag":true,"counter":1})"));
    EXPECT_THAT(
        entriesOf(imported, "acl destinations 1"),
        ElementsAre(R"({"secondPrefix":"10.2.0.1/32","aclId":1,"combination":3} {"priority":2,"counter":2})",
                    R"({"aclId":1,"combination":3} {"priority":2,"counter":3})"))
        << "to return is the policy, and no order is needed among rules that decide alike";
    EXPECT_EQ(imported.report.taken("ACL rules"), 3u);
    EXPECT_THAT(imported.report.names(), ElementsAre(ImportName{"ACL", "FORWARD", 1}));
}

TEST(IptablesImportTest, ChainsThatPacketsComeIntoAreAclsOfTheirOwn) {
    auto const imported = importOf(
        "*filter\n:INPUT DROP [0:0]\n:FORWARD ACCEPT [0:0]\n:OUTPUT ACCEPT [0:0]\n:mine - [0:0]\n:empty - "
        "[0:0]\n"
        "-A FORWARD -s 10.0.0.1/32 -j mine\n-A OUTPUT -d 10.0.0.1/32 -j DROP\n-A mine -j DROP\n-A mine -j "
        "LOG\n"
        "COMMIT\n*mangle\n:FORWARD ACCEPT [0:0]\n-A FORWARD -j TOS --set-tos 1\nCOMMIT\n*raw\nCOMMIT\n");
    EXPECT_THAT(imported.report.names(),
                ElementsAre(ImportName{"ACL", "INPUT", 1}, ImportName{"ACL", "OUTPUT", 2}));
    EXPECT_THAT(lossesOf(imported),
                ElementsAre("line 7: -j mine: a rule permits or denies, and leads to no chain",
                            "line 12: table mangle with its 1 rules: not a matter of these tables",
                            "line 5: chain mine with its 2 rules: a rule leads to no chain"));
}

TEST(IptablesImportTest, PortsOfAListAreEntriesEachAndRangesAreShared) {
    auto const imported = forwardOf(
        "-A FORWARD -d 10.0.0.1/32 -p udp -m multiport --dports 53,0,1024:2047,:99 -j DROP\n"
        "-A FORWARD -s 10.0.0.1/32 -p udp -m udp --sport 1024:2047 -j DROP\n"
        "-A FORWARD -d 10.0.0.2/32 -p tcp -m tcp --dport 65535 -j DROP\n"
        "-A FORWARD -d 10.0.0.1/32 -p udp -j DROP\n");
    EXPECT_THAT(lossesOf(imported), IsEmpty());
    EXPECT_THAT(
        entriesOf(imported, "acl destinations 0"),
        ElementsAre(
            R"({"port":53,"secondPrefix":"10.0.0.1/32","aclId":1,"combination":1,"protocol":1} )"
            R"({"priority":1,"counter":1})",
            R"({"secondPrefix":"10.0.0.1/32","aclId":1,"combination":1,"protocol":1,"portIsZero":true} )"
            R"({"priority":1,"counter":2})",
            R"({"secondPrefix":"10.0.0.1/32","aclId":1,"combination":0,"protocol":1,"rangeId":0} )"
            R"({"priority":1,"counter":3,"rangeId":0})",
            R"({"secondPrefix":"10.0.0.1/32","aclId":1,"combination":4,"protocol":1,"rangeId":2} )"
            R"({"priority":1,"counter":4,"rangeId":2})",
            R"({"secondPrefix":"10.0.0.2/32","aclId":1,"combination":0,"protocol":2,"rangeId":3} )"
            R"({"priority":1,"counter":6,"rangeId":3})",
            R"({"secondPrefix":"10.0.0.1/32","aclId":1,"combination":1,"protocol":1} )"
            R"({"priority":1,"counter":7})",
            R"({"aclId":1,"combination":3} {"priority":2,"ruleFlag":true,"counter":8})"))
        << "a combination that looks at a port takes any, and port 65535 is any to a key";
    EXPECT_THAT(
        entriesOf(imported, "acl sources 0"),
        ElementsAre(R"({"firstPrefix":"10.0.0.1/32","aclId":1,"combination":10,"protocol":1,"rangeId":0} )"
                    R"({"priority":1,"counter":5,"rangeId":0})"));
    EXPECT_EQ(imported.report.taken("ACL rules"), 5u);
    EXPECT_EQ(imported.report.taken("ACL entries"), 8u);
}

TEST(IptablesImportTest, WhatNoEntrySaysIsListedByItsLine) {
    auto const imported = forwardOf(
        "-A FORWARD ! -s 10.0.0.0/8 -j DROP\n"
        "-A FORWARD -i eth0 -j DROP\n"
        "-A FORWARD -o eth0 -m conntrack --ctstate NEW,ESTABLISHED -j ACCEPT\n"
        "-A FORWARD -p icmp -m icmp --icmp-type 8 -j DROP\n"
        "-A FORWARD -p tcp -m tcp --tcp-flags FIN,SYN SYN -j DROP\n"
        "-A FORWARD -f -j DROP\n"
        "-A FORWARD -p odd -j DROP\n"
        "-A FORWARD -s 10.0.0.1/32 -j LOG --log-prefix \"x \"\n"
        "-A FORWARD -s 10.0.0.1/32\n"
        "-A FORWARD -s 10.0.0.1/32 -g mine\n"
        "-A FORWARD -p tcp -m tcp --sport 1 --dport 2 -j DROP\n"
        "-A FORWARD -p sctp -m multiport --dports 2 -j DROP\n"
        "-A FORWARD -d 0.0.0.0/8 -j DROP\n"
        "-A FORWARD -d 255.255.255.255/32 -j DROP\n"
        "-A FORWARD -p tcp -c 1 2 -j REJECT --reject-with tcp-reset\n"
        "-A FORWARD -p 6 -j ACCEPT\n"
        "-A FORWARD -s fc00::/7 -j DROP\n");
    EXPECT_THAT(
        lossesOf(imported),
        ElementsAre(
            "line 3: ! -s: keys tell what is, not what is not",
            "line 4: -i eth0: an ACL is chosen by the VLAN of a packet, not by a rule",
            "line 5: -o eth0: an ACL is chosen by the VLAN of a packet, not by a rule; -m conntrack: no key "
            "looks at it; --ctstate: no key looks at it",
            "line 6: --icmp-type: no key looks at it", "line 7: --tcp-flags: no key looks at it",
            "line 8: -f: no key looks at it", "line 9: -p odd: no protocol of a known number",
            "line 10: --log-prefix: no key looks at it; -j LOG: a rule permits or denies",
            "line 11: it decides nothing", "line 12: -g mine: a rule permits or denies",
            "line 17: REJECT is taken as DROP: the chip answers nothing",
            "line 19: -s fc00::/7: rules are those of IPv4",
            "line 13: an entry looks at the source's port or at the destination's, not at both",
            "line 14: protocol 132: ports are those of TCP and UDP",
            "line 15: 0.0.0.0/8: keys of this chip do not tell it from other addresses",
            "line 16: 255.255.255.255/32: keys of this chip do not tell it from other addresses",
            "line 18: never decides: line 17 asks for the same"));
    EXPECT_EQ(imported.report.taken("ACL rules"), 2u);
}

TEST(IptablesImportTest, AnAclHasEightRangesAndAChipFourteenProtocols) {
    Belmo::String rules;
    for (int i = 1; i <= 5; ++i) {
        rules += fmt::format("-A FORWARD -d 10.0.0.{0}/32 -p tcp -m tcp --dport {0}:90 -j DROP\n", i);
        rules += fmt::format("-A FORWARD -d 10.0.0.{0}/32 -p tcp -m tcp --sport :{0} -j DROP\n", i);
    }
    for (int i = 0; i < 14; ++i)
        rules += fmt::format("-A FORWARD -p {} -j DROP\n", 100 + i);
    EXPECT_THAT(lossesOf(forwardOf(rules)),
                ElementsAre("line 11: ports 5-90: no port range of the ACL is left",
                            "line 12: ports 0-5: no port range of the ACL is left",
                            "line 26: protocol 113: keys have numbers for 14 protocols, and all are in use"));
    EXPECT_THAT(lossesOf(forwardOf("-A FORWARD -p tcp -m tcp --dport 1:2 -j DROP\n", "api3")),
                ElementsAre("line 3: ports 1-2: rows have no ranges before hardware API 4"));
    EXPECT_THAT(
        lossesOf(forwardOf("-A FORWARD -d 10.0.0.0/8 -j DROP\n-A FORWARD -s 10.0.0.1/32 -j DROP\n", "api2")),
        ElementsAre("line 3: 10.0.0.0/8: keys of this chip do not tell it from other addresses"));
}

TEST(IptablesImportTest, AKeyHoldsAsManyRangesAsCombinationsLookAtItsFields) {
    Belmo::String rules;
    for (int i = 1; i <= 3; ++i)
        rules += fmt::format("-A FORWARD -s 10.0.0.1/32 -p tcp -m tcp --dport {}:90 -j DROP\n", i);
    EXPECT_THAT(
        lossesOf(forwardOf(rules)),
        ElementsAre("line 5: rules above it have its key in all combinations that look at its fields"));
}

TEST(IptablesImportTest, PrioritiesEndAtSixtyThree) {
    Belmo::String rules;
    for (int i = 0; i < 32; ++i) {
        rules += fmt::format("-A FORWARD -s 10.0.0.{}/32 -j DROP\n", i);
        rules += fmt::format("-A FORWARD -d 10.0.0.{}/32 -j ACCEPT\n", i);
    }
    EXPECT_THAT(lossesOf(forwardOf(rules)), ElementsAre("line 66: rules above it take all 63 priorities",
                                                        "line 2: rules above it take all 63 priorities"));
}

TEST(IptablesImportTest, EntriesHaveCountersAsFarAsRowsHoldThem) {
    Belmo::String text = "*filter\n:FORWARD ACCEPT [0:0]\n";
    for (int i = 0; i < 2048; ++i)
        text += fmt::format("-A FORWARD -d 10.0.{}.{}/32 -j DROP\n", i / 256, i % 256);
    auto const profile = NerioSwitch::profilePreset("api3");
    profile->layouts[NerioSwitch::TableLayoutEnum::tableLayoutAcl].pipelines = 1;
    auto const imported = importIptables(text, profile);
    auto const& entries = imported.state.tables.at(0).entries;
    EXPECT_EQ(entries[2046]["result"]["rules"][0]["counter"], 2047);
    EXPECT_FALSE(entries[2047]["result"]["rules"][0].contains("counter"))
        << "rows of this version lack the twelfth bit";
}

TEST(IptablesImportTest, TranslationsOfOneAddressOrPort) {
    auto const imported = natOf(
        "-A PREROUTING -d 192.0.2.1/32 -j DNAT --to-destination 10.0.0.1\n"
        "-A POSTROUTING -s 10.0.0.1/32 -j SNAT --to-source 192.0.2.1\n"
        "-A PREROUTING -s 198.51.100.0/24 -d 192.0.2.2/32 -p tcp -m tcp --dport 80 -j DNAT --to-destination "
        "10.0.0.2:8080\n"
        "-A PREROUTING -d 192.0.2.3/32 -p udp -m multiport --dports 53,54 -j DNAT --to-destination 10.0.0.3\n"
        "-A POSTROUTING -s 10.0.0.4/32 -d 198.51.100.1/32 -p udp -m udp --sport 5 -j SNAT --to-source "
        "192.0.2.4:500\n"
        "-A PREROUTING -d 192.0.2.3/32 -p tcp -m tcp --dport 53 -j DNAT --to-destination 10.0.0.3:53\n"
        "-A PREROUTING -d 192.0.2.5/32 -p tcp -j DNAT --to-destination 10.0.0.5\n");
    EXPECT_THAT(lossesOf(imported), IsEmpty());
    EXPECT_EQ(imported.report.taken("translations"), 6u);
    auto const translation = [](char const* inside, U16 insidePort, char const* outside, U16 outsidePort,
                                U8 proto) {
        return NatTranslation()
            .insideIs(*addressFromText(inside))
            .insidePortIs(insidePort)
            .outsideIs(*addressFromText(outside))
            .outsidePortIs(outsidePort)
            .protoIs(proto);
    };
    EXPECT_THAT(
        imported.state.translations,
        ElementsAre(
            translation("10.0.0.1", 0, "192.0.2.1", 0, 0),
            translation("10.0.0.2", 8080, "192.0.2.2", 80, 1).filterPfxIs(*prefixFromText("198.51.100.0/24")),
            translation("10.0.0.3", 53, "192.0.2.3", 53, 3), translation("10.0.0.3", 54, "192.0.2.3", 54, 2),
            translation("10.0.0.4", 5, "192.0.2.4", 500, 2).filterPfxIs(*prefixFromText("198.51.100.1")),
            translation("10.0.0.5", 0, "192.0.2.5", 0, 1)));
}

TEST(IptablesImportTest, OtherTranslationsAreListed) {
    auto const imported = natOf(
        "-A POSTROUTING -s 10.0.0.0/8 -j SNAT --to-source 192.0.2.1\n"
        "-A POSTROUTING -j SNAT --to-source 192.0.2.1\n"
        "-A POSTROUTING -s 10.0.0.1/32 -j MASQUERADE\n"
        "-A OUTPUT -d 192.0.2.1/32 -j DNAT --to-destination 10.0.0.1\n"
        "-A PREROUTING -d 192.0.2.1/32 -i eth0 -j DNAT --to-destination 10.0.0.1\n"
        "-A PREROUTING -d 192.0.2.1/32 -j DNAT --to-destination 10.0.0.1-10.0.0.9\n"
        "-A PREROUTING -d 192.0.2.1/32 -p tcp -m tcp --sport 1 -j DNAT --to-destination 10.0.0.1\n"
        "-A PREROUTING -d 192.0.2.1/32 -p tcp -m tcp --dport 1:2 -j DNAT --to-destination 10.0.0.1\n"
        "-A PREROUTING -d 192.0.2.1/32 -p tcp -j DNAT --to-destination 10.0.0.1:5\n"
        "-A PREROUTING -d 192.0.2.1/32 -p tcp -m multiport --dports 1,2 -j DNAT --to-destination 10.0.0.1:5\n"
        "-A PREROUTING -d 192.0.2.1/32 -p icmp -j DNAT --to-destination 10.0.0.1\n"
        "-A PREROUTING -d 192.0.2.1/32 -m multiport --dports 1 -j DNAT --to-destination 10.0.0.1\n"
        "-A PREROUTING -d 192.0.2.1/32\n"
        "-A PREROUTING -d 192.0.2.9/32 -j DNAT --to-destination 10.0.0.1\n"
        "-A PREROUTING -d 192.0.2.9/32 -j DNAT --to-destination 10.0.0.2\n");
    EXPECT_THAT(
        lossesOf(imported),
        ElementsAre(
            "line 3: SNAT of 10.0.0.0/8: a static translation is one of a single address",
            "line 4: SNAT of any address: a static translation is one of a single address",
            "line 5: MASQUERADE of POSTROUTING: static translations are DNAT of PREROUTING and SNAT of "
            "POSTROUTING",
            "line 6: DNAT of OUTPUT: static translations are DNAT of PREROUTING and SNAT of POSTROUTING",
            "line 7: -i eth0: an ACL is chosen by the VLAN of a packet, not by a rule",
            "line 8: 10.0.0.1-10.0.0.9: a static translation has one address and at most one port",
            "line 9: a translation does not look at the peer's port",
            "line 10: ports 1-2: a translation is one of a single port",
            "line 11: a port for all ports: a translation is one to one",
            "line 12: one port for 2: a translation is one to one",
            "line 13: protocol 1: translations are those of TCP, UDP or all",
            "line 14: ports without a protocol",
            "line 15: no target of PREROUTING: static translations are DNAT of PREROUTING and SNAT of "
            "POSTROUTING",
            "line 17: line 16 matches the same packets"));
    EXPECT_EQ(imported.state.translations.size(), 1u);
}

TEST(IptablesImportTest, WhatMakesNoSenseIsRefusedByItsLine) {
    Belmo::String const head = "*filter\n:FORWARD ACCEPT [0:0]\n";
    for (auto const& [text, refusal] :
         {std::pair<Belmo::String, char const*>{"-A FORWARD -j DROP\n",
                                                "line 1: no line of iptables-save: it stands in no table"},
          {"# Generated by ip6tables-save v1\n" + head,
           "line 1: rules of IPv6: those of the chip are of IPv4"},
          {head + "hello\n", "line 3: no line of iptables-save"},
          {head + ":FORWARD\n", "line 3: no chain \":NAME POLICY\""},
          {head + ":FORWARD QUEUE\n", "line 3: QUEUE: no policy"},
          {head + "-I FORWARD -j DROP\n", "line 3: no rule \"-A CHAIN ...\""},
          {head + "-A OTHER -j DROP\n", "line 3: there is no chain OTHER"},
          {head + "-A FORWARD -s 10.0.0 -j DROP\n", "line 3: -s 10.0.0: no IPv4 prefix"},
          {head + "-A FORWARD -s 10.0.0.0/255.0.255.0 -j DROP\n",
           "line 3: -s 10.0.0.0/255.0.255.0: no IPv4 prefix"},
          {head + "-A FORWARD -p tcp --dport 65536 -j DROP\n", "line 3: --dport 65536: no ports"},
          {head + "-A FORWARD -p tcp --dport 9:1 -j DROP\n", "line 3: --dport 9:1: no ports"},
          {head + "-A FORWARD -j\n", "line 3: -j without what follows it"},
          {head + "-A FORWARD !\n", "line 3: ! without what follows it"},
          {head + "-A FORWARD word\n", "line 3: word: no option"},
          {head + "-A FORWARD --comment \"open\n", "line 3: a quote without its end"}}) {
        EXPECT_EQ(failureOf<Belmo::RangeException>([&text = text] { importOf(text); }), refusal) << text;
    }
}

TEST(FilterImportTest, RulesStayInOrderAndFlagsAreListed) {
    auto const imported = importFilters(
        "@10.0.0.0/8 10.1.0.0/16 0 : 65535 80 : 80 0x06/0xFF 0x0200/0x1200\n"
        "@10.0.0.0/8 10.1.0.0/16 0 : 65535 80 : 80 0x06/0xFF 0x0000/0x0000\n"
        "@10.2.0.0/16 10.1.0.0/16 0 : 65535 0 : 65535 0x06/0xFF\n"
        "@0.0.0.0/0 10.1.0.0/16 0 : 65535 53 : 53 0x00/0x00\n"
        "@0.0.0.0/0 11.1.0.0/16 0 : 65535 0 : 65535 0x00/0x00\n",
        NerioSwitch::profilePreset("default"));
    EXPECT_THAT(lossesOf(imported),
                ElementsAre("rule 2: never decides: rule 1 asks for the same",
                            "rules: TCP flags of 1 rules: no key looks at them, and they are taken without"));
    EXPECT_EQ(imported.report.taken("ACL rules"), 4u);
    EXPECT_THAT(entriesOf(imported, "acl pairs 0")[1],
                testing::EndsWith(R"({"priority":2,"ruleFlag":true,"counter":2})"));
    EXPECT_THAT(
        entriesOf(imported, "acl destinations 0"),
        ElementsAre(
            R"({"port":53,"secondPrefix":"10.1.0.0/16","aclId":1,"combination":1,"protocol":1} )"
            R"({"priority":3,"ruleFlag":true,"counter":3})",
            R"({"port":53,"secondPrefix":"10.1.0.0/16","aclId":1,"combination":1,"protocol":2} )"
            R"({"priority":1,"ruleFlag":true,"counter":4})",
            R"({"secondPrefix":"11.1.0.0/16","aclId":1,"combination":3} {"priority":1,"ruleFlag":true,"counter":5})"))
        << "ports without a protocol are those of TCP and UDP";
    EXPECT_EQ(failureOf<Belmo::RangeException>([] {
                  importFilters("@x\n", NerioSwitch::profilePreset("default"));
              }).substr(0, 6),
              "line 1");
}

TEST(ImportTextTest, FormsAreGuessedFromTheirBeginning) {
    EXPECT_EQ(importFormOf(" \n{"), ImportForm::configDb);
    EXPECT_EQ(importFormOf("# Generated"), ImportForm::iptables);
    EXPECT_EQ(importFormOf("*filter"), ImportForm::iptables);
    EXPECT_EQ(importFormOf("@1.2.3.4/32"), ImportForm::filters);
    EXPECT_EQ(importFormOf("hello"), std::nullopt);
    EXPECT_EQ(importFormOf("\n"), std::nullopt);
}

TEST(ImportTextTest, NamesWithNumbersAreInTheOrderOfTheNumbers) {
    std::vector<Belmo::String> const sorted{"", "1", "a", "a1", "a1b2", "a01b3", "a2", "a10", "b"};
    for (std::size_t i = 0; i < sorted.size(); ++i) {
        for (std::size_t j = 0; j < sorted.size(); ++j)
            EXPECT_EQ(naturalLess(sorted[i], sorted[j]), i < j) << sorted[i] << " and " << sorted[j];
    }
    EXPECT_NE(naturalLess("a01", "a1"), naturalLess("a1", "a01")) << "names that differ are in some order";
}

/** A rule as a packet meets it, and the line that says it. */
struct RandomRule {
    FilterRule match;
    bool permit = false;
    Belmo::String line;
};

bool fits(PortRange const& range, U16 port) {
    return range.first <= port && port <= range.last;
}

bool fits(Lanvo::Prefix const& prefix, U32 address) {
    return ((prefix.address().hostOrder() ^ address) & Lanvo::Prefix::mask(prefix.len())) == 0;
}

bool fits(FilterRule const& rule, Chip::Ipv4Headers const& packet) {
    auto const& ports = packet.transport;
    return fits(rule.source, packet.source) && fits(rule.destination, packet.destination) &&
           (!rule.protocol || *rule.protocol == packet.protocol) &&
           (rule.sourcePorts.any() || (ports && fits(rule.sourcePorts, ports->sourcePort))) &&
           (rule.destinationPorts.any() || (ports && fits(rule.destinationPorts, ports->destinationPort)));
}

/** Small worlds, in which rules overlap. */
class Dice {
public:
    explicit Dice(U32 seed) : random_(seed) {}

    U32 below(U32 end) { return static_cast<U32>(random_() % end); }
    U32 address() { return 0x0A000000 | below(4) << 16 | below(3); }
    U16 port() {
        constexpr std::array<U16, 6> ports{0, 1, 80, 1024, 2000, 65535};
        return ports[below(ports.size())];
    }
    U8 protocol() { return std::array<U8, 3>{6, 17, 1}[below(3)]; }
    Lanvo::Prefix prefix() {
        U8 const length = std::array<U8, 5>{0, 16, 24, 31, 32}[below(5)];
        return {Lanvo::IpAddr::fromHostOrder(address() & Lanvo::Prefix::mask(length)), length};
    }
    PortRange ports() {
        U16 const a = port();
        U16 const b = below(2) == 0 ? a : port();
        return {std::min(a, b), std::max(a, b)};
    }
    RandomRule rule() {
        RandomRule rule;
        rule.match.source = prefix();
        rule.match.destination = prefix();
        rule.permit = below(2) == 0;
        rule.line =
            fmt::format("-A FORWARD -s {} -d {}", rule.match.source.text(), rule.match.destination.text());
        if (below(4) != 0) {
            rule.match.protocol = protocol();
            rule.line += fmt::format(" -p {}", *rule.match.protocol);
        }
        if (rule.match.protocol && *rule.match.protocol != 1 && below(3) != 0) {
            bool const ofSource = below(2) == 0;
            auto& range = ofSource ? rule.match.sourcePorts : rule.match.destinationPorts;
            range = ports();
            rule.line += fmt::format(" --{}port {}:{}", ofSource ? "s" : "d", range.first, range.last);
        }
        rule.line += rule.permit ? " -j ACCEPT\n" : " -j DROP\n";
        return rule;
    }
    Chip::Ipv4Headers packet() {
        Chip::Ipv4Headers packet{.source = address(), .destination = address(), .protocol = protocol()};
        if (packet.protocol != 1) packet.transport = {port(), port(), 0};
        return packet;
    }

private:
    std::mt19937 random_;
};

TEST(IptablesImportTest, TheChipDecidesAsTheFirstRuleThatAPacketFits) {
    std::size_t taken = 0;
    for (auto const* profile : {"default", "api3", "api5"}) {
        Dice dice(7);
        std::vector<RandomRule> rules;
        Belmo::String text = "*filter\n:FORWARD DROP [0:0]\n";
        for (int i = 0; i < 60; ++i) {
            rules.push_back(dice.rule());
            text += rules.back().line;
        }
        auto const imported = importOf(text, profile);
        std::set<Belmo::String> lost;
        for (auto const& loss : imported.report.losses())
            lost.insert(loss.place);
        taken += imported.report.taken("ACL rules");

        Nerio::Switch target(imported.state.profile);
        for (auto const& table : imported.state.tables)
            target.tableIs(table.spec);
        target.start(NerioSwitchApi::StartMode::cold);
        for (auto const& table : imported.state.tables) {
            applyEntries(imported.state, table, *target.table(table.spec.name));
            EXPECT_THAT(target.verify(*target.table(table.spec.name)->table()).differences, IsEmpty());
        }
        Chip::AclPacketLookup const lookup(target.chip(), *imported.state.profile);
        for (int i = 0; i < 60; ++i) {
            auto const packet = dice.packet();
            bool permitted = false;
            for (std::size_t number = 0; number < rules.size(); ++number) {
                if (lost.contains(fmt::format("line {}", number + 3)) || !fits(rules[number].match, packet))
                    continue;
                permitted = rules[number].permit;
                break;
            }
            auto const hits = lookup.rulesOf(packet, {.aclId = U8{1}}, 1);
            auto const deciding = decidingRules(hits);
            ASSERT_EQ(deciding.size(), 1u);
            EXPECT_EQ(deciding[0].rule.flag, permitted) << profile << ": " << packet.source << " "
                                                        << packet.destination << " " << int{packet.protocol};
        }
    }
    EXPECT_GT(taken, 100u) << "most rules found an entry";
}

}  // namespace
