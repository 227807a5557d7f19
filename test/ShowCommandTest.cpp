#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BuildUnderTest.h"
#include "CommandProcess.h"
#include "TemporaryDirectory.h"
#include "agent/Json.h"
#include "nerio/SwitchLook.h"

/* `nerio show` and `nerio watch`: what people see of a kept switch. */
namespace {

using Agent::Json;
using NerioTest::CommandProcess;
using NerioTest::lineCount;
using NerioTest::runCommand;
using testing::HasSubstr;
using testing::MatchesRegex;

/** Keys 17, 81 and 145 have two rows between them; 13 stands alone. Port 2 says what goes without saying. */
constexpr char const* crowdedState = R"({
  "profile": {"numPorts": 8},
  "tables": [
    {"family": "portConfig", "name": "ports",
     "entries": [{"key": {"portId": 5}, "result": {"portMode": "trunk"}},
                 {"key": {"portId": 1}, "result": {"txDisabled": true}}]},
    {"family": "l3Lag", "name": "lags",
     "entries": [{"key": 7, "result": {}}, {"key": 3, "result": {}}]},
    {"family": "hashTest", "name": "crowded",
     "entries": [{"key": 17, "result": 1}, {"key": 81, "result": 2}, {"key": 145, "result": 3},
                 {"key": 13, "result": 4}]}]
})";

std::string withPorts(std::string const& entries) {
    return R"({"profile":{"numPorts":8},"tables":[{"family":"portConfig","name":"ports","entries":[)" +
           entries + "]}]}";
}

/** A table of 16 rows, which 64 keys fill. */
std::string hashOf(int keys) {
    std::string entries;
    for (int key = 0; key < keys; ++key)
        entries += fmt::format(R"({}{{"key": {}, "result": 1}})", key == 0 ? "" : ",", key);
    return R"({"profile":{"numPorts":8},"tables":[{"family":"hashTest","name":"keys","entries":[)" + entries +
           "]}]}";
}

class KeptSwitchTest : public testing::Test {
protected:
    std::string stateFile(std::string const& text) {
        contentsOfIs(directory.path("state.json"), text);
        return directory.path("state.json");
    }
    void applyState(std::string const& text) {
        auto const result = runCommand({"apply", stateFile(text), "--switch", place});
        ASSERT_EQ(result.status, 0) << result.errors;
    }
    /** What `nerio show` says in JSON. */
    Json shown(std::vector<std::string> arguments = {}) {
        arguments.insert(arguments.begin(), "show");
        arguments.insert(arguments.end(), {"--switch", place, "--json"});
        auto const result = runCommand(arguments);
        EXPECT_EQ(result.status, 0) << result.errors;
        return Json::parse(result.output);
    }

    /** A packet hits the one entry of a table. */
    void hit(std::string const& table, std::string const& family) {
        auto const row = shown({table})["entries"].at(0).at("location");
        CommandProcess other({"script", "--switch", place});
        other.write(
            fmt::format("{{\"op\":\"profile\",\"numPorts\":8}}\n"
                        "{{\"op\":\"table\",\"family\":\"{0}\",\"name\":\"{1}\"}}\n"
                        "{{\"op\":\"start\",\"mode\":\"warm\"}}\n"
                        "{{\"op\":\"hit\",\"table\":\"{1}\",\"hwTable\":{2},\"index\":{3}}}\n",
                        family, table, row["table"].get<int>(), row["row"].get<int>()));
        EXPECT_EQ(other.ended(), 0) << other.output();
    }

    TemporaryDirectory directory;
    std::string const place = directory.path("switch");
};

class ShowCommandTest : public KeptSwitchTest {};
class WatchCommandTest : public KeptSwitchTest {};

TEST_F(ShowCommandTest, TellsHowFullEachTableIs) {
    applyState(crowdedState);
    auto const tables = shown();
    ASSERT_EQ(tables.size(), 3u);
    EXPECT_EQ(tables[0]["name"], "ports");
    EXPECT_EQ(tables[0]["family"], "portConfig");
    EXPECT_EQ(tables[0]["entries"], 2);
    EXPECT_EQ(tables[0]["rowsInUse"], 2);
    EXPECT_EQ(tables[0]["rows"], 8);
    EXPECT_FALSE(tables[0].contains("moves"));
    EXPECT_EQ(tables[1]["entries"], 2);
    auto const& crowded = tables[2];
    EXPECT_EQ(crowded["entries"], 4);
    EXPECT_EQ(crowded["rowsInUse"], 3);
    EXPECT_EQ(crowded["entriesWithoutPlace"], 1);
    EXPECT_EQ(crowded["failedPlacements"], 1);
    U64 placements = 0;
    for (auto const& count : crowded["moves"])
        placements += count.get<U64>();
    EXPECT_EQ(placements, 3u) << "the moves of the process that programmed it are kept";
    EXPECT_FALSE(crowded["nearlyFull"]);

    auto const text = runCommand({"show", "--switch", place});
    EXPECT_EQ(text.status, 0);
    EXPECT_EQ(lineCount(text.output), 4);
    EXPECT_THAT(text.output, HasSubstr("ports    portConfig  2        2/8"));
    EXPECT_THAT(text.output, HasSubstr("[#####...............]  25 %"));
}

