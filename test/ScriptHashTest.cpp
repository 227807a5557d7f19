#include <array>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NerioSwitch/CrcHash.h"

#include "ScriptLines.h"

namespace {

using Agent::Json;
using namespace NerioTest::Literals;

constexpr char const* sshKey =
    R"({"aclId":2,"combination":8,"firstPrefix":"10.0.99.0/24","protocol":1,"port":22})";

/** A script with two hash tables: "h", whose keys dictate their rows, and the ACL table "acl". */
class ScriptHashTest : public testing::Test {
protected:
    ScriptHashTest() {
        script.ok(R"({"op":"table","family":"hashTest","name":"h"})");
        script.ok(R"({"op":"table","family":"aclHash","name":"acl","pipeline":1,"physTableIdx":1})");
    }
    void start() { script.ok(R"({"op":"start","mode":"cold"})"); }

    Json entryIs(U32 key, U32 result) {
        return script.ok(fmt::format(R"({{"op":"entryIs","table":"h","key":{},"result":{}}})", key, result));
    }
    Json status() { return script.ok(R"({"op":"status","table":"h"})")["status"]; }
    Json location(U32 key) {
        return script.ok(fmt::format(R"({{"op":"location","table":"h","key":{}}})", key))["location"];
    }
    Json sshLine(std::string const& op, std::string const& more = "") {
        return script.ok(R"({"op":")" + op + R"(","table":"acl","key":)" + sshKey + more + "}");
    }
    void hit(U32 hwTable, U32 row) {
        script.ok(fmt::format(R"({{"op":"hit","table":"h","hwTable":{},"index":{}}})", hwTable, row));
    }
    void poll(double time) { script.ok(fmt::format(R"({{"op":"poll","time":{}}})", time)); }

    NerioTest::ScriptLines script;
};

TEST_F(ScriptHashTest, StatusTellsWhichEntriesFoundAPlace) {
    EXPECT_EQ(status(), Json::array());
    start();
    for (U32 const key : {0x51u, 0x11u, 0x91u})  // rows 1 and 2, all of them
        entryIs(key, 7);
    EXPECT_EQ(status(), R"([{"key":17,"status":0,"lastHit":null},{"key":81,"status":0,"lastHit":null},
                            {"key":145,"status":1,"lastHit":null}])"_json_text);
    EXPECT_TRUE(location(0x91).is_null());
    EXPECT_EQ(script.ok(R"({"op":"entry","table":"h","key":145})")["has"], true) << "it stays wanted";
    script.ok(R"({"op":"entryDel","table":"h","key":17})");
    entryIs(0x91, 8);
    EXPECT_EQ(status(), R"([{"key":81,"status":0,"lastHit":null},
                            {"key":145,"status":0,"lastHit":null}])"_json_text);
}

TEST_F(ScriptHashTest, ARestartForgetsEntriesWithoutAPlace) {
    start();
    for (U32 const key : {0x11u, 0x51u, 0x91u})
        entryIs(key, 7);
    script.ok(R"({"op":"restart","mode":"warm"})");
    EXPECT_EQ(status(),
              R"([{"key":17,"status":0,"lastHit":null},{"key":81,"status":0,"lastHit":null}])"_json_text);
    EXPECT_EQ(script.ok(R"({"op":"entry","table":"h","key":145})")["has"], false);
}

TEST_F(ScriptHashTest, LocationAndHashOfAKey) {
    start();
    entryIs(0x0D, 7);
    EXPECT_EQ(location(0x0D), R"({"table":0,"row":5})"_json_text);
    entryIs(0x15, 7);  // row 5 is taken
    EXPECT_EQ(location(0x15), R"({"table":1,"row":2})"_json_text);
    EXPECT_EQ(script(R"({"op":"hash","table":"h","key":"0xFFFFFF15"})"),
              R"({"ok":true,"hashes":[5,2],"bits":32,"input":"15ffffff"})"_json_text);
}

TEST_F(ScriptHashTest, AHashCanBeWorkedOutFromItsInput) {
    start();
    auto const hash = sshLine("hash");
    // 0x2 for the ACL, 1 for combination 8, the address with its length, protocol and port, a mask type of 3.
    EXPECT_EQ(hash["bits"], 60);
    EXPECT_EQ(hash["input"], "12c618804258000c");
    std::array<U8, 8> bytes{};
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] =
            static_cast<U8>(std::stoul(hash["input"].get<std::string>().substr(2 * i, 2), nullptr, 16));
    EXPECT_EQ(hash["hashes"], Json({NerioSwitch::crc12Hash(bytes.data(), 0, 60),
                                    NerioSwitch::crc12Hash(bytes.data(), 1, 60)}));
    EXPECT_TRUE(sshLine("location")["location"].is_null()) << "asking places nothing";
    sshLine("entryIs", R"(,"result":{"rules":[{"priority":3}]})");
    EXPECT_EQ(sshLine("location")["location"], (Json{{"table", 0}, {"row", hash["hashes"][0]}}));
    EXPECT_EQ(sshLine("hash"), hash);
}

