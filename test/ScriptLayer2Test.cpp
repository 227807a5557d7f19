#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ScriptLines.h"

namespace {

using Agent::Json;
using namespace NerioTest::Literals;

/** A script with a table of each of the families of layer 2. */
class ScriptLayer2Test : public testing::Test {
protected:
    ScriptLayer2Test() {
        for (std::string const family : {"nativeVlan", "vlanMembership", "macVlan", "l2Control", "floodSet"})
            script.ok(Json{{"op", "table"}, {"family", family}, {"name", family}}.dump());
        script.ok(R"({"op":"start","mode":"cold"})");
    }
    Json line(std::string const& op, std::string const& table, std::string const& key,
              std::string const& more = "") {
        return script(R"({"op":")" + op + R"(","table":")" + table + R"(","key":)" + key + more + "}");
    }
    void entryIs(std::string const& table, std::string const& key, std::string const& result) {
        auto const answer = line("entryIs", table, key, R"(,"result":)" + result);
        EXPECT_EQ(answer["ok"], true) << answer;
    }
    Json entry(std::string const& table, std::string const& key) {
        return line("entry", table, key)["result"];
    }

    NerioTest::ScriptLines script;
};

TEST_F(ScriptLayer2Test, EntriesOfAllFamiliesComeBackFromAWarmRestart) {
    entryIs("nativeVlan", R"({"portId":5})", R"({"nativeVlanId":7,"pcp":3})");
    entryIs("l2Control", R"({"portId":51})", R"({"learnOnly":true})");
    entryIs("vlanMembership", R"({"vid":100})",
            R"({"permitMask":"0x3","aclId":{"0":3,"1":4},"aclEnable":{"0":1,"1":2},
                "aclDefaultPermit":{"0":true,"1":false},"natIngressProfileId":{"0":5},"natEnable":{"0":1}})");
    entryIs("macVlan", R"({"value":7})",
            R"({"macVlan":{"vlanId":100,"ethAddr":"00:1c:73:00:00:01"},"ingressPortMask":3,"mcastFlags":5,
                "ipRoute":true})");
    entryIs("floodSet", "100",
            R"({"key":100,"result":{"uucPortMask":3,"umcPortMask":"0x5"},"lastUpdate":1.5})");
    EXPECT_EQ(entry("floodSet", "100")["lastUpdate"], 1.5);
    script.ok(R"({"op":"registers"})");
    script.ok(R"({"op":"restart","mode":"warm"})");
    EXPECT_EQ(script.ok(R"({"op":"registers"})")["writes"].size(), 0u);
    EXPECT_EQ(entry("nativeVlan", R"({"portId":5})"), R"({"nativeVlanId":7,"dei":0,"pcp":3})"_json_text);
    EXPECT_EQ(entry("l2Control", R"({"portId":51})"),
              R"({"isMlagPeer":false,"learnOnly":true,"learnDisabled":false})"_json_text);
    EXPECT_EQ(entry("vlanMembership", R"({"vid":100})"),
              R"({"permitMask":3,"aclId":{"0":3,"1":4},"aclEnable":{"0":1,"1":2},
                  "aclDefaultPermit":{"0":true,"1":false},"natId":{},"natIngressProfileId":{"0":5},
                  "natEnable":{"0":1},"learnToCpu":true,"unknownMulticastToCpu":false,
                  "multicastJoinToCpu":false,"broadcastToCpu":false,"unknownDaToCpu":false,
                  "multicastJoinToEgress":true,"vrfBits":0,"unicastRoute":false,
                  "multicastRoute":false})"_json_text);
    EXPECT_EQ(entry("macVlan", R"({"value":7})"),
              R"({"macVlan":{"vlanId":100,"ethAddr":"00:1c:73:00:00:01"},"ingressPortMask":3,"mcastFlags":5,
                  "ipRoute":true})"_json_text);
    EXPECT_EQ(entry("floodSet", "100"),
              R"({"key":100,"result":{"uucPortMask":3,"umcPortMask":5},"lastUpdate":0})"_json_text);
}

TEST_F(ScriptLayer2Test, AFloodSetsEntryTakesTheKeyBesideIt) {
    entryIs("floodSet", "9", R"({"result":{"uucPortMask":3}})");
    EXPECT_EQ(entry("floodSet", "9"),
              R"({"key":9,"result":{"uucPortMask":3,"umcPortMask":0},"lastUpdate":0})"_json_text);
    auto const deleted = line("entryDel", "floodSet", "9");
    EXPECT_EQ(deleted["result"]["key"], 9);
    EXPECT_EQ(line("entry", "floodSet", "9")["has"], false);
}

TEST_F(ScriptLayer2Test, NumbersOutsideTheirRangesAreRefusedInTheirOwnWords) {
    EXPECT_EQ(line("entry", "floodSet", "4095")["message"],
              "Bridging::VlanId::value < 1 or > 4094 not allowed");
    EXPECT_EQ(line("entry", "vlanMembership", R"({"vid":0})")["message"],
              "Bridging::VlanId::value < 1 or > 4094 not allowed");
    EXPECT_EQ(
        line("entryIs", "vlanMembership", R"({"vid":1})", R"(,"result":{"aclId":{"0":17}})")["message"],
        "NerioSwitch::HwAclId::value < NerioSwitch::HwAclId::min or > NerioSwitch::HwAclId::invalid not "
        "allowed");
    EXPECT_EQ(
        line("entryIs", "vlanMembership", R"({"vid":1})", R"(,"result":{"aclId":{"18":1}})")["message"],
        "NerioSwitch::PipeId::value < NerioSwitch::PipeId::min or > NerioSwitch::PipeId::null not allowed");
    auto const refused =
        line("entryIs", "nativeVlan", R"({"portId":1})", R"(,"result":{"nativeVlanId":4095})");
    EXPECT_EQ(refused["error"], "RangeException");
    EXPECT_EQ(refused["message"], "Bridging::VlanIdOrNone::value > 4094 not allowed");
}

TEST_F(ScriptLayer2Test, TextsAreTheResults) {
    EXPECT_EQ(line("text", "floodSet", "9", R"(,"result":{"result":{"uucPortMask":3}})")["result"],
              "uucPortMask:0x000000000003 umcPortMask:0x000000000000");
    EXPECT_EQ(line("text", "nativeVlan", R"({"portId":1})", R"(,"result":{})")["result"],
              "vlan:   1 dei:0x0 pcp:0x0");
}

TEST_F(ScriptLayer2Test, CopiesThatDisagreeAreToldAndAnEntrySetAgainPutsThemInLine) {
    entryIs("floodSet", "9", R"({"result":{"uucPortMask":3}})");
    script.ok(R"({"op":"shadowIs","table":"floodSet","hwTable":1,"index":9,"words":[7,0,0,0,32777]})");
    script.ok(R"({"op":"restart","mode":"warm"})");
    EXPECT_EQ(script.ok(R"({"op":"inconsistent","table":"floodSet"})")["keys"], "[9]"_json_text);
    EXPECT_EQ(entry("floodSet", "9")["result"]["uucPortMask"], 3);
    EXPECT_EQ(script.ok(R"({"op":"shadow","table":"floodSet","hwTable":1,"index":9})")["words"],
              "[3,0,0,0,32777]"_json_text);
}

}  // namespace
