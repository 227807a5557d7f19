// `nerio lookup --dst`: the way of a packet through the chip of a switch.
#include <filesystem>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CommandProcess.h"
#include "TemporaryDirectory.h"
#include "agent/Json.h"
#include "chip/Ipv4Packet.h"

namespace {

using Agent::Json;
using NerioTest::CommandResult;
using NerioTest::runCommand;
using testing::HasSubstr;
using testing::StartsWith;

/** Port 1 is inside and port 30 outside, where 10.0.0.5:8080 is 192.0.2.1:80; VRF 1 is closed by its rules.
 */
constexpr char const* router = R"({"profile":{"preset":"default","hwApi":"10.0"},
  "tables":[
    {"family":"l3Lag","name":"lags","entries":[{"key":9,"result":{"portMask":"0x40000000"}}]},
    {"family":"natMatch","name":"matches","entries":[
      {"key":{"natType":1,"sip":"10.0.0.5","sport":8080,"ingressProfileId":3},
       "result":{"valid":true,"proto":1,"natSessionId":2}}]},
    {"family":"natRewrite","name":"rewrites","pipeline":1,"entries":[
      {"key":{"isUnicast":true,"natSessionId":2,"natProfileId":3},
       "result":{"valid":true,"newIp":"192.0.2.1","newPort":80,"checksumCorrection":39100}}]},
    {"family":"protocolRemap","name":"protocols","pipeline":0,"entries":[
      {"key":{"protocol":6},"result":{"remappedProtocol":1}}]},
    {"family":"aclHash","name":"rules","physTableIdx":0,"entries":[
      {"key":{"aclId":1,"combination":3,"secondPrefix":"198.51.100.128/25"},
       "result":{"rules":[{"priority":4,"ruleFlag":false,"counter":17}]}},
      {"key":{"aclId":1,"combination":1,"secondPrefix":"198.51.100.129/32","protocol":1,"port":53},
       "result":{"rules":[{"priority":3,"ruleFlag":true,"counter":18}]}}]}],
  "routes":[{"prefix":"198.51.100.0/24","nexthop":9}]})";

class LookupCommandTest : public testing::Test {
protected:
    std::string stateFile(std::string const& text = router) {
        contentsOfIs(directory.path("state.json"), text);
        return directory.path("state.json");
    }
    /** Looks a packet up on the router of a state file. */
    CommandResult lookup(std::vector<std::string> const& more) {
        std::vector<std::string> arguments{"lookup", "--state", stateFile()};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runCommand(arguments);
    }
    /** The same on a switch that is kept for the rest of the test. */
    CommandResult lookupKept(std::vector<std::string> const& more) {
        if (!std::filesystem::exists(kept)) {
            EXPECT_EQ(runCommand({"run", stateFile(), "--switch", kept}).status, 0);
        }
        std::vector<std::string> arguments{"lookup", "--switch", kept};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runCommand(arguments);
    }
    static std::vector<std::string> outbound() {
        return {"--src", "10.0.0.5", "--dst", "198.51.100.7", "--proto", "tcp",           "--sport",
                "8080",  "--dport",  "40000", "--port",       "1",       "--nat-profile", "3"};
    }

    TemporaryDirectory directory;
    std::string const kept = directory.path("switch");
};

TEST_F(LookupCommandTest, ShowsAPacketBeforeAndAfterItsTranslation) {
    auto const result = lookup(outbound());
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(result.output, StartsWith("TCP 10.0.0.5:8080 to 198.51.100.7:40000, by port 1 in VLAN 1 and "
                                          "VRF 0, through the switch of " +
                                          stateFile() + "\n\ningress port     port 1 is in mode trunk\n"));
    EXPECT_THAT(result.output, HasSubstr(", L3 LAG 9, rewrite 0, route 198.51.100.0/24\n"))
        << "the shadow knows the route";
    EXPECT_THAT(result.output, HasSubstr("\nNAT rewrite      port 30: the source becomes 192.0.2.1:80\n"));
    EXPECT_THAT(result.output, HasSubstr("\nforwarded\n    came by port 1: TCP 10.0.0.5:8080 to "));
    EXPECT_THAT(result.output,
                HasSubstr("\n    leaves by port 30: TCP 192.0.2.1:80 to 198.51.100.7:40000, "));
}

