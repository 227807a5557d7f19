// `nerio routes`, `nerio capacity` and `nerio lookup`, and the routes of `nerio run`.
#include <algorithm>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CommandProcess.h"
#include "TemporaryDirectory.h"
#include "agent/Json.h"

namespace {

using Agent::Json;
using NerioTest::CommandResult;
using NerioTest::lineCount;
using NerioTest::runCommand;
using testing::HasSubstr;

constexpr char const* fewRoutes =
    "# the core\n"
    "default 1\n"
    "10.0.0.0/8 7\n"
    "10.1.2.0/24 9\n"
    "10.1.2.3 4095\n"
    "10.1.2.32/27 77 3\n";

class RoutesCommandTest : public testing::Test {
protected:
    std::string file(std::string const& text, std::string const& name = "routes.txt") {
        contentsOfIs(directory.path(name), text);
        return directory.path(name);
    }
    CommandResult routes(std::string const& text, std::vector<std::string> more = {}) {
        std::vector<std::string> arguments{"routes", file(text), "--switch", kept};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runCommand(arguments);
    }
    Json routesAsJson(std::string const& text) {
        auto const result = routes(text, {"--json"});
        EXPECT_EQ(result.status, 0) << result.errors;
        return Json::parse(result.output);
    }
    CommandResult lookup(std::string const& address, std::vector<std::string> more = {}) {
        std::vector<std::string> arguments{"lookup", address, "--switch", kept};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runCommand(arguments);
    }
    static Json stageOf(Json const& report, U32 number) {
        for (auto const& stage : report["stages"]) {
            if (stage["stage"] == number) return stage;
        }
        return {};
    }

