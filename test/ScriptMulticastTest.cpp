#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ScriptLines.h"

namespace {

using Agent::Json;
using namespace NerioTest::Literals;

constexpr char const* routeKey = R"({"sip":"10.0.0.1","dip":"225.1.1.1","data":{"multicast":{"vlanId":5}}})";
constexpr char const* flowKey =
    R"({"sip":"10.0.0.1","dip":"20.0.0.1","data":{"unicast":{"ingressProfileId":3}}})";
constexpr char const* groupKey = R"({"source":"0.0.0.0/32","group":"225.1.1.1/32","vlanId":5})";

/** A script with a table of each of the families. */
class ScriptMulticastTest : public testing::Test {
protected:
    ScriptMulticastTest() {
        script.ok(R"({"op":"table","family":"sG","name":"sg"})");
        script.ok(R"({"op":"table","family":"starG","name":"groups"})");
        script.ok(R"({"op":"table","family":"lpm29","name":"routes"})");
        script.ok(R"({"op":"table","family":"l3FloodArp","name":"arp"})");
        script.ok(R"({"op":"table","family":"l3FloodBitmap","name":"floods","numFloodsForEcmp":8})");
        script.ok(R"({"op":"table","family":"vlanGroup","name":"vlans"})");
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

TEST_F(ScriptMulticastTest, EntriesOfAllFamiliesComeBackFromAWarmRestart) {
    entryIs("sg", routeKey, R"({"data":{"multicast":{"vlanGroupId":3,"portMask":6}}})");
    entryIs("sg", flowKey, R"({"data":{"unicast":{"l3LagIndex":2,"rewriteIndex":7}},"natSessionId":9})");
    entryIs("groups", groupKey, R"({"vlanGroupId":4,"portMask":"0x10000000000001"})");
    entryIs("arp", "5", R"({"ethAddr":"00:1c:73:00:00:01","vlanId":12})");
    entryIs("floods", "5", R"({"portMask":3})");
    entryIs("vlans", R"({"portId":1,"vlanGroupId":3})", R"({"group":[10,20,30,1,1,1,1,1,1],"numVlans":3})");
    script.ok(R"({"op":"restart","mode":"warm"})");
    EXPECT_EQ(entry("sg", routeKey),
              R"({"data":{"multicast":{"vlanGroupId":3,"portMask":6}},"lookupType":"sgLookupTypeL3OrDynNat",
                  "natType":"sgNatTypeSnat","natSessionId":0,"natEnabled":false})"_json_text);
    EXPECT_EQ(entry("sg", flowKey),
              R"({"data":{"unicast":{"l3LagIndex":2,"rewriteIndex":7}},"lookupType":"sgLookupTypeL3OrDynNat",
                  "natType":"sgNatTypeSnat","natSessionId":9,"natEnabled":false})"_json_text);
    EXPECT_EQ(entry("groups", groupKey), R"({"vlanGroupId":4,"portMask":4503599627370497})"_json_text);
    EXPECT_EQ(entry("arp", "5"), R"({"ethAddr":"00:1c:73:00:00:01","vlanId":12})"_json_text);
    EXPECT_EQ(entry("floods", "5"), R"({"portMask":3})"_json_text);
    EXPECT_EQ(entry("vlans", R"({"portId":1,"vlanGroupId":3})"),
              R"({"group":[10,20,30,1,1,1,1,1,1],"numVlans":3})"_json_text);
}

TEST_F(ScriptMulticastTest, HashTellsWhatTheChipHashes) {
    auto const route = line("hash", "sg", routeKey);
    EXPECT_EQ(route["bits"], 75);
    EXPECT_EQ(route["hashes"].size(), 3u);
    EXPECT_EQ(route["input"], "010101110000a0500000");
    auto const group = line("hash", "groups", groupKey);
    EXPECT_EQ(group["bits"], 41);
    EXPECT_EQ(group["hashes"].size(), 2u);
    EXPECT_EQ(group["input"], "010101510001");
}

TEST_F(ScriptMulticastTest, WhatNoRowCanHoldIsRefused) {
    auto const refused = line("entryIs", "vlans", R"({"portId":1,"vlanGroupId":16})", R"(,"result":{})");
    EXPECT_EQ(refused["ok"], false);
    EXPECT_EQ(refused["message"],
              "NerioSwitch::VlanGroupId::value < NerioSwitch::VlanGroupId::min or > "
              "NerioSwitch::VlanGroupId::null not allowed")
        << refused;
    EXPECT_EQ(line("entryIs", "floods", "128", R"(,"result":{})")["ok"], false);
    EXPECT_EQ(line("entryIs", "floods", "161", R"(,"result":{})")["ok"], false);
    auto const unknown = line("entryIs", "sg", R"({"sip":"1.2.3.4","dip":"1.2.3.4","data":{"anycast":{}}})",
                              R"(,"result":{})");
    EXPECT_EQ(unknown["ok"], false);
    EXPECT_THAT(unknown.dump(),
                testing::HasSubstr("Invalid string rep for Data: unknown alternative anycast"));
    EXPECT_EQ(line("entryIs", "sg", R"({"data":{}})", R"(,"result":{})")["ok"], false);
    EXPECT_EQ(line("entryIs", "sg", R"({"data":{"multicast":{},"unicast":{}}})", R"(,"result":{})")["ok"],
              false);
}

}  // namespace
