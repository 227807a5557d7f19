#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ScriptLines.h"

namespace {

using Agent::Json;
using namespace NerioTest::Literals;

/** A script with a table of each of the families of link aggregation. */
class ScriptLagTest : public testing::Test {
protected:
    ScriptLagTest() {
        for (auto const* family : {"lagGroup", "lagMembership", "lagLookUp", "lagHashControl"})
            script.ok(Json{{"op", "table"}, {"family", family}, {"name", family}}.dump());
        script.ok(R"({"op":"start","mode":"cold"})");
    }
    Json line(std::string const& op, std::string const& table, std::string const& more) {
        return script(R"({"op":")" + op + R"(","table":")" + table + R"(",)" + more + "}");
    }
    void entryIs(std::string const& table, std::string const& result) {
        auto const answer = line("entryIs", table, R"("key":{"portId":5},"result":)" + result);
        EXPECT_EQ(answer["ok"], true) << answer;
    }
    Json entry(std::string const& table) { return line("entry", table, R"("key":{"portId":5})")["result"]; }

    NerioTest::ScriptLines script;
};

TEST_F(ScriptLagTest, EntriesOfAllFamiliesComeBackAsTheirRowsHoldThem) {
    entryIs("lagGroup", R"({"lagGroupId":9})");
    entryIs("lagMembership", R"({"port":{"5":true,"6":false,"30":true},"lagGroupId":9})");
    entryIs("lagLookUp", R"({"buckets":"0xDEADBEEF"})");
    entryIs("lagHashControl", R"({"useVlanId":true,"hashSeed":65})");
    EXPECT_EQ(entry("lagMembership"), R"({"port":{"5":true,"6":false,"30":true},"lagGroupId":9})"_json_text);
    script.ok(R"({"op":"restart","mode":"warm"})");
    EXPECT_EQ(entry("lagGroup"), R"({"lagGroupId":9})"_json_text);
    EXPECT_EQ(entry("lagLookUp"), R"({"buckets":3735928559})"_json_text);
    EXPECT_EQ(entry("lagHashControl"),
              R"({"useVlanId":true,"useIpProtocol":false,"useSipAndDip":false,"hashSeed":1,
                  "useSportAndDport":false})"_json_text);
    auto const members = entry("lagMembership");
    EXPECT_EQ(members["lagGroupId"], 63);
    EXPECT_EQ(members["port"].size(), 52u);
    EXPECT_EQ(members["port"]["30"], true);
    EXPECT_EQ(members["port"]["6"], false);
    EXPECT_EQ(script(R"({"op":"inconsistent","table":"lagMembership"})")["keys"],
              R"([{"portId":5}])"_json_text);
}

TEST_F(ScriptLagTest, TextsAreTheFamiliesOwn) {
    auto const textOf = [&](std::string const& table, std::string const& result) {
        return line("text", table, R"("key":{"portId":5},"result":)" + result)["result"];
    };
    EXPECT_EQ(textOf("lagGroup", R"({"lagGroupId":9})"), "0x09");
    EXPECT_EQ(textOf("lagLookUp", R"({"buckets":171})"), "0xAB");
    EXPECT_EQ(textOf("lagMembership", R"({"port":{"5":true,"30":true}})"), " 5 30 ");
    EXPECT_EQ(textOf("lagHashControl", R"({"hashSeed":7})"), "useVlanId:false useSipAndDip:false hasSeed:7");
}

TEST_F(ScriptLagTest, HardwareTablesNameTheirRegisters) {
    auto const tables = script(R"({"op":"hwTables","table":"lagMembership"})")["hwTables"];
    ASSERT_EQ(tables.size(), 3u);
    EXPECT_EQ(tables[1]["firstIndex"], 26);
    EXPECT_EQ(tables[2]["registers"],
              R"(["cpu_pipeline[0]/lag_cpu[0]/lag_mask_data0","cpu_pipeline[0]/lag_cpu[0]/lag_mask_data1",
                  "cpu_pipeline[0]/lag_cpu[0]/lag_ctl"])"_json_text);
    EXPECT_EQ(script(R"({"op":"hwTables","table":"lagGroup"})")["hwTables"][2]["registers"],
              R"(["cpu_pipeline[0]/lag_cpu[0]/lag_ctl"])"_json_text);
}

TEST_F(ScriptLagTest, APortOutOfRangeIsRefusedInItsTypesWords) {
    auto const refused =
        line("entryIs", "lagMembership", R"("key":{"portId":5},"result":{"port":{"54":true}})");
    EXPECT_EQ(refused["error"], "RangeException");
    EXPECT_EQ(refused["message"],
              "NerioSwitch::ChipPortId::value < NerioSwitch::ChipPortId::min or > "
              "NerioSwitch::ChipPortId::null not allowed");
}

}  // namespace
