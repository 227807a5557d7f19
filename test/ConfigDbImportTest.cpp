// What becomes of the tables of a configuration database.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>

#include "agent/ConfigDbImport.h"

namespace {

using namespace Agent;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

Imported importOf(Belmo::String const& text, char const* profile = "default") {
    return importConfigDb(text, NerioSwitch::profilePreset(profile));
}

/** The state without its profile and, if there are none, its tables. It is one that state files take. */
Json stateOf(Imported const& imported) {
    auto json = stateToJson(imported.state);
    EXPECT_NO_THROW(parseState(json.dump(), "imported"));
    json.erase("profile");
    if (json["tables"].empty()) json.erase("tables");
    return json;
}

Json json(char const* text) {
    return Json::parse(text);
}

std::vector<Belmo::String> lossesOf(Imported const& imported) {
    std::vector<Belmo::String> lines;
    for (auto const& [place, reason] : imported.report.losses())
        lines.push_back(fmt::format("{}: {}", place, reason));
    return lines;
}

/** The place and the text of what is refused. */
Belmo::String refusalOf(Belmo::String const& text) {
    try {
        importOf(text);
    } catch (JsonException const& failure) {
        return fmt::format("{}: {}", failure.place(), failure.what());
    }
    return "nothing is refused";
}

/** Ports of these names without attributes, and what follows. */
Belmo::String withPorts(Belmo::String const& rest, int count = 8) {
    Json ports = Json::object();
    for (int i = 0; i < count; ++i)
        ports[fmt::format("port{}", i)] = Json::object();
    return fmt::format(R"({{"PORT": {}, {}}})", ports.dump(), rest);
}

TEST(ConfigDbImportTest, PortsTakeTheirIndexAndOthersTheLowestFreeNumberInNaturalOrder) {
    auto const imported = importOf(R"({"PORT": {"port10": {}, "port9": {"index": "1"}, "port2": {"index": 9},
        "port11": {"index": "1"}, "port3": {"index": "52"}}})");
    EXPECT_THAT(imported.report.names(),
                ElementsAre(ImportName{"port", "port2", 9}, ImportName{"port", "port9", 1},
                            ImportName{"port", "port3", 0}, ImportName{"port", "port10", 2},
                            ImportName{"port", "port11", 3}));
    EXPECT_EQ(imported.report.taken("ports"), 5u);
    EXPECT_THAT(lossesOf(imported), IsEmpty());
}

TEST(ConfigDbImportTest, PortsBeyondTheChipsAreListed) {
    auto const imported = importOf(withPorts(R"("VLAN": {"Vlan7": {}},
        "VLAN_MEMBER": {"Vlan7|port53": {}})",
                                             54));
    EXPECT_THAT(lossesOf(imported),
                ElementsAre("/PORT/port52: the chip has 52 ports", "/PORT/port53: the chip has 52 ports",
                            "/VLAN_MEMBER/Vlan7|port53: port53: the chip has no such port"));
}

TEST(ConfigDbImportTest, PortSettings) {
    auto const imported = importOf(R"({"PORT": {
        "p0": {"admin_status": "down", "speed": "100"}, "p1": {"admin_status": "up", "tpid": "0x8100"},
        "p2": {"mode": "trunk", "speed": "100"}, "p3": {"mode": "access"}, "p4": {"mode": "routed"},
        "p5": {"mode": "odd", "tpid": "0x9100"}}})");
    EXPECT_EQ(stateOf(imported), json(R"({"ports": {
        "0": {"txDisabled": true, "l2ForwardingDisabled": true}, "2": {"mode": "trunk"}}})"));
    EXPECT_THAT(lossesOf(imported), ElementsAre("/PORT/p5/mode: odd: ports have no such mode",
                                                "/PORT/p5/tpid: 0x9100: tags of 0x8100 alone are known",
                                                "/PORT/*/mode: 1 entry: a port is routed by its VLAN",
                                                "/PORT/*/speed: 2 entries: not a matter of these tables"));
}

