// The tables of routes as scripts drive them: L3 LAGs, whole routes, the direct stage, and those that hash.
#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "NerioSwitch/CrcHash.h"

#include "LpmFixture.h"
#include "ScriptLines.h"

namespace {

using Agent::Json;
using namespace NerioTest::Literals;
using NerioTest::StageCase;
using NerioTest::stageCases;

/** Lines about one table, "t". */
class ScriptOfOneTable : public testing::Test {
protected:
    Json ok(std::string const& op, std::string const& members = "") { return script.ok(line(op, members)); }
    std::string failure(std::string const& op, std::string const& members = "") {
        return script.failure(line(op, members));
    }
    void make(std::string const& family) {
        script.ok(R"({"op":"table","name":"t","family":")" + family + "\"}");
    }
    void start(std::string const& family) {
        make(family);
        script.ok(R"({"op":"start","mode":"cold"})");
        writes();
        script.ok(R"({"op":"published"})");
    }
    void restart() { script.ok(R"({"op":"restart","mode":"warm"})"); }
    Json writes() { return script.ok(R"({"op":"registers"})")["writes"]; }
    Json published() { return script.ok(R"({"op":"published"})")["changes"]; }
    Json entries() { return ok("entries")["entries"]; }
    Json status() { return ok("status")["status"]; }
    Json shadow(U32 copy, U32 row) {
        return ok("shadow", fmt::format(R"(,"hwTable":{},"index":{})", copy, row))["words"];
    }
    void hit(U32 copy, U32 row) { ok("hit", fmt::format(R"(,"hwTable":{},"index":{})", copy, row)); }
    void poll(double time) { script.ok(fmt::format(R"({{"op":"poll","time":{}}})", time)); }
    /** The writes of a row to both processors. */
    static Json rowWrites(std::vector<U32> const& data, U32 control) {
        Json all = Json::array();
        for (int const processor : {0, 1}) {
            auto const prefix = fmt::format("ingress/processor_l3[{}]/hash_", processor);
            for (std::size_t i = 0; i < data.size(); ++i)
                all.push_back({fmt::format("{}data{}", prefix, i), data[i]});
            all.push_back({prefix + "ctl", control});
        }
        return all;
    }

    NerioTest::ScriptLines script;

private:
    static std::string line(std::string const& op, std::string const& members) {
        return R"({"table":"t","op":")" + op + "\"" + members + "}";
    }
};

class ScriptL3LagTest : public ScriptOfOneTable {};

TEST_F(ScriptL3LagTest, AnEntryIsWrittenToEachProcessorAndSurvivesARestart) {
    start("l3Lag");
    ok("entryIs", R"(,"key":5,"result":{"portMask":3,"natEnabled":true})");
    // Bits 54 and 55: parity and NAT. Control word: row 5, the write strobe, table 9.
    EXPECT_EQ(writes(), rowWrites({3, 0xC00000}, 5 | 1 << 17 | 9 << 18));
    EXPECT_EQ(shadow(1, 5), Json({3, 0xC00000, 5 | 1 << 17 | 9 << 18}));
    EXPECT_EQ(published(), R"([["t","entry",5]])"_json_text);
    auto const wanted =
        R"([{"key":5,"result":{"portMask":3,"cpuPriority":false,"natEnabled":true}}])"_json_text;
    EXPECT_EQ(entries(), wanted);
    restart();
    EXPECT_EQ(writes(), Json::array());
    EXPECT_EQ(entries(), wanted);
    EXPECT_EQ(ok("entryDel", R"(,"key":5)")["result"], wanted[0]["result"]);
    EXPECT_EQ(writes(), rowWrites({0, 0}, 5 | 1 << 17 | 9 << 18));
    EXPECT_EQ(ok("entry", R"(,"key":5)")["has"], false);
}

