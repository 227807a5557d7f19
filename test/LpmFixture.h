#pragma once

#include <array>
#include <bit>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "NerioSwitchTable/NerioTableLpmTables.h"
#include "PackedWords.h"
#include "SwitchFixture.h"

namespace NerioTest {

inline NerioSwitch::LpmKey routeKey(U8 vrf, U32 address, U8 length) {
    return {vrf, {Lanvo::IpAddr::fromHostOrder(address), length}};
}

inline NerioSwitchTable::EntryCellResult routeCell(U32 nexthop, U32 realPrefixLen, U32 first = 33,
                                                   U32 second = 33) {
    return NerioSwitchTable::EntryCellResult()
        .nexthopIndexesIs(nexthop)
        .maskLength0Is(first)
        .maskLength1Is(second)
        .realPrefixLenIs(static_cast<U8>(realPrefixLen));
}

/** The stage that a case runs on, and what is told of it, in literal numbers. */
struct StageCase {
    char const* family;
    Belmo::Ptr<NerioSwitchTable::LpmBaseTable> (*make)();
    U32 tableIndex;
    U32 baseLen;
    U32 dipShift;
    U32 keyWidth;
    U32 crcLength;
    U32 rowsPerWay;
    U32 number;
    /** Address bits that a row stores. */
    U32 stored;
    /** Width of the row's key with 4, 8 and 32 VRFs. */
    U32 compareWidths[3];

    U32 mostRealLen() const { return baseLen + 2; }
};

template <auto factory>
Belmo::Ptr<NerioSwitchTable::LpmBaseTable> madeBy() {
    return factory("routes");
}

inline constexpr StageCase stageCases[] = {
    {"lpm14", madeBy<NerioSwitchTable::lpm14TableFactory>, 41, 12, 20, 17, 10, 1024, 6, 2, {4, 5, 7}},
    {"lpm17", madeBy<NerioSwitchTable::lpm17TableFactory>, 40, 15, 17, 20, 10, 1024, 5, 5, {7, 8, 10}},
    {"lpm20", madeBy<NerioSwitchTable::lpm20TableFactory>, 39, 18, 14, 23, 10, 1024, 4, 8, {10, 11, 13}},
    {"lpm23", madeBy<NerioSwitchTable::lpm23TableFactory>, 38, 21, 11, 26, 10, 1024, 3, 11, {13, 14, 16}},
    {"lpm26", madeBy<NerioSwitchTable::lpm26TableFactory>, 37, 24, 8, 29, 12, 4096, 2, 12, {14, 15, 17}},
    {"lpm29", madeBy<NerioSwitchTable::lpm29TableFactory>, 36, 27, 5, 41, 12, 4096, 1, 15, {17, 18, 20}},
    {"lpm32", madeBy<NerioSwitchTable::lpm32TableFactory>, 35, 30, 2, 35, 12, 4096, 0, 18, {20, 21, 23}},
};

/** Bits of a VRF's number that rows store, where there are 4, 8 or 32 VRFs. */
constexpr U32 storedVrfBits(U32 vrfs) {
    return vrfs == 4 ? 2 : vrfs == 8 ? 3 : 5;
}

/** The bit of `valid` in a stage's rows, from literal widths. */
constexpr U32 stageValidBit(StageCase const& stage, U32 vrfs) {
    return stage.number == 1 ? 29 : stage.compareWidths[vrfs == 4 ? 0 : vrfs == 8 ? 1 : 2];
}

/** Turns that bit over if the words hold an odd number of ones. */
inline void makeEven(std::vector<U32>& words, U32 parityBit) {
    int ones = 0;
    for (U32 const word : words)
        ones += std::popcount(word);
    if (ones % 2 != 0) words[parityBit / 32] ^= U32{1} << parityBit % 32;
}

/** The data words of a stage's valid row, from literal positions; `cells` are encodings. */
inline std::vector<U32> stageRow(StageCase const& stage, U32 vrfs, U8 vrf, U32 address,
                                 std::array<U32, 4> const& cells, bool cpuTrap = false) {
    U32 const base = stageValidBit(stage, vrfs);
    auto words = packed(3, {{0, stage.stored, address >> (32 - stage.stored)},
                            {stage.stored, storedVrfBits(vrfs), vrf},
                            {base, 1, 1},
                            {base + 1, 14, cells[0]},
                            {base + 15, 14, cells[1]},
                            {base + 29, 14, cells[2]},
                            {base + 43, 14, cells[3]},
                            {base + 57, 1, cpuTrap},
                            {base + 59, 2, cells[0] >> 14},
                            {base + 61, 2, cells[1] >> 14},
                            {base + 63, 2, cells[2] >> 14},
                            {base + 65, 2, cells[3] >> 14}});
    makeEven(words, base + 58);
    return words;
}

inline void PrintTo(StageCase const& stage, std::ostream* stream) {
    *stream << stage.family;
}

inline std::string stageName(::testing::TestParamInfo<StageCase> const& info) {
    return info.param.family;
}

/** One stage, the current test's or any other, over a chip. */
class LpmTableFixture : public TableFixture<NerioSwitchTable::LpmBaseTable> {
protected:
    using Words = std::array<U32, 8>;
    using Bits = std::vector<PackedBits>;