    TemporaryDirectory directory;
    std::string const kept = directory.path("switch");
};

TEST_F(RoutesCommandTest, ReportsEachStageAndWritesNothingTheSecondTime) {
    auto const first = routes(fewRoutes);
    EXPECT_EQ(first.status, 0);
    EXPECT_EQ(first.errors, "") << "no bar where nobody watches";
    auto const table = directory.path("routes.txt") +
                       ": 5 routes\n"
                       "\n"
                       "  stage  lengths      routes    placed   waiting  rows in use     rows      fill\n"
                       "  lpm11  0 to 11           2         2         0         2048     8192   25.00 %\n"
                       "  lpm14  12 to 14          0         0         0            0     2048    0.00 %\n"
                       "  lpm17  15 to 17          0         0         0            0     2048    0.00 %\n"
                       "  lpm20  18 to 20          0         0         0            0     2048    0.00 %\n"
                       "  lpm23  21 to 23          0         0         0            0     2048    0.00 %\n"
                       "  lpm26  24 to 26          1         1         0            1     8192    0.01 %\n"
                       "  lpm29  27 to 29          1         1         0            1     8192    0.01 %\n"
                       "  lpm32  30 to 32          1         1         0            1     8192    0.01 %\n"
                       "  all                      5         5         0         2051    40960    5.01 %\n"
                       "\n";
    EXPECT_THAT(first.output, testing::StartsWith(table));
    // Two processors; rows of two registers in the direct stage, of five in the others.
    EXPECT_THAT(first.output,
                HasSubstr(fmt::format("\n{} registers were written for routes, and {} to bring "
                                      "their stages up; ",
                                      2 * (2 * (2048 + 8) + 3 * 5), 2 * (2 * 8192 + 5 * 32768))));
    EXPECT_EQ(routes(fewRoutes).output, table + "nothing was written: the switch had these routes\n");
}

TEST_F(RoutesCommandTest, TheRoutesOfTheFileAreAllThatThereAre) {
    routes(fewRoutes);
    auto const report = routesAsJson("10.0.0.0/8 8\n10.1.2.3 4095\n");
    EXPECT_EQ(report["routes"], 2);
    EXPECT_EQ(report["startWrites"], 0);
    EXPECT_EQ(stageOf(report, 26)["rowsInUse"], 0);
    EXPECT_EQ(stageOf(report, 11)["rowsInUse"], 8);
    EXPECT_EQ(lookup("10.1.2.4").output,
              "10.1.2.4 in VRF 0: 10.0.0.0/8, next hop 8\n  stage lpm11, way 0, row 80, cell 0\n");
    EXPECT_EQ(lookup("11.1.2.4").status, 1);
    EXPECT_EQ(routesAsJson("").at("routes"), 0);
    EXPECT_EQ(lookup("10.1.2.3").status, 1);
}

TEST_F(RoutesCommandTest, LookupTellsStageRowCellAndRoute) {
    routes(fewRoutes);
    struct Expected {
        char const* address;
        char const* vrf;
        char const* route;
        U32 nexthop;
        U32 stage;
        U32 cell;
    };
    for (auto const& [address, vrf, route, nexthop, stage, cell] :
         {Expected{"10.1.2.3", "0", "10.1.2.3/32", 4095, 32, 3},
          {"10.1.2.2", "0", "10.1.2.0/24", 9, 26, 0},
          {"10.1.2.255", "0", "10.1.2.0/24", 9, 26, 3},
          {"10.1.3.0", "0", "10.0.0.0/8", 7, 11, 0},
          {"255.255.255.255", "0", "0.0.0.0/0", 1, 11, 0},
          {"10.1.2.63", "3", "10.1.2.32/27", 77, 29, 3}}) {
        auto const text = lookup(address, {"--vrf", vrf});
        EXPECT_EQ(text.status, 0);
        EXPECT_EQ(text.errors, "");
        auto const answer = Json::parse(lookup(address, {"--vrf", vrf, "--json"}).output);
        EXPECT_EQ(text.output,
                  fmt::format("{} in VRF {}: {}, next hop {}\n  stage lpm{}, way {}, row {}, cell {}\n",
                              address, vrf, route, nexthop, stage, answer["way"].get<U32>(),
                              answer["row"].get<U32>(), cell));
        EXPECT_EQ(answer["address"], address);
        EXPECT_EQ(answer["found"], true);
        EXPECT_EQ(answer["route"], route);
        EXPECT_EQ(answer["nexthop"], nexthop);
        EXPECT_EQ(answer["stage"], stage);
        EXPECT_EQ(answer["cell"], cell);
        EXPECT_EQ(answer["cpuTrap"], false);
    }
    auto const none = lookup("10.1.2.3", {"--vrf", "1"});
    EXPECT_EQ(none.status, 1);
    EXPECT_EQ(none.output, "10.1.2.3 in VRF 1: no route\n");
    auto const noneAsJson = lookup("10.1.2.3", {"--vrf", "1", "--json"});
    EXPECT_EQ(noneAsJson.status, 1);
    EXPECT_EQ(Json::parse(noneAsJson.output), Json::parse(R"({"address":"10.1.2.3","vrf":1,"found":false})"));
}

TEST_F(RoutesCommandTest, LookupWritesNothing) {
    routes(fewRoutes);
    auto const before = contentsOf(kept + "/chip");
    lookup("10.1.2.3");
    EXPECT_EQ(contentsOf(kept + "/chip"), before) << "not even a hit bit";
    EXPECT_THAT(routes(fewRoutes).output, HasSubstr("nothing was written"));
}

TEST_F(RoutesCommandTest, LookupAnswersWithoutAShadowButDoesNotKnowTheRoute) {
    routes(fewRoutes);
    std::filesystem::remove_all(kept + "/shadow");
    auto const result = lookup("10.1.2.3");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output,
                testing::StartsWith("10.1.2.3 in VRF 0: a route that the shadow does not know, "
                                    "next hop 4095\n  stage lpm32, "));
    EXPECT_TRUE(Json::parse(lookup("10.1.2.3", {"--json"}).output)["route"].is_null());
}

TEST_F(RoutesCommandTest, WhatLookupCannotTakeIsRefused) {
    routes(fewRoutes);
    for (auto const& [arguments, errors] :
         {std::pair<std::vector<std::string>, std::string>{{"10.1.2", "--switch", kept},
                                                           "nerio lookup: \"10.1.2\" is no IPv4 address\n"},
          {{"10.1.2.3.4", "--switch", kept}, "nerio lookup: \"10.1.2.3.4\" is no IPv4 address\n"},
          {{"10.1.2.3", "--switch", kept, "--vrf", "4"}, "nerio lookup: VRF 4 is above 3\n"},
          {{"10.1.2.3", "--switch", directory.path("none")},
           "nerio lookup: " + directory.path("none") + ": no switch is kept there\n"},
          {{"10.1.2.3"}, "nerio: --switch is required; nerio --help says more\n"}}) {
        auto all = arguments;
        all.insert(all.begin(), "lookup");
        auto const result = runCommand(all);
        EXPECT_EQ(result.status, 2) << result.errors;
        EXPECT_EQ(result.errors, errors);
        EXPECT_EQ(result.output, "");
    }
}

