#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ScriptLines.h"
#include "TemporaryDirectory.h"

namespace {

using Agent::Json;
using namespace NerioTest::Literals;

constexpr char const* rowRange =
    "RangeException: NerioSwitchApi::HwIndex::value < NerioSwitchApi::HwTableDescriptor::firstIndex or > "
    "NerioSwitchApi::HwTableDescriptor::lastIndex not allowed";
constexpr char const* shadowRange =
    "RangeException: NerioSwitchApi::HwIndex::value < NerioSwitchApi::ShadowTable::firstIndex or > "
    "NerioSwitchApi::ShadowTable::lastIndex not allowed";

class ScriptTest : public NerioTest::ScriptFixture {};

TEST_F(ScriptTest, LinesWithoutAnAnswerOfTheirOwnAnswerOkAlone) {
    auto const ok = R"({"ok":true})"_json_text;
    EXPECT_EQ(script(R"({"op":"profile"})"), ok);
    EXPECT_EQ(script(R"({"op":"table","family":"portConfig","name":"others"})"), ok);
    EXPECT_EQ(script(R"({"op":"start","mode":"cold"})"), ok);
    EXPECT_EQ(script(R"({"op":"entryIs","table":"ports","key":{"portId":1},"result":{}})"), ok);
    EXPECT_EQ(script(R"({"op":"entryDelAll","table":"ports"})"), ok);
    EXPECT_EQ(script(R"({"op":"shadowIs","table":"ports","hwTable":0,"index":1,"words":[7,0,0,0]})"), ok);
    EXPECT_EQ(script(R"({"op":"shadowCorrupt","table":"ports","hwTable":0,"index":1})"), ok);
    EXPECT_EQ(script(R"({"op":"poll","time":3.5})"), ok);
    EXPECT_EQ(script(R"({"op":"poll","time":null})"), ok);
    EXPECT_EQ(script(R"({"op":"restart","mode":"warm"})"), ok);
}

TEST_F(ScriptTest, EntryTellsWhetherThereIsOneAndItsResult) {
    startQuietly();
    EXPECT_EQ(entry(5),
              R"({"ok":true,"has":false,
                  "result":{"portMode":"access","txDisabled":false,"l2ForwardingDisabled":false}})"_json_text);
    entryIs(5, R"({"portMode":"qinq","l2ForwardingDisabled":true})");
    EXPECT_EQ(entry(5),
              R"({"ok":true,"has":true,
                  "result":{"portMode":"qinq","txDisabled":false,"l2ForwardingDisabled":true}})"_json_text);
}

TEST_F(ScriptTest, EntryDelGivesTheRemovedResultOrTheDefault) {
    startQuietly();
    entryIs(5, R"({"portMode":"trunk"})");
    auto const* const line = R"({"op":"entryDel","table":"ports","key":{"portId":5}})";
    EXPECT_EQ(script(line),
              R"({"ok":true,
                  "result":{"portMode":"trunk","txDisabled":false,"l2ForwardingDisabled":false}})"_json_text);
    EXPECT_EQ(words(5), R"([1,0,0,0])"_json_text);
    drain();
    EXPECT_EQ(script(line),
              R"({"ok":true,
                  "result":{"portMode":"access","txDisabled":false,"l2ForwardingDisabled":false}})"_json_text);
    EXPECT_EQ(writes(), Json::array());
    EXPECT_EQ(changes(), Json::array());
}

TEST_F(ScriptTest, EntriesStandInKeyOrder) {
    startQuietly();
    for (int const port : {30, 4, 51, 0, 17})
        entryIs(port, R"({"txDisabled":true})");
    Json ports = Json::array();
    for (auto const& member : entries()) {
        EXPECT_EQ(member["result"],
                  R"({"portMode":"access","txDisabled":true,"l2ForwardingDisabled":false})"_json_text);
        ports.push_back(member["key"]["portId"]);
    }
    EXPECT_EQ(ports, R"([0,4,17,30,51])"_json_text);
    script.ok(R"({"op":"entryDelAll","table":"ports"})");
    EXPECT_EQ(script(R"({"op":"entries","table":"ports"})"), R"({"ok":true,"entries":[]})"_json_text);
}

