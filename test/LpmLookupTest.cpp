// The chip's route lookup, on rows that are written into its registers from literal positions.
#include <gtest/gtest.h>
#include <optional>
#include <tuple>

#include "NerioSwitch/CrcHash.h"

#include "AllocationCount.h"
#include "FailureText.h"
#include "LpmFixture.h"
#include "NerioSwitchTable/NerioTableLpm11.h"
#include "PackedWords.h"
#include "chip/LpmLookup.h"

namespace {

using Chip::HashPlace;
using Chip::LpmHit;
using NerioSwitch::ProfileHwApi;
using NerioSwitchTable::Lpm11Result;
using NerioSwitchTable::LpmResult;
using NerioTest::makeEven;
using NerioTest::packed;
using NerioTest::routeCell;
using NerioTest::routeKey;
using NerioTest::StageCase;
using NerioTest::stageCases;
using Words = std::vector<U32>;

constexpr U32 someAddress = 0xAC10FE97;

/** A chip, and what its registers are told. */
class Rows {
public:
    explicit Rows(U32 vrfs = 4, ProfileHwApi api = {6, 2}) {
        profile->numVrfs = vrfs;
        profile->hwApi = api;
        chip = Chip::simulatedChip(*profile);
        lookUp.emplace(*chip, *profile);
    }

    U32 validBit(StageCase const& stage) const { return NerioTest::stageValidBit(stage, profile->numVrfs); }
    static U32 rowOf(StageCase const& stage, U8 vrf, U32 address, U8 way) {
        U64 const key = U64{vrf} << stage.baseLen | address >> stage.dipShift;
        auto const* bytes = reinterpret_cast<U8 const*>(&key);
        auto const width = static_cast<U8>(stage.keyWidth);
        return stage.crcLength == 12 ? NerioSwitch::crc12Hash(bytes, way, width)
                                     : NerioSwitch::crc10Hash(bytes, way, width);
    }
    Words row(StageCase const& stage, U8 vrf, U32 address, std::array<U32, 4> const& cells,
              bool cpuTrap = false) const {
        return NerioTest::stageRow(stage, profile->numVrfs, vrf, address, cells, cpuTrap);
    }
    void write(Words const& words, U32 control, U32 processor = 0) {
        auto const prefix = "ingress/processor_l3[" + std::to_string(processor) + "]/hash_";
        for (std::size_t i = 0; i < words.size(); ++i)
            chip->write(chip->address(prefix + "data" + std::to_string(i)), words[i]);
        chip->write(chip->address(prefix + "ctl"), control | 1u << 17);
    }
    void write(StageCase const& stage, HashPlace place, Words const& words) {
        write({words[0], words[1], words[2], 0}, place.row | U32{place.way} << 14 | stage.number << 18);
    }
    HashPlace write(StageCase const& stage, U8 vrf, U32 address, std::array<U32, 4> const& cells,
                    bool cpuTrap = false, U8 way = 0) {
        HashPlace const place{way, rowOf(stage, vrf, address, way)};
        write(stage, place, row(stage, vrf, address, cells, cpuTrap));
        return place;
    }
    void writeDirect(U32 row, U32 word) { write({word}, row | 7u << 18); }