TEST_F(ShowCommandTest, TellsOfEachEntryWhereAndHowItStands) {
    applyState(crowdedState);
    auto const crowded = shown({"crowded"});
    std::map<int, std::string> status;
    std::set<std::pair<int, int>> places;
    for (auto const& entry : crowded["entries"]) {
        status[entry["key"].get<int>()] = entry["status"].get<std::string>();
        EXPECT_EQ(entry["hit"], false);
        EXPECT_EQ(entry["inconsistent"], false);
        EXPECT_EQ(entry["location"].is_null(), entry["status"] != "placed");
        if (!entry["location"].is_null())
            places.insert({entry["location"]["table"].get<int>(), entry["location"]["row"].get<int>()});
    }
    EXPECT_EQ(status.size(), 4u);
    EXPECT_EQ(status[13], "placed");
    EXPECT_EQ(std::ranges::count(status, std::string("no place"), &std::pair<int const, std::string>::second),
              1);
    EXPECT_EQ(places.size(), 3u);

    auto const ports = shown({"ports"})["entries"];
    ASSERT_EQ(ports.size(), 2u);
    EXPECT_EQ(ports[0]["key"], (Json{{"portId", 1}}));
    EXPECT_EQ(ports[0]["location"], (Json{{"table", 0}, {"row", 1}}));
    EXPECT_EQ(ports[1]["location"], (Json{{"table", 0}, {"row", 5}}));
    EXPECT_TRUE(ports[0]["hit"].is_null()) << "it has no hit bits";

    auto const text = runCommand({"show", "ports", "--switch", place});
    EXPECT_THAT(text.output, HasSubstr("ports: portConfig, 2 entries in 2 of 8 rows, [#####......"));
    EXPECT_THAT(text.output, HasSubstr("0      5    placed  -    "));
    EXPECT_THAT(text.output, HasSubstr("trunk"));
}

/** Every table of the campus switch: each entry that is placed stands in a row of its own. */
TEST_F(ShowCommandTest, EveryEntryOfAWholeSwitchHasARowOfItsOwn) {
    ASSERT_EQ(runCommand({"run", "--switch", place}).status, 0);
    Nerio::SwitchLook look(place);
    auto const tables = look.tables();
    EXPECT_GT(tables.size(), 20u);
    for (std::size_t number = 0; number < tables.size(); ++number) {
        auto entries = look.entries(number);
        EXPECT_EQ(entries.size(), tables[number].entries);
        look.locate(number, entries);
        std::set<std::pair<U32, U32>> places;
        for (auto const& entry : entries) {
            EXPECT_EQ(entry.location.has_value(), entry.status == Nerio::EntryLook::Status::placed)
                << tables[number].spec.name << " " << entry.key.dump();
            if (entry.location) {
                EXPECT_TRUE(places.insert({entry.location->table, entry.location->row}).second)
                    << tables[number].spec.name << " " << entry.key.dump();
            }
        }
        EXPECT_LE(tables[number].rowsInUse, tables[number].rows);
    }
}

TEST_F(ShowCommandTest, MarksWhatIsNearlyFull) {
    applyState(hashOf(64));
    EXPECT_EQ(shown()[0]["rowsInUse"], 16);
    EXPECT_TRUE(shown()[0]["nearlyFull"]);
    EXPECT_THAT(runCommand({"show", "--switch", place}).output, HasSubstr("100 %, nearly full"));
    applyState(hashOf(1));
    EXPECT_FALSE(shown()[0]["nearlyFull"]);
    EXPECT_FALSE(shown({"--full-at", "7"})[0]["nearlyFull"]);
    EXPECT_TRUE(shown({"--full-at", "6"})[0]["nearlyFull"]) << "one of sixteen rows";
}

