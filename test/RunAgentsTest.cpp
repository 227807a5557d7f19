// Routes, multicast routes and translations of state files, as `nerio run` programs them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>

#include "CommandProcess.h"
#include "TemporaryDirectory.h"
#include "agent/Json.h"

namespace {

using Agent::Json;
using NerioTest::runCommand;
using testing::EndsWith;
using testing::HasSubstr;

/** A chip of eight ports with an egress pipe for every two of them. */
Json portPairs() {
    return Json::parse(R"({"numPorts":8,
        "egressPipes":[{"pipeId":0,"firstPort":0,"lastPort":1},{"pipeId":1,"firstPort":2,"lastPort":3},
                       {"pipeId":2,"firstPort":4,"lastPort":5},{"pipeId":3,"firstPort":6,"lastPort":7}],
        "layouts":{"egress":{"processors":4},"l3":{"processors":1}}})");
}

Json stateWith(char const* member, Json const& values) {
    return {{"profile", portPairs()}, {"tables", Json::array()}, {member, values}};
}

/** Routes of which each takes a group of VLANs of its own. */
Json ofOwnGroups(int count) {
    Json routes = Json::array();
    for (int i = 0; i < count; ++i) {
        routes.push_back({{"group", "239.0.0." + std::to_string(i)},
                          {"vlanId", 5},
                          {"out", {{std::to_string(100 + i), 1}}}});
    }
    return routes;
}

class RunAgentsTest : public testing::Test {
protected:
    std::string stateFile(Json const& state) {
        contentsOfIs(directory.path("state.json"), state.dump());
        return directory.path("state.json");
    }
    /** Whether a run fails, and in what words. */
    std::string errorsOf(Json const& state) {
        auto const file = stateFile(state);
        auto const result = runCommand({"run", file});
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.output, "");
        auto const head = "nerio run: " + file + ": ";
        EXPECT_THAT(result.errors, testing::StartsWith(head));
        return result.errors.substr(head.size());
    }
    TemporaryDirectory directory;
};

TEST_F(RunAgentsTest, MulticastRoutesThatHaveNoRoomAreReportedAndAreNoFailure) {
    auto const file = stateFile(stateWith("multicastRoutes", ofOwnGroups(18)));
    auto const result = runCommand({"run", file});
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.status, 0);
    char const* const refused =
        "  refused: /multicastRoutes/16: no group of VLANs is left for (*, 239.0.0.16) in VLAN 5\n"
        "  refused: /multicastRoutes/17: no group of VLANs is left for (*, 239.0.0.17) in VLAN 5\n";
    EXPECT_THAT(result.output, HasSubstr("multicast routes: 16 of 18 placed in 32 rows, "));
    EXPECT_THAT(result.output,
                HasSubstr("multicast routes: 16 of 18 in place in 32 rows, 0 register writes, "));
    auto const first = result.output.find(refused);
    EXPECT_NE(first, result.output.npos);
    EXPECT_NE(result.output.find(refused, first + 1), result.output.npos);
    EXPECT_THAT(result.output, HasSubstr("routes: 0 of 0 placed in 0 rows, "));
    EXPECT_THAT(result.output, EndsWith("the warm restart wrote nothing\n"));
}

TEST_F(RunAgentsTest, TranslationsThatHaveNoRoomAreReported) {
    auto const translations = Json::parse(R"([
        {"inside":"10.0.0.5","insidePort":80,"outside":"192.0.2.1","outsidePort":8080,"proto":1},
        {"inside":"10.0.0.5","insidePort":80,"outside":"192.0.2.1","outsidePort":8081,"proto":1}])");
    auto const report =
        Json::parse(runCommand({"run", stateFile(stateWith("translations", translations)), "--json"}).output);
    auto const& cold = report["translations"]["cold"];
    EXPECT_EQ(cold["wanted"], 2);
    EXPECT_EQ(cold["placed"], 1);
    EXPECT_EQ(cold["rowsInUse"], 2 + 2 * 4) << "two matches, and two rewrites in each egress processor";
    EXPECT_THAT(cold["refused"][0].get<std::string>(),
                HasSubstr("/translations/1: another translation matches "));
    EXPECT_EQ(cold["verifiedRows"], 3 * 4096 + 4 * 4096);
    EXPECT_GT(cold["startWrites"], 0);
    EXPECT_GT(cold["registerWrites"], 0);
    auto const& warm = report["translations"]["warm"];
    EXPECT_EQ(warm["placed"], 1);
    EXPECT_EQ(warm["startWrites"], 0);
    EXPECT_EQ(warm["registerWrites"], 0);
    EXPECT_EQ(report["differences"], 0);
    EXPECT_FALSE(report.contains("routes"));
    EXPECT_FALSE(report.contains("multicastRoutes"));
}