TEST_F(LookupCommandTest, AnswersAsJson) {
    auto arguments = outbound();
    arguments.insert(arguments.end(), {"--json", "--vlan", "7"});
    auto const result = lookup(arguments);
    EXPECT_EQ(result.status, 0);
    auto const answer = Json::parse(result.output);
    EXPECT_EQ(answer["fate"], "forwarded");
    EXPECT_EQ(answer["packet"]["vlan"], 7);
    EXPECT_EQ(answer["packet"]["sport"], 8080);
    auto const& route = answer["stages"][5];
    EXPECT_EQ(route["stage"], "route");
    EXPECT_EQ(route["decision"], "next hop 9, by L3 LAG 9");
    EXPECT_EQ(route["lookups"][0]["memory"], "ingress/processor_l3[0]/lpm26");
    EXPECT_EQ(route["lookups"][0]["result"],
              Json::parse(R"({"cell":0,"nextHop":9,"l3Lag":9,"rewrite":0,"trapToCpu":false,
                              "route":"198.51.100.0/24"})"));
    auto const& copy = answer["copies"][0];
    EXPECT_EQ(copy["port"], 30);
    EXPECT_EQ(copy["packet"]["src"], "192.0.2.1");
    EXPECT_EQ(copy["packet"]["sport"], 80);
    auto const leaves = Chip::headersOf(Chip::ipv4Packet({.source = 0xC0000201,
                                                          .destination = 0xC6336407,
                                                          .protocol = Chip::IpProtocol::tcp,
                                                          .transport = {{80, 40000, 0}}}));
    EXPECT_EQ(copy["packet"]["checksum"], leaves.checksum);
    EXPECT_EQ(copy["packet"]["transportChecksum"], leaves.transport->checksum);
}

TEST_F(LookupCommandTest, TheVlanOfAPacketTellsWhatTheOptionsLeaveOut) {
    auto const bridge = stateFile(R"({"profile":{"preset":"default","hwApi":"10.0"},
      "tables":[
        {"family":"nativeVlan","name":"tags","entries":[
          {"key":{"portId":1},"result":{"nativeVlanId":20}}]},
        {"family":"vlanMembership","name":"vlans","entries":[
          {"key":{"vid":20},"result":{"permitMask":18,"vrfBits":2}}]},
        {"family":"macVlan","name":"stations","entries":[
          {"key":{"value":3},"result":{"macVlan":{"vlanId":20,"ethAddr":"00:1c:73:a1:b2:c3"},
                                       "ingressPortMask":16}}]}]})");
    ASSERT_EQ(runCommand({"run", bridge, "--switch", kept}).status, 0);
    auto const bridged = lookupKept({"--dst", "10.1.2.3", "--port", "1", "--dst-mac", "00:1c:73:a1:b2:c3"});
    EXPECT_EQ(bridged.status, 0) << bridged.errors;
    EXPECT_THAT(bridged.output, StartsWith("ICMP 0.0.0.0 to 10.1.2.3, by port 1 in VLAN 20 and VRF 2, "));
    EXPECT_THAT(bridged.output, HasSubstr("\nMAC address      the address leads to port 4\n"));
    auto const routed = lookupKept({"--dst", "10.1.2.3", "--port", "1", "--vrf", "1"});
    EXPECT_EQ(routed.status, 1);
    EXPECT_THAT(routed.output, HasSubstr("\nroute            no route in VRF 1\n"));
    auto const tagged = lookupKept({"--dst", "10.1.2.3", "--port", "1", "--vlan", "21"});
    EXPECT_EQ(tagged.status, 1);
    EXPECT_THAT(tagged.output, HasSubstr("\ndropped in stage VLAN\n"));
}

TEST_F(LookupCommandTest, ADroppedPacketIsNoSuccess) {
    auto const denied = lookupKept({"--dst", "198.51.100.129", "--acl", "1"});
    EXPECT_EQ(denied.status, 1);
    EXPECT_EQ(denied.errors, "");
    EXPECT_THAT(denied.output, HasSubstr("\nACL              denied by a rule of priority 4, counter 17\n"));
    EXPECT_THAT(denied.output, HasSubstr("\ndropped in stage ACL\n    came by port 0: ICMP 0.0.0.0 to "));
    auto const unrouted = lookupKept({"--dst", "198.51.100.7", "--vrf", "1", "--json"});
    EXPECT_EQ(unrouted.status, 1);
    EXPECT_EQ(Json::parse(unrouted.output)["fate"], "dropped");
}

