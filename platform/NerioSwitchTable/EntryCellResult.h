#pragma once

#include <array>

#include "Belmo/Export.h"
#include "Belmo/RangedIndex.h"
#include "NerioSwitch/Indexes.h"
#include "NerioSwitch/ProfileHwApi.h"
#include "Sorn/ValueType.h"

namespace NerioSwitchTable {

/** Length of a mask, 0 to 32; 33 is none. */
BELMO_INDEX(NerioSwitchTable, MaskLength, U8, min, 0, null, 33, null);

/**
 * The forwarding decision of one cell: a next hop, two mask lengths, and the length of the route that owns
 * the cell. The default, the null cell, has none of them.
 */
class BELMO_EXPORT EntryCellResult {
    SORN_VALUE_TYPE(NerioSwitchTable, EntryCellResult, (NerioSwitch::NexthopIndexes, nexthopIndexes, {}),
                    (MaskLength, maskLength0, {}), (MaskLength, maskLength1, {}), (U8, realPrefixLen, 0));

    /** The highest next hop that a row can carry. */
    static constexpr U32 maxNexthop = 0xFFF;
    static constexpr char const* nexthopRangeText =
        "NerioSwitchTable::EntryCellResult::nexthopIndexes > "
        "NerioSwitchTable::EntryCellResult::maxNexthop not allowed";
    static constexpr char const* maskRangeText =
        "NerioSwitchTable::EntryCellResult::maskLength < prefixLen - 2 or > prefixLen not allowed";

    /**
     * The cell as a row holds it, the same on every API version; the null cell is 0.
     *
     *   bits    hash stage, 16 bits                          direct stage, 12 bits
     *   11:0    next hop, with the bits of null turned over  the same
     *   13:12   first mask length                            none: its row has a place for it
     *   15:14   second mask length                           none: its row has a place for it
     *
     * `prefixLen` is the longest route of the stage. A mask length is held by how far it lies below
     * `prefixLen + 1`, 1 to 3, with 0 for null: a hash stage carries mask lengths from `prefixLen - 2` to
     * `prefixLen`, which are the lengths of its routes. Next hops go up to `maxNexthop`. What does not fit is
     * refused with `Belmo::RangeException`. `realPrefixLen` is kept elsewhere.
     */
    U32 hwEncoding(bool direct, U32 prefixLen, NerioSwitch::ProfileHwApi const& /*hwApi*/) const {
        if (nexthopIndexes_.value() > maxNexthop) refuse(nexthopRangeText);
        U32 const nexthop = nexthopIndexes_.value() ^ NerioSwitch::NexthopIndexes::null;
        if (direct) return nexthop;
        return nexthop | maskCode(maskLength0_, prefixLen) << firstMaskBit |
               maskCode(maskLength1_, prefixLen) << secondMaskBit;
    }

    /** The cell of an encoding; bits that the stage does not use are passed over. */
    static EntryCellResult fromHwEncoding(U32 encoding, U32 prefixLen, bool direct, U32 realPrefixLen,
                                          NerioSwitch::ProfileHwApi const& /*hwApi*/) {
        EntryCellResult cell;
        cell.nexthopIndexes_ = (encoding & maxNexthop) ^ NerioSwitch::NexthopIndexes::null;
        cell.realPrefixLen_ = static_cast<U8>(realPrefixLen);
        if (direct) return cell;
        cell.maskLength0_ = maskOf(encoding >> firstMaskBit & maskBits, prefixLen);
        cell.maskLength1_ = maskOf(encoding >> secondMaskBit & maskBits, prefixLen);
        return cell;
    }

    /** The cell as people read it. */
    Belmo::String resultString() const;

    /** All attributes in one number, to hash a cell by. */
    std::array<U64, 1> hashNumbers() const {
        return {U64{nexthopIndexes_.value()} << 24 | U32{maskLength0_.value()} << 16 |
                U32{maskLength1_.value()} << 8 | realPrefixLen_};
    }

private:
    static constexpr U32 firstMaskBit = 12;
    static constexpr U32 secondMaskBit = 14;
    static constexpr U32 maskBits = 3;

    [[noreturn]] static void refuse(char const* text);

    static U32 maskCode(MaskLength length, U32 prefixLen) {
        if (length == MaskLength::null) return 0;
        U32 const below = prefixLen + 1 - length.value();
        if (below - 1 >= maskBits) refuse(maskRangeText);
        return below;
    }
    static MaskLength maskOf(U32 code, U32 prefixLen) {
        return code == 0 ? MaskLength() : MaskLength(prefixLen + 1 - code);
    }
};
static_assert(sizeof(EntryCellResult) == 7, "route tables hold many cells");

}  // namespace NerioSwitchTable
