#include "NerioSwitchTable/NerioHitBitUtil.h"

namespace NerioSwitchTable {

namespace {

/** Read strobe and hit-memory selector of the control word, and row 0: the reads count from there. */
constexpr U32 hitMemoryRead = 0x2D0000;
constexpr U32 bitsBetweenTables = 9;
constexpr U32 bitsBetweenRows = 36;
constexpr U32 rowsPerRead = 2;

}  // namespace

Belmo::Ptr<NerioSwitchApi::HitBitReadInfo> hitBitReadInfoIs(NerioSwitchApi::HitBitReadInfoWrapper& wrapper,
                                                            Belmo::String const& prefix) {
    auto const data = NerioSwitchApi::addressesOf(prefix, {"hash_data0", "hash_data1", "hash_data2"});
    return wrapper.readInfoIs({prefix + "hash_ctl", hitMemoryRead}, data);
}

void hitBitRowsAre(NerioSwitchApi::HitBitReadInfo& info, U32 bit, NerioSwitchApi::HwIndex firstIndex,
                   U32 rows, U32 firstRead) {
    for (U32 row = 0; row < rowsPerRead; ++row) {
        info.bitRegistrationIs(static_cast<U8>(bit + bitsBetweenRows * row))
            .firstReadIs(firstRead)
            .lastReadIs(firstRead + rows / rowsPerRead - 1)
            .strideIs(rowsPerRead)
            .firstIndexIs(firstIndex + row);
    }
}

Belmo::Ptr<NerioSwitchApi::HitBitReadInfoWrapper> getHitBitMapping(Belmo::String const& prefix, U32 tableSize,
                                                                   U32 numHashTables, U32 hitBitOffset) {
    auto wrapper = Belmo::make<NerioSwitchApi::HitBitReadInfoWrapper>();
    auto const info = hitBitReadInfoIs(*wrapper, prefix);
    for (U32 table = 0; table < numHashTables; ++table)
        hitBitRowsAre(*info, hitBitOffset + bitsBetweenTables * table, table * tableSize, tableSize);
    return wrapper;
}

}  // namespace NerioSwitchTable