TEST_F(ScriptL3LagTest, RowsEndAt55AndKeysAt63) {
    start("l3Lag");
    ok("entryIs", R"(,"key":55,"result":{"portMask":1})");
    EXPECT_EQ(ok("hwTables")["hwTables"][1], R"({"id":1,"name":"t/demo/L3Lag/1","firstIndex":0,"lastIndex":55,
        "registers":["ingress/processor_l3[1]/hash_data0","ingress/processor_l3[1]/hash_data1",
                     "ingress/processor_l3[1]/hash_ctl"]})"_json_text);
    EXPECT_EQ(failure("entryIs", R"(,"key":64,"result":{})"),
              "RangeException: NerioSwitch::L3LagIndex::value < NerioSwitch::L3LagIndex::min or > "
              "NerioSwitch::L3LagIndex::mcastSnat not allowed");
    for (auto const* key : {"56", "63"}) {
        EXPECT_EQ(failure("entryIs", fmt::format(R"(,"key":{},"result":{{"portMask":1}})", key))
                      .rfind("RangeException: ", 0),
                  0u);
    }
    EXPECT_EQ(entries().size(), 1u);
}

TEST_F(ScriptL3LagTest, TellsTextsAndInconsistentKeysAndHasNoStatus) {
    start("l3Lag");
    EXPECT_EQ(
        ok("text", R"(,"key":5,"result":{"portMask":3,"cpuPriority":true,"natEnabled":true})"),
        R"({"ok":true,"key":"5","result":"portMask:0x000000000003, cpuPriority, natEnabled"})"_json_text);
    ok("entryIs", R"(,"key":5,"result":{"portMask":3})");
    ok("shadowIs", R"(,"hwTable":1,"index":5,"words":[1,0,0])");
    restart();
    EXPECT_EQ(ok("inconsistent")["keys"], Json({5}));
    EXPECT_EQ(failure("status"), "ScriptError: table: \"t\" has no status");
    EXPECT_EQ(failure("location", R"(,"key":5)"), "ScriptError: table: \"t\" has no location");
    EXPECT_EQ(failure("hash", R"(,"key":5)"), "ScriptError: table: \"t\" has no hash");
    EXPECT_EQ(failure("hit", R"(,"hwTable":0,"index":5)"), "ScriptError: table: \"t\" has no hit");
}

class ScriptLpmTest : public ScriptOfOneTable {};

TEST_F(ScriptLpmTest, WholeRoutesAreKeptAndPublishedAndNothingIsProgrammed) {
    start("lpm");
    ok("entryIs", R"(,"key":{"vrf":1,"prefix":"10.0.0.0/8"},"result":{"cells":[{"nexthopIndexes":100}]})");
    ok("entryIs", R"(,"key":{"vrf":1,"prefix":"10.0.0.0/8"},"result":{"cells":[{"nexthopIndexes":100}]})");
    ok("entryIs", R"(,"key":{"prefix":"0.0.0.0/0"},"result":{"cpuTrap":true})");
    EXPECT_EQ(published(), R"([["t","entry",{"vrf":1,"prefix":"10.0.0.0/8"}],
                               ["t","entry",{"vrf":0,"prefix":"0.0.0.0/0"}]])"_json_text);
    EXPECT_EQ(writes(), Json::array());
    auto const null =
        R"({"nexthopIndexes":57,"maskLength0":33,"maskLength1":33,"realPrefixLen":0})"_json_text;
    auto first = null;
    first["nexthopIndexes"] = 100;
    EXPECT_EQ(entries()[1], (Json{{"key", {{"vrf", 1}, {"prefix", "10.0.0.0/8"}}},
                                  {"result", {{"cells", {first, null, null, null}}, {"cpuTrap", false}}}}));
    EXPECT_EQ(ok("entryDel", R"(,"key":{"prefix":"0.0.0.0/0"})")["result"]["cpuTrap"], true);
    EXPECT_EQ(failure("entryIs", R"(,"key":{"prefix":"10.0.0.1/8"},"result":{})"),
              "RangeException: Lanvo::Prefix::validAsPrefix != true not allowed");
    EXPECT_EQ(failure("hwTables"), "ScriptError: table: \"t\" is not started") << "there is no hardware";
    restart();
    EXPECT_EQ(entries(), Json::array()) << "no row remembers them";
}

class ScriptLpm11Test : public ScriptOfOneTable {
protected:
    static constexpr char const* tens = R"(,"key":{"vrf":3,"prefix":"10.0.0.0/11"})";
    static constexpr U32 row = 3 * 2048 + 80;
    static constexpr U32 control = row | 1 << 17 | 7 << 18;

