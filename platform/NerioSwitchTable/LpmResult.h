#pragma once

#include <array>
#include <cstddef>

#include "Belmo/Export.h"
#include "Belmo/RangedIndex.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/EntryCellResult.h"

namespace NerioSwitchTable {

/** Which of a key's cells, 0 to 3. */
BELMO_INDEX(NerioSwitchTable, EntryCellIndex, U8, min, 0, max, 3, min);

/** One cell for each value of the two address bits behind a key. */
using EntryCells = std::array<EntryCellResult, std::size_t{EntryCellIndex::max} + 1>;

/** What one key of a hash stage maps to. The default has null cells. */
class BELMO_EXPORT LpmResult {
    SORN_VALUE_TYPE(NerioSwitchTable, LpmResult, (EntryCells, cells, {}), (bool, cpuTrap, false));

    EntryCellResult const& cellResult(EntryCellIndex index) const { return cells_[index.value()]; }
    LpmResult& cellResultIs(EntryCellIndex index, EntryCellResult const& cell) {
        cells_[index.value()] = cell;
        return *this;
    }

    /** All attributes in four numbers, to hash a result by. */
    std::array<U64, 4> hashNumbers() const {
        auto const number = [&](std::size_t i) { return cells_[i].hashNumbers().front(); };
        return {number(0) << 1 | U64{cpuTrap_}, number(1), number(2), number(3)};
    }
};
static_assert(sizeof(LpmResult) == 29, "route tables hold many results");

}  // namespace NerioSwitchTable