    std::optional<LpmHit> find(U8 vrf, U32 address) const { return lookUp->find(vrf, address); }

    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip;
    std::optional<Chip::LpmLookup> lookUp;
};

/** Next hops 100, 4095, 58 and 0, whose bits of 57 are turned over, and mask bits above them. */
constexpr std::array<U32, 4> fourCells{0x05D, 0xFC6 | 0x5000, 0x003 | 0x8000, 0x039 | 0xF000};
constexpr std::array<U16, 4> fourNexthops{100, 4095, 58, 0};

class EveryLpmRow : public testing::TestWithParam<std::tuple<StageCase, U32>> {
protected:
    StageCase const& stage() const { return std::get<0>(GetParam()); }
    U8 number() const { return static_cast<U8>(stage().baseLen + 2); }
    U32 vrfs() const { return std::get<1>(GetParam()); }
    U8 lastVrf() const { return static_cast<U8>(vrfs() - 1); }
    /** An address of the key's, in the cell. */
    U32 inCell(U32 cell) const {
        U32 const shift = stage().dipShift - 2;
        return (someAddress & ~(3u << shift)) | cell << shift;
    }
};

TEST_P(EveryLpmRow, AnswersWithTheCellOfTheNextTwoBitsInEitherWay) {
    for (U8 const way : {U8{0}, U8{1}}) {
        for (bool const cpuTrap : {false, true}) {
            Rows rows(vrfs());
            EXPECT_EQ(rows.find(lastVrf(), someAddress), std::nullopt);
            auto const place = rows.write(stage(), lastVrf(), someAddress, fourCells, cpuTrap, way);
            for (U8 cell = 0; cell < 4; ++cell) {
                LpmHit const expected{number(),           place,  cell, static_cast<U16>(fourCells[cell]),
                                      fourNexthops[cell], cpuTrap};
                EXPECT_EQ(rows.find(lastVrf(), inCell(cell)), expected) << int{cell};
            }
        }
    }
}

TEST_P(EveryLpmRow, IsNotFoundIfAnyBitUpToTheValidOneDiffers) {
    Rows rows(vrfs());
    auto const place = rows.write(stage(), lastVrf(), someAddress, fourCells);
    auto const whole = rows.row(stage(), lastVrf(), someAddress, fourCells);
    for (U32 bit = 0; bit <= rows.validBit(stage()); ++bit) {
        auto words = whole;
        words[0] ^= 1u << bit;
        makeEven(words, rows.validBit(stage()) + 58);
        rows.write(stage(), place, words);
        EXPECT_EQ(rows.find(lastVrf(), someAddress), std::nullopt) << "bit " << bit;
    }
    rows.write(stage(), place, whole);
    EXPECT_TRUE(rows.find(lastVrf(), someAddress).has_value());
}

TEST_P(EveryLpmRow, WithWrongParityIsPassedOver) {
    Rows rows(vrfs());
    auto const place = rows.write(stage(), lastVrf(), someAddress, fourCells);
    auto const whole = rows.row(stage(), lastVrf(), someAddress, fourCells);
    for (U32 bit = 0; bit < 96; ++bit) {
        auto words = whole;
        words[bit / 32] ^= 1u << bit % 32;
        rows.write(stage(), place, words);
        EXPECT_EQ(rows.find(lastVrf(), someAddress), std::nullopt) << "bit " << bit;
    }
    auto const second = rows.write(stage(), lastVrf(), someAddress, fourCells, false, 1);
    EXPECT_EQ(rows.find(lastVrf(), someAddress)->place, second);
    rows.write(stage(), place, whole);
    EXPECT_EQ(rows.find(lastVrf(), someAddress)->place, place) << "the first of two ways that match";
}

TEST_P(EveryLpmRow, WithANullCellFallsOnInThatCellAlone) {
    Rows rows(vrfs());
    for (U8 null = 0; null < 4; ++null) {
        for (U32 const masks : {0u, 0xF000u}) {
            auto cells = fourCells;
            cells[null] = masks;
            rows.write(stage(), lastVrf(), someAddress, cells, true);
            for (U8 cell = 0; cell < 4; ++cell)
                EXPECT_EQ(rows.find(lastVrf(), inCell(cell)).has_value(), cell != null) << int{cell};
        }
    }
}

TEST_P(EveryLpmRow, BelongsToOneVrfAndOneKey) {
    Rows rows(vrfs());
    rows.write(stage(), 1, someAddress, fourCells);
    for (U32 vrf = 0; vrf < vrfs(); ++vrf)
        EXPECT_EQ(rows.find(static_cast<U8>(vrf), someAddress).has_value(), vrf == 1) << vrf;
    for (U32 bit = 0; bit < 32; ++bit) {
        EXPECT_EQ(rows.find(1, someAddress ^ 1u << bit).has_value(), bit < stage().dipShift) << bit;
    }
}

INSTANTIATE_TEST_SUITE_P(Stages, EveryLpmRow,
                         testing::Combine(testing::ValuesIn(stageCases), testing::Values(4u, 8u, 32u)),
                         [](auto const& given) {
                             return std::string(std::get<0>(given.param).family) + "Of" +
                                    std::to_string(std::get<1>(given.param)) + "Vrfs";
                         });

struct DirectFormat {
    ProfileHwApi version;
    U32 trapBit;
    U32 parityBit;
    /** Bits that hold something else or nothing in that version. */
    U32 foreignBit;
};

class EveryLpm11Row : public testing::TestWithParam<DirectFormat> {
protected:
    /** The row of `someAddress` in VRF 3, in 4 VRFs. */
    static constexpr U32 row = 3 << 11 | someAddress >> 21;