TEST(ConfigDbImportTest, PortChannelsTakeTheNumberOfTheirName) {
    auto const imported = importOf(withPorts(R"(
        "PORTCHANNEL": {"Channel0002": {"members": ["port2"]}, "Channel63": {}, "Channel4": {},
                        "Other2": {"min_links": "1"}},
        "PORTCHANNEL_MEMBER": {"Channel0002|port0": {}, "Channel0002|port1": {}, "Channel4|port1": {},
                               "Channel63|port3": {}, "Channel63|port9": {}, "None|port4": {},
                               "Other2|port5": {}})"));
    EXPECT_EQ(stateOf(imported), json(R"({"portChannels": {"1": "3", "2": "0-2", "3": "5"}})"));
    EXPECT_THAT(imported.report.names(), Contains(ImportName{"port channel", "Channel0002", 2}));
    EXPECT_THAT(imported.report.names(), Contains(ImportName{"port channel", "Channel63", 1}));
    EXPECT_THAT(lossesOf(imported),
                ElementsAre("/PORTCHANNEL_MEMBER/Channel4|port1: port1 is in Channel0002 already",
                            "/PORTCHANNEL_MEMBER/Channel63|port9: port9: the chip has no such port",
                            "/PORTCHANNEL_MEMBER/None|port4: None: the chip has no such port channel",
                            "/PORTCHANNEL/Channel4: it has no member that the chip has",
                            "/PORTCHANNEL/*/min_links: 1 entry: not a matter of these tables"));
}

TEST(ConfigDbImportTest, ThereAreSixtyTwoPortChannels) {
    Json channels = Json::object();
    for (int i = 1; i <= 63; ++i)
        channels[fmt::format("c{}", i)] = Json::object();
    auto const imported = importOf(fmt::format(R"({{"PORTCHANNEL": {}}})", channels.dump()));
    EXPECT_THAT(lossesOf(imported), Contains("/PORTCHANNEL/c63: the chip has 62 port channels"));
}

TEST(ConfigDbImportTest, VlansAndTheirMembers) {
    auto const imported = importOf(withPorts(R"(
        "PORTCHANNEL": {"c1": {}}, "PORTCHANNEL_MEMBER": {"c1|port6": {}, "c1|port7": {}},
        "VLAN": {"Vlan20": {"vlanid": "20", "mtu": "9100"}, "blue": {"vlanid": 30}, "Vlan40": {"admin_status": "down"}},
        "VLAN_MEMBER": {"Vlan20|port0": {"tagging_mode": "untagged"}, "Vlan20|c1": {"tagging_mode": "tagged"},
                        "blue|port0": {"tagging_mode": "tagged"}, "blue|port1": {"tagging_mode": "untagged"},
                        "Vlan40|port1": {"tagging_mode": "untagged"}, "Vlan40|port2": {"tagging_mode": "odd"},
                        "Vlan50|port2": {}, "Vlan40|port3": {}})"));
    EXPECT_EQ(stateOf(imported), json(R"({
        "vlans": {"20": {"ports": "0,6-7", "untagged": "0"}, "30": {"ports": "0"},
                  "40": {"ports": "1,3", "untagged": "1"}},
        "ports": {"0,3,6-7": {"mode": "trunk"}}, "portChannels": {"1": "6-7"}})"));
    EXPECT_EQ(imported.report.taken("VLANs"), 3u);
    EXPECT_EQ(imported.report.taken("VLAN members"), 5u);
    EXPECT_THAT(
        lossesOf(imported),
        ElementsAre("/VLAN/Vlan40/admin_status: a VLAN is there or not; it is taken as one that is up",
                    "/VLAN_MEMBER/Vlan40|port2/tagging_mode: odd: members have no such mode",
                    "/VLAN_MEMBER/Vlan50|port2: there is no VLAN Vlan50",
                    "/VLAN_MEMBER/blue|port1: port1 is untagged in another VLAN already",
                    "/VLAN/*/mtu: 1 entry: not a matter of these tables"));
}

TEST(ConfigDbImportTest, MirrorsAreThoseOfWhatPortsReceive) {
    auto const imported =
        importOf(withPorts(R"("PORTCHANNEL": {"c1": {}}, "PORTCHANNEL_MEMBER": {"c1|port6": {}},
        "MIRROR_SESSION": {
            "a": {"type": "SPAN", "direction": "RX", "dst_port": "port5", "src_port": "port0,c1,port9"},
            "b": {"type": "SPAN", "direction": "RX", "dst_port": "CPU", "src_port": ["port0"]},
            "c": {"type": "SPAN", "direction": "BOTH", "dst_port": "port5", "src_port": "port1"},
            "d": {"type": "SPAN", "direction": "TX", "dst_port": "port5", "src_port": "port2"},
            "e": {"type": "ERSPAN", "dst_ip": "10.0.0.1"}, "f": {"dst_ip": "10.0.0.1"},
            "g": {"type": "SPAN", "dst_port": "port5"}})"));
    EXPECT_EQ(stateOf(imported)["mirrors"],
              json(R"({"0": {"ports": "5", "cpu": true}, "1,6": {"ports": "5"}})"));
    EXPECT_THAT(
        lossesOf(imported),
        ElementsAre("/MIRROR_SESSION/a/src_port: port9: the chip has no such port",
                    "/MIRROR_SESSION/c/direction: copies are made of what ports receive",
                    "/MIRROR_SESSION/d/direction: copies are made of what ports receive",
                    "/MIRROR_SESSION/e: copies leave as they came: the chip wraps them in no tunnel",
                    "/MIRROR_SESSION/f: copies leave as they came: the chip wraps them in no tunnel",
                    "/MIRROR_SESSION/g: mirrors are those of ports: dst_port and src_port name them"));
}

TEST(ConfigDbImportTest, StormControlLimitsBroadcast) {
    auto const imported = importOf(withPorts(R"("PORT_STORM_CONTROL": {
        "port0|broadcast": {"kbps": "10000"}, "port1|unknown-unicast": {"kbps": "10"},
        "port2|broadcast": {"kbps": "0"}})"));
    EXPECT_EQ(stateOf(imported), json(R"({"stormLimits": {"0": {"broadcast": "10 Mbps"}}})"));
    EXPECT_THAT(lossesOf(imported),
                ElementsAre("/PORT_STORM_CONTROL/port1|unknown-unicast: unknown-unicast: limits are those of "
                            "broadcast, all unicast and all multicast",
                            "/PORT_STORM_CONTROL/port2|broadcast/kbps: a limit of 0 bps is none that storm "
                            "control has"));
}

TEST(ConfigDbImportTest, TrapsOfAClassShareItsLimiter) {
    auto const imported = importOf(R"({
        "COPP_GROUP": {"default": {"cir": "600", "queue": "0"}, "fast": {"cir": "6000", "meter_type": "packets"},
                       "slow": {"cir": "100"}, "bytes": {"cir": "1000", "meter_type": "bytes"},
                       "off": {"trap_action": "drop"}, "soft": {"cir": "5", "red_action": "forward"},
                       "none": {"cir": "7"}, "empty": {}},
        "COPP_TRAP": {"a": {"trap_ids": "lacp,lldp", "trap_group": "fast"},
                      "b": {"trap_ids": "stp", "trap_group": "slow"},
                      "c": {"trap_ids": ["igmp_query"], "trap_group": "bytes"},
                      "d": {"trap_ids": "arp_req,neigh_discovery", "trap_group": "off"},
                      "e": {"trap_ids": "ospf", "trap_group": "soft"},
                      "f": {"trap_ids": "sample_packet", "trap_group": "slow"},
                      "g": {"trap_ids": "ttl_error", "trap_group": "fast"},
                      "h": {"trap_ids": "l3_mtu_error", "trap_group": "bytes"}}})");
    EXPECT_EQ(stateOf(imported), json(R"({"cpuLimits": {"reservedMac": "6100 pps", "igmp": "8 kbps",
        "l2Packet": "0 pps", "others": "600 pps"}})"));
    EXPECT_THAT(lossesOf(imported),
                ElementsAre("/COPP_GROUP/empty: it has no limit",
                            "/COPP_GROUP/soft/red_action: forward: what is above a limit is dropped",
                            "/COPP_TRAP/d/trap_ids: neigh_discovery: classes are those of IPv4",
                            "/COPP_TRAP/e: there is no limit of a group soft",
                            "/COPP_TRAP/f/trap_ids: sample_packet: the chip has no class for this traffic",
                            "/COPP_GROUP/none: no trap is of this group",
                            "/COPP_GROUP/fast: l3Exception has limits of packets and of bytes at once",
                            "/COPP_GROUP/*/queue: 1 entry: not a matter of these tables"));
}

TEST(ConfigDbImportTest, AClassThatTheChipDoesNotHaveIsListed) {
    auto const imported = importOf(
        R"({"COPP_GROUP": {"g": {"cir": "600"}}, "COPP_TRAP": {"t": {"trap_ids": "ptp", "trap_group": "g"}}})",
        "api3");
    EXPECT_EQ(stateOf(imported), Json::object());
    EXPECT_THAT(
        lossesOf(imported),
        ElementsAre("/COPP_GROUP/g: ptp: ptp is no class of traffic to the CPU that hardware API 3.0 has"));
}

TEST(ConfigDbImportTest, RulesBecomeEntriesInTheOrderOfTheirPriorities) {
    auto const imported = importOf(R"({
        "ACL_TABLE": {"web": {"type": "L3", "stage": "INGRESS", "ports": ["p1"]}},
        "ACL_RULE": {
            "web|all": {"PRIORITY": "1", "PACKET_ACTION": "DROP", "IP_TYPE": "IPv4ANY", "ETHER_TYPE": "2048"},
            "web|http": {"PRIORITY": "30", "PACKET_ACTION": "FORWARD", "DST_IP": "10.0.0.0/8", "IP_PROTOCOL": "6",
                         "L4_DST_PORT": "80"},
            "web|high": {"PRIORITY": "20", "PACKET_ACTION": "ACCEPT", "SRC_IP": "10.1.2.3", "IP_PROTOCOL": 17,
                         "L4_SRC_PORT_RANGE": "1024-65535"},
            "web|out": {"PRIORITY": "40", "PACKET_ACTION": "DENY", "DST_IP": "10.9.0.0/16"}}})");
    auto const state = stateOf(imported);
    ASSERT_EQ(state["tables"].size(), 8u) << "two pipelines of two tables, ranges and protocols";
    EXPECT_EQ(state["tables"][0],
              json(R"({"family": "aclHash", "name": "acl destinations 0", "physTableIdx": 0,
        "pipeline": 0, "entries": [
        {"key": {"secondPrefix": "10.9.0.0/16", "aclId": 1, "combination": 3},
         "result": {"rules": [{"priority": 1, "counter": 1}]}},
        {"key": {"port": 80, "secondPrefix": "10.0.0.0/8", "aclId": 1, "combination": 1, "protocol": 1},
         "result": {"rules": [{"priority": 2, "ruleFlag": true, "counter": 2}]}},
        {"key": {"aclId": 1, "combination": 3}, "result": {"rules": [{"priority": 3, "counter": 4}]}}]})"));
    EXPECT_EQ(state["tables"][1]["entries"], json(R"([
        {"key": {"firstPrefix": "10.1.2.3/32", "aclId": 1, "combination": 10, "protocol": 2, "rangeId": 2},
         "result": {"rules": [{"priority": 2, "ruleFlag": true, "counter": 3, "rangeId": 2}]}}])"));
    EXPECT_EQ(state["tables"][2]["entries"], json(R"([
        {"key": {"value": 2}, "result": {"anchorRange": {"0": {"min": 1024, "max": 65535, "id": 2, "flag": false}}}}])"));
    EXPECT_EQ(state["tables"][3]["entries"], json(R"([
        {"key": {"protocol": 6}, "result": {"remappedProtocol": 1}},
        {"key": {"protocol": 17}, "result": {"remappedProtocol": 2}}])"));
    EXPECT_EQ(state["tables"][4]["name"], "acl destinations 1");
    EXPECT_EQ(state["tables"][4]["entries"], state["tables"][0]["entries"]);
    EXPECT_EQ(imported.report.taken("ACL rules"), 4u);
    EXPECT_THAT(imported.report.names(), ElementsAre(ImportName{"ACL", "web", 1}));
    EXPECT_THAT(lossesOf(imported), ElementsAre("/ACL_TABLE/web/ports: p1: the chip has no such port"));
}

