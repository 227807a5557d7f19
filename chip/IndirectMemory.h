#pragma once

#include <span>
#include <vector>

#include "Belmo/Export.h"
#include "Belmo/Types.h"
#include "NerioSwitchApi/RegisterBus.h"

namespace Chip {

/** Bits of a control word. A field of no bits reads as 0. */
struct ControlField {
    U8 offset = 0;
    U8 width = 0;

    /** The field's value in that control word. */
    constexpr U32 of(U32 word) const { return static_cast<U32>(word >> offset & ((U64{1} << width) - 1)); }
};

/**
 * A memory that is reached through data registers and a control register. Several memories may share their
 * registers; each sees every control word, and its select field says whether it is meant.
 */
struct BELMO_EXPORT MemoryDescription {
    /** Unique in the chip. */
    Belmo::String name;
    /** One for each word of a row, first word first. */
    std::vector<Belmo::String> dataRegisters;
    Belmo::String controlRegister;
    ControlField row;
    /** A control word with any of these bits stores the data registers into the row. */
    ControlField writeStrobe;
    U32 rowsPerWay = 0;
    /** A control word with any of these bits, and none of the write strobe, loads the data registers from the
     * row. */
    ControlField readStrobe{};
    ControlField way{};
    U32 ways = 1;
    ControlField select{};
    /** Value of `select` that this memory answers to. */
    U32 selected = 0;

    U32 rows() const { return rowsPerWay * ways; }
    U32 wordsPerRow() const { return static_cast<U32>(dataRegisters.size()); }
    /** All of it in one line; two memories with one text are one memory. */
    Belmo::String text() const;
};

/** What stands behind a control register: rows of words within the chip's memory. */
class BELMO_EXPORT IndirectMemory {
public:
    /** `rows` is where the memory's words lie, `dataRegisters` where its data registers lie. */
    IndirectMemory(MemoryDescription description, std::span<U32> rows, std::vector<U32*> dataRegisters);

    MemoryDescription const& description() const { return description_; }
    /** The words of a row as the chip holds them; ways lie one behind the other. */
    std::span<U32 const> row(U32 number) const;

    /** Whether a control word speaks to this memory. */
    bool answers(U32 control) const { return description_.select.of(control) == description_.selected; }
    /** Does what a control word asks for; throws `NerioSwitchApi::BusException` for a row beyond the end. */
    void controlIs(U32 control);

private:
    std::span<U32> addressedRow(U32 control) const;

    MemoryDescription description_;
    std::span<U32> rows_;
    std::vector<U32*> dataRegisters_;
};

}  // namespace Chip
