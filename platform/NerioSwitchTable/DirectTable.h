#pragma once

#include <array>
#include <optional>
#include <vector>

#include "Belmo/Duration.h"
#include "Belmo/Export.h"
#include "Belmo/Ptr.h"
#include "NerioSwitchApi/SwTable.h"
#include "Sorn/BytePtr.h"

/*
 * The framework's side of tables whose keys stand for one row each: no hashing, no search, no moves. The
 * convertor walks rows and writes them; what a key is, and how a row is laid out, the family says. All
 * hardware tables of a convertor are copies of each other.
 */
namespace NerioSwitchTable {

class DirectBaseConvertor;

/**
 * One key with its result, on the way between table and framework. It is made when it is needed and kept by
 * nobody. One that is not `valid` stands for a row that holds the null entry.
 */
class BELMO_EXPORT DirectBaseEntry : public Belmo::Node {
public:
    ~DirectBaseEntry() override;

    /** The text form for traces. */
    virtual Belmo::String toStrep() const = 0;

    /** The software table holds the key. */
    bool valid() const { return valid_; }
    void validIs(bool valid) { valid_ = valid; }
    /** When the row was hit last; only tables with status read it. */
    Belmo::Duration lastHit() const { return lastHit_; }
    void lastHitIs(Belmo::Duration time) { lastHit_ = time; }

protected:
    DirectBaseEntry() = default;

private:
    bool valid_ = false;
    Belmo::Duration lastHit_ = Belmo::Duration::never();
};

/** The text form of an item; "NULL" without one. */
BELMO_EXPORT Belmo::String strepOf(Belmo::Ptr<DirectBaseEntry const> const& item);

/** Base of direct tables: what the framework asks of the maps that a family keeps. */
class BELMO_EXPORT DirectBaseTable : public NerioSwitchApi::SwTable {
public:
    using Ptr = Belmo::Ptr<DirectBaseEntry>;
    using PtrConst = Belmo::Ptr<DirectBaseEntry const>;

    ~DirectBaseTable() override;

    /** Runs when the hardware tables are there; a table with status makes its status object. */
    virtual void doInitDirectTable();
    /** A new convertor of the family. */
    virtual Belmo::Ptr<DirectBaseConvertor> profileConvertorFactory() const = 0;
    virtual bool entryHasByDirectItem(PtrConst const& item) const = 0;
    /** The item, which is valid, was found in hardware: make it an entry. */
    virtual void entryIsByDirectItem(PtrConst const& item) = 0;
    /** The item's key is an entry, and has the item's result. */
    virtual bool entryEqualByDirectItem(PtrConst const& item) const = 0;
    /** Gives the item the stored result; whether that changed it. */
    virtual bool updateDirectItem(Ptr const& item) const = 0;
    virtual bool hwInconsistentEntryFromDirectItem(PtrConst const& item) const = 0;
    virtual void hwInconsistentEntryDelFromDirectItem(PtrConst const& item) = 0;

    void doSetProfileConvertor(Belmo::Ptr<NerioSwitchApi::SwTableTypes> const& types) final;
    void doCreateHwTable() final;

    DirectBaseConvertor* directConvertor() const;

protected:
    using SwTable::SwTable;

    /**
     * Programs the item's row in every copy: what the item says, or the null entry for one that is not valid.
     * `entries` is how many the table holds now.
     */
    void handleDirectEntry(PtrConst const& item, U32 entries) const;
};

/** What a direct family's rows are like, whatever their fields. */
struct DirectRowForm {
    /** Words of a row, those that stay in the shadow included. */
    U8 words;
    /** The words that the row's number alone decides, and which bits of them. */
    struct StaticWord {
        U8 position;
        U32 mask;
    };
    std::vector<StaticWord> staticWords;
    U8 readStrobeBit = 16;
    U8 writeStrobeBit = 17;
};

/** Writes the rows of a direct table, and reads them back after a restart. */
class BELMO_EXPORT DirectBaseConvertor : public NerioSwitchApi::SwTableProfileConvertor {
public:
    using HwIndex = NerioSwitchApi::HwIndex;
    using HwTableId = NerioSwitchApi::HwTableId;
    using RowWords = std::array<U32, NerioSwitchApi::maxEntryWords>;
    using Ptr = DirectBaseTable::Ptr;
    using PtrConst = DirectBaseTable::PtrConst;

