// A kept switch in the hands of an operator: apply, diff, dump, verify, and being stopped in between.
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "BuildUnderTest.h"
#include "CommandProcess.h"
#include "TemporaryDirectory.h"
#include "agent/StateFile.h"
#include "chip/SimulatedChip.h"

namespace {

using Agent::Json;
using NerioTest::CommandProcess;
using NerioTest::CommandResult;
using NerioTest::lineCount;
using NerioTest::runCommand;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

Json smallState() {
    return Json::parse(R"({
        "profile": {"numPorts": 8, "layouts": {"l3": {"processors": 1}}},
        "tables": [{"family": "portConfig", "name": "modes",
                    "entries": [{"key": {"portId": 1}, "result": {"portMode": "trunk"}},
                                {"key": {"portId": 2}, "result": {"txDisabled": true}}]},
                   {"family": "hashTest", "name": "numbers",
                    "entries": [{"key": 13, "result": 4}, {"key": "0x11", "result": 5}]}],
        "routes": [{"prefix": "10.0.0.0/8", "nexthop": 7}, {"vrf": 1, "prefix": "10.1.0.0/16", "nexthop": 8}],
        "vlans": {"20": {"ports": "1-4", "untagged": "1"}},
        "portChannels": {"3": "5,6"},
        "stormLimits": {"1-3": {"broadcast": "1 Mbps"}}})");
}

class ApplyCommandTest : public testing::Test {
protected:
    std::string file(std::string const& name, std::string const& text) {
        contentsOfIs(directory.path(name), text);
        return directory.path(name);
    }
    std::string stateFile(Json const& state, std::string const& name = "wanted.json") {
        return file(name, state.dump());
    }
    CommandResult apply(Json const& state) {
        return runCommand({"apply", stateFile(state), "--switch", place});
    }
    void applied(Json const& state) {
        auto const result = apply(state);
        ASSERT_EQ(result.status, 0) << result.errors;
    }
    /** What the chip of a kept switch works by. */
    static std::vector<U32> chipOf(std::string const& kept) {
        auto const state = Agent::readStateFile(kept + "/state.json");
        return Chip::simulatedChip(*state.profile, kept + "/chip")->state();
    }
    /** A switch that got this state and never had another. */
    std::vector<U32> freshChip(Json const& state) {
        auto const fresh = directory.path(fmt::format("fresh{}", ++freshOnes));
        auto const result = runCommand({"apply", stateFile(state, "fresh.json"), "--switch", fresh});
        EXPECT_EQ(result.status, 0) << result.errors;
        return chipOf(fresh);
    }
    void expectAgreement() {
        auto const result = runCommand({"verify", "--switch", place});
        EXPECT_EQ(result.status, 0) << result.output;
        EXPECT_THAT(result.output, StartsWith("software, shadow and chip agree on all "));
    }

    TemporaryDirectory directory;
    std::string const place = directory.path("switch");
    int freshOnes = 0;
};

TEST_F(ApplyCommandTest, AFreshSwitchGetsAllOfIt) {
    auto const result = apply(smallState());
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(result.output, StartsWith("11 changes, "));
    EXPECT_THAT(result.output, HasSubstr("\nsoftware, shadow and chip agree on all "));
    expectAgreement();
}

TEST_F(ApplyCommandTest, OnlyWhatDiffersIsWritten) {
    // Limiters get their entries at every start.
    auto state = smallState();
    state.erase("stormLimits");
    applied(state);
    auto const nothing = apply(state);
    EXPECT_THAT(nothing.output, StartsWith("0 changes, "));
    auto const owed =
        Json::parse(runCommand({"apply", stateFile(state), "--switch", place, "--json"}).output);
    state["tables"][0]["entries"][0]["result"]["portMode"] = "qinq";
    state["routes"][1]["nexthop"] = 9;
    auto const changed =
        Json::parse(runCommand({"apply", stateFile(state), "--switch", place, "--json"}).output);
    EXPECT_EQ(changed["changes"].size(), 2u);
    EXPECT_EQ(changed["differences"], 0);
    // A register of a port, and a row of a stage; what a start owes is owed each time.
    EXPECT_GE(changed["registerWrites"].get<U64>(), owed["registerWrites"].get<U64>() + 2);
    EXPECT_LE(changed["registerWrites"].get<U64>(), owed["registerWrites"].get<U64>() + 12);
    EXPECT_TRUE(chipOf(place) == freshChip(state));
}