TEST_F(ShowCommandTest, MarksATableWhoseKeysHaveTheirOwnRowsWhereAsked) {
    std::string entries;
    for (int port = 0; port < 8; ++port)
        entries += fmt::format(R"({}{{"key":{{"portId":{}}},"result":{{"portMode":"trunk"}}}})",
                               port == 0 ? "" : ",", port);
    applyState(withPorts(entries));
    EXPECT_EQ(shown()[0]["rowsInUse"], shown()[0]["rows"]);
    EXPECT_FALSE(shown()[0]["nearlyFull"]) << "no key is left that could want one";
    EXPECT_TRUE(shown({"--full-at", "100"})[0]["nearlyFull"]);
}

TEST_F(ShowCommandTest, MarksAnEntryWhoseCopiesDoNotAgree) {
    applyState(R"({"profile": {"numPorts": 8}, "tables": [{"family": "floodSet", "name": "floods",
        "entries": [{"key": 9, "result": {"result": {"uucPortMask": 3}}}]}]})");
    EXPECT_FALSE(shown({"floods"})["entries"][0]["inconsistent"]);
    CommandProcess other({"script", "--switch", place});
    other.write(R"({"op":"profile","numPorts":8}
{"op":"table","family":"floodSet","name":"floods"}
{"op":"start","mode":"warm"}
{"op":"shadowIs","table":"floods","hwTable":1,"index":9,"words":[7,0,0,0,32777]}
)");
    EXPECT_EQ(other.ended(), 0) << other.errors();
    auto const entries = shown({"floods"})["entries"];
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_TRUE(entries[0]["inconsistent"]);
    EXPECT_THAT(runCommand({"show", "floods", "--switch", place}).output, HasSubstr("placed, inconsistent"));
}

TEST_F(ShowCommandTest, TellsWhatPacketsHit) {
    applyState(hashOf(1));
    hit("keys", "hashTest");
    EXPECT_TRUE(shown({"keys"})["entries"][0]["hit"]);
    EXPECT_THAT(runCommand({"show", "keys", "--switch", place}).output, HasSubstr("placed  hit"));
}

TEST_F(ShowCommandTest, ChangesNothingAndTakesASwitchInUse) {
    applyState(crowdedState);
    auto const chip = contentsOf(place + "/chip");
    auto const names = TemporaryDirectory::namesIn(place);
    CommandProcess holder({"script", "--switch", place});
    holder.write(
        "{\"op\":\"profile\",\"numPorts\":8}\n"
        "{\"op\":\"table\",\"family\":\"portConfig\",\"name\":\"ports\"}\n"
        "{\"op\":\"start\",\"mode\":\"warm\"}\n");
    holder.readLine();
    holder.readLine();
    ASSERT_EQ(holder.readLine(), "{\"ok\":true}");
    EXPECT_EQ(shown({"ports"})["entries"].size(), 2u);
    EXPECT_EQ(holder.ended(), 0);
    EXPECT_EQ(contentsOf(place + "/chip"), chip);
    EXPECT_EQ(TemporaryDirectory::namesIn(place), names);
}

TEST_F(ShowCommandTest, AnUnknownTableIsNamedWithThoseThatAreNear) {
    applyState(crowdedState);
    auto const prots = runCommand({"show", "prots", "--switch", place});
    EXPECT_EQ(prots.status, 2);
    EXPECT_EQ(prots.output, "");
    EXPECT_EQ(prots.errors, "nerio show: " + place + ": there is no table \"prots\"; near is ports\n");
    // The family's name leads to its tables.
    EXPECT_THAT(runCommand({"show", "l3Lag", "--switch", place}).errors, HasSubstr("near is lags\n"));
    EXPECT_THAT(runCommand({"show", "something else", "--switch", place}).errors,
                HasSubstr("without a name, all are shown\n"));
    auto const nowhere = runCommand({"show", "--switch", directory.path("none")});
    EXPECT_EQ(nowhere.status, 2);
    EXPECT_EQ(nowhere.errors, "nerio show: " + directory.path("none") + ": no switch is kept there\n");
}

TEST_F(ShowCommandTest, MovesAreThoseSinceTheColdStart) {
    applyState(crowdedState);
    auto const moves = shown()[2]["moves"];
    // Nothing is placed by coming up again.
    applyState(crowdedState);
    auto const again = shown()[2];
    EXPECT_EQ(again["moves"], moves);
    EXPECT_GE(again["failedPlacements"], 1);
    contentsOfIs(place + "/moves.json", R"({"crowded":{"moves":[1],)");
    EXPECT_EQ(shown()[2]["failedPlacements"], 0) << "a file that makes no sense is none";
}