    ~DirectBaseConvertor() override;

    /** The row of the item's key. */
    virtual HwIndex hwIndexFromItem(PtrConst const& item) const = 0;
    /** Writes the bits that the row's number alone decides: control word and strobes. */
    virtual void setStaticBuffer(HwIndex index, Sorn::BytePtr buffer) const = 0;
    /** Writes the whole row of the item into a zeroed buffer of 8 words. */
    virtual void setHwBuffer(PtrConst const& item, Sorn::BytePtr buffer) const = 0;
    /** A new item for a row: the row's key, the null result, not valid. */
    virtual Ptr nullDirectEntry(HwIndex index) const = 0;
    /** The item that a row of the shadow stands for. Marks its key if the copies of the row disagree. */
    virtual Ptr decodeHwEntry(HwIndex index) = 0;
    /** The capacity counter that the item counts in. */
    virtual NerioSwitchApi::CapacityTableIndex capacityIndexFromEntry(PtrConst const& item) const;

    /**
     * Wanted rows are written where they differ. A row that nobody wants gets the null entry: with `resetHw`
     * always, otherwise where a copy lacks it in its shadow, or holds other content than the first copy.
     */
    void initHwEntries(bool resetHw, U32 id) override;
    void syncEntries(U32 id) override;
    /** Of a row that nobody wants, the null entry. */
    std::optional<NerioSwitchApi::HwEntryConfig> wantedEntry(HwTableId id, HwIndex index) const override;
    /** Declares the static words again. */
    void handleInitialized() override;

    /** Throws `Belmo::RangeException` for an item whose row the hardware tables do not have. */
    void checkItem(PtrConst const& item) const;
    /** Brings the item's row in line with it, in every copy that differs. */
    void handleDirectEntry(PtrConst const& item);
    U8 dataWords() const { return form_.words; }

    DirectBaseTable& swTable() const { return *swTable_; }
    void swTableIs(DirectBaseTable& table) { swTable_ = &table; }

protected:
    explicit DirectBaseConvertor(DirectRowForm form);

    /**
     * Makes copy `id` of rows 0 to `lastIndex`, all written through `registers`, and returns its name, which
     * says `tableName`.
     */
    Belmo::String createDirectTable(HwTableId id, NerioSwitchApi::TableState state,
                                    Belmo::String const& tableName, HwIndex lastIndex,
                                    Belmo::Ptr<NerioSwitchApi::HwAddressColl const> const& registers);
    /** The same of rows that are written through other registers each, under the name of the mapping. */
    void createDirectTable(HwTableId id, NerioSwitchApi::TableState state, HwIndex lastIndex,
                           Belmo::Ptr<NerioSwitchApi::HwTableRegisterMapping> const& mapping);
    /** The words of a row as the first copy's shadow holds it; zeros where it does not. */
    RowWords storedWords(HwIndex index) const;
    /** Whether some copy's shadow holds other data words than these. */
    bool copiesDiffer(HwIndex index, RowWords const& first) const;

private:
    Ptr wantedItem(HwIndex index) const;
    RowWords wordsOf(PtrConst const& item) const;
    bool heldAlike(HwIndex index) const;
    void write(PtrConst const& item, bool always);
    void count(HwIndex index, PtrConst const& item);

    DirectRowForm form_;
    DirectBaseTable* swTable_ = nullptr;
    /** Rows that their capacity counter counts. */
    std::vector<bool> counted_;
};

}  // namespace NerioSwitchTable