TEST_F(ScriptHashTest, ResultsHaveARulePerChain) {
    start();
    sshLine("entryIs", R"(,"result":{"rules":[{"priority":3,"ruleFlag":true,"counter":7,"rangeId":2},{}]})");
    EXPECT_EQ(sshLine("entry")["result"],
              R"({"rules":[{"priority":3,"ruleFlag":true,"counter":7,"rangeId":2},
                           {"priority":0,"ruleFlag":false,"counter":0,"rangeId":8}]})"_json_text);
    EXPECT_EQ(script.failure(R"({"op":"entryIs","table":"acl","key":{},"result":{"rules":[{},{},{}]}})"),
              "ScriptError: rules: more than 2 elements");
    EXPECT_EQ(script.failure(R"({"op":"entryIs","table":"acl","key":{"combination":19},"result":{}})"),
              "RangeException: NerioSwitch::HwAclCombinationId::value < NerioSwitch::HwAclCombinationId::min "
              "or > NerioSwitch::HwAclCombinationId::invalid not allowed");
}

TEST_F(ScriptHashTest, HitsArePolledIntoTheStatus) {
    start();
    entryIs(0x0D, 7);
    entryIs(0x15, 7);
    hit(0, 5);
    hit(1, 8 + 2);  // in the other pipeline, which has a hit memory of its own
    hit(0, 3);      // a row without an entry
    EXPECT_EQ(status()[0]["lastHit"], Json()) << "nobody has polled";
    poll(2.5);
    EXPECT_EQ(status(),
              R"([{"key":13,"status":0,"lastHit":2.5},{"key":21,"status":0,"lastHit":2.5}])"_json_text);
    poll(3);
    EXPECT_EQ(status()[0]["lastHit"], 2.5) << "reading a hit bit clears it";
    hit(1, 5);
    poll(4);
    EXPECT_EQ(status(),
              R"([{"key":13,"status":0,"lastHit":4.0},{"key":21,"status":0,"lastHit":2.5}])"_json_text);
    hit(0, 5);
    poll(1);
    EXPECT_EQ(status()[0]["lastHit"], 4.0) << "the later time stays";
}

TEST_F(ScriptHashTest, APollReadsThroughTheControlRegisterAndAHitWritesNothing) {
    start();
    script.ok(R"({"op":"registers"})");
    hit(0, 5);
    EXPECT_EQ(script.ok(R"({"op":"registers"})")["writes"], Json::array());
    poll(1);
    auto const writes = script.ok(R"({"op":"registers"})")["writes"];
    EXPECT_EQ(writes.size(), 2u * 4);
    EXPECT_EQ(writes[1], Json({"pipeline[0]/processor/hash_ctl", 0x2D0001}));
}

TEST_F(ScriptHashTest, AHitPolledAtNoTimeIsNone) {
    start();
    entryIs(0x0D, 7);
    hit(0, 5);
    script.ok(R"({"op":"poll","time":null})");
    EXPECT_EQ(status()[0]["lastHit"], Json());
}

TEST_F(ScriptHashTest, PollingIsNothingBeforeTheStart) {
    poll(1);
    EXPECT_EQ(script.ok(R"({"op":"registers"})")["writes"], Json::array());
}

TEST_F(ScriptHashTest, StatusChangesArePublished) {
    start();
    script.ok(R"({"op":"published"})");
    entryIs(0x0D, 7);
    entryIs(0x0D, 8);
    hit(0, 5);
    poll(1);
    script.ok(R"({"op":"entryDel","table":"h","key":13})");
    EXPECT_EQ(script.ok(R"({"op":"published"})")["changes"],
              R"([["h","entryStatus",13],["h","entry",13],["h","entry",13],["h","entryStatus",13],
                  ["h","entryStatus",13],["h","entry",13]])"_json_text);
}

TEST_F(ScriptHashTest, CopiesThatDifferAreInconsistentAfterARestart) {
    start();
    entryIs(0x0D, 7);
    entryIs(0x15, 7);
    EXPECT_EQ(script.ok(R"({"op":"inconsistent","table":"h"})")["keys"], Json::array());
    script.ok(R"({"op":"shadowIs","table":"h","hwTable":1,"index":5,"words":[13,8,"0x8005"]})");
    script.ok(R"({"op":"restart","mode":"warm"})");
    EXPECT_EQ(script.ok(R"({"op":"inconsistent","table":"h"})")["keys"], Json({13}));
    EXPECT_EQ(script.ok(R"({"op":"inconsistent","table":"acl"})")["keys"], Json::array());
}