TEST_F(ApplyCommandTest, WhatTheStateLeavesOutGoes) {
    applied(smallState());
    auto const without = [&](char const* part) {
        auto state = smallState();
        state.erase(part);
        if (std::string(part) == "tables") state["tables"] = Json::array();
        return state;
    };
    for (auto const* part : {"tables", "routes", "vlans", "portChannels", "stormLimits"}) {
        SCOPED_TRACE(part);
        applied(without(part));
        expectAgreement();
        auto const kept = Json::parse(runCommand({"dump", "--switch", place}).output);
        EXPECT_EQ(kept.value(part, Json::array()).size(), 0u);
        applied(smallState());
    }
    auto state = smallState();
    state["tables"][1]["entries"].erase(0);
    applied(state);
    EXPECT_TRUE(chipOf(place) == freshChip(state)) << "an entry of a table";
    applied(without("routes"));
    auto const lookup = runCommand({"lookup", "10.1.2.3", "--vrf", "1", "--switch", place});
    EXPECT_EQ(lookup.output, "10.1.2.3 in VRF 1: no route\n");
}

TEST_F(ApplyCommandTest, ADryRunSaysWhatWouldChangeAndChangesNothing) {
    applied(smallState());
    auto const before = chipOf(place);
    auto state = smallState();
    state["tables"][0]["entries"][1]["result"]["l2ForwardingDisabled"] = true;
    state["tables"][1]["entries"].erase(1);
    state["routes"].push_back({{"prefix", "192.168.0.0/16"}, {"nexthop", 3}});
    state["vlans"]["20"]["ports"] = "1-5";
    state["portChannels"].erase("3");
    auto const result = runCommand({"apply", stateFile(state), "--switch", place, "--dry-run"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_THAT(result.output,
                HasSubstr("~ table modes {\"portId\":2}: l2ForwardingDisabled false -> true\n"));
    EXPECT_THAT(result.output, HasSubstr("- table numbers 17: 5\n"));
    EXPECT_THAT(result.output, HasSubstr("~ vlans 20: ports \"1-4\" -> \"1-5\"\n"));
    EXPECT_THAT(result.output, HasSubstr("- portChannels 3: \"5-6\"\n"));
    EXPECT_THAT(result.output,
                HasSubstr("+ routes {\"vrf\":0,\"prefix\":\"192.168.0.0/16\"}: {\"nexthop\":3}\n"));
    EXPECT_THAT(result.output, HasSubstr("5 changes to make, "));
    EXPECT_THAT(result.output, EndsWith(" registers to be written\n"));
    EXPECT_TRUE(chipOf(place) == before);
    EXPECT_EQ(runCommand({"diff", stateFile(smallState()), place}).output, "");
    // On a switch that is not there, nothing is made.
    auto const nowhere = directory.path("nowhere");
    EXPECT_EQ(runCommand({"apply", stateFile(state), "--switch", nowhere, "--dry-run"}).status, 0);
    EXPECT_FALSE(std::filesystem::exists(nowhere));
}

TEST_F(ApplyCommandTest, ABadStateLeavesTheSwitchAsItIs) {
    applied(smallState());
    auto const before = chipOf(place);
    auto state = smallState();
    state["tables"][0]["entries"][0]["result"]["portMode"] = "qinq";
    state["tables"][1]["entries"][0]["key"] = "x";
    auto const wrong = stateFile(state, "wrong.json");
    auto const result = runCommand({"apply", wrong, "--switch", place});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors, StartsWith("nerio apply: " + wrong + ": /tables/1/entries/0/key: "));
    EXPECT_EQ(lineCount(result.errors), 1);
    auto other = smallState();
    other["profile"]["numVrfs"] = 8;
    auto const otherFile = stateFile(other, "other.json");
    EXPECT_EQ(runCommand({"apply", otherFile, "--switch", place}).errors,
              "nerio apply: " + otherFile + ": /profile: it is not that of the switch in " + place + "\n");
    EXPECT_TRUE(chipOf(place) == before);
    EXPECT_EQ(runCommand({"diff", stateFile(smallState()), place}).status, 0);
}

TEST_F(ApplyCommandTest, ASwitchInUseIsRefusedAndMayBeLookedAt) {
    applied(smallState());
    CommandProcess holder({"script", "--switch", place});
    holder.write(R"({"op":"profile","numPorts":8,"layouts":{"l3":{"processors":1}}}
{"op":"table","family":"portConfig","name":"modes"}
{"op":"start","mode":"warm"}
)");
    for (int i = 0; i < 3; ++i)
        ASSERT_THAT(holder.readLine(), HasSubstr("\"ok\":true"));
    auto state = smallState();
    state["routes"].erase(0);
    auto const result = apply(state);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(lineCount(result.errors), 1);
    EXPECT_THAT(result.errors, HasSubstr(" is held by process " + std::to_string(holder.process())));
    expectAgreement();
    EXPECT_EQ(runCommand({"diff", stateFile(smallState()), place}).output, "");
    EXPECT_EQ(runCommand({"apply", stateFile(state), "--switch", place, "--dry-run"}).status, 0);
    EXPECT_THAT(runCommand({"verify", "--switch", place, "--repair"}).output, StartsWith("software, shadow"));
}

TEST_F(ApplyCommandTest, ADumpIsTakenBackUnchanged) {
    applied(smallState());
    auto const dump = runCommand({"dump", "--switch", place});
    ASSERT_EQ(dump.status, 0) << dump.errors;
    auto const again = directory.path("again");
    auto const result = runCommand({"apply", file("dump.json", dump.output), "--switch", again});
    ASSERT_EQ(result.status, 0) << result.errors;
    EXPECT_TRUE(chipOf(again) == chipOf(place));
    EXPECT_EQ(runCommand({"dump", "--switch", again}).output, dump.output);
    EXPECT_THAT(runCommand({"apply", "-", "--switch", place}, dump.output).output, StartsWith("0 changes, "));
}

TEST_F(ApplyCommandTest, TheCampusSwitchIsDumpedAndAppliedWhole) {
    ASSERT_EQ(runCommand({"run", "--switch", place}).status, 0);
    auto const again = directory.path("again");
    auto const dump = runCommand({"dump", "--switch", place}).output;
    auto const result = runCommand({"apply", file("dump.json", dump), "--switch", again});
    ASSERT_EQ(result.status, 0) << result.errors;
    EXPECT_TRUE(chipOf(again) == chipOf(place));
    EXPECT_EQ(runCommand({"diff", place, again}).output, "");
}

TEST_F(ApplyCommandTest, DiffTellsStatesApartWhicheverWayTheyAreWritten) {
    auto const one = stateFile(smallState());
    auto state = smallState();
    state["tables"][1]["entries"][1]["key"] = 17;
    state["tables"][0]["entries"][0]["key"] = {{"portId", "0x1"}};
    std::swap(state["routes"][0], state["routes"][1]);
    state["stormLimits"] = {{"1", {{"broadcast", "1 Mbps"}}}, {"2-3", {{"broadcast", "1 Mbps"}}}};
    auto const alike = stateFile(state, "alike.json");
    EXPECT_EQ(runCommand({"diff", one, alike}).output, "");
    EXPECT_EQ(runCommand({"diff", one, alike}).status, 0);
    state["stormLimits"]["1"]["broadcast"] = "2 Mbps";
    state["tables"].erase(0);
    auto const result = runCommand({"diff", one, stateFile(state, "alike.json"), "--json"});
    EXPECT_EQ(result.status, 1);
    std::set<std::string> parts;
    for (auto const& difference : Json::parse(result.output))
        parts.insert(difference["part"].get<std::string>());
    EXPECT_EQ(parts, (std::set<std::string>{"table modes", "stormLimits"}));
    auto const none = directory.path("none");
    EXPECT_EQ(runCommand({"diff", one, none}).errors,
              "nerio diff: " + none + ": No such file or directory\n");
    EXPECT_EQ(runCommand({"diff", one, directory.path()}).errors,
              "nerio diff: " + directory.path() + ": no switch is kept there\n");
}

TEST_F(ApplyCommandTest, RoutesOfAListAreKeptWithTheState) {
    applied(smallState());
    auto const list = file("list.txt", "10.2.0.0/16 5 2\n0.0.0.0/0 1\n");
    ASSERT_EQ(runCommand({"routes", list, "--switch", place}).status, 0);
    expectAgreement();
    auto const kept = Json::parse(runCommand({"dump", "--switch", place}).output);
    EXPECT_EQ(kept["routes"], Json::parse(R"([{"vrf":2,"prefix":"10.2.0.0/16","nexthop":5},
                                              {"vrf":0,"prefix":"0.0.0.0/0","nexthop":1}])"));
    EXPECT_EQ(kept["vlans"].size(), 1u);
}

/** A word of a file, which is a chip's. */
void flipIn(std::string const& path, std::size_t word) {
    std::fstream stream(path, std::ios::binary | std::ios::in | std::ios::out);
    auto const size = std::filesystem::file_size(path);
    auto const at = static_cast<std::streamoff>(size - 4 * (word + 1));
    char byte = 0;
    stream.seekg(at);
    stream.get(byte);
    stream.seekp(at);
    stream.put(static_cast<char>(byte ^ 4));
}

TEST_F(ApplyCommandTest, VerifyFindsWhatTheChipLostAndRepairsIt) {
    applied(smallState());
    auto const before = chipOf(place);
    // What a handful of words at the end of the chip's memory are, the rows say.
    for (std::size_t word = 0; word < 40; word += 13)
        flipIn(place + "/chip", word);
    ASSERT_FALSE(chipOf(place) == before);
    auto const found = runCommand({"verify", "--switch", place});
    EXPECT_EQ(found.status, 1);
    EXPECT_THAT(found.output, HasSubstr(" rows differ\n"));
    EXPECT_THAT(found.output, HasSubstr("the shadow holds 0x"));
    auto const json = Json::parse(runCommand({"verify", "--switch", place, "--json"}).output);
    EXPECT_EQ(json["differences"].size() + 1, static_cast<std::size_t>(lineCount(found.output)));
    auto const repaired = runCommand({"verify", "--switch", place, "--repair"});
    EXPECT_EQ(repaired.status, 0) << repaired.output;
    EXPECT_THAT(repaired.output, EndsWith(" registers were written, and all rows agree\n"));
    EXPECT_TRUE(chipOf(place) == before);
    expectAgreement();
}

TEST_F(ApplyCommandTest, VerifyFindsDamageOfTheShadow) {
    applied(smallState());
    for (auto const& entry : std::filesystem::directory_iterator(place + "/shadow")) {
        if (entry.path().filename().string().find("PortConfig") != std::string::npos)
            flipIn(entry.path().string(), 9);
    }
    auto const found = runCommand({"verify", "--switch", place});
    EXPECT_EQ(found.status, 1);
    EXPECT_THAT(found.output, HasSubstr(" is corrupt: "));
    EXPECT_EQ(runCommand({"verify", "--switch", place, "--repair"}).status, 0);
    expectAgreement();
}

TEST_F(ApplyCommandTest, WhereNoSwitchIsKeptNothingIsMade) {
    auto const nowhere = directory.path("nowhere");
    for (std::string const command : {"verify", "dump"}) {
        auto const result = runCommand({command, "--switch", nowhere});
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.errors, "nerio " + command + ": " + nowhere + ": no switch is kept there\n");
    }
    EXPECT_FALSE(std::filesystem::exists(nowhere));
}