TEST_F(LookupCommandTest, WhatIsLeftOutHasDefaults) {
    auto const tcp = lookupKept({"--dst", "198.51.100.129", "--acl", "1", "--dport", "53"});
    EXPECT_EQ(tcp.status, 0) << tcp.errors;
    EXPECT_THAT(tcp.output, StartsWith("TCP 0.0.0.0:0 to 198.51.100.129:53, by port 0 in VLAN 1 and VRF 0,"));
    EXPECT_THAT(tcp.output, HasSubstr("\nACL              permitted by a rule of priority 3, counter 18\n"));
    auto const udp = lookupKept({"--dst", "198.51.100.129", "--acl", "1", "--dport", "53", "--proto", "udp"});
    EXPECT_THAT(udp.output, HasSubstr("\nACL              denied by a rule of priority 4, counter 17\n"));
    auto const remapped = lookupKept({"--dst", "198.51.100.129", "--acl", "1", "--dport", "53", "--proto",
                                      "17", "--acl-proto", "1", "--egress-port", "8"});
    EXPECT_THAT(remapped.output,
                HasSubstr("\nACL              permitted by a rule of priority 3, counter 18\n"));
    EXPECT_THAT(remapped.output, HasSubstr("\n    leaves by port 8: UDP 0.0.0.0:0 to 198.51.100.129:53, "));
    auto const other = lookupKept({"--dst", "239.1.1.1", "--proto", "89", "--flood-nexthop", "4"});
    EXPECT_THAT(other.output, StartsWith("protocol 89 0.0.0.0 to 239.1.1.1, by port 0 "));
    EXPECT_THAT(other.output, HasSubstr("\nflooding         next hop 4 floods no port\n"));
    auto const flagged = lookupKept({"--dst", "198.51.100.7", "--acl-key-flag", "--egress-nat-profile", "4"});
    EXPECT_EQ(flagged.status, 0) << flagged.errors;
}

TEST_F(LookupCommandTest, TheSwitchCanBeAKeptOneOrTheCampus) {
    ASSERT_EQ(runCommand({"run", stateFile(), "--switch", kept}).status, 0);
    auto arguments = outbound();
    arguments.insert(arguments.begin(), {"lookup", "--switch", kept});
    auto const before = contentsOf(kept + "/chip");
    auto const ofKept = runCommand(arguments).output;
    auto const withoutHead = [](std::string const& text) { return text.substr(text.find('\n')); };
    EXPECT_THAT(ofKept, HasSubstr(", through the switch kept in " + kept + "\n"));
    EXPECT_EQ(withoutHead(ofKept), withoutHead(lookup(outbound()).output));
    EXPECT_EQ(contentsOf(kept + "/chip"), before) << "nothing is written, not even a hit bit";
    std::filesystem::remove_all(kept + "/shadow");
    EXPECT_THAT(runCommand(arguments).output, HasSubstr(", next hop 9, L3 LAG 9, rewrite 0\n"))
        << "without a shadow the route is not known";

    auto const campus = runCommand({"lookup", "--dst", "10.66.1.1", "--acl", "1"});
    EXPECT_EQ(campus.status, 1);
    EXPECT_THAT(campus.output, HasSubstr(", through the switch of examples/campus.json\n"));
    EXPECT_THAT(campus.output,
                HasSubstr("\nACL              denied by a rule of priority 40, counter 106\n"));
    EXPECT_THAT(
        runCommand({"lookup", "--dst", "10.20.0.5", "--dport", "22", "--port", "41", "--vlan", "101"}).output,
        HasSubstr("\nACL              denied by a rule of priority 30, counter 205\n"))
        << "by the ACL of VLAN 101, in the second pipeline";
    EXPECT_EQ(runCommand({"lookup", "198.51.100.7", "--state", stateFile()}).status, 0)
        << "an address alone is looked up there as well";
}

