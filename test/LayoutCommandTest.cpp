// `nerio layout` and `nerio decode`: rows of hardware tables, field by field.
#include <fmt/format.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>

#include "CommandProcess.h"
#include "TemporaryDirectory.h"
#include "agent/Json.h"

namespace {

using Agent::Json;
using NerioTest::runCommand;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string outputOf(std::vector<std::string> arguments) {
    auto const result = runCommand(std::move(arguments));
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.errors, "");
    return result.output;
}

/** Input that the command refuses, in one line. */
void expectRefused(std::vector<std::string> arguments, std::string const& text) {
    auto const result = runCommand(std::move(arguments));
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, text + "\n");
}

TEST(LayoutCommandTest, DrawsARowInText) {
    EXPECT_EQ(outputOf({"layout", "l2Control"}),
              "l2Control: Per chip port, how addresses are learned.\n"
              "on default, api2 to api10: hardware table 0, rows 0 to 51\n"
              "  word 0  ........ ........ ........ .....cba  pipeline[0]/port[0]/l2_control\n"
              "          c  2      learnDisabled\n"
              "          b  1      learnOnly\n"
              "          a  0      isMlagPeer\n");
}

TEST(LayoutCommandTest, SetsVersionsSideBySide) {
    auto const text = outputOf({"layout", "lpm11"});
    EXPECT_THAT(text, HasSubstr("  field          default, api5 to api8  api2 to api4  api9, api10\n"));
    EXPECT_THAT(text, HasSubstr("  maskLength1    -                      -             w0[22:19]\n"));
    EXPECT_THAT(text, HasSubstr("  cpuTrap        w0[13]                 w0[15]        w0[13]\n"));
}

TEST(LayoutCommandTest, TellsFormsAndTablesApart) {
    EXPECT_THAT(
        outputOf({"layout", "natRewrite", "--profile", "api9"}),
        AllOf(HasSubstr("form unicast"), HasSubstr("form multicast"), HasSubstr("in the shadow only")));
    EXPECT_THAT(
        outputOf({"layout", "aclHash", "--profile", "default"}),
        AllOf(HasSubstr("physTableIdx 0: hardware table 0"), HasSubstr("physTableIdx 5: hardware table 0")));
    EXPECT_THAT(outputOf({"layout", "copp", "--profile", "default"}),
                AllOf(HasSubstr("form interval (row 0)"), HasSubstr("form limit (rows 1 to 14)")));
    EXPECT_THAT(outputOf({"layout", "lpm"}), HasSubstr("no hardware tables"));
}

TEST(LayoutCommandTest, DrawsAllFamiliesAsPicturesAndAsJson) {
    auto const svg = outputOf({"layout", "--svg"});
    EXPECT_THAT(svg, StartsWith("<svg xmlns="));
    EXPECT_THAT(svg, HasSubstr("l2ForwardingDisabled"));
    EXPECT_THAT(svg, HasSubstr("prefers-color-scheme:dark"));
    auto const page = outputOf({"layout", "--html", "--profile", "api4"});
    EXPECT_THAT(page, StartsWith("<!DOCTYPE html>"));
    EXPECT_THAT(page, HasSubstr("<section id=\"stormControl\">"));
    EXPECT_THAT(page, Not(HasSubstr("src=")));
    auto const json = Json::parse(outputOf({"layout", "--json"}));
    EXPECT_EQ(json.size(), 36u);
    EXPECT_EQ(json[0]["versions"][0]["hwTables"][0]["layouts"][0]["fields"][1],
              (Json{{"name", "txDisabled"}, {"first", 2}, {"width", 1}}));
}

TEST(LayoutCommandTest, TakesAProfileOfAFile) {
    TemporaryDirectory const directory;
    auto const path = directory.path("profile.json");
    std::ofstream(path) << R"({"numVrfs":3})";
    EXPECT_THAT(outputOf({"layout", "l2Control", "--profile", path}), HasSubstr("on " + path));
    expectRefused({"layout", "lpm14", "--profile", path},
                  "nerio layout: " + path + ": lpm14: Unsupported number of VRFs 3");
    std::ofstream(path) << R"({"ports":3})";
    EXPECT_EQ(runCommand({"layout", "l2Control", "--profile", path}).status, 2);
}