/** Ports 0 to 5 are p0 to p5; VLANs 10 and 20 have two of them each, and 30 one of those of VLAN 20. */
constexpr char const* boundTo = R"({{
    "PORT": {{"p0": {{}}, "p1": {{}}, "p2": {{}}, "p3": {{}}, "p4": {{}}, "p5": {{}}}},
    "VLAN": {{"Vlan10": {{}}, "Vlan20": {{}}, "Vlan30": {{}}}},
    "VLAN_MEMBER": {{"Vlan10|p0": {{}}, "Vlan10|p1": {{}}, "Vlan20|p2": {{}}, "Vlan20|p3": {{}}, "Vlan30|p3": {{}}}},
    "ACL_TABLE": {{{}}},
    "ACL_RULE": {{"a|1": {{"PACKET_ACTION": "DROP"}}, "b|1": {{"PACKET_ACTION": "DROP"}}}}}})";

std::map<int, int> aclsOf(Imported const& imported) {
    std::map<int, int> acls;
    for (auto const& [id, vlan] : imported.state.switchState.vlans) {
        if (vlan.acl() != NerioSwitch::HwAclId()) acls[id.value()] = vlan.acl().value();
    }
    return acls;
}

TEST(ConfigDbImportTest, AnAclIsThatOfVlansThatHaveItsPortsAlone) {
    auto imported =
        importOf(fmt::format(boundTo, R"("a": {"ports": ["p1", "p0", "p3", "p2"]}, "b": {"ports": []})"));
    EXPECT_EQ(aclsOf(imported), (std::map<int, int>{{10, 1}, {20, 1}, {30, 1}}));
    EXPECT_EQ(imported.report.taken("ACLs of VLANs"), 3u);
    EXPECT_THAT(lossesOf(imported), IsEmpty());

    imported = importOf(fmt::format(boundTo, R"("a": {"ports": ["p1", "p4"]}, "b": {"ports": ["Vlan20"]})"));
    EXPECT_EQ(aclsOf(imported), (std::map<int, int>{{20, 2}}));
    EXPECT_THAT(
        lossesOf(imported),
        ElementsAre("/ACL_TABLE/a/ports: VLAN 10 has other ports as well, and a packet's ACL is that of "
                    "its VLAN",
                    "/ACL_TABLE/a/ports: ports 4: a packet's ACL is that of its VLAN, and they are in "
                    "none"));
}

