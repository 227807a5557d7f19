#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ScriptLines.h"
#include "TemporaryDirectory.h"

namespace {

using Agent::Json;
using namespace NerioTest::Literals;

constexpr char const* portRange =
    "RangeException: NerioSwitch::ChipPortId::value < NerioSwitch::ChipPortId::min or > "
    "NerioSwitch::ChipPortId::null not allowed";
constexpr char const* rowRange =
    "RangeException: NerioSwitchApi::HwIndex::value < NerioSwitchApi::HwTableDescriptor::firstIndex or > "
    "NerioSwitchApi::HwTableDescriptor::lastIndex not allowed";
constexpr char const* tooManyWords = "RangeException: an array of 9 data words is longer than the limit of 8";

class ScriptFailureTest : public NerioTest::ScriptFixture {};

TEST_F(ScriptFailureTest, RangeFailuresHaveTheTypesOwnText) {
    startQuietly();
    for (std::string const port : {"54", "65536", "18446744073709551615", "-1", "\"0x36\""}) {
        EXPECT_EQ(script.failure(R"({"op":"entryIs","table":"ports","key":{"portId":)" + port +
                                 R"(},"result":{}})"),
                  portRange);
    }
    EXPECT_EQ(script.failure(R"({"op":"entryIs","table":"ports","key":{"portId":52},"result":{}})"),
              rowRange);
    // The types take it, so reading answers.
    EXPECT_EQ(entry(53)["has"], false);
}

TEST_F(ScriptFailureTest, FailuresNameWhatIsUnknown) {
    startQuietly();
    std::pair<char const*, char const*> const cases[] = {
        {R"({"op":"entryIs","table":"ports","key":{"portID":5},"result":{}})",
         "ScriptError: unknown attribute \"portID\" of NerioSwitchTable::PortConfigKey"},
        {R"({"op":"entryIs","table":"ports","key":{"portId":5},"result":{"mode":1}})",
         "ScriptError: unknown attribute \"mode\" of NerioSwitchTable::PortConfigResult"},
        {R"({"op":"entryis","table":"ports"})", "ScriptError: unknown op \"entryis\""},
        {R"({"op":"capacity","table":"ports"})", "ScriptError: unknown member \"table\" of capacity"},
        {R"({"op":"entry","table":"ports","key":{"portId":5},"kye":1})",
         "ScriptError: unknown member \"kye\" of entry"},
        {R"({"op":"table","family":"portconfig","name":"p"})",
         "ScriptError: family: unknown family \"portconfig\""},
        {R"({"op":"table","family":"portConfig","name":"p","pipe":1})",
         "ScriptError: unknown member \"pipe\""},
        {R"({"op":"table","family":"portConfig","name":"ports"})",
         "ScriptError: name: there is a table \"ports\" already"},
        {R"({"op":"entries","table":"port"})", "ScriptError: table: there is no table \"port\""},
        {R"({"op":"profile","ports":52})", "ScriptError: unknown attribute \"ports\" of the profile"},
        {R"({"op":"profile","preset":"big"})", "ScriptError: unknown profile preset \"big\""},
        {R"({"op":"profile","layouts":{"l4":{}}})", "ScriptError: unknown member \"l4\""},
        {R"({"op":"profile","layouts":{"l2":{"rows":1}}})", "ScriptError: unknown member \"rows\""},
        {R"({"op":"profile","ingressPipes":[{"pipe":0}]})", "ScriptError: unknown member \"pipe\""},
        {R"({"op":"start","mode":"hot"})", R"(ScriptError: mode: "hot" is neither "cold" nor "warm")"},
        {R"({"op":"shadow","table":"ports","hwTable":1,"index":0})",
         "ScriptError: hwTable: the table has no hardware table 1"},
        {R"({"op":"registersOf","table":"ports","hwTable":0,"index":52})",
         "ScriptError: index: the hardware table has no row 52"},
        {R"({"op":"status","table":"ports"})", "ScriptError: table: \"ports\" has no status"},
        {R"({"op":"location","table":"ports","key":{"portId":1}})",
         "ScriptError: table: \"ports\" has no location"},
        {R"({"op":"hash","table":"ports","key":{"portId":1}})", "ScriptError: table: \"ports\" has no hash"},
        {R"({"op":"hit","table":"ports","hwTable":0,"index":1})", "ScriptError: table: \"ports\" has no hit"},
    };
    for (auto const& [line, expected] : cases)
        EXPECT_EQ(script.failure(line), expected);
}

TEST_F(ScriptFailureTest, FailuresNameWhatIsMissingOrOfTheWrongKind) {
    startQuietly();
    std::pair<char const*, char const*> const cases[] = {
        {"{}", "ScriptError: \"op\" is missing"},
        {"[1]", "ScriptError: expected an object, found an array"},
        {"7", "ScriptError: expected an object, found 7"},
        {R"({"op":7})", "ScriptError: op: expected a text, found 7"},
        {R"({"op":"entry","key":{}})", "ScriptError: \"table\" is missing"},
        {R"({"op":"entry","table":"ports"})", "ScriptError: \"key\" is missing"},
        {R"({"op":"entry","table":"ports","key":5})", "ScriptError: key: expected an object, found 5"},
        {R"({"op":"entryIs","table":"ports","key":{"portId":5}})", "ScriptError: \"result\" is missing"},
        {R"({"op":"entryIs","table":"ports","key":{"portId":5},"result":{"txDisabled":1}})",
         "ScriptError: txDisabled: expected true or false, found 1"},
        {R"({"op":"entryIs","table":"ports","key":{"portId":5},"result":[[[]]]})",
         "ScriptError: result: expected an object, found an array"},
        {R"({"op":"table","family":"portConfig"})", "ScriptError: \"name\" is missing"},
        {R"({"op":"shadowIs","table":"ports","hwTable":0,"index":0})", "ScriptError: \"words\" is missing"},
        {R"({"op":"shadowIs","table":"ports","hwTable":0,"index":0,"words":7})",
         "ScriptError: words: expected an array, found 7"},
        {R"({"op":"start"})", "ScriptError: \"mode\" is missing"},
        {R"({"op":"poll","time":"now"})", "ScriptError: time: expected a number, found \"now\""},
    };
    for (auto const& [line, expected] : cases)
        EXPECT_EQ(script.failure(line), expected);
}

TEST_F(ScriptFailureTest, LinesThatNeedAStartedTableSaySo) {
    for (std::string const line :
         {R"({"op":"hwTables","table":"ports"})", R"({"op":"shadow","table":"ports","hwTable":0,"index":0})",
          R"({"op":"registersOf","table":"ports","hwTable":0,"index":0})"})
        EXPECT_EQ(script.failure(line), "ScriptError: table: \"ports\" is not started");
    EXPECT_EQ(script(R"({"op":"capacity"})"), R"({"ok":true,"counters":[]})"_json_text);
    EXPECT_EQ(script(R"({"op":"registers"})"), R"({"ok":true,"writes":[]})"_json_text);
}

TEST_F(ScriptFailureTest, ALineThatFailsChangesNothing) {
    startQuietly();
    entryIs(5, R"({"portMode":"trunk"})");
    script.ok(R"({"op":"shadowIs","table":"ports","hwTable":0,"index":9,"words":[1,2,3,4,5,6,7,8,9]})");
    script.ok(R"({"op":"shadowIs","table":"ports","hwTable":0,"index":10,"words":[1,2,3,4,5,6,7,8,9]})");
    everything();
    auto const before = everything();
    for (
        std::string const line : {
            R"({"op":"entryIs","table":"ports","key":{"portId":5},"result":{"portMode":"qinq","no":1}})",
            R"({"op":"entryIs","table":"ports","key":{"portId":5},"result":{"portMode":"qinq","txDisabled":1}})",
            R"({"op":"entryIs","table":"ports","key":{"portId":54},"result":{"portMode":"qinq"}})",
            R"({"op":"entryIs","table":"ports","key":{"portId":52},"result":{"portMode":"qinq"}})",
            R"({"op":"entryIs","table":"ports","key":{"portId":9},"result":{"portMode":"qinq"}})",
            R"({"op":"entryDel","table":"ports","key":{"portId":54}})",
            R"({"op":"entryDel","table":"ports","key":{"portId":5},"x":0})",
            R"({"op":"shadowIs","table":"ports","hwTable":0,"index":52,"words":[1]})",
            R"({"op":"shadowIs","table":"ports","hwTable":0,"index":5,"words":[1,4294967296]})",
            R"({"op":"shadowCorrupt","table":"ports","hwTable":0,"index":52})",
            R"({"op":"shadowCorrupt","table":"ports","hwTable":0,"index":5,"x":0})",
            R"({"op":"profile","numPorts":40})", R"({"op":"table","family":"portConfig","name":"ports"})",
            R"({"op":"start","mode":"hot"})", R"({"op":"restart","mode":"hot"})",
            R"({"op":"restart","mode":"warm"})",  // rows 9 and 10 cannot be read
        }) {
        EXPECT_NE(script.failure(line), "") << line;
        EXPECT_EQ(everything(), before) << line;
    }
}

TEST_F(ScriptFailureTest, ADeletionThatFailsLeavesTheEntry) {
    startQuietly();
    entryIs(9, R"({"portMode":"trunk"})");
    entryIs(11, R"({"portMode":"qinq"})");
    script.ok(R"({"op":"shadowIs","table":"ports","hwTable":0,"index":9,"words":[1,2,3,4,5,6,7,8,9]})");
    everything();
    auto const before = everything();
    EXPECT_EQ(script.failure(R"({"op":"entryDel","table":"ports","key":{"portId":9}})"), tooManyWords);
    EXPECT_EQ(everything(), before);
    EXPECT_EQ(script.failure(R"({"op":"entryDelAll","table":"ports"})"), tooManyWords);
    EXPECT_EQ(changes(), Json::array());
    EXPECT_EQ(entries(), before[0]);
    EXPECT_EQ(words(11), R"([2,0,0,0])"_json_text);
}

TEST_F(ScriptFailureTest, AStartThatFailsChangesNothing) {
    script.ok(R"({"op":"profile","numPorts":60})");
    entryIs(5, R"({"portMode":"trunk"})");
    changes();
    EXPECT_EQ(script.failure(R"({"op":"start","mode":"cold"})"), portRange);
    EXPECT_EQ(script.failure(R"({"op":"start","mode":"warm"})"), portRange);
    EXPECT_EQ(writes(), Json::array());
    EXPECT_EQ(changes(), Json::array());
    EXPECT_EQ(script.failure(R"({"op":"hwTables","table":"ports"})"),
              "ScriptError: table: \"ports\" is not started");
    // The profile is still to be had otherwise, and the table comes up with what it was told.
    script.ok(R"({"op":"profile"})");
    start();
    EXPECT_EQ(words(5), R"([0,0,0,0])"_json_text);
}

TEST_F(ScriptFailureTest, NineWordsAreRefusedWhenTheyAreRead) {
    startQuietly();
    script.ok(R"({"op":"shadowIs","table":"ports","hwTable":0,"index":9,"words":[1,2,3,4,5,6,7,8,9]})");
    EXPECT_EQ(script.failure(R"({"op":"shadow","table":"ports","hwTable":0,"index":9})"), tooManyWords);
    EXPECT_EQ(script.failure(
                  R"({"op":"entryIs","table":"ports","key":{"portId":9},"result":{"portMode":"trunk"}})"),
              tooManyWords);
    EXPECT_EQ(entry(9)["has"], false);
}

TEST_F(ScriptFailureTest, ProfileIsFixedOnceATableHasBeenStarted) {
    start();
    EXPECT_EQ(script.failure(R"({"op":"profile"})"),
              "ScriptError: the profile is fixed once a table has been started");
}

TEST_F(ScriptFailureTest, ProfileRefusesPortCountsThatNoChipHas) {
    EXPECT_EQ(script.failure(R"({"op":"profile","numPorts":0})"),
              "RangeException: numPorts 0 < 1 not allowed");
    EXPECT_EQ(script.failure(R"({"op":"profile","numPorts":1025})"),
              "RangeException: numPorts 1025 > 1024 not allowed");
    EXPECT_EQ(script.failure(R"({"op":"profile","numPorts":65536})"),
              "RangeException: numPorts 65536 > 65535 not allowed");
    EXPECT_EQ(script.failure(R"({"op":"profile","hwApi":6.2})"),
              "ScriptError: hwApi: expected a text, found 6.2");
    EXPECT_EQ(script.failure(R"({"op":"profile","name":["a","b","c"]})"),
              "ScriptError: name: more than 2 elements");
    EXPECT_EQ(script.failure(R"({"op":"profile","ingressPipes":[{"pipeId":0,"firstPort":3,"lastPort":2}]})"),
              "ScriptError: lastPort: below firstPort");
    EXPECT_EQ(script.failure(R"({"op":"profile","egressPipes":[{"pipeId":0},{"pipeId":0}]})"),
              "ScriptError: pipeId: another pipe has this number");
}

TEST(ScriptFailureDirectoryTest, AStartThatCannotOpenItsSwitchCanBeTriedAgain) {
    TemporaryDirectory directory;
    contentsOfIs(directory.path("chip"), "no chip memory");
    NerioTest::ScriptLines script{directory.path()};
    script.ok(R"({"op":"table","family":"portConfig","name":"ports"})");
    EXPECT_EQ(script.failure(R"({"op":"start","mode":"warm"})"),
              "ResourceException: " + directory.path("chip") + " is not a chip memory");
    std::filesystem::remove(directory.path("chip"));
    script.ok(R"({"op":"start","mode":"warm"})");
}

}  // namespace
