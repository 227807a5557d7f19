// `nerio import`, and `nerio run` with what it makes.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CommandProcess.h"
#include "TemporaryDirectory.h"
#include "agent/Json.h"

namespace {

using Agent::Json;
using NerioTest::runCommand;
using testing::HasSubstr;

class ImportCommandTest : public testing::Test {
protected:
    std::string file(std::string const& name, std::string const& text) {
        contentsOfIs(directory.path(name), text);
        return directory.path(name);
    }
    /** Imports into a file, and runs it. */
    void expectRuns(std::string const& name, std::string const& text, std::string const& profile) {
        auto const output = directory.path(name + ".json");
        auto const made = runCommand({"import", file(name, text), "-o", output, "--profile", profile});
        EXPECT_EQ(made.status, 0) << made.errors;
        EXPECT_EQ(made.output, "");
        EXPECT_FALSE(std::filesystem::exists(output + ".part"));
        auto const run = runCommand({"run", output});
        EXPECT_EQ(run.status, 0) << run.errors;
        EXPECT_THAT(run.output, HasSubstr("software, shadow and chip agree"));
        EXPECT_THAT(run.output, testing::Not(HasSubstr("refused")));
    }
    TemporaryDirectory directory;
};

constexpr char const* switchConfiguration = R"({
    "PORT": {"p0": {"index": "4"}, "p1": {"admin_status": "down"}, "p2": {}, "p3": {}},
    "PORTCHANNEL": {"c7": {}}, "PORTCHANNEL_MEMBER": {"c7|p2": {}, "c7|p3": {}},
    "VLAN": {"Vlan20": {}}, "VLAN_MEMBER": {"Vlan20|p0": {"tagging_mode": "untagged"}, "Vlan20|c7": {}},
    "MIRROR_SESSION": {"m": {"type": "SPAN", "direction": "RX", "dst_port": "p1", "src_port": "p0"}},
    "PORT_STORM_CONTROL": {"p0|broadcast": {"kbps": "10000"}},
    "COPP_GROUP": {"default": {"cir": "600"}},
    "ACL_TABLE": {"t": {}}, "ACL_RULE": {"t|1": {"PACKET_ACTION": "DROP", "IP_PROTOCOL": "6", "L4_DST_PORT_RANGE": "5-9"}},
    "STATIC_NAT": {"192.0.2.1": {"local_ip": "10.0.0.1"}}, "STATIC_ROUTE": {"10.0.0.0/8": {"nexthop": "10.9.9.9"}},
    "NTP": {"x": {}}})";
constexpr char const* chains =
    "*filter\n:FORWARD DROP [0:0]\n-A FORWARD -s 10.0.0.0/8 -p tcp -m tcp --dport 80:99 -j ACCEPT\n"
    "-A FORWARD -i eth0 -j ACCEPT\nCOMMIT\n"
    "*nat\n:PREROUTING ACCEPT [0:0]\n-A PREROUTING -d 192.0.2.1/32 -j DNAT --to-destination "
    "10.0.0.1\nCOMMIT\n";
constexpr char const* filters = "@10.0.0.0/8 10.1.0.0/16 0 : 65535 80 : 80 0x06/0xFF\n";

TEST_F(ImportCommandTest, TheStatesStartSwitchesWithoutADifference) {
    expectRuns("configuration", switchConfiguration, "default");
    expectRuns("chains", chains, "api7");
    expectRuns("filters", filters, "api3");
}

TEST_F(ImportCommandTest, PrintsTheStateAndReportsOnStandardError) {
    auto const result = runCommand({"import", file("rules", chains)});
    EXPECT_EQ(result.status, 0);
    auto const state = Json::parse(result.output);
    EXPECT_EQ(state["profile"], Json::parse(R"({"preset": "default"})"));
    EXPECT_EQ(state["translations"].size(), 1u);
    EXPECT_EQ(result.errors,
              "translations: 1\nACL entries: 2\nACL rules: 2\nACLs: 1\nACL FORWARD: 1\nnot taken: 1\n"
              "  line 4: -i eth0: an ACL is chosen by the VLAN of a packet, not by a rule\n");
}

TEST_F(ImportCommandTest, WhatIsNotTakenIsALineWhateverItsNames) {
    auto const result = runCommand({"import", file("in.json", R"({"PORT": {"a\nb": {"c\td": "1"}}})")});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors,
              "ports: 1\nport a\\x0ab: 0\nnot taken: 1\n"
              "  /PORT/*/c\\x09d: 1 entry: not a matter of these tables\n");
}

TEST_F(ImportCommandTest, JsonHasStateAndReport) {
    auto const result =
        runCommand({"import", file("in.json", switchConfiguration), "--json", "--from", "config_db"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    auto const made = Json::parse(result.output);
    EXPECT_EQ(made["state"]["vlans"]["20"]["ports"], "1-2,4");
    EXPECT_EQ(made["report"]["taken"]["ports"], 4);
    EXPECT_EQ(made["report"]["names"][0], Json::parse(R"({"kind": "port", "name": "p0", "number": 4})"));
    EXPECT_EQ(made["report"]["notTaken"].back(),
              Json::parse(R"({"place": "/NTP", "reason": "1 entry: not a matter of these tables"})"));
}

TEST_F(ImportCommandTest, WhatMakesNoSenseIsOneLine) {
    auto const vlan = file("vlan.json", R"({"VLAN": {"Vlan5": {"vlanid": "x"}}})");
    auto const text = file("text", "hello\n");
    auto const rule = file("rule", "*filter\n:FORWARD ACCEPT [0:0]\n-A FORWARD -s x -j DROP\n");
    auto const broken = file("broken.json", "{\n");
    auto const missing = directory.path("missing");
    for (auto const& [arguments, errors] :
         {std::pair<std::vector<std::string>, std::string>{
              {vlan}, vlan + ": /VLAN/Vlan5/vlanid: vlanid: expected a number from 1 to 4094, found \"x\"\n"},
          {{text}, text + ": of no form that is known; --from tells it\n"},
          {{text, "--from", "filters"},
           text + ": line 1: no filter rule \"@src/len dst/len sport : sport dport : dport proto/mask\"\n"},
          {{rule}, rule + ": line 3: -s x: no IPv4 prefix\n"},
          {{missing}, missing + ": No such file or directory\n"},
          {{text, "--profile", "odd"},
           "odd: no preset, and no file of a profile: No such file or directory\n"}}) {
        auto all = arguments;
        all.insert(all.begin(), "import");
        auto const result = runCommand(all);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, "nerio import: " + errors);
    }
    auto const noJson = runCommand({"import", broken});
    EXPECT_EQ(noJson.status, 2);
    EXPECT_THAT(noJson.errors,
                testing::StartsWith("nerio import: " + broken + ": line 2, column 1: not JSON: "));
    EXPECT_EQ(NerioTest::lineCount(noJson.errors), 1);
    EXPECT_EQ(runCommand({"import", text, "--from", "odd"}).status, 2);
}

TEST_F(ImportCommandTest, AnOutputThatCannotBeWrittenIsAFailedJob) {
    auto const output = directory.path("none/state.json");
    auto const result = runCommand({"import", file("rules", chains), "-o", output});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "nerio import: " + output + ": cannot be written: No such file or directory\n");
}

}  // namespace
