#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "PackedWords.h"
#include "ScriptLines.h"

namespace {

using Agent::Json;
using namespace NerioTest::Literals;

constexpr char const* outboundKey =
    R"({"natType":1,"sip":"10.0.0.5","sport":8080,"filterPfx":"198.51.100.0/24","ingressProfileId":3})";
constexpr char const* outboundResult =
    R"({"valid":true,"proto":1,"natSessionId":2,"l3LagIndex":5,"rewriteIndex":9})";

/** A script with a table of each family of address translation, of version 10.0. */
class ScriptNatTest : public testing::Test {
protected:
    ScriptNatTest() {
        script.ok(R"({"op":"profile","preset":"default","hwApi":"10.0"})");
        script.ok(R"({"op":"table","family":"natMatch","name":"m","pipeline":1})");
        script.ok(R"({"op":"table","family":"natDynMatch","name":"d","pipeline":1})");
        script.ok(R"({"op":"table","family":"natRewrite","name":"r","pipeline":1})");
    }
    void start() {
        script.ok(R"({"op":"start","mode":"cold"})");
        script.ok(R"({"op":"registers"})");
    }
    Json line(std::string const& op, std::string const& table, std::string const& key,
              std::string const& more = "") {
        return script.ok(fmt::format(R"({{"op":"{}","table":"{}","key":{}{}}})", op, table, key, more));
    }
    Json entryIs(std::string const& table, std::string const& key, std::string const& result) {
        return line("entryIs", table, key, R"(,"result":)" + result);
    }
    /** The row, over all ways, of a key. */
    U32 rowOf(std::string const& table, std::string const& key, U32 rowsPerWay) {
        auto const location = line("location", table, key)["location"];
        return location["table"].get<U32>() * rowsPerWay + location["row"].get<U32>();
    }
    Json shadow(std::string const& table, U32 row) {
        return script.ok(
            fmt::format(R"({{"op":"shadow","table":"{}","hwTable":0,"index":{}}})", table, row))["words"];
    }

    NerioTest::ScriptLines script;
};

TEST_F(ScriptNatTest, AMatchIsWrittenToTheRegistersOfItsProcessor) {
    start();
    entryIs("m", outboundKey, outboundResult);
    U32 const row = rowOf("m", outboundKey, 4096);
    ASSERT_LT(row, 4096u) << "the first way is free";
    auto const words = NerioTest::packed(7, {{0, 20, 0x0A000005 >> 12},
                                             {20, 16, 8080},
                                             {36, 3, 5},
                                             {39, 6, 3},
                                             {45, 32, 0xC6336400 | 24},
                                             {77, 2, 3},
                                             {79, 1, 1},
                                             {80, 2, 1},
                                             {82, 17, 2},
                                             {100, 1, 1},
                                             {102, 6, 9},
                                             {108, 6, 5},
                                             {128, 12, row},
                                             {145, 1, 1},
                                             {160, 32, 0x0A000005}});
    EXPECT_EQ(shadow("m", row), Json(words));
    auto const writes = script.ok(R"({"op":"registers"})")["writes"];
    ASSERT_EQ(writes.size(), 5u);
    for (U32 i = 0; i < 5; ++i) {
        auto const name = i < 4 ? "data" + std::to_string(i) : std::string("ctl");
        EXPECT_EQ(writes[i], Json::array({"ingress/processor_l4[0]/hash_" + name, words[i]}));
    }
}

TEST_F(ScriptNatTest, EntriesOfAllThreeSurviveAWarmRestart) {
    start();
    entryIs("m", outboundKey, outboundResult);
    entryIs("m", R"({"natType":2,"dip":"192.0.2.1"})", R"({"valid":true,"natSessionId":3})");
    entryIs("d", R"({"natType":0,"sip":"10.0.0.1","sport":1,"dip":"10.0.0.2","dport":2})",
            R"({"valid":true,"natSessionId":4})");
    entryIs("r", R"({"isUnicast":true,"natSessionId":2,"natProfileId":3})",
            R"({"valid":true,"newIp":"192.0.2.1","newPort":80,"checksumCorrection":4660})");
    entryIs("r", R"({"natSessionId":2,"vlanGroupId":4,"vlanGroupMemberIdx":1})",
            R"({"valid":true,"newIp":"192.0.2.2"})");
    auto const entries = [&](std::string const& table) {
        return script.ok(R"({"op":"entries","table":")" + table + "\"}")["entries"];
    };
    auto const matches = entries("m");
    auto const rewrites = entries("r");
    script.ok(R"({"op":"registers"})");
    script.ok(R"({"op":"restart","mode":"warm"})");
    EXPECT_EQ(script.ok(R"({"op":"registers"})")["writes"].size(), 0u);
    EXPECT_EQ(entries("m"), matches);
    EXPECT_EQ(entries("r"), rewrites);
    ASSERT_EQ(matches.size(), 2u);
    EXPECT_EQ(matches[0]["key"]["filterPfx"], "198.51.100.0/24");
    EXPECT_TRUE(matches[1]["key"]["filterPfx"].is_null());
    EXPECT_EQ(matches[1]["result"],
              R"({"valid":true,"proto":0,"natSessionId":3,"useAcl":false,"trapToCpu":false,
                  "l3LagIndex":57,"rewriteIndex":0})"_json_text);
    ASSERT_EQ(rewrites.size(), 2u);
    EXPECT_EQ(rewrites[0]["key"]["isUnicast"], false);
    auto const dynamic = entries("d");
    ASSERT_EQ(dynamic.size(), 1u);
    EXPECT_EQ(dynamic[0]["key"]["natType"], 6) << "0 reads back as 6";
}

