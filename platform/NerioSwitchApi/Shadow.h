#pragma once

#include <map>
#include <optional>
#include <span>

#include "Belmo/Exceptions.h"
#include "Belmo/Export.h"
#include "Belmo/Ptr.h"
#include "Belmo/Types.h"
#include "NerioSwitchApi/HwTypes.h"

namespace NerioSwitchApi {

/** A shadow that cannot be used: a foreign, short, newer or damaged file, a lock held, no room, no
 * permission. */
class BELMO_EXPORT ShadowException : public Belmo::ResourceException {
public:
    using ResourceException::ResourceException;
    ~ShadowException() override;
    char const* typeName() const noexcept override { return "ShadowException"; }
};

/** State of a shadow row. The values differ in several bits, so that a flipped bit makes none of another. */
enum class ShadowRowState : U8 { absent = 0x00, intended = 0x5A, written = 0xA5 };

/** One row of the shadow as it lies in memory and in files. A row of zeros holds nothing. */
struct ShadowRow {
    U32 words[maxEntryWords];
    U8 state;
    U8 size;
    U16 reserved;
    /** Over everything else in the row and the row's number; of a written row only. */
    U32 checksum;
};
static_assert(sizeof(ShadowRow) == 40);

/**
 * What the driver knows of the rows of one hardware table: dense, from `firstIndex` to `lastIndex`.
 *
 * No write is half known. `intend` stores the words and marks the row before its first register goes out,
 * `written` marks it behind the last. A row that is only intended reads as not held, so that whoever comes
 * next, in this process or after it, writes it again.
 */
class BELMO_EXPORT ShadowTable : public Belmo::Node {
public:
    ~ShadowTable() override;

    Belmo::String const& name() const { return name_; }
    HwIndex firstIndex() const { return firstIndex_; }
    HwIndex lastIndex() const { return lastIndex_; }

    /**
     * The row's entry, or nothing if the shadow does not hold it. Throws `Belmo::CorruptionDetectedException`
     * for a row that is not what was written, and `Belmo::RangeException` for a stored count above 8.
     */
    std::optional<HwEntryConfig> read(HwIndex index) const;
    /** The same as it lies in the shadow, until the row is written; null for a row that is not held. */
    ShadowRow const* held(HwIndex index) const;

    /** Stores the words, at most 8, of a row that is about to be written. Rows outside the table throw. */
    void intend(HwIndex index, std::span<U32 const> words);
    /** Marks a row as written, which has to be an intended one. */
    void written(HwIndex index);

    /** A reader met corruption: counts it and keeps the message for who asks. */
    void doCorruptionDetected(Belmo::String const& message);
    U32 corruptionsDetected() const { return corruptionsDetected_; }
    Belmo::String const& lastCorruption() const { return lastCorruption_; }

    /** Forgets a row, behind the driver's back; for tools and tests. */
    void drop(HwIndex index);
    /** Stores a row as written, behind the driver's back; more than 8 words leave a count no reader takes. */
    void store(HwIndex index, std::span<U32 const> words);
    /** Damages a row so that every read of it throws until it is written. */
    void corrupt(HwIndex index);

protected:
    /** The rows belong to the derived class, which keeps them mapped or allocated as long as it lives. */
    ShadowTable(Belmo::String name, HwIndex firstIndex, HwIndex lastIndex, ShadowRow* rows);

private:
    ShadowRow& row(HwIndex index) const;

    Belmo::String name_;
    HwIndex firstIndex_;
    HwIndex lastIndex_;
    ShadowRow* rows_;
    U32 corruptionsDetected_ = 0;
    Belmo::String lastCorruption_;
};

/**
 * Holds the shadows of all hardware tables, by name. It outlives the tables, and in files the process. A
 * derived class says where the rows of a table are.
 */
class BELMO_EXPORT ShadowStore : public Belmo::Node {
public:
    ~ShadowStore() override;

    /**
     * The shadow of the hardware table of that name and rows; a table without rows has first > last.
     * `StartMode::cold` forgets what the shadow held, and whoever still has the table from before has one
     * that this store knows no more. `StartMode::warm` keeps what it held, and throws `ShadowException`
     * where that has other rows.
     */
    Belmo::Ptr<ShadowTable> tableIs(Belmo::String const& name, HwIndex firstIndex, HwIndex lastIndex,
                                    StartMode mode);

protected:
    ShadowStore();
    /** Makes the table as it is before this store has handed it out: without rows held if cold. */
    virtual Belmo::Ptr<ShadowTable> newTable(Belmo::String const& name, HwIndex firstIndex, HwIndex lastIndex,
                                             StartMode mode) = 0;
    /** How many rows those are, and how messages speak of them. */
    static std::size_t rowCount(HwIndex firstIndex, HwIndex lastIndex);
    static Belmo::String rowsText(HwIndex firstIndex, HwIndex lastIndex);

private:
    std::map<Belmo::String, Belmo::Ptr<ShadowTable>> tables_;
};

/** A shadow that lives as long as the store: for tests, and for drivers whose chip is reset with them. */
BELMO_EXPORT Belmo::Ptr<ShadowStore> memoryShadowStore();

/**
 * A shadow in a directory of mapped files, made if it is missing, readable by the owner only. One store at a
 * time holds a directory; a second one, in this process or another, is refused with `ShadowException`.
 */
BELMO_EXPORT Belmo::Ptr<ShadowStore> mappedShadowStore(Belmo::String const& directory);

}  // namespace NerioSwitchApi
