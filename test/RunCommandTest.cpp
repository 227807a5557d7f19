#include <cstdlib>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <ostream>
#include <string_view>

#include "BuildUnderTest.h"
#include "CommandProcess.h"
#include "TemporaryDirectory.h"
#include "agent/Json.h"

namespace {

using Agent::Json;
using NerioTest::CommandProcess;
using NerioTest::CommandResult;
using NerioTest::lineCount;
using NerioTest::runCommand;
using testing::HasSubstr;

/** A report with each time replaced, so that the rest can be compared. */
std::string withoutTimes(std::string text) {
    constexpr std::string_view unit = " ms\n";
    for (auto end = text.find(unit); end != std::string::npos; end = text.find(unit, end)) {
        auto const number = text.find_last_of(' ', end - 1);
        auto const begin = text.find_last_not_of(' ', number) + 1;
        text.replace(begin, end + unit.size() - 1 - begin, " TIME");
        end = begin;
    }
    return text;
}

/** Every file below a directory with its contents. */
std::map<std::string, std::string> everyFile(std::string const& directory) {
    std::map<std::string, std::string> files;
    for (auto const& item : std::filesystem::recursive_directory_iterator(directory)) {
        if (item.is_regular_file()) files[item.path().string()] = contentsOf(item.path().string());
    }
    return files;
}

constexpr char const* eightPorts = R"({
  "profile": {"name": ["edge", "spare"], "numPorts": 8},
  "tables": [
    {"family": "portConfig", "name": "a",
     "entries": [{"key": {"portId": 1}, "result": {"portMode": "trunk"}},
                 {"key": {"portId": 2}, "result": {"portMode": 3}}]}]
})";

/** Keys 17, 81 and 145 have two rows between them. */
constexpr char const* crowdedRows = R"({
  "profile": {"numPorts": 8},
  "tables": [
    {"family": "portConfig", "name": "a", "entries": [{"key": {"portId": 1}, "result": {}}]},
    {"family": "hashTest", "name": "crowded",
     "entries": [{"key": 17, "result": 1}, {"key": 81, "result": 2}, {"key": 145, "result": 3},
                 {"key": 13, "result": 4}]},
    {"family": "aclIndirectCounterHash", "name": "a table of a long name", "pipelinePair": 1,
     "entries": [{"key": 1, "result": 4000}]}]
})";

class RunCommandTest : public testing::Test {
protected:
    std::string stateFile(std::string const& text) {
        contentsOfIs(directory.path("state.json"), text);
        return directory.path("state.json");
    }
    TemporaryDirectory directory;
};