/** Packets of port 3 meet the ACL in VLAN 30, and not in VLAN 20. */
TEST(ConfigDbImportTest, PortsThatMeetTheirAclInSomeVlansAloneAreListed) {
    auto const imported = importOf(fmt::format(boundTo, R"("a": {"ports": ["p3"]}, "b": {})"));
    EXPECT_EQ(aclsOf(imported), (std::map<int, int>{{30, 1}}));
    EXPECT_THAT(
        lossesOf(imported),
        ElementsAre("/ACL_TABLE/a/ports: VLAN 20 has other ports as well, and a packet's ACL is that of "
                    "its VLAN"));
}

TEST(ConfigDbImportTest, AVlanHasOneAcl) {
    auto const imported =
        importOf(fmt::format(boundTo, R"("a": {"ports": ["Vlan10"]}, "b": {"ports": ["Vlan10", "Vlan20"]})"));
    EXPECT_EQ(aclsOf(imported), (std::map<int, int>{{10, 1}, {20, 2}}));
    EXPECT_THAT(lossesOf(imported), ElementsAre("/ACL_TABLE/b/ports: VLAN 10 has ACL 1 already"));
}

TEST(ConfigDbImportTest, VlansOfOldChipsHaveNoAcl) {
    auto const imported =
        importOf(fmt::format(boundTo, R"("a": {"ports": ["p0", "p1", "p2", "p3"]}, "b": {})"), "api3");
    EXPECT_THAT(aclsOf(imported), IsEmpty());
    EXPECT_THAT(lossesOf(imported),
                ElementsAre("/ACL_TABLE/a/ports: the rows of this chip's VLANs have no ACL"));
}