TEST_F(RunAgentsTest, WhatTheChipCannotHaveIsRefusedBeforeAnythingIsProgrammed) {
    auto const route = [](char const* text) {
        return stateWith("multicastRoutes", Json::array({Json::parse(text)}));
    };
    EXPECT_EQ(errorsOf(route(R"({"group":"223.0.0.1","vlanId":5})")),
              "/multicastRoutes/0: Agent::MulticastRoute::group < 224.0.0.0 or > 239.255.255.255 not "
              "allowed\n");
    EXPECT_EQ(errorsOf(route(R"({"group":"224.0.0.1","vlanId":5,"out":{"7":256}})")),
              "/multicastRoutes/0: Agent::MulticastRoute::out >= ProfileInfo::numPorts not allowed\n");
    auto state = stateWith("multicastRoutes", ofOwnGroups(1));
    state.erase("profile");
    EXPECT_EQ(
        errorsOf(state),
        "/multicastRoutes: multicast routes take egress pipes of at most two ports; port 2 is the third "
        "one of pipe 0\n");
    state["profile"] = portPairs();
    state["profile"]["numVrfs"] = 16;
    EXPECT_EQ(errorsOf(state), "/multicastRoutes: routes take 4, 8 or 32 VRFs; the profile has 16\n");
    EXPECT_EQ(errorsOf(stateWith("translations", Json::parse(
                                                     R"([{"inside":"10.0.0.1","outside":"192.0.2.1"},
                                            {"inside":"10.0.0.2","outside":"192.0.2.2","insidePort":7}])"))),
              "/translations/1: Agent::NatTranslation::insidePort == 0 != outsidePort == 0 not allowed\n");
    EXPECT_FALSE(std::filesystem::exists(directory.path("switch")));
}

TEST_F(RunAgentsTest, LayerTwoAndLimitsRunByTablesOfTheirFamilies) {
    auto state = stateWith("vlans", Json::parse(R"({"7":{"ports":"0-3","untagged":"0-1"}})"));
    state["portChannels"] = Json::parse(R"({"5":"2-3"})");
    state["stormLimits"] = Json::parse(R"({"0":{"broadcast":"20 kpps"}})");
    auto const result = runCommand({"run", stateFile(state), "--json"});
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.status, 0);
    auto const report = Json::parse(result.output);
    EXPECT_EQ(report["differences"], 0);
    std::map<std::string, std::size_t> entries;
    std::map<std::string, bool> isWrittenWarm;
    for (auto const& table : report["cold"])
        entries[table["name"].get<std::string>()] = table["entries"].get<std::size_t>();
    for (auto const& table : report["warm"]) {
        EXPECT_EQ(table["entries"], entries[table["name"].get<std::string>()]) << "all of them are adopted";
        isWrittenWarm[table["name"].get<std::string>()] = table["registerWrites"] != 0;
    }
    EXPECT_EQ(entries, (std::map<std::string, std::size_t>{{"vlanMembership", 1},
                                                           {"nativeVlan", 2},
                                                           {"floodSet", 1},
                                                           {"macVlan", 0},
                                                           {"lagGroup", 2},
                                                           {"lagMembership", 2},
                                                           {"lagLookUp", 2},
                                                           {"stormControl", 1}}));
    EXPECT_EQ(isWrittenWarm, (std::map<std::string, bool>{{"vlanMembership", false},
                                                          {"nativeVlan", false},
                                                          {"floodSet", false},
                                                          {"macVlan", false},
                                                          {"lagGroup", false},
                                                          {"lagMembership", true},
                                                          {"lagLookUp", false},
                                                          {"stormControl", true}}));
    EXPECT_THAT(runCommand({"run", stateFile(state)}).output,
                testing::ContainsRegex("the warm restart wrote [0-9]+ registers, of lagMembership, "
                                       "stormControl\n$"));
}

TEST_F(RunAgentsTest, ATableOfStormLimitsGoesByItsNameInTheFile) {
    Json const state{{"profile", portPairs()},
                     {"tables", Json::parse(R"([{"family":"stormControl","name":"storms","entries":[
                         {"key":{"portId":1,"trafficClass":"stormControlBcast"},
                          "result":{"enabled":false,"interval":31250000}}]}])")}};
    auto const report = Json::parse(runCommand({"run", stateFile(state), "--json"}).output);
    EXPECT_EQ(report["cold"][0]["entries"], 1);
    EXPECT_EQ(report["cold"][0]["name"], "storms");
    EXPECT_EQ(report["warm"][0]["defaultEntries"], 1) << "it is set again, as hardware has no trace of it";
}

/** Routes that are loaded later share rows with those of any source. */
TEST_F(RunAgentsTest, MulticastRoutesOfAKeptSwitchOutliveItsRoutes) {
    auto const place = directory.path("switch");
    auto const file = stateFile(stateWith("multicastRoutes", ofOwnGroups(16)));
    ASSERT_EQ(runCommand({"run", file, "--switch", place}).status, 0);
    contentsOfIs(directory.path("routes"), "10.0.0.0/27 7\n10.0.1.0/28 8\n10.0.2.0/29 9\n");
    auto const routes = runCommand({"routes", directory.path("routes"), "--switch", place});
    EXPECT_EQ(routes.status, 0) << routes.errors;
    EXPECT_THAT(routes.output, HasSubstr("3 routes\n"));
    auto const restart = runCommand({"run", "--warm-restart-of", place});
    EXPECT_EQ(restart.status, 0) << restart.errors;
    auto const report = Json::parse(restart.output);
    EXPECT_EQ(report["multicastRoutes"]["placed"], 16);
    EXPECT_EQ(report["multicastRoutes"]["startWrites"], 0);
    EXPECT_EQ(report["multicastRoutes"]["registerWrites"], 0);
    EXPECT_EQ(report["routes"]["routes"], 3) << "routes of a list are kept with the state";
    EXPECT_EQ(report["routes"]["registerWrites"], 0);
    EXPECT_TRUE(report["routes"]["differences"].empty());
}

}  // namespace
