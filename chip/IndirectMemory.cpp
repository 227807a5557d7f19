#include "chip/IndirectMemory.h"

#include <fmt/format.h>
#include <utility>

#include "Belmo/Assert.h"

namespace Chip {

namespace {

Belmo::String fieldText(ControlField field) {
    return fmt::format("{}+{}", field.offset, field.width);
}

/** Whether every number below `count` fits into the field. */
bool reaches(ControlField field, U32 count) {
    return count > 0 && U64{count} <= U64{1} << field.width;
}

}  // namespace

Belmo::String MemoryDescription::text() const {
    return fmt::format("{} {} {} row {} write {} read {} way {} select {} = {} rows {} * {}", name,
                       fmt::join(dataRegisters, " "), controlRegister, fieldText(row), fieldText(writeStrobe),
                       fieldText(readStrobe), fieldText(way), fieldText(select), selected, rowsPerWay, ways);
}

IndirectMemory::IndirectMemory(MemoryDescription description, std::span<U32> rows,
                               std::vector<U32*> dataRegisters)
    : description_(std::move(description)), rows_(rows), dataRegisters_(std::move(dataRegisters)) {
    BELMO_ASSERT(description_.writeStrobe.width > 0);
    BELMO_ASSERT(reaches(description_.row, description_.rowsPerWay));
    BELMO_ASSERT(reaches(description_.way, description_.ways));
    BELMO_ASSERT(rows_.size() == std::size_t{description_.rows()} * dataRegisters_.size());
}

std::span<U32 const> IndirectMemory::row(U32 number) const {
    BELMO_ASSERT(number < description_.rows());
    return rows_.subspan(std::size_t{number} * dataRegisters_.size(), dataRegisters_.size());
}

std::span<U32> IndirectMemory::addressedRow(U32 control) const {
    U32 const row = description_.row.of(control);
    U32 const way = description_.way.of(control);
    if (row >= description_.rowsPerWay || way >= description_.ways) {
        throw NerioSwitchApi::BusException(
            fmt::format("{} = 0x{:08X}: row {} of way {} is beyond the end of {}, {} rows in {} ways",
                        description_.controlRegister, control, row, way, description_.name,
                        description_.rowsPerWay, description_.ways));
    }
    auto const number = std::size_t{way} * description_.rowsPerWay + row;
    return rows_.subspan(number * dataRegisters_.size(), dataRegisters_.size());
}

void IndirectMemory::controlIs(U32 control) {
    bool const writes = description_.writeStrobe.of(control) != 0;
    bool const reads = description_.readStrobe.of(control) != 0;
    if (!writes && !reads) return;
    auto const row = addressedRow(control);
    for (std::size_t i = 0; i < row.size(); ++i) {
        if (writes) {
            row[i] = *dataRegisters_[i];
        } else {
            *dataRegisters_[i] = row[i];
        }
    }
}

}  // namespace Chip
