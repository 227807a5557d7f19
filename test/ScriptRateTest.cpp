#include <fmt/format.h>
#include <gtest/gtest.h>

#include "ScriptLines.h"

namespace {

using Agent::Json;
using namespace NerioTest::Literals;

/** A script with the table "police", and "storm", whose table has a name of its own. */
class ScriptRateTest : public testing::Test {
protected:
    ScriptRateTest() {
        script.ok(R"({"op":"profile","preset":"default","hwApi":"6.2"})");
        script.ok(R"({"op":"table","family":"copp","name":"police"})");
        script.ok(R"({"op":"table","family":"stormControl","name":"storm"})");
    }
    void start() {
        script.ok(R"({"op":"start","mode":"cold"})");
        writes();
        script.ok(R"({"op":"published"})");
    }
    Json line(std::string const& op, std::string const& table, std::string const& more = "") {
        return script.ok(fmt::format(R"({{"op":"{}","table":"{}"{}}})", op, table, more));
    }
    Json entryIs(std::string const& table, std::string const& key, std::string const& result) {
        return line("entryIs", table, fmt::format(R"(,"key":{},"result":{})", key, result));
    }
    Json writes() { return script.ok(R"({"op":"registers"})")["writes"]; }

    NerioTest::ScriptLines script;
};

constexpr char const* broadcast = R"({"portId":27,"trafficClass":"stormControlBcast"})";

TEST_F(ScriptRateTest, AnIntervalIsANumberWithItsFractionAndAKeyANumberAlone) {
    start();
    entryIs("police", "0", R"({"interval":31250.5})");
    entryIs("police", "\"0xE\"", R"({"increment":1000,"scaleFactor":2})");
    EXPECT_EQ(line("entries", "police")["entries"],
              R"([{"key":0,"result":{"result":0,"interval":31250.5,"increment":0,"scaleFactor":0}},
                  {"key":14,"result":{"result":0,"interval":0.0,"increment":1000,"scaleFactor":2}}])"_json_text);
    EXPECT_EQ(writes(), R"([["header/copp_interval",31250],["header/copp_interval",31250],
                            ["header/copp_interval",31250],
                            ["cpu_tx_pipeline[0]/rate_limiter/default_limit",2098152],
                            ["ingress/rate_limiter[0]/default_limit",2097812],
                            ["ingress/rate_limiter[1]/default_limit",2097812]])"_json_text);
    EXPECT_EQ(line("text", "police", R"(,"key":14,"result":{"result":1000})")["result"], "0x000003E8");
    EXPECT_EQ(
        script.failure(R"({"op":"entryIs","table":"police","key":15,"result":{}})"),
        "RangeException: NerioSwitchTable::CoppEntryKey::value < NerioSwitchTable::CoppEntryKey::min or > "
        "NerioSwitchTable::CoppEntryKey::max not allowed");
}

TEST_F(ScriptRateTest, AStormControlKeySaysPortAndClass) {
    start();
    entryIs("storm", broadcast, R"({"enabled":true,"scaleFactor":1,"increment":1000})");
    entryIs("storm", R"({"portId":27,"trafficClass":1})", R"({"interval":31250})");
    EXPECT_EQ(writes(), R"([["pipeline[1]/port[1]/broadcast_limit",1573864],
                            ["pipeline[1]/port[1]/interval_period",31250]])"_json_text);
    EXPECT_EQ(line("entries", "storm")["entries"],
              R"([{"key":{"portId":27,"trafficClass":"stormControlInterval"},
                   "result":{"result":0,"enabled":false,"interval":31250,"scaleFactor":8,"increment":262143}},
                  {"key":{"portId":27,"trafficClass":"stormControlBcast"},
                   "result":{"result":0,"enabled":true,"interval":31250000,"scaleFactor":1,
                             "increment":1000}}])"_json_text);
    EXPECT_EQ(
        line("entryDel", "storm", R"(,"key":{"portId":1,"trafficClass":4})")["result"],
        R"({"result":0,"enabled":false,"interval":31250000,"scaleFactor":8,"increment":262143})"_json_text);
}

TEST_F(ScriptRateTest, ATableGoesByTheNameInItsLineAlsoBehindARestart) {
    start();
    entryIs("storm", broadcast, R"({"enabled":true})");
    Json const key = Json::parse(broadcast);
    EXPECT_EQ(script.ok(R"({"op":"published"})")["changes"],
              Json::array({Json::array({"storm", "entry", key})}));
    auto const tables = line("hwTables", "storm")["hwTables"];
    ASSERT_EQ(tables.size(), 52u);
    EXPECT_EQ(tables[51], R"({"id":51,"name":"stormControlSwTable/demo/StormControl/51","firstIndex":1,
                              "lastIndex":4,"registers":["pipeline[1]/port[25]/interval_period"]})"_json_text);
    writes();
    script.ok(R"({"op":"restart","mode":"warm"})");
    EXPECT_EQ(script.ok(R"({"op":"published"})")["changes"],
              Json::array({Json::array({"storm", "entry", key})}))
        << "it came back";
    EXPECT_EQ(writes(), R"([["pipeline[1]/port[1]/broadcast_limit",786431]])"_json_text);
}

TEST_F(ScriptRateTest, ARowWithoutARegisterHasAnEmptyPath) {
    script.ok(R"({"op":"profile","preset":"default","hwApi":"5.0","noMuxInRegName":false})");
    start();
    auto const registersOf = [&](int index) {
        return line("registersOf", "police", fmt::format(R"(,"hwTable":1,"index":{})", index))["registers"];
    };
    EXPECT_EQ(registersOf(5), R"([""])"_json_text);
    EXPECT_EQ(registersOf(4), R"(["pipeline[1]/rate_limiter/l2_packet_limit"])"_json_text);
    entryIs("police", "5", R"({"result":1000})");
    EXPECT_EQ(writes(), Json::array());
    EXPECT_EQ(line("shadow", "police", R"(,"hwTable":1,"index":5)")["words"], R"([660])"_json_text);
    EXPECT_EQ(line("entry", "police", R"(,"key":5)")["has"], true);
}

TEST_F(ScriptRateTest, ADifferenceIsReportedAsInconsistent) {
    start();
    entryIs("police", "3", R"({"increment":1000})");
    line("shadowIs", "police", R"(,"hwTable":1,"index":3,"words":[1])");
    script.ok(R"({"op":"restart","mode":"warm"})");
    EXPECT_EQ(line("inconsistent", "police")["keys"], R"([3])"_json_text);
}

}  // namespace
