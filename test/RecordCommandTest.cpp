#include <fmt/format.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

#include "CommandProcess.h"
#include "TemporaryDirectory.h"
#include "agent/Json.h"
#include "agent/StateFile.h"
#include "nerio/ProgrammedSwitch.h"
#include "nerio/Recorder.h"

/* `nerio record`: every call of a run as a script, which writes the same registers when it is played back. */
namespace {

using Agent::Json;
using Nerio::Recorder;
using NerioTest::lineCount;
using NerioTest::runCommand;
using testing::HasSubstr;

std::string lastLine(std::string const& text) {
    auto const end = text.find_last_not_of('\n');
    auto const begin = text.rfind('\n', end);
    return text.substr(begin + 1, end - begin);
}

/** A few routes whose groups change while they are programmed. */
constexpr char const* routedState = R"({
  "profile": {"preset": "api7"},
  "tables": [{"family": "portConfig", "name": "the \"ports\"",
              "entries": [{"key": {"portId": 1}, "result": {"portMode": "trunk"}}]}],
  "routes": [{"vrf": 0, "prefix": "10.0.0.0/8", "nexthop": 1}, {"vrf": 1, "prefix": "10.1.0.0/16", "nexthop": 2},
             {"vrf": 0, "prefix": "10.1.2.0/23", "nexthop": 3}, {"vrf": 0, "prefix": "10.1.2.0/24", "nexthop": 4},
             {"vrf": 0, "prefix": "10.1.2.0/24", "nexthop": 5}, {"vrf": 7, "prefix": "10.1.2.3/32", "nexthop": 6},
             {"vrf": 0, "prefix": "10.64.0.0/10", "nexthop": 7}]
})";

class RecordCommandTest : public testing::Test {
protected:
    std::string stateFile(std::string const& text) {
        contentsOfIs(directory.path("state.json"), text);
        return directory.path("state.json");
    }
    /** What a run of the state writes, as a recorder hears it. */
    static Json writesOf(Agent::StateFile const& file) {
        Recorder recorder(*file.profile);
        Nerio::ProgrammedSwitch programmed({file, {}}, {}, NerioSwitchApi::StartMode::cold,
                                           {.observer = &recorder});
        auto const counted = programmed.registerWrites();
        programmed.target().takeWrites();
        EXPECT_GE(recorder.writes().size(), counted);
        EXPECT_GT(counted, 0u);
        return Json(recorder.writes());
    }
    /** Plays a script back in a process of its own, and holds what it writes against that. */
    void expectWrites(Json const& writes) {
        std::ofstream(directory.path("run.script"), std::ios::app) << "{\"op\":\"registers\"}\n";
        auto const result = runCommand({"script", directory.path("run.script")});
        EXPECT_EQ(result.status, 0);
        auto const answer = Json::parse(lastLine(result.output));
        ASSERT_EQ(answer["writes"].size(), writes.size());
        EXPECT_TRUE(answer["writes"] == writes);
    }
    TemporaryDirectory directory;
};

TEST_F(RecordCommandTest, TheCampusSwitchPlaysBack) {
    auto const place = directory.path("switch");
    ASSERT_EQ(runCommand({"run", "--switch", place}).status, 0);
    auto const campus = Nerio::requiredState(place).wanted;
    auto const result = runCommand({"record", "-o", directory.path("run.script")});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(lineCount(result.output), 1);
    auto const script = contentsOf(directory.path("run.script"));
    EXPECT_THAT(result.output, HasSubstr(fmt::format("{} lines, which write ", lineCount(script))));
    EXPECT_THAT(script, HasSubstr(R"({"op":"table","family":"natRewrite")"));
    EXPECT_THAT(script, HasSubstr(R"({"op":"table","family":"sG")"));
    expectWrites(writesOf(campus));
}

TEST_F(RecordCommandTest, RoutesPlayBackWithTheTablesOfTheirAgents) {
    auto const file = stateFile(routedState);
    auto const result = runCommand({"record", file, "--output", directory.path("run.script"), "--check"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_THAT(result.output, HasSubstr("; played back, they did\n"));
    EXPECT_THAT(contentsOf(directory.path("run.script")), HasSubstr(R"("table":"lpm23","key":)"));
    expectWrites(writesOf(Agent::readStateFile(file)));
}

TEST_F(RecordCommandTest, AScriptIsPrintedOnStandardOutput) {
    auto const file = stateFile(routedState);
    auto const result = runCommand({"record", file, "-o", "-"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(lineCount(result.errors), 1);
    std::istringstream lines(result.output);
    std::string line;
    std::vector<std::string> operations;
    while (std::getline(lines, line))
        operations.push_back(Json::parse(line)["op"].get<std::string>());
    ASSERT_GT(operations.size(), 10u);
    EXPECT_THAT(std::vector<std::string>(operations.begin(), operations.begin() + 4),
                testing::ElementsAre("profile", "table", "entryIs", "start"));
}

TEST_F(RecordCommandTest, WhatCannotBeReadOrWrittenIsNamed) {
    auto const bad = stateFile(R"({"tables":[{"family":"frob","name":"a","entries":[]}]})");
    auto const refused = runCommand({"record", bad, "-o", directory.path("run.script")});
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.errors, HasSubstr("nerio record: " + bad + ": /tables/0/family: "));
    EXPECT_FALSE(std::filesystem::exists(directory.path("run.script")));
    auto const nowhere = directory.path("none/run.script");
    auto const failed = runCommand({"record", stateFile(routedState), "-o", nowhere});
    EXPECT_EQ(failed.status, 1);
    EXPECT_EQ(failed.errors, "nerio record: " + nowhere + ": cannot be written: No such file or directory\n");
}

}  // namespace