TEST_F(ApplyCommandTest, AFullDiskLosesNothing) {
    applied(smallState());
    auto const before = runCommand({"dump", "--switch", place}).output;
    // A process that may write files of 20 blocks of 512 bytes at most finds no room for the list of routes.
    std::string list;
    for (int i = 0; i < 5000; ++i)
        list += fmt::format("10.{}.{}.0/24 7\n", i / 250, i % 250);
    auto const command = fmt::format("trap '' XFSZ; ulimit -f 20; exec {} routes {} --switch {}",
                                     NerioTest::nerioCommand, file("list.txt", list), place);
    auto const errors = directory.path("errors");
    auto const status = std::system(fmt::format("sh -c \"{}\" >/dev/null 2>{}", command, errors).c_str());
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_EQ(contentsOf(errors),
              fmt::format("nerio routes: {}/next1/routes.txt: cannot be written: File too large\n", place));
    EXPECT_EQ(runCommand({"dump", "--switch", place}).output, before);
    expectAgreement();
}

TEST_F(ApplyCommandTest, AReaderThatHasGoneIsALineAndAFailure) {
    auto const errors = directory.path("errors");
    auto const command = fmt::format("( {} run --json; echo $? >&3 ) 3>{} 2>{} | true",
                                     NerioTest::nerioCommand, directory.path("status"), errors);
    ASSERT_EQ(std::system(command.c_str()), 0);
    EXPECT_EQ(contentsOf(directory.path("status")), "1\n");
    EXPECT_EQ(contentsOf(errors), "nerio: cannot write to standard output\n");
}