TEST_F(ScriptHashTest, CapacityCountsRowsInUse) {
    start();
    auto const used = [&] { return script.ok(R"({"op":"capacity"})")["counters"]; };
    EXPECT_EQ(used(), R"([{"key":["ACL 1","Pipe1","acl"],"index":0,"capacity":8192,"used":0}])"_json_text);
    sshLine("entryIs", R"(,"result":{"rules":[{"priority":3}]})");
    sshLine("entryIs", R"(,"result":{"rules":[{"priority":4}]})");
    EXPECT_EQ(used()[0]["used"], 1);
    sshLine("entryDel");
    EXPECT_EQ(used()[0]["used"], 0);
}

TEST_F(ScriptHashTest, ATableIsMadeOfItsFamilysNumbers) {
    start();
    EXPECT_EQ(script.ok(R"({"op":"hwTables","table":"acl"})")["hwTables"][0]["registers"][4],
              "ingress/processor_acl[1]/hash_ctl");
    script.ok(
        R"({"op":"table","family":"aclIndirectCounterHash","name":"c","pipelinePair":"0x1","pipeline":300})");
    script.ok(R"({"op":"start","mode":"cold"})");
    EXPECT_EQ(script.ok(R"({"op":"hwTables","table":"c"})")["hwTables"][0]["name"],
              "c/demo/AclIndirectCounter/1");
    EXPECT_EQ(script.failure(R"({"op":"table","family":"aclHash","name":"x","physTableIdx":256})"),
              "RangeException: physTableIdx 256 > 255 not allowed");
    EXPECT_EQ(
        script.failure(R"({"op":"table","family":"aclIndirectCounterHash","name":"x","pipelinePair":-1})"),
        "RangeException: pipelinePair -1 < 0 not allowed");
    EXPECT_EQ(script.failure(R"({"op":"table","family":"aclHash","name":"x","pipeline":"one"})"),
              "ScriptError: pipeline: expected an integer of at most 64 bits, found \"one\"");
}

TEST_F(ScriptHashTest, FailuresSayWhatIsWrong) {
    std::string const hash = std::string(R"({"op":"hash","table":"acl","key":)") + sshKey + "}";
    EXPECT_EQ(script.failure(hash), "ScriptError: table: \"acl\" is not started");
    EXPECT_EQ(script.failure(R"({"op":"hit","table":"h","hwTable":0,"index":1})"),
              "ScriptError: table: \"h\" is not started");
    start();
    std::pair<char const*, char const*> const cases[] = {
        {R"({"op":"hit","table":"acl","hwTable":0,"index":1})", "ScriptError: table: \"acl\" has no hit"},
        {R"({"op":"hit","table":"h","hwTable":0,"index":16})",
         "ScriptError: index: the hardware table has no row 16"},
        {R"({"op":"hit","table":"h","hwTable":2,"index":0})",
         "ScriptError: hwTable: the table has no hardware table 2"},
        {R"({"op":"hit","table":"h","hwTable":0})", "ScriptError: \"index\" is missing"},
        {R"({"op":"poll","time":"now"})", "ScriptError: time: expected a number, found \"now\""},
        {R"({"op":"poll"})", "ScriptError: \"time\" is missing"},
        {R"({"op":"poll","time":1,"table":"h"})", "ScriptError: unknown member \"table\" of poll"},
        {R"({"op":"status","table":"h","key":1})", "ScriptError: unknown member \"key\" of status"},
        {R"({"op":"status","table":"g"})", "ScriptError: table: there is no table \"g\""},
        {R"({"op":"location","table":"h"})", "ScriptError: \"key\" is missing"},
        {R"({"op":"location","table":"h","key":{"value":1}})",
         "ScriptError: key: expected an integer of at most 64 bits, found an object"},
        {R"({"op":"hash","table":"h","key":4294967296})",
         "RangeException: NerioSwitchTable::HashTestKey::value > 0xFFFFFFFF not allowed"},
        {R"({"op":"hash","table":"acl","key":{"vrf":1}})",
         "ScriptError: unknown attribute \"vrf\" of NerioSwitch::AclHashKey"},
    };
    for (auto const& [line, expected] : cases)
        EXPECT_EQ(script.failure(line), expected) << line;
}

}  // namespace