TEST_F(RunCommandTest, ReportsTheBuiltInSwitch) {
    auto const result = runCommand({"run"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(withoutTimes(result.output),
              "campus: 52 ports, 2 pipelines, hardware API 6.2, on an embedded chip\n"
              "\n"
              "cold start\n"
              "  table            family                  entries     rows  register writes       time\n"
              "  acl servers 0    aclHash                       6     8192            40960 TIME\n"
              "  acl clients 0    aclHash                       4     8192            40960 TIME\n"
              "  acl pairs 0      aclHash                       4     8192            40960 TIME\n"
              "  acl vrfs 0       aclHash                       2     8192            40960 TIME\n"
              "  acl servers 1    aclHash                       6     8192            40960 TIME\n"
              "  acl clients 1    aclHash                       4     8192            40960 TIME\n"
              "  flood rewrites   l3FloodArp                    2     3328            26624 TIME\n"
              "  flood ports      l3FloodBitmap                 2      256              768 TIME\n"
              "  acl ranges 0     aclPortRange                  1       32              160 TIME\n"
              "  acl protocols 0  protocolRemap                 2      256             1280 TIME\n"
              "  acl protocols 1  protocolRemap                 2      256             1280 TIME\n"
              "  nexthop ports    l3Lag                        19      112              336 TIME\n"
              "  vlanMembership   vlanMembership                5    12282            49128 TIME\n"
              "  nativeVlan       nativeVlan                   38       52               52 TIME\n"
              "  floodSet         floodSet                      5    12282            61410 TIME\n"
              "  macVlan          macVlan                       2     3072            15360 TIME\n"
              "  portConfig       portConfig                   14       52               52 TIME\n"
              "  l2Control        l2Control                     6       52               52 TIME\n"
              "  lagHashControl   lagHashControl               44       52               52 TIME\n"
              "  lagGroup         lagGroup                      4      104              252 TIME\n"
              "  lagMembership    lagMembership                 4      104              312 TIME\n"
              "  lagLookUp        lagLookUp                     4      156              312 TIME\n"
              "  rxPortMirror     rxPortMirror                  3       52              104 TIME\n"
              "  stormControl     stormControl                 78      208              208 TIME\n"
              "  copp             copp                         15       45               45 TIME\n"
              "\n"
              "hash tables\n"
              "  table            family              rows in use     rows     fill   moves   no place\n"
              "  acl servers 0    aclHash                       6     8192   0.07 %       0          0\n"
              "  acl clients 0    aclHash                       4     8192   0.05 %       0          0\n"
              "  acl pairs 0      aclHash                       4     8192   0.05 %       0          0\n"
              "  acl vrfs 0       aclHash                       2     8192   0.02 %       0          0\n"
              "  acl servers 1    aclHash                       6     8192   0.07 %       0          0\n"
              "  acl clients 1    aclHash                       4     8192   0.05 %       0          0\n"
              "\n"
              "routes: 19 of 19 placed in 4112 rows, 377024 register writes, TIME\n"
              "\n"
              "multicast routes: 8 of 8 placed in 97 rows, 302370 register writes, TIME\n"
              "\n"
              "translations: 5 of 5 placed in 270 rows, 488514 register writes, TIME\n"
              "\n"
              "warm restart, in a second process\n"
              "  table            family          entries adopted     rows  register writes       time\n"
              "  acl servers 0    aclHash                       6     8192                0 TIME\n"
              "  acl clients 0    aclHash                       4     8192                0 TIME\n"
              "  acl pairs 0      aclHash                       4     8192                0 TIME\n"
              "  acl vrfs 0       aclHash                       2     8192                0 TIME\n"
              "  acl servers 1    aclHash                       6     8192                0 TIME\n"
              "  acl clients 1    aclHash                       4     8192                0 TIME\n"
              "  flood rewrites   l3FloodArp                    2     3328                0 TIME\n"
              "  flood ports      l3FloodBitmap                 2      256                0 TIME\n"
              "  acl ranges 0     aclPortRange                  1       32                0 TIME\n"
              "  acl protocols 0  protocolRemap                 2      256                0 TIME\n"
              "  acl protocols 1  protocolRemap                 2      256                0 TIME\n"
              "  nexthop ports    l3Lag                        19      112                0 TIME\n"
              "  vlanMembership   vlanMembership                5    12282                0 TIME\n"
              "  nativeVlan       nativeVlan                   38       52                0 TIME\n"
              "  floodSet         floodSet                      5    12282                0 TIME\n"
              "  macVlan          macVlan                       2     3072                0 TIME\n"
              "  portConfig       portConfig                   14       52                0 TIME\n"
              "  l2Control        l2Control                     6       52                0 TIME\n"
              "  lagHashControl   lagHashControl               44       52                0 TIME\n"
              "  lagGroup         lagGroup                      4      104                0 TIME\n"
              "  lagMembership    lagMembership                 4      104               24 TIME\n"
              "  lagLookUp        lagLookUp                     4      156                0 TIME\n"
              "  rxPortMirror     rxPortMirror                  3       52                0 TIME\n"
              "  stormControl     stormControl                 78      208              156 TIME\n"
              "  copp             copp                         15       45               45 TIME\n"
              "\n"
              "routes: 19 of 19 in place in 4112 rows, 0 register writes, TIME\n"
              "\n"
              "multicast routes: 8 of 8 in place in 97 rows, 0 register writes, TIME\n"
              "\n"
              "translations: 5 of 5 in place in 270 rows, 0 register writes, TIME\n"
              "\n"
              "software, shadow and chip agree on all 332593 rows; the warm restart wrote 225 registers, of "
              "lagMembership, stormControl, copp\n");
}

TEST_F(RunCommandTest, ReportsTheSwitchOfAStateFile) {
    auto const result = runCommand({"run", stateFile(eightPorts)});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(withoutTimes(result.output),
              "edge: 8 ports, 2 pipelines, hardware API 6.2, on an embedded chip\n"
              "\n"
              "cold start\n"
              "  table            family                  entries     rows  register writes       time\n"
              "  a                portConfig                    2        8                8 TIME\n"
              "\n"
              "warm restart, in a second process\n"
              "  table            family          entries adopted     rows  register writes       time\n"
              "  a                portConfig                    2        8                0 TIME\n"
              "\n"
              "software, shadow and chip agree on all 8 rows; the warm restart wrote nothing\n");
}

TEST_F(RunCommandTest, ReportsHowFullHashTablesAre) {
    auto const result = runCommand({"run", stateFile(crowdedRows)});
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.status, 0) << "an entry without a place is no disagreement";
    EXPECT_EQ(
        withoutTimes(result.output),
        "demo: 8 ports, 2 pipelines, hardware API 6.2, on an embedded chip\n"
        "\n"
        "cold start\n"
        "  table                  family                          entries     rows  register writes       "
        "time\n"
        "  a                      portConfig                            1        8                8 TIME\n"
        "  crowded                hashTest                              4       32               96 TIME\n"
        "  a table of a long name aclIndirectCounterHash                1     4096            24576 TIME\n"
        "\n"
        "hash tables\n"
        "  table                  family                      rows in use     rows     fill   moves   no "
        "place\n"
        "  crowded                hashTest                              3       16  18.75 %       0          "
        "1\n"
        "  a table of a long name aclIndirectCounterHash                1     4096   0.02 %       0          "
        "0\n"
        "\n"
        "warm restart, in a second process\n"
        "  table                  family                  entries adopted     rows  register writes       "
        "time\n"
        "  a                      portConfig                            0        8                0 TIME\n"
        "  crowded                hashTest                              3       32                0 TIME\n"
        "  a table of a long name aclIndirectCounterHash                1     4096                0 TIME\n"
        "\n"
        "1 entries equal the default, leave no trace in hardware, and were set again, not adopted\n"
        "\n"
        "entries without a place: 1 after the cold start, 1 after the warm restart\n"
        "\n"
        "software, shadow and chip agree on all 4136 rows; the warm restart wrote nothing\n");
}

TEST_F(RunCommandTest, ReportsHowFullHashTablesAreAsJson) {
    auto const result = runCommand({"run", stateFile(crowdedRows), "--json"});
    EXPECT_EQ(result.status, 0);
    auto const report = Json::parse(result.output);
    auto const placement = [&](char const* start) { return report[start][1]["placement"]; };
    EXPECT_EQ(placement("cold"), Json::parse(R"({"rowsInUse":3,"rows":16,
        "moves":[3,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0],"failedPlacements":1,"entriesWithoutPlace":1})"));
    EXPECT_EQ(placement("warm"), Json::parse(R"({"rowsInUse":3,"rows":16,
        "moves":[0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0],"failedPlacements":1,"entriesWithoutPlace":1})"))
        << "what was adopted was not placed again";
    EXPECT_EQ(report["warm"][1]["entries"], 3);
    EXPECT_FALSE(report["cold"][0].contains("placement"));
    EXPECT_EQ(report["differences"], 0);
}

TEST_F(RunCommandTest, CountsMovesByTheirHistogram) {
    Json entries = Json::array();
    for (U32 number = 1; number <= 30; ++number)
        entries.push_back({{"key", number << 6 | number % 3 << 3 | number % 4}, {"result", number}});
    Json const table{{"family", "hashTest"}, {"name", "crowded"}, {"entries", entries}};
    auto const file = stateFile(Json{{"tables", Json::array({table})}}.dump());
    auto const report = Json::parse(runCommand({"run", file, "--json"}).output);
    auto const placement = report["cold"][0]["placement"];
    EXPECT_EQ(placement["rowsInUse"], 7) << "four rows of table 0 and three of table 1";
    U64 moves = 0;
    U64 placed = 0;
    for (U64 length = 0; length < placement["moves"].size(); ++length) {
        moves += length * placement["moves"][length].get<U64>();
        placed += placement["moves"][length].get<U64>();
    }
    EXPECT_EQ(placed, 7u);
    EXPECT_GT(moves, 0u);
    EXPECT_THAT(runCommand({"run", file}).output,
                HasSubstr(fmt::format("{:>16} {:>8} {:>8} {:>7} {:>10}\n", 7, 16, "43.75 %", moves, 23)));
}

TEST_F(RunCommandTest, KeepsTheSwitchInADirectory) {
    auto const place = directory.path("switch");
    for (int i = 0; i < 2; ++i) {
        auto const result = runCommand({"run", stateFile(eightPorts), "--switch", place});
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_THAT(result.output, testing::EndsWith("the switch is kept in " + place + "\n"));
        EXPECT_EQ(TemporaryDirectory::namesIn(place),
                  (std::vector<std::string>{"chip", "chip.lock", "moves.json", "routes.txt", "shadow",
                                            "state.json"}));
    }
    // What is kept can be driven by hand.
    auto const script = runCommand({"script", "--switch", place},
                                   "{\"op\":\"profile\",\"name\":[\"edge\",\"spare\"],\"numPorts\":8}\n"
                                   "{\"op\":\"table\",\"family\":\"portConfig\",\"name\":\"a\"}\n"
                                   "{\"op\":\"start\",\"mode\":\"warm\"}\n"
                                   "{\"op\":\"registers\"}\n"
                                   "{\"op\":\"shadow\",\"table\":\"a\",\"hwTable\":0,\"index\":2}\n");
    EXPECT_THAT(script.output,
                testing::EndsWith("{\"ok\":true,\"writes\":[]}\n{\"ok\":true,\"words\":[3,0,0,0]}\n"));
    // The state that was kept is a state file itself.
    EXPECT_EQ(runCommand({"run", place + "/state.json"}).status, 0);
}

TEST_F(RunCommandTest, NamesEachRowThatDoesNotAgree) {
    // Two tables over the same registers: the one that starts last has them.
    auto const file = stateFile(R"({"profile":{"numPorts":8},"tables":[
        {"family":"portConfig","name":"a","entries":[{"key":{"portId":1},"result":{"portMode":"trunk"}}]},
        {"family":"portConfig","name":"b"}]})");
    auto const result = runCommand({"run", file});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors,
              "nerio run: after the cold start: hardware table a/demo/PortConfig/0 row 1: "
              "word 0: the shadow holds 0x00000000, the chip 0x00000001 (portMode: 1 instead of 0)\n"
              "nerio run: after the warm restart: hardware table a/demo/PortConfig/0 row 1: "
              "word 0: the shadow holds 0x00000000, the chip 0x00000001 (portMode: 1 instead of 0)\n");
    EXPECT_THAT(result.output, testing::EndsWith("\n2 differences between software, shadow and chip\n"));
    auto const report = runCommand({"run", file, "--json"});
    EXPECT_EQ(report.status, 1);
    EXPECT_EQ(Json::parse(report.output)["differences"], 2);
}