    U32 word(std::initializer_list<NerioTest::PackedBits> fields) const {
        auto words = packed(1, fields);
        makeEven(words, GetParam().parityBit);
        return words[0];
    }
};

TEST_P(EveryLpm11Row, AnswersByVrfAndElevenBits) {
    for (bool const cpuTrap : {false, true}) {
        Rows rows(4, GetParam().version);
        EXPECT_EQ(rows.find(3, someAddress), std::nullopt);
        rows.writeDirect(row, word({{0, 12, 0x05D}, {12, 1, 1}, {GetParam().trapBit, 1, cpuTrap}}));
        LpmHit const expected{11, {0, row}, 0, 0x05D, 100, cpuTrap};
        EXPECT_EQ(rows.find(3, someAddress), expected);
        EXPECT_EQ(rows.find(3, 0xAC000000), expected);
        EXPECT_EQ(rows.find(3, 0xAC1FFFFF), expected);
        EXPECT_EQ(rows.find(3, 0xAC200000), std::nullopt);
        EXPECT_EQ(rows.find(2, someAddress), std::nullopt);
    }
}

TEST_P(EveryLpm11Row, TakesOnlyItsOwnBitForTheTrap) {
    Rows rows(4, GetParam().version);
    rows.writeDirect(row, word({{0, 12, 0xFC6}, {12, 1, 1}, {GetParam().foreignBit, 1, 1}}));
    EXPECT_EQ(rows.find(3, someAddress), (LpmHit{11, {0, row}, 0, 0xFC6, 4095, false}));
}

TEST_P(EveryLpm11Row, AnswersNothingIfItIsNotValidOrNullOrOfWrongParity) {
    Rows rows(4, GetParam().version);
    for (U32 const silent : {word({{0, 12, 0x05D}}), word({{12, 1, 1}, {GetParam().trapBit, 1, 1}}),
                             word({{0, 12, 0x05D}, {12, 1, 1}}) ^ 1u << GetParam().parityBit}) {
        rows.writeDirect(row, silent);
        EXPECT_EQ(rows.find(3, someAddress), std::nullopt) << silent;
    }
}

INSTANTIATE_TEST_SUITE_P(Versions, EveryLpm11Row,
                         testing::Values(DirectFormat{{4, 9}, 15, 16, 13}, DirectFormat{{5, 0}, 15, 16, 13},
                                         DirectFormat{{5, 1}, 13, 14, 15}, DirectFormat{{8, 9}, 13, 14, 15},
                                         DirectFormat{{9, 0}, 13, 14, 19}),
                         [](auto const& given) {
                             auto const version = given.param.version;
                             return std::to_string(version.majorVersion()) + "_" +
                                    std::to_string(version.minorVersion());
                         });

TEST(LpmLookup, TheLongestStageAnswersAndOthersFollowInTurn) {
    Rows rows;
    rows.writeDirect(1 << 11 | someAddress >> 21, packed(1, {{0, 12, 0x05D}, {12, 1, 1}, {14, 1, 0}})[0]);
    EXPECT_EQ(rows.find(1, someAddress)->stage, 11);
    for (auto const& stage : stageCases) {
        rows.write(stage, 1, someAddress, fourCells);
        EXPECT_EQ(rows.find(1, someAddress)->stage, stage.baseLen + 2);
    }
    for (auto stage = std::rbegin(stageCases); stage != std::rend(stageCases); ++stage) {
        rows.write(*stage, 1, someAddress, {});
        auto const next = std::next(stage) == std::rend(stageCases) ? 11 : std::next(stage)->baseLen + 2;
        EXPECT_EQ(rows.find(1, someAddress)->stage, next) << "a key whose cells are null is passed by";
    }
}

TEST(LpmLookup, RowsOfMulticastRoutesAreNoRoutes) {
    for (U32 const vrfs : {4u, 8u, 32u}) {
        Rows rows(vrfs);
        auto const& stage = stageCases[5];
        ASSERT_STREQ(stage.family, "lpm29");
        auto const place = rows.write(stage, 1, someAddress, fourCells);
        auto words = rows.row(stage, 1, someAddress, fourCells);
        words[0] |= 1u << 28;
        makeEven(words, 87);
        rows.write(stage, place, words);
        EXPECT_EQ(rows.find(1, someAddress), std::nullopt) << vrfs;
    }
}

TEST(LpmLookup, EachProcessorHasRowsOfItsOwn) {
    Rows rows;
    rows.write(packed(1, {{0, 12, 0x05D}, {12, 1, 1}, {14, 1, 0}}), someAddress >> 21 | 7u << 18, 1);
    EXPECT_EQ(rows.find(0, someAddress), std::nullopt);
    EXPECT_TRUE(Chip::LpmLookup(*rows.chip, *rows.profile, 1).find(0, someAddress).has_value());
}

TEST(LpmLookup, WhatTheChipDoesNotHaveIsRefused) {
    Rows rows;
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { rows.find(4, 0); }), "route lookup: VRF 4 is above 3");
    EXPECT_THROW(Chip::LpmLookup(*rows.chip, *rows.profile, 2), Belmo::RangeException);
    for (U32 const vrfs : {0u, 1u, 16u, 64u}) {
        rows.profile->numVrfs = vrfs;
        EXPECT_EQ(failureOf<Belmo::RangeException>([&] { Chip::LpmLookup(*rows.chip, *rows.profile); }),
                  "route lookup: no rows are known of " + std::to_string(vrfs) + " VRFs");
    }
}