TEST_F(ScriptNatTest, HashesTellTheBitsThatAreHashed) {
    start();
    auto const bits = [&](std::string const& table, std::string const& key) {
        auto const answer = line("hash", table, key);
        EXPECT_EQ(answer["input"].get<std::string>().size(), (answer["bits"].get<U32>() + 7) / 8 * 2);
        return std::pair(answer["bits"].get<U32>(), answer["hashes"].size());
    };
    EXPECT_EQ(bits("m", outboundKey), std::pair(91u, std::size_t{3}));
    EXPECT_EQ(bits("d", R"({"natType":6})"), std::pair(102u, std::size_t{4}));
    EXPECT_EQ(bits("r", "{}"), std::pair(25u, std::size_t{4}));
    EXPECT_EQ(line("hash", "r", R"({"isUnicast":true,"natSessionId":1,"oddPort":true})")["input"],
              "01000001");
}

TEST_F(ScriptNatTest, HitsOfBothKindsOfMatchArePolled) {
    start();
    std::string const flow = R"({"natType":7,"sip":"10.0.0.1","sport":1,"dip":"10.0.0.2","dport":2})";
    entryIs("m", outboundKey, outboundResult);
    entryIs("d", flow, R"({"valid":true})");
    auto const lastHit = [&](std::string const& table) {
        return script.ok(R"({"op":"status","table":")" + table + "\"}")["status"][0]["lastHit"];
    };
    script.ok(
        fmt::format(R"({{"op":"hit","table":"m","hwTable":0,"index":{}}})", rowOf("m", outboundKey, 4096)));
    script.ok(R"({"op":"poll","time":4})");
    EXPECT_EQ(lastHit("m"), 4);
    EXPECT_TRUE(lastHit("d").is_null());
    script.ok(fmt::format(R"({{"op":"hit","table":"d","hwTable":0,"index":{}}})", rowOf("d", flow, 1024)));
    script.ok(R"({"op":"poll","time":5})");
    EXPECT_EQ(lastHit("m"), 4);
    EXPECT_EQ(lastHit("d"), 5);
    EXPECT_EQ(script.failure(R"({"op":"hit","table":"r","hwTable":0,"index":0})"),
              "ScriptError: table: \"r\" has no hit");
}

TEST_F(ScriptNatTest, TextsAreThoseOfKeysAndResults) {
    auto const text = [&](std::string const& table, std::string const& key, std::string const& result) {
        auto const answer = line("text", table, key, R"(,"result":)" + result);
        return answer["key"].get<std::string>() + " | " + answer["result"].get<std::string>();
    };
    EXPECT_EQ(text("m", outboundKey, outboundResult),
              "natType=1 dip=0.0.0.0 dport=0 sip=10.0.0.5 sport=8080 ingressProfileId=3 "
              "filterPfx=198.51.100.0/24 | valid=1 proto=1 natSessionId=2 useAcl=0 trapToCpu=0 l3LagIndex=5 "
              "rewriteIndex=9");
    EXPECT_EQ(text("r", R"({"isUnicast":true,"natSessionId":2})", "{}"),
              "natSessionId=2 natEgressProfileId=0 oddPort=0 secondTnat=0 | "
              "valid=0 newIp=0.0.0.0 newPort=0 checksumCorrection=0");
}

TEST_F(ScriptNatTest, CapacityCountsRowsInUse) {
    start();
    entryIs("m", outboundKey, outboundResult);
    EXPECT_EQ(script.ok(R"({"op":"capacity"})")["counters"],
              R"([{"key":["NAT match","Pipe1","m"],"index":0,"capacity":12288,"used":1},
                  {"key":["NAT dynamic match","Pipe1","d"],"index":0,"capacity":4096,"used":0},
                  {"key":["NAT rewrite","EgressPipe1","r"],"index":0,"capacity":4096,"used":0}])"_json_text);
}

TEST_F(ScriptNatTest, NumbersOutOfTheirRangeAreRefusedAndChangeNothing) {
    start();
    auto const failure = [&](std::string const& table, std::string const& key, std::string const& result) {
        return script.failure(
            fmt::format(R"({{"op":"entryIs","table":"{}","key":{},"result":{}}})", table, key, result));
    };
    EXPECT_EQ(failure("m", outboundKey, R"({"natSessionId":131073})"),
              "RangeException: NerioSwitch::NatSessionId::value < NerioSwitch::NatSessionId::min or > "
              "NerioSwitch::NatSessionId::null not allowed");
    EXPECT_EQ(failure("m", outboundKey, R"({"l3LagIndex":64})"),
              "RangeException: NerioSwitch::L3LagIndex::value < NerioSwitch::L3LagIndex::min or > "
              "NerioSwitch::L3LagIndex::mcastSnat not allowed");
    EXPECT_EQ(failure("r", R"({"natProfileId":65})", "{}"),
              "RangeException: NerioSwitch::NatProfileId::value < NerioSwitch::NatProfileId::reserved or > "
              "NerioSwitch::NatProfileId::null not allowed");
    EXPECT_EQ(failure("r", R"({"vlanGroupId":18})", "{}"),
              "RangeException: NerioSwitch::VlanGroupId::value < NerioSwitch::VlanGroupId::min or > "
              "NerioSwitch::VlanGroupId::null not allowed");
    EXPECT_EQ(failure("m", R"({"filterPfx":"10.0.0.1/8"})", "{}"),
              "RangeException: Lanvo::Prefix::validAsPrefix != true not allowed");
    EXPECT_EQ(failure("m", R"({"filter":1})", "{}").substr(0, 13), "ScriptError: ");
    EXPECT_EQ(failure("d", R"({"natType":6})", R"({"useAcl":true})").substr(0, 13), "ScriptError: ");
    EXPECT_EQ(script.ok(R"({"op":"registers"})")["writes"].size(), 0u);
}

}  // namespace
