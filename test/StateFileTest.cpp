#include <gtest/gtest.h>

#include "FailureText.h"
#include "TemporaryDirectory.h"
#include "agent/ProfileJson.h"
#include "agent/StateFile.h"

namespace {

using Agent::Json;
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

constexpr char const* sharedOut = R"({
  "tables": [],
  "routes": [{"prefix": "10.0.0.0/8", "nexthop": 7}],
  "multicastRoutes": [
    {"source": "10.0.0.5/32", "group": "239.1.1.1", "vlanId": 20, "out": {"30": 6, "31": "0x10"}},
    {"group": "239.1.1.1", "vlanId": 20, "toCpu": true}],
  "translations": [
    {"inside": "10.0.0.5", "insidePort": 8080, "outside": "192.0.2.1", "outsidePort": 80, "proto": 1,
     "profile": 3, "filterPfx": "198.51.100.0/24"},
    {"inside": "10.0.0.6", "outside": "192.0.2.2"}]
})";

TEST(StateFileTest, HoldsWhatAgentsShareOut) {
    auto const file = Agent::parseState(sharedOut, "f");
    ASSERT_EQ(file.multicastRoutes.size(), 2u);
    auto const& route = file.multicastRoutes[0];
    EXPECT_EQ(route.source().text(), "10.0.0.5/32");
    EXPECT_EQ(route.group().text(), "239.1.1.1");
    EXPECT_EQ(route.vlanId(), 20);
    EXPECT_EQ(route.out(), (Agent::VlanPorts{{30, 6}, {31, 16}}));
    EXPECT_FALSE(route.toCpu());
    EXPECT_EQ(file.multicastRoutes[1].source().text(), "0.0.0.0/0");
    EXPECT_TRUE(file.multicastRoutes[1].toCpu());
    ASSERT_EQ(file.translations.size(), 2u);
    EXPECT_EQ(file.translations[0].outside().text(), "192.0.2.1");
    EXPECT_EQ(file.translations[0].insidePort(), 8080);
    EXPECT_EQ(file.translations[0].profile(), 3);
    EXPECT_EQ(file.translations[0].filterPfx().text(), "198.51.100.0/24");
    EXPECT_TRUE(file.translations[1].filterPfx().isNull());
}

TEST(StateFileTest, WhatAgentsShareOutComesBackFromItsOwnText) {
    auto const file = Agent::parseState(sharedOut, "f");
    auto const json = Agent::stateToJson(file);
    auto const again = Agent::parseState(json.dump(), "g");
    EXPECT_EQ(again.multicastRoutes, file.multicastRoutes);
    EXPECT_EQ(again.translations, file.translations);
    EXPECT_EQ(Agent::stateToJson(again), json);
    EXPECT_EQ(json["multicastRoutes"][0]["out"], Json::parse(R"({"30":6,"31":16})"));
}

TEST(StateFileTest, WhatAgentsCannotTakeIsNamedByItsPlace) {
    auto const failure = [](std::string const& member, char const* profile = "{}", char const* table = "") {
        auto const text =
            R"({"profile":)" + std::string(profile) + R"(,"tables":[)" + table + "]," + member + "}";
        return failureOf<StateFileException>([&] { Agent::parseState(text, "f"); });
    };
    auto const multicast = [&](std::string const& routes, char const* table = "") {
        return failure(R"("multicastRoutes":)" + routes, "{}", table);
    };
    auto const translation = [&](std::string const& one, char const* table = "") {
        return failure(R"("translations":[)" + one + "]", "{}", table);
    };
    EXPECT_EQ(multicast("7"), "f: /multicastRoutes: multicastRoutes: expected an array, found 7");
    EXPECT_EQ(multicast("[7]"), "f: /multicastRoutes/0: 0: expected an object, found 7");
    EXPECT_EQ(multicast(R"([{"vlanId":2}])"), "f: /multicastRoutes/0: \"group\" is missing");
    EXPECT_EQ(multicast(R"([{"group":"239.1.1.1"}])"), "f: /multicastRoutes/0: \"vlanId\" is missing");
    EXPECT_EQ(multicast(R"([{"group":"239.1.1.1","vlanId":4095}])"),
              "f: /multicastRoutes/0/vlanId: Bridging::VlanIdOrNone::value > 4094 not allowed");
    EXPECT_EQ(multicast(R"([{"group":"239.1.1.1","vlanId":2,"out":{"0":1}}])"),
              "f: /multicastRoutes/0/out/0: Bridging::VlanId::value < 1 or > 4094 not allowed");
    EXPECT_EQ(multicast(R"([{"group":"239.1.1.1","vlanId":2,"ports":1}])"),
              "f: /multicastRoutes/0/ports: unknown attribute \"ports\" of Agent::MulticastRoute");
    EXPECT_EQ(
        multicast(R"([{"group":"239.1.1.1","vlanId":2},{"group":"239.1.1.1","vlanId":2,"toCpu":true}])"),
        "f: /multicastRoutes/1: 1: another route has this source, group and VLAN");
    EXPECT_EQ(multicast("[]", R"({"family":"sG","name":"sg"})"),
              "f: /multicastRoutes: multicastRoutes: the table \"sg\" belongs to them");
    EXPECT_EQ(multicast("[]", R"({"family":"lpm29","name":"lpm29"})"),
              "f: /multicastRoutes: multicastRoutes: the table \"lpm29\" belongs to them");
    EXPECT_EQ(translation(R"({"outside":"192.0.2.1"})"), "f: /translations/0: \"inside\" is missing");
    EXPECT_EQ(translation(R"({"inside":"10.0.0.1"})"), "f: /translations/0: \"outside\" is missing");
    EXPECT_EQ(translation(R"({"inside":"10.0.0.1","outside":"192.0.2"})").substr(0, 26),
              "f: /translations/0/outside");
    EXPECT_EQ(translation("", R"({"family":"natRewrite","name":"natRewrite1"})"),
              "f: /translations: translations: the table \"natRewrite1\" belongs to them");
    EXPECT_EQ(failure(R"("translations":[])", R"({"natProfile":false})"),
              "f: /translations: translations take a chip that translates; the profile says it does not");
    EXPECT_EQ(failure(R"("translations":[])", R"({"numPipelines":0})"),
              "f: /translations: translations take a chip that translates; the profile says it does not");
}

}  // namespace