TEST(LpmLookup, AllocatesNothing) {
    Rows rows;
    rows.write(stageCases[0], 1, someAddress, fourCells);
    auto const before = allocationCount();
    EXPECT_TRUE(rows.lookUp->packetIs(1, someAddress).has_value());
    EXPECT_FALSE(rows.lookUp->packetIs(0, someAddress).has_value());
    EXPECT_EQ(allocationCount(), before);
}

/** All stages of a chip, programmed by their tables. */
class LpmLookupTables : public testing::TestWithParam<U32> {
protected:
    LpmLookupTables() {
        profile_->numVrfs = GetParam();
        chip_ = Chip::simulatedChip(*profile_);
        framework_.emplace(profile_, chip_, NerioSwitchApi::memoryShadowStore());
        direct_ = NerioSwitchTable::lpm11TableFactory("lpm11");
        framework_->tableIs(direct_, NerioSwitchApi::StartMode::cold);
        for (auto const& stage : stageCases) {
            tables_.push_back(stage.make());
            framework_->tableIs(tables_.back(), NerioSwitchApi::StartMode::cold);
        }
        lookUp_.emplace(*chip_, *profile_);
    }
    U8 lastVrf() const { return static_cast<U8>(GetParam() - 1); }
    static NerioSwitch::LpmKey keyOf(StageCase const& stage, U8 vrf, U32 address) {
        auto const length = static_cast<U8>(stage.baseLen);
        return routeKey(vrf, address & Lanvo::Prefix::mask(length), length);
    }

    Belmo::Ptr<NerioSwitch::ProfileInfo> profile_ = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip_;
    std::optional<NerioSwitchApi::TableFramework> framework_;
    Belmo::Ptr<NerioSwitchTable::Lpm11Table> direct_;
    std::vector<Belmo::Ptr<NerioSwitchTable::LpmBaseTable>> tables_;
    std::optional<Chip::LpmLookup> lookUp_;
};