TEST_F(LookupCommandTest, AStateFileThatCannotBeTakenIsRefusedAsByRun) {
    auto const bad = stateFile(R"({"tables":[{"family":"none","name":"x"}]})");
    auto const result = runCommand({"lookup", "--state", bad, "--dst", "10.0.0.1"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, runCommand({"run", bad}).errors);
}

TEST_F(LookupCommandTest, BadOptionsAreNamed) {
    struct Case {
        std::vector<std::string> arguments;
        std::string errors;
    };
    for (auto const& [arguments, errors] :
         {Case{{"--dst", "10.1.2"}, "--dst: \"10.1.2\" is no IPv4 address"},
          {{"--dst", "10.1.2.3", "--src", "10.1.2.3.4"}, "--src: \"10.1.2.3.4\" is no IPv4 address"},
          {{"--dst", "10.1.2.3", "--src", "host"}, "--src: \"host\" is no IPv4 address"},
          {{"--dst", "10.1.2.3", "--proto", "tpc"},
           "--proto: \"tpc\" is none of tcp, udp, icmp and 0 to 255"},
          {{"--dst", "10.1.2.3", "--proto", "256"},
           "--proto: \"256\" is none of tcp, udp, icmp and 0 to 255"},
          {{"--dst", "10.1.2.3", "--proto", "icmp", "--sport", "1"}, "--sport: only tcp and udp have ports"},
          {{"--dst", "10.1.2.3", "--proto", "89", "--dport", "1"}, "--dport: only tcp and udp have ports"},
          {{"--dst", "10.1.2.3", "--sport", "65536"}, "--sport: 65536 is above 65535"},
          {{"--dst", "10.1.2.3", "--dport", "65536"}, "--dport: 65536 is above 65535"},
          {{"--dst", "10.1.2.3", "--port", "52"}, "--port: 52 is above 51"},
          {{"--dst", "10.1.2.3", "--egress-port", "52"}, "--egress-port: 52 is above 51"},
          {{"--dst", "10.1.2.3", "--dst-mac", "0:1:2"}, "--dst-mac: \"0:1:2\" is no MAC address"},
          {{"--dst", "10.1.2.3", "--dst-mac", "00:1c:73:a1:b2:c3:d4"},
           "--dst-mac: \"00:1c:73:a1:b2:c3:d4\" is no MAC address"},
          {{"--dst", "10.1.2.3", "--vlan", "0"}, "--vlan: 0 is below 1"},
          {{"--dst", "10.1.2.3", "--vlan", "4095"}, "--vlan: 4095 is above 4094"},
          {{"--dst", "10.1.2.3", "--vrf", "4"}, "--vrf: 4 is above 3"},
          {{"--dst", "10.1.2.3", "--acl", "16"}, "--acl: 16 is above 15"},
          {{"--dst", "10.1.2.3", "--acl-proto", "16"}, "--acl-proto: 16 is above 15"},
          {{"--dst", "10.1.2.3", "--nat-profile", "64"}, "--nat-profile: 64 is above 63"},
          {{"--dst", "10.1.2.3", "--egress-nat-profile", "64"}, "--egress-nat-profile: 64 is above 63"},
          {{"--dst", "10.1.2.3", "--flood-nexthop", "160"}, "--flood-nexthop: 160 is above 159"}}) {
        auto const result = lookupKept(arguments);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, "nerio lookup: " + errors + "\n");
    }
}

TEST_F(LookupCommandTest, OptionsThatDoNotGoTogetherAreRefused) {
    struct Case {
        std::vector<std::string> arguments;
        std::string errors;
    };
    for (auto const& [arguments, errors] :
         {Case{{"lookup"}, "IP or --dst is required"},
          {{"lookup", "10.1.2.3"}, "--switch is required"},
          {{"lookup", "10.1.2.3", "--dst", "10.1.2.3"}, "IP excludes --dst"},
          {{"lookup", "--src", "10.1.2.3"}, "--src requires --dst"},
          {{"lookup", "--switch", "a", "--port", "1"}, "--port requires --dst"},
          {{"lookup", "--dst", "10.1.2.3", "--switch", "a", "--state", "b"}, "--switch excludes --state"},
          {{"lookup", "--dst", "10.1.2.3", "--port", "x"}, "Could not convert: --port = x"},
          {{"lookup", "--dst", "10.1.2.3", "--vlan", "-1"}, "Could not convert: --vlan = -1"}}) {
        auto const result = runCommand(arguments);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, "nerio: " + errors + "; nerio --help says more\n");
    }
}

}  // namespace
