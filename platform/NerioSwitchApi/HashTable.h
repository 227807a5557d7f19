#pragma once

#include <array>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "Belmo/Duration.h"
#include "Belmo/Export.h"
#include "Belmo/Ptr.h"
#include "Dovra/Cuckoo.h"
#include "NerioSwitchApi/EntryProgrammedStatus.h"
#include "NerioSwitchApi/SwTable.h"
#include "Sorn/BytePtr.h"

/*
 * The framework's side of tables whose rows are found by cuckoo hashing. A key has no fixed row: the
 * convertor places its item, moves others where it must, and writes rows through the table's helper, which
 * knows the layout. Several software tables may share one physical table, each with a helper of its own.
 */
namespace NerioSwitchApi {

class HashBaseTable;
class HashBaseHelper;
class PhysicalHashTableConvertor;

/** Geometry of a physical hash table. */
struct PhysicalHashGeometry {
    /** The table's number as it is accounted. */
    U32 tableId = 0;
    /** Rows per hash table: 1 << hashBits. */
    U32 tableSize = 0;
    U32 hashBits = 0;
    /** Ways of the cuckoo table. */
    U32 numHashTables = 0;
    U32 rowSlots = 1;
    /** Words of an entry's shadow, control words and shadow-only words included. */
    U8 entryWords = 0;
    U8 hitBitsSupported = 0;
    U8 placementFlag = 1;
};

/** The geometry as a helper hands it out. */
class BELMO_EXPORT PhysicalHashProperties : public Belmo::Node {
public:
    explicit PhysicalHashProperties(PhysicalHashGeometry const& geometry) : geometry_(geometry) {}
    ~PhysicalHashProperties() override;

    U32 tableId() const { return geometry_.tableId; }
    U32 tableSize() const { return geometry_.tableSize; }
    U32 hashBits() const { return geometry_.hashBits; }
    U32 numHashTables() const { return geometry_.numHashTables; }
    U32 rowSlots() const { return geometry_.rowSlots; }
    U8 entryWords() const { return geometry_.entryWords; }
    U8 hitBitsSupported() const { return geometry_.hitBitsSupported; }
    U8 placementFlag() const { return geometry_.placementFlag; }

private:
    PhysicalHashGeometry geometry_;
};

/** One key's item in a cuckoo table. */
class BELMO_EXPORT HashBaseCuckooEntry : public Dovra::Cuckoo::HashItem {
public:
    ~HashBaseCuckooEntry() override;

    virtual U32 swTableId() const;

    /** The item has a row in hardware. */
    bool placed() const { return hwIndex_ != HwEntryConfig::noIndex; }
    /** Its row over all hash tables; `HwEntryConfig::noIndex` without one. */
    HwIndex hwIndex() const { return hwIndex_; }
    /** The table that the item belongs to. */
    HashBaseTable* table() const { return table_; }
    void tableIs(HashBaseTable* table) { table_ = table; }

protected:
    HashBaseCuckooEntry() = default;

private:
    friend class PhysicalHashTableConvertor;

    HwIndex hwIndex_ = HwEntryConfig::noIndex;
    HashBaseTable* table_ = nullptr;
    bool counted_ = false;
};

/** Knows how one software table's entries lie in the rows of a physical hash table. */
class BELMO_EXPORT HashBaseHelper : public Belmo::Node {
public:
    using Ptr = Belmo::Ptr<HashBaseCuckooEntry>;
    using PtrConst = Belmo::Ptr<HashBaseCuckooEntry const>;

    ~HashBaseHelper() override;

    virtual Belmo::Ptr<PhysicalHashProperties> doGetPhysTableProperties() const = 0;
    virtual void doInit();
    /** The number of the physical table in the system's number space. */
    virtual U32 physTableIndex() const { return 0; }
    /** Other software tables, with helpers of the same index, may live in the rows of the physical table. */
    virtual bool sharesTable() const { return false; }
    /** Whether the hash of some key leads to the row. Rows that none leads to are never written. */
    virtual bool reachable(Dovra::Cuckoo::CuckooLocation const& /*location*/) const { return true; }
    /** Whether the row, as the shadow holds it, is one of this helper's table. */
    virtual bool entryOwned(HwIndex index) const;
    /** Writes the location part of the control word. */
    virtual void setStaticBuffer(Dovra::Cuckoo::CuckooLocation const& location, Sorn::BytePtr buffer) = 0;
    /** Writes the whole entry for that location into a zeroed buffer of 8 words. */
    virtual void setHwBuffer(PtrConst const& entry, Dovra::Cuckoo::CuckooLocation const& location,
                             Sorn::BytePtr buffer) = 0;
    /** An item that no map remembers, for the default key; writing it clears a row. */
    virtual Ptr nullHashEntry() = 0;
    /** The item that a row of the shadow stands for; null or not valid for an empty row. */
    virtual Ptr decodeHwEntry(HwIndex index) = 0;
    /** The forms that this helper's rows have; see `SwTableProfileConvertor::rowLayouts`. */
    virtual std::vector<RowLayout> rowLayouts() const;