TEST_F(ScriptTest, AttributesLeftOutKeepTheirDefaults) {
    startQuietly();
    entryIs(5, "{}");
    EXPECT_EQ(entry(5)["result"],
              R"({"portMode":"access","txDisabled":false,"l2ForwardingDisabled":false})"_json_text);
    EXPECT_EQ(entry(5)["has"], true);
    // The default key is the null port, which has no row.
    EXPECT_EQ(script.failure(R"({"op":"entryIs","table":"ports","key":{},"result":{}})"), rowRange);
}

TEST_F(ScriptTest, NumbersAreIntegersOrTextsOfSixteens) {
    startQuietly();
    script.ok(R"({"op":"entryIs","table":"ports","key":{"portId":"0x1F"},"result":{"txDisabled":true}})");
    EXPECT_EQ(entries()[0]["key"], R"({"portId":31})"_json_text);
    script.ok(R"({"op":"shadowIs","table":"ports","hwTable":"0x0","index":"0x5",
                  "words":["0xffffffff",4294967295]})");
    EXPECT_EQ(words(5), R"([4294967295,4294967295])"_json_text);
    for (std::string const number : {"\"31\"", "5.0", "\"0x\"", "\"0xG\"", "true", "[]", "null", "\"\"", "{}",
                                     "18446744073709551616", "\"0x10000000000000000\"", "\"0x1 \""}) {
        EXPECT_THAT(
            script.failure(R"({"op":"entry","table":"ports","key":{"portId":)" + number + "}}"),
            testing::StartsWith("ScriptError: portId: expected an integer of at most 64 bits, found "));
    }
}

TEST_F(ScriptTest, EnumeratorsAreNamesOrNumbers) {
    startQuietly();
    for (std::string const mode : {"\"qinq\"", "2", "\"0x2\""}) {
        EXPECT_EQ(entryIs(5, R"({"portMode":)" + mode + "}")["ok"], true);
        EXPECT_EQ(entry(5)["result"]["portMode"], "qinq");
        EXPECT_EQ(words(5), R"([2,0,0,0])"_json_text);
        entryIs(5, "{}");
    }
    EXPECT_EQ(entryIs(5, R"({"portMode":3})")["ok"], true);
    EXPECT_EQ(entry(5)["result"]["portMode"], R"(3)"_json_text);
    EXPECT_EQ(words(5), R"([3,0,0,0])"_json_text);
    auto const failure = [&](std::string const& mode) {
        return script.failure(R"({"op":"entryIs","table":"ports","key":{"portId":1},"result":{"portMode":)" +
                              mode + "}}");
    };
    EXPECT_EQ(failure("\"tunnel\""), "ScriptError: portMode: unknown enumerator \"tunnel\"");
    EXPECT_EQ(failure("\"2\""), "ScriptError: portMode: unknown enumerator \"2\"");
    EXPECT_EQ(failure("4294967296"), "RangeException: portMode 4294967296 > 4294967295 not allowed");
    EXPECT_EQ(failure("-1"), "RangeException: portMode -1 < 0 not allowed");
}

TEST_F(ScriptTest, PublishedDrains) {
    entryIs(6, R"({"portMode":"trunk"})");
    entryIs(5, R"({"portMode":"trunk"})");
    entryIs(5, R"({"portMode":"trunk"})");
    EXPECT_EQ(
        script(R"({"op":"published"})"),
        R"({"ok":true,"changes":[["ports","entry",{"portId":6}],["ports","entry",{"portId":5}]]})"_json_text);
    EXPECT_EQ(changes(), Json::array());
    start();
    EXPECT_EQ(changes(), Json::array());
    script.ok(R"({"op":"entryDel","table":"ports","key":{"portId":6}})");
    EXPECT_EQ(changes(), R"([["ports","entry",{"portId":6}]])"_json_text);
}