TEST_P(LpmLookupTables, AHitOnAnyStageReachesLastHitOfItsKey) {
    auto const directKey = routeKey(lastVrf(), someAddress & Lanvo::Prefix::mask(11), 11);
    direct_->entryIs(directKey, Lpm11Result().cellResultIs(routeCell(100, 8)));
    auto const lastHits = [&] {
        std::vector<Belmo::Duration> all{direct_->tableStatus()->entryStatus(directKey).lastHit()};
        for (std::size_t i = 0; i < tables_.size(); ++i) {
            auto const key = keyOf(stageCases[i], lastVrf(), someAddress);
            all.push_back(tables_[i]->tableStatus()->entryStatus(key).lastHit());
        }
        return all;
    };
    std::vector<Belmo::Duration> expected(8, Belmo::Duration::never());
    for (std::size_t i = 0; i < 8; ++i) {
        ASSERT_TRUE(lookUp_->find(lastVrf(), someAddress).has_value());
        EXPECT_EQ(framework_->pollHitBits(Belmo::Duration(1)), 0u) << "looking alone is no hit";
        EXPECT_EQ(lookUp_->packetIs(lastVrf(), someAddress)->stage, i == 0 ? 11 : 11 + 3 * i);
        double const time = 10 + static_cast<double>(i);
        EXPECT_EQ(framework_->pollHitBits(Belmo::Duration(time)), 1u);
        expected[i] = Belmo::Duration(time);
        EXPECT_EQ(lastHits(), expected);
        if (i == tables_.size()) break;
        auto const& stage = stageCases[i];
        auto result = LpmResult();
        for (U8 cell = 0; cell < 4; ++cell)
            result.cellResultIs(cell, routeCell(100 + cell, stage.baseLen));
        tables_[i]->entryIs(keyOf(stage, lastVrf(), someAddress), result);
    }
    EXPECT_FALSE(lookUp_->packetIs(0, someAddress).has_value());
    EXPECT_EQ(framework_->pollHitBits(Belmo::Duration(99)), 0u) << "nothing answered";
}

TEST_P(LpmLookupTables, EveryPlacedEntryAnswersWithItsCells) {
    std::mt19937_64 random(GetParam());
    for (std::size_t i = 0; i < tables_.size(); ++i) {
        auto const& stage = stageCases[i];
        std::map<NerioSwitch::LpmKey, LpmResult> wanted;
        for (int number = 0; number < 300; ++number) {
            auto const vrf = static_cast<U8>(random() % GetParam());
            auto& result = wanted[keyOf(stage, vrf, static_cast<U32>(random()))];
            for (U8 cell = 0; cell < 4; ++cell) {
                auto const nexthop = random() % 8 == 0 ? 57 : static_cast<U32>(random() % 4096);
                result.cellResultIs(cell, routeCell(nexthop, stage.baseLen + 2, stage.baseLen));
            }
            result.cpuTrapIs(random() % 2 == 0);
        }
        for (auto const& [key, result] : wanted)
            tables_[i]->entryIs(key, result);
        for (auto const& [key, result] : wanted) {
            ASSERT_EQ(tables_[i]->tableStatus()->entryStatus(key).status(),
                      NerioSwitchApi::EntryProgrammedStatus::entryProgrammed)
                << "there is room";
            for (U8 cell = 0; cell < 4; ++cell) {
                U32 const address = key.prefix().address().hostOrder() | U32{cell} << (stage.dipShift - 2);
                auto const hit = lookUp_->find(key.vrf(), address);
                auto const& expected = result.cellResult(cell);
                ASSERT_EQ(hit.has_value(), expected.nexthopIndexes().valid());
                if (!hit) continue;
                EXPECT_EQ(hit->stage, stage.baseLen + 2);
                EXPECT_EQ(hit->nexthop, expected.nexthopIndexes().value());
                EXPECT_EQ(hit->encoding, expected.hwEncoding(false, stage.baseLen + 2, profile_->hwApi));
                EXPECT_EQ(hit->cpuTrap, result.cpuTrap());
            }
        }
        tables_[i]->entryDelAll();
        for (auto const& [key, result] : wanted)
            EXPECT_FALSE(lookUp_->find(key.vrf(), key.prefix().address().hostOrder()).has_value());
    }
}

INSTANTIATE_TEST_SUITE_P(Vrfs, LpmLookupTables, testing::Values(4u, 8u, 32u),
                         [](auto const& given) { return std::to_string(given.param); });

}  // namespace
