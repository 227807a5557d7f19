#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ScriptLines.h"

namespace {

using Agent::Json;
using namespace NerioTest::Literals;

/** A script with a table of each of the families. */
class ScriptAclPlainTest : public testing::Test {
protected:
    ScriptAclPlainTest() {
        script.ok(R"({"op":"table","family":"aclPortRange","name":"ranges","pipeline":1})");
        script.ok(R"({"op":"table","family":"protocolRemap","name":"protocols","pipeline":1})");
        script.ok(R"({"op":"table","family":"rxPortMirror","name":"mirrors"})");
        script.ok(R"({"op":"start","mode":"cold"})");
    }
    Json line(std::string const& op, std::string const& table, std::string const& key,
              std::string const& more = "") {
        return script(R"({"op":")" + op + R"(","table":")" + table + R"(","key":)" + key + more + "}");
    }
    std::string failure(std::string const& table, std::string const& key, std::string const& result) {
        auto const answer = line("entryIs", table, key, R"(,"result":)" + result);
        return answer["ok"] == true ? "" : answer["message"].get<std::string>();
    }
    void entryIs(std::string const& table, std::string const& key, std::string const& result) {
        EXPECT_EQ(failure(table, key, result), "");
    }
    Json entry(std::string const& table, std::string const& key) {
        return line("entry", table, key)["result"];
    }

    NerioTest::ScriptLines script;
};

constexpr char const* ranges =
    R"({"windowRange":{"1":{"min":80,"max":443,"id":5,"flag":true}},
        "anchorRange":{"0":{"min":0,"max":1023,"id":6,"flag":false}},"row":1})";

TEST_F(ScriptAclPlainTest, EntriesOfAllFamiliesComeBackFromAWarmRestart) {
    entryIs("ranges", R"({"value":7})", ranges);
    entryIs("ranges", R"({"value":8})", R"({"windowRange":{"0":{"max":100,"id":0}}})");
    entryIs("protocols", R"({"protocol":6})", R"({"remappedProtocol":7})");
    entryIs("mirrors", R"({"chipPortId":30})", R"({"dstPortMask":"0x10000000000003"})");
    script.ok(R"({"op":"restart","mode":"warm"})");
    EXPECT_EQ(entry("ranges", R"({"value":7})"), Json::parse(ranges));
    EXPECT_EQ(script.ok(R"({"op":"inconsistent","table":"ranges"})")["keys"], R"([{"value":8}])"_json_text);
    EXPECT_EQ(entry("protocols", R"({"protocol":6})"), R"({"remappedProtocol":23})"_json_text);
    EXPECT_EQ(entry("mirrors", R"({"chipPortId":30})"), R"({"dstPortMask":4503599627370499})"_json_text);
    EXPECT_EQ(entry("ranges", R"({"value":0})"), R"({"windowRange":{},"anchorRange":{},"row":0})"_json_text);
}

TEST_F(ScriptAclPlainTest, TextsAndRegistersAreThoseOfTheFamily) {
    auto const mirror = line("text", "mirrors", R"({"chipPortId":5})", R"(,"result":{"dstPortMask":3})");
    EXPECT_EQ(mirror["key"], "chipPortId 5");
    EXPECT_EQ(mirror["result"], "appPortMask:0x000000000003, cpu: false");
    auto const protocol =
        line("text", "protocols", R"({"protocol":5})", R"(,"result":{"remappedProtocol":3})");
    EXPECT_EQ(protocol["result"], "remappedProtocol: 3 ");
    auto const tables = script.ok(R"({"op":"hwTables","table":"mirrors"})")["hwTables"];
    ASSERT_EQ(tables.size(), 2u);
    EXPECT_EQ(
        tables[1]["registers"],
        R"(["ingress/processor_l2_mirror_reg[1]/reg[0]","ingress/processor_l2_mirror_reg[1]/reg[1]"])"_json_text);
}

TEST_F(ScriptAclPlainTest, NumbersOutOfTheirRangesAreRefusedInTheirOwnWords) {
    EXPECT_EQ(failure("ranges", R"({"value":33})", "{}"),
              "NerioSwitchTable::AclPortRangeKey::value < 0 or > NerioSwitchTable::AclPortRangeKey::invalid "
              "not allowed");
    EXPECT_EQ(failure("ranges", R"({"value":1})", R"({"row":2})"),
              "NerioSwitchTable::AclPortRangeResult::row < 0 or > 1 not allowed");
    EXPECT_EQ(failure("ranges", R"({"value":1})", R"({"windowRange":{"2":{}}})"),
              "NerioSwitchTable::AclPortRangeIndex::value < NerioSwitchTable::AclPortRangeIndex::min or > "
              "NerioSwitchTable::AclPortRangeIndex::max not allowed");
    EXPECT_EQ(failure("ranges", R"({"value":1})", R"({"windowRange":{"1":{"id":9}}})"),
              "NerioSwitch::HwAclRangeId::value < NerioSwitch::HwAclRangeId::min or > "
              "NerioSwitch::HwAclRangeId::invalid not allowed");
    EXPECT_NE(failure("ranges", R"({"value":32})", "{}"), "");
    EXPECT_NE(failure("protocols", R"({"protocol":256})", "{}"), "");
    EXPECT_NE(failure("mirrors", R"({"chipPortId":52})", "{}"), "");
}

}  // namespace
