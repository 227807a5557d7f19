#include <gtest/gtest.h>

#include "FailureText.h"
#include "TemporaryDirectory.h"
#include "agent/ProfileJson.h"
#include "agent/StateFile.h"

namespace {

using Agent::Json;
using Agent::StateFile;
using Agent::StateFileException;

constexpr char const* twoTables = R"({
  "profile": {"numPorts": 8},
  "tables": [
    {"family": "portConfig", "name": "a",
     "entries": [{"key": {"portId": 1}, "result": {"portMode": "trunk"}},
                 {"key": {"portId": "0x2"}, "result": {}}]},
    {"family": "portConfig", "name": "b"}]
})";

TEST(StateFileTest, HoldsProfileTablesAndEntries) {
    auto const file = Agent::parseState(twoTables, "somewhere");
    EXPECT_EQ(file.path, "somewhere");
    EXPECT_EQ(file.profile->numPorts, 8);
    ASSERT_EQ(file.tables.size(), 2u);
    EXPECT_EQ(file.tables[0].spec.family, "portConfig");
    EXPECT_EQ(file.tables[0].spec.name, "a");
    EXPECT_EQ(file.tables[0].entries.size(), 2u);
    EXPECT_EQ(file.tables[0].place, "/tables/0");
    EXPECT_EQ(file.tables[1].spec.name, "b");
    EXPECT_EQ(file.tables[1].entries, Json::array());
}

TEST(StateFileTest, AProfileLeftOutIsThePreset) {
    auto const file = Agent::parseState(R"({"tables":[]})", "f");
    EXPECT_EQ(Agent::profileToJson(*file.profile),
              Agent::profileToJson(*NerioSwitch::profilePreset("default")));
    EXPECT_TRUE(file.tables.empty());
}

TEST(StateFileTest, ComesBackFromItsOwnText) {
    auto const first = Agent::stateToJson(Agent::parseState(twoTables, "f"));
    EXPECT_EQ(Agent::stateToJson(Agent::parseState(first.dump(), "g")), first);
    EXPECT_EQ(first["profile"]["numPorts"], 8);
    EXPECT_EQ(first["tables"], Json::parse(R"([
        {"family":"portConfig","name":"a",
         "entries":[{"key":{"portId":1},"result":{"portMode":"trunk"}},{"key":{"portId":"0x2"},"result":{}}]},
        {"family":"portConfig","name":"b","entries":[]}])"));
}

TEST(StateFileTest, ReadsAFile) {
    TemporaryDirectory directory;
    contentsOfIs(directory.path("state.json"), twoTables);
    auto const file = Agent::readStateFile(directory.path("state.json"));
    EXPECT_EQ(file.path, directory.path("state.json"));
    EXPECT_EQ(file.tables.size(), 2u);
    auto const failure = [](std::string const& path) {
        return failureOf<StateFileException>([&] { Agent::readStateFile(path); });
    };
    EXPECT_EQ(failure(directory.path()), directory.path() + ": Is a directory");
    EXPECT_EQ(failure(directory.path("x")), directory.path("x") + ": No such file or directory");
}

TEST(StateFileTest, EntriesAreSetInTheirOrder) {
    auto const file = Agent::parseState(twoTables, "f");
    auto const table = Agent::makeTable(file.tables[0].spec);
    std::vector<Json> keys;
    auto const observed = table->observe([&](std::string_view, Json key) { keys.push_back(std::move(key)); });
    Agent::applyEntries(file, file.tables[0], *table);
    EXPECT_EQ(keys, (std::vector<Json>{{{"portId", 1}}, {{"portId", 2}}}));
    EXPECT_EQ(table->entryCount(), 2u);
    EXPECT_EQ(table->defaultEntryCount(), 1u);
}

TEST(StateFileTest, EntriesThatFailAreNamedByTheirPlace) {
    auto const failure = [](std::string const& entry) {
        auto const file = Agent::parseState(
            R"({"tables":[{"family":"portConfig","name":"p"},
                          {"family":"portConfig","name":"q","entries":[{"key":{"portId":1},"result":{}},)" +
                entry + "]}]}",
            "dir/f.json");
        auto const table = Agent::makeTable(file.tables[1].spec);
        return failureOf<StateFileException>([&] { Agent::applyEntries(file, file.tables[1], *table); });
    };
    EXPECT_EQ(failure(R"({"key":{"portId":54},"result":{}})"),
              "dir/f.json: /tables/1/entries/1/key/portId: NerioSwitch::ChipPortId::value < "
              "NerioSwitch::ChipPortId::min or > NerioSwitch::ChipPortId::null not allowed");
    EXPECT_EQ(failure(R"({"key":{"portId":5},"result":{"portMode":"x"}})"),
              "dir/f.json: /tables/1/entries/1/result/portMode: portMode: unknown enumerator \"x\"");
    EXPECT_EQ(failure("7"), "dir/f.json: /tables/1/entries/1: 1: expected an object, found 7");
}

TEST(StateFileTest, AsManyPortsAsPortNumbersTellApart) {
    auto const failure = [](int ports) {
        auto const text = R"({"profile":{"numPorts":)" + std::to_string(ports) + R"(},"tables":[]})";
        return failureOf<StateFileException>([&] { Agent::parseState(text, "f"); });
    };
    EXPECT_EQ(failure(54), "");
    EXPECT_EQ(failure(55), "f: /profile/numPorts: numPorts 55 > 54 not allowed");
}

TEST(StateFileTest, FailuresStayOneLine) {
    auto const text = failureOf<StateFileException>([] { Agent::parseState(R"({"a\nb\u007f":1})", "f\ng"); });
    EXPECT_EQ(text, "f\\x0ag: /a\\x0ab\\x7f: unknown member \"a\\nb\\x7f\"");
}

}  // namespace