TEST(ConfigDbImportTest, RulesThatNoEntrySaysAreListed) {
    auto const imported = importOf(R"({
        "ACL_TABLE": {"t": {"type": "L3"}, "cpu": {"type": "CTRLPLANE"}, "late": {"stage": "egress"}, "six": {"type": "L3V6"}},
        "ACL_RULE": {
            "t|1": {"PACKET_ACTION": "DROP", "SRC_IPV6": "fc00::/7"},
            "t|2": {"PACKET_ACTION": "DROP", "SRC_IP": "fc00::/7"},
            "t|3": {"PACKET_ACTION": "DROP", "ETHER_TYPE": "0x86dd"},
            "t|4": {"PACKET_ACTION": "DROP", "IP_TYPE": "ARP"},
            "t|5": {"PACKET_ACTION": "DROP", "DSCP": "10"},
            "t|6": {"PACKET_ACTION": "REDIRECT:port1"},
            "t|7": {"DST_IP": "10.0.0.1"},
            "t|8": {"PACKET_ACTION": "DROP", "IP_PROTOCOL": "6", "L4_SRC_PORT": "1", "L4_DST_PORT": "2"},
            "t|9": {"PACKET_ACTION": "DROP", "IP_PROTOCOL": "132", "L4_SRC_PORT": "1"},
            "t|90": {"PACKET_ACTION": "DROP", "DST_IP": "0.0.0.0/1"},
            "cpu|1": {"PACKET_ACTION": "DROP"}, "late|1": {"PACKET_ACTION": "DROP"}, "six|1": {"PACKET_ACTION": "DROP"},
            "none|1": {"PACKET_ACTION": "DROP"}}})");
    EXPECT_EQ(stateOf(imported), Json::object());
    EXPECT_THAT(
        lossesOf(imported),
        ElementsAre("/ACL_RULE/t|1: SRC_IPV6: rules are those of IPv4",
                    "/ACL_RULE/t|2: SRC_IP fc00::/7: rules are those of IPv4",
                    "/ACL_RULE/t|3: ETHER_TYPE 0x86dd: rules are those of IPv4",
                    "/ACL_RULE/t|4: IP_TYPE ARP: rules are those of IPv4",
                    "/ACL_RULE/t|5: DSCP: no key looks at it, and no rule does it",
                    "/ACL_RULE/t|6: PACKET_ACTION REDIRECT:port1: rules permit or deny",
                    "/ACL_RULE/t|7: PACKET_ACTION is missing: rules permit or deny",
                    "/ACL_TABLE/cpu: with 1 rules of it: what the CPU's services take is its own matter",
                    "/ACL_TABLE/late: with 1 rules of it: ACLs are asked where packets come in",
                    "/ACL_TABLE/six: with 1 rules of it: type L3V6: rules are those of IPv4",
                    "/ACL_RULE/t|8: an entry looks at the source's port or at the destination's, not at both",
                    "/ACL_RULE/t|9: protocol 132: ports are those of TCP and UDP",
                    "/ACL_RULE/t|90: 0.0.0.0/1: keys of this chip do not tell it from other addresses",
                    "/ACL_RULE/none|1: there is no ACL table none"));
}

