#include "NerioSwitchTable/NerioHitBitUtil.h"

namespace NerioSwitchTable {

namespace {

/** Read strobe and hit-memory selector of the control word, and row 0: the reads count from there. */
constexpr U32 hitMemoryRead = 0x2D0000;
constexpr U32 bitsBetweenTables = 9;
constexpr U32 bitsBetweenRows = 36;
constexpr U32 rowsPerRead = 2;

}  // namespace

Belmo::Ptr<NerioSwitchApi::HitBitReadInfoWrapper> getHitBitMapping(Belmo::String const& prefix, U32 tableSize,
                                                                   U32 numHashTables, U32 hitBitOffset) {
    auto const data = NerioSwitchApi::addressesOf(prefix, {"hash_data0", "hash_data1", "hash_data2"});
    auto wrapper = Belmo::make<NerioSwitchApi::HitBitReadInfoWrapper>();
    auto const info = wrapper->readInfoIs({prefix + "hash_ctl", hitMemoryRead}, data);
    for (U32 table = 0; table < numHashTables; ++table) {
        for (U32 row = 0; row < rowsPerRead; ++row) {
            U32 const bit = hitBitOffset + bitsBetweenTables * table + bitsBetweenRows * row;
            info->bitRegistrationIs(static_cast<U8>(bit))
                .lastReadIs(tableSize / rowsPerRead - 1)
                .strideIs(rowsPerRead)
                .firstIndexIs(table * tableSize + row);
        }
    }
    return wrapper;
}

}  // namespace NerioSwitchTable