    HashBaseTable* swTable() const { return swTable_; }
    void swTableIs(HashBaseTable* table) { swTable_ = table; }
    PhysicalHashTableConvertor* convertor() const { return convertor_; }
    void convertorIs(PhysicalHashTableConvertor* convertor) { convertor_ = convertor; }
    Belmo::String const& name() const { return name_; }
    void nameIs(Belmo::String name) { name_ = std::move(name); }

protected:
    HashBaseHelper() = default;

private:
    HashBaseTable* swTable_ = nullptr;
    PhysicalHashTableConvertor* convertor_ = nullptr;
    Belmo::String name_;
};

/** Base of hash tables: what the framework asks of the maps that a family keeps. */
class BELMO_EXPORT HashBaseTable : public SwTable {
public:
    using Ptr = HashBaseHelper::Ptr;
    using PtrConst = HashBaseHelper::PtrConst;

    ~HashBaseTable() override;

    /** Creates the status node. */
    virtual void doInitStatus() = 0;
    virtual Belmo::Ptr<PhysicalHashTableConvertor> profileConvertorFactory() const = 0;
    virtual Belmo::Ptr<HashBaseHelper> hashBaseHelperFactory() const = 0;
    virtual bool entryHasByHashItem(PtrConst const& item) const = 0;
    /** The item was found in hardware: make it an entry. */
    virtual void entryIsByHashItem(PtrConst const& item) = 0;
    virtual bool entryEqualByHashItem(PtrConst const& item) const = 0;
    /** The item's row was hit. */
    virtual void lastHitByHashItemIs(Belmo::Ptr<Dovra::Cuckoo::HashItem const> const& item,
                                     Belmo::Duration time);
    virtual Ptr cachedCuckooEntry(Belmo::Ptr<Dovra::Cuckoo::HashItem const> const& item) = 0;
    virtual bool updateHashItem(Ptr const& item) const = 0;
    virtual bool hwInconsistentEntryFromHashItem(PtrConst const& item) const = 0;
    virtual bool hwInconsistentEntryDelFromHashItem(PtrConst const& item) = 0;
    /** The framework no longer needs the item. */
    virtual void hashItemDelFromHashItem(PtrConst const& item) = 0;
    /** Brings hardware in line with every entry, while the table is brought up. */
    virtual void handleAllEntries() = 0;

    void doSetProfileConvertor(Belmo::Ptr<SwTableTypes> const& types) final;
    void doCreateHwTable() final;
    void doDetach() final;
    Belmo::Ptr<HashBaseHelper> const& helper() const { return helper_; }
    PhysicalHashTableConvertor* hashConvertor() const;

protected:
    using SwTable::SwTable;

private:
    Belmo::Ptr<HashBaseHelper> helper_;
};

/** How often a placement needed how many moves; the last counts all longer chains. */
using MoveHistogram = std::array<U64, 17>;

/**
 * Places items in the rows of one physical hash table and keeps its hardware tables, copies of each other.
 * Rows of a software table that shares them, but is not attached, stay as they are.
 */
class BELMO_EXPORT PhysicalHashTableConvertor : public SwTableProfileConvertor {
public:
    ~PhysicalHashTableConvertor() override;

    /**
     * Brings hardware in line with an item: places, rewrites or, for one that is not valid, removes it. False
     * only if no place was found; everything that was in hardware is then still there. In the middle of moves
     * an item may stand in two rows, never in none.
     */
    bool handleHashEntry(Belmo::Ptr<HashBaseCuckooEntry> const& entry);
    /** Counts an item in or out; the counter holds the rows in use whenever no call is under way. */
    void updateHashEntryCounter(Belmo::Ptr<HashBaseCuckooEntry const> const& entry, bool add);