TEST_F(ScriptTest, RegistersDrainInTheOrderOfWrites) {
    entryIs(3, R"({"portMode":"trunk"})");
    EXPECT_EQ(writes(), Json::array());
    start();
    auto const started = writes();
    ASSERT_EQ(started.size(), 52u);
    for (std::size_t port = 0; port < 52; ++port) {
        EXPECT_EQ(started[port],
                  Json({"egress/port[" + std::to_string(port) + "]/vlan_cfg", port == 3 ? 0 : 1}));
    }
    entryIs(9, R"({"portMode":"qinq","txDisabled":true,"l2ForwardingDisabled":true})");
    entryIs(2, R"({"txDisabled":true})");
    EXPECT_EQ(
        script(R"({"op":"registers"})"),
        R"({"ok":true,"writes":[["egress/port[9]/vlan_cfg",14],["egress/port[2]/vlan_cfg",5]]})"_json_text);
    EXPECT_EQ(writes(), Json::array());
}

TEST_F(ScriptTest, HwTablesAndRegistersOfGivePaths) {
    start();
    EXPECT_EQ(
        script(R"({"op":"hwTables","table":"ports"})"),
        R"({"ok":true,"hwTables":[{"id":0,"name":"ports/demo/PortConfig/0","firstIndex":0,"lastIndex":51,
                  "registers":["egress/port[0]/vlan_cfg"]}]})"_json_text);
    EXPECT_EQ(script(R"({"op":"registersOf","table":"ports","hwTable":0,"index":51})"),
              R"({"ok":true,"registers":["egress/port[51]/vlan_cfg"]})"_json_text);
}

TEST_F(ScriptTest, ShadowIsSetsAndDropsRows) {
    startQuietly();
    EXPECT_EQ(script(R"({"op":"shadow","table":"ports","hwTable":0,"index":5})"),
              R"({"ok":true,"words":[1,0,0,0]})"_json_text);
    script.ok(R"({"op":"shadowIs","table":"ports","hwTable":0,"index":5,"words":null})");
    EXPECT_EQ(script(R"({"op":"shadow","table":"ports","hwTable":0,"index":5})"),
              R"({"ok":true,"words":null})"_json_text);
    script.ok(R"({"op":"shadowIs","table":"ports","hwTable":0,"index":5,"words":[]})");
    EXPECT_EQ(words(5), Json::array());
    script.ok(R"({"op":"shadowIs","table":"ports","hwTable":0,"index":5,"words":[1,2,3,4,5,6,7,8]})");
    EXPECT_EQ(words(5), R"([1,2,3,4,5,6,7,8])"_json_text);
    EXPECT_EQ(words(52), Json());
    EXPECT_EQ(words(2147483647), Json());
    EXPECT_EQ(script.failure(R"({"op":"shadowIs","table":"ports","hwTable":0,"index":52,"words":[1]})"),
              shadowRange);
    EXPECT_EQ(script.failure(R"({"op":"shadowIs","table":"ports","hwTable":0,"index":52,"words":null})"),
              shadowRange);
    EXPECT_EQ(writes(), Json::array());
}

TEST_F(ScriptTest, ACorruptRowIsReportedUntilItIsWritten) {
    startQuietly();
    script.ok(R"({"op":"shadowCorrupt","table":"ports","hwTable":0,"index":5})");
    EXPECT_THAT(script.failure(R"({"op":"shadow","table":"ports","hwTable":0,"index":5})"),
                testing::StartsWith("CorruptionDetectedException: row 5 of the shadow of "));
    entryIs(5, "{}");  // the default result, which the row held before
    EXPECT_EQ(writes(), R"([["egress/port[5]/vlan_cfg",1]])"_json_text);
    EXPECT_EQ(words(5), R"([1,0,0,0])"_json_text);
}