TEST(ConfigDbImportTest, ThereAreFifteenAcls) {
    Json tables = Json::object();
    Json rules = Json::object();
    for (int i = 1; i <= 16; ++i) {
        tables[fmt::format("t{}", i)] = Json::object();
        rules[fmt::format("t{}|1", i)] = {{"PACKET_ACTION", "DROP"}};
    }
    auto const imported =
        importOf(fmt::format(R"({{"ACL_TABLE": {}, "ACL_RULE": {}}})", tables.dump(), rules.dump()));
    EXPECT_EQ(imported.report.taken("ACLs"), 15u);
    EXPECT_THAT(lossesOf(imported),
                ElementsAre("/ACL_TABLE/t16: with its 1 rules: the chip has numbers for 15 ACLs alone"));
}

TEST(ConfigDbImportTest, AVlanWithAnInterfaceIsRouted) {
    auto const imported = importOf(R"({
        "VLAN": {"Vlan10": {}, "Vlan20": {}, "Vlan30": {}, "Vlan40": {}}, "VRF": {"Vrf_a": {}},
        "VLAN_INTERFACE": {"Vlan10": {}, "Vlan10|10.0.0.1/24": {"scope": "global"}, "Vlan10|fc00::1/64": {},
                           "Vlan20": {"vrf_name": "Vrf_a", "nat_zone": "1"}, "Vlan30": {"vrf_name": "Vrf_b"},
                           "Vlan50": {}}})");
    auto const& vlans = imported.state.switchState.vlans;
    EXPECT_TRUE(vlans.at(10).unicastRoute());
    EXPECT_EQ(vlans.at(10).vrf(), 0);
    EXPECT_TRUE(vlans.at(20).unicastRoute());
    EXPECT_EQ(vlans.at(20).vrf(), 1);
    EXPECT_FALSE(vlans.at(30).unicastRoute());
    EXPECT_FALSE(vlans.at(40).unicastRoute());
    EXPECT_EQ(imported.report.taken("routed VLANs"), 2u);
    EXPECT_THAT(lossesOf(imported),
                ElementsAre("/VLAN_INTERFACE/Vlan30/vrf_name: the chip has no VRF Vrf_b",
                            "/VLAN_INTERFACE/Vlan50: there is no VLAN Vlan50",
                            "/VLAN_INTERFACE: 2 entries: addresses of the switch are its CPU's",
                            "/VLAN_INTERFACE/*/nat_zone: 1 entry: not a matter of these tables"));
}

TEST(ConfigDbImportTest, StaticTranslations) {
    auto const imported = importOf(R"({
        "STATIC_NAT": {"192.0.2.1": {"local_ip": "10.0.0.1"},
                       "192.0.2.2": {"local_ip": "10.0.0.2", "nat_type": "snat"},
                       "192.0.2.3": {"local_ip": "10.0.0.3", "nat_type": "dnat", "twice_nat_id": "1"},
                       "192.0.2.4": {"local_ip": "10.0.0.1", "nat_type": "dnat"}},
        "STATIC_NAPT": {"192.0.2.5|TCP|80": {"local_ip": "10.0.0.5", "local_port": "8080"},
                        "192.0.2.5|UDP|80": {"local_ip": "10.0.0.5", "local_port": "8080"},
                        "192.0.2.5|UDP|81": {"local_ip": "10.0.0.6", "local_port": 81}}})");
    EXPECT_EQ(stateOf(imported)["translations"].size(), 3u);
    EXPECT_EQ(imported.state.translations[1].proto(), NerioSwitch::NatL4Proto::tcpAndUdp);
    EXPECT_EQ(imported.state.translations[1].outsidePort(), 80);
    EXPECT_EQ(imported.state.translations[1].insidePort(), 8080);
    EXPECT_EQ(imported.state.translations[0].outside().text(), "192.0.2.1");
    EXPECT_EQ(imported.state.translations[0].inside().text(), "10.0.0.1");
    EXPECT_THAT(
        lossesOf(imported),
        ElementsAre("/STATIC_NAT/192.0.2.2: nat_type snat: a translation is told by its outside",
                    "/STATIC_NAT/192.0.2.3: twice_nat_id: static translations change one side of a packet",
                    "/STATIC_NAT/192.0.2.4: /STATIC_NAT/192.0.2.1 matches the same packets"));
    EXPECT_THAT(lossesOf(importOf(R"({"STATIC_NAT": {"192.0.2.1": {"local_ip": "10.0.0.1"}}})", "api3")),
                ElementsAre("/STATIC_NAT/192.0.2.1: the chip does not translate"));
}