    std::string cell(U32 mask0, U32 mask1) const {
        return fmt::format(
            R"(,"result":{{"cellResult":{{"nexthopIndexes":100,"maskLength0":{},"maskLength1":{},"realPrefixLen":8}}}})",
            mask0, mask1);
    }
    void versionIs(char const* version) {
        script.ok(fmt::format(R"({{"op":"profile","hwApi":"{}"}})", version));
    }
    Json result() { return ok("entry", tens)["result"]["cellResult"]; }
};

TEST_F(ScriptLpm11Test, AnEntryIsWrittenToEachProcessorAndSurvivesARestart) {
    start("lpm11");
    ok("entryIs", tens + cell(9, 5));
    // Next hop 100 ^ 57, valid, parity at 14, and 12 - 9 at 15; this version has no place for the second
    // mask.
    U32 const word = 0x5D | 1 << 12 | 3 << 15;
    EXPECT_EQ(writes(), rowWrites({word}, control));
    EXPECT_EQ(shadow(0, row), Json({word, control, 8}));
    auto const changes = published();
    ASSERT_EQ(changes.size(), 2u);
    EXPECT_EQ(changes[0], R"(["t","entryStatus",{"vrf":3,"prefix":"10.0.0.0/11"}])"_json_text);
    EXPECT_EQ(changes[1], R"(["t","entry",{"vrf":3,"prefix":"10.0.0.0/11"}])"_json_text);
    restart();
    EXPECT_EQ(writes(), Json::array());
    EXPECT_EQ(entries(), R"([{"key":{"vrf":3,"prefix":"10.0.0.0/11"},
        "result":{"cellResult":{"nexthopIndexes":100,"maskLength0":9,"maskLength1":33,"realPrefixLen":8},
                  "cpuTrap":false}}])"_json_text);
    ok("entryDel", tens);
    EXPECT_EQ(writes(), rowWrites({0}, control));
    EXPECT_EQ(status(), Json::array());
}

TEST_F(ScriptLpm11Test, HitsArePolledIntoTheStatus) {
    start("lpm11");
    ok("entryIs", tens + cell(33, 33));
    auto const record = [](Json const& lastHit) {
        return Json::array(
            {{{"key", {{"vrf", 3}, {"prefix", "10.0.0.0/11"}}}, {"status", 0}, {"lastHit", lastHit}}});
    };
    EXPECT_EQ(status(), record(nullptr));
    writes();
    hit(0, row);
    hit(0, row + 1);  // a row without an entry
    EXPECT_EQ(writes(), Json::array());
    poll(2.5);
    EXPECT_EQ(status(), record(2.5));
    hit(1, row);
    poll(4);
    EXPECT_EQ(status(), record(4.0));
    poll(5);
    EXPECT_EQ(status(), record(4.0));
}

TEST_F(ScriptLpm11Test, TellsTextsRowsAndInconsistentKeys) {
    start("lpm11");
    auto const text = ok("text", tens + std::string(R"(,"result":{"cpuTrap":true,"cellResult":{}})"));
    EXPECT_EQ(text["result"].get<std::string>().rfind("CpuTrap ", 0), 0u);
    EXPECT_EQ(ok("hwTables")["hwTables"][0],
              R"({"id":0,"name":"t/demo/Lpm11/0","firstIndex":0,"lastIndex":8191,"registers":
        ["ingress/processor_l3[0]/hash_data0","ingress/processor_l3[0]/hash_ctl"]})"_json_text);
    ok("entryIs", tens + cell(33, 33));
    ok("shadowIs", fmt::format(R"(,"hwTable":1,"index":{},"words":[1,0,0])", row));
    restart();
    EXPECT_EQ(ok("inconsistent")["keys"], R"([{"vrf":3,"prefix":"10.0.0.0/11"}])"_json_text);
    EXPECT_EQ(failure("location", tens), "ScriptError: table: \"t\" has no location");
    EXPECT_EQ(failure("hash", tens), "ScriptError: table: \"t\" has no hash");
}