TEST_F(ScriptTest, AWarmRestartAdoptsWhatTheShadowHolds) {
    start();
    entryIs(5, R"({"portMode":"trunk","txDisabled":true})");
    entryIs(6, "{}");
    script.ok(R"({"op":"shadowIs","table":"ports","hwTable":0,"index":7,"words":[11,0,0,0]})");
    script.ok(R"({"op":"shadowIs","table":"ports","hwTable":0,"index":8,"words":null})");
    script.ok(R"({"op":"shadowCorrupt","table":"ports","hwTable":0,"index":9})");
    drain();
    EXPECT_EQ(script(R"({"op":"restart","mode":"warm"})"), R"({"ok":true})"_json_text);
    EXPECT_EQ(entries(),
              R"([{"key":{"portId":5},
                   "result":{"portMode":"trunk","txDisabled":true,"l2ForwardingDisabled":false}},
                  {"key":{"portId":7},
                   "result":{"portMode":3,"txDisabled":false,"l2ForwardingDisabled":true}}])"_json_text);
    EXPECT_EQ(changes(), R"([["ports","entry",{"portId":5}],["ports","entry",{"portId":7}]])"_json_text);
    EXPECT_EQ(writes(), R"([["egress/port[8]/vlan_cfg",1],["egress/port[9]/vlan_cfg",1]])"_json_text);
    entryIs(5, R"({"portMode":"trunk","txDisabled":true})");
    EXPECT_EQ(writes(), Json::array());
    EXPECT_EQ(changes(), Json::array());
}

TEST_F(ScriptTest, AColdRestartForgets) {
    start();
    entryIs(5, R"({"portMode":"trunk"})");
    drain();
    script.ok(R"({"op":"restart","mode":"cold"})");
    EXPECT_EQ(entries(), Json::array());
    EXPECT_EQ(changes(), Json::array());
    EXPECT_EQ(writes().size(), 52u);
    EXPECT_EQ(words(5), R"([1,0,0,0])"_json_text);
    entryIs(5, R"({"portMode":"trunk"})");
    EXPECT_EQ(changes(), R"([["ports","entry",{"portId":5}]])"_json_text);
}

TEST_F(ScriptTest, ARestartBringsUpATableThatWasNotStarted) {
    entryIs(5, R"({"portMode":"trunk"})");
    script.ok(R"({"op":"restart","mode":"warm"})");
    EXPECT_EQ(entries(), Json::array());
    EXPECT_EQ(words(5), R"([1,0,0,0])"_json_text);
}

TEST_F(ScriptTest, StartBringsUpOnlyWhatIsNotUp) {
    start();
    entryIs(5, R"({"portMode":"trunk"})");
    drain();
    script.ok(R"({"op":"table","family":"portConfig","name":"others"})");
    start("warm");
    EXPECT_EQ(writes().size(), 52u);
    EXPECT_EQ(words(5), R"([0,0,0,0])"_json_text);
    script.ok(R"({"op":"entryIs","table":"others","key":{"portId":2},"result":{"portMode":"qinq"}})");
    EXPECT_EQ(changes(), R"([["others","entry",{"portId":2}]])"_json_text);
    start();
    EXPECT_EQ(writes().size(), 1u);
}

TEST_F(ScriptTest, TablesStartInOrderOfCreation) {
    script.ok(R"({"op":"table","family":"portConfig","name":"a"})");
    script.ok(R"({"op":"entryIs","table":"a","key":{"portId":0},"result":{"portMode":"qinq"}})");
    start();
    auto const started = writes();
    ASSERT_EQ(started.size(), 104u);
    EXPECT_EQ(started[0][1], 1);
    EXPECT_EQ(started[52][1], 2);
}