TEST(ConfigDbImportTest, StaticRoutes) {
    auto const imported = importOf(R"({
        "VRF": {"blue": {"vni": "1"}, "c": {}, "d": {}, "e": {}},
        "STATIC_ROUTE": {
            "default|10.0.0.0/8": {"nexthop": "10.9.9.1,10.9.9.5", "ifname": "p1,p2", "distance": "1"},
            "10.1.0.0/16": {"nexthop": "10.9.9.1", "nexthop-vrf": "default"}, "blue|0.0.0.0/0": {"ifname": "p1"},
            "blue|10.2.0.0/16": {"nexthop": "10.9.9.1"}, "e|10.3.0.0/16": {"nexthop": "10.9.9.1"},
            "10.4.0.0/16": {"blackhole": "true"}, "10.5.0.0/16": {"nexthop": "1.1.1.1", "nexthop-vrf": "blue"},
            "10.6.0.0/16": {}, "fc00::/7": {"nexthop": "fc00::1"}}})");
    EXPECT_EQ(stateOf(imported)["routes"], json(R"([
        {"vrf": 0, "prefix": "10.1.0.0/16", "nexthop": 1}, {"vrf": 1, "prefix": "0.0.0.0/0", "nexthop": 2},
        {"vrf": 1, "prefix": "10.2.0.0/16", "nexthop": 1}, {"vrf": 0, "prefix": "10.0.0.0/8", "nexthop": 3}])"));
    EXPECT_THAT(imported.report.names(), Contains(ImportName{"VRF", "blue", 1}));
    EXPECT_THAT(imported.report.names(), Contains(ImportName{"next hop", "10.9.9.1 p1, 10.9.9.5 p2", 3}));
    EXPECT_THAT(lossesOf(imported),
                ElementsAre("/VRF/e: the chip has 4 VRFs",
                            "/STATIC_ROUTE/10.4.0.0~116: blackhole: a route leads to a next hop",
                            "/STATIC_ROUTE/10.5.0.0~116: nexthop-vrf: a next hop is in the VRF of its route",
                            "/STATIC_ROUTE/10.6.0.0~116: it has no next hop",
                            "/STATIC_ROUTE/e|10.3.0.0~116: the chip has no VRF e",
                            "/STATIC_ROUTE/fc00::~17: routes are those of IPv4",
                            "/STATIC_ROUTE: ports and rewrites of next hops (3): an agent resolves them",
                            "/STATIC_ROUTE/*/distance: 1 entry: not a matter of these tables",
                            "/VRF/*/vni: 1 entry: not a matter of these tables"));
}

TEST(ConfigDbImportTest, NextHopsHaveNumbersFromOneOnWithoutTheOneThatIsNone) {
    Json routes = Json::object();
    for (int i = 0; i < 58; ++i)
        routes[fmt::format("10.0.0.{}", i)] = {{"ifname", fmt::format("p{}", i)}};
    auto const imported = importOf(Json{{"STATIC_ROUTE", routes}}.dump());
    ASSERT_EQ(imported.state.routes.size(), 58u);
    EXPECT_EQ(imported.state.routes[0].nexthop, 1u);
    EXPECT_EQ(imported.state.routes[55].nexthop, 56u);
    EXPECT_EQ(imported.state.routes[56].nexthop, 58u);
}

TEST(ConfigDbImportTest, TablesOfOthersAreALineEach) {
    auto const imported =
        importOf(R"({"VLAN": {}, "BGP_NEIGHBOR": {"a": {}, "b": {}}, "NEIGH": {"c": {}}, "ODD": "text"})");
    EXPECT_THAT(lossesOf(imported),
                ElementsAre("/BGP_NEIGHBOR: 2 entries: not a matter of these tables",
                            "/NEIGH: 1 entry: neighbours are next hops, whose ports an agent resolves",
                            "/ODD: 1 entry: not a matter of these tables"));
}

TEST(ConfigDbImportTest, TablesMayStandBelowAName) {
    auto const imported = importOf(R"({"ALL": {"VLAN": {"Vlan5": {"mtu": "1"}}}, "REST": {"X": {}}})");
    EXPECT_EQ(imported.report.taken("VLANs"), 1u);
    EXPECT_THAT(lossesOf(imported), ElementsAre("/REST: members (1): not a matter of these tables",
                                                "/ALL/VLAN/*/mtu: 1 entry: not a matter of these tables"));
    EXPECT_EQ(refusalOf(R"({"A": {"VLAN": {}}, "B": {"PORT": {}}})"), "/B: B: there are tables in A as well");
    EXPECT_EQ(refusalOf(R"({"A": {}})"), ": no configuration database: it has none of its tables");
}