    void handleHitBitEntry(HwTableId id, HwIndex index) override;
    void initHwEntries(bool resetHw, U32 id) override;
    void syncEntries(U32 id) override;
    void initEntryCounter(TableGauge::TableKey const& key, U32 capacity, CapacityTableIndex index) override;
    std::optional<HwEntryConfig> wantedEntry(HwTableId id, HwIndex index) const override;
    /** The forms that the helpers of all software tables tell. */
    std::vector<RowLayout> rowLayouts(HwTableId id) const override;

    /** Adds a software table; the first one's helper gives the geometry. */
    void swTableIs(HashBaseTable& table, Belmo::Ptr<HashBaseHelper> const& helper);
    /** Forgets a software table; its rows stay in hardware. */
    void swTableDel(HashBaseTable const& table);
    /** The table may be found by others that share it, for as long as this convertor lives. */
    void sharedIn(Belmo::Ptr<SwTableTypes> const& types, U32 physTableIndex);
    HashBaseTable* swTable(U32 number) const { return tables_.at(number); }
    U32 swTables() const { return static_cast<U32>(tables_.size()); }
    Belmo::Ptr<HashBaseHelper> const& helper(U32 number) const { return helpers_.at(number); }

    PhysicalHashProperties const& properties() const { return *properties_; }
    U32 tableSize() const { return properties_->tableSize(); }
    U32 numHashTables() const { return properties_->numHashTables(); }
    U8 entryWords() const { return properties_->entryWords(); }
    bool capacitySupported() const { return capacitySupported_; }

    Dovra::Cuckoo::CuckooLocation location(HwIndex index) const;
    /** The item in a row; null for a free one. */
    Belmo::Ptr<HashBaseCuckooEntry> const& itemAt(HwIndex index) const { return items_[index]; }
    /** Whether a key that has these rows would find a place now, with moves where it must. */
    bool hasRoom(Dovra::Cuckoo::Rows const& rows) {
        return planner_->plan(rows).outcome == Dovra::Cuckoo::Outcome::placed;
    }
    /** Rows that hold items. */
    U32 rowsInUse() const { return occupancy_->used() - reservedRows_; }
    MoveHistogram const& moveHistogram() const { return moveHistogram_; }
    U64 failedPlacements() const { return failedPlacements_; }

protected:
    void capacitySupportedIs(bool supported) { capacitySupported_ = supported; }

private:
    using Words = std::array<U32, maxEntryWords>;

    Dovra::Cuckoo::Rows rowsOf(HashBaseCuckooEntry const& entry) const;
    Words wordsOf(Belmo::Ptr<HashBaseCuckooEntry> const& entry, HwIndex index) const;
    Words nullWords(HwIndex index) const { return wordsOf(nullItem_, index); }
    void write(HwIndex index, Words const& words);
    bool place(Belmo::Ptr<HashBaseCuckooEntry> const& entry);
    void remove(Belmo::Ptr<HashBaseCuckooEntry> const& entry);
    void settle(Belmo::Ptr<HashBaseCuckooEntry> const& entry, HwIndex index, Dovra::Cuckoo::Rows const& rows);
    void vacate(HwIndex index);
    void clearLeftovers();
    bool reserved(HwIndex index) const { return occupancy_->taken(index) && !items_[index]; }
    void reserve(HwIndex index);
    void unreserve(HwIndex index);
    void adopt(HwIndex index);

    std::vector<HashBaseTable*> tables_;
    std::vector<Belmo::Ptr<HashBaseHelper>> helpers_;
    Belmo::Ptr<PhysicalHashProperties> properties_;
    bool capacitySupported_ = true;
    std::optional<Dovra::Cuckoo::Occupancy> occupancy_;
    std::optional<Dovra::Cuckoo::Planner> planner_;
    std::vector<Belmo::Ptr<HashBaseCuckooEntry>> items_;
    /** Rows that are taken, and whose software table is not attached. */
    U32 reservedRows_ = 0;
    Belmo::Ptr<HashBaseCuckooEntry> nullItem_;
    /** Free rows in which hardware still holds what a failed call left there. */
    std::vector<HwIndex> leftovers_;
    MoveHistogram moveHistogram_{};
    U64 failedPlacements_ = 0;
    Belmo::Ptr<TableGauge::Counter> counter_;
    Belmo::Ptr<SwTableTypes> sharedIn_;
    U32 sharedIndex_ = 0;
};

}  // namespace NerioSwitchApi