TEST_F(ScriptLpm11Test, WhatNoRowCanCarryIsRefused) {
    start("lpm11");
    EXPECT_EQ(failure("entryIs", tens + std::string(R"(,"result":{"cellResult":{"nexthopIndexes":4096}})")),
              "RangeException: NerioSwitchTable::EntryCellResult::nexthopIndexes > "
              "NerioSwitchTable::EntryCellResult::maxNexthop not allowed");
    EXPECT_EQ(failure("entryIs", tens + cell(34, 33)),
              "RangeException: NerioSwitchTable::MaskLength::value < NerioSwitchTable::MaskLength::min or > "
              "NerioSwitchTable::MaskLength::null not allowed");
    EXPECT_EQ(entries(), Json::array());
    EXPECT_EQ(writes(), Json::array());
}

TEST_F(ScriptLpm11Test, BelowVersion51NoMaskLengthIsRefused) {
    versionIs("5.0");
    start("lpm11");
    for (U32 const length : {13u, 31u})
        ok("entryIs", tens + cell(length, length));
    restart();
    EXPECT_EQ(result()["maskLength0"], 33) << "these rows hold none";
}

TEST_F(ScriptLpm11Test, FromVersion51OnMaskLengthsThatCouldNotBeReadBackAreRefused) {
    versionIs("5.1");
    start("lpm11");
    for (U32 const length : {13u, 15u, 29u, 31u}) {
        EXPECT_EQ(failure("entryIs", tens + cell(length, 33)),
                  "RangeException: NerioSwitchTable::Lpm11Result::maskLength of 13 to 15 or 29 to 31 not "
                  "allowed")
            << length;
    }
    EXPECT_EQ(entries(), Json::array());
    EXPECT_EQ(writes(), Json::array());
    ok("entryIs", tens + cell(12, 13));
    EXPECT_EQ(result()["maskLength0"], 12);
    EXPECT_EQ(result()["maskLength1"], 13) << "the second one is not in these rows";
    restart();
    EXPECT_EQ(result()["maskLength0"], 33) << "12 and null are one";
}

TEST_F(ScriptLpm11Test, FromVersion9OnTheSecondMaskLengthIsRefusedAsWell) {
    versionIs("9.0");
    start("lpm11");
    EXPECT_NE(failure("entryIs", tens + cell(33, 14)), "");
    ok("entryIs", tens + cell(0, 11));
    restart();
    EXPECT_EQ(result()["maskLength0"], 0);
    EXPECT_EQ(result()["maskLength1"], 11);
}

TEST_F(ScriptLpm11Test, AStartRefusesWhatWasToldBeforeIt) {
    make("lpm11");
    ok("entryIs", tens + cell(13, 33));
    EXPECT_EQ(
        script.failure(R"({"op":"start","mode":"cold"})"),
        "RangeException: NerioSwitchTable::Lpm11Result::maskLength of 13 to 15 or 29 to 31 not allowed");
    EXPECT_EQ(writes(), Json::array());
    ok("entryIs", tens + cell(33, 33));
    script.ok(R"({"op":"start","mode":"cold"})");
}

class ScriptLpmStageTest : public ScriptOfOneTable, public testing::WithParamInterface<StageCase> {
protected:
    static constexpr U32 address = 0xAC10FE97;

    StageCase const& stage() const { return GetParam(); }
    U32 keyAddress() const { return address & Lanvo::Prefix::mask(static_cast<U8>(stage().baseLen)); }
    Json key(U32 of = address, U8 vrf = 3) const {
        auto const length = static_cast<U8>(stage().baseLen);
        Lanvo::Prefix const prefix(Lanvo::IpAddr::fromHostOrder(of & Lanvo::Prefix::mask(length)), length);
        return {{"vrf", vrf}, {"prefix", prefix.text()}};
    }
    std::string keyMember() const { return R"(,"key":)" + key().dump(); }
    static Json cell(U32 nexthop, U32 length, U32 mask0 = 33, U32 mask1 = 33) {
        return {{"nexthopIndexes", nexthop},
                {"maskLength0", mask0},
                {"maskLength1", mask1},
                {"realPrefixLen", length}};
    }
    Json result() const {
        U32 const base = stage().baseLen;
        return {{"cells",
                 {cell(100, base), cell(4095, base + 1, base + 2, 33), cell(57, base),
                  cell(58, base + 2, base, base + 1)}},
                {"cpuTrap", true}};
    }
    /** What rows hold of these cells: mask lengths as 1 for the longest one to 3. */
    static constexpr std::array<U32, 4> encodings{0x05D, 0x1FC6, 0, 0xB003};
    void program() { ok("entryIs", keyMember() + R"(,"result":)" + result().dump()); }
    /** The number of the row among those of both ways. */
    U32 hwIndex() {
        auto const location = ok("location", keyMember())["location"];
        return location["table"].get<U32>() * stage().rowsPerWay + location["row"].get<U32>();
    }
    Json record(Json const& lastHit) const {
        return Json::array({{{"key", key()}, {"status", 0}, {"lastHit", lastHit}}});
    }
};

