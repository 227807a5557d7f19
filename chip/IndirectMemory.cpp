#include "chip/IndirectMemory.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <fmt/format.h>
#include <iterator>
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

/** Whether every row of a way can be named. */
bool reachesRows(MemoryDescription const& memory) {
    return memory.oneHotRow ? memory.rowsPerWay <= memory.row.width : reaches(memory.row, memory.rowsPerWay);
}

/** What few memories have, in one line. */
Belmo::String extraText(MemoryDescription const& memory) {
    Belmo::String text;
    if (memory.content.width > 0) text += fmt::format(" content {}", fieldText(memory.content));
    if (memory.oneHotRow) text += " by a bit each";
    if (memory.takesIdleWords) text += " idles";
    if (memory.keptRowsPerWay > 0) text += fmt::format(" keeps {}", memory.keptRowsPerWay);
    return text;
}

/** Where hit bits are, in one line. */
Belmo::String hitText(HitBits const& hits) {
    if (!hits.exist()) return {};
    return fmt::format(" hits {} {} per {} from {}", hits.memory, fmt::join(hits.bits, " "), hits.rowsPerBit,
                       hits.firstRow);
}

}  // namespace

Belmo::String MemoryDescription::text() const {
    return fmt::format("{} {} {} row {} write {} read {}{} way {} select {} = {} rows {} * {}{}{}", name,
                       fmt::join(dataRegisters, " "), controlRegister, fieldText(row), fieldText(writeStrobe),
                       fieldText(readStrobe), clearedByRead ? " clears" : "", fieldText(way),
                       fieldText(select), selected, rowsPerWay, ways, extraText(*this), hitText(hits));
}

IndirectMemory::IndirectMemory(MemoryDescription description, std::span<U32> rows,
                               std::vector<U32*> dataRegisters)
    : description_(std::move(description)), rows_(rows), dataRegisters_(std::move(dataRegisters)) {
    BELMO_ASSERT(description_.writeStrobe.width > 0 || description_.clearedByRead);
    BELMO_ASSERT(reachesRows(description_));
    BELMO_ASSERT(reaches(description_.way, description_.ways));
    BELMO_ASSERT(rows_.size() == std::size_t{description_.rows()} * description_.wordsPerRow());
}

std::span<U32> IndirectMemory::wordsOf(U32 number) const {
    U32 const words = description_.wordsPerRow();
    return rows_.subspan(std::size_t{number} * words, words);
}

std::span<U32 const> IndirectMemory::row(U32 number) const {
    BELMO_ASSERT(number < description_.rows());
    return wordsOf(number);
}

U32 IndirectMemory::addressedRow(U32 control) const {
    U32 const field = description_.row.of(control);
    if (description_.oneHotRow && !std::has_single_bit(field)) {
        throw NerioSwitchApi::BusException(fmt::format("{} = 0x{:08X}: selects {} rows of {}",
                                                       description_.controlRegister, control,
                                                       std::popcount(field), description_.name));
    }
    U32 const row = description_.oneHotRow ? static_cast<U32>(std::countr_zero(field)) : field;
    U32 const way = description_.way.of(control);
    if (row >= description_.rowsPerWay || way >= description_.ways) {
        throw NerioSwitchApi::BusException(
            fmt::format("{} = 0x{:08X}: row {} of way {} is beyond the end of {}, {} rows in {} ways",
                        description_.controlRegister, control, row, way, description_.name,
                        description_.rowsPerWay, description_.ways));
    }
    return way * description_.rowsPerWay + row;
}

void IndirectMemory::controlIs(U32 control) {
    if (stores(control)) {
        U32 const number = addressedRow(control);
        if (!keeps(number)) return;
        auto* word = wordsOf(number).data();
        for (auto const* data : dataRegisters_)
            *word++ = *data;
        if (description_.content.width > 0) *word = description_.content.of(control);
    } else if (description_.readStrobe.of(control) != 0) {
        auto const row = wordsOf(addressedRow(control));
        for (std::size_t i = 0; i < dataRegisters_.size(); ++i)
            *dataRegisters_[i] = row[i];
        if (description_.clearedByRead) std::ranges::fill(row, 0);
    }
}

void IndirectMemory::hitMemoryIs(IndirectMemory& memory) {
    auto const& hits = description_.hits;
    auto const& bits = memory.description_;
    BELMO_ASSERT(hits.rowsPerBit > 0);
    BELMO_ASSERT(hits.bits.size() * hits.rowsPerBit >= description_.rows());
    BELMO_ASSERT(hits.firstRow + (hits.rowsPerBit + 1) / 2 <= bits.rows());
    for (U32 const bit : hits.bits)
        BELMO_ASSERT(bit + HitBits::oddRow < bits.wordsPerRow() * 32);
    hitMemory_ = &memory;
}

void IndirectMemory::hitIs(U32 number) {
    BELMO_ASSERT(number < description_.rows());
    if (hitMemory_ == nullptr) {
        throw Belmo::RangeException(fmt::format("the rows of {} have no hit bits", description_.name));
    }
    auto const place = description_.hits.of(number);
    hitMemory_->wordsOf(place.row)[place.bit / 32] |= U32{1} << place.bit % 32;
}

ControlRegister::ControlRegister(std::vector<IndirectMemory*> const& memories) {
    U32 selects = 0;
    for (auto const* memory : memories) {
        auto const select = memory->description().select;
        selects |= ((U32{1} << select.width) - 1) << select.offset;
    }
    if (selects != 0) shift_ = static_cast<U32>(std::countr_zero(selects));
    auto const width = std::bit_width(selects >> shift_);
    BELMO_ASSERT(width <= 12);
    mask_ = (U32{1} << width) - 1;
    for (U32 value = 0; value <= mask_; ++value) {
        firsts_.push_back(static_cast<U32>(answering_.size()));
        std::ranges::copy_if(memories, std::back_inserter(answering_),
                             [&](auto const* memory) { return memory->answers(value << shift_); });
    }
    firsts_.push_back(static_cast<U32>(answering_.size()));
}

}  // namespace Chip