TEST(LayoutCommandTest, RefusesWhatIsNone) {
    expectRefused({"layout", "noFamily"}, "nerio layout: noFamily: unknown family");
    expectRefused({"layout", "--profile", "/no/such"},
                  "nerio layout: /no/such: no preset, and no file of a profile: No such file or directory");
    auto const unwritable = runCommand({"layout", "--docs", "/dev/null/pages"});
    EXPECT_EQ(unwritable.status, 1);
    EXPECT_EQ(NerioTest::lineCount(unwritable.errors), 1);
}

TEST(RunPageTest, WhereNoFileCanBeIsFoundBeforeAnythingIsDone) {
    for (auto const& [path, reason] : {std::pair{"/no/such/run.html", "No such file or directory"},
                                       {"/", "Is a directory"},
                                       {"/dev/null", "Invalid argument"}}) {
        auto const result = runCommand({"run", "--html", path});
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, std::string("nerio run: ") + path + ": cannot be written: " + reason + "\n");
    }
}

TEST(DecodeCommandTest, TellsFieldsAndTheEntry) {
    auto const text = outputOf({"decode", "l3Lag", "0x30", "0", "0x260005"});
    EXPECT_THAT(text, StartsWith("l3Lag, hardware table 0, row 5\n"));
    EXPECT_THAT(
        text,
        HasSubstr("  portMask     words 0 and 1, bits 52:0                0x30                   48\n"));
    EXPECT_THAT(text, HasSubstr("\nkey     5\nresult  portMask:0x000000000030\n"));
}

TEST(DecodeCommandTest, FindsTheRowOfAHashTableByItsControlWord) {
    // The key 9 has row 1 in hash table 0 and row 1 in hash table 1.
    auto const json = Json::parse(outputOf({"decode", "hashTest", "9", "77", "0xC001", "--json"}));
    EXPECT_EQ(json["row"], 9);
    EXPECT_EQ(json["entries"][0]["key"], 9);
    EXPECT_EQ(json["entries"][0]["result"], 77);
    auto const elsewhere = outputOf({"decode", "hashTest", "9", "77", "0x8002"});
    EXPECT_THAT(elsewhere, HasSubstr("no entry: the row is empty, or no row of the key's"));
}

TEST(DecodeCommandTest, TakesTheRowThatItIsTold) {
    EXPECT_THAT(outputOf({"decode", "portConfig", "0x6", "--row", "7"}),
                AllOf(HasSubstr("row 7"), HasSubstr("portId=7"), HasSubstr("portMode:qinq")));
    EXPECT_THAT(
        outputOf({"decode", "portConfig", "0x16"}),
        AllOf(HasSubstr("row 0 (the words tell none)"), HasSubstr("bits of no field in word 0: 0x00000010")));
    EXPECT_THAT(outputOf({"decode", "copp", "1000"}), HasSubstr("form interval"));
    EXPECT_THAT(outputOf({"decode", "copp", "1000", "--row", "3"}), HasSubstr("increment"));
}

TEST(DecodeCommandTest, SaysWhatATableRefuses) {
    // A match of a kind that there is not.
    auto const text = outputOf({"decode", "natDynMatch", "0", "0", "0x90000000", "0x1"});
    EXPECT_THAT(text, HasSubstr("\nthe table refuses the row: "));
}

TEST(DecodeCommandTest, TakesTheNamesOfAKeptSwitch) {
    TemporaryDirectory const directory;
    std::ofstream(directory.path("state.json"))
        << R"({"profile":{"preset":"api4"},"tables":[{"family":"aclHash","name":"rules","physTableIdx":5}]})";
    auto const text = outputOf({"decode", "rules", "0x1", "--switch", directory.path()});
    EXPECT_THAT(text, AllOf(HasSubstr("firstPrefix"), Not(HasSubstr("protocol"))));
    expectRefused({"decode", "rules", "1", "--switch", directory.path("none")},
                  "nerio decode: " + directory.path("none") + ": no switch is kept there");
}