TEST_F(WatchCommandTest, TellsEachChangeInALineAndEndsAtCtrlC) {
    applyState(withPorts(R"({"key":{"portId":1},"result":{"portMode":"trunk"}},
                            {"key":{"portId":2},"result":{"portMode":"trunk"}})"));
    CommandProcess watch({"watch", "--switch", place, "--interval", "0.01"});
    EXPECT_EQ(watch.readLine(), "1 tables with 2 entries");
    applyState(withPorts(R"({"key":{"portId":1},"result":{"txDisabled":true}},
                            {"key":{"portId":3},"result":{"portMode":"trunk"}})"));
    EXPECT_THAT(watch.readLine(), MatchesRegex("- ports: .*2.* = .*trunk.*"));
    EXPECT_THAT(watch.readLine(), MatchesRegex("~ ports: .*1.* = .*, was .*trunk.*"));
    EXPECT_THAT(watch.readLine(), MatchesRegex("\\+ ports: .*3.* = .*trunk.*"));
    ::kill(watch.process(), SIGINT);
    EXPECT_EQ(watch.ended(), 0);
    EXPECT_EQ(watch.output(), "");
    EXPECT_EQ(watch.errors(), "");
}

TEST_F(WatchCommandTest, TellsChangesInJsonAndTablesThatBecomeNearlyFull) {
    applyState(hashOf(0));
    CommandProcess watch({"watch", "--switch", place, "--interval", "0.01", "--json"});
    EXPECT_EQ(watch.readLine(), R"({"tables":1,"entries":0})");
    applyState(hashOf(64));
    std::set<int> keys;
    while (keys.size() < 64) {
        auto const change = Json::parse(watch.readLine());
        ASSERT_EQ(change["change"], "added");
        EXPECT_EQ(change["table"], "keys");
        EXPECT_TRUE(keys.insert(change["key"].get<int>()).second);
        EXPECT_FALSE(change.contains("before"));
    }
    EXPECT_EQ(watch.readLine(), R"({"change":"nearly full","table":"keys"})");
}

TEST_F(WatchCommandTest, TellsInALineWhatIsNearlyFullAndWhatWasHit) {
    applyState(hashOf(1));
    CommandProcess watch({"watch", "--switch", place, "--interval", "0.01"});
    EXPECT_EQ(watch.readLine(), "1 tables with 1 entries");
    hit("keys", "hashTest");
    EXPECT_THAT(watch.readLine(), MatchesRegex("\\* keys: 0.* was hit"));
    applyState(hashOf(64));
    for (int key = 1; key < 64; ++key)
        EXPECT_THAT(watch.readLine(), MatchesRegex("\\+ keys: .* = .*"));
    EXPECT_EQ(watch.readLine(), "! keys: nearly full, 16 of 16 rows");
}

TEST_F(WatchCommandTest, EndsAfterAsManyLooksAsItIsTold) {
    applyState(withPorts(""));
    auto const result = runCommand({"watch", "--switch", place, "--interval", "0.01", "--count", "2"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "1 tables with 0 entries\n");
    auto const nowhere = runCommand({"watch", "--switch", directory.path("none")});
    EXPECT_EQ(nowhere.status, 2);
    EXPECT_EQ(lineCount(nowhere.errors), 1);
    EXPECT_EQ(runCommand({"watch", "--switch", place, "--interval", "0"}).status, 2);
}

/** `script` gives a process a terminal of its own. */
TEST_F(WatchCommandTest, LeavesATerminalAsItWas) {
    ASSERT_EQ(std::system("command -v script > /dev/null"), 0) << "there is no command script, of bsdutils";
    applyState(withPorts(R"({"key":{"portId":1},"result":{"portMode":"trunk"}})"));
    auto const log = directory.path("screen");
    auto const command =
        fmt::format("script -qec '{} watch --switch {} --interval 0.01 --count 2' /dev/null > {} < /dev/null",
                    NerioTest::nerioCommand, place, log);
    EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 0);
    auto const screen = contentsOf(log);
    EXPECT_TRUE(screen.starts_with("\x1b[?1049h\x1b[?25l"));
    EXPECT_THAT(screen, HasSubstr("portConfig"));
    EXPECT_THAT(screen, HasSubstr("[##.................."));
    EXPECT_TRUE(screen.ends_with("\x1b[?25h\x1b[?1049l"));
}

}  // namespace