TEST(ConfigDbImportTest, WhatMakesNoSenseIsRefusedByItsPlace) {
    for (auto const& [text, refusal] :
         {std::pair{"[]", ": expected an object, found an array"},
          {R"({"VLAN": []})", "/VLAN: VLAN: expected an object, found an array"},
          {R"({"VLAN": {"Vlan5": 7}})", "/VLAN/Vlan5: Vlan5: expected an object, found 7"},
          {R"({"VLAN": {"Vlan5": {"vlanid": "4095"}}})",
           "/VLAN/Vlan5/vlanid: vlanid: expected a number from 1 to 4094, found \"4095\""},
          {R"({"VLAN": {"Vlan5": {"vlanid": []}}})",
           "/VLAN/Vlan5/vlanid: vlanid: expected a text, found an array"},
          {R"({"VLAN": {"Vlan0": {}}})", "/VLAN/Vlan0: Vlan0: no VLAN number from 1 to 4094"},
          {R"({"VLAN": {"Vlan5": {"vlanid": "6"}}})", "/VLAN/Vlan5/vlanid: vlanid: 6 is that of Vlan5"},
          {R"({"VLAN": {"Vlan5": {}, "blue": {"vlanid": "5"}}})",
           "/VLAN/blue: blue: another VLAN has number 5"},
          {R"({"VLAN_MEMBER": {"Vlan5": {}}})",
           "/VLAN_MEMBER/Vlan5: Vlan5: expected 2 names with bars between them"},
          {R"({"PORT": {"p": {"index": "x"}}})",
           "/PORT/p/index: index: expected a number from 0 to 65535, found \"x\""},
          {R"({"PORT_STORM_CONTROL": {"p|broadcast": {}}})",
           "/PORT_STORM_CONTROL/p|broadcast: \"kbps\" is missing"},
          {R"({"COPP_GROUP": {"g": {"cir": "1", "meter_type": "odd"}}})",
           "/COPP_GROUP/g/meter_type: meter_type: expected packets or bytes, found \"odd\""},
          {R"({"ACL_RULE": {"t|r": {"PACKET_ACTION": "DROP", "SRC_IP": "10.0.0"}}})",
           "/ACL_RULE/t|r/SRC_IP: SRC_IP: expected an IPv4 prefix, found \"10.0.0\""},
          {R"({"ACL_RULE": {"t|r": {"PACKET_ACTION": "DROP", "L4_DST_PORT": "65536"}}})",
           "/ACL_RULE/t|r/L4_DST_PORT: L4_DST_PORT: expected a port, found \"65536\""},
          {R"({"ACL_RULE": {"t|r": {"PACKET_ACTION": "DROP", "L4_DST_PORT_RANGE": "9-1"}}})",
           "/ACL_RULE/t|r/L4_DST_PORT_RANGE: L4_DST_PORT_RANGE: expected a range of ports, found \"9-1\""},
          {R"({"STATIC_NAT": {"x": {"local_ip": "10.0.0.1"}}})",
           "/STATIC_NAT/x: x: expected an IPv4 address, found \"x\""},
          {R"({"STATIC_NAT": {"192.0.2.1": {}}})", "/STATIC_NAT/192.0.2.1: \"local_ip\" is missing"},
          {R"({"STATIC_NAPT": {"192.0.2.1|ICMP|1": {"local_ip": "10.0.0.1", "local_port": "1"}}})",
           "/STATIC_NAPT/192.0.2.1|ICMP|1: 192.0.2.1|ICMP|1: expected TCP or UDP, found \"ICMP\""},
          {R"({"STATIC_NAPT": {"192.0.2.1|TCP|0": {"local_ip": "10.0.0.1", "local_port": "1"}}})",
           "/STATIC_NAPT/192.0.2.1|TCP|0: 192.0.2.1|TCP|0: expected a port, found \"0\""},
          {R"({"STATIC_NAPT": {"192.0.2.1|TCP|1": {"local_ip": "10.0.0.1"}}})",
           "/STATIC_NAPT/192.0.2.1|TCP|1: \"local_port\" is missing"},
          {R"({"STATIC_ROUTE": {"a|b|c": {}}})",
           "/STATIC_ROUTE/a|b|c: a|b|c: expected 2 names with bars between them"},
          {R"({"STATIC_ROUTE": {"10.0.0.0/33": {}}})",
           "/STATIC_ROUTE/10.0.0.0~133: 10.0.0.0/33: expected an IPv4 prefix, found \"10.0.0.0/33\""}}) {
        EXPECT_EQ(refusalOf(text), refusal) << text;
    }
}

}  // namespace