TEST_F(RunCommandTest, ReportsAsJson) {
    auto const result = runCommand({"run", stateFile(eightPorts), "--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    auto report = Json::parse(result.output);
    for (auto const* start : {"cold", "warm"}) {
        EXPECT_TRUE(report[start][0]["milliseconds"].is_number());
        report[start][0].erase("milliseconds");
    }
    EXPECT_EQ(report, Json::parse(R"({
        "cold":[{"name":"a","family":"portConfig","entries":2,"defaultEntries":0,"rows":8,
                 "registerWrites":8,"differences":[]}],
        "warm":[{"name":"a","family":"portConfig","entries":2,"defaultEntries":0,"rows":8,
                 "registerWrites":0,"differences":[]}],
        "differences":0})"));
}

struct BadState {
    char const* name;
    char const* text;
    /** What standard error says behind "nerio run: FILE: ". */
    char const* errors;
};

constexpr char const* portRange =
    "NerioSwitch::ChipPortId::value < NerioSwitch::ChipPortId::min or > NerioSwitch::ChipPortId::null not "
    "allowed\n";

#define WITH_ENTRY(entry) R"({"tables":[{"family":"portConfig","name":"p","entries":[)" entry "]}]}"
#define WITH_RESULT(result) WITH_ENTRY(R"({"key":{"portId":1},"result":)" result "}")
#define WITH_TABLE(table) R"({"tables":[)" table "]}"
#define WITH_PROFILE(profile) R"({"profile":)" profile R"(,"tables":[{"family":"portConfig","name":"p"}]})"

BadState const badStates[] = {
    {"Empty", "", "line 1, column 1: not JSON: unexpected end of input; expected '[', '{', or a literal\n"},
    {"Broken", "{\"tables\":[\n  {\"family\":\"portConfig\",]}",
     "line 2, column 26: not JSON: unexpected ']'; expected string literal\n"},
    {"Cut", "{\"tables\":\n[",
     "line 2, column 2: not JSON: unexpected end of input; expected '[', '{', or a literal\n"},
    {"NotText", "{\"tables\":\"\xff\"}",
     "line 1, column 12: not JSON: invalid string: ill-formed UTF-8 byte\n"},
    {"HugeNumber", "{\n\"tables\":1e999}", "line 1: not JSON: number too large: '1e999'\n"},
    {"NoObject", "[]", "expected an object, found an array\n"},
    {"NoTables", "{}", "\"tables\" is missing\n"},
    {"TablesNoArray", R"({"tables":{}})", "/tables: tables: expected an array, found an object\n"},
    {"UnknownMember", R"({"tables":[],"table":[]})", "/table: unknown member \"table\"\n"},
    {"UnknownMemberOverLines", R"({"tables":[],"a\nb":[]})", "/a\\x0ab: unknown member \"a\\nb\"\n"},
    {"UnknownFamily", WITH_TABLE(R"({"family":"portconfig","name":"p"})"),
     "/tables/0/family: family: unknown family \"portconfig\"\n"},
    {"NoFamily", WITH_TABLE(R"({"name":"p"})"), "/tables/0: \"family\" is missing\n"},
    {"FamilyNoText", WITH_TABLE(R"({"family":7,"name":"p"})"),
     "/tables/0/family: family: expected a text, found 7\n"},
    {"TableNoObject", WITH_TABLE("7"), "/tables/0: 0: expected an object, found 7\n"},
    {"UnknownTableMember", WITH_TABLE(R"({"family":"portConfig","name":"p","entry":[]})"),
     "/tables/0/entry: unknown member \"entry\"\n"},
    {"DuplicateName", WITH_TABLE(R"({"family":"portConfig","name":"p"},{"family":"portConfig","name":"p"})"),
     "/tables/1/name: name: there is a table \"p\" already\n"},
    {"NumberTooLargeForItsFamily", WITH_TABLE(R"({"family":"aclHash","name":"p","pipeline":256})"),
     "/tables/0/pipeline: pipeline 256 > 255 not allowed\n"},
    {"EntriesNoArray", WITH_TABLE(R"({"family":"portConfig","name":"p","entries":{}})"),
     "/tables/0/entries: entries: expected an array, found an object\n"},
    {"EntryNoObject", WITH_ENTRY("[]"), "/tables/0/entries/0: 0: expected an object, found an array\n"},
    {"EntryWithoutKey", WITH_ENTRY(R"({"result":{}})"), "/tables/0/entries/0: \"key\" is missing\n"},
    {"EntryWithoutResult", WITH_ENTRY(R"({"key":{"portId":1}})"),
     "/tables/0/entries/0: \"result\" is missing\n"},
    {"UnknownEntryMember", WITH_ENTRY(R"({"key":{"portId":1},"result":{},"lastUpdate":0})"),
     "/tables/0/entries/0/lastUpdate: unknown member \"lastUpdate\"\n"},
    {"UnknownAttribute", WITH_RESULT(R"({"mode":"trunk"})"),
     "/tables/0/entries/0/result/mode: unknown attribute \"mode\" of NerioSwitchTable::PortConfigResult\n"},
    {"UnknownEnumerator", WITH_RESULT(R"({"portMode":"tunnel"})"),
     "/tables/0/entries/0/result/portMode: portMode: unknown enumerator \"tunnel\"\n"},
    {"WrongType", WITH_RESULT(R"({"txDisabled":"yes"})"),
     "/tables/0/entries/0/result/txDisabled: txDisabled: expected true or false, found \"yes\"\n"},
    {"KeyNoObject", WITH_ENTRY(R"({"key":1,"result":{}})"),
     "/tables/0/entries/0/key: key: expected an object, found 1\n"},
    {"NumberTooLarge", WITH_RESULT(R"({"portMode":4294967296})"),
     "/tables/0/entries/0/result/portMode: portMode 4294967296 > 4294967295 not allowed\n"},
    {"UnknownProfileAttribute", WITH_PROFILE(R"({"ports":52})"),
     "/profile/ports: unknown attribute \"ports\" of the profile\n"},
    {"UnknownPreset", WITH_PROFILE(R"({"preset":"big"})"),
     "/profile/preset: unknown profile preset \"big\"\n"},
    {"ProfileNoObject", WITH_PROFILE("7"), "/profile: profile: expected an object, found 7\n"},
    {"SixtyPorts", WITH_PROFILE(R"({"numPorts":60})"), "/profile/numPorts: numPorts 60 > 54 not allowed\n"},
    {"NoPorts", WITH_PROFILE(R"({"numPorts":0})"), "/profile/numPorts: numPorts 0 < 1 not allowed\n"},
    {"NumPortsNoNumber", WITH_PROFILE(R"({"numPorts":"many"})"),
     "/profile/numPorts: numPorts: expected an integer of at most 64 bits, found \"many\"\n"},
    {"HwApiNoVersion", WITH_PROFILE(R"({"hwApi":"six"})"),
     "/profile/hwApi: hwApi: expected a number, found \"six\"\n"},
};

void PrintTo(BadState const& state, std::ostream* stream) {
    *stream << state.name;
}

class BadStateTest : public RunCommandTest, public testing::WithParamInterface<BadState> {};

void expectRefused(CommandResult const& result, std::string const& errors) {
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, errors);
    EXPECT_EQ(lineCount(result.errors), 1);
}

TEST_P(BadStateTest, IsRefusedBeforeAnythingIsProgrammed) {
    auto const file = stateFile(GetParam().text);
    auto const errors = "nerio run: " + file + ": " + GetParam().errors;
    auto const place = directory.path("switch");
    expectRefused(runCommand({"run", file, "--switch", place}), errors);
    EXPECT_FALSE(std::filesystem::exists(place));
    expectRefused(runCommand({"run", "--json", file}), errors);
}

INSTANTIATE_TEST_SUITE_P(Every, BadStateTest, testing::ValuesIn(badStates),
                         [](auto const& state) { return std::string(state.param.name); });

TEST_F(RunCommandTest, ABadEntryBehindGoodOnesLeavesAKeptSwitchAsItWas) {
    auto const place = directory.path("switch");
    ASSERT_EQ(runCommand({"run", stateFile(eightPorts), "--switch", place}).status, 0);
    auto const before = everyFile(place);
    EXPECT_GE(before.size(), 5u);
    auto const text = [](std::string const& port) {
        return R"({"profile":{"numPorts":8},"tables":[
            {"family":"portConfig","name":"a","entries":[{"key":{"portId":1},"result":{}}]},
            {"family":"portConfig","name":"b","entries":[{"key":{"portId":2},"result":{}},
                                                         {"key":{"portId":)" +
               port + R"(},"result":{"portMode":"trunk"}}]}]})";
    };
    auto const file = stateFile(text("54"));
    expectRefused(runCommand({"run", file, "--switch", place}),
                  "nerio run: " + file + ": /tables/1/entries/1/key/portId: " + portRange);
    EXPECT_EQ(everyFile(place), before);
    // A port that the type takes, and the chip does not have.
    stateFile(text("8"));
    expectRefused(runCommand({"run", file, "--switch", place}),
                  "nerio run: " + file +
                      ": /tables/1/entries/1/key: NerioSwitchApi::HwIndex::value < "
                      "NerioSwitchApi::HwTableDescriptor::firstIndex or > "
                      "NerioSwitchApi::HwTableDescriptor::lastIndex not allowed\n");
    EXPECT_EQ(everyFile(place), before);
}

TEST_F(RunCommandTest, AStateFileThatCannotBeReadIsNamed) {
    auto const none = directory.path("none.json");
    expectRefused(runCommand({"run", none}), "nerio run: " + none + ": No such file or directory\n");
    expectRefused(runCommand({"run", directory.path()}),
                  "nerio run: " + directory.path() + ": Is a directory\n");
}

TEST_F(RunCommandTest, ASwitchDirectoryInUseIsRefused) {
    auto const place = directory.path("switch");
    CommandProcess holder({"script", "--switch", place});
    holder.write(
        "{\"op\":\"table\",\"family\":\"portConfig\",\"name\":\"ports\"}\n"
        "{\"op\":\"start\",\"mode\":\"cold\"}\n");
    holder.readLine();
    holder.readLine();
    auto const result = runCommand({"run", "--switch", place});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "nerio run: " + place + "/shadow/shadow.lock is held by process " +
                                 std::to_string(holder.process()) + "\n");
}

TEST_F(RunCommandTest, ASwitchDirectoryThatCannotBeMadeIsRefused) {
    auto const file = stateFile(eightPorts);
    for (auto const& [place, reason] : {std::pair{file, "Not a directory"},
                                        {file + "/switch", "Not a directory"},
                                        {std::string("/proc/switch"), "No such file or directory"}}) {
        auto const result = runCommand({"run", file, "--switch", place});
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, "nerio run: cannot make " + place + ": " + reason + "\n");
    }
}

TEST_F(RunCommandTest, ASwitchDirectoryOfAnotherChipIsRefused) {
    auto const place = directory.path("switch");
    ASSERT_EQ(runCommand({"run", stateFile(eightPorts), "--switch", place}).status, 0);
    auto const result = runCommand({"run", "--switch", place});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors, testing::StartsWith("nerio run: " + place + "/chip has other registers"));
    EXPECT_EQ(lineCount(result.errors), 1);
}

TEST(CommandTest, ASubcommandIsRequired) {
    for (auto const& [arguments, errors] :
         {std::pair<std::vector<std::string>, std::string>{
              {}, "nerio: A subcommand is required; nerio --help says more\n"},
          {{"frob"}, "nerio: unknown subcommand frob; nerio --help says more\n"},
          {{"--frob"}, "nerio: unknown option --frob; nerio --help says more\n"},
          {{"run", "a", "b"}, "nerio: The following argument was not expected: b; nerio --help says more\n"},
          {{"run", "--switch"}, "nerio: --switch: 1 required TEXT missing; nerio --help says more\n"}}) {
        auto const result = runCommand(arguments);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, errors);
    }
}

TEST(CommandTest, OutputThatIsLostIsAFailure) {
    auto const run = std::string(NerioTest::nerioCommand) + " run > /dev/full 2> /dev/null";
    EXPECT_EQ(WEXITSTATUS(std::system(run.c_str())), 1);
    auto const script = std::string(R"(echo '{"op":"capacity"}' | )") + NerioTest::nerioCommand +
                        " script > /dev/full 2> /dev/null";
    EXPECT_EQ(WEXITSTATUS(std::system(script.c_str())), 1);
}

TEST(CommandTest, HelpAndVersionAreNoFailures) {
    EXPECT_EQ(runCommand({"--help"}).status, 0);
    auto const version = runCommand({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_THAT(version.output, testing::MatchesRegex("[0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

}  // namespace