    explicit LpmTableFixture(StageCase const& stage)
        : TableFixture([this] { return stage_.make(); }), stage_(stage) {}

    StageCase const& stage() const { return stage_; }
    NerioSwitchTable::LpmBaseHelper& helper() {
        return static_cast<NerioSwitchTable::LpmBaseHelper&>(*table().helper());
    }
    U32 vrfBits() { return storedVrfBits(profile().numVrfs); }
    U32 validBit() { return stageValidBit(stage_, profile().numVrfs); }
    /** A key of the stage, its address from the highest bits of `address`. */
    NerioSwitch::LpmKey key(U8 vrf, U32 address) const {
        auto const length = static_cast<U8>(stage_.baseLen);
        return routeKey(vrf, address & Lanvo::Prefix::mask(length), length);
    }
    /** Four cells that differ in all that they have, with lengths of the stage. */
    NerioSwitchTable::LpmResult fourCells() const {
        U32 const base = stage_.baseLen;
        return NerioSwitchTable::LpmResult()
            .cellResultIs(0, routeCell(0x0A5, base, base, 33))
            .cellResultIs(1, routeCell(0xFFF, base + 1, 33, base + 2))
            .cellResultIs(2, routeCell(57, base + 2))
            .cellResultIs(3, routeCell(0x05A, base + 2, base + 1, base))
            .cpuTrapIs(true);
    }
    /** A random result that rows can carry. */
    NerioSwitchTable::LpmResult randomResult(std::mt19937_64& random) const {
        NerioSwitchTable::LpmResult result;
        U32 const base = stage_.baseLen;
        auto const mask = [&] { return random() % 4 == 3 ? 33 : base + static_cast<U32>(random() % 3); };
        for (U8 i = 0; i < 4; ++i) {
            auto const nexthop = static_cast<U32>(random() % 5 == 0 ? 57 : random() % 0x1000);
            U32 const first = mask();
            result.cellResultIs(i, routeCell(nexthop, base + static_cast<U32>(random() % 3), first, mask()));
        }
        return result.cpuTrapIs(random() % 2 == 0);
    }
    /** What the helper makes of a buffer for an entry in that place. */
    Words row(NerioSwitch::LpmKey const& key, NerioSwitchTable::LpmResult const& result, bool valid = true,
              Dovra::Cuckoo::CuckooLocation location = {}, Words words = {}) {
        auto const item = table().createHashEntry(key, false);
        item->resultIs(result);
        item->validIs(valid);
        helper().setHwBuffer(item, location, reinterpret_cast<U8*>(words.data()));
        return words;
    }
    /** Puts a row into the shadow of each copy. */
    void store(NerioSwitchApi::HwIndex index, Words const& words) {
        for (auto const& [id, copy] : convertor().hwTables())
            shadow(id).store(index, std::span(words).first<7>());
    }
    Belmo::Ptr<NerioSwitchTable::LpmBaseTableCuckooEntry> decoded(NerioSwitchApi::HwIndex index) {
        return Belmo::ptrCast<NerioSwitchTable::LpmBaseTableCuckooEntry>(helper().decodeHwEntry(index));
    }
    NerioSwitchTable::LpmEntryStatus statusOf(NerioSwitch::LpmKey const& of) {
        return table().tableStatus()->entryStatus(of);
    }
    bool hasStatus(NerioSwitch::LpmKey const& of) { return table().tableStatus()->entryStatusHas(of); }
    U32 rowsInUse() { return table().hashConvertor()->rowsInUse(); }

private:
    StageCase stage_;
};

/** A test of every stage. */
class LpmStageTest : public LpmTableFixture, public ::testing::WithParamInterface<StageCase> {
protected:
    LpmStageTest() : LpmTableFixture(GetParam()) {}
};

}  // namespace NerioTest