TEST_F(ApplyCommandTest, ACommandThatIsInterruptedLeavesASwitchThatStartsWarm) {
    applied(smallState());
    std::string list;
    for (int i = 0; i < 60000; ++i)
        list += fmt::format("{}.{}.{}.0/24 {}\n", 20 + i / 62500, i / 250 % 250, i % 250, 100 + i % 50);
    auto const path = file("list.txt", list);
    // Before it does anything, and when the change has begun.
    for (auto const* sign : {"/state.json", "/next1/routes.txt", "/next1/state.json"}) {
        SCOPED_TRACE(sign);
        CommandProcess command({"routes", path, "--switch", place});
        while (!std::filesystem::exists(place + sign))
            std::this_thread::yield();
        ::kill(command.process(), SIGINT);
        EXPECT_EQ(command.ended(), -SIGINT);
        // At its very beginning a process has nothing to say.
        auto const errors = command.errors();
        EXPECT_THAT(errors, testing::AnyOf("", StartsWith("nerio: interrupted")));
        applied(smallState());
        expectAgreement();
        EXPECT_TRUE(chipOf(place) == freshChip(smallState()));
    }
    EXPECT_FALSE(std::filesystem::exists(place + "/next1"));
}

TEST_F(ApplyCommandTest, ChangesThatWereStoppedOneAfterTheOtherAreAllTakenBack) {
    applied(smallState());
    // As two processes leave it that were stopped before they were done.
    std::filesystem::create_directory(place + "/next1");
    std::filesystem::create_directory(place + "/next2");
    auto state = smallState();
    state["tables"].push_back(Json::parse(
        R"({"family":"protocolRemap","name":"more","entries":[{"key":{"value":7},"result":{}}]})"));
    state.erase("routes");
    contentsOfIs(place + "/next1/state.json", state.dump());
    state["tables"].erase(2);
    state["translations"] = Json::array();
    contentsOfIs(place + "/next2/state.json", state.dump());
    contentsOfIs(place + "/next2/routes.txt", "10.9.0.0/16 4\n");
    auto const kept = Json::parse(runCommand({"dump", "--switch", place}).output);
    EXPECT_EQ(kept["routes"], Json::parse(R"([{"vrf":0,"prefix":"10.9.0.0/16","nexthop":4}])"));
    applied(smallState());
    expectAgreement();
    EXPECT_FALSE(std::filesystem::exists(place + "/next1"));
    EXPECT_FALSE(std::filesystem::exists(place + "/next2"));
    EXPECT_FALSE(std::filesystem::exists(place + "/next3"));
    EXPECT_EQ(runCommand({"diff", stateFile(smallState()), place}).output, "");
}

}  // namespace