TEST_F(RoutesCommandTest, BadLinesAreRefusedAllTogetherBeforeAnythingIsMade) {
    auto const result = routes("10.0.0.0/8 1\n10.0.0.1/8\n11.0.0.0/8 1 4\n");
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output, "");
    auto const path = directory.path("routes.txt");
    EXPECT_EQ(result.errors, "nerio routes: " + path +
                                 ": line 2: \"10.0.0.1/8\" has bits set beyond its length\n" +
                                 "nerio routes: " + path + ": line 3: VRF 4 is above 3\n");
    EXPECT_FALSE(std::filesystem::exists(kept));
}

TEST_F(RoutesCommandTest, BadLinesAreSkippedWhenTold) {
    auto const result = routes("10.0.0.0/8 1\n10.0.0.1/8\n", {"--skip-bad"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(lineCount(result.errors), 1);
    EXPECT_THAT(result.output, HasSubstr(": 1 routes, 1 skipped\n"));
    EXPECT_EQ(lookup("10.0.0.1").status, 0);
}

TEST_F(RoutesCommandTest, OfManyBadLinesTheFirstAreNamed) {
    std::string text;
    for (int i = 0; i < 30; ++i)
        text += "no prefix\n";
    auto const result = routes(text);
    EXPECT_EQ(lineCount(result.errors), 21);
    EXPECT_THAT(result.errors, testing::EndsWith(": 10 more are no routes\n"));
}

TEST_F(RoutesCommandTest, FilesThatCannotBeReadAreRefused) {
    auto const missing = runCommand({"routes", directory.path("none"), "--switch", kept});
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.errors, "nerio routes: " + directory.path("none") + ": No such file or directory\n");
    auto const broken = routes("[{\"dst\":\n]");
    EXPECT_EQ(broken.status, 2);
    EXPECT_EQ(broken.errors,
              "nerio routes: " + directory.path("routes.txt") +
                  ": line 2, column 1: not JSON: unexpected ']'; expected '[', '{', or a literal\n");
}

TEST_F(RoutesCommandTest, RoutesOfOtherProgramsAreTakenAndTheirNextHopsNumbered) {
    auto const ip = routesAsJson(R"([{"dst":"default","gateway":"192.0.2.1","dev":"eth0"},
                                     {"dst":"10.0.0.0/8","dev":"eth1"},{"dst":"fe80::/64","dev":"eth1"}])");
    EXPECT_EQ(ip["placed"], 2);
    EXPECT_EQ(ip["passedOver"], 1);
    EXPECT_EQ(ip["nexthops"],
              Json::parse(R"([{"name":"192.0.2.1 eth0","number":0},{"name":"eth1","number":1}])"));
    EXPECT_THAT(lookup("10.1.1.1").output, HasSubstr("10.0.0.0/8, next hop 1\n"));
    auto const daemon =
        routesAsJson(R"({"10.0.0.0/8":[{"selected":true,"nexthops":[{"ip":"192.0.2.1","active":true}]}]})");
    EXPECT_EQ(daemon["placed"], 1);
    EXPECT_THAT(lookup("10.1.1.1").output, HasSubstr("10.0.0.0/8, next hop 0\n"));
}

TEST_F(RoutesCommandTest, CapacityTellsTheSameWithoutASwitch) {
    std::string text;
    for (U32 i = 0; i < 9000; ++i)
        text += fmt::format("{}.{}.{}.0/24 7\n", 20 + i * 37 % 200, i & 255, i >> 8);
    auto const path = file(text);
    auto const report = Json::parse(runCommand({"capacity", path, "--json", "--waiting"}).output);
    EXPECT_EQ(report["routes"], 9000);
    auto const waiting = report["waiting"].get<U64>();
    EXPECT_GE(waiting, 9000u - 8192) << "there are 8192 rows";
    EXPECT_EQ(report["placed"], 9000 - waiting);
    EXPECT_EQ(report["waitingRoutes"].size(), waiting);
    EXPECT_EQ(stageOf(report, 26)["rowsInUse"], 9000 - waiting);
    auto const text1 = runCommand({"capacity", path, "--waiting"});
    EXPECT_EQ(text1.status, 0) << "a full stage is no failure";
    EXPECT_THAT(text1.output,
                HasSubstr(fmt::format(
                    "\n{} routes wait for room; packets to them take the next shorter route\n", waiting)));
    auto const first = report["waitingRoutes"][0]["prefix"].get<std::string>();
    EXPECT_THAT(text1.output, HasSubstr("\nwaiting: " + first + " in VRF 0\n"));
    auto const kepts = routesAsJson(text);
    EXPECT_EQ(kepts["stages"], report["stages"]);
    auto const address = first.substr(0, first.find('/'));
    EXPECT_EQ(lookup(address).status, 1) << "it has no room, and there is no shorter one";
}