/** Rows of sources and of destinations have other keys. */
TEST(DecodeCommandTest, TakesTheNumbersOfAFactory) {
    NerioTest::CommandProcess script({"script"});
    script.write(R"({"op":"profile"}
{"op":"table","family":"aclHash","name":"sources","physTableIdx":1}
{"op":"start","mode":"cold"}
{"op":"entryIs","table":"sources","key":{"aclId":2,"combination":7,"firstPrefix":"10.1.0.0/16"},"result":{"rules":[{"priority":9,"ruleFlag":true}]}}
{"op":"location","table":"sources","key":{"aclId":2,"combination":7,"firstPrefix":"10.1.0.0/16"}}
)");
    for (int line = 0; line < 4; ++line)
        ASSERT_EQ(Json::parse(script.readLine())["ok"], true);
    auto const row = Json::parse(script.readLine())["location"]["row"].get<int>();
    script.write(fmt::format(R"({{"op":"shadow","table":"sources","hwTable":0,"index":{}}})", row) + "\n");
    std::vector<std::string> arguments{"decode", "aclHash"};
    auto const answer = Json::parse(script.readLine());
    for (auto const& word : answer["words"])
        arguments.push_back(fmt::format("{:#x}", word.get<U32>()));
    EXPECT_EQ(script.ended(), 0);
    EXPECT_THAT(outputOf(arguments), Not(HasSubstr("10.1.0.0/16")));
    arguments.insert(arguments.end(), {"--number", "physTableIdx=1", "--number", "pipeline=0"});
    EXPECT_THAT(outputOf(arguments), AllOf(HasSubstr("firstPrefix=10.1.0.0/16"), HasSubstr("priority=9")));
}

TEST(DecodeCommandTest, RefusesNumbersThatAFactoryDoesNotTake) {
    expectRefused({"decode", "l3Lag", "1", "--number", "pipeline=1"},
                  "nerio decode: pipeline=1: l3Lag takes no numbers");
    expectRefused({"decode", "aclHash", "1", "--number", "processor=1"},
                  "nerio decode: processor=1: aclHash takes pipeline, physTableIdx");
    for (std::string const text : {"pipeline", "pipeline=", "pipeline=x", "pipeline=99999999999"}) {
        auto const result = runCommand({"decode", "aclHash", "1", "--number", text});
        EXPECT_EQ(result.status, 2);
        EXPECT_THAT(result.errors, StartsWith("nerio decode: " + text + ": pipeline is a number up to "));
    }
    auto const none = runCommand({"decode", "aclHash", "1", "--number", "physTableIdx=9"});
    EXPECT_EQ(none.status, 2);
    EXPECT_THAT(none.errors, StartsWith("nerio decode: default: aclHash: "));
    EXPECT_EQ(runCommand({"decode", "rules", "1", "--number", "pipeline=0", "--switch", "/tmp"}).status, 2);
}

TEST(DecodeCommandTest, TakesAProfileOfAFile) {
    TemporaryDirectory const directory;
    std::ofstream(directory.path("chip.json")) << R"({"preset":"api4"})";
    EXPECT_EQ(outputOf({"decode", "lpm11", "0x8001", "--profile", directory.path("chip.json")}),
              outputOf({"decode", "lpm11", "0x8001", "--profile", "api4"}));
    EXPECT_NE(outputOf({"decode", "lpm11", "0x8001"}),
              outputOf({"decode", "lpm11", "0x8001", "--profile", "api4"}));
    std::ofstream(directory.path("bad.json")) << R"({"numPorts":"many"})";
    auto const bad = runCommand({"decode", "lpm11", "1", "--profile", directory.path("bad.json")});
    EXPECT_EQ(bad.status, 2);
    EXPECT_THAT(bad.errors, StartsWith("nerio decode: " + directory.path("bad.json") + ": "));
    EXPECT_EQ(runCommand({"decode", "lpm11", "1", "--profile", directory.path("none")}).status, 2);
}

TEST(DecodeCommandTest, RefusesWhatIsNoRow) {
    expectRefused({"decode", "noTable", "1"}, "nerio decode: noTable: unknown table");
    expectRefused({"decode", "portConfig", "0x1G"}, "nerio decode: 0x1G: not a word of 32 bits");
    expectRefused({"decode", "portConfig", "0x100000000"},
                  "nerio decode: 0x100000000: not a word of 32 bits");
    expectRefused({"decode", "l2Control", "1", "2"}, "nerio decode: l2Control: 2 words, where a row has 1");
    expectRefused({"decode", "l2Control", "1", "--row", "52"},
                  "nerio decode: l2Control: no row 52; rows are 0 to 51");
    expectRefused({"decode", "l2Control", "1", "--hw-table", "3"},
                  "nerio decode: l2Control: no hardware table 3; the last one is 0");
    expectRefused({"decode", "lpm", "1"}, "nerio decode: lpm: no hardware tables on this chip");
}

}  // namespace
