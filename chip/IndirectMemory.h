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

/** Where something lies in a memory of hit bits: in which of its rows, and at which bit there. */
struct HitPlace {
    U32 row = 0;
    U32 bit = 0;

    friend bool operator==(HitPlace, HitPlace) = default;
};

/**
 * Where a memory's rows have their hit bits, in a hit memory that other memories share. Two neighbouring rows
 * lie in one row of the hit memory.
 */
struct BELMO_EXPORT HitBits {
    /** How far an odd row's bit stands above that of the even row before it. */
    static constexpr U32 oddRow = 36;

    /** The hit memory's name; without one the rows have no hit bits. */
    Belmo::String memory;
    /** The bit of even rows for each `rowsPerBit` rows, the first ones first. */
    std::vector<U8> bits;
    U32 rowsPerBit = 0;
    /** Where in the hit memory each bit's first two rows stand. */
    U32 firstRow = 0;

    bool exist() const { return !memory.empty(); }
    /** The place of a row, counted over all ways. */
    HitPlace of(U32 number) const {
        U32 const within = number % rowsPerBit;
        return {firstRow + within / 2, bits[number / rowsPerBit] + within % 2 * oddRow};
    }
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
    /** A control word with any of these bits stores the data registers into the row. Only a memory that is
     * cleared by reading may have none. */
    ControlField writeStrobe{};
    U32 rowsPerWay = 0;
    /** A control word with any of these bits, and none of the write strobe, loads the data registers from the
     * row. */
    ControlField readStrobe{};
    ControlField way{};
    U32 ways = 1;
    ControlField select{};
    /** Value of `select` that this memory answers to. */
    U32 selected = 0;
    /** Each bit of the row field selects a row of its own, the lowest bit row 0. */
    bool oneHotRow = false;
    /** Drivers write control words that store nothing as a matter of course: these leave nothing to read. */
    bool takesIdleWords = false;
    /** Bits of the control word that belong to a row: they are stored as a word behind the data registers'.
     */
    ControlField content{};
    /** Of each way the rows that the simulated chip keeps, 0 for all: what is stored in others is lost. */
    U32 keptRowsPerWay = 0;
    /** Reading a row leaves it zero, as the memories of hit bits do. */
    bool clearedByRead = false;
    HitBits hits{};

    U32 rows() const { return rowsPerWay * ways; }
    U32 wordsPerRow() const { return static_cast<U32>(dataRegisters.size()) + (content.width > 0 ? 1 : 0); }
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
    /** Whether a control word would store a row. */
    bool stores(U32 control) const { return description_.writeStrobe.of(control) != 0; }
    /** Does what a control word asks for; throws `NerioSwitchApi::BusException` for a row beyond the end. */
    void controlIs(U32 control);
    /** The row that a control word names, counted over all ways; throws like `controlIs`, also for a word
     * that selects several rows, or none, by a bit each. */
    U32 addressedRow(U32 control) const;
    /** Whether what is stored in that row is there afterwards. */
    bool keeps(U32 number) const {
        U32 const kept = description_.keptRowsPerWay;
        return kept == 0 || number % description_.rowsPerWay < kept;
    }

    /** The memory that holds this one's hit bits; its rows must have room for them. */
    void hitMemoryIs(IndirectMemory& memory);
    /** A packet hit that row. Throws `Belmo::RangeException` where rows have no hit bits. */
    void hitIs(U32 number);

private:
    std::span<U32> wordsOf(U32 number) const;

    MemoryDescription description_;
    std::span<U32> rows_;
    std::vector<U32*> dataRegisters_;
    IndirectMemory* hitMemory_ = nullptr;
};

/** The memories behind one control register. */
class BELMO_EXPORT ControlRegister {
public:
    explicit ControlRegister(std::vector<IndirectMemory*> const& memories);

    /** The memories that a control word speaks to. */
    std::span<IndirectMemory* const> answering(U32 control) const {
        U32 const value = control >> shift_ & mask_;
        return {answering_.data() + firsts_[value], answering_.data() + firsts_[value + 1]};
    }

private:
    /** Take from a control word the bits from the lowest to the highest that any memory is selected by. */
    U32 shift_ = 0;
    U32 mask_ = 0;
    /** For each value of those bits the memories that answer it, one value behind the other. */
    std::vector<IndirectMemory*> answering_;
    /** For each value the position of its first memory, and one position behind the last. */
    std::vector<U32> firsts_;
};

}  // namespace Chip
