#pragma once

#include <algorithm>
#include <array>

#include "Belmo/Assert.h"
#include "Dovra/Cuckoo.h"
#include "NerioSwitch/LpmKey.h"
#include "NerioSwitch/ProfileHwApi.h"
#include "NerioSwitchApi/RowLayout.h"

#include "NerioSwitchTable/BitField.h"
#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/LpmResult.h"
#include "NerioSwitchTable/TableConstants.h"

/*
 * The stages of the route look-up that hash, and how their rows are laid out.
 *
 * A stage looks up the first bits of an address and finds four cells, one for each value of the two bits
 * behind them: it serves routes of three lengths. A row stores the top bits of the key's address; its low
 * ones are made up for by the row's number. Words that only the shadow keeps have the whole address, and the
 * length of the route that owns each cell.
 */
namespace NerioSwitchTable {

/** What tells one stage from another. */
struct LpmStage {
    /** The two address bits behind a key, which choose its cell. */
    static constexpr U32 prefixRange = 2;
    static constexpr U8 ways = 2;

    /** The longest route that it serves, which it is named by. */
    U8 number;
    char const* tableName;
    /** Number of its software and of its physical table. */
    TableIndex tableIndex;
    /** Length of its keys. */
    U8 prefixBaseLen;
    /** Bits that are hashed: those of the key, and the VRF above them. */
    U8 keyWidth;
    /** Bits of a hash, and of a row's number. */
    U8 crcLength;
    /** Number of the table in control words; and the first bit of its hits. */
    U8 hashTableId;
    /** Multicast routes live in its rows, too, and have the bit below `valid` set. */
    bool sharesRows = false;

    /** Address bits that take no part in a look-up. */
    constexpr U32 ipv4DipShift() const { return 32u - prefixBaseLen; }
    constexpr U32 rowsPerWay() const { return U32{1} << crcLength; }
    /** Address bits that a row stores. */
    constexpr U8 storedBits() const { return static_cast<U8>(prefixBaseLen - crcLength); }
    /** Width of a row's key with that many bits of VRF. */
    constexpr U32 compareWidth(U8 numVrfBits) const { return U32{storedBits()} + numVrfBits; }
    /** Bits between a row's key and `valid`: rows that are shared have it in one place on every chip. */
    constexpr U32 resultShift(U8 numVrfBits) const { return sharesRows ? 29 - compareWidth(numVrfBits) : 0; }
};

inline constexpr std::array lpmStages{
    LpmStage{14, "Lpm14Table", 41, 12, 17, 10, 6},       LpmStage{17, "Lpm17Table", 40, 15, 20, 10, 5},
    LpmStage{20, "Lpm20Table", 39, 18, 23, 10, 4},       LpmStage{23, "Lpm23Table", 38, 21, 26, 10, 3},
    LpmStage{26, "Lpm26Table", 37, 24, 29, 12, 2},       LpmStage{29, "Lpm29Table", 36, 27, 41, 12, 1, true},
    LpmStage{32, "Lpm32Table", 35, 30, 35, 12, 0, false}};

/** The stage of that number. */
constexpr LpmStage const& lpmStage(U8 number) {
    auto const* found = std::find_if(lpmStages.begin(), lpmStages.end(),
                                     [&](auto const& stage) { return stage.number == number; });
    BELMO_ASSERT(found != lpmStages.end());
    return *found;
}

/** The layout of a stage's rows. */
struct NERIO_SWITCH_TABLE_EXPORT LpmRowLayout {
    static constexpr U8 words = 7;
    static constexpr U8 controlWord = 4;
    static constexpr U8 addressWord = 5;
    static constexpr U8 lengthsWord = 6;
    static constexpr U8 parityWords = 3;
    static constexpr U8 cellResultWidth = 14;
    static constexpr U8 cellNatResultWidth = 2;
    static constexpr U8 cells = EntryCellIndex::max + 1;
    using CellFields = std::array<BitField, cells>;

    /** The top bits of the address. */
    BitField storedAddress{};
    BitField vrf{};
    BitField zero{};
    BitField valid{};
    /** The low bits of each cell's encoding, and the high ones. */
    CellFields cellResults{};
    CellFields cellNatResults{};
    BitField cpuTrap{};
    BitField parity{};
    /** Of a shared row: whose it is. */
    BitField multicast{};
    /** Lays a row of this layout out. */
    void (*encode)(NerioSwitch::LpmKey const&, LpmResult const&, bool valid, NerioSwitch::ProfileHwApi const&,
                   U32* row) = nullptr;

    /** The encoding of a cell. */
    U32 cellIn(U32 const* row, U8 cell) const {
        return static_cast<U32>(cellResults[cell].get(row) | cellNatResults[cell].get(row)
                                                                 << cellResultWidth);
    }
};

/** The layout of a stage's rows where `numVrfBits` bits of a VRF's number, 2, 3 or 5, are stored. */
NERIO_SWITCH_TABLE_EXPORT LpmRowLayout lpmRowLayout(LpmStage const& stage, U8 numVrfBits);

/** All fields of such a row: what tells whose a shared row is stands apart from the zeros below it. */
NERIO_SWITCH_TABLE_EXPORT std::vector<NerioSwitchApi::RowField> lpmRowFields(LpmRowLayout const& layout,
                                                                             bool sharesRows);
/** The fields of the control word. */
NERIO_SWITCH_TABLE_EXPORT std::vector<NerioSwitchApi::RowField> lpmControlFields();

/** Sets the control word's fields in a row; its other bits stay. */
NERIO_SWITCH_TABLE_EXPORT void setLpmControl(Dovra::Cuckoo::CuckooLocation const& location, U8 hashTableId,
                                             U32* row);

}  // namespace NerioSwitchTable