TEST_P(ScriptLpmStageTest, AHashCanBeWorkedOutFromItsInput) {
    start(stage().family);
    U64 const input = U64{3} << stage().baseLen | address >> stage().dipShift;
    std::string bytes;
    for (U32 i = 0; i * 8 < stage().keyWidth; ++i)
        bytes += fmt::format("{:02x}", input >> (8 * i) & 0xFF);
    auto const* data = reinterpret_cast<U8 const*>(&input);
    auto const bits = static_cast<U8>(stage().keyWidth);
    auto const hash = [&](U8 way) {
        return stage().crcLength == 10 ? NerioSwitch::crc10Hash(data, way, bits)
                                       : NerioSwitch::crc12Hash(data, way, bits);
    };
    EXPECT_EQ(
        ok("hash", keyMember()),
        (Json{{"ok", true}, {"hashes", {hash(0), hash(1)}}, {"bits", stage().keyWidth}, {"input", bytes}}));
    EXPECT_TRUE(ok("location", keyMember())["location"].is_null());
    program();
    EXPECT_EQ(ok("location", keyMember())["location"], (Json{{"table", 0}, {"row", hash(0)}}));
}

TEST_P(ScriptLpmStageTest, AnEntryIsWrittenToEachProcessorAndSurvivesARestart) {
    start(stage().family);
    program();
    auto words = NerioTest::stageRow(stage(), 4, 3, address, encodings, true);
    words.push_back(0);
    auto const row = hwIndex();
    U32 const control = row | 1u << 17 | stage().number << 18;
    ASSERT_LT(row, stage().rowsPerWay) << "way 0";
    EXPECT_EQ(writes(), rowWrites(words, control));
    U32 const base = stage().baseLen;
    words.insert(words.end(),
                 {control, keyAddress(), base | (base + 1) << 6 | base << 12 | (base + 2) << 18});
    EXPECT_EQ(shadow(0, row), Json(words));
    EXPECT_EQ(shadow(1, row), Json(words));
    EXPECT_EQ(published(),
              (Json{{"t", "hashItem", key()}, {"t", "entryStatus", key()}, {"t", "entry", key()}}));
    Json const wanted = Json::array({{{"key", key()}, {"result", result()}}});
    EXPECT_EQ(entries(), wanted);
    restart();
    EXPECT_EQ(writes(), Json::array());
    EXPECT_EQ(entries(), wanted);
    EXPECT_EQ(hwIndex(), row);
    EXPECT_EQ(ok("entryDel", keyMember())["result"], result());
    EXPECT_EQ(status(), Json::array());
    EXPECT_TRUE(ok("location", keyMember())["location"].is_null());
    EXPECT_EQ(ok("entry", keyMember())["has"], false);
}

TEST_P(ScriptLpmStageTest, HitsArePolledIntoTheStatus) {
    start(stage().family);
    program();
    EXPECT_EQ(status(), record(nullptr));
    hit(0, hwIndex());
    hit(0, (hwIndex() + 1) % (2 * stage().rowsPerWay));  // a row without an entry
    poll(2.5);
    EXPECT_EQ(status(), record(2.5));
    hit(1, hwIndex());
    poll(4);
    EXPECT_EQ(status(), record(4.0));
    poll(5);
    EXPECT_EQ(status(), record(4.0));
}