TEST_F(ScriptTest, TextGivesTheTextForms) {
    EXPECT_EQ(script(R"({"op":"text","table":"ports","key":{"portId":5}})"),
              (Json{{"ok", true}, {"key", "NerioSwitchTable::PortConfigKey(portId=5)"}}));
    EXPECT_EQ(script(R"({"op":"text","table":"ports","key":{},"result":{"txDisabled":true}})"),
              (Json{{"ok", true},
                    {"key", "NerioSwitchTable::PortConfigKey(portId=53)"},
                    {"result", "portMode:access txDisabled:true  l2ForwardingDisabled:false"}}));
}

TEST_F(ScriptTest, NothingIsInconsistentInPortConfiguration) {
    start();
    EXPECT_EQ(script(R"({"op":"inconsistent","table":"ports"})"), R"({"ok":true,"keys":[]})"_json_text);
    EXPECT_EQ(script(R"({"op":"capacity"})"), R"({"ok":true,"counters":[]})"_json_text);
}

TEST_F(ScriptTest, OldVlanRegistersHaveTheOldName) {
    for (auto const& [version, name] : {std::pair{0, "cfg"}, {1, "cfg"}, {2, "vlan_cfg"}, {7, "vlan_cfg"}}) {
        NerioTest::ScriptLines other;
        other.ok(R"({"op":"profile","vlanRegVer":)" + std::to_string(version) + "}");
        other.ok(R"({"op":"table","family":"portConfig","name":"ports"})");
        other.ok(R"({"op":"start","mode":"cold"})");
        EXPECT_EQ(other(R"({"op":"registersOf","table":"ports","hwTable":0,"index":17})")["registers"],
                  Json::array({std::string("egress/port[17]/") + name}));
    }
}

TEST_F(ScriptTest, ProfileAttributesHaveTheirEffectOnPortConfiguration) {
    script.ok(R"({"op":"profile","name":["edge","spare"],"numPorts":8})");
    start();
    EXPECT_EQ(script(R"({"op":"hwTables","table":"ports"})")["hwTables"],
              R"([{"id":0,"name":"ports/edge/PortConfig/0","firstIndex":0,"lastIndex":7,
                   "registers":["egress/port[0]/vlan_cfg"]}])"_json_text);
    EXPECT_EQ(writes().size(), 8u);
    EXPECT_EQ(script.failure(R"({"op":"entryIs","table":"ports","key":{"portId":8},"result":{}})"), rowRange);
}

TEST_F(ScriptTest, AProfileLineStartsFromItsPreset) {
    script.ok(R"({"op":"profile","numPorts":8})");
    script.ok(R"({"op":"profile","name":["edge","spare"]})");
    start();
    EXPECT_EQ(writes().size(), 52u);
}

TEST_F(ScriptTest, TheNumbersOfOtherFamiliesAreTaken) {
    script.ok(R"({"op":"table","family":"portConfig","name":"more","pipeline":1,"numFloodsForEcmp":4})");
}

TEST(ScriptDirectoryTest, ChipAndShadowOutliveTheScript) {
    TemporaryDirectory directory;
    auto const* const table = R"({"op":"table","family":"portConfig","name":"ports"})";
    {
        NerioTest::ScriptLines script{directory.path("switch")};
        script.ok(table);
        script.ok(R"({"op":"start","mode":"cold"})");
        script.ok(R"({"op":"entryIs","table":"ports","key":{"portId":5},"result":{"portMode":"trunk"}})");

        NerioTest::ScriptLines second{directory.path("switch")};
        second.ok(table);
        EXPECT_EQ(second.failure(R"({"op":"start","mode":"warm"})"),
                  "ShadowException: " + directory.path("switch/shadow/shadow.lock") + " is held by process " +
                      std::to_string(::getpid()));
    }
    NerioTest::ScriptLines script{directory.path("switch")};
    script.ok(table);
    script.ok(R"({"op":"start","mode":"warm"})");
    EXPECT_EQ(script(R"({"op":"registers"})")["writes"], Json::array());
    EXPECT_EQ(script(R"({"op":"entries","table":"ports"})")["entries"][0]["key"]["portId"], 5);
}

}  // namespace