TEST_F(RoutesCommandTest, CapacityIsOfTheSwitchOfAStateFile) {
    auto const state = file(R"({"profile":{"numVrfs":8},"tables":[]})", "state.json");
    auto const path = file("10.0.0.0/8 1 7\n");
    EXPECT_EQ(runCommand({"capacity", path}).status, 2) << "there are 4 VRFs";
    auto const report = Json::parse(runCommand({"capacity", path, "--state", state, "--json"}).output);
    EXPECT_EQ(stageOf(report, 11)["rows"], 8 * 2048);
    auto const bad = file(R"({"profile":{"numVrfs":16},"tables":[]})", "bad.json");
    auto const refused = runCommand({"capacity", path, "--state", bad});
    EXPECT_EQ(refused.status, 2);
    EXPECT_EQ(refused.errors,
              "nerio capacity: " + path + ": routes take 4, 8 or 32 VRFs; the profile has 16\n");
}

TEST_F(RoutesCommandTest, RunProgramsTheRoutesOfAStateFile) {
    auto const state = file(R"({"tables":[],"routes":[
        {"vrf":1,"prefix":"10.0.0.0/8","nexthop":7},{"vrf":1,"prefix":"10.1.0.0/16","nexthop":8}]})",
                            "state.json");
    auto const result = runCommand({"run", state, "--switch", kept});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_THAT(result.output, HasSubstr("\nroutes: 2 of 2 placed in 9 rows, "));
    EXPECT_THAT(result.output, HasSubstr("\nroutes: 2 of 2 in place in 9 rows, 0 register writes, "));
    EXPECT_THAT(result.output, HasSubstr("agree on all 81920 rows; the warm restart wrote nothing\n"));
    EXPECT_THAT(lookup("10.1.2.3", {"--vrf", "1"}).output, HasSubstr(": 10.1.0.0/16, next hop 8\n"));
    EXPECT_THAT(lookup("10.2.2.3", {"--vrf", "1"}).output, HasSubstr(": 10.0.0.0/8, next hop 7\n"));
    auto const same = routes("10.0.0.0/8 7 1\n10.1.0.0/16 8 1\n");
    EXPECT_THAT(same.output, HasSubstr("nothing was written"));
    auto const report = Json::parse(runCommand({"run", state, "--json"}).output);
    EXPECT_EQ(report["differences"], 0);
    EXPECT_EQ(report["routes"]["cold"]["placed"], 2);
    EXPECT_EQ(report["routes"]["warm"]["registerWrites"], 0);
    EXPECT_EQ(report["routes"]["warm"]["startWrites"], 0);
    EXPECT_FALSE(Json::parse(runCommand({"run", file(R"({"tables":[]})", "none.json"), "--json"}).output)
                     .contains("routes"));
}

TEST_F(RoutesCommandTest, RoutesThatAStateFileCannotHaveAreRefused) {
    for (
        auto const& [text, errors] :
        {std::pair{R"({"tables":[],"routes":{}})", "/routes: routes: expected an array, found an object\n"},
         {R"({"tables":[],"routes":[{"nexthop":7}]})", "/routes/0: \"prefix\" is missing\n"},
         {R"({"tables":[],"routes":[{"prefix":"10.0.0.0/8"}]})", "/routes/0: \"nexthop\" is missing\n"},
         {R"({"tables":[],"routes":[{"prefix":"10.0.0.0/8","nexthop":7,"via":1}]})",
          "/routes/0/via: unknown member \"via\"\n"},
         {R"({"tables":[],"routes":[{"prefix":"10.0.0.1/8","nexthop":7}]})",
          "/routes/0/prefix: Lanvo::Prefix::validAsPrefix != true not allowed\n"},
         {R"({"tables":[],"routes":[{"prefix":"10.0.0.0/8","nexthop":7},{"prefix":"10.0.0.0/9","nexthop":4096}]})",
          "/routes/1: NerioSwitchTable::EntryCellResult::nexthopIndexes > "
          "NerioSwitchTable::EntryCellResult::maxNexthop not allowed\n"},
         {R"({"profile":{"numVrfs":16},"tables":[],"routes":[{"prefix":"10.0.0.0/8","nexthop":7}]})",
          "/routes/0: routes take 4, 8 or 32 VRFs; the profile has 16\n"},
         {R"({"tables":[{"family":"lpm29","name":"lpm29"}],"routes":[]})",
          "/routes: routes: the table \"lpm29\" belongs to them\n"}}) {
        auto const state = file(text, "state.json");
        auto const result = runCommand({"run", state, "--switch", kept});
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, "nerio run: " + state + ": " + errors);
    }
    EXPECT_FALSE(std::filesystem::exists(kept));
}

}  // namespace