TEST_P(ScriptLpmStageTest, TellsRowsCapacityAndInconsistentKeys) {
    start(stage().family);
    auto const rows = 2 * stage().rowsPerWay;
    auto const tables = ok("hwTables")["hwTables"];
    ASSERT_EQ(tables.size(), 2u);
    EXPECT_EQ(tables[1]["name"], fmt::format("t/demo/Lpm{}/1", stage().baseLen + 2));
    EXPECT_EQ(tables[1]["firstIndex"], 0);
    EXPECT_EQ(tables[1]["lastIndex"], rows - 1);
    EXPECT_EQ(ok("registersOf", R"(,"hwTable":0,"index":7)")["registers"],
              R"(["ingress/processor_l3[0]/hash_data0","ingress/processor_l3[0]/hash_data1",
                  "ingress/processor_l3[0]/hash_data2","ingress/processor_l3[0]/hash_data3",
                  "ingress/processor_l3[0]/hash_ctl"])"_json_text);
    auto const capacity = [&] { return script.ok(R"({"op":"capacity"})")["counters"]; };
    ASSERT_EQ(capacity().size(), 1u);
    EXPECT_EQ(capacity()[0]["capacity"], rows);
    EXPECT_EQ(capacity()[0]["used"], 0);
    program();
    program();
    EXPECT_EQ(capacity()[0]["used"], 1);
    auto words = shadow(1, hwIndex());
    words[2] = words[2].get<U32>() ^ 1;
    ok("shadowIs", fmt::format(R"(,"hwTable":1,"index":{},"words":{})", hwIndex(), words.dump()));
    EXPECT_EQ(ok("inconsistent")["keys"], Json::array());
    restart();
    EXPECT_EQ(ok("inconsistent")["keys"], Json::array({key()}));
    EXPECT_EQ(capacity()[0]["used"], 1);
    ok("entryDel", keyMember());
    EXPECT_EQ(capacity()[0]["used"], 0);
}

TEST_P(ScriptLpmStageTest, KeysThatFindNoPlaceStayWantedAndSayTheyAreNotProgrammed) {
    script.ok(R"({"op":"profile","numVrfs":32})");
    start(stage().family);
    // Stages of short keys have more rows than there are keys of a VRF.
    U32 const rows = 2 * stage().rowsPerWay;
    U32 const keysOfVrf = 1u << std::min(stage().baseLen, 20u);
    for (U32 number = 0; number <= rows; ++number) {
        auto const of = (number % keysOfVrf) << stage().dipShift;
        ok("entryIs", R"(,"key":)" + key(of, static_cast<U8>(number / keysOfVrf)).dump() + R"(,"result":{})");
    }
    auto const records = status();
    ASSERT_EQ(records.size(), rows + 1);
    U32 waiting = 0;
    for (auto const& each : records)
        waiting += each["status"].get<U32>();
    EXPECT_GE(waiting, 1u) << "one more than there are rows";
    EXPECT_LT(waiting, rows / 10);
    EXPECT_EQ(script.ok(R"({"op":"capacity"})")["counters"][0]["used"], rows + 1 - waiting);
}

TEST_P(ScriptLpmStageTest, WhatNoRowCanCarryIsRefused) {
    start(stage().family);
    U32 const base = stage().baseLen;
    auto const refused = [&](Json const& first) {
        Json const cells{{"cells", Json::array({first})}};
        return failure("entryIs", keyMember() + R"(,"result":)" + cells.dump());
    };
    EXPECT_EQ(refused(cell(4096, base)),
              "RangeException: NerioSwitchTable::EntryCellResult::nexthopIndexes > "
              "NerioSwitchTable::EntryCellResult::maxNexthop not allowed");
    for (U32 const mask : {base - 1, base + 3 == 33 ? 0u : base + 3}) {
        EXPECT_EQ(
            refused(cell(1, base, mask)),
            "RangeException: NerioSwitchTable::EntryCellResult::maskLength < prefixLen - 2 or > prefixLen "
            "not allowed");
    }
    EXPECT_EQ(failure("entryIs", R"(,"key":{"prefix":"10.0.0.1/8"},"result":{})"),
              "RangeException: Lanvo::Prefix::validAsPrefix != true not allowed");
    EXPECT_EQ(failure("entryIs", keyMember() + R"(,"result":{"cells":[{},{},{},{},{}]})"),
              "ScriptError: cells: more than 4 elements");
    EXPECT_EQ(entries(), Json::array());
    EXPECT_EQ(writes(), Json::array());
}

INSTANTIATE_TEST_SUITE_P(Stages, ScriptLpmStageTest, testing::ValuesIn(stageCases), NerioTest::stageName);

}  // namespace
